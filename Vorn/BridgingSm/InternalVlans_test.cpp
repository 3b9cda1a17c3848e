#include "Vorn/BridgingSm/InternalVlans.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

using ForwardingModel = Interface::IntfForwardingModel;
using Policy = TestBridge::Policy;

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
   void expectHolds(Sulvi::IntfId intfId, uint16_t vlanId) {
      EXPECT_EQ(bridge.mode(intfId), "routed " + std::to_string(vlanId));
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), vlanId);
      EXPECT_EQ(bridge.sm->routedPort(vlanId), intfId);
      EXPECT_EQ(bridge.vlansOf(intfId), Numbers{vlanId});
      ASSERT_TRUE(bridge.resolvedVlan(vlanId));
      EXPECT_TRUE(bridge.resolvedVlan(vlanId)->internal());
   }
   void expectHoldsNothing(Sulvi::IntfId intfId) {
      EXPECT_EQ(bridge.mode(intfId), "routed 0");
      EXPECT_EQ(bridge.sm->internalVlanId(intfId), 0);
      EXPECT_EQ(bridge.vlansOf(intfId), Numbers{});
   }
   // What errdisable does with a port that waits, and then with one that waits no more.
   void bringBack(std::vector<char const*> const& ports) {
      for (auto const model : {TestBridge::blockedModel, TestBridge::routedModel}) {
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
   EXPECT_TRUE(bridge.portSm("Ethernet1")) << "the command line's port stands";
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
                            TestBridge::routedModel); // a new record, which has its model from the beginning
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
   bridge.port("Ethernet1")->enabledIs(false); // without a default record
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

// A restart looks at each port again: one that went on waiting would otherwise be seen to change by everybody who
// reads the cause, and each look would put its recovery off.
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

// A database that was saved on a switch that had been up for longer, or a time that is none.
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

// --- A restart. What makes a port routed is then its default record.

struct InternalVlanRestartTest : InternalVlansTest {
   InternalVlanRestartTest() {
      bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
      left("Ethernet1", 4001);
   }
   // A routed port as the run before left it.
   void left(Sulvi::IntfId intfId, uint16_t vlanId) {
      bridge.intf(intfId);
      bridge.forwardingModelIs(intfId, TestBridge::routedModel);
      auto const record = bridge.eth->switchIntfConfigIs(intfId);
      record->enabledIs(false);
      bridge.allSwitchIntfConfigs->switchIntfConfigIs(record);
      bridge.internalVlan(vlanId, intfId)->intfIs(intfId, {});
      bridge.config->switchIntfConfigIs(
          intfId, {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = vlanId});
   }
   void expectFreed() {
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
      EXPECT_TRUE(bridge.sm->startupRoutedPort(4001).empty());
      EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
      EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   }
   void expectLostItsNumber() {
      expectHoldsNothing("Ethernet1");
      EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime) << "and is not given another one at once";
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
      EXPECT_TRUE(bridge.sm->startupRoutedPort(4001).empty());
      bridge.advance(10);
      EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
      bringBack({"Ethernet1"});
      expectHolds("Ethernet1", 4000);
   }
};

TEST_F(InternalVlanRestartTest, portKeepsItsNumber) {
   auto const vlan = bridge.resolvedVlan(4001);
   bridge.start();
   expectHolds("Ethernet1", 4001);
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
   expectHolds("Ethernet1", 4001);
   expectHolds("Ethernet2", 4000);
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
}

TEST_F(InternalVlanRestartTest, numberIsHeldBackUntilItsPortIsLookedAt) {
   bridge.internalVlansAre(4001, 4002);
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   EXPECT_EQ(bridge.sm->startupRoutedPort(4001), Sulvi::IntfId("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4001});
   EXPECT_EQ(allocate(), 4002) << "4001 is in use";
   bridge.startSelector();
   bridge.run();
   expectHolds("Ethernet1", 4001);
}

TEST_F(InternalVlanRestartTest, secondPortThatClaimsTheNumberGetsAnother) {
   left("Ethernet2", 4001);
   bridge.start();
   EXPECT_TRUE(bridge.cause->intfStatus().empty());
   auto const owner = bridge.sm->routedPort(4001);
   auto const other = Sulvi::IntfId(owner == Sulvi::IntfId("Ethernet1") ? "Ethernet2" : "Ethernet1");
   expectHolds(owner, 4001);
   expectHolds(other, 4000);
}

TEST_F(InternalVlanRestartTest, numberThatAVlanInterfaceTookIsLost) {
   bridge.vlanIntf(4001);
   bridge.start();
   expectLostItsNumber();
}

TEST_F(InternalVlanRestartTest, numberThatADynamicVlanInterfaceTookIsLost) {
   bridge.dynVlanIntf(4001);
   bridge.start();
   expectLostItsNumber();
}

TEST_F(InternalVlanRestartTest, numberThatAVlanTookIsLost) {
   bridge.config->newVlanConfig(4001, false);
   bridge.start();
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
}

TEST_F(InternalVlanRestartTest, numberThatTheUserTookMeanwhileIsGivenUp) {
   bridge.vlan(4001);
   bridge.start();
   EXPECT_FALSE(bridge.resolvedVlan(4001)->internal());
   expectLostItsNumber();
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
   expectLostItsNumber();
}

// 1. The previous run left Ethernet1 with VLAN 4001.
// 2. Before Ethernet1 is looked at, a user makes a VLAN of that number and deletes it again.
// 3. Ethernet2 is looked at first, and takes the number.
TEST_F(InternalVlanRestartTest, numberThatAnotherPortTookMeanwhileIsLost) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   bridge.vlan(4001);
   bridge.sm->configInIs(bridge.cli);
   bridge.sm->handleVlanConfig();
   bridge.run();
   bridge.vlanDel(4001);
   bridge.run();
   ASSERT_EQ(bridge.resolvedVlans(), Numbers{});
   ASSERT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   bridge.config->internalVlanRangeIs({.min = 4001, .max = 4002});
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.routed("Ethernet2"));
   bridge.run();
   expectHolds("Ethernet2", 4001);
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.eth->switchIntfConfig("Ethernet1"));
   bridge.run();
   expectHolds("Ethernet2", 4001);
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
}

TEST_F(InternalVlanRestartTest, portThatIsASwitchportByNowFreesItsNumber) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   ASSERT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   bridge.access("Ethernet1", 10); // the command line's record wins
   bridge.startSelector();
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 0");
   expectFreed();
}

TEST_F(InternalVlanRestartTest, portWhoseModelComesLateKeepsItsNumberUntilThen) {
   bridge.forwardingModelIs("Ethernet1", ForwardingModel::intfForwardingModelUnknown);
   bridge.start();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{4001});
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   expectHolds("Ethernet1", 4001);
}

TEST_F(InternalVlanRestartTest, portThatIsShutOrGoneBeforeItComesUpFreesItsNumber) {
   struct Case {
      char const* what;
      void (*change)(TestBridge&);
   };
   Case const cases[] = {
       {"shut down", [](TestBridge& b) { b.enabledStateLocalIs("Ethernet1", TestBridge::shutDown); }},
       {"no interface", [](TestBridge& b) { b.ethIntfConfigDir->intfConfigDel("Ethernet1"); }},
       {"no status", [](TestBridge& b) { b.ethIntfStatusDir->intfStatusDel("Ethernet1"); }},
       {"no port", [](TestBridge& b) { b.allSwitchIntfConfigs->switchIntfConfigDel("Ethernet1"); }},
   };
   for (auto const& [what, change] : cases) {
      SCOPED_TRACE(what);
      bridge.enabledStateLocalIs("Ethernet1", Interface::EnabledState::enabledStateDefault);
      left("Ethernet1", 4001);
      bridge.forwardingModelIs("Ethernet1", ForwardingModel::intfForwardingModelUnknown);
      bridge.resolvedPort("Ethernet1")
          ->switchportModeAndNativeVlanIs(
              {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 4001});
      bridge.startBridgingOnly();
      ASSERT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
      change(bridge);
      bridge.run();
      expectFreed();
      bridge.stop();
   }
}

TEST_F(InternalVlanRestartTest, portThatGoesBeforeItsCopyIsMadeFreesItsNumberToo) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   ASSERT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   bridge.sm->switchIntfConfigCodef()->handleSwitchIntfConfig("Ethernet1");
   expectFreed();
}

TEST_F(InternalVlanRestartTest, whatIsNoRoutedPortAnyMoreIsNotHeldBack) {
   struct Case {
      char const* what;
      void (*change)(TestBridge&);
   };
   Case const cases[] = {
       {"a switchport now", [](TestBridge& b) { b.eth->switchIntfConfig("Ethernet1")->enabledIs(true); }},
       {"no input", [](TestBridge& b) { b.eth->switchIntfConfigDel("Ethernet1"); }},
       {"shut down", [](TestBridge& b) { b.enabledStateLocalIs("Ethernet1", TestBridge::shutDown); }},
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
      bridge.enabledStateLocalIs("Ethernet1", Interface::EnabledState::enabledStateDefault);
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
