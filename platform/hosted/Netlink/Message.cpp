#include "Netlink/Message.h"

namespace Netlink {

MessageBuilder::MessageBuilder(uint16_t type, uint16_t flags) {
   nlmsghdr header{};
   header.nlmsg_type = type;
   header.nlmsg_flags = flags;
   append(&header, sizeof header);
}

void MessageBuilder::append(void const* data, size_t bytes) {
   bytes_.append(static_cast<char const*>(data), bytes);
   bytes_.resize(NLMSG_ALIGN(bytes_.size()));
   edit([](nlmsghdr& header, uint32_t length) { header.nlmsg_len = length; },
        static_cast<uint32_t>(bytes_.size()));
}

void MessageBuilder::attribute(uint16_t type, void const* value, size_t bytes) {
   rtattr header{};
   header.rta_type = type;
   header.rta_len = static_cast<uint16_t>(sizeof header + bytes);
   std::string whole(reinterpret_cast<char const*>(&header), sizeof header);
   whole.append(static_cast<char const*>(value), bytes);
   append(whole.data(), whole.size());
}

size_t MessageBuilder::nestBegin(uint16_t type) {
   size_t const begin = bytes_.size();
   attribute(type, {});
   return begin;
}

void MessageBuilder::nestEnd(size_t begin) {
   auto const length = static_cast<uint16_t>(bytes_.size() - begin);
   std::memcpy(bytes_.data() + begin + offsetof(rtattr, rta_len), &length, sizeof length);
}

void MessageBuilder::flagsAdd(uint16_t flags) {
   edit([](nlmsghdr& header, uint32_t more) { header.nlmsg_flags |= static_cast<uint16_t>(more); }, flags);
}

void MessageBuilder::sequenceIs(uint32_t sequence) {
   edit([](nlmsghdr& header, uint32_t number) { header.nlmsg_seq = number; }, sequence);
}

void MessageBuilder::edit(void (*change)(nlmsghdr&, uint32_t), uint32_t value) {
   nlmsghdr header;
   std::memcpy(&header, bytes_.data(), sizeof header);
   change(header, value);
   std::memcpy(bytes_.data(), &header, sizeof header);
}

} // namespace Netlink
