// Static hosts and groups that publishers ask for, with the mistakes that the database can't refuse.

#include "PublishersRecords.h"

#include "records/Bridging/EthGroup.h"

namespace Model {

namespace {

constexpr char const* unicast[] = {"02:00:00:00:00:01", "02:00:00:00:00:02", "02:00:00:00:00:03"};
constexpr char const* multicast[] = {"03:00:00:00:00:01", "03:00:00:00:00:02"};
constexpr unsigned fdbPriorities[] = {0, 0, 5, 5, 7, 4294967295u};

} // namespace

void fill(Bridging::Input::FdbConfig& record, Fdb const& fdb) {
   for (auto const& [address, host] : fdb.hosts) {
      Sulvi::EthAddr const addr{std::string_view(address)};
      record.configuredHostIs(addr, {.addr = addr,
                                     .intf = Sulvi::IntfId(host.intf),
                                     .entryType = static_cast<Bridging::EntryType>(host.type)});
   }
   for (auto const& [address, members] : fdb.groups) {
      auto const group = record.ethGroupIs(Sulvi::EthAddr(std::string_view(address)));
      for (auto const& intf : *members)
         group->intfIs(intf, true);
   }
}

std::shared_ptr<Fdb> copyOf(Fdb const& fdb) {
   auto const copy = std::make_shared<Fdb>(fdb);
   for (auto& [address, members] : copy->groups)
      members = std::make_shared<std::set<std::string>>(*members);
   return copy;
}

std::string Publishers::changeHost(Dice dice) {
   auto const name = someInput(dice);
   auto& input = *intent_.inputs.at(name);
   auto const record = this->record(name);
   if (dice.chance(12)) {
      input.fdbPriority = dice.oneOf(fdbPriorities);
      record->fdbConfigPriorityIs(input.fdbPriority);
      return name + " host priority " + std::to_string(input.fdbPriority); // nobody follows it
   }
   unsigned const number = 1 + dice.below(4);
   Bridging::VlanId const id(number);
   std::string const place = name + " hosts of VLAN " + std::to_string(number) + " ";
   auto const tell = [&](Change::What what, std::string const& key = {}, std::string const& member = {}) {
      tell_({.what = what, .name = name, .key = key, .member = member, .number = number});
   };
   auto const found = input.fdbs.find(number);
   if (found == input.fdbs.end()) {
      auto const fdb = std::make_shared<Fdb>();
      if (dice.chance())
         fdb->hosts[dice.oneOf(unicast)] = {.intf = dice.oneOf(ports)};
      fill(*record->fdbConfigIs(id), *fdb);
      input.fdbs[number] = fdb;
      tell(Change::inputFdb);
      return place + "there";
   }
   auto& fdb = *found->second;
   auto const out = record->fdbConfig(id);
   if (dice.chance(12)) {
      auto const again = dice.chance() ? copyOf(fdb) : nullptr;
      record->fdbConfigDel(id);
      input.fdbs.erase(found);
      tell(Change::inputFdb);
      if (again) {
         fill(*record->fdbConfigIs(id), *again);
         input.fdbs[number] = again;
         tell(Change::inputFdb);
      }
      return place + (again ? "deleted and made again" : "gone");
   }
   if (dice.chance()) {
      std::string const address = dice.chance(4) ? dice.oneOf(multicast) : dice.oneOf(unicast);
      if (fdb.groups.contains(address))
         return "nothing"; // an address is one of the two in a record
      Sulvi::EthAddr const addr{std::string_view(address)};
      if (fdb.hosts.contains(address) && dice.chance()) {
         fdb.hosts.erase(address);
         out->configuredHostDel(addr);
         tell(Change::inputHost, address);
         return place + address + " gone";
      }
      Host const host{.intf = dice.oneOf(ports), .type = dice.below(2)};
      fdb.hosts[address] = host;
      out->configuredHostIs(addr, {.addr = addr,
                                   .intf = Sulvi::IntfId(host.intf),
                                   .entryType = static_cast<Bridging::EntryType>(host.type)});
      tell(Change::inputHost, address);
      return place + address + " on " + host.intf;
   }
   std::string const address = dice.oneOf(multicast);
   if (fdb.hosts.contains(address))
      return "nothing";
   Sulvi::EthAddr const addr{std::string_view(address)};
   auto const group = fdb.groups.find(address);
   if (group != fdb.groups.end() && dice.chance(4)) {
      auto const members = group->second;
      out->ethGroupDel(addr);
      fdb.groups.erase(group);
      tell(Change::inputGroup, address);
      if (!dice.chance())
         return place + "group " + address + " gone";
      Fdb again;
      again.groups[address] = std::make_shared<std::set<std::string>>(*members);
      fill(*out, again);
      fdb.groups.insert(*again.groups.begin());
      tell(Change::inputGroup, address);
      return place + "group " + address + " deleted and made again";
   }
   if (group == fdb.groups.end()) {
      out->ethGroupIs(addr);
      fdb.groups[address] = std::make_shared<std::set<std::string>>();
      tell(Change::inputGroup, address);
   }
   std::string const intf = dice.oneOf(ports);
   auto& members = *fdb.groups.at(address);
   bool const leaves = members.erase(intf) != 0;
   if (leaves) {
      out->ethGroup(addr)->intfDel(intf);
   } else {
      out->ethGroup(addr)->intfIs(intf, true);
      members.insert(intf);
   }
   tell(Change::groupMember, address, intf);
   return place + "group " + address + (leaves ? " without " : " with ") + intf;
}

} // namespace Model
