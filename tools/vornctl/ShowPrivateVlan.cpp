#include "Show.h"

#include "Failures.h"
#include "Json.h"
#include "PrivateVlan.h"
#include "Processor.h"
#include "Table.h"
#include "Words.h"

#include "Kem/Printable.h"
#include "Vorn/Rules/PrivateVlans.h"
#include "records/Bridging/SviMappingState.h"

#include <map>

namespace Vornctl {

namespace {

using Bridging::VlanConfig;
using Bridging::VlanId;
using Bridging::VlanPortDirection;

// What there is to show: primaries with their secondaries, and VLANs whose role makes no pair.
struct Pairs {
   std::map<VlanId, std::vector<VlanId>> primaries;
   std::vector<VlanId> unpaired;
};

Pairs pairsOf(Bridging::Config const& config) {
   Pairs pairs;
   for (auto const& [vlanId, vlan] : sortedMembers(config.vlanConfig())) {
      if (!hasPrivateRole(*vlan))
         continue;
      if (auto const primary = primaryOf(config, *vlan); primary != 0)
         pairs.primaries[VlanId(primary)].push_back(vlanId);
      else
         pairs.unpaired.push_back(vlanId);
   }
   return pairs;
}

// The one VLAN, with what it is paired with.
Pairs pairsOf(Bridging::Config const& config, VlanId only) {
   auto const vlan = config.vlanConfig(only);
   if (!vlan)
      throw Absent("VLAN " + std::to_string(only.value()) + ": there is no such VLAN");
   Pairs pairs;
   if (!hasPrivateRole(*vlan)) {
      auto secondaries = secondariesOf(config, only);
      if (secondaries.empty())
         throw Absent("VLAN " + std::to_string(only.value()) + ": it is no private VLAN");
      pairs.primaries[only] = std::move(secondaries);
   } else if (auto const primary = primaryOf(config, *vlan); primary != 0) {
      pairs.primaries[VlanId(primary)] = {only};
   } else {
      pairs.unpaired = {only};
   }
   return pairs;
}

// "Et1", and with "<" or ">" where it receives or sends only.
std::vector<std::string> memberTexts(VlanConfig const& vlan) {
   std::vector<std::string> ports;
   for (auto const& [port, member] : sortedMembers(vlan.intf()))
      if (port.kind() != Sulvi::IntfKind::cpu)
         ports.push_back(port.shortName().str() + (member.direction == VlanPortDirection::rxOnly   ? "<"
                                                   : member.direction == VlanPortDirection::txOnly ? ">"
                                                                                                   : ""));
   return ports;
}

// "all", "101, 103", "none": the secondaries that the primary's VLAN interface serves.
std::string servedText(Bridging::Config const& config, VlanId primary) {
   auto const mapping = config.sviMapping(primary);
   if (!mapping)
      return "all secondaries, as there is no mapping";
   if (mapping->defaultSviMapping())
      return "all secondaries, by default";
   std::vector<std::string> served;
   for (auto const& [vlanId, is] : sortedMembers(mapping->secondaryVlan()))
      if (is)
         served.push_back(std::to_string(vlanId.value()));
   return served.empty() ? "no secondary" : "VLAN " + joined(served);
}

// --- Text.

class PairsTable {
  public:
   explicit PairsTable(Bridging::Config const& config) : config_(config) {}
   void add(VlanId vlanId, std::string const& primary) {
      auto const vlan = config_.vlanConfig(vlanId);
      table_.add({primary, std::to_string(vlanId.value()), privateTypeText(*vlan),
                  statusText(vlan->adminState()), std::to_string(filteringDatabase(config_, vlanId)),
                  hasProcessor(*vlan) ? "yes" : "-"},
                 memberTexts(*vlan));
   }
   std::string text(Format const& format) const { return table_.text(format.width); }

  private:
   Bridging::Config const& config_;
   Table table_{{{"Primary"}, {"VLAN"}, {"Type"}, {"Status"}, {"FDB"}, {"Cpu"}, {"Ports"}}};
};

std::string pairsText(Bridging::Config const& config, Pairs const& pairs, Format const& format) {
   if (pairs.primaries.empty() && pairs.unpaired.empty())
      return "no private VLANs\n";
   PairsTable table(config);
   std::string served, problems;
   for (auto const& [primary, secondaries] : pairs.primaries) {
      std::string const number = std::to_string(primary.value());
      table.add(primary, number);
      for (VlanId const secondary : secondaries)
         table.add(secondary, number);
      served += paragraph("The VLAN interface of " + number + " serves " + servedText(config, primary) + ".",
                          0, format.width);
   }
   for (VlanId const vlanId : pairs.unpaired) {
      auto const vlan = config.vlanConfig(vlanId);
      table.add(vlanId, "-");
      problems += paragraph("VLAN " + std::to_string(vlanId.value()) +
                                " makes no pair: " + Kem::printable(pairProblem(config, *vlan)) + ".",
                            0, format.width);
   }
   std::string text = table.text(format) + "\nPorts marked < receive only, > send only.\n";
   return text + (served.empty() ? "" : '\n' + served) + (problems.empty() ? "" : '\n' + problems);
}

// --- JSON.

Json memberJson(VlanConfig const& vlan) {
   Json ports = Json::object();
   for (auto const& [port, member] : sortedMembers(vlan.intf()))
      ports[port.stringValue().str()] = {{"tagged", member.tagged},
                                         {"direction", directionName(member.direction)}};
   return ports;
}

Json privateVlanJson(Bridging::Config const& config, VlanId vlanId) {
   auto const vlan = config.vlanConfig(vlanId);
   return {{"type", privateTypeText(*vlan)},
           {"status", statusText(vlan->adminState())},
           {"filteringDatabase", filteringDatabase(config, vlanId)},
           {"hasCpu", hasProcessor(*vlan)},
           {"ports", memberJson(*vlan)}};
}

Json mappingJson(Bridging::Config const& config, VlanId primary) {
   auto const mapping = config.sviMapping(primary);
   if (!mapping)
      return nullptr;
   Json served = Json::array();
   for (auto const& [vlanId, is] : sortedMembers(mapping->secondaryVlan()))
      if (is)
         served.push_back(vlanId.value());
   return {{"default", mapping->defaultSviMapping()}, {"secondaryVlans", std::move(served)}};
}

Json pairsJson(Bridging::Config const& config, Pairs const& pairs) {
   Json primaries = Json::object(), unpaired = Json::object();
   for (auto const& [primary, secondaries] : pairs.primaries) {
      Json json = privateVlanJson(config, primary);
      json["sviMapping"] = mappingJson(config, primary);
      Json& members = json["secondaryVlans"] = Json::object();
      for (VlanId const secondary : secondaries) {
         Json& member = members[std::to_string(secondary.value())] = privateVlanJson(config, secondary);
         member["isServed"] = Vorn::isServed(config, primary, secondary);
      }
      primaries[std::to_string(primary.value())] = std::move(json);
   }
   for (VlanId const vlanId : pairs.unpaired) {
      auto const vlan = config.vlanConfig(vlanId);
      Json& json = unpaired[std::to_string(vlanId.value())] = privateVlanJson(config, vlanId);
      json["primaryVlan"] = vlan->vlanTypeAndPrimaryVlan().primaryVlan.value();
      json["problem"] = pairProblem(config, *vlan);
   }
   return {{"primaryVlans", std::move(primaries)}, {"unpairedVlans", std::move(unpaired)}};
}

} // namespace

std::string showPrivateVlan(SwitchState const& state, std::optional<VlanId> vlanId, Format const& format) {
   auto const& config = *state.config;
   Pairs const pairs = vlanId ? pairsOf(config, *vlanId) : pairsOf(config);
   if (format.wantsJson)
      return jsonText(pairsJson(config, pairs));
   return pairsText(config, pairs, format);
}

} // namespace Vornctl
