#include "IntfDevice.h"

#include "Explanation.h"
#include "Processor.h"
#include "Table.h"
#include "Words.h"

#include "Sulvi/KernelDeviceName.h"
#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/IntfConfig.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/VlanIntfConfig.h"

#include <set>

namespace Vornctl {

namespace {

constexpr uint32_t usualMtu = 1500;

Json addrJson(Sulvi::EthAddr addr) {
   return addr == Sulvi::EthAddr::ethAddrZero() ? Json() : Json(addr.stringValue().str());
}

Json textJson(std::string const& text) {
   return text.empty() ? Json() : Json(text);
}

char const* kindName(RoutedIntf const& intf) {
   using Sulvi::IntfKind;
   switch (intf.intfId.kind()) {
   case IntfKind::ethernet:
      return "ethernet";
   case IntfKind::portChannel:
      return "portChannel";
   case IntfKind::vlan:
      return "vlan";
   case IntfKind::management:
      return "management";
   case IntfKind::loopback:
      return "loopback";
   case IntfKind::ethernetSub:
   case IntfKind::portChannelSub:
   case IntfKind::otherSub:
      return "subinterface";
   default:
      return "other";
   }
}

Json kernelJson(KernelView& kernel, RoutedIntf const& intf) {
   auto const* const device = deviceOf(kernel, intf);
   if (!device)
      return {};
   auto const& netNs = kernel.at(intf.netNs);
   return {{"index", device->index},
           {"address", addrJson(device->addr)},
           {"mtu", device->mtu},
           {"flags", device->flags},
           {"isUp", device->isUp()},
           {"operState", kernelOperStateText(device->operState)},
           {"kind", textJson(device->kind)},
           {"vlanId", device->vlanId == 0 ? Json() : Json(device->vlanId)},
           {"base", textJson(device->isBaseHere ? netNs.nameOf(device->baseIndex) : "")}};
}

void addConfig(Json& json, RoutedIntf const& intf) {
   auto const& config = intf.config;
   json["source"] = textJson(intf.source());
   json["isEnabled"] = config ? Json(config->enabled()) : Json();
   json["configuredMtu"] = config ? Json(configuredMtu(*config)) : Json();
   json["configuredAddress"] = config ? addrJson(config->addr()) : Json();
   json["configuredNamespace"] = netNsText(intf.wantedNetNs);
}

void addVlanIntf(Json& json, SwitchState const& state, RoutedIntf const& intf) {
   auto const vlanId = intf.vlanId();
   auto const config = intf.vlanConfig();
   auto const vlan = vlanId ? state.config->vlanConfig(*vlanId) : nullptr;
   json["vlan"] = vlanId ? Json(vlanId->value()) : Json();
   json["publisher"] = config ? textJson(config->source().str()) : Json();
   json["autoState"] = config ? Json(config->autoState()) : Json();
   json["forwardingPorts"] = Json::array();
   if (vlanId)
      for (Sulvi::IntfId const port : forwardingPorts(state, *vlanId))
         json["forwardingPorts"].push_back(port.stringValue().str());
   json["isCpuMember"] = vlan && hasProcessor(*vlan);
   json["claims"] = Json::array();
   for (DynVlanIntfClaim const& claim : intf.claims)
      json["claims"].push_back({{"name", claim.source.name.str()}, {"priority", claim.source.priority}});
}

void addSubIntf(Json& json, SwitchState const& state, RoutedIntf const& intf) {
   auto const config = intf.subConfig();
   auto const status = intf.subStatus();
   auto const& parent = intf.parentStatus;
   json["parent"] = intf.parent().stringValue().str();
   json["parentState"] = parent ? Json(operStatusName(parent->operStatus())) : Json();
   json["parentForwardingModel"] = parent ? Json(forwardingModelText(parent->forwardingModel())) : Json();
   json["vlan"] = config && config->vlanId() != 0 ? Json(config->vlanId()) : Json();
   json["encapsulation"] = config ? Json(encapsulationText(config->encapType())) : Json();
   json["programInHw"] = status ? Json(status->programInHw()) : Json();
   json["hardwareSuccess"] = intf.hwStatus ? Json(intf.hwStatus->hardwareSuccess()) : Json();
   json["rivals"] = Json::array();
   for (Sulvi::IntfId const rival : rivalsOf(state, intf))
      json["rivals"].push_back(rival.stringValue().str());
}

} // namespace

KernelDevice const* deviceOf(KernelView& kernel, RoutedIntf const& intf) {
   return kernel.at(intf.netNs).findDevice(intf.deviceName());
}

std::string absenceText(KernelView& kernel, RoutedIntf const& intf) {
   if (!kernel.at(intf.netNs).problem.empty())
      return "unreadable";
   bool const isNamed = intf.status && !intf.status->deviceName().empty();
   return isNamed || intf.hasAgentDevice() ? "no device" : "-";
}

std::string wantedBase(SwitchState const& state, RoutedIntf const& intf) {
   if (intf.isVlanIntf())
      return state.agentProcess.fabricDeviceName();
   return intf.isSubIntf() ? Sulvi::kernelDeviceName(intf.parent()).str() : "";
}

uint16_t wantedVlanId(RoutedIntf const& intf) {
   if (auto const vlanId = intf.vlanId())
      return vlanId->value();
   auto const config = intf.subConfig();
   return config ? config->vlanId() : uint16_t(0);
}

std::string mismatchText(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf,
                         KernelDevice const& device) {
   if (device.kind != "vlan")
      return "it is no VLAN device, but " +
             (device.kind.empty() ? "one of hardware" : "one of the kind " + device.kind);
   if (uint16_t const wanted = wantedVlanId(intf); device.vlanId != wanted && wanted != 0)
      return "it is of VLAN " + std::to_string(device.vlanId) + " and not of VLAN " + std::to_string(wanted);
   // The base of a device in another namespace has an index there, which says nothing here.
   std::string const base = device.isBaseHere ? kernel.at(intf.netNs).nameOf(device.baseIndex) : "";
   std::string const wanted = wantedBase(state, intf);
   return base.empty() || base == wanted ? "" : "it is on " + base + " and not on " + wanted;
}

uint32_t configuredMtu(Interface::IntfConfig const& config) {
   return config.mtu() == 0 ? usualMtu : config.mtu();
}

std::string mtuText(RoutedIntf const& intf, KernelDevice const* device) {
   if (!intf.config)
      return device ? std::to_string(device->mtu) : "-";
   uint32_t const configured = configuredMtu(*intf.config);
   std::string const text = std::to_string(configured);
   return device && device->mtu != configured ? text + " (kernel " + std::to_string(device->mtu) + ")" : text;
}

std::string addressText(RoutedIntf const& intf, KernelDevice const* device) {
   auto addr = intf.status ? intf.status->addr() : Sulvi::EthAddr::ethAddrZero();
   if (addr == Sulvi::EthAddr::ethAddrZero() && device)
      addr = device->addr;
   return addr == Sulvi::EthAddr::ethAddrZero() ? "-" : addr.stringValue().str();
}

std::string stateText(RoutedIntf const& intf) {
   return intf.status ? operStatusText(intf.status->operStatus()) : "no status";
}

std::string reasonText(RoutedIntf const& intf) {
   bool const isAgents = intf.isVlanIntf() || intf.isSubIntf();
   if (!isAgents)
      return intf.config && !intf.config->enabled() ? "it is shut down" : "-";
   if (!intf.hasAgentDevice())
      return "the switch can have no such interface";
   if (!intf.config)
      return "nobody configures it";
   if (!intf.status)
      return "the interface manager has made no status record";
   if (!intf.verdict)
      return "-";
   return intf.verdict->operStatus == intf.status->operStatus()
              ? intf.verdict->reason
              : "not up to date: " + operStatusText(intf.verdict->operStatus) + ", since " +
                    intf.verdict->reason;
}

Json agentPidJson(SwitchState const& state) {
   return state.agentPid == 0 ? Json() : Json(state.agentPid);
}

std::string intfsJsonText(SwitchState const& state, KernelView& kernel, char const* member,
                          std::vector<RoutedIntf> const& intfs) {
   Json all = Json::object();
   for (RoutedIntf const& intf : intfs)
      all[intf.intfId.stringValue().str()] = intfJson(state, kernel, intf);
   return jsonText({{member, std::move(all)},
                    {"kernelProblem", textJson(state.agentStatus->kernelProblem().str())},
                    {"kernelRemark", textJson(kernel.remark())},
                    {"agentPid", agentPidJson(state)}});
}

Json intfJson(SwitchState const& state, KernelView& kernel, RoutedIntf const& intf) {
   auto const& status = intf.status;
   Json json = {{"kind", kindName(intf)},
                {"device", intf.deviceName()},
                {"namespace", netNsText(intf.netNs)},
                {"state", status ? Json(operStatusName(status->operStatus())) : Json()},
                {"address", status ? addrJson(status->addr()) : Json()},
                {"row", intf.verdict ? Json(intf.verdict->row) : Json()},
                {"reason", intf.verdict ? Json(intf.verdict->reason) : Json()},
                {"stateByRules", intf.verdict ? Json(operStatusName(intf.verdict->operStatus)) : Json()},
                {"hasConfiguration", intf.config != nullptr},
                {"hasStatus", status != nullptr},
                {"hasLocalStatus", intf.local != nullptr}};
   addConfig(json, intf);
   json["maxMtu"] = status && status->maxMtu() != 0 ? Json(status->maxMtu()) : Json();
   json["forwardingModel"] = status ? Json(forwardingModelText(status->forwardingModel())) : Json();
   auto const change = status ? status->operStatusChange() : Interface::OperStatusChange();
   json["stateChanges"] = change.count;
   json["stateChangeTime"] = change.count == 0 ? Json() : Json(change.time);
   json["secondsSinceStateChange"] =
       change.count == 0 || change.time > state.now ? Json() : Json(state.now - change.time);
   if (intf.isVlanIntf())
      addVlanIntf(json, state, intf);
   else if (intf.isSubIntf())
      addSubIntf(json, state, intf);
   json["kernel"] = kernelJson(kernel, intf);
   json["kernelUnreadable"] = textJson(kernel.at(intf.netNs).problem);
   json["deviceProblem"] = textJson(intf.deviceProblem);
   return json;
}

std::string remarksText(SwitchState const& state, KernelView& kernel, std::vector<RoutedIntf> const& intfs,
                        size_t width) {
   std::string text;
   auto const add = [&](std::string const& line) { text += paragraph(Kem::printable(line), 0, width); };
   if (state.agentPid == 0)
      text += absentAgentText(width).substr(1);
   if (!kernel.remark().empty())
      add(kernel.remark());
   if (!state.agentStatus->kernelProblem().empty())
      add("This kernel can make no VLAN device: " + state.agentStatus->kernelProblem().str() + ".");
   std::set<std::string> netNses;
   for (RoutedIntf const& intf : intfs) {
      auto const& netNs = kernel.at(intf.netNs);
      if (!netNs.problem.empty() && netNses.insert(netNsText(intf.netNs)).second)
         add("Devices in the namespace " + netNsText(intf.netNs) + ": " + netNs.problem + ".");
   }
   for (RoutedIntf const& intf : intfs) {
      if (!intf.deviceProblem.empty())
         add(intf.intfId.shortName().str() + ": " + intf.deviceProblem + '.');
      auto const* const device = deviceOf(kernel, intf);
      if (device && intf.status && intf.status->addr() != Sulvi::EthAddr::ethAddrZero() &&
          intf.status->addr() != device->addr)
         add(intf.intfId.shortName().str() + ": the kernel has the address " +
             device->addr.stringValue().str() + '.');
   }
   return text.empty() ? text : '\n' + text;
}

} // namespace Vornctl
