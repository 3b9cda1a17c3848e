// The agent is killed and comes back: its subscribers see only what the intent asks for.
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

#include <set>

namespace {

using namespace Scenario;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::string cliPort(std::string const& intf) {
   return cliInput + ".switchIntfConfig[" + intf + "]";
}
std::string cliVlan(int vlan) {
   return cliInput + ".vlanConfig[" + std::to_string(vlan) + "]";
}
std::string vlan(int number) {
   return "bridging/config.vlanConfig[" + std::to_string(number) + "]";
}
std::string portMode(std::string const& intf) {
   return "bridging/config.switchIntfConfig[" + intf + "].switchportModeAndNativeVlan";
}

struct BridgingRestartTest : testing::Test {
   Switch bridge;

   std::unique_ptr<Subscriber> subscribe(std::string const& place = "bridging") {
      return std::make_unique<Subscriber>(bridge.database().socket(), place);
   }
   // A new agent on what the last one left, until it has settled.
   void comeBack() {
      bridge.startAgent();
      bridge.settle();
   }
   void verifyNobodySeesRestarts(int count) {
      std::string const before = bridge.dump();
      auto const subscriber = subscribe();
      auto const ports = subscribe("interface");
      std::string const mirrored = subscriber->text();
      for (int round = 0; round < count; ++round) {
         bridge.killAgent();
         comeBack();
         subscriber->takeAll();
         ports->takeAll();
         EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
         EXPECT_EQ(ports->bytes(), 0u) << ports->seen();
         EXPECT_EQ(subscriber->text(), mirrored);
         EXPECT_EQ(bridge.dump(), before);
      }
   }
};

TEST_F(BridgingRestartTest, killedAgentComesBackAndNobodySeesAnything) {
   bridge.load(leafSwitch);
   bridge.load(leafProvisioning);
   bridge.settle();
   verifyNobodySeesRestarts(3);
}

TEST_F(BridgingRestartTest, whatWasPublishedMeanwhileIsAllThatChanges) {
   bridge.load(leafSwitch);
   bridge.settle();
   auto const subscriber = subscribe();
   bridge.killAgent();
   bridge.set(cliVlan(10) + ".configuredName", "\"renamed\"");
   bridge.set(cliPort("Ethernet1") + ".accessVlan", "20");
   bridge.erase(cliVlan(41));
   bridge.set(cliVlan(300), "{\"configuredName\": \"new\"}");
   bridge.set(cliVlan(31) + ".trunkGroup[storage-fabric]", "false");
   bridge.erase(cliPort("Ethernet35"));
   bridge.set(cliInput + ".hostAgingTime", "60");
   subscriber->takeAll();
   subscriber->begin();
   comeBack();
   subscriber->takeAll();
   std::vector<std::string> const expected = {
       "set bridging/config.hostAgingTime",
       "set " + vlan(10) + ".configuredName",
       "erase " + vlan(10) + ".intf[Ethernet1]",
       "put " + vlan(20) + ".intf[Ethernet1]",
       "set " + portMode("Ethernet1"),
       "erase " + vlan(41),
       "create " + vlan(300),
       "set " + vlan(300) + ".configSource",
       "set " + vlan(300) + ".configuredName",
       "put " + vlan(300) + ".intf[Ethernet29]",
       "put " + vlan(300) + ".intf[Ethernet30]",
       "put " + vlan(300) + ".intf[Ethernet31]",
       "put " + vlan(300) + ".intf[Ethernet32]",
       "put " + vlan(300) + ".intf[Ethernet33]",
       "put " + vlan(300) + ".intf[Ethernet34]",
       // It has left its only trunk group.
       "erase " + vlan(31) + ".trunkGroup[storage-fabric]",
       "put " + vlan(31) + ".intf[Ethernet33]",
       "put " + vlan(31) + ".intf[Ethernet34]",
       "put " + vlan(31) + ".intf[Port-Channel1]",
       "put " + vlan(31) + ".intf[Port-Channel2]",
       // It has the default record now.
       "put bridging/switchIntfConfig.switchIntfConfig[Ethernet35]",
       "set " + portMode("Ethernet35"),
       "erase " + vlan(110) + ".intf[Ethernet35]",
   };
   EXPECT_THAT(subscriber->operations(), testing::UnorderedElementsAreArray(expected));

   // Once more, with nothing published: nothing.
   subscriber->begin();
   bridge.killAgent();
   comeBack();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
}

// What a new agent makes of the same inputs, with no past.
TEST_F(BridgingRestartTest, whatWasPublishedMeanwhileComesOutAsItWouldForAnAgentThatSawIt) {
   bridge.load(leafSwitch);
   bridge.settle();
   bridge.load(leafProvisioning);
   bridge.settle();
   std::string const wanted = bridge.dump();

   Switch other;
   other.load(leafSwitch);
   other.settle();
   other.killAgent();
   other.load(leafProvisioning);
   other.startAgent();
   other.settle();
   EXPECT_EQ(other.dump(), wanted);
}

// --- What went meanwhile.

TEST_F(BridgingRestartTest, portThatLostItsOnlyRecordMeanwhileGoesAsItWouldHaveGone) {
   std::string const lag = "Port-Channel77"; // without an interface, and so without a default record
   std::string const record = "{\"accessVlan\": 20}";
   bridge.load(leafSwitch);
   bridge.settle();
   std::string const wanted = bridge.dump();
   bridge.set(cliPort(lag), record);
   bridge.settle();
   ASSERT_EQ(bridge.port(lag), "access_ 20");
   bridge.killAgent();
   bridge.erase(cliPort(lag));
   comeBack();
   EXPECT_EQ(bridge.dump(), wanted);
   // It is made again, and deleted again while the agent runs.
   bridge.set(cliPort(lag), record);
   bridge.settle();
   EXPECT_EQ(bridge.port(lag), "access_ 20");
   bridge.erase(cliPort(lag));
   bridge.settle();
   EXPECT_EQ(bridge.dump(), wanted);
   bridge.killAgent();
   comeBack();
   EXPECT_EQ(bridge.dump(), wanted);
}

TEST_F(BridgingRestartTest, portsOfAnInputThatWasWithdrawnMeanwhileGo) {
   bridge.load(leafSwitch);
   bridge.settle();
   std::string const before = bridge.dump();
   std::string const lab = "bridging/input/config/lab";
   bridge.done({"create", lab, "Bridging::Input::Config"});
   bridge.settle();
   bridge.load(Json{{lab,
                     {{"switchIntfConfig",
                       {{"Ethernet1", {{"accessVlan", 20}}}, {"Port-Channel77", {{"accessVlan", 20}}}}},
                      {"switchIntfConfigPriority", 500}}}});
   bridge.settle();
   ASSERT_EQ(bridge.port("Ethernet1"), "access_ 20");
   ASSERT_EQ(bridge.port("Port-Channel77"), "access_ 20");
   bridge.killAgent();
   bridge.erase(lab);
   comeBack();
   EXPECT_EQ(bridge.dump(), before);
}

TEST_F(BridgingRestartTest, settingsThatWentMeanwhileGo) {
   bridge.set(cliInput + ".vidToFidMap[10]", "7");
   bridge.set(cliInput + ".vidToFidMap[20]", "7");
   bridge.set(cliInput + ".ieeeReservedForwarding[01:80:c2:00:00:0e]", "true");
   bridge.settle();
   ASSERT_EQ(bridge.keys("bridging/config.vidToFidMap").size(), 2u);
   bridge.killAgent();
   bridge.erase(cliInput + ".vidToFidMap[10]");
   bridge.erase(cliInput + ".ieeeReservedForwarding[01:80:c2:00:00:0e]");
   comeBack();
   EXPECT_THAT(bridge.keys("bridging/config.vidToFidMap"), ElementsAre("20"));
   EXPECT_THAT(bridge.keys("bridging/config.ieeeReservedForwarding"), IsEmpty());
}

TEST_F(BridgingRestartTest, portWhoseOnlyRecordWentMeanwhileGoes) {
   // It has no default record.
   bridge.set(cliInput + ".switchIntfConfigPriority", "50");
   bridge.set(cliPort("Port-Channel9"), "{}");
   bridge.load(Json{{"bridging/input/config/mvrp",
                     {{"$type", "Bridging::Input::Config"},
                      {"switchIntfConfig", {{"Port-Channel8", Json::object()}}},
                      {"switchIntfConfigPriority", 11}}}});
   bridge.settle();
   ASSERT_THAT(bridge.keys("bridging/switchIntfConfig.switchIntfConfig"),
               ElementsAre("Port-Channel8", "Port-Channel9"));
   bridge.killAgent();
   bridge.erase(cliPort("Port-Channel9"));
   bridge.erase("bridging/input/config/mvrp");
   comeBack();
   EXPECT_THAT(bridge.keys("bridging/switchIntfConfig.switchIntfConfig"), IsEmpty());
   EXPECT_EQ(bridge.port("Port-Channel8"), "none");
   EXPECT_EQ(bridge.port("Port-Channel9"), "none");
}

// --- What happens afterwards.

// 1. The agent is started again: which record each port follows comes from the database.
// 2. The port's record is deleted; the default record takes over.
// 3. Somebody makes a VLAN that has nothing to do with it.
TEST_F(BridgingRestartTest, portThatChangedHandsAfterARestartStays) {
   bridge.load(leafSwitch);
   bridge.settle();
   bridge.killAgent();
   comeBack();
   bridge.erase(cliPort("Ethernet35"));
   bridge.settle();
   std::string const chosen = "bridging/switchIntfConfig.switchIntfConfig[Ethernet35]";
   std::string const record = bridge.get(chosen), port = bridge.port("Ethernet35");
   ASSERT_NE(port, "none");
   bridge.set(cliVlan(301), "{}");
   bridge.settle();
   EXPECT_EQ(bridge.get(chosen), record);
   EXPECT_EQ(bridge.port("Ethernet35"), port);
   bridge.set("bridging/input/config/eth.switchIntfConfig[Ethernet35].accessVlan", "301");
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet35"), "access_ 301");
}

TEST_F(BridgingRestartTest, portThatIsDeletedByItsLastPublisherAfterARestartGoes) {
   bridge.set(cliInput + ".switchIntfConfigPriority", "50");
   bridge.set(cliPort("Port-Channel9"), "{}");
   bridge.settle();
   ASSERT_NE(bridge.port("Port-Channel9"), "none");
   bridge.killAgent();
   comeBack();
   bridge.erase(cliPort("Port-Channel9"));
   bridge.settle();
   EXPECT_THAT(bridge.keys("bridging/switchIntfConfig.switchIntfConfig"), IsEmpty());
   EXPECT_EQ(bridge.port("Port-Channel9"), "none");
}

// --- Scale.

TEST_F(BridgingRestartTest, everyVlanStaysUntouched) {
   constexpr int vlanCount = 4094;
   constexpr int portCount = 12;
   Json vlans = Json::object(), ports = Json::object();
   for (int number = 1; number <= vlanCount; ++number)
      vlans[std::to_string(number)] = {{"configuredName", "v" + std::to_string(number)}};
   for (int port = 1; port <= portCount; ++port)
      ports["Ethernet" + std::to_string(port)] = {{"switchportMode", "trunk_"}};
   bridge.load(Json{{cliInput,
                     {{"vlanConfig", vlans},
                      {"switchIntfConfig", ports},
                      {"vlanConfigPriority", 50},
                      {"switchIntfConfigPriority", 50}}}});
   bridge.settle();
   auto const subscriber = subscribe();
   EXPECT_EQ(subscriber->memberships(), size_t(vlanCount * portCount));
   bridge.killAgent();
   comeBack();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->count() << " changes";

   bridge.killAgent();
   bridge.set(cliVlan(2000) + ".configuredName", "\"renamed\"");
   bridge.set(cliPort("Ethernet7") + ".trunkAllowedVlans", "\"1-1999,2001-4094\"");
   subscriber->takeAll();
   subscriber->begin();
   comeBack();
   subscriber->takeAll();
   EXPECT_THAT(subscriber->operations(), UnorderedElementsAre("set " + vlan(2000) + ".configuredName",
                                                              "erase " + vlan(2000) + ".intf[Ethernet7]"));
   EXPECT_EQ(subscriber->memberships(), size_t(vlanCount * portCount - 1));
}

// --- An agent that was stopped is notified of everything in one turn.

TEST_F(BridgingRestartTest, inputThatIsMadeAgainMeanwhileIsDecidedAgain) {
   std::string const lab = "bridging/input/config/lab";
   auto const publish = [&](Switch& to, Json const& ports) {
      to.done({"create", lab, "Bridging::Input::Config"});
      to.load(Json{{lab, {{"switchIntfConfig", ports}}}});
   };
   Json const first = {{"Ethernet1", {{"accessVlan", 20}}}, {"Ethernet2", {{"accessVlan", 20}}}};
   Json const second = {{"Ethernet2", {{"accessVlan", 30}}}, {"Ethernet3", {{"accessVlan", 30}}}};
   auto const raise = [&](Switch& to) { to.set(lab + ".switchIntfConfigPriority", "500"); };
   bridge.load(leafSwitch);
   bridge.settle();
   std::string const before = bridge.dump();
   publish(bridge, first);
   raise(bridge);
   bridge.settle();
   ASSERT_EQ(bridge.port("Ethernet1"), "access_ 20");

   auto& agent = bridge.agentProcess();
   agent.signal(SIGSTOP);
   bridge.erase(lab);
   publish(bridge, second);
   agent.signal(SIGCONT);
   bridge.settle();
   for (std::string const intf : {"Ethernet1", "Ethernet2", "Ethernet3"})
      EXPECT_EQ(bridge.read("bridging/switchIntfConfig.switchIntfConfig[" + intf + "]")["$ref"],
                cliPort(intf));
   agent.signal(SIGSTOP);
   raise(bridge);
   bridge.erase(cliPort("Ethernet3"));
   agent.signal(SIGCONT);
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet2"), "access_ 30");
   EXPECT_EQ(bridge.port("Ethernet3"), "access_ 30");

   // As in a switch that never knew the first one.
   Switch other;
   other.load(leafSwitch);
   publish(other, second);
   other.settle();
   raise(other);
   other.erase(cliPort("Ethernet3"));
   other.settle();
   EXPECT_EQ(bridge.dump(), other.dump());
}

// --- The other supervisor takes over.

// A standby agent on a switch that an active one has set up; the active one has just ended with
// its supervisor.
struct SwitchoverTest : BridgingRestartTest {
   std::string const role = "cell/1/redundancy/status";

   void SetUp() override {
      bridge.load(leafSwitch);
      bridge.load(leafProvisioning);
      bridge.settle();
      bridge.killAgent();
      bridge.set(role + ".protocol", "protocolHotStandby");
      bridge.set(role + ".mode", "modeStandby");
      comeBack();
   }
   void takeOver() {
      bridge.set(role + ".mode", "modeActive");
      bridge.settle();
   }
};

TEST_F(SwitchoverTest, nobodySeesAnythingOfATakeoverOnUnchangedIntent) {
   std::string const before = bridge.dump();
   auto const subscriber = subscribe();
   auto const ports = subscribe("interface");
   takeOver();
   subscriber->takeAll();
   ports->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
   EXPECT_EQ(ports->bytes(), 0u) << ports->seen();
   EXPECT_EQ(bridge.dump(), before);
   // It is at work: it follows a change, with the same outcome as an agent that was active from its start.
   bridge.set(cliVlan(10) + ".configuredName", "\"renamed\"");
   bridge.settle();
   subscriber->takeAll();
   EXPECT_THAT(subscriber->operations(),
               ElementsAre("set " + cliVlan(10) + ".configuredName", "set " + vlan(10) + ".configuredName"));
   std::string const after = bridge.dump();
   subscriber->begin();
   bridge.killAgent();
   comeBack();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
   EXPECT_EQ(bridge.dump(), after);
}

TEST_F(SwitchoverTest, whatWasPublishedMeanwhileAndWithTheTakeoverIsAllThatChanges) {
   bridge.set(cliVlan(10) + ".configuredName", "\"renamed\"");
   bridge.erase(cliVlan(41));
   auto const subscriber = subscribe();
   // In one turn of the agent.
   bridge.load(Json{{role, {{"mode", "modeActive"}}}, {cliInput, {{"hostAgingTime", 60}}}});
   bridge.settle();
   subscriber->takeAll();
   EXPECT_THAT(subscriber->operations(),
               UnorderedElementsAre("set " + cliInput + ".hostAgingTime", "set bridging/config.hostAgingTime",
                                    "set " + vlan(10) + ".configuredName", "erase " + vlan(41)));
   subscriber->begin();
   bridge.set(cliPort("Ethernet1") + ".accessVlan", "20");
   bridge.settle();
   subscriber->takeAll();
   EXPECT_THAT(subscriber->operations(),
               UnorderedElementsAre("set " + cliPort("Ethernet1") + ".accessVlan",
                                    "erase " + vlan(10) + ".intf[Ethernet1]",
                                    "put " + vlan(20) + ".intf[Ethernet1]", "set " + portMode("Ethernet1")));
}

// Becoming standby again tears nothing down, and taking over again makes nothing twice.
TEST_F(SwitchoverTest, supervisorMayFallBackAndTakeOverAgain) {
   takeOver();
   auto const subscriber = subscribe();
   bridge.set(role + ".mode", "modeStandby");
   bridge.settle();
   takeOver();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
}

// --- Internal VLANs.

// Ports that are routed because nobody says otherwise.
struct RoutedRestartTest : BridgingRestartTest {
   static constexpr int portCount = 6;

   static std::string intf(int port) { return "Ethernet" + std::to_string(port); }
   void loadInterfaces() {
      Json config = Json::object(), status = Json::object();
      for (int port = 1; port <= portCount; ++port) {
         config[intf(port)] = Json::object();
         status[intf(port)] = {{"forwardingModel", "intfForwardingModelRouted"}};
      }
      bridge.load(Json{{"interface/config/eth/intf", {{"intfConfig", config}}},
                       {"interface/status/eth/intf", {{"intfStatus", status}}}});
   }
   void shutIs(int port, bool isShut) {
      bridge.set("interface/config/eth/intf.intfConfig[" + intf(port) + "].enabledStateLocal",
                 isShut ? "enabledStateShutdown" : "enabledStateEnabled");
      bridge.settle();
   }
   // Ports give their numbers back and get them again in another order than a start would give them.
   void mixUp() {
      for (int port : {1, 2, 4})
         shutIs(port, true);
      for (int port : {4, 1, 2})
         shutIs(port, false);
      shutIs(3, true);
   }
   std::vector<std::string> numbers() const {
      std::vector<std::string> all;
      for (int port = 1; port <= portCount; ++port)
         all.push_back(bridge.port(intf(port)));
      return all;
   }
};

TEST_F(RoutedRestartTest, settingTheDefaultModeEndsTheAgentAndTheNextOneFollowsIt) {
   loadInterfaces();
   bridge.settle();
   EXPECT_THAT(numbers(), testing::Each("access_ 0"));
   bridge.set("bridging/config.defaultSwitchportMode", "routed_");
   EXPECT_EQ(bridge.agentProcess().wait(), 0);
   comeBack();
   EXPECT_EQ(bridge.get("bridging/config.defaultSwitchportMode"), "\"routed_\"");
   EXPECT_THAT(numbers(), UnorderedElementsAre("routed_ 1006", "routed_ 1007", "routed_ 1008", "routed_ 1009",
                                               "routed_ 1010", "routed_ 1011"));
}

TEST_F(RoutedRestartTest, internalVlansKeepTheirNumbers) {
   bridge.set("bridging/config.defaultSwitchportMode", "routed_");
   EXPECT_EQ(bridge.agentProcess().wait(), 0);
   bridge.startAgent();
   loadInterfaces();
   bridge.settle();
   mixUp();
   auto const before = numbers();
   verifyNobodySeesRestarts(2);
   EXPECT_EQ(numbers(), before);
   // A number was taken meanwhile: only the port that had it is affected.
   std::string const owner = intf(1);
   std::string const number = bridge.vlansOf(owner);
   bridge.killAgent();
   bridge.load(Json{{"interface/config/eth/vlan", {{"intfConfig", {{"Vlan" + number, Json::object()}}}}}});
   comeBack();
   EXPECT_EQ(bridge.port(owner), "routed_ 0");
   EXPECT_THAT(bridge.waiting(), ElementsAre(owner));
   auto const after = numbers();
   for (size_t port = 0; port < after.size(); ++port)
      if (intf(int(port) + 1) != owner) {
         EXPECT_EQ(after[port], before[port]);
      }
}

// A port that the command line makes routed has no claim on its old number: the next agent gives numbers out
// again, in the order in which it comes to the ports.
TEST_F(RoutedRestartTest, portsThatTheCommandLineRoutesHaveANumberEachAfterARestart) {
   loadInterfaces();
   Json ports = Json::object();
   for (int port = 1; port <= portCount; ++port)
      ports[intf(port)] = {{"enabled", false}};
   bridge.load(Json{{cliInput, {{"switchIntfConfig", ports}, {"switchIntfConfigPriority", 50}}}});
   bridge.settle();
   mixUp();
   bridge.killAgent();
   comeBack();
   auto const after = numbers();
   EXPECT_EQ(std::set(after.begin(), after.end()).size(), after.size());
   EXPECT_EQ(after[2], "routed_ 0"); // it is shut
   EXPECT_THAT(bridge.waiting(), IsEmpty());
   // What it is given then stays, over any number of restarts.
   auto const subscriber = subscribe();
   bridge.killAgent();
   comeBack();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen();
}

TEST(BridgingRespawnTest, runnerBringsBackAnAgentThatAsksToBeStartedAgain) {
   Switch bridge({"--respawn"});
   bridge.load(Json{{"interface/config/eth/intf", {{"intfConfig", {{"Ethernet1", Json::object()}}}}},
                    {"interface/status/eth/intf",
                     {{"intfStatus", {{"Ethernet1", {{"forwardingModel", "intfForwardingModelRouted"}}}}}}}});
   bridge.settle();
   EXPECT_EQ(bridge.port("Ethernet1"), "access_ 0");
   bridge.set("bridging/config.defaultSwitchportMode", "routed_");
   bridge.done({"wait", portMode("Ethernet1"), "{\"switchportMode\": \"routed_\", \"nativeVlan\": 1006}",
                "--timeout", "20"});
   EXPECT_TRUE(bridge.agentProcess().errors().waitFor("the agent ended with status 0", limit));
   bridge.set("bridging/config.defaultSwitchportMode", "access_");
   bridge.done({"wait", portMode("Ethernet1"), "{\"switchportMode\": \"access_\", \"nativeVlan\": 0}",
                "--timeout", "20"});
   bridge.agentProcess().signal(SIGTERM);
   EXPECT_EQ(bridge.agentProcess().wait(), 0);
}

} // namespace
