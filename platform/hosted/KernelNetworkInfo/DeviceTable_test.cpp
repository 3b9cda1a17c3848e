#include "KernelNetworkInfo/DeviceTable.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using Devices = std::map<std::string, uint32_t>; // flags by name

struct DeviceTableTest : testing::Test {
   Devices devices() const {
      Devices found;
      root->interfaceByName().forEach([&](Kem::String8 const& name, auto const& device) {
         EXPECT_EQ(device->ifName(), name);
         found[name.str()] = device->flags();
      });
      return found;
   }
   Kem::Ptr<KernelNetworkInfo::Root> root = KernelNetworkInfo::Root::make();
   KernelNetworkInfo::DeviceTable table{root};
};

TEST_F(DeviceTableTest, devicesComeChangeAndGo) {
   table.deviceIs(1, "lo", 0);
   table.deviceIs(2, "eth0", 0);
   table.deviceIs(1, "lo", 1);
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"eth0", 0}}));
   table.deviceDel(2);
   table.deviceDel(3);
   EXPECT_EQ(devices(), (Devices{{"lo", 1}}));
}

TEST_F(DeviceTableTest, renamedDeviceLeavesItsOldName) {
   table.deviceIs(2, "eth0", 1);
   table.deviceIs(2, "fabric", 1);
   EXPECT_EQ(devices(), (Devices{{"fabric", 1}}));
   table.deviceDel(2);
   EXPECT_EQ(devices(), Devices{});
}

TEST_F(DeviceTableTest, flagsOfAStandingEntryAreWrittenInPlace) {
   table.deviceIs(2, "eth0", 0);
   auto const before = root->interfaceByName("eth0");
   table.deviceIs(2, "eth0", 1);
   EXPECT_EQ(root->interfaceByName("eth0"), before);
}

TEST_F(DeviceTableTest, nameGoesOverToAnotherDevice) {
   table.deviceIs(2, "eth0", 1);
   auto const before = root->interfaceByName("eth0");
   table.deviceIs(3, "eth0", 0); // the news that device 2 was renamed is still to come
   EXPECT_EQ(devices(), (Devices{{"eth0", 0}}));
   EXPECT_NE(root->interfaceByName("eth0"), before) << "it is another device";
   table.deviceIs(2, "eth1", 1);
   EXPECT_EQ(devices(), (Devices{{"eth0", 0}, {"eth1", 1}}));
}

TEST_F(DeviceTableTest, nameLostToAnotherDeviceIsNotTakenAlong) {
   table.deviceIs(2, "eth0", 1);
   table.deviceIs(3, "eth0", 0);
   table.deviceDel(2);
   EXPECT_EQ(devices(), (Devices{{"eth0", 0}}));
}

TEST_F(DeviceTableTest, namesAreSwapped) {
   table.deviceIs(2, "a", 1);
   table.deviceIs(3, "b", 0);
   table.deviceIs(2, "b", 1);
   table.deviceIs(3, "a", 0);
   EXPECT_EQ(devices(), (Devices{{"a", 0}, {"b", 1}}));
}

TEST_F(DeviceTableTest, roundRemovesWhatItDidNotTell) {
   table.deviceIs(1, "lo", 1);
   table.deviceIs(2, "eth0", 1);
   table.deviceIs(3, "eth1", 1);
   root->interfaceByNameIs("stray");
   table.roundBegin();
   table.deviceIs(1, "lo", 1);
   table.deviceIs(3, "eth9", 1);
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"eth0", 1}, {"eth9", 1}, {"stray", 0}}));
   table.roundEnd();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"eth9", 1}}));
   table.deviceIs(2, "eth0", 0);
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"eth9", 1}, {"eth0", 0}}));
   // A device that came back under its index and name is one like any other in the next round.
   table.roundBegin();
   for (auto const& [index, name] : std::map<int, char const*>{{1, "lo"}, {2, "eth0"}, {3, "eth9"}})
      table.deviceIs(index, name, 1);
   table.roundEnd();
   EXPECT_EQ(devices(), (Devices{{"lo", 1}, {"eth9", 1}, {"eth0", 1}}));
}

} // namespace
