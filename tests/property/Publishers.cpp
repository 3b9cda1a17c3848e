#include "Publishers.h"

#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/VlanIntfConfig.h"

#include <utility>

namespace Model {

namespace {

constexpr char const* visitors[] = {"lab", "mlag", "zed"}; // "eth", the agent's own, is before them
constexpr char const* lists[] = {"1-4094",      "",     "none",    "1-5,9", " 3 , 20-22,7", "9-5", "5-4095,6",
                                 "1,1,2-4,3-6", "4094", "2-3,x,8", "0-7",   "20-30,1-3",    "8",   "-3,5--6"};
constexpr unsigned priorities[] = {0, 5, 10, 10, 20, 4294967295u};

// Among the numbers of VLANs are those of the range of internal ones.
unsigned someVlan(Dice& dice) {
   return dice.chance(4) ? 19 + dice.below(6) : 1 + dice.below(10);
}

using PortRecord = Bridging::Input::SwitchIntfConfig;
using VlanRecord = Bridging::Input::VlanConfig;

Bridging::VlanTypeAndPrimaryVlan roleOf(Role const& role) {
   return {.vlanType = static_cast<Bridging::VlanType>(role.type), .primaryVlan = role.primary};
}

Bridging::VlanAdminState stateOf(bool isSuspended) {
   return isSuspended ? Bridging::VlanAdminState::suspended : Bridging::VlanAdminState::active;
}

void fill(VlanRecord& record, Vlan const& vlan) {
   record.configuredNameIs(vlan.name);
   record.adminStateIs(stateOf(vlan.isSuspended));
   record.vlanTypeAndPrimaryVlanIs(roleOf(vlan.role));
   for (auto const& group : vlan.trunkGroups)
      record.trunkGroupIs(group, true);
}

void fill(PortRecord& record, Port const& port) {
   record.enabledIs(port.enabled);
   record.accessVlanIs(Bridging::VlanId(port.accessVlan));
   record.trunkNativeVlanIs(port.trunkNative);
   record.tapNativeVlanIs(port.tapNative);
   record.trunkAllowedVlansIs(port.trunkAllowed);
   record.tapAllowedVlansIs(port.tapAllowed);
   record.toolAllowedVlansIs(port.toolAllowed);
   record.asymVlansIs(port.asym);
   for (auto const& group : port.trunkGroups)
      record.trunkGroupIs(group, true);
   record.macLearningEnabledIs(port.learns);
   record.floodingEnabledIs(port.floods);
   record.vlanTpidIs(port.tpid);
   for (unsigned const vlan : port.mappedSecondaries)
      record.privateVlanMappingIs(Bridging::VlanId(vlan), true);
   record.defaultPrivateVlanMappingIs(port.mapsAllSecondaries);
   record.trunkPrivateVlanMappingIs(port.mapsOnTrunk);
   record.toolIdentityTaggingIs(port.tagsIdentity);
}

} // namespace

Publishers::Publishers(Vorn::TestSwitch& sw, Intent& intent, std::function<void(Change const&)> tell)
    : intent_(intent), tell_(std::move(tell)) {
   inputDir_ = sw.publish<Kem::Dir>("bridging/input/config");
   cli_ = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   intfConfigs_ = sw.publish<Interface::EthIntfConfigDir>("interface/config/eth/intf");
   intfStatuses_ = sw.publish<Interface::EthIntfStatusDir>("interface/status/eth/intf");
   vlanIntfs_ = sw.publish<Interface::VlanIntfConfigDir>("interface/config/eth/vlan");
   hardware_ = sw.publish<Bridging::HwCapabilities>("bridging/hwcapabilities");
   config_ = sw.publish<Bridging::Config>("bridging/config");
   intent_.inputs["cli"] = std::make_shared<Input>(Input{.name = "cli"});
}

void Publishers::begin(Dice dice) {
   rangeIs(20, 23);
   for (auto const* const intf : ports)
      if (!dice.chance(4))
         intfComes(intf, routedModel);
}

std::string Publishers::perform(Kind kind, Dice dice) {
   switch (kind) {
   case Kind::priority:
      return changePriority(dice);
   case Kind::publisher:
      return changePublisher(dice);
   case Kind::vlan:
      return changeVlan(dice);
   case Kind::port:
      return changePort(dice);
   case Kind::intf:
      return changeIntf(dice);
   case Kind::vlanIntf:
      return changeVlanIntf(dice);
   default:
      return changeSetting(dice);
   }
}

std::string Publishers::changeDefault() {
   intent_.isRoutedByDefault = !intent_.isRoutedByDefault;
   config_->defaultSwitchportModeIs(intent_.isRoutedByDefault ? Bridging::SwitchportMode::routed_
                                                              : Bridging::SwitchportMode::access_);
   return std::string("ports are ") + (intent_.isRoutedByDefault ? "routed" : "switchports") + " by default";
}

// --- Inputs.

Kem::Ptr<Publishers::InputConfig> Publishers::record(std::string const& input) const {
   return inputDir_->entity<InputConfig>(Kem::Name(input));
}

std::string Publishers::someInput(Dice& dice) const {
   auto at = intent_.inputs.begin();
   std::advance(at, dice.below(static_cast<unsigned>(intent_.inputs.size())));
   return unborn_.contains(at->first) ? "cli" : at->first;
}

void Publishers::comes(std::shared_ptr<Input> const& content) {
   auto const& name = content->name;
   auto const made = InputConfig::make();
   made->nameIs(Kem::Name(name));
   made->sourceDetailIs(content->detail);
   made->vlanConfigPriorityIs(content->vlanPriority);
   made->switchIntfConfigPriorityIs(content->portPriority);
   for (auto const& [number, vlan] : content->vlans)
      fill(*made->vlanConfigIs(Bridging::VlanId(number)), *vlan);
   for (auto const& [intf, port] : content->ports)
      fill(*made->switchIntfConfigIs(intf, static_cast<Bridging::Input::SwitchportMode>(port->mode)), *port);
   inputDir_->entityPtrIs(made);
   unborn_.insert(name);

   // It is seen as it comes, before what it holds.
   auto const input = std::make_shared<Input>(Input{.name = name});
   intent_.inputs[name] = input;
   tell_({.what = Change::inputs, .name = name});
   *input = *content;
   if (input->vlanPriority != 0)
      tell_({.what = Change::vlanPriority, .name = name});
   if (input->portPriority != 0)
      tell_({.what = Change::portPriority, .name = name});
   for (auto const& [number, vlan] : input->vlans)
      tell_({.what = Change::inputVlan, .name = name, .number = number});
   for (auto const& [intf, port] : input->ports)
      tell_({.what = Change::inputPort, .name = name, .key = intf});
}

void Publishers::goes(std::string const& name) {
   inputDir_->entityPtrDel(Kem::Name(name));
   intent_.inputs.erase(name);
   tell_({.what = Change::inputs, .name = name});
}

std::string Publishers::changePublisher(Dice dice) {
   std::string const name = dice.oneOf(visitors);
   if (unborn_.contains(name))
      return "nothing";
   auto const found = intent_.inputs.find(name);
   if (found == intent_.inputs.end()) {
      auto const content = std::make_shared<Input>(Input{.name = name, .detail = name + " of the test"});
      if (dice.chance()) {
         content->vlanPriority = dice.oneOf(priorities);
         content->portPriority = dice.oneOf(priorities);
         for (unsigned i = dice.below(4); i > 0; --i)
            content->vlans[someVlan(dice)] = std::make_shared<Vlan>();
         for (unsigned i = dice.below(4); i > 0; --i)
            content->ports[dice.oneOf(ports)] =
                std::make_shared<Port>(Port{.mode = static_cast<int>(dice.below(6))});
      }
      comes(content);
      return name + " comes, with priorities " + std::to_string(content->vlanPriority) + " and " +
             std::to_string(content->portPriority) + ", " + std::to_string(content->vlans.size()) +
             " VLANs, " + std::to_string(content->ports.size()) + " ports";
   }
   auto const before = found->second;
   switch (dice.below(4)) {
   case 0:
      goes(name);
      return name + " goes";
   case 1: {
      for (auto const& [intf, port] : std::map(before->ports)) {
         record(name)->switchIntfConfigDel(intf);
         before->ports.erase(intf);
         tell_({.what = Change::inputPort, .name = name, .key = intf});
      }
      goes(name);
      return name + " takes its ports away and goes";
   }
   case 2: {
      goes(name);
      comes(std::make_shared<Input>(Input{.name = name, .detail = "again"}));
      return name + " goes and comes back with nothing";
   }
   default: {
      auto const content = std::make_shared<Input>(*before);
      for (auto& [number, vlan] : content->vlans)
         vlan = std::make_shared<Vlan>(*vlan);
      for (auto& [intf, port] : content->ports)
         port = std::make_shared<Port>(*port);
      goes(name);
      comes(content);
      return name + " goes and comes back with all that it had";
   }
   }
}

std::string Publishers::changePriority(Dice dice) {
   auto const name = someInput(dice);
   unsigned const value = dice.oneOf(priorities);
   auto& input = *intent_.inputs.at(name);
   bool const isOfVlans = dice.chance();
   auto& is = isOfVlans ? input.vlanPriority : input.portPriority;
   std::string const text =
       name + (isOfVlans ? " VLAN priority " : " port priority ") + std::to_string(value);
   if (std::exchange(is, value) == value)
      return text;
   if (isOfVlans)
      record(name)->vlanConfigPriorityIs(value);
   else
      record(name)->switchIntfConfigPriorityIs(value);
   tell_({.what = isOfVlans ? Change::vlanPriority : Change::portPriority, .name = name});
   return text;
}

// --- VLANs.

std::string Publishers::changeVlan(Dice dice) {
   auto const name = someInput(dice);
   auto& vlans = intent_.inputs.at(name)->vlans;
   unsigned const number = someVlan(dice);
   std::string const place = name + " VLAN " + std::to_string(number);
   Bridging::VlanId const id(number);
   auto const input = record(name);
   auto const vlanDel = [&] {
      input->vlanConfigDel(id);
      vlans.erase(number);
      tell_({.what = Change::inputVlan, .name = name, .number = number});
   };
   auto const vlanIs = [&](Vlan const& vlan) {
      fill(*input->vlanConfigIs(id), vlan);
      vlans[number] = std::make_shared<Vlan>(vlan);
      tell_({.what = Change::inputVlan, .name = name, .number = number});
   };
   auto const tellOf = [&](VlanAttr attribute, std::string const& group = {}) {
      tell_({.what = Change::vlanAttribute,
             .name = name,
             .key = group,
             .number = number,
             .attribute = static_cast<int>(attribute)});
   };
   if (!vlans.contains(number)) {
      vlanIs({.name = dice.chance() ? "new" : "", .isSuspended = dice.chance(8)});
      return place + " made";
   }
   auto const vlan = input->vlanConfig(id);
   auto& is = *vlans.at(number);
   switch (dice.below(8)) {
   case 0:
      vlanDel();
      return place + " deleted";
   case 1: {
      Vlan const copy = is;
      vlanDel();
      vlanIs(copy);
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
      if (!(std::exchange(is.role, role) == role)) {
         vlan->vlanTypeAndPrimaryVlanIs(roleOf(role));
         tellOf(VlanAttr::role);
      }
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

// --- Ports.

std::string Publishers::changePort(Dice dice) {
   auto const name = someInput(dice);
   std::string const intf = dice.oneOf(ports);
   auto& records = intent_.inputs.at(name)->ports;
   auto const input = record(name);
   std::string const place = name + " " + intf + " ";
   auto const portDel = [&] {
      input->switchIntfConfigDel(intf);
      records.erase(intf);
      tell_({.what = Change::inputPort, .name = name, .key = intf});
   };
   auto const portIs = [&](Port const& port) {
      fill(*input->switchIntfConfigIs(intf, static_cast<Bridging::Input::SwitchportMode>(port.mode)), port);
      records[intf] = std::make_shared<Port>(port);
      tell_({.what = Change::inputPort, .name = name, .key = intf});
   };
   if (!records.contains(intf)) {
      Port const port{.enabled = !dice.chance(4), .mode = static_cast<int>(dice.below(6))};
      portIs(port);
      return place + "made, mode " + std::to_string(port.mode) + (port.enabled ? "" : ", disabled");
   }
   switch (dice.below(20)) {
   case 0:
      portDel();
      return place + "deleted";
   case 1: {
      Port const copy = *records.at(intf);
      portDel();
      portIs(copy);
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
   auto const change = [&](PortAttr attribute, auto& value, auto const& to, auto&& write, auto const& text) {
      if (value != to) {
         value = to;
         write();
         tell_({.what = Change::portAttribute,
                .name = input,
                .key = intf,
                .attribute = static_cast<int>(attribute)});
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
          "maps secondary VLAN " + std::to_string(vlan) + (goes ? " no more" : ""));
   }
   }
}

// --- Interfaces.

void Publishers::intfComes(std::string const& intf, unsigned forwardingModel) {
   if (!intent_.intfConfigs.contains(intf)) {
      intfConfigs_->intfConfigIs(intf);
      intent_.intfConfigs[intf] = std::make_shared<IntfConfig>();
      tell_({.what = Change::intfConfig, .key = intf});
   }
   if (!intent_.intfStatuses.contains(intf)) {
      intfStatuses_->intfStatusIs(intf)->forwardingModelIs(
          static_cast<Interface::IntfForwardingModel>(forwardingModel));
      intent_.intfStatuses[intf] = std::make_shared<IntfStatus>(IntfStatus{forwardingModel});
      tell_({.what = Change::intfStatus, .key = intf});
   }
}

void Publishers::intfGoes(std::string const& intf) {
   if (intent_.intfStatuses.erase(intf)) {
      intfStatuses_->intfStatusDel(intf);
      tell_({.what = Change::intfStatus, .key = intf});
   }
   if (intent_.intfConfigs.erase(intf)) {
      intfConfigs_->intfConfigDel(intf);
      tell_({.what = Change::intfConfig, .key = intf});
   }
}

std::string Publishers::changeIntf(Dice dice) {
   std::string const intf = dice.oneOf(ports);
   auto const config = intent_.intfConfigs.find(intf);
   auto const status = intent_.intfStatuses.find(intf);
   switch (dice.below(8)) {
   case 0:
      if (config != intent_.intfConfigs.end() || status != intent_.intfStatuses.end()) {
         intfGoes(intf);
         return intf + " vanishes";
      }
      intfComes(intf, dice.chance() ? routedModel : 0);
      return intf + " is plugged in";
   case 1:
      if (config != intent_.intfConfigs.end() && status != intent_.intfStatuses.end()) {
         unsigned const model = status->second->forwardingModel;
         intfGoes(intf);
         intfComes(intf, model);
         return intf + " vanishes and is plugged in again";
      }
      return "nothing";
   case 2:
      if (config != intent_.intfConfigs.end()) {
         intfConfigs_->intfConfigDel(intf);
         intent_.intfConfigs.erase(config);
         tell_({.what = Change::intfConfig, .key = intf});
         return intf + " configuration gone";
      }
      intfConfigs_->intfConfigIs(intf);
      intent_.intfConfigs[intf] = std::make_shared<IntfConfig>();
      tell_({.what = Change::intfConfig, .key = intf});
      return intf + " configuration there";
   case 3:
   case 4:
      if (config != intent_.intfConfigs.end()) {
         bool const isShut = config->second->isShut = !config->second->isShut;
         intfConfigs_->intfConfig(intf)->enabledStateLocalIs(
             isShut ? Interface::EnabledState::enabledStateShutdown
                    : Interface::EnabledState::enabledStateEnabled);
         tell_({.what = Change::intfConfigShut, .key = intf});
         return intf + (isShut ? " shut down" : " not shut down");
      }
      return "nothing";
   default: {
      if (status == intent_.intfStatuses.end())
         return "nothing";
      unsigned const model = dice.chance() ? routedModel : dice.below(5);
      if (std::exchange(status->second->forwardingModel, model) != model) {
         intfStatuses_->intfStatus(intf)->forwardingModelIs(
             static_cast<Interface::IntfForwardingModel>(model));
         tell_({.what = Change::intfStatusModel, .key = intf});
      }
      return intf + " forwarding model " + std::to_string(model);
   }
   }
}

std::string Publishers::changeVlanIntf(Dice dice) {
   std::string const intf = "Vlan" + std::to_string(dice.chance() ? someVlan(dice) : 20 + dice.below(4));
   auto const found = intent_.vlanIntfs.find(intf);
   if (found == intent_.vlanIntfs.end()) {
      vlanIntfs_->intfConfigIs(intf);
      intent_.vlanIntfs[intf];
      tell_({.what = Change::vlanIntf, .key = intf});
      return intf + " there";
   }
   auto const record = vlanIntfs_->intfConfig(intf);
   auto& is = found->second;
   switch (dice.below(5)) {
   case 0:
      is.isEnabled = !is.isEnabled;
      record->enabledIs(is.isEnabled);
      return intf + (is.isEnabled ? " enabled" : " disabled");
   case 1:
      is.isShut = !is.isShut;
      record->enabledStateLocalIs(is.isShut ? Interface::EnabledState::enabledStateShutdown
                                            : Interface::EnabledState::enabledStateDefault);
      return intf + (is.isShut ? " shut down" : " not shut down");
   default:
      vlanIntfs_->intfConfigDel(intf);
      intent_.vlanIntfs.erase(found);
      tell_({.what = Change::vlanIntf, .key = intf});
      return intf + " gone";
   }
}

// --- Settings of the whole bridge.

void Publishers::rangeIs(unsigned min, unsigned max) {
   cli_->internalVlanRangeIs({.min = static_cast<uint16_t>(min), .max = static_cast<uint16_t>(max)});
   intent_.settings->rangeMin = min;
   intent_.settings->rangeMax = max;
   tell_({.what = Change::settings});
}

std::string Publishers::changeSetting(Dice dice) {
   auto& settings = *intent_.settings;
   switch (dice.below(7)) {
   case 0: {
      static constexpr unsigned ranges[][2] = {{20, 23}, {20, 21}, {22, 24}, {24, 20}, {30, 30}, {20, 29}};
      auto const& [min, max] = dice.oneOf(ranges);
      rangeIs(min, max);
      return "internal range " + std::to_string(min) + "-" + std::to_string(max);
   }
   case 1:
      settings.allocatesDescending = !settings.allocatesDescending;
      cli_->internalVlanAllocationPolicyIs(settings.allocatesDescending
                                               ? Bridging::InternalVlanAllocationPolicy::descending
                                               : Bridging::InternalVlanAllocationPolicy::ascending);
      tell_({.what = Change::settings});
      return "allocation policy";
   case 2:
      settings.agingTime = dice.below(1000);
      settings.passesPause = dice.chance();
      cli_->hostAgingTimeIs(settings.agingTime);
      cli_->pausePassThroughIs(settings.passesPause);
      tell_({.what = Change::settings});
      return "aging time, pause";
   case 3:
      settings.forwardingMode = dice.below(4);
      cli_->forwardingModeIs(static_cast<Bridging::SwitchForwardingMode>(settings.forwardingMode));
      tell_({.what = Change::settings});
      return "forwarding mode " + std::to_string(settings.forwardingMode);
   case 4:
      intent_.supportedModes.clear();
      hardware_->supportedForwardingModeDelAll();
      for (unsigned i = 0, n = dice.below(4); i < n; ++i) {
         intent_.supportedModes.push_back(1 + dice.below(3));
         hardware_->supportedForwardingModeIs(
             i, static_cast<Bridging::SwitchForwardingMode>(intent_.supportedModes[i]));
      }
      tell_({.what = Change::hardware});
      return "supported forwarding modes";
   case 5: {
      unsigned const number = someVlan(dice), fid = dice.below(3);
      if (dice.chance()) {
         cli_->vidToFidMapIs(Bridging::VlanId(number), Bridging::Fid(fid));
         settings.fids[number] = fid;
      } else {
         cli_->vidToFidMapDel(Bridging::VlanId(number));
         settings.fids.erase(number);
      }
      tell_({.what = Change::fid, .number = number});
      return "filtering database of " + std::to_string(number);
   }
   default: {
      std::string const address = "01:80:c2:00:00:0" + std::to_string(dice.below(4));
      bool const isForwarded = dice.chance();
      cli_->ieeeReservedForwardingIs(Sulvi::EthAddr(address), isForwarded);
      if (isForwarded)
         settings.reserved.insert(address);
      else
         settings.reserved.erase(address);
      tell_({.what = Change::fid});
      return "reserved address " + address;
   }
   }
}

// --- Lists.

namespace {
unsigned listedNumber(std::string const& text) {
   if (text.empty() || text.find_first_not_of("0123456789") != text.npos || text.size() > 9)
      return 0;
   return static_cast<unsigned>(std::stoul(text));
}
} // namespace

std::set<unsigned> const& vlansOf(std::string const& list) {
   static std::map<std::string, std::set<unsigned>> known; // worked out once for each
   auto const [entry, isNew] = known.try_emplace(list);
   auto& vlans = entry->second;
   if (!isNew)
      return vlans;
   for (size_t begin = 0; begin <= list.size();) {
      size_t const end = std::min(list.find(',', begin), list.size());
      std::string item = list.substr(begin, end - begin);
      begin = end + 1;
      std::erase(item, ' ');
      size_t const hyphen = item.find('-');
      unsigned const first = listedNumber(item.substr(0, hyphen));
      unsigned const last = hyphen == item.npos ? first : listedNumber(item.substr(hyphen + 1));
      if (first < 1 || last > 4094)
         continue;
      for (unsigned vlan = first; vlan <= last; ++vlan)
         vlans.insert(vlan);
   }
   return vlans;
}

} // namespace Model
