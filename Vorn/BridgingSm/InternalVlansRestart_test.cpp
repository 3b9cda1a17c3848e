// What happens to the VLANs of routed ports when the agent starts on the tree of a previous run.
#include "Vorn/BridgingSm/TestInternalVlans.h"

namespace {

using Vorn::InternalVlansTest;
using Vorn::TestBridge;

using Numbers = std::vector<uint16_t>;

using ForwardingModel = Interface::IntfForwardingModel;

// A port becomes routed by its default record.
struct InternalVlanRestartTest : InternalVlansTest {
   InternalVlanRestartTest() {
      bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
      left("Ethernet1", 4001);
   }
   // A routed port as the previous run left it.
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

// The VLAN is the user's by now: a port that gives its claim up takes nothing away.
TEST_F(InternalVlanRestartTest, usersVlanOfAHeldBackNumberStaysWhenThePortIsShut) {
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.startBridgingOnly();
   bridge.vlan(4001);
   bridge.sm->configInIs(bridge.cli);
   bridge.sm->vlanConfigCodef()->handleVlanConfig();
   bridge.run();
   ASSERT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::shutDown);
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.eth->switchIntfConfig("Ethernet1"));
   bridge.run();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
   ASSERT_TRUE(bridge.resolvedVlan(4001));
   EXPECT_FALSE(bridge.resolvedVlan(4001)->internal());
}

TEST_F(InternalVlanRestartTest, numberThatAVlanInterfaceTookIsLostAlsoWhereTheModelComesLate) {
   bridge.vlanIntf(4001);
   bridge.forwardingModelIs("Ethernet1", ForwardingModel::intfForwardingModelUnknown);
   bridge.start();
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   expectLostItsNumber();
}

// 1. The previous run left Ethernet1 with VLAN 4001.
// 2. Before Ethernet1 is looked at, a user makes a VLAN of that number and deletes it again.
// 3. Ethernet2 is looked at first, and takes the number.
struct TakenNumberTest : InternalVlanRestartTest {
   TakenNumberTest() {
      bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
      bridge.startBridgingOnly();
      bridge.vlan(4001);
      bridge.sm->configInIs(bridge.cli);
      bridge.sm->handleVlanConfig();
      bridge.run();
      bridge.vlanDel(4001);
      bridge.run();
      EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
      EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 4001);
      bridge.config->internalVlanRangeIs({.min = 4001, .max = 4002});
      bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.routed("Ethernet2"));
      bridge.run();
      expectHolds("Ethernet2", 4001);
   }
};

TEST_F(TakenNumberTest, isLostToThePortThatHadIt) {
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.eth->switchIntfConfig("Ethernet1"));
   bridge.run();
   expectHolds("Ethernet2", 4001);
   expectHoldsNothing("Ethernet1");
   EXPECT_EQ(bridge.waitingSince("Ethernet1"), startTime);
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
}

TEST_F(TakenNumberTest, staysWithItsNewPortWhenTheOldOneIsShut) {
   bridge.enabledStateLocalIs("Ethernet1", TestBridge::shutDown);
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.eth->switchIntfConfig("Ethernet1"));
   bridge.run();
   EXPECT_EQ(bridge.sm->startupInternalVlanId("Ethernet1"), 0);
   expectHolds("Ethernet2", 4001);
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

// 1. The previous run left Ethernet1 with VLAN 4001; its forwarding model comes late.
// 2. Meanwhile a VLAN interface takes the number.
// 3. Ethernet1 comes up, and doesn't take up its VLAN: nobody else would ever delete that.
TEST_F(InternalVlanRestartTest, vlanOfALostNumberGoesWithTheNumber) {
   bridge.forwardingModelIs("Ethernet1", ForwardingModel::intfForwardingModelUnknown);
   bridge.start();
   bridge.vlanIntf(4001);
   bridge.run();
   ASSERT_EQ(bridge.resolvedVlans(), Numbers{4001});
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   expectLostItsNumber();
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
