// How often the kernel is asked for VLAN interfaces: each call once. A number that grows here makes a bulk change of
// interfaces slower.
#include "Vorn/VlanIntfSm/TestVlanIntfs.h"

namespace {

using Vorn::TestVlanIntfs;

constexpr unsigned count = 1000;

struct VlanIntfCallsTest : testing::Test {
   // With status records that say that the interfaces are in service.
   void interfaces(char const* netNs) {
      for (unsigned vlanId = 1; vlanId <= count; ++vlanId) {
         if (netNs)
            world.moveTo(vlanId, netNs);
         world.vlanIntf(vlanId)->mtuIs(9000);
         world.status(vlanId)->operStatusIs(Interface::IntfOperStatus::intfOperUp);
      }
   }
   // The bases have other addresses than the bridge.
   void SetUp() override { world.kernel.findDevice("fabric")->address = {2, 0, 0, 0, 0, 9}; }
   void run() {
      world.kernel.countsReset();
      world.run();
   }

   TestVlanIntfs world;
};

TEST_F(VlanIntfCallsTest, newInterfaces) {
   world.start();
   interfaces(nullptr);
   run();
   EXPECT_EQ(
       world.kernel.calls(),
       "RTM_NEWLINK 1000, RTM_SETLINK 2000, SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, "
       "SIOCETHTOOL 3, SIOCGIFFLAGS 1000, SIOCGIFHWADDR 1000, SIOCSIFFLAGS 1000, SIOCSIFHWADDR 1000, "
       "SIOCSIFMTU 1000, "
       "if_nametoindex 1000, socket 1");
}

TEST_F(VlanIntfCallsTest, newInterfacesInANamespace) {
   world.namespaceIs("red");
   world.start();
   interfaces("red");
   run();
   EXPECT_EQ(world.kernel.calls(), "RTM_GETLINK 1, RTM_NEWLINK 1000, RTM_SETLINK 2000, "
                                   "SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, "
                                   "SIOCETHTOOL 3, SIOCGIFFLAGS 1000, SIOCGIFHWADDR 1000, SIOCSIFFLAGS 1000, "
                                   "SIOCSIFHWADDR 1000, SIOCSIFMTU 1000, "
                                   "close 1000, if_nametoindex 1000, open 1004, setns 3, socket 3");
}

// When they are made, and again once they are switched on.
TEST_F(VlanIntfCallsTest, interfacesThatAreOutOfServiceAreToldTwice) {
   world.start();
   interfaces(nullptr);
   for (unsigned vlanId = 1; vlanId <= count; ++vlanId)
      world.status(vlanId)->operStatusIs(Interface::IntfOperStatus::intfOperLowerLayerDown);
   run();
   EXPECT_EQ(world.kernel.count("RTM_SETLINK"), 2 * int(count));
}

TEST_F(VlanIntfCallsTest, restart) {
   world.start();
   interfaces(nullptr);
   world.run();
   world.stop();
   world.kernel.countsReset();
   world.start();
   EXPECT_EQ(world.kernel.calls(),
             "GET_VLAN_REALDEV_NAME_CMD 1000, GET_VLAN_VID_CMD 1000, RTM_GETLINK 2, RTM_NEWLINK 1000, "
             "RTM_SETLINK 2000, "
             "SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, SIOCETHTOOL 3, SIOCGIFFLAGS 1000, "
             "SIOCGIFHWADDR 1000, SIOCSIFMTU 1000, if_nametoindex 1000, socket 4");
}

TEST_F(VlanIntfCallsTest, end) {
   world.start();
   interfaces(nullptr);
   world.run();
   for (unsigned vlanId = 1; vlanId <= count; ++vlanId)
      world.vlanIntfDel(vlanId);
   run();
   EXPECT_EQ(world.kernel.calls(), "DEL_VLAN_CMD 1000, RTM_SETLINK 1000");
}

} // namespace
