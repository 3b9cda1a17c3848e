// The same requests to the kernel that the tests run on, where it has 802.1Q and the user may: in a network
// namespace that nothing else is in.
#include "Kem/TestTrace.h"
#include "Netlink/TestNamespace.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/KernelDevices/LinkSettings.h"
#include "Vorn/KernelDevices/TestRequest.h"
#include "Vorn/KernelDevices/VlanDevice.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Vorn::ExistingDevice;

struct RealKernel : testing::Test {
   void SetUp() override {
      if (!elsewhere.isEntered())
         GTEST_SKIP() << "no right to make a network namespace";
      elsewhereFd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
      elsewhereSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      here.emplace();
      ASSERT_TRUE(here->isEntered());
      fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
      route = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0);
      auto const& problem = ability.kernelProblem(fd);
      if (!problem.empty())
         GTEST_SKIP() << problem;
      ASSERT_EQ(here->pairIs("fabric", "fabric-end"), 0);
      ASSERT_EQ(here->upIs("fabric", true), 0);
      ASSERT_EQ(here->upIs("fabric-end", true), 0);
   }
   void TearDown() override {
      for (int const each : {elsewhereFd, elsewhereSocket, fd, route})
         if (each >= 0)
            close(each);
   }
   uint32_t sentAsItIs(std::string const& request, int& error) {
      EXPECT_EQ(send(route, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
      char reply[4096];
      auto const bytes = recv(route, reply, sizeof reply, 0);
      uint32_t sequence = 0;
      Netlink::forEachMessage({reply, static_cast<size_t>(bytes)}, [&](Netlink::Message const& message) {
         ASSERT_EQ(message.type, NLMSG_ERROR);
         sequence = message.sequence;
         error = -Netlink::fixedFrom<nlmsgerr>(message.payload)->error;
      });
      return sequence;
   }

   Kem::TestTrace trace;
   Netlink::TestNamespace elsewhere;
   std::optional<Netlink::TestNamespace> here; // leaves before `elsewhere` does
   Vorn::DeviceAbility ability;
   int elsewhereFd = -1, elsewhereSocket = -1, fd = -1, route = -1;
};

TEST_F(RealKernel, takesTheRequestAsTheTestHasWrittenItOut) {
   int error = -1;
   EXPECT_EQ(sentAsItIs(Vorn::vlan10Request(4711, if_nametoindex("fabric")), error), 4711u);
   EXPECT_EQ(error, 0);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), (ExistingDevice{ExistingDevice::vlan, 10, "fabric"}));
   EXPECT_EQ(Vorn::destroyVlanDevice("vlan10", fd), 0);
   EXPECT_EQ(sentAsItIs(Vorn::vlan10Request(4712, if_nametoindex("fabric"), elsewhereFd), error), 4712u);
   EXPECT_EQ(error, 0);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), ExistingDevice());
   EXPECT_EQ(Vorn::existingDevice("vlan10", elsewhereSocket).vlanId, 10);
}

TEST_F(RealKernel, makesChangesAndDeletesADevice) {
   EXPECT_EQ(ability.baseProblem("fabric", fd), "");
   EXPECT_EQ(ability.baseProblem("lo", fd), "device lo can't carry VLANs");
   EXPECT_EQ(Vorn::createVlanDevice("fabric", "vlan10", 10, route, ""), Vorn::VlanCreated);
   EXPECT_EQ(Vorn::createVlanDevice("fabric", "vlan10", 10, route, ""), Vorn::VlanExists);
   EXPECT_EQ(Vorn::createVlanDevice("fabric", "other", 10, route, ""), Vorn::VlanExists);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), (ExistingDevice{ExistingDevice::vlan, 10, "fabric"}));
   EXPECT_EQ(Vorn::setVlanDeviceEgressMap("vlan10", 7, 7, fd), 0);
   Sulvi::EthAddr const address(0x02, 0, 0, 0, 0, 0x10);
   EXPECT_EQ(Vorn::setKernelDeviceMacAddress("vlan10", address, fd), 0);
   ifreq hardware{};
   strcpy(hardware.ifr_name, "vlan10");
   EXPECT_EQ(ioctl(fd, SIOCGIFHWADDR, &hardware), 0);
   EXPECT_EQ(memcmp(hardware.ifr_hwaddr.sa_data, address.bytes().data(), 6), 0);
   int error = 0;
   EXPECT_EQ(Vorn::setInterfaceUpOrDownInternal("vlan10", true, fd, &error), 0);
   EXPECT_EQ(ioctl(fd, SIOCGIFFLAGS, &hardware), 0);
   EXPECT_TRUE(hardware.ifr_flags & IFF_UP);
   EXPECT_EQ(Vorn::destroyVlanDevice("fabric", fd), -1);
   EXPECT_EQ(errno, EINVAL);
   EXPECT_EQ(Vorn::existingDevice("fabric", fd), (ExistingDevice{.kind = ExistingDevice::other}));
   EXPECT_EQ(Vorn::destroyVlanDevice("vlan10", fd), 0);
   EXPECT_EQ(Vorn::existingDevice("vlan10", fd), ExistingDevice());
   EXPECT_EQ(Vorn::destroyVlanDevice("vlan10", fd), -1);
   EXPECT_EQ(errno, ENODEV);
}

} // namespace
