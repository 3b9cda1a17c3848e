#include "Neighbour.h"

#include "Kem/Time.h"
#include "PublishersRecords.h"
#include "records/Bridging/SviMappingState.h"

#include <set>

namespace Model {

namespace {

// Members that no agent writes are among them.
std::string someMember(Dice& dice) {
   return dice.chance(6) ? "Cpu" : dice.chance(6) ? "Ethernet99" : dice.oneOf(Publishers::ports);
}

} // namespace

Neighbour::Neighbour(Vorn::TestSwitch& sw) {
   config_ = sw.publish<Bridging::Config>("bridging/config");
   chosen_ = sw.publish<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig");
   cause_ = sw.publish<Errdisable::CauseStatus>("interface/errdisable/cause/no-internal-vlan");
}

std::string Neighbour::perform(Dice dice, Agent* model) {
   switch (dice.below(model ? 11 : 14)) {
   case 0:
   case 1:
   case 2:
   case 3:
      return editMember(dice, model);
   case 4:
   case 5:
      return editVlan(dice, model);
   case 6:
   case 7:
      return editPort(dice, model);
   case 8:
      return editSettings(dice, model);
   case 9:
      return deleteChoice(dice, model);
   case 10:
      return editWait(dice, model);
   case 11:
   case 12:
      return makeOrDeleteVlan(dice);
   default:
      return makeOrDeletePort(dice);
   }
}

unsigned Neighbour::someResolvedVlan(Dice& dice) const {
   std::set<unsigned> numbers;
   for (auto const& [vlanId, vlan] : config_->vlanConfig())
      numbers.insert(vlanId);
   if (numbers.empty())
      return 0;
   return *std::next(numbers.begin(), dice.below(static_cast<unsigned>(numbers.size())));
}

std::string Neighbour::editMember(Dice& dice, Agent* model) {
   unsigned const number = someResolvedVlan(dice);
   if (number == 0)
      return "nothing";
   std::string const intf = someMember(dice), place = "resolved VLAN " + std::to_string(number) + " " + intf;
   auto const vlan = config_->vlanConfig(Bridging::VlanId(number));
   if (dice.chance()) {
      vlan->intfDel(intf);
      if (model)
         model->vlanEdited(number, [&](ResolvedVlan& v) { v.members.erase(intf); });
      return place + " deleted by the neighbour";
   }
   Member const member{.tagged = dice.chance(), .mapped = dice.chance(), .direction = dice.below(3)};
   vlan->intfIs(intf, {.tagged = member.tagged,
                       .mappedUntagged = member.mapped,
                       .direction = static_cast<Bridging::VlanPortDirection>(member.direction)});
   if (model)
      model->vlanEdited(number, [&](ResolvedVlan& v) { v.members[intf] = member; });
   return place + " written by the neighbour";
}

std::string Neighbour::editVlan(Dice& dice, Agent* model) {
   unsigned const number = someResolvedVlan(dice);
   if (number == 0)
      return "nothing";
   std::string const place = "resolved VLAN " + std::to_string(number) + " ";
   auto const vlan = config_->vlanConfig(Bridging::VlanId(number));
   auto const edit = [&](std::function<void(ResolvedVlan&)> const& change, std::string const& text) {
      if (model)
         model->vlanEdited(number, change);
      return place + text + " by the neighbour";
   };
   switch (dice.below(5)) {
   case 0:
      vlan->configuredNameIs("theirs");
      return edit([](ResolvedVlan& v) { v.name = "theirs"; }, "named");
   case 1:
      // The agent asserts that a dynamic VLAN is from a source that exists.
      if (vlan->configSource() == "mvrp" || vlan->configSource() == "overlay" ||
          vlan->configSource() == "lab")
         return "nothing";
      vlan->configSourceIs("theirs");
      return edit([](ResolvedVlan& v) { v.source = "theirs"; }, "claimed");
   case 2: {
      bool const isSuspended = dice.chance();
      vlan->adminStateIs(stateOf(isSuspended));
      return edit([&](ResolvedVlan& v) { v.isSuspended = isSuspended; },
                  isSuspended ? "suspended" : "activated");
   }
   case 3: {
      Role const role = dice.chance() ? Role() : Role{.type = 1, .primary = 1 + dice.below(4)};
      vlan->vlanTypeAndPrimaryVlanIs(roleOf(role));
      return edit([&](ResolvedVlan& v) { v.role = role; }, "given the role " + std::to_string(role.primary));
   }
   default: {
      std::string const group = dice.chance() ? "a" : "c";
      if (dice.chance()) {
         vlan->trunkGroupDel(group);
         return edit([&](ResolvedVlan& v) { v.trunkGroups.erase(group); }, "taken out of group " + group);
      }
      vlan->trunkGroupIs(group, true);
      return edit([&](ResolvedVlan& v) { v.trunkGroups.insert(group); }, "put into group " + group);
   }
   }
}

std::string Neighbour::editPort(Dice& dice, Agent* model) {
   std::string const intf = dice.oneOf(Publishers::ports), place = "resolved port " + intf + " ";
   auto const port = config_->switchIntfConfig(intf);
   if (!port)
      return "nothing";
   auto const edit = [&](std::function<void(ResolvedPort&)> const& change, std::string const& text) {
      if (model)
         model->portEdited(intf, change);
      return place + text + " edited by the neighbour";
   };
   bool const value = dice.chance();
   switch (dice.below(10)) {
   case 7:
   case 8: {
      Tags const from{1 + dice.below(4), 0}, to{1 + dice.below(8), 0};
      bool const isEgress = !dice.chance(3);
      if (value)
         isEgress ? port->egressVlanXlateIs(keyOf(from), mappingOf(to))
                  : port->ingressVlanXlateIs(keyOf(from), mappingOf(to));
      else
         isEgress ? port->egressVlanXlateDel(keyOf(from)) : port->ingressVlanXlateDel(keyOf(from));
      return edit(
          [&](ResolvedPort& p) {
             auto& translations = isEgress ? p.egress : p.ingress;
             translations.erase(from);
             if (value)
                translations[from] = to;
          },
          (isEgress ? "leaving " : "arriving ") + tagsText(from) + (value ? " to " + tagsText(to) : ""));
   }
   case 9: {
      unsigned const vlan = someVlan(dice);
      value ? port->egressNativeVlanXlateIs(vlan) : port->ingressNativeVlanXlateIs(vlan);
      return edit([&](ResolvedPort& p) { (value ? p.egressNative : p.ingressNative) = vlan; },
                  "native translation");
   }
   case 6: {
      auto const resolved = port->switchportModeAndNativeVlan();
      config_->switchIntfConfigDel(intf);
      config_->switchIntfConfigIs(intf, resolved);
      if (model)
         model->portMadeAgain(intf);
      return place + "deleted and made again by the neighbour";
   }
   case 0:
      port->macLearningEnabledIs(value);
      return edit([&](ResolvedPort& p) { p.learns = value; }, "learning");
   case 1:
      port->floodingEnabledIs(value);
      return edit([&](ResolvedPort& p) { p.floods = value; }, "flooding");
   case 2:
      port->allowTaggedPktsIs(value);
      return edit([&](ResolvedPort& p) { p.takesTagged = value; }, "tagged frames");
   case 3:
      port->enableIngressFilteringIs(value);
      return edit([&](ResolvedPort& p) { p.filters = value; }, "filtering");
   case 4:
      port->vlanTpidIs(value ? 0x9100 : 0x8100);
      return edit([&](ResolvedPort& p) { p.tpid = value ? 0x9100 : 0x8100; }, "tpid");
   default: {
      auto resolved = port->switchportModeAndNativeVlan();
      if (model && resolved.switchportMode == Bridging::SwitchportMode::routed_)
         return "nothing";
      unsigned const native = dice.chance(4) ? 0 : someVlan(dice);
      resolved.nativeVlan = native;
      port->switchportModeAndNativeVlanIs(resolved);
      return edit([&](ResolvedPort& p) { p.native = native; }, "native VLAN " + std::to_string(native));
   }
   }
}

std::string Neighbour::editSettings(Dice& dice, Agent* model) {
   auto const edit = [&](std::function<void(Outcome&)> const& change, std::string const& text) {
      if (model)
         model->settingsEdited(change);
      return text + " edited by the neighbour";
   };
   bool const value = dice.chance();
   switch (dice.below(10)) {
   case 8:
   case 9: {
      unsigned const number = 1 + dice.below(4), secondary = 1 + dice.below(8);
      Bridging::VlanId const id(number);
      std::string const place = "resolved mapping of primary VLAN " + std::to_string(number);
      if (!model && dice.chance()) {
         value ? void(config_->sviMappingIs(id)) : config_->sviMappingDel(id);
         return place + (value ? " made" : " deleted") + " by the neighbour";
      }
      auto const mapping = config_->sviMapping(id);
      if (!mapping)
         return "nothing";
      if (dice.chance(4)) {
         config_->sviMappingDel(id);
         config_->sviMappingIs(id);
         return edit([&](Outcome& o) { o.sviMappings.at(number) = {}; }, place + " made again and");
      }
      if (dice.chance(3)) {
         mapping->defaultSviMappingIs(value);
         return edit([&](Outcome& o) { o.sviMappings.at(number).servesAll = value; }, place);
      }
      if (value)
         mapping->secondaryVlanIs(Bridging::VlanId(secondary), true);
      else
         mapping->secondaryVlanDel(Bridging::VlanId(secondary));
      return edit(
          [&](Outcome& o) {
             auto& served = o.sviMappings.at(number).served;
             served.erase(secondary);
             if (value)
                served.insert(secondary);
          },
          place + " of " + std::to_string(secondary));
   }
   case 0:
      config_->hostAgingTimeIs(7);
      return edit([](Outcome& o) { o.agingTime = 7; }, "aging time");
   case 1:
      config_->pausePassThroughIs(value);
      return edit([&](Outcome& o) { o.passesPause = value; }, "pause");
   case 2:
      config_->internalVlanRangeIs({.min = 21, .max = 22});
      return edit(
          [](Outcome& o) {
             o.rangeMin = 21;
             o.rangeMax = 22;
          },
          "internal range");
   case 3:
      config_->internalVlanAllocationPolicyIs(value ? Bridging::InternalVlanAllocationPolicy::descending
                                                    : Bridging::InternalVlanAllocationPolicy::ascending);
      return edit([&](Outcome& o) { o.allocatesDescending = value; }, "allocation policy");
   case 4: {
      unsigned const mode = dice.below(4);
      config_->forwardingModeIs(static_cast<Bridging::SwitchForwardingMode>(mode));
      return edit([&](Outcome& o) { o.forwardingMode = mode; }, "forwarding mode");
   }
   case 5:
      config_->vlanConfigSourceDetailIs("theirs");
      return edit([](Outcome& o) { o.detail = "theirs"; }, "source detail");
   case 6: {
      unsigned const number = someVlan(dice);
      if (value)
         config_->vidToFidMapIs(Bridging::VlanId(number), Bridging::Fid(9));
      else
         config_->vidToFidMapDel(Bridging::VlanId(number));
      return edit(
          [&](Outcome& o) {
             o.fids.erase(number);
             if (value)
                o.fids[number] = 9;
          },
          "filtering database of VLAN " + std::to_string(number));
   }
   default: {
      std::string const address = "01:80:c2:00:00:0" + std::to_string(dice.below(4));
      if (value)
         config_->ieeeReservedForwardingIs(Sulvi::EthAddr(address), true);
      else
         config_->ieeeReservedForwardingDel(Sulvi::EthAddr(address));
      return edit(
          [&](Outcome& o) {
             o.reserved.erase(address);
             if (value)
                o.reserved.insert(address);
          },
          "reserved address " + address);
   }
   }
}

std::string Neighbour::deleteChoice(Dice& dice, Agent* model) {
   std::string const intf = dice.oneOf(Publishers::ports);
   if (!chosen_->switchIntfConfig(intf))
      return "nothing";
   chosen_->switchIntfConfigDel(intf);
   if (model)
      model->choiceDeleted(intf);
   return "chosen record of " + intf + " deleted by the neighbour";
}

std::string Neighbour::editWait(Dice& dice, Agent* model) {
   std::string const intf = dice.oneOf(Publishers::ports);
   if (!model && dice.chance()) {
      cause_->intfStatusIs(intf, Kem::now() - dice.below(20));
      return intf + " made to wait by the neighbour";
   }
   cause_->intfStatusDel(intf);
   if (model)
      model->waitDeleted(intf);
   return "wait of " + intf + " ended by the neighbour";
}

std::string Neighbour::makeOrDeleteVlan(Dice& dice) {
   if (unsigned const number = someResolvedVlan(dice); number != 0 && dice.chance()) {
      config_->vlanConfigDel(Bridging::VlanId(number));
      return "resolved VLAN " + std::to_string(number) + " deleted by the neighbour";
   }
   unsigned const number = someVlan(dice);
   if (config_->vlanConfig(Bridging::VlanId(number)))
      return "nothing";
   bool const isInternal = dice.chance();
   config_->newVlanConfig(Bridging::VlanId(number), isInternal)->configuredNameIs("theirs");
   return "resolved VLAN " + std::to_string(number) + (isInternal ? ", internal," : "") +
          " made by the neighbour";
}

std::string Neighbour::makeOrDeletePort(Dice& dice) {
   std::string const intf = dice.oneOf(Publishers::ports), place = "resolved port " + intf;
   if (config_->switchIntfConfig(intf) && dice.chance()) {
      config_->switchIntfConfigDel(intf);
      return place + " deleted by the neighbour";
   }
   // Two ports of one number may come of it.
   unsigned const number = someVlan(dice);
   config_->switchIntfConfigIs(intf)->switchportModeAndNativeVlanIs(
       {.switchportMode =
            dice.chance() ? Bridging::SwitchportMode::routed_ : Bridging::SwitchportMode::access_,
        .nativeVlan = number});
   return place + " given VLAN " + std::to_string(number) + " by the neighbour";
}

} // namespace Model
