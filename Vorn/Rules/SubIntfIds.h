// Which names are those of subinterfaces that this switch can have: a number below 4095 on an Ethernet port or a
// port channel. Functions of the name alone.
#pragma once

#include "Sulvi/IntfId.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Vorn {

// Numbers of subinterfaces are below this.
inline constexpr uint32_t subIntfNumberLimit = 4095;

// The number behind the "."; nothing when the parent is neither an Ethernet port nor a port channel.
std::optional<uint32_t> subIntfNumber(Sulvi::IntfId intfId);

// The port; the empty id when subIntfNumber has nothing.
Sulvi::IntfId parentOfSubIntf(Sulvi::IntfId intfId);

// Why the switch can have no such subinterface, in words for operators; empty when it can.
std::string subIntfIdProblem(Sulvi::IntfId intfId);

} // namespace Vorn
