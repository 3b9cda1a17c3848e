// Published input to resolved output, through the database and the real agent: every mode of a port, several
// publishers, changes while all runs, and bad input.
#include "RawClient.h"
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

std::string cliPort(std::string const& intf) {
   return cliInput + ".switchIntfConfig[" + intf + "]";
}
std::string cliVlan(int vlan) {
   return cliInput + ".vlanConfig[" + std::to_string(vlan) + "]";
}
std::string resolvedVlan(int vlan) {
   return "bridging/config.vlanConfig[" + std::to_string(vlan) + "]";
}
std::string resolvedPort(std::string const& intf) {
   return "bridging/config.switchIntfConfig[" + intf + "]";
}

struct BridgingTest : testing::Test {
   Switch bridge;

   // Still the process that was started.
   void expectAgentRuns() {
      bridge.settle();
      EXPECT_TRUE(bridge.agentProcess().isRunning()) << bridge.agentProcess().errors().text();
   }
};

// With the configuration of a leaf switch.
struct LeafSwitchTest : BridgingTest {
   LeafSwitchTest() {
      bridge.load(leafSwitch);
      bridge.settle();
   }
};

// --- Modes.

TEST_F(LeafSwitchTest, vlanHoldsItsAccessPortsTheTrunksThatAllowItAndTheCpu) {
   EXPECT_EQ(bridge.members(10),
             "Cpu-t Ethernet1 Ethernet2 Ethernet3 Ethernet4 Ethernet5 Ethernet6 Ethernet7 Ethernet8 "
             "Ethernet25-t Ethernet26-t Ethernet27-t Ethernet28-t Ethernet29-t Ethernet30-t Ethernet31-t "
             "Ethernet32-t Ethernet33-t Ethernet34-t Port-Channel1-t Port-Channel2-t");
   EXPECT_EQ(bridge.get(resolvedVlan(10) + ".configuredName"), "\"servers\"");
   EXPECT_EQ(bridge.get(resolvedVlan(10) + ".configSource"), "\"cli\"");
   EXPECT_EQ(bridge.get(resolvedVlan(10) + ".internal"), "false");
   EXPECT_EQ(bridge.port("Ethernet1"), "access_ 10");
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), "10");
   EXPECT_EQ(bridge.get("bridging/config.vlanConfigSourceDetail"), "\"startup-config\"");
   EXPECT_EQ(bridge.get("bridging/config.forwardingMode"), "\"storeAndForward\"");
}

TEST_F(LeafSwitchTest, trunkIsTaggedInItsAllowedVlansAndUntaggedInTheNativeOne) {
   EXPECT_EQ(bridge.port("Ethernet25"), "trunk_ 99");
   EXPECT_EQ(bridge.vlansOf("Ethernet25"), "10t 11t 12t 13t 80t 81t 82t 99");
   bridge.set(cliPort("Ethernet25") + ".trunkNativeVlan", "81");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet25"), "10t 11t 12t 13t 80t 81 82t 99t");
   bridge.set(cliPort("Ethernet25") + ".trunkAllowedVlans", "\"20-21,81\"");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet25"), "20t 21t 81");
}

TEST_F(LeafSwitchTest, vlanWithTrunkGroupsIsOpenOnlyToTrunksOfOneOfThem) {
   std::string const withStorage =
       "10t 11t 12t 13t 20t 21t 30t 31t 32t 40t 41t 50t 60t 61t 70t 80t 81t 82t 90t 91t 99t 100t 101t 102t "
       "110t 111t 120t 200t 201t 999";
   std::string without = withStorage;
   without.erase(without.find("30t"), 12);
   EXPECT_EQ(bridge.vlansOf("Ethernet29"), withStorage);
   EXPECT_EQ(bridge.vlansOf("Ethernet33"), without);

   bridge.set(cliPort("Ethernet33") + ".trunkGroup[storage-fabric]", "true");
   bridge.erase(cliPort("Ethernet29") + ".trunkGroup[storage-fabric]");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet29"), without);
   EXPECT_EQ(bridge.vlansOf("Ethernet33"), withStorage);

   // A VLAN leaves its only group: open to all. It gets another one: closed to all.
   bridge.erase(cliVlan(31) + ".trunkGroup[storage-fabric]");
   bridge.set(cliVlan(32) + ".trunkGroup[other]", "true");
   bridge.erase(cliVlan(32) + ".trunkGroup[storage-fabric]");
   bridge.settle();
   EXPECT_THAT(bridge.members(31), HasSubstr("Ethernet29-t"));
   EXPECT_EQ(bridge.members(32), "");
}

TEST_F(LeafSwitchTest, tunnelPortIsUntaggedInItsOneVlan) {
   EXPECT_EQ(bridge.port("Ethernet35"), "dot1qTunnel_ 110");
   EXPECT_EQ(bridge.vlansOf("Ethernet35"), "110");
   EXPECT_EQ(bridge.vlansOf("Ethernet36"), "111");
}

TEST_F(LeafSwitchTest, tapReceivesAndToolSends) {
   EXPECT_EQ(bridge.port("Ethernet37"), "tap_ 200");
   EXPECT_EQ(bridge.vlansOf("Ethernet37"), "200r 201r");
   EXPECT_EQ(bridge.port("Ethernet39"), "tool_ 1");
   EXPECT_EQ(bridge.vlansOf("Ethernet39"), "200s 201s");
   for (char const* const intf : {"Ethernet37", "Ethernet39"}) {
      EXPECT_EQ(bridge.get(resolvedPort(intf) + ".macLearningEnabled"), "false");
      EXPECT_EQ(bridge.get(resolvedPort(intf) + ".floodingEnabled"), "false");
   }
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet1") + ".macLearningEnabled"), "true");
}

TEST_F(LeafSwitchTest, asymmetricAccessPortIsUntaggedInAllItsVlans) {
   EXPECT_EQ(bridge.port("Ethernet40"), "access_ 40");
   EXPECT_EQ(bridge.vlansOf("Ethernet40"), "40 41 120");
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".asymVlanEnabled"), "true");
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".allowTaggedPkts"), "false");
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".enableIngressFiltering"), "true");
   bridge.set(cliPort("Ethernet40") + ".asymVlans", "\"41,120\"");
   bridge.settle();
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".enableIngressFiltering"), "false");
   bridge.set(cliPort("Ethernet40") + ".asymVlans", "\"\"");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet40"), "40");
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".asymVlanEnabled"), "false");
   EXPECT_EQ(bridge.get(resolvedPort("Ethernet40") + ".allowTaggedPkts"), "true");
}

TEST_F(LeafSwitchTest, portChangesItsModeWhileAllRuns) {
   std::string const before = bridge.dump();
   bridge.load(Json{{cliInput,
                     {{"switchIntfConfig",
                       {{"Ethernet1", {{"switchportMode", "trunk_"}, {"trunkAllowedVlans", "10-12"}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "trunk_ 0") << "its native VLAN, 1, does not exist";
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), "10t 11t 12t");
   bridge.set(cliPort("Ethernet1") + ".switchportMode", "tool_");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "tool_ 1");
   EXPECT_THAT(bridge.vlansOf("Ethernet1"), HasSubstr("10s 11s 12s"));
   bridge.set(cliPort("Ethernet1") + ".switchportMode", "dot1qTunnel_");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), "10");
   bridge.load(Json{{cliInput,
                     {{"switchIntfConfig",
                       {{"Ethernet1", {{"switchportMode", "access_"}, {"trunkAllowedVlans", "1-4094"}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
}

// --- VLANs that are absent, suspended, deleted, or have an interface.

TEST_F(LeafSwitchTest, accessPortOfAMissingVlanIsAMemberOfNoneUntilTheVlanComes) {
   EXPECT_EQ(bridge.port("Ethernet41"), "access_ 0");
   EXPECT_EQ(bridge.vlansOf("Ethernet41"), "");
   EXPECT_EQ(bridge.port("Ethernet42"), "access_ 0") << "VLAN 1, which nobody configured, by default";
   bridge.set(cliVlan(777), "{\"configuredName\": \"late\"}");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet41"), "access_ 777");
   EXPECT_EQ(bridge.vlansOf("Ethernet41"), "777");
   bridge.erase(cliVlan(777));
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet41"), "access_ 0");
   EXPECT_EQ(bridge.members(777), "none");
}

TEST_F(LeafSwitchTest, suspendedVlanHasNoMembers) {
   EXPECT_EQ(bridge.get(resolvedVlan(130) + ".adminState"), "\"suspended\"");
   EXPECT_EQ(bridge.members(130), "");
   bridge.set(cliVlan(130) + ".adminState", "active");
   bridge.set(cliVlan(10) + ".adminState", "suspended");
   bridge.settle();
   EXPECT_EQ(bridge.members(130),
             "Ethernet29-t Ethernet30-t Ethernet31-t Ethernet32-t Ethernet33-t Ethernet34-t");
   EXPECT_EQ(bridge.members(10), "") << "the CPU is no member either";
   EXPECT_EQ(bridge.port("Ethernet1"), "access_ 10");
   bridge.set(cliVlan(10) + ".adminState", "active");
   bridge.settle();
   EXPECT_THAT(bridge.members(10), HasSubstr("Cpu-t Ethernet1 Ethernet2"));
}

TEST_F(LeafSwitchTest, cpuIsAMemberOfVlansThatHaveAnInterface) {
   EXPECT_EQ(bridge.vlansOf("Cpu"), "10t 20t 99t 1006t 1007t 1008t"); // and of the internal ones
}

TEST_F(LeafSwitchTest, deletedVlanIsGoneFromEverywhere) {
   bridge.erase(cliVlan(99));
   bridge.settle();
   EXPECT_EQ(bridge.members(99), "none");
   EXPECT_EQ(bridge.port("Ethernet25"), "trunk_ 0");
   EXPECT_EQ(bridge.vlansOf("Ethernet25"), "10t 11t 12t 13t 80t 81t 82t");
   bridge.set(cliVlan(99), "{\"configuredName\": \"management\"}");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet25"), "trunk_ 99");
   EXPECT_THAT(bridge.members(99), HasSubstr("Cpu-t Ethernet25 "));
}

// --- Routed ports. Four ports share three numbers.

std::vector<std::string> const routedPorts = {"Ethernet45", "Ethernet46", "Ethernet47", "Ethernet48"};

TEST_F(LeafSwitchTest, routedPortsGetInternalVlansAndTheOneTooManyIsDisabledForIt) {
   auto const waiting = bridge.waiting();
   ASSERT_EQ(waiting.size(), 1u);
   std::vector<std::string> held;
   for (std::string const& intf : routedPorts) {
      if (intf == waiting[0]) {
         EXPECT_EQ(bridge.port(intf), "routed_ 0");
         EXPECT_EQ(bridge.vlansOf(intf), "");
         continue;
      }
      held.push_back(bridge.port(intf));
      std::string const number = bridge.vlansOf(intf);
      EXPECT_EQ(bridge.port(intf), "routed_ " + number);
      int const vlan = std::stoi(number);
      EXPECT_EQ(bridge.members(vlan), "Cpu-t " + intf);
      EXPECT_EQ(bridge.get(resolvedVlan(vlan) + ".internal"), "true");
      EXPECT_EQ(bridge.get(resolvedVlan(vlan) + ".configSource"), "\"internal\"");
      EXPECT_EQ(bridge.get(resolvedVlan(vlan) + ".configuredName"), "\"" + intf + "\"");
   }
   EXPECT_THAT(held, UnorderedElementsAre("routed_ 1006", "routed_ 1007", "routed_ 1008"));
   // The sum of the causes says the same.
   EXPECT_THAT(bridge.get("interface/errdisable/status.intfStatus[" + waiting[0] + "]"),
               HasSubstr("no-internal-vlan"));
}

TEST_F(LeafSwitchTest, userTakesTheNumberOfAnInternalVlan) {
   std::string const owner = bridge.read(resolvedVlan(1007) + ".configuredName");
   bridge.set(cliVlan(1007), "{\"configuredName\": \"mine\"}");
   bridge.settle();
   EXPECT_EQ(bridge.get(resolvedVlan(1007) + ".internal"), "false");
   EXPECT_EQ(bridge.get(resolvedVlan(1007) + ".configuredName"), "\"mine\"");
   EXPECT_EQ(bridge.members(1007),
             "Ethernet29-t Ethernet30-t Ethernet31-t Ethernet32-t Ethernet33-t Ethernet34-t");
   EXPECT_EQ(bridge.port(owner), "routed_ 0");
   EXPECT_EQ(bridge.waiting().size(), 2u);
   EXPECT_THAT(bridge.waiting(), testing::Contains(owner));
}

TEST_F(LeafSwitchTest, vlanInterfaceOfAnInternalNumberTakesIt) {
   std::string const owner = bridge.read(resolvedVlan(1008) + ".configuredName");
   bridge.load(Json{{"interface/config/eth/vlan", {{"intfConfig", {{"Vlan1008", Json::object()}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.members(1008), "none");
   EXPECT_EQ(bridge.port(owner), "routed_ 0");
   EXPECT_THAT(bridge.waiting(), testing::Contains(owner));
}

TEST_F(LeafSwitchTest, shutRoutedPortGivesItsVlanBackAndIsNotDisabledForIt) {
   std::string const owner = bridge.read(resolvedVlan(1006) + ".configuredName");
   std::string const state = "interface/config/eth/intf.intfConfig[" + owner + "].enabledStateLocal";
   bridge.set(state, "enabledStateShutdown");
   bridge.settle();
   EXPECT_EQ(bridge.members(1006), "none");
   EXPECT_EQ(bridge.port(owner), "routed_ 0");
   EXPECT_THAT(bridge.waiting(), Not(testing::Contains(owner)));
   bridge.set(state, "enabledStateEnabled");
   bridge.settle();
   EXPECT_EQ(bridge.port(owner), "routed_ 1006");
   EXPECT_EQ(bridge.members(1006), "Cpu-t " + owner);
}

TEST_F(LeafSwitchTest, routedPortBecomesASwitchportAndBack) {
   std::string const owner = bridge.read(resolvedVlan(1006) + ".configuredName");
   bridge.load(Json{{cliInput, {{"switchIntfConfig", {{owner, {{"enabled", true}, {"accessVlan", 50}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.port(owner), "access_ 50");
   EXPECT_EQ(bridge.vlansOf(owner), "50");
   EXPECT_EQ(bridge.members(1006), "none");
   bridge.set(cliPort(owner) + ".switchportMode", "routed_");
   bridge.settle();
   EXPECT_EQ(bridge.port(owner), "routed_ 1006");
   EXPECT_EQ(bridge.vlansOf(owner), "1006");
}

TEST_F(BridgingTest, policyDecidesAtWhichEndOfTheRangeNumbersAreTaken) {
   bridge.load(Json{{cliInput,
                     {{"$type", "Bridging::Input::CliConfig"},
                      {"internalVlanRange", {{"min", 2000}, {"max", 2999}}},
                      {"internalVlanAllocationPolicy", "descending"},
                      {"switchIntfConfigPriority", 50},
                      {"switchIntfConfig", {{"Ethernet1", {{"enabled", false}}}}}}},
                    {"interface/config/eth/intf", {{"intfConfig", {{"Ethernet1", Json::object()}}}}},
                    {"interface/status/eth/intf",
                     {{"intfStatus", {{"Ethernet1", {{"forwardingModel", "intfForwardingModelRouted"}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "routed_ 2999");
   // The port's forwarding model leaves routed and comes back.
   std::string const model = "interface/status/eth/intf.intfStatus[Ethernet1].forwardingModel";
   bridge.set(model, "intfForwardingModelBridged");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "routed_ 0");
   EXPECT_EQ(bridge.members(2999), "none");
   bridge.set(cliInput + ".internalVlanAllocationPolicy", "ascending");
   bridge.set(model, "intfForwardingModelRouted");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "routed_ 2000");
   // The interface itself is deleted.
   bridge.erase("interface/status/eth/intf.intfStatus[Ethernet1]");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "routed_ 0");
   EXPECT_EQ(bridge.members(2000), "none");
   EXPECT_THAT(bridge.waiting(), IsEmpty());
}

// --- Publishers.

std::string const provisioning = "bridging/input/config/provisioning";

TEST_F(LeafSwitchTest, secondPublisherOverridesPortsWhileItsPriorityIsGreater) {
   std::string const before = bridge.dump("bridging/config");
   bridge.load(leafProvisioning);
   bridge.settle();
   std::string const overridden = bridge.dump("bridging/config");
   EXPECT_EQ(bridge.port("Ethernet7"), "access_ 120");
   EXPECT_EQ(bridge.vlansOf("Ethernet7"), "120");
   EXPECT_EQ(bridge.port("Ethernet8"), "trunk_ 99");
   EXPECT_EQ(bridge.vlansOf("Ethernet8"), "99 100t 101t 102t");
   EXPECT_EQ(bridge.port("Port-Channel2"), "access_ 13");
   EXPECT_EQ(bridge.vlansOf("Port-Channel2"), "13");
   EXPECT_EQ(bridge.port("Ethernet6"), "access_ 10") << "it has no record for this port";

   bridge.set(provisioning + ".switchIntfConfigPriority", "40");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
   bridge.set(cliInput + ".switchIntfConfigPriority", "39");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), overridden);
   bridge.set(provisioning + ".switchIntfConfigPriority", "0"); // takes no part
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
   bridge.set(cliInput + ".switchIntfConfigPriority", "4294967295");
   bridge.set(provisioning + ".switchIntfConfigPriority", "4294967294");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
   // The record of one port with the greater priority is deleted: the other input's is next, then
   // the default.
   bridge.erase(cliPort("Ethernet7"));
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet7"), "access_ 120");
   bridge.erase(provisioning + ".switchIntfConfig[Ethernet7]");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet7"), "access_ 0");
}

TEST_F(LeafSwitchTest, whatAPublisherChangesInAPortThatItDoesNotWinIsOfNoConsequence) {
   bridge.load(leafProvisioning);
   bridge.settle();
   std::string const before = bridge.dump("bridging/config");
   bridge.set(cliPort("Ethernet7") + ".accessVlan", "20");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
}

TEST_F(LeafSwitchTest, portsOfAVanishedInputGoToTheNextBest) {
   std::string const before = bridge.dump();
   bridge.load(leafProvisioning);
   bridge.settle();
   EXPECT_NE(bridge.dump(), before);
   bridge.erase(provisioning);
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
   // It is made again under its name, as another publisher would do.
   bridge.load(leafProvisioning);
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet7"), "access_ 120");
}

// Nothing decides it again: a publisher that comes back finds the port as it left it.
TEST_F(LeafSwitchTest, portThatOnlyAVanishedInputHadStaysUntilSomebodyElseHasIt) {
   std::string const before = bridge.dump();
   bridge.load(leafProvisioning);
   bridge.set(provisioning + ".switchIntfConfig[Ethernet99]", "{\"accessVlan\": 40}");
   bridge.settle();
   bridge.erase(provisioning);
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet99"), "40");
   EXPECT_EQ(bridge.port("Ethernet7"), "access_ 10");
   bridge.set(cliPort("Ethernet99"), "{\"accessVlan\": 41}");
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet99"), "41");
   bridge.erase(cliPort("Ethernet99"));
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
}

TEST_F(LeafSwitchTest, vlansComeWholeFromThePublisherOfTheGreatestPriority) {
   std::string const before = bridge.dump("bridging/config");
   bridge.load(Json{{"bridging/input/config/fabric",
                     {{"$type", "Bridging::Input::Config"},
                      {"sourceDetail", "fabric controller"},
                      {"vlanConfig", {{"10", {{"configuredName", "red"}}}, {"500", Json::object()}}},
                      {"vlanConfigPriority", 70}}}});
   bridge.settle();
   EXPECT_THAT(bridge.keys("bridging/config.vlanConfig"),
               ElementsAre("10", "500", "1006", "1007", "1008")) // the internal ones belong to ports
       << bridge.dump("bridging/config");
   EXPECT_EQ(bridge.get(resolvedVlan(10) + ".configSource"), "\"fabric\"");
   EXPECT_EQ(bridge.get(resolvedVlan(10) + ".configuredName"), "\"red\"");
   EXPECT_EQ(bridge.get("bridging/config.vlanConfigSourceDetail"), "\"fabric controller\"");
   EXPECT_EQ(bridge.vlansOf("Ethernet29"), "10t 500t");
   EXPECT_EQ(bridge.port("Ethernet29"), "trunk_ 0");
   EXPECT_EQ(bridge.port("Ethernet13"), "access_ 0");
   bridge.erase("bridging/input/config/fabric");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
}

TEST_F(LeafSwitchTest, publisherThatIsKilledWhilePublishingLeavesWhatTheDatabaseHasTaken) {
   std::string const before = bridge.dump("bridging/config");
   auto batch = bridge.database().startCtl({"batch"});
   batch->write("[\"create\", \"bridging/input/config/dying\", \"Bridging::Input::Config\"]\n"
                "[\"set\", \"bridging/input/config/dying.switchIntfConfigPriority\", 90]\n");
   for (int port = 1; port <= 40; ++port)
      batch->write("[\"set\", \"bridging/input/config/dying.switchIntfConfig[Ethernet" +
                   std::to_string(port) + "]\", {\"accessVlan\": 60}]\n");
   for (int answers = 0; answers < 2 + 15; ++answers) {
      auto const line = batch->readLine();
      ASSERT_TRUE(line);
      EXPECT_THAT(*line, HasSubstr("true"));
   }
   batch->signal(SIGKILL);
   batch->wait();
   bridge.settle();
   auto const taken = bridge.read("bridging/input/config/dying.switchIntfConfig");
   EXPECT_GE(taken.size(), 15u);
   for (auto const& [intf, record] : taken.items()) {
      EXPECT_EQ(bridge.port(intf), "access_ 60");
      EXPECT_EQ(bridge.vlansOf(intf), "60");
   }
   EXPECT_EQ(bridge.port("Ethernet45").substr(0, 7), "routed_");
   bridge.erase("bridging/input/config/dying");
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
}

TEST_F(LeafSwitchTest, writeThatIsCutOffByTheEndOfItsWriterIsNoWrite) {
   std::string const before = bridge.dump();
   auto const& type = *Records::schema().entity("Bridging::Input::CliConfig");
   {
      RawClient client(bridge.database().socket());
      client.welcomed("dying");
      client.mount(1, cliInput);
      auto const mounted = client.read(Ordel::Frame::mounted);
      ASSERT_TRUE(mounted);
      Wire::Reader in(mounted->payload);
      in.u32();
      Wire::Writer block;
      block.u8(static_cast<uint8_t>(Ordel::Op::at));
      block.u32(in.u32());
      block.u8(0);
      for (uint16_t vlan = 2000; vlan < 2100; ++vlan) {
         auto const attribute = static_cast<uint8_t>(type.find("vlanConfig"));
         block.u8(static_cast<uint8_t>(Ordel::Op::create));
         block.u8(attribute);
         block.u16(vlan);
         block.u16(type.attributes[attribute].target->id);
      }
      Ordel::FrameBuffer frame;
      Wire::Writer& out = frame.begin(Ordel::Frame::write);
      out.u32(0);
      out.u64(0);
      out.u8(0);
      out.raw(block.view().data(), block.size());
      frame.end();
      ASSERT_TRUE(client.send(frame.view().substr(0, frame.size() - 1)));
   }
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
}

// --- Bad input.

TEST_F(LeafSwitchTest, ofABadVlanListWhatIsSpelledRightCounts) {
   struct Case {
      char const* list;
      char const* vlans;
   };
   for (auto const& [list, vlans] : {Case{"10,garbage,20", "10t 20t"},
                                     {"20-10", ""},
                                     {"10-13,11-12,12-20,10", "10t 11t 12t 13t 20t"},
                                     {"10,4095,5000,99999999999999999999", "10t"},
                                     {"  10 , 12 - 13 ,", "10t 12t 13t"},
                                     {"0-13", ""},
                                     {"999-65536,90-91", "90t 91t"},
                                     {"-10,10-,--,,-", ""},
                                     {"1 0,0x0a,+11,11.5,20", "20t"},
                                     {"\\n10\\u0000,\\u00e9,13", "13t"}}) {
      bridge.set(cliPort("Ethernet25") + ".trunkAllowedVlans", "\"" + std::string(list) + "\"");
      bridge.settle();
      EXPECT_EQ(bridge.vlansOf("Ethernet25"), vlans) << list;
   }
   // Half a megabyte of such items.
   std::string many = "\"12";
   for (int i = 0; i < 50'000; ++i)
      many += ",9-8,x" + std::to_string(i);
   bridge.load(
       Json{{cliInput, {{"switchIntfConfig", {{"Ethernet25", {{"trunkAllowedVlans", many.substr(1)}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.vlansOf("Ethernet25"), "12t");
   // Lists of the other modes are read the same way.
   bridge.set(cliPort("Ethernet37") + ".tapAllowedVlans", "\"200,x\"");
   bridge.set(cliPort("Ethernet39") + ".toolAllowedVlans", "\"x,201\"");
   bridge.set(cliPort("Ethernet40") + ".asymVlans", "\"40,,41-x,120 \"");
   expectAgentRuns();
   EXPECT_EQ(bridge.vlansOf("Ethernet37"), "200r");
   EXPECT_EQ(bridge.vlansOf("Ethernet39"), "201s");
   EXPECT_EQ(bridge.vlansOf("Ethernet40"), "40 120");
}

TEST_F(LeafSwitchTest, valueOutOfRangeIsRefusedAndChangesNothing) {
   std::string const before = bridge.dump();
   for (auto const& [selector, value] : std::map<std::string, std::string>{
            {cliPort("Ethernet1") + ".accessVlan", "0"},
            {cliPort("Ethernet2") + ".accessVlan", "4095"},
            {cliPort("Ethernet3") + ".trunkNativeVlan", "4095"},
            {cliVlan(4095) + ".configuredName", "none"},
            {cliVlan(10) + ".vlanTypeAndPrimaryVlan", "{\"vlanType\": 0, \"primaryVlan\": 9999}"},
            {cliInput + ".internalVlanRange", "{\"min\": 70000, \"max\": 70001}"},
            {cliInput + ".switchIntfConfigPriority", "4294967296"},
            {cliInput + ".vlanConfigPriority", "-1"}}) {
      Result const result = bridge.database().ctl({"set", selector, value});
      EXPECT_EQ(result.status, 3) << selector;
      EXPECT_THAT(result.errors, HasSubstr("ordelctl: ")) << selector;
   }
   expectAgentRuns();
   EXPECT_EQ(bridge.dump(), before);
}

TEST_F(LeafSwitchTest, thousandsOfPortsOfUnknownKindsAreJustPorts) {
   Json ports = Json::object();
   for (int i = 0; i < 3000; ++i)
      ports[(i % 3 == 0   ? "Weird-" + std::to_string(i) + "/x"
             : i % 3 == 1 ? "@" + std::to_string(i)
                          : std::to_string(i) + std::string(80, 'y'))] = {{"accessVlan", 60}};
   std::string const before = bridge.members(60);
   bridge.load(Json{{cliInput, {{"switchIntfConfig", ports}}}});
   bridge.settle();
   EXPECT_EQ(bridge.read("bridging/config.vlanConfig[60].intf").size(),
             3000 + static_cast<size_t>(std::count(before.begin(), before.end(), ' ')) + 1);
   EXPECT_EQ(bridge.port("Weird-2997/x"), "access_ 60");
   EXPECT_EQ(bridge.port("@4"), "access_ 60");
   for (auto const& [intf, record] : ports.items())
      ports[intf] = {{"enabled", false}}; // routed, without an interface that the agent knows
   bridge.load(Json{{cliInput, {{"switchIntfConfig", ports}}}});
   bridge.settle();
   EXPECT_EQ(bridge.members(60), before);
   EXPECT_EQ(bridge.port("@4"), "routed_ 0");
   EXPECT_EQ(bridge.waiting().size(), 1u);
   expectAgentRuns();
}

TEST_F(LeafSwitchTest, modesAndStatesThatNobodyKnowsDoNotReachTheResolvedSideWrong) {
   // Numbers without a name are taken as numbers.
   bridge.set("interface/config/eth/intf.intfConfig[Ethernet45].enabledStateLocal", "77");
   bridge.set("interface/status/eth/intf.intfStatus[Ethernet1].forwardingModel", "200");
   bridge.set(cliInput + ".internalVlanAllocationPolicy", "9");
   expectAgentRuns();
   EXPECT_EQ(bridge.port("Ethernet1"), "access_ 10");
}

TEST_F(LeafSwitchTest, prioritiesOfTheGreatestNumberTakePartLikeAnyOther) {
   std::string const before = bridge.dump("bridging/config");
   bridge.load(leafProvisioning);
   for (std::string const& input : {cliInput, provisioning})
      for (char const* const priority : {".switchIntfConfigPriority", ".vlanConfigPriority"})
         bridge.set(input + priority, "4294967295");
   expectAgentRuns();
   // Nothing promises which of two equal inputs wins; the choice is one of the two as a whole.
   EXPECT_THAT(bridge.port("Ethernet7"), testing::AnyOf("access_ 10", "access_ 120", "access_ 0"));
   bridge.erase(provisioning);
   bridge.settle();
   EXPECT_EQ(bridge.dump("bridging/config"), before);
}

TEST_F(LeafSwitchTest, emptyInternalRangeLeavesEveryNewRoutedPortWaiting) {
   bridge.set(cliInput + ".internalVlanRange", "{\"min\": 3000, \"max\": 2000}");
   bridge.settle();
   std::string const holder = bridge.read(resolvedVlan(1006) + ".configuredName");
   EXPECT_EQ(bridge.port(holder), "routed_ 1006") << "a port keeps what it has";
   std::string const state = "interface/config/eth/intf.intfConfig[" + holder + "].enabledStateLocal";
   bridge.set(state, "enabledStateShutdown");
   bridge.settle();
   bridge.set(state, "enabledStateEnabled");
   expectAgentRuns();
   EXPECT_EQ(bridge.port(holder), "routed_ 0");
   EXPECT_EQ(bridge.waiting().size(), 2u);
}

// A number that no VLAN can have must not become a VLAN's: the agent ends instead.
TEST_F(LeafSwitchTest, internalRangeThatReachesZeroEndsTheAgentWithItsReason) {
   bridge.load(Json{{cliInput,
                     {{"internalVlanRange", {{"min", 0}, {"max", 10}}},
                      {"switchIntfConfig", {{"Ethernet44", {{"enabled", false}}}}}}}});
   bridge.set("interface/status/eth/intf.intfStatus[Ethernet44].forwardingModel",
              "intfForwardingModelRouted");
   EXPECT_EQ(bridge.agentProcess().wait(), 6);
   EXPECT_THAT(bridge.agentProcess().errors().text(), HasSubstr("VlanId::value < 1 or > 4094 not allowed"));
   // A range that makes sense lets the next agent come up.
   bridge.set(cliInput + ".internalVlanRange", "{\"min\": 1006, \"max\": 1020}");
   bridge.startAgent();
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet44").substr(0, 10), "routed_ 10");
}

} // namespace
