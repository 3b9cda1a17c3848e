// The path of a VLAN: configIn, the deferred stage, the copy, VlanConfigSm. VLAN interfaces are here too,
// because they take VLAN numbers.

#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "records/Interface/VlanIntfConfig.h"

namespace Vorn {

namespace {
Kem::TraceFacility bridgingVlanTrace("VornBridgingVlan");
}

// --- configIn.

void BridgingConfigSm::handleVlanConfig() {
   auto const& input = in_.configIn;
   config().vlanConfigSourceDetailIs(input ? input->sourceDetail() : Kem::String8());
   for (auto const& [vlanId, vlan] : config().vlanConfig()) {
      bool const isWanted = input && input->vlanConfig().find(vlanId);
      if (isWanted && vlan->internal()) {
         // The user now wants the number of a routed port's VLAN.
         KEM_TRACE(bridgingVlanTrace, 0, "Deleting Vlan " << vlanId);
         resolvedVlans_.vlanDel(vlanId);
         handleInternalVlanIdInUse(vlanId);
      } else if (!routedPort(vlanId).empty() || !startupRoutedPort(vlanId).empty()) {
         KEM_TRACE(bridgingVlanTrace, 3, "Not deleting Vlan " << vlanId << "since it is a routed port");
      } else if (!isWanted && !dynVlans_->isDynamic(vlanId)) {
         // A dynamic one is what it was: making it again for every change would pass over all ports for each.
         KEM_TRACE(bridgingVlanTrace, 3, "Deleting Vlan " << vlanId);
         handleVlanConfig(vlanId);
      }
   }
   vlanConfigCodef_->handleVlanConfig();
   dynVlans_->handleConfigIn();
}

// --- Copies.

Kem::Ptr<Bridging::Input::VlanConfig> BridgingConfigSm::vlanConfigAfterCodef(Bridging::VlanId vlanId) const {
   auto const* const found = vlanConfigAfterCodef_.find(vlanId);
   return found ? *found : nullptr;
}

Kem::Ptr<Bridging::Input::VlanConfig> BridgingConfigSm::vlanConfigAfterCodefIs(Bridging::VlanId vlanId) {
   auto const [copy, isNew] =
       vlanConfigAfterCodef_.findOrInsert(vlanId, [&] { return Bridging::Input::VlanConfig::make(vlanId); });
   auto const result = *copy;
   if (isNew)
      handleVlanConfig(vlanId);
   return result;
}

void BridgingConfigSm::vlanConfigAfterCodefDel(Bridging::VlanId vlanId) {
   bool const isOrphan =
       config().vlanConfig(vlanId) && routedPort(vlanId).empty() && startupRoutedPort(vlanId).empty();
   // Without a copy too: a VLAN that left the input before it got one may be there from a dynamic source that
   // gave it up meanwhile, or be missing though one claims it.
   if (vlanConfigAfterCodef_.erase(vlanId) || isOrphan || dynVlans_->isClaimed(vlanId))
      handleVlanConfig(vlanId);
}

// --- Children.

void BridgingConfigSm::handleVlanConfig(Bridging::VlanId vlanId) {
   if (!isReady())
      return;
   auto const copy = vlanConfigAfterCodef(vlanId);
   if (copy) {
      vlanConfigSmIs(vlanId, copy);
      return;
   }
   bool const hadSm = bool(vlanConfigSm(vlanId));
   if (hadSm) {
      KEM_TRACE(bridgingVlanTrace, 3, "Deleting vlanConfigSm for vlan " << vlanId);
      childDel(vlanConfigSm_, vlanId);
   }
   if (dynVlans_->isClaimed(vlanId)) {
      dynVlans_->doTurnDynamic(vlanId);
      handleFdbConfig(vlanId);
      return;
   }
   KEM_INVARIANT(routedPort(vlanId).empty(), "!routedPortIteratorConst().isMemberOf( vlanId )");
   KEM_TRACE(bridgingVlanTrace, 3, "Deleting vlanConfig for vlan " << vlanId);
   if (!hadSm) // which takes it from the ports; a dynamic VLAN that is left behind has none
      switchIntfSm_.forEach([&](Sulvi::IntfId, auto const& port) { port->doLoseNativeVlan(vlanId); });
   resolvedVlans_.vlanDel(vlanId);
   handleFdbConfig(vlanId);
}

void BridgingConfigSm::vlanConfigSmIs(Bridging::VlanId vlanId,
                                      Kem::Ptr<Bridging::Input::VlanConfig> const& copy) {
   auto const sm = vlanConfigSm(vlanId);
   KEM_TRACE(bridgingVlanTrace, 3, (sm ? "Changing" : "Creating") << " vlanConfigSm for vlan " << vlanId);
   if (sm)
      sm->vlanConfigInIs(copy);
   else
      vlanConfigSm_.findOrInsert(vlanId, [&] { return Kem::makePtr<VlanConfigSm>(*this, vlanId, copy); });
}

void BridgingConfigSm::vlanConfigSmInitialize(Bridging::VlanId vlanId) {
   vlanConfigSm(vlanId)->handleInitialized();
}

Kem::Ptr<VlanConfigSm> BridgingConfigSm::vlanConfigSm(Bridging::VlanId vlanId) const {
   auto const* const found = vlanConfigSm_.find(vlanId);
   return found ? *found : nullptr;
}

// --- VLAN interfaces.

void BridgingConfigSm::handleVlanIntfConfig(Sulvi::IntfId intfId) {
   KEM_INVARIANT(initialized(), "initialized()");
   uint16_t const number = Sulvi::VlanIntfId::vlanId(intfId);
   // Only a number that a VLAN can have can be an internal VLAN's.
   if (vlanInterfaces_.find(intfId) && Bridging::VlanId::isLegal(number))
      handleInternalVlanIdInUse(Bridging::VlanId(number));
}

} // namespace Vorn
