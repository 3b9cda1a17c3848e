// VLANs and trunk groups that dynamic sources give to ports.
#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::DynAllowedVlanSm;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

struct DynAllowedVlansTest : testing::Test {
   DynAllowedVlansTest() {
      for (uint16_t const vlanId : {10, 20, 30})
         bridge.vlan(vlanId);
      bridge.trunk("Ethernet1", "10");
      bridge.trunk("Ethernet2", "10");
   }
   Numbers vlans(Sulvi::IntfId port) { return bridge.vlansOf(port); }
   bool hasGroup(Sulvi::IntfId port, char const* name) {
      return bridge.portSm(port)->dynTrunkGroup().find(name);
   }
   // How many ports computed their allowed VLANs: a subinterface says each time that it has none.
   static constexpr char computed[] = "Allowed vlans are not applicable for sub interface";

   TestTrace trace;
   TestBridge bridge;
};

// --- Allowed VLANs.

TEST_F(DynAllowedVlansTest, sourceWidensATrunkAndTakesThatBack) {
   bridge.start();
   auto const overlay = bridge.dynAllowed("overlay");
   overlay->vlansIs("Ethernet1", "20-25");
   bridge.run();
   EXPECT_EQ(trace.count("Create DynAllowedVlanSm overlay"), 1u);
   EXPECT_GE(trace.count("compute dyn vlans from overlay dyn vlans 20-25"), 1u);
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 20}));
   EXPECT_EQ(vlans("Ethernet2"), Numbers{10});
   overlay->vlansIs("Ethernet1", "30");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 30}));
   overlay->vlansDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
}

TEST_F(DynAllowedVlansTest, severalSourcesAddUp) {
   bridge.start();
   bridge.dynAllowed("a")->vlansIs("Ethernet1", "20");
   bridge.dynAllowed("b")->vlansIs("Ethernet1", "20,30");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 20, 30}));
   bridge.dynAllowedDel("b");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 20}));
}

TEST_F(DynAllowedVlansTest, portThatComesLaterIsWidenedToo) {
   bridge.dynAllowed("overlay")->vlansIs("Ethernet3", "20");
   bridge.start();
   bridge.trunk("Ethernet3", "10");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet3"), (Numbers{10, 20}));
}

TEST_F(DynAllowedVlansTest, everyPortComputesOnceWhenASourceVanishes) {
   bridge.trunk("Ethernet1.5");
   bridge.trunk("Ethernet1.6");
   bridge.start();
   bridge.dynAllowed("overlay")->vlansIs("Ethernet1", "20");
   bridge.run();
   trace.clear();
   bridge.dynAllowedDel("overlay");
   bridge.run();
   EXPECT_EQ(trace.count("Delete DynAllowedVlanSm overlay"), 1u);
   EXPECT_EQ(trace.count(computed), 2u);
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
}

TEST_F(DynAllowedVlansTest, sourceMadeAgainUnderItsNameIsFollowed) {
   bridge.start();
   bridge.dynAllowed("overlay")->vlansIs("Ethernet1", "20");
   bridge.dynTrunkGroup("overlay", "old", "Ethernet1");
   bridge.run();
   bridge.dynAllowedDel("overlay");
   auto const again = bridge.dynAllowed("overlay");
   again->vlansIs("Ethernet2", "30");
   bridge.dynTrunkGroup("overlay", "new", "Ethernet2");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
   EXPECT_EQ(vlans("Ethernet2"), (Numbers{10, 30}));
   EXPECT_FALSE(hasGroup("Ethernet1", "old"));
   EXPECT_TRUE(hasGroup("Ethernet2", "new"));
   again->vlansIs("Ethernet1", "30");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 30}));
}

TEST_F(DynAllowedVlansTest, whatHappensWhileNothingIsDeliveredIsCaughtUpWith) {
   bridge.start();
   bridge.dynAllowed("gone")->vlansIs("Ethernet1", "20");
   auto const stays = bridge.dynAllowed("stays");
   stays->vlansIs("Ethernet2", "20");
   bridge.dynTrunkGroup("stays", "g", "Ethernet2");
   bridge.run();
   bridge.sm->dynAllowedVlans().hasNotificationActiveIs(false);
   bridge.dynAllowedDel("gone");
   stays->vlansDel("Ethernet2");
   stays->vlansIs("Ethernet1", "30");
   stays->trunkGroupDel("g");
   bridge.dynTrunkGroup("stays", "h", "Ethernet1");
   bridge.run();
   bridge.sm->dynAllowedVlans().hasNotificationActiveIs(true);
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 30}));
   EXPECT_EQ(vlans("Ethernet2"), Numbers{10});
   EXPECT_FALSE(hasGroup("Ethernet2", "g"));
   EXPECT_TRUE(hasGroup("Ethernet1", "h"));
}

TEST_F(DynAllowedVlansTest, garbageInAListIsLeftOutAndNamedOnceForEachChange) {
   bridge.start();
   bridge.dynAllowed("overlay")->vlansIs("Ethernet1", "20,banana,4095");
   bridge.dynAllowed("overlay")->vlansIs("Ethernet9", "x"); // no port, and all the same a mistake
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 20}));
   std::string const line = "Ethernet1 VLANs allowed by overlay left out, no VLAN numbers: banana,4095";
   EXPECT_EQ(trace.level(line), 0);
   EXPECT_EQ(trace.level("Ethernet9 VLANs allowed by overlay left out, no VLAN numbers: x"), 0);
   bridge.port("Ethernet1")->trunkAllowedVlansIs("10,30");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), (Numbers{10, 20, 30}));
   EXPECT_EQ(trace.count(line), 1u);
}

// A port that computes for another reason reads the new list, and all its VLANs are synced all the same.
TEST_F(DynAllowedVlansTest, listThatWasSeenBeforeItWasToldIsFollowed) {
   bridge.start();
   auto const overlay = bridge.dynAllowed("overlay");
   overlay->vlansIs("Ethernet1", "20");
   bridge.run();
   overlay->vlansDelAll();
   bridge.dynAllowedDel("overlay");
   bridge.portSm("Ethernet1")->doComputeTrunkAllowedVlans();
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
}

TEST_F(DynAllowedVlansTest, accessPortIsNotWidened) {
   bridge.access("Ethernet3", 10);
   bridge.start();
   bridge.dynAllowed("overlay")->vlansIs("Ethernet3", "20");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet3"), Numbers{10});
   bridge.trunk("Ethernet3", "10");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet3"), (Numbers{10, 20}));
}

TEST(DynAllowedVlansOfManyTest, thousandSourcesOfOnePortAddUp) {
   TestBridge bridge;
   bridge.trunk("Ethernet1", "10");
   bridge.start();
   for (int i = 0; i < 1000; ++i)
      bridge.dynAllowed("source" + std::to_string(i))->vlansIs("Ethernet1", std::to_string(20 + i));
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->trunkAllowedVlanSet().text(), "10,20-1019");
   for (int i = 0; i < 1000; ++i)
      bridge.dynAllowedDel("source" + std::to_string(i));
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->trunkAllowedVlanSet().text(), "10");
}

TEST(DynAllowedVlansOfManyTest, thousandSourcesWithAGroupEachLeaveNothingBehind) {
   TestBridge bridge;
   for (int port = 1; port <= 64; ++port)
      bridge.trunk("Ethernet" + std::to_string(port), "10");
   bridge.start();
   for (int i = 0; i < 1000; ++i)
      for (int port = 1; port <= 64; ++port)
         bridge.dynTrunkGroup("source" + std::to_string(i), "group" + std::to_string(i),
                              "Ethernet" + std::to_string(port));
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet64")->dynTrunkGroup().size(), 1000u);
   EXPECT_TRUE(bridge.sm->dynAllowedVlans().sourcesOfGroup("group7"));
   for (int i = 0; i < 1000; ++i)
      bridge.dynAllowedDel("source" + std::to_string(i));
   bridge.run();
   for (int port = 1; port <= 64; ++port)
      EXPECT_TRUE(bridge.portSm("Ethernet" + std::to_string(port))->dynTrunkGroup().empty());
   EXPECT_FALSE(bridge.sm->dynAllowedVlans().sourcesOfGroup("group7"));
}

// --- Trunk groups.

struct DynTrunkGroupsTest : DynAllowedVlansTest {
   DynTrunkGroupsTest() {
      bridge.vlan(10)->trunkGroupIs("g", true);
      bridge.start();
   }
};

TEST_F(DynTrunkGroupsTest, groupOfASourceOpensItsVlansToItsPorts) {
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
   bridge.dynTrunkGroup("overlay", "g", "Ethernet1");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "tagged");
   EXPECT_EQ(vlans("Ethernet2"), Numbers{});
}

TEST_F(DynTrunkGroupsTest, memberThatLeavesLosesTheGroupAndNoOther) {
   bridge.dynTrunkGroup("overlay", "g", "Ethernet1");
   bridge.dynTrunkGroup("overlay", "g", "Ethernet2");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet2"), Numbers{10});
   bridge.dynAllowed("overlay")->trunkGroup("g")->intfListDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(hasGroup("Ethernet1", "g"));
   EXPECT_TRUE(hasGroup("Ethernet2", "g"));
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
   EXPECT_EQ(vlans("Ethernet2"), Numbers{10});
}

TEST_F(DynTrunkGroupsTest, memberWithoutASwitchportIsIgnored) {
   bridge.dynTrunkGroup("overlay", "g", "Ethernet9");
   bridge.run();
   bridge.dynAllowedDel("overlay");
   bridge.run();
   EXPECT_FALSE(bridge.portSm("Ethernet9"));
}

TEST_F(DynTrunkGroupsTest, portThatComesLaterHasItsGroups) {
   bridge.dynTrunkGroup("overlay", "g", "Ethernet3");
   bridge.run();
   bridge.trunk("Ethernet3", "10");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet3"), Numbers{10});
}

TEST_F(DynTrunkGroupsTest, groupIsKeptAsLongAsOneSourceListsThePort) {
   bridge.dynTrunkGroup("a", "g", "Ethernet1");
   bridge.dynTrunkGroup("b", "g", "Ethernet1");
   bridge.run();
   bridge.dynAllowed("a")->trunkGroup("g")->intfListDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(trace.count("Dyn client:b has g for Ethernet1"), 1u);
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
   bridge.dynAllowed("b")->trunkGroupDel("g");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
}

TEST_F(DynTrunkGroupsTest, groupsOfASourceThatVanishesLeaveItsPorts) {
   bridge.dynTrunkGroup("a", "g", "Ethernet1");
   bridge.dynTrunkGroup("a", "h", "Ethernet2");
   bridge.dynTrunkGroup("b", "h", "Ethernet2");
   bridge.run();
   bridge.dynAllowedDel("a");
   bridge.run();
   EXPECT_FALSE(hasGroup("Ethernet1", "g"));
   EXPECT_TRUE(hasGroup("Ethernet2", "h"));
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
}

TEST_F(DynTrunkGroupsTest, groupsLeaveThePortsOfASourceThatVanishesWithItsListsEmptied) {
   bridge.dynTrunkGroup("a", "g", "Ethernet1");
   bridge.run();
   auto const group = bridge.dynAllowed("a")->trunkGroup("g");
   bridge.dynAllowedDel("a");
   group->intfListDelAll();
   bridge.run();
   EXPECT_FALSE(hasGroup("Ethernet1", "g"));
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
}

TEST_F(DynTrunkGroupsTest, groupMadeAgainUnderItsNameIsFollowed) {
   bridge.dynTrunkGroup("a", "g", "Ethernet1");
   bridge.run();
   auto const again = bridge.dynAllowed("a")->newTrunkGroup("g");
   again->intfListIs("Ethernet2", true);
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{});
   EXPECT_EQ(vlans("Ethernet2"), Numbers{10});
   again->intfListIs("Ethernet1", true);
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
}

TEST_F(DynTrunkGroupsTest, staticGroupOfTheSameNameStaysWhenTheDynamicOneGoes) {
   bridge.port("Ethernet1")->trunkGroupIs("g", true);
   bridge.dynTrunkGroup("a", "g", "Ethernet1");
   bridge.run();
   bridge.dynAllowedDel("a");
   bridge.run();
   EXPECT_EQ(vlans("Ethernet1"), Numbers{10});
}

TEST_F(DynTrunkGroupsTest, nullGroupIsRefused) {
   bridge.dynAllowed("a");
   bridge.run();
   auto const sm = bridge.sm->dynAllowedVlans().dynAllowedVlanSm("a");
   try {
      sm->dynTrunkGroupSmIs(nullptr);
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(), "null _dynTrunkGroupSm parameter to mutator for "
                             "Vorn::DynAllowedVlanSm::dynTrunkGroupSm not allowed");
   }
}

} // namespace
