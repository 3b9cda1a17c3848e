// The status of VLAN interfaces through the database and the real agent. The test plays the interface
// manager, which makes the status records, and spanning tree, which says which ports forward.
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;

std::string const vlans = "bridging/vlan/status";
std::string const statuses = "interface/status/eth/vlan";
std::string const configs = "interface/config/eth/vlan";
std::string const sources = "interface/input/dynvlanintf/";
std::string const answers = "interface/inputError/dynvlanintf/";

std::string vlanIntf(int vlan) {
   return "Vlan" + std::to_string(vlan);
}
std::string config(int vlan) {
   return configs + ".intfConfig[" + vlanIntf(vlan) + "]";
}
std::string status(int vlan) {
   return statuses + ".intfStatus[" + vlanIntf(vlan) + "]";
}
std::string port(int vlan, std::string const& intf) {
   return vlans + ".vlanStatus[" + std::to_string(vlan) + "].vlanPortStatus[" + intf + "]";
}

struct VlanIntfStatusTest : testing::Test {
   // A VLAN interface with its status records.
   void configure(int vlan) {
      bridge.set(config(vlan), "{}");
      statusOf(vlan);
   }
   void statusOf(int vlan) {
      bridge.set(status(vlan), "{}");
      bridge.set("cell/1/" + statuses + "/local.intfStatusLocal[" + vlanIntf(vlan) + "]", "{}");
   }
   void ask(std::string const& source, int vlan, int priority = 0) {
      if (!bridge.exists(sources + source))
         bridge.done({"create", sources + source, "Interface::Input::DynVlanIntfConfigDir"});
      bridge.set(sources + source + ".priority", std::to_string(priority));
      bridge.set(sources + source + ".intfConfig[" + vlanIntf(vlan) + "]", "{}");
   }
   std::string operStatus(int vlan) {
      bridge.settle();
      return bridge.read(status(vlan) + ".operStatus").get<std::string>();
   }
   int changes(int vlan) { return bridge.read(status(vlan) + ".operStatusChange")["count"].get<int>(); }
   // What the source reads of its interfaces: {"Vlan10":true}.
   std::string answersOf(std::string const& source) {
      bridge.settle();
      return bridge.exists(answers + source) ? bridge.read(answers + source + ".intfConfigError").dump()
                                             : "none";
   }

   Switch bridge;
};

TEST_F(VlanIntfStatusTest, statusFollowsPortsConfigurationAutostateAndRole) {
   configure(10);
   EXPECT_EQ(operStatus(10), "intfOperLowerLayerDown");
   bridge.set(port(10, "Cpu"), "true");
   EXPECT_EQ(operStatus(10), "intfOperLowerLayerDown");
   bridge.set(port(10, "Ethernet1"), "true");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.set(config(10) + ".enabledStateLocal", "enabledStateShutdown");
   EXPECT_EQ(operStatus(10), "intfOperDown");
   bridge.set(config(10) + ".enabledStateLocal", "enabledStateDefault");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.set(config(10) + ".enabled", "false");
   EXPECT_EQ(operStatus(10), "intfOperDown");
   bridge.set(config(10) + ".enabled", "true");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.erase(port(10, "Ethernet1"));
   EXPECT_EQ(operStatus(10), "intfOperLowerLayerDown");
   bridge.set(config(10) + ".autoState", "false");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.set(config(10) + ".autoState", "true");
   EXPECT_EQ(operStatus(10), "intfOperLowerLayerDown");
   bridge.set("interface/config/eth/allVlanIntfAutoState.autoState", "false");
   EXPECT_EQ(operStatus(10), "intfOperUp");

   bridge.set(cliInput + ".vlanConfigPriority", "100");
   bridge.set(cliInput + ".vlanConfig[10].vlanTypeAndPrimaryVlan",
              R"({"vlanType": "secondary_", "primaryVlan": 20})");
   EXPECT_EQ(operStatus(10), "intfOperDown");
   EXPECT_EQ(changes(10), 11) << "each time that it came out otherwise";
}

TEST_F(VlanIntfStatusTest, recordsThatAreMadeAgainCount) {
   configure(10);
   bridge.set(port(10, "Ethernet1"), "true");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.erase(status(10));
   statusOf(10);
   EXPECT_EQ(operStatus(10), "intfOperUp");
   EXPECT_EQ(changes(10), 1) << "a record of its own";
   bridge.erase(vlans + ".vlanStatus[10]");
   bridge.set(port(10, "Ethernet2"), "true");
   EXPECT_EQ(operStatus(10), "intfOperUp");
   bridge.erase(config(10));
   EXPECT_EQ(operStatus(10), "intfOperUnknown");
   bridge.set(config(10), "{}");
   EXPECT_EQ(operStatus(10), "intfOperUp") << "what the reference leads to is there again";
   bridge.set(config(10) + ".enabled", "false");
   EXPECT_EQ(operStatus(10), "intfOperDown");
   int const before = changes(10);
   bridge.killAgent();
   bridge.startAgent();
   EXPECT_EQ(operStatus(10), "intfOperDown");
   EXPECT_EQ(changes(10), before);
}

TEST_F(VlanIntfStatusTest, nameThatIsNoVlanInterfaceDisturbsNobody) {
   configure(10);
   bridge.set(port(10, "Ethernet1"), "true");
   for (char const* const name : {"Vlan0", "Vlan4095", "Vlan10x"}) {
      bridge.set(configs + ".intfConfig[" + name + "]", "{}");
      bridge.set(statuses + ".intfStatus[" + name + "]", "{}");
   }
   for (bool const isAfterRestart : {false, true}) {
      EXPECT_EQ(operStatus(10), "intfOperUp");
      for (char const* const name : {"Vlan0", "Vlan4095", "Vlan10x"})
         EXPECT_THAT(
             bridge.agentProcess().errors().text(),
             testing::HasSubstr(std::string(name) + " is no VLAN interface: its status is left alone"));
      if (!isAfterRestart) {
         bridge.killAgent();
         bridge.startAgent();
      }
   }
   EXPECT_TRUE(bridge.agentProcess().isRunning());
}

TEST_F(VlanIntfStatusTest, restartIsSeenByNobodyAndWhatChangedMeanwhileIsAllThatChanges) {
   for (int vlan = 10; vlan < 40; ++vlan)
      configure(vlan);
   for (int vlan = 10; vlan < 25; ++vlan)
      bridge.set(port(vlan, "Ethernet1"), "true");
   bridge.set(config(12) + ".enabled", "false");
   ask("a", 50);
   ask("b", 50, 5);
   statusOf(50);
   EXPECT_EQ(operStatus(10), "intfOperUp");
   EXPECT_EQ(answersOf("a"), R"({"Vlan50":true})");
   EXPECT_EQ(answersOf("b"), R"({"Vlan50":false})");

   std::string const before = bridge.dump("interface");
   Subscriber subscriber(bridge.database().socket(), "interface");
   for (int round = 0; round < 2; ++round) {
      bridge.killAgent();
      bridge.startAgent();
      bridge.settle();
      subscriber.takeAll();
      EXPECT_EQ(subscriber.bytes(), 0u) << subscriber.seen();
      EXPECT_EQ(bridge.dump("interface"), before);
   }

   bridge.killAgent();
   bridge.set(port(30, "Ethernet1"), "true");
   bridge.erase(port(10, "Ethernet1"));
   bridge.set(config(12) + ".enabled", "true");
   bridge.erase(sources + "b");
   subscriber.takeAll();
   subscriber.begin();
   bridge.startAgent();
   bridge.settle();
   subscriber.takeAll();
   EXPECT_EQ(operStatus(30), "intfOperUp");
   EXPECT_EQ(operStatus(10), "intfOperLowerLayerDown");
   EXPECT_EQ(operStatus(12), "intfOperUp");
   EXPECT_EQ(operStatus(50), "intfOperLowerLayerDown") << "the other source has it now";
   EXPECT_EQ(answersOf("a"), R"({"Vlan50":false})");
   EXPECT_EQ(answersOf("b"), "none");
   for (auto const& operation : subscriber.operations())
      EXPECT_THAT(operation, testing::AnyOf(testing::HasSubstr("[Vlan10]"), testing::HasSubstr("[Vlan12]"),
                                            testing::HasSubstr("[Vlan30]"), testing::HasSubstr("Vlan50"),
                                            testing::HasSubstr("inputError/dynvlanintf")));
}

TEST_F(VlanIntfStatusTest, dynamicSourcesAreAnswered) {
   ask("overlay", 60, 1);
   ask("overlay", 61, 1);
   EXPECT_EQ(answersOf("overlay"), R"({"Vlan60":false,"Vlan61":false})");
   ask("other", 60, 2);
   EXPECT_EQ(answersOf("overlay"), R"({"Vlan60":true,"Vlan61":false})");
   bridge.set(sources + "overlay.priority", "3");
   EXPECT_EQ(answersOf("overlay"), R"({"Vlan60":false,"Vlan61":false})");
   EXPECT_EQ(answersOf("other"), R"({"Vlan60":true})");
   bridge.set(sources + "other.intfConfig[Ethernet1]", "{}");
   EXPECT_EQ(answersOf("other"), R"({"Ethernet1":true,"Vlan60":true})");
   EXPECT_THAT(bridge.agentProcess().errors().text(),
               testing::HasSubstr("source other asks for Ethernet1, which is no VLAN interface"));
   bridge.erase(sources + "overlay");
   EXPECT_EQ(answersOf("overlay"), "none");
   EXPECT_EQ(answersOf("other"), R"({"Ethernet1":true,"Vlan60":false})");
   EXPECT_TRUE(bridge.agentProcess().isRunning());
}

} // namespace
