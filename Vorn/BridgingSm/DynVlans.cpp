#include "Vorn/BridgingSm/DynVlans.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"

#include <cstdio>
#include <utility>

namespace Vorn {

namespace {

Kem::TraceFacility dynVlansTrace("VornDynVlans");

Kem::String8 dynVlanName(Bridging::VlanId vlanId) {
   char name[16];
   std::snprintf(name, sizeof name, "VLAN%04d", static_cast<int>(vlanId.value()));
   return name;
}

} // namespace

DynVlans::DynVlans(BridgingConfigSm& parent, Kem::Ptr<Kem::Dir const> const& dynVlanDir,
                   Kem::Ptr<Bridging::Input::DynVlanSrcTable> table)
    : parent_(parent), dynVlanDir_(dynVlanDir), table_(std::move(table)) {
   kemDynVlanDir_.notifierIs(dynVlanDir_);
}

void DynVlans::handleInitialized() {
   initializedIs(true);
   handleDynVlanIdSet();
}

// --- Sources.

void DynVlans::handleDynVlanIdSet(Kem::Name const& entityName) {
   if (!isReady())
      return;
   Kem::String8 const& name = entityName.stringValue();
   auto const set = dynVlanDir_->entity<Bridging::Input::VlanIdSet>(entityName);
   if (set) {
      KEM_TRACE(dynVlansTrace, 3, "Create DynVlanSm " << name);
      dynVlanSmIs(name, set);
   } else if (dynVlanSm(name)) {
      KEM_TRACE(dynVlansTrace, 3, "Delete DynVlanSm " << name);
      dynVlanSmDel(name);
   }
}

void DynVlans::handleDynVlanIdSet() {
   if (!isReady() || !dynVlanDir_)
      return;
   for (auto const& [name, sm] : dynVlanSm_)
      if (!dynVlanDir_->entity<Bridging::Input::VlanIdSet>(Kem::Name(name)))
         handleDynVlanIdSet(Kem::Name(name)); // it went while nothing was delivered
   for (auto const& [name, entity] : dynVlanDir_->entities())
      handleDynVlanIdSet(name);
}

Kem::Ptr<DynVlanSm> DynVlans::dynVlanSm(Kem::String8 const& name) const {
   auto const* const found = dynVlanSm_.find(name);
   return found ? *found : nullptr;
}

void DynVlans::dynVlanSmIs(Kem::String8 const& name,
                           Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet) {
   if (auto const standing = dynVlanSm(name)) {
      standing->vlanIdSetIs(vlanIdSet);
      return;
   }
   auto const sm = Kem::makePtr<DynVlanSm>(name, vlanIdSet, parent_);
   // Its first evaluation may ask who is preferred, which looks it up.
   dynVlanSm_.findOrInsert(name, [&] { return sm; });
   if (sm->isMvrp())
      mvrp_ = sm;
   sm->handleInitialized();
}

void DynVlans::dynVlanSmDel(Kem::String8 const& name) {
   auto const sm = dynVlanSm(name);
   if (!sm)
      return;
   childDel(dynVlanSm_, name);
   if (sm != mvrp_)
      return;
   // What only that source asked for, and others claim, is again for the trunks' lists to allow.
   mvrp_ = nullptr;
   touched_ |= mvrpOnly_.only;
   havePortsComputed_ = false;
   mvrpOnly_ = {};
   doSyncVlans(doComputeTrunkAllowedVlans());
}

// --- Claims.

void DynVlans::dynVlanSrcDel(Bridging::VlanId vlanId) {
   made_.doRemove(vlanId);
   table_->dynVlanSrcDel(vlanId);
}

bool DynVlans::isClaimedByMvrpOnly(Bridging::VlanId vlanId) const {
   auto const* const source = table_->dynVlanSrc().find(vlanId);
   return source && (*source)->vlanSource().size() == 1 && (*source)->vlanSource().find(mvrpSource);
}

// A look-up for each claimant, at some tens of nanoseconds: sources that claim the same VLANs and come up
// together, or leave one after the other, ask in the square of their number. 1000 sources with the same 112
// VLANs cost a start 2 seconds of processor time, 250 of them 0.1. An order by rank, kept for each VLAN, would
// have to be renewed with each change of a priority, which sources may make far more often.
Kem::String8 DynVlans::getDynVlanConfigSource(Bridging::VlanId vlanId) const {
   DynVlanRank best;
   if (auto const source = table_->dynVlanSrc(vlanId))
      for (auto const& [name, isClaimed] : source->vlanSource()) {
         auto const sm = dynVlanSm(name);
         KEM_INVARIANT(sm && sm->vlanIdSet(), "sm && sm->vlanIdSet()");
         if (isPreferred(sm->rank(), best))
            best = sm->rank();
      }
   return best.name;
}

// --- Resolved VLANs.

bool DynVlans::isDynamic(Bridging::VlanId vlanId) const {
   if (!made_.vlan(vlanId) || parent_.staticVlans().vlanConfigAfterCodef(vlanId))
      return false;
   auto const* const vlan = parent_.config().vlanConfig().find(vlanId); // somebody else may have deleted it
   return vlan && !(*vlan)->internal();
}

bool DynVlans::doCreateDynVlan(Bridging::VlanId vlanId, Kem::String8 const& configSrcName,
                               Bridging::Input::VlanIdSet const& vlanIdSet, bool mvrpDynVlan) {
   if (parent_.staticVlans().isStatic(vlanId))
      return false;
   auto& resolvedVlans = parent_.resolvedVlans();
   parent_.handleInternalVlanIdInUse(vlanId);
   auto const vlanConfig = resolvedVlans.vlanIs(vlanId); // in the place of an internal one
   made_.vlanIs(vlanId);
   resolvedVlans.configSourceIs(*vlanConfig, configSrcName);
   resolvedVlans.adminStateIs(*vlanConfig, Bridging::VlanAdminState::active);
   resolvedVlans.configuredNameIs(*vlanConfig, dynVlanName(vlanId));
   resolvedVlans.vlanTypeAndPrimaryVlanIs(*vlanConfig, {}); // sources know of no private VLANs
   doSyncCpuPort(*vlanConfig);
   updateTrunkGroup(*vlanConfig, vlanIdSet);
   auto changed = mvrpDynVlan ? doComputeTrunkAllowedVlans() : VornUtils::VlanIdSet();
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) {
      port->doMaybeTakeUpNativeVlan(vlanId);
      port->doSyncSingleVlan(*vlanConfig);
   });
   changed.doRemove(vlanId);
   doSyncVlans(changed);
   return true;
}

void DynVlans::doSyncCpuPort(Bridging::VlanConfig& vlan) {
   // Also where the static VLAN that this one follows has left it. The pairs of a former static primary stay, and
   // its secondaries share the processor's port with it.
   maybeSyncCpuPort(parent_, vlan.vlanId());
   if (vlan.intf(cpuIntfId()))
      KEM_TRACE(dynVlansTrace, 3, " Adding Cpu port for dyn. vlan " << vlan.vlanId());
}

void DynVlans::doDelDynVlan(Bridging::VlanId vlanId) {
   if (parent_.staticVlans().isStatic(vlanId) || !parent_.routedPort(vlanId).empty())
      return;
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) { port->doLoseNativeVlan(vlanId); });
   parent_.resolvedVlans().vlanDel(vlanId);
}

void DynVlans::doTurnDynamic(Bridging::VlanId vlanId) {
   auto const source = getDynVlanConfigSource(vlanId);
   KEM_TRACE(dynVlansTrace, 3, "Vlan " << vlanId << " is dynamic now. ConfigSource:" << source);
   auto const sm = dynVlanSm(source);
   KEM_ASSERT(sm);
   doCreateDynVlan(vlanId, source, *sm->vlanIdSet(), isClaimedByMvrpOnly(vlanId));
   // The trunks' lists lose it too where "mvrp" is one claimant among others.
   doSyncVlans(doComputeTrunkAllowedVlans());
}

void DynVlans::doPassOn(Bridging::VlanId vlanId) {
   auto const source = getDynVlanConfigSource(vlanId);
   KEM_TRACE(dynVlansTrace, 3, "New vlan config source:" << source);
   auto const configSourceDynSm = dynVlanSm(source);
   KEM_ASSERT(configSourceDynSm);
   configSourceDynSm->doModifyDynVlanCfg(vlanId);
}

void DynVlans::handleConfigIn() {
   if (!isReady())
      return;
   for (auto const& [key, source] : table_->dynVlanSrc()) {
      Bridging::VlanId const vlanId = key;
      if (parent_.staticVlans().isStatic(vlanId))
         continue;
      auto const vlan = parent_.resolvedVlans().vlan(vlanId);
      if (!isDynamic(vlanId) || !vlan) {
         parent_.handleVlanConfig(vlanId);
         continue;
      }
      // What making it again would bring, without the pass over all ports.
      doSyncCpuPort(*vlan);
      if (vlan->configSource() != getDynVlanConfigSource(vlanId))
         doPassOn(vlanId); // priorities changed while the former input held it
   }
   doSyncVlans(doComputeTrunkAllowedVlans());
}

bool DynVlans::updateTrunkGroup(Bridging::VlanConfig& vlan, Bridging::Input::VlanIdSet const& vlanIdSet) {
   bool hasChanged = false;
   for (auto const& [name, value] : vlan.trunkGroup())
      if (!vlanIdSet.trunkGroup().find(name)) {
         KEM_TRACE(dynVlansTrace, 3, "Removing trunkGroup:" << name << "from vlan:" << vlan.vlanId());
         parent_.resolvedVlans().trunkGroupDel(vlan, name);
         hasChanged = true;
      }
   for (auto const& [name, value] : vlanIdSet.trunkGroup())
      if (!vlan.trunkGroup(name)) {
         KEM_TRACE(dynVlansTrace, 3, "Adding trunkGroup:" << name << "to vlan:" << vlan.vlanId());
         parent_.resolvedVlans().trunkGroupIs(vlan, name);
         hasChanged = true;
      }
   return hasChanged;
}

// --- Allowed VLANs of trunks.

// Asked by every port that computes its allowed VLANs, and worked out again only when what it rests on has
// changed: a walk of all static VLANs for each port and VLAN would be millions of times the whole.
VornUtils::VlanIdSet const& DynVlans::mvrpOnly() {
   static VornUtils::VlanIdSet const none;
   if (!mvrp_)
      return none;
   auto const& configIn = parent_.configIn();
   uint32_t const version = configIn ? configIn->vlanConfig().version() : 0;
   auto const& asked = mvrp_->vlans();
   if (mvrpOnly_.configIn != configIn || mvrpOnly_.version != version || !(mvrpOnly_.asked == asked)) {
      auto const only = mvrpOnlyVlans(asked, configIn.ptr());
      touched_ |= VornUtils::VlanIdSet(mvrpOnly_.only) ^= only;
      havePortsComputed_ = havePortsComputed_ && mvrpOnly_.only == only;
      mvrpOnly_ = {configIn, version, asked, only};
   }
   return mvrpOnly_.only;
}

VornUtils::VlanIdSet DynVlans::doComputeTrunkAllowedVlans() {
   doComputePorts();
   return std::exchange(touched_, {});
}

void DynVlans::doComputePorts() {
   mvrpOnly();
   if (std::exchange(havePortsComputed_, true))
      return;
   parent_.switchIntfSm().forEach(
       [](Sulvi::IntfId, auto const& port) { port->doComputeTrunkAllowedVlans(); });
}

void DynVlans::doSyncVlans(VornUtils::VlanIdSet const& vlans) {
   vlans.forEach([&](Bridging::VlanId vlanId) {
      auto const vlan = parent_.resolvedVlans().vlan(vlanId);
      if (!vlan)
         return;
      parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) { port->doSyncSingleVlan(*vlan); });
   });
}

} // namespace Vorn
