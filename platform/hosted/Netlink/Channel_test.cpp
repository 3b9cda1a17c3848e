#include "Netlink/Channel.h"

#include "Netlink/Kernel.h"
#include "Netlink/TestChannel.h"
#include "Netlink/TestNamespace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace {

using namespace Netlink;

struct TransactTest : testing::Test {
   int ask() { return transact(channel, MessageBuilder(RTM_SETLINK, 0, ifinfomsg{})); }
   TestChannel channel;
};

TEST_F(TransactTest, answersWhatTheKernelSays) {
   channel.onSend = [&](uint32_t sequence) { channel.deliver(errorMessage(sequence, 0)); };
   EXPECT_EQ(ask(), 0);
   channel.onSend = [&](uint32_t sequence) { channel.deliver(errorMessage(sequence, ENODEV)); };
   EXPECT_EQ(ask(), ENODEV);
   auto const header = *fixedFrom<nlmsghdr>(channel.sent[1]);
   EXPECT_EQ(header.nlmsg_flags, NLM_F_REQUEST | NLM_F_ACK);
   EXPECT_EQ(header.nlmsg_seq, fixedFrom<nlmsghdr>(channel.sent[0])->nlmsg_seq + 1);
}

TEST_F(TransactTest, answersOfEarlierRequestsAreSkipped) {
   channel.onSend = [&](uint32_t sequence) {
      channel.deliver(errorMessage(sequence - 1, EPERM));
      channel.lose(ENOBUFS);
      channel.deliver(linkMessage(RTM_NEWLINK, 1, "lo", 0, sequence) + errorMessage(sequence, EBUSY));
   };
   EXPECT_EQ(ask(), EBUSY);
}

TEST_F(TransactTest, failuresOfTheChannelAreErrors) {
   EXPECT_EQ(ask(), ENODATA);
   channel.onSend = [&](uint32_t sequence) { channel.deliver(errorMessage(sequence, 0).substr(0, 20)); };
   EXPECT_EQ(ask(), EPROTO);
   channel.onSend = [&](uint32_t sequence) { channel.deliver(errorMessage(sequence, -5)); };
   EXPECT_EQ(ask(), EPROTO) << "a positive error is none of the kernel's";
   channel.onSend = nullptr;
   channel.sendError = EPERM;
   EXPECT_EQ(ask(), EPERM);
}

TEST_F(TransactTest, lastingErrorOfTheChannelIsTheAnswer) {
   channel.lastingError = EBADF;
   EXPECT_EQ(ask(), EBADF);
   EXPECT_EQ(channel.failureCount, 1);
   channel.lastingError = ENOBUFS; // goes on losing
   EXPECT_EQ(ask(), ENOBUFS);
   EXPECT_LT(channel.failureCount, 30);
}

TEST(NetlinkSocket, socketOfAMissingNamespaceIsNotOpen) {
   Socket socket("netlink-test-no-such-namespace", 0);
   EXPECT_FALSE(socket.isOpen());
   EXPECT_NE(socket.error(), 0);
   EXPECT_EQ(socket.send("x"), socket.error());
   EXPECT_EQ(socket.receive().kind, Received::nothing);
   EXPECT_EQ(socket.descriptor(), -1);
}

TEST(NetlinkSocket, onlyTheKernelIsHeard) {
   Socket socket("", 0);
   ASSERT_TRUE(socket.isOpen());
   sockaddr_nl own{};
   socklen_t bytes = sizeof own;
   ASSERT_EQ(getsockname(socket.descriptor(), reinterpret_cast<sockaddr*>(&own), &bytes), 0);
   int const other = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
   std::string const forged = linkMessage(RTM_NEWLINK, 1, "forged");
   own.nl_groups = 0;
   if (sendto(other, forged.data(), forged.size(), 0, reinterpret_cast<sockaddr*>(&own), sizeof own) < 0)
      GTEST_SKIP() << "the kernel lets no process send to another one: " << strerror(errno);
   close(other);
   EXPECT_EQ(socket.receive().kind, Received::nothing);
}

TEST(NetlinkSocket, realKernelAnswersRequests) {
   TestNamespace ns;
   if (!ns.isEntered())
      GTEST_SKIP() << "no right to make a network namespace";
   EXPECT_EQ(ns.upIs("lo", true), 0);
   EXPECT_NE(ns.remove("lo"), 0) << "the kernel keeps that one";
   EXPECT_EQ(if_nametoindex("lo"), 1u);
}

TEST(NetlinkSocket, whatWasReadTogetherIsGivenInOrderAndToldOf) {
   TestNamespace ns;
   if (!ns.isEntered())
      GTEST_SKIP() << "no right to make a network namespace";
   Socket socket("", RTMGRP_LINK);
   constexpr int changes = 50; // more than one batch
   for (int i = 0; i < changes; ++i)
      ASSERT_EQ(ns.upIs("lo", i % 2 == 0), 0);
   EXPECT_FALSE(socket.hasMore());
   int count = 0, hidden = 0;
   for (Received received; (received = socket.receive()).kind == Received::datagram;)
      forEachMessage(received.bytes, [&](Message const& message) {
         bool const isUp = fixedFrom<ifinfomsg>(message.payload)->ifi_flags & IFF_UP;
         EXPECT_EQ(isUp, count % 2 == 0) << count;
         ++count;
         pollfd bell = {socket.descriptor(), POLLIN, 0};
         if (poll(&bell, 1, 0) == 0 && socket.hasMore())
            ++hidden;
      });
   EXPECT_EQ(count, changes);
   EXPECT_GT(hidden, 0) << "those of the last batch are not seen at the descriptor";
   EXPECT_FALSE(socket.hasMore());
}

TEST(LinuxKernel, indexOfADeviceIsThatInTheNamespaceOfTheSocket) {
   int const outside = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   {
      TestNamespace ns;
      if (!ns.isEntered())
         GTEST_SKIP() << "no right to make a network namespace";
      if (int const error = ns.pairIs("left0", "right0"))
         GTEST_SKIP() << "this kernel makes no pair of devices: " << strerror(error);
      Socket route("", 0);
      EXPECT_EQ(kernel().ifNametoindex("left0", route.descriptor()), if_nametoindex("left0"));
      errno = 0;
      EXPECT_EQ(kernel().ifNametoindex("left0", outside), 0u);
      EXPECT_EQ(errno, ENODEV);
      errno = 0;
      EXPECT_EQ(kernel().ifNametoindex("sixteen-bytes-ab", route.descriptor()), 0u);
      EXPECT_EQ(errno, ENODEV);
   }
   close(outside);
}

} // namespace
