#include "Vorn/BridgingSm/CpuPort.h"

#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/VlanInterfaces.h"
#include "Vorn/Rules/PrivateVlans.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

namespace Vorn {

namespace {
Kem::TraceFacility cpuPortTrace("VornCpuPort");
}

Sulvi::IntfId cpuIntfId() {
   static Sulvi::IntfId const id("Cpu");
   return id;
}

void addCpuPort(Bridging::VlanConfig& vlan) {
   vlan.intfIs(cpuIntfId(), {.tagged = true});
}

void deleteCpuPort(Bridging::VlanConfig& vlan) {
   vlan.intfDel(cpuIntfId());
}

bool wantsCpuPort(VlanInterfaces const& vlanInterfaces, Bridging::VlanConfig const& vlan) {
   auto const vlanIntf = vlanInterfaces.find(vlan.vlanId());
   return vlanIntf && vlanIntf->enabled() && vlan.adminState() == Bridging::VlanAdminState::active;
}

void doSyncCpuPort(CpuPortInputs const& in, Bridging::VlanConfig const& primary,
                   Bridging::VlanConfig& secondary) {
   bool const isWanted = secondary.adminState() == Bridging::VlanAdminState::active &&
                         primary.intf(cpuIntfId()) &&
                         isServed(in.config, primary.vlanId(), secondary.vlanId());
   if (isWanted)
      addCpuPort(secondary);
   else
      deleteCpuPort(secondary);
}

namespace {
void syncSecondaries(CpuPortInputs const& in, Bridging::VlanConfig const& primary) {
   if (auto const state = in.privateVlanLibState.primaryVlan(primary.vlanId()))
      for (auto const& [secondaryId, isSecondary] : state->secondaryVlan())
         if (auto const secondary = in.config.vlanConfig(secondaryId); secondary && !secondary->internal())
            doSyncCpuPort(in, primary, *secondary);
}
} // namespace

void syncCpuPort(CpuPortInputs const& in, Bridging::VlanConfig& vlan) {
   if (vlan.internal())
      addCpuPort(vlan);
   else if (auto const primary = primaryOf(in.privateVlanLibState, in.config, vlan.vlanId()))
      doSyncCpuPort(in, *primary, vlan);
   else if (wantsCpuPort(in.vlanInterfaces, vlan))
      addCpuPort(vlan);
   else
      deleteCpuPort(vlan);
   syncSecondaries(in, vlan);
}

void maybeSyncCpuPort(BridgingConfigSm& sm, Bridging::VlanId vlanId) {
   KEM_TRACE(cpuPortTrace, 8,
             "maybeSyncCpuPort"
                 << " vid " << vlanId);
   if (auto const vlan = sm.config().vlanConfig(vlanId))
      syncCpuPort(sm.cpuPortInputs(), *vlan);
}

} // namespace Vorn
