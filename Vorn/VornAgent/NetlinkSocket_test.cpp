#include "Vorn/VornAgent/NetlinkSocket.h"

#include "Kem/TestTrace.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <linux/netlink.h>
#include <string>
#include <vector>

namespace {

std::vector<int> theClosed;

struct NetlinkSocketTest : testing::Test {
   void SetUp() override {
      theClosed.clear();
      calls.closeSocket = [](int fd) {
         theClosed.push_back(fd);
         return ::close(fd);
      };
   }
   Kem::TestTrace trace;
   Vorn::NetlinkSocketCalls calls;
};

int option(int fd, int name) {
   int value = 0;
   socklen_t length = sizeof value;
   EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &length), 0);
   return value;
}

TEST_F(NetlinkSocketTest, isARouteSocketThatIsBoundAndSubscribedToNothing) {
   int const fd = Vorn::openNetlinkSocket();
   ASSERT_GE(fd, 0);
   EXPECT_EQ(option(fd, SO_DOMAIN), AF_NETLINK);
   EXPECT_EQ(option(fd, SO_PROTOCOL), NETLINK_ROUTE);
   EXPECT_EQ(option(fd, SO_TYPE), SOCK_RAW);
   EXPECT_GE(option(fd, SO_SNDBUF), 32768);
   sockaddr_nl address{};
   socklen_t length = sizeof address;
   ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length), 0);
   EXPECT_NE(address.nl_pid, 0u);
   EXPECT_EQ(address.nl_groups, 0u);
   close(fd);
   EXPECT_TRUE(trace.lines().empty());
}

TEST_F(NetlinkSocketTest, asksForItsBuffersAndForNoGroup) {
   static std::vector<std::string> asked;
   asked.clear();
   calls.openSocket = [](int domain, int type, int protocol) {
      asked.push_back("socket " + std::to_string(domain) + ' ' + std::to_string(type) + ' ' +
                      std::to_string(protocol));
      return 900;
   };
   calls.setOption = [](int fd, int level, int name, void const* value, socklen_t length) {
      EXPECT_EQ(fd, 900);
      EXPECT_EQ(level, SOL_SOCKET);
      EXPECT_EQ(length, sizeof(int));
      asked.push_back((name == SO_SNDBUF ? "send " : "receive ") +
                      std::to_string(*static_cast<int const*>(value)));
      return 0;
   };
   calls.bindSocket = [](int fd, sockaddr const* address, socklen_t length) {
      EXPECT_EQ(fd, 900);
      EXPECT_EQ(length, sizeof(sockaddr_nl));
      auto const* const netlink = reinterpret_cast<sockaddr_nl const*>(address);
      asked.push_back("bind " + std::to_string(netlink->nl_family) + ' ' + std::to_string(netlink->nl_pid) +
                      ' ' + std::to_string(netlink->nl_groups));
      return 0;
   };
   EXPECT_EQ(Vorn::openNetlinkSocket(calls), 900);
   EXPECT_EQ(asked, (std::vector<std::string>{"socket " + std::to_string(AF_NETLINK) + ' ' +
                                                  std::to_string(SOCK_RAW | SOCK_CLOEXEC) + ' ' +
                                                  std::to_string(NETLINK_ROUTE),
                                              "send 32768", "receive 1048576", "bind 16 0 0"}));
}

TEST_F(NetlinkSocketTest, failedSocketIsReturnedWithoutATrace) {
   calls.openSocket = [](int, int, int) { return -1; };
   EXPECT_EQ(Vorn::openNetlinkSocket(calls), -1);
   EXPECT_TRUE(trace.lines().empty());
   EXPECT_TRUE(theClosed.empty());
}

TEST_F(NetlinkSocketTest, failedBufferSizesAreTracedAndTheSocketClosed) {
   calls.setOption = [](int, int, int name, void const*, socklen_t) { return name == SO_SNDBUF ? -1 : 0; };
   EXPECT_EQ(Vorn::openNetlinkSocket(calls), -1);
   calls.setOption = [](int, int, int name, void const*, socklen_t) { return name == SO_RCVBUF ? -1 : 0; };
   EXPECT_EQ(Vorn::openNetlinkSocket(calls), -1);
   EXPECT_EQ(trace.take(),
             (std::vector<std::string>{"setsockopt SO_SNDBUF failure", "setsockopt SO_RCVBUF failure"}));
   EXPECT_EQ(theClosed.size(), 2u);
}

TEST_F(NetlinkSocketTest, failedBindIsTracedWithTheErrorNumber) {
   calls.bindSocket = [](int, sockaddr const* address, socklen_t) {
      EXPECT_EQ(address->sa_family, 16);
      errno = EADDRINUSE;
      return -1;
   };
   EXPECT_EQ(Vorn::openNetlinkSocket(calls), -1);
   EXPECT_EQ(trace.take(), std::vector<std::string>{"bind failed: " + std::to_string(EADDRINUSE)});
   EXPECT_EQ(theClosed.size(), 1u);
}

} // namespace
