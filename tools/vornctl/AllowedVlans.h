// The VLANs that are allowed on a port in trunk, tap or tool mode: its configured list, less what only MVRP
// knows, and with what dynamic sources allow besides.
#pragma once

#include "SwitchState.h"

#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <string>
#include <vector>

namespace Vornctl {

struct AllowedVlans {
   VornUtils::VlanIdSet vlans;
   std::string attribute; // of the port's record, that holds the list: "trunkAllowedVlans"
   std::string list;      // as it is configured
   std::string leftOut;   // items of it that say nothing
   VornUtils::VlanIdSet
       learned; // taken out: MVRP learned them, and the input that gives the VLANs lacks them
   struct Addition {
      std::string source; // name of the dynamic source
      VornUtils::VlanIdSet vlans;
   };
   std::vector<Addition> additions;
};

// Without dynamic parts of the state, those of the configured list alone.
AllowedVlans allowedVlans(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record);

// Trunk groups that dynamic sources give to the port.
std::vector<std::string> dynTrunkGroups(SwitchState const& state, Sulvi::IntfId port);

} // namespace Vornctl
