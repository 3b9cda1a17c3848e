#include "Vorn/SubIntfSm/SubIntfSm.h"

#include "Vorn/SubIntfSm/TestSubIntfs.h"

#include <gmock/gmock.h>

namespace Vorn {
namespace {

using Interface::EnabledState;

constexpr char upOn100[] = "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01";
constexpr char downOn100[] = "vlan 100 on et1, mtu 1500, down, 02:00:00:00:00:01";

class SubIntfSmTest : public testing::Test {
  public:
   Kem::TestTrace trace{"Vorn*/0-9"};
   TestSubIntfs world;

   void TearDown() override {
      if (HasFailure())
         for (auto const& line : trace.take())
            std::cout << "   " << line << "\n";
   }
   // Ethernet1.10 for VLAN 100, up.
   Kem::Ptr<Interface::SubIntfConfig> startWithOne() {
      auto const config = world.subIntf("Ethernet1.10", 100);
      world.start();
      EXPECT_EQ(world.device("et1.10"), upOn100);
      EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
      trace.clear();
      world.kernel.countsReset();
      return config;
   }
};

// --- Taken on.

TEST_F(SubIntfSmTest, AConfiguredSubinterfaceBecomesADeviceOnItsParent) {
   world.subIntf("Ethernet1.10", 100)->mtuIs(1400);
   world.start();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1400, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   auto const status = world.statusDir->intfStatus("Ethernet1.10");
   EXPECT_EQ(status->deviceName(), "et1.10");
   EXPECT_EQ(status->addr(), world.addr(world.bridgeAddr));
   EXPECT_EQ(status->maxMtu(), 9214u);
   EXPECT_EQ(world.kernel.findDevice("et1.10")->egress, (std::map<uint32_t, uint32_t>{{7, 7}}));
   EXPECT_TRUE(world.isMirrored("Ethernet1.10"));
   EXPECT_TRUE(world.sm->retryIntfCollection().empty());
   EXPECT_TRUE(world.sm->intfBackLog().empty());
   EXPECT_EQ(world.problem("Ethernet1.10"), "");
}

TEST_F(SubIntfSmTest, SubinterfacesOfPortChannelsHaveDevicesToo) {
   world.port("Port-Channel5");
   world.subIntf("Port-Channel5.7", 7);
   world.start();
   EXPECT_EQ(world.device("po5.7"), "vlan 7 on po5, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.state("Port-Channel5.7"), "up, in hardware");
}

TEST_F(SubIntfSmTest, TheThirdRecordLetsItIn) {
   world.configure("Ethernet1.10", 100);
   world.start();
   EXPECT_TRUE(trace.has("Deleting intfId: Ethernet1.10 from backlog"));
   world.programmedIs("Ethernet1.10", true);
   world.statusDir->intfStatusIs("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   trace.clear();
   world.statusLocalDir->intfStatusLocalIs("Ethernet1.10");
   world.run();
   EXPECT_TRUE(trace.has("Adding intfId: Ethernet1.10 to backlog"));
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

TEST_F(SubIntfSmTest, WhatLeavesTheConfigurationLeavesTheKernel) {
   startWithOne();
   world.subIntf("Ethernet1.11", 11);
   world.run();
   world.subIntfDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_NE(world.device("et1.11"), "-");
   EXPECT_EQ(world.sm->subIntfConfig("Ethernet1.10"), nullptr);
   EXPECT_FALSE(world.sm->subIntfConfigAfterCodef("Ethernet1.10"));
   EXPECT_EQ(world.sm->intf().size(), 1u);
   EXPECT_EQ(world.sm->parentIntf("Ethernet1")->subIntf().size(), 1u);
   EXPECT_FALSE(world.isMirrored("Ethernet1.10"));
   world.subIntfDel("Ethernet1.11");
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   EXPECT_EQ(world.sm->parentIntf("Ethernet1"), nullptr);
   EXPECT_TRUE(world.sm->intf().empty());
}

// --- Rows of the table, as they come about.

TEST_F(SubIntfSmTest, AShutDownSubinterfaceIsDownAndUpAgain) {
   auto const config = startWithOne();
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   EXPECT_EQ(world.device("et1.10"), downOn100);
   EXPECT_TRUE(trace.has("Ethernet1.10 is not enabled"));
   EXPECT_EQ(world.kosr->intfStatusDir()->intfStatus("Ethernet1.10"), nullptr);
   EXPECT_EQ(world.kosr->intfStatusLocalDir()->intfStatusLocal("Ethernet1.10"), nullptr);
   config->enabledStateLocalIs(EnabledState::enabledStateEnabled);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_TRUE(world.isMirrored("Ethernet1.10"));
}

TEST_F(SubIntfSmTest, TheWordOfAllButTheOperatorHoldsItDownToo) {
   auto const config = startWithOne();
   config->enabledIs(false);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   config->enabledIs(true);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   config->enabledStateLocalIs(EnabledState::enabledStateDefault);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

TEST_F(SubIntfSmTest, DisabledAndWithoutABridgeAddressTheFirstRowIsSaid) {
   world.config->bridgeMacAddrIs({});
   auto const config = world.subIntf("Ethernet1.10", 100);
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   EXPECT_TRUE(trace.has("Ethernet1.10 is not enabled"));
   EXPECT_FALSE(trace.has("bridge mac addr is zero"));
   config->enabledStateLocalIs(EnabledState::enabledStateDefault);
   world.run();
   EXPECT_TRUE(trace.has("bridge mac addr is zero"));
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   EXPECT_THAT(world.device("et1.10"), testing::StartsWith("vlan 100 on et1, mtu 1500, down"));
   world.config->bridgeMacAddrIs(world.addr("02:00:00:00:00:02"));
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:02");
}

TEST_F(SubIntfSmTest, WithoutAVlanIdThereIsNoDevice) {
   startWithOne();
   world.vlanIs("Ethernet1.10", 0);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_TRUE(trace.has("vlanId is not configured.  vlanId=0"));
   EXPECT_EQ(world.subIntfDevices(), "");
   world.advance(2);
   EXPECT_FALSE(world.isRetried("Ethernet1.10"));
   world.vlanIs("Ethernet1.10", 100);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
}

// The kernel would never answer the request for such a device.
TEST_F(SubIntfSmTest, AVlanIdThatNoTagCanCarryNeverReachesTheKernel) {
   startWithOne();
   for (unsigned const vlanId : {4095u, 4096u, 65535u}) {
      world.vlanIs("Ethernet1.10", vlanId);
      world.run();
      EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown") << vlanId;
      EXPECT_TRUE(trace.has("vlanId is not configured.  vlanId=" + std::to_string(vlanId)));
      EXPECT_EQ(world.subIntfDevices(), "");
      EXPECT_EQ(world.kernel.count("RTM_NEWLINK"), 0);
      EXPECT_FALSE(world.isRetried("Ethernet1.10"));
   }
}

TEST_F(SubIntfSmTest, WithoutEncapsulationItIsDown) {
   auto const config = startWithOne();
   config->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapNone);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_TRUE(trace.has("encapType is not set.  encapType=subIntfEncapNone"));
   EXPECT_EQ(world.device("et1.10"), downOn100);
}

TEST_F(SubIntfSmTest, TheParentsStatusIsFollowedHoweverItChanges) {
   startWithOne();
   world.allIntfStatusDir->intfStatusDel("Ethernet1");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_TRUE(trace.has("parent intf status is missing"));
   auto const parent = world.allIntfStatusDir->intfStatusIs("Ethernet1");
   world.run();
   EXPECT_TRUE(trace.has("parent intf operationally down"));
   parent->operStatusIs(TestSubIntfs::OperStatus::intfOperUp);
   world.run();
   EXPECT_TRUE(trace.has("parent intf not in routed forwarding model"));
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_EQ(world.device("et1.10"), downOn100);
   parent->forwardingModelIs(world.routed);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.device("et1.10"), upOn100);
   // Another record under the same name.
   world.allIntfStatusDir->newIntfStatus("Ethernet1");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   world.portStatus("Ethernet1")->operStatusIs(TestSubIntfs::OperStatus::intfOperUp);
   world.portStatus("Ethernet1")->forwardingModelIs(world.routed);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

TEST_F(SubIntfSmTest, AParentThatIsSwitchedAndThenRoutedEvaluatesItsChildren) {
   world.portStatus("Ethernet1")->forwardingModelIs(world.bridged);
   world.subIntf("Ethernet1.10", 100);
   world.subIntf("Ethernet2.10", 100);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_EQ(world.state("Ethernet2.10"), "up, in hardware");
   trace.clear();
   world.portStatus("Ethernet1")->forwardingModelIs(world.routed);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_FALSE(trace.has("Ethernet2.10")); // the other parent's are left alone
}

TEST_F(SubIntfSmTest, UntilTheHardwareHasItItIsDormant) {
   world.subIntf("Ethernet1.10", 100);
   world.programmedIs("Ethernet1.10", false);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "dormant, in hardware");
   EXPECT_TRUE(trace.has("hardware programming for the subinterface was not successful"));
   EXPECT_EQ(world.device("et1.10"), downOn100);
   EXPECT_FALSE(trace.has("subIntfWaitQ")); // there is no reload
   world.programmedIs("Ethernet1.10", true);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.device("et1.10"), upOn100);
}

TEST_F(SubIntfSmTest, AHardwareRecordThatComesLateGoesOrIsReplacedIsFollowed) {
   world.makeStatus("Ethernet1.10");
   world.configure("Ethernet1.10", 100);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "dormant, in hardware");
   world.programmedIs("Ethernet1.10", true);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   world.hwStatusDir->subIntfStatusDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "dormant, in hardware");
   world.programmedIs("Ethernet1.10", true);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   auto const another = world.hwStatusDir->newSubIntfStatus("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "dormant, in hardware");
   another->hardwareSuccessIs(true);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

TEST_F(SubIntfSmTest, AReloadWaitsForWhatTheHardwareHasStillToProgram) {
   world.oxaState = VornOxaState::make();
   world.subIntf("Ethernet1.10", 100);
   world.subIntf("Ethernet1.11", 101);
   world.subIntf("Ethernet1.12", 102);
   for (char const* const intfId : {"Ethernet1.10", "Ethernet1.11", "Ethernet1.12"})
      world.programmedIs(intfId, false);
   world.start();
   EXPECT_EQ(world.oxaState->subIntfWaitQ().size(), 3u);
   EXPECT_TRUE(trace.has("Enq intf Ethernet1.10 to subIntfWaitQ"));
   world.programmedIs("Ethernet1.10", true);
   world.run();
   EXPECT_TRUE(trace.has("Deq intf Ethernet1.10 from subIntfWaitQ"));
   EXPECT_FALSE(world.oxaState->subIntfWaitQ("Ethernet1.10"));
   // What is shut down or removed meanwhile isn't to come up.
   world.configDir->intfConfig("Ethernet1.11")->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.subIntfDel("Ethernet1.12");
   world.run();
   EXPECT_EQ(world.oxaState->subIntfWaitQ().size(), 0u);
}

TEST_F(SubIntfSmTest, OnlyAChangeOfTheStateCountsAsOne) {
   auto const config = startWithOne();
   EXPECT_EQ(world.changes("Ethernet1.10"), 1u);
   world.advance(5);
   world.capability->subintfSupportedIs(false); // evaluates all, and changes nothing
   world.run();
   EXPECT_TRUE(trace.has("subintfSupported 0"));
   EXPECT_EQ(world.changes("Ethernet1.10"), 1u);
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   EXPECT_EQ(world.changes("Ethernet1.10"), 2u);
   EXPECT_EQ(world.statusDir->intfStatus("Ethernet1.10")->operStatusChange().time, Kem::now());
   EXPECT_TRUE(trace.has("subIntfStatus- operStatusChange()"));
   world.portStatus("Ethernet1")->operStatusIs(TestSubIntfs::OperStatus::intfOperDown);
   world.run(); // another row would hold too, and the first still wins
   EXPECT_EQ(world.changes("Ethernet1.10"), 2u);
}

TEST_F(SubIntfSmTest, AskedForTheFirstTimeEachThingIsAskedOfTheKernelOnce) {
   for (int i = 1; i <= 20; ++i)
      world.subIntf("Ethernet1." + std::to_string(i), static_cast<unsigned>(i));
   world.start();
   EXPECT_EQ(world.kernel.count("RTM_NEWLINK"), 20);
   EXPECT_EQ(world.kernel.count("SIOCSIFFLAGS"), 20);
   EXPECT_EQ(world.kernel.count("SIOCGIFFLAGS"), 20);
   EXPECT_EQ(world.kernel.count("SIOCSIFMTU"), 20);
}

// --- VLAN ids that are claimed twice.

TEST_F(SubIntfSmTest, BothClaimantsOfAVlanIdFallAndTheOneThatStaysComesUp) {
   world.subIntf("Ethernet1.1", 10);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   world.subIntf("Ethernet1.2", 10);
   world.run();
   for (char const* const intfId : {"Ethernet1.1", "Ethernet1.2"}) {
      EXPECT_EQ(world.state(intfId), "lowerLayerDown") << intfId;
      EXPECT_TRUE(world.sm->subIntfConfig(intfId)->invalidCfg()) << intfId;
      EXPECT_FALSE(world.isRetried(intfId)) << intfId;
      EXPECT_TRUE(trace.has(std::string(intfId) + " Invalid config.  Duplicate vlanId=10"));
   }
   EXPECT_EQ(world.sm->parentIntf("Ethernet1")->vlanIdCount(10), 2);
   EXPECT_EQ(world.device("et1.1"), "vlan 10 on et1, mtu 1500, down, 02:00:00:00:00:01");
   world.vlanIs("Ethernet1.2", 11);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.state("Ethernet1.2"), "up, in hardware");
   EXPECT_EQ(world.sm->parentIntf("Ethernet1")->vlanIdCount(10), 1);
   EXPECT_EQ(world.device("et1.1"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.2"), "vlan 11 on et1, mtu 1500, up, 02:00:00:00:00:01");
}

TEST_F(SubIntfSmTest, TheClaimantWithTheDeviceGivesTheVlanIdUp) {
   world.subIntf("Ethernet1.1", 10);
   world.subIntf("Ethernet1.2", 10);
   world.start();
   world.vlanIs("Ethernet1.1", 11);
   world.run();
   EXPECT_EQ(world.device("et1.1"), "vlan 11 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.2"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
   world.vlanIs("Ethernet1.1", 10);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.2"), "lowerLayerDown");
   world.subIntfDel("Ethernet1.2");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.device("et1.1"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.problem("Ethernet1.1"), "");
}

TEST_F(SubIntfSmTest, TwoSwapTheirVlanIdsInOneTurn) {
   world.subIntf("Ethernet1.1", 10);
   world.subIntf("Ethernet1.2", 20);
   world.subIntf("Ethernet1.3", 30);
   world.start();
   world.vlanIs("Ethernet1.1", 20);
   world.vlanIs("Ethernet1.2", 10);
   world.run();
   EXPECT_EQ(world.device("et1.1"), "vlan 20 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.2"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.state("Ethernet1.2"), "up, in hardware");
   // And three in a ring.
   world.vlanIs("Ethernet1.1", 10);
   world.vlanIs("Ethernet1.2", 30);
   world.vlanIs("Ethernet1.3", 20);
   world.run();
   EXPECT_EQ(world.device("et1.1"), "vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.2"), "vlan 30 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.3"), "vlan 20 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_TRUE(world.sm->retryIntfCollection().empty());
}

// All claims are known before the first is evaluated: a start never takes one of them up for a moment.
TEST_F(SubIntfSmTest, ARestartDoesNotTakeClaimantsUpOnTheWay) {
   for (int i = 1; i <= 50; ++i)
      world.subIntf("Ethernet1." + std::to_string(i), static_cast<unsigned>(i <= 48 ? i : 48));
   world.start();
   EXPECT_EQ(world.state("Ethernet1.48"), "lowerLayerDown");
   EXPECT_EQ(world.changes("Ethernet1.48"), 1u);
   auto const devices = world.subIntfDevices(true);
   world.restart();
   EXPECT_EQ(world.changes("Ethernet1.1"), 1u);
   EXPECT_EQ(world.changes("Ethernet1.48"), 1u);
   EXPECT_EQ(world.changes("Ethernet1.50"), 1u);
   EXPECT_EQ(world.subIntfDevices(true), devices);
   world.subIntfDel("Ethernet1.49");
   world.subIntfDel("Ethernet1.50");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.48"), "up, in hardware");
}

TEST_F(SubIntfSmTest, SubinterfacesOfOtherParentsClaimNothingHere) {
   world.subIntf("Ethernet1.1", 10);
   world.subIntf("Ethernet2.1", 10);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.state("Ethernet2.1"), "up, in hardware");
}

// --- Records that go or are replaced.

TEST_F(SubIntfSmTest, AConfigurationThatIsReplacedKeepsItsDevice) {
   startWithOne();
   auto const before = world.device("et1.10", true);
   auto const another = world.configDir->newIntfConfig("Ethernet1.10");
   another->encapTypeIs(Interface::SubIntfEncapType::subIntfEncapDot1q);
   another->vlanIdIs(100);
   world.run();
   EXPECT_TRUE(trace.has("Deleting subIntf: Ethernet1.10 from output (stale)"));
   EXPECT_EQ(world.device("et1.10", true), before);
   EXPECT_EQ(world.changes("Ethernet1.10"), 1u);
   another->mtuIs(1300);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1300, up, 02:00:00:00:00:01");
}

TEST_F(SubIntfSmTest, AStatusRecordThatGoesTakesTheInterfaceDown) {
   startWithOne();
   world.statusDir->intfStatusDel("Ethernet1.10");
   world.run();
   EXPECT_TRUE(trace.has("Removing subIntf: Ethernet1.10 from output"));
   EXPECT_EQ(world.sm->subIntfConfig("Ethernet1.10"), nullptr);
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_FALSE(world.isMirrored("Ethernet1.10"));
   world.statusDir->intfStatusIs("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.device("et1.10"), upOn100);
}

TEST_F(SubIntfSmTest, ALocalStatusRecordThatGoesTakesTheInterfaceDown) {
   startWithOne();
   world.statusLocalDir->intfStatusLocalDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.sm->subIntfConfig("Ethernet1.10"), nullptr);
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_EQ(world.device("et1.10"), "-");
   // Its VLAN id is free for another.
   world.subIntf("Ethernet1.11", 100);
   world.run();
   EXPECT_EQ(world.device("et1.11"), upOn100);
}

TEST_F(SubIntfSmTest, AStatusRecordThatIsReplacedIsWrittenAgain) {
   startWithOne();
   auto const before = world.device("et1.10", true);
   world.statusDir->newIntfStatus("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.statusDir->intfStatus("Ethernet1.10")->deviceName(), "et1.10");
   EXPECT_EQ(world.kosr->intfStatusDir()->intfStatus("Ethernet1.10"),
             world.statusDir->intfStatus("Ethernet1.10"));
   EXPECT_EQ(world.device("et1.10", true), before);
}

TEST_F(SubIntfSmTest, AReplacedLocalRecordLeavesNoDeviceBehindInAnotherNamespace) {
   world.namespaceIs("red");
   world.moveTo("Ethernet1.10", "red");
   world.subIntf("Ethernet1.10", 100);
   world.start();
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
   EXPECT_EQ(world.netNsOf("Ethernet1.10"), "red");
   world.statusLocalDir->newIntfStatusLocal("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
   EXPECT_EQ(world.netNsOf("Ethernet1.10"), "red");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   world.statusLocalDir->intfStatusLocalDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 0);
}

// 1. The record that says where the device is, is replaced: the device is removed from there. 2. In the same turn the
// interface is evaluated for another reason. It must not be made there again, where nobody would find it.
TEST_F(SubIntfSmTest, WhatHasOldRecordsIsNotEvaluated) {
   world.namespaceIs("red");
   world.moveTo("Ethernet1.10", "red");
   world.subIntf("Ethernet1.10", 100);
   world.start();
   world.statusLocalDir->newIntfStatusLocal("Ethernet1.10");
   world.programmedIs("Ethernet1.10", false);
   world.notice();
   EXPECT_EQ(world.subIntfDevices(), "");
   world.vlanIs("Ethernet1.10", 0);
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   world.vlanIs("Ethernet1.10", 100);
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), downOn100);
}

// --- The kernel's devices under the agent's feet.

TEST_F(SubIntfSmTest, AParentsDeviceThatComesLateLetsItsChildrenHaveTheirs) {
   world.kernel.deviceDel("et1");
   world.subIntf("Ethernet1.10", 100);
   world.start();
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_TRUE(trace.has("vlan create errorin dstNs. No retry. NS default vlanId 100 error 2"));
   EXPECT_EQ(world.problem("Ethernet1.10"), "base device et1 doesn't exist");
   world.kernel.deviceIs("et1").mtu = 9214;
   world.kernel.upIs("et1", true);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.problem("Ethernet1.10"), "");
}

TEST_F(SubIntfSmTest, AParentsDeviceThatIsMadeAgainGetsItsChildrenBack) {
   startWithOne();
   world.kernel.deviceDel("et1"); // and with it what is on it
   world.kernel.deviceIs("et1").mtu = 9214;
   world.kernel.upIs("et1", true);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
}

// Linux switches the VLAN devices on and off with their base.
TEST_F(SubIntfSmTest, AParentsDeviceThatIsSwitchedOffAndOnLeavesItsChildrenAsTheyShouldBe) {
   startWithOne();
   world.subIntf("Ethernet1.11", 101)->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   world.kernel.upIs("et1", false);
   world.run();
   EXPECT_EQ(world.device("et1.10"), downOn100);
   world.kernel.upIs("et1", true);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.device("et1.11"), "vlan 101 on et1, mtu 1500, down, 02:00:00:00:00:01");
}

TEST_F(SubIntfSmTest, AParentsMtuThatGrowsIsUsed) {
   world.kernel.findDevice("et1")->mtu = 1500;
   world.subIntf("Ethernet1.10", 100)->mtuIs(9000);
   world.start();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   auto& parent = *world.kernel.findDevice("et1");
   parent.mtu = 9214;
   world.kernel.deviceChanged(parent);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 9000, up, 02:00:00:00:00:01");
}

TEST_F(SubIntfSmTest, ADeviceThatSomebodyRemovesComesBack) {
   startWithOne();
   world.kernel.deviceDel("et1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.changes("Ethernet1.10"), 1u);
}

TEST_F(SubIntfSmTest, ADeviceThatSomebodySwitchesOffOrOnIsSetRight) {
   auto const config = startWithOne();
   world.kernel.upIs("et1.10", false);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   world.kernel.upIs("et1.10", true);
   world.run();
   EXPECT_EQ(world.device("et1.10"), downOn100);
}

TEST_F(SubIntfSmTest, ADeviceThatSomebodyMadeForAnotherVlanIsMadeAgain) {
   startWithOne();
   world.kernel.deviceDel("et1.10");
   world.kernel.vlanDeviceIs("et1.10", "et2", 7);
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
}

// --- Attributes of the device.

TEST_F(SubIntfSmTest, AConfiguredAddressIsTakenAndLeftAgain) {
   auto const config = startWithOne();
   config->addrIs(world.addr("02:00:00:00:00:aa"));
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:aa");
   EXPECT_EQ(world.statusDir->intfStatus("Ethernet1.10")->addr(), world.addr("02:00:00:00:00:aa"));
   config->addrIs({});
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   config->addrIs(world.addr("01:00:5e:00:00:01"));
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_THAT(world.problem("Ethernet1.10"), testing::HasSubstr("multicast"));
   EXPECT_FALSE(world.isRetried("Ethernet1.10"));
}

TEST_F(SubIntfSmTest, TheMtuIsFollowedAndNoMoreThanTheSwitchCarries) {
   auto const config = startWithOne();
   config->mtuIs(1400);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1400, up, 02:00:00:00:00:01");
   config->mtuIs(9000);
   world.hwCapabilities->maxFrameSizeIs(4000);
   world.run();
   EXPECT_TRUE(trace.has("() maxMtuSize: 3978"));
   EXPECT_EQ(world.statusDir->intfStatus("Ethernet1.10")->maxMtu(), 3978u);
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 3978, up, 02:00:00:00:00:01");
   for (uint32_t const mtu : {0u, 67u, 70000u}) {
      config->mtuIs(mtu);
      world.run();
      EXPECT_EQ(world.device("et1.10"), upOn100) << mtu;
      EXPECT_FALSE(world.isRetried("Ethernet1.10")) << mtu;
   }
}

TEST_F(SubIntfSmTest, AnInterfaceMovesToItsNamespaceAndBack) {
   startWithOne();
   world.moveTo("Ethernet1.10", "red");
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100); // it waits where it is
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
   EXPECT_EQ(world.netNsOf("Ethernet1.10"), "red");
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   world.nsConfigDir->intfNamespaceConfigDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.device("et1.10@red"), "-");
}

TEST_F(SubIntfSmTest, WhatWaitsForItsNamespaceCanBeShutDown) {
   auto const config = startWithOne();
   world.moveTo("Ethernet1.10", "red");
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "down");
   EXPECT_EQ(world.device("et1.10"), downOn100);
}

TEST_F(SubIntfSmTest, WhatWaitsForItsNamespaceGivesItsVlanIdUp) {
   startWithOne();
   world.moveTo("Ethernet1.10", "red");
   world.vlanIs("Ethernet1.10", 101);
   world.subIntf("Ethernet1.11", 100);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_EQ(world.device("et1.11"), upOn100);
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), "vlan 101 on et1, mtu 1500, up, 02:00:00:00:00:01");
}

// --- Failures of the kernel.

TEST_F(SubIntfSmTest, AFailedCallIsTriedAgainUntilItSucceeds) {
   for (char const* const call : {"socket", "SIOCSIFHWADDR", "SIOCSIFMTU", "SET_VLAN_EGRESS_PRIORITY_CMD"}) {
      world.stop();
      world.kernel.deviceDel("et1");
      world.port("Ethernet1");
      world.namespaceDel("red");
      world.namespaceIs("red");
      world.moveTo("Ethernet1.10", "red");
      world.statusLocalDir->intfStatusLocalDel("Ethernet1.10");
      world.subIntf("Ethernet1.10", 100)->addrIs(world.addr("02:00:00:00:00:aa"));
      world.configDir->intfConfig("Ethernet1.10")->mtuIs(1400);
      world.startOnly();
      world.kernel.fail(call, ENOMEM, 1, true);
      world.run();
      EXPECT_TRUE(world.isRetried("Ethernet1.10")) << call;
      world.advance(3);
      EXPECT_TRUE(world.isRetried("Ethernet1.10")) << call;
      world.kernel.faultsEnd();
      world.advance(1);
      EXPECT_FALSE(world.isRetried("Ethernet1.10")) << call;
      EXPECT_EQ(world.device("et1.10@red"), "vlan 100 on et1, mtu 1400, up, 02:00:00:00:00:aa") << call;
      EXPECT_EQ(world.problem("Ethernet1.10"), "") << call;
   }
}

TEST_F(SubIntfSmTest, AChangeOfAddressOrMtuThatFailsIsTriedAgain) {
   auto const config = startWithOne();
   world.kernel.fail("SIOCSIFHWADDR", ENOMEM);
   config->addrIs(world.addr("02:00:00:00:00:aa"));
   world.run();
   EXPECT_TRUE(world.isRetried("Ethernet1.10"));
   world.advance(1);
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:aa");
   EXPECT_FALSE(world.isRetried("Ethernet1.10"));
   world.kernel.fail("SIOCSIFMTU", ENOMEM);
   config->mtuIs(1400);
   world.run();
   EXPECT_TRUE(trace.has("Error setting the link mtu for interface Ethernet1.10"));
   world.advance(1);
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1400, up, 02:00:00:00:00:aa");
}

// Where its device was, it has to be taken away; until that namespace can be entered, it waits.
TEST_F(SubIntfSmTest, ANamespaceThatCantBeEnteredForAMomentIsEnteredLater) {
   world.namespaceIs("red");
   world.subIntf("Ethernet1.10", 100);
   world.moveTo("Ethernet1.10", "red");
   world.start();
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
   world.stop();
   world.nsConfigDir->intfNamespaceConfigDel("Ethernet1.10");
   world.startOnly();
   world.kernel.fail("socket", ENOMEM, 1, true);
   world.run();
   EXPECT_TRUE(world.isRetried("Ethernet1.10"));
   world.kernel.faultsEnd();
   world.advance(2);
   EXPECT_EQ(world.device("et1.10"), upOn100);
   EXPECT_EQ(world.device("et1.10@red"), "-");
}

// 1. The namespace is entered, and its number can't be read. 2. It is deleted and made again under its name. Nobody
// would notice that the device went with the old one.
TEST_F(SubIntfSmTest, ANamespaceWhoseNumberCantBeReadIsEnteredLater) {
   world.namespaceIs("red");
   world.moveTo("Ethernet1.10", "red");
   world.subIntf("Ethernet1.10", 100);
   world.startOnly();
   world.kernel.fail("open", EMFILE, 2);
   world.run();
   EXPECT_TRUE(trace.has("NS red can't be looked at: Too many open files"));
   EXPECT_TRUE(world.isRetried("Ethernet1.10"));
   world.advance(1);
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
   world.namespaceDel("red");
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
}

// It says up and has no device: the namespace doesn't exist.
TEST_F(SubIntfSmTest, AnInterfaceThatIsUpWithoutADeviceIsTriedAgain) {
   world.moveTo("Ethernet1.10", "red");
   world.subIntf("Ethernet1.10", 100);
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.subIntfDevices(), "");
   EXPECT_TRUE(trace.has("VlanIntfCommon: et1.10: Scheduled retry for Ethernet1.10"));
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), upOn100);
}

// --- Names that can't be.

TEST_F(SubIntfSmTest, NamesThatTheSwitchCantHaveAreNamedOnceAndLeftOut) {
   for (char const* const intfId : {"Ethernet1.4095", "Ethernet1.70000", "Loopback0.1", "Ethernet1"}) {
      world.subIntf(intfId, 10);
      world.statusDir->intfStatus(intfId)->operStatusIs(
          TestSubIntfs::OperStatus::intfOperUp); // of an old release
   }
   world.subIntf("Ethernet1.1", 10);
   world.start();
   world.run();
   EXPECT_EQ(world.state("Ethernet1.1"), "up, in hardware");
   EXPECT_EQ(world.subIntfDevices(), "et1.1: vlan 10 on et1, mtu 1500, up, 02:00:00:00:00:01, egress 7:7, "
                                     "asked to be up\n");
   EXPECT_EQ(world.problem("Ethernet1.4095"), "its number is above 4094");
   EXPECT_EQ(world.problem("Ethernet1.70000"), "its number is above 4094");
   EXPECT_EQ(world.problem("Loopback0.1"), "not a subinterface of an Ethernet port or a port channel");
   EXPECT_EQ(world.problem("Ethernet1"), "not a subinterface of an Ethernet port or a port channel");
   EXPECT_EQ(world.state("Ethernet1.4095"), "lowerLayerDown");
   EXPECT_EQ(trace.count("device of Ethernet1.4095: its number is above 4094"), 1u);
   EXPECT_EQ(trace.level("device of Ethernet1.4095: its number is above 4094"), 0);
   world.vlanIs("Ethernet1.4095", 11);
   world.subIntfDel("Loopback0.1");
   world.run();
   EXPECT_EQ(trace.count("device of Ethernet1.4095: its number is above 4094"), 1u);
   EXPECT_EQ(world.problem("Loopback0.1"), "");
}

using SubIntfSmDeathTest = SubIntfSmTest;

TEST_F(SubIntfSmDeathTest, ANumberOf4095IsAnAssertion) {
   world.makeStatus("Ethernet1.4095");
   world.start();
   auto const entry =
       Kem::makePtr<KemSubIntfConfig>(*world.sm, Interface::SubIntfConfig::make("Ethernet1.4095"));
   EXPECT_DEATH(entry->handleInitialized(), "num < 4095");
}

TEST_F(SubIntfSmDeathTest, CountsOutOfRangeAreAssertions) {
   startWithOne();
   world.sm->parentIntf("Ethernet1")->vlanIdCountIs(100, 0);
   world.vlanIs("Ethernet1.10", 101);
   EXPECT_DEATH(world.run(), "parent->vlanIdCount\\( curVlanId\\(\\) \\) >= 0");
   world.sm->parentIntf("Ethernet1")->vlanIdCountIs(100, 1);
   world.sm->parentIntf("Ethernet1")->vlanIdCountIs(101, 4095);
   EXPECT_DEATH(world.run(), "parent->vlanIdCount\\( vlanId \\) < 4096");
   world.sm->parentIntf("Ethernet1")->vlanIdCountIs(101, 0);
   world.run();
}

TEST_F(SubIntfSmDeathTest, WithoutASocketTheStartIsAnAssertion) {
   world.start();
   auto in = world.inputs();
   in.socketFd = -1;
   EXPECT_DEATH(subIntfSmFactory(in), "socketFd\\(\\) >= 0");
}

// --- Evaluations that have to wait.

TEST_F(SubIntfSmTest, WhatIsNotInitializedIsNotEvaluated) {
   startWithOne();
   auto const entry = world.sm->subIntfConfig("Ethernet1.10");
   auto const stage = world.sm->subIntfConfigCodef()->subIntfConfigEntrySm("Ethernet1.10");
   stage->initializedIs(false);
   EXPECT_TRUE(entry->doEvaluateInterfaceConfigurationWithRetval());
   EXPECT_TRUE(trace.has(": Codef Entry NOT initialized"));
   stage->initializedIs(true);
   entry->initializedIs(false);
   EXPECT_TRUE(entry->doEvaluateInterfaceConfigurationWithRetval());
   EXPECT_TRUE(trace.has("Not initialized"));
   EXPECT_EQ(world.kernel.count("RTM_NEWLINK"), 0);
   world.sm->doEvaluateInterfaceConfiguration("Ethernet1.10"); // begins again
   EXPECT_TRUE(entry->initialized());
   entry->initializedIs(false);
   EXPECT_FALSE(world.sm->retryNeeded("Ethernet1.10"));
   EXPECT_TRUE(entry->initialized());
   EXPECT_FALSE(world.sm->retryNeeded("Ethernet1.99")); // there is no such one
}

TEST_F(SubIntfSmTest, ABacklogEntryWithoutAnInterfaceIsDropped) {
   startWithOne();
   world.sm->evaluateLater("Ethernet1.99");
   world.run();
   EXPECT_TRUE(world.sm->intfBackLog().empty());
}

} // namespace
} // namespace Vorn
