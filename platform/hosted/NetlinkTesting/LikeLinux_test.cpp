// The same requests to the kernel in memory and to the one that the tests run on, where that has 802.1Q and
// the user may: both give the same answers.
#include "Netlink/LinuxKernel.h"
#include "Netlink/Message.h"
#include "Netlink/TestNamespace.h"
#include "NetlinkTesting/FakeKernel.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <optional>

namespace {

// Makes requests and writes down what each gives: "vlan10 on fabric 10: File exists".
class Questions {
  public:
   explicit Questions(Netlink::Kernel& kernel)
       : kernel_(kernel), fd_(kernel.socketAt(AF_INET, SOCK_DGRAM, 0, "")), channel_(kernel.channel("", 0)) {}
   ~Questions() { kernel_.close(fd_); }

   void newVlan(std::string const& name, char const* base, uint16_t id) {
      Netlink::MessageBuilder request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
      uint32_t const index = kernel_.ifNametoindex(base, fd_);
      request.attribute(IFLA_LINK, &index, sizeof index);
      request.textAttribute(IFLA_IFNAME, name);
      auto const info = request.nestBegin(IFLA_LINKINFO);
      request.attribute(IFLA_INFO_KIND, "vlan");
      auto const data = request.nestBegin(IFLA_INFO_DATA);
      request.attribute(1, &id, sizeof id);
      request.nestEnd(data);
      request.nestEnd(info);
      note(name + " on " + base + " " + std::to_string(id), Netlink::transact(*channel_, request));
   }
   void operState(char const* name, uint8_t state) {
      Netlink::MessageBuilder request(RTM_SETLINK, 0, ifinfomsg{});
      request.textAttribute(IFLA_IFNAME, name);
      request.attribute(IFLA_OPERSTATE, &state, sizeof state);
      note(std::string("state of ") + name, Netlink::transact(*channel_, request));
   }
   void vlanCommand(int command, char const* name, unsigned value = 0, short qos = 0) {
      vlan_ioctl_args args{};
      args.cmd = command;
      std::memcpy(args.device1, name, std::min(strlen(name), sizeof args.device1));
      args.u.skb_priority = value;
      args.vlan_qos = qos;
      bool const isDone =
          call(SIOCSIFVLAN, args, std::string("command ") + std::to_string(command) + " " + name);
      if (isDone && command == GET_VLAN_VID_CMD)
         text += " = " + std::to_string(args.u.VID) + "\n";
      if (isDone && command == GET_VLAN_REALDEV_NAME_CMD)
         text += std::string(" = ") + args.u.device2 + "\n";
   }
   void mtu(char const* name, int value) {
      auto args = named(name);
      args.ifr_mtu = value;
      call(SIOCSIFMTU, args, std::string("mtu ") + name + " " + std::to_string(value));
   }
   void up(char const* name, bool isUp) {
      auto args = named(name);
      args.ifr_flags = isUp ? IFF_UP : 0;
      call(SIOCSIFFLAGS, args, std::string(name) + (isUp ? " up" : " down"));
   }
   void address(char const* name, std::initializer_list<uint8_t> bytes,
                unsigned short family = ARPHRD_ETHER) {
      auto args = named(name);
      args.ifr_hwaddr.sa_family = family;
      std::memcpy(args.ifr_hwaddr.sa_data, bytes.begin(), bytes.size());
      call(SIOCSIFHWADDR, args, std::string("address ") + name);
   }
   // Whether it exists, is up, and its MTU.
   void show(char const* name) {
      auto flags = named(name), size = named(name);
      if (!call(SIOCGIFFLAGS, flags, std::string("show ") + name))
         return;
      kernel_.ioctl(fd_, SIOCGIFMTU, &size);
      text += std::string(" = ") + (flags.ifr_flags & IFF_UP ? "up " : "down ") +
              std::to_string(size.ifr_mtu) + "\n";
   }

   std::string text;

  private:
   static ifreq named(char const* name) {
      ifreq args{};
      std::memcpy(args.ifr_name, name, std::min<size_t>(strlen(name), IFNAMSIZ));
      return args;
   }
   template <class Args>
   bool call(unsigned long request, Args& args, std::string const& what) {
      int const error = kernel_.ioctl(fd_, request, &args) == 0 ? 0 : errno;
      note(what, error);
      return error == 0;
   }
   void note(std::string const& what, int error) {
      text += what + ": " + (error ? strerror(error) : "done") + "\n";
   }

   Netlink::Kernel& kernel_;
   int const fd_;
   std::unique_ptr<Netlink::Channel> channel_;
};

// "fabric" and "lo" exist, both down.
std::string answersOf(Netlink::Kernel& kernel) {
   Questions ask(kernel);
   ask.vlanCommand(SET_VLAN_NAME_TYPE_CMD, "", VLAN_NAME_TYPE_PLUS_VID_NO_PAD);
   ask.vlanCommand(SET_VLAN_NAME_TYPE_CMD, "", 99);
   ask.newVlan("vlan10", "fabric", 10);
   ask.newVlan("vlan10", "fabric", 10);
   ask.newVlan("vlan10", "fabric", 11);
   ask.newVlan("other", "fabric", 10);
   ask.newVlan("fabric", "fabric", 12);
   ask.newVlan("vlan10", "lo", 4095); // which of the two is looked at first
   ask.newVlan("vlan0", "fabric", 0);
   ask.newVlan("vlan4095", "fabric", 4095);
   ask.newVlan("vlan12", "missing", 12);
   ask.newVlan("vlan12", "lo", 12);
   ask.newVlan("fifteen-bytes-a", "fabric", 12);
   ask.newVlan("sixteen-bytes-ab", "fabric", 13);
   for (auto const* const name : {"", ".", "..", "a/b", "a:b", "a b"})
      ask.newVlan(name, "fabric", 13);
   ask.newVlan("inner", "vlan10", 20);
   for (int const command : {GET_VLAN_VID_CMD, GET_VLAN_REALDEV_NAME_CMD, DEL_VLAN_CMD})
      for (auto const* const name : {"vlan0", "fabric", "missing", "vlan10-is-not-its-whole-name"})
         ask.vlanCommand(command, name);
   ask.vlanCommand(GET_VLAN_REALDEV_NAME_CMD, "inner");
   ask.vlanCommand(SET_VLAN_EGRESS_PRIORITY_CMD, "vlan10", 7, 7);
   ask.vlanCommand(SET_VLAN_EGRESS_PRIORITY_CMD, "fabric", 7, 7);
   ask.vlanCommand(SET_VLAN_EGRESS_PRIORITY_CMD, "missing", 7, 7);
   ask.up("vlan10", true); // its base is down
   ask.up("fabric", true);
   ask.show("vlan10");
   ask.show("inner");
   ask.up("vlan10", false);
   ask.show("inner");
   ask.up("fabric", false);
   ask.show("vlan10");
   ask.up("missing", true);
   ask.up("fabric", true);
   for (int const mtu : {1501, 1500, 68, 67, 0, -1, 65536, 1400})
      ask.mtu("vlan10", mtu);
   for (int const mtu : {9000, 67, 65536, -1})
      ask.mtu("fabric", mtu);
   ask.mtu("vlan10", 9000);
   ask.mtu("inner", 8000);
   ask.mtu("missing", 1500);
   ask.mtu("fabric", 7000);
   for (auto const* const name : {"fabric", "vlan10", "inner", "fifteen-bytes-a", "fifteen-bytes-ab"})
      ask.show(name);
   ask.address("vlan10", {2, 0, 0, 0, 0, 1});
   ask.address("vlan10", {0, 0, 0, 0, 0, 0});
   ask.address("vlan10", {3, 0, 0, 0, 0, 1});
   ask.address("vlan10", {2, 0, 0, 0, 0, 1}, 2);
   ask.address("missing", {2, 0, 0, 0, 0, 1});
   ask.operState("vlan10", 5);
   ask.operState("missing", 5);
   ask.vlanCommand(DEL_VLAN_CMD, "vlan10"); // and what is on it
   for (auto const* const name : {"vlan10", "inner"})
      ask.show(name);
   return ask.text;
}

TEST(RealKernelLikeFake, answersAreTheSame) {
   Netlink::TestNamespace ns;
   if (!ns.isEntered())
      GTEST_SKIP() << "no right to make a network namespace";
   Netlink::LinuxKernel real;
   int const fd = real.socketAt(AF_INET, SOCK_DGRAM, 0, "");
   vlan_ioctl_args args{};
   args.cmd = SET_VLAN_NAME_TYPE_CMD;
   bool const canVlans = real.ioctl(fd, SIOCSIFVLAN, &args) == 0;
   real.close(fd);
   if (!canVlans)
      GTEST_SKIP() << "no VLAN devices here: " << strerror(errno);
   ASSERT_EQ(ns.pairIs("fabric", "fabric-end"), 0);
   Netlink::FakeKernel fake;
   fake.deviceIs("fabric");
   EXPECT_EQ(answersOf(fake), answersOf(real));
}

} // namespace
