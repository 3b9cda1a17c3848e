// The publishers' inputs: they come, go, and change their rank.

#include "PublishersRecords.h"

#include <utility>

namespace Model {

namespace {
constexpr char const* visitors[] = {"lab", "mlag", "zed"}; // "eth", the agent's own, is before them
constexpr unsigned priorities[] = {0, 5, 10, 10, 20, 4294967295u};
} // namespace

Bridging::VlanTypeAndPrimaryVlan roleOf(Role const& role) {
   return {.vlanType = static_cast<Bridging::VlanType>(role.type), .primaryVlan = role.primary};
}

Bridging::VlanAdminState stateOf(bool isSuspended) {
   return isSuspended ? Bridging::VlanAdminState::suspended : Bridging::VlanAdminState::active;
}

void fill(Bridging::Input::VlanConfig& record, Vlan const& vlan) {
   record.configuredNameIs(vlan.name);
   record.adminStateIs(stateOf(vlan.isSuspended));
   record.vlanTypeAndPrimaryVlanIs(roleOf(vlan.role));
   for (auto const& group : vlan.trunkGroups)
      record.trunkGroupIs(group, true);
}

void fill(Bridging::Input::SwitchIntfConfig& record, Port const& port) {
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
   for (auto const& [from, to] : port.ingress)
      record.ingressVlanXlateIs(keyOf(from), mappingOf(to));
   for (auto const& [from, to] : port.egress)
      record.egressVlanXlateIs(keyOf(from), mappingOf(to));
   record.ingressNativeVlanXlateIs(port.ingressNative);
   record.egressNativeVlanXlateIs(port.egressNative);
   for (unsigned const vlan : port.mappedSecondaries)
      record.privateVlanMappingIs(Bridging::VlanId(vlan), true);
   record.defaultPrivateVlanMappingIs(port.mapsAllSecondaries);
   record.trunkPrivateVlanMappingIs(port.mapsOnTrunk);
   record.toolIdentityTaggingIs(port.tagsIdentity);
}

Publishers::Publishers(Vorn::TestSwitch& sw, Netlink::FakeKernel& kernel, Intent& intent,
                       std::function<void(Change const&)> tell)
    : kernel_(kernel), intent_(intent), tell_(std::move(tell)) {
   inputDir_ = sw.publish<Kem::Dir>("bridging/input/config");
   sourceDir_ = sw.publish<Kem::Dir>("bridging/input/dynvlan/vlan");
   widenerDir_ = sw.publish<Kem::Dir>("bridging/input/dynvlan/allowedvlan");
   cli_ = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   intfConfigs_ = sw.publish<Interface::EthIntfConfigDir>("interface/config/eth/intf");
   intfStatuses_ = sw.publish<Interface::EthIntfStatusDir>("interface/status/eth/intf");
   vlanIntfs_ = sw.publish<Interface::VlanIntfConfigDir>("interface/config/eth/vlan");
   hardware_ = sw.publish<Bridging::HwCapabilities>("bridging/hwcapabilities");
   config_ = sw.publish<Bridging::Config>("bridging/config");
   vlanStatuses_ = sw.publish<Interface::VlanIntfStatusDir>("interface/status/eth/vlan");
   vlanLocals_ = sw.publish<Interface::VlanIntfStatusLocalDir>("cell/1/interface/status/eth/vlan/local");
   subConfigs_ = sw.publish<Interface::SubIntfConfigDir>("interface/config/subintf");
   subStatuses_ = sw.publish<Interface::SubIntfStatusDir>("interface/status/subintf");
   subLocals_ = sw.publish<Interface::SubIntfStatusLocalDir>("cell/1/interface/status/subintf/local");
   hwStatuses_ = sw.publish<Interface::Hardware::SubIntfStatusDir>("interface/hardware/status/subintf");
   allStatuses_ = sw.publish<Interface::AllIntfStatusDir>("interface/status/all");
   nsConfigs_ = sw.publish<Interface::AllIntfNamespaceConfigDir>("cell/1/interface/nsconfig");
   autoState_ = sw.publish<Interface::AllVlanIntfAutoState>("interface/config/eth/allVlanIntfAutoState");
   vlanStatus_ = sw.publish<Bridging::VlanStatusDir>("bridging/vlan/status");
   vlanIntfSources_ = sw.publish<Kem::Dir>("interface/input/dynvlanintf");
   intent_.inputs["cli"] = std::make_shared<Input>(Input{.name = "cli"});
}

void Publishers::begin(Dice dice) {
   beginRouting();
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
   case Kind::source:
      return changeSource(dice);
   case Kind::widener:
      return changeWidener(dice);
   case Kind::host:
      return changeHost(dice);
   case Kind::role:
      return changeRole(dice);
   case Kind::sviMapping:
      return changeSviMapping(dice);
   case Kind::routing:
      return changeRouting(dice);
   case Kind::translation:
      return changeTranslation(dice);
   case Kind::privatePort:
      return changePrivatePort(dice);
   case Kind::privateVlans:
   case Kind::primaryDeleted:
   case Kind::primaryMade:
   case Kind::secondaryMoved:
   case Kind::secondaryReplaced:
   case Kind::secondaryLeaves:
   case Kind::secondaryHeads:
   case Kind::primarySuspended:
   case Kind::trunkTranslated:
      return changePrivateVlans(kind, dice);
   case Kind::setting:
      return changeSetting(dice);
   case Kind::plainPort:
      return makePortPlain(dice);
   case Kind::modelGone:
      return changeModel(dice.oneOf(ports), 0);
   case Kind::modelBack:
      return changeModel(dice.oneOf(ports), routedModel);
   case Kind::othersGone:
      return changeOtherModels(dice, 0);
   case Kind::othersBack:
      return changeOtherModels(dice, routedModel);
   case Kind::numbersTaken:
      return takeNumbers(true);
   case Kind::numbersFreed:
      return takeNumbers(false);
   case Kind::trunksLook:
      return haveTrunksLook();
   case Kind::bestVlan:
      return changeBestVlan(dice);
   case Kind::inputReplaced:
      return replaceInput(dice);
   default:
      return "nothing";
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
   made->fdbConfigPriorityIs(content->fdbPriority);
   for (auto const& [number, fdb] : content->fdbs)
      fill(*made->fdbConfigIs(Bridging::VlanId(number)), *fdb);
   for (auto const& [number, vlan] : content->vlans)
      fill(*made->vlanConfigIs(Bridging::VlanId(number)), *vlan);
   for (auto const& [intf, port] : content->ports)
      fill(*made->switchIntfConfigIs(intf, static_cast<Bridging::Input::SwitchportMode>(port->mode)), *port);
   inputDir_->entityPtrIs(made);
   unborn_.insert(name);

   // It is noticed when it is made, before its contents, which come in the order of its record.
   auto const input = std::make_shared<Input>(Input{.name = name});
   intent_.inputs[name] = input;
   tell_({.what = Change::inputs, .name = name});
   *input = *content;
   if (input->vlanPriority != 0)
      tell_({.what = Change::vlanPriority, .name = name});
   if (input->portPriority != 0)
      tell_({.what = Change::portPriority, .name = name});
   for (auto const& [vlanId, vlan] : made->vlanConfig())
      tell_({.what = Change::inputVlan, .name = name, .number = vlanId});
   for (auto const& [intfId, port] : made->switchIntfConfig())
      tell_({.what = Change::inputPort, .name = name, .key = intfId.stringValue().str()});
   for (auto const& [vlanId, fdb] : made->fdbConfig())
      tell_({.what = Change::inputFdb, .name = name, .number = vlanId});
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
      for (auto const& [intf, port] : std::map(before->ports))
         portDel(name, intf);
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
      for (auto& [number, fdb] : content->fdbs)
         fdb = copyOf(*fdb);
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

} // namespace Model
