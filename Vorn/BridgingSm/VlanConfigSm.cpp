#include "Vorn/BridgingSm/VlanConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

namespace Vorn {

namespace {
Kem::TraceFacility vlanTrace("VornVlan");
}

VlanConfigSm::VlanConfigSm(BridgingConfigSm& parent, Bridging::VlanId vlanId,
                           Kem::Ptr<Bridging::Input::VlanConfig const> const& vlanConfigIn)
    : parent_(parent), vlanId_(vlanId) {
   vlanConfigInIs(vlanConfigIn);
}

void VlanConfigSm::vlanConfigInIs(Kem::Ptr<Bridging::Input::VlanConfig const> const& in) {
   in_ = in;
   kemVlanConfigIn_.notifierIs(in);
}

Kem::Ptr<Bridging::VlanConfig> VlanConfigSm::vlanOut() const {
   auto vlanConfig = parent_.resolvedVlans().vlan(vlanId_);
   KEM_ASSERT(vlanConfig);
   return vlanConfig;
}

// --- Life.

void VlanConfigSm::handleInitialized() {
   initializedIs(true);
   parent_.handleInternalVlanIdInUse(vlanId_);
   // This deletes an internal VLAN of the previous run that its port hasn't claimed yet: the user's
   // claim wins.
   auto const out = parent_.resolvedVlans().vlanIs(vlanId_);
   parent_.resolvedVlans().configSourceIs(*out, Kem::String8(parent_.configIn()->name()));
   doMaybeUpdateTrunkAllowedVlans();
   handleVlanConfigIn();
   parent_.handleFdbConfig(vlanId_); // behind the VLAN
}

void VlanConfigSm::doPrepareToDie() {
   KEM_INVARIANT(initialized(), "initialized()");
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& sm) { sm->doLoseNativeVlan(vlanId_); });
   if (auto const out = parent_.resolvedVlans().vlan(vlanId_))
      parent_.resolvedVlans().vlanTypeAndPrimaryVlanIs(*out, {});
}

// --- Changes of the copy.

void VlanConfigSm::handleVlanConfigIn() {
   handleConfiguredName();
   handleTrunkGroup();
   handleAdminState();
   handleVlanTypeAndPrimaryVlan();
}

void VlanConfigSm::handleConfiguredName() {
   if (!isReady())
      return;
   auto const out = vlanOut();
   parent_.resolvedVlans().configuredNameIs(*out, in_->configuredName());
}

void VlanConfigSm::handleVlanTypeAndPrimaryVlan() {
   if (!isReady())
      return;
   auto const out = vlanOut();
   parent_.resolvedVlans().vlanTypeAndPrimaryVlanIs(*out, in_->vlanTypeAndPrimaryVlan());
}

void VlanConfigSm::handleTrunkGroup() {
   if (!isReady())
      return;
   auto const out = vlanOut();
   for (auto const& [name, value] : out->trunkGroup())
      if (value != in_->trunkGroup(name)) {
         KEM_TRACE(vlanTrace, 3, "Removing trunkGroup:" << name << "from vlan:" << vlanId_);
         parent_.resolvedVlans().trunkGroupDel(*out, name);
      }
   for (auto const& [name, value] : in_->trunkGroup())
      if (value != out->trunkGroup(name)) {
         KEM_TRACE(vlanTrace, 3, "Adding trunkGroup:" << name << " to vlan:" << vlanId_);
         parent_.resolvedVlans().trunkGroupIs(*out, name);
      }
}

void VlanConfigSm::handleTrunkGroup(Kem::String8 const& name) {
   if (!isReady())
      return;
   auto const out = vlanOut();
   bool const isResolved = out->trunkGroup().find(name);
   if (in_->trunkGroup(name) && !isResolved) {
      KEM_TRACE(vlanTrace, 3, "Adding trunkGroup:" << name << " to vlan:" << vlanId_);
      parent_.resolvedVlans().trunkGroupIs(*out, name);
   } else if (!in_->trunkGroup(name) && isResolved) {
      KEM_TRACE(vlanTrace, 3, "Removing trunkGroup:" << name << "from vlan:" << vlanId_);
      parent_.resolvedVlans().trunkGroupDel(*out, name);
   }
   handleAdminState(); // also when nothing changed: it re-evaluates membership
}

void VlanConfigSm::handleAdminState() {
   if (!isReady())
      return;
   auto const out = vlanOut();
   parent_.resolvedVlans().adminStateIs(*out, in_->adminState());
   syncSwitchports(*out);
   syncCpuPort(*out);
}

// --- Helpers.

void VlanConfigSm::syncSwitchports(Bridging::VlanConfig& vlanOut) {
   auto const& config = parent_.config();
   auto const primaryState = parent_.privateVlanLibState().primaryVlan(vlanId_);
   auto const primaryId = vlanOut.vlanTypeAndPrimaryVlan().primaryVlan;
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& sm) {
      if (!sm->switchIntfConfig().enabled())
         return;
      // A port whose native VLAN didn't exist before gets it here. A port whose copy has just changed may be
      // evaluated here before its own handler runs, which will then find nothing to change: so all that
      // depends on the new value is done here.
      sm->doTakeUpNativeVlan();
      sm->doSyncSingleVlan(vlanOut);
      if (primaryState)
         primaryState->secondaryVlan().forEach([&](Bridging::VlanId secondaryId, bool) {
            if (auto const secondary = config.vlanConfig(secondaryId))
               sm->doSyncSingleVlan(*secondary);
         });
      if (primaryId != 0)
         sm->maybeSyncOneVlan(primaryId); // a port earlier in this loop may have given it up
   });
}

void VlanConfigSm::syncCpuPort(Bridging::VlanConfig& vlanOut) {
   maybeSyncCpuPort(parent_, vlanId_);
   if (vlanOut.intf(cpuIntfId()))
      KEM_TRACE(vlanTrace, 3, " Adding Cpu port for vlan " << vlanId_);
   else
      KEM_TRACE(vlanTrace, 3, " Removing Cpu port for vlan" << vlanId_);
}

// A VLAN that only that source claims was left out of the allowed sets until it got its static entry. Meant: a
// VLAN that others claim too triggers nothing.
void VlanConfigSm::doMaybeUpdateTrunkAllowedVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (parent_.dynVlans().isClaimedByMvrpOnly(vlanId_))
      parent_.dynVlans().doComputePorts();
}

} // namespace Vorn
