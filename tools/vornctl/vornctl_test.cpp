#include "AgentPid.h"
#include "Failures.h"
#include "Show.h"
#include "Table.h"
#include "TestWorld.h"
#include "Words.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr Format asTable;
constexpr Format asJson{.wantsJson = true};

// --- Tables.

TEST(TableTest, columnsAreAsWideAsTheirWidestCellAndListsFold) {
   Table table({{"VLAN", Table::Align::right}, {"Name"}, {"Ports"}});
   table.add({"1", "a"}, {"Et1", "Et2", "Et3", "Et4", "Et5", "Et6"});
   table.add({"1000", "longer name"}, {});
   EXPECT_EQ(table.text(40), "VLAN  Name         Ports\n"
                             "----  -----------  -------------------\n"
                             "   1  a            Et1, Et2, Et3, Et4,\n"
                             "                   Et5, Et6\n"
                             "1000  longer name\n");
}

TEST(TableTest, controlCharactersOfPublishersDoNotReachTheTerminal) {
   Table table({{"Name"}, {"Ports"}});
   table.add({"a\x1b[2Jb\x7f"}, {"E\tt"});
   EXPECT_EQ(table.text(80), "Name           Ports\n"
                             "-------------  -----\n"
                             "a\\x1b[2Jb\\x7f  E\\tt\n");
}

TEST(TableTest, widthsCountCharactersAndNotBytes) {
   Table table({{"Name"}, {"X"}});
   table.add({"\xc3\xa4\xc3\xb6\xc3\xbc\xc3\x9f\xc3\xa9"}, {"1"});
   table.add({"abcde"}, {"2"});
   EXPECT_THAT(table.text(80), HasSubstr("\xc3\xa9  1\nabcde  2\n"));
   EXPECT_EQ(shortened("\xc3\xa4\xc3\xb6\xc3\xbc\xc3\x9f\xc3\xa9z", 5), "\xc3\xa4\xc3\xb6...");
   EXPECT_EQ(shortened("abcde", 5), "abcde");
}

TEST(TableTest, paragraphsFoldBetweenWordsAndKeepLongOnesWhole) {
   EXPECT_EQ(paragraph("one two three", 2, 9), "  one two\n  three\n");
   EXPECT_EQ(paragraph("one incomprehensibilities", 0, 10), "one\nincomprehensibilities\n");
   EXPECT_EQ(paragraph("", 2, 9), "");
}

// --- Words.

TEST(WordsTest, portsAreFoundByTheirShortNames) {
   EXPECT_EQ(portFromText("Et1"), Sulvi::IntfId("Ethernet1"));
   EXPECT_EQ(portFromText("eth3/1"), Sulvi::IntfId("Ethernet3/1"));
   EXPECT_EQ(portFromText("ETHERNET7.20"), Sulvi::IntfId("Ethernet7.20"));
   EXPECT_EQ(portFromText("po5"), Sulvi::IntfId("Port-Channel5"));
   EXPECT_EQ(portFromText("port-channel5"), Sulvi::IntfId("Port-Channel5"));
   EXPECT_EQ(portFromText("Cpu"), Sulvi::IntfId("Cpu"));
   EXPECT_EQ(portFromText("e1"), Sulvi::IntfId("e1")) << "one letter says too little";
   EXPECT_EQ(portFromText("Ethernets1"), Sulvi::IntfId("Ethernets1"));
   EXPECT_THROW(portFromText(""), UsageError);
   EXPECT_THROW(portFromText(std::string(97, 'x')), UsageError);
}

TEST(WordsTest, vlanNumbersAreFrom1To4094) {
   EXPECT_EQ(vlanFromText("1"), Bridging::VlanId(1));
   EXPECT_EQ(vlanFromText("4094"), Bridging::VlanId(4094));
   for (char const* const text :
        {"0", "4095", "-1", "ten", "", "1a", " 1", "00000000001", "99999999999999999999"})
      EXPECT_THROW(vlanFromText(text), UsageError) << text;
}

TEST(WordsTest, addressesAreSixPairsOfDigits) {
   EXPECT_EQ(addressFromText("00:1C:73:00:00:01"), Sulvi::EthAddr("00:1c:73:00:00:01"));
   for (char const* const text : {"", "Et1", "00:1c:73:00:00", "001c.7300.0001", "00:1c:73:00:00:01:02"})
      EXPECT_EQ(addressFromText(text), std::nullopt) << text;
}

TEST(WordsTest, portsAreListedInNaturalOrder) {
   EXPECT_THAT(portList({"Port-Channel5", "Ethernet10", "Ethernet2", "Cpu"}),
               ElementsAre("Cpu", "Et2", "Et10", "Po5"));
}

TEST(WordsTest, vlanSetsAreListedAsRanges) {
   VornUtils::VlanIdSet vlans;
   EXPECT_THAT(vlanList(vlans), IsEmpty());
   for (unsigned vlan : {1u, 5u, 6u, 7u, 4094u})
      vlans.vlanIs(vlan);
   EXPECT_THAT(vlanList(vlans), ElementsAre("1", "5-7", "4094"));
}

TEST(WordsTest, durationsHaveTheUnitThatSaysMost) {
   EXPECT_EQ(durationText(0.4), "0 s");
   EXPECT_EQ(durationText(119), "119 s");
   EXPECT_EQ(durationText(120), "2 min");
   EXPECT_EQ(durationText(3 * 3600), "3 h");
   EXPECT_EQ(durationText(9 * 86400), "9 d");
   EXPECT_EQ(durationText(-5), "0 s");
}

TEST(WordsTest, numbersWithoutANameAreReported) {
   EXPECT_EQ(modeText(SwitchportMode::dot1qTunnel_), "tunnel");
   EXPECT_EQ(modeText(static_cast<SwitchportMode>(9)), "mode 9");
   EXPECT_EQ(statusText(static_cast<Bridging::VlanAdminState>(7)), "state 7");
   EXPECT_EQ(membershipText({.tagged = true}), "tagged");
   EXPECT_EQ(membershipText({.mappedUntagged = true, .direction = Bridging::VlanPortDirection::txOnly}),
             "untagged, sends only");
}

// --- show vlan.

struct ShowTest : testing::Test {
   TestWorld world;
   SwitchState& state = world.state;
};

TEST_F(ShowTest, vlansAreInTheOrderOfTheirNumbersWithTheirPorts) {
   world.vlan(100)->adminStateIs(Bridging::VlanAdminState::suspended);
   world.vlan(20, "voice");
   world.vlan(3, "servers");
   for (char const* const port : {"Port-Channel5", "Ethernet10", "Ethernet2", "Cpu"})
      world.member(3, port, true);
   world.internalVlan(1006, "Ethernet45");
   EXPECT_EQ(showVlan(state, {}, asTable), "VLAN   Name        Status     Ports\n"
                                           "-----  ----------  ---------  -------------------\n"
                                           "3      servers     active     Cpu, Et2, Et10, Po5\n"
                                           "20     voice       active\n"
                                           "100    -           suspended\n"
                                           "1006*  Ethernet45  active     Et45\n"
                                           "\n"
                                           "* internal VLAN of a routed port\n");
}

TEST_F(ShowTest, oneVlanShowsHowEachPortTakesPart) {
   auto const vlan = world.vlan(30, "storage");
   vlan->trunkGroupIs("fabric", true);
   vlan->trunkGroupIs("closed", false);
   vlan->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 20});
   world.member(30, "Ethernet2", true);
   vlan->intfIs("Ethernet1", {.direction = Bridging::VlanPortDirection::rxOnly});
   EXPECT_EQ(showVlan(state, 30, asTable), "VLAN  Name     Status  Ports\n"
                                           "----  -------  ------  --------\n"
                                           "30    storage  active  Et1, Et2\n"
                                           "\n"
                                           "Configured by: cli\n"
                                           "Private VLAN: secondary of VLAN 20\n"
                                           "Trunk groups that a trunk needs one of: fabric\n"
                                           "\n"
                                           "Port  Membership\n"
                                           "----  -----------------------\n"
                                           "Et1   untagged, receives only\n"
                                           "Et2   tagged\n");
}

TEST_F(ShowTest, vlanInJsonHasFullNamesAndTheTreesWords) {
   auto const vlan = world.vlan(30, "bad \xff name");
   vlan->intfIs("Ethernet1", {.mappedUntagged = true, .direction = Bridging::VlanPortDirection::txOnly});
   world.vlan(4);
   auto const all = json::parse(showVlan(state, {}, asJson));
   EXPECT_EQ(all["vlans"].size(), 2u);
   EXPECT_EQ(all["vlans"]["30"]["name"], "bad \xef\xbf\xbd name");
   EXPECT_EQ(all["vlans"]["30"]["status"], "active");
   EXPECT_EQ(all["vlans"]["30"]["isInternal"], false);
   EXPECT_EQ(all["vlans"]["30"]["ports"]["Ethernet1"],
             json::parse(R"({"tagged": false, "mappedUntagged": true, "direction": "txOnly"})"));
   EXPECT_EQ(json::parse(showVlan(state, 4, asJson))["vlans"].size(), 1u);
}

TEST_F(ShowTest, vlanThatIsNotThereIsNamed) {
   EXPECT_THAT([&] { showVlan(state, 99, asTable); },
               testing::ThrowsMessage<Absent>("VLAN 99: there is no such VLAN"));
}

// --- show switchport.

TEST_F(ShowTest, portsTellTheirModeInputAndVlans) {
   world.vlan(1);
   for (uint16_t const vlan : {10, 11, 12})
      world.vlan(vlan);
   world.trunkPort("Ethernet10", "10-12");
   for (uint16_t const vlan : {10, 11, 12})
      world.member(vlan, "Ethernet10", true);
   world.accessPort("Ethernet2", 11);
   world.member(11, "Ethernet2", false);
   world.routedPort("Port-Channel1", 0);
   EXPECT_EQ(showSwitchport(state, {}, asTable), "Port  Mode    Native  Input  Member of VLANs\n"
                                                 "----  ------  ------  -----  ---------------\n"
                                                 "Et2   access      11  cli    11\n"
                                                 "Et10  trunk        1  cli    10-12\n"
                                                 "Po1   routed       -  cli\n");
}

TEST_F(ShowTest, onePortShowsAllItsSettings) {
   world.vlan(10);
   world.vlan(12);
   auto const record = world.trunkPort("Ethernet10", "10-12", 12);
   record->trunkGroupIs("fabric", true);
   world.record(world.eth, "Ethernet10", InputMode::access_);
   world.member(10, "Ethernet10", true);
   world.member(12, "Ethernet10", false);
   state.config->switchIntfConfig("Ethernet10")->macLearningEnabledIs(false);
   EXPECT_EQ(showSwitchport(state, "Ethernet10", asTable),
             "Port:                   Ethernet10\n"
             "Input:                  cli by its number 50; lost: eth 10\n"
             "Mode:                   trunk\n"
             "Native VLAN:            12\n"
             "Tagged in VLANs:        10\n"
             "Untagged in VLANs:      12\n"
             "Configured VLAN list:   10-12\n"
             "Trunk groups:           fabric\n"
             "Learns addresses:       no\n"
             "Floods:                 yes\n"
             "Accepts tagged:         yes\n"
             "Filters arriving VLANs: yes\n"
             "Tag protocol id:        0x8100\n");
   auto const port = json::parse(showSwitchport(state, "Ethernet10", asJson))["ports"]["Ethernet10"];
   world.accessPort("Ethernet1", 10);
   EXPECT_EQ(json::parse(showSwitchport(state, "Ethernet10", asJson))["ports"].size(), 1u);
   EXPECT_EQ(port["taggedVlans"], "10");
   EXPECT_EQ(port["untaggedVlans"], "12");
   EXPECT_EQ(port["allowedVlans"], "10-12");
   EXPECT_EQ(port["macLearning"], false);
   EXPECT_EQ(port["trunkGroups"], json::array({"fabric"}));
}

TEST_F(ShowTest, portThatIsNotThereIsNamed) {
   EXPECT_THAT([&] { showSwitchport(state, "Ethernet9", asTable); },
               testing::ThrowsMessage<Absent>("Ethernet9: there is no such port"));
}

// --- show inputs.

TEST_F(ShowTest, inputsTellWhoWonWhatByWhichNumber) {
   auto const lab = world.input("lab", 100, 60);
   lab->sourceDetailIs("lab automation");
   world.cli->vlanConfigIs(1);
   for (char const* const port : {"Ethernet1", "Ethernet2", "Ethernet3"}) {
      world.record(world.eth, port, InputMode::access_);
      world.accessPort(port, 1);
   }
   state.chosen->switchIntfConfigIs(world.record(lab, "Ethernet2", InputMode::trunk_));
   EXPECT_EQ(showInputs(state, asTable),
             "Input  VLANs by  Ports by  Source          Won\n"
             "-----  --------  --------  --------------  ------------------\n"
             "cli     100 (1)    50 (3)  -               all VLANs, 2 ports\n"
             "eth       0 (0)    10 (3)  -               -\n"
             "lab     100 (0)    60 (1)  lab automation  1 port\n"
             "\n"
             "The greatest number wins, 0 takes no part; in brackets what the input holds.\n"
             "\n"
             "Won by  With  Over               Ports\n"
             "------  ----  -----------------  --------\n"
             "lab       60  cli 50 and eth 10  Et2\n"
             "cli       50  eth 10             Et1, Et3\n");
   auto const all = json::parse(showInputs(state, asJson));
   EXPECT_EQ(all["vlans"]["input"], "cli") << "the first of two equal ones";
   EXPECT_EQ(all["ports"]["Ethernet2"]["input"], "lab");
   EXPECT_EQ(all["ports"]["Ethernet2"]["losers"][0], json::parse(R"({"name": "cli", "priority": 50})"));
   EXPECT_EQ(all["inputs"]["cli"]["portsWon"], 2);
}

TEST_F(ShowTest, inputsThatTakeNoPartWinNothing) {
   world.cli->vlanConfigPriorityIs(0);
   world.cli->switchIntfConfigPriorityIs(0);
   world.record(world.cli, "Ethernet1", InputMode::access_);
   std::string const text = showInputs(state, asTable);
   EXPECT_THAT(text, HasSubstr("No input gives the VLANs.\n"));
   EXPECT_THAT(text, HasSubstr("(none)     -  cli 0  Et1\n"));
   EXPECT_EQ(json::parse(showInputs(state, asJson))["vlans"]["input"], nullptr);
}

// --- show mac static.

struct ShowMacStaticTest : testing::Test {
   ShowMacStaticTest() {
      world.vlan(10);
      world.vlan(20);
      TestWorld::host(world.cli, 10, "00:1c:73:00:00:02", "Ethernet2");
      TestWorld::host(other, 10, "00:1c:73:00:00:01", "Ethernet1", Bridging::EntryType::dropMac);
      TestWorld::group(world.cli, 20, "01:00:5e:00:00:01", {"Ethernet10", "Ethernet2"});
      world.resolveHost(10, "00:1c:73:00:00:02", "Ethernet2");
      world.resolveHost(10, "00:1c:73:00:00:01", "Ethernet1", Bridging::EntryType::dropMac);
      world.resolveGroup(20, "01:00:5e:00:00:01", {"Ethernet10", "Ethernet2"});
   }
   TestWorld world;
   SwitchState& state = world.state;
   Kem::Ptr<Bridging::Input::Config> other = world.input("other", 0, 0);
};

TEST_F(ShowMacStaticTest, tableHasTheInputOfEachAddress) {
   EXPECT_EQ(showMacStatic(state, {}, asTable), "VLAN  Address            Kind     Input  Ports\n"
                                                "----  -----------------  -------  -----  ---------\n"
                                                "10    00:1c:73:00:00:01  drop     other  -\n"
                                                "10    00:1c:73:00:00:02  forward  cli    Et2\n"
                                                "20    01:00:5e:00:00:01  group    cli    Et2, Et10\n");
   EXPECT_EQ(showMacStatic(state, 20, asTable), "VLAN  Address            Kind   Input  Ports\n"
                                                "----  -----------------  -----  -----  ---------\n"
                                                "20    01:00:5e:00:00:01  group  cli    Et2, Et10\n");
}

TEST_F(ShowMacStaticTest, entryThatNoInputHasSoIsNobodys) {
   world.resolveHost(10, "00:1c:73:00:00:02", "Ethernet3");
   EXPECT_THAT(showMacStatic(state, 10, asTable), HasSubstr("00:1c:73:00:00:02  forward  -      Et3\n"));
   world.resolveHost(10, "00:1c:73:00:00:03", "Ethernet3", static_cast<Bridging::EntryType>(9));
   EXPECT_THAT(showMacStatic(state, 10, asTable), HasSubstr("00:1c:73:00:00:03  type 9   -      Et3\n"));
}

TEST_F(ShowMacStaticTest, jsonSaysTheSame) {
   auto const vlans = json::parse(showMacStatic(state, {}, asJson))["vlans"];
   EXPECT_EQ(vlans["10"]["hosts"]["00:1c:73:00:00:01"],
             json({{"port", "Ethernet1"}, {"type", "dropMac"}, {"input", "other"}}));
   EXPECT_EQ(vlans["20"]["groups"]["01:00:5e:00:00:01"],
             json({{"ports", {"Ethernet2", "Ethernet10"}}, {"input", "cli"}}));
   EXPECT_EQ(vlans["20"]["hosts"], json::object());
   world.resolveHost(10, "00:1c:73:00:00:01", "Ethernet3");
   EXPECT_EQ(
       json::parse(showMacStatic(state, 10, asJson))["vlans"]["10"]["hosts"]["00:1c:73:00:00:01"]["input"],
       nullptr);
   EXPECT_EQ(json::parse(showMacStatic(state, 10, asJson))["vlans"].size(), 1u);
}

TEST_F(ShowMacStaticTest, nothingAndAnUnknownVlanAreTold) {
   world.vlan(30);
   EXPECT_EQ(showMacStatic(state, 30, asTable), "No static hosts or groups.\n");
   EXPECT_THAT([&] { showMacStatic(state, 99, asTable); },
               testing::ThrowsMessage<Absent>("VLAN 99: there is no such VLAN"));
}

// --- show internal-vlan.

TEST_F(ShowTest, internalVlansTellTheirPortsAndWhoWentWithout) {
   state.config->internalVlanRangeIs({.min = 1006, .max = 1007});
   world.internalVlan(1007, "Ethernet45");
   world.internalVlan(1006, "Ethernet46");
   for (char const* const port : {"Ethernet47", "Ethernet48"})
      world.routedPort(port, 0);
   world.accessPort("Ethernet1", 10);
   world.resolve("Ethernet1", SwitchportMode::access_, 0); // in no VLAN, but it wants no internal one
   TestWorld::entity<Errdisable::CauseStatus>(state.causes, "no-internal-vlan")
       ->intfStatusIs("Ethernet47", 988);
   state.ethIntfConfig->intfConfigIs("Ethernet48")
       ->enabledStateLocalIs(Interface::EnabledState::enabledStateShutdown);
   EXPECT_EQ(showInternalVlan(state, asTable),
             "Range: 1006-1007, from the lowest; 2 numbers in use\n"
             "\n"
             "VLAN  Routed port\n"
             "----  -----------\n"
             "1006  Et46\n"
             "1007  Et45\n"
             "\n"
             "Routed ports without an internal VLAN:\n"
             "  Et47  no number was free for it in the range 1006-1007, from the lowest; it is\n"
             "        errdisabled for that, cause no-internal-vlan, 12 s ago\n"
             "  Et48  it is shut down\n");
   auto const all = json::parse(showInternalVlan(state, asJson));
   EXPECT_EQ(all["internalVlans"], json::parse(R"({"1006": "Ethernet46", "1007": "Ethernet45"})"));
   EXPECT_EQ(all["portsWithout"]["Ethernet47"]["isErrdisabled"], true);
   EXPECT_EQ(all["portsWithout"]["Ethernet48"]["isErrdisabled"], false);
   EXPECT_EQ(all["policy"], "ascending");
}

TEST_F(ShowTest, routedPortGetsNoVlanWhileItsInterfaceIsNotRouted) {
   world.routedPort("Ethernet1", 0);
   auto const reason = [&] {
      return json::parse(showInternalVlan(state, asJson))["portsWithout"]["Ethernet1"]["reason"]
          .get<std::string>();
   };
   EXPECT_THAT(reason(), HasSubstr("no record in interface/config/eth/intf"));
   state.ethIntfConfig->intfConfigIs("Ethernet1");
   EXPECT_THAT(reason(), HasSubstr("no record in interface/status/eth/intf"));
   auto const status = state.ethIntfStatus->intfStatusIs("Ethernet1");
   EXPECT_THAT(reason(), HasSubstr("doesn't route it"));
   status->forwardingModelIs(Interface::IntfForwardingModel::intfForwardingModelRouted);
   EXPECT_THAT(reason(), HasSubstr("nothing speaks against one"));
}

// --- show errdisable.

TEST_F(ShowTest, disabledPortsTellTheirCausesAndWhenTheyComeBack) {
   auto const flap = TestWorld::entity<Errdisable::CauseStatus>(state.causes, "link-flap");
   auto const internal = TestWorld::entity<Errdisable::CauseStatus>(state.causes, "no-internal-vlan");
   flap->intfStatusIs("Ethernet10", 400);
   flap->intfStatusIs("Ethernet2", 990);
   flap->intfStatusIs("Ethernet3", 5000);
   internal->intfStatusIs("Ethernet4", 999);
   state.errdisable->intfStatusIs("Ethernet2")->recoveryTimeIs(1290);
   state.errdisable->intfStatusIs("Ethernet10")->recoveryTimeIs(0);
   EXPECT_EQ(showErrdisable(state, asTable),
             "Port  Cause             Since               Comes back\n"
             "----  ----------------  ------------------  ---------------------\n"
             "Et2   link-flap         10 s ago            in 5 min\n"
             "Et3   link-flap         at an unknown time  -\n"
             "Et4   no-internal-vlan  1 s ago             when a number is free\n"
             "Et10  link-flap         10 min ago          not by itself\n");
   auto const ports = json::parse(showErrdisable(state, asJson))["ports"];
   EXPECT_EQ(ports["Ethernet2"]["causes"]["link-flap"]["secondsAgo"], 10.0);
   EXPECT_EQ(ports["Ethernet2"]["recoveryTime"], 1290.0);
   EXPECT_EQ(ports["Ethernet3"]["causes"]["link-flap"]["secondsAgo"], nullptr);
   EXPECT_EQ(ports["Ethernet10"]["recoveryTime"], nullptr);
}

TEST_F(ShowTest, noDisabledPortIsReported) {
   EXPECT_EQ(showErrdisable(state, asTable), "No port is errdisabled.\n");
}

// --- show backlog.

TEST_F(ShowTest, backlogShowsStagesAndLog) {
   state.agentStatus->deferredStageIs("VlanConfigCodef", {.backlog = 12,
                                                          .updatesSeen = 4094,
                                                          .updatesProcessed = 4082,
                                                          .dispatchCount = 3,
                                                          .yieldBeforeFinishingCount = 2,
                                                          .timeUsed = 0.0304});
   state.agentStatus->attributeLogIs({.kernBufferSize = 212992,
                                      .kernBufferThreshold = 106496,
                                      .kernBufferUsage = -1,
                                      .aboveThresholdCount = 1,
                                      .operationsWritten = 70,
                                      .bytesWritten = 4000});
   EXPECT_EQ(showBacklog(state, asTable),
             "Agent: running, process 77.\n"
             "\n"
             "Stage            Waiting  Seen  Done  Slices  Unfinished  Time\n"
             "---------------  -------  ----  ----  ------  ----------  -------\n"
             "VlanConfigCodef       12  4094  4082       3           2  0.030 s\n"
             "\n"
             "Attribute log: 70 operations, 4000 bytes written\n"
             "   socket buffer            212992 bytes\n"
             "   stages pause above       106496 bytes\n"
             "   in use when measured     not measured yet\n"
             "   measured above           1 time\n");
   auto const all = json::parse(showBacklog(state, asJson));
   EXPECT_EQ(all["deferredStages"]["VlanConfigCodef"]["backlog"], 12);
   EXPECT_EQ(all["attributeLog"]["isHeld"], false);
   EXPECT_EQ(all["attributeLog"]["kernBufferUsage"], -1);
   EXPECT_EQ(all["agent"], "running");
}

TEST_F(ShowTest, backlogShowsWhoseFiguresTheyAre) {
   state.agentPid = 0;
   EXPECT_THAT(showBacklog(state, asTable),
               HasSubstr("Agent: not connected. The figures are the last ones of process 77.\n"));
   EXPECT_EQ(json::parse(showBacklog(state, asJson))["agent"], "absent");
   state.agentPid = 78;
   std::string const text = showBacklog(state, asTable);
   EXPECT_THAT(text, HasSubstr("Agent: process 78 is starting, and what it writes is held back"));
   EXPECT_THAT(text, HasSubstr("The figures are those of process 77.\n"));
   EXPECT_EQ(json::parse(showBacklog(state, asJson))["attributeLog"]["isHeld"], true);
   state.agentPid = 0;
   state.agentStatus->pidIs(0);
   EXPECT_EQ(showBacklog(state, asTable), "Agent: not connected, and none has left any figures.\n");
}

TEST_F(ShowTest, standbyIsReportedWhenThereAreNoStages) {
   EXPECT_THAT(showBacklog(state, asTable),
               HasSubstr("There are no deferred stages: the supervisor is on standby.\n"));
}

// --- Who is connected.

TEST(AgentPidTest, isThatOfTheAgentOfTheName) {
   std::string const clients = R"([{"name": "Vorn", "pid": 5, "role": "tool"},
                                   {"name": "Other", "pid": 6, "role": "agent"},
                                   {"name": "Vorn", "pid": 7, "role": "agent"}])";
   EXPECT_EQ(agentPidIn(clients, "Vorn"), 7u);
   EXPECT_EQ(agentPidIn("[]", "Vorn"), 0u);
   EXPECT_THROW(agentPidIn("{", "Vorn"), Unreachable);
   EXPECT_THROW(agentPidIn(R"([{"name": 5}])", "Vorn"), Unreachable);
}

} // namespace
