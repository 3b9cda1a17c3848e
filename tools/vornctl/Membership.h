// The rule by which a port is a member of a VLAN that exists, in words. The rules themselves are those that
// the agent applies (Vorn/Rules/Membership.h); here are only their explanations and advice for people.
#pragma once

#include "Explanation.h"
#include "SwitchState.h"

#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/VlanConfig.h"

namespace Vornctl {

// A port that is resolved: the record that was chosen for it, and what the agent made of it.
struct Port {
   Sulvi::IntfId intfId;
   Bridging::Input::SwitchIntfConfig const& record;
   Bridging::SwitchIntfConfig const& resolved;
};

// Adds the rules up to the one that decides, and advice where the port is no member. Needs the parts config,
// inputs, interfaces and causes of the state.
void explainMembership(Explanation& out, SwitchState const& state, Port const& port,
                       Bridging::VlanConfig const& vlan);

// Whether the port would be a member if the agent followed that record. A routed port never: its internal
// VLAN is for the agent to choose.
bool wouldBeMember(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
                   Bridging::VlanConfig const& vlan);

} // namespace Vornctl
