// Dynamic sources: the VLANs that they claim, and what they add to trunks.

#include "PublishersRecords.h"

#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/TrunkGroup.h"
#include "records/Bridging/Input/VlanIdSet.h"

#include <utility>

namespace Model {

namespace {

// One bears the name of an input, and one is the protocol whose VLANs no list allows.
constexpr char const* sourceNames[] = {"lab", "mvrp", "overlay", "mvrp"};
constexpr char const* claims[] = {"",    "3",      "1-5",    "4,7,8", "6-9",   "2,x,21", "20-23",
                                  "1-9", "22,5-6", "4094,9", "7",     "19-24", "9-5",    "0-3,8"};
constexpr unsigned ranks[] = {0, 0, 10, 10, 20};
constexpr char const* groups[] = {"a", "b"};

} // namespace

Kem::Ptr<Bridging::Input::VlanIdSet> Publishers::sourceRecord(std::string const& name) const {
   return sourceDir_->entity<Bridging::Input::VlanIdSet>(Kem::Name(name));
}
Kem::Ptr<Bridging::Input::AllowedVlans> Publishers::widenerRecord(std::string const& name) const {
   return widenerDir_->entity<Bridging::Input::AllowedVlans>(Kem::Name(name));
}

// --- Sources of VLANs.

void Publishers::sourceComes(std::string const& name, Source const& content) {
   auto const made = Bridging::Input::VlanIdSet::make();
   made->nameIs(Kem::Name(name));
   made->vlansIs(content.vlans);
   made->configPriorityIs(content.priority);
   for (auto const& group : content.trunkGroups)
      made->trunkGroupIs(group, true);
   sourceDir_->entityPtrIs(made);
   unborn_.insert("source " + name);
   auto const source = std::make_shared<Source>();
   intent_.sources[name] = source;
   tell_({.what = Change::source, .name = name});
   *source = content;
   tell_({.what = Change::sourceVlans, .name = name});
   for (auto const& group : content.trunkGroups)
      tell_({.what = Change::sourceGroup, .name = name, .key = group});
}

void Publishers::sourceGoes(std::string const& name) {
   sourceDir_->entityPtrDel(Kem::Name(name));
   intent_.sources.erase(name);
   tell_({.what = Change::source, .name = name});
}

std::string Publishers::changeSource(Dice dice) {
   std::string const name = dice.oneOf(sourceNames);
   std::string const place = "source " + name + " ";
   if (unborn_.contains("source " + name))
      return "nothing";
   auto const found = intent_.sources.find(name);
   std::string const list = dice.oneOf(claims);
   if (found == intent_.sources.end()) {
      Source source;
      if (dice.chance())
         source = {.vlans = list, .priority = dice.oneOf(ranks)};
      sourceComes(name, source);
      return place + "comes with '" + source.vlans + "'";
   }
   auto& is = *found->second;
   auto const record = sourceRecord(name);
   switch (dice.below(10)) {
   case 0:
      sourceGoes(name);
      return place + "goes";
   case 1: {
      Source again = is;
      if (dice.chance())
         again.vlans = list;
      sourceGoes(name);
      sourceComes(name, again);
      return place + "goes and comes back with '" + again.vlans + "'";
   }
   case 2:
   case 3: {
      unsigned const rank = dice.oneOf(ranks);
      if (std::exchange(is.priority, rank) != rank) {
         record->configPriorityIs(rank);
         tell_({.what = Change::sourceVlans, .name = name});
      }
      return place + "rank " + std::to_string(rank);
   }
   case 4: {
      std::string const group = dice.oneOf(groups);
      bool const leaves = is.trunkGroups.erase(group) != 0;
      if (leaves) {
         record->trunkGroupDel(group);
      } else {
         is.trunkGroups.insert(group);
         record->trunkGroupIs(group, true);
      }
      tell_({.what = Change::sourceGroup, .name = name, .key = group});
      return place + (leaves ? "without" : "with") + " trunk group " + group;
   }
   default:
      if (std::exchange(is.vlans, list) != list) {
         record->vlansIs(list);
         tell_({.what = Change::sourceVlans, .name = name});
      }
      return place + "asks for '" + list + "'";
   }
}

// --- What they add to trunks.

namespace {

void fill(Bridging::Input::AllowedVlans& record, Widener const& content) {
   for (auto const& [intf, list] : content.lists)
      record.vlansIs(Sulvi::IntfId(intf), list);
   for (auto const& [name, members] : content.groups) {
      auto const group = record.trunkGroupIs(name);
      for (auto const& intf : *members)
         group->intfListIs(intf, true);
   }
}

} // namespace

void Publishers::widenerComes(std::string const& name, Widener const& content) {
   auto const made = Bridging::Input::AllowedVlans::make();
   made->nameIs(Kem::Name(name));
   fill(*made, content);
   widenerDir_->entityPtrIs(made);
   unborn_.insert("widener " + name);
   auto const widener = std::make_shared<Widener>();
   intent_.wideners[name] = widener;
   tell_({.what = Change::widener, .name = name});
   *widener = content;
   for (auto& [group, members] : widener->groups)
      members = std::make_shared<std::set<std::string>>(*members);
   for (auto const& [intf, list] : content.lists)
      tell_({.what = Change::widenerList, .name = name, .key = intf});
   for (auto const& [group, members] : content.groups)
      tell_({.what = Change::widenerGroup, .name = name, .key = group});
}

void Publishers::widenerGoes(std::string const& name) {
   widenerDir_->entityPtrDel(Kem::Name(name));
   intent_.wideners.erase(name);
   tell_({.what = Change::widener, .name = name});
}

std::string Publishers::changeWidener(Dice dice) {
   std::string const name = dice.oneOf(sourceNames);
   std::string const place = "trunks of " + name + " ";
   if (unborn_.contains("widener " + name))
      return "nothing";
   auto const found = intent_.wideners.find(name);
   if (found == intent_.wideners.end()) {
      Widener widener;
      if (dice.chance())
         widener.lists[dice.oneOf(ports)] = dice.oneOf(claims);
      if (dice.chance())
         widener.groups[dice.oneOf(groups)] =
             std::make_shared<std::set<std::string>>(std::set<std::string>{dice.oneOf(ports)});
      widenerComes(name, widener);
      return place + "come";
   }
   auto& is = *found->second;
   auto const record = widenerRecord(name);
   std::string const intf = dice.oneOf(ports);
   switch (dice.below(12)) {
   case 0:
      widenerGoes(name);
      return place + "go";
   case 1: {
      Widener again = is;
      if (dice.chance())
         again.lists.clear();
      if (dice.chance())
         again.groups.clear();
      widenerGoes(name);
      widenerComes(name, again);
      return place + "go and come back";
   }
   case 2:
   case 3:
   case 4:
   case 5: {
      if (is.lists.erase(intf)) {
         record->vlansDel(intf);
         tell_({.what = Change::widenerList, .name = name, .key = intf});
         return place + "nothing more on " + intf;
      }
      std::string const list = dice.oneOf(claims);
      is.lists[intf] = list;
      record->vlansIs(intf, list);
      tell_({.what = Change::widenerList, .name = name, .key = intf});
      return place + "'" + list + "' on " + intf;
   }
   default: {
      std::string const group = dice.oneOf(groups);
      auto const there = is.groups.find(group);
      if (there != is.groups.end() && dice.chance(3)) {
         auto const members = there->second;
         record->trunkGroupDel(group);
         is.groups.erase(there);
         tell_({.what = Change::widenerGroup, .name = name, .key = group});
         if (dice.chance())
            return place + "trunk group " + group + " gone";
         is.groups[group] = std::make_shared<std::set<std::string>>(std::set<std::string>{intf});
         record->trunkGroupIs(group)->intfListIs(intf, true);
         tell_({.what = Change::widenerGroup, .name = name, .key = group});
         return place + "trunk group " + group + " made again, with " + intf;
      }
      if (there == is.groups.end()) {
         record->trunkGroupIs(group);
         is.groups[group] = std::make_shared<std::set<std::string>>();
         tell_({.what = Change::widenerGroup, .name = name, .key = group});
      }
      auto& members = *is.groups.at(group);
      bool const leaves = members.erase(intf) != 0;
      if (leaves) {
         record->trunkGroup(group)->intfListDel(intf);
      } else {
         members.insert(intf);
         record->trunkGroup(group)->intfListIs(intf, true);
      }
      tell_({.what = Change::widenerGroupMember, .name = name, .key = group, .member = intf});
      return place + "trunk group " + group + (leaves ? " without " : " with ") + intf;
   }
   }
}

} // namespace Model
