#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using Vorn::BridgingConfigSm;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

struct BridgingConfigSmTest : testing::Test {
   // A state machine as it is before handleInitialized().
   Kem::Ptr<BridgingConfigSm> uninitialized() {
      return Kem::makePtr<BridgingConfigSm>(bridge.bridgingInputs());
   }
   Bridging::Fid const* fid(uint16_t vlanId) { return bridge.config->vidToFidMap().find(vlanId); }

   Sulvi::EthAddr const addr{"01:80:c2:00:00:0e"};
   Sulvi::EthAddr const otherAddr{"01:80:c2:00:00:03"};
   TestBridge bridge;
};

// --- Start.

TEST_F(BridgingConfigSmTest, listOfDynamicVlanInterfacesMustBeThere) {
   bridge.dynVlanIntfList = nullptr;
   EXPECT_DEATH(bridge.startBridgingOnly(), HasSubstr("\"dynVlanIntfList()\""));
}

TEST_F(BridgingConfigSmTest, everyOtherInputThatIsFollowedMayBeMissing) {
   auto inputs = bridge.bridgingInputs();
   inputs.configIn = nullptr;
   inputs.allSwitchIntfConfigs = nullptr;
   inputs.fdbConfigDir = nullptr;
   inputs.vlanIntfConfig = nullptr;
   inputs.ethIntfConfigDir = nullptr;
   inputs.ethIntfStatusDir = nullptr;
   inputs.recoveryTimer = nullptr;
   bridge.config->switchIntfConfigIs("Ethernet1");
   bridge.config->vlanConfigIs(10);
   bridge.sm = Vorn::bridgingConfigSmFactory(inputs);
   bridge.run();
   EXPECT_TRUE(bridge.sm->initialized());
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(BridgingConfigSmTest, allocationHasItsRangeBeforeTheSelectorRuns) {
   bridge.internalVlansAre(2000, 2001, TestBridge::Policy::descending);
   bridge.startBridgingOnly();
   EXPECT_EQ(bridge.sm->allocateInternalVlanId(), 2001);
}

TEST_F(BridgingConfigSmTest, portsThatHaveBeenChosenAreTakenInAtTheStart) {
   bridge.allSwitchIntfConfigs->switchIntfConfigIs(bridge.trunk("Ethernet1", "1-4094", 0));
   bridge.startBridgingOnly();
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 0");
}

TEST_F(BridgingConfigSmTest, vlansThatNobodyAsksForAreGoneAtTheStart) {
   bridge.config->vlanConfigIs(20);
   bridge.config->vlanConfigIs(30, true);
   bridge.vlan(10);
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
}

TEST_F(BridgingConfigSmTest, restartComesToTheSameResult) {
   for (uint16_t const vlanId : {10, 20})
      bridge.vlan(vlanId);
   bridge.access("Ethernet1", 10);
   bridge.trunk("Ethernet2", "10-30", 20);
   bridge.vlanIntf(10);
   bridge.start();
   auto const look = [&] {
      return std::vector<std::string>{bridge.mode("Ethernet1"),           bridge.mode("Ethernet2"),
                                      bridge.membership(10, "Ethernet1"), bridge.membership(10, "Ethernet2"),
                                      bridge.membership(20, "Ethernet2"), bridge.membership(10, "Cpu")};
   };
   auto const before = look();
   EXPECT_EQ(before,
             (std::vector<std::string>{"access 10", "trunk 20", "untagged", "tagged", "untagged", "tagged"}));
   bridge.stop();
   bridge.start();
   EXPECT_EQ(look(), before);
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{10, 20}));
}

TEST_F(BridgingConfigSmTest, membersThatTheRunBeforeLeftAreSetRight) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 20);
   bridge.start();
   bridge.stop();
   bridge.resolvedVlan(10)->intfIs("Ethernet1", {.tagged = true});
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "");
}

// --- Before the start.

TEST_F(BridgingConfigSmTest, vlansAndPortsAreIgnoredBeforeTheStart) {
   auto const sm = uninitialized();
   sm->staticVlans().vlanConfigAfterCodefIs(10);
   sm->handleVlanConfig(10);
   sm->switchports().handleSwitchIntfConfig();
   EXPECT_FALSE(sm->staticVlans().vlanConfigSm(10));
   EXPECT_FALSE(sm->initialized());
}

TEST_F(BridgingConfigSmTest, wholeCollectionOfPortsIsRefusedAfterTheStart) {
   bridge.start();
   EXPECT_DEATH(bridge.sm->switchports().handleSwitchIntfConfig(), HasSubstr("\"!initialized()\""));
}

TEST_F(BridgingConfigSmTest, vlanInterfaceBeforeTheStartEndsTheAgent) {
   auto const sm = uninitialized();
   bridge.vlanIntf(10);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"initialized()\""));
}

TEST_F(BridgingConfigSmTest, reservedAddressBeforeTheStartEndsTheAgent) {
   auto const sm = uninitialized();
   bridge.cli->ieeeReservedForwardingIs(addr, true);
   EXPECT_DEATH(bridge.run(), HasSubstr("\"initialized()\""));
}

// --- VLANs.

TEST_F(BridgingConfigSmTest, vlansComeAndGoWithTheCopiesOfTheDeferredStage) {
   TestTrace trace;
   bridge.start();
   bridge.vlan(10);
   bridge.run();
   EXPECT_TRUE(bridge.sm->staticVlans().vlanConfigSm(10));
   EXPECT_TRUE(bridge.sm->staticVlans().vlanConfigAfterCodef(10));
   EXPECT_TRUE(trace.has("Creating vlanConfigSm for vlan 10"));
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_FALSE(bridge.sm->staticVlans().vlanConfigSm(10));
   EXPECT_FALSE(bridge.sm->staticVlans().vlanConfigAfterCodef(10));
   EXPECT_FALSE(bridge.resolvedVlan(10));
   EXPECT_TRUE(trace.has("Deleting vlanConfigSm for vlan 10"));
   EXPECT_TRUE(trace.has("Deleting vlanConfig for vlan 10"));
}

TEST_F(BridgingConfigSmTest, existingVlanOnlyGetsItsCopy) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.start();
   auto const sm = bridge.sm->staticVlans().vlanConfigSm(10);
   bridge.sm->handleVlanConfig(10);
   EXPECT_EQ(bridge.sm->staticVlans().vlanConfigSm(10), sm);
   EXPECT_TRUE(trace.has("Changing vlanConfigSm for vlan 10"));
}

TEST_F(BridgingConfigSmTest, newWinnerIsComparedWithWhatIsResolved) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.vlan(20);
   bridge.start();
   auto const other = bridge.input("a");
   other.vlan(20);
   bridge.run();
   trace.clear();
   other.prioritiesAre(200);
   bridge.run();
   EXPECT_TRUE(trace.has("Deleting Vlan 10"));
   EXPECT_FALSE(trace.has("Deleting Vlan 20"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{20});
}

TEST_F(BridgingConfigSmTest, vlanOfARoutedPortStaysWithoutAnyInputThatHoldsIt) {
   TestTrace trace;
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   trace.clear();
   bridge.publish("a", 200).vlan(20);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{20, 1006}));
   EXPECT_TRUE(trace.has("Not deleting Vlan 1006since it is a routed port"));
}

TEST_F(BridgingConfigSmTest, vlanOfARoutedPortIsNotDeletedByItsNumber) {
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   EXPECT_DEATH(bridge.sm->handleVlanConfig(1006),
                HasSubstr("\"!routedPortIteratorConst().isMemberOf( vlanId )\""));
}

// --- Ports.

TEST_F(BridgingConfigSmTest, portsComeAndGoWithTheCopiesOfTheDeferredStage) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.intf("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", TestBridge::bridgedModel);
   bridge.start();
   bridge.access("Ethernet1", 10);
   bridge.access("Ethernet2", 10);
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->ethIntfConfig(), bridge.intf("Ethernet1"));
   EXPECT_EQ(bridge.portSm("Ethernet1")->ethIntfStatus(), bridge.ethIntfStatusDir->intfStatus("Ethernet1"));
   EXPECT_FALSE(bridge.portSm("Ethernet2")->ethIntfConfig());
   EXPECT_FALSE(bridge.portSm("Ethernet2")->ethIntfStatus());
   EXPECT_EQ(&bridge.portSm("Ethernet2")->parent(), bridge.sm.ptr());
   EXPECT_TRUE(trace.has("Creating SwitchIntfConfig and reactor for intf Ethernet2"));
   bridge.portDel("Ethernet2");
   bridge.run();
   EXPECT_FALSE(bridge.portSm("Ethernet2"));
   EXPECT_FALSE(bridge.sm->switchports().switchIntfConfigAfterCodef("Ethernet2"));
   EXPECT_FALSE(bridge.resolvedPort("Ethernet2"));
   EXPECT_EQ(bridge.membership(10, "Ethernet2"), "");
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
   EXPECT_TRUE(trace.has("Deleting SwitchIntfConfig and reactor for intf Ethernet2"));
}

TEST_F(BridgingConfigSmTest, portWithoutACopyAndWithoutAStateMachineIsIgnored) {
   bridge.start();
   bridge.sm->switchports().handleSwitchIntfConfig("Ethernet77");
   EXPECT_FALSE(bridge.portSm("Ethernet77"));
}

TEST_F(BridgingConfigSmTest, interfacesAreHandedToTheirPortsAsTheyComeAndGo) {
   bridge.port("Ethernet1");
   bridge.start();
   auto const config = bridge.intf("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", TestBridge::bridgedModel);
   bridge.intf("Ethernet2"); // not a port of the command line's input
   bridge.forwardingModelIs("Ethernet3", TestBridge::bridgedModel);
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1")->ethIntfConfig(), config);
   EXPECT_TRUE(bridge.portSm("Ethernet1")->ethIntfStatus());
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.ethIntfStatusDir->intfStatusDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(bridge.portSm("Ethernet1")->ethIntfConfig());
   EXPECT_FALSE(bridge.portSm("Ethernet1")->ethIntfStatus());
}

TEST_F(BridgingConfigSmTest, existingPortTakesNewRecordsAndEvaluatesThem) {
   for (uint16_t const vlanId : {10, 20})
      bridge.vlan(vlanId);
   bridge.port("Ethernet1");
   bridge.start();
   auto const sm = bridge.portSm("Ethernet1");
   auto const record = Bridging::Input::SwitchIntfConfig::make("Ethernet1");
   record->switchportModeIs(Bridging::Input::SwitchportMode::trunk_);
   record->trunkNativeVlanIs(10);
   record->trunkAllowedVlansIs("20");
   record->macLearningEnabledIs(false);
   record->vlanTpidIs(0x9100);
   auto const eth = Interface::EthIntfConfig::make("Ethernet1");
   auto const status = Interface::EthIntfStatus::make("Ethernet1");
   EXPECT_EQ(bridge.sm->switchports().switchIntfSmIs("Ethernet1", record, eth, bridge.config, status), sm);
   EXPECT_EQ(&sm->switchIntfConfig(), record.ptr());
   EXPECT_EQ(sm->ethIntfConfig(), eth);
   EXPECT_EQ(sm->ethIntfStatus(), status);
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 10");
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{20});
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1")->macLearningEnabled());
   EXPECT_EQ(bridge.resolvedPort("Ethernet1")->vlanTpid(), 0x9100);
}

TEST_F(BridgingConfigSmTest, existingRoutedPortEvaluatesANewRecordOfItsInterface) {
   bridge.routed("Ethernet1");
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   auto const sm = bridge.portSm("Ethernet1");
   auto const shut = Interface::EthIntfConfig::make("Ethernet1");
   shut->enabledStateLocalIs(TestBridge::shutDown);
   sm->ethIntfConfigIs(shut);
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 0");
   sm->ethIntfConfigIs(bridge.intf("Ethernet1"));
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 1006");
}

TEST_F(BridgingConfigSmTest, existingPortRefusesAnotherResolvedConfiguration) {
   bridge.config->nameIs("existing");
   bridge.port("Ethernet1");
   bridge.start();
   auto const other = Bridging::Config::make();
   other->nameIs("asked");
   try {
      bridge.sm->switchports().switchIntfSmIs("Ethernet1", bridge.port("Ethernet1"), nullptr, other, nullptr);
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(
          e.what(),
          "Reinstantiating the pointer interface where constructor parameter attribute _bridgingConfig has "
          "a different value of existing than the current value of asked not allowed");
   }
}

TEST_F(BridgingConfigSmTest, interfacesOfAnyKindCanBePorts) {
   for (char const* name :
        {"Foo", "Ethernet1/2/3/4", "Vlan7", "Loopback0", "Cpu", "Management1", "Port-Channel9"})
      bridge.trunk(name);
   bridge.vlan(10);
   bridge.start();
   EXPECT_EQ(bridge.membership(10, "Foo"), "tagged");
   EXPECT_EQ(bridge.membership(10, "Loopback0"), "tagged");
   EXPECT_EQ(bridge.membership(10, "Vlan7"), "tagged");
}

// --- VLAN interfaces.

TEST_F(BridgingConfigSmTest, interfacesWhoseNumberIsNoVlanAreIgnored) {
   char const* const names[] = {"Vlan0",           "Vlan4095", "Vlan5000", "Vlan65535", "Vlan65536",
                                "Vlan99999999999", "Vlan007",  "Foo",      "Vlan10.5",  "Ethernet1"};
   bridge.vlanIntfConfig->intfConfigIs("Vlan4096");
   bridge.dynVlanIntfList->intfConfigIs(Interface::VlanIntfConfig::make("Vlan4097"));
   bridge.routed("Ethernet1");
   bridge.start();
   for (char const* name : names) {
      bridge.vlanIntfConfig->intfConfigIs(name);
      bridge.dynVlanIntfList->intfConfigIs(Interface::VlanIntfConfig::make(name));
   }
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet1"), "routed 1006");
}

TEST_F(BridgingConfigSmTest, configuredVlanInterfaceComesBeforeADynamicOne) {
   bridge.start();
   auto const& vlanInterfaces = bridge.sm->vlanInterfaces();
   EXPECT_FALSE(vlanInterfaces.find(Bridging::VlanId(10)));
   auto const dynamic = bridge.dynVlanIntf(10);
   EXPECT_EQ(vlanInterfaces.find(Bridging::VlanId(10)), dynamic);
   auto const configured = bridge.vlanIntf(10);
   EXPECT_EQ(vlanInterfaces.find(Bridging::VlanId(10)), configured);
}

// --- The default mode.

TEST_F(BridgingConfigSmTest, changeOfTheDefaultModeEndsTheProcessWithStatusZero) {
   bridge.start();
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
   EXPECT_EXIT(bridge.run(), ExitedWithCode(0), "defaultSwitchportMode is now 5");
}

TEST_F(BridgingConfigSmTest, defaultModeThatIsBackAtItsOldValueEndsTheProcessToo) {
   bridge.start();
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::trunk_);
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::access_);
   EXPECT_EXIT(bridge.run(), ExitedWithCode(0), "defaultSwitchportMode is now 0");
}

TEST_F(BridgingConfigSmTest, defaultModeThatIsSetAtTheStartEndsNothing) {
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
   bridge.start();
   EXPECT_TRUE(bridge.sm->initialized());
}

// --- Filtering databases.

TEST_F(BridgingConfigSmTest, mappingsToFilteringDatabasesAreCopied) {
   TestTrace trace;
   bridge.cli->vidToFidMapIs(10, 7);
   bridge.start();
   ASSERT_TRUE(fid(10));
   EXPECT_EQ(*fid(10), 7);
   EXPECT_TRUE(trace.has("added mapping from 10 to 7"));
   bridge.cli->vidToFidMapIs(10, 8);
   bridge.cli->vidToFidMapIs(20, 4094);
   bridge.run();
   EXPECT_EQ(*fid(10), 8);
   EXPECT_EQ(*fid(20), 4094);
   bridge.cli->vidToFidMapDel(10);
   bridge.run();
   EXPECT_FALSE(fid(10));
   EXPECT_TRUE(trace.has("removed mapping for 10"));
}

TEST_F(BridgingConfigSmTest, mappingToZeroIsNone) {
   TestTrace trace;
   bridge.config->vidToFidMapIs(10, 7);
   bridge.cli->vidToFidMapIs(10, 0);
   bridge.cli->vidToFidMapIs(20, 5);
   bridge.start();
   EXPECT_FALSE(fid(10));
   EXPECT_TRUE(trace.has("removed mapping for 10"));
   bridge.cli->vidToFidMapIs(20, 0);
   bridge.run();
   EXPECT_FALSE(fid(20));
}

TEST_F(BridgingConfigSmTest, staleMappingsGoAtTheStart) {
   bridge.config->vidToFidMapIs(10, 7);
   bridge.config->vidToFidMapIs(20, 7);
   bridge.cli->vidToFidMapIs(20, 8);
   bridge.start();
   EXPECT_FALSE(fid(10));
   ASSERT_TRUE(fid(20));
   EXPECT_EQ(*fid(20), 8);
}

TEST_F(BridgingConfigSmTest, settingsOfAReplacedCommandLineReplaceThoseOfTheOldOne) {
   bridge.cli->vidToFidMapIs(10, 7);
   bridge.cli->vidToFidMapIs(20, 7);
   bridge.cli->ieeeReservedForwardingIs(addr, true);
   bridge.start();
   bridge.withdraw("cli");
   auto const replacement = Bridging::Input::CliConfig::make();
   bridge.place("cli", replacement);
   replacement->vidToFidMapIs(20, 8);
   replacement->ieeeReservedForwardingIs(otherAddr, true);
   bridge.run();
   EXPECT_FALSE(fid(10));
   ASSERT_TRUE(fid(20));
   EXPECT_EQ(*fid(20), 8);
   EXPECT_FALSE(bridge.config->ieeeReservedForwarding().find(addr));
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding(otherAddr));
   // The new one is followed, and the old one is not any more.
   replacement->vidToFidMapIs(30, 9);
   replacement->ieeeReservedForwardingDel(otherAddr);
   bridge.cli->vidToFidMapIs(40, 9);
   bridge.cli->ieeeReservedForwardingIs(addr, false);
   bridge.run();
   ASSERT_TRUE(fid(30));
   EXPECT_EQ(*fid(30), 9);
   EXPECT_FALSE(fid(40));
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding().empty());
}

// --- Reserved addresses.

TEST_F(BridgingConfigSmTest, reservedAddressesThatAreForwardedAreCopied) {
   bridge.cli->ieeeReservedForwardingIs(addr, true);
   bridge.start();
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding(addr));
   bridge.cli->ieeeReservedForwardingIs(otherAddr, true);
   bridge.cli->ieeeReservedForwardingIs(addr, false);
   bridge.run();
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding(otherAddr));
   EXPECT_FALSE(bridge.config->ieeeReservedForwarding().find(addr)) << "false is none";
   bridge.cli->ieeeReservedForwardingDel(otherAddr);
   bridge.run();
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding().empty());
}

TEST_F(BridgingConfigSmTest, staleReservedAddressesGoAtTheStart) {
   bridge.config->ieeeReservedForwardingIs(addr, true);
   bridge.config->ieeeReservedForwardingIs(otherAddr, true);
   bridge.cli->ieeeReservedForwardingIs(otherAddr, true);
   bridge.start();
   EXPECT_FALSE(bridge.config->ieeeReservedForwarding().find(addr));
   EXPECT_TRUE(bridge.config->ieeeReservedForwarding(otherAddr));
}

// --- Private VLANs.

TEST_F(BridgingConfigSmTest, smallestSecondaryVlanOfAPrimaryIsFound) {
   bridge.primaryVlan(100, {300, 101, 200});
   bridge.privateVlans->primaryVlanIs(50);
   bridge.start();
   EXPECT_EQ(bridge.sm->getMinSecondaryVlanId(100), 101);
   EXPECT_EQ(bridge.sm->getMinSecondaryVlanId(50), 4095) << "a primary without secondaries";
   EXPECT_EQ(bridge.sm->getMinSecondaryVlanId(101), 4095) << "no primary";
}

} // namespace
