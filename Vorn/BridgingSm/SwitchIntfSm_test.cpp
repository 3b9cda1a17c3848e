#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;
using Mode = TestBridge::Mode;

constexpr Mode allModes[] = {Mode::access_, Mode::trunk_, Mode::dot1qTunnel_, Mode::tap_, Mode::tool_};

// VLANs 10, 20 and 30, and one port, whose record names a different VLAN for each mode.
struct SwitchIntfSmTest : testing::Test {
   SwitchIntfSmTest() {
      for (uint16_t const vlanId : {10, 20, 30})
         bridge.vlan(vlanId);
      port = bridge.port("Ethernet1");
      port->accessVlanIs(10);
      port->trunkNativeVlanIs(20);
      port->tapNativeVlanIs(30);
   }
   void start(Mode mode) {
      port->switchportModeIs(mode);
      bridge.start();
   }
   std::string mode() { return bridge.mode("Ethernet1"); }
   // Gives the resolved port a mode that any evaluation would put right.
   void spoil() {
      out().switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::dot1qTunnel_, .nativeVlan = 7});
   }
   static constexpr char spoiled[] = "dot1qTunnel 7";
   Numbers vlans() { return bridge.vlansOf("Ethernet1"); }
   Bridging::SwitchIntfConfig& out() { return *bridge.resolvedPort("Ethernet1"); }
   // The state machine alone, not yet initialized, on a copy that no deferred stage writes.
   Kem::Ptr<Vorn::SwitchIntfSm> uninitialized() {
      return Kem::makePtr<Vorn::SwitchIntfSm>(*bridge.sm, "Ethernet9", copy, bridge.intf("Ethernet9"),
                                              bridge.config,
                                              bridge.ethIntfStatusDir->intfStatusIs("Ethernet9"));
   }

   TestBridge bridge;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> port;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> copy = Bridging::Input::SwitchIntfConfig::make("Ethernet9");
};

// --- Mode and native VLAN.

TEST_F(SwitchIntfSmTest, nativeVlanIsTakenByMode) {
   start(Mode::access_);
   char const* const expected[] = {"access 10", "trunk 20", "dot1qTunnel 10", "tap 30", "tool 1"};
   for (size_t i = 0; i < std::size(allModes); ++i) {
      port->switchportModeIs(allModes[i]);
      bridge.run();
      EXPECT_EQ(mode(), expected[i]);
   }
}

TEST_F(SwitchIntfSmTest, nativeVlanThatDoesNotExistIsZeroAndTheTraceSaysSo) {
   TestTrace trace;
   port->accessVlanIs(11);
   port->trunkNativeVlanIs(21);
   start(Mode::access_);
   EXPECT_EQ(mode(), "access 0");
   EXPECT_TRUE(trace.has("Returning vlan 0 as 11 does not exist"));
   port->switchportModeIs(Mode::trunk_);
   bridge.run();
   EXPECT_EQ(mode(), "trunk 0");
   EXPECT_TRUE(trace.has("Returning vlan 0 as 21 does not exist"));
   port->switchportModeIs(Mode::dot1qTunnel_);
   bridge.run();
   EXPECT_EQ(mode(), "dot1qTunnel 0");
   EXPECT_EQ(vlans(), Numbers{});
}

TEST_F(SwitchIntfSmTest, tapAndToolDoNotAskWhetherTheirVlanExists) {
   TestTrace trace;
   port->tapNativeVlanIs(31);
   start(Mode::tap_);
   EXPECT_EQ(mode(), "tap 31");
   port->tapNativeVlanIs(0);
   bridge.run();
   EXPECT_EQ(mode(), "tap 0");
   port->switchportModeIs(Mode::tool_);
   bridge.run();
   EXPECT_EQ(mode(), "tool 1");
   EXPECT_FALSE(trace.has("does not exist"));
}

TEST_F(SwitchIntfSmTest, trunkWithoutANativeVlanHasNone) {
   TestTrace trace;
   port->trunkNativeVlanIs(0);
   start(Mode::trunk_);
   EXPECT_EQ(mode(), "trunk 0");
   EXPECT_FALSE(trace.has("Returning vlan 0"));
}

TEST_F(SwitchIntfSmTest, disabledSwitchportIsRoutedWhateverItsMode) {
   port->enabledIs(false);
   start(Mode::access_);
   for (Mode const inputMode : allModes) {
      port->switchportModeIs(inputMode);
      bridge.run();
      EXPECT_EQ(mode(), "routed 0") << static_cast<int>(inputMode);
      EXPECT_EQ(vlans(), Numbers{});
   }
}

TEST_F(SwitchIntfSmTest, unknownModeEndsTheAgent) {
   bridge.start();
   for (unsigned const number : {6u, 7u, 255u}) {
      port->switchportModeIs(static_cast<Mode>(number));
      EXPECT_DEATH(bridge.run(), HasSubstr("\"false && \"unknown mode\"\""));
   }
}

TEST_F(SwitchIntfSmTest, unknownModeOfADisabledSwitchportIsNeverLookedAt) {
   port->enabledIs(false);
   start(static_cast<Mode>(77));
   EXPECT_EQ(mode(), "routed 0");
}

TEST_F(SwitchIntfSmTest, switchportNeverWaitsForAnInternalVlan) {
   bridge.cause->intfStatusIs("Ethernet1", TestBridge::startTime);
   start(Mode::access_);
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
}

// --- Before it is initialized.

TEST_F(SwitchIntfSmTest, nothingIsDoneBeforeTheCopyIsComplete) {
   bridge.start();
   auto const sm = uninitialized();
   EXPECT_FALSE(sm->initialized());
   EXPECT_FALSE(sm->switchIntfConfigOut());
   copy->enabledIs(false);
   copy->switchportModeIs(Mode::trunk_);
   copy->accessVlanIs(20);
   copy->trunkNativeVlanIs(20);
   copy->tapNativeVlanIs(20);
   copy->trunkAllowedVlansIs("1");
   copy->tapAllowedVlansIs("1");
   copy->toolAllowedVlansIs("1");
   copy->asymVlansIs("1");
   copy->trunkGroupIs("a", true);
   copy->macLearningEnabledIs(false);
   copy->floodingEnabledIs(false);
   copy->vlanTpidIs(0x9100);
   copy->ingressNativeVlanXlateIs(5);
   copy->egressNativeVlanXlateIs(5);
   copy->ingressVlanXlateIs({.outerVlanId = 5}, {.mappedVlanId = 6});
   copy->egressVlanXlateIs({.outerVlanId = 5}, {.mappedVlanId = 6});
   copy->privateVlanMappingIs(20, true);
   copy->defaultPrivateVlanMappingIs(true);
   copy->trunkPrivateVlanMappingIs(true);
   bridge.forwardingModelIs("Ethernet9", TestBridge::routedModel);
   bridge.run();
   EXPECT_FALSE(sm->switchIntfConfigOut());
   EXPECT_EQ(bridge.vlansOf("Ethernet9"), Numbers{});
}

TEST_F(SwitchIntfSmTest, whatNeedsAnInitializedPortSaysSo) {
   bridge.start();
   auto const sm = uninitialized();
   auto const message = HasSubstr("\"initialized()\"");
   EXPECT_DEATH(sm->switchportModeAndNativeVlan(), message);
   EXPECT_DEATH(sm->doPrepareToDie(), message);
   EXPECT_DEATH(sm->handleEnabledStateLocal(), message);
   EXPECT_DEATH(sm->doSyncSingleVlan(*bridge.resolvedVlan(10)), message);
   EXPECT_DEATH(sm->doSyncAllVlans(), message);
   EXPECT_DEATH(sm->doComputeTrunkAllowedVlans(), message);
   EXPECT_DEATH(sm->doComputeAsymVlans(), message);
}

TEST_F(SwitchIntfSmTest, initializedPortTakesOverAnExistingRecord) {
   auto const existing = bridge.config->switchIntfConfigIs("Ethernet1");
   existing->switchportModeAndNativeVlanIs(
       {.switchportMode = Bridging::SwitchportMode::trunk_, .nativeVlan = 7});
   existing->macLearningEnabledIs(false);
   start(Mode::access_);
   EXPECT_EQ(bridge.resolvedPort("Ethernet1"), existing);
   EXPECT_EQ(mode(), "access 10");
   EXPECT_TRUE(existing->macLearningEnabled());
}

TEST_F(SwitchIntfSmTest, whatIsResolvedFirstIsTheWholePort) {
   port->macLearningEnabledIs(false);
   port->vlanTpidIs(0x88a8);
   port->asymVlansIs("20,30");
   start(Mode::access_);
   EXPECT_EQ(mode(), "access 10");
   EXPECT_FALSE(out().macLearningEnabled());
   EXPECT_TRUE(out().floodingEnabled());
   EXPECT_EQ(out().vlanTpid(), 0x88a8);
   EXPECT_TRUE(out().asymVlanEnabled());
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
}

// --- Handlers and their conditions.

TEST_F(SwitchIntfSmTest, switchGoesBothWays) {
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{10});
   port->enabledIs(false);
   bridge.run();
   EXPECT_EQ(mode(), "routed 0");
   EXPECT_EQ(vlans(), Numbers{});
   EXPECT_FALSE(out().macLearningEnabled());
   EXPECT_FALSE(out().floodingEnabled());
   port->enabledIs(true);
   bridge.run();
   EXPECT_EQ(mode(), "access 10");
   EXPECT_EQ(vlans(), Numbers{10});
   EXPECT_TRUE(out().macLearningEnabled());
   EXPECT_TRUE(out().floodingEnabled());
}

TEST_F(SwitchIntfSmTest, modeMovesMembershipLearningAndFlooding) {
   port->trunkAllowedVlansIs("20-30");
   port->tapAllowedVlansIs("30");
   port->toolAllowedVlansIs("10");
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{10});
   port->switchportModeIs(Mode::trunk_);
   bridge.run();
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
   EXPECT_TRUE(out().macLearningEnabled());
   port->switchportModeIs(Mode::tap_);
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{30});
   EXPECT_FALSE(out().macLearningEnabled());
   EXPECT_FALSE(out().floodingEnabled());
   port->switchportModeIs(Mode::tool_);
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{10});
   EXPECT_FALSE(out().macLearningEnabled());
   port->switchportModeIs(Mode::dot1qTunnel_);
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{10});
   EXPECT_TRUE(out().macLearningEnabled());
   EXPECT_TRUE(out().floodingEnabled());
}

TEST_F(SwitchIntfSmTest, accessVlanMovesAnAccessPortAndATunnel) {
   for (Mode const inputMode : {Mode::access_, Mode::dot1qTunnel_}) {
      port->accessVlanIs(10);
      if (!bridge.sm)
         start(inputMode);
      port->switchportModeIs(inputMode);
      bridge.run();
      EXPECT_EQ(vlans(), Numbers{10});
      port->accessVlanIs(20);
      bridge.run();
      EXPECT_EQ(vlans(), Numbers{20});
   }
}

TEST_F(SwitchIntfSmTest, accessVlanOfAnyOtherPortIsIgnored) {
   for (Mode const inputMode : {Mode::trunk_, Mode::tap_, Mode::tool_}) {
      if (!bridge.sm)
         start(inputMode);
      port->switchportModeIs(inputMode);
      bridge.run();
      spoil();
      port->accessVlanIs(port->accessVlan() == 30 ? 20 : 30);
      bridge.run();
      EXPECT_EQ(mode(), spoiled);
   }
}

TEST_F(SwitchIntfSmTest, nativeVlanOfATrunkIsUntaggedAndTheOldOneTaggedAgain) {
   start(Mode::trunk_);
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "untagged");
   port->trunkNativeVlanIs(30);
   bridge.run();
   EXPECT_EQ(mode(), "trunk 30");
   EXPECT_EQ(bridge.membership(20, "Ethernet1"), "tagged");
   EXPECT_EQ(bridge.membership(30, "Ethernet1"), "untagged");
}

TEST_F(SwitchIntfSmTest, nativeVlanOfATrunkIsIgnoredByAnAccessPort) {
   start(Mode::access_);
   spoil();
   port->trunkNativeVlanIs(30);
   port->tapNativeVlanIs(20);
   bridge.run();
   EXPECT_EQ(mode(), spoiled);
}

TEST_F(SwitchIntfSmTest, nativeVlanOfATapIsFollowed) {
   start(Mode::tap_);
   port->tapNativeVlanIs(10);
   bridge.run();
   EXPECT_EQ(mode(), "tap 10");
}

TEST_F(SwitchIntfSmTest, listsOfAllowedVlansAreFollowedInTheirModes) {
   start(Mode::trunk_);
   port->trunkAllowedVlansIs("10");
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{10});
   port->switchportModeIs(Mode::tap_);
   port->tapAllowedVlansIs("20");
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{20});
   port->tapAllowedVlansIs("20,30");
   bridge.run();
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
   port->switchportModeIs(Mode::tool_);
   port->toolAllowedVlansIs("30");
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{30});
   port->toolAllowedVlansIs("");
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{});
}

TEST_F(SwitchIntfSmTest, listThatChangesWhileThePortIsRoutedCountsOnceItIsASwitchport) {
   start(Mode::trunk_);
   port->enabledIs(false);
   bridge.run();
   port->trunkAllowedVlansIs("10");
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{});
   port->enabledIs(true);
   bridge.run();
   EXPECT_EQ(vlans(), Numbers{10});
}

TEST_F(SwitchIntfSmTest, trunkGroupsOfATrunkAreFollowed) {
   bridge.vlan(10)->trunkGroupIs("a", true);
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
   port->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_EQ(vlans(), (Numbers{10, 20, 30}));
   port->trunkGroupDel("a");
   bridge.run();
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
}

TEST_F(SwitchIntfSmTest, trunkGroupsOfARoutedOrAnAccessPortAreIgnored) {
   TestTrace trace;
   port->enabledIs(false);
   start(Mode::trunk_);
   trace.clear();
   port->trunkGroupIs("a", true);
   bridge.run();
   EXPECT_FALSE(trace.has("trunk group"));
   port->enabledIs(true);
   port->switchportModeIs(Mode::access_);
   bridge.run();
   trace.clear();
   port->trunkGroupIs("b", true);
   bridge.run();
   EXPECT_FALSE(trace.has("trunk group"));
   EXPECT_EQ(vlans(), Numbers{10});
}

TEST_F(SwitchIntfSmTest, tagProtocolIsCopied) {
   start(Mode::access_);
   EXPECT_EQ(out().vlanTpid(), 0x8100);
   port->vlanTpidIs(0x9100);
   bridge.run();
   EXPECT_EQ(out().vlanTpid(), 0x9100);
   port->enabledIs(false);
   port->vlanTpidIs(0);
   bridge.run();
   EXPECT_EQ(out().vlanTpid(), 0) << "also of a routed port";
}

TEST_F(SwitchIntfSmTest, learningAndFloodingAreThoseOfAnEnabledPortThatIsNoTapAndNoTool) {
   start(Mode::access_);
   for (Mode const inputMode : allModes)
      for (bool const isEnabled : {true, false})
         for (bool const learns : {true, false})
            for (bool const floods : {true, false}) {
               port->switchportModeIs(inputMode);
               port->enabledIs(isEnabled);
               port->macLearningEnabledIs(learns);
               port->floodingEnabledIs(floods);
               bridge.run();
               bool const may = isEnabled && inputMode != Mode::tap_ && inputMode != Mode::tool_;
               EXPECT_EQ(out().macLearningEnabled(), learns && may) << static_cast<int>(inputMode);
               EXPECT_EQ(out().floodingEnabled(), floods && may) << static_cast<int>(inputMode);
            }
}

// --- Asymmetric VLANs.

TEST_F(SwitchIntfSmTest, asymmetricAccessPortTakesNoTagsAndFiltersByItsList) {
   port->asymVlansIs("20-30");
   start(Mode::access_);
   EXPECT_TRUE(out().asymVlanEnabled());
   EXPECT_FALSE(out().allowTaggedPkts());
   EXPECT_FALSE(out().enableIngressFiltering()) << "its own VLAN is not on the list";
   EXPECT_EQ(vlans(), (Numbers{20, 30}));
   port->asymVlansIs("10,30");
   bridge.run();
   EXPECT_TRUE(out().enableIngressFiltering());
   EXPECT_EQ(vlans(), (Numbers{10, 30}));
   port->accessVlanIs(20);
   bridge.run();
   EXPECT_FALSE(out().enableIngressFiltering());
   port->asymVlansIs("");
   bridge.run();
   EXPECT_FALSE(out().asymVlanEnabled());
   EXPECT_TRUE(out().allowTaggedPkts());
   EXPECT_TRUE(out().enableIngressFiltering());
   EXPECT_EQ(vlans(), Numbers{20});
}

TEST_F(SwitchIntfSmTest, asymmetricVlansAreForAccessModeOnly) {
   port->asymVlansIs("20");
   for (Mode const inputMode : {Mode::trunk_, Mode::dot1qTunnel_, Mode::tap_, Mode::tool_}) {
      if (!bridge.sm)
         start(inputMode);
      port->switchportModeIs(inputMode);
      bridge.run();
      EXPECT_FALSE(out().asymVlanEnabled());
      EXPECT_TRUE(out().allowTaggedPkts());
      EXPECT_TRUE(out().enableIngressFiltering());
   }
   port->switchportModeIs(Mode::access_);
   bridge.run();
   EXPECT_TRUE(out().asymVlanEnabled());
}

TEST_F(SwitchIntfSmTest, routedPortWithAsymmetricVlansIsAMemberOfNone) {
   port->asymVlansIs("10-30");
   port->enabledIs(false);
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{});
}

// --- VLAN lists with garbage.

TEST_F(SwitchIntfSmTest, garbageInAListIsLeftOutAndNamed) {
   TestTrace trace;
   port->trunkAllowedVlansIs("10,banana,5000,30-20,-3,20");
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), (Numbers{10, 20}));
   EXPECT_EQ(trace.level("Ethernet1 allowed VLANs left out, no VLAN numbers: banana,5000,30-20,-3"), 0);
}

TEST_F(SwitchIntfSmTest, garbageInAsymmetricVlansIsLeftOutAndNamed) {
   TestTrace trace;
   port->asymVlansIs("0,20,4095,99999999999");
   start(Mode::access_);
   EXPECT_EQ(vlans(), Numbers{20});
   EXPECT_EQ(trace.level("Ethernet1 asymmetric VLANs left out, no VLAN numbers: 0,4095,99999999999"), 0);
}

TEST_F(SwitchIntfSmTest, listOfNothingButGarbageAllowsNothing) {
   port->trunkAllowedVlansIs("all");
   start(Mode::trunk_);
   EXPECT_EQ(vlans(), Numbers{});
   port->switchportModeIs(Mode::access_);
   port->asymVlansIs("none");
   bridge.run();
   EXPECT_TRUE(out().asymVlanEnabled()) << "the list is not empty";
   EXPECT_EQ(vlans(), Numbers{});
}

// --- The end of a port.

TEST_F(SwitchIntfSmTest, dyingPortLeavesEveryVlanAndKeepsItsRecordForItsParent) {
   start(Mode::trunk_);
   bridge.cause->intfStatusIs("Ethernet1", 5);
   ASSERT_EQ(vlans(), (Numbers{10, 20, 30}));
   bridge.portSm("Ethernet1")->doPrepareToDie();
   EXPECT_EQ(vlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet1"));
   EXPECT_TRUE(bridge.resolvedPort("Ethernet1"));
}

TEST_F(SwitchIntfSmTest, dyingRoutedPortReleasesItsVlan) {
   TestTrace trace;
   bridge.routed("Ethernet2");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet2"), "routed 1006");
   bridge.portSm("Ethernet2")->doPrepareToDie();
   EXPECT_FALSE(bridge.resolvedVlan(1006));
   EXPECT_EQ(bridge.sm->internalVlanId("Ethernet2"), 0);
   EXPECT_TRUE(trace.has(" deleting routed port vlan config for "));
}

} // namespace
