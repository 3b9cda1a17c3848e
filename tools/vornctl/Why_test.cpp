#include "Why.h"

#include "Failures.h"
#include "TestWorld.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Bridging::VlanAdminState;
using Bridging::VlanType;

struct WhyTest : testing::Test {
   // What decides, as "rule: finding", after yes or no.
   std::string decision(char const* port, uint16_t vlan) {
      Explanation const explanation = explain(state, port, vlan);
      EXPECT_TRUE(explanation.isDecided());
      for (size_t i = 0; i + 1 < explanation.rules.size(); ++i)
         EXPECT_FALSE(explanation.rules[i].decides) << explanation.rules[i].name;
      EXPECT_EQ(explanation.isMember(), explanation.advice.empty())
          << "advice where it isn't a member, and only there";
      return (explanation.isMember() ? "yes, " : "no, ") + explanation.rules.back().name + ": " +
             explanation.rules.back().finding;
   }
   std::string finding(char const* port, uint16_t vlan, std::string const& rule) {
      for (Rule const& each : explain(state, port, vlan).rules)
         if (each.name == rule)
            return each.finding;
      return "there is no rule " + rule;
   }
   std::vector<std::string> advice(char const* port, uint16_t vlan) {
      return explain(state, port, vlan).advice;
   }

   TestWorld world;
   SwitchState& state = world.state;
};

// --- The whole answer.

TEST_F(WhyTest, answerShowsInputModeVlanAndTheRuleThatDecides) {
   world.vlan(10, "servers");
   world.vlan(99);
   auto const lab = world.input("lab", 0, 60);
   auto const record = world.record(lab, "Ethernet8", InputMode::trunk_);
   record->trunkAllowedVlansIs("99-102");
   record->trunkNativeVlanIs(99);
   world.record(world.cli, "Ethernet8", InputMode::access_)->accessVlanIs(10);
   world.record(world.eth, "Ethernet8", InputMode::access_);
   world.resolve(record, SwitchportMode::trunk_, 99);
   WhyAnswer const answer = why(state, "Ethernet8", 10, {});
   EXPECT_FALSE(answer.isMember);
   EXPECT_EQ(answer.text, "Ethernet8 is not a member of VLAN 10.\n"
                          "\n"
                          "  Input          lab decides the port by its number 60; lost: cli 50 and eth 10\n"
                          "  Mode           trunk\n"
                          "  Native VLAN    99\n"
                          "  VLAN           exists: \"servers\", from cli\n"
                          "  VLAN status    active\n"
                          "> Allowed VLANs  the list 99-102 (trunkAllowedVlans) lacks VLAN 10\n"
                          "\n"
                          "What to do:\n"
                          "  - add 10 to\n"
                          "    bridging/input/config/lab.switchIntfConfig[Ethernet8].trunkAllowedVlans\n"
                          "  - or raise switchIntfConfigPriority of cli, which asks for VLAN 10 on the port\n"
                          "    (access), above 60; all its ports then weigh more\n");
}

TEST_F(WhyTest, answerSaysHowAMemberTakesPart) {
   world.vlan(10);
   world.trunkPort("Ethernet1", "1-4094");
   world.member(10, "Ethernet1", true);
   WhyAnswer const answer = why(state, "Ethernet1", 10, {});
   EXPECT_TRUE(answer.isMember);
   EXPECT_THAT(answer.text, StartsWith("Ethernet1 is a member of VLAN 10: tagged.\n"));
   EXPECT_THAT(answer.text, Not(HasSubstr("What to do")));
}

TEST_F(WhyTest, jsonHoldsTheRulesAndWhoLost) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.record(world.eth, "Ethernet1", InputMode::access_);
   world.member(10, "Ethernet1", false);
   auto const answer = json::parse(why(state, "Ethernet1", 10, {.wantsJson = true}).text);
   EXPECT_EQ(answer["isMember"], true);
   EXPECT_EQ(answer["isMemberByRules"], true);
   EXPECT_EQ(answer["input"], "cli");
   EXPECT_EQ(answer["inputPriority"], 50);
   EXPECT_EQ(answer["losers"][0]["name"], "eth");
   EXPECT_EQ(answer["mode"], "access");
   EXPECT_EQ(answer["nativeVlan"], 10);
   EXPECT_EQ(answer["rules"].back()["rule"], "Access port");
   EXPECT_EQ(answer["rules"].back()["decides"], true);
   EXPECT_EQ(answer["advice"], json::array());
   EXPECT_EQ(answer["agentPid"], 77);
}

TEST_F(WhyTest, resolvedStateCountsAndADifferenceToTheRulesIsReported) {
   world.vlan(10);
   world.trunkPort("Ethernet1", "1-9");
   world.member(10, "Ethernet1", true);
   WhyAnswer const left = why(state, "Ethernet1", 10, {});
   EXPECT_TRUE(left.isMember);
   EXPECT_THAT(left.text, HasSubstr("By these rules it would not be a member"));
   world.trunkPort("Ethernet2", "1-10");
   WhyAnswer const coming = why(state, "Ethernet2", 10, {});
   EXPECT_FALSE(coming.isMember);
   EXPECT_THAT(coming.text, HasSubstr("By these rules it would be a member"));
}

TEST_F(WhyTest, memberInAnotherWayThanByTheRulesIsReported) {
   world.vlan(10);
   world.trunkPort("Ethernet1", "10");
   world.member(10, "Ethernet1", true);
   EXPECT_THAT(why(state, "Ethernet1", 10, {}).text, Not(HasSubstr("By these rules")));
   world.resolve("Ethernet1", SwitchportMode::trunk_, 10);
   WhyAnswer const answer = why(state, "Ethernet1", 10, {});
   EXPECT_THAT(answer.text, StartsWith("Ethernet1 is a member of VLAN 10: tagged.\n"));
   EXPECT_THAT(answer.text, HasSubstr("By these rules it would be a member in another way: untagged."));
}

TEST_F(WhyTest, secondaryWithoutAPrimaryIsExplainedAllTheSame) {
   world.vlan(10)->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::secondary_, .primaryVlan = 0});
   world.accessPort("Ethernet1", 10);
   world.member(10, "Ethernet1", false);
   EXPECT_THAT(decision("Ethernet1", 10), StartsWith("yes, Access port"));
   EXPECT_TRUE(why(state, "Ethernet1", 10, {}).isMember);
}

TEST_F(WhyTest, absentAgentIsReported) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.member(10, "Ethernet1", false);
   EXPECT_THAT(why(state, "Ethernet1", 10, {}).text, Not(HasSubstr("agent")));
   state.agentPid = 0;
   EXPECT_THAT(why(state, "Ethernet1", 10, {}).text, HasSubstr("The agent is not connected to the database"));
   EXPECT_EQ(json::parse(why(state, "Ethernet1", 10, {.wantsJson = true}).text)["agentPid"], nullptr);
}

TEST_F(WhyTest, portThatNobodyKnowsIsNamed) {
   EXPECT_THAT([&] { why(state, "Ethernet9", 10, {}); },
               testing::ThrowsMessage<Absent>("Ethernet9: there is no such port"));
   state.ethIntfStatus->intfStatusIs("Ethernet9");
   EXPECT_NO_THROW(why(state, "Ethernet9", 10, {}));
}

// --- The input of the port.

TEST_F(WhyTest, portWithoutARecordIsInNoVlan) {
   state.ethIntfConfig->intfConfigIs("Ethernet1");
   EXPECT_EQ(decision("Ethernet1", 10), "no, Input: no input holds a record for the port");
}

TEST_F(WhyTest, recordOfAnInputThatTakesNoPartDoesNotCount) {
   world.record(world.input("lab", 0, 0), "Ethernet1", InputMode::access_);
   EXPECT_EQ(decision("Ethernet1", 10), "no, Input: no input takes part with a record for the port: lab 0");
   EXPECT_THAT(advice("Ethernet1", 10),
               ElementsAre("set switchIntfConfigPriority of bridging/input/config/lab above 0"));
}

TEST_F(WhyTest, recordThatTheAgentHasNotTakenUpIsReported) {
   auto const record = world.record(world.cli, "Ethernet1", InputMode::access_);
   EXPECT_THAT(decision("Ethernet1", 10), HasSubstr("the agent has not chosen among the inputs yet: cli 50"));
   state.chosen->switchIntfConfigIs(record);
   EXPECT_EQ(decision("Ethernet1", 10), "no, Port: the agent has not taken the record up yet");
}

TEST_F(WhyTest, recordThatNoInputHoldsAnyMoreIsReported) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.cli->switchIntfConfigDel("Ethernet1");
   EXPECT_EQ(finding("Ethernet1", 10, "Input"), "a record that no input holds any more");
}

TEST_F(WhyTest, choiceThatIsOnItsWayIsReported) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   EXPECT_EQ(finding("Ethernet1", 10, "Input"), "cli decides the port by its number 50");
   world.record(world.input("lab", 0, 60), "Ethernet1", InputMode::access_);
   EXPECT_EQ(finding("Ethernet1", 10, "Input"),
             "cli decides the port by its number 50; lost: lab 60; that lab is to decide it is on its way");
}

TEST_F(WhyTest, onlyLosersThatWouldHelpAreNamed) {
   world.vlan(10);
   world.vlan(20);
   world.trunkPort("Ethernet1", "20");
   auto const lab = world.record(world.input("lab", 0, 40), "Ethernet1", InputMode::access_);
   auto const namesLab = [&] {
      for (std::string const& each : advice("Ethernet1", 10))
         if (each.find("raise switchIntfConfigPriority of lab") != each.npos)
            return true;
      return false;
   };
   lab->accessVlanIs(10);
   EXPECT_TRUE(namesLab());
   lab->asymVlansIs("20"); // an asymmetric port is in its list only
   EXPECT_FALSE(namesLab());
   lab->asymVlansIs("10");
   EXPECT_TRUE(namesLab());
   lab->enabledIs(false);
   EXPECT_FALSE(namesLab());
   lab->enabledIs(true);
   lab->switchportModeIs(InputMode::tap_);
   EXPECT_TRUE(namesLab());
   lab->tapAllowedVlansIs("20");
   EXPECT_FALSE(namesLab());
}

// --- Mode and native VLAN.

TEST_F(WhyTest, modeThatIsOnItsWayIsReported) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.resolve("Ethernet1", SwitchportMode::trunk_, 10);
   EXPECT_EQ(finding("Ethernet1", 10, "Mode"), "trunk; the record asks for access, which is on its way");
   world.cli->switchIntfConfig("Ethernet1")->enabledIs(false);
   EXPECT_EQ(finding("Ethernet1", 10, "Mode"), "trunk; the record asks for routed, which is on its way");
}

// States between two writes of the agent; none of them may end vornctl.
TEST_F(WhyTest, portThatIsResolvedInContradictionIsExplained) {
   world.vlan(10);
   world.trunkPort("Ethernet1", "10");
   state.config->switchIntfConfig("Ethernet1")->asymVlanEnabledIs(true);
   EXPECT_THAT(decision("Ethernet1", 10), StartsWith("no, Mode: no rule is for a port"));
}

TEST_F(WhyTest, nativeVlanOfATapNeedNotExist) {
   world.vlan(10);
   auto const record = world.record(world.cli, "Ethernet1", InputMode::tap_);
   record->tapNativeVlanIs(777);
   world.resolve(record, SwitchportMode::tap_, 777);
   EXPECT_EQ(finding("Ethernet1", 10, "Native VLAN"), "777");
   world.resolve(record, SwitchportMode::tap_, 0);
   EXPECT_EQ(finding("Ethernet1", 10, "Native VLAN"),
             "none: VLAN 777, which it is configured for, has not been taken up yet");
}

TEST_F(WhyTest, accessPortWhoseVlanDoesNotExistIsInNone) {
   world.vlan(10);
   world.accessPort("Ethernet1", 777);
   world.resolve("Ethernet1", SwitchportMode::access_, 0);
   EXPECT_EQ(finding("Ethernet1", 10, "Native VLAN"),
             "none: VLAN 777, which it is configured for, doesn't exist");
   EXPECT_EQ(decision("Ethernet1", 10),
             "no, Access port: a port without a native VLAN is a member of no VLAN");
   EXPECT_THAT(advice("Ethernet1", 10)[0],
               StartsWith("set bridging/input/config/cli.switchIntfConfig[Ethernet1].accessVlan to 10"));
}

TEST_F(WhyTest, accessPortIsInNoVlanEvenIfItIsTheConfiguredOne) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.resolve("Ethernet1", SwitchportMode::access_, 0);
   EXPECT_THAT(finding("Ethernet1", 10, "Native VLAN"), HasSubstr("has not been taken up yet"));
   EXPECT_THAT(decision("Ethernet1", 10), StartsWith("no, Access port"));
}

// --- The VLAN.

TEST_F(WhyTest, vlanThatTheWinningInputLacksDoesNotExist) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.input("lab", 90, 0)->vlanConfigIs(20);
   EXPECT_EQ(decision("Ethernet1", 20), "no, VLAN: doesn't exist: cli, which gives all VLANs by its number "
                                        "100, lacks it; lost with it: lab 90");
   EXPECT_THAT(advice("Ethernet1", 20),
               ElementsAre("make it: bridging/input/config/cli.vlanConfig[20]",
                           HasSubstr("raise vlanConfigPriority of an input that holds it "
                                     "above 100")));
   world.cli->vlanConfigPriorityIs(0);
   EXPECT_THAT(decision("Ethernet1", 20), HasSubstr("lab holds it and gives the VLANs by its number 90"));
}

TEST_F(WhyTest, vlanThatTheAgentHasNotMadeYetIsReported) {
   world.vlan(10);
   world.accessPort("Ethernet1", 10);
   world.cli->vlanConfigIs(20);
   EXPECT_EQ(
       decision("Ethernet1", 20),
       "no, VLAN: cli holds it and gives the VLANs by its number 100, but the agent has not made it yet");
}

TEST_F(WhyTest, noInputThatGivesVlansIsReported) {
   world.accessPort("Ethernet1", 10);
   world.cli->vlanConfigPriorityIs(0);
   EXPECT_THAT(decision("Ethernet1", 10), HasSubstr("no input takes part in the choice of VLANs"));
}

TEST_F(WhyTest, suspendedVlanIsDecidedBeforeAnythingElse) {
   world.vlan(10)->adminStateIs(VlanAdminState::suspended);
   world.accessPort("Ethernet1", 10);
   EXPECT_EQ(decision("Ethernet1", 10), "no, VLAN status: suspended: no port is a member of it");
   EXPECT_THAT(advice("Ethernet1", 10)[0],
               "set bridging/input/config/cli.vlanConfig[10].adminState to active");
   // A routed port is no exception.
   world.internalVlan(1006, "Ethernet2")->adminStateIs(VlanAdminState::suspended);
   world.routedPort("Ethernet2", 1006);
   EXPECT_THAT(decision("Ethernet2", 1006), StartsWith("no, VLAN status"));
}

// --- Routed ports and internal VLANs.

TEST_F(WhyTest, routedPortIsInItsInternalVlanOnly) {
   world.vlan(10);
   world.internalVlan(1006, "Ethernet1");
   world.routedPort("Ethernet1", 1006);
   EXPECT_EQ(decision("Ethernet1", 1006), "yes, Routed port: VLAN 1006 is its internal VLAN");
   EXPECT_EQ(decision("Ethernet1", 10),
             "no, Routed port: it is a member of its internal VLAN 1006 and of no other");
   EXPECT_THAT(advice("Ethernet1", 10),
               ElementsAre("make the port a switchport: set "
                           "bridging/input/config/cli.switchIntfConfig[Ethernet1].enabled to true"));
   EXPECT_THAT(finding("Ethernet1", 10, "Mode"), HasSubstr("enabled is false"));
}

TEST_F(WhyTest, routedPortWithoutAnInternalVlanShowsTheCause) {
   world.internalVlan(1006, "Ethernet1");
   world.routedPort("Ethernet2", 0);
   TestWorld::entity<Errdisable::CauseStatus>(state.causes, "no-internal-vlan")
       ->intfStatusIs("Ethernet2", 995);
   EXPECT_THAT(decision("Ethernet2", 1006),
               HasSubstr("errdisabled for that, cause no-internal-vlan, 5 s ago"));
   EXPECT_THAT(advice("Ethernet2", 1006),
               ElementsAre(HasSubstr("widen bridging/input/config/cli.internalVlanRange")));
}

TEST_F(WhyTest, internalVlanIsClosedToAllOtherPorts) {
   world.internalVlan(1006, "Ethernet1");
   world.trunkPort("Ethernet2", "1-4094");
   EXPECT_EQ(
       decision("Ethernet2", 1006),
       "no, Internal VLAN: VLAN 1006 is the internal VLAN of Ethernet1, and that port is its only member");
}

// --- Tunnels and asymmetric ports.

TEST_F(WhyTest, tunnelPortIsInItsNativeVlanWhateverItsTrunkGroups) {
   world.vlan(10)->trunkGroupIs("red", true);
   world.vlan(11);
   auto const record = world.record(world.cli, "Ethernet1", InputMode::dot1qTunnel_);
   record->accessVlanIs(10);
   world.resolve(record, SwitchportMode::dot1qTunnel_, 10);
   state.config->switchIntfConfig("Ethernet1")->asymVlanEnabledIs(true);
   EXPECT_THAT(decision("Ethernet1", 10), StartsWith("yes, Tunnel port"));
   EXPECT_THAT(decision("Ethernet1", 11), StartsWith("no, Tunnel port"));
}

TEST_F(WhyTest, asymmetricPortIsInItsListAndNotInItsNativeVlan) {
   world.vlan(10);
   world.vlan(20);
   auto const record = world.accessPort("Ethernet1", 10);
   record->asymVlansIs("20-30");
   state.config->switchIntfConfig("Ethernet1")->asymVlanEnabledIs(true);
   EXPECT_EQ(decision("Ethernet1", 20), "yes, Asymmetric VLANs: the list 20-30 has VLAN 20");
   EXPECT_EQ(decision("Ethernet1", 10), "no, Asymmetric VLANs: the list 20-30 lacks VLAN 10");
}

// --- Access ports and private VLANs.

TEST_F(WhyTest, accessPortIsInItsNativeVlanOnly) {
   world.vlan(10);
   world.vlan(11);
   world.accessPort("Ethernet1", 10);
   EXPECT_EQ(decision("Ethernet1", 10),
             "yes, Access port: it is a member of its native VLAN only; its native VLAN is 10");
   EXPECT_THAT(decision("Ethernet1", 11), StartsWith("no, Access port"));
}

TEST_F(WhyTest, portInASecondaryVlanIsInThePrimaryToo) {
   world.vlan(10);
   world.vlan(11)->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::secondary_, .primaryVlan = 10});
   world.accessPort("Ethernet1", 11);
   EXPECT_EQ(decision("Ethernet1", 10), "yes, Private VLAN: its native VLAN 11 is a secondary of VLAN 10");
   EXPECT_THAT(decision("Ethernet1", 11), StartsWith("yes, Access port"));
}

TEST_F(WhyTest, portInThePrimaryIsInTheSecondariesThatItIsMappedTo) {
   world.vlan(10);
   world.vlan(11)->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::secondary_, .primaryVlan = 10});
   auto const record = world.accessPort("Ethernet1", 10);
   EXPECT_EQ(
       decision("Ethernet1", 11),
       "no, Private VLAN: VLAN 11 is a secondary of its native VLAN 10, and the port is not mapped to it");
   record->privateVlanMappingIs(11, true);
   EXPECT_THAT(decision("Ethernet1", 11), StartsWith("yes, Private VLAN"));
   record->privateVlanMappingDel(11);
   record->defaultPrivateVlanMappingIs(true);
   EXPECT_THAT(decision("Ethernet1", 11), HasSubstr("mapped to all secondaries"));
   // A suspended native VLAN gives no membership in its primary.
   state.config->vlanConfig(10)->adminStateIs(VlanAdminState::suspended);
   EXPECT_THAT(decision("Ethernet1", 11), StartsWith("no, Access port"));
}

// --- Trunk, tap and tool ports.

TEST_F(WhyTest, trunkIsInItsAllowedVlans) {
   world.vlan(10);
   world.vlan(11);
   world.trunkPort("Ethernet1", "1-10,bad,9-5");
   EXPECT_EQ(decision("Ethernet1", 10), "yes, Trunk groups: VLAN 10 has none, so it is open to every trunk");
   EXPECT_EQ(finding("Ethernet1", 10, "Allowed VLANs"),
             "the list 1-10,bad,9-5 (trunkAllowedVlans) has VLAN 10");
   EXPECT_EQ(
       decision("Ethernet1", 11),
       "no, Allowed VLANs: the list 1-10,bad,9-5 (trunkAllowedVlans) lacks VLAN 11; these items of it are no "
       "VLAN numbers and say nothing: bad,9-5");
}

TEST_F(WhyTest, eachModeHasItsOwnList) {
   world.vlan(10);
   for (auto const& [mode, attribute] :
        {std::pair(InputMode::tap_, "tapAllowedVlans"), std::pair(InputMode::tool_, "toolAllowedVlans")}) {
      auto const record = world.record(world.input("lab", 0, 90), "Ethernet1", mode);
      record->trunkAllowedVlansIs("1-4094");
      record->tapAllowedVlansIs("20");
      record->toolAllowedVlansIs("20");
      world.resolve(record, static_cast<SwitchportMode>(mode), 1);
      EXPECT_EQ(decision("Ethernet1", 10),
                std::string("no, Allowed VLANs: the list 20 (") + attribute + ") lacks VLAN 10");
   }
}

TEST_F(WhyTest, subinterfaceHasNoAllowedVlans) {
   world.vlan(10);
   world.trunkPort("Ethernet1.7", "1-4094");
   EXPECT_EQ(decision("Ethernet1.7", 10), "no, Allowed VLANs: a subinterface has no allowed VLANs");
}

TEST_F(WhyTest, vlanWithTrunkGroupsIsClosedToPortsWithoutOne) {
   auto const vlan = world.vlan(10);
   vlan->trunkGroupIs("red", true);
   vlan->trunkGroupIs("blue", true);
   vlan->trunkGroupIs("closed", false);
   auto const record = world.trunkPort("Ethernet1", "1-4094");
   EXPECT_EQ(decision("Ethernet1", 10),
             "no, Trunk groups: VLAN 10 is open to trunks of blue and red only; the port has no group");
   record->trunkGroupIs("closed", true);
   EXPECT_THAT(decision("Ethernet1", 10), HasSubstr("only; the port has closed"));
   record->trunkGroupIs("red", true);
   EXPECT_EQ(decision("Ethernet1", 10),
             "yes, Trunk groups: VLAN 10 is open to trunks of group red, which the port has");
}

// --- The processor's port.

TEST_F(WhyTest, processorIsInVlansWithAnInterface) {
   world.vlan(10);
   EXPECT_THAT(decision("Cpu", 10), StartsWith("no, VLAN interface"));
   world.member(10, "Cpu", true);
   EXPECT_THAT(decision("Cpu", 10), StartsWith("yes, VLAN interface"));
   EXPECT_TRUE(why(state, "Cpu", 10, {}).isMember);
   EXPECT_THAT(decision("Cpu", 99), StartsWith("no, VLAN: doesn't exist"));
}

} // namespace
