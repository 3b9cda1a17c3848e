#include "Vorn/BridgingSm/PrimaryVlanSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/Rules/PrivateVlans.h"

#include <optional>

namespace Vorn {

using Bridging::VlanId;

namespace {
Kem::TraceFacility primaryVlanTrace("VornPrimaryVlan");
}

PrimaryVlanSm::PrimaryVlanSm(BridgingConfigSm& parent,
                             Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& primaryVlanState)
    : parent_(parent), primaryVlanState_(primaryVlanState) {
   kemPrimaryVlanState_.notifierIs(primaryVlanState_);
}

VlanId PrimaryVlanSm::primaryVlan() const {
   return primaryVlanState_ ? primaryVlanState_->vlanId() : VlanId(1);
}

// --- Life.

void PrimaryVlanSm::handleInitialized() {
   initializedIs(true);
   if (!primaryVlanState_)
      return;
   for (auto const& [vlanId, isSecondary] : primaryVlanState_->secondaryVlan())
      handleSecondaryVlan(vlanId);
}

void PrimaryVlanSm::primaryVlanStateIs(
    Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& primaryVlanState) {
   if (primaryVlanState == primaryVlanState_)
      return;
   auto const before = secondaries_;
   primaryVlanState_ = primaryVlanState;
   kemPrimaryVlanState_.notifierIs(primaryVlanState_);
   before.forEach([&](uint16_t vlanId) {
      if (!primaryVlanState_->secondaryVlan(VlanId(vlanId)))
         handleSecondaryVlan(VlanId(vlanId));
   });
   handleInitialized();
}

void PrimaryVlanSm::release() {
   auto const before = secondaries_;
   before.forEach([&](uint16_t vlanId) { syncSecondaryVlan(VlanId(vlanId), false); });
}

// --- One secondary.

void PrimaryVlanSm::handleSecondaryVlan(VlanId vlanId) {
   KEM_INVARIANT(initialized(), "initialized()");
   syncSecondaryVlan(vlanId, primaryVlanState_ && primaryVlanState_->secondaryVlan(vlanId));
}

void PrimaryVlanSm::syncSecondaryVlan(VlanId vlanId, bool isSecondary) {
   if (isSecondary)
      secondaries_.vlanIs(vlanId);
   else
      secondaries_.doRemove(vlanId);
   auto const primary = parent_.resolvedVlans().vlan(primaryVlan());
   auto const secondary = parent_.resolvedVlans().vlan(vlanId);
   if (isSecondary && primary && secondary)
      doTakeIn(*primary, *secondary);
   else
      doLetGo(vlanId, secondary);
   // The members of both are worked out in a later turn: once, however many secondaries have come or gone, and
   // however many of their roles have changed meanwhile.
   auto& relations = parent_.resolvedVlans().relations();
   relations.mark(primaryVlan());
   relations.mark(vlanId);
   if (primary)
      syncTranslations(vlanId, isSecondary);
}

void PrimaryVlanSm::doTakeIn(Bridging::VlanConfig const& primary, Bridging::VlanConfig& secondary) {
   parent_.config().vidToFidMapIs(secondary.vlanId(), primary.vlanId().value());
   doSyncCpuPort(parent_.cpuPortInputs(), primary, secondary);
}

// The VLAN may belong to another primary by now, which may have been told first.
void PrimaryVlanSm::doLetGo(VlanId vlanId, Kem::Ptr<Bridging::VlanConfig> const& vlan) {
   parent_.handleVidToFidMap(vlanId);
   if (vlan)
      Vorn::syncCpuPort(parent_.cpuPortInputs(), *vlan);
}

void PrimaryVlanSm::syncTranslations(VlanId vlanId, bool isSecondary) {
   // Looked for once: it takes a look at each secondary, which makes a primary that gets its n secondaries
   // one by one cost n * n looks, besides n passes over the ports.
   std::optional<Bridging::VlanIdOrAny> min;
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) {
      // A disabled port, too: its other handlers don't ask either.
      if (!port->initialized() || !mapsPrimaryVlans(port->switchIntfConfig()))
         return;
      if (!min)
         min = parent_.getMinSecondaryVlanId(primaryVlan());
      syncTranslation(*port, vlanId, isSecondary, *min);
   });
}

void PrimaryVlanSm::syncTranslation(SwitchIntfSm& port, VlanId vlanId, bool isSecondary,
                                    Bridging::VlanIdOrAny min) {
   auto const key = primaryVlanKey(primaryVlan());
   if (port.switchIntfConfig().egressVlanXlate(key))
      return; // the configured one wins
   auto const out = port.switchIntfConfigOut();
   if (isSecondary) {
      if (min == Bridging::VlanIdOrAny::max)
         return;
      KEM_TRACE(primaryVlanTrace, 3, "Add egress mapping from  " << primaryVlan() << " to " << min);
      out->egressVlanXlateIs(key, secondaryVlanMapping(VlanId(min)));
      return;
   }
   auto const* const mapping = out->egressVlanXlate(key);
   if (!mapping || *mapping != secondaryVlanMapping(vlanId))
      return;
   KEM_TRACE(primaryVlanTrace, 3, "Delete egress mapping from " << primaryVlan() << " to " << vlanId);
   out->egressVlanXlateDel(key);
   port.doAddPrivateVlanMapping(primaryVlan(), min);
}

} // namespace Vorn
