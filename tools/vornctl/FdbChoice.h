// How the inputs compete for one static host or group: which have the address in a VLAN, which of them
// decides it by the agent's rule (Vorn/Rules/BestInput.h), and what the agent resolved.
#pragma once

#include "SwitchState.h"

#include "Sulvi/EthAddr.h"
#include "Sulvi/IntfId.h"
#include "records/Bridging/types.h"

#include <optional>
#include <string>
#include <vector>

namespace Vornctl {

// A static host or group as some record has it.
struct FdbEntry {
   bool isGroup = false;
   Bridging::EntryType entryType = Bridging::EntryType::staticMac; // of a host
   std::vector<Sulvi::IntfId> ports; // the host's one, or the group's members in natural order

   friend bool operator==(FdbEntry const&, FdbEntry const&) = default;
};

struct FdbClaim {
   std::string input;
   uint32_t priority = 0;
   FdbEntry entry;
};

struct FdbChoice {
   std::vector<FdbClaim> claims; // the one that decides by the rule first, then the others in their order
   std::optional<FdbEntry> resolved;

   // Some have the address as a host and others as a group.
   bool isContradiction() const;
   // The input whose entry is the resolved one; empty when no input has it so.
   std::string resolvedFrom() const;
};

FdbChoice fdbChoiceOf(SwitchState const& state, Bridging::VlanId vlanId, Sulvi::EthAddr addr);
// Of the record that the agent resolved for the VLAN; nothing when it has no such address. The host counts
// where it has both.
std::optional<FdbEntry> resolvedFdbEntry(Bridging::Config const& config, Bridging::VlanId vlanId,
                                         Sulvi::EthAddr addr);

// "static host on Ethernet1", "dropped host", "host of type 7 on Ethernet1", "group of Ethernet1 and
// Ethernet2", "group without members".
std::string entryText(FdbEntry const& entry);
// "forward", "drop", "group", "type 7".
std::string entryKind(FdbEntry const& entry);
// As the tree names it: "dropMac"; "7" for what has no name.
std::string entryTypeName(Bridging::EntryType type);

} // namespace Vornctl
