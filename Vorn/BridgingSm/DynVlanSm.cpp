#include "Vorn/BridgingSm/DynVlanSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility dynVlanTrace("VornDynVlan");
}

DynVlanSm::DynVlanSm(Kem::String8 const& name, Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet,
                     BridgingConfigSm& parent)
    : name_(name), isMvrp_(name.view() == mvrpSource), parent_(parent), dynVlans_(parent.dynVlans()),
      vlanIdSet_(vlanIdSet) {
   kemVlanIdSet_.notifierIs(vlanIdSet_);
}

void DynVlanSm::vlanIdSetIs(Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet) {
   if (vlanIdSet == vlanIdSet_)
      return;
   vlanIdSet_ = vlanIdSet;
   kemVlanIdSet_.notifierIs(vlanIdSet_);
   handleVlans();
   handleTrunkGroup();
}

VornUtils::VlanIdSet const& DynVlanSm::vlans() {
   if (text_ == vlanIdSet_->vlans())
      return vlans_;
   text_ = vlanIdSet_->vlans();
   vlans_.doClear();
   std::string const leftOut = VornUtils::computeVlanSet(vlans_, text_.view());
   if (!leftOut.empty())
      KEM_TRACE(dynVlanTrace, 0, name_ << " dynamic VLANs left out, no VLAN numbers: " << leftOut);
   return vlans_;
}

// --- Life.

void DynVlanSm::handleInitialized() {
   initializedIs(true);
   handleVlans();
   handleTrunkGroup();
}

void DynVlanSm::doPrepareToDie() {
   KEM_INVARIANT(initialized(), "initialized()");
   maybeDelVlans({});
}

// --- Claims.

void DynVlanSm::handleVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   auto const set = vlans();
   KEM_TRACE(dynVlanTrace, 3, "Vlans from " << name_ << ": " << set.text());
   // What "mvrp" asks for alone is in no trunk's list. The lists are the same for all VLANs that are made below,
   // so they are computed once, before them; a VLAN that stays and enters or leaves a list is synced behind them.
   VornUtils::VlanIdSet created;
   auto const changed = isMvrp_ ? dynVlans_.doComputeTrunkAllowedVlans() : VornUtils::VlanIdSet();
   // Who is preferred for a VLAN that this source has claimed before can have changed with the priority only: another
   // source that changed its own looks at its VLANs itself.
   bool const hasRankChanged = priority_ != vlanIdSet_->configPriority();
   priority_ = vlanIdSet_->configPriority();
   auto const looked = hasRankChanged ? set : VornUtils::VlanIdSet(set) -= claimed_;
   looked.forEach([&](uint16_t vlanId) { claim(vlanId, created); });
   maybeDelVlans(set);
   if (hasRankChanged)
      passOnOutranked();
   dynVlans_.doSyncVlans(VornUtils::VlanIdSet(changed) -= created);
}

void DynVlanSm::claim(Bridging::VlanId vlanId, VornUtils::VlanIdSet& created) {
   auto source = dynVlans_.table().dynVlanSrc(vlanId);
   if (!source) {
      if (dynVlans_.doCreateDynVlan(vlanId, name_, *vlanIdSet_, isMvrp_))
         created.vlanIs(vlanId);
      source = dynVlans_.table().dynVlanSrcIs(vlanId);
      parent_.handleFdbConfig(vlanId);
   } else if (dynVlans_.isDynamic(vlanId) && !parent_.staticVlans().isWanted(vlanId)) {
      maybeTakeOver(vlanId);
   }
   source->vlanSourceIs(name_, true);
   claimed_.vlanIs(vlanId);
}

void DynVlanSm::maybeTakeOver(Bridging::VlanId vlanId) {
   auto const current = parent_.resolvedVlans().vlan(vlanId)->configSource();
   if (current == name_)
      return;
   auto const configSourceDynSm = dynVlans_.dynVlanSm(current);
   KEM_ASSERT(configSourceDynSm);
   if (isPreferred(rank(), configSourceDynSm->rank()))
      doModifyDynVlanCfg(vlanId);
}

// Walks the claims that this source has recorded, not the whole table, and not a list that may have been
// emptied with its record.
void DynVlanSm::maybeDelVlans(VornUtils::VlanIdSet const& set) {
   auto const gone = VornUtils::VlanIdSet(claimed_) -= set;
   gone.forEach([&](Bridging::VlanId vlanId) {
      KEM_TRACE(dynVlanTrace, 3, "Removing " << name_ << " from vlanId:" << vlanId);
      claimed_.doRemove(vlanId);
      auto const source = dynVlans_.table().dynVlanSrc(vlanId);
      source->vlanSourceDel(name_);
      if (source->vlanSource().empty()) {
         dynVlans_.doDelDynVlan(vlanId);
         parent_.handleFdbConfig(vlanId);
         dynVlans_.dynVlanSrcDel(vlanId);
      } else if (isConfigSource(vlanId)) {
         dynVlans_.doPassOn(vlanId);
      }
   });
}

// A source that lowered its priority may still be the configSource of VLANs that another one has a better
// claim on.
void DynVlanSm::passOnOutranked() {
   claimed_.forEach([&](Bridging::VlanId vlanId) {
      if (dynVlans_.table().dynVlanSrc(vlanId)->vlanSource().size() > 1 && isConfigSource(vlanId) &&
          !parent_.staticVlans().isWanted(vlanId) && dynVlans_.getDynVlanConfigSource(vlanId) != name_)
         dynVlans_.doPassOn(vlanId);
   });
}

bool DynVlanSm::isConfigSource(Bridging::VlanId vlanId) const {
   return dynVlans_.isDynamic(vlanId) && parent_.resolvedVlans().vlan(vlanId)->configSource() == name_;
}

void DynVlanSm::doModifyDynVlanCfg(Bridging::VlanId vlanId) {
   KEM_TRACE(dynVlanTrace, 3, "VlanId:" << vlanId << " configSource:" << name_);
   auto const vlan = parent_.resolvedVlans().vlan(vlanId);
   parent_.resolvedVlans().configSourceIs(*vlan, name_);
   dynVlans_.updateTrunkGroup(*vlan, *vlanIdSet_);
   updateSwitchIntf(*vlan);
}

void DynVlanSm::updateSwitchIntf(Bridging::VlanConfig& vlan) {
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) { port->doSyncSingleVlan(vlan); });
}

// --- Trunk groups.

template <class Visit>
void DynVlanSm::forEachOwnVlan(Visit&& visit) {
   auto const set = vlans();
   set.forEach([&](Bridging::VlanId vlanId) {
      if (isConfigSource(vlanId))
         visit(*parent_.resolvedVlans().vlan(vlanId));
   });
}

void DynVlanSm::handleTrunkGroup(Kem::String8 const& name) {
   bool const isWanted = vlanIdSet_->trunkGroup().find(name);
   forEachOwnVlan([&](Bridging::VlanConfig& vlan) {
      if (isWanted == vlan.trunkGroup(name))
         return;
      if (isWanted) {
         KEM_TRACE(dynVlanTrace, 3, "Adding trunkGroup:" << name << "to vlan:" << vlan.vlanId());
         parent_.resolvedVlans().trunkGroupIs(vlan, name);
      } else {
         KEM_TRACE(dynVlanTrace, 3, "Removing trunkGroup:" << name << "from vlan:" << vlan.vlanId());
         parent_.resolvedVlans().trunkGroupDel(vlan, name);
      }
      updateSwitchIntf(vlan);
   });
}

void DynVlanSm::handleTrunkGroup() {
   forEachOwnVlan([&](Bridging::VlanConfig& vlan) {
      if (dynVlans_.updateTrunkGroup(vlan, *vlanIdSet_))
         updateSwitchIntf(vlan);
   });
}

} // namespace Vorn
