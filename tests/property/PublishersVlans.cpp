// What the publishers do with the VLANs of an input.

#include "PublishersRecords.h"

#include <utility>

namespace Model {

void Publishers::vlanIs(std::string const& input, unsigned number, Vlan const& vlan) {
   fill(*record(input)->vlanConfigIs(Bridging::VlanId(number)), vlan);
   intent_.inputs.at(input)->vlans[number] = std::make_shared<Vlan>(vlan);
   tell_({.what = Change::inputVlan, .name = input, .number = number});
}

void Publishers::vlanDel(std::string const& input, unsigned number) {
   record(input)->vlanConfigDel(Bridging::VlanId(number));
   intent_.inputs.at(input)->vlans.erase(number);
   tell_({.what = Change::inputVlan, .name = input, .number = number});
}

std::string Publishers::changeVlan(Dice dice) {
   auto const name = someInput(dice);
   auto& vlans = intent_.inputs.at(name)->vlans;
   unsigned const number = someVlan(dice);
   std::string const place = name + " VLAN " + std::to_string(number);
   auto const tellOf = [&](VlanAttr attribute, std::string const& group = {}) {
      tell_({.what = Change::vlanAttribute,
             .name = name,
             .key = group,
             .number = number,
             .attribute = static_cast<int>(attribute)});
   };
   if (!vlans.contains(number)) {
      vlanIs(name, number, {.name = dice.chance() ? "new" : "", .isSuspended = dice.chance(8)});
      return place + " made";
   }
   auto const vlan = record(name)->vlanConfig(Bridging::VlanId(number));
   auto& is = *vlans.at(number);
   switch (dice.below(8)) {
   case 0:
      vlanDel(name, number);
      return place + " deleted";
   case 1: {
      Vlan const copy = is;
      vlanDel(name, number);
      vlanIs(name, number, copy);
      return place + " deleted and made again";
   }
   case 2: {
      auto const value = "name" + std::to_string(dice.below(3));
      if (std::exchange(is.name, value) != value) {
         vlan->configuredNameIs(value);
         tellOf(VlanAttr::name);
      }
      return place + " is called " + value;
   }
   case 3:
      is.isSuspended = !is.isSuspended;
      vlan->adminStateIs(stateOf(is.isSuspended));
      tellOf(VlanAttr::isSuspended);
      return place + (is.isSuspended ? " suspended" : " active");
   case 4: {
      Role const role = dice.chance() ? Role() : Role{.type = 1, .primary = 1 + dice.below(4)};
      roleIs(name, number, role);
      return place + " role " + std::to_string(role.type) + " of " + std::to_string(role.primary);
   }
   default: {
      std::string const group = dice.chance() ? "a" : "b";
      bool const leaves = is.trunkGroups.erase(group) != 0;
      if (leaves) {
         vlan->trunkGroupDel(group);
      } else {
         vlan->trunkGroupIs(group, true);
         is.trunkGroups.insert(group);
      }
      tellOf(VlanAttr::trunkGroups, group);
      return place + (leaves ? " leaves trunk group " : " joins trunk group ") + group;
   }
   }
}

} // namespace Model
