// What the publishers do with private VLANs: the roles of VLANs with all mistakes that the database can't
// refuse, the mappings of VLAN interfaces, and the translations of ports.

#include "PublishersRecords.h"

#include "records/Bridging/SviMappingState.h"

#include <utility>

namespace Model {

namespace {

// Of few VLANs, so that relations come about. A secondary that names no primary isn't among them: the agent
// ends by that.
Role someRole(Dice& dice, unsigned number) {
   switch (dice.below(12)) {
   case 0:
      return {};
   case 1:
      return {.type = 1, .primary = number};
   case 2:
      return {.type = 1, .primary = someVlan(dice)}; // missing, or a secondary itself
   case 3:
      return {.type = 0, .primary = 1 + dice.below(4)};
   case 4:
      return {.type = 2 + dice.below(2), .primary = dice.below(5)};
   default:
      return {.type = 1, .primary = 1 + dice.below(3)};
   }
}

} // namespace

// --- Roles.

void Publishers::roleIs(std::string const& input, unsigned number, Role const& role) {
   auto& vlans = intent_.inputs.at(input)->vlans;
   if (!vlans.contains(number))
      return vlanIs(input, number, {.role = role});
   if (std::exchange(vlans.at(number)->role, role) == role)
      return;
   record(input)->vlanConfig(Bridging::VlanId(number))->vlanTypeAndPrimaryVlanIs(roleOf(role));
   tell_({.what = Change::vlanAttribute,
          .name = input,
          .number = number,
          .attribute = static_cast<int>(VlanAttr::role)});
}

std::string Publishers::changeRole(Dice dice) {
   auto const best = bestVlanInput();
   auto const name = best && !dice.chance(6) ? best->name : someInput(dice);
   unsigned const number = 1 + dice.below(8);
   Role const role = someRole(dice, number);
   roleIs(name, number, role);
   return name + " VLAN " + std::to_string(number) + " role " + std::to_string(role.type) + " of " +
          std::to_string(role.primary);
}

// --- Mappings of VLAN interfaces.

std::string Publishers::changeSviMapping(Dice dice) {
   auto& mappings = intent_.settings->sviMappings;
   unsigned const number = 1 + dice.below(4);
   Bridging::VlanId const id(number);
   std::string const place = "mapping of primary VLAN " + std::to_string(number);
   auto const tell = [&](Change::What what, std::string const& key = {}) {
      tell_({.what = what, .key = key, .number = number});
   };
   auto const make = [&](SviMapping const& mapping) {
      auto const record = cli_->sviMappingIs(id);
      record->defaultSviMappingIs(mapping.servesAll);
      for (unsigned const secondary : mapping.served)
         record->secondaryVlanIs(Bridging::VlanId(secondary), true);
      mappings[number] = std::make_shared<SviMapping>(mapping);
      tell(Change::sviMapping);
   };
   auto const found = mappings.find(number);
   if (found == mappings.end()) {
      SviMapping mapping{.servesAll = dice.chance(4)};
      for (unsigned i = dice.below(3); i > 0; --i)
         mapping.served.insert(1 + dice.below(8));
      make(mapping);
      return place + " there";
   }
   SviMapping const before = *found->second;
   switch (dice.below(8)) {
   case 0:
   case 1:
      cli_->sviMappingDel(id);
      mappings.erase(found);
      tell(Change::sviMapping);
      return place + " gone";
   case 2: {
      cli_->sviMappingDel(id);
      mappings.erase(found);
      tell(Change::sviMapping);
      SviMapping again = before;
      if (dice.chance())
         again.served.erase(1 + dice.below(8));
      make(again);
      return place + " deleted and made again";
   }
   case 3:
   case 4:
      found->second->servesAll = !before.servesAll;
      cli_->sviMapping(id)->defaultSviMappingIs(!before.servesAll);
      tell(Change::sviServesAll);
      return place + (before.servesAll ? " serves some" : " serves all");
   default: {
      unsigned const secondary = 1 + dice.below(8);
      Bridging::VlanId const key(secondary);
      if (!found->second->served.erase(secondary)) {
         cli_->sviMapping(id)->secondaryVlanIs(key, true);
         found->second->served.insert(secondary);
      } else if (dice.chance()) {
         cli_->sviMapping(id)->secondaryVlanDel(key);
      } else {
         cli_->sviMapping(id)->secondaryVlanIs(key, false); // the same as none
      }
      tell(Change::sviServed, std::to_string(secondary));
      return place + (before.served.contains(secondary) ? " without " : " with ") + std::to_string(secondary);
   }
   }
}

// --- Translations.

void Publishers::translationIs(std::string const& input, std::string const& intf, bool isEgress,
                               Tags const& from, Tags const* to) {
   auto& port = *intent_.inputs.at(input)->ports.at(intf);
   auto& is = isEgress ? port.egress : port.ingress;
   auto const record = this->record(input)->switchIntfConfig(intf);
   auto const key = keyOf(from);
   if (to) {
      is[from] = *to;
      isEgress ? record->egressVlanXlateIs(key, mappingOf(*to))
               : record->ingressVlanXlateIs(key, mappingOf(*to));
   } else {
      is.erase(from);
      isEgress ? record->egressVlanXlateDel(key) : record->ingressVlanXlateDel(key);
   }
   portChanged(input, intf, isEgress ? PortAttr::egress : PortAttr::ingress, tagsText(from));
}

// Many keys are those of primary VLANs.
std::string Publishers::changeTranslation(Dice dice) {
   auto const name = someInput(dice);
   auto& records = intent_.inputs.at(name)->ports;
   if (records.empty())
      return "nothing";
   auto const& [intf, port] = *std::next(records.begin(), dice.below(static_cast<unsigned>(records.size())));
   std::string const place = name + " " + intf + " ";
   if (dice.chance(5)) {
      bool const isEgress = dice.chance();
      unsigned const vlan = dice.chance() ? 0 : someVlan(dice);
      auto& is = isEgress ? port->egressNative : port->ingressNative;
      if (std::exchange(is, vlan) != vlan) {
         auto const written = record(name)->switchIntfConfig(intf);
         isEgress ? written->egressNativeVlanXlateIs(vlan) : written->ingressNativeVlanXlateIs(vlan);
         portChanged(name, intf, isEgress ? PortAttr::egressNative : PortAttr::ingressNative);
      }
      return place + (isEgress ? "leaving" : "arriving") + " native translation " + std::to_string(vlan);
   }
   bool const isEgress = !dice.chance(3);
   Tags from{1 + dice.below(4), 0};
   if (dice.chance(4))
      from = {dice.chance() ? 0 : dice.chance() ? 4094 : 65535, dice.below(2)};
   Tags const to{dice.chance(4) ? 4094 * dice.below(2) : 1 + dice.below(8), dice.chance(4) ? 7 : 0};
   auto const& is = isEgress ? port->egress : port->ingress;
   bool const goes = is.contains(from) && !dice.chance(3);
   if (!goes && is.contains(from) && is.at(from) == to)
      return "nothing";
   std::string const text = place + (isEgress ? "leaving " : "arriving ") + tagsText(from) +
                            (goes ? " not translated" : " translated to " + tagsText(to));
   translationIs(name, intf, isEgress, from, goes ? nullptr : &to);
   return text;
}

// --- Ports.

// Of few ports, in the input that gives them, so that it counts.
std::string Publishers::changePrivatePort(Dice dice) {
   auto const best = bestPortInput();
   if (!best)
      return "nothing";
   auto const& name = best->name;
   std::string const intf = ports[dice.below(4)], place = name + " " + intf + " ";
   if (!best->ports.contains(intf)) {
      int const mode = dice.chance() ? trunk : access;
      portIs(name, intf, {.mode = mode, .accessVlan = 1 + dice.below(3), .mapsOnTrunk = dice.chance()});
      return place + "made for private VLANs, mode " + std::to_string(mode);
   }
   auto& is = *best->ports.at(intf);
   auto const written = record(name)->switchIntfConfig(intf);
   auto const change = [&](PortAttr attribute, std::string const& text, std::string const& member = {}) {
      portChanged(name, intf, attribute, member);
      return place + text;
   };
   switch (dice.below(9)) {
   case 0:
      if (is.enabled && dice.chance())
         return "nothing";
      is.enabled = !is.enabled;
      written->enabledIs(is.enabled);
      return change(PortAttr::enabled, is.enabled ? "enabled" : "disabled");
   case 1:
   case 2:
      is.mode = is.mode == trunk ? access : trunk;
      written->switchportModeIs(static_cast<Bridging::Input::SwitchportMode>(is.mode));
      return change(PortAttr::mode, "mode " + std::to_string(is.mode));
   case 3: {
      unsigned const vlan = 1 + dice.below(dice.chance() ? 3 : 8);
      if (std::exchange(is.accessVlan, vlan) == vlan)
         return "nothing";
      written->accessVlanIs(Bridging::VlanId(vlan));
      return change(PortAttr::accessVlan, "access VLAN " + std::to_string(vlan));
   }
   case 4:
      is.mapsOnTrunk = !is.mapsOnTrunk;
      written->trunkPrivateVlanMappingIs(is.mapsOnTrunk);
      return change(PortAttr::mapsOnTrunk, is.mapsOnTrunk ? "maps primaries" : "maps no primaries");
   case 5:
      is.mapsAllSecondaries = !is.mapsAllSecondaries;
      written->defaultPrivateVlanMappingIs(is.mapsAllSecondaries);
      return change(PortAttr::mapsAllSecondaries, is.mapsAllSecondaries ? "maps all" : "maps some");
   case 6:
   case 7: {
      unsigned const vlan = 1 + dice.below(8);
      bool const goes = is.mappedSecondaries.erase(vlan) != 0;
      if (goes) {
         written->privateVlanMappingDel(Bridging::VlanId(vlan));
      } else {
         is.mappedSecondaries.insert(vlan);
         written->privateVlanMappingIs(Bridging::VlanId(vlan), true);
      }
      return change(PortAttr::mappedSecondaries, (goes ? "maps no " : "maps ") + std::to_string(vlan),
                    std::to_string(vlan));
   }
   default: {
      Tags const from{1 + dice.below(3), 0}, to{9, 0};
      bool const goes = is.egress.contains(from);
      translationIs(name, intf, true, from, goes ? nullptr : &to);
      return place + "leaving " + tagsText(from) + (goes ? " not translated" : " translated");
   }
   }
}

} // namespace Model
