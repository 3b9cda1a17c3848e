// Keeps a port's membership in the resolved VLANs, and the sets that it depends on, up to date by the rules
// of Vorn/Rules.

#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/Rules/AllowedVlans.h"
#include "Vorn/Rules/Membership.h"
#include "Vorn/Rules/PortMode.h"

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace Vorn {

namespace {
Kem::TraceFacility membershipTrace("VornMembership");
}

bool vlanMember(Bridging::VlanConfig const& vlan, SwitchIntfSm const& sm, Bridging::VlanIdOrNone native) {
   auto const rule = membershipRule(vlan, sm.membershipFacts(), native);
   KEM_INVARIANT(rule != MembershipRule::asymNotAccess, "mode == Bridging::access_");
   KEM_INVARIANT(rule != MembershipRule::unknownMode,
                 "mode == Bridging::trunk_ || mode == Bridging::tap_ || mode == Bridging::tool_");
   return isMember(rule);
}

void SwitchIntfSm::doSyncSingleVlan(Bridging::VlanConfig& vlan) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (!vlanMember(vlan, *this, out_->switchportModeAndNativeVlan().nativeVlan)) {
      vlan.intfDel(intfId_);
      written_.codeIs(vlan.vlanId(), WrittenMembers::none);
      return;
   }
   // Meant: a line for each member in each pass, printed without a trace facility.
   if (out_->asymVlanEnabled())
      std::fprintf(stderr, "SwitchIntfSm::doSyncSingleVlan(%s,%u)\n", intfId_.stringValue().str().c_str(),
                   static_cast<unsigned>(vlan.vlanId()));
   auto const member = vlanPortConfig(membershipFacts(), Bridging::VlanIdOrNone(vlan.vlanId()),
                                      vlan.vlanTypeAndPrimaryVlan());
   vlan.intfIs(intfId_, member);
   written_.codeIs(vlan.vlanId(), WrittenMembers::code(member));
}

void SwitchIntfSm::doSyncAllVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (out_->asymVlanEnabled()) {
      syncEachVlan();
      return;
   }
   isAllowedSynced_ = true;
   syncOrdinaryVlans();
   parent_.resolvedVlans().special().forEach(
       [&](uint16_t vlanId) { maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId)); });
}

// Of nearly all VLANs a port need only know the number: whether it is a member, and how, follows from the
// port alone. Those where it has written just that before are passed over without a look at the VLAN.
void SwitchIntfSm::syncOrdinaryVlans() {
   auto const resolved = out_->switchportModeAndNativeVlan();
   bool const isTrunkLike = hasAllowedVlans(resolved.switchportMode);
   auto const nativeCode = WrittenMembers::code(vlanPortConfig(membershipFacts(), resolved.nativeVlan, {}));
   auto const otherCode =
       WrittenMembers::code(vlanPortConfig(membershipFacts(), resolved.nativeVlan == 0 ? 1 : 0, {}));
   // An access port can be a member of its native VLAN, and of the primary of that.
   auto const* const native = resolved.nativeVlan == 0
                                  ? nullptr
                                  : bridgingConfig_->vlanConfig().find(Bridging::VlanId(resolved.nativeVlan));
   uint32_t const nativesPrimary = native ? (*native)->vlanTypeAndPrimaryVlan().primaryVlan.value() : 0u;
   parent_.resolvedVlans().ordinary().forEach([&](uint16_t vlanId) {
      auto const written = written_[vlanId];
      if (isTrunkLike) {
         auto const wanted = !trunkAllowedVlanSet_.vlan(vlanId) ? WrittenMembers::none
                             : vlanId == resolved.nativeVlan    ? nativeCode
                                                                : otherCode;
         if (written == wanted)
            return;
      } else if (written == WrittenMembers::none && vlanId != resolved.nativeVlan &&
                 vlanId != nativesPrimary) {
         return;
      }
      maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId));
   });
}

void SwitchIntfSm::syncEachVlan() {
   isAllowedSynced_ = true;
   // Thousands of records are scattered in memory, and each is needed only briefly: the next ones are
   // prefetched, or nearly all of the time would go into waiting for memory.
   constexpr size_t ahead = 12, lineBytes = 64;
   std::vector<Bridging::VlanConfig*> vlans;
   vlans.reserve(bridgingConfig_->vlanConfig().size());
   bridgingConfig_->vlanConfig().forEach(
       [&](Bridging::VlanId, auto const& vlan) { vlans.push_back(vlan.ptr()); });
   for (size_t i = 0; i < vlans.size(); ++i) {
      if (i + ahead < vlans.size())
         for (size_t offset = 0; offset < sizeof(Bridging::VlanConfig); offset += lineBytes)
            __builtin_prefetch(reinterpret_cast<char const*>(vlans[i + ahead]) + offset);
      doSyncSingleVlan(*vlans[i]);
   }
}

void SwitchIntfSm::maybeSyncOneVlan(Bridging::VlanIdOrNone vlanId) {
   if (vlanId == 0)
      return;
   if (auto const vlan = bridgingConfig_->vlanConfig(Bridging::VlanId(vlanId)))
      doSyncSingleVlan(*vlan);
}

// --- The sets.

void SwitchIntfSm::doComputeTrunkAllowedVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (!hasVlanSets(intfId_)) {
      KEM_TRACE(membershipTrace, 5, "Allowed vlans are not applicable for sub interface " << intfId_);
      return;
   }
   // In this order: what a dynamic source allows may be among what "mvrp" takes away.
   static VornUtils::VlanIdSet const none;
   auto const& takenAway = takesDynamicVlans(*config_) ? parent_.dynVlans().mvrpOnly() : none;
   traceMvrpVlans(takenAway);
   auto const added = dynAllowedVlans();
   AllowedVlanList const configured = allowedVlanList(*config_);
   VlanList const& allowed = parent_.vlanLists().list(configured.list);
   bool const hasChanged = trunkAllowedVlanSet_.compose(allowed.vlans, takenAway, added ? *added : none);
   isAllowedSynced_ = isAllowedSynced_ && !hasChanged;
   // Once for each list: a dynamic VLAN that comes or goes has this computed for every port.
   if (allowedList_ != configured.list) {
      allowedList_ = configured.list;
      if (!allowed.leftOut.empty())
         KEM_TRACE(membershipTrace, 0,
                   intfId_ << " allowed VLANs left out, no VLAN numbers: " << allowed.leftOut);
   }
}

// A VLAN that is learned by that protocol alone isn't allowed by the configured list, whatever that says.
void SwitchIntfSm::traceMvrpVlans(VornUtils::VlanIdSet const& takenAway) const {
   if (!membershipTrace.isEnabled(8) || !takesDynamicVlans(*config_))
      return; // thousands of lines for each port
   if (auto const mvrp = parent_.dynVlans().dynVlanSm(mvrpSource))
      mvrp->vlans().forEach([&](uint16_t vlanId) {
         KEM_TRACE(membershipTrace, 8, "Mvrp dynamic vlan " << vlanId);
         if (takenAway.vlan(vlanId))
            KEM_TRACE(membershipTrace, 8, "Static entry for vlan " << vlanId << " does not exist");
      });
}

// A look-up in the record of each source that lists the port. Sources that list the same port and come one after
// the other cost the square of their number, some tens of nanoseconds each.
std::optional<VornUtils::VlanIdSet> SwitchIntfSm::dynAllowedVlans() const {
   if (!takesDynAllowedVlans(*config_)) {
      if (takesDynamicVlans(*config_))
         KEM_TRACE(membershipTrace, 8, "Dont look at dynAllowedVlan for Unconnected interface " << intfId_);
      return {};
   }
   auto const* const sources = parent_.dynAllowedVlans().sourcesOf(intfId_);
   if (!sources)
      return {};
   std::optional<VornUtils::VlanIdSet> all;
   for (auto const* const source : *sources)
      if (auto const* const vlans = source->allowedVlans()->vlans(intfId_)) {
         KEM_TRACE(membershipTrace, 8,
                   "compute dyn vlans from " << source->name() << " dyn vlans " << *vlans);
         auto const& set = parent_.vlanLists().list(*vlans).vlans;
         if (all)
            *all |= set;
         else
            all = set;
      }
   return all;
}

void SwitchIntfSm::doComputeAsymVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (!hasVlanSets(intfId_)) {
      KEM_TRACE(membershipTrace, 5, "asym vlans are not applicable for sub interface " << intfId_);
      return;
   }
   bool const isAsym = isAsymmetric(*config_);
   AsymVlans const asym = asymVlans(*config_);
   asymVlanSet_ = asym.vlans;
   if (!asym.leftOut.empty())
      KEM_TRACE(membershipTrace, 0,
                intfId_ << " asymmetric VLANs left out, no VLAN numbers: " << asym.leftOut);
   out_->allowTaggedPktsIs(!isAsym);
   out_->enableIngressFilteringIs(!isAsym || asymVlanSet_.vlan(config_->accessVlan()));
   out_->asymVlanEnabledIs(isAsym);
}

// --- Trunk groups of dynamic sources.

void SwitchIntfSm::doComputeDynamicTrunkGroups() {
   for (auto const& [source, sm] : parent_.dynAllowedVlans().dynAllowedVlanSm())
      for (auto const& [name, trunkGroup] : sm->allowedVlans()->trunkGroup())
         if (trunkGroup->intfList().find(intfId_))
            doCreateDynTrunkGroup(name);
}

void SwitchIntfSm::doCreateDynTrunkGroup(Kem::String8 const& name) {
   if (dynTrunkGroup_.find(name))
      return;
   dynTrunkGroup_.findOrInsert(name, [] { return true; });
   // The static group of that name counts already: membership can't change.
   if (!config_->trunkGroup(name))
      handleTrunkGroup(name);
}

void SwitchIntfSm::doDelDynTrunkGroup(Kem::String8 const& name) {
   if (!dynTrunkGroup_.find(name))
      return;
   if (auto const* const sources = parent_.dynAllowedVlans().sourcesOfGroup(name))
      for (auto const* const source : *sources) {
         auto const trunkGroup = source->allowedVlans()->trunkGroup(name);
         if (trunkGroup && trunkGroup->intfList(intfId_)) {
            KEM_TRACE(membershipTrace, 3,
                      "Dyn client:" << source->name() << " has " << name << " for " << intfId_);
            return;
         }
      }
   dynTrunkGroup_.erase(name);
   handleTrunkGroup(name);
}

} // namespace Vorn
