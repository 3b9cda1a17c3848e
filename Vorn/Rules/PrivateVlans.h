// What follows from a private VLAN pair for translations of trunks and for the processor's port: the parts of it
// that depend on records alone, so that the agent and vornctl ask the same functions. Who makes a pair is the
// library's to say (PrivateVlanLib/LibSm.h); which ports are members is in Membership.h.
#pragma once

#include "records/Bridging/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/types.h"

namespace Vorn {

// Whether a port with that record has frames of primary VLANs leave under the number of a secondary, which is
// what the far side can classify: a trunk with trunkPrivateVlanMapping, enabled or not.
bool mapsPrimaryVlans(Bridging::Input::SwitchIntfConfig const& record);
// The entry that stands for this in the table of leaving frames: of frames with the primary VLAN as their only
// tag, to the smallest secondary.
inline Bridging::VlanXlateKey primaryVlanKey(Bridging::VlanId primary) {
   return {.outerVlanId = primary, .innerVlanId = 0};
}
inline Bridging::VlanXlateMapping secondaryVlanMapping(Bridging::VlanId secondary) {
   return {.mappedVlanId = Bridging::VlanIdOrNone(secondary)};
}

// Whether the primary's VLAN interface is to serve the secondary: all of them without a mapping of the primary,
// or with one by default, and else those that it names.
bool isServed(Bridging::Config const& config, Bridging::VlanId primary, Bridging::VlanId secondary);

} // namespace Vorn
