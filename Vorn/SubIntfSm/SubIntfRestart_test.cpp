// Restarts on what an earlier run left, the sweep of devices that nobody wants, and the standby supervisor.
#include "Vorn/SubIntfSm/TestSubIntfs.h"

#include <gmock/gmock.h>

namespace Vorn {
namespace {

using Interface::EnabledState;
using OperStatus = TestSubIntfs::OperStatus;

class SubIntfRestartTest : public testing::Test {
  public:
   Kem::TestTrace trace{"Vorn*/0-9"};
   TestSubIntfs world;

   void TearDown() override {
      if (HasFailure())
         for (auto const& line : trace.take())
            std::cout << "   " << line << "\n";
   }
};

TEST_F(SubIntfRestartTest, ARestartDisturbsNothing) {
   world.namespaceIs("red");
   world.subIntf("Ethernet1.1", 1);
   world.subIntf("Ethernet1.2", 2)->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.subIntf("Ethernet1.3", 3);
   world.subIntf("Ethernet2.3", 3)->addrIs(world.addr("02:00:00:00:00:aa"));
   world.moveTo("Ethernet1.3", "red");
   world.start();
   world.advance(5);
   auto const devices = world.subIntfDevices(true);
   EXPECT_EQ(std::count(devices.begin(), devices.end(), '\n'), 4);
   world.stop();
   world.kernel.countsReset();
   world.start();
   world.advance(5);
   EXPECT_EQ(world.subIntfDevices(true), devices);
   EXPECT_EQ(world.kernel.count("DEL_VLAN_CMD"), 0);
   EXPECT_EQ(world.kernel.count("SIOCSIFFLAGS"), 0);
   EXPECT_EQ(world.kernel.count("SIOCSIFHWADDR"), 0);
   for (char const* const intfId : {"Ethernet1.1", "Ethernet1.2", "Ethernet1.3", "Ethernet2.3"})
      EXPECT_EQ(world.changes(intfId), 1u) << intfId;
   EXPECT_EQ(world.netNsOf("Ethernet1.3"), "red");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   EXPECT_TRUE(world.sm->retryIntfCollection().empty());
}

TEST_F(SubIntfRestartTest, WhatChangedWhileAwayIsTakenInAtTheStart) {
   for (unsigned i = 1; i <= 6; ++i)
      world.subIntf("Ethernet1." + std::to_string(i), i);
   world.start();
   world.stop();
   world.subIntfDel("Ethernet1.1");
   world.vlanIs("Ethernet1.2", 20);
   world.configDir->intfConfig("Ethernet1.3")->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.programmedIs("Ethernet1.4", false);
   world.namespaceIs("red");
   world.moveTo("Ethernet1.5", "red");
   world.vlanIs("Ethernet1.6", 0);
   world.start();
   EXPECT_EQ(world.device("et1.1"), "-");
   EXPECT_EQ(world.device("et1.2"), "vlan 20 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.3"), "vlan 3 on et1, mtu 1500, down, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.4"), "vlan 4 on et1, mtu 1500, down, 02:00:00:00:00:01");
   EXPECT_EQ(world.state("Ethernet1.4"), "dormant, in hardware");
   EXPECT_EQ(world.device("et1.5"), "-");
   EXPECT_EQ(world.device("et1.5@red"), "vlan 5 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_EQ(world.device("et1.6"), "-");
   EXPECT_EQ(world.state("Ethernet1.6"), "lowerLayerDown");
}

TEST_F(SubIntfRestartTest, ANamespaceThatWasMadeAgainWhileAwayGetsTheDevice) {
   world.namespaceIs("red");
   world.moveTo("Ethernet1.10", "red");
   world.subIntf("Ethernet1.10", 100);
   world.start();
   world.stop();
   world.namespaceDel("red");
   world.namespaceIs("red");
   world.start();
   EXPECT_EQ(world.device("et1.10@red"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01");
   world.stop();
   world.namespaceDel("red");
   world.nsConfigDir->intfNamespaceConfigDel("Ethernet1.10");
   world.start();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_TRUE(Sulvi::NamespaceName(world.netNsOf("Ethernet1.10")).isDefault());
}

// A status record without the others: nobody would ever take it down.
TEST_F(SubIntfRestartTest, AStatusThatNobodyDrivesAnyMoreIsTakenDown) {
   world.subIntf("Ethernet1.10", 100);
   world.start();
   world.stop();
   world.statusLocalDir->intfStatusLocalDel("Ethernet1.10");
   world.start();
   EXPECT_EQ(world.state("Ethernet1.10"), "lowerLayerDown");
   EXPECT_EQ(world.sm->subIntfConfig("Ethernet1.10"), nullptr);
   world.statusLocalDir->intfStatusLocalIs("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

// --- The sweep.

TEST_F(SubIntfRestartTest, TheSweepTakesOnlyDevicesThatThisSwitchWouldHaveMade) {
   world.namespaceIs("red");
   world.port("Port-Channel5");
   world.kernel.deviceIs("eth0");
   world.kernel.vlanDeviceIs("et1.5", "et1", 5);
   world.kernel.vlanDeviceIs("po5.7", "po5", 7);
   world.kernel.vlanDeviceIs("et1.6", "et1", 6, "red");
   world.subIntf("Ethernet1.10", 100);
   world.kernel.vlanDeviceIs("et1.10", "et1", 100);
   // Those of others.
   world.kernel.vlanDeviceIs("eth0.100", "eth0", 100);
   world.kernel.vlanDeviceIs("et1.007", "et1", 7);
   world.kernel.vlanDeviceIs("et1.4095", "et1", 8);
   world.kernel.vlanDeviceIs("Et1.9", "et1", 9);
   world.kernel.vlanDeviceIs("et0.5", "et1", 10);
   world.kernel.vlanDeviceIs("vlan11", "et1", 11);
   world.kernel.vlanDeviceIs("lo0.1", "et1", 12);
   world.kernel.vlanDeviceIs("Ethernet1.5", "et1", 13);
   world.kernel.deviceIs("et2.5", "bridge"); // it has the name of one of ours, and is none
   world.start();
   for (char const* const gone : {"et1.5", "po5.7", "et1.6@red"})
      EXPECT_EQ(world.device(gone), "-") << gone;
   for (char const* const kept : {"eth0.100", "et1.007", "et1.4095", "Et1.9", "et0.5", "vlan11", "lo0.1",
                                  "Ethernet1.5", "et2.5", "et1.10"})
      EXPECT_NE(world.device(kept), "-") << kept;
   for (char const* const ofOthers : {"eth0.100", "et1.007", "et1.4095", "Ethernet1.5", "et1"}) {
      EXPECT_TRUE(world.sm->intfPresentInConfig(ofOthers)) << ofOthers;
      EXPECT_FALSE(world.sm->intfPresentInStatus(ofOthers)) << ofOthers;
      EXPECT_EQ(world.sm->intfStatusLocal(ofOthers), nullptr) << ofOthers;
   }
   EXPECT_FALSE(world.sm->intfPresentInConfig("et1.5"));
   EXPECT_TRUE(world.sm->intfPresentInConfig("et1.10"));
   EXPECT_TRUE(world.sm->intfPresentInStatus("et1.10"));
   EXPECT_NE(world.sm->intfStatusLocal("et1.10"), nullptr);
   EXPECT_TRUE(trace.has("et1.5 did not find device in intfConfig"));
   EXPECT_TRUE(trace.has("deleted unneeded kernel device: et1.5"));
   EXPECT_FALSE(trace.has("deleted unneeded kernel device: et2.5"));
}

TEST_F(SubIntfRestartTest, ADeviceOfAConfigurationWithoutStatusWaitsForIt) {
   world.configure("Ethernet1.10", 100);
   world.kernel.vlanDeviceIs("et1.10", "et1", 100);
   world.start();
   EXPECT_NE(world.device("et1.10"), "-");
   world.configDir->intfConfigDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10"), "-");
}

TEST_F(SubIntfRestartTest, SuchADeviceMakesWayForOneThatIsComplete) {
   world.configure("Ethernet1.10", 100);
   world.kernel.vlanDeviceIs("et1.10", "et1", 100);
   world.kernel.vlanDeviceIs("et1.12", "et1", 102);
   world.configure("Ethernet1.12", 102);
   world.subIntf("Ethernet1.11", 100);
   world.start();
   world.advance(2);
   EXPECT_EQ(world.device("et1.10"), "-");
   EXPECT_EQ(world.device("et1.11"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01");
   EXPECT_NE(world.device("et1.12"), "-");
}

TEST_F(SubIntfRestartTest, SuchADeviceInAnotherNamespaceGoesWithTheConfigurationToo) {
   world.namespaceIs("red");
   world.configure("Ethernet1.10", 100);
   world.statusLocalDir->intfStatusLocalIs("Ethernet1.10")->netNsNameIs("red");
   world.kernel.vlanDeviceIs("et1.10", "et1", 100, "red");
   world.start();
   EXPECT_NE(world.device("et1.10@red"), "-");
   world.configDir->intfConfigDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), "-");
}

// It waits for another namespace, so that nothing has been asked where its device is when its records go.
TEST_F(SubIntfRestartTest, ADeviceWhoseInterfaceWaitsForAnotherNamespaceGoesFromWhereItIs) {
   world.namespaceIs("red");
   world.moveTo("Ethernet1.10", "red");
   world.moveTo("Ethernet1.11", "red");
   world.subIntf("Ethernet1.10", 100);
   world.subIntf("Ethernet1.11", 101);
   world.start();
   world.stop();
   world.moveTo("Ethernet1.10", "blue");
   world.moveTo("Ethernet1.11", "blue");
   world.start();
   EXPECT_NE(world.device("et1.10@red"), "-");
   world.statusLocalDir->newIntfStatusLocal("Ethernet1.10");
   world.subIntfDel("Ethernet1.11");
   world.run();
   EXPECT_EQ(world.subIntfDevices(), "");
   EXPECT_FALSE(trace.has("Inappropriate ioctl"));
}

TEST_F(SubIntfRestartTest, AllRecordsOfAnIncompleteInterfaceGoWithItsDeviceInAnotherNamespace) {
   world.namespaceIs("red");
   world.configure("Ethernet1.10", 100);
   world.statusLocalDir->intfStatusLocalIs("Ethernet1.10")->netNsNameIs("red");
   world.kernel.vlanDeviceIs("et1.10", "et1", 100, "red");
   world.start();
   EXPECT_NE(world.device("et1.10@red"), "-");
   world.subIntfDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.device("et1.10@red"), "-");
}

// Two left over from an earlier run, one of them in a namespace where it no longer belongs.
TEST_F(SubIntfRestartTest, ADeviceInTheWrongNamespaceIsFoundThere) {
   world.namespaceIs("red");
   world.namespaceIs("blue");
   world.subIntf("Ethernet1.10", 100);
   world.kernel.vlanDeviceIs("et1.10", "et1", 100, "red");
   world.moveTo("Ethernet1.10", "blue");
   world.start();
   world.advance(3);
   EXPECT_EQ(world.subIntfDevices(),
             "et1.10@blue: vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01, egress 7:7, asked to be up\n");
}

// --- Standby.

class SubIntfStandbyTest : public SubIntfRestartTest {
  public:
   void SetUp() override {
      world.standbyMode = true;
      world.subIntf("Ethernet1.10", 100);
      // What the active agent writes.
      status().operStatusIs(OperStatus::intfOperUp);
      status().maxMtuIs(9214);
      world.start();
   }
   Interface::SubIntfStatus& status() { return *world.statusDir->intfStatus("Ethernet1.10"); }
};

TEST_F(SubIntfStandbyTest, TheDeviceFollowsTheStatusOfTheActiveAgent) {
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01");
   status().operStatusIs(OperStatus::intfOperDown);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, down, 02:00:00:00:00:01");
   status().operStatusIs(OperStatus::intfOperUp);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 1500, up, 02:00:00:00:00:01");
   world.configDir->intfConfig("Ethernet1.10")->mtuIs(9000);
   status().maxMtuIs(2000);
   world.run();
   EXPECT_EQ(world.device("et1.10"), "vlan 100 on et1, mtu 2000, up, 02:00:00:00:00:01");
}

TEST_F(SubIntfStandbyTest, SharedRecordsAreNotWritten) {
   world.portStatus("Ethernet1")->operStatusIs(OperStatus::intfOperDown);
   world.configDir->intfConfig("Ethernet1.10")->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   world.hwCapabilities->maxFrameSizeIs(4000);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up");
   EXPECT_EQ(world.changes("Ethernet1.10"), 0u);
   EXPECT_EQ(status().deviceName(), "");
   EXPECT_EQ(status().addr(), Sulvi::EthAddr());
   EXPECT_EQ(status().maxMtu(), 9214u);
   EXPECT_EQ(world.kosr->intfStatusDir()->intfStatus("Ethernet1.10"), nullptr);
   EXPECT_NE(world.kosr->intfStatusLocalDir()->intfStatusLocal("Ethernet1.10"), nullptr);
   world.subIntfDel("Ethernet1.10");
   world.run();
   EXPECT_EQ(world.kosr->intfStatusLocalDir()->intfStatusLocal("Ethernet1.10"), nullptr);
   EXPECT_EQ(world.subIntfDevices(), "");
}

TEST_F(SubIntfStandbyTest, OnTheWayToActiveAllIsEvaluatedAndWritten) {
   auto const before = world.device("et1.10", true);
   world.hwCapabilities->maxFrameSizeIs(4000);
   world.run();
   world.sm->standbyModeIs(false);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   EXPECT_EQ(world.changes("Ethernet1.10"), 0u);
   EXPECT_EQ(status().deviceName(), "et1.10");
   EXPECT_EQ(status().addr(), world.addr(world.bridgeAddr));
   EXPECT_EQ(status().maxMtu(), 3978u);
   EXPECT_TRUE(world.isMirrored("Ethernet1.10"));
   EXPECT_EQ(world.device("et1.10", true), before);
}

TEST_F(SubIntfStandbyTest, OnTheWayToStandbyNothingHappens) {
   world.sm->standbyModeIs(false);
   world.run();
   world.kernel.countsReset();
   world.sm->standbyModeIs(true);
   world.run();
   EXPECT_EQ(world.kernel.count("ioctl"), 0);
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
   // From now on its own view of the parent doesn't count.
   world.portStatus("Ethernet1")->operStatusIs(OperStatus::intfOperDown);
   world.run();
   EXPECT_EQ(world.state("Ethernet1.10"), "up, in hardware");
}

} // namespace
} // namespace Vorn
