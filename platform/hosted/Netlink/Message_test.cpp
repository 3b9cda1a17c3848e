#include "Netlink/Message.h"

#include "Netlink/TestChannel.h"

#include <gtest/gtest.h>

namespace {

using namespace Netlink;

std::string messagesOf(std::string_view datagram) {
   std::string text;
   bool const isWhole = forEachMessage(datagram, [&](Message const& message) {
      text += std::to_string(message.type) + "#" + std::to_string(message.sequence) + ":" +
              std::to_string(message.payload.size()) + ";";
   });
   return text + (isWhole ? "" : "damaged");
}

std::string attributesOf(std::string_view bytes) {
   std::string text;
   bool const isWhole = forEachAttribute(bytes, [&](uint16_t type, std::string_view value) {
      text += std::to_string(type) + "=" + std::string(value) + ";";
   });
   return text + (isWhole ? "" : "damaged");
}

std::string cut(std::string text, size_t bytes) {
   text.resize(bytes);
   return text;
}

TEST(NetlinkMessage, oneMessageHasItsTypeSequenceAndPayload) {
   EXPECT_EQ(messagesOf(doneMessage(7)), "3#7:4;");
   EXPECT_EQ(messagesOf(""), "");
}

TEST(NetlinkMessage, severalMessagesStandBehindOneAnother) {
   EXPECT_EQ(messagesOf(linkMessage(RTM_NEWLINK, 1, "lo") + errorMessage(2, 0)), "16#0:24;2#2:20;");
}

TEST(NetlinkMessage, whatLeadsOutOfTheDatagramEndsTheWalk) {
   std::string const two = doneMessage(1) + doneMessage(2);
   EXPECT_EQ(messagesOf(cut(two, two.size() - 1)), "3#1:4;damaged");
   EXPECT_EQ(messagesOf(cut(two, 20 + 15)), "3#1:4;damaged") << "less than a header";
   std::string shortLength = doneMessage(1);
   for (uint32_t const length : {0u, 15u, 21u, 0xffffffffu}) {
      std::memcpy(shortLength.data(), &length, sizeof length);
      EXPECT_EQ(messagesOf(shortLength), "damaged") << length;
   }
}

TEST(NetlinkMessage, lastMessageMayComeWithoutItsPadding) {
   std::string bytes = doneMessage(1) + "abc";
   uint32_t const length = static_cast<uint32_t>(bytes.size() - 1);
   std::memcpy(bytes.data(), &length, sizeof length);
   EXPECT_EQ(messagesOf(cut(bytes, length)), "3#1:6;");
}

TEST(NetlinkMessage, attributesAreTakenApartAsTheyWerePut) {
   MessageBuilder message(RTM_NEWLINK, 0, ifinfomsg{});
   message.attribute(3, "abcde");
   size_t const nest = message.nestBegin(18);
   message.attribute(1, "x");
   message.nestEnd(nest);
   message.attribute(4 | NLA_F_NESTED, "");
   ASSERT_EQ(messagesOf(message.bytes()), "16#0:" + std::to_string(message.bytes().size() - 16) + ";");
   std::string_view const attributes = std::string_view(message.bytes()).substr(16 + sizeof(ifinfomsg));
   std::string const inner("\5\0\1\0x\0\0\0", 8);
   EXPECT_EQ(attributesOf(attributes), "3=abcde;18=" + inner + ";4=;");
   EXPECT_EQ(attributesOf(inner), "1=x;");
}

TEST(NetlinkMessage, attributeThatLeadsOutEndsTheWalk) {
   EXPECT_EQ(attributesOf({"\5\0\1\0x", 5}), "1=x;");
   EXPECT_EQ(attributesOf({"\6\0\1\0x", 5}), "damaged");
   EXPECT_EQ(attributesOf({"\3\0\1\0x", 5}), "damaged");
   EXPECT_EQ(attributesOf({"\0\0\1\0x", 5}), "damaged");
   EXPECT_EQ(attributesOf({"\5\0\1", 3}), "damaged");
}

} // namespace
