// A question answered rule by rule, in the order in which the agent applies its rules: what each found, which
// one decided, and what can be done about the answer.
//
// Rules after the deciding one are not reached and don't appear.
#pragma once

#include "Inputs.h"
#include "Json.h"
#include "SwitchState.h"

#include "records/Bridging/VlanConfig.h"

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

struct Findings {
   std::vector<Rule> rules;
   bool isSo = false;               // the answer to the question, by the rules
   std::vector<std::string> advice; // what would turn a no into a yes

   void note(std::string name, std::string finding) {
      rules.push_back({std::move(name), std::move(finding)});
   }
   void decide(bool isSoNow, std::string name, std::string finding) {
      rules.push_back({std::move(name), std::move(finding), true});
      isSo = isSoNow;
   }
   void advise(std::string text) { advice.push_back(std::move(text)); }
   bool isDecided() const { return !rules.empty() && rules.back().decides; }
};

// Whether a port is a member of a VLAN, or an address is in one.
struct Explanation : Findings {
   bool isMember() const { return isSo; }
   // How the port is a member by the rules; nothing where it is none, and for the processor's port.
   std::optional<Bridging::VlanPortConfig> member;
};

// --- As text and as JSON. Lines have at most `width` characters.
std::string rulesText(Findings const& findings, size_t width);
std::string adviceText(std::vector<std::string> const& advice, size_t width); // empty when there is none
// That no agent is connected, which every answer has to say.
std::string absentAgentText(size_t width);
Json rulesJson(Findings const& findings);

// --- Findings that several questions share.
// The priority with which an input competes, as it is printed after the input's name.
std::string byNumber(uint32_t priority);
std::string vlanFinding(SwitchState const& state, Bridging::VlanConfig const& vlan);
// Decides that the VLAN isn't there, and says why.
void explainMissingVlan(Explanation& out, SwitchState const& state, std::vector<Input> const& inputs,
                        Bridging::VlanId vlanId);

} // namespace Vornctl
