// Why a port is or isn't a member of a VLAN: the publisher that decides the port and those that
// lost, what the port is at the moment, what is known of the VLAN, and then the rules of
// membership, up to the one that decides.
//
// Whether the port is a member is what the resolved configuration says; the rules, which are those of the
// agent itself (Vorn/Rules), are asked here about the chosen record. Where the two differ, which they do
// while a change is on its way, the answer says so.
#pragma once

#include "Explanation.h"
#include "Show.h"

namespace Vornctl {

inline constexpr Part whyParts = Part::config | Part::chosen | Part::inputs | Part::dynamic |
                                 Part::interfaces | Part::causes | Part::agentPid;

struct WhyAnswer {
   bool isMember = false; // in the resolved configuration
   std::string text;
};

// Absent for a port that nobody knows; a VLAN that doesn't exist is explained.
WhyAnswer why(SwitchState const& state, Sulvi::IntfId port, Bridging::VlanId vlanId, Format const& format);

// The rules alone.
Explanation explain(SwitchState const& state, Sulvi::IntfId port, Bridging::VlanId vlanId);

} // namespace Vornctl
