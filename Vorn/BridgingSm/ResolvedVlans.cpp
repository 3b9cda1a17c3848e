#include "Vorn/BridgingSm/ResolvedVlans.h"

#include "Vorn/BridgingSm/SwitchIntfSm.h"

namespace Vorn {

void ResolvedVlans::handleInitialized() {
   config_->vlanConfig().forEach([&](Bridging::VlanId vlanId, auto const& vlan) {
      classify(*vlan);
      relations_.roleIs(vlanId, vlan->vlanTypeAndPrimaryVlan());
   });
   relations_.takeMarked(); // each port looks at all of them when it comes up
}

void ResolvedVlans::handleForeignChange(Kem::Entity const& changed) {
   auto const edited = [&](Bridging::VlanConfig const& vlan) {
      classify(vlan);
      relations_.roleIs(vlan.vlanId(), vlan.vlanTypeAndPrimaryVlan());
      forgetMembers(vlan.vlanId());
   };
   if (auto const* const vlan = dynamic_cast<Bridging::VlanConfig const*>(&changed))
      edited(*vlan);
   else if (&changed == config_.ptr())
      config_->vlanConfig().forEach([&](Bridging::VlanId, auto const& each) { edited(*each); });
}

void ResolvedVlans::forgetMembers(Bridging::VlanId vlanId) {
   ports_.forEach([&](Sulvi::IntfId, auto const& port) { port->forgetMember(vlanId); });
}

void ResolvedVlans::classify(Bridging::VlanConfig const& vlan) {
   bool const isOrdinary = vlan.adminState() == Bridging::VlanAdminState::active && !vlan.internal() &&
                           vlan.trunkGroup().empty() &&
                           vlan.vlanTypeAndPrimaryVlan() == Bridging::VlanTypeAndPrimaryVlan();
   (isOrdinary ? ordinary_ : special_).vlanIs(vlan.vlanId());
   (isOrdinary ? special_ : ordinary_).doRemove(vlan.vlanId());
}

// --- Making and deleting.

Kem::Ptr<Bridging::VlanConfig> ResolvedVlans::vlanIs(Bridging::VlanId vlanId) {
   if (auto const existing = vlan(vlanId); existing && existing->internal())
      vlanDel(vlanId);
   return findOrMake(vlanId, false);
}

Kem::Ptr<Bridging::VlanConfig> ResolvedVlans::internalVlanIs(Bridging::VlanId vlanId) {
   return findOrMake(vlanId, true);
}

Kem::Ptr<Bridging::VlanConfig> ResolvedVlans::findOrMake(Bridging::VlanId vlanId, bool isInternal) {
   bool const isNew = !config_->vlanConfig().find(vlanId);
   auto const result = config_->vlanConfigIs(vlanId, isInternal);
   classify(*result);
   if (isNew) {
      relations_.roleIs(vlanId, {}); // of one that somebody else took away
      relations_.markRelatives(vlanId);
   }
   return result;
}

void ResolvedVlans::vlanDel(Bridging::VlanId vlanId) {
   if (config_->vlanConfig().find(vlanId))
      relations_.markRelatives(vlanId);
   relations_.roleIs(vlanId, {});
   config_->vlanConfigDel(vlanId);
   ordinary_.doRemove(vlanId);
   special_.doRemove(vlanId);
   forgetMembers(vlanId);
}

// --- Attributes.

void ResolvedVlans::configSourceIs(Bridging::VlanConfig& vlan, Kem::String8 const& source) {
   vlan.configSourceIs(source);
}

void ResolvedVlans::configuredNameIs(Bridging::VlanConfig& vlan, Kem::String8 const& name) {
   vlan.configuredNameIs(name);
}

void ResolvedVlans::adminStateIs(Bridging::VlanConfig& vlan, Bridging::VlanAdminState state) {
   if (vlan.adminState() != state)
      relations_.markRelatives(vlan.vlanId());
   vlan.adminStateIs(state);
   classify(vlan);
}

void ResolvedVlans::vlanTypeAndPrimaryVlanIs(Bridging::VlanConfig& vlan,
                                             Bridging::VlanTypeAndPrimaryVlan const& role) {
   relations_.roleIs(vlan.vlanId(), role);
   vlan.vlanTypeAndPrimaryVlanIs(role);
   classify(vlan);
}

void ResolvedVlans::trunkGroupIs(Bridging::VlanConfig& vlan, Kem::String8 const& name) {
   vlan.trunkGroupIs(name, true);
   classify(vlan);
}

void ResolvedVlans::trunkGroupDel(Bridging::VlanConfig& vlan, Kem::String8 const& name) {
   vlan.trunkGroupDel(name);
   classify(vlan);
}

} // namespace Vorn
