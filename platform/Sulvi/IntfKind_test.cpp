#include "Sulvi/IntfKind.h"

#include <gtest/gtest.h>
#include <string>

namespace Sulvi {
namespace {

// Which of the questions about kinds are answered with yes, a letter each.
std::string kindsOf(IntfId id) {
   std::string kinds;
   kinds += EthIntfId::isEthIntfId(id) ? "E" : "";
   kinds += PortChannelIntfId::isPortChannelIntfId(id) ? "P" : "";
   kinds += VlanIntfId::isVlanIntfId(id) ? "V" : "";
   kinds += SubIntfId::isSubIntfId(id) ? "S" : "";
   kinds += MgmtIntfId::isMgmtIntfId(id) ? "M" : "";
   kinds += LoopbackIntfId::isLoopbackIntfId(id) ? "L" : "";
   kinds += InternalIntfId::isInternalIntfId(id) ? "I" : "";
   kinds += VxlanTunnelIntfId::isVxlanTunnelIntfId(id) ? "X" : "";
   return kinds;
}

TEST(IntfKind, everyNameIsOfOneKindAtMost) {
   std::pair<char const*, char const*> const cases[] = {
       {"Ethernet1", "E"},
       {"Ethernet0", "E"},
       {"Ethernet3/1", "E"},
       {"Ethernet3/1/2", "E"},
       {"Port-Channel5", "P"},
       {"Vlan100", "V"},
       {"Vlan0", "V"},
       {"Vlan5000", "V"},
       {"Management1", "M"},
       {"Management1/2", "M"},
       {"Loopback0", "L"},
       {"Internal1", "I"},
       {"Vxlan1", "X"},
       {"Ethernet3.100", "S"},
       {"Ethernet3/1.100", "S"},
       {"Ethernet3/1/2.100", "S"},
       {"Port-Channel5.7", "S"},
       {"Cpu", ""},
       {"", ""},
   };
   for (auto const& [name, kinds] : cases)
      EXPECT_EQ(kindsOf(name), kinds) << name;
}

TEST(IntfKind, kindDoesNotDependOnWhetherTheNameIsRegular) {
   std::pair<char const*, char const*> const cases[] = {
       {"Ethernet1/2/3/4", "E"},
       {"Ethernet9000/1", "E"},
       {"Ethernet99999999999999999999", "E"},
       {"Port-Channel999999999999", "P"},
       {"Vlan999999999999", "V"},
       {"Management1/2/3", "M"},
       {"Internal1/2", "I"},
       {"Ethernet9000.1", "S"},
       {"Ethernet1/2/3/4.5", "S"},
       {"Port-Channel9000.1", "S"},
       {"Vlan10.5", "S"},
       {"Foo.1", "S"},
       {"Ethernet1.2.3", "S"},
   };
   for (auto const& [name, kinds] : cases) {
      EXPECT_FALSE(IntfId(name).isRegular()) << name;
      EXPECT_EQ(kindsOf(name), kinds) << name;
   }
}

TEST(IntfKind, malformedNamesAreOfNoKind) {
   for (char const* name : {"Ethernet", "Ethernet01", "Ethernet1/", "Ethernet/1", "Ethernet1a", "ethernet1",
                            "Et1", "Vlan007", "Vlan", "Vlan1/2", "Port-Channel1/2", "Loopback1/2", "Vxlan",
                            "Ethernet1.", "Ethernet1.01", ".5", "Cpu1", "Foo"})
      EXPECT_EQ(kindsOf(name), "") << name;
}

TEST(IntfKind, unconnectedPortsAreNumberedFrom65536) {
   EXPECT_FALSE(EthIntfId::isUnconnected("Ethernet1"));
   EXPECT_FALSE(EthIntfId::isUnconnected("Ethernet65535"));
   EXPECT_TRUE(EthIntfId::isUnconnected("Ethernet65536"));
   EXPECT_TRUE(EthIntfId::isUnconnected("Ethernet65536/2"));
   EXPECT_TRUE(EthIntfId::isUnconnected("Ethernet999999999999"));
   EXPECT_FALSE(EthIntfId::isUnconnected("Ethernet65536.1"));
   EXPECT_FALSE(EthIntfId::isUnconnected("Port-Channel65536"));
   EXPECT_FALSE(EthIntfId::isUnconnected(IntfId()));
}

TEST(IntfKind, recirculationChannelsAreNumberedFrom65536) {
   EXPECT_FALSE(PortChannelIntfId::isRecirc("Port-Channel1"));
   EXPECT_FALSE(PortChannelIntfId::isRecirc("Port-Channel65535"));
   EXPECT_TRUE(PortChannelIntfId::isRecirc("Port-Channel65536"));
   EXPECT_TRUE(PortChannelIntfId::isRecirc("Port-Channel999999999999"));
   EXPECT_FALSE(PortChannelIntfId::isRecirc("Port-Channel65536.1"));
   EXPECT_FALSE(PortChannelIntfId::isRecirc("Ethernet65536"));
}

TEST(IntfKind, subinterfaceGivesItsNumberAndParent) {
   struct {
      char const* name;
      uint32_t number;
      char const* parent;
   } const cases[] = {
       {"Ethernet3.100", 100, "Ethernet3"},
       {"Ethernet3/1.100", 100, "Ethernet3/1"},
       {"Ethernet3/1/2.4094", 4094, "Ethernet3/1/2"},
       {"Ethernet1/2/3/4.5", 5, "Ethernet1/2/3/4"},
       {"Ethernet9000/1.5000", 5000, "Ethernet9000/1"},
       {"Ethernet3.0", 0, "Ethernet3"},
       {"Ethernet3.99999999999", 4294967295, "Ethernet3"},
   };
   for (auto const& [name, number, parent] : cases) {
      EXPECT_EQ(EthIntfId::subIntf(name), number) << name;
      EXPECT_EQ(EthIntfId::parentIntfIdFromSubIntf(name), IntfId(parent)) << name;
      EXPECT_EQ(PortChannelIntfId::subIntf(name), std::nullopt) << name;
      EXPECT_TRUE(PortChannelIntfId::parentIntfIdFromSubIntf(name).empty()) << name;
   }
   EXPECT_EQ(PortChannelIntfId::subIntf("Port-Channel5.7"), 7u);
   EXPECT_EQ(PortChannelIntfId::parentIntfIdFromSubIntf("Port-Channel5.7"), IntfId("Port-Channel5"));
   EXPECT_EQ(PortChannelIntfId::subIntf("Port-Channel9000.7"), 7u);
   EXPECT_EQ(PortChannelIntfId::parentIntfIdFromSubIntf("Port-Channel9000.7"), IntfId("Port-Channel9000"));
   EXPECT_EQ(EthIntfId::subIntf("Port-Channel5.7"), std::nullopt);
   EXPECT_TRUE(EthIntfId::parentIntfIdFromSubIntf("Port-Channel5.7").empty());
}

TEST(IntfKind, otherIdsHaveNoSubinterfaceNumber) {
   for (char const* name :
        {"Ethernet3", "Ethernet3/1", "Port-Channel5", "Vlan10.5", "Foo.1", "Ethernet1.2.3", "Cpu", ""}) {
      EXPECT_EQ(EthIntfId::subIntf(name), std::nullopt) << name;
      EXPECT_EQ(PortChannelIntfId::subIntf(name), std::nullopt) << name;
      EXPECT_TRUE(EthIntfId::parentIntfIdFromSubIntf(name).empty()) << name;
      EXPECT_TRUE(PortChannelIntfId::parentIntfIdFromSubIntf(name).empty()) << name;
   }
}

TEST(IntfKind, vlanIdIsTheNumberInTheName) {
   for (uint16_t vlanId = 0; vlanId < 4200; ++vlanId)
      ASSERT_EQ(VlanIntfId::vlanId("Vlan" + std::to_string(vlanId)), vlanId);
   EXPECT_EQ(VlanIntfId::vlanId("Vlan65535"), 65535);
}

// A number that was cut to 16 bits would be that of another VLAN.
TEST(IntfKind, largeVlanNumberIsNotTakenForAnother) {
   EXPECT_EQ(VlanIntfId::vlanId("Vlan65636"), 65535);
   EXPECT_EQ(VlanIntfId::vlanId("Vlan4294967396"), 65535);
   EXPECT_EQ(VlanIntfId::vlanId("Vlan99999999999999999999"), 65535);
}

TEST(IntfKind, otherIdsHaveNoVlanId) {
   for (char const* name : {"Ethernet100", "Vlan100.5", "Vlan007", "Vlan", "Cpu", ""})
      EXPECT_EQ(VlanIntfId::vlanId(name), 0) << name;
}

} // namespace
} // namespace Sulvi
