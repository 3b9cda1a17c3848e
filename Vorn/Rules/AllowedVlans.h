// The sets of VLANs that membership rests on: the allowed VLANs of a trunk, tap or tool port, and the VLANs of
// an asymmetric access port.
//
// The allowed VLANs of a trunk come about in three steps, in this order:
//
//    the list of the port's record
//    without the VLANs that the source "mvrp" asks for and that aren't static (DynVlans.h)
//    and with those that dynamic sources allow on the port, these among them
//
// Taps and tools have their list and nothing else, and a subinterface has neither set. Functions of the records
// alone.
#pragma once

#include "Kem/String.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <string>

namespace Vorn {

// Whether a port has these sets at all.
bool hasVlanSets(Sulvi::IntfId intfId);

// The list that the record has for its mode, enabled or not; all modes but tap and tool have that of a trunk.
struct AllowedVlanList {
   char const* attribute; // of the record, that holds the list: "trunkAllowedVlans"
   Kem::String8 list;     // as it is configured
};
AllowedVlanList allowedVlanList(Bridging::Input::SwitchIntfConfig const& record);

// Whether the source "mvrp" can take VLANs from the port's list.
bool takesDynamicVlans(Bridging::Input::SwitchIntfConfig const& record);
// Whether dynamic sources can allow VLANs on the port: not on an unconnected Ethernet interface and not on a
// port channel for recirculation.
bool takesDynAllowedVlans(Bridging::Input::SwitchIntfConfig const& record);

struct AllowedVlans {
   VornUtils::VlanIdSet vlans;
   char const* attribute; // of the record, that holds the list: "trunkAllowedVlans"
   Kem::String8 list;     // as it is configured
   std::string leftOut; // its items that are no VLAN numbers, with commas between; empty when there are none
};

// The first of the three steps.
AllowedVlans allowedVlans(Bridging::Input::SwitchIntfConfig const& record);

// Whether the record asks for an asymmetric port, which is an access port with a list of VLANs.
bool isAsymmetric(Bridging::Input::SwitchIntfConfig const& record);

struct AsymVlans {
   VornUtils::VlanIdSet vlans; // empty for a port that isn't asymmetric
   std::string leftOut;        // items of the list that are no VLAN numbers, as above
};
AsymVlans asymVlans(Bridging::Input::SwitchIntfConfig const& record);

} // namespace Vorn
