#include "Vorn/KernelDevices/RtnetlinkRequest.h"

#include "Kem/TestTrace.h"
#include "Netlink/TestChannel.h"
#include "NetlinkTesting/FakeKernel.h"
#include "Vorn/KernelDevices/TestScript.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;
using Vorn::ScriptedKernel;

struct NetlinkReqTest : testing::Test {
   NetlinkReqTest() {
      request.nlmsg_len = sizeof request;
      request.nlmsg_type = RTM_NEWLINK;
      request.nlmsg_flags = NLM_F_REQUEST;
   }
   int result() {
      errno = 0;
      return Vorn::netlinkReq(9, &request);
   }
   // The acknowledgement of the request in a datagram.
   ScriptedKernel::Answer ack(int error) {
      return [error](uint32_t sequence) {
         return ScriptedKernel::Datagram{Netlink::errorMessage(sequence, error)};
      };
   }

   Kem::TestTrace trace;
   ScriptedKernel kernel;
   nlmsghdr request{};
};

TEST_F(NetlinkReqTest, sendsTheRequestToTheKernelAndReturnsAtTheAcknowledgement) {
   kernel.answers = {ack(0)};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(request.nlmsg_flags, NLM_F_REQUEST | NLM_F_ACK);
   ASSERT_EQ(kernel.sent.size(), 1u);
   EXPECT_EQ(kernel.sent[0], std::string(reinterpret_cast<char const*>(&request), sizeof request));
   EXPECT_EQ(kernel.sentTo, (std::string("\x10\0\0\0\0\0\0\0\0\0\0\0", 12)));
   EXPECT_EQ(kernel.lastFd, 9);
   EXPECT_EQ(kernel.replyRoom, 16384u);
   EXPECT_EQ(trace.take(), Lines{});
}

TEST_F(NetlinkReqTest, sequenceNumbersBeginAtOneAndGoUpByOne) {
   testing::GTEST_FLAG(death_test_style) = "threadsafe"; // a process that has sent nothing yet
   auto const sendTwo = [&] {
      kernel.answers = {ack(0), ack(0)};
      result();
      bool const isFirst = request.nlmsg_seq == 1;
      result();
      _exit(isFirst && request.nlmsg_seq == 2 ? 0 : 1);
   };
   EXPECT_EXIT(sendTwo(), testing::ExitedWithCode(0), "");
}

TEST_F(NetlinkReqTest, acknowledgementEndsTheWaitWhateverComesBehindIt) {
   kernel.answers = {[](uint32_t sequence) {
      return ScriptedKernel::Datagram{Netlink::errorMessage(sequence, 0) + "what can't be read at all"};
   }};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{});
}

TEST_F(NetlinkReqTest, skipsWhatIsNotItsAnswerWithoutALine) {
   kernel.answers = {
       [](uint32_t sequence) { return ScriptedKernel::Datagram{Netlink::errorMessage(sequence - 1, EPERM)}; },
       [](uint32_t sequence) {
          return ScriptedKernel::Datagram{Netlink::errorMessage(sequence, EPERM), {.port = 77}};
       },
       ack(0)};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{});
}

TEST_F(NetlinkReqTest, anotherTypeOfReplyIsTracedAndTheWaitGoesOn) {
   kernel.answers = {
       [](uint32_t sequence) { return ScriptedKernel::Datagram{Netlink::doneMessage(sequence)}; }, ack(0)};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{"Unexpected reply"});
}

TEST_F(NetlinkReqTest, aMissingDeviceAndAnExistingOneAreFinal) {
   for (int const error : {ENODEV, EEXIST}) {
      kernel.answers = {ack(error)};
      EXPECT_EQ(result(), -1);
      EXPECT_EQ(errno, error);
      EXPECT_EQ(trace.take(), Lines{std::string("RTNETLINK answer: ") + strerror(error)});
   }
}

TEST_F(NetlinkReqTest, anyOtherErrorIsTracedAndTheWaitGoesOn) {
   kernel.answers = {ack(EPERM)};
   EXPECT_THROW(result(), ScriptedKernel::NothingLeft);
   EXPECT_EQ(trace.take(), (Lines{"RTNETLINK answer: Operation not permitted", "Unexpected reply"}));
   EXPECT_EQ(errno, EPERM);

   kernel.answers = {ack(EPERM), ack(0)};
   EXPECT_EQ(result(), 0);
   kernel.answers = {ack(EPERM), ack(EEXIST)};
   EXPECT_EQ(result(), -1);
   EXPECT_EQ(errno, EEXIST);
   // The kernel's error stays when nothing more can be read.
   kernel.answers = {ack(EPERM), [](uint32_t) { return ScriptedKernel::Datagram{}; }};
   EXPECT_EQ(result(), -1);
   EXPECT_EQ(errno, EPERM);
}

TEST_F(NetlinkReqTest, severalMessagesInADatagramAreReadInOrder) {
   kernel.answers = {[](uint32_t sequence) {
      return ScriptedKernel::Datagram{Netlink::errorMessage(sequence - 1, EEXIST) +
                                      Netlink::linkMessage(RTM_NEWLINK, 3, "eth0", 0, sequence) +
                                      Netlink::errorMessage(sequence, ENODEV) +
                                      Netlink::errorMessage(sequence, 0)};
   }};
   EXPECT_EQ(result(), -1);
   EXPECT_EQ(errno, ENODEV);
   EXPECT_EQ(trace.take(), (Lines{"Unexpected reply", "RTNETLINK answer: No such device"}));
}

TEST_F(NetlinkReqTest, failedCallsAreTraced) {
   kernel.sendError = ENOBUFS;
   EXPECT_EQ(result(), -1);
   EXPECT_EQ(errno, ENOBUFS);
   kernel.sendError = 0;
   kernel.answers = {[](uint32_t) { return ScriptedKernel::Datagram{{}, {.error = ENOMEM}}; }};
   EXPECT_EQ(result(), -1);
   EXPECT_EQ(errno, ENOMEM);
   EXPECT_EQ(trace.take(),
             (Lines{"rtnetlink sendmsg error: -1", "rtnetlink recvmsg error: 12 Cannot allocate memory"}));
}

TEST_F(NetlinkReqTest, interruptionsAreTriedAgainAtOnce) {
   auto const interrupted = [](uint32_t) { return ScriptedKernel::Datagram{{}, {.error = EINTR}}; };
   auto const again = [](uint32_t) { return ScriptedKernel::Datagram{{}, {.error = EAGAIN}}; };
   kernel.answers.assign(500, interrupted);
   kernel.answers.insert(kernel.answers.end(), 500, again);
   kernel.answers.push_back(ack(0));
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{});
}

TEST_F(NetlinkReqTest, whatIsNoAnswerAtAllEndsTheWaitWithAnErrorOfItsOwn) {
   auto const failsWith = [&](ScriptedKernel::Answer answer, std::string const& line) {
      kernel.answers = {std::move(answer)};
      errno = EEXIST; // of something else
      EXPECT_EQ(Vorn::netlinkReq(9, &request), -1) << line;
      EXPECT_EQ(errno, EPROTO) << line;
      EXPECT_EQ(trace.take(), Lines{line});
   };
   auto const datagram = [](std::string bytes, ScriptedKernel::Circumstances c = {}) {
      return [bytes, c](uint32_t) { return ScriptedKernel::Datagram{bytes, c}; };
   };
   auto const header = [](uint32_t length) {
      nlmsghdr h{};
      h.nlmsg_len = length;
      return std::string(reinterpret_cast<char const*>(&h), sizeof h);
   };
   failsWith(datagram(""), "EOF on rtnetlink");
   failsWith(datagram(header(16), {.senderBytes = 8}), "sender address length == 8");
   failsWith(datagram(header(15)), "Malformed message: len=15");
   failsWith(datagram(header(17)), "Malformed message: len=17");
   failsWith(datagram(header(0)), "Malformed message: len=0");
   failsWith(datagram(header(0xffffffff)), "Malformed message: len=4294967295");
   failsWith(datagram(header(17), {.flags = MSG_TRUNC}), "Truncated message");
   failsWith(datagram(header(16) + "12345"), "Remnant of size 5");
   failsWith(
       [](uint32_t sequence) {
          auto bytes = Netlink::errorMessage(sequence, 0).substr(0, 35);
          uint32_t const length = 35;
          std::memcpy(bytes.data(), &length, sizeof length);
          return ScriptedKernel::Datagram{bytes};
       },
       "NLMSG_ERROR truncated");
}

TEST_F(NetlinkReqTest, aDatagramThatWasCutBehindAMessageIsNotTheEnd) {
   kernel.answers = {[](uint32_t sequence) {
                        return ScriptedKernel::Datagram{Netlink::errorMessage(sequence - 1, 0) + "123",
                                                        {.flags = MSG_TRUNC}};
                     },
                     ack(0)};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{"Message truncated"});
}

TEST_F(NetlinkReqTest, aLastMessageWithoutItsPaddingLeavesNothing) {
   kernel.answers = {[](uint32_t sequence) {
                        auto bytes = Netlink::errorMessage(sequence - 1, 0) + "1";
                        auto const length = static_cast<uint32_t>(bytes.size());
                        std::memcpy(bytes.data(), &length, sizeof length);
                        return ScriptedKernel::Datagram{bytes};
                     },
                     ack(0)};
   EXPECT_EQ(result(), 0);
   EXPECT_EQ(trace.take(), Lines{});
}

struct AddAttrTest : testing::Test {
   AddAttrTest() { header()->nlmsg_len = 32; }
   nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(bytes.data()); }
   std::string from(size_t begin, size_t end) { return {bytes.data() + begin, end - begin}; }

   Kem::TestTrace trace;
   alignas(4) std::array<char, 64> bytes{};
};

TEST_F(AddAttrTest, attributesAreRoundedUpAndTheirPaddingIsLeftAlone) {
   bytes.fill('x');
   header()->nlmsg_len = 30;
   EXPECT_EQ(Vorn::addAttr(header(), 64, 3, "abcde", 5), 0);
   EXPECT_EQ(header()->nlmsg_len, 44u);
   EXPECT_EQ(from(28, 46), std::string("xxxx\x09\0\x03\0"
                                       "abcdexxxxx",
                                       18));
   EXPECT_EQ(Vorn::addAttr(header(), 64, 18, nullptr, 0), 0);
   EXPECT_EQ(header()->nlmsg_len, 48u);
   EXPECT_EQ(from(44, 49), std::string("\x04\0\x12\0x", 5));
}

TEST_F(AddAttrTest, whatDoesntFitIsRefusedAndChangesNothing) {
   auto const before = bytes;
   EXPECT_EQ(Vorn::addAttr(header(), 47, 3, "123456789", 9), -1); // 32 + 16
   EXPECT_EQ(bytes, before);
   EXPECT_EQ(trace.take(), Lines{"addAttr ERROR: data exceeds maxlen=47"});
   EXPECT_EQ(Vorn::addAttr(header(), 48, 3, "123456789", 9), 0);
   EXPECT_EQ(header()->nlmsg_len, 48u);
}

} // namespace
