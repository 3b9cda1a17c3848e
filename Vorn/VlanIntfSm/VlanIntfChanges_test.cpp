// Records, devices and namespaces that come, go and are replaced, several in one turn and while the agent is away: the
// outcome is that of a start on what there is.
#include "Vorn/VlanIntfSm/VlanIntfSmTest.h"

namespace Vorn {
namespace {

// --- Restart.

TEST_F(VlanIntfSmTest, aRestartKeepsTheDevicesAsTheyAre) {
   world.namespaceIs("red");
   for (unsigned vlanId = 10; vlanId < 20; ++vlanId)
      world.vlanIntf(vlanId);
   world.moveTo(15, "red");
   world.start();
   auto const before = world.devices(true);
   world.kernel.countsReset();
   world.restart();
   EXPECT_EQ(world.devices(true), before);
   EXPECT_EQ(world.kernel.count("DEL_VLAN_CMD"), 0);
   EXPECT_EQ(world.kernel.count("SIOCSIFFLAGS"), 0);
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   EXPECT_EQ(world.kernel.openDescriptors(), 3); // the agent's two, and one in the namespace
}

TEST_F(VlanIntfSmTest, whatChangedWhileItWasAwayIsMadeUpFor) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.vlanIntf(12);
   world.moveTo(12, "red");
   world.start();
   world.stop();
   world.vlanIntfDel(10);
   world.moveTo(11, "red");
   world.moveTo(12, "");
   world.vlanIntf(13);
   world.start();
   EXPECT_EQ(world.devices(), "vlan12: vlan 12 on fabric, mtu 1500, up, 02:00:00:00:00:01\n"
                              "vlan13: vlan 13 on fabric, mtu 1500, up, 02:00:00:00:00:01\n"
                              "vlan11@red: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.netNsOf(11), "red");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   world.moveTo(11, "");
   world.run();
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 0);
   EXPECT_EQ(world.sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfSmTest, devicesThatNobodyWantsGoAtTheStartInEveryNamespaceAndNothingElseDoes) {
   world.namespaceIs("red");
   world.namespaceIs("blue");
   world.kernel.vlanDeviceIs("vlan5", "fabric", 5);
   world.kernel.vlanDeviceIs("vlan6", "fabric", 6, "red");
   world.kernel.vlanDeviceIs("vlan7", "fabric", 7, "blue");
   world.kernel.vlanDeviceIs("vlanfoo", "fabric", 8);
   world.kernel.vlanDeviceIs("vlan007", "fabric", 9);
   world.kernel.deviceIs("vlan9", "bridge");
   world.kernel.deviceIs("eth0");
   world.vlanIntf(7);
   world.moveTo(7, "red");
   world.start();
   EXPECT_EQ(world.kernel.findDevice("vlan5"), nullptr);
   EXPECT_EQ(world.kernel.findDevice("vlan6", "red"), nullptr);
   EXPECT_EQ(world.kernel.findDevice("vlan7", "blue"), nullptr);
   EXPECT_NE(world.kernel.findDevice("vlan7", "red"), nullptr);
   for (char const* name : {"vlanfoo", "vlan007", "vlan9", "eth0"})
      EXPECT_NE(world.kernel.findDevice(name), nullptr) << name;
   EXPECT_TRUE(trace.has("deleted unneeded kernel device: vlan5"));
}

// --- Namespaces.

TEST_F(VlanIntfSmTest, anInterfaceConfiguredIntoANamespaceWaitsForItAndMovesThere) {
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   EXPECT_EQ(world.devices(), "");
   EXPECT_FALSE(world.isRetried(10));
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@red: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.netNsOf(10), "red");
}

TEST_F(VlanIntfSmTest, anInterfaceThatNeverMovedMovesLater) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.start();
   world.moveTo(10, "red");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@red: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   world.nsConfigDir->intfNamespaceConfigDel(world.id(10));
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, aNamespaceThatIsMadeAgainHasItsDevicesAgain) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.namespaceDel("red");
   world.run();
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@red: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
}

// --- The deferred stage.

TEST_F(VlanIntfSmTest, aConfigurationThatIsMadeAgainIsFollowed) {
   world.vlanIntf(10);
   world.start();
   world.vlanIntfDel(10);
   world.configure(10)->mtuIs(1300);
   world.run();
   EXPECT_TRUE(trace.has("removing prev config Vlan10from source "));
   EXPECT_NE(world.devices().find("mtu 1300, up"), std::string::npos) << world.devices();
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
}

TEST_F(VlanIntfSmTest, statusRecordsThatAreMadeAgainAreFilledAgain) {
   world.vlanIntf(10);
   world.start();
   auto const before = world.devices(true);
   world.statusDir->intfStatusDel(world.id(10));
   world.makeStatus(10); // within one turn
   world.run();
   EXPECT_EQ(world.devices(true), before);
   EXPECT_EQ(world.status(10)->deviceName(), "vlan10");
   EXPECT_EQ(world.status(10)->maxMtu(), 9214u);
   world.statusDir->intfStatusDel(world.id(10));
   world.run();
   EXPECT_FALSE(world.sm->vlanIntfConfig(world.id(10))->initialized());
   EXPECT_EQ(world.devices(), "");
   world.makeStatus(10);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(10)->deviceName(), "vlan10");
}

// --- Several changes, and records that come late.

TEST_F(VlanIntfSmTest, aPublishedAddressThatIsReplacedLeavesTheInterfacesOfTheOld) {
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.publishAddr("mlag", "02:00:00:00:00:98")->vlanIntfIs(world.id(10), true);
   world.start();
   world.interfaceInputVlan->entityPtrDel("mlag");
   world.publishAddr("mlag", "02:00:00:00:00:99")->vlanIntfIs(world.id(11), true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n"
                              "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:99\n");
}

TEST_F(VlanIntfSmTest, aPublisherThatTakesOverInOneTurnIsNoSecondOne) {
   world.vlanIntf(10);
   world.publishAddr("one", "02:00:00:00:00:98")->vlanIntfIs(world.id(10), true);
   world.start();
   world.publishAddr("two", "02:00:00:00:00:99")->vlanIntfIs(world.id(10), true);
   world.interfaceInputVlan->entityPtrDel("one");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:99\n");
}

TEST_F(VlanIntfSmTest, aFabricThatIsMadeAgainAtOnceIsNoticedInNamespacesToo) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.kernel.deviceDel("fabric");
   EXPECT_EQ(world.devices(), "");
   world.kernel.deviceIs("fabric").mtu = 9214;
   world.kernel.upIs("fabric", true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@red: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, aFabricThatIsGoneIsAProblemInNamespacesToo) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.kernel.deviceDel("fabric");
   world.run();
   EXPECT_EQ(world.problem(10), "base device fabric doesn't exist");
}

TEST_F(VlanIntfSmTest, aNamespaceThatLosesItsNameIsAProblemOfWhatIsInIt) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.namespaceDel("red");
   world.run();
   EXPECT_EQ(world.problem(10), "namespace red doesn't exist");
}

TEST_F(VlanIntfSmTest, anInterfaceThatWaitsForItsRecordsHasNoProblem) {
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   EXPECT_EQ(world.problem(10), "namespace red doesn't exist");
   world.statusDel(10);
   world.run();
   EXPECT_EQ(world.problem(10), "");
}

TEST_F(VlanIntfSmTest, whatIsWrongWithADeviceIsNotSaidOfOneThatIsGone) {
   world.vlanIntf(10)->mtuIs(67);
   world.configDir->intfConfig(world.id(10))->addrIs(world.addr("01:00:5e:00:00:01"));
   world.start();
   EXPECT_NE(world.problem(10).find("multicast"), std::string::npos);
   EXPECT_NE(world.problem(10).find("MTU 67"), std::string::npos);
   world.kernel.deviceDel("fabric");
   world.run();
   EXPECT_EQ(world.problem(10), "base device fabric doesn't exist");
}

TEST_F(VlanIntfSmTest, anAddressForADeviceThatCantBeReachedWaits) {
   world.namespaceIs("red");
   auto const config = world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.moveTo(10, "blue");
   world.run();
   EXPECT_EQ(world.problem(10), "namespace blue doesn't exist");
   config->addrIs(world.addr("02:00:00:00:00:10"));
   world.run();
   EXPECT_EQ(world.problem(10), "namespace blue doesn't exist");
   EXPECT_FALSE(world.isRetried(10));
   world.namespaceIs("blue");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@blue: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:10\n");
}

TEST_F(VlanIntfSmTest, whatLeavesWithItsRecordsLeavesTheKernel) {
   world.namespaceIs("red");
   for (unsigned const vlanId : {10, 11, 12}) {
      world.vlanIntf(vlanId);
      if (vlanId != 10)
         world.moveTo(vlanId, "red");
   }
   world.start();
   for (unsigned const vlanId : {10, 11}) { // as the interface manager takes an interface away
      world.vlanIntfDel(vlanId);
      world.statusDel(vlanId);
   }
   world.run();
   EXPECT_EQ(world.devices(), "vlan12@red: vlan 12 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   world.vlanIntfDel(12);
   world.statusDel(12);
   world.run();
   EXPECT_EQ(world.devices(), "");
   EXPECT_EQ(world.sm->nsSocketFd("red"), 0);
   world.vlanIntf(12);
   world.nsConfigDir->intfNamespaceConfigDelAll();
   world.run();
   EXPECT_EQ(world.devices(), "vlan12: vlan 12 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

// As a start on these records removes it there.
TEST_F(VlanIntfSmTest, aDeviceThatTheNewRecordDoesntKnowIsRemovedWhereItIs) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.statusDel(10);
   world.run();
   world.nsConfigDir->intfNamespaceConfigDelAll();
   world.run();
   world.makeStatus(10);
   world.run();
   world.advance(2.0);
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.problem(10), "");
   EXPECT_EQ(world.sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfSmTest, aDeviceThatCantBeRemovedForAMomentIsRemovedLater) {
   world.namespaceIs("red");
   for (unsigned const vlanId : {10, 11, 12})
      world.vlanIntf(vlanId);
   world.moveTo(11, "red");
   world.moveTo(12, "red");
   world.start();
   world.kernel.fail("DEL_VLAN_CMD", ENOMEM, 1, true);
   world.vlanIntfDel(10);
   world.vlanIntfDel(11);
   world.moveTo(12, "");
   world.run();
   EXPECT_NE(world.kernel.findDevice("vlan10"), nullptr);
   world.advance(3.0);
   world.kernel.faultsEnd();
   world.advance(3.0);
   EXPECT_EQ(world.devices(), "vlan12: vlan 12 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.problem(12), "");
   EXPECT_EQ(world.sm->retryTime(), Kem::never);
   EXPECT_EQ(world.sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfSmTest, aStaleDeviceThatCantBeRemovedForAMomentIsRemovedLater) {
   world.kernel.deviceIs("port");
   world.kernel.vlanDeviceIs("vlan5", "fabric", 5);
   world.kernel.vlanDeviceIs("vlan6", "port", 6);
   world.kernel.fail("DEL_VLAN_CMD", ENOMEM, 1);
   world.start();
   world.advance(3.0);
   EXPECT_EQ(world.kernel.findDevice("vlan5"), nullptr);
   EXPECT_NE(world.kernel.findDevice("vlan6"), nullptr);
   EXPECT_EQ(world.sm->retryTime(), Kem::never);
}

TEST_F(VlanIntfSmTest, aDeviceThatCantBeLookedAtIsNotRemovedUnseen) {
   world.kernel.deviceIs("port");
   world.kernel.vlanDeviceIs("vlan6", "port", 6);
   world.kernel.vlanDeviceIs("vlan7", "fabric", 7);
   world.kernel.fail("GET_VLAN_VID_CMD", ENOMEM, 1, true);
   world.start();
   EXPECT_NE(world.kernel.findDevice("vlan6"), nullptr);
   world.kernel.faultsEnd();
   world.advance(3.0);
   EXPECT_NE(world.kernel.findDevice("vlan6"), nullptr);
   EXPECT_EQ(world.kernel.findDevice("vlan7"), nullptr);
   EXPECT_EQ(world.sm->retryTime(), Kem::never);
}

TEST_F(VlanIntfSmTest, aNamespaceThatComesIsLookedThroughAsAtTheStart) {
   world.start();
   world.kernel.namespaceIs("red");
   world.kernel.vlanDeviceIs("vlan5", "fabric", 5, "red");
   world.namespaceIs("red");
   world.run();
   EXPECT_EQ(world.kernel.findDevice("vlan5", "red"), nullptr);
   EXPECT_EQ(world.kernel.openDescriptors(), 2) << "nobody uses it";
}

TEST_F(VlanIntfSmTest, namespacesThatComeAndGoLeaveNoDescriptor) {
   world.vlanIntf(10);
   world.start();
   for (int i = 0; i < 100; ++i) {
      auto const name = "ns" + std::to_string(i);
      world.namespaceIs(name.c_str());
      world.moveTo(10, name.c_str());
      world.run();
      EXPECT_EQ(world.netNsOf(10), name);
      world.namespaceDel(name.c_str());
      world.run();
   }
   world.moveTo(10, "");
   world.run();
   world.advance(3.0);
   EXPECT_EQ(world.kernel.openDescriptors(), 2);
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, aDeviceThatSomebodyRemovedAndMadeAtOnceIsTakenOver) {
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.start();
   world.kernel.countsReset();
   world.kernel.deviceDel("vlan10");
   world.kernel.vlanDeviceIs("vlan10", "fabric", 10);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n"
                              "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.kernel.count("RTM_NEWLINK"), 1) << "of one interface only";
   world.restart();
   world.kernel.deviceDel("vlan10");
   world.kernel.vlanDeviceIs("vlan10", "fabric", 10);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n"
                              "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, itsOwnDevicesAreNotTakenForThoseOfOthers) {
   world.vlanIntf(10);
   world.start();
   world.run();
   EXPECT_EQ(world.kernel.count("RTM_NEWLINK"), 1);
}

TEST_F(VlanIntfSmTest, aStatusWithoutAConfigurationRefersToNone) {
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.start();
   world.statusLocalDir->intfStatusLocalDel(world.id(10));
   world.run();
   world.vlanIntfDel(10);
   world.run();
   EXPECT_EQ(world.status(10)->intfConfig(), nullptr);
   world.stop();
   world.vlanIntfDel(11);
   world.start();
   EXPECT_EQ(world.status(11)->intfConfig(), nullptr);
}

TEST_F(VlanIntfSmTest, aBridgeAddressThatIsTakenAwayLeavesNoneOperational) {
   world.vlanIntf(10);
   world.start();
   world.config->bridgeMacAddrIs({});
   world.run();
   EXPECT_FALSE(world.sm->vlanIntfConfig(world.id(10))->operational());
}

TEST_F(VlanIntfSmTest, recordsThatAreReplacedInOneTurnAreFilledAgain) {
   world.namespaceIs("red");
   world.vlanIntf(10);
   world.moveTo(10, "red");
   world.start();
   world.statusDel(10);
   world.makeStatus(10);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10@red: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(10)->deviceName(), "vlan10");
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
   EXPECT_EQ(world.netNsOf(10), "red");
   EXPECT_EQ(world.sm->nsIntfRefcount("red"), 1);
   EXPECT_EQ(world.kernel.openDescriptors(), 3);
   EXPECT_TRUE(world.kosr->intfStatusDir()->intfStatus(world.id(10)) == world.status(10));
}

TEST_F(VlanIntfSmTest, whatIsOnASwitchoverTheSameAsAfterAStart) {
   world.standbyMode = true;
   vlan(10);
   world.vlanIntf(10);
   world.start();
   auto const before = world.devices(true);
   world.kernel.countsReset();
   world.sm->standbyModeIs(false);
   world.run();
   EXPECT_EQ(world.devices(true), before);
   EXPECT_EQ(world.kernel.count("SIOCSIFFLAGS") + world.kernel.count("SIOCSIFHWADDR") +
                 world.kernel.count("DEL_VLAN_CMD"),
             0);
   EXPECT_EQ(world.status(10)->addr(), world.addr(world.bridgeAddr));
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
}

TEST_F(VlanIntfSmTest, twoSourcesOfOnePriorityGiveOneInterface) {
   world.dynamic(10, "one")->mtuIs(1301);
   world.dynamic(10, "two")->mtuIs(1302);
   world.makeStatus(10);
   world.start();
   auto const first = world.devices();
   EXPECT_EQ(first, "vlan10: vlan 10 on fabric, mtu 1302, up, 02:00:00:00:00:01\n");
   world.dynVlanIntfDir->entityPtrDel("two");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1301, up, 02:00:00:00:00:01\n");
   world.dynVlanIntfDir->entityPtrDel("one");
   world.statusDel(10);
   world.run();
   EXPECT_EQ(world.devices(), "");
}

} // namespace
} // namespace Vorn
