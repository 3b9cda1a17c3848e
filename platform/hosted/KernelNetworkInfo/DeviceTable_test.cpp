#include "KernelNetworkInfo/DeviceTable.h"

#include "Kem/Activity.h"

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

TEST_F(DeviceTableTest, entriesHaveNumberAndMtu) {
   table.deviceIs(2, "eth0", 1, 1500);
   auto const eth0 = root->interfaceByName("eth0");
   EXPECT_EQ(eth0->ifIndex(), 2u);
   EXPECT_EQ(eth0->mtu(), 1500u);
   table.deviceIs(2, "eth0", 1, 9000);
   EXPECT_EQ(eth0->mtu(), 9000u);
   // Another device of that name, with the news of the first one's end or without.
   table.deviceIs(3, "eth0", 1, 1400);
   EXPECT_EQ(root->interfaceByName("eth0")->ifIndex(), 3u);
   EXPECT_EQ(root->interfaceByName("eth0")->mtu(), 1400u);
   table.deviceDel(3);
   table.deviceIs(4, "eth0", 1, 1300);
   EXPECT_EQ(root->interfaceByName("eth0")->ifIndex(), 4u);
}

TEST_F(DeviceTableTest, whoReactsOnTheFlagsFindsTheNumber) {
   struct Reactor final : KernelNetworkInfo::Interface::NotifieeConst {
      Reactor() : NotifieeConst(this) {}
      void onFlags() override { seen = notifier()->ifIndex(); }
      uint32_t seen = 0;
   };
   Reactor reactor;
   reactor.notifierIs(root->interfaceByNameIs("eth0"));
   table.deviceIs(2, "eth0", 1);
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(reactor.seen, 2u);
}

} // namespace
