#include "Vorn/Rules/Membership.h"

namespace Vorn {

using Bridging::SwitchportMode;
using Bridging::VlanPortDirection;
using Bridging::VlanType;

// A port with a secondary VLAN as its access VLAN belongs to the primary too; one with the primary belongs to
// the secondaries that it is mapped to.
MembershipRule accessPortRule(Bridging::VlanConfig const& vlan, MembershipFacts const& port,
                              Bridging::VlanIdOrNone native) {
   if (native == 0)
      return MembershipRule::accessNoNative;
   auto const vid = vlan.vlanId();
   auto const* const found = port.bridge.vlanConfig().find(Bridging::VlanId(native));
   // A native VLAN that isn't active lends the port no other VLAN.
   if (found && (*found)->adminState() == Bridging::VlanAdminState::active) {
      auto const nativeRole = (*found)->vlanTypeAndPrimaryVlan();
      auto const role = vlan.vlanTypeAndPrimaryVlan();
      if (nativeRole.primaryVlan == vid && role.vlanType == VlanType::primary_)
         return MembershipRule::primaryOfNative;
      if (native == role.primaryVlan && nativeRole.vlanType == VlanType::primary_)
         return port.record.defaultPrivateVlanMapping()      ? MembershipRule::mappedToSecondaries
                : port.record.privateVlanMapping().find(vid) ? MembershipRule::mappedToSecondary
                                                             : MembershipRule::unmappedSecondary;
   }
   return native == vid ? MembershipRule::accessNative : MembershipRule::accessPort;
}

bool sharesTrunkGroup(Bridging::VlanConfig const& vlan, TrunkGroups const& groups) {
   bool shares = false;
   groups.forEach([&](Kem::String8 const& name, bool) { shares = shares || vlan.trunkGroup(name); });
   return shares;
}

MembershipRule trunkGroupRule(Bridging::VlanConfig const& vlan, MembershipFacts const& port) {
   if (sharesTrunkGroup(vlan, port.record.trunkGroup()))
      return MembershipRule::trunkGroup;
   return sharesTrunkGroup(vlan, port.dynTrunkGroup) ? MembershipRule::dynTrunkGroup
                                                     : MembershipRule::noneOfItsTrunkGroups;
}

Bridging::VlanPortConfig vlanPortConfig(MembershipFacts const& port, Bridging::VlanIdOrNone vlanId,
                                        Bridging::VlanTypeAndPrimaryVlan const& role) {
   if (port.resolved.asymVlanEnabled())
      return {};
   auto const resolved = port.resolved.switchportModeAndNativeVlan();
   bool const isNative = resolved.nativeVlan == vlanId;
   Bridging::VlanPortConfig member{.tagged = !isNative};
   switch (resolved.switchportMode) {
   case SwitchportMode::tool_:
      member.tagged = false;
      member.direction = VlanPortDirection::txOnly;
      break;
   case SwitchportMode::tap_:
      member.tagged = port.record.toolIdentityTagging(); // meant: the tool's setting, not one of the tap
      member.direction = VlanPortDirection::rxOnly;
      break;
   case SwitchportMode::trunk_:
      if (port.record.trunkPrivateVlanMapping() && role.vlanType == VlanType::secondary_)
         member.direction = VlanPortDirection::rxOnly;
      break;
   case SwitchportMode::access_:
      if (resolved.nativeVlan != 0 && !isNative) {
         member = {.tagged = false, .mappedUntagged = true, .direction = VlanPortDirection::txOnly};
      } else if (role.vlanType == VlanType::secondary_) {
         auto const* const primary = port.bridge.vlanConfig().find(Bridging::VlanId(role.primaryVlan));
         if (primary && (*primary)->vlanTypeAndPrimaryVlan().vlanType == VlanType::primary_)
            member.direction = VlanPortDirection::rxOnly;
      }
      break;
   default:
      break;
   }
   return member;
}

} // namespace Vorn
