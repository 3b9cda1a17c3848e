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
   AllowedVlans const allowed = allowedVlans(*config_);
   trunkAllowedVlanSet_ = allowed.vlans;
   if (!allowed.leftOut.empty())
      KEM_TRACE(membershipTrace, 0,
                intfId_ << " allowed VLANs left out, no VLAN numbers: " << allowed.leftOut);
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

void SwitchIntfSm::doCreateDynTrunkGroup(Kem::String8 const& name) {
   if (dynTrunkGroup_.find(name))
      return;
   dynTrunkGroup_.findOrInsert(name, [] { return true; });
   // The static group of that name counts already: membership can't change.
   if (!config_->trunkGroup(name))
      handleTrunkGroup(name);
}

void SwitchIntfSm::doDelDynTrunkGroup(Kem::String8 const& name) {
   if (!dynTrunkGroup_.erase(name))
      return;
   handleTrunkGroup(name);
}

} // namespace Vorn
