// Which dynamic source gives a VLAN its settings, and what the source "mvrp" takes from trunks.
//
// Several sources may claim one VLAN. The source of record is the one with the greatest configPriority, and
// among equals the one with the greatest name, bytewise; 0 takes part. A static VLAN, one that the chosen input
// holds, is none of theirs, whatever they claim.
//
// Functions of the records alone: the agent and vornctl ask the same ones.
#pragma once

#include "Kem/Dir.h"
#include "Kem/String.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/VlanIdSet.h"

#include <string>
#include <vector>

namespace Vorn {

// The source that learns VLANs from its neighbours. A VLAN that it asks for and that isn't static is in the list of
// no trunk, whatever that says and whoever else claims the VLAN.
inline constexpr char mvrpSource[] = "mvrp";

// The name stands for no source when it is empty: any source is preferred to that.
struct DynVlanRank {
   Kem::String8 name;
   uint32_t priority = 0;
};
inline bool isPreferred(DynVlanRank const& candidate, DynVlanRank const& current) {
   return candidate.priority > current.priority ||
          (candidate.priority == current.priority && current.name < candidate.name);
}

// The VLANs of that set which `configIn`, the input that was chosen for VLANs, lacks; null holds none.
VornUtils::VlanIdSet mvrpOnlyVlans(VornUtils::VlanIdSet const& mvrp, Bridging::Input::Config const* configIn);

// --- The directory of the sources, for whoever has nothing else to go by.

struct DynVlanSource {
   DynVlanRank rank;
   Kem::Ptr<Bridging::Input::VlanIdSet> record;
   VornUtils::VlanIdSet vlans; // that it claims
   std::string leftOut;        // items of its list that are no VLAN numbers
};
// In the order of the directory, that of names.
std::vector<DynVlanSource> dynVlanSources(Kem::Dir const& dynVlanDir);
// The source of record among those that claim the VLAN; null when none does.
DynVlanSource const* sourceOfRecord(std::vector<DynVlanSource> const& sources, Bridging::VlanId vlanId);

} // namespace Vorn
