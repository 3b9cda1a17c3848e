// What is set for the bridge as a whole.

#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"

#include <unistd.h>

namespace Vorn {

namespace {
Kem::TraceFacility bridgingSettingsTrace("VornBridgingSettings");
}

void BridgingConfigSm::handleDefaultSwitchportMode() {
   KEM_TRACE(bridgingSettingsTrace, 0,
             "defaultSwitchportMode is now " << static_cast<unsigned>(config().defaultSwitchportMode())
                                             << ": the agent starts again");
   _exit(0);
}

void BridgingConfigSm::handleVidToFidMap(Bridging::VlanId secondaryVlan) {
   auto const* const fid = cliConfig().vidToFidMap().find(secondaryVlan);
   if (fid && *fid != 0) {
      config().vidToFidMapIs(secondaryVlan, *fid);
      KEM_TRACE(bridgingSettingsTrace, 3, "added mapping from " << secondaryVlan << " to " << *fid);
   } else {
      config().vidToFidMapDel(secondaryVlan);
      KEM_TRACE(bridgingSettingsTrace, 3, "removed mapping for " << secondaryVlan);
   }
}

void BridgingConfigSm::handleAllVidToFidMap() {
   for (auto const& [vlanId, fid] : cliConfig().vidToFidMap())
      handleVidToFidMap(vlanId);
   for (auto const& [vlanId, fid] : config().vidToFidMap())
      handleVidToFidMap(vlanId); // stale ones go
}

void BridgingConfigSm::handleIeeeReservedForwarding(Sulvi::EthAddr addr) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (cliConfig().ieeeReservedForwarding(addr))
      config().ieeeReservedForwardingIs(addr, true);
   else
      config().ieeeReservedForwardingDel(addr);
}

void BridgingConfigSm::handleIeeeReservedForwarding() {
   for (auto const& [addr, isForwarded] : cliConfig().ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr);
   for (auto const& [addr, isForwarded] : config().ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr); // stale ones go
}

} // namespace Vorn
