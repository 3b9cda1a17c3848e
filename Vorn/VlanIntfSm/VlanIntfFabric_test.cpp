// The fabric device comes, goes, changes or is made again.
#include "Vorn/VlanIntfSm/VlanIntfSmTest.h"

namespace Vorn {
namespace {

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
   world.status(10)->operStatusIs(Interface::IntfOperStatus::intfOperLowerLayerDown);
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

} // namespace
} // namespace Vorn
