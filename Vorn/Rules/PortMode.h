// What a port's record asks for: the mode, and the native VLAN of that mode.
//
// Functions of the record alone; whether the VLAN is resolved, and which internal VLAN a routed port has, is
// known to the agent.
#pragma once

#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/types.h"

namespace Vorn {

// The only place where `enabled` and the mode are combined: a record that isn't enabled asks for a routed
// port, whatever mode it names.
inline Bridging::SwitchportMode effectiveMode(Bridging::Input::SwitchIntfConfig const& record) {
   return record.enabled() ? static_cast<Bridging::SwitchportMode>(record.switchportMode())
                           : Bridging::SwitchportMode::routed_;
}

// Ports in these modes are members of their allowed VLANs (AllowedVlans.h).
constexpr bool hasAllowedVlans(Bridging::SwitchportMode mode) {
   using Mode = Bridging::SwitchportMode;
   return mode == Mode::trunk_ || mode == Mode::tap_ || mode == Mode::tool_;
}

constexpr bool hasAllowedVlans(Bridging::Input::SwitchportMode mode) {
   return hasAllowedVlans(static_cast<Bridging::SwitchportMode>(mode));
}

struct NativeVlan {
   Bridging::VlanIdOrNone vlanId; // 0 for none
   bool mustExist = false;        // a port has none while that VLAN isn't resolved
};

// The native VLAN that the record names for the mode; none for the routed one, which isn't for the record
// to say.
NativeVlan configuredNativeVlan(Bridging::Input::SwitchIntfConfig const& record,
                                Bridging::SwitchportMode mode);

} // namespace Vorn
