#include "Vorn/BridgingSm/InternalVlans.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

constexpr Kem::Seconds startTime = TestBridge::startTime;

struct InternalVlansTest : testing::Test {
   InternalVlansTest() { bridge.internalVlansAre(4000, 4002); }
   uint16_t allocate() { return bridge.sm->allocateInternalVlanId(); }
   // Why the allocation raises.
   std::string refusal() {
      try {
         return "gave " + std::to_string(allocate());
      } catch (Kem::RangeException const& e) {
         return e.what();
      }
   }
   void holds(Sulvi::IntfId intfId, uint16_t vlanId) {
      EXPECT_EQ(bridge.mode(intfId), "routed " + std::to_string(vlanId));
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), vlanId);
      EXPECT_EQ(bridge.sm->routedPort(vlanId), intfId);
      EXPECT_EQ(bridge.vlansOf(intfId), Numbers{vlanId});
      ASSERT_TRUE(bridge.resolvedVlan(vlanId));
      EXPECT_TRUE(bridge.resolvedVlan(vlanId)->internal());
   }
   void holdsNothing(Sulvi::IntfId intfId) {
      EXPECT_EQ(bridge.mode(intfId), "routed 0");
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), 0);
      EXPECT_EQ(bridge.vlansOf(intfId), Numbers{});
   }
   // What errdisable does with a port that waits, and then with one that waits no more.
   void bringBack(std::vector<char const*> const& ports) {
      for (unsigned const model : {4u, 5u}) {
         for (char const* name : ports)
            bridge.forwardingModelIs(name, model);
         bridge.run();
      }
   }

   TestBridge bridge;
};

// --- Allocation.

TEST_F(InternalVlansTest, policyZeroTakesTheLowestFreeNumber) {
   bridge.vlanIntf(4000);
   bridge.start();
   EXPECT_EQ(allocate(), 4001);
}

TEST_F(InternalVlansTest, anyOtherPolicyTakesTheHighestFreeNumber) {
   bridge.start();
   for (uint8_t const policy : {1, 2, 255}) {
      bridge.internalVlansAre(4000, 4002, policy);
      bridge.run();
      EXPECT_EQ(allocate(), 4002) << unsigned(policy);
   }
   bridge.vlanIntf(4002);
   EXPECT_EQ(allocate(), 4001);
}

TEST_F(InternalVlansTest, numberIsTakenByAVlanOrByAVlanInterfaceOfEitherKind) {
   bridge.vlan(4000);
   bridge.dynVlanIntf(4001);
   bridge.start();
   EXPECT_EQ(allocate(), 4002);
   bridge.vlanIntf(4002);
   EXPECT_EQ(allocate(), 0);
}

TEST_F(InternalVlansTest, allocationReservesNothing) {
   TestTrace trace;
   bridge.start();
   EXPECT_EQ(allocate(), 4000);
   EXPECT_EQ(allocate(), 4000);
   EXPECT_TRUE(trace.has(" free vid: 4000"));
}

TEST_F(InternalVlansTest, rangeTheWrongWayRoundGivesNoneForEitherPolicy) {
   bridge.start();
   for (uint8_t const policy : {0, 1}) {
      bridge.internalVlansAre(4001, 4000, policy);
      bridge.run();
      EXPECT_EQ(allocate(), 0) << unsigned(policy);
      bridge.internalVlansAre(65535, 0, policy);
      bridge.run();
      EXPECT_EQ(allocate(), 0) << unsigned(policy);
   }
}

TEST_F(InternalVlansTest, rangeOfOneNumberHasThatNumber) {
   bridge.internalVlansAre(4000, 4000);
   bridge.start();
   EXPECT_EQ(allocate(), 4000);
}

TEST_F(InternalVlansTest, rangeBeyondTheVlansRaisesWhenTheWalkGetsThere) {
   constexpr char text[] = "VlanId::value < 1 or > 4094 not allowed";
   bridge.internalVlansAre(0, 5);
   bridge.start();
   EXPECT_EQ(refusal(), text);
   bridge.internalVlansAre(0, 5, 1);
   bridge.run();
   EXPECT_EQ(refusal(), "gave 5");
   bridge.internalVlansAre(4094, 65535);
   bridge.run();
   EXPECT_EQ(refusal(), "gave 4094");
   bridge.vlan(4094);
   bridge.run();
   EXPECT_EQ(refusal(), text);
   bridge.internalVlansAre(4094, 65535, 1);
   bridge.run();
   EXPECT_EQ(refusal(), text);
}

TEST_F(InternalVlansTest, allocationBeforeTheStartEndsTheAgent) {
   auto const sm = Kem::makePtr<Vorn::BridgingConfigSm>(bridge.bridgingInputs());
   EXPECT_DEATH(sm->allocateInternalVlanId(), HasSubstr("\"initialized()\""));
}

// --- A routed port.

TEST_F(InternalVlansTest, routedPortGetsAVlanOfItsOwn) {
   bridge.routed("Ethernet1");
   bridge.routed("Ethernet2");
   bridge.start();
   holds("Ethernet1", bridge.sm->internalVlanId("Ethernet1"));
   holds("Ethernet2", bridge.sm->internalVlanId("Ethernet2"));
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{4000, 4001}));
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, vlanOfARoutedPortIsNamedAfterItAndHasTheCpuPort) {
   bridge.routed("Ethernet3/1");
   bridge.start();
   auto const vlan = bridge.resolvedVlan(4000);
   ASSERT_TRUE(vlan);
   EXPECT_TRUE(vlan->internal());
   EXPECT_EQ(vlan->configSource(), "internal");
   EXPECT_EQ(vlan->adminState(), Bridging::VlanAdminState::active);
   EXPECT_EQ(vlan->configuredName(), "Ethernet3/1");
   EXPECT_TRUE(vlan->trunkGroup().empty());
   EXPECT_EQ(vlan->vlanTypeAndPrimaryVlan(), Bridging::VlanTypeAndPrimaryVlan());
   EXPECT_EQ(bridge.membership(4000, "Cpu"), "tagged");
   EXPECT_EQ(bridge.membership(4000, "Ethernet3/1"), "untagged");
   EXPECT_EQ(vlan->intf().size(), 2u);
}

TEST_F(InternalVlansTest, noSwitchportIsAMemberOfAnInternalVlan) {
   bridge.routed("Ethernet1");
   bridge.trunk("Ethernet2");
   bridge.access("Ethernet3", 4000);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{});
   EXPECT_EQ(bridge.vlansOf("Ethernet3"), Numbers{});
}

TEST_F(InternalVlansTest, portThatIsRoutedByModeIsRoutedToo) {
   bridge.routed("Ethernet1")->enabledIs(true);
   bridge.port("Ethernet1")->switchportModeIs(TestBridge::Mode::routed_);
   bridge.start();
   holds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, portKeepsItsVlanHoweverOftenItIsLookedAt) {
   bridge.internalVlansAre(4000, 4002, 1);
   bridge.routed("Ethernet1");
   bridge.start();
   holds("Ethernet1", 4002);
   bridge.internalVlansAre(100, 101);
   bridge.port("Ethernet1")->asymVlansIs("1");
   bridge.run();
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.portSm("Ethernet1")->switchportModeAndNativeVlan();
   holds("Ethernet1", 4002);
}

TEST_F(InternalVlansTest, portThatIsShutDownGetsNoVlanAndDoesNotWait) {
   bridge.routed("Ethernet1");
   bridge.enabledStateLocalIs("Ethernet1", 2);
   bridge.start();
   holdsNothing("Ethernet1");
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(InternalVlansTest, anyOtherStateIsNotShutDown) {
   for (unsigned const state : {0u, 1u, 3u, 255u}) {
      std::string const name = "Ethernet" + std::to_string(state + 1);
      bridge.routed(name);
      bridge.enabledStateLocalIs(name, state);
   }
   bridge.internalVlansAre(4000, 4010);
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{4000, 4001, 4002, 4003}));
}

TEST_F(InternalVlansTest, portWithoutAnInterfaceRecordGetsNoVlanAndDoesNotWait) {
   bridge.port("Ethernet1")->enabledIs(false);
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.port("Ethernet2")->enabledIs(false);
   bridge.intf("Ethernet2");
   bridge.start();
   holdsNothing("Ethernet1");
   holdsNothing("Ethernet2");
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
}

TEST_F(InternalVlansTest, onlyTheRoutedForwardingModelGetsAVlan) {
   bridge.routed("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", 0);
   bridge.start();
   for (unsigned const model : {0u, 1u, 2u, 3u, 4u, 6u, 255u}) {
      bridge.forwardingModelIs("Ethernet1", model);
      bridge.run();
      holdsNothing("Ethernet1");
   }
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.run();
   holds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, interfaceRecordsThatComeLaterGetThePortItsVlan) {
   bridge.port("Ethernet1")->enabledIs(false);
   bridge.start();
   bridge.intf("Ethernet1");
   bridge.run();
   holdsNothing("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->ethIntfStatus(), bridge.ethIntfStatusDir->intfStatus("Ethernet1"));
   bridge.enabledStateLocalIs("Ethernet1", 1);
   bridge.run();
   holds("Ethernet1", 4000);
}

// --- Giving a VLAN up.

TEST_F(InternalVlansTest, portThatBecomesASwitchportLosesItsVlanAsItGetsItsNativeOne) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.routed("Ethernet1");
   bridge.start();
   holds("Ethernet1", 4000);
   bridge.port("Ethernet1")->accessVlanIs(10);
   bridge.port("Ethernet1")->enabledIs(true);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{10});
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
   EXPECT_EQ(bridge.sm->internalVlanId("Ethernet1"), 0);
   EXPECT_TRUE(bridge.sm->routedPort(4000).empty());
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
}

TEST_F(InternalVlansTest, shutPortGivesItsVlanBackAndMayGetAnotherOne) {
   bridge.routed("Ethernet1");
   bridge.start();
   holds("Ethernet1", 4000);
   TestTrace trace;
   bridge.enabledStateLocalIs("Ethernet1", 2);
   bridge.run();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
   bridge.routed("Ethernet2");
   bridge.run();
   holds("Ethernet2", 4000);
   bridge.enabledStateLocalIs("Ethernet1", 1);
   bridge.run();
   holds("Ethernet1", 4001);
}

TEST_F(InternalVlansTest, portThatLeavesTheForwardingModelGivesItsVlanBack) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.forwardingModelIs("Ethernet1", 1);
   bridge.run();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.run();
   holds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, forwardingModelOfASwitchportIsNoConcern) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.forwardingModelIs("Ethernet1", 1);
   bridge.start();
   for (unsigned const model : {5u, 4u, 0u}) {
      bridge.forwardingModelIs("Ethernet1", model);
      bridge.run();
      EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
      EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
   }
}

TEST_F(InternalVlansTest, tablesThatContradictEachOtherEndTheAgent) {
   bridge.routed("Ethernet1");
   bridge.routed("Ethernet2");
   bridge.start();
   // A record that names the VLAN of the other port.
   uint16_t const other = 8001 - bridge.sm->internalVlanId("Ethernet1").value();
   bridge.resolvedPort("Ethernet1")
       ->switchportModeAndNativeVlanIs(
           {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = other});
   bridge.forwardingModelIs("Ethernet1", 1);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"vlanIdOrNone == parent()->internalVlanId( intfId() )\""));
}

TEST_F(InternalVlansTest, interfaceThatVanishesReleasesTheVlanOfItsPort) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.run();
   EXPECT_TRUE(bridge.portSm("Ethernet1")) << "the command line's port stands";
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1")->asymVlanEnabled()) << "its mode is evaluated";
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for Ethernet1"));
   bridge.intf("Ethernet1");
   bridge.run();
   holds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, statusThatVanishesReleasesTheVlanOfItsPort) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   bridge.ethIntfStatusDir->intfStatusDel("Ethernet1");
   bridge.run();
   holdsNothing("Ethernet1");
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1")->asymVlanEnabled()) << "its mode is evaluated";
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for Ethernet1"));
}

TEST_F(InternalVlansTest, statusThatComesWithItsModelGivesThePortItsVlan) {
   bridge.routed("Ethernet1");
   bridge.ethIntfStatusDir->intfStatusDel("Ethernet1");
   bridge.start();
   holdsNothing("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", 5); // a new record, which has its model from the beginning
   bridge.run();
   holds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, startOverWithAnotherNumberOfTheSamePortEndsTheAgent) {
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.sm->handleInitialized();
   bridge.resolvedPort("Ethernet1")
       ->switchportModeAndNativeVlanIs(
           {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 4001});
   EXPECT_DEATH(bridge.sm->handleInitialized(), HasSubstr("\"!startupInternalVlanId( iter->intfId() )\""));
}

TEST_F(InternalVlansTest, portThatIsDeletedReleasesItsVlan) {
   TestTrace trace;
   bridge.port("Ethernet1")->enabledIs(false); // without a default record
   bridge.forwardingModelIs("Ethernet1", 5);
   bridge.ethIntfConfigDir->intfConfigIs("Ethernet1");
   bridge.start();
   holds("Ethernet1", 4000);
   bridge.eth->switchIntfConfigDel("Ethernet1");
   bridge.portDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(bridge.portSm("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(bridge.sm->internalVlanId("Ethernet1"), 0);
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
}

TEST_F(InternalVlansTest, onlyAVlanCanBeGivenUp) {
   bridge.start();
   EXPECT_DEATH(deleteRoutedPortVlanConfig(*bridge.sm, "Ethernet1", 0), HasSubstr("\"vlanId\""));
}

TEST_F(InternalVlansTest, portWithoutAResolvedRecordCanGiveItsVlanUp) {
   bridge.start();
   EXPECT_EQ(bridge.sm->internalVlans().take("Ethernet1"), 4000);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4000});
   deleteRoutedPortVlanConfig(*bridge.sm, "Ethernet1", 4000);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(bridge.sm->internalVlanId("Ethernet1"), 0);
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1"));
}

// --- Waiting.

TEST_F(InternalVlansTest, portWaitsWhenThereIsNoFreeNumber) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
}

TEST_F(InternalVlansTest, portThatIsASwitchportAgainDoesNotWait) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_TRUE(bridge.waitingSince("Ethernet1"));
   bridge.port("Ethernet1")->enabledIs(true);
   bridge.run();
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, portThatIsDeletedDoesNotWait) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_TRUE(bridge.waitingSince("Ethernet1"));
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.run();
   EXPECT_TRUE(bridge.waitingSince("Ethernet1")) << "its interface alone does not end it";
   bridge.portDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, vlanOfTheUserTakesTheNumberAndThePortWaits) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.advance(5);
   bridge.vlan(4000);
   bridge.run();
   holdsNothing("Ethernet1");
   ASSERT_TRUE(bridge.resolvedVlan(4000));
   EXPECT_FALSE(bridge.resolvedVlan(4000)->internal());
   EXPECT_EQ(bridge.resolvedVlan(4000)->configSource(), "cli");
   EXPECT_TRUE(bridge.sm->routedPort(4000).empty());
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime + 5);
   EXPECT_TRUE(trace.has(
       "handleInternalVlanIdInUse deleting routed port vlan config for intfId: Ethernet1 vlanId: 4000"));
}

TEST_F(InternalVlansTest, newWinnerThatHoldsTheNumberTakesIt) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   auto const other = bridge.input("a");
   other.vlan(4000);
   bridge.run();
   holds("Ethernet1", 4000);
   trace.clear();
   other.record->vlanConfigPriorityIs(200);
   bridge.run();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_FALSE(bridge.resolvedVlan(4000)->internal());
   EXPECT_EQ(bridge.resolvedVlan(4000)->configSource(), "a");
   EXPECT_TRUE(trace.has("Deleting Vlan 4000"));
}

TEST_F(InternalVlansTest, vlanInterfaceTakesTheNumberAndThePortWaits) {
   bridge.routed("Ethernet1");
   bridge.routed("Ethernet2");
   bridge.start();
   auto const first = bridge.sm->routedPort(4000);
   auto const second = bridge.sm->routedPort(4001);
   bridge.vlanIntf(4000);
   bridge.run();
   holdsNothing(first);
   EXPECT_EQ(bridge.waitingSince(first), startTime);
   bridge.dynVlanIntf(4001);
   bridge.run();
   holdsNothing(second);
   EXPECT_EQ(bridge.waitingSince(second), startTime);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(InternalVlansTest, vlanInterfaceThatGoesTakesNothing) {
   bridge.vlanIntf(4000);
   bridge.dynVlanIntf(4001);
   bridge.routed("Ethernet1");
   bridge.start();
   holds("Ethernet1", 4002);
   bridge.vlanIntfConfig->intfConfigDel("Vlan4000");
   bridge.dynVlanIntfList->intfConfigDel("Vlan4001");
   bridge.run();
   holds("Ethernet1", 4002);
}

TEST_F(InternalVlansTest, vlanInterfaceOfANumberThatNobodyHoldsTakesNothing) {
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.vlanIntf(4001);
   bridge.vlanIntf(1);
   bridge.run();
   holds("Ethernet1", 4000);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

// --- Recovery.

TEST_F(InternalVlansTest, portIsReleasedTenSecondsAfterItBeganToWait) {
   bridge.internalVlansAre(4000, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.advance(3); // the next look is at 10 seconds, and then every 10
   bridge.vlan(4000);
   bridge.run();
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime + 3);
   bridge.internalVlansAre(4001, 4001);
   bridge.advance(7);
   EXPECT_TRUE(bridge.waitingSince("Ethernet1")) << "7 seconds";
   bridge.advance(9.9);
   EXPECT_TRUE(bridge.waitingSince("Ethernet1")) << "nobody looks";
   bridge.advance(0.2);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4000}) << "the number is not assigned";
   bringBack({"Ethernet1"});
   holds("Ethernet1", 4001);
}

TEST_F(InternalVlansTest, tenSecondsSharpAreEnough) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(9.999);
   EXPECT_TRUE(bridge.waitingSince("Ethernet1"));
   bridge.advance(0.001);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, portsKeepWaitingWhileNoNumberIsFree) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.routed("Ethernet2");
   bridge.start();
   bridge.advance(35);
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_EQ(bridge.waitingSince("Ethernet2"), startTime);
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(10);
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
}

TEST_F(InternalVlansTest, oneFreeNumberReleasesAllAndThoseWhoLoseTheRaceWaitAgain) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.routed("Ethernet2");
   bridge.start();
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(10);
   EXPECT_TRUE(bridge.cause->intfStatus().empty()) << "both in the same look";
   bringBack({"Ethernet2", "Ethernet1"});
   holds("Ethernet2", 4000);
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime + 10);
}

TEST_F(InternalVlansTest, portThatHasBegunToWaitIsGivenNoNumberByOtherEvaluations) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(9);
   bringBack({"Ethernet1"});
   bridge.enabledStateLocalIs("Ethernet1", 1);
   bridge.run();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   bridge.advance(1);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, portThatIsLookedAtInVainAfterTenSecondsWaitsAnew) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.advance(11);
   bridge.enabledStateLocalIs("Ethernet1", 1);
   bridge.run();
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime + 11);
}

TEST_F(InternalVlansTest, portThatWaitsLongerGetsAFreeNumberWhereverItIsLookedAtAndWaitsNoMore) {
   for (char const* name : {"Ethernet1", "Ethernet2"})
      bridge.routed(name);
   bridge.cause->intfStatusIs("Ethernet1", startTime - 60);  // by a run before
   bridge.cause->intfStatusIs("Ethernet2", startTime + 9e6); // by one on a clock that has been reset
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{4000, 4001}));
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
   bridge.advance(20); // recovery finds nothing that can't be
}

TEST_F(InternalVlansTest, causesOfTheRunBeforeAreLookedAtAtOnce) {
   bridge.cause->intfStatusIs("Ethernet1", startTime - 10);
   bridge.cause->intfStatusIs("Ethernet2", startTime - 9);
   bridge.start();
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(bridge.waitingSince("Ethernet2"));
}

TEST_F(InternalVlansTest, waitingPortWithAVlanEndsTheAgent) {
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.cause->intfStatusIs("Ethernet1", startTime);
   EXPECT_DEATH(bridge.advance(10), HasSubstr("\"!internalVlanIdIteratorConst().isMemberOf( i.key() )\""));
}

// --- A restart. What makes a port routed is then its default record.

struct InternalVlanRestartTest : InternalVlansTest {
   InternalVlanRestartTest() {
      bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
      left("Ethernet1", 4001);
   }
   // A routed port as the run before left it.
   void left(Sulvi::IntfId intfId, uint16_t vlanId) {
      bridge.intf(intfId);
      bridge.forwardingModelIs(intfId, 5);
      auto const record = bridge.eth->switchIntfConfigIs(intfId);
      record->enabledIs(false);
      bridge.allSwitchIntfConfigs->switchIntfConfigIs(record);
      bridge.internalVlan(vlanId, intfId)->intfIs(intfId, {});
      bridge.config->switchIntfConfigIs(
          intfId, {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = vlanId});
   }
   void lostItsNumber() {
      holdsNothing("Ethernet1");
      EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime) << "and is not given another one at once";
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
      EXPECT_TRUE(bridge.sm->startupRoutedPort(4001).empty());
      bridge.advance(10);
      EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
      bringBack({"Ethernet1"});
      holds("Ethernet1", 4000);
   }
};

TEST_F(InternalVlanRestartTest, portKeepsItsNumber) {
   auto const vlan = bridge.resolvedVlan(4001);
   bridge.start();
   holds("Ethernet1", 4001);
   EXPECT_EQ(bridge.resolvedVlan(4001), vlan) << "not even the record is a new one";
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0) << "claimed";
   EXPECT_TRUE(bridge.sm->startupRoutedPort(4001).empty());
}

TEST_F(InternalVlanRestartTest, portsOfTheSameRunKeepTheirNumbers) {
   left("Ethernet2", 4000);
   bridge.start();
   bridge.stop();
   bridge.start();
   holds("Ethernet1", 4001);
   holds("Ethernet2", 4000);
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
}

TEST_F(InternalVlanRestartTest, numberIsHeldBackUntilItsPortIsLookedAt) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   EXPECT_EQ(bridge.sm->startupRoutedPort(4001), Sulvi::IntfId("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4001});
   EXPECT_EQ(allocate(), 4000);
   bridge.startSelector();
   bridge.run();
   holds("Ethernet1", 4001);
}

TEST_F(InternalVlanRestartTest, secondPortThatClaimsTheNumberGetsAnother) {
   left("Ethernet2", 4001);
   bridge.start();
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
   auto const owner = bridge.sm->routedPort(4001);
   auto const other = Sulvi::IntfId(owner == Sulvi::IntfId("Ethernet1") ? "Ethernet2" : "Ethernet1");
   holds(owner, 4001);
   holds(other, 4000);
}

TEST_F(InternalVlanRestartTest, numberThatAVlanInterfaceTookIsLost) {
   bridge.vlanIntf(4001);
   bridge.start();
   lostItsNumber();
}

TEST_F(InternalVlanRestartTest, numberThatADynamicVlanInterfaceTookIsLost) {
   bridge.dynVlanIntf(4001);
   bridge.start();
   lostItsNumber();
}

TEST_F(InternalVlanRestartTest, numberThatAVlanTookIsLost) {
   bridge.config->newVlanConfig(4001, false);
   bridge.start();
   holdsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
}

TEST_F(InternalVlanRestartTest, numberThatTheUserTookMeanwhileIsGivenUp) {
   bridge.vlan(4001);
   bridge.start();
   EXPECT_FALSE(bridge.resolvedVlan(4001)->internal());
   lostItsNumber();
}

TEST_F(InternalVlanRestartTest, numberOfAPortThatIsNotYetLookedAtIsTheUsersToo) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   bridge.vlan(4001);
   bridge.sm->configInIs(bridge.cli);
   bridge.sm->vlanConfigCodef()->handleVlanConfig();
   bridge.run();
   ASSERT_TRUE(bridge.resolvedVlan(4001));
   EXPECT_FALSE(bridge.resolvedVlan(4001)->internal());
   bridge.startSelector();
   bridge.run();
   lostItsNumber();
}

TEST_F(InternalVlanRestartTest, whatIsNoRoutedPortAnyMoreIsNotHeldBack) {
   struct Case {
      char const* what;
      void (*change)(TestBridge&);
   };
   Case const cases[] = {
       {"a switchport now", [](TestBridge& b) { b.eth->switchIntfConfig("Ethernet1")->enabledIs(true); }},
       {"no input", [](TestBridge& b) { b.eth->switchIntfConfigDel("Ethernet1"); }},
       {"shut down", [](TestBridge& b) { b.enabledStateLocalIs("Ethernet1", 2); }},
       {"was no routed port",
        [](TestBridge& b) {
           b.resolvedPort("Ethernet1")->switchportModeAndNativeVlanIs({.nativeVlan = 4001});
        }},
       {"had no VLAN",
        [](TestBridge& b) {
           b.resolvedPort("Ethernet1")
               ->switchportModeAndNativeVlanIs(
                   {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 0});
        }},
   };
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   for (auto const& [what, change] : cases) {
      bridge.stop();
      bridge.eth->switchIntfConfigDel("Ethernet1");
      bridge.enabledStateLocalIs("Ethernet1", 0);
      left("Ethernet1", 4001);
      bridge.resolvedPort("Ethernet1")
          ->switchportModeAndNativeVlanIs(
              {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 4001});
      bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
      bridge.startBridgingOnly();
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001) << what;
      bridge.stop();
      change(bridge);
      bridge.startBridgingOnly();
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0) << what;
      EXPECT_EQ(bridge.resolvedVlans(), Numbers{}) << what;
   }
}

TEST_F(InternalVlanRestartTest, portWithoutAnInterfaceRecordIsHeldBack) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.startBridgingOnly();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
}

TEST_F(InternalVlanRestartTest, withoutAnInputNothingIsHeldBack) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   auto inputs = bridge.bridgingInputs();
   inputs.configIn = nullptr;
   bridge.sm = Vorn::bridgingConfigSmFactory(inputs);
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

} // namespace
