#include "Show.h"

#include "Failures.h"
#include "FdbChoice.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "records/Bridging/EthGroup.h"
#include "records/Bridging/FdbConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <map>
#include <set>

namespace Vornctl {

namespace {

// What is resolved, by VLAN and address.
using StaticMacs = std::map<Bridging::VlanId, std::map<Sulvi::EthAddr, FdbChoice>>;

StaticMacs staticMacsOf(SwitchState const& state, std::optional<Bridging::VlanId> only) {
   StaticMacs macs;
   for (auto const& [fid, fdb] : state.config->fdbConfig()) {
      if (!Bridging::VlanId::isLegal(fid.value()) || (only && fid.value() != only->value()))
         continue;
      Bridging::VlanId const vlanId(fid.value());
      std::set<Sulvi::EthAddr> addresses;
      fdb->configuredHost().forEach([&](Sulvi::EthAddr addr, auto const&) { addresses.insert(addr); });
      fdb->ethGroup().forEach([&](Sulvi::EthAddr addr, auto const&) { addresses.insert(addr); });
      for (Sulvi::EthAddr const addr : addresses)
         if (FdbChoice choice = fdbChoiceOf(state, vlanId, addr); choice.resolved)
            macs[vlanId].emplace(addr, std::move(choice));
   }
   return macs;
}

std::string staticMacText(StaticMacs const& macs, Format const& format) {
   Table table({{"VLAN"}, {"Address"}, {"Kind"}, {"Input"}, {"Ports"}});
   for (auto const& [vlanId, ofVlan] : macs)
      for (auto const& [addr, choice] : ofVlan) {
         std::string const from = choice.resolvedFrom();
         auto const& entry = *choice.resolved;
         bool const isDropped = !entry.isGroup && entry.entryType == Bridging::EntryType::dropMac;
         table.add({std::to_string(vlanId.value()), addr.stringValue().str(), entryKind(entry),
                    from.empty() ? "-" : from},
                   isDropped || entry.ports.empty() ? std::vector<std::string>{"-"} : portList(entry.ports));
      }
   return table.empty() ? "No static hosts or groups.\n" : table.text(format.width);
}

Json staticMacJson(StaticMacs const& macs) {
   Json vlans = Json::object();
   for (auto const& [vlanId, ofVlan] : macs) {
      Json hosts = Json::object(), groups = Json::object();
      for (auto const& [addr, choice] : ofVlan) {
         std::string const from = choice.resolvedFrom();
         auto const& entry = *choice.resolved;
         Json const input = from.empty() ? Json() : Json(from);
         if (!entry.isGroup) {
            hosts[addr.stringValue().str()] = {{"port", entry.ports.front().stringValue().str()},
                                               {"type", entryTypeName(entry.entryType)},
                                               {"input", input}};
            continue;
         }
         Json ports = Json::array();
         for (Sulvi::IntfId const port : entry.ports)
            ports.push_back(port.stringValue().str());
         groups[addr.stringValue().str()] = {{"ports", std::move(ports)}, {"input", input}};
      }
      vlans[std::to_string(vlanId.value())] = {{"hosts", std::move(hosts)}, {"groups", std::move(groups)}};
   }
   return {{"vlans", std::move(vlans)}};
}

} // namespace

std::string showMacStatic(SwitchState const& state, std::optional<Bridging::VlanId> vlanId,
                          Format const& format) {
   if (vlanId && !state.config->vlanConfig().find(*vlanId))
      throw Absent("VLAN " + std::to_string(vlanId->value()) + ": there is no such VLAN");
   auto const macs = staticMacsOf(state, vlanId);
   return format.wantsJson ? jsonText(staticMacJson(macs)) : staticMacText(macs, format);
}

} // namespace Vornctl
