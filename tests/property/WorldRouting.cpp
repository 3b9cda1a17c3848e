// What there is of routed interfaces, beside what the model says.

#include "World.h"

#include "records/Interface/Input/DynVlanIntfErrorDir.h"
#include "records/Interface/SubIntfStatus.h"
#include "records/Interface/VlanIntfStatus.h"

#include <cstdio>
#include <sstream>

namespace Model {

namespace {

std::string textOf(std::map<std::string, std::string> const& expected,
                   std::map<std::string, std::string> const& actual) {
   std::ostringstream out;
   for (auto const& [name, text] : expected)
      if (auto const found = actual.find(name); found == actual.end())
         out << name << " is missing: expected " << text << "\n";
      else if (found->second != text)
         out << name << ": expected " << text << ", is " << found->second << "\n";
   for (auto const& [name, text] : actual)
      if (!expected.contains(name))
         out << name << " is nobody's: " << text << "\n";
   return out.str();
}

std::string addrOf(Netlink::FakeKernel::Device const& device) {
   auto const& a = device.address;
   char text[18];
   snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", a[0], a[1], a[2], a[3], a[4], a[5]);
   return text;
}

// The same, in words; what is open in the first is left out in both.
std::string describe(RoutedDevice const& expected, RoutedDevice const& device) {
   if (!device.exists)
      return "no device";
   std::ostringstream out;
   out << "VLAN " << device.vlanId << " on " << device.base << " in '" << device.netNs << "'";
   if (expected.isUp)
      out << (*device.isUp ? " up" : " down");
   if (expected.mtu)
      out << " MTU " << *device.mtu;
   if (expected.addr)
      out << " " << *device.addr;
   return out.str();
}

} // namespace

void World::subscribeRouting() {
   vlanStatuses_ = sw_.subscribe<Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
   subStatuses_ = sw_.subscribe<Interface::SubIntfStatusDir>("interface/status/subintf");
   errors_ = sw_.subscribe<Kem::Dir>("interface/inputError/dynvlanintf");
}

std::string World::routingDifferences() const {
   if (hasFaults_)
      return "";
   auto const expected = model_->routedIntfs();
   std::map<std::string, std::string> states;
   for (auto const& [intfId, status] : vlanStatuses_->intfStatus())
      states[intfId.stringValue().str()] = std::to_string(static_cast<int>(status->operStatus()));
   for (auto const& [intfId, status] : subStatuses_->intfStatus())
      states[intfId.stringValue().str()] = std::to_string(static_cast<int>(status->operStatus())) +
                                           (status->programInHw() ? " in hardware" : "");
   std::map<std::string, std::string> wantedErrors, errors;
   for (auto const& [name, isError] : expected.errors)
      wantedErrors["answer to " + name] = isError ? "error" : "no error";
   for (auto const& [name, source] : intent_.routing.sources)
      if (auto const dir = errors_->entity<Interface::Input::DynVlanIntfErrorDir>(Kem::Name(name)))
         for (auto const& [intfId, isError] : dir->intfConfigError())
            errors["answer to " + name + " " + intfId.stringValue().str()] = isError ? "error" : "no error";
   return textOf(expected.states, states) + textOf(wantedErrors, errors) + deviceDifferences(expected);
}

std::string World::deviceDifferences(RoutedOutcome const& expected) const {
   auto const& in = intent_.routing;
   std::ostringstream out;
   std::map<std::string, int> count;
   std::set<std::string> spaces = in.namespaces;
   spaces.insert("");
   std::map<std::string, RoutedDevice> actual;
   std::istringstream lines(kernel_.describe());
   for (std::string line; std::getline(lines, line);) {
      std::string const place = line.substr(0, line.find(':'));
      std::string const name = place.substr(0, place.find('@'));
      std::string const netNs = name == place ? "" : place.substr(name.size() + 1);
      if (in.devices.contains(name) || !spaces.contains(netNs))
         continue; // such as those of a namespace that is held by sockets only
      auto const* const device = kernel_.findDevice(name, netNs);
      if (++count[name] > 1)
         out << "device " << name << " is in two namespaces\n";
      auto const wanted = expected.devices.find(name);
      if (wanted == expected.devices.end())
         out << "device " << line << ": nobody's\n";
      actual[name] = {.exists = true,
                      .vlanId = device->vlanId,
                      .base = device->base ? device->base->name : "",
                      .netNs = netNs,
                      .isUp = device->isUp,
                      .mtu = device->mtu,
                      .addr = addrOf(*device)};
   }
   for (auto const& [name, wanted] : expected.devices) {
      if (!wanted)
         continue;
      auto const is = describe(*wanted, actual[name]), shall = describe(*wanted, *wanted);
      if (is != shall)
         out << "device " << name << ": expected " << shall << ", is " << is << "\n";
   }
   return out.str();
}

} // namespace Model
