#include "Vorn/Pacing/AttrLogCheck.h"

#include "Kem/TestTrace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using Vorn::AttrLogCheck;

// A connected pair of sockets: the log writes to one end, and nobody reads the other unless drain() does.
class LogSocket final : public Kem::NboAttrLog::Link {
  public:
   LogSocket() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds_), 0); }
   ~LogSocket() {
      close(fds_[0]);
      close(fds_[1]);
   }
   int socketFd() const override { return isGone ? -7 : fds_[0]; }
   void writeOperations(std::string_view) override {}
   size_t unsentBytes() const override { return 0; }

   void fill() {
      std::string const piece(4096, 'x');
      while (write(fds_[0], piece.data(), piece.size()) > 0) {
      }
   }
   void put(size_t bytes) {
      std::string const text(bytes, 'x');
      EXPECT_EQ(write(fds_[0], text.data(), bytes), static_cast<ssize_t>(bytes));
   }
   void drain() {
      char buffer[65536];
      while (read(fds_[1], buffer, sizeof buffer) > 0) {
      }
   }
   int queued() const {
      int value = 0;
      EXPECT_EQ(ioctl(fds_[0], TIOCOUTQ, &value), 0);
      return value;
   }
   void sendBufferIs(int bytes) {
      EXPECT_EQ(setsockopt(fds_[0], SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes), 0);
   }
   int sendBuffer() const {
      int size = 0;
      socklen_t length = sizeof size;
      EXPECT_EQ(getsockopt(fds_[0], SOL_SOCKET, SO_SNDBUF, &size, &length), 0);
      return size;
   }

   bool isGone = false;

  private:
   int fds_[2];
};

struct AttrLogCheckTest : testing::Test {
   void start() {
      check.nboAttrLogOutSmIs(out);
      check.attrLogCodefInit();
   }
   LogSocket socket;
   Kem::Ptr<Kem::NboAttrLog::SocketOutSm> out = Kem::makePtr<Kem::NboAttrLog::SocketOutSm>(socket);
   AttrLogCheck check;
};

TEST_F(AttrLogCheckTest, startsWithNothingMeasured) {
   EXPECT_EQ(check.attrLogSockFd(), -1);
   EXPECT_EQ(check.attrLogKernBufferSize(), -1);
   EXPECT_EQ(check.attrLogKernBufferThreshold(), -1);
   EXPECT_EQ(check.attrLogKernBufferUsage(), -1);
   EXPECT_EQ(check.attrLogAboveThresholdCount(), 0u);
   EXPECT_EQ(check.iterUntilBufferCheck(), 1);
}

TEST_F(AttrLogCheckTest, thresholdIsHalfOfTheSizeThatTheKernelReports) {
   start();
   EXPECT_EQ(check.attrLogSockFd(), socket.socketFd());
   EXPECT_EQ(check.attrLogKernBufferSize(), socket.sendBuffer());
   EXPECT_EQ(check.attrLogKernBufferThreshold(), socket.sendBuffer() / 2);
}

TEST_F(AttrLogCheckTest, veryFirstCallMeasures) {
   start();
   EXPECT_TRUE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogKernBufferUsage(), 0);
   EXPECT_EQ(check.iterUntilBufferCheck(), 25);
}

TEST_F(AttrLogCheckTest, measuresAtEvery25thCallWhileThereIsRoom) {
   start();
   EXPECT_TRUE(check.isAttrLogReady());
   socket.fill();
   for (int call = 1; call < 25; ++call)
      EXPECT_TRUE(check.isAttrLogReady()) << call;
   EXPECT_FALSE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogAboveThresholdCount(), 1u);
}

TEST_F(AttrLogCheckTest, measuresAtEveryCallWhileThereIsNoRoom) {
   start();
   socket.fill();
   EXPECT_FALSE(check.isAttrLogReady());
   EXPECT_FALSE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogAboveThresholdCount(), 2u);
   socket.drain();
   EXPECT_TRUE(check.isAttrLogReady());
   EXPECT_EQ(check.iterUntilBufferCheck(), 25);
}

TEST_F(AttrLogCheckTest, bufferAtExactlyTheThresholdIsReady) {
   socket.put(9000);
   int const usage = socket.queued();
   socket.sendBufferIs(usage); // the kernel reports double
   ASSERT_EQ(socket.sendBuffer() / 2, usage);
   start();
   EXPECT_TRUE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogKernBufferUsage(), check.attrLogKernBufferThreshold());

   socket.sendBufferIs(usage - 1);
   AttrLogCheck below;
   below.nboAttrLogOutSmIs(out);
   below.attrLogCodefInit();
   EXPECT_FALSE(below.isAttrLogReady());
}

TEST_F(AttrLogCheckTest, withoutAnOutputItIsAlwaysReady) {
   check.attrLogCodefInit();
   for (int call = 0; call < 60; ++call)
      EXPECT_TRUE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogKernBufferUsage(), -1);
   // Nobody resets the count, so it has gone below zero, which means a measurement at the next call with
   // an output.
   EXPECT_EQ(check.iterUntilBufferCheck(), 1 - 60);
   socket.fill();
   start();
   EXPECT_FALSE(check.isAttrLogReady());
}

TEST_F(AttrLogCheckTest, withoutASocketUsageIsUnknownAndItIsReady) {
   socket.isGone = true;
   start();
   EXPECT_EQ(check.attrLogSockFd(), -1); // any negative number counts as -1
   EXPECT_TRUE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogKernBufferUsage(), -1);
}

TEST_F(AttrLogCheckTest, unreadableBufferSizeLeavesAnyUsageAboveTheThreshold) {
   int pipeFds[2];
   ASSERT_EQ(pipe(pipeFds), 0);
   check.nboAttrLogOutSmIs(out);
   check.attrLogSockFdIs(pipeFds[1]); // no socket: getsockopt fails, TIOCOUTQ too
   EXPECT_EQ(check.attrLogKernBufferSize(), -1);
   EXPECT_EQ(check.attrLogKernBufferThreshold(), -1);
   close(pipeFds[0]);
   close(pipeFds[1]);
}

TEST_F(AttrLogCheckTest, usageOfAnOutputWithoutAThresholdIsAboveItEvenWhenItIsZero) {
   // A terminal can be asked for its usage, but is not a socket.
   int const terminal = posix_openpt(O_RDWR | O_NOCTTY);
   ASSERT_GE(terminal, 0);
   check.nboAttrLogOutSmIs(out);
   check.attrLogSockFdIs(terminal);
   EXPECT_EQ(check.attrLogKernBufferThreshold(), -1);
   EXPECT_FALSE(check.isAttrLogReady());
   EXPECT_EQ(check.attrLogKernBufferUsage(), 0);
   EXPECT_EQ(check.attrLogAboveThresholdCount(), 1u);
   close(terminal);
}

TEST_F(AttrLogCheckTest, socketAndMeasurementsAboveTheThresholdAreTraced) {
   Kem::TestTrace trace("VornAttrLog/0-9");
   start();
   socket.fill();
   check.isAttrLogReady();
   std::string const fd = std::to_string(socket.socketFd()), size = std::to_string(socket.sendBuffer());
   std::string const half = std::to_string(socket.sendBuffer() / 2);
   EXPECT_EQ(trace.take(),
             (std::vector<std::string>{"attrLogCodefInit fd:" + fd,
                                       "handleAttrLogSockFd sockFd:" + fd + ", kernBufferSize:" + size +
                                           ", kernBufferThreshold:" + half,
                                       "Buffer usage:" + std::to_string(check.attrLogKernBufferUsage()) +
                                           " is above threshold:" + half}));
}

TEST_F(AttrLogCheckTest, failedMeasurementIsAnAssertion) {
   int pipeFds[2];
   ASSERT_EQ(pipe(pipeFds), 0);
   check.nboAttrLogOutSmIs(out);
   check.attrLogSockFdIs(pipeFds[1]);
   EXPECT_DEATH(check.isAttrLogReady(), "Assertion \"0\" failed");
   close(pipeFds[0]);
   close(pipeFds[1]);
}

} // namespace
