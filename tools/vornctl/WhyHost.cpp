#include "WhyHost.h"

#include "FdbChoice.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/BestInput.h"
#include "records/Bridging/EthGroup.h"

namespace Vornctl {

namespace {

std::string textOf(Sulvi::EthAddr addr) {
   return addr.stringValue().str();
}
std::string textOf(Bridging::VlanId vlanId) {
   return std::to_string(vlanId.value());
}

// "b 3 (static host on Ethernet1)".
std::string claimText(FdbClaim const& claim) {
   return claim.input + ' ' + std::to_string(claim.priority) + " (" + entryText(claim.entry) + ')';
}

// Other VLANs in which some input has the address: "cli in 20 and 30".
std::string otherVlansText(SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId) {
   std::vector<std::string> texts;
   for (Input const& input : inputsOf(state)) {
      std::vector<std::string> vlans;
      for (auto const& [other, fdb] : sortedMembers(input.config->fdbConfig()))
         if (other != vlanId && (fdb->configuredHost(addr) || (addr.isMulticast() && fdb->ethGroup(addr))))
            vlans.push_back(textOf(other));
      if (!vlans.empty())
         texts.push_back(input.name + " in VLAN " + joined(vlans));
   }
   return joined(texts);
}

void explainNobody(Explanation& out, SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId) {
   std::string const others = otherVlansText(state, addr, vlanId);
   out.decide(false, "Input",
              "no input has the address in VLAN " + textOf(vlanId) +
                  (others.empty() ? "" : "; elsewhere it has " + others));
   std::string const record = "bridging/input/config/cli.fdbConfig[" + textOf(vlanId) + "].";
   out.advise("publish " + record + "configuredHost[" + textOf(addr) + "], in this or another input" +
              (addr.isMulticast() ? ", or a group, " + record + "ethGroup[" + textOf(addr) + ']' : ""));
}

void explainClaims(Explanation& out, FdbChoice const& choice) {
   FdbClaim const& best = choice.claims.front();
   bool const hasEqual = choice.claims.size() > 1 && choice.claims[1].priority == best.priority;
   std::vector<std::string> losers;
   for (size_t i = 1; i < choice.claims.size(); ++i)
      losers.push_back(claimText(choice.claims[i]));
   out.note("Input", best.input + " decides the address" + byNumber(best.priority) +
                         (hasEqual ? ", as the last by name of those with that number" : "") +
                         (losers.empty() ? "" : "; lost: " + joined(losers)));
   if (choice.isContradiction())
      out.note("Host or group", "the inputs disagree: what " + best.input + " says counts, a " +
                                    (best.entry.isGroup ? "group" : "host") +
                                    ", and the other kind is left out");
}

// The VLAN that the number belongs to; false after a decision.
bool explainFdbVlan(Explanation& out, SwitchState const& state, Bridging::VlanId vlanId) {
   auto const vlan = state.config->vlanConfig(vlanId);
   if (!vlan) {
      explainMissingVlan(out, state, inputsOf(state), vlanId);
      return false;
   }
   if (vlan->internal()) {
      out.decide(false, "VLAN",
                 vlanFinding(state, *vlan) + ", a routed port, and internal VLANs have no static hosts");
      out.advise("make it an ordinary one, bridging/input/config/cli.vlanConfig[" + textOf(vlanId) +
                 "]: the routed port then takes another number");
      return false;
   }
   out.note("VLAN", vlanFinding(state, *vlan));
   auto const* const fid = state.config->vidToFidMap().find(vlanId);
   if (fid && *fid != 0) {
      std::string const database = std::to_string(fid->value());
      out.decide(false, "Filtering database",
                 "the VLAN uses that of VLAN " + database +
                     " (vidToFidMap) and has no static hosts of its own");
      out.advise("publish the address in VLAN " + database + ", whose static hosts count for both");
      return false;
   }
   out.note("Filtering database", "its own");
   return true;
}

// What the resolved entry has and the rules don't say, or the other way round; empty when they agree.
std::string differenceText(FdbChoice const& choice, bool isThereByRules) {
   auto const byRules = isThereByRules ? std::optional(choice.claims.front().entry) : std::nullopt;
   if (choice.resolved == byRules)
      return {};
   if (byRules && choice.resolved && byRules->isGroup && choice.resolved->isGroup) {
      std::vector<std::string> extra;
      for (Sulvi::IntfId const port : choice.resolved->ports)
         if (std::find(byRules->ports.begin(), byRules->ports.end(), port) == byRules->ports.end())
            extra.push_back(port.stringValue().str());
      if (byRules->ports.size() + extra.size() == choice.resolved->ports.size())
         return "Members that " + choice.claims.front().input + " doesn't have: " + joined(extra) +
                ". An input that decided the group before left them; they go when " +
                choice.claims.front().input + " publishes the group anew, or when the agent starts again.";
   }
   return "By these rules it would " +
          (byRules ? "be there: " + entryText(*byRules) : std::string("not be there")) +
          ". Either the change is on its way (vornctl show backlog), or an input changed its "
          "fdbConfigPriority after the address was evaluated, which counts from the next change of the "
          "address "
          "on.";
}

Json hostJson(SwitchState const& state, FdbChoice const& choice, Explanation const& explanation,
              Sulvi::EthAddr addr, Bridging::VlanId vlanId) {
   auto const entryJson = [](FdbEntry const& entry) {
      Json ports = Json::array();
      for (Sulvi::IntfId const port : entry.ports)
         ports.push_back(port.stringValue().str());
      Json json = {{"kind", entry.isGroup ? "group" : "host"}, {"ports", std::move(ports)}};
      if (!entry.isGroup)
         json["type"] = entryTypeName(entry.entryType);
      return json;
   };
   Json losers = Json::array();
   for (size_t i = 1; i < choice.claims.size(); ++i)
      losers.push_back({{"name", choice.claims[i].input},
                        {"priority", choice.claims[i].priority},
                        {"entry", entryJson(choice.claims[i].entry)}});
   return {{"address", textOf(addr)},
           {"vlan", vlanId.value()},
           {"isResolved", choice.resolved.has_value()},
           {"isResolvedByRules", explanation.isMember()},
           {"resolved", choice.resolved ? entryJson(*choice.resolved) : Json()},
           {"input", choice.claims.empty() ? Json() : Json(choice.claims.front().input)},
           {"inputPriority", choice.claims.empty() ? 0 : choice.claims.front().priority},
           {"inputEntry", choice.claims.empty() ? Json() : entryJson(choice.claims.front().entry)},
           {"losers", std::move(losers)},
           {"isContradiction", choice.isContradiction()},
           {"rules", rulesJson(explanation)},
           {"advice", explanation.advice},
           {"agentPid", state.agentPid == 0 ? Json() : Json(state.agentPid)}};
}

} // namespace

Explanation explainHost(SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId) {
   Explanation out;
   FdbChoice const choice = fdbChoiceOf(state, vlanId, addr);
   if (choice.claims.empty()) {
      explainNobody(out, state, addr, vlanId);
      return out;
   }
   explainClaims(out, choice);
   if (explainFdbVlan(out, state, vlanId)) {
      FdbEntry const& entry = choice.claims.front().entry;
      out.decide(true, entry.isGroup ? "Group" : "Host", entryText(entry));
   }
   return out;
}

WhyAnswer whyHost(SwitchState const& state, Sulvi::EthAddr addr, Bridging::VlanId vlanId,
                  Format const& format) {
   FdbChoice const choice = fdbChoiceOf(state, vlanId, addr);
   Explanation const explanation = explainHost(state, addr, vlanId);
   bool const isThere = choice.resolved.has_value();
   if (format.wantsJson)
      return {isThere, jsonText(hostJson(state, choice, explanation, addr, vlanId))};
   std::string text =
       textOf(addr) + " is " +
       (isThere ? "in VLAN " + textOf(vlanId) + ": " + Kem::printable(entryText(*choice.resolved))
                : "no static host or group of VLAN " + textOf(vlanId)) +
       ".\n\n" + rulesText(explanation, format.width);
   if (state.agentPid == 0)
      text += absentAgentText(format.width);
   if (std::string const difference = differenceText(choice, explanation.isMember()); !difference.empty())
      text += '\n' + paragraph(Kem::printable(difference), 0, format.width);
   if (!isThere)
      text += adviceText(explanation.advice, format.width);
   return {isThere, std::move(text)};
}

} // namespace Vornctl
