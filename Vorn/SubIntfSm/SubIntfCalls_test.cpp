// How often the kernel is asked for subinterfaces: each call once. A number that grows here makes a bulk change of
// interfaces slower.
#include "Vorn/SubIntfSm/TestSubIntfs.h"

namespace {

using Vorn::TestSubIntfs;

constexpr unsigned count = 1000;

struct SubIntfCallsTest : testing::Test {
   static Sulvi::IntfId id(unsigned number) { return Sulvi::IntfId("Ethernet1." + std::to_string(number)); }
   void interfaces(char const* netNs) {
      for (unsigned number = 1; number <= count; ++number) {
         if (netNs)
            world.moveTo(id(number), netNs);
         world.subIntf(id(number), number)->mtuIs(9000);
      }
   }
   // The bases have other addresses than the bridge.
   void SetUp() override { world.kernel.findDevice("et1")->address = {2, 0, 0, 0, 0, 9}; }
   void run() {
      world.kernel.countsReset();
      world.run();
   }

   TestSubIntfs world;
};

TEST_F(SubIntfCallsTest, newInterfaces) {
   world.start();
   interfaces(nullptr);
   run();
   EXPECT_EQ(
       world.kernel.calls(),
       "RTM_NEWLINK 1000, RTM_SETLINK 2000, SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, "
       "SIOCETHTOOL 3, SIOCGIFFLAGS 1002, SIOCGIFHWADDR 1000, SIOCSIFFLAGS 1000, SIOCSIFHWADDR 1000, "
       "SIOCSIFMTU 1000, "
       "if_nametoindex 1000, socket 1");
}

TEST_F(SubIntfCallsTest, newInterfacesInANamespace) {
   world.namespaceIs("red");
   world.start();
   interfaces("red");
   run();
   // Two of them are asked because a turn of the picture ended between the news of one device.
   EXPECT_EQ(world.kernel.calls(), "RTM_GETLINK 1, RTM_NEWLINK 1000, RTM_SETLINK 2000, "
                                   "SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, "
                                   "SIOCETHTOOL 3, SIOCGIFFLAGS 1000, SIOCGIFHWADDR 1000, SIOCSIFFLAGS 1000, "
                                   "SIOCSIFHWADDR 1000, SIOCSIFMTU 1000, "
                                   "close 1000, if_nametoindex 1000, open 1004, setns 3, socket 3");
}

TEST_F(SubIntfCallsTest, restart) {
   world.start();
   interfaces(nullptr);
   world.run();
   world.stop();
   world.kernel.countsReset();
   world.start();
   EXPECT_EQ(world.kernel.calls(),
             "GET_VLAN_REALDEV_NAME_CMD 1000, GET_VLAN_VID_CMD 1000, RTM_GETLINK 2, RTM_NEWLINK 1000, "
             "RTM_SETLINK 1000, "
             "SET_VLAN_EGRESS_PRIORITY_CMD 1000, SET_VLAN_NAME_TYPE_CMD 1, SIOCETHTOOL 3, SIOCGIFFLAGS 1000, "
             "SIOCGIFHWADDR 1000, SIOCSIFMTU 1000, if_nametoindex 1000, socket 4");
}

TEST_F(SubIntfCallsTest, end) {
   world.start();
   interfaces(nullptr);
   world.run();
   for (unsigned number = 1; number <= count; ++number)
      world.subIntfDel(id(number));
   run();
   EXPECT_EQ(world.kernel.calls(), "DEL_VLAN_CMD 1000");
}

} // namespace
