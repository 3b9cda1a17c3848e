// Long random series of what publishers do, and after each step the resolved tree, as a subscriber
// sees it, against a plain account of what it should be (BridgeModel.h). At the end of a series
// the agent dies and comes back.
//
//    BRIDGING_SEQUENCES=5000 BRIDGING_SEED=17 build/test/bridging_property      longer, or from another seed
//
// A failure names its seed and prints the steps.

#include "BridgeModel.h"
#include "Vorn/testing/TestSwitch.h"

#include "records/Bridging/HwCapabilities.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/SwitchIntfConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanConfig.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"

#include "Kem/Trace.h"

#include <random>
#include <sstream>

namespace {

using Bridging::Input::SwitchIntfConfig;
using InputConfig = Bridging::Input::Config;

constexpr char causePath[] = "interface/errdisable/cause/no-internal-vlan";

unsigned numberFrom(char const* variable, unsigned otherwise) {
   char const* const text = std::getenv(variable);
   return text ? static_cast<unsigned>(std::atoi(text)) : otherwise;
}

// Publishers that do something at random, each in the database and in the model.
class Publishers {
  public:
   explicit Publishers(unsigned seed) : random_(seed) {
      sw_.startAgent();
      intent.inputs["cli"];
      cli_ = sw_.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
      ethIntfConfig_ = sw_.publish<Interface::EthIntfConfigDir>("interface/config/eth/intf");
      ethIntfStatus_ = sw_.publish<Interface::EthIntfStatusDir>("interface/status/eth/intf");
      vlanIntfs_ = sw_.publish<Interface::VlanIntfConfigDir>("interface/config/eth/vlan");
      hardware_ = sw_.publish<Bridging::HwCapabilities>("bridging/hwcapabilities");
      config_ = sw_.subscribe<Bridging::Config>("bridging/config");
      inputDir_ = sw_.publish<Kem::Dir>("bridging/input/config");
      cause_ = sw_.subscribe<Errdisable::CauseStatus>(causePath);
      setRange(20, 23);
      for (auto const* const intf : ports)
         if (below(4) != 0)
            makeIntf(intf);
   }

   // One thing that a publisher does; the text says what.
   std::string step();
   void restartAgent() {
      sw_.stopAgent();
      sw_.startAgent();
   }
   Model::Resolved resolved() const;
   void run() { Vorn::TestSwitch::run(); }

   Model::Intent intent;

  private:
   static constexpr char const* ports[] = {"Ethernet1",   "Ethernet2", "Ethernet3",     "Ethernet4/1",
                                           "Ethernet5",   "Ethernet6", "Port-Channel1", "Ethernet65536",
                                           "Ethernet1.5", "Loopback0", "Management1",   "odd name"};
   static constexpr char const* publishers[] = {"cli", "lab", "mlag"};
   static constexpr char const* lists[] = {"1-4094", "",          "none",        "1-5,9",  " 3 , 20-22,7",
                                           "9-5",    "5-4095,6",  "1,1,2-4,3-6", "4094",   "2-3,x,8",
                                           "0-7",    "20-30,1-3", "8",           "-3,5--6"};

   unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
   bool chance() { return below(2) != 0; }
   template <class T, size_t n>
   T const& oneOf(T const (&choices)[n]) {
      return choices[below(n)];
   }
   unsigned someVlan() { return below(3) == 0 ? 19 + below(6) : 1 + below(10); }
   // Not one of the range of internal VLANs: whether such a number stands for a
   // VLAN depends on what came first.
   unsigned usersVlan() { return 1 + below(12); }

   Kem::Ptr<InputConfig> input(std::string const& name) {
      return name == "cli" ? Kem::Ptr<InputConfig>(cli_) : others_.at(name);
   }
   std::string someInput() {
      auto at = intent.inputs.begin();
      std::advance(at, below(static_cast<unsigned>(intent.inputs.size())));
      return at->first;
   }
   void makeIntf(std::string const& intf) {
      ethIntfConfig_->intfConfigIs(intf);
      intent.ethernetIntfs.insert(intf);
      ethIntfStatus_->intfStatusIs(intf)->forwardingModelIs(
          Interface::IntfForwardingModel::intfForwardingModelRouted);
      intent.forwardingModel[intf] = 5;
   }
   void setRange(unsigned min, unsigned max) {
      cli_->internalVlanRangeIs({.min = static_cast<uint16_t>(min), .max = static_cast<uint16_t>(max)});
      intent.rangeMin = min;
      intent.rangeMax = max;
   }

   std::string changePriority();
   std::string changeVlan();
   std::string changePort();
   std::string changePublisher();
   std::string changeIntf();
   std::string changeVlanIntf();
   std::string changeSetting();

   std::mt19937 random_;
   Vorn::TestSwitch sw_;
   Kem::Ptr<Bridging::Input::CliConfig> cli_;
   std::map<std::string, Kem::Ptr<InputConfig>> others_;
   Kem::Ptr<Interface::EthIntfConfigDir> ethIntfConfig_;
   Kem::Ptr<Interface::EthIntfStatusDir> ethIntfStatus_;
   Kem::Ptr<Interface::VlanIntfConfigDir> vlanIntfs_;
   Kem::Ptr<Bridging::HwCapabilities> hardware_;
   Kem::Ptr<Bridging::Config> config_;
   Kem::Ptr<Kem::Dir> inputDir_;
   Kem::Ptr<Errdisable::CauseStatus> cause_;
};

std::string Publishers::step() {
   switch (below(20)) {
   case 0:
   case 1:
      return changePriority();
   case 2:
      return changePublisher();
   case 3:
   case 4:
   case 5:
   case 6:
   case 7:
      return changeVlan();
   case 8:
   case 9:
      return changeIntf();
   case 10:
      return changeVlanIntf();
   case 11:
      return changeSetting();
   case 12:
      if (below(4) == 0) {
         Kem::activityManager()->advance(11);
         intent.hasTimePassed = true;
         return "11 seconds pass";
      }
      [[fallthrough]];
   default:
      return changePort();
   }
}

std::string Publishers::changePriority() {
   static constexpr unsigned priorities[] = {0, 5, 10, 10, 20, 4294967295u};
   auto const name = someInput();
   unsigned const priority = oneOf(priorities);
   if (chance()) {
      input(name)->vlanConfigPriorityIs(priority);
      intent.inputs[name].vlanPriority = priority;
      return name + " VLAN priority " + std::to_string(priority);
   }
   input(name)->switchIntfConfigPriorityIs(priority);
   intent.inputs[name].portPriority = priority;
   return name + " port priority " + std::to_string(priority);
}

std::string Publishers::changePublisher() {
   std::string const name = publishers[1 + below(2)];
   std::string const path = "bridging/input/config/" + name;
   if (!intent.inputs.contains(name)) {
      others_[name] = sw_.publish<InputConfig>(path);
      others_[name]->sourceDetailIs(name + " of the test");
      intent.inputs[name].detail = name + " of the test";
      intent.publishersEver.insert(name);
      return name + " comes";
   }
   // It takes its records away before it goes: a port that only it had would
   // stand until something looks again.
   auto const config = others_[name];
   config->switchIntfConfigDelAll();
   run();
   others_.erase(name);
   intent.inputs.erase(name);
   inputDir_->entityPtrDel(Kem::Name(name));
   return name + " goes";
}

std::string Publishers::changeVlan() {
   auto const name = someInput();
   auto& model = intent.inputs[name].vlans;
   auto const config = input(name);
   unsigned const number = someVlan();
   std::string const place = name + " VLAN " + std::to_string(number);
   Bridging::VlanId const id(number);
   if (!model.contains(number)) {
      auto const vlan = config->vlanConfigIs(id);
      model[number];
      if (chance()) {
         vlan->configuredNameIs("new");
         model[number].name = "new";
      }
      return place + " made";
   }
   auto const vlan = config->vlanConfig(id);
   auto& is = model[number];
   switch (below(5)) {
   case 0:
      config->vlanConfigDel(id);
      model.erase(number);
      return place + " deleted";
   case 1:
      is.name = "name" + std::to_string(below(3));
      vlan->configuredNameIs(is.name);
      return place + " is called " + is.name;
   case 2:
      is.isSuspended = !is.isSuspended;
      vlan->adminStateIs(is.isSuspended ? Bridging::VlanAdminState::suspended
                                        : Bridging::VlanAdminState::active);
      return place + (is.isSuspended ? " suspended" : " active");
   default:
      std::string const group = chance() ? "a" : "b";
      if (is.trunkGroups.erase(group)) {
         vlan->trunkGroupDel(group);
         return place + " leaves trunk group " + group;
      }
      vlan->trunkGroupIs(group, true);
      is.trunkGroups.insert(group);
      return place + " joins trunk group " + group;
   }
}

std::string Publishers::changePort() {
   auto const name = someInput();
   std::string const intf = oneOf(ports);
   auto& model = intent.inputs[name].ports;
   auto const config = input(name);
   std::string const place = name + " " + intf + " ";
   if (!model.contains(intf)) {
      auto const mode = static_cast<int>(below(6));
      config->switchIntfConfigIs(intf, static_cast<Bridging::Input::SwitchportMode>(mode));
      model[intf].mode = mode;
      return place + "made, mode " + std::to_string(mode);
   }
   auto const record = config->switchIntfConfig(intf);
   auto& is = model[intf];
   std::string const list = oneOf(lists);
   switch (below(16)) {
   case 0:
      config->switchIntfConfigDel(intf);
      model.erase(intf);
      return place + "deleted";
   case 1:
   case 2:
      is.enabled = !is.enabled;
      record->enabledIs(is.enabled);
      return place + (is.enabled ? "enabled" : "disabled");
   case 3:
   case 4:
      // A mode that changes while the port is disabled leaves its sets as they were.
      if (is.enabled) {
         is.mode = static_cast<int>(below(6));
         record->switchportModeIs(static_cast<Bridging::Input::SwitchportMode>(is.mode));
      }
      return place + "mode " + std::to_string(is.mode);
   case 5:
   case 6:
      is.accessVlan = usersVlan();
      record->accessVlanIs(Bridging::VlanId(is.accessVlan));
      return place + "access VLAN " + std::to_string(is.accessVlan);
   case 7:
      is.trunkNative = below(12);
      record->trunkNativeVlanIs(is.trunkNative);
      return place + "trunk native VLAN " + std::to_string(is.trunkNative);
   case 8:
      is.tapNative = below(12);
      record->tapNativeVlanIs(is.tapNative);
      return place + "tap native VLAN " + std::to_string(is.tapNative);
   case 9:
      is.trunkAllowed = list;
      record->trunkAllowedVlansIs(list);
      return place + "trunk allowed '" + list + "'";
   case 10:
      is.tapAllowed = list;
      record->tapAllowedVlansIs(list);
      return place + "tap allowed '" + list + "'";
   case 11:
      is.toolAllowed = list;
      record->toolAllowedVlansIs(list);
      return place + "tool allowed '" + list + "'";
   case 12:
      is.asym = list;
      record->asymVlansIs(list);
      return place + "asymmetric '" + list + "'";
   case 13: {
      if (is.mode == Model::tap || is.mode == Model::tool)
         return "nothing"; // what these take of trunk groups counts from the next change of another kind on
      std::string const group = chance() ? "a" : "b";
      if (is.trunkGroups.erase(group)) {
         record->trunkGroupDel(group);
         return place + "leaves trunk group " + group;
      }
      record->trunkGroupIs(group, true);
      is.trunkGroups.insert(group);
      return place + "joins trunk group " + group;
   }
   case 14:
      is.learns = chance();
      is.floods = chance();
      record->macLearningEnabledIs(is.learns);
      record->floodingEnabledIs(is.floods);
      return place + "learning and flooding";
   default:
      is.tpid = chance() ? 0x88a8 : 0x8100;
      record->vlanTpidIs(is.tpid);
      return place + "tpid";
   }
}

std::string Publishers::changeIntf() {
   std::string const intf = oneOf(ports);
   switch (below(5)) {
   case 0:
      if (intent.ethernetIntfs.erase(intf)) {
         ethIntfConfig_->intfConfigDel(intf);
         intent.shutIntfs.erase(intf);
         return intf + " configuration gone";
      }
      ethIntfConfig_->intfConfigIs(intf);
      intent.ethernetIntfs.insert(intf);
      return intf + " configuration there";
   case 1:
      if (intent.forwardingModel.erase(intf)) {
         ethIntfStatus_->intfStatusDel(intf);
         return intf + " status gone";
      }
      ethIntfStatus_->intfStatusIs(intf);
      intent.forwardingModel[intf] = 0;
      return intf + " status there";
   case 2:
      if (auto const config = ethIntfConfig_->intfConfig(intf)) {
         bool const isShut = intent.shutIntfs.erase(intf) == 0;
         if (isShut)
            intent.shutIntfs.insert(intf);
         config->enabledStateLocalIs(isShut ? Interface::EnabledState::enabledStateShutdown
                                            : Interface::EnabledState::enabledStateEnabled);
         return intf + (isShut ? " shut down" : " not shut down");
      }
      [[fallthrough]];
   default:
      if (auto const status = ethIntfStatus_->intfStatus(intf)) {
         unsigned const model = chance() ? 5 : below(5);
         status->forwardingModelIs(static_cast<Interface::IntfForwardingModel>(model));
         intent.forwardingModel[intf] = model;
         return intf + " forwarding model " + std::to_string(model);
      }
      return "nothing";
   }
}

std::string Publishers::changeVlanIntf() {
   unsigned const number = someVlan();
   std::string const intf = "Vlan" + std::to_string(number);
   if (intent.vlanIntfs.erase(number)) {
      vlanIntfs_->intfConfigDel(intf);
      return intf + " gone";
   }
   if (below(6) == 0) {
      vlanIntfs_->intfConfigIs("Vlan4095"); // of no VLAN
      return "Vlan4095 there";
   }
   vlanIntfs_->intfConfigIs(intf);
   intent.vlanIntfs.insert(number);
   return intf + " there";
}

std::string Publishers::changeSetting() {
   switch (below(7)) {
   case 0: {
      static constexpr unsigned ranges[][2] = {{20, 23}, {20, 21}, {22, 24}, {24, 20}, {30, 30}};
      auto const& [min, max] = oneOf(ranges);
      setRange(min, max);
      return "internal range " + std::to_string(min) + "-" + std::to_string(max);
   }
   case 1:
      intent.allocatesDescending = !intent.allocatesDescending;
      cli_->internalVlanAllocationPolicyIs(intent.allocatesDescending
                                               ? Bridging::InternalVlanAllocationPolicy::descending
                                               : Bridging::InternalVlanAllocationPolicy::ascending);
      return "allocation policy";
   case 2:
      intent.agingTime = below(1000);
      intent.passesPause = chance();
      cli_->hostAgingTimeIs(intent.agingTime);
      cli_->pausePassThroughIs(intent.passesPause);
      return "aging time, pause";
   case 3:
      intent.forwardingMode = below(4);
      cli_->forwardingModeIs(static_cast<Bridging::SwitchForwardingMode>(intent.forwardingMode));
      return "forwarding mode " + std::to_string(intent.forwardingMode);
   case 4:
      intent.supportedModes.clear();
      hardware_->supportedForwardingModeDelAll();
      for (unsigned i = 0, n = below(4); i < n; ++i) {
         intent.supportedModes.push_back(1 + below(3));
         hardware_->supportedForwardingModeIs(
             i, static_cast<Bridging::SwitchForwardingMode>(intent.supportedModes[i]));
      }
      return "supported forwarding modes";
   case 5: {
      unsigned const vlan = usersVlan(), fid = below(3);
      if (chance()) {
         cli_->vidToFidMapIs(Bridging::VlanId(vlan), Bridging::Fid(fid));
         intent.fids[vlan] = fid;
      } else {
         cli_->vidToFidMapDel(Bridging::VlanId(vlan));
         intent.fids.erase(vlan);
      }
      return "filtering database of " + std::to_string(vlan);
   }
   default: {
      std::string const address = "01:80:c2:00:00:0" + std::to_string(below(4));
      bool const isForwarded = chance();
      cli_->ieeeReservedForwardingIs(Sulvi::EthAddr(address), isForwarded);
      if (isForwarded)
         intent.reserved.insert(address);
      else
         intent.reserved.erase(address);
      return "reserved address " + address;
   }
   }
}

Model::Resolved Publishers::resolved() const {
   Model::Resolved all;
   for (auto const& [vlanId, vlan] : config_->vlanConfig()) {
      auto& to = all.vlans[vlanId];
      to.internal = vlan->internal();
      to.isSuspended = vlan->adminState() != Bridging::VlanAdminState::active;
      to.source = vlan->configSource().str();
      to.name = vlan->configuredName().str();
      for (auto const& [group, value] : vlan->trunkGroup())
         to.trunkGroups.insert(group.str() + (value ? "" : " false"));
      for (auto const& [intf, member] : vlan->intf()) {
         if (intf == Sulvi::IntfId("Cpu"))
            to.hasCpu = true;
         else
            to.members[intf.stringValue().str()] = {member.tagged, member.mappedUntagged,
                                                    static_cast<unsigned>(member.direction)};
      }
   }
   for (auto const& [intf, port] : config_->switchIntfConfig()) {
      auto& to = all.ports[intf.stringValue().str()];
      to.mode = static_cast<int>(port->switchportModeAndNativeVlan().switchportMode);
      to.native = port->switchportModeAndNativeVlan().nativeVlan;
      to.learns = port->macLearningEnabled();
      to.floods = port->floodingEnabled();
      to.takesTagged = port->allowTaggedPkts();
      to.isAsym = port->asymVlanEnabled();
      to.filters = port->enableIngressFiltering();
      to.tpid = port->vlanTpid();
   }
   for (auto const& [intf, time] : cause_->intfStatus())
      all.waiting.insert(intf.stringValue().str());
   // References lead to records that only the agent has mounted.
   for (auto const& [intf, record] :
        sw_.agent->bridgingConfigSm()->allSwitchIntfConfigs()->switchIntfConfig())
      all.chosen[intf.stringValue().str()] =
          record->parent() ? record->parent()->name().str() : "a dead input";
   all.detail = config_->vlanConfigSourceDetail().str();
   all.rangeMin = config_->internalVlanRange().min;
   all.rangeMax = config_->internalVlanRange().max;
   all.allocatesDescending =
       config_->internalVlanAllocationPolicy() != Bridging::InternalVlanAllocationPolicy::ascending;
   all.agingTime = config_->hostAgingTime();
   all.passesPause = config_->pausePassThrough();
   all.forwardingMode = static_cast<unsigned>(config_->forwardingMode());
   for (auto const& [vlan, fid] : config_->vidToFidMap())
      all.fids[vlan] = fid;
   for (auto const& [address, value] : config_->ieeeReservedForwarding())
      all.reserved.insert(address.stringValue().str() + (value ? "" : " false"));
   return all;
}

TEST(BridgingProperty, resolvedTreeIsWhatAPlainAccountOfTheIntentSays) {
   unsigned const sequences = numberFrom("BRIDGING_SEQUENCES", 200), first = numberFrom("BRIDGING_SEED", 1);
   unsigned const steps = numberFrom("BRIDGING_STEPS", 200);
   Kem::traceToStandardErrorIs(false);
   for (unsigned seed = first; seed < first + sequences; ++seed) {
      Publishers publishers(seed);
      publishers.run();
      ASSERT_EQ(differences(publishers.intent, publishers.resolved()), "")
          << "seed " << seed << ", at the start";
      std::ostringstream history;
      for (unsigned i = 0; i < steps; ++i) {
         history << i << ": " << publishers.step() << "\n";
         publishers.run();
         ASSERT_EQ(differences(publishers.intent, publishers.resolved()), "") << "seed " << seed << "\n"
                                                                              << history.str();
      }
      publishers.restartAgent();
      ASSERT_EQ(differences(publishers.intent, publishers.resolved()), "")
          << "seed " << seed << ", after the restart of the agent\n"
          << history.str();
   }
}

} // namespace
