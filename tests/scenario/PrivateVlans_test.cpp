// Private VLANs and translations, as publishers and subscribers see them.
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;
using ::testing::HasSubstr;
using ::testing::Not;

std::string cliVlan(int vlan) {
   return cliInput + ".vlanConfig[" + std::to_string(vlan) + "]";
}
std::string cliPort(std::string const& intf) {
   return cliInput + ".switchIntfConfig[" + intf + "]";
}

// The primary VLAN 100 with an isolated server in its secondary 101, a guest in 102, a promiscuous uplink in
// the primary, and a trunk to a switch that knows secondaries only. VLAN 100 has a VLAN interface.
struct PrivateVlansTest : testing::Test {
   PrivateVlansTest() {
      bridge.set("interface/config/eth/vlan.intfConfig[Vlan100]", "{}");
      bridge.load(Json{{cliInput,
                        {{"vlanConfigPriority", 100},
                         {"switchIntfConfigPriority", 100},
                         {"vlanConfig",
                          {{"100", {{"configuredName", "rack"}}},
                           {"101", {{"vlanTypeAndPrimaryVlan", secondaryOf100}}},
                           {"102", {{"vlanTypeAndPrimaryVlan", secondaryOf100}}}}},
                         {"switchIntfConfig",
                          {{"Ethernet1", {{"accessVlan", 101}}},
                           {"Ethernet2", {{"accessVlan", 102}}},
                           {"Ethernet3", {{"accessVlan", 100}, {"privateVlanMapping", {{"101", true}}}}},
                           {"Ethernet4",
                            {{"switchportMode", "trunk_"},
                             {"trunkAllowedVlans", "1-4094"},
                             {"trunkNativeVlan", 1},
                             {"trunkPrivateVlanMapping", true}}}}}}}});
      bridge.settle();
   }
   std::string egress(std::string const& intf) {
      return bridge.read("bridging/config.switchIntfConfig[" + intf + "].egressVlanXlate").dump();
   }
   std::string fids() { return bridge.read("bridging/config.vidToFidMap").dump(); }

   Json const secondaryOf100 = {{"vlanType", "secondary_"}, {"primaryVlan", 100}};
   Switch bridge;
};

TEST_F(PrivateVlansTest, membersDatabaseAndTranslationFollowThePairs) {
   EXPECT_EQ(bridge.members(100), "Cpu-t Ethernet1-ms Ethernet2-ms Ethernet3 Ethernet4-t");
   EXPECT_EQ(bridge.members(101), "Cpu-t Ethernet1-r Ethernet3-ms Ethernet4-tr");
   EXPECT_EQ(bridge.members(102), "Cpu-t Ethernet2-r Ethernet4-tr");
   EXPECT_EQ(fids(), R"({"101":100,"102":100})");
   EXPECT_EQ(egress("Ethernet4"), R"({"100/0":{"mappedInnerVlanId":0,"mappedVlanId":101}})");

   bridge.erase(cliVlan(101));
   bridge.settle();
   EXPECT_EQ(bridge.members(100), "Cpu-t Ethernet2-ms Ethernet3 Ethernet4-t");
   EXPECT_EQ(fids(), R"({"102":100})");
   EXPECT_EQ(egress("Ethernet4"), R"({"100/0":{"mappedInnerVlanId":0,"mappedVlanId":102}})");

   bridge.erase(cliVlan(100));
   bridge.settle();
   EXPECT_EQ(bridge.members(102), "Ethernet2 Ethernet4-tr");
   EXPECT_EQ(fids(), "{}");
   EXPECT_EQ(egress("Ethernet4"), "{}");

   bridge.set(cliVlan(100), "{}");
   bridge.settle();
   EXPECT_EQ(bridge.members(100), "Cpu-t Ethernet2-ms Ethernet3 Ethernet4-t");
   EXPECT_EQ(fids(), R"({"102":100})");
}

// A publisher that replaces a VLAN of a pair in one document.
TEST_F(PrivateVlansTest, vlanThatIsReplacedAtOnceIsFollowedLikeANewOne) {
   std::string const before = bridge.dump("bridging/config");
   for (int const vlan : {100, 101}) {
      std::string const value = bridge.get(cliVlan(vlan));
      bridge.done({"batch"}, Json::array({"delete", cliVlan(vlan)}).dump() + "\n" +
                                 Json::array({"set", cliVlan(vlan), Json::parse(value)}).dump() + "\n");
      bridge.settle();
      EXPECT_EQ(bridge.dump("bridging/config"), before) << vlan;
   }
}

TEST_F(PrivateVlansTest, restartDisturbsNothing) {
   bridge.set(cliInput + ".sviMapping[100].secondaryVlan[102]", "true");
   bridge.set(cliInput + ".vidToFidMap[101]", "50");
   bridge.set(cliVlan(103) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": "secondary_", "primaryVlan": 103})");
   bridge.set(cliVlan(104) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": "secondary_", "primaryVlan": 999})");
   bridge.set(cliVlan(105) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": "secondary_", "primaryVlan": 101})");
   bridge.set(cliPort("Ethernet1") + ".ingressVlanXlate[0/0]", R"({"mappedVlanId": 4094})");
   bridge.set(cliPort("Ethernet4") + ".egressVlanXlate[4094/0]", R"({"mappedVlanId": 0})");
   bridge.settle();
   EXPECT_THAT(bridge.members(105), HasSubstr("Ethernet4-tr"));
   EXPECT_THAT(bridge.members(101), Not(HasSubstr("Cpu"))) << "the mapping names 102 only";
   EXPECT_THAT(bridge.members(102), HasSubstr("Cpu-t"));
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
}

TEST_F(PrivateVlansTest, whatBecameOfRolesWhileNoAgentRanIsAllThatChanges) {
   bridge.killAgent();
   bridge.erase(cliVlan(101));
   bridge.set(cliVlan(102) + ".vlanTypeAndPrimaryVlan", R"({"vlanType": "primary_", "primaryVlan": 0})");
   bridge.startAgent();
   bridge.settle();
   EXPECT_EQ(bridge.members(100), "Cpu-t Ethernet3 Ethernet4-t");
   EXPECT_EQ(bridge.members(102), "Ethernet2 Ethernet4-t");
   EXPECT_EQ(fids(), "{}");
   EXPECT_EQ(egress("Ethernet4"), "{}");
}

TEST_F(PrivateVlansTest, translationOntoANumberThatIsNoneIsRefused) {
   Result const result = bridge.database().ctl(
       {"set", cliPort("Ethernet4") + ".egressVlanXlate[5/0]", R"({"mappedVlanId": 4095})"});
   EXPECT_EQ(result.status, 3);
   EXPECT_THAT(result.errors, HasSubstr("VlanIdOrNone::value > 4094 not allowed"));
}

} // namespace
