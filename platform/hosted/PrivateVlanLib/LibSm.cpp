#include "PrivateVlanLib/LibSm.h"

#include "Kem/Trace.h"

namespace PrivateVlanLib {

namespace {
Kem::TraceFacility theTrace("PrivateVlanLib");
}

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;

LibSm::LibSm(Kem::Ptr<Bridging::Config const> bridgingConfig, Kem::Ptr<LibState> libState)
    : bridgingConfig_(std::move(bridgingConfig)), libState_(std::move(libState)) {
   libState_->primaryVlanDelAll();
   libState_->vlanTypeAndPrimaryVlanDelAll();
   libState_->secondaryVlanDelAll();
   kemBridgingConfig_.notifierIs(bridgingConfig_);
}

size_t LibSm::pendingEntries() const {
   size_t count = 0;
   libState_->primaryVlan().forEach(
       [&](VlanId, Kem::Ptr<PrimaryVlanState> const& state) { count += state->secondaryVlan().empty(); });
   return count;
}

// --- Reactions.

void LibSm::handleInitialized() {
   bridgingConfig_->vlanConfig().forEach([&](VlanId vlanId, auto const&) { handleVlanConfig(vlanId); });
}

void LibSm::handleVlanConfig(VlanId vlanId) {
   auto const vlan = bridgingConfig_->vlanConfig(vlanId);
   if (!vlan) {
      kemVlanConfig_.erase(vlanId);
      handleVlanTypeAndPrimaryVlan(vlanId);
      return;
   }
   auto const [reactor, isNew] =
       kemVlanConfig_.findOrInsert(vlanId, [&] { return Kem::makePtr<KemVlanConfig>(*this); });
   // A VLAN that was removed and made again is another record: the reactor goes over to it, and evaluates.
   if (!isNew && (*reactor)->notifier() != vlan)
      takeOutOfPairs(vlanId);
   (*reactor)->notifierIs(vlan);
}

void LibSm::handleVlanTypeAndPrimaryVlan(VlanId vlanId) {
   auto const* const role = secondaryRole(vlanId);
   // As a secondary.
   if (role)
      libState_->secondaryVlanIs(vlanId, true);
   else
      libState_->secondaryVlanDel(vlanId);
   namedPrimaryIs(vlanId, role ? role->primaryVlan : VlanIdOrNone(0));
   // As a primary: it may have become fit, or have ceased to be.
   if (auto const* const naming = naming_.find(vlanId))
      for (VlanId const secondary : *naming)
         syncMembership(vlanId, secondary);
   syncRole(vlanId);
}

void LibSm::handleSecondariesTold(VlanId primary) {
   auto const state = libState_->primaryVlan(primary);
   if (!state || !state->secondaryVlan().empty())
      return;
   KEM_TRACE(theTrace, 3, "VLAN " << primary << " is no primary any more");
   libState_->primaryVlanDel(primary);
   kemPrimaryVlanState_.erase(primary); // destroys the reactor that called
}

// --- Helpers.

VlanTypeAndPrimaryVlan const* LibSm::secondaryRole(VlanId vlanId) const {
   auto const vlan = bridgingConfig_->vlanConfig(vlanId);
   if (!vlan || vlan->internal() || vlan->vlanTypeAndPrimaryVlan().vlanType == VlanType::primary_)
      return nullptr;
   return &vlan->vlanTypeAndPrimaryVlan();
}

bool LibSm::isFitPrimary(VlanId vlanId) const {
   auto const vlan = bridgingConfig_->vlanConfig(vlanId);
   return vlan && !vlan->internal() && vlan->vlanTypeAndPrimaryVlan() == VlanTypeAndPrimaryVlan();
}

void LibSm::namedPrimaryIs(VlanId vlanId, VlanIdOrNone primary) {
   auto const* const standing = namedPrimary_.find(vlanId);
   if (standing && *standing != primary) {
      VlanId const before = *standing;
      auto* const others = naming_.find(before);
      others->erase(vlanId);
      if (others->empty())
         naming_.erase(before);
      namedPrimary_.erase(vlanId);
      syncMembership(before, vlanId);
   }
   if (primary != 0 && !namedPrimary_.find(vlanId)) {
      namedPrimary_.findOrInsert(vlanId, [&] { return VlanId(primary); });
      naming_.findOrInsert(VlanId(primary), [] { return VlanSet(); }).first->insert(vlanId);
      syncMembership(VlanId(primary), vlanId);
   }
}

// Has all pairs of the VLAN told once more, also where they come out as before: what followers wrote into the
// old record, and worked out from it, went with it.
void LibSm::takeOutOfPairs(VlanId vlanId) {
   namedPrimaryIs(vlanId, 0);
   if (auto const state = libState_->primaryVlan(vlanId))
      state->secondaryVlanDelAll();
}

// Makes the primary's record say whether the secondary belongs to it, as it now is.
void LibSm::syncMembership(VlanId primary, VlanId secondary) {
   auto const* const named = namedPrimary_.find(secondary);
   bool const isMember = named && *named == primary && isFitPrimary(primary);
   auto state = libState_->primaryVlan(primary);
   if (isMember && !state) {
      KEM_TRACE(theTrace, 3, "VLAN " << primary << " is a primary");
      state = libState_->primaryVlanIs(primary);
      auto const reactor = Kem::makePtr<KemPrimaryVlanState>(*this);
      kemPrimaryVlanState_.findOrInsert(primary, [&] { return reactor; });
      reactor->notifierIs(state);
   }
   if (isMember)
      state->secondaryVlanIs(secondary, true);
   else if (state)
      state->secondaryVlanDel(secondary);
   syncRole(primary);
}

void LibSm::syncRole(VlanId vlanId) {
   auto const primaryState = libState_->primaryVlan(vlanId);
   if (auto const* const role = secondaryRole(vlanId))
      libState_->vlanTypeAndPrimaryVlanIs(vlanId, *role);
   else if (primaryState && !primaryState->secondaryVlan().empty())
      libState_->vlanTypeAndPrimaryVlanIs(vlanId, VlanTypeAndPrimaryVlan());
   else
      libState_->vlanTypeAndPrimaryVlanDel(vlanId);
}

} // namespace PrivateVlanLib
