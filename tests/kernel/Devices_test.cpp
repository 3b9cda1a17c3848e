// VLAN interfaces and subinterfaces as devices of a real kernel.
#include "RoutedSwitch.h"

#include <gmock/gmock.h>

namespace KernelTests {
namespace {

using testing::HasSubstr;

struct KernelDevicesTest : testing::Test {
   // The peer's end of a VLAN answers.
   bool isReached(std::string const& address, Words options = {}) const {
      Words words{"ping", "-c", "1", "-W", "5"};
      words.insert(words.end(), options.begin(), options.end());
      words.push_back(address);
      return command(words).status == 0;
   }

   RoutedSwitch sw;
};

// --- VLAN interfaces.

TEST_F(KernelDevicesTest, vlanInterfaceIsADeviceOnTheFabric) {
   sw.publish(Intent().vlan(10, {{"mtu", 1400}}));
   Json const link = sw.net.link("vlan10");
   EXPECT_EQ(link["linkinfo"]["info_kind"], "vlan") << link;
   EXPECT_EQ(link["linkinfo"]["info_data"]["id"], 10) << link;
   EXPECT_EQ(link["linkinfo"]["info_data"]["egress_qos"].dump(), R"([{"from":7,"to":7}])") << link;
   EXPECT_EQ(link["link"], "fabric") << link;
   EXPECT_EQ(link["mtu"], 1400) << link;
   EXPECT_EQ(link["address"], bridgeAddress) << link;
   EXPECT_TRUE(isUp(link)) << link;
   EXPECT_EQ(link["operstate"], "UP") << link;

   EXPECT_EQ(sw.operStatus("eth/vlan", "Vlan10"), R"("intfOperUp")");
   EXPECT_EQ(sw.bridge.get("interface/status/eth/vlan.intfStatus[Vlan10].deviceName"), R"("vlan10")");
   EXPECT_EQ(sw.bridge.get("interface/status/eth/vlan.intfStatus[Vlan10].addr"), '"' + bridgeAddress + '"');
   EXPECT_THAT(sw.bridge.members(10), HasSubstr("Cpu-t"));
}

TEST_F(KernelDevicesTest, pingPassesThroughAVlanInterface) {
   sw.net.makePeerVlan(10, "10.0.0.2/24");
   sw.publish(Intent().vlan(10));
   sw.net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan10"});
   EXPECT_TRUE(isReached("10.0.0.2"));
}

TEST_F(KernelDevicesTest, whatIsConfiguredLaterIsFollowed) {
   sw.publish(Intent().vlan(10));
   std::string const intf = "interface/config/eth/vlan.intfConfig[Vlan10]";
   int const index = sw.net.link("vlan10")["ifindex"];
   sw.bridge.set(intf + ".mtu", "1300");
   sw.bridge.set(intf + ".addr", R"("02:00:00:00:00:10")");
   sw.bridge.settle();
   EXPECT_EQ(sw.net.link("vlan10")["mtu"], 1300);
   EXPECT_EQ(sw.net.link("vlan10")["address"], "02:00:00:00:00:10");
   sw.bridge.set(intf + ".enabledStateLocal", "enabledStateShutdown");
   sw.bridge.settle();
   EXPECT_FALSE(isUp(sw.net.link("vlan10")));
   EXPECT_EQ(sw.operStatus("eth/vlan", "Vlan10"), R"("intfOperDown")");
   EXPECT_THAT(sw.bridge.members(10), testing::Not(HasSubstr("Cpu")));
   sw.bridge.set(intf + ".enabledStateLocal", "enabledStateDefault");
   sw.bridge.settle();
   EXPECT_TRUE(isUp(sw.net.link("vlan10")));
   EXPECT_EQ(sw.net.link("vlan10")["ifindex"], index) << "all on the same device";
   sw.bridge.erase(intf);
   sw.bridge.settle();
   EXPECT_EQ(sw.net.names(), "fabric lo");
}

TEST_F(KernelDevicesTest, largestAndSmallestVlan) {
   sw.publish(Intent().vlan(1).vlan(4094));
   EXPECT_EQ(sw.net.names(), "fabric lo vlan1 vlan4094");
   EXPECT_TRUE(isUp(sw.net.link("vlan4094")));
}

// Whoever made or deleted something by hand is put right, and nobody else's device is touched.
TEST_F(KernelDevicesTest, deviceThatIsDeletedByHandComesBack) {
   sw.publish(Intent().vlan(10).vlan(20));
   int const other = sw.net.link("vlan20")["ifindex"];
   sw.net.ip({"link", "del", "vlan10"});
   EXPECT_TRUE(eventually([&] { return isUp(sw.net.link("vlan10")); })) << sw.net.names();
   EXPECT_TRUE(eventually([&] { return sw.net.link("vlan10")["address"] == bridgeAddress; }));
   EXPECT_EQ(sw.net.link("vlan20")["ifindex"], other);
}

TEST_F(KernelDevicesTest, deviceThatWasMadeByHandIsTakenOver) {
   sw.net.ip({"link", "add", "link", "fabric", "name", "vlan10", "type", "vlan", "id", "10"});
   int const index = sw.net.link("vlan10")["ifindex"];
   sw.publish(Intent().vlan(10, {{"mtu", 1400}}));
   EXPECT_EQ(sw.net.link("vlan10")["ifindex"], index);
   EXPECT_EQ(sw.net.link("vlan10")["mtu"], 1400);
   EXPECT_TRUE(isUp(sw.net.link("vlan10")));
}

TEST_F(KernelDevicesTest, deviceByHandWithAnotherVlanIsReplaced) {
   sw.net.ip({"link", "add", "link", "fabric", "name", "vlan10", "type", "vlan", "id", "11"});
   sw.publish(Intent().vlan(10));
   EXPECT_TRUE(eventually([&] { return sw.net.link("vlan10")["linkinfo"]["info_data"]["id"] == 10; }))
       << sw.net.link("vlan10");
   EXPECT_TRUE(eventually([&] { return isUp(sw.net.link("vlan10")); }));
}

// A bridge that is called as a VLAN interface's device would be: it stays, and the interface waits.
TEST_F(KernelDevicesTest, deviceOfAnotherKindUnderTheNameStaysAndTheInterfaceWaits) {
   sw.net.ip({"link", "add", "vlan10", "type", "bridge"});
   int const index = sw.net.link("vlan10")["ifindex"];
   sw.publish(Intent().vlan(10).vlan(20));
   EXPECT_TRUE(isUp(sw.net.link("vlan20"))) << "the other interfaces don't wait with it";
   EXPECT_EQ(sw.net.link("vlan10")["ifindex"], index);
   EXPECT_EQ(sw.net.link("vlan10")["linkinfo"]["info_kind"], "bridge");
   EXPECT_TRUE(sw.bridge.agentProcess().isRunning());
   sw.net.ip({"link", "del", "vlan10"});
   EXPECT_TRUE(eventually([&] {
      Json const link = sw.net.link("vlan10");
      return isUp(link) && link["linkinfo"]["info_kind"] == "vlan";
   })) << sw.net.link("vlan10");
}

// --- The fabric device.

TEST_F(KernelDevicesTest, fabricThatIsDeletedAndMadeAgainGetsItsDevicesBack) {
   sw.publish(Intent().vlan(10).vlan(20, {{"mtu", 1400}}));
   sw.net.ip({"link", "del", "fabric"});
   EXPECT_EQ(sw.net.names(), "lo") << "the kernel takes the devices with it";
   sw.net.ip({"link", "add", "fabric", "type", "veth", "peer", "name", "fabric", "netns", "peer"});
   sw.net.ip({"link", "set", "fabric", "up"});
   sw.net.ipIn("peer", {"link", "set", "fabric", "up"});
   EXPECT_TRUE(eventually([&] {
      Json const first = sw.net.link("vlan10"), second = sw.net.link("vlan20");
      return isUp(first) && isUp(second) && first["address"] == bridgeAddress && second["mtu"] == 1400;
   })) << sw.net.names();
   sw.bridge.settle();
   EXPECT_EQ(sw.operStatus("eth/vlan", "Vlan10"), R"("intfOperUp")");
   sw.net.makePeerVlan(10, "10.0.0.2/24");
   sw.net.ip({"addr", "add", "10.0.0.1/24", "dev", "vlan10"});
   EXPECT_TRUE(isReached("10.0.0.2"));
}

TEST_F(KernelDevicesTest, interfacesWaitForTheFabric) {
   sw.net.ip({"link", "set", "fabric", "down"});
   sw.publish(Intent().vlan(10));
   EXPECT_FALSE(isUp(sw.net.link("vlan10")));
   sw.net.ip({"link", "set", "fabric", "up"});
   EXPECT_TRUE(eventually([&] { return isUp(sw.net.link("vlan10")); }));
}

// --- Subinterfaces.

TEST_F(KernelDevicesTest, subinterfaceIsADeviceOnItsPort) {
   sw.makePort("et3");
   sw.publish(Intent().routedPort("Ethernet3").subIntf("Ethernet3.5", 100));
   Json const link = sw.net.link("et3.5");
   EXPECT_EQ(link["linkinfo"]["info_data"]["id"], 100) << link;
   EXPECT_EQ(link["link"], "et3") << link;
   EXPECT_EQ(link["address"], bridgeAddress) << link;
   EXPECT_TRUE(isUp(link)) << link;
   EXPECT_EQ(sw.operStatus("subintf", "Ethernet3.5"), R"("intfOperUp")");
   EXPECT_EQ(sw.bridge.get("interface/status/subintf.intfStatus[Ethernet3.5].programInHw"), "true");

   sw.net.ipIn("peer", {"link", "add", "link", "et3", "name", "tag100", "type", "vlan", "id", "100"});
   sw.net.ipIn("peer", {"addr", "add", "10.0.3.2/24", "dev", "tag100"});
   sw.net.ipIn("peer", {"link", "set", "tag100", "up"});
   sw.net.ip({"addr", "add", "10.0.3.1/24", "dev", "et3.5"});
   EXPECT_TRUE(isReached("10.0.3.2"));
}

TEST_F(KernelDevicesTest, subinterfaceMovesToAnotherVlan) {
   sw.makePort("et3");
   sw.publish(Intent().routedPort("Ethernet3").subIntf("Ethernet3.5", 100));
   sw.bridge.set("interface/config/subintf.intfConfig[Ethernet3.5].vlanId", "200");
   sw.bridge.settle();
   Json const link = sw.net.link("et3.5");
   EXPECT_EQ(link["linkinfo"]["info_data"]["id"], 200) << link;
   EXPECT_TRUE(isUp(link)) << link;
   EXPECT_EQ(sw.net.names(), "et3 et3.5 fabric lo");
}

TEST_F(KernelDevicesTest, twoSubinterfacesOfOneVlanAreBothDownUntilOneGivesItUp) {
   sw.makePort("et3");
   sw.publish(Intent().routedPort("Ethernet3").subIntf("Ethernet3.5", 100));
   EXPECT_EQ(sw.operStatus("subintf", "Ethernet3.5"), R"("intfOperUp")");
   sw.publish(Intent().subIntf("Ethernet3.6", 100));
   for (std::string const intf : {"Ethernet3.5", "Ethernet3.6"})
      EXPECT_EQ(sw.operStatus("subintf", intf), R"("intfOperLowerLayerDown")") << intf;
   EXPECT_FALSE(isUp(sw.net.link("et3.5")));
   EXPECT_FALSE(isUp(sw.net.link("et3.6")));
   sw.bridge.set("interface/config/subintf.intfConfig[Ethernet3.5].vlanId", "200");
   sw.bridge.settle();
   EXPECT_TRUE(eventually([&] {
      Json const first = sw.net.link("et3.5"), second = sw.net.link("et3.6");
      return isUp(first) && isUp(second) && first["linkinfo"]["info_data"]["id"] == 200 &&
             second["linkinfo"]["info_data"]["id"] == 100;
   })) << sw.net.link("et3.5")
       << sw.net.link("et3.6");
   for (std::string const intf : {"Ethernet3.5", "Ethernet3.6"})
      EXPECT_EQ(sw.operStatus("subintf", intf), R"("intfOperUp")") << intf;
}

TEST_F(KernelDevicesTest, portThatComesLateBringsItsSubinterfaces) {
   sw.publish(Intent().routedPort("Ethernet3").subIntf("Ethernet3.5", 100));
   EXPECT_EQ(sw.net.names(), "fabric lo");
   sw.makePort("et3");
   EXPECT_TRUE(eventually([&] { return isUp(sw.net.link("et3.5")); })) << sw.net.names();
}

} // namespace
} // namespace KernelTests
