#include "Vorn/BridgingSm/DynAllowedVlanSm.h"

#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility dynAllowedVlanTrace("VornDynAllowedVlan");
}

DynAllowedVlanSm::DynAllowedVlanSm(Kem::String8 const& name,
                                   Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans,
                                   BridgingConfigSm& parent)
    : name_(name), parent_(parent), allowedVlans_(allowedVlans) {
   kemAllowedVlans_.notifierIs(allowedVlans_);
}

void DynAllowedVlanSm::handleInitialized() {
   initializedIs(true);
   for (auto const& [intfId, vlans] : allowedVlans_->vlans())
      handleAllowedVlans(intfId);
   handleTrunkGroup();
}

void DynAllowedVlanSm::allowedVlansIs(Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans) {
   if (allowedVlans == allowedVlans_)
      return;
   allowedVlans_ = allowedVlans;
   kemAllowedVlans_.notifierIs(allowedVlans_);
   handleTrunkGroup();
   handleAllowedVlans();
}

// Each port that loses a group asks the sources that are left in the index.
void DynAllowedVlanSm::doPrepareToDie() {
   for (auto const& [name, sm] : dynTrunkGroupSm_)
      parent_.dynAllowedVlans().groupDel(name, *this);
   childDelAll(dynTrunkGroupSm_);
}

// --- Allowed VLANs.

void DynAllowedVlanSm::handleAllowedVlans(Sulvi::IntfId intfId) {
   if (auto const* const text = allowedVlans_->vlans(intfId)) {
      auto const& leftOut = parent_.vlanLists().list(*text).leftOut;
      if (!leftOut.empty())
         KEM_TRACE(dynAllowedVlanTrace, 0,
                   intfId << " VLANs allowed by " << name_ << " left out, no VLAN numbers: " << leftOut);
      parent_.dynAllowedVlans().listingIs(intfId, *this);
   } else {
      parent_.dynAllowedVlans().listingDel(intfId, *this);
   }
   if (auto const port = parent_.switchIntfSm(intfId))
      port->handleTrunkAllowedVlans();
}

void DynAllowedVlanSm::handleAllowedVlans() {
   parent_.dynAllowedVlans().listingDel(*this);
   for (auto const& [intfId, vlans] : allowedVlans_->vlans())
      handleAllowedVlans(intfId);
   // And the ports that it listed before, which it can't be asked for any more.
   parent_.dynAllowedVlans().handleTrunkAllowedVlans();
}

// --- Trunk groups.

Kem::Ptr<DynAllowedVlanSm::KemDynTrunkGroupSm>
DynAllowedVlanSm::dynTrunkGroupSm(Kem::String8 const& trunkGroupName) const {
   auto const* const found = dynTrunkGroupSm_.find(trunkGroupName);
   return found ? *found : nullptr;
}

void DynAllowedVlanSm::dynTrunkGroupSmIs(Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup) {
   if (!trunkGroup)
      Kem::throwNullParameter("dynTrunkGroupSm", "Vorn::DynAllowedVlanSm");
   auto const& name = trunkGroup->trunkGroupName();
   parent_.dynAllowedVlans().groupIs(name, *this);
   if (auto const standing = dynTrunkGroupSm(name)) {
      standing->trunkGroupIs(trunkGroup);
      return;
   }
   auto const sm = Kem::makePtr<KemDynTrunkGroupSm>(trunkGroup, parent_);
   dynTrunkGroupSm_.findOrInsert(name, [&] { return sm; });
   sm->handleInitialized();
}

void DynAllowedVlanSm::handleTrunkGroup(Kem::String8 const& name) {
   if (auto const trunkGroup = allowedVlans_->trunkGroup(name)) {
      dynTrunkGroupSmIs(trunkGroup);
   } else {
      parent_.dynAllowedVlans().groupDel(name, *this);
      childDel(dynTrunkGroupSm_, name);
   }
}

void DynAllowedVlanSm::handleTrunkGroup() {
   for (auto const& [key, sm] : dynTrunkGroupSm_) {
      Kem::String8 const name = key;
      if (!allowedVlans_->trunkGroup(name))
         handleTrunkGroup(name);
   }
   for (auto const& [name, trunkGroup] : allowedVlans_->trunkGroup())
      handleTrunkGroup(name);
}

DynAllowedVlanSm::KemDynTrunkGroupSm::KemDynTrunkGroupSm(
    Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup, BridgingConfigSm& parent)
    : trunkGroupName_(trunkGroup->trunkGroupName()), parent_(parent), trunkGroup_(trunkGroup) {
   kemTrunkGroup_.notifierIs(trunkGroup_);
}

void DynAllowedVlanSm::KemDynTrunkGroupSm::handleInitialized() {
   initializedIs(true);
   for (auto const& [intfId, isMember] : trunkGroup_->intfList())
      handleIntfList(intfId);
}

void DynAllowedVlanSm::KemDynTrunkGroupSm::trunkGroupIs(
    Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup) {
   if (trunkGroup == trunkGroup_)
      return;
   trunkGroup_ = trunkGroup;
   kemTrunkGroup_.notifierIs(trunkGroup_);
   handleIntfList();
}

void DynAllowedVlanSm::KemDynTrunkGroupSm::handleIntfList(Sulvi::IntfId intfId) {
   auto const port = parent_.switchIntfSm(intfId);
   if (!port)
      return;
   if (trunkGroup_->intfList().find(intfId))
      port->doCreateDynTrunkGroup(trunkGroupName_);
   else
      port->doDelDynTrunkGroup(trunkGroupName_);
}

void DynAllowedVlanSm::KemDynTrunkGroupSm::handleIntfList() {
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId intfId, auto const&) { handleIntfList(intfId); });
}

// The list of a group that has been deleted may have been emptied with it, so the ports are asked, not the list.
void DynAllowedVlanSm::KemDynTrunkGroupSm::doPrepareToDie() {
   parent_.switchIntfSm().forEach(
       [&](Sulvi::IntfId, auto const& port) { port->doDelDynTrunkGroup(trunkGroupName_); });
}

} // namespace Vorn
