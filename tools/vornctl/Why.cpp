#include "Why.h"

#include "DynamicSources.h"
#include "Failures.h"
#include "Inputs.h"
#include "Json.h"
#include "Membership.h"
#include "PrivateVlan.h"
#include "Processor.h"
#include "RoutedPort.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/PortMode.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"

namespace Vornctl {

namespace {

using Bridging::SwitchportMode;
using Bridging::Input::SwitchIntfConfig;

std::string nameOf(Sulvi::IntfId port) {
   return port.stringValue().str();
}

bool isKnown(SwitchState const& state, std::vector<Input> const& inputs, Sulvi::IntfId port) {
   if (port.kind() == Sulvi::IntfKind::cpu || state.config->switchIntfConfig(port) ||
       state.chosen->switchIntfConfig().find(port) || state.ethIntfConfig->intfConfig(port) ||
       state.ethIntfStatus->intfStatus(port))
      return true;
   for (Input const& input : inputs)
      if (input.config->switchIntfConfig(port))
         return true;
   return false;
}

// --- The input that decides the port.

void explainNoInput(Explanation& out, PortChoice const& choice, Sulvi::IntfId port) {
   if (choice.losers.empty()) {
      out.decide(false, "Input", "no input holds a record for the port");
      out.advise("list the port in interface/config/eth/intf, which gives it a default record, or publish "
                 "switchIntfConfig[" +
                 nameOf(port) + "] in an input");
   } else if (choice.byRule.empty()) {
      out.decide(false, "Input",
                 "no input takes part with a record for the port: " + losersText(choice.losers));
      out.advise("set switchIntfConfigPriority of bridging/input/config/" + choice.losers[0].name +
                 " above 0");
   } else {
      out.decide(false, "Input",
                 "the agent has not chosen among the inputs yet: " + losersText(choice.losers));
      out.advise("see whether the agent is running and has work waiting (vornctl show backlog)");
   }
}

void explainInput(Explanation& out, PortChoice const& choice, Sulvi::IntfId port) {
   if (!choice.record)
      return explainNoInput(out, choice, port);
   std::string const lost = choice.losers.empty() ? "" : "; lost: " + losersText(choice.losers);
   if (choice.winner.empty())
      out.note("Input", "a record that no input holds any more" + lost);
   else
      out.note("Input", choice.winner + " decides the port" + byNumber(choice.priority) + lost +
                            (choice.byRule.empty() || choice.byRule == choice.winner
                                 ? ""
                                 : "; that " + choice.byRule + " is to decide it is on its way"));
}

// --- What the port is.

std::string modeFinding(SwitchIntfConfig const& record, SwitchportMode resolved) {
   SwitchportMode const wanted = Vorn::effectiveMode(record);
   std::string finding = modeText(resolved);
   if (resolved == SwitchportMode::routed_ && !record.enabled())
      finding += ": the record says that it is no switchport (enabled is false)";
   if (wanted != resolved)
      finding += "; the record asks for " + modeText(wanted) + ", which is on its way";
   return finding;
}

std::string nativeFinding(SwitchState const& state, SwitchIntfConfig const& record,
                          Bridging::SwitchportModeAndNativeVlan const& resolved) {
   if (resolved.nativeVlan != 0)
      return std::to_string(resolved.nativeVlan.value()) +
             (resolved.switchportMode == SwitchportMode::routed_ ? ", its internal VLAN" : "");
   auto const configured = Vorn::configuredNativeVlan(record, resolved.switchportMode);
   if (configured.vlanId == 0)
      return "none";
   bool const exists = state.config->vlanConfig().find(Bridging::VlanId(configured.vlanId)) != nullptr;
   return "none: VLAN " + std::to_string(configured.vlanId.value()) + ", which it is configured for, " +
          (exists || !configured.mustExist ? "has not been taken up yet" : "doesn't exist");
}

// Users who ask why often mean a losing input that asks for the membership: so it is named.
void adviseLosers(Explanation& out, SwitchState const& state, PortChoice const& choice, Sulvi::IntfId port,
                  Bridging::VlanConfig const& vlan) {
   for (Input const& loser : choice.losers) {
      auto const record = loser.config->switchIntfConfig(port);
      if (loser.name != "eth" && wouldBeMember(state, *record, vlan))
         out.advise("or raise switchIntfConfigPriority of " + loser.name + ", which asks for VLAN " +
                    std::to_string(vlan.vlanId().value()) + " on the port (" +
                    modeText(Vorn::effectiveMode(*record)) + "), above " + std::to_string(choice.priority) +
                    "; all its ports then weigh more");
   }
}

Json answerJson(SwitchState const& state, Explanation const& explanation, bool isMember,
                PortChoice const& choice, Sulvi::IntfId port, Bridging::VlanId vlanId) {
   Json losers = Json::array();
   for (Input const& loser : choice.losers)
      losers.push_back({{"name", loser.name}, {"priority", loser.portPriority()}});
   Json json = {{"port", nameOf(port)},
                {"vlan", vlanId.value()},
                {"isMember", isMember},
                {"isMemberByRules", explanation.isMember()},
                {"input", choice.winner.empty() ? Json() : Json(choice.winner)},
                {"inputPriority", choice.priority},
                {"losers", std::move(losers)}};
   if (auto const resolved = state.config->switchIntfConfig(port)) {
      json["mode"] = modeText(resolved->switchportModeAndNativeVlan().switchportMode);
      json["nativeVlan"] = resolved->switchportModeAndNativeVlan().nativeVlan.value();
   }
   json["rules"] = rulesJson(explanation);
   json["advice"] = explanation.advice;
   json["agentPid"] = state.agentPid == 0 ? Json() : Json(state.agentPid);
   return json;
}

std::string answerText(SwitchState const& state, Explanation const& explanation,
                       Bridging::VlanPortConfig const* member, Sulvi::IntfId port, Bridging::VlanId vlanId,
                       size_t width) {
   std::string text =
       Kem::printable(nameOf(port)) + (member ? " is a member of VLAN " : " is not a member of VLAN ") +
       std::to_string(vlanId.value()) + (member ? ": " + membershipText(*member) : "") + ".\n\n";
   text += rulesText(explanation, width);
   if (state.agentPid == 0)
      text += absentAgentText(width);
   if (explanation.member && member && *explanation.member != *member)
      text +=
          "\n" +
          paragraph(
              "By these rules it would be a member in another way: " + membershipText(*explanation.member) +
                  ". The resolved configuration hasn't followed the inputs yet (vornctl show backlog).",
              0, width);
   if (explanation.isMember() != (member != nullptr))
      text += "\n" +
              paragraph(std::string("By these rules it would ") + (explanation.isMember() ? "be" : "not be") +
                            " a member: the resolved configuration hasn't followed the inputs yet (vornctl "
                            "show backlog).",
                        0, width);
   if (!member)
      text += adviceText(explanation.advice, width);
   return text;
}

} // namespace

Explanation explain(SwitchState const& state, Sulvi::IntfId port, Bridging::VlanId vlanId) {
   Explanation out;
   auto const inputs = inputsOf(state);
   auto const choice = choiceOf(state, inputs, port);
   auto const vlan = state.config->vlanConfig(vlanId);
   auto const resolved = state.config->switchIntfConfig(port);
   bool const isCpu = port.kind() == Sulvi::IntfKind::cpu;
   if (isCpu)
      out.note("Port", "the processor's own, which is a member where the switch has a VLAN interface");
   else
      explainInput(out, choice, port);
   if (choice.record && !resolved && !isCpu) {
      out.decide(false, "Port", "the agent has not taken the record up yet");
      out.advise("see whether the agent is running and has work waiting (vornctl show backlog)");
   }
   if (out.isDecided())
      return out;
   if (!isCpu) {
      auto const modeAndVlan = resolved->switchportModeAndNativeVlan();
      out.note("Mode", modeFinding(*choice.record, modeAndVlan.switchportMode));
      out.note("Native VLAN", nativeFinding(state, *choice.record, modeAndVlan));
   }
   if (!vlan) {
      explainMissingVlan(out, state, inputs, vlanId);
      return out;
   }
   out.note("VLAN", vlanFinding(state, *vlan));
   if (auto const role = roleText(*state.config, *vlan); !role.empty())
      out.note("VLAN role", isCpu || !vlan->intf().find(port) || primaryOf(*state.config, *vlan) == 0
                                ? role
                                : role + roleOnPortText(*vlan, *choice.record, *resolved));
   if (isCpu) {
      explainProcessor(out, *state.config, *vlan);
      return out;
   }
   explainMembership(out, state, {port, *choice.record, *resolved}, *vlan);
   if (!out.isMember())
      adviseLosers(out, state, choice, port, *vlan);
   return out;
}

WhyAnswer why(SwitchState const& state, Sulvi::IntfId port, Bridging::VlanId vlanId, Format const& format) {
   auto const inputs = inputsOf(state);
   if (!isKnown(state, inputs, port))
      throw Absent(nameOf(port) + ": there is no such port");
   Explanation const explanation = explain(state, port, vlanId);
   auto const vlan = state.config->vlanConfig(vlanId);
   auto const* const member = vlan ? vlan->intf().find(port) : nullptr;
   std::string text = format.wantsJson ? jsonText(answerJson(state, explanation, member != nullptr,
                                                             choiceOf(state, inputs, port), port, vlanId))
                                       : answerText(state, explanation, member, port, vlanId, format.width);
   return {member != nullptr, std::move(text)};
}

} // namespace Vornctl
