// Why a routed port has no internal VLAN, and what can be done about it.
#pragma once

#include "SwitchState.h"

#include "Sulvi/IntfId.h"

#include <optional>
#include <string>

namespace Vornctl {

struct NoInternalVlan {
   std::string reason; // "no number of the range 1006-1008 was free 12 s ago, and it is errdisabled for that"
   std::string advice;
};

// The port is routed and has no native VLAN. Needs the configuration, the interfaces and the causes.
NoInternalVlan whyNoInternalVlan(SwitchState const& state, Sulvi::IntfId port);

// When the port was disabled for want of an internal VLAN, on the agent's clock; nothing when it isn't.
std::optional<Kem::Seconds> noInternalVlanSince(SwitchState const& state, Sulvi::IntfId port);

// "1006-4094, from the lowest".
std::string internalVlanRangeText(Bridging::Config const& config);

// "12 s ago"; "at an unknown time" for a time that the clock hasn't reached, which is of an earlier boot.
std::string agoText(Kem::Seconds now, Kem::Seconds then);

} // namespace Vornctl
