#include "Ordel/wire/Messages.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace Ordel;
using namespace std::string_view_literals;

// The payload of the one frame that the message makes.
template <class M>
std::string payloadOf(M const& message) {
   FrameBuffer buffer;
   encode(buffer, message);
   FrameReader reader;
   std::string payload;
   int count = 0;
   EXPECT_TRUE(reader.read(buffer.view(), [&](Frame frame, std::string_view bytes) {
      EXPECT_EQ(frame, M::frame);
      payload = bytes;
      ++count;
      return true;
   }));
   EXPECT_EQ(count, 1);
   return payload;
}

// Every beginning of the payload is refused, and so is a byte behind it.
template <class M>
void verifyExact(std::string const& payload) {
   for (size_t size = 0; size < payload.size(); ++size) {
      M message;
      EXPECT_FALSE(decode(std::string_view(payload).substr(0, size), message)) << size;
   }
   M message;
   EXPECT_TRUE(decode(payload, message));
   EXPECT_FALSE(decode(payload + "x", message));
}

TEST(MessagesTest, layoutIsThatOfTheProtocol) {
   EXPECT_EQ(payloadOf(Message::Hello{.fingerprint = 7, .name = "ab", .role = Role::agent}),
             "ORDL\2\0\7\0\0\0\0\0\0\0\2ab\1"sv);
   EXPECT_EQ(payloadOf(Message::Mount{258, "a/b", "T", mountAwait}), "\2\1\0\0\3a/b\1T\4"sv);
   EXPECT_EQ(payloadOf(Message::Write{1, 2, writeStrict, {"ops"}}), "\1\0\0\0\2\0\0\0\0\0\0\0\1ops"sv);
   EXPECT_EQ(payloadOf(Message::Settle{1, 2, "a"}), "\1\0\0\0\2\0\0\0\1a"sv);
   EXPECT_EQ(payloadOf(Message::Clients{3}), "\3\0\0\0"sv);
   EXPECT_EQ(payloadOf(Message::Welcome{.fingerprint = 7, .systemName = "s"}), "\2\0\7\0\0\0\0\0\0\0\1s"sv);
   EXPECT_EQ(payloadOf(Message::Refused{"no"}), "\2no"sv);
   EXPECT_EQ(payloadOf(Message::Mounted{1, 2, 3, "p"}), "\1\0\0\0\2\0\0\0\3\0\1p"sv);
   EXPECT_EQ(payloadOf(Message::MountFailed{1, Status::absent, "r"}), "\1\0\0\0\1\1r"sv);
   EXPECT_EQ(payloadOf(Message::Changes{5, {"ops"}}), "\5\0\0\0\0\0\0\0ops"sv);
   EXPECT_EQ(payloadOf(Message::Reply{1, Status::refused, "t"}), "\1\0\0\0\3\1t"sv);
   EXPECT_EQ(payloadOf(Message::Probe{9}), "\x09\0\0\0"sv);
}

TEST(MessagesTest, whatWasEncodedIsDecoded) {
   Message::Mount mount;
   ASSERT_TRUE(decode(payloadOf(Message::Mount{258, "a/b", "T", mountAwait}), mount));
   EXPECT_EQ(mount.mount, 258u);
   EXPECT_EQ(mount.flags, mountAwait);
   std::string const payload = payloadOf(Message::Write{1, 2, writeStrict, {"ops"}});
   Message::Write write;
   ASSERT_TRUE(decode(payload, write));
   EXPECT_EQ(write.seen, 2u);
   EXPECT_EQ(write.operations.bytes, "ops");
   std::string const text = payloadOf(Message::Reply{7, Status::absent, std::string(1000, 't')});
   Message::Reply reply;
   ASSERT_TRUE(decode(text, reply));
   EXPECT_EQ(reply.status, Status::absent);
   EXPECT_EQ(reply.text, std::string(1000, 't'));
}

TEST(MessagesTest, payloadMustBeOneMessageExactly) {
   verifyExact<Message::Hello>(payloadOf(Message::Hello{.name = "name"}));
   verifyExact<Message::Mount>(payloadOf(Message::Mount{1, "selector", "type", 0}));
   verifyExact<Message::Unmount>(payloadOf(Message::Unmount{1}));
   verifyExact<Message::Settle>(payloadOf(Message::Settle{1, 2, "Vorn"}));
   verifyExact<Message::Welcome>(payloadOf(Message::Welcome{.systemName = "name"}));
   verifyExact<Message::Refused>(payloadOf(Message::Refused{"reason"}));
   verifyExact<Message::Mounted>(payloadOf(Message::Mounted{1, 2, 3, "path"}));
   verifyExact<Message::MountFailed>(payloadOf(Message::MountFailed{1, Status::absent, "reason"}));
   verifyExact<Message::Reply>(payloadOf(Message::Reply{1, Status::done, "text"}));
}

TEST(MessagesTest, headOfAHelloIsReadWhateverFollows) {
   Message::HelloHead head;
   ASSERT_TRUE(decode("ORDL\x09\0anything"sv, head));
   EXPECT_EQ(head.magic, protocolMagic);
   EXPECT_EQ(head.version, 9);
   EXPECT_FALSE(decode("ORDL\x09"sv, head));
}

TEST(FrameReaderTest, whatIsNotWantedIsHeldInItsOrder) {
   FrameBuffer buffer;
   for (uint32_t i = 0; i < 5; ++i)
      encode(buffer, Message::Clients{i});
   std::string const bytes(buffer.view());
   FrameReader reader;
   int room = 2;
   std::string taken;
   auto const read = [&](std::string_view more) {
      return reader.read(
          more, [&] { return room-- > 0; },
          [&](Frame, std::string_view payload) {
             taken += static_cast<char>('0' + payload[0]);
             return true;
          });
   };
   EXPECT_TRUE(read(bytes.substr(0, bytes.size() - 1)));
   EXPECT_EQ(taken, "01");
   EXPECT_TRUE(reader.isHeld());
   EXPECT_EQ(reader.partialBytes(), 0u);
   room = 1;
   EXPECT_TRUE(read(""));
   EXPECT_EQ(taken, "012");
   EXPECT_TRUE(reader.isHeld());
   room = 100;
   EXPECT_TRUE(read(""));
   EXPECT_EQ(taken, "0123");
   EXPECT_FALSE(reader.isHeld());
   EXPECT_EQ(reader.partialBytes(), 8u);
   room = 0;
   EXPECT_TRUE(read(bytes.substr(bytes.size() - 1))); // the frame that came in part is whole, and not wanted
   EXPECT_TRUE(reader.isHeld());
   room = 1;
   EXPECT_TRUE(read(""));
   EXPECT_EQ(taken, "01234");
   EXPECT_EQ(reader.partialBytes(), 0u);
}

} // namespace
