#include "Sulvi/KernelDeviceName.h"

#include "Kem/Exception.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace Sulvi {
namespace {

std::string intfOf(std::string_view deviceName) {
   return getIntfIdFromKernelDeviceName(deviceName).stringValue().str();
}

std::string deviceOf(IntfId intfId) {
   return kernelDeviceName(intfId).str();
}

TEST(KernelDeviceName, isTheShortNameInLowerCase) {
   EXPECT_EQ(deviceOf("Ethernet3/1.100"), "et3_1.100");
   EXPECT_EQ(deviceOf("Port-Channel5.7"), "po5.7");
   EXPECT_EQ(deviceOf("Ethernet7"), "et7");
   EXPECT_EQ(deviceOf("Ethernet3/1/2"), "et3_1_2");
   EXPECT_EQ(deviceOf("Vlan100"), "vlan100");
   EXPECT_EQ(deviceOf("Management1/2"), "management1_2");
   EXPECT_EQ(deviceOf("Cpu"), "cpu");
   EXPECT_EQ(deviceOf("FOO/Bar_Baz-9"), "foo_bar_baz-9");
   EXPECT_EQ(deviceOf(""), "");
}

TEST(KernelDeviceName, foldsLettersOfAsciiOnly) {
   EXPECT_EQ(deviceOf("\xc3\x84[Z]@"), "\xc3\x84[z]@");
}

TEST(KernelDeviceName, has79CharactersAtMost) {
   EXPECT_EQ(deviceOf(std::string(79, 'X')), std::string(79, 'x'));
   EXPECT_EQ(deviceOf(std::string(80, 'X')), std::string(79, 'x'));
   EXPECT_EQ(deviceOf(std::string(96, 'X')), std::string(79, 'x'));
   // The limit holds for the short name: "Ethernet" counts two.
   EXPECT_EQ(deviceOf("Ethernet1" + std::string(80, 'X')), "et1" + std::string(76, 'x'));
}

TEST(KernelDeviceName, givesBackPortsAndChannels) {
   EXPECT_EQ(intfOf("po5.7"), "Port-Channel5.7");
   EXPECT_EQ(intfOf("et3_1.100"), "Ethernet3/1.100");
   EXPECT_EQ(intfOf("et9"), "Ethernet9");
   EXPECT_EQ(intfOf("et3_1_2"), "Ethernet3/1/2");
   for (char const* name :
        {"Ethernet1", "Ethernet48/4", "Ethernet3/36/4.4094", "Port-Channel1", "Port-Channel2000.9"})
      EXPECT_EQ(getIntfIdFromKernelDeviceName(kernelDeviceName(name)), IntfId(name));
}

TEST(KernelDeviceName, looksAtThreeCharactersOnly) {
   EXPECT_EQ(intfOf("et1foo"), "Ethernet1foo");
   EXPECT_EQ(intfOf("po9/x_y"), "Port-Channel9/x/y");
   EXPECT_EQ(intfOf("et1."), "Ethernet1.");
   EXPECT_EQ(intfOf("et0"), "et0");
   EXPECT_EQ(intfOf("po0"), "po0");
   EXPECT_EQ(intfOf("et"), "et");
   EXPECT_EQ(intfOf("po"), "po");
   EXPECT_EQ(intfOf("etx1"), "etx1");
   EXPECT_EQ(intfOf("ET1"), "ET1");
   EXPECT_EQ(intfOf("et_1"), "et/1");
   EXPECT_EQ(intfOf("pot1"), "pot1");
   EXPECT_EQ(intfOf("et:"), "et:");
   EXPECT_EQ(intfOf("xet1"), "xet1");
}

TEST(KernelDeviceName, takesOtherDevicesByTheirOwnName) {
   EXPECT_EQ(intfOf("lo"), "lo");
   EXPECT_EQ(intfOf("eth0"), "eth0");
   EXPECT_EQ(intfOf("vlan100"), "vlan100");
   EXPECT_EQ(intfOf("my_dev_1"), "my/dev/1");
   EXPECT_TRUE(getIntfIdFromKernelDeviceName("").empty());
}

TEST(KernelDeviceName, reads79CharactersAtMost) {
   EXPECT_EQ(intfOf(std::string(79, 'x')), std::string(79, 'x'));
   EXPECT_EQ(intfOf(std::string(80, 'x')), std::string(79, 'x'));
   EXPECT_EQ(intfOf("et1" + std::string(200, 'x')), "Ethernet1" + std::string(76, 'x'));
   EXPECT_EQ(intfOf("po1" + std::string(200, 'x')), "Port-Channel1" + std::string(76, 'x'));
}

TEST(KernelDeviceName, aNulEndsAName) {
   EXPECT_EQ(intfOf(std::string_view("et1\0"
                                     "2",
                                     5)),
             "Ethernet1");
}

TEST(KernelDeviceName, takesAnyBytes) {
   std::mt19937 random(11);
   for (int i = 0; i < 2000; ++i) {
      std::string name = i % 3 == 0 ? "et1" : i % 3 == 1 ? "po2" : "";
      size_t const size = random() % 120;
      for (size_t j = 0; j < size; ++j)
         name.push_back(static_cast<char>(random()));
      ASSERT_NO_THROW(getIntfIdFromKernelDeviceName(name));
      ASSERT_LE(kernelDeviceName(getIntfIdFromKernelDeviceName(name)).size(), 79u);
   }
}

TEST(KernelDeviceName, subinterfaceHasADot) {
   EXPECT_TRUE(isSubIntf("et3_1.100"));
   EXPECT_TRUE(isSubIntf("."));
   EXPECT_FALSE(isSubIntf("et3_1"));
   EXPECT_FALSE(isSubIntf(""));
}

TEST(VlanDeviceName, goesThereAndBack) {
   EXPECT_EQ(vlanDeviceName(100).str(), "vlan100");
   for (uint32_t vlanId : {0u, 1u, 9u, 10u, 4094u, 4095u, 65536u, 4294967295u})
      EXPECT_EQ(vlanIdFromDeviceName(vlanDeviceName(vlanId)), vlanId);
}

// A device that only looks like one of ours may be somebody else's and must not be swept away.
TEST(VlanDeviceName, otherNamesAreNoVlanDevices) {
   for (char const* name : {"", "vlan", "vlan007", "vlan00", "vlan10a", "vlan10.5", "vlan-1", "vlan+1",
                            "vlan 1", "Vlan10", "vlan4294967296", "xvlan1", "vlan1 ", "vla1"})
      EXPECT_EQ(vlanIdFromDeviceName(name), std::nullopt) << name;
}

} // namespace
} // namespace Sulvi
