// What the publishers do with the ports of an input.

#include "PublishersRecords.h"

namespace Model {

namespace {
constexpr char const* lists[] = {"1-4094",      "",     "none",    "1-5,9", " 3 , 20-22,7", "9-5", "5-4095,6",
                                 "1,1,2-4,3-6", "4094", "2-3,x,8", "0-7",   "20-30,1-3",    "8",   "-3,5--6"};
} // namespace

void Publishers::portIs(std::string const& input, std::string const& intf, Port const& port) {
   auto const mode = static_cast<Bridging::Input::SwitchportMode>(port.mode);
   fill(*record(input)->switchIntfConfigIs(intf, mode), port);
   intent_.inputs.at(input)->ports[intf] = std::make_shared<Port>(port);
   tell_({.what = Change::inputPort, .name = input, .key = intf});
}

void Publishers::portDel(std::string const& input, std::string const& intf) {
   record(input)->switchIntfConfigDel(intf);
   intent_.inputs.at(input)->ports.erase(intf);
   tell_({.what = Change::inputPort, .name = input, .key = intf});
}

void Publishers::portChanged(std::string const& input, std::string const& intf, PortAttr attribute,
                             std::string const& member) {
   tell_({.what = Change::portAttribute,
          .name = input,
          .key = intf,
          .member = member,
          .attribute = static_cast<int>(attribute)});
}

std::string Publishers::changePort(Dice dice) {
   auto const name = someInput(dice);
   std::string const intf = dice.oneOf(ports);
   auto& records = intent_.inputs.at(name)->ports;
   std::string const place = name + " " + intf + " ";
   if (!records.contains(intf)) {
      Port const port{.enabled = !dice.chance(4), .mode = static_cast<int>(dice.below(6))};
      portIs(name, intf, port);
      return place + "made, mode " + std::to_string(port.mode) + (port.enabled ? "" : ", disabled");
   }
   switch (dice.below(20)) {
   case 0:
      portDel(name, intf);
      return place + "deleted";
   case 1: {
      Port const copy = *records.at(intf);
      portDel(name, intf);
      portIs(name, intf, copy);
      return place + "deleted and made again";
   }
   default:
      return changePortAttribute(dice, name, intf);
   }
}

std::string Publishers::changePortAttribute(Dice& dice, std::string const& input, std::string const& intf) {
   auto const record = this->record(input)->switchIntfConfig(intf);
   auto& is = *intent_.inputs.at(input)->ports.at(intf);
   std::string const place = input + " " + intf + " ";
   std::string const list = dice.oneOf(lists);
   auto const change = [&](PortAttr attribute, auto& value, auto const& to, auto&& write, auto const& text,
                           std::string const& member = {}) {
      if (value != to) {
         value = to;
         write();
         portChanged(input, intf, attribute, member);
      }
      return place + text;
   };
   switch (dice.below(18)) {
   case 0:
   case 1:
      return change(
          PortAttr::enabled, is.enabled, !is.enabled, [&] { record->enabledIs(is.enabled); },
          is.enabled ? "disabled" : "enabled");
   case 2:
   case 3: {
      int const mode = static_cast<int>(dice.below(6));
      return change(
          PortAttr::mode, is.mode, mode,
          [&] { record->switchportModeIs(static_cast<Bridging::Input::SwitchportMode>(mode)); },
          "mode " + std::to_string(mode));
   }
   case 4:
   case 5: {
      unsigned const vlan = someVlan(dice);
      return change(
          PortAttr::accessVlan, is.accessVlan, vlan, [&] { record->accessVlanIs(Bridging::VlanId(vlan)); },
          "access VLAN " + std::to_string(vlan));
   }
   case 6: {
      unsigned const vlan = dice.chance(6) ? 0 : someVlan(dice);
      return change(
          PortAttr::trunkNative, is.trunkNative, vlan, [&] { record->trunkNativeVlanIs(vlan); },
          "trunk native VLAN " + std::to_string(vlan));
   }
   case 7: {
      unsigned const vlan = dice.chance(6) ? 0 : someVlan(dice);
      return change(
          PortAttr::tapNative, is.tapNative, vlan, [&] { record->tapNativeVlanIs(vlan); },
          "tap native VLAN " + std::to_string(vlan));
   }
   case 8:
      return change(
          PortAttr::trunkAllowed, is.trunkAllowed, list, [&] { record->trunkAllowedVlansIs(list); },
          "trunk allowed '" + list + "'");
   case 9:
      return change(
          PortAttr::tapAllowed, is.tapAllowed, list, [&] { record->tapAllowedVlansIs(list); },
          "tap allowed '" + list + "'");
   case 10:
      return change(
          PortAttr::toolAllowed, is.toolAllowed, list, [&] { record->toolAllowedVlansIs(list); },
          "tool allowed '" + list + "'");
   case 11:
      return change(
          PortAttr::asym, is.asym, list, [&] { record->asymVlansIs(list); }, "asymmetric '" + list + "'");
   case 12:
   case 13: {
      std::string const group = dice.chance() ? "a" : "b";
      auto groups = is.trunkGroups;
      bool const leaves = groups.erase(group) != 0;
      if (!leaves)
         groups.insert(group);
      return change(
          PortAttr::trunkGroups, is.trunkGroups, groups,
          [&] { leaves ? record->trunkGroupDel(group) : record->trunkGroupIs(group, true); },
          (leaves ? "leaves trunk group " : "joins trunk group ") + group);
   }
   case 14: {
      bool const learns = dice.chance(), floods = dice.chance();
      change(
          PortAttr::learns, is.learns, learns, [&] { record->macLearningEnabledIs(learns); }, "");
      return change(
          PortAttr::floods, is.floods, floods, [&] { record->floodingEnabledIs(floods); },
          "learning and flooding");
   }
   case 15: {
      unsigned const tpid = dice.chance() ? 0x88a8 : 0x8100;
      return change(
          PortAttr::tpid, is.tpid, tpid, [&] { record->vlanTpidIs(tpid); }, "tpid");
   }
   case 16: {
      bool const value = dice.chance();
      if (dice.chance())
         return change(
             PortAttr::mapsOnTrunk, is.mapsOnTrunk, value, [&] { record->trunkPrivateVlanMappingIs(value); },
             "maps private VLANs on the trunk");
      return change(
          PortAttr::tagsIdentity, is.tagsIdentity, value, [&] { record->toolIdentityTaggingIs(value); },
          "identity tagging");
   }
   default: {
      if (dice.chance()) {
         bool const value = dice.chance();
         return change(
             PortAttr::mapsAllSecondaries, is.mapsAllSecondaries, value,
             [&] { record->defaultPrivateVlanMappingIs(value); }, "maps all secondary VLANs or none");
      }
      unsigned const vlan = someVlan(dice);
      auto mapped = is.mappedSecondaries;
      bool const goes = mapped.erase(vlan) != 0;
      if (!goes)
         mapped.insert(vlan);
      return change(
          PortAttr::mappedSecondaries, is.mappedSecondaries, mapped,
          [&] {
             goes ? record->privateVlanMappingDel(Bridging::VlanId(vlan))
                  : record->privateVlanMappingIs(Bridging::VlanId(vlan), true);
          },
          "maps secondary VLAN " + std::to_string(vlan) + (goes ? " no more" : ""), std::to_string(vlan));
   }
   }
}

} // namespace Model
