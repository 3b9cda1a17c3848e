// A plain account of what the agent has to make of the publishers' intent: structs of the standard library,
// computed anew from nothing each time. It shares no code with the agent.
//
// What depends on the order of events is a constraint here, not a value: which number an internal VLAN has,
// and the CPU port of a VLAN.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace Model {

enum Mode { access = 0, trunk = 1, tunnel = 2, tap = 3, tool = 4, routed = 5 };

// --- Intent.

struct Vlan {
   std::string name;
   bool isSuspended = false;
   std::set<std::string> trunkGroups;
};

struct Port {
   bool enabled = true;
   int mode = access;
   unsigned accessVlan = 1, trunkNative = 1, tapNative = 1;
   std::string trunkAllowed = "1-4094", tapAllowed = "1-4094", toolAllowed = "1-4094", asym;
   std::set<std::string> trunkGroups;
   bool learns = true, floods = true;
   unsigned tpid = 0x8100;
};

struct Input {
   unsigned vlanPriority = 0, portPriority = 0;
   std::string detail;
   std::map<unsigned, Vlan> vlans;
   std::map<std::string, Port> ports;
};

struct Intent {
   std::map<std::string, Input> inputs; // by name, in the order of the directory; without the agent's own
   std::set<std::string> publishersEver{"cli"}; // also those that have gone
   std::set<std::string> ethernetIntfs;         // those with a configuration
   std::set<std::string> shutIntfs;
   std::map<std::string, unsigned> forwardingModel; // of those with a status
   std::set<unsigned> vlanIntfs;
   unsigned rangeMin = 1006, rangeMax = 4094;
   bool allocatesDescending = false;
   double agingTime = 300;
   bool passesPause = false;
   unsigned forwardingMode = 0;
   std::vector<unsigned> supportedModes; // by index
   std::map<unsigned, unsigned> fids;
   std::set<std::string> reserved;
   bool hasTimePassed = false; // recovery may have released waiting ports
};

// --- The resolved side.

struct Member {
   bool tagged = false, mapped = false;
   unsigned direction = 0;
   auto operator<=>(Member const&) const = default;
};

struct ResolvedVlan {
   bool internal = false, isSuspended = false;
   std::string source, name;
   std::set<std::string> trunkGroups;
   std::map<std::string, Member> members{}; // without the CPU port
   bool hasCpu = false;
   bool operator==(ResolvedVlan const&) const = default;
};

struct ResolvedPort {
   int mode = access;
   unsigned native = 0;
   bool learns = true, floods = true, takesTagged = true, isAsym = false, filters = true;
   unsigned tpid = 0x8100;
};

struct Resolved {
   std::map<unsigned, ResolvedVlan> vlans;
   std::map<std::string, ResolvedPort> ports;
   std::set<std::string> waiting;             // for an internal VLAN
   std::map<std::string, std::string> chosen; // the input that each port's record comes from
   std::string detail;
   unsigned rangeMin = 0, rangeMax = 0;
   bool allocatesDescending = false;
   double agingTime = 0;
   bool passesPause = false;
   unsigned forwardingMode = 0;
   std::map<unsigned, unsigned> fids;
   std::set<std::string> reserved;
};

// Everything about `actual` that the intent doesn't lead to, a line each; empty when it is right.
std::string differences(Intent const& intent, Resolved const& actual);

} // namespace Model
