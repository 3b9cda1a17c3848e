#include "Vorn/BridgingSm/SviMappingSm.h"

#include "Kem/Assert.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

namespace Vorn {

using Bridging::VlanId;

SviMappingSm::SviMappingSm(BridgingConfigSm& parent,
                           Kem::Ptr<Bridging::SviMappingState const> const& sviMappingState,
                           Kem::Ptr<Bridging::SviMappingState> sviMappingStateOut)
    : parent_(parent), sviMappingState_(sviMappingState), sviMappingStateOut_(std::move(sviMappingStateOut)) {
   kemSviMappingState_.notifierIs(sviMappingState_);
}

VlanId SviMappingSm::primaryVlan() const {
   return sviMappingState_ ? sviMappingState_->vlanId() : VlanId(1);
}

void SviMappingSm::handleInitialized() {
   initializedIs(true);
   for (auto const& [vlanId, isServed] : sviMappingStateOut_->secondaryVlan())
      if (!sviMappingState_->secondaryVlan(vlanId))
         handleSecondaryVlan(vlanId);
   for (auto const& [vlanId, isServed] : sviMappingState_->secondaryVlan())
      handleSecondaryVlan(vlanId);
   handleDefaultSviMapping();
}

void SviMappingSm::sviMappingStateIs(Kem::Ptr<Bridging::SviMappingState const> const& sviMappingState) {
   if (sviMappingState == sviMappingState_)
      return;
   sviMappingState_ = sviMappingState;
   kemSviMappingState_.notifierIs(sviMappingState_);
   handleInitialized();
}

void SviMappingSm::handleSecondaryVlan(VlanId vlanId) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (sviMappingState_->secondaryVlan(vlanId))
      sviMappingStateOut_->secondaryVlanIs(vlanId, true);
   else
      sviMappingStateOut_->secondaryVlanDel(vlanId);
   // A VLAN that is named by mistake and is no secondary of this primary keeps its own processor's port.
   auto const state = parent_.privateVlanLibState().primaryVlan(primaryVlan());
   if (!state || !state->secondaryVlan(vlanId))
      return;
   auto const primary = parent_.resolvedVlans().vlan(primaryVlan());
   auto const secondary = parent_.resolvedVlans().vlan(vlanId);
   if (primary && secondary)
      doSyncCpuPort(parent_.cpuPortInputs(), *primary, *secondary);
}

void SviMappingSm::handleDefaultSviMapping() {
   KEM_INVARIANT(initialized(), "initialized()");
   sviMappingStateOut_->defaultSviMappingIs(sviMappingState_->defaultSviMapping());
   auto const primary = parent_.resolvedVlans().vlan(primaryVlan());
   if (primary && primary->vlanTypeAndPrimaryVlan().vlanType == Bridging::VlanType::primary_)
      maybeSyncCpuPort(parent_, primaryVlan());
}

} // namespace Vorn
