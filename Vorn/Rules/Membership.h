// Whether a port is a member of a VLAN, by which rule, and in what way.
//
// The rules are applied in the order of the enumerators of MembershipRule, and the first that applies
// decides. Their order is their meaning: a VLAN that isn't active comes before all else, a routed
// port before internal VLANs. Functions of the records and sets that they are given: the agent and
// vornctl ask the same ones. membershipRule() is the agent's hottest step, taken millions of times in
// one bulk change, and so it is inline.
#pragma once

#include "Vorn/Rules/PortMode.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"

namespace Vorn {

// The rule that decided, and what it said.
enum class MembershipRule : uint8_t {
   vlanNotActive,       // no: no port is a member of such a VLAN
   internalVlanOfPort,  // yes: a routed port, and this is its internal VLAN
   routedPort,          // no: a routed port is a member of its internal VLAN only
   internalVlan,        // no: it has its routed port only
   tunnelNative,        // yes: a tunnel port in its native VLAN
   tunnelPort,          // no: it is a member of its native VLAN only
   asymNotAccess,       // no: the resolved port contradicts itself, asymmetric and not in access mode
   asymListed,          // yes: an asymmetric port, and its list has the VLAN
   asymNotListed,       // no: its list lacks it
   accessNoNative,      // no: an access port without a native VLAN is a member of none
   primaryOfNative,     // yes: the native VLAN is a secondary of this VLAN
   mappedToSecondaries, // yes: a secondary of the native VLAN, and the port is mapped to all of them
   mappedToSecondary,   // yes: a secondary of the native VLAN, and the port is mapped to it
   unmappedSecondary,   // no: a secondary of the native VLAN, and the port isn't mapped to it
   accessNative,        // yes: an access port in its native VLAN
   accessPort,          // no: it is a member of its native VLAN only
   unknownMode,         // no: no mode has that number
   notAllowed,          // no: the allowed VLANs of a trunk, tap or tool port lack it
   noTrunkGroups,       // yes: it is allowed, and open to every trunk
   trunkGroup,          // yes: it is allowed, and the port has one of its trunk groups
   dynTrunkGroup,       // yes: it is allowed, and a dynamic source gave the port one of its trunk groups
   noneOfItsTrunkGroups // no: it is allowed, but has trunk groups, and the port has none of them
};

constexpr bool isMember(MembershipRule rule) {
   switch (rule) {
   case MembershipRule::internalVlanOfPort:
   case MembershipRule::tunnelNative:
   case MembershipRule::asymListed:
   case MembershipRule::primaryOfNative:
   case MembershipRule::mappedToSecondaries:
   case MembershipRule::mappedToSecondary:
   case MembershipRule::accessNative:
   case MembershipRule::noTrunkGroups:
   case MembershipRule::trunkGroup:
   case MembershipRule::dynTrunkGroup:
      return true;
   default:
      return false;
   }
}

using TrunkGroups = Kem::ValueMap<Kem::String8, bool>;

// What a decision needs to know of a port and of the bridge that it is in. Refers to all of it.
struct MembershipFacts {
   Bridging::Input::SwitchIntfConfig const& record; // what is asked for
   Bridging::SwitchIntfConfig const& resolved;      // what became of it
   VornUtils::VlanIdSet const& allowedVlans;        // of a trunk, tap or tool port
   VornUtils::VlanIdSet const& asymVlans;           // of an asymmetric access port
   TrunkGroups const& dynTrunkGroup;                // trunk groups of dynamic sources
   Bridging::Config const& bridge;                  // the resolved VLANs
};

// Whether the VLAN is open to one of the groups. The value beside the port's own group has no meaning.
bool sharesTrunkGroup(Bridging::VlanConfig const& vlan, TrunkGroups const& groups);

MembershipRule accessPortRule(Bridging::VlanConfig const& vlan, MembershipFacts const& port,
                              Bridging::VlanIdOrNone native);
MembershipRule trunkGroupRule(Bridging::VlanConfig const& vlan, MembershipFacts const& port);

// `native` is the port's native VLAN, which need not be the one of its resolved record.
inline MembershipRule membershipRule(Bridging::VlanConfig const& vlan, MembershipFacts const& port,
                                     Bridging::VlanIdOrNone native) {
   using Mode = Bridging::SwitchportMode;
   auto const vid = vlan.vlanId();
   Mode const mode = port.resolved.switchportModeAndNativeVlan().switchportMode;
   if (vlan.adminState() != Bridging::VlanAdminState::active)
      return MembershipRule::vlanNotActive;
   if (mode == Mode::routed_)
      return native == vid ? MembershipRule::internalVlanOfPort : MembershipRule::routedPort;
   if (vlan.internal())
      return MembershipRule::internalVlan;
   if (mode == Mode::dot1qTunnel_)
      return native == vid ? MembershipRule::tunnelNative : MembershipRule::tunnelPort;
   if (port.resolved.asymVlanEnabled())
      return mode != Mode::access_      ? MembershipRule::asymNotAccess
             : port.asymVlans.vlan(vid) ? MembershipRule::asymListed
                                        : MembershipRule::asymNotListed;
   if (mode == Mode::access_)
      return accessPortRule(vlan, port, native);
   if (!hasAllowedVlans(mode))
      return MembershipRule::unknownMode;
   if (!port.allowedVlans.vlan(vid))
      return MembershipRule::notAllowed;
   return vlan.trunkGroup().empty() ? MembershipRule::noTrunkGroups : trunkGroupRule(vlan, port);
}

// How the port is a member of a VLAN of that number and role, given that it is one, by its
// resolved native VLAN. An access port asks for the primary of a secondary VLAN: one without a
// primary, 0, raises a range exception.
Bridging::VlanPortConfig vlanPortConfig(MembershipFacts const& port, Bridging::VlanIdOrNone vlanId,
                                        Bridging::VlanTypeAndPrimaryVlan const& role);

} // namespace Vorn
