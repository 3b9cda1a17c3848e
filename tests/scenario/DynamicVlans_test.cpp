// Dynamic sources through the database and the real agent: what their publishers and the subscribers can tell.
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;

std::string const claims = "bridging/input/dynvlan/vlan/";
std::string const allowances = "bridging/input/dynvlan/allowedvlan/";

struct DynamicVlansTest : testing::Test {
   DynamicVlansTest() {
      bridge.load(leafSwitch);
      bridge.settle();
   }
   void claim(std::string const& source, std::string const& vlans, int priority = 0) {
      bridge.done({"create", claims + source, "Bridging::Input::VlanIdSet"});
      bridge.set(claims + source + ".configPriority", std::to_string(priority));
      bridge.set(claims + source + ".vlans", '"' + vlans + '"');
      bridge.settle();
   }
   void vlansAre(std::string const& source, std::string const& vlans) {
      bridge.set(claims + source + ".vlans", '"' + vlans + '"');
      bridge.settle();
   }
   void allow(std::string const& source, std::string const& intf, std::string const& vlans) {
      if (!bridge.exists(allowances + source))
         bridge.done({"create", allowances + source, "Bridging::Input::AllowedVlans"});
      bridge.set(allowances + source + ".vlans[" + intf + "]", '"' + vlans + '"');
      bridge.settle();
   }
   void withdraw(std::string const& entity) {
      bridge.erase(entity);
      bridge.settle();
   }
   static std::string cliVlan(int vlan) { return cliInput + ".vlanConfig[" + std::to_string(vlan) + "]"; }
   // Who the resolved VLAN is from, and its name: "overlay VLAN0300"; "none" where there is no such VLAN.
   std::string vlan(int number) {
      std::string const selector = "bridging/config.vlanConfig[" + std::to_string(number) + "]";
      if (!bridge.exists(selector))
         return "none";
      Json const record = bridge.read(selector);
      return record["configSource"].get<std::string>() + ' ' + record["configuredName"].get<std::string>();
   }

   Switch bridge;
};

TEST_F(DynamicVlansTest, vlanPassesFromSourceToSourceAndToAStaticInputAndBack) {
   claim("a", "300", 10);
   EXPECT_EQ(vlan(300), "a VLAN0300");
   claim("b", "300", 10);
   EXPECT_EQ(vlan(300), "b VLAN0300");
   bridge.set(cliVlan(300) + ".configuredName", "\"static\"");
   bridge.settle();
   EXPECT_EQ(vlan(300), "cli static");
   withdraw(claims + "b");
   EXPECT_EQ(vlan(300), "cli static");
   withdraw(cliVlan(300));
   EXPECT_EQ(vlan(300), "a VLAN0300");
   withdraw(claims + "a");
   EXPECT_EQ(vlan(300), "none");
}

TEST_F(DynamicVlansTest, trunksAreWidenedAndWhatMvrpAsksForNeedsThat) {
   claim("mvrp", "300");
   EXPECT_EQ(bridge.members(300), "");
   allow("mvrp", "Ethernet25", "300");
   EXPECT_EQ(bridge.members(300), "Ethernet25-t");
   withdraw(allowances + "mvrp");
   EXPECT_EQ(bridge.members(300), "");
}

TEST_F(DynamicVlansTest, trunkGroupsOfSourcesOpenVlansToPorts) {
   claim("overlay", "300");
   allow("fabric", "Ethernet25", "");
   bridge.set(claims + "overlay.trunkGroup[fabric]", "true");
   allow("fabric", "Ethernet25", "300");
   EXPECT_EQ(bridge.members(300), "");
   bridge.set(allowances + "fabric.trunkGroup[fabric].intfList[Ethernet25]", "true");
   bridge.settle();
   EXPECT_EQ(bridge.members(300), "Ethernet25-t");
   withdraw(allowances + "fabric.trunkGroup[fabric]");
   EXPECT_EQ(bridge.members(300), "");
}

TEST_F(DynamicVlansTest, sourceMadeAgainUnderItsNameIsFollowed) {
   claim("overlay", "300-301");
   claim("other", "301");
   bridge.erase(claims + "overlay");
   claim("overlay", "301-302");
   EXPECT_EQ(vlan(300), "none");
   EXPECT_EQ(vlan(301), "overlay VLAN0301");
   EXPECT_EQ(vlan(302), "overlay VLAN0302");
}

TEST_F(DynamicVlansTest, sourceThatChangesAThousandTimesEndsAsTheLastChange) {
   claim("a", "300-400", 10);
   claim("b", "300-400", 20);
   for (int i = 0; i < 100; ++i)
      bridge.set(claims + "a.configPriority", std::to_string(i % 40));
   bridge.set(claims + "a.configPriority", "21");
   vlansAre("a", "300-400,garbage,5000");
   EXPECT_EQ(vlan(350), "a VLAN0350");
   EXPECT_TRUE(bridge.agentProcess().isRunning());
   EXPECT_THAT(bridge.agentProcess().errors().text(),
               testing::HasSubstr("a dynamic VLANs left out, no VLAN numbers: garbage,5000"));
}

TEST_F(DynamicVlansTest, restartIsSeenByNobody) {
   claim("a", "10,300-340", 10);
   claim("b", "320-360", 20);
   claim("mvrp", "10,350-370");
   allow("mvrp", "Ethernet25", "360-365");
   bridge.set(claims + "a.trunkGroup[storage]", "true");
   bridge.settle();
   std::string const before = bridge.dump();
   Subscriber subscriber(bridge.database().socket(), "bridging");
   for (int round = 0; round < 2; ++round) {
      bridge.killAgent();
      bridge.startAgent();
      bridge.settle();
      subscriber.takeAll();
      EXPECT_EQ(subscriber.bytes(), 0u) << subscriber.seen();
      EXPECT_EQ(bridge.dump(), before);
   }
   // What changes meanwhile is all that changes.
   bridge.killAgent();
   bridge.erase(claims + "b");
   bridge.startAgent();
   bridge.settle();
   EXPECT_EQ(vlan(330), "a VLAN0330");
   EXPECT_EQ(vlan(345), "none");
   EXPECT_EQ(vlan(355), "mvrp VLAN0355");
}

} // namespace
