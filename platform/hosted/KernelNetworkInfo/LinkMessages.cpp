#include "KernelNetworkInfo/LinkMessages.h"

#include "Netlink/Message.h"

#include <net/if.h>
#include <sys/socket.h>

namespace KernelNetworkInfo {

namespace {

using Netlink::Message;

// The text up to its terminating zero; empty where it can be no name of a device.
std::string_view deviceName(std::string_view value) {
   value = value.substr(0, value.find('\0'));
   return value.size() < IFNAMSIZ && value.find('/') == std::string_view::npos ? value : std::string_view();
}

bool readLink(Message const& message, std::vector<LinkEvent>& events) {
   auto const header = Netlink::fixedFrom<ifinfomsg>(message.payload);
   if (!header)
      return false;
   if (header->ifi_family != AF_UNSPEC)
      return true;
   LinkEvent event;
   event.kind = message.type == RTM_NEWLINK ? LinkEvent::present : LinkEvent::gone;
   event.isInterrupted = message.flags & NLM_F_DUMP_INTR;
   event.index = header->ifi_index;
   event.flags = header->ifi_flags;
   event.sequence = message.sequence;
   // The structure is padded as messages are; it has no padding of its own.
   static_assert(sizeof(ifinfomsg) == NLMSG_ALIGN(sizeof(ifinfomsg)));
   bool const isWhole = Netlink::forEachAttribute(
       message.payload.substr(sizeof(ifinfomsg)), [&](uint16_t type, std::string_view value) {
          if (type == IFLA_IFNAME)
             event.name = deviceName(value);
          else if (type == IFLA_MTU)
             event.mtu = Netlink::fixedFrom<uint32_t>(value).value_or(0);
       });
   if (!isWhole || event.index <= 0 || event.name.empty())
      return false;
   events.push_back(std::move(event));
   return true;
}

// NLMSG_DONE holds the result, NLMSG_ERROR what was wrong with a request; both as a negative errno.
bool readEnd(Message const& message, std::vector<LinkEvent>& events) {
   auto const result = Netlink::fixedFrom<int32_t>(message.payload);
   if (!result || *result > 0 || *result < -4095)
      return false;
   if (message.type == NLMSG_ERROR && *result == 0)
      return true; // an acknowledgement
   LinkEvent event;
   event.kind = LinkEvent::dumpEnd;
   event.isInterrupted = message.flags & NLM_F_DUMP_INTR;
   event.sequence = message.sequence;
   event.error = -*result;
   events.push_back(std::move(event));
   return true;
}

bool readMessage(Message const& message, std::vector<LinkEvent>& events) {
   switch (message.type) {
   case RTM_NEWLINK:
   case RTM_DELLINK:
      return readLink(message, events);
   case NLMSG_DONE:
   case NLMSG_ERROR:
      return readEnd(message, events);
   case NLMSG_OVERRUN:
      return false;
   default:
      return true;
   }
}

} // namespace

bool readLinkEvents(std::string_view datagram, std::vector<LinkEvent>& events) {
   bool areAllRead = true;
   bool const isWhole = Netlink::forEachMessage(
       datagram, [&](Message const& message) { areAllRead &= readMessage(message, events); });
   return isWhole && areAllRead;
}

} // namespace KernelNetworkInfo
