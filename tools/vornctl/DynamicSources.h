// What dynamic sources ask for: VLANs, and VLANs and trunk groups of ports. The agent keeps its own account of
// their claims in its process, so they are worked out here, from what the sources publish and by the agent's
// rules (Vorn/Rules/DynVlans.h, Vorn/Rules/AllowedVlans.h).
#pragma once

#include "SwitchState.h"

#include "Vorn/Rules/DynVlans.h"
#include "Vorn/Rules/Membership.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <string>
#include <vector>

namespace Vornctl {

// --- VLANs.
using Sources = std::vector<Vorn::DynVlanSource>;
Sources dynVlanSources(SwitchState const& state); // in the order of names
// Those that claim the VLAN, the source of record first.
std::vector<Vorn::DynVlanSource const*> claimsOf(Sources const& sources, Bridging::VlanId vlanId);
// "overlay 20 and mvrp 10", each with its priority.
std::string claimsText(std::vector<Vorn::DynVlanSource const*> const& claims);
// The name of the input that gives the VLANs, if it holds this one; empty otherwise.
std::string staticInputOf(SwitchState const& state, Bridging::VlanId vlanId);
// VLANs that the source "mvrp" asks for and the input that gives the VLANs lacks.
VornUtils::VlanIdSet mvrpOnlyVlans(SwitchState const& state);

// --- Ports.
// The allowed VLANs of a port with that record: its own list, and what dynamic sources take from it and add.
VornUtils::VlanIdSet allowedVlans(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record);
// Names of the sources that allow the VLAN on a port with that record.
std::vector<std::string> allowersOf(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
                                    Bridging::VlanId vlanId);
// A trunk group that a source gives to a port.
struct DynTrunkGroup {
   std::string group, source;
};
std::vector<DynTrunkGroup> dynTrunkGroupsOf(SwitchState const& state, Sulvi::IntfId port);

} // namespace Vornctl
