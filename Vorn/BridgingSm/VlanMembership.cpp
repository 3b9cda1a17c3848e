// Whether a port is a member of a VLAN, and how; and the sets that the decision rests on.

#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"

#include <cstdio>
#include <string>
#include <vector>

namespace Vorn {

using InputMode = Bridging::Input::SwitchportMode;
using Bridging::SwitchportMode;
using Bridging::VlanPortDirection;
using Bridging::VlanType;

namespace {

Kem::TraceFacility membershipTrace("VornMembership");

// A port with a secondary VLAN as its access VLAN belongs to the primary too; one with the primary belongs to
// the secondaries that it is mapped to.
bool accessVlanMember(Bridging::VlanConfig const& vlan, SwitchIntfSm const& sm,
                      Bridging::VlanIdOrNone native) {
   if (native == 0)
      return false;
   auto const vid = vlan.vlanId();
   auto const* const found = sm.bridgingConfig()->vlanConfig().find(Bridging::VlanId(native));
   if (!found || (*found)->adminState() != Bridging::VlanAdminState::active)
      return native == vid;
   auto const nativeRole = (*found)->vlanTypeAndPrimaryVlan();
   auto const role = vlan.vlanTypeAndPrimaryVlan();
   if (nativeRole.primaryVlan == vid && role.vlanType == VlanType::primary_)
      return true;
   if (native == role.primaryVlan && nativeRole.vlanType == VlanType::primary_)
      return sm.switchIntfConfig().defaultPrivateVlanMapping() ||
             sm.switchIntfConfig().privateVlanMapping().find(vid);
   return native == vid;
}

bool sharesTrunkGroup(Bridging::VlanConfig const& vlan, SwitchIntfSm const& sm) {
   bool shares = false;
   auto const look = [&](Kem::String8 const& name, bool) { shares = shares || vlan.trunkGroup(name); };
   sm.switchIntfConfig().trunkGroup().forEach(look);
   sm.dynTrunkGroup().forEach(look);
   return shares;
}

// A membership as one number: 0 for none; the two flags, the direction, and a
// bit that says that there is one.
constexpr uint8_t noMember = 0;
uint8_t memberCode(Bridging::VlanPortConfig const& member) {
   return static_cast<uint8_t>(1 | member.tagged << 1 | member.mappedUntagged << 2 |
                               static_cast<unsigned>(member.direction) << 3);
}

} // namespace

// The order of the rules is their meaning.
bool vlanMember(Bridging::VlanConfig const& vlan, SwitchIntfSm const& sm, Bridging::VlanIdOrNone native) {
   auto const vid = vlan.vlanId();
   auto const& out = *sm.switchIntfConfigOut();
   SwitchportMode const mode = out.switchportModeAndNativeVlan().switchportMode;
   if (vlan.adminState() != Bridging::VlanAdminState::active)
      return false;
   if (mode == SwitchportMode::routed_)
      return native == vid;
   if (vlan.internal())
      return false; // behind the rule for routed ports: it has that port only
   if (mode == SwitchportMode::dot1qTunnel_)
      return native == vid;
   if (out.asymVlanEnabled()) {
      KEM_INVARIANT(mode == SwitchportMode::access_, "mode == Bridging::access_");
      return sm.asymVlanSet().vlan(vid);
   }
   if (mode == SwitchportMode::access_)
      return accessVlanMember(vlan, sm, native);
   KEM_INVARIANT(mode == SwitchportMode::trunk_ || mode == SwitchportMode::tap_ ||
                     mode == SwitchportMode::tool_,
                 "mode == Bridging::trunk_ || mode == Bridging::tap_ || mode == Bridging::tool_");
   if (!sm.trunkAllowedVlanSet().vlan(vid))
      return false;
   // A VLAN with trunk groups is closed to every port that has none of them.
   return vlan.trunkGroup().empty() || sharesTrunkGroup(vlan, sm);
}

void SwitchIntfSm::doSyncSingleVlan(Bridging::VlanConfig& vlan) {
   KEM_INVARIANT(initialized(), "initialized()");
   uint8_t& written = written_[vlan.vlanId()];
   if (!vlanMember(vlan, *this, out_->switchportModeAndNativeVlan().nativeVlan)) {
      if (written != noMember) {
         vlan.intfDel(intfId_);
         written = noMember | alwaysUnknown_;
      }
      return;
   }
   Bridging::VlanPortConfig member;
   if (out_->asymVlanEnabled())
      std::fprintf(stderr, "SwitchIntfSm::doSyncSingleVlan(%s,%u)\n", intfId_.stringValue().str().c_str(),
                   static_cast<unsigned>(vlan.vlanId()));
   else
      member = memberOf(Bridging::VlanIdOrNone(vlan.vlanId()), vlan.vlanTypeAndPrimaryVlan());
   uint8_t const code = memberCode(member);
   if (written != code) {
      vlan.intfIs(intfId_, member);
      written = code | alwaysUnknown_;
   }
}

// How the port is a member of a VLAN of that number and role, given that it is one.
Bridging::VlanPortConfig SwitchIntfSm::memberOf(Bridging::VlanIdOrNone vlanId,
                                                Bridging::VlanTypeAndPrimaryVlan const& role) const {
   auto const resolved = out_->switchportModeAndNativeVlan();
   bool const isNative = resolved.nativeVlan == vlanId;
   Bridging::VlanPortConfig member{.tagged = !isNative};
   switch (resolved.switchportMode) {
   case SwitchportMode::tool_:
      member.tagged = false;
      member.direction = VlanPortDirection::txOnly;
      break;
   case SwitchportMode::tap_:
      member.tagged = config_->toolIdentityTagging(); // the tool's setting, not one of the tap
      member.direction = VlanPortDirection::rxOnly;
      break;
   case SwitchportMode::trunk_:
      if (config_->trunkPrivateVlanMapping() && role.vlanType == VlanType::secondary_)
         member.direction = VlanPortDirection::rxOnly;
      break;
   case SwitchportMode::access_:
      if (resolved.nativeVlan != 0 && !isNative) {
         member = {.tagged = false, .mappedUntagged = true, .direction = VlanPortDirection::txOnly};
      } else if (role.vlanType == VlanType::secondary_) {
         auto const* const primary = bridgingConfig_->vlanConfig().find(Bridging::VlanId(role.primaryVlan));
         if (primary && (*primary)->vlanTypeAndPrimaryVlan().vlanType == VlanType::primary_)
            member.direction = VlanPortDirection::rxOnly;
      }
      break;
   default:
      break;
   }
   return member;
}

void SwitchIntfSm::doSyncAllVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (out_->asymVlanEnabled()) {
      syncEachVlan();
      return;
   }
   syncOrdinaryVlans();
   parent_.specialVlans().forEach([&](uint16_t vlanId) { maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId)); });
}

// Of nearly all VLANs a port need only know the number: whether it is a member, and how, follows from the
// port alone. Those where that is what it has written already are passed over without a look at the VLAN.
void SwitchIntfSm::syncOrdinaryVlans() {
   auto const resolved = out_->switchportModeAndNativeVlan();
   bool const isTrunkLike = resolved.switchportMode == SwitchportMode::trunk_ ||
                            resolved.switchportMode == SwitchportMode::tap_ ||
                            resolved.switchportMode == SwitchportMode::tool_;
   uint8_t const nativeCode = memberCode(memberOf(resolved.nativeVlan, {}));
   uint8_t const otherCode = memberCode(memberOf(resolved.nativeVlan == 0 ? 1 : 0, {}));
   // An access port can be a member of its native VLAN, and of the primary of that.
   auto const* const native = resolved.nativeVlan == 0
                                  ? nullptr
                                  : bridgingConfig_->vlanConfig().find(Bridging::VlanId(resolved.nativeVlan));
   uint32_t const nativesPrimary = native ? (*native)->vlanTypeAndPrimaryVlan().primaryVlan.value() : 0u;
   parent_.ordinaryVlans().forEach([&](uint16_t vlanId) {
      uint8_t const written = written_[vlanId];
      if (isTrunkLike) {
         uint8_t const wanted = !trunkAllowedVlanSet_.vlan(vlanId) ? noMember
                                : vlanId == resolved.nativeVlan    ? nativeCode
                                                                   : otherCode;
         if (written == wanted)
            return;
      } else if (written == noMember && vlanId != resolved.nativeVlan && vlanId != nativesPrimary) {
         return;
      }
      maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId));
   });
}

void SwitchIntfSm::syncEachVlan() {
   // Thousands of records that lie scattered in memory, each looked at for moments: the next ones are fetched
   // ahead, or nearly all of the time goes into waiting for them.
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
   if (Sulvi::SubIntfId::isSubIntfId(intfId_)) {
      KEM_TRACE(membershipTrace, 5, "Allowed vlans are not applicable for sub interface " << intfId_);
      return;
   }
   trunkAllowedVlanSet_.doClear();
   auto const& list = config_->switchportMode() == InputMode::tap_    ? config_->tapAllowedVlans()
                      : config_->switchportMode() == InputMode::tool_ ? config_->toolAllowedVlans()
                                                                      : config_->trunkAllowedVlans();
   std::string const leftOut = VornUtils::computeVlanSet(trunkAllowedVlanSet_, list.view());
   if (!leftOut.empty())
      KEM_TRACE(membershipTrace, 0, intfId_ << " allowed VLANs left out, no VLAN numbers: " << leftOut);
}

void SwitchIntfSm::doComputeAsymVlans() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (Sulvi::SubIntfId::isSubIntfId(intfId_)) {
      KEM_TRACE(membershipTrace, 5, "asym vlans are not applicable for sub interface " << intfId_);
      return;
   }
   asymVlanSet_.doClear();
   bool const isAsym = !config_->asymVlans().empty() && config_->switchportMode() == InputMode::access_;
   if (isAsym) {
      std::string const leftOut = VornUtils::computeVlanSet(asymVlanSet_, config_->asymVlans().view());
      if (!leftOut.empty())
         KEM_TRACE(membershipTrace, 0, intfId_ << " asymmetric VLANs left out, no VLAN numbers: " << leftOut);
   }
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
