#include "Show.h"

#include "Failures.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "records/Bridging/VlanConfig.h"

namespace Vornctl {

namespace {

using Bridging::VlanConfig;

constexpr size_t nameWidth = 32;

char const* typeText(VlanConfig const& vlan) {
   return vlan.vlanTypeAndPrimaryVlan().vlanType == Bridging::VlanType::primary_ ? "primary" : "secondary";
}

// Those with the value true: the others open the VLAN to nobody.
std::vector<std::string> trunkGroups(VlanConfig const& vlan) {
   std::vector<std::string> groups;
   for (std::string const& name : sortedTexts(vlan.trunkGroup()))
      if (vlan.trunkGroup(Kem::String8(name)))
         groups.push_back(name);
   return groups;
}

Json vlanJson(VlanConfig const& vlan) {
   Json ports = Json::object();
   for (auto const& [port, member] : sortedMembers(vlan.intf()))
      ports[port.stringValue().str()] = {{"tagged", member.tagged},
                                         {"mappedUntagged", member.mappedUntagged},
                                         {"direction", directionName(member.direction)}};
   return {{"name", vlan.configuredName().str()},
           {"status", statusText(vlan.adminState())},
           {"isInternal", vlan.internal()},
           {"source", vlan.configSource().str()},
           {"type", typeText(vlan)},
           {"primaryVlan", vlan.vlanTypeAndPrimaryVlan().primaryVlan.value()},
           {"trunkGroups", trunkGroups(vlan)},
           {"ports", std::move(ports)}};
}

std::vector<Sulvi::IntfId> portsOf(VlanConfig const& vlan) {
   std::vector<Sulvi::IntfId> ports;
   vlan.intf().forEach([&](Sulvi::IntfId port, auto const&) { ports.push_back(port); });
   return ports;
}

std::string vlanTable(std::vector<std::pair<Bridging::VlanId, Kem::Ptr<VlanConfig>>> const& vlans,
                      Format const& format) {
   Table table({{"VLAN"}, {"Name"}, {"Status"}, {"Ports"}});
   bool hasInternal = false;
   for (auto const& [vlanId, vlan] : vlans) {
      hasInternal = hasInternal || vlan->internal();
      std::string const name = shortened(vlan->configuredName().view(), nameWidth);
      table.add({std::to_string(vlanId.value()) + (vlan->internal() ? "*" : ""), name.empty() ? "-" : name,
                 statusText(vlan->adminState())},
                portList(portsOf(*vlan)));
   }
   return table.text(format.width) + (hasInternal ? "\n* internal VLAN of a routed port\n" : "");
}

std::string membersTable(VlanConfig const& vlan, Format const& format) {
   auto const role = vlan.vlanTypeAndPrimaryVlan();
   std::string text = "\nConfigured by: " + Kem::printable(vlan.configSource().view()) + '\n';
   if (role.vlanType != Bridging::VlanType::primary_)
      text += "Private VLAN: " + std::string(typeText(vlan)) + " of VLAN " +
              std::to_string(role.primaryVlan.value()) + '\n';
   if (auto const groups = trunkGroups(vlan); !groups.empty())
      text += "Trunk groups that a trunk needs one of: " + Kem::printable(joined(groups)) + '\n';
   Table table({{"Port"}, {"Membership"}});
   for (auto const& [port, member] : sortedMembers(vlan.intf()))
      table.add({port.shortName().str()}, {std::string(membershipText(member))});
   return text + (table.empty() ? "" : '\n' + table.text(format.width));
}

} // namespace

std::string showVlan(SwitchState const& state, std::optional<Bridging::VlanId> vlanId, Format const& format) {
   auto vlans = sortedMembers(state.config->vlanConfig());
   if (vlanId) {
      std::erase_if(vlans, [&](auto const& member) { return member.first != *vlanId; });
      if (vlans.empty())
         throw Absent("VLAN " + std::to_string(vlanId->value()) + ": there is no such VLAN");
   }
   if (format.wantsJson) {
      Json all = Json::object();
      for (auto const& [id, vlan] : vlans)
         all[std::to_string(id.value())] = vlanJson(*vlan);
      return jsonText({{"vlans", std::move(all)}});
   }
   return vlanTable(vlans, format) + (vlanId ? membersTable(*vlans[0].second, format) : "");
}

} // namespace Vornctl
