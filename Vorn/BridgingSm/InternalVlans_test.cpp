#include "Vorn/BridgingSm/InternalVlans.h"

#include "Vorn/BridgingSm/TestInternalVlans.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using testing::HasSubstr;
using Vorn::InternalVlansTest;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

using ForwardingModel = Interface::IntfForwardingModel;
using Policy = TestBridge::Policy;

// --- Allocation.

TEST_F(InternalVlansTest, policyZeroTakesTheLowestFreeNumber) {
   bridge.vlanIntf(4000);
   bridge.start();
   EXPECT_EQ(allocate(), 4001);
}

TEST_F(InternalVlansTest, anyOtherPolicyTakesTheHighestFreeNumber) {
   bridge.start();
   for (uint8_t const policy : {1, 2, 255}) {
      bridge.internalVlansAre(4000, 4002, static_cast<Policy>(policy));
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
   for (Policy const policy : {Policy::ascending, Policy::descending}) {
      bridge.internalVlansAre(4001, 4000, policy);
      bridge.run();
      EXPECT_EQ(allocate(), 0) << static_cast<unsigned>(policy);
      bridge.internalVlansAre(65535, 0, policy);
      bridge.run();
      EXPECT_EQ(allocate(), 0) << static_cast<unsigned>(policy);
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
   bridge.internalVlansAre(0, 5, Policy::descending);
   bridge.run();
   EXPECT_EQ(refusal(), "gave 5");
   bridge.internalVlansAre(4094, 65535);
   bridge.run();
   EXPECT_EQ(refusal(), "gave 4094");
   bridge.vlan(4094);
   bridge.run();
   EXPECT_EQ(refusal(), text);
   bridge.internalVlansAre(4094, 65535, Policy::descending);
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
   expectHolds("Ethernet1", bridge.sm->internalVlanId("Ethernet1"));
   expectHolds("Ethernet2", bridge.sm->internalVlanId("Ethernet2"));
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
   expectHolds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, portKeepsItsVlanHoweverOftenItIsLookedAt) {
   bridge.internalVlansAre(4000, 4002, Policy::descending);
   bridge.routed("Ethernet1");
   bridge.start();
   expectHolds("Ethernet1", 4002);
   bridge.internalVlansAre(100, 101);
   bridge.port("Ethernet1")->asymVlansIs("1");
   bridge.run();
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.portSm("Ethernet1")->switchportModeAndNativeVlan();
   expectHolds("Ethernet1", 4002);
}

TEST_F(InternalVlansTest, portThatIsShutDownGetsNoVlanAndDoesNotWait) {
   bridge.routed("Ethernet1");
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::shutDown);
   bridge.start();
   expectHoldsNothing("Ethernet1");
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(InternalVlansTest, anyOtherStateIsNotShutDown) {
   for (unsigned const state : {0u, 1u, 3u, 255u}) {
      std::string const name = "Ethernet" + std::to_string(state + 1);
      bridge.routed(name);
      bridge.enabledStateLocalIs(name, static_cast<Interface::EnabledState>(state));
   }
   bridge.internalVlansAre(4000, 4010);
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{4000, 4001, 4002, 4003}));
}

TEST_F(InternalVlansTest, portWithoutAnInterfaceRecordGetsNoVlanAndDoesNotWait) {
   bridge.port("Ethernet1")->enabledIs(false);
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.port("Ethernet2")->enabledIs(false);
   bridge.intf("Ethernet2");
   bridge.start();
   expectHoldsNothing("Ethernet1");
   expectHoldsNothing("Ethernet2");
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
}

TEST_F(InternalVlansTest, onlyTheRoutedForwardingModelGetsAVlan) {
   bridge.routed("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", ForwardingModel::intfForwardingModelUnknown);
   bridge.start();
   for (unsigned const model : {0u, 1u, 2u, 3u, 4u, 6u, 255u}) {
      bridge.forwardingModelIs("Ethernet1", static_cast<ForwardingModel>(model));
      bridge.run();
      expectHoldsNothing("Ethernet1");
   }
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   expectHolds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, interfaceRecordsThatComeLaterGetThePortItsVlan) {
   bridge.port("Ethernet1")->enabledIs(false);
   bridge.start();
   bridge.intf("Ethernet1");
   bridge.run();
   expectHoldsNothing("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->ethIntfStatus(), bridge.ethIntfStatusDir->intfStatus("Ethernet1"));
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::switchedOn);
   bridge.run();
   expectHolds("Ethernet1", 4000);
}

// --- Giving a VLAN up.

TEST_F(InternalVlansTest, portThatBecomesASwitchportLosesItsVlanAsItGetsItsNativeOne) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.routed("Ethernet1");
   bridge.start();
   expectHolds("Ethernet1", 4000);
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
   expectHolds("Ethernet1", 4000);
   TestTrace trace;
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::shutDown);
   bridge.run();
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
   bridge.routed("Ethernet2");
   bridge.run();
   expectHolds("Ethernet2", 4000);
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::switchedOn);
   bridge.run();
   expectHolds("Ethernet1", 4001);
}

TEST_F(InternalVlansTest, portThatLeavesTheForwardingModelGivesItsVlanBack) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.forwardingModelIs("Ethernet1", TestBridge::bridgedModel);
   bridge.run();
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   expectHolds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, forwardingModelOfASwitchportIsIgnored) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.forwardingModelIs("Ethernet1", TestBridge::bridgedModel);
   bridge.start();
   // Any evaluation would put this right.
   bridge.resolvedPort("Ethernet1")->switchportModeAndNativeVlanIs({.nativeVlan = 7});
   for (auto const model : {TestBridge::routedModel, TestBridge::blockedModel, TestBridge::bridgedModel}) {
      bridge.forwardingModelIs("Ethernet1", model);
      bridge.run();
      EXPECT_EQ(bridge.mode("Ethernet1"), "access 7");
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
   bridge.forwardingModelIs("Ethernet1", TestBridge::bridgedModel);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"vlanIdOrNone == parent()->internalVlanId( intfId() )\""));
}

TEST_F(InternalVlansTest, interfaceThatVanishesReleasesTheVlanOfItsPort) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.run();
   EXPECT_TRUE(bridge.portSm("Ethernet1")) << "the command line's port is kept";
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1")->asymVlanEnabled()) << "its mode is evaluated";
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for Ethernet1"));
   bridge.intf("Ethernet1");
   bridge.run();
   expectHolds("Ethernet1", 4000);
}

TEST_F(InternalVlansTest, statusThatVanishesReleasesTheVlanOfItsPort) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   bridge.ethIntfStatusDir->intfStatusDel("Ethernet1");
   bridge.run();
   expectHoldsNothing("Ethernet1");
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1")->asymVlanEnabled()) << "its mode is evaluated";
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for Ethernet1"));
}

TEST_F(InternalVlansTest, statusThatComesWithItsModelGivesThePortItsVlan) {
   bridge.routed("Ethernet1");
   bridge.ethIntfStatusDir->intfStatusDel("Ethernet1");
   bridge.start();
   expectHoldsNothing("Ethernet1");
   bridge.forwardingModelIs("Ethernet1",
                            TestBridge::routedModel); // a new record that has its model from the beginning
   bridge.run();
   expectHolds("Ethernet1", 4000);
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
   bridge.port("Ethernet1")->enabledIs(false); // a routed port without a default record
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.ethIntfConfigDir->intfConfigIs("Ethernet1");
   bridge.start();
   expectHolds("Ethernet1", 4000);
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
   expectHoldsNothing("Ethernet1");
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
   expectHoldsNothing("Ethernet1");
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
   expectHolds("Ethernet1", 4000);
   trace.clear();
   other.record->vlanConfigPriorityIs(200);
   bridge.run();
   expectHoldsNothing("Ethernet1");
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
   expectHoldsNothing(first);
   EXPECT_EQ(bridge.waitingSince(first), startTime);
   bridge.dynVlanIntf(4001);
   bridge.run();
   expectHoldsNothing(second);
   EXPECT_EQ(bridge.waitingSince(second), startTime);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(InternalVlansTest, vlanInterfaceThatGoesTakesNothing) {
   bridge.vlanIntf(4000);
   bridge.dynVlanIntf(4001);
   bridge.routed("Ethernet1");
   bridge.start();
   expectHolds("Ethernet1", 4002);
   bridge.vlanIntfConfig->intfConfigDel("Vlan4000");
   bridge.dynVlanIntfList->intfConfigDel("Vlan4001");
   bridge.run();
   expectHolds("Ethernet1", 4002);
}

TEST_F(InternalVlansTest, vlanInterfaceOfANumberThatNobodyHoldsTakesNothing) {
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.vlanIntf(4001);
   bridge.vlanIntf(1);
   bridge.run();
   expectHolds("Ethernet1", 4000);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

TEST_F(InternalVlansTest, portThatGetsItsNumberInThePassOfAVlanIsAMemberOfItAtOnce) {
   bridge.internalVlansAre(4001, 4000);
   auto const port = bridge.routed("Ethernet1");
   port->switchportModeIs(TestBridge::Mode::routed_);
   port->enabledIs(true); // a pass looks at such ports only
   bridge.start();
   ASSERT_TRUE(bridge.waitingSince("Ethernet1"));
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(11);
   bridge.vlan(10);
   bridge.run();
   expectHolds("Ethernet1", 4000);
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
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4000}) << "the number is not assigned";
   bringBack({"Ethernet1"});
   expectHolds("Ethernet1", 4001);
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
   expectHolds("Ethernet2", 4000);
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime + 10);
}

TEST_F(InternalVlansTest, portThatWaitsTakesANumberThatCameFreeAtItsNextEvaluation) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.internalVlansAre(4000, 4000);
   bridge.advance(1);
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::switchedOn);
   bridge.run();
   expectHolds("Ethernet1", 4000);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   bridge.advance(20); // recovery finds nothing that can't be
}

// A restart looks at each port again. A port that goes on waiting must keep its time: otherwise everybody who
// reads the cause would see it change, and each look would postpone its recovery.
TEST_F(InternalVlansTest, portThatIsLookedAtInVainWaitsSinceItFailed) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.advance(11);
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::switchedOn);
   bridge.run();
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
}

TEST_F(InternalVlansTest, portWhoseTimeIsOfAnotherBootWaitsFromNowOn) {
   bridge.internalVlansAre(4001, 4000);
   bridge.routed("Ethernet1");
   bridge.cause->intfStatusIs("Ethernet1", startTime + 9e6);
   bridge.start();
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
}

TEST_F(InternalVlansTest, portThatAnEarlierRunLeftWaitingTakesAFreeNumberAndWaitsNoMore) {
   for (char const* name : {"Ethernet1", "Ethernet2"})
      bridge.routed(name);
   bridge.cause->intfStatusIs("Ethernet1", startTime - 60);  // by an earlier run
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

// A database that was saved on a switch that had been up for longer, or a time that is not a number.
TEST_F(InternalVlansTest, timeThatIsNotOfThisBootHoldsAPortBackNoLongerThanAnother) {
   bridge.cause->intfStatusIs("Ethernet1", startTime + 5e8);
   bridge.cause->intfStatusIs("Ethernet2", std::numeric_limits<double>::quiet_NaN());
   bridge.cause->intfStatusIs("Ethernet3", startTime);
   bridge.start();
   for (char const* name : {"Ethernet1", "Ethernet2", "Ethernet3"})
      EXPECT_EQ(bridge.waitingSince(name), startTime) << name;
   bridge.advance(9.9);
   EXPECT_TRUE(bridge.waitingSince("Ethernet1"));
   bridge.advance(0.1);
   for (char const* name : {"Ethernet1", "Ethernet2", "Ethernet3"})
      EXPECT_FALSE(bridge.waitingSince(name)) << name;
}

TEST_F(InternalVlansTest, waitingPortWithAVlanEndsTheAgent) {
   bridge.routed("Ethernet1");
   bridge.start();
   bridge.cause->intfStatusIs("Ethernet1", startTime);
   EXPECT_DEATH(bridge.advance(10), HasSubstr("\"!internalVlanIdIteratorConst().isMemberOf( i.key() )\""));
}

} // namespace
