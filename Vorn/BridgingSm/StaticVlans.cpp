#include "Vorn/BridgingSm/StaticVlans.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility staticVlanTrace("VornBridgingVlan");
}

void StaticVlans::handleInitialized() {
   initializedIs(true);
   vlanConfigCodef_ = Kem::makePtr<VlanConfigCodef>(Kem::ActivityFacility::clock(), configIn(), *this);
}

// --- configIn.

Kem::Ptr<Bridging::Input::Config const> const& StaticVlans::configIn() const {
   return parent_.configIn();
}

AttrLogCheck* StaticVlans::attrLogCheck() const {
   return parent_.attrLogCheck();
}

bool StaticVlans::isWanted(Bridging::VlanId vlanId) const {
   return configIn() && configIn()->vlanConfig().find(vlanId);
}

bool StaticVlans::isStatic(Bridging::VlanId vlanId) const {
   return isWanted(vlanId) || vlanConfigAfterCodef_.find(vlanId);
}

void StaticVlans::handleVlanConfig() {
   auto const& input = configIn();
   auto& resolvedVlans = parent_.resolvedVlans();
   auto& config = parent_.config();
   config.vlanConfigSourceDetailIs(input ? input->sourceDetail() : Kem::String8());
   for (auto const& [vlanId, vlan] : config.vlanConfig()) {
      if (isWanted(vlanId) && vlan->internal()) {
         // The user now wants the number of a routed port's VLAN.
         KEM_TRACE(staticVlanTrace, 0, "Deleting Vlan " << vlanId);
         resolvedVlans.vlanDel(vlanId);
         parent_.handleInternalVlanIdInUse(vlanId);
      } else if (!parent_.routedPort(vlanId).empty() || !parent_.startupRoutedPort(vlanId).empty()) {
         KEM_TRACE(staticVlanTrace, 3, "Not deleting Vlan " << vlanId << "since it is a routed port");
      } else if (isWanted(vlanId)) {
         continue;
      } else if (parent_.dynVlans().isDynamic(vlanId)) {
         // All else of it is what it was: making it again for every change would pass over all ports for each.
         parent_.dynVlans().doSyncCpuPort(*vlan);
      } else {
         KEM_TRACE(staticVlanTrace, 3, "Deleting Vlan " << vlanId);
         handleVlanConfig(vlanId);
      }
   }
   vlanConfigCodef_->handleVlanConfig();
   parent_.dynVlans().handleConfigIn();
}

// --- Copies.

Kem::Ptr<Bridging::Input::VlanConfig> StaticVlans::vlanConfigAfterCodef(Bridging::VlanId vlanId) const {
   auto const* const found = vlanConfigAfterCodef_.find(vlanId);
   return found ? *found : nullptr;
}

Kem::Ptr<Bridging::Input::VlanConfig> StaticVlans::vlanConfigAfterCodefIs(Bridging::VlanId vlanId) {
   auto const [copy, isNew] =
       vlanConfigAfterCodef_.findOrInsert(vlanId, [&] { return Bridging::Input::VlanConfig::make(vlanId); });
   auto const result = *copy;
   if (isNew)
      handleVlanConfig(vlanId);
   return result;
}

void StaticVlans::vlanConfigAfterCodefDel(Bridging::VlanId vlanId) {
   bool const isOrphan = parent_.resolvedVlans().vlan(vlanId) && parent_.routedPort(vlanId).empty() &&
                         parent_.startupRoutedPort(vlanId).empty();
   // Without a copy too: a VLAN that left the input before it got one may be there from a dynamic source that
   // gave it up meanwhile, or be missing though one claims it.
   if (vlanConfigAfterCodef_.erase(vlanId) || isOrphan || parent_.dynVlans().isClaimed(vlanId))
      handleVlanConfig(vlanId);
}

// --- Children.

void StaticVlans::handleVlanConfig(Bridging::VlanId vlanId) {
   if (!isReady())
      return;
   auto const copy = vlanConfigAfterCodef(vlanId);
   if (copy) {
      vlanConfigSmIs(vlanId, copy);
      return;
   }
   bool const hadSm = bool(vlanConfigSm(vlanId));
   if (hadSm) {
      KEM_TRACE(staticVlanTrace, 3, "Deleting vlanConfigSm for vlan " << vlanId);
      childDel(vlanConfigSm_, vlanId);
   }
   if (parent_.dynVlans().isClaimed(vlanId)) {
      parent_.dynVlans().doTurnDynamic(vlanId);
      parent_.handleFdbConfig(vlanId);
      return;
   }
   KEM_INVARIANT(parent_.routedPort(vlanId).empty(), "!routedPortIteratorConst().isMemberOf( vlanId )");
   KEM_TRACE(staticVlanTrace, 3, "Deleting vlanConfig for vlan " << vlanId);
   if (!hadSm) // which takes it from the ports; a dynamic VLAN that is left behind has none
      parent_.switchIntfSm().forEach(
          [&](Sulvi::IntfId, auto const& port) { port->doLoseNativeVlan(vlanId); });
   parent_.resolvedVlans().vlanDel(vlanId);
   parent_.handleFdbConfig(vlanId);
}

void StaticVlans::vlanConfigSmIs(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig> const& copy) {
   auto const sm = vlanConfigSm(vlanId);
   KEM_TRACE(staticVlanTrace, 3, (sm ? "Changing" : "Creating") << " vlanConfigSm for vlan " << vlanId);
   if (sm)
      sm->vlanConfigInIs(copy);
   else
      vlanConfigSm_.findOrInsert(vlanId, [&] { return Kem::makePtr<VlanConfigSm>(parent_, vlanId, copy); });
}

void StaticVlans::vlanConfigSmInitialize(Bridging::VlanId vlanId) {
   vlanConfigSm(vlanId)->handleInitialized();
}

Kem::Ptr<VlanConfigSm> StaticVlans::vlanConfigSm(Bridging::VlanId vlanId) const {
   auto const* const found = vlanConfigSm_.find(vlanId);
   return found ? *found : nullptr;
}

} // namespace Vorn
