// Why an interface is up or down: the conditions in the order of the table that decides its state, up to the first
// that holds, and then what may keep its kernel device away or down, with what would change it.
//
// The state is what the record says, the reason what the agent's own rules (Vorn/Rules) say of the records; where the
// two differ, which they do while a change is on its way, the answer says so. Of interfaces that aren't the agent's, it
// says what their records say.
#pragma once

#include "Explanation.h"
#include "KernelDevices.h"
#include "RoutedIntf.h"
#include "Show.h"

namespace Vornctl {

inline constexpr Part whyIntfParts = showIntfParts | Part::causes;

struct IntfAnswer {
   bool isUp = false; // by its record, and nothing is wrong with its device
   std::string text;
};

// Absent for an interface that nobody knows.
IntfAnswer whyIntf(SwitchState const& state, Sulvi::IntfId intfId, Format const& format);

// The state alone: `isSo` is whether it is up by the rules.
Findings explainState(SwitchState const& state, RoutedIntf const& intf);
// The kernel device of a VLAN interface or subinterface: `isSo` is whether nothing is wrong with it.
Findings explainDevice(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf);

} // namespace Vornctl
