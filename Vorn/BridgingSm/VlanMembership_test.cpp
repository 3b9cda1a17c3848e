#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

#include <functional>

namespace {

using Bridging::VlanAdminState;
using Bridging::VlanType;
using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;
using Mode = TestBridge::Mode;

// VLANs 10, 20 and 30, and a port.
struct VlanMembershipTest : testing::Test {
   VlanMembershipTest() {
      for (uint16_t const vlanId : {10, 20, 30})
         bridge.vlan(vlanId);
      port = bridge.port("Ethernet1");
   }
   void start(Mode mode) {
      port->switchportModeIs(mode);
      bridge.start();
   }
   std::string in(uint16_t vlanId) { return bridge.membership(vlanId, "Ethernet1"); }
   Numbers vlans() { return bridge.vlansOf("Ethernet1"); }
   Vorn::SwitchIntfSm& sm() { return *bridge.portSm("Ethernet1"); }
   // Sets the role alone, without the library's state for it.
   void roleIs(uint16_t vlanId, VlanType type, uint16_t primary) {
      bridge.vlan(vlanId)->vlanTypeAndPrimaryVlanIs({.vlanType = type, .primaryVlan = primary});
   }
   // Roles reach the ports by the next pass over their VLANs.
   void syncAll() {
      bridge.run();
      sm().doSyncAllVlans();
   }
   static size_t countLines(std::string const& text, std::string const& line) {
      size_t count = 0;
      for (size_t at = text.find(line); at != text.npos; at = text.find(line, at + 1))
         ++count;
      return count;
   }

   TestBridge bridge;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> port;
};

TEST_F(VlanMembershipTest, processorsPortIsPutRightWhoeverChangedItsMembership) {
   port = bridge.port("Cpu");
   port->trunkAllowedVlansIs("10");
   start(Mode::trunk_);
   auto& cpu = *bridge.portSm("Cpu");
   for (bool const isMember : {true, false}) {
      port->trunkAllowedVlansIs(isMember ? "10" : "20");
      bridge.run();
      auto& vlan = *bridge.resolvedVlan(10);
      isMember ? Vorn::deleteCpuPort(vlan) : Vorn::addCpuPort(vlan);
      cpu.doSyncAllVlans();
      EXPECT_EQ(bridge.vlansOf("Cpu"), Numbers{isMember ? uint16_t(10) : uint16_t(20)});
   }
}

TEST_F(VlanMembershipTest, memberThatSomebodyElseEditedIsPutRightWhenItsVlanIsLookedAt) {
   port->trunkAllowedVlansIs("10,20");
   start(Mode::trunk_);
   ASSERT_EQ(vlans(), (Numbers{10, 20}));
   auto const state = [&](uint16_t vlanId, VlanAdminState to) {
      bridge.vlan(vlanId)->adminStateIs(to);
      bridge.run();
   };
   bridge.resolvedVlan(20)->intfDel("Ethernet1");
   bridge.vlan(20)->trunkGroupIs("none of its groups", false); // a pass over the ports
   bridge.run();
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "tagged") << "taken away";
   bridge.resolvedVlan(20)->intfIs("Ethernet1", {});
   bridge.portSm("Ethernet1")->doSyncSingleVlan(*bridge.resolvedVlan(20));
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "tagged") << "changed";
   state(20, VlanAdminState::suspended);
   ASSERT_EQ(bridge.membership(20, "Ethernet1"), "");
   bridge.resolvedVlan(20)->intfIs("Ethernet1", {});
   bridge.portSm("Ethernet1")->doSyncSingleVlan(*bridge.resolvedVlan(20));
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "") << "added";
}

// --- Who is a member, rule by rule in their order.

TEST_F(VlanMembershipTest, suspendedVlanHasNoMemberOfAnyMode) {
   for (uint16_t const vlanId : {10, 20, 30})
      bridge.vlan(vlanId)->adminStateIs(VlanAdminState::suspended);
   start(Mode::access_);
   for (Mode const mode : {Mode::access_, Mode::trunk_, Mode::dot1qTunnel_, Mode::tap_, Mode::tool_}) {
      port->switchportModeIs(mode);
      port->accessVlanIs(10);
      bridge.run();
      EXPECT_EQ(vlans(), Numbers{});
   }
}

TEST_F(VlanMembershipTest, suspendedVlanHasNoRoutedPortEither) {
   bridge.routed("Ethernet2");
   bridge.start();
   ASSERT_EQ(bridge.vlansOf("Ethernet2"), Numbers{1006});
   bridge.resolvedVlan(1006)->adminStateIs(VlanAdminState::suspended);
   bridge.portSm("Ethernet2")->doSyncAllVlans();
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{});
}

TEST_F(VlanMembershipTest, routedPortIsAMemberOfItsInternalVlanOnly) {
   bridge.routed("Ethernet2")->trunkAllowedVlansIs("1-4094");
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{1006});
   EXPECT_EQ(bridge.membership(1006, "Ethernet2"), "untagged");
}

TEST_F(VlanMembershipTest, internalVlanIsClosedToSwitchportsOfAnyMode) {
   bridge.routed("Ethernet2");
   port->accessVlanIs(1006);
   port->tapNativeVlanIs(1006);
   bridge.start();
   for (Mode const mode : {Mode::access_, Mode::trunk_, Mode::dot1qTunnel_, Mode::tap_, Mode::tool_}) {
      port->switchportModeIs(mode);
      bridge.run();
      EXPECT_EQ(in(1006), "") << static_cast<int>(mode);
   }
}

TEST_F(VlanMembershipTest, tunnelIsAMemberOfItsVlanAndIgnoresAsymmetricVlansAndTrunkGroups) {
   port->accessVlanIs(10);
   port->asymVlansIs("20,30");
   bridge.vlan(10)->trunkGroupIs("a", true);
   start(Mode::dot1qTunnel_);
   EXPECT_EQ(vlans(), Numbers{10});
   EXPECT_EQ(in(10), "untagged");
   // Whatever the record says about it.
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   for (uint16_t const vlan : {10, 20})
      EXPECT_EQ(vlanMember(*bridge.resolvedVlan(vlan), sm(), 10), vlan == 10) << vlan;
}

TEST_F(VlanMembershipTest, asymmetricPortIsAMemberOfItsListOnly) {
   port->accessVlanIs(10);
   port->asymVlansIs("20,30");
   bridge.vlan(20)->trunkGroupIs("a", true);
   start(Mode::access_);
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
}

TEST_F(VlanMembershipTest, asymmetricPortOfAnotherModeEndsTheAgent) {
   start(Mode::trunk_);
   bridge.resolvedPort("Ethernet1")->asymVlanEnabledIs(true);
   EXPECT_DEATH(sm().doSyncSingleVlan(*bridge.resolvedVlan(10)), HasSubstr("\"mode == Bridging::access_\""));
}

TEST_F(VlanMembershipTest, portOfAnUnknownResolvedModeEndsTheAgent) {
   start(Mode::trunk_);
   bridge.resolvedPort("Ethernet1")
       ->switchportModeAndNativeVlanIs({.switchportMode = static_cast<Bridging::SwitchportMode>(9)});
   EXPECT_DEATH(
       sm().doSyncSingleVlan(*bridge.resolvedVlan(10)),
       HasSubstr("\"mode == Bridging::trunk_ || mode == Bridging::tap_ || mode == Bridging::tool_\""));
}

TEST_F(VlanMembershipTest, askingChangesNothing) {
   start(Mode::trunk_);
   auto const& vlan = *bridge.resolvedVlan(10);
   bridge.resolvedVlan(10)->intfDel("Ethernet1");
   EXPECT_TRUE(vlanMember(vlan, sm(), 1));
   EXPECT_EQ(in(10), "");
}

// --- Trunk, tap and tool.

TEST_F(VlanMembershipTest, allowedSetDecides) {
   port->trunkAllowedVlansIs("10,30-4094");
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), (Numbers{10, 30}));
   EXPECT_EQ(in(10), "tagged");
}

TEST_F(VlanMembershipTest, vlanWithTrunkGroupsIsClosedToPortsThatHaveNone) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   start(Mode::trunk_);
   EXPECT_EQ(in(10), "");
   port->trunkGroupIs("b", true);
   bridge.run();
   EXPECT_EQ(in(10), "");
   port->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(in(10), "tagged");
}

TEST_F(VlanMembershipTest, oneSharedTrunkGroupIsEnoughWhateverItsValueAtThePort) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   bridge.vlan(10)->trunkGroupIs("b", true);
   port->trunkGroupIs("b", false);
   start(Mode::trunk_);
   EXPECT_EQ(in(10), "tagged");
}

TEST_F(VlanMembershipTest, trunkGroupsCountForTapsAndToolsToo) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   start(Mode::tap_);
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
   port->switchportModeIs(Mode::tool_);
   bridge.run();
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
}

TEST_F(VlanMembershipTest, trunkGroupOpensNothingThatIsNotAllowed) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   port->trunkGroupIs("a", true);
   port->trunkAllowedVlansIs("20");
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), Numbers{20});
}

TEST_F(VlanMembershipTest, dynamicTrunkGroupOpensAVlanAndClosesItAgain) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   start(Mode::trunk_);
   EXPECT_EQ(in(10), "");
   sm().doCreateDynTrunkGroup("a");
   EXPECT_EQ(in(10), "tagged");
   EXPECT_TRUE(sm().dynTrunkGroup().find("a"));
   sm().doDelDynTrunkGroup("a");
   EXPECT_EQ(in(10), "");
   EXPECT_FALSE(sm().dynTrunkGroup().find("a"));
}

TEST_F(VlanMembershipTest, dynamicTrunkGroupIsTakenOnceAndLooksAtTheVlansOnce) {
   TestTrace trace;
   port->trunkGroupIs("static", true);
   start(Mode::trunk_);
   trace.clear();
   sm().doCreateDynTrunkGroup("a");
   sm().doCreateDynTrunkGroup("a");
   EXPECT_EQ(trace.count("trunk group a"), 1u);
   sm().doCreateDynTrunkGroup("static");
   EXPECT_EQ(trace.count("trunk group static"), 0u) << "the static one counts already";
   EXPECT_TRUE(sm().dynTrunkGroup().find("static"));
   sm().doDelDynTrunkGroup("never");
   EXPECT_EQ(trace.count("trunk group never"), 0u);
   sm().doDelDynTrunkGroup("static");
   EXPECT_EQ(trace.count("trunk group static"), 1u);
}

TEST_F(VlanMembershipTest, trunkIsTaggedExceptInItsNativeVlan) {
   port->trunkNativeVlanIs(20);
   start(Mode::trunk_);
   EXPECT_EQ(in(10), "tagged");
   EXPECT_EQ(in(20), "untagged");
   EXPECT_EQ(in(30), "tagged");
}

TEST_F(VlanMembershipTest, trunkWhoseNativeVlanIsNotAllowedIsNoMemberOfIt) {
   port->trunkNativeVlanIs(20);
   port->trunkAllowedVlansIs("10");
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), Numbers{10});
}

TEST_F(VlanMembershipTest, trunkReceivesOnlyInSecondaryVlansWhereItMapsThem) {
   roleIs(20, VlanType::secondary_, 10);
   port->trunkNativeVlanIs(30);
   start(Mode::trunk_);
   syncAll();
   EXPECT_EQ(in(20), "tagged");
   port->trunkPrivateVlanMappingIs(true);
   syncAll();
   EXPECT_EQ(in(10), "tagged");
   EXPECT_EQ(in(20), "tagged rx");
   EXPECT_EQ(in(30), "untagged");
   roleIs(30, VlanType::secondary_, 10);
   syncAll();
   EXPECT_EQ(in(30), "untagged rx");
}

TEST_F(VlanMembershipTest, onlyTheSecondaryTypeIsReceivedOnly) {
   roleIs(20, static_cast<VlanType>(2), 10);
   port->trunkPrivateVlanMappingIs(true);
   start(Mode::trunk_);
   syncAll();
   EXPECT_EQ(in(20), "tagged");
}

TEST_F(VlanMembershipTest, tapOnlyReceivesAndIsTaggedByTheToolsSetting) {
   port->tapNativeVlanIs(20);
   start(Mode::tap_);
   EXPECT_EQ(in(10), "untagged rx");
   EXPECT_EQ(in(20), "untagged rx");
   port->toolIdentityTaggingIs(true);
   syncAll();
   EXPECT_EQ(in(10), "tagged rx");
   EXPECT_EQ(in(20), "tagged rx") << "in its native VLAN too";
}

TEST_F(VlanMembershipTest, toolOnlySendsAndIsNeverTagged) {
   port->toolIdentityTaggingIs(true);
   port->toolAllowedVlansIs("20,30");
   start(Mode::tool_);
   EXPECT_EQ(in(10), "");
   EXPECT_EQ(in(20), "untagged tx");
   EXPECT_EQ(in(30), "untagged tx");
}

// --- Access ports.

TEST_F(VlanMembershipTest, accessPortIsAMemberOfItsVlan) {
   port->accessVlanIs(20);
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{20});
   EXPECT_EQ(in(20), "untagged");
}

TEST_F(VlanMembershipTest, accessPortIgnoresTrunkGroupsAndAllowedLists) {
   bridge.vlan(20)->trunkGroupIs("a", true);
   port->accessVlanIs(20);
   port->trunkAllowedVlansIs("10");
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{20});
}

TEST_F(VlanMembershipTest, accessPortWithoutANativeVlanIsAMemberOfNone) {
   port->accessVlanIs(20);
   start(Mode::access_);
   // The number is in its record, but there is no such VLAN for it.
   EXPECT_FALSE(vlanMember(*bridge.resolvedVlan(20), sm(), 0));
   EXPECT_TRUE(vlanMember(*bridge.resolvedVlan(20), sm(), 20));
}

TEST_F(VlanMembershipTest, accessPortOfAMissingOrSuspendedVlanHasThatOneOnly) {
   roleIs(20, VlanType::secondary_, 10);
   port->accessVlanIs(20);
   start(Mode::access_);
   syncAll();
   ASSERT_TRUE(vlanMember(*bridge.resolvedVlan(10), sm(), 20));
   bridge.resolvedVlan(20)->adminStateIs(VlanAdminState::suspended);
   EXPECT_FALSE(vlanMember(*bridge.resolvedVlan(10), sm(), 20));
   EXPECT_TRUE(vlanMember(*bridge.resolvedVlan(30), sm(), 30));
   EXPECT_FALSE(vlanMember(*bridge.resolvedVlan(10), sm(), 4000)) << "not resolved";
}

TEST_F(VlanMembershipTest, portInASecondaryVlanReceivesThereAndSendsInThePrimary) {
   bridge.primaryVlan(100, {101, 102});
   port->accessVlanIs(101);
   start(Mode::access_);
   syncAll();
   EXPECT_EQ(vlans(), (Numbers{100, 101}));
   EXPECT_EQ(in(101), "untagged rx");
   EXPECT_EQ(in(100), "untagged mapped tx");
}

TEST_F(VlanMembershipTest, portInAPrimaryVlanSendsToTheSecondariesItIsMappedTo) {
   bridge.primaryVlan(100, {101, 102});
   port->accessVlanIs(100);
   start(Mode::access_);
   syncAll();
   EXPECT_EQ(vlans(), Numbers{100});
   port->privateVlanMappingIs(102, true);
   syncAll();
   EXPECT_EQ(vlans(), (Numbers{100, 102}));
   EXPECT_EQ(in(100), "untagged");
   EXPECT_EQ(in(102), "untagged mapped tx");
   port->defaultPrivateVlanMappingIs(true);
   syncAll();
   EXPECT_EQ(vlans(), (Numbers{100, 101, 102}));
   EXPECT_EQ(in(101), "untagged mapped tx");
   EXPECT_EQ(in(10), "") << "no secondary";
}

TEST_F(VlanMembershipTest, primaryThatIsItselfASecondaryIsNoneForItsPorts) {
   roleIs(20, VlanType::secondary_, 10);
   roleIs(10, VlanType::secondary_, 30);
   port->accessVlanIs(20);
   start(Mode::access_);
   syncAll();
   EXPECT_EQ(vlans(), Numbers{20});
   EXPECT_EQ(in(20), "untagged") << "its primary is no primary";
   // And the other way round: a mapping from such a VLAN has no effect.
   port->accessVlanIs(10);
   port->defaultPrivateVlanMappingIs(true);
   syncAll();
   EXPECT_EQ(in(20), "");
}

TEST_F(VlanMembershipTest, secondaryWhosePrimaryIsNotResolvedIsReceivedAndSent) {
   roleIs(20, VlanType::secondary_, 4000);
   port->accessVlanIs(20);
   start(Mode::access_);
   syncAll();
   EXPECT_EQ(in(20), "untagged");
}

TEST_F(VlanMembershipTest, secondaryWithoutAPrimaryRaises) {
   port->accessVlanIs(20);
   start(Mode::access_);
   bridge.resolvedVlan(20)->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::secondary_, .primaryVlan = 0});
   try {
      sm().doSyncSingleVlan(*bridge.resolvedVlan(20));
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
   }
}

// --- Asymmetric ports.

TEST_F(VlanMembershipTest, asymmetricPortIsWrittenAllZeroWithALineOnStandardErrorForEach) {
   port->accessVlanIs(10);
   port->asymVlansIs("20,30");
   start(Mode::access_);
   testing::internal::CaptureStderr();
   sm().doSyncAllVlans();
   std::string const text = testing::internal::GetCapturedStderr();
   EXPECT_EQ(countLines(text, "SwitchIntfSm::doSyncSingleVlan(Ethernet1,20)\n"), 1u);
   EXPECT_EQ(countLines(text, "SwitchIntfSm::doSyncSingleVlan(Ethernet1,30)\n"), 1u);
   EXPECT_EQ(countLines(text, "\n"), 2u);
   EXPECT_EQ(*bridge.resolvedVlan(20)->intf("Ethernet1"), Bridging::VlanPortConfig());
   EXPECT_EQ(in(30), "untagged");
}

TEST_F(VlanMembershipTest, otherPortsWriteNoLine) {
   start(Mode::trunk_);
   testing::internal::CaptureStderr();
   sm().doSyncAllVlans();
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// --- One VLAN.

TEST_F(VlanMembershipTest, oneVlanIsBroughtInStepIfItIsResolved) {
   start(Mode::trunk_);
   auto const copy = bridge.sm->switchports().switchIntfConfigAfterCodef("Ethernet1");
   copy->trunkAllowedVlansIs("1");
   sm().doComputeTrunkAllowedVlans();
   EXPECT_EQ(vlans(), (Numbers{10, 20, 30})) << "a new set alone syncs nothing";
   sm().maybeSyncOneVlan(0);
   sm().maybeSyncOneVlan(4000);
   EXPECT_EQ(vlans(), (Numbers{10, 20, 30}));
   sm().maybeSyncOneVlan(20);
   EXPECT_EQ(vlans(), (Numbers{10, 30}));
   EXPECT_THROW(sm().maybeSyncOneVlan(4095), Kem::RangeException);
}

// --- The sets.

TEST_F(VlanMembershipTest, setIsThatOfTheInputsMode) {
   port->trunkAllowedVlansIs("1-3");
   port->tapAllowedVlansIs("4");
   port->toolAllowedVlansIs("5");
   start(Mode::access_);
   EXPECT_EQ(sm().trunkAllowedVlanSet().text(), "1-3");
   sm().doComputeTrunkAllowedVlans();
   EXPECT_EQ(sm().trunkAllowedVlanSet().text(), "1-3");
   port->switchportModeIs(Mode::tap_);
   bridge.run();
   EXPECT_EQ(sm().trunkAllowedVlanSet().text(), "4");
   port->switchportModeIs(Mode::tool_);
   bridge.run();
   EXPECT_EQ(sm().trunkAllowedVlanSet().text(), "5");
}

TEST_F(VlanMembershipTest, subinterfaceKeepsEmptySets) {
   TestTrace trace;
   auto const sub = bridge.port("Ethernet1.7");
   sub->asymVlansIs("10");
   bridge.start();
   auto const subSm = bridge.portSm("Ethernet1.7");
   EXPECT_TRUE(subSm->trunkAllowedVlanSet().empty());
   EXPECT_TRUE(subSm->asymVlanSet().empty());
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1.7")->asymVlanEnabled());
   EXPECT_TRUE(trace.has("Allowed vlans are not applicable for sub interface Ethernet1.7"));
   EXPECT_TRUE(trace.has("asym vlans are not applicable for sub interface Ethernet1.7"));
   sub->switchportModeIs(Mode::trunk_);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1.7"), Numbers{});
}

TEST_F(VlanMembershipTest, portWithoutAConnectorHasItsConfiguredSet) {
   for (char const* name : {"Ethernet65536", "Port-Channel65536"})
      bridge.trunk(name, "20");
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet65536"), Numbers{20});
   EXPECT_EQ(bridge.vlansOf("Port-Channel65536"), Numbers{20});
}

} // namespace
