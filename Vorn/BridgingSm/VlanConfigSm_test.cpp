#include "Vorn/BridgingSm/VlanConfigSm.h"

#include "Vorn/testing/TestBridge.h"
#include "records/Bridging/Input/DynVlanSrc.h"

#include <gmock/gmock.h>

namespace {

using Bridging::VlanAdminState;
using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;
using Mode = TestBridge::Mode;

struct VlanConfigSmTest : testing::Test {
   // A VLAN that only these dynamic sources claim.
   void claimed(uint16_t vlanId, std::vector<char const*> const& sources) {
      auto const claim = bridge.dynVlanSrcTable->dynVlanSrcIs(vlanId);
      for (char const* source : sources)
         claim->vlanSourceIs(source, true);
   }
   // Sets a resolved mode that differs from the port's input: a pass over the ports puts it right.
   void spoilMode(Sulvi::IntfId intfId) {
      bridge.resolvedPort(intfId)->switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::dot1qTunnel_, .nativeVlan = 0});
   }
   static constexpr char spoiled[] = "dot1qTunnel 0";

   TestBridge bridge;
};

// --- What a VLAN copies.

TEST_F(VlanConfigSmTest, resolvedVlanMirrorsItsInput) {
   auto const input = bridge.vlan(10);
   input->configuredNameIs("users");
   input->adminStateIs(VlanAdminState::suspended);
   input->trunkGroupIs("a", true);
   input->trunkGroupIs("b", false);
   input->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 7});
   bridge.start();
   auto const vlan = bridge.resolvedVlan(10);
   ASSERT_TRUE(vlan);
   EXPECT_FALSE(vlan->internal());
   EXPECT_EQ(vlan->configSource(), "cli");
   EXPECT_EQ(vlan->configuredName(), "users");
   EXPECT_EQ(vlan->adminState(), VlanAdminState::suspended);
   EXPECT_EQ(vlan->vlanTypeAndPrimaryVlan().vlanType, Bridging::VlanType::secondary_);
   EXPECT_EQ(vlan->vlanTypeAndPrimaryVlan().primaryVlan, 7);
   EXPECT_EQ(vlan->trunkGroup().size(), 1u) << "a group of the value false is none";
   EXPECT_TRUE(vlan->trunkGroup("a"));
}

TEST_F(VlanConfigSmTest, changesOfTheInputAreFollowed) {
   auto const input = bridge.vlan(10);
   bridge.start();
   auto const vlan = bridge.resolvedVlan(10);
   input->configuredNameIs("users");
   input->adminStateIs(VlanAdminState::suspended);
   input->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 7});
   bridge.run();
   EXPECT_EQ(vlan->configuredName(), "users");
   EXPECT_EQ(vlan->adminState(), VlanAdminState::suspended);
   EXPECT_EQ(vlan->vlanTypeAndPrimaryVlan().primaryVlan, 7);
   EXPECT_EQ(bridge.resolvedVlan(10), vlan) << "the same record";
}

TEST_F(VlanConfigSmTest, sourceIsTheNameOfTheWinner) {
   bridge.start();
   bridge.publish("a", 200).vlan(10);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlan(10)->configSource(), "a");
}

TEST_F(VlanConfigSmTest, unknownAdminStateIsCarried) {
   bridge.vlan(10)->adminStateIs(static_cast<VlanAdminState>(200));
   bridge.access("Ethernet1", 10);
   bridge.start();
   EXPECT_EQ(static_cast<unsigned>(bridge.resolvedVlan(10)->adminState()), 200u);
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "") << "not active";
}

TEST_F(VlanConfigSmTest, nothingHappensBeforeTheCopyIsComplete) {
   bridge.startBridgingOnly();
   bridge.run();
   auto const copy = bridge.sm->staticVlans().vlanConfigAfterCodefIs(10);
   auto const sm = bridge.sm->staticVlans().vlanConfigSm(10);
   ASSERT_TRUE(sm);
   EXPECT_FALSE(sm->initialized());
   copy->adminStateIs(VlanAdminState::suspended);
   copy->configuredNameIs("early");
   copy->trunkGroupIs("a", true);
   copy->vlanTypeAndPrimaryVlanIs({.primaryVlan = 3});
   bridge.run();
   EXPECT_FALSE(bridge.resolvedVlan(10));
}

TEST_F(VlanConfigSmTest, vlanThatWasNeverInitializedCannotBePreparedToDie) {
   bridge.startBridgingOnly();
   bridge.sm->staticVlans().vlanConfigAfterCodefIs(10);
   EXPECT_DEATH(bridge.sm->staticVlans().vlanConfigSm(10)->doPrepareToDie(), HasSubstr("\"initialized()\""));
}

TEST_F(VlanConfigSmTest, anotherInputIsEvaluatedAtOnce) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.start();
   auto const other = Bridging::Input::VlanConfig::make(10);
   other->configuredNameIs("other");
   other->adminStateIs(VlanAdminState::suspended);
   other->trunkGroupIs("a", true);
   other->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 7});
   bridge.sm->staticVlans().vlanConfigSm(10)->vlanConfigInIs(other);
   auto const vlan = bridge.resolvedVlan(10);
   EXPECT_EQ(vlan->configuredName(), "other");
   EXPECT_EQ(vlan->adminState(), VlanAdminState::suspended);
   EXPECT_TRUE(vlan->trunkGroup("a"));
   EXPECT_EQ(vlan->vlanTypeAndPrimaryVlan().primaryVlan, 7);
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "");
}

TEST_F(VlanConfigSmTest, vlanWhoseRecordIsGoneEndsTheAgentWhateverChanges) {
   auto const input = bridge.vlan(10);
   bridge.start();
   bridge.config->vlanConfigDel(10);
   void (*const changes[])(Bridging::Input::VlanConfig&) = {
       [](auto& vlan) { vlan.configuredNameIs("lost"); },
       [](auto& vlan) { vlan.adminStateIs(VlanAdminState::suspended); },
       [](auto& vlan) { vlan.trunkGroupIs("a", true); },
       [](auto& vlan) { vlan.vlanTypeAndPrimaryVlanIs({.primaryVlan = 7}); },
   };
   for (auto const change : changes)
      EXPECT_DEATH(
          {
             change(*input);
             bridge.run();
          },
          HasSubstr("\"vlanConfig\""));
}

// What changed while delivery was off comes as a whole, and nothing else with it.
TEST_F(VlanConfigSmTest, vlanWhoseRecordIsGoneEndsTheAgentWhenItsGroupsComeAsAWhole) {
   auto const input = bridge.vlan(10);
   bridge.start();
   auto const sm = bridge.sm->staticVlans().vlanConfigSm(10);
   sm->hasNotificationActiveIs(false);
   input->trunkGroupIs("a", true);
   bridge.run();
   bridge.config->vlanConfigDel(10);
   EXPECT_DEATH(
       {
          sm->hasNotificationActiveIs(true);
          bridge.run();
       },
       HasSubstr("\"vlanConfig\""));
}

// --- Trunk groups.

TEST_F(VlanConfigSmTest, trunkGroupsComeAndGo) {
   TestTrace trace;
   auto const input = bridge.vlan(10);
   bridge.start();
   input->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_TRUE(bridge.resolvedVlan(10)->trunkGroup("a"));
   EXPECT_TRUE(trace.has("Adding trunkGroup:a to vlan:10"));
   input->trunkGroupIs("a", false);
   bridge.run();
   EXPECT_TRUE(bridge.resolvedVlan(10)->trunkGroup().empty());
   EXPECT_TRUE(trace.has("Removing trunkGroup:afrom vlan:10"));
   trace.clear();
   input->trunkGroupIs("a", true);
   bridge.run();
   input->trunkGroupDel("a");
   bridge.run();
   EXPECT_TRUE(bridge.resolvedVlan(10)->trunkGroup().empty());
   EXPECT_EQ(trace.count("Removing trunkGroup:afrom vlan:10"), 1u);
}

TEST_F(VlanConfigSmTest, groupsOfTheRunBeforeAreSetRightAtTheStart) {
   TestTrace trace;
   bridge.startBridgingOnly();
   bridge.run();
   auto const existing = bridge.config->vlanConfigIs(10);
   existing->trunkGroupIs("stale", true);
   existing->trunkGroupIs("kept", true);
   auto const input = bridge.vlan(10);
   input->trunkGroupIs("kept", true);
   input->trunkGroupIs("new", true);
   bridge.sm->configInIs(bridge.cli);
   bridge.sm->vlanConfigCodef()->handleVlanConfig();
   bridge.run();
   EXPECT_FALSE(existing->trunkGroup().find("stale"));
   EXPECT_TRUE(existing->trunkGroup("kept"));
   EXPECT_TRUE(existing->trunkGroup("new"));
   EXPECT_TRUE(trace.has("Removing trunkGroup:stalefrom vlan:10"));
   EXPECT_TRUE(trace.has("Adding trunkGroup:new to vlan:10"));
   EXPECT_FALSE(trace.has("trunkGroup:kept"));
}

TEST_F(VlanConfigSmTest, changeOfATrunkGroupRunsTheFullPassEvenWhenItChangesNothing) {
   bridge.vlan(10)->trunkGroupIs("a", false);
   bridge.access("Ethernet1", 10);
   bridge.start();
   spoilMode("Ethernet1");
   bridge.vlan(10)->trunkGroupDel("a"); // false as before
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
}

// --- The pass over the ports.

TEST_F(VlanConfigSmTest, portGetsItsNativeVlanWhenThatComesUp) {
   bridge.access("Ethernet1", 10);
   bridge.trunk("Ethernet2", "10", 10);
   bridge.start();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 0");
   EXPECT_EQ(bridge.mode("Ethernet2"), "trunk 0");
   bridge.vlan(10);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.mode("Ethernet2"), "trunk 10");
   EXPECT_EQ(bridge.membership(10, "Ethernet2"), "untagged");
}

TEST_F(VlanConfigSmTest, suspendedVlanHasNoMembersAndAnActiveOneHasThemBack) {
   auto const input = bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.trunk("Ethernet2");
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{10});
   input->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_TRUE(bridge.resolvedVlan(10)->intf().empty());
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 10") << "the native VLAN stays";
   input->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.membership(10, "Ethernet2"), "tagged");
}

TEST_F(VlanConfigSmTest, disabledSwitchportsAreSkipped) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10)->enabledIs(false);
   bridge.access("Ethernet2", 10);
   bridge.start();
   spoilMode("Ethernet1");
   spoilMode("Ethernet2");
   bridge.vlan(10)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), spoiled);
   EXPECT_EQ(bridge.mode("Ethernet2"), "access 10");
}

TEST_F(VlanConfigSmTest, stateOfAPrimaryVlanReachesItsSecondaries) {
   // A port with the secondary as its access VLAN is untagged in the primary too, as long as the
   // primary counts.
   bridge.primaryVlan(100, {101, 102});
   bridge.access("Ethernet1", 100)->defaultPrivateVlanMappingIs(true);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101, 102}));
   bridge.vlan(100)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{});
   bridge.vlan(100)->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101, 102}));
}

TEST_F(VlanConfigSmTest, stateOfASecondaryVlanReachesItsPrimary) {
   bridge.primaryVlan(100, {101});
   bridge.access("Ethernet1", 101);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101}));
   bridge.vlan(101)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{});
   bridge.vlan(101)->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101}));
}

TEST_F(VlanConfigSmTest, primariesAndSecondariesThatAreNotResolvedAreIgnored) {
   bridge.primaryVlan(100, {101});
   bridge.vlanDel(101);
   bridge.vlan(200)->vlanTypeAndPrimaryVlanIs(
       {.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 4094});
   bridge.trunk("Ethernet1");
   bridge.start();
   bridge.vlan(100)->trunkGroupIs("a", true);
   bridge.vlan(200)->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{100, 200}));
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{});
}

// A port leaves asymmetric access mode for trunk mode while a VLAN is added:
// 1. The slice of the ports sets the mode in the copy; the port's own handler runs a moment later.
// 2. In the same turn the slice of the VLANs brings the new VLAN up, whose pass gives the port its new mode.
// 3. The port must not be asked for its membership as a trunk port with asymmetric VLANs, which can't be.
TEST_F(VlanConfigSmTest, portMayLeaveAsymmetricModeWhileAVlanComesUp) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10)->asymVlansIs("10,20");
   bridge.start();
   bridge.port("Ethernet1")->switchportModeIs(Mode::trunk_);
   bridge.vlan(20);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 0");
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "tagged");
}

// The native VLAN of a trunk port changes while a VLAN is added. The pass for the new VLAN writes the port's
// new native VLAN, so the port's own handler finds nothing to change afterwards. The old native VLAN must
// become a tagged one all the same.
TEST_F(VlanConfigSmTest, trunkPortMayChangeItsNativeVlanWhileAVlanComesUp) {
   bridge.vlan(1);
   bridge.vlan(2);
   bridge.trunk("Ethernet1", "1-100", 1);
   bridge.start();
   EXPECT_EQ(bridge.membership(1, "Ethernet1"), "untagged");
   bridge.port("Ethernet1")->trunkNativeVlanIs(2);
   bridge.vlan(30);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 2");
   EXPECT_EQ(bridge.membership(1, "Ethernet1"), "tagged");
   EXPECT_EQ(bridge.membership(2, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.membership(30, "Ethernet1"), "tagged");
}

// --- VLANs that a dynamic source alone has claimed.

TEST_F(VlanConfigSmTest, staticEntryOfAVlanThatMvrpAloneClaimsHasAllowedSetsRebuilt) {
   TestTrace trace;
   bridge.trunk("Ethernet1.5"); // a subinterface traces each time that it has no set
   bridge.start();
   bridge.dynVlans("mvrp", "10", 0);
   bridge.run();
   trace.clear();
   bridge.vlan(10);
   bridge.run();
   EXPECT_EQ(trace.count("Allowed vlans are not applicable for sub interface Ethernet1.5"), 1u);
}

TEST_F(VlanConfigSmTest, otherClaimsLeaveAllowedSetsAlone) {
   TestTrace trace;
   bridge.trunk("Ethernet1.5");
   bridge.start();
   claimed(10, {"mvrp", "other"});
   claimed(20, {"other"});
   claimed(30, {});
   trace.clear();
   for (uint16_t const vlanId : {10, 20, 30, 40})
      bridge.vlan(vlanId);
   bridge.run();
   EXPECT_EQ(trace.count("Allowed vlans are not applicable"), 0u);
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{10, 20, 30, 40}));
}

// --- The end of a VLAN.

TEST_F(VlanConfigSmTest, switchportsLoseADeletedNativeVlanAndKeepTheirMode) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.trunk("Ethernet2", "1-100", 10);
   bridge.access("Ethernet3", 10)->switchportModeIs(Mode::dot1qTunnel_);
   auto const tap = bridge.port("Ethernet4");
   tap->switchportModeIs(Mode::tap_);
   tap->tapNativeVlanIs(10);
   bridge.start();
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_FALSE(bridge.resolvedVlan(10));
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 0");
   EXPECT_EQ(bridge.mode("Ethernet2"), "trunk 0");
   EXPECT_EQ(bridge.mode("Ethernet3"), "dot1qTunnel 0");
   EXPECT_EQ(bridge.mode("Ethernet4"), "tap 10") << "taps and tools keep their number";
   EXPECT_EQ(trace.level("Updated native vlan of interface Ethernet1 to vlan: 0"), 2);
   EXPECT_EQ(trace.count("Updated native vlan of interface "), 3u);
}

TEST_F(VlanConfigSmTest, portsWithAnotherNativeVlanAreLeftAloneByADeletion) {
   bridge.vlan(10);
   bridge.vlan(20);
   bridge.access("Ethernet1", 20);
   bridge.start();
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 20");
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "untagged");
}

TEST_F(VlanConfigSmTest, toolKeepsVlanOne) {
   bridge.vlan(1);
   bridge.port("Ethernet1")->switchportModeIs(Mode::tool_);
   bridge.start();
   bridge.vlanDel(1);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "tool 1");
}

TEST_F(VlanConfigSmTest, disabledSwitchportIsSkippedByADeletion) {
   // A resolved mode that no input gives any more: only the pass would touch it.
   bridge.vlan(10);
   bridge.access("Ethernet1", 10)->enabledIs(false);
   bridge.start();
   bridge.resolvedPort("Ethernet1")->switchportModeAndNativeVlanIs({.nativeVlan = 10});
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 10");
}

TEST_F(VlanConfigSmTest, deletedVlanHasLostItsRole) {
   bridge.primaryVlan(100, {101});
   bridge.start();
   auto const record = bridge.resolvedVlan(101);
   EXPECT_EQ(record->vlanTypeAndPrimaryVlan().primaryVlan, 100);
   bridge.vlanDel(101);
   bridge.run();
   EXPECT_EQ(record->vlanTypeAndPrimaryVlan(), Bridging::VlanTypeAndPrimaryVlan());
}

// --- The CPU port.

TEST_F(VlanConfigSmTest, cpuIsAMemberOfAVlanWithAnEnabledInterface) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.vlan(20);
   bridge.vlanIntf(10);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "tagged");
   EXPECT_EQ(bridge.membership(20, "Cpu"), "");
   EXPECT_TRUE(trace.has(" Adding Cpu port for vlan 10"));
   EXPECT_TRUE(trace.has(" Removing Cpu port for vlan20"));
}

TEST_F(VlanConfigSmTest, interfaceOfADynamicSourceWillDo) {
   bridge.vlan(10);
   bridge.dynVlanIntf(10);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "tagged");
}

TEST_F(VlanConfigSmTest, configuredInterfaceComesBeforeADynamicOne) {
   bridge.vlan(10);
   bridge.dynVlanIntf(10);
   bridge.vlanIntf(10)->enabledIs(false);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
}

TEST_F(VlanConfigSmTest, interfaceThatIsShutDownByConfigurationIsDisabled) {
   bridge.vlan(10);
   bridge.vlanIntf(10)->enabledStateLocalIs(TestBridge::shutDown);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
   bridge.vlanIntf(10)->enabledStateLocalIs(TestBridge::switchedOn);
   bridge.vlan(10)->trunkGroupIs("a", true); // a pass
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "tagged");
   bridge.vlanIntf(10)->enabledStateLocalIs(TestBridge::shutDown);
   bridge.vlan(10)->trunkGroupIs("b", true);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
}

TEST_F(VlanConfigSmTest, suspendedVlanHasNoCpu) {
   bridge.vlan(10)->adminStateIs(VlanAdminState::suspended);
   bridge.vlanIntf(10);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
   bridge.vlan(10)->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "tagged");
   bridge.vlan(10)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
}

TEST_F(VlanConfigSmTest, enablingTheInterfaceWaitsForTheNextPass) {
   bridge.vlan(10);
   bridge.vlanIntf(10)->enabledIs(false);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
   bridge.vlanIntf(10)->enabledIs(true);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
   bridge.vlan(10)->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "tagged");
}

TEST_F(VlanConfigSmTest, numberInTheNameOfTheInterfaceIsNotPadded) {
   bridge.vlan(10);
   bridge.vlanIntfConfig->intfConfigIs("Vlan0010");
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Cpu"), "");
}

TEST_F(VlanConfigSmTest, stateOfAPrimaryVlanReachesTheCpuPortOfItsSecondaries) {
   bridge.primaryVlan(100, {101});
   bridge.vlanIntf(100);
   bridge.start();
   bridge.vlan(100)->trunkGroupIs("a", true); // the role of 101 is resolved by now
   bridge.run();
   EXPECT_EQ(bridge.membership(101, "Cpu"), "tagged");
   bridge.vlan(100)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.membership(101, "Cpu"), "");
}

} // namespace
