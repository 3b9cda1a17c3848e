#include "Vorn/BridgingSm/BridgeSettingsSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/PrivateVlans.h"

#include <unistd.h>

namespace Vorn {

namespace {
Kem::TraceFacility bridgeSettingsTrace("VornBridgingSettings");
}

BridgeSettingsSm::BridgeSettingsSm(Kem::Ptr<Bridging::Config> config,
                                   Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig,
                                   Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState)
    : config_(std::move(config)), cliConfig_(cliConfig),
      privateVlanLibState_(std::move(privateVlanLibState)) {
   kemConfig_.notifierIs(config_);
   kemCliConfig_.notifierIs(cliConfig_);
}

void BridgeSettingsSm::handleInitialized() {
   initializedIs(true);
   handleIeeeReservedForwarding();
   handleAllVidToFidMap();
}

void BridgeSettingsSm::cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig) {
   cliConfig_ = cliConfig;
   kemCliConfig_.notifierIs(cliConfig_);
   handleIeeeReservedForwarding();
   handleAllVidToFidMap();
}

void BridgeSettingsSm::handleDefaultSwitchportMode() {
   KEM_TRACE(bridgeSettingsTrace, 0,
             "defaultSwitchportMode is now " << static_cast<unsigned>(config_->defaultSwitchportMode())
                                             << ": the agent starts again");
   _exit(0);
}

void BridgeSettingsSm::handleVidToFidMap(Bridging::VlanId secondaryVlan) {
   if (auto const primary = primaryOf(*privateVlanLibState_, *config_, secondaryVlan)) {
      config_->vidToFidMapIs(secondaryVlan, primary->vlanId().value());
      return;
   }
   auto const* const fid = cliConfig_->vidToFidMap().find(secondaryVlan);
   if (fid && *fid != 0) {
      config_->vidToFidMapIs(secondaryVlan, *fid);
      KEM_TRACE(bridgeSettingsTrace, 3, "added mapping from " << secondaryVlan << " to " << *fid);
   } else {
      config_->vidToFidMapDel(secondaryVlan);
      KEM_TRACE(bridgeSettingsTrace, 3, "removed mapping for " << secondaryVlan);
   }
}

void BridgeSettingsSm::handleAllVidToFidMap() {
   for (auto const& [vlanId, fid] : cliConfig_->vidToFidMap())
      handleVidToFidMap(vlanId);
   for (auto const& [vlanId, fid] : config_->vidToFidMap())
      handleVidToFidMap(vlanId); // deletes stale ones
}

void BridgeSettingsSm::handleIeeeReservedForwarding(Sulvi::EthAddr addr) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (cliConfig_->ieeeReservedForwarding(addr))
      config_->ieeeReservedForwardingIs(addr, true);
   else
      config_->ieeeReservedForwardingDel(addr);
}

void BridgeSettingsSm::handleIeeeReservedForwarding() {
   for (auto const& [addr, isForwarded] : cliConfig_->ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr);
   for (auto const& [addr, isForwarded] : config_->ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr); // deletes stale ones
}

} // namespace Vorn
