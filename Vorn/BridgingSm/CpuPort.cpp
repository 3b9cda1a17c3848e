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

void doSyncCpuPort(BridgingConfigSm const& sm, Bridging::VlanConfig const& primary,
                   Bridging::VlanConfig& secondary) {
   bool const isWanted = secondary.adminState() == Bridging::VlanAdminState::active &&
                         primary.intf(cpuIntfId()) &&
                         isServed(sm.config(), primary.vlanId(), secondary.vlanId());
   if (isWanted)
      addCpuPort(secondary);
   else
      deleteCpuPort(secondary);
}

namespace {
void syncSecondaries(BridgingConfigSm const& sm, Bridging::VlanConfig const& primary) {
   if (auto const state = sm.privateVlanLibState().primaryVlan(primary.vlanId()))
      for (auto const& [secondaryId, isSecondary] : state->secondaryVlan())
         if (auto const secondary = sm.config().vlanConfig(secondaryId))
            doSyncCpuPort(sm, primary, *secondary);
}
} // namespace

void maybeSyncCpuPort(BridgingConfigSm& sm, Bridging::VlanId vlanId) {
   KEM_TRACE(cpuPortTrace, 8,
             "maybeSyncCpuPort"
                 << " vid " << vlanId);
   auto const vlan = sm.config().vlanConfig(vlanId);
   if (!vlan)
      return;
   syncSecondaries(sm, *vlan);

   auto const& libState = sm.privateVlanLibState();
   auto const* const role = libState.vlanTypeAndPrimaryVlan(vlanId);
   auto const primaryId = vlan->vlanTypeAndPrimaryVlan().primaryVlan;
   if (primaryId == 0 || !role || role->primaryVlan == 0)
      return;
   auto const primary = sm.config().vlanConfig(Bridging::VlanId(primaryId));
   if (primary && primary->vlanTypeAndPrimaryVlan() == Bridging::VlanTypeAndPrimaryVlan() &&
       !primary->internal()) {
      doSyncCpuPort(sm, *primary, *vlan);
      if (primaryOf(libState, sm.config(), vlanId) != primary)
         sm.privateVlans().cpuPortIsAhead(vlanId);
   }
}

void resyncCpuPort(BridgingConfigSm const& sm, Bridging::VlanConfig& vlan) {
   if (auto const primary = primaryOf(sm.privateVlanLibState(), sm.config(), vlan.vlanId()))
      doSyncCpuPort(sm, *primary, vlan);
   else if (wantsCpuPort(sm.vlanInterfaces(), vlan))
      addCpuPort(vlan);
   else
      deleteCpuPort(vlan);
   syncSecondaries(sm, vlan); // it may be a primary by now
}

} // namespace Vorn
