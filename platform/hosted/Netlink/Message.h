// Netlink messages as bytes: taking apart what the kernel sends, and putting requests together. No sockets
// here, and no knowledge of what the messages mean.
//
// Whatever the bytes are, nothing outside of them is read: a length that leads out of the datagram ends the
// walk, and the caller can see that. Views point into the datagram. Numbers are in the order of the host,
// layouts those of linux/netlink.h and linux/rtnetlink.h; nothing need be aligned.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Netlink {

// The first bytes as a T; nothing where they are too few.
template <class T>
std::optional<T> fixedFrom(std::string_view bytes) {
   static_assert(std::is_trivially_copyable_v<T>);
   if (bytes.size() < sizeof(T))
      return std::nullopt;
   T value;
   std::memcpy(&value, bytes.data(), sizeof value);
   return value;
}

struct Message {
   uint16_t type;
   uint16_t flags;
   uint32_t sequence; // of the request that it answers; of a notification, whatever its cause had
   std::string_view payload;
};

// Calls visit(message) for each message of a datagram. False when it ends in something that is no message;
// those before it have been visited.
template <class Visit>
bool forEachMessage(std::string_view datagram, Visit&& visit) {
   while (!datagram.empty()) {
      auto const header = fixedFrom<nlmsghdr>(datagram);
      if (!header || header->nlmsg_len < sizeof *header || header->nlmsg_len > datagram.size())
         return false;
      visit(Message{header->nlmsg_type, header->nlmsg_flags, header->nlmsg_seq,
                    datagram.substr(sizeof *header, header->nlmsg_len - sizeof *header)});
      // The last message may come without its padding.
      datagram.remove_prefix(std::min<size_t>(NLMSG_ALIGN(size_t(header->nlmsg_len)), datagram.size()));
   }
   return true;
}

// Calls visit(type, value) for each attribute, the flags of the type taken off. False when the bytes end in
// something that is no attribute.
template <class Visit>
bool forEachAttribute(std::string_view bytes, Visit&& visit) {
   while (!bytes.empty()) {
      auto const header = fixedFrom<rtattr>(bytes);
      if (!header || header->rta_len < sizeof *header || header->rta_len > bytes.size())
         return false;
      visit(static_cast<uint16_t>(header->rta_type & NLA_TYPE_MASK),
            bytes.substr(sizeof *header, header->rta_len - sizeof *header));
      bytes.remove_prefix(std::min<size_t>(RTA_ALIGN(size_t(header->rta_len)), bytes.size()));
   }
   return true;
}

// Builds one message; in tests also what a kernel would send.
class MessageBuilder {
  public:
   // `header` is the fixed part behind the netlink header, such as an ifinfomsg.
   template <class Header>
   MessageBuilder(uint16_t type, uint16_t flags, Header const& header) : MessageBuilder(type, flags) {
      append(&header, sizeof header);
   }
   void attribute(uint16_t type, void const* value, size_t bytes);
   void attribute(uint16_t type, std::string_view value) { attribute(type, value.data(), value.size()); }
   // A string with its terminating zero.
   void textAttribute(uint16_t type, std::string_view text) { attribute(type, std::string(text) + '\0'); }
   // Attributes that are added until nestEnd() are inside of this one.
   size_t nestBegin(uint16_t type);
   // A fixed structure that is in front of attributes inside of another one.
   template <class T>
   void raw(T const& value) {
      append(&value, sizeof value);
   }
   void nestEnd(size_t begin);

   void flagsAdd(uint16_t flags);
   void sequenceIs(uint32_t sequence);
   // The message with its length set.
   std::string const& bytes() const { return bytes_; }

  private:
   MessageBuilder(uint16_t type, uint16_t flags);
   void append(void const* data, size_t bytes);
   void edit(void (*change)(nlmsghdr&, uint32_t), uint32_t value);

   std::string bytes_;
};

} // namespace Netlink
