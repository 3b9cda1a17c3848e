#include "NetlinkTesting/FakeKernel.h"

#include "Netlink/Message.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>

namespace {

using Netlink::FakeKernel;

struct FakeKernelTest : testing::Test {
   FakeKernelTest() { kernel.deviceIs("fabric").isUp = true; }
   int vlanIs(char const* name, uint16_t id, std::string const& netNs = {}) {
      Netlink::MessageBuilder request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
      int const base = static_cast<int>(Netlink::kernel().ifNametoindex("fabric", fd));
      request.attribute(IFLA_LINK, &base, sizeof base);
      request.textAttribute(IFLA_IFNAME, name);
      auto const info = request.nestBegin(IFLA_LINKINFO);
      request.attribute(IFLA_INFO_KIND, "vlan");
      auto const data = request.nestBegin(IFLA_INFO_DATA);
      request.attribute(1, &id, sizeof id);
      request.nestEnd(data);
      request.nestEnd(info);
      int const nsFd = netNs.empty() ? -1 : kernel.getnsByName(netNs, 0);
      if (nsFd >= 0)
         request.attribute(IFLA_NET_NS_FD, &nsFd, sizeof nsFd);
      auto channel = kernel.channel("", 0);
      int const error = Netlink::transact(*channel, request);
      if (nsFd >= 0)
         kernel.close(nsFd);
      return error;
   }
   int vlanCommand(int at, int command, char const* name) {
      vlan_ioctl_args args{};
      args.cmd = command;
      strncpy(args.device1, name, sizeof args.device1 - 1);
      return kernel.ioctl(at, SIOCSIFVLAN, &args) == 0 ? 0 : errno;
   }
   int mtuIs(int at, char const* name, int mtu) {
      ifreq args{};
      strncpy(args.ifr_name, name, IFNAMSIZ - 1);
      args.ifr_mtu = mtu;
      return kernel.ioctl(at, SIOCSIFMTU, &args) == 0 ? 0 : errno;
   }

   FakeKernel kernel;
   int const fd = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "");
};

TEST_F(FakeKernelTest, makesAndDeletesVlanDevices) {
   EXPECT_EQ(vlanIs("vlan10", 10), 0);
   EXPECT_EQ(vlanIs("vlan10", 11), EEXIST);
   EXPECT_EQ(vlanIs("other", 10), EEXIST);
   EXPECT_EQ(vlanIs("vlan4095", 4095), ERANGE);
   EXPECT_EQ(vlanIs("a-name-of-16-bytes", 5), ERANGE);
   EXPECT_EQ(kernel.describe(), "fabric: dummy, mtu 1500, up, 02:00:00:00:00:01\n"
                                "vlan10: vlan 10 on fabric, mtu 1500, down, 02:00:00:00:00:01\n");
   EXPECT_EQ(vlanCommand(fd, DEL_VLAN_CMD, "fabric"), EINVAL);
   EXPECT_EQ(vlanCommand(fd, DEL_VLAN_CMD, "vlan11"), ENODEV);
   EXPECT_EQ(vlanCommand(fd, DEL_VLAN_CMD, "vlan10"), 0);
   EXPECT_FALSE(kernel.findDevice("vlan10"));
}

TEST_F(FakeKernelTest, aKernelThatCantSaysSo) {
   kernel.has8021q(false);
   EXPECT_EQ(vlanCommand(fd, SET_VLAN_NAME_TYPE_CMD, ""), ENOPKG);
   EXPECT_EQ(vlanIs("vlan10", 10), EOPNOTSUPP);
   kernel.has8021q(true);
   kernel.rightIs(false);
   EXPECT_EQ(vlanCommand(fd, SET_VLAN_NAME_TYPE_CMD, ""), EPERM);
   EXPECT_EQ(vlanIs("vlan10", 10), EPERM);
   kernel.rightIs(true);
   kernel.findDevice("fabric")->carriesVlans = false;
   EXPECT_EQ(vlanIs("vlan10", 10), EOPNOTSUPP);
}

TEST_F(FakeKernelTest, aNamespaceLivesWhileASocketInItIsOpen) {
   kernel.namespaceIs("red");
   auto const inode = kernel.netNsInode("red");
   EXPECT_EQ(vlanIs("vlan10", 10, "red"), 0);
   int const inRed = kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "red");
   kernel.namespaceDel("red");
   EXPECT_EQ(kernel.netNsInode("red"), 0u);
   EXPECT_EQ(kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "red"), -1);
   EXPECT_EQ(errno, ENOENT);
   EXPECT_EQ(mtuIs(inRed, "vlan10", 1400), 0);
   EXPECT_EQ(kernel.describe(),
             "fabric: dummy, mtu 1500, up, 02:00:00:00:00:01\n"
             "vlan10@(without a name): vlan 10 on fabric, mtu 1400, down, 02:00:00:00:00:01\n");
   EXPECT_EQ(vlanIs("vlan10", 10), EEXIST); // the base still has it
   kernel.close(inRed);
   EXPECT_EQ(vlanIs("vlan10", 10), 0);
   kernel.namespaceIs("red");
   EXPECT_NE(kernel.netNsInode("red"), inode);
   kernel.brokenNamespaceIs("red");
   EXPECT_EQ(kernel.getnsByName("red", 0), -1);
   EXPECT_EQ(errno, EINVAL);
}

// As Linux 6.1 does.
TEST_F(FakeKernelTest, aNameIsTakenWhereTheRequestComesFromAndWhereTheDeviceIsToBe) {
   kernel.namespaceIs("red");
   EXPECT_EQ(vlanIs("vlan10", 10), 0);
   EXPECT_EQ(vlanIs("vlan10", 11, "red"), EEXIST);
   EXPECT_EQ(vlanIs("vlan11", 11, "red"), 0);
   EXPECT_EQ(vlanIs("vlan11", 12), 0);
   EXPECT_EQ(vlanIs("vlan11", 13, "red"), EEXIST);
   EXPECT_EQ(vlanIs("vlan14", 11, "red"), EEXIST);
   EXPECT_EQ(kernel.findDevice("vlan11", "red")->index, 2);
   kernel.deviceDel("fabric");
   EXPECT_EQ(kernel.describe(), "");
}

TEST_F(FakeKernelTest, vlanDevicesFollowTheirBase) {
   EXPECT_EQ(vlanIs("vlan10", 10), 0);
   EXPECT_EQ(mtuIs(fd, "vlan10", 1501), ERANGE);
   EXPECT_EQ(mtuIs(fd, "fabric", 9000), 0);
   EXPECT_EQ(mtuIs(fd, "fabric", 67), EINVAL);
   EXPECT_EQ(mtuIs(fd, "vlan10", 9000), 0);
   EXPECT_EQ(mtuIs(fd, "fabric", 1600), 0);
   EXPECT_EQ(kernel.findDevice("vlan10")->mtu, 1600u);
   kernel.upIs("fabric", false);
   kernel.upIs("fabric", true);
   EXPECT_TRUE(kernel.findDevice("vlan10")->isUp);
   kernel.deviceDel("fabric");
   EXPECT_EQ(kernel.describe(), "");
}

TEST_F(FakeKernelTest, notifiesChangesAndAnOverrun) {
   auto channel = kernel.channel("", RTMGRP_LINK);
   kernel.vlanDeviceIs("vlan10", "fabric", 10);
   auto received = channel->receive();
   ASSERT_EQ(received.kind, Netlink::Received::datagram);
   EXPECT_EQ(Netlink::fixedFrom<nlmsghdr>(received.bytes)->nlmsg_type, RTM_NEWLINK);
   kernel.overrun([&] { kernel.deviceDel("vlan10"); });
   received = channel->receive();
   EXPECT_EQ(received.kind, Netlink::Received::lost);
   EXPECT_EQ(received.error, ENOBUFS);
   EXPECT_EQ(channel->receive().kind, Netlink::Received::nothing);
}

TEST_F(FakeKernelTest, failsTheCallsThatItIsToldTo) {
   kernel.fail("ioctl", EPERM, 2);
   EXPECT_EQ(mtuIs(fd, "fabric", 1600), 0);
   EXPECT_EQ(mtuIs(fd, "fabric", 1700), EPERM);
   EXPECT_EQ(mtuIs(fd, "fabric", 1700), 0);
   kernel.fail("SIOCSIFMTU", ENOMEM, 1, true);
   EXPECT_EQ(mtuIs(fd, "fabric", 1800), ENOMEM);
   EXPECT_EQ(mtuIs(fd, "fabric", 1800), ENOMEM);
   kernel.faultsEnd();
   EXPECT_EQ(mtuIs(fd, "fabric", 1800), 0);
   EXPECT_EQ(kernel.count("SIOCSIFMTU"), 6);
   kernel.fail("answer", ENOBUFS);
   EXPECT_EQ(vlanIs("vlan10", 10), ENOBUFS);
   kernel.namespaceIs("red");
   kernel.fail("setns", EPERM);
   EXPECT_EQ(kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "red"), -1);
   EXPECT_EQ(errno, EPERM);
   EXPECT_EQ(kernel.openDescriptors(), 1);
}

TEST_F(FakeKernelTest, interruptionsEndAndAWaitForNothingIsNoHang) {
   int const route = kernel.routeSocket();
   char buffer[64];
   iovec piece{buffer, sizeof buffer};
   msghdr message{};
   message.msg_iov = &piece;
   message.msg_iovlen = 1;
   kernel.fail("recvmsg", EINTR, 1, true);
   int interruptions = 0;
   try {
      while (kernel.recvmsg(route, &message, 0) < 0 && errno == EINTR)
         ++interruptions;
   } catch (FakeKernel::Blocked const&) {
   }
   EXPECT_EQ(interruptions, FakeKernel::maxInterruptions);
   EXPECT_TRUE(kernel.isBlocked());
}

} // namespace
