// The sets of VLANs that membership rests on, as a port's record gives them: the allowed VLANs of a trunk,
// tap or tool port, and the VLANs of an asymmetric access port.
//
// Functions of the record alone. A subinterface has neither set.
#pragma once

#include "Kem/String.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <string>

namespace Vorn {

// Whether a port has these sets at all.
bool hasVlanSets(Sulvi::IntfId intfId);

struct AllowedVlans {
   VornUtils::VlanIdSet vlans;
   char const* attribute; // of the record, that holds the list: "trunkAllowedVlans"
   Kem::String8 list;     // as it is configured
   std::string leftOut; // its items that are no VLAN numbers, with commas between; empty when there are none
};

// By the mode that the record names, enabled or not; all modes but tap and tool have the list of a trunk.
AllowedVlans allowedVlans(Bridging::Input::SwitchIntfConfig const& record);

// Whether the record asks for an asymmetric port, which is an access port with a list of VLANs.
bool isAsymmetric(Bridging::Input::SwitchIntfConfig const& record);

struct AsymVlans {
   VornUtils::VlanIdSet vlans; // empty for a port that isn't asymmetric
   std::string leftOut;        // items of the list that are no VLAN numbers, as above
};
AsymVlans asymVlans(Bridging::Input::SwitchIntfConfig const& record);

} // namespace Vorn
