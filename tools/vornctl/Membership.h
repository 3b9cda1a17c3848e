// The rules by which a port is a member of a VLAN that exists, in the order in which the agent applies them:
// the state of the VLAN, routed ports, internal VLANs, tunnels, asymmetric access ports, access ports, and
// trunk, tap and tool ports with their allowed VLANs and trunk groups.
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
// inputs, dynamic, interfaces and causes of the state.
void explainMembership(Explanation& out, SwitchState const& state, Port const& port,
                       Bridging::VlanConfig const& vlan);

} // namespace Vornctl
