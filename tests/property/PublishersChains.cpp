// What the publishers do in a chain: each step aims at what the ones before it have left, where changes at
// random would hardly ever meet.

#include "PublishersRecords.h"

#include "records/Interface/EthIntfConfig.h"

#include <utility>

namespace Model {

std::string Publishers::makePortPlain(Dice dice) {
   std::string const intf = dice.oneOf(ports);
   for (auto const& [name, input] : intent_.inputs)
      if (input->ports.contains(intf) && !unborn_.contains(name))
         portDel(name, intf);
   intfComes(intf, routedModel);
   changeModel(intf, routedModel);
   if (std::exchange(intent_.intfConfigs.at(intf)->isShut, false)) {
      intfConfigs_->intfConfig(intf)->enabledStateLocalIs(Interface::EnabledState::enabledStateEnabled);
      tell_({.what = Change::intfConfigShut, .key = intf});
   }
   return intf + " is up, and nobody asks for anything";
}

std::string Publishers::changeOtherModels(Dice dice, unsigned model) {
   std::string const intf = dice.oneOf(ports);
   for (auto const* const other : ports)
      if (other != intf)
         changeModel(other, model);
   return "all but " + intf + " forwarding model " + std::to_string(model);
}

std::shared_ptr<Input> Publishers::bestVlanInput() const {
   std::shared_ptr<Input> best;
   for (auto const& [name, input] : intent_.inputs)
      if (input->vlanPriority > (best ? best->vlanPriority : 0))
         best = input;
   return best && !unborn_.contains(best->name) ? best : nullptr;
}

std::shared_ptr<Input> Publishers::bestPortInput() const {
   std::shared_ptr<Input> best;
   for (auto const& [name, input] : intent_.inputs)
      if (input->portPriority > (best ? best->portPriority : 0))
         best = input;
   return best && !unborn_.contains(best->name) ? best : nullptr;
}

std::string Publishers::takeNumbers(bool isTaken) {
   auto const best = bestVlanInput();
   if (!best)
      return "nothing";
   auto const& settings = *intent_.settings;
   for (unsigned number = settings.rangeMin; number <= settings.rangeMax; ++number)
      if (best->vlans.contains(number) != isTaken)
         isTaken ? vlanIs(best->name, number, {}) : vlanDel(best->name, number);
   return best->name + (isTaken ? " takes" : " frees") + " the numbers of internal VLANs";
}

std::string Publishers::changeBestVlan(Dice dice) {
   auto const best = bestVlanInput();
   if (!best || best->vlans.empty())
      return "nothing";
   auto const& [number, vlan] =
       *std::next(best->vlans.begin(), dice.below(static_cast<unsigned>(best->vlans.size())));
   vlan->name = vlan->name == "one" ? "other" : "one";
   record(best->name)->vlanConfig(Bridging::VlanId(number))->configuredNameIs(vlan->name);
   tell_({.what = Change::vlanAttribute,
          .name = best->name,
          .number = number,
          .attribute = static_cast<int>(VlanAttr::name)});
   return best->name + " VLAN " + std::to_string(number) + " is called " + vlan->name;
}

// By a trunk group that no VLAN has.
std::string Publishers::haveTrunksLook() {
   std::string const group = "nobody's";
   for (auto const& [name, input] : intent_.inputs) {
      if (unborn_.contains(name))
         continue;
      for (auto const& [intf, port] : input->ports) {
         if (port->mode != trunk)
            continue;
         auto const written = record(name)->switchIntfConfig(intf);
         if (port->trunkGroups.erase(group)) {
            written->trunkGroupDel(group);
         } else {
            port->trunkGroups.insert(group);
            written->trunkGroupIs(group, true);
         }
         tell_({.what = Change::portAttribute,
                .name = name,
                .key = intf,
                .attribute = static_cast<int>(PortAttr::trunkGroups)});
      }
   }
   return "all trunk ports change a group that no VLAN has";
}

std::string Publishers::replaceInput(Dice dice) {
   for (auto const& [name, input] : intent_.inputs) {
      if (name == "cli" || unborn_.contains(name) || input->ports.empty())
         continue;
      auto const content = std::make_shared<Input>(Input{.name = name, .detail = "again"});
      if (dice.chance()) {
         content->vlanPriority = input->vlanPriority;
         content->portPriority = input->portPriority;
         for (auto const& [number, vlan] : input->vlans)
            if (dice.chance())
               content->vlans[number] = std::make_shared<Vlan>(*vlan);
         for (auto const& [intf, port] : input->ports)
            if (dice.chance())
               content->ports[intf] = std::make_shared<Port>(*port);
      }
      std::string const replaced = name;
      goes(replaced);
      comes(content);
      return replaced + " goes and comes back with some of what it had";
   }
   return "nothing";
}

} // namespace Model
