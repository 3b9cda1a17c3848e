#include "KernelDevices.h"

#include "Netlink/Kernel.h"
#include "Netlink/Message.h"
#include "Words.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <linux/if_link.h>
#include <net/if.h>
#include <sys/socket.h>

namespace Vornctl {

namespace {

using Netlink::fixedFrom;
using Netlink::forEachAttribute;

// A dump is asked for again when devices changed meanwhile, or a part of it was too long for its buffer.
constexpr int maxDumps = 8;

// Of linux/if.h, which can't be had beside net/if.h.
constexpr uint32_t lowerUpFlag = 1 << 16;
constexpr uint32_t dormantFlag = 1 << 17;

std::string_view untilZero(std::string_view value) {
   return value.substr(0, value.find('\0'));
}

void readLinkInfo(std::string_view bytes, KernelDevice& device) {
   forEachAttribute(bytes, [&](uint16_t type, std::string_view value) {
      if (type == IFLA_INFO_KIND)
         device.kind = untilZero(value);
   });
   if (device.kind != "vlan")
      return;
   forEachAttribute(bytes, [&](uint16_t type, std::string_view value) {
      if (type == IFLA_INFO_DATA)
         forEachAttribute(value, [&](uint16_t inner, std::string_view number) {
            if (inner == IFLA_VLAN_ID)
               device.vlanId = fixedFrom<uint16_t>(number).value_or(0);
         });
   });
}

void readDevice(std::string_view payload, KernelNamespace& out) {
   auto const header = fixedFrom<ifinfomsg>(payload);
   if (!header || header->ifi_family != AF_UNSPEC)
      return;
   KernelDevice device;
   std::string name;
   device.index = header->ifi_index;
   device.flags = header->ifi_flags;
   forEachAttribute(payload.substr(sizeof *header), [&](uint16_t type, std::string_view value) {
      switch (type) {
      case IFLA_IFNAME:
         name = untilZero(value);
         break;
      case IFLA_ADDRESS:
         if (auto const bytes = fixedFrom<std::array<uint8_t, Sulvi::EthAddr::size>>(value);
             bytes && value.size() == Sulvi::EthAddr::size)
            device.addr = Sulvi::EthAddr(*bytes);
         break;
      case IFLA_MTU:
         device.mtu = fixedFrom<uint32_t>(value).value_or(0);
         break;
      case IFLA_OPERSTATE:
         device.operState = fixedFrom<uint8_t>(value).value_or(0);
         break;
      case IFLA_LINK:
         device.baseIndex = static_cast<int>(fixedFrom<uint32_t>(value).value_or(0));
         break;
      case IFLA_LINK_NETNSID:
         device.isBaseHere = false;
         break;
      case IFLA_LINKINFO:
         readLinkInfo(value, device);
         break;
      }
   });
   if (!name.empty())
      out.deviceByName[name] = device;
}

enum class Dump { whole, disturbed, failed };

Dump readDump(Netlink::Channel& channel, uint32_t sequence, KernelNamespace& out, int& error) {
   Netlink::MessageBuilder request(RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP, ifinfomsg{});
   request.sequenceIs(sequence);
   error = channel.send(request.bytes());
   if (error != 0)
      return Dump::failed;
   bool isDisturbed = false, isAtEnd = false;
   while (!isAtEnd) {
      auto const received = channel.receive();
      if (received.kind == Netlink::Received::nothing) {
         error = ENODATA;
         return isDisturbed ? Dump::disturbed : Dump::failed;
      }
      if (received.kind == Netlink::Received::lost) {
         error = received.error;
         if (received.isFailure())
            return Dump::failed;
         isDisturbed = true;
         continue;
      }
      bool const isWhole = Netlink::forEachMessage(received.bytes, [&](Netlink::Message const& message) {
         if (message.sequence != sequence)
            return; // of a dump that was given up
         isDisturbed |= (message.flags & NLM_F_DUMP_INTR) != 0;
         if (message.type == RTM_NEWLINK) {
            readDevice(message.payload, out);
         } else if (message.type == NLMSG_DONE || message.type == NLMSG_ERROR) {
            error = -fixedFrom<int32_t>(message.payload).value_or(0);
            isAtEnd = true;
         }
      });
      if (!isWhole) {
         error = EPROTO;
         return Dump::failed;
      }
   }
   return error != 0 ? Dump::failed : isDisturbed ? Dump::disturbed : Dump::whole;
}

KernelNamespace readNamespace(AgentProcess const& agent, Sulvi::NamespaceName const& netNs) {
   AgentProcess::Visit const visit(agent);
   if (visit.error() != 0 && netNs.isDefault())
      return {.exists = true,
              .problem = std::string("the agent's network namespace can't be entered: ") +
                         std::strerror(visit.error()),
              .deviceByName = {}};
   if (!netNs.isDefault() && Netlink::kernel().netNsInode(netNs) == 0)
      return {.exists = false, .problem = "there is no such namespace", .deviceByName = {}};
   auto const channel = Netlink::kernel().channel(netNs, 0);
   if (!channel)
      return {.exists = true,
              .problem = std::string("it can't be entered: ") + std::strerror(errno),
              .deviceByName = {}};
   return readDevices(*channel);
}

} // namespace

bool KernelDevice::isUp() const {
   return flags & IFF_UP;
}

std::string kernelOperStateText(uint8_t operState) {
   constexpr char const* names[] = {"unknown", "not present", "down", "lower layer down",
                                    "testing", "dormant",     "up"};
   return operState < std::size(names) ? names[operState] : "state " + std::to_string(operState);
}

std::string kernelFlagsText(uint32_t flags) {
   struct Flag {
      uint32_t bit;
      char const* name;
   };
   constexpr Flag all[] = {{IFF_UP, "up"},
                           {IFF_RUNNING, "running"},
                           {lowerUpFlag, "lower up"},
                           {dormantFlag, "dormant"},
                           {IFF_BROADCAST, "broadcast"},
                           {IFF_MULTICAST, "multicast"},
                           {IFF_LOOPBACK, "loopback"},
                           {IFF_PROMISC, "promiscuous"},
                           {IFF_NOARP, "no ARP"}};
   std::string text;
   for (auto const& [bit, name] : all)
      if (flags & bit)
         text += (text.empty() ? "" : ", ") + std::string(name);
   return text.empty() ? "none" : text;
}

KernelDevice const* KernelNamespace::findDevice(std::string const& name) const {
   auto const found = deviceByName.find(name);
   return found != deviceByName.end() ? &found->second : nullptr;
}

std::string KernelNamespace::nameOf(int index) const {
   for (auto const& [name, device] : deviceByName)
      if (device.index == index)
         return name;
   return {};
}

KernelNamespace const& KernelView::at(Sulvi::NamespaceName const& netNs) {
   std::string const key = netNs.isDefault() ? "" : netNs.stringValue().str();
   auto const found = namespaces_.find(key);
   return found != namespaces_.end() ? found->second
                                     : namespaces_.emplace(key, readNamespace(agent_, netNs)).first->second;
}

KernelNamespace readDevices(Netlink::Channel& channel) {
   int error = 0;
   for (int i = 1; i <= maxDumps; ++i) {
      KernelNamespace read{.exists = true, .problem = {}, .deviceByName = {}};
      Dump const dump = readDump(channel, static_cast<uint32_t>(i), read, error);
      if (dump == Dump::whole)
         return read;
      if (dump == Dump::failed)
         break;
      error = EAGAIN;
   }
   return {.exists = true,
           .problem = error == EAGAIN
                          ? std::string("its devices change all the time")
                          : std::string("the kernel doesn't list its devices: ") + std::strerror(error),
           .deviceByName = {}};
}

} // namespace Vornctl
