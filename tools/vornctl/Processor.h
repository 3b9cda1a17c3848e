// Why the processor's own port is or isn't a member of a VLAN: it is one where the switch has a VLAN
// interface, and in the secondary VLANs that the interface of their primary serves.
#pragma once

#include "Explanation.h"

#include "records/Bridging/Config.h"
#include "records/Bridging/VlanConfig.h"

namespace Vornctl {

// Whether the processor's port is a member.
bool hasProcessor(Bridging::VlanConfig const& vlan);
// Adds the rule that decides, and advice where the port is no member.
void explainProcessor(Explanation& out, Bridging::Config const& config, Bridging::VlanConfig const& vlan);

} // namespace Vornctl
