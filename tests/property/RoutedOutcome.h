// What the agent has made of routed interfaces: their status records, their devices in the kernel, and the
// answers to dynamic sources.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace Model {

// The device of one interface. What is absent here may be anything: it depends on what was before.
struct RoutedDevice {
   bool exists = false;
   unsigned vlanId = 0;
   std::string base{}, netNs{};
   std::optional<bool> isUp{};
   std::optional<unsigned> mtu{};
   std::optional<std::string> addr{};
};

struct RoutedOutcome {
   std::map<std::string, std::string> states; // by interface: its state, and whether it goes into hardware
   // By name; null where even the existence is open. A device that isn't listed must not be.
   std::map<std::string, std::optional<RoutedDevice>> devices;
   std::map<std::string, bool> errors; // by "source interface"
};

} // namespace Model
