#include "Vorn/KernelDevices/LinkSettings.h"

#include "Kem/TestTrace.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/KernelDevices/TestScript.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <net/if.h>

namespace {

using LinkLines = std::vector<std::string>;

struct LinkSettingsTest : testing::Test {
   using Ioctls = std::vector<std::pair<unsigned long, std::string>>;
   // A 40-byte ifreq: the name in 16 bytes, and what is behind it.
   static std::string ifreqBytes(std::string bytes, std::string const& rest) {
      bytes.resize(16);
      bytes += rest;
      bytes.resize(40);
      return bytes;
   }

   Sulvi::EthAddr const address{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
   std::string const addressBytes = std::string("\x01\0\x02\x11\x22\x33\x44\x55", 8);
   std::string const nothing = std::string("\x01\0", 2);
   Kem::TestTrace trace{"VornLinkSettings/0-9"};
   Vorn::ScriptedKernel kernel;
};

TEST_F(LinkSettingsTest, addressIsReadAndThenWritten) {
   EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, 5), 0);
   EXPECT_EQ(kernel.ioctls,
             (Ioctls{{0x8927, ifreqBytes("vlan10", nothing)}, {0x8924, ifreqBytes("vlan10", addressBytes)}}));
   EXPECT_EQ(kernel.lastFd, 5);
   EXPECT_EQ(trace.take(), LinkLines{});
}

TEST_F(LinkSettingsTest, theAddressThatIsThereIsNotWritten) {
   kernel.onIoctl = [&](unsigned long, void* argument) {
      memcpy(static_cast<ifreq*>(argument)->ifr_hwaddr.sa_data, address.bytes().data(), 6);
      return 0;
   };
   EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, 5), 0);
   EXPECT_EQ(kernel.ioctls.size(), 1u);
   EXPECT_EQ(trace.take(), LinkLines{"Mac address for vlan10 already set correctly"});
}

TEST_F(LinkSettingsTest, eachByteOfTheAddressCounts) {
   for (size_t i = 0; i < 6; ++i) {
      kernel.ioctls.clear();
      kernel.onIoctl = [&](unsigned long, void* argument) {
         auto* const bytes = static_cast<ifreq*>(argument)->ifr_hwaddr.sa_data;
         memcpy(bytes, address.bytes().data(), 6);
         bytes[i] = static_cast<char>(bytes[i] ^ 0x80);
         return 0;
      };
      EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, 5), 0);
      EXPECT_EQ(kernel.ioctls.size(), 2u) << i;
   }
}

TEST_F(LinkSettingsTest, anAddressThatCantBeReadIsWrittenAllTheSame) {
   kernel.onIoctl = [](unsigned long request, void*) { return request == 0x8927 ? ENODEV : 0; };
   EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, 5), 0);
   EXPECT_EQ(kernel.ioctls.size(), 2u);
   EXPECT_EQ(trace.take(), LinkLines{"Error getting address 02:11:22:33:44:55 on interface vlan10 fd 5: "
                                     "No such device (19)"});
}

TEST_F(LinkSettingsTest, anAddressThatCantBeWrittenIsAnError) {
   kernel.onIoctl = [](unsigned long request, void*) { return request == 0x8924 ? EBUSY : 0; };
   EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, 5), -1);
   EXPECT_EQ(errno, EBUSY);
   EXPECT_EQ(trace.take(), LinkLines{"Error setting address 02:11:22:33:44:55 on interface vlan10 fd 5: "
                                     "Device or resource busy (16)"});
}

TEST_F(LinkSettingsTest, theZeroAddressIsAnAssertion) {
   EXPECT_DEATH(Vorn::setKernelDeviceMacAddress("vlan10", Sulvi::EthAddr(), 5),
                "Assertion \"addr != Sulvi::EthAddr::ethAddrZero\\(\\)\" failed");
}

TEST_F(LinkSettingsTest, namesAreCutAtSixteenBytes) {
   int error = 0;
   Vorn::setKernelDeviceMacAddress("an-interface-name-of-twenty-nine", address, 5);
   Vorn::setInterfaceUpOrDownInternal("an-interface-name-of-twenty-nine", true, 5, &error);
   ASSERT_EQ(kernel.ioctls.size(), 4u);
   for (auto const& [request, bytes] : kernel.ioctls)
      EXPECT_EQ(bytes.substr(0, 16), "an-interface-nam");
}

TEST_F(LinkSettingsTest, onlyTheUpFlagChanges) {
   int error = 0;
   kernel.onIoctl = [](unsigned long, void* argument) {
      static_cast<ifreq*>(argument)->ifr_flags = 0x1102;
      return 0;
   };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", true, 5, &error), 0);
   kernel.onIoctl = [](unsigned long, void* argument) {
      static_cast<ifreq*>(argument)->ifr_flags = 0x1103;
      return 0;
   };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", false, 5, &error), 0);
   EXPECT_EQ(kernel.ioctls, (Ioctls{{0x8913, ifreqBytes("vlan10", "")},
                                    {0x8914, ifreqBytes("vlan10", "\x03\x11")},
                                    {0x8913, ifreqBytes("vlan10", "")},
                                    {0x8914, ifreqBytes("vlan10", "\x02\x11")}}));
   EXPECT_EQ(trace.take(), LinkLines{});
}

TEST_F(LinkSettingsTest, theStateThatIsThereIsNotWritten) {
   int error = 0;
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", false, 5, &error), 0);
   kernel.onIoctl = [](unsigned long, void* argument) {
      static_cast<ifreq*>(argument)->ifr_flags = IFF_UP;
      return 0;
   };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", true, 5, &error), 0);
   EXPECT_EQ(kernel.ioctls.size(), 2u);
   EXPECT_EQ(trace.take(), (LinkLines{"Interface vlan10 is already down", "Interface vlan10 is already up"}));
}

TEST_F(LinkSettingsTest, theStateCanBeAskedFor) {
   EXPECT_EQ(Vorn::isInterfaceUp("vlan10", 5), false);
   kernel.onIoctl = [](unsigned long, void* argument) {
      static_cast<ifreq*>(argument)->ifr_flags = IFF_UP;
      return 0;
   };
   EXPECT_EQ(Vorn::isInterfaceUp("vlan10", 5), true);
   kernel.onIoctl = [](unsigned long, void*) { return ENODEV; };
   EXPECT_EQ(Vorn::isInterfaceUp("vlan10", 5), std::nullopt);
   EXPECT_EQ(trace.take(), LinkLines{});
}

TEST_F(LinkSettingsTest, failuresGiveTheirErrno) {
   int error = 0;
   kernel.onIoctl = [](unsigned long, void*) { return ENODEV; };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", true, 5, &error), -1);
   EXPECT_EQ(error, ENODEV);
   kernel.onIoctl = [](unsigned long request, void*) { return request == 0x8914 ? ENETDOWN : 0; };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", true, 5, &error), -1);
   EXPECT_EQ(error, ENETDOWN);
   kernel.onIoctl = [](unsigned long request, void* argument) {
      static_cast<ifreq*>(argument)->ifr_flags = IFF_UP;
      return request == 0x8914 ? EPERM : 0;
   };
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", false, 5, &error), -1);
   EXPECT_EQ(error, EPERM);
   EXPECT_EQ(trace.take(), (LinkLines{"Error getting flags for kernel interface vlan10 No such device",
                                      "Error setting kernel interface vlan10 up Network is down",
                                      "Error setting kernel interface vlan10 down Operation not permitted"}));
}

} // namespace
