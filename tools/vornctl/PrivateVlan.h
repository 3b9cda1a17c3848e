// Who belongs to whom among private VLANs, by the resolved roles, and what is wrong where nobody does.
//
// A pair is what the agent's library of private VLANs makes of the same roles: a VLAN of another type than
// primary, and the primary that it names, which is resolved, not internal, of the primary type, and names no
// primary itself.
#pragma once

#include "records/Bridging/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <string>
#include <vector>

namespace Vornctl {

// Whether its type or a primary that it names gives the VLAN a role.
bool hasPrivateRole(Bridging::VlanConfig const& vlan);
// "primary", "secondary"; "type 2" for what has no name.
std::string privateTypeText(Bridging::VlanConfig const& vlan);
// Why a VLAN that has a role makes no pair, as in "VLAN 300, which it names, doesn't exist"; empty where it
// does.
std::string pairProblem(Bridging::Config const& config, Bridging::VlanConfig const& vlan);
// The VLANs that make a pair with that primary, in the order of their numbers.
std::vector<Bridging::VlanId> secondariesOf(Bridging::Config const& config, Bridging::VlanId primary);
// Its primary; 0 where it makes no pair.
Bridging::VlanIdOrNone primaryOf(Bridging::Config const& config, Bridging::VlanConfig const& vlan);
// The filtering database that the VLAN uses: its own number, or what it is mapped onto.
uint16_t filteringDatabase(Bridging::Config const& config, Bridging::VlanId vlanId);

// The role in a sentence, as "a secondary of VLAN 100"; empty for a plain VLAN.
std::string roleText(Bridging::Config const& config, Bridging::VlanConfig const& vlan);
// Which way the port, a member, takes part because of that role, as it continues the sentence; empty for both
// ways, and for a plain VLAN.
std::string roleOnPortText(Bridging::VlanConfig const& vlan, Bridging::Input::SwitchIntfConfig const& record,
                           Bridging::SwitchIntfConfig const& resolved);

} // namespace Vornctl
