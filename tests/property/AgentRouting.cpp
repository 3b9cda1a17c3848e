// Routed interfaces: what state each is in, and which device it has. Whatever was before: all of it follows
// from the intent and the resolved VLANs of the moment.

#include "AgentModel.h"

#include <algorithm>

namespace Model {

namespace {

enum OperStatus { up = 1, down = 2, unknown = 4, dormant = 5, lowerLayerDown = 7 };

unsigned vlanOf(std::string const& vlanIntf) {
   return static_cast<unsigned>(std::stoul(vlanIntf.substr(4)));
}
std::string parentOf(std::string const& subIntf) {
   return subIntf.substr(0, subIntf.find('.'));
}
// "et7.10" of "Ethernet7.10"
std::string deviceOf(std::string const& intf) {
   std::string name = intf;
   for (auto const& [from, to] :
        {std::pair("Ethernet", "et"), std::pair("Port-Channel", "po"), std::pair("Vlan", "vlan")})
      if (name.starts_with(from))
         name = to + name.substr(std::string(from).size());
   std::replace(name.begin(), name.end(), '/', '_');
   return name;
}

// A value that no device can have stands for the usual one.
unsigned mtuOf(unsigned configured, unsigned maxMtu, unsigned baseMtu) {
   unsigned const wanted = configured < 68 || configured > 65535 ? 1500 : configured;
   return std::min({wanted, maxMtu, baseMtu});
}

} // namespace

// --- What is configured.

// The source that wins an interface; empty when none asks for it.
std::string Agent::vlanIntfWinner(std::string const& intf) const {
   std::string winner;
   unsigned priority = 0;
   for (auto const& [name, asked] : intent_.routing.sources)
      if (asked.intfs.contains(intf) && (winner.empty() || asked.priority >= priority)) {
         winner = name; // the greatest name of the greatest priority, since names ascend
         priority = asked.priority;
      }
   return winner;
}

bool Agent::isVlanIntfName(std::string const& intf) {
   return intf.starts_with("Vlan") && vlanOf(intf) >= 1 && vlanOf(intf) <= lastVlan;
}

// The configured one, or else that of a source; null for neither.
VlanIntf const* Agent::vlanIntf(std::string const& intf) const {
   if (auto const found = intent_.vlanIntfs.find(intf); found != intent_.vlanIntfs.end())
      return &found->second;
   auto const winner = vlanIntfWinner(intf);
   return winner.empty() || !isVlanIntfName(intf) ? nullptr
                                                  : &intent_.routing.sources.at(winner).intfs.at(intf);
}

bool Agent::hasRecords(std::string const& intf) const {
   return intent_.routing.statuses.contains(intf) && intent_.routing.locals.contains(intf);
}

bool Agent::isSecondary(unsigned number) const {
   auto const vlan = vlans_.find(number);
   return vlan != vlans_.end() && !vlan->second.internal && vlan->second.role.type != 0;
}

// --- States.

unsigned Agent::vlanIntfState(std::string const& intf) const {
   auto const* const config = vlanIntf(intf);
   unsigned const number = vlanOf(intf);
   if (!config || !hasRecords(intf))
      return unknown;
   if (!config->isInUse() || isSecondary(number))
      return down;
   auto const ports = intent_.routing.forwarding.find(number);
   bool const isForwarding = ports != intent_.routing.forwarding.end() &&
                             std::any_of(ports->second.begin(), ports->second.end(),
                                         [](auto const& port) { return port != "Cpu"; });
   return isForwarding || !config->autoState || !intent_.routing.autoState ? up : lowerLayerDown;
}

// Others of the same parent that are complete claim its VLAN id.
bool Agent::isDuplicate(std::string const& intf) const {
   auto const& all = intent_.routing.subIntfs;
   return std::any_of(all.begin(), all.end(), [&](auto const& other) {
      return other.first != intf && parentOf(other.first) == parentOf(intf) && hasRecords(other.first) &&
             other.second.vlanId == all.at(intf).vlanId;
   });
}

Agent::SubIntfState Agent::subIntfState(std::string const& intf) const {
   auto const& in = intent_.routing;
   auto const config = in.subIntfs.find(intf);
   if (config == in.subIntfs.end() || !hasRecords(intf))
      return {lowerLayerDown, false};
   if (!config->second.isInUse() || in.bridgeAddr.empty())
      return {down, false};
   auto const parent = in.parents.find(parentOf(intf));
   if (config->second.vlanId == 0 || isDuplicate(intf) || !config->second.isDot1q ||
       parent == in.parents.end() || parent->second.operStatus != up ||
       parent->second.forwardingModel != routedModel)
      return {lowerLayerDown, false};
   auto const hardware = in.hardware.find(intf);
   if (hardware == in.hardware.end() || !hardware->second)
      return {dormant, true};
   return {up, true};
}

// --- Devices.

// The device of an interface that has configuration and records; `isOn`: it is to be up.
std::optional<RoutedDevice> Agent::routedDevice(std::string const& intf, RoutedIntf const& config,
                                                std::string const& base, unsigned vlanId, bool isOn) const {
   auto const& in = intent_.routing;
   auto const wanted = in.netNs.find(intf);
   std::string const netNs = wanted == in.netNs.end() ? "" : wanted->second;
   if (!netNs.empty() && !in.namespaces.contains(netNs))
      return {}; // it waits where it is
   auto const below = in.devices.find(base);
   if (below == in.devices.end() || vlanId == 0)
      return RoutedDevice();
   RoutedDevice device{.exists = true, .vlanId = vlanId, .base = base, .netNs = netNs};
   if (!below->second.isUp)
      device.isUp = false; // as the kernel has it
   if (in.bridgeAddr.empty() || (base == "fabric" && !below->second.isUp))
      return device; // set up once these are there
   device.isUp = isOn && below->second.isUp;
   device.mtu = mtuOf(config.mtu, in.maxFrame, below->second.mtu);
   device.addr = config.addr.empty() ? in.bridgeAddr : config.addr;
   return device;
}

RoutedOutcome Agent::routedIntfs() const {
   auto const& in = intent_.routing;
   RoutedOutcome out;
   std::set<std::string> vlanIntfs;
   for (auto const& [intf, config] : intent_.vlanIntfs)
      vlanIntfs.insert(intf);
   for (auto const& [name, asked] : in.sources)
      for (auto const& [intf, config] : asked.intfs) {
         bool const isMine = isVlanIntfName(intf) && vlanIntfWinner(intf) == name;
         out.errors[name + " " + intf] = !isMine || intent_.vlanIntfs.contains(intf);
         if (isVlanIntfName(intf))
            vlanIntfs.insert(intf);
      }
   for (auto const& intf : vlanIntfs)
      out.devices[deviceOf(intf)] =
          hasRecords(intf) ? routedDevice(intf, *vlanIntf(intf), "fabric", vlanOf(intf),
                                          vlanIntf(intf)->isInUse() && !isSecondary(vlanOf(intf)))
                           : std::nullopt;
   for (auto const& [intf, config] : in.subIntfs)
      out.devices[deviceOf(intf)] = hasRecords(intf) && !(config.vlanId != 0 && isDuplicate(intf))
                                        ? routedDevice(intf, config, deviceOf(parentOf(intf)), config.vlanId,
                                                       subIntfState(intf).operStatus == up)
                                        : std::nullopt;
   for (auto const& intf : in.statuses)
      if (intf.starts_with("Vlan")) {
         out.states[intf] = std::to_string(vlanIntfState(intf));
      } else {
         auto const state = subIntfState(intf);
         out.states[intf] = std::to_string(state.operStatus) + (state.isInHardware ? " in hardware" : "");
      }
   return out;
}

} // namespace Model
