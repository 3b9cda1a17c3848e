// VLANs of dynamic sources: claims, the source of record, and its trunk groups.
#include "Vorn/BridgingSm/TestDynVlans.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::DynVlanSm;
using Vorn::DynVlansTest;
using Vorn::Names;

using Numbers = std::vector<uint16_t>;

// --- Making and deleting.

TEST_F(DynVlansTest, vlanOfASourceExistsAsLongAsItIsClaimed) {
   bridge.trunk("Ethernet1");
   bridge.start();
   bridge.dynVlans("overlay", "7,4000");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{7, 4000}));
   EXPECT_EQ(bridge.sourceOf(7), "overlay");
   EXPECT_EQ(name(7), "VLAN0007");
   EXPECT_EQ(name(4000), "VLAN4000");
   EXPECT_EQ(bridge.resolvedVlan(7)->adminState(), Bridging::VlanAdminState::active);
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   EXPECT_EQ(trace.count("Create DynVlanSm overlay"), 1u);
   EXPECT_EQ(trace.count("Vlans from "), 1u);

   bridge.dynVlans("overlay", "4000");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4000});
   EXPECT_EQ(trace.count("Removing overlay from vlanId:7"), 1u);
   EXPECT_EQ(bridge.claimants(7), Names{});

   bridge.dynVlansDel("overlay");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(trace.count("Delete DynVlanSm overlay"), 1u);
   EXPECT_TRUE(bridge.dynVlanSrcTable->dynVlanSrc().empty());
   EXPECT_FALSE(bridge.sm->dynVlans().dynVlanSm("overlay"));
}

TEST_F(DynVlansTest, sourcesOfTheStartAreTakenIn) {
   bridge.dynVlans("overlay", "7");
   bridge.start();
   EXPECT_EQ(bridge.sourceOf(7), "overlay");
}

TEST_F(DynVlansTest, entityOfAnotherClassIsNoSource) {
   auto const other = Bridging::Input::AllowedVlans::make();
   other->nameIs("overlay");
   bridge.dynVlanDir->entityPtrIs(other);
   bridge.start();
   EXPECT_TRUE(bridge.sm->dynVlans().dynVlanSm().empty());
   // It takes the place of a source, and gives it back.
   bridge.dynVlansDel("overlay");
   bridge.dynVlans("overlay", "7");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "overlay");
   bridge.dynVlanDir->entityPtrIs(other);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(DynVlansTest, sourceMadeAgainUnderItsNameIsFollowed) {
   bridge.start();
   bridge.dynVlans("overlay", "7,8", 10)->trunkGroupIs("a", true);
   bridge.run();
   bridge.dynVlansDel("overlay");
   auto const again = bridge.dynVlans("overlay", "8,9", 10);
   again->trunkGroupIs("b", true);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{8, 9}));
   EXPECT_EQ(groups(8), Names{"b"});
   again->vlansIs("10");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
}

TEST_F(DynVlansTest, sourceThatGoesWithItsListEmptiedGivesUpAllClaims) {
   bridge.start();
   auto const overlay = bridge.dynVlans("overlay", "7,8");
   bridge.run();
   overlay->vlansIs("");
   bridge.dynVlansDel("overlay");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_TRUE(bridge.dynVlanSrcTable->dynVlanSrc().empty());
}

TEST_F(DynVlansTest, garbageInAListIsLeftOutAndNamedOnceForEachList) {
   bridge.start();
   auto const overlay = bridge.dynVlans("overlay", "7,banana,0,4095,9-8,70000");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{7});
   std::string const line = "overlay dynamic VLANs left out, no VLAN numbers: banana,0,4095,9-8,70000";
   EXPECT_EQ(trace.level(line), 0);
   overlay->configPriorityIs(5);
   overlay->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(trace.count(line), 1u);
}

TEST_F(DynVlansTest, nameMayBeLongAndOfAnyBytes) {
   std::string const longName(255, '\xff');
   bridge.start();
   bridge.dynVlans(longName, "7");
   bridge.dynVlans("a b\n\"", "7,8");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), longName) << "bytewise greater";
   EXPECT_EQ(bridge.sourceOf(8), "a b\n\"");
   bridge.dynVlansDel(longName);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a b\n\"");
}

TEST_F(DynVlansTest, whatHappensWhileNothingIsDeliveredIsCaughtUpWith) {
   bridge.start();
   bridge.dynVlans("gone", "7");
   auto const stays = bridge.dynVlans("stays", "8");
   bridge.run();
   bridge.sm->dynVlans().hasNotificationActiveIs(false);
   bridge.dynVlansDel("gone");
   bridge.dynVlans("new", "9");
   stays->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{7, 8}));
   bridge.sm->dynVlans().hasNotificationActiveIs(true);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{8, 9}));
   EXPECT_EQ(groups(8), Names{"a"});
}

TEST_F(DynVlansTest, vlanThatSomebodyElseDeletedIsMissedByNobody) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 20);
   bridge.run();
   bridge.config->vlanConfigDel(7);
   a->configPriorityIs(30);
   a->trunkGroupIs("x", true);
   bridge.run();
   bridge.dynVlansDel("b");
   bridge.run();
   EXPECT_EQ(bridge.claimants(7), Names{"a"});
   bridge.dynVlansDel("a");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

// --- The source of record.

TEST_F(DynVlansTest, greatestNameIsTheSourceAmongEqualPriorities) {
   bridge.start();
   bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 10);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "b");
   EXPECT_EQ(bridge.claimants(7), (Names{"a", "b"}));
   bridge.dynVlansDel("b");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
   EXPECT_EQ(trace.count("New vlan config source:a"), 1u);
   EXPECT_EQ(trace.count("VlanId:7 configSource:a"), 1u);
   EXPECT_EQ(bridge.claimants(7), Names{"a"});
}

TEST_F(DynVlansTest, sourceThatComesLaterUnderASmallerNameTakesNothing) {
   bridge.start();
   bridge.dynVlans("b", "7", 10);
   bridge.run();
   bridge.dynVlans("a", "7", 10);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "b");
}

TEST_F(DynVlansTest, namesAreComparedBytewise) {
   bridge.start();
   for (char const* name : {"\xc3\xa9", "z", "Z", "ab"}) // e acute is greater than any ASCII letter
      bridge.dynVlans(name, "7", 10);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "\xc3\xa9");
}

TEST_F(DynVlansTest, greaterPriorityTakesTheVlanOverWithItsTrunkGroups) {
   bridge.trunk("Ethernet1")->trunkGroupIs("new", true);
   bridge.start();
   bridge.dynVlans("z", "7", 10)->trunkGroupIs("old", true);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   bridge.dynVlans("a", "7", 20)->trunkGroupIs("new", true);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
   EXPECT_EQ(groups(7), Names{"new"});
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
}

TEST_F(DynVlansTest, changeOfPriorityAloneIsEvaluated) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 10);
   bridge.run();
   a->configPriorityIs(11);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, sourceThatLowersItsPriorityLosesToTheNext) {
   bridge.start();
   bridge.dynVlans("a", "7-9", 10)->trunkGroupIs("of a", true);
   auto const b = bridge.dynVlans("b", "8-10", 20);
   bridge.dynVlans("c", "9", 15);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(9), "b");
   b->configPriorityIs(5);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
   EXPECT_EQ(bridge.sourceOf(8), "a");
   EXPECT_EQ(groups(8), Names{"of a"});
   EXPECT_EQ(bridge.sourceOf(9), "c");
   EXPECT_EQ(bridge.sourceOf(10), "b") << "which nobody else claims";
}

TEST_F(DynVlansTest, thousandChangesOfPriorityEndAsTheLastOne) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "1-50", 10);
   bridge.dynVlans("b", "1-50", 10);
   for (uint32_t i = 1; i <= 1000; ++i) {
      a->configPriorityIs(i % 21);
      if (i % 7 == 0)
         bridge.run();
      else if (i % 5 == 0)
         bridge.turn();
   }
   a->configPriorityIs(11);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(50), "a");
   a->configPriorityIs(10);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(1), "b");
}

TEST_F(DynVlansTest, sourceOfPriorityZeroCanWin) {
   bridge.start();
   bridge.dynVlans("a", "7", 0);
   bridge.run();
   EXPECT_EQ(bridge.sm->dynVlans().getDynVlanConfigSource(7), "a");
   EXPECT_EQ(bridge.sm->dynVlans().getDynVlanConfigSource(8), "");
}

TEST_F(DynVlansTest, twoSourcesThatVanishTogetherLeaveNothing) {
   bridge.start();
   bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 20);
   bridge.dynVlans("c", "7", 5);
   bridge.run();
   bridge.dynVlansDel("b");
   bridge.dynVlansDel("a");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "c");
   bridge.dynVlansDel("c");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(DynVlansTest, claimOfASourceThatDoesNotExistEndsTheAgent) {
   bridge.start();
   bridge.dynVlanSrcTable->dynVlanSrcIs(7)->vlanSourceIs("nobody", true);
   EXPECT_DEATH(bridge.sm->dynVlans().getDynVlanConfigSource(7), HasSubstr("\"sm && sm->vlanIdSet()\""));
}

TEST_F(DynVlansTest, dynamicVlanOfAnUnknownSourceEndsTheAgent) {
   bridge.start();
   bridge.dynVlans("a", "7", 10);
   bridge.run();
   bridge.resolvedVlan(7)->configSourceIs("nobody");
   bridge.dynVlans("b", "7", 20);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"configSourceDynSm\""));
}

TEST_F(DynVlansTest, sourceIsEvaluatedAndTornDownOnlyWhenInitialized) {
   bridge.start();
   auto const sm = Kem::makePtr<DynVlanSm>("a", Bridging::Input::VlanIdSet::make(), *bridge.sm);
   EXPECT_DEATH(sm->handleVlans(), HasSubstr("\"initialized()\""));
   EXPECT_DEATH(sm->doPrepareToDie(), HasSubstr("\"initialized()\""));
}

// --- Trunk groups.

TEST_F(DynVlansTest, groupsOfTheSourceAreThoseOfItsVlans) {
   bridge.trunk("Ethernet1")->trunkGroupIs("x", true);
   bridge.start();
   auto const a = bridge.dynVlans("a", "7,8", 10);
   bridge.dynVlans("b", "8", 20);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   a->trunkGroupIs("y", true);
   bridge.run();
   EXPECT_EQ(groups(7), Names{"y"});
   EXPECT_EQ(groups(8), Names{}) << "which is b's";
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   EXPECT_EQ(trace.count("Adding trunkGroup:yto vlan:7"), 1u);
   a->trunkGroupIs("x", true);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   a->trunkGroupDel("y");
   bridge.run();
   EXPECT_EQ(groups(7), Names{"x"});
   EXPECT_EQ(trace.count("Removing trunkGroup:yfrom vlan:7"), 1u);
   a->trunkGroupDelAll();
   bridge.run();
   EXPECT_EQ(groups(7), Names{});
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
}

} // namespace
