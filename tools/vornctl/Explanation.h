// A question answered rule by rule, in the order in which the agent applies its rules: what each found, which
// one decided, and what can be done about the answer.
//
// Rules after the deciding one are not reached and don't appear.
#pragma once

#include "records/Bridging/types.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Vornctl {

struct Rule {
   std::string name;
   std::string finding; // a phrase, or sentences
   bool decides = false;
};

struct Explanation {
   std::vector<Rule> rules;
   bool isMember = false;           // by the rules
   std::vector<std::string> advice; // what would make the port a member; empty where it is one
   // How the port is a member by the rules; nothing where it is none, and for the processor's port.
   std::optional<Bridging::VlanPortConfig> member;

   void note(std::string name, std::string finding) {
      rules.push_back({std::move(name), std::move(finding)});
   }
   void decide(bool isMemberNow, std::string name, std::string finding) {
      rules.push_back({std::move(name), std::move(finding), true});
      isMember = isMemberNow;
   }
   void advise(std::string text) { advice.push_back(std::move(text)); }
   bool isDecided() const { return !rules.empty() && rules.back().decides; }
};

} // namespace Vornctl
