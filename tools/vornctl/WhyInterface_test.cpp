#include "Failures.h"
#include "RoutedWorld.h"
#include "WhyInterface.h"

#include "records/Bridging/SviMappingState.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

struct WhyInterfaceTest : testing::Test {
   RoutedWorld world;
   SwitchState& state = world.state;

   Findings byRules(char const* name) { return explainState(state, routedIntf(state, name)); }
   Findings device(char const* name) {
      KernelView kernel(state.agentProcess);
      return explainDevice(state, kernel, routedIntf(state, name));
   }
   // The deciding rule as "yes, Rule: finding".
   static std::string decision(Findings const& findings) {
      EXPECT_FALSE(findings.rules.empty());
      if (findings.rules.empty())
         return {};
      // Whoever asks why something is down is helped, and nobody else bothered.
      EXPECT_EQ(findings.isSo, findings.advice.empty());
      return (findings.isSo ? "yes, " : "no, ") + findings.rules.back().name + ": " +
             findings.rules.back().finding;
   }
   std::string why(char const* name) { return decision(byRules(name)); }
   std::string whyDevice(char const* name) { return decision(device(name)); }
   std::string advice(char const* name) { return byRules(name).advice.at(0); }
   std::string deviceAdvice(char const* name) { return device(name).advice.at(0); }
};

// --- VLAN interfaces, by the rows of the table.

TEST_F(WhyInterfaceTest, vlanInterfaceIsUpByItsForwardingPorts) {
   world.vlanIntf(10);
   world.forwards(10, "Port-Channel5");
   EXPECT_EQ(why("Vlan10"), "yes, Forwarding ports: Et1 and Po5 of VLAN 10 forward");
   IntfAnswer const answer = whyIntf(state, "Vlan10", {});
   EXPECT_TRUE(answer.isUp);
   EXPECT_EQ(answer.text, "Vlan10 is up: it has a forwarding port in its VLAN.\n"
                          "\n"
                          "  Configuration     static, by cli\n"
                          "  Enabled           yes\n"
                          "> Forwarding ports  Et1 and Po5 of VLAN 10 forward\n"
                          "\n"
                          "Its kernel device:\n"
                          "  Device  vlan10, index 3, in the namespace default\n");
}

TEST_F(WhyInterfaceTest, vlanInterfaceOfNobody) {
   world.vlanIntf(10);
   state.vlanIntfConfig->intfConfigDel("Vlan10");
   EXPECT_THAT(why("Vlan10"), StartsWith("no, Configuration: nobody configures it"));
   EXPECT_EQ(advice("Vlan10"),
             "configure it: ordelctl set 'interface/config/eth/vlan.intfConfig[Vlan10]' '{}'");
   EXPECT_THROW(whyIntf(state, "Vlan11", {}), Absent);
}

TEST_F(WhyInterfaceTest, vlanInterfaceWithoutStatusRecords) {
   world.vlanIntf(10);
   state.vlanIntfStatus->intfStatusDel("Vlan10");
   EXPECT_THAT(why("Vlan10"),
               StartsWith("no, Status: it has no record in interface/status/eth/vlan, which the "
                          "interface manager makes"));
   IntfAnswer const answer = whyIntf(state, "Vlan10", {});
   EXPECT_FALSE(answer.isUp);
   EXPECT_THAT(answer.text, StartsWith("Vlan10 is not up: it has no status record.\n"));
   EXPECT_THAT(answer.text, Not(HasSubstr("Its kernel device"))) << "there is but one thing to say";
   state.vlanIntfStatus->intfStatusIs("Vlan10");
   state.vlanIntfStatusLocal->intfStatusLocalDel("Vlan10");
   EXPECT_EQ(whyDevice("Vlan10"),
             "no, Records: the interface manager, which makes them with the configuration, has "
             "made no local status record yet");
}

TEST_F(WhyInterfaceTest, vlanInterfaceWhoseConfigurationIsNotTakenUp) {
   world.vlanIntf(10);
   state.vlanIntfStatus->intfStatus("Vlan10")->intfConfigIs(nullptr);
   EXPECT_EQ(why("Vlan10"), "no, Status: the agent hasn't taken the configuration up yet");
}

TEST_F(WhyInterfaceTest, vlanInterfaceThatIsShutDown) {
   auto const config = world.vlanIntf(10);
   config->enabledIs(false);
   EXPECT_THAT(why("Vlan10"), StartsWith("no, Enabled: it is not enabled: its publisher holds it down"));
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_THAT(why("Vlan10"), StartsWith("no, Enabled: it is shut down by configuration"));
   EXPECT_EQ(advice("Vlan10"),
             "bring it up: set interface/config/eth/vlan.intfConfig[Vlan10].enabledStateLocal to "
             "enabledStateEnabled");
   // Of a dynamic one, in the place that its source has.
   state.vlanIntfConfig->intfConfigDel("Vlan10");
   auto const dynamic = world.dynVlanIntfs("overlay", 7)->intfConfigIs("Vlan10");
   world.dynVlanIntfs("lab", 3)->intfConfigIs("Vlan10");
   dynamic->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   world.status(10, dynamic);
   EXPECT_THAT(advice("Vlan10"),
               HasSubstr("set interface/input/dynvlanintf/overlay.intfConfig[Vlan10].enabledStateLocal to"));
   EXPECT_EQ(byRules("Vlan10").rules[0].finding, "dynamic source overlay by its number 7; lost: lab 3");
}

TEST_F(WhyInterfaceTest, vlanInterfaceOfASecondaryVlan) {
   world.vlanIntf(10);
   world.vlan(5);
   state.config->vlanConfig(10)->vlanTypeAndPrimaryVlanIs(
       {.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 5});
   EXPECT_THAT(why("Vlan10"),
               StartsWith("no, Private VLAN: VLAN 10 is a secondary of VLAN 5: the interface"));
   EXPECT_THAT(advice("Vlan10"), StartsWith("use the interface Vlan5 instead"));
   state.config->vlanConfigDel(5);
   EXPECT_THAT(why("Vlan10"), StartsWith("no, Private VLAN: VLAN 10 is a secondary of nobody"))
       << "also without a pair";
   state.config->vlanConfigDel(10);
   EXPECT_THAT(why("Vlan10"), StartsWith("yes, Forwarding ports")) << "a VLAN without a record has no role";
}

TEST_F(WhyInterfaceTest, vlanInterfaceBeforeSpanningTree) {
   world.vlanIntf(10);
   state.vlanStatus = nullptr;
   EXPECT_THAT(why("Vlan10"), StartsWith("no, Forwarding ports: nothing is known of forwarding ports"));
   EXPECT_THAT(showInterface(state, Sulvi::IntfId("Vlan10"), {}), HasSubstr("forwarding ports      none\n"));
}

TEST_F(WhyInterfaceTest, vlanInterfaceWithoutForwardingPorts) {
   world.vlanIntf(10);
   world.noPortForwards(10);
   world.forwards(10, "Cpu");
   EXPECT_EQ(why("Vlan10"),
             "no, Autostate: on for this interface and for all, so it is down without a forwarding port");
   EXPECT_EQ(byRules("Vlan10").rules[2].finding, "no port of VLAN 10 forwards, other than the processor's");
   // Why none does, from the far end to the near one.
   EXPECT_THAT(advice("Vlan10"), StartsWith("no port is a member of VLAN 10"));
   world.member(10, "Ethernet1", true);
   EXPECT_THAT(advice("Vlan10"), StartsWith("its member ports don't forward: see whether Et1 has a link"));
   world.member(10, "Ethernet2", true);
   EXPECT_THAT(advice("Vlan10"),
               StartsWith("its member ports don't forward: see whether Et1 and Et2 have a link"));
   state.config->vlanConfig(10)->adminStateIs(Bridging::VlanAdminState::suspended);
   EXPECT_EQ(advice("Vlan10"), "VLAN 10 is suspended: have it made active by cli, which it comes from");
   state.config->vlanConfigDel(10);
   EXPECT_THAT(advice("Vlan10"), StartsWith("VLAN 10 doesn't exist"));
   EXPECT_EQ(byRules("Vlan10").advice.back(),
             "or let it be up without a port: set "
             "interface/config/eth/vlan.intfConfig[Vlan10].autoState to false");
}

TEST_F(WhyInterfaceTest, vlanInterfaceThatIsUpWithoutAutostate) {
   auto const config = world.vlanIntf(10);
   world.noPortForwards(10);
   state.allVlanIntfAutoState->autoStateIs(false);
   EXPECT_THAT(why("Vlan10"), StartsWith("yes, Autostate: off for all VLAN interfaces"));
   config->autoStateIs(false);
   EXPECT_THAT(why("Vlan10"), StartsWith("yes, Autostate: off for this interface"));
}

TEST_F(WhyInterfaceTest, vlanInterfaceWithANumberThatNoVlanHas) {
   for (char const* const name : {"Vlan0", "Vlan4095"}) {
      state.vlanIntfConfig->intfConfigIs(name);
      EXPECT_EQ(why(name), "no, Name: no VLAN has that number: VLAN interfaces are Vlan1 to Vlan4094");
      EXPECT_FALSE(whyIntf(state, name, {}).isUp);
   }
}

// --- Subinterfaces, by the rows of the table and in its order.

TEST_F(WhyInterfaceTest, subinterfaceIsHeldDownByTheFirstConditionOfTheTable) {
   // All that can be wrong is; one after the other is put right.
   auto const config = world.subIntf(7, 0);
   auto const rival = world.subIntf(8, 100);
   state.config->bridgeMacAddrIs(Sulvi::EthAddr::ethAddrZero());
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   config->encapTypeIs(SubIntfEncapType::subIntfEncapNone);
   state.allIntfStatus->intfStatusDel("Ethernet1");
   state.subIntfHwStatus->subIntfStatusDel("Ethernet1.7");
   std::string const attributes = "interface/config/subintf.intfConfig[Ethernet1.7].";

   EXPECT_THAT(why("Ethernet1.7"), StartsWith("no, Enabled: it is shut down by configuration"));
   EXPECT_EQ(advice("Ethernet1.7"),
             "bring it up: set " + attributes + "enabledStateLocal to enabledStateEnabled");
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateDefault);
   EXPECT_THAT(why("Ethernet1.7"),
               StartsWith("no, Bridge address: bridging/config.bridgeMacAddr is not set"));
   state.config->bridgeMacAddrIs(world.bridgeAddr);
   EXPECT_EQ(why("Ethernet1.7"), "no, VLAN: no VLAN number is configured");
   EXPECT_EQ(advice("Ethernet1.7"), "set " + attributes + "vlanId");
   config->vlanIdIs(100);
   EXPECT_EQ(why("Ethernet1.7"),
             "no, VLAN: Et1.8 of the same parent claims VLAN 100 too, and none of them gets it");
   EXPECT_THAT(why("Ethernet1.8"), StartsWith("no, VLAN: Et1.7 of the same parent")) << "both fall";
   rival->vlanIdIs(101);
   EXPECT_EQ(why("Ethernet1.7"), "no, Encapsulation: none is configured");
   EXPECT_EQ(advice("Ethernet1.7"), "set " + attributes + "encapType to subIntfEncapDot1q");
   config->encapTypeIs(SubIntfEncapType::subIntfEncapDot1q);
   EXPECT_THAT(why("Ethernet1.7"), StartsWith("no, Parent: Ethernet1 has no record in interface/status/all"));
   auto const parent = state.allIntfStatus->intfStatusIs("Ethernet1");
   parent->operStatusIs(IntfOperStatus::intfOperNotPresent);
   EXPECT_EQ(why("Ethernet1.7"), "no, Parent: Ethernet1 is not present");
   EXPECT_EQ(advice("Ethernet1.7"), "see why: vornctl why Ethernet1");
   parent->operStatusIs(IntfOperStatus::intfOperUp);
   parent->forwardingModelIs(IntfForwardingModel::intfForwardingModelBridged);
   EXPECT_EQ(why("Ethernet1.7"),
             "no, Parent: Ethernet1 is up, but not a routed port: its forwarding model is bridged");
   parent->forwardingModelIs(IntfForwardingModel::intfForwardingModelRouted);
   EXPECT_EQ(why("Ethernet1.7"), "no, Hardware: not programmed: no forwarding agent has answered yet");
   auto const hardware = state.subIntfHwStatus->subIntfStatusIs("Ethernet1.7");
   EXPECT_EQ(why("Ethernet1.7"), "no, Hardware: not programmed: hardwareSuccess is false");
   hardware->hardwareSuccessIs(true);
   EXPECT_EQ(why("Ethernet1.7"), "yes, Hardware: programmed, and nothing else holds it down");

   std::vector<std::string> names;
   for (Rule const& rule : byRules("Ethernet1.7").rules)
      names.push_back(rule.name);
   EXPECT_THAT(names, ElementsAre("Configuration", "Enabled", "Bridge address", "VLAN", "Encapsulation",
                                  "Parent", "Hardware"));
}

TEST_F(WhyInterfaceTest, subinterfaceWithoutRecords) {
   world.subIntf(7, 100);
   state.subIntfStatus->intfStatusDel("Ethernet1.7");
   EXPECT_THAT(why("Ethernet1.7"), StartsWith("no, Status: it has no record in interface/status/subintf"));
   EXPECT_THAT(whyIntf(state, "Ethernet1.7", {}).text,
               StartsWith("Ethernet1.7 is not up: it has no status record."));
   state.subIntfStatus->intfStatusIs("Ethernet1.7");
   state.subIntfConfig->intfConfigDel("Ethernet1.7");
   EXPECT_THAT(why("Ethernet1.7"), StartsWith("no, Configuration: nobody configures it"));
}

TEST_F(WhyInterfaceTest, subinterfaceThatTheSwitchCannotHave) {
   for (char const* const name : {"Ethernet1.4095", "Loopback0.5"}) {
      state.subIntfConfig->intfConfigIs(name);
      EXPECT_THAT(why(name), StartsWith("no, Name: ")) << name;
      EXPECT_FALSE(whyIntf(state, name, {}).isUp);
   }
}

// --- Others.

TEST_F(WhyInterfaceTest, portIsExplainedAsFarAsItsRecordsGo) {
   world.parent();
   EXPECT_EQ(why("Ethernet1"), "yes, Status: up, as its own agent says");
   EXPECT_TRUE(whyIntf(state, "Ethernet1", {}).isUp);
   auto const config = state.allIntfConfig->intfConfigIs("Ethernet1");
   TestWorld::entity<Errdisable::CauseStatus>(state.causes, "link-flap")->intfStatusIs("Ethernet1", 990);
   EXPECT_EQ(why("Ethernet1"), "no, Errdisable: disabled by link-flap");
   config->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_THAT(why("Ethernet1"), StartsWith("no, Enabled: it is shut down by configuration"));
   state.allIntfConfig->intfConfigIs("Ethernet2");
   EXPECT_THAT(why("Ethernet2"), StartsWith("no, Status: it has no record in interface/status/all"));
   EXPECT_THAT(whyIntf(state, "Ethernet2", {}).text, Not(HasSubstr("Its kernel device")));
}

// --- The device.

TEST_F(WhyInterfaceTest, deviceOfAnInterfaceThatIsDownMayBeThere) {
   auto const config = world.vlanIntf(10);
   EXPECT_EQ(whyDevice("Vlan10"), "yes, Device: vlan10, index 3, in the namespace default");
   config->enabledIs(false);
   world.kernel.upIs("vlan10", false);
   EXPECT_THAT(whyDevice("Vlan10"), StartsWith("yes, Device state: down, as an interface"));
}

TEST_F(WhyInterfaceTest, deviceThatIsAwayHasAReason) {
   world.vlanIntf(10);
   world.kernel.deviceDel("vlan10");
   std::string const missing = "there is no device vlan10 in the namespace default: ";
   EXPECT_EQ(whyDevice("Vlan10"), "no, Device: " + missing + "nothing is known to keep it away");
   state.agentPid = 0;
   EXPECT_EQ(whyDevice("Vlan10"), "no, Agent: " + missing + "no agent is connected to the database");
   state.agentStatus->deviceProblemIs("Vlan10", "the kernel says no");
   EXPECT_EQ(whyDevice("Vlan10"), "no, Device: " + missing + "the kernel says no");
   world.kernel.deviceDel("fabric");
   EXPECT_EQ(whyDevice("Vlan10"),
             "no, Fabric device: there is no device fabric, which all VLAN interfaces are on");
   state.agentStatus->kernelProblemIs("it has no 802.1Q");
   EXPECT_EQ(whyDevice("Vlan10"), "no, Kernel: " + missing + "it has no 802.1Q");
   world.configureInto("Vlan10", "red");
   EXPECT_EQ(whyDevice("Vlan10"),
             "no, Namespace: the namespace red, which it is configured into, doesn't exist");
   EXPECT_THAT(deviceAdvice("Vlan10"), StartsWith("make it: ip netns add red"));
   world.configureInto("Vlan10", "red; reboot");
   EXPECT_THAT(deviceAdvice("Vlan10"), StartsWith("make it: ip netns add 'red; reboot'; or"));
   IntfAnswer const answer = whyIntf(state, "Vlan10", {});
   EXPECT_FALSE(answer.isUp) << "up by its record, but of no use";
   EXPECT_THAT(answer.text,
               StartsWith("Vlan10 is up: it has a forwarding port in its VLAN; but something is wrong "
                          "with its device.\n"));
}

TEST_F(WhyInterfaceTest, deviceOfASubinterfaceThatIsAway) {
   auto const config = world.subIntf(7, 100);
   world.kernel.deviceDel("et1.7");
   world.kernel.deviceDel("et1");
   EXPECT_EQ(whyDevice("Ethernet1.7"), "no, Parent device: there is no device et1, which it is to be on");
   config->vlanIdIs(0);
   EXPECT_EQ(whyDevice("Ethernet1.7"),
             "no, VLAN: there is no device et1.7 in the namespace default: it has no VLAN number");
   // More than the kernel takes.
   Sulvi::IntfId const longName("Ethernet12345/6789.100");
   state.subIntfConfig->intfConfigIs(longName)->vlanIdIs(5);
   state.subIntfStatus->intfStatusIs(longName);
   state.subIntfStatusLocal->intfStatusLocalIs(longName);
   world.kernel.deviceIs("et12345_6789");
   EXPECT_EQ(whyDevice("Ethernet12345/6789.100"), "no, Device: there is no device et12345_6789.100 in the "
                                                  "namespace default: the kernel takes no name of "
                                                  "more than 15 characters");
}

TEST_F(WhyInterfaceTest, deviceInTheWrongShapeOrPlace) {
   world.vlanIntf(10);
   state.agentStatus->deviceProblemIs("Vlan10", "an MTU of 70000 is out of range");
   EXPECT_EQ(whyDevice("Vlan10"), "no, Device: an MTU of 70000 is out of range");
   state.agentStatus->deviceProblemDel("Vlan10");
   world.kernel.namespaceIs("red");
   world.configureInto("Vlan10", "red");
   EXPECT_EQ(whyDevice("Vlan10"), "no, Namespace: it is configured into red, and not there yet");
   world.configureInto("Vlan10", "");
   EXPECT_THAT(whyDevice("Vlan10"), StartsWith("yes, ")) << "an empty name is the default namespace";
   world.kernel.deviceDel("vlan10");
   world.kernel.deviceIs("vlan10", "bridge");
   EXPECT_EQ(whyDevice("Vlan10"), "no, Device: it is no VLAN device, but one of the kind bridge");
}

TEST_F(WhyInterfaceTest, deviceThatIsDownThoughItIsToBeUp) {
   world.vlanIntf(10);
   world.kernel.upIs("vlan10", false);
   EXPECT_EQ(whyDevice("Vlan10"), "no, Device state: the device is down, and it is to be up");
   EXPECT_THAT(deviceAdvice("Vlan10"), HasSubstr("ip link set dev vlan10 up"));
   state.config->bridgeMacAddrIs(Sulvi::EthAddr::ethAddrZero());
   EXPECT_THAT(whyDevice("Vlan10"), StartsWith("no, Bridge address: "));
   world.kernel.upIs("fabric", false);
   EXPECT_EQ(whyDevice("Vlan10"), "no, Fabric device: fabric is down, and VLAN interfaces wait for it");
   // A VLAN interface's device doesn't wait for forwarding ports, a subinterface's for its state.
   world.kernel.upIs("fabric", true); // which brings its VLAN devices up
   world.kernel.upIs("vlan10", false);
   world.noPortForwards(10);
   EXPECT_THAT(whyDevice("Vlan10"), StartsWith("no, Bridge address: "));
   world.subIntf(7, 100);
   world.kernel.upIs("et1.7", false);
   EXPECT_THAT(whyDevice("Ethernet1.7"), StartsWith("no, Device state: the device is down, and"));
   state.subIntfStatus->intfStatus("Ethernet1.7")->operStatusIs(IntfOperStatus::intfOperDormant);
   EXPECT_THAT(whyDevice("Ethernet1.7"), StartsWith("yes, Device state: down, as"));
}

TEST_F(WhyInterfaceTest, deviceThatCannotBeSeenIsNotTakenForMissing) {
   world.vlanIntf(10);
   world.moveVlanIntf(10, "red");
   world.kernel.fail("setns", EPERM, 1, true);
   EXPECT_EQ(whyDevice("Vlan10"),
             "yes, Device: nothing can be said of vlan10 in the namespace red: it can't be "
             "entered: Operation not permitted");
   EXPECT_TRUE(whyIntf(state, "Vlan10", {}).isUp);
}

// --- The answer as a whole.

TEST_F(WhyInterfaceTest, stateThatTheRulesDoNotGiveIsSaid) {
   world.vlanIntf(10);
   world.noPortForwards(10);
   state.vlanIntfStatus->intfStatus("Vlan10")->operStatusChangeIs({.time = 940, .count = 2});
   state.agentPid = 0;
   IntfAnswer const answer = whyIntf(state, "Vlan10", {.width = 200});
   EXPECT_TRUE(answer.isUp) << "the record counts";
   EXPECT_THAT(answer.text,
               StartsWith("Vlan10 is up.\nThe state last changed 60 s ago, 2 changes so far.\n\n"));
   EXPECT_THAT(answer.text,
               HasSubstr("\nBy these rules it would be lower layer down: the agent hasn't evaluated it yet"));
   EXPECT_THAT(answer.text, HasSubstr("\nThe agent is not connected to the database"));
   EXPECT_THAT(answer.text, HasSubstr("\nWhat to do:\n  - no port is a member of VLAN 10"));
   // Down in another way than it should be is a difference, too.
   state.vlanIntfStatus->intfStatus("Vlan10")->operStatusIs(IntfOperStatus::intfOperUnknown);
   EXPECT_THAT(whyIntf(state, "Vlan10", {}).text, HasSubstr("By these rules it would be lower layer down"));
   state.vlanIntfStatus->intfStatus("Vlan10")->operStatusIs(IntfOperStatus::intfOperLowerLayerDown);
   EXPECT_THAT(whyIntf(state, "Vlan10", {}).text, Not(HasSubstr("By these rules")));
}

TEST_F(WhyInterfaceTest, jsonHasTheRulesAndTheFacts) {
   world.vlanIntf(10);
   world.kernel.upIs("vlan10", false);
   IntfAnswer const answer = whyIntf(state, "Vlan10", {.wantsJson = true});
   json const parsed = json::parse(answer.text);
   EXPECT_EQ(parsed["interface"], "Vlan10");
   EXPECT_EQ(parsed["isUp"], false);
   EXPECT_EQ(parsed["state"], "up");
   EXPECT_EQ(parsed["row"], 5);
   EXPECT_EQ(parsed["rules"].back(),
             json({{"rule", "Forwarding ports"}, {"finding", "Et1 of VLAN 10 forward"}, {"decides", true}}));
   EXPECT_EQ(parsed["isDeviceGood"], false);
   EXPECT_EQ(parsed["deviceRules"].back()["rule"], "Device state");
   EXPECT_EQ(parsed["advice"].size(), 1u);
   EXPECT_EQ(parsed["kernel"]["isUp"], false);
   EXPECT_EQ(parsed["agentPid"], 77);
}

} // namespace
