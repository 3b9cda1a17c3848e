// What dynamic sources ask for: the VLANs, and what they do to the answers of why.
#include "Failures.h"
#include "Show.h"
#include "TestWorld.h"
#include "Why.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct DynamicVlanTest : testing::Test {
   std::string show(std::optional<Bridging::VlanId> vlanId = {}) {
      return showDynamicVlan(state, vlanId, {});
   }
   json showJson() { return json::parse(showDynamicVlan(state, {}, {.wantsJson = true})); }
   Explanation ask(char const* port, uint16_t vlan) { return explain(state, port, vlan); }
   std::string finding(char const* port, uint16_t vlan, std::string const& rule) {
      for (Rule const& each : ask(port, vlan).rules)
         if (each.name == rule)
            return each.finding;
      return "there is no rule " + rule;
   }

   TestWorld world;
   SwitchState& state = world.state;
};

// --- show dynamic-vlan

TEST_F(DynamicVlanTest, tableTellsWhoseEachVlanIsAndWhoElseClaimsIt) {
   world.dynVlans("overlay", "30-31,40", 20);
   world.dynVlans("lab", "30,50", 20);
   world.dynVlans("mvrp", "30", 5);
   world.dynamicVlan(30, "overlay");
   world.dynamicVlan(31, "overlay");
   world.vlan(40, "users");
   EXPECT_EQ(show(), "VLAN  Source   Priority  Status            Other claims\n"
                     "----  -------  --------  ----------------  --------------\n"
                     "30    overlay        20  exists            lab 20, mvrp 5\n"
                     "31    overlay        20  exists\n"
                     "40    overlay        20  waits behind cli\n"
                     "50    lab            20  on its way\n");
}

TEST_F(DynamicVlanTest, oneVlanIsToldWithEachClaim) {
   world.dynVlans("overlay", "30", 20)->trunkGroupIs("a", true);
   world.dynVlans("lab", "30", 20);
   world.dynVlans("mvrp", "30", 5);
   world.dynamicVlan(30, "overlay");
   EXPECT_EQ(show(30), "VLAN 30: exists\n"
                       "Resolved: \"VLAN0030\" from overlay\n"
                       "Trunk groups of the source: a\n"
                       "\n"
                       "Source   Priority  Claim\n"
                       "-------  --------  ------------------\n"
                       "overlay        20  source of record\n"
                       "lab            20  lost by its name\n"
                       "mvrp            5  lost by its number\n");
   EXPECT_THROW(show(31), Absent);
}

TEST_F(DynamicVlanTest, garbageOfAListIsNamed) {
   world.dynVlans("overlay", "30,banana\x1b", 20);
   EXPECT_THAT(show(), HasSubstr("overlay: these items of its list are no VLAN numbers and say nothing: "
                                 "banana\\x1b\n"));
   EXPECT_EQ(showJson()["sources"]["overlay"]["vlans"], "30");
}

TEST_F(DynamicVlanTest, jsonHoldsVlansAndSources) {
   world.dynVlans("overlay", "30,40", 20)->trunkGroupIs("a", true);
   world.dynVlans("mvrp", "30", 5);
   world.dynamicVlan(30, "overlay");
   world.vlan(40);
   auto const answer = showJson();
   auto const& vlan = answer["dynamicVlans"]["30"];
   EXPECT_EQ(vlan["source"], "overlay");
   EXPECT_EQ(vlan["priority"], 20);
   EXPECT_EQ(vlan["status"], "exists");
   EXPECT_EQ(vlan["staticInput"], nullptr);
   EXPECT_EQ(vlan["trunkGroups"], json({"a"}));
   EXPECT_EQ(vlan["claims"],
             json::parse(R"([{"source":"overlay","priority":20},{"source":"mvrp","priority":5}])"));
   EXPECT_EQ(answer["dynamicVlans"]["40"]["status"], "waits");
   EXPECT_EQ(answer["dynamicVlans"]["40"]["staticInput"], "cli");
   EXPECT_EQ(answer["sources"]["mvrp"]["vlans"], "30");
}

TEST_F(DynamicVlanTest, numberOfARoutedPortIsOnItsWay) {
   world.dynVlans("overlay", "4000", 20);
   world.internalVlan(4000, "Ethernet1");
   EXPECT_THAT(show(), HasSubstr("on its way"));
}

// --- why

TEST_F(DynamicVlanTest, vlanIsToldWithItsClaims) {
   world.trunkPort("Ethernet1", "1-4094");
   world.dynVlans("overlay", "30,40", 20);
   world.dynVlans("lab", "30", 10);
   world.dynamicVlan(30, "overlay");
   world.vlan(40, "users");
   EXPECT_EQ(finding("Ethernet1", 30, "VLAN"),
             "exists: \"VLAN0030\", from overlay, a dynamic VLAN; claimed by overlay 20 and lab 10");
   EXPECT_EQ(finding("Ethernet1", 40, "VLAN"),
             "exists: \"users\", from cli; claims of dynamic sources wait: overlay 20");
   EXPECT_TRUE(ask("Ethernet1", 30).isMember());
}

TEST_F(DynamicVlanTest, claimedVlanThatIsMissingIsOnItsWay) {
   world.trunkPort("Ethernet1", "1-4094");
   world.dynVlans("overlay", "30", 20);
   EXPECT_EQ(finding("Ethernet1", 30, "VLAN"), "claimed by overlay 20, but the agent has not made it yet");
   EXPECT_THAT(ask("Ethernet1", 30).advice, ElementsAre(HasSubstr("vornctl show backlog")));
}

TEST_F(DynamicVlanTest, vlanOfMvrpAloneIsInNoList) {
   world.trunkPort("Ethernet1", "1-4094");
   world.dynVlans("mvrp", "30", 20);
   world.dynamicVlan(30, "mvrp");
   EXPECT_FALSE(ask("Ethernet1", 30).isMember());
   EXPECT_EQ(
       finding("Ethernet1", 30, "Allowed VLANs"),
       "the source mvrp asks for VLAN 30, and cli, which gives the VLANs, lacks it: such a VLAN is in no "
       "port's list, whatever that says");
   EXPECT_THAT(ask("Ethernet1", 30).advice,
               ElementsAre("hold VLAN 30 in the input that gives the VLANs",
                           "or have a dynamic source allow it: add it to "
                           "bridging/input/dynvlan/allowedvlan/SOURCE.vlans[Ethernet1]"));
   world.dynAllowed("mvrp")->vlansIs("Ethernet1", "30");
   EXPECT_TRUE(ask("Ethernet1", 30).isMember());
   EXPECT_EQ(finding("Ethernet1", 30, "Allowed VLANs"), "allowed by the dynamic source mvrp");
   world.dynAllowed("mvrp");
   world.cli->vlanConfigIs(30);
   EXPECT_TRUE(ask("Ethernet1", 30).isMember()) << "a static entry lets the list have it";
}

TEST_F(DynamicVlanTest, tapIsNotReached) {
   auto const tap = world.record(world.cli, "Ethernet1", InputMode::tap_);
   tap->tapAllowedVlansIs("30");
   world.resolve(tap, SwitchportMode::tap_, 1);
   world.dynVlans("mvrp", "30", 20);
   world.dynamicVlan(30, "mvrp");
   world.vlan(40);
   world.dynAllowed("overlay")->vlansIs("Ethernet1", "40");
   EXPECT_TRUE(ask("Ethernet1", 30).isMember());
   EXPECT_FALSE(ask("Ethernet1", 40).isMember());
}

TEST_F(DynamicVlanTest, sourcesThatAllowAVlanAreNamed) {
   world.trunkPort("Ethernet1", "10");
   world.vlan(10);
   world.vlan(40);
   world.dynAllowed("a")->vlansIs("Ethernet1", "10,40");
   world.dynAllowed("b")->vlansIs("Ethernet1", "40,x");
   EXPECT_EQ(finding("Ethernet1", 40, "Allowed VLANs"), "allowed by dynamic sources a and b");
   EXPECT_EQ(finding("Ethernet1", 10, "Allowed VLANs"),
             "the list 10 (trunkAllowedVlans) has VLAN 10; also allowed by the dynamic source a");
}

TEST_F(DynamicVlanTest, trunkGroupOfASourceIsNamed) {
   world.trunkPort("Ethernet1", "1-4094");
   world.trunkPort("Ethernet2", "1-4094");
   world.vlan(10)->trunkGroupIs("g", true);
   auto const overlay = world.dynAllowed("overlay");
   overlay->trunkGroupIs("g")->intfListIs("Ethernet1", true);
   overlay->trunkGroupIs("h")->intfListIs("Ethernet2", true);
   EXPECT_TRUE(ask("Ethernet1", 10).isMember());
   EXPECT_EQ(finding("Ethernet1", 10, "Trunk groups"),
             "VLAN 10 is open to trunks of group g, which the dynamic source overlay gives the port");
   EXPECT_EQ(finding("Ethernet2", 10, "Trunk groups"),
             "VLAN 10 is open to trunks of g only; the port has h from overlay");
}

} // namespace
