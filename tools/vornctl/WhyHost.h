// Why an address is or isn't a static host or group of a VLAN: the input that decides it and those that lost,
// what is known of the VLAN, and whether the VLAN has static hosts of its own.
//
// What the address is, is what the resolved configuration says; the rule of who decides, which is the agent's
// (Vorn/Rules), is asked here about the inputs. Where the two differ, the answer says so.
#pragma once

#include "Explanation.h"
#include "Show.h"
#include "Why.h"

#include "Sulvi/EthAddr.h"

namespace Vornctl {

inline constexpr Part whyHostParts = Part::config | Part::inputs | Part::dynamic | Part::agentPid;

// `isMember` of the answer is whether the VLAN has the address, as a host or as a group. An address that
// nobody has and a VLAN that doesn't exist are explained.
WhyAnswer whyHost(SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId,
                  Format const& format);

// The rules alone.
Explanation explainHost(SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId);

} // namespace Vornctl
