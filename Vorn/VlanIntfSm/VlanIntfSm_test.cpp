#include "Vorn/VlanIntfSm/VlanIntfSm.h"

#include "Kem/Exception.h"
#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/VlanIntfSm/TestVlanIntfs.h"

namespace Vorn {
namespace {

using Interface::IntfOperStatus;

class VlanIntfSmTest : public testing::Test {
  public:
   Kem::TestTrace trace{"Vorn*/0-9"};
   TestVlanIntfs world;

   void TearDown() override {
      if (HasFailure())
         for (auto const& line : trace.take())
            std::cout << "   " << line << "\n";
   }
   Kem::Ptr<Bridging::VlanConfig> vlan(unsigned vlanId) {
      return world.config->vlanConfigIs(static_cast<uint16_t>(vlanId), false);
   }
};

TEST_F(VlanIntfSmTest, aConfiguredInterfaceBecomesADeviceOnTheFabric) {
   world.vlanIntf(10)->mtuIs(1400);
   world.start();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1400, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(10)->deviceName(), "vlan10");
   EXPECT_EQ(world.status(10)->addr(), Sulvi::EthAddr(std::string_view("02:00:00:00:00:01")));
   EXPECT_EQ(world.status(10)->maxMtu(), 9214u);
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
   EXPECT_TRUE(world.sm->vlanIntfConfig(world.id(10))->operational());
   EXPECT_EQ(world.kernel.findDevice("vlan10")->egress, (std::map<uint32_t, uint32_t>{{7, 7}}));
   EXPECT_TRUE(world.sm->retryIntfCollection().empty());
   EXPECT_EQ(world.problem(10), "");
}

TEST_F(VlanIntfSmTest, theSecondStatusRecordStartsTheEvaluation) {
   world.configure(10)->sourceIs("cli");
   world.start();
   EXPECT_TRUE(trace.has("VlanIntfSm: no visd or visld yet for Vlan10 source cli"));
   world.statusDir->intfStatusIs(world.id(10));
   world.run();
   EXPECT_EQ(world.devices(), "");
   world.statusLocalDir->intfStatusLocalIs(world.id(10));
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, withoutABridgeAddressTheDeviceStaysDown) {
   world.config->bridgeMacAddrIs({});
   world.vlanIntf(10);
   world.start();
   EXPECT_NE(world.devices().find("vlan10: vlan 10 on fabric, mtu 9214, down"), std::string::npos)
       << world.devices();
   EXPECT_FALSE(world.sm->vlanIntfConfig(world.id(10))->operational());
   EXPECT_TRUE(trace.has("Vlan not ready, fabricUp 1, bridgeMac 00:00:00:00:00:00"));
   world.enabledIs(10, true);
   world.run();
   EXPECT_NE(world.devices().find("down"), std::string::npos);
   world.config->bridgeMacAddrIs(Sulvi::EthAddr(std::string_view("02:00:00:00:00:02")));
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:02\n");
}

TEST_F(VlanIntfSmTest, whatLeavesTheConfigurationLeavesTheKernel) {
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.start();
   world.vlanIntfDel(10);
   world.run();
   EXPECT_EQ(world.devices(), "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(10)->intfConfig(), nullptr);
   EXPECT_EQ(world.sm->intf().size(), 1u);
}

TEST_F(VlanIntfSmTest, aShutDownInterfaceIsDownAndUpAgain) {
   world.vlanIntf(10);
   world.start();
   world.enabledIs(10, false);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:01\n");
   world.enabledIs(10, true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   world.configDir->intfConfig(world.id(10))->enabledIs(false); // not by the operator
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:01\n");
}

// --- The processor's port.

TEST_F(VlanIntfSmTest, theProcessorsPortFollowsTheInterface) {
   vlan(10);
   world.vlanIntf(10);
   world.start();
   EXPECT_TRUE(world.hasCpu(10));
   world.enabledIs(10, false);
   world.run();
   EXPECT_FALSE(world.hasCpu(10));
   world.enabledIs(10, true);
   world.run();
   EXPECT_TRUE(world.hasCpu(10));
   world.vlanIntfDel(10);
   world.run();
   EXPECT_FALSE(world.hasCpu(10));
}

TEST_F(VlanIntfSmTest, theProcessorsPortNeedsNoStatusRecordsAndNoKernel) {
   vlan(10);
   world.configure(10);
   world.start();
   EXPECT_TRUE(world.hasCpu(10));
}

TEST_F(VlanIntfSmTest, inStandbyTheProcessorsPortIsNotTouched) {
   vlan(10)->intfIs("Cpu", {.tagged = true});
   vlan(11);
   world.standbyMode = true;
   world.vlanIntf(10);
   world.vlanIntf(11);
   world.enabledIs(10, false);
   world.start();
   EXPECT_TRUE(world.hasCpu(10));
   EXPECT_FALSE(world.hasCpu(11));
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:01\n"
                              "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(11)->deviceName(), "");
   EXPECT_EQ(world.status(11)->addr(), Sulvi::EthAddr());
   EXPECT_EQ(world.status(11)->maxMtu(), 0u);
   EXPECT_EQ(world.status(11)->intfConfig(), nullptr);

   world.sm->standbyModeIs(false);
   world.run();
   EXPECT_TRUE(trace.has("Transitioning to active mode: doing handleInitialized"));
   EXPECT_FALSE(world.hasCpu(10));
   EXPECT_TRUE(world.hasCpu(11));
   EXPECT_EQ(world.status(11)->deviceName(), "vlan11");
   EXPECT_EQ(world.status(11)->maxMtu(), 9214u);
}

TEST_F(VlanIntfSmTest, aRoutedPortsVlanKeepsItsProcessorsPort) {
   world.config->vlanConfigIs(1006, true)->intfIs("Cpu", {.tagged = true});
   world.vlanIntf(1006);
   world.start();
   world.vlanIntfDel(1006);
   world.run();
   EXPECT_TRUE(world.hasCpu(1006));
}

TEST_F(VlanIntfSmTest, theDeviceOfASecondaryVlanIsHeldDown) {
   world.vlanIntf(20);
   world.start();
   world.privateVlans->secondaryVlanIs(20, true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan20: vlan 20 on fabric, mtu 1500, down, 02:00:00:00:00:01\n");
   world.privateVlans->secondaryVlanDel(20);
   world.run();
   EXPECT_EQ(world.devices(), "vlan20: vlan 20 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

// --- Address and MTU.

TEST_F(VlanIntfSmTest, aPublishedAddressWinsOverTheConfiguredAndThatOverTheBridges) {
   auto const config = world.vlanIntf(10);
   world.vlanIntf(11);
   auto const shared = world.publishAddr("mlag", "02:00:00:00:00:99");
   world.start();
   config->addrIs(Sulvi::EthAddr(std::string_view("02:00:00:00:00:10")));
   world.run();
   EXPECT_NE(world.devices().find("vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:10"),
             std::string::npos);
   shared->vlanIntfIs(world.id(10), true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:99\n"
                              "vlan11: vlan 11 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.status(10)->addr(), Sulvi::EthAddr(std::string_view("02:00:00:00:00:99")));
   shared->macAddrIs(Sulvi::EthAddr(std::string_view("02:00:00:00:00:98")));
   world.run();
   EXPECT_NE(world.devices().find("02:00:00:00:00:98"), std::string::npos);
   world.interfaceInputVlan->entityPtrDel("mlag");
   world.run();
   EXPECT_NE(world.devices().find("vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:10"),
             std::string::npos);
}

TEST_F(VlanIntfSmTest, aSecondPublishedAddressEndsTheProcess) {
   world.vlanIntf(10);
   world.publishAddr("one", "02:00:00:00:00:98");
   world.publishAddr("two", "02:00:00:00:00:99");
   EXPECT_DEATH(world.start(), "inputVlanIntfAddrs\\(\\) <= 1");
}

TEST_F(VlanIntfSmTest, aMulticastAddressIsNoAddressOfADevice) {
   world.vlanIntf(10)->addrIs(Sulvi::EthAddr(std::string_view("01:00:5e:00:00:01")));
   world.start();
   EXPECT_EQ(world.problem(10), "a multicast address can't be the address of a device: 01:00:5e:00:00:01");
   EXPECT_FALSE(world.isRetried(10));
   world.configDir->intfConfig(world.id(10))->addrIs({});
   world.run();
   EXPECT_EQ(world.problem(10), "");
}

TEST_F(VlanIntfSmTest, theLargestFrameBoundsTheMtu) {
   world.vlanIntf(10)->mtuIs(9000);
   world.start();
   EXPECT_NE(world.devices().find("mtu 9000"), std::string::npos) << world.devices();
   world.hwCapabilities->maxFrameSizeIs(2022);
   world.run();
   EXPECT_EQ(world.status(10)->maxMtu(), 2000u);
   EXPECT_NE(world.devices().find("mtu 2000"), std::string::npos) << world.devices();
   EXPECT_TRUE(trace.has("() maxMtuSize: 2000"));
}

// --- The fabric device.

TEST_F(VlanIntfSmTest, aFabricThatComesUpRaisesThem) {
   world.kernel.upIs("fabric", false);
   world.vlanIntf(10);
   world.start();
   EXPECT_TRUE(trace.has("Fabric ifUp 0"));
   EXPECT_NE(world.devices().find("down"), std::string::npos);
   world.kernel.upIs("fabric", true);
   world.run();
   EXPECT_TRUE(trace.has("Fabric ifUp 1"));
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

// The kernel raises all VLAN devices with their base.
TEST_F(VlanIntfSmTest, aFabricThatGoesDownAndUpRaisesNoneThatIsShutDown) {
   world.vlanIntf(10);
   world.enabledIs(10, false);
   world.start();
   world.kernel.upIs("fabric", false);
   world.run();
   world.kernel.upIs("fabric", true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, aFabricThatIsUpAgainBeforeItIsSeenRaisesNoneThatIsShutDown) {
   world.vlanIntf(10);
   world.enabledIs(10, false);
   world.start();
   world.kernel.upIs("fabric", false);
   world.kernel.upIs("fabric", true); // and all that is on it
   world.run();
   EXPECT_FALSE(world.kernel.findDevice("vlan10")->isUp);
}

TEST_F(VlanIntfSmTest, theStateOfADeviceSurvivesThatItIsSwitchedOn) {
   constexpr uint8_t dormant = 5; // IF_OPER_DORMANT
   world.vlanIntf(10);
   world.status(10)->operStatusIs(IntfOperStatus::intfOperLowerLayerDown);
   world.start();
   EXPECT_TRUE(world.kernel.findDevice("vlan10")->isUp);
   EXPECT_EQ(world.kernel.findDevice("vlan10")->operState, dormant);
   world.enabledIs(10, false);
   world.run();
   world.enabledIs(10, true);
   world.run();
   EXPECT_EQ(world.kernel.findDevice("vlan10")->operState, dormant);
}

// The interface manager takes all three away at once.
TEST_F(VlanIntfSmTest, whatIsRemovedWithItsStatusRecordsLeavesNoDevice) {
   world.namespaceIs("red");
   for (unsigned const vlanId : {10u, 11u})
      world.vlanIntf(vlanId);
   world.moveTo(11, "red");
   world.start();
   EXPECT_NE(world.devices().find("vlan11@red"), std::string::npos);
   for (unsigned const vlanId : {10u, 11u}) {
      world.vlanIntfDel(vlanId);
      world.statusDir->intfStatusDel(world.id(vlanId));
      world.statusLocalDir->intfStatusLocalDel(world.id(vlanId));
   }
   world.run();
   EXPECT_EQ(world.devices(), "");
   EXPECT_EQ(world.sm->nsSocketFd("red"), 0);
}

TEST_F(VlanIntfSmTest, aFabricThatIsMadeAgainGetsItsDevicesBack) {
   world.vlanIntf(10);
   world.start();
   world.kernel.deviceDel("fabric");
   world.run();
   EXPECT_TRUE(trace.has("fabric: Unable to find fabric device in kernelIntfCollection"));
   EXPECT_EQ(world.devices(), "");
   EXPECT_EQ(world.problem(10), "base device fabric doesn't exist");
   EXPECT_FALSE(world.isRetried(10));
   world.kernel.deviceIs("fabric").mtu = 9214;
   world.kernel.upIs("fabric", true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
   EXPECT_EQ(world.problem(10), "");
}

TEST_F(VlanIntfSmTest, aFabricThatIsMadeAgainAtOnceIsNoticed) {
   world.vlanIntf(10);
   world.start();
   world.kernel.deviceDel("fabric");
   world.kernel.deviceIs("fabric").mtu = 9214;
   world.kernel.upIs("fabric", true);
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

TEST_F(VlanIntfSmTest, aDeviceThatSomebodyRemovedIsMadeAgain) {
   world.vlanIntf(10);
   world.start();
   world.kernel.deviceDel("vlan10");
   world.run();
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1500, up, 02:00:00:00:00:01\n");
}

// --- Static and dynamic.

TEST_F(VlanIntfSmTest, aStaticConfigurationTakesTheInterfaceFromADynamicOne) {
   world.dynamic(10)->mtuIs(1300);
   world.makeStatus(10);
   world.start();
   EXPECT_NE(world.devices().find("mtu 1300"), std::string::npos);
   EXPECT_FALSE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   trace.take();
   world.configure(10)->mtuIs(1400);
   world.run();
   EXPECT_TRUE(trace.has("removing prev config Vlan10from source overlay"));
   EXPECT_NE(world.devices().find("mtu 1400, up"), std::string::npos) << world.devices();
   EXPECT_TRUE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   EXPECT_EQ(world.status(10)->intfConfig(), world.configDir->intfConfig(world.id(10)));
   world.vlanIntfDel(10);
   world.run();
   EXPECT_FALSE(world.dynVlanIntfList->intfConfigError(world.id(10)));
   EXPECT_NE(world.devices().find("mtu 1300, up"), std::string::npos);
}

TEST_F(VlanIntfSmTest, namesThatAreNoVlanInterfacesAreNamedAndLeftOut) {
   for (char const* name : {"Vlan0", "Vlan4095", "Vlan10x", "Ethernet1"}) {
      world.configDir->intfConfigIs(name);
      world.statusDir->intfStatusIs(name);
      world.statusLocalDir->intfStatusLocalIs(name);
   }
   world.start();
   EXPECT_EQ(world.devices(), "");
   EXPECT_EQ(world.agentStatus->deviceProblem().size(), 4u);
   world.configDir->intfConfigDelAll();
   world.run();
   EXPECT_EQ(world.agentStatus->deviceProblem().size(), 0u);
}

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

class VlanIntfConfigCodefTest : public VlanIntfSmTest {
  public:
   VlanIntfConfigCodefTest() { world.agent.log = &log.check; }
   ~VlanIntfConfigCodefTest() override { world.stop(); }
   TestAttrLog log;
};

TEST_F(VlanIntfConfigCodefTest, aFullLogStopsItAndItGoesOnWhereItStopped) {
   for (unsigned vlanId : {10, 11, 12})
      world.vlanIntf(vlanId);
   log.roomFor(1);
   world.openKernel();
   world.makeMachine();
   Kem::activityManager()->runTurn();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 2u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), world.id(11));
   EXPECT_TRUE(trace.has("Pausing backlog processing at Vlan11 - attr log full"));
   log.drain();
   world.advance(0.01);
   EXPECT_EQ(world.sm->vlanIntfConfig().size(), 3u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 0u);
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), Sulvi::IntfId());
}

TEST_F(VlanIntfConfigCodefTest, aNewChangeStartsTheWalkAtTheBeginning) {
   for (unsigned vlanId : {10, 11, 12})
      world.vlanIntf(vlanId);
   log.roomFor(1);
   world.openKernel();
   world.makeMachine();
   Kem::activityManager()->runTurn();
   world.configure(13);
   Kem::activityManager()->deliverQueued();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->bookmark(), Sulvi::IntfId());
   EXPECT_TRUE(trace.has("Adding intfId: Vlan13 to backlog"));
   log.drain();
   world.run();
}

TEST_F(VlanIntfConfigCodefTest, whatIsNowhereLeavesTheBacklog) {
   world.start();
   log.fill();
   world.configure(10);
   world.run();
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 1u);
   world.vlanIntfDel(10);
   Kem::activityManager()->deliverQueued();
   EXPECT_TRUE(trace.has("Deleting intfId: Vlan10 from backlog"));
   EXPECT_EQ(world.sm->vlanIntfConfigCodef()->backlogSize(), 0u);
   log.drain();
}

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

// --- What must not be.

TEST_F(VlanIntfSmTest, aNameThatIsNoVlanInterfaceNeverReachesTheMachine) {
   world.start();
   auto const pass = [&](char const* name) {
      world.statusDir->intfStatusIs(name);
      world.statusLocalDir->intfStatusLocalIs(name);
      world.sm->vlanIntfConfigAfterCodefIs(Interface::VlanIntfConfig::make(name));
      world.sm->vlanIntfConfig(name)->handleInitialized();
   };
   EXPECT_DEATH(pass("Ethernet1"), "Sulvi::VlanIntfId::isVlanIntfId\\(intfId\\(\\)\\)");
   EXPECT_DEATH(pass("Vlan4095"), "num < 4095");
   try {
      pass("Vlan0");
      ADD_FAILURE() << "raises";
   } catch (Kem::RangeException const& exception) {
      EXPECT_STREQ(exception.what(), "VlanId::value < 1 or > 4094 not allowed");
   }
}

TEST_F(VlanIntfSmTest, whatItIsMadeOfIsAsserted) {
   world.openKernel();
   VlanIntfSmInputs in;
   world.commonInputs(in, nullptr);
   auto const fill = [&] {
      in.kernelIntfCollection = world.kernelIntfCollection;
      in.vlanIntfStatusDir = world.statusDir;
      in.vlanIntfStatusLocalDir = world.statusLocalDir;
      in.vlanIntfConfigDir = world.configDir;
      in.dynVlanIntfList = world.dynVlanIntfList;
      in.privateVlanLibState = world.privateVlans;
   };
   fill();
   EXPECT_DEATH(vlanIntfSmFactory(in), "vornAgent\\(\\)");
   in.vornAgent = &world.agent;
   EXPECT_DEATH(vlanIntfSmFactory(in), "vornAgent\\(\\)->dynVlanIntfSm\\(\\)");
   world.agent.dynVlanIntfSm_ = Kem::makePtr<DynVlanIntfReactor>(
       world.dynVlanIntfDir, world.dynVlanIntfErrorDir, world.dynVlanIntfList, false);
   in.socketFd = -1;
   EXPECT_DEATH(vlanIntfSmFactory(in), "socketFd\\(\\) >= 0");
   EXPECT_DEATH(static_cast<void>(Kem::makePtr<VlanIntfSm>(in)->intfPresentInConfig("vlan10")),
                "initialized\\(\\)");
   world.agent.dynVlanIntfSm_ = nullptr;
   in = {};
}

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

// --- What an operator reads in the trace.

TEST_F(VlanIntfSmTest, theStepsAreTracedInTheirWords) {
   world.kernel.vlanDeviceIs("vlan5", "fabric", 5);
   world.vlanIntf(10)->sourceIs("cli");
   world.start();
   EXPECT_TRUE(trace.has("Deleting unneeded kernel vlan network devices for NS default FD: " +
                         std::to_string(world.socketFd)));
   EXPECT_TRUE(trace.has("Found device: vlan5"));
   EXPECT_TRUE(trace.has("vlan5 did not find device in intfConfig"));
   EXPECT_TRUE(trace.has("Finished deleting unneeded kernel devices"));
   EXPECT_TRUE(trace.has("Adding config Vlan10from sourcecli"));
   EXPECT_TRUE(trace.has("Setting mac addr of Vlan10 to 02:00:00:00:00:01"));
   EXPECT_TRUE(trace.has("Setting vlanIntfStatus addr for Vlan10 to 02:00:00:00:00:01"));
   EXPECT_TRUE(trace.has(" ns in IntfStatus is: \"default\" fd: " + std::to_string(world.socketFd)) ||
               trace.has(" ns in IntfStatus is: \"\" fd: " + std::to_string(world.socketFd)));
   trace.take();
   world.kernel.fail("SIOCSIFMTU", EBUSY);
   world.configDir->intfConfig(world.id(10))->mtuIs(1400);
   world.run();
   EXPECT_TRUE(trace.has("Error setting the link mtu for interface Vlan10"));
   EXPECT_TRUE(world.isRetried(10));
   world.advance(2.0);
   EXPECT_EQ(world.devices(), "vlan10: vlan 10 on fabric, mtu 1400, up, 02:00:00:00:00:01\n");
   world.vlanIntfDel(10);
   world.run();
   EXPECT_TRUE(trace.has("removing config for intf Vlan10"));
}

} // namespace
} // namespace Vorn
