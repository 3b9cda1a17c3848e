#include "Show.h"

#include "Failures.h"
#include "IntfDevice.h"
#include "RoutedPort.h"
#include "Table.h"
#include "Words.h"

#include "records/Bridging/VlanConfig.h"
#include "records/Interface/Hardware/SubIntfStatus.h"

#include <utility>

namespace Vornctl {

namespace {

// A block of facts: what each is, and what it is at the moment.
class FactList {
  public:
   void section(std::string const& title) { text_ += '\n' + Kem::printable(title) + '\n'; }
   void add(std::string const& name, std::string const& value) {
      constexpr size_t nameWidth = 22;
      text_ += "   " + name + std::string(nameWidth - std::min(nameWidth, name.size()), ' ') +
               Kem::printable(value) + '\n';
   }
   std::string const& text() const { return text_; }

  private:
   std::string text_;
};

std::string onOff(bool isOn) {
   return isOn ? "on" : "off";
}

std::string yesNo(bool isSo) {
   return isSo ? "yes" : "no";
}

std::string addrOrNone(Sulvi::EthAddr addr) {
   return addr == Sulvi::EthAddr::ethAddrZero() ? "none" : addr.stringValue().str();
}

void addConfiguration(FactList& facts, RoutedIntf const& intf) {
   facts.section("Configuration");
   facts.add("source", sourceText(intf));
   if (auto const& config = intf.config) {
      facts.add("enabled", yesNo(config->enabled()));
      facts.add("MTU", std::to_string(configuredMtu(*config)));
      facts.add("address", addrOrNone(config->addr()));
   }
   facts.add("namespace", netNsText(intf.wantedNetNs));
   if (auto const config = intf.vlanConfig())
      facts.add("autostate", onOff(config->autoState()));
   if (auto const config = intf.subConfig()) {
      facts.add("VLAN", config->vlanId() == 0 ? "none" : std::to_string(config->vlanId()));
      facts.add("encapsulation", encapsulationText(config->encapType()));
   }
   if (auto const lost = intf.lostClaims(); !lost.empty())
      facts.add("other claims", joined(lost));
}

void addStatus(FactList& facts, SwitchState const& state, RoutedIntf const& intf) {
   facts.section("Status");
   auto const& status = intf.status;
   if (!status) {
      facts.add("state", "there is no status record yet");
   } else {
      facts.add("state", operStatusText(status->operStatus()));
      auto const change = status->operStatusChange();
      facts.add("last change", change.count == 0 ? "never"
                                                 : agoText(state.now, change.time) + ", " +
                                                       counted(change.count, "change") + " so far");
      facts.add("device", status->deviceName().empty() ? "none" : status->deviceName().str());
      facts.add("address", addrOrNone(status->addr()));
      facts.add("largest MTU", status->maxMtu() == 0 ? "unknown" : std::to_string(status->maxMtu()));
      facts.add("forwarding model", forwardingModelText(status->forwardingModel()));
   }
   if (intf.isVlanIntf() || intf.isSubIntf())
      facts.add("namespace", intf.local ? netNsText(intf.netNs) : "there is no local status record yet");
   if (intf.verdict)
      facts.add("row of the table", std::to_string(intf.verdict->row) + ": " +
                                        operStatusText(intf.verdict->operStatus) + ", " +
                                        intf.verdict->reason);
}

void addVlan(FactList& facts, SwitchState const& state, RoutedIntf const& intf) {
   auto const vlanId = intf.vlanId();
   if (!vlanId)
      return;
   facts.section("VLAN " + std::to_string(vlanId->value()));
   auto const vlan = state.config->vlanConfig(*vlanId);
   auto const ports = forwardingPorts(state, *vlanId);
   facts.add("status", vlan ? statusText(vlan->adminState()) : "doesn't exist");
   facts.add("forwarding ports", ports.empty() ? "none" : joined(portList(ports)));
   facts.add("processor", vlan && vlan->intf().find(Sulvi::IntfId("Cpu")) ? "member" : "no member");
}

void addHardware(FactList& facts, RoutedIntf const& intf) {
   auto const status = intf.subStatus();
   if (!intf.isSubIntf())
      return;
   facts.section("Parent " + intf.parent().stringValue().str());
   auto const& parent = intf.parentStatus;
   facts.add("state", parent ? operStatusText(parent->operStatus()) : "there is no status record");
   if (parent)
      facts.add("forwarding model", forwardingModelText(parent->forwardingModel()));
   facts.section("Hardware");
   facts.add("to be programmed", status ? yesNo(status->programInHw()) : "unknown");
   facts.add("programmed", !intf.hwStatus                     ? "no record of the hardware"
                           : intf.hwStatus->hardwareSuccess() ? "yes"
                                                              : "no");
}

void addKernel(FactList& facts, SwitchState const& state, KernelView& kernel, RoutedIntf const& intf) {
   auto const& netNs = kernel.at(intf.netNs);
   facts.section("Kernel, namespace " + netNsText(intf.netNs));
   auto const* const device = deviceOf(kernel, intf);
   if (!netNs.problem.empty()) {
      facts.add("device", "unreadable: " + netNs.problem);
   } else if (!device) {
      facts.add("device", absenceText(kernel, intf) == "-" ? "none" : "no device " + intf.deviceName());
   } else {
      facts.add("device", intf.deviceName() + ", index " + std::to_string(device->index));
      facts.add("address", addrOrNone(device->addr));
      facts.add("MTU", std::to_string(device->mtu));
      facts.add("flags", kernelFlagsText(device->flags));
      facts.add("state", kernelOperStateText(device->operState));
      if (device->vlanId != 0)
         facts.add("VLAN", std::to_string(device->vlanId));
      if (std::string const base = device->isBaseHere ? netNs.nameOf(device->baseIndex) : ""; !base.empty())
         facts.add("base device", base);
      std::string const mismatch = intf.hasAgentDevice() ? mismatchText(state, kernel, intf, *device) : "";
      if (!mismatch.empty())
         facts.add("not as wanted", mismatch);
   }
   if (!intf.deviceProblem.empty())
      facts.add("problem", intf.deviceProblem);
}

std::string intfBlock(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf, size_t width) {
   FactList facts;
   addConfiguration(facts, intf);
   addStatus(facts, state, intf);
   addVlan(facts, state, intf);
   addHardware(facts, intf);
   addKernel(facts, state, kernel, intf);
   return Kem::printable(intf.intfId.stringValue().str()) + '\n' + facts.text().substr(1) +
          remarksText(state, kernel, {}, width);
}

std::string intfTable(SwitchState const& state, KernelView& kernel, std::vector<RoutedIntf> const& intfs,
                      size_t width) {
   Table table(
       {{"Interface"}, {"Device"}, {"Index"}, {"Namespace"}, {"Address"}, {"MTU"}, {"State"}, {"Reason"}});
   for (RoutedIntf const& intf : intfs) {
      auto const* const device = deviceOf(kernel, intf);
      std::string const named = intf.status ? intf.status->deviceName().str() : "";
      table.add({intf.intfId.shortName().str(),
                 device          ? intf.deviceName()
                 : named.empty() ? "-"
                                 : named,
                 device ? std::to_string(device->index) : absenceText(kernel, intf), netNsText(intf.netNs),
                 addressText(intf, device), mtuText(intf, device), stateText(intf)},
                {reasonText(intf)});
   }
   return table.empty() ? "There are no interfaces.\n"
                        : table.text(width) + remarksText(state, kernel, intfs, width);
}

} // namespace

std::string showInterface(SwitchState const& state, std::optional<Sulvi::IntfId> intfId,
                          Format const& format) {
   if (intfId && !isKnownIntf(state, *intfId))
      throw Absent(intfId->stringValue().str() + ": there is no such interface");
   KernelView kernel(state.agentProcess);
   std::vector<RoutedIntf> intfs;
   for (Sulvi::IntfId const each : intfId ? std::vector{*intfId} : knownIntfs(state))
      intfs.push_back(routedIntf(state, each));
   if (format.wantsJson)
      return intfsJsonText(state, kernel, "interfaces", intfs);
   return intfId ? intfBlock(state, kernel, intfs[0], format.width)
                 : intfTable(state, kernel, intfs, format.width);
}

} // namespace Vornctl
