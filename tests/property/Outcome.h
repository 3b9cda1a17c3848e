// What the agent has made of the intent: what a subscriber of the database can see of it, as plain structs.
#pragma once

#include "Intent.h"

#include <map>
#include <set>
#include <string>

namespace Model {

struct Member {
   bool tagged = false, mapped = false;
   unsigned direction = 0;
   bool operator==(Member const&) const = default;
};

struct ResolvedVlan {
   bool internal = false, isSuspended = false;
   std::string source, name;
   Role role;
   std::set<std::string> trunkGroups;
   std::map<std::string, Member> members; // the processor's port as "Cpu"
   bool operator==(ResolvedVlan const&) const = default;
};

struct ResolvedPort {
   int mode = access;
   unsigned native = 0;
   bool learns = true, floods = true, takesTagged = true, isAsym = false, filters = true;
   unsigned tpid = 0x8100;
   std::map<Tags, Tags> ingress{}, egress{};
   unsigned ingressNative = 0, egressNative = 0;
   bool operator==(ResolvedPort const&) const = default;
};

// Static hosts and groups of one VLAN, of all inputs together.
struct MergedFdb {
   std::map<std::string, Host> hosts;
   std::map<std::string, std::set<std::string>> groups;
   bool operator==(MergedFdb const&) const = default;
};

struct Outcome {
   std::map<unsigned, ResolvedVlan> vlans;
   std::map<std::string, ResolvedPort> ports;
   std::map<std::string, double> waiting;     // for an internal VLAN, since when
   std::map<std::string, std::string> chosen; // the input that each port's record comes from
   std::map<std::string, bool> defaults;      // the agent's own records: whether enabled
   std::string detail;
   unsigned rangeMin = 0, rangeMax = 0;
   bool allocatesDescending = false;
   double agingTime = 0;
   bool passesPause = false;
   unsigned forwardingMode = 0;
   std::map<unsigned, unsigned> fids;
   std::set<std::string> reserved;
   std::map<unsigned, SviMapping> sviMappings; // by primary
   std::map<unsigned, MergedFdb> merged;       // by VLAN
   std::map<unsigned, MergedFdb> fdbs;         // what became of them, by filtering database
};

// How often each record has been made in a life of the agent. A subscriber must not see a record that stays
// being deleted.
struct Births {
   std::map<unsigned, unsigned> vlans;
   std::map<std::string, unsigned> ports;
};

// Where the two differ, a line each; empty when they are alike.
std::string differences(Outcome const& expected, Outcome const& actual);

} // namespace Model
