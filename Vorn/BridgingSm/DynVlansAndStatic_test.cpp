// Static VLANs and routed ports beside dynamic VLANs: who has the number, and what the next run makes of it.
#include "Vorn/BridgingSm/TestDynVlans.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::DynVlansTest;
using Vorn::Names;

using Numbers = std::vector<uint16_t>;

// --- Static VLANs beat dynamic ones.

TEST_F(DynVlansTest, claimOnAStaticVlanMakesNothingAndOutlivesIt) {
   bridge.vlan(7)->configuredNameIs("users");
   bridge.vlan(7)->trunkGroupIs("a", true);
   bridge.start();
   bridge.dynVlans("overlay", "7");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(name(7), "users");
   EXPECT_EQ(groups(7), Names{"a"});
   EXPECT_EQ(bridge.claimants(7), Names{"overlay"});

   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "overlay");
   EXPECT_EQ(name(7), "VLAN0007");
   EXPECT_EQ(groups(7), Names{});
   EXPECT_EQ(trace.count("Vlan 7 is dynamic now. ConfigSource:overlay"), 1u);
}

TEST_F(DynVlansTest, staticVlanTakesADynamicOneOverAndKeepsItWhenTheClaimEnds) {
   bridge.trunk("Ethernet1", "1-4094", 7);
   bridge.start();
   bridge.dynVlans("overlay", "7")->trunkGroupIs("a", true);
   bridge.run();
   auto const record = bridge.resolvedVlan(7);
   bridge.vlan(7)->configuredNameIs("users");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlan(7), record) << "the same record";
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(groups(7), Names{});
   bridge.dynVlansDel("overlay");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 7");
}

TEST_F(DynVlansTest, staticInputOfADynamicSourcesNameIsNotMistakenForIt) {
   bridge.start();
   bridge.publish("same", 200).vlan(7)->trunkGroupIs("static", true);
   bridge.run();
   auto const same = bridge.dynVlans("same", "7", 10);
   bridge.dynVlans("other", "7", 5);
   bridge.run();
   same->trunkGroupIs("dynamic", true);
   bridge.run();
   EXPECT_EQ(groups(7), Names{"static"});
   bridge.dynVlansDel("same");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "same");
   EXPECT_EQ(groups(7), Names{"static"});
}

TEST_F(DynVlansTest, claimsOnAStaticVlanThatIsOnItsWayOutWaitForItsEnd) {
   bridge.vlan(7)->configuredNameIs("users");
   bridge.start();
   bridge.dynVlans("a", "7", 10);
   bridge.run();
   holdBackCopies();
   bridge.vlanDel(7);
   bridge.run();
   ASSERT_TRUE(bridge.sm->staticVlans().vlanConfigAfterCodef(7));
   // Its claims change meanwhile: another comes, and one goes and comes back.
   bridge.dynVlans("b", "7", 20);
   bridge.dynVlans("c", "7,8", 30);
   bridge.run();
   bridge.dynVlans("c", "8", 30);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(name(7), "users");
   letCopiesGo();
   EXPECT_EQ(bridge.sourceOf(7), "b");
}

TEST_F(DynVlansTest, firstClaimOnAStaticVlanThatIsOnItsWayOutWaitsForItsEnd) {
   bridge.vlan(7)->configuredNameIs("users");
   bridge.start();
   holdBackCopies();
   bridge.vlanDel(7);
   bridge.run();
   bridge.dynVlans("a", "7");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(name(7), "users");
   letCopiesGo();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

// The resolved VLAN was made by a claim once, and is the static one's until its copy goes.
TEST_F(DynVlansTest, claimsOnAFormerDynamicVlanWaitForTheEndOfTheStaticOneToo) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "7", 10);
   bridge.run();
   bridge.vlan(7)->trunkGroupIs("static", true);
   bridge.run();
   holdBackCopies();
   bridge.vlanDel(7);
   bridge.run();
   bridge.dynVlans("b", "7", 20);
   a->configPriorityIs(30);
   a->trunkGroupIs("of a", true);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(groups(7), Names{"static"});
   letCopiesGo();
   EXPECT_EQ(bridge.sourceOf(7), "a");
   EXPECT_EQ(groups(7), Names{"of a"});
}

TEST_F(DynVlansTest, lastClaimOnAStaticVlanThatIsOnItsWayOutLeavesItToThat) {
   auto const input = bridge.vlan(7);
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   holdBackCopies();
   bridge.vlanDel(7);
   bridge.run();
   bridge.dynVlansDel("a");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   input->configuredNameIs("late"); // its copy still follows it, and looks the resolved VLAN up
   bridge.run();
   letCopiesGo();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(DynVlansTest, vlanThatLosesItsClaimsAndThenItsInputBeforeItsCopyGoes) {
   bridge.access("Ethernet1", 7);
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.dynVlansDel("a");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a") << "it waits for its copy";
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 7");
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 0");
}

TEST_F(DynVlansTest, vlanClaimedWhileItsInputHadNoCopyYetIsMadeWhenTheInputDropsIt) {
   bridge.start();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.dynVlans("a", "7");
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, vlanClaimedWhileItsInputHadNoCopyYetIsMadeWhenAnotherInputWins) {
   bridge.start();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.dynVlans("a", "7");
   bridge.run();
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, priorityThatChangesWhileTheVlanWaitsForItsCopyCountsWhenTheInputDropsIt) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 20);
   bridge.run();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   a->configPriorityIs(30);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "b");
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, priorityThatChangesWhileTheVlanWaitsForItsCopyCountsWhenAnotherInputWins) {
   bridge.start();
   auto const a = bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 20);
   bridge.run();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   a->configPriorityIs(30);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "b");
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, sourceThatLeavesAVlanThatWaitsForItsCopyHandsItOn) {
   bridge.start();
   bridge.dynVlans("a", "7", 10);
   bridge.dynVlans("b", "7", 20);
   bridge.run();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.dynVlansDel("b");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "a");
}

TEST_F(DynVlansTest, changeOfTheInputsLeavesDynamicVlansAlone) {
   bridge.trunk("Ethernet1");
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   auto const record = bridge.resolvedVlan(7);
   bridge.resolvedVlan(7)->intfDel("Ethernet1"); // seen when it is worked out again
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlan(7), record);
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
}

TEST_F(DynVlansTest, roleOfTheFormerStaticVlanGoes) {
   bridge.primaryVlan(100, {7});
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlan(7)->vlanTypeAndPrimaryVlan(), Bridging::VlanTypeAndPrimaryVlan());
}

TEST_F(DynVlansTest, restartComesToTheSameResult) {
   bridge.trunk("Ethernet1", "1-4094", 7);
   bridge.access("Ethernet2", 8);
   bridge.vlan(8)->configuredNameIs("users");
   bridge.vlanIntf(7)->enabledIs(true);
   bridge.dynVlans("a", "7-8", 10)->trunkGroupIs("x", true);
   bridge.dynVlans("b", "7-9", 5);
   bridge.start();
   auto const look = [&] {
      std::vector<std::string> seen;
      for (uint16_t const vlanId : bridge.resolvedVlans())
         seen.insert(seen.end(),
                     {bridge.sourceOf(vlanId), name(vlanId), bridge.membership(vlanId, "Ethernet1"),
                      bridge.membership(vlanId, "Ethernet2"), bridge.membership(vlanId, "Cpu")});
      return seen;
   };
   auto const before = look();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{7, 8, 9}));
   EXPECT_EQ(bridge.sourceOf(9), "b");
   // A source goes, and another takes over a VLAN, while no agent runs.
   bridge.stop();
   bridge.start();
   EXPECT_EQ(look(), before);
   bridge.stop();
   bridge.dynVlansDel("b");
   bridge.vlanDel(8);
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{7, 8}));
   EXPECT_EQ(bridge.sourceOf(8), "a");
   EXPECT_EQ(groups(8), Names{"x"});
}

TEST_F(DynVlansTest, staticVlanThatGoesWhereItsClaimsNameNobodyEndsTheAgent) {
   bridge.vlan(7);
   bridge.start();
   bridge.dynVlanSrcTable->dynVlanSrcIs(7);
   bridge.vlanDel(7);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"sm\""));
}

// --- Internal VLANs.

TEST_F(DynVlansTest, claimOnAnInternalVlanTakesTheNumberFromItsPort) {
   bridge.internalVlansAre(4000, 4001);
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 4000");
   bridge.dynVlans("a", "4000");
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 0");
   EXPECT_TRUE(bridge.waitingSince("Ethernet1"));
   EXPECT_FALSE(bridge.resolvedVlan(4000)->internal());
   EXPECT_EQ(bridge.sourceOf(4000), "a");
   EXPECT_EQ(name(4000), "VLAN4000");
   EXPECT_TRUE(bridge.sm->routedPort(4000).empty());
}

TEST_F(DynVlansTest, lastClaimLeavesTheVlanOfARoutedPort) {
   bridge.internalVlansAre(7, 7);
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 7");
   bridge.sm->dynVlans().doDelDynVlan(7);
   EXPECT_TRUE(bridge.resolvedVlan(7));
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 7");
}

TEST_F(DynVlansTest, claimsOnTheNumberThatARoutedPortTookFromAWaitingVlanEndInOrder) {
   bridge.internalVlansAre(7, 7);
   bridge.start();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.dynVlans("a", "7", 10);
   bridge.run();
   bridge.routed("Ethernet1");
   letCopiesGo();
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   bridge.vlanDel(7);
   bridge.dynVlans("b", "7", 20);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "b");
}

TEST_F(DynVlansTest, internalVlanOfThePreviousRunIsReplaced) {
   bridge.internalVlan(7, "Ethernet1");
   bridge.dynVlans("a", "7");
   bridge.start();
   EXPECT_FALSE(bridge.resolvedVlan(7)->internal());
   EXPECT_EQ(bridge.membership(7, "Cpu"), "");
}

// --- The processor's port.

TEST_F(DynVlansTest, processorTakesPartWhereTheVlanInterfaceIsEnabled) {
   bridge.vlanIntf(7)->enabledIs(true);
   bridge.vlanIntf(8)->enabledIs(false);
   bridge.dynVlanIntf(9)->enabledIs(true);
   bridge.start();
   bridge.dynVlans("a", "7-10");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "tagged");
   EXPECT_EQ(bridge.membership(8, "Cpu"), "");
   EXPECT_EQ(bridge.membership(9, "Cpu"), "tagged");
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
   EXPECT_EQ(trace.count(" Adding Cpu port for dyn. vlan 7"), 1u);
}

TEST_F(DynVlansTest, processorLeavesAVlanThatTurnsDynamicAfterItsInterfaceWasDisabled) {
   auto const intf = bridge.vlanIntf(7);
   intf->enabledIs(true);
   bridge.vlan(7);
   bridge.start();
   bridge.dynVlans("a", "7");
   intf->enabledIs(false);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "tagged") << "the interface alone changes nothing";
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "");
}

TEST_F(DynVlansTest, processorFollowsTheVlanInterfaceWhenTheInputsChange) {
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   auto const intf = bridge.vlanIntf(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "") << "the interface alone changes nothing";
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "tagged");
   intf->enabledIs(false);
   bridge.withdraw("other");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Cpu"), "");
}

TEST_F(DynVlansTest, secondariesFollowTheProcessorOfAPrimaryThatTurnsDynamic) {
   bridge.hasLibrary = true;
   auto const intf = bridge.vlanIntf(100);
   bridge.vlan(100)->adminStateIs(Bridging::VlanAdminState::suspended);
   bridge.secondaryVlan(101, 100);
   bridge.start();
   bridge.dynVlans("a", "100");
   bridge.run();
   EXPECT_EQ(bridge.membership(101, "Cpu"), "") << "the primary is suspended";
   bridge.vlanDel(100);
   bridge.run();
   EXPECT_EQ(bridge.membership(100, "Cpu"), "tagged");
   EXPECT_EQ(bridge.membership(101, "Cpu"), "tagged");

   // And the other way round.
   bridge.vlan(100);
   bridge.run();
   intf->enabledIs(false);
   bridge.vlanDel(100);
   bridge.run();
   EXPECT_EQ(bridge.membership(100, "Cpu"), "");
   EXPECT_EQ(bridge.membership(101, "Cpu"), "");
}

} // namespace
