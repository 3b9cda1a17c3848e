#include "Explanation.h"

#include "DynamicSources.h"
#include "Inputs.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <algorithm>

namespace Vornctl {

// --- As text and as JSON.

std::string rulesText(Findings const& findings, size_t width) {
   size_t ruleWidth = 0;
   for (Rule const& rule : findings.rules)
      ruleWidth = std::max(ruleWidth, characters(rule.name));
   size_t const indent = ruleWidth + 4;
   std::string text;
   for (Rule const& rule : findings.rules) {
      std::string const finding =
          paragraph(Kem::printable(rule.finding), indent, std::max<size_t>(width, indent + 30));
      std::string const head = (rule.decides ? "> " : "  ") + rule.name;
      text += head + finding.substr(characters(head));
   }
   return text;
}

std::string absentAgentText(size_t width) {
   return "\n" + paragraph("The agent is not connected to the database: what is shown is what it left, and "
                           "follows no input.",
                           0, width);
}

std::string adviceText(std::vector<std::string> const& advice, size_t width) {
   if (advice.empty())
      return {};
   std::string text = "\nWhat to do:\n";
   for (std::string const& item : advice)
      text += "  - " + paragraph(Kem::printable(item), 4, width).substr(4);
   return text;
}

Json rulesJson(Findings const& findings) {
   Json rules = Json::array();
   for (Rule const& rule : findings.rules)
      rules.push_back({{"rule", rule.name}, {"finding", rule.finding}, {"decides", rule.decides}});
   return rules;
}

// --- Findings that several questions share.

std::string byNumber(uint32_t priority) {
   return " by its number " + std::to_string(priority);
}

namespace {

// Who among dynamic sources asks for the VLAN, and what became of that; empty when none does.
std::string claimsFinding(SwitchState const& state, Bridging::VlanConfig const& vlan) {
   auto const sources = dynVlanSources(state);
   auto const claims = claimsOf(sources, vlan.vlanId());
   if (claims.empty())
      return "";
   std::string const staticInput = staticInputOf(state, vlan.vlanId());
   if (!staticInput.empty())
      return "; claims of dynamic sources wait: " + claimsText(claims);
   return ", a dynamic VLAN; claimed by " + claimsText(claims);
}

} // namespace

std::string vlanFinding(SwitchState const& state, Bridging::VlanConfig const& vlan) {
   std::string const name = vlan.configuredName().str();
   if (vlan.internal())
      return "exists: the internal VLAN of " + name;
   std::string const source = vlan.configSource().str();
   return "exists" + (name.empty() ? "" : ": \"" + name + '"') + (source.empty() ? "" : ", from " + source) +
          claimsFinding(state, vlan);
}

void explainMissingVlan(Explanation& out, SwitchState const& state, std::vector<Input> const& inputs,
                        Bridging::VlanId vlanId) {
   std::string const number = std::to_string(vlanId.value());
   std::string const place = ".vlanConfig[" + number + ']';
   size_t const winner = vlanWinner(state, inputs);
   std::vector<std::string> others;
   for (size_t i = 0; i < inputs.size(); ++i)
      if (i != winner && inputs[i].config->vlanConfig().find(vlanId))
         others.push_back(inputs[i].name + ' ' + std::to_string(inputs[i].vlanPriority()));
   std::string const lost = others.empty() ? "" : "; lost with it: " + joined(others);
   auto const sources = dynVlanSources(state);
   if (auto const claims = claimsOf(sources, vlanId);
       !claims.empty() && staticInputOf(state, vlanId).empty()) {
      out.decide(false, "VLAN", "claimed by " + claimsText(claims) + ", but the agent has not made it yet");
      out.advise("see whether the agent is running and has work waiting (vornctl show backlog)");
      return;
   }
   if (winner == inputs.size()) {
      out.decide(false, "VLAN",
                 "doesn't exist: no input takes part in the choice of VLANs, each has vlanConfigPriority 0" +
                     lost);
      out.advise("set vlanConfigPriority of an input that holds VLAN " + number + " above 0");
      return;
   }
   Input const& input = inputs[winner];
   if (input.config->vlanConfig().find(vlanId)) {
      out.decide(false, "VLAN",
                 input.name + " holds it and gives the VLANs" + byNumber(input.vlanPriority()) +
                     ", but the agent has not made it yet");
      out.advise("see whether the agent is running and has work waiting (vornctl show backlog)");
      return;
   }
   out.decide(false, "VLAN",
              "doesn't exist: " + input.name + ", which gives all VLANs" + byNumber(input.vlanPriority()) +
                  ", lacks it" + lost);
   out.advise("make it: bridging/input/config/" + input.name + place);
   if (!others.empty())
      out.advise("or raise vlanConfigPriority of an input that holds it above " +
                 std::to_string(input.vlanPriority()) + "; that input then gives all VLANs");
}

} // namespace Vornctl
