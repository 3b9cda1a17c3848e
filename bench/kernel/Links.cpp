#include "Links.h"

#include "Kem/Time.h"
#include "Netlink/Message.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Bench {

namespace {

using Netlink::Message;
using Netlink::MessageBuilder;

[[noreturn]] void refused(std::string const& what, int error) {
   std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(error));
   std::exit(1);
}

void request(Netlink::Channel& socket, MessageBuilder const& message, std::string const& what) {
   if (int const error = Netlink::transact(socket, message))
      refused(what, error);
}

ifinfomsg upFlag() {
   ifinfomsg link{};
   link.ifi_flags = link.ifi_change = IFF_UP;
   return link;
}

bool isReady(Message const& message, Address const& address, uint32_t mtu) {
   auto const link = Netlink::fixedFrom<ifinfomsg>(message.payload);
   if (message.type != RTM_NEWLINK || !link || !(link->ifi_flags & IFF_UP))
      return false;
   bool hasAddress = false, hasMtu = false, isVlan = false;
   Netlink::forEachAttribute(message.payload.substr(sizeof *link),
                             [&](uint16_t type, std::string_view value) {
                                if (type == IFLA_ADDRESS)
                                   hasAddress = value.size() == address.size() &&
                                                std::memcmp(value.data(), address.data(), value.size()) == 0;
                                else if (type == IFLA_MTU)
                                   hasMtu = Netlink::fixedFrom<uint32_t>(value) == mtu;
                                else if (type == IFLA_LINK)
                                   isVlan = true;
                             });
   return hasAddress && hasMtu && isVlan;
}

} // namespace

int indexOf(std::string const& name) {
   ifreq args{};
   std::memcpy(args.ifr_name, name.c_str(), name.size() + 1);
   int const fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   if (fd < 0 || ioctl(fd, SIOCGIFINDEX, &args) < 0)
      refused(name, errno);
   close(fd);
   return args.ifr_ifindex;
}

int makeBase(std::string const& name, uint32_t mtu) {
   Netlink::Socket socket({}, 0);
   MessageBuilder message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, upFlag());
   message.textAttribute(IFLA_IFNAME, name);
   message.attribute(IFLA_MTU, &mtu, sizeof mtu);
   auto const info = message.nestBegin(IFLA_LINKINFO);
   message.attribute(IFLA_INFO_KIND, "dummy");
   message.nestEnd(info);
   request(socket, message, name);
   return indexOf(name);
}

void deleteLink(std::string const& name) {
   Netlink::Socket socket({}, 0);
   ifinfomsg link{};
   link.ifi_index = indexOf(name);
   request(socket, MessageBuilder(RTM_DELLINK, 0, link), name);
}

LinkMaker::LinkMaker() : socket_({}, 0) {}

void LinkMaker::make(VlanLink const& link, Address const& address, uint32_t mtu) {
   MessageBuilder message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, upFlag());
   message.textAttribute(IFLA_IFNAME, link.name);
   message.attribute(IFLA_LINK, &link.base, sizeof link.base);
   message.attribute(IFLA_ADDRESS, address.data(), address.size());
   message.attribute(IFLA_MTU, &mtu, sizeof mtu);
   auto const info = message.nestBegin(IFLA_LINKINFO);
   message.attribute(IFLA_INFO_KIND, "vlan");
   auto const data = message.nestBegin(IFLA_INFO_DATA);
   message.attribute(IFLA_VLAN_ID, &link.vlanId, sizeof link.vlanId);
   auto const map = message.nestBegin(IFLA_VLAN_EGRESS_QOS);
   ifla_vlan_qos_mapping const highest{7, 7};
   message.attribute(IFLA_VLAN_QOS_MAPPING, &highest, sizeof highest);
   message.nestEnd(map);
   message.nestEnd(data);
   message.nestEnd(info);
   request(socket_, message, link.name);
}

StepMaker::StepMaker(bool isTimed)
    : isTimed_(isTimed), socket_({}, 0), fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

StepMaker::~StepMaker() {
   close(fd_);
}

template <class Call>
void StepMaker::step(char const* name, Call const& call) {
   if (at_ == steps_.size())
      steps_.push_back({name});
   double const start = isTimed_ ? Kem::now() : 0;
   int const error = call();
   if (isTimed_)
      steps_[at_].seconds += Kem::now() - start;
   if (error != 0)
      refused(name, error);
   ++at_;
}

void StepMaker::make(VlanLink const& link, std::string const& base, Address const& address, uint32_t mtu) {
   at_ = 0;
   ifreq args{};
   auto const device = [&](unsigned long request, std::string const& name) {
      std::memcpy(args.ifr_name, name.c_str(), name.size() + 1);
      return ioctl(fd_, request, &args) < 0 ? errno : 0;
   };
   step("nothing but the clock", [] { return 0; });
   step("index of the base", [&] { return device(SIOCGIFINDEX, base); });
   step("RTM_NEWLINK", [&] {
      MessageBuilder message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
      message.attribute(IFLA_LINK, &link.base, sizeof link.base);
      message.textAttribute(IFLA_IFNAME, link.name);
      auto const info = message.nestBegin(IFLA_LINKINFO);
      message.attribute(IFLA_INFO_KIND, "vlan");
      auto const data = message.nestBegin(IFLA_INFO_DATA);
      message.attribute(IFLA_VLAN_ID, &link.vlanId, sizeof link.vlanId);
      message.nestEnd(data);
      message.nestEnd(info);
      return Netlink::transact(socket_, message);
   });
   step("egress map", [&] {
      vlan_ioctl_args map{};
      map.cmd = SET_VLAN_EGRESS_PRIORITY_CMD;
      std::memcpy(map.device1, link.name.c_str(), link.name.size() + 1);
      map.u.skb_priority = 7;
      map.vlan_qos = 7;
      return ioctl(fd_, SIOCSIFVLAN, &map) < 0 ? errno : 0;
   });
   auto const state = [&](uint8_t value) {
      MessageBuilder message(RTM_SETLINK, 0, ifinfomsg{});
      message.textAttribute(IFLA_IFNAME, link.name);
      message.attribute(IFLA_OPERSTATE, &value, sizeof value);
      return Netlink::transact(socket_, message);
   };
   step("state dormant", [&] { return state(IF_OPER_DORMANT); });
   step("address read", [&] { return device(SIOCGIFHWADDR, link.name); });
   step("address set", [&] {
      args.ifr_hwaddr.sa_family = ARPHRD_ETHER;
      std::memcpy(args.ifr_hwaddr.sa_data, address.data(), address.size());
      return device(SIOCSIFHWADDR, link.name);
   });
   step("state as in the record", [&] { return state(IF_OPER_UP); });
   step("flags read", [&] { return device(SIOCGIFFLAGS, link.name); });
   step("flags set", [&] {
      args.ifr_flags = static_cast<short>(args.ifr_flags | IFF_UP);
      return device(SIOCSIFFLAGS, link.name);
   });
   step("MTU set", [&] {
      args.ifr_mtu = static_cast<int>(mtu);
      return device(SIOCSIFMTU, link.name);
   });
}

size_t countReady(Address const& address, uint32_t mtu) {
   Netlink::Socket socket({}, 0);
   MessageBuilder message(RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, ifinfomsg{});
   message.sequenceIs(1);
   if (int const error = socket.send(message.bytes()))
      refused("list of devices", error);
   size_t count = 0;
   for (bool isDone = false; !isDone;) {
      auto const received = socket.receive();
      if (received.kind == Netlink::Received::lost)
         refused("list of devices", received.error);
      if (received.kind == Netlink::Received::nothing)
         refused("list of devices", ENODATA);
      Netlink::forEachMessage(received.bytes, [&](Message const& one) {
         isDone |= one.type == NLMSG_DONE;
         count += isReady(one, address, mtu);
      });
   }
   return count;
}

LinkNews::LinkNews() : socket_({}, RTMGRP_LINK) {
   if (!socket_.isOpen())
      refused("news of devices", socket_.error());
}

LinkNews::Count LinkNews::count() {
   Count count;
   for (;;) {
      auto const received = socket_.receive();
      if (received.isFailure())
         refused("news of devices", received.error);
      if (received.kind == Netlink::Received::nothing)
         return count;
      count.isWhole &= received.kind == Netlink::Received::datagram;
      Netlink::forEachMessage(received.bytes, [&](Message const& message) {
         count.changed += message.type == RTM_NEWLINK;
         count.deleted += message.type == RTM_DELLINK;
      });
   }
}

} // namespace Bench
