#include "WhyInterface.h"

#include "Failures.h"
#include "IntfDevice.h"
#include "PrivateVlan.h"
#include "Processor.h"
#include "RoutedPort.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/SubIntfIds.h"
#include "Vorn/Rules/SubIntfStatus.h"
#include "Vorn/Rules/VlanIntfStatus.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/VlanIntfConfig.h"

namespace Vornctl {

namespace {

using Interface::IntfOperStatus;

constexpr char vlanConfigs[] = "interface/config/eth/vlan.intfConfig";
constexpr char subConfigs[] = "interface/config/subintf.intfConfig";
constexpr char seeBacklog[] = "see whether the agent is running and has work waiting (vornctl show backlog)";

std::string attributeOf(char const* folder, RoutedIntf const& intf, char const* attribute) {
   return std::string(folder) + '[' + intf.intfId.stringValue().str() + "]." + attribute;
}

// --- What all kinds share.

// Who shut it down, and how it is brought up.
void explainShutDown(Findings& out, RoutedIntf const& intf, std::string const& selector) {
   bool const isByOperator =
       intf.config->enabledStateLocal() == Interface::EnabledState::enabledStateShutdown;
   out.decide(false, "Enabled",
              isByOperator ? "it is shut down by configuration (enabledStateLocal)"
                           : "it is not enabled: its publisher holds it down (enabled is false)");
   out.advise(isByOperator ? "bring it up: set " + selector + "enabledStateLocal to enabledStateEnabled"
                           : "see why " + (intf.isDynamic() ? intf.source() : "its publisher") + " sets " +
                                 selector + "enabled to false");
}

// --- VLAN interfaces.

class VlanIntfQuestion {
  public:
   VlanIntfQuestion(Findings& out, SwitchState const& state, RoutedIntf const& intf)
       : out_(out), state_(state), intf_(intf), vlanId_(*intf.vlanId()),
         vlanText_("VLAN " + std::to_string(vlanId_.value())), vlan_(state.config->vlanConfig(vlanId_)) {}

   void explain();

  private:
   std::string selector() const {
      std::string const key = '[' + intf_.intfId.stringValue().str() + "].";
      return intf_.isDynamic() ? "interface/input/dynvlanintf/" + intf_.source() + ".intfConfig" + key
                               : vlanConfigs + key;
   }
   void explainConfiguration();
   void explainSecondary();
   void explainPorts(Vorn::VlanIntfRow row);
   void adviseForwarding();

   Findings& out_;
   SwitchState const& state_;
   RoutedIntf const& intf_;
   Bridging::VlanId const vlanId_;
   std::string const vlanText_;
   Kem::Ptr<Bridging::VlanConfig> const vlan_; // null when it isn't resolved
};

void VlanIntfQuestion::explainConfiguration() {
   auto const lost = intf_.lostClaims();
   out_.note("Configuration", sourceText(intf_) +
                                  (intf_.isDynamic() ? byNumber(intf_.claims[0].source.priority) : "") +
                                  (lost.empty() ? "" : "; lost: " + joined(lost)));
}

void VlanIntfQuestion::explainSecondary() {
   std::string const primary = std::to_string(vlan_->vlanTypeAndPrimaryVlan().primaryVlan.value());
   out_.decide(false, "Private VLAN",
               vlanText_ + " is " + roleText(*state_.config, *vlan_) +
                   ": the interface of its primary VLAN serves it, and its own stays down");
   out_.advise("use the interface Vlan" + primary + " instead, or take the role from " + vlanText_ +
               " in the input that it comes from");
}

// Why no port forwards, and what to do about it.
void VlanIntfQuestion::adviseForwarding() {
   std::vector<Sulvi::IntfId> members;
   if (vlan_)
      vlan_->intf().forEach([&](Sulvi::IntfId port, auto const&) {
         if (port.kind() != Sulvi::IntfKind::cpu)
            members.push_back(port);
      });
   if (!vlan_)
      out_.advise(vlanText_ +
                  " doesn't exist: add it to the input that gives the VLANs (vornctl show inputs)");
   else if (vlan_->adminState() != Bridging::VlanAdminState::active)
      out_.advise(vlanText_ + " is " + statusText(vlan_->adminState()) + ": have it made active by " +
                  vlan_->configSource().str() + ", which it comes from");
   else if (members.empty())
      out_.advise("no port is a member of " + vlanText_ + ": put one into it (vornctl why PORT " +
                  std::to_string(vlanId_.value()) + " says what keeps it out)");
   else
      out_.advise("its member ports don't forward: see whether " + joined(portList(members)) +
                  (members.size() == 1 ? " has" : " have") + " a link, and what spanning tree says of " +
                  (members.size() == 1 ? "it" : "them"));
   out_.advise("or let it be up without a port: set " + selector() + "autoState to false");
}

void VlanIntfQuestion::explainPorts(Vorn::VlanIntfRow row) {
   using Vorn::VlanIntfRow;
   if (row == VlanIntfRow::noVlanStatusDir) {
      out_.decide(false, "Forwarding ports",
                  "nothing is known of forwarding ports: bridging/vlan/status is missing");
      out_.advise("see why the spanning tree agent doesn't publish it");
      return;
   }
   if (row == VlanIntfRow::forwardable)
      return out_.decide(true, "Forwarding ports",
                         joined(portList(forwardingPorts(state_, vlanId_))) + " of " + vlanText_ +
                             " forward");
   out_.note("Forwarding ports", "no port of " + vlanText_ + " forwards, other than the processor's");
   if (row == VlanIntfRow::ownAutoStateOff)
      return out_.decide(true, "Autostate", "off for this interface, so it is up without a forwarding port");
   if (row == VlanIntfRow::allAutoStateOff)
      return out_.decide(
          true, "Autostate",
          "off for all VLAN interfaces (interface/config/eth/allVlanIntfAutoState), so it is up without a "
          "forwarding port");
   out_.decide(false, "Autostate",
               "on for this interface and for all, so it is down without a forwarding port");
   adviseForwarding();
}

void VlanIntfQuestion::explain() {
   if (!intf_.config) {
      out_.decide(false, "Configuration",
                  "nobody configures it: neither interface/config/eth/vlan nor a dynamic source has it");
      out_.advise("configure it: ordelctl set '" + std::string(vlanConfigs) + '[' +
                  intf_.intfId.stringValue().str() + "]' '{}'");
      return;
   }
   explainConfiguration();
   if (!intf_.status) {
      out_.decide(false, "Status",
                  "it has no record in interface/status/eth/vlan, which the interface manager makes with "
                  "the configuration");
      out_.advise("see why the interface manager doesn't make it");
      return;
   }
   auto const row = static_cast<Vorn::VlanIntfRow>(intf_.verdict->row);
   if (row == Vorn::VlanIntfRow::noConfig) {
      out_.decide(false, "Status", "the agent hasn't taken the configuration up yet");
      out_.advise(seeBacklog);
   } else if (row == Vorn::VlanIntfRow::notEnabled) {
      explainShutDown(out_, intf_, selector());
   } else if (row == Vorn::VlanIntfRow::secondaryVlan) {
      explainSecondary();
   } else {
      out_.note("Enabled", "yes");
      explainPorts(row);
   }
}

// --- Subinterfaces.

// Conditions that hold are noted as they are found, in the order of the table.
class SubIntfQuestion {
  public:
   SubIntfQuestion(Findings& out, SwitchState const& state, RoutedIntf const& intf)
       : out_(out), state_(state), intf_(intf), parent_(intf.parent().stringValue().str()) {}

   void explain();

  private:
   void no(char const* rule, std::string const& finding, std::string const& advice) {
      out_.decide(false, rule, finding);
      out_.advise(advice);
   }
   void explainMissing();
   void explainTag(Vorn::SubIntfRow row);
   void explainParent(Vorn::SubIntfRow row);
   void explainHardware(Vorn::SubIntfRow row);
   std::string config(char const* attribute) const { return attributeOf(subConfigs, intf_, attribute); }

   Findings& out_;
   SwitchState const& state_;
   RoutedIntf const& intf_;
   std::string const parent_;
};

void SubIntfQuestion::explainMissing() {
   if (!intf_.config)
      return no("Configuration", "nobody configures it: interface/config/subintf doesn't have it",
                "configure it: ordelctl set '" + std::string(subConfigs) + '[' +
                    intf_.intfId.stringValue().str() +
                    "]' '{\"vlanId\": 10, \"encapType\": \"subIntfEncapDot1q\"}'");
   no("Status",
      "it has no record in interface/status/subintf, which the interface manager makes with the "
      "configuration",
      "see why the interface manager doesn't make it");
}

void SubIntfQuestion::explainTag(Vorn::SubIntfRow row) {
   using Vorn::SubIntfRow;
   std::string const vlan = "VLAN " + std::to_string(intf_.subConfig()->vlanId());
   if (row == SubIntfRow::noVlanId)
      return no("VLAN", "no VLAN number is configured", "set " + config("vlanId"));
   if (row == SubIntfRow::vlanIdTaken) {
      std::string const rivals = joined(portList(rivalsOf(state_, intf_)));
      return no("VLAN", rivals + " of the same parent claims " + vlan + " too, and none of them gets it",
                "give one of them another number: set " + config("vlanId") + ", or that of " + rivals);
   }
   out_.note("VLAN", vlan + ", which no other subinterface of " + parent_ + " claims");
   if (row == SubIntfRow::noEncap)
      return no("Encapsulation", "none is configured",
                "set " + config("encapType") + " to subIntfEncapDot1q");
   out_.note("Encapsulation", encapsulationText(intf_.subConfig()->encapType()));
}

void SubIntfQuestion::explainParent(Vorn::SubIntfRow row) {
   using Vorn::SubIntfRow;
   if (row == SubIntfRow::noParentStatus)
      return no("Parent",
                parent_ + " has no record in interface/status/all: there is no such interface, or the "
                          "interface manager doesn't know it",
                "see whether the switch has " + parent_);
   std::string const state = parent_ + " is " + operStatusText(intf_.parentStatus->operStatus());
   if (row == SubIntfRow::parentDown)
      return no("Parent", state, "see why: vornctl why " + parent_);
   if (row == SubIntfRow::parentNotRouted)
      return no("Parent",
                state + ", but not a routed port: its forwarding model is " +
                    forwardingModelText(intf_.parentStatus->forwardingModel()),
                "make it a routed port: set enabled of its switchIntfConfig to false in the input that "
                "decides it (vornctl "
                "show switchport " +
                    parent_ + ')');
   out_.note("Parent", state + " and routed");
}

void SubIntfQuestion::explainHardware(Vorn::SubIntfRow row) {
   if (row == Vorn::SubIntfRow::up)
      return out_.decide(true, "Hardware", "programmed, and nothing else holds it down");
   no("Hardware",
      intf_.hwStatus ? "not programmed: hardwareSuccess is false"
                     : "not programmed: no forwarding agent has answered yet",
      "see why the forwarding agent doesn't set interface/hardware/status/subintf.subIntfStatus[" +
          intf_.intfId.stringValue().str() + "].hardwareSuccess");
}

void SubIntfQuestion::explain() {
   using Vorn::SubIntfRow;
   if (!intf_.config || !intf_.status)
      return explainMissing();
   auto const row = static_cast<SubIntfRow>(intf_.verdict->row);
   out_.note("Configuration", sourceText(intf_));
   if (row == SubIntfRow::notEnabled)
      return explainShutDown(out_, intf_, config(""));
   out_.note("Enabled", "yes");
   if (row == SubIntfRow::noBridgeMacAddr)
      return no("Bridge address", "bridging/config.bridgeMacAddr is not set, and subinterfaces wait for it",
                "have the publisher of the bridge set it");
   out_.note("Bridge address", state_.config->bridgeMacAddr().stringValue().str());
   explainTag(row);
   if (!out_.isDecided())
      explainParent(row);
   if (!out_.isDecided())
      explainHardware(row);
}

// --- Others: ports, port channels, loopbacks.

void explainOther(Findings& out, SwitchState const& state, RoutedIntf const& intf) {
   std::string const key = '[' + intf.intfId.stringValue().str() + ']';
   if (!intf.config)
      out.note("Configuration", "no record in interface/config/all");
   else if (!intf.config->enabled())
      return explainShutDown(out, intf, "interface/config/all.intfConfig" + key + '.');
   else
      out.note("Enabled", "yes");
   std::vector<std::string> causes;
   for (auto const& [name, entity] : state.causes->entities())
      if (auto const cause = Kem::ptrCast<Errdisable::CauseStatus>(entity);
          cause && cause->intfStatus(intf.intfId))
         causes.push_back(name.str());
   if (!causes.empty()) {
      out.decide(false, "Errdisable", "disabled by " + joined(causes));
      out.advise("see when it comes back: vornctl show errdisable");
      return;
   }
   if (!intf.status) {
      out.decide(false, "Status",
                 "it has no record in interface/status/all: the interface manager doesn't know it");
      out.advise("see whether the switch has it, and why the interface manager doesn't bring it up");
      return;
   }
   bool const isUp = isUpByRecord(intf);
   out.decide(isUp, "Status", operStatusText(intf.status->operStatus()) + ", as its own agent says");
   if (!isUp)
      out.advise("see what the agent of its hardware says: a cable, a transceiver, the far side");
}

// --- The answer.

std::string headline(RoutedIntf const& intf, Findings const& device) {
   std::string text = Kem::printable(intf.intfId.stringValue().str());
   if (!intf.status)
      return text + " is not up: it has no status record.\n";
   text += " is " + operStatusText(intf.status->operStatus());
   if (intf.verdict && intf.verdict->operStatus == intf.status->operStatus())
      text += ": " + intf.verdict->reason;
   if (isUpByRecord(intf) && !device.isSo)
      text += "; but something is wrong with its device";
   return text + ".\n";
}

std::string changeText(SwitchState const& state, RoutedIntf const& intf) {
   auto const change = intf.status ? intf.status->operStatusChange() : Interface::OperStatusChange();
   return change.count == 0 ? ""
                            : "The state last changed " + agoText(state.now, change.time) + ", " +
                                  counted(change.count, "change") + " so far.\n";
}

} // namespace

Findings explainState(SwitchState const& state, RoutedIntf const& intf) {
   Findings out;
   if (!intf.isVlanIntf() && !intf.isSubIntf()) {
      explainOther(out, state, intf);
   } else if (!intf.hasAgentDevice()) {
      out.decide(false, "Name",
                 intf.isVlanIntf() ? "no VLAN has that number: VLAN interfaces are Vlan1 to Vlan4094"
                                   : Vorn::subIntfIdProblem(intf.intfId));
      out.advise("take it out of the configuration, and configure one with a number that the switch takes");
   } else if (intf.isVlanIntf()) {
      VlanIntfQuestion(out, state, intf).explain();
   } else {
      SubIntfQuestion(out, state, intf).explain();
   }
   return out;
}

IntfAnswer whyIntf(SwitchState const& state, Sulvi::IntfId intfId, Format const& format) {
   if (!isKnownIntf(state, intfId))
      throw Absent(intfId.stringValue().str() + ": there is no such interface");
   RoutedIntf const intf = routedIntf(state, intfId);
   KernelView kernel(state.agentProcess);
   Findings const byRules = explainState(state, intf);
   Findings device;
   device.isSo = true;
   // The device of an interface without records is no question of its own.
   if (intf.hasAgentDevice() && intf.config && intf.status)
      device = explainDevice(state, kernel, intf);
   std::vector<std::string> advice = byRules.advice;
   advice.insert(advice.end(), device.advice.begin(), device.advice.end());
   bool const isUp = isUpByRecord(intf) && device.isSo;
   if (format.wantsJson) {
      Json json = {{"interface", intfId.stringValue().str()}, {"isUp", isUp}};
      json.update(intfJson(state, kernel, intf));
      json["rules"] = rulesJson(byRules);
      json["isDeviceGood"] = device.isSo;
      json["deviceRules"] = rulesJson(device);
      json["advice"] = advice;
      json["kernelRemark"] = kernel.remark().empty() ? Json() : Json(kernel.remark());
      json["agentPid"] = agentPidJson(state);
      return {isUp, jsonText(json)};
   }
   std::string text =
       headline(intf, device) + changeText(state, intf) + '\n' + rulesText(byRules, format.width);
   if (!device.rules.empty())
      text += "\nIts kernel device:\n" + rulesText(device, format.width);
   if (intf.verdict && intf.verdict->operStatus != intf.status->operStatus())
      text += '\n' + paragraph("By these rules it would be " + operStatusText(intf.verdict->operStatus) +
                                   ": the agent hasn't evaluated it yet (vornctl show backlog).",
                               0, format.width);
   if (state.agentPid == 0)
      text += absentAgentText(format.width);
   if (!kernel.remark().empty())
      text += '\n' + paragraph(kernel.remark(), 0, format.width);
   return {isUp, text + adviceText(advice, format.width)};
}

} // namespace Vornctl
