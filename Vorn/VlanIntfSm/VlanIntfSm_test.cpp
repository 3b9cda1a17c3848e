#include "Vorn/VlanIntfSm/VlanIntfSm.h"

#include "Kem/Exception.h"
#include "Vorn/VlanIntfSm/VlanIntfSmTest.h"

namespace Vorn {
namespace {

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
