#include "Vorn/VornAgent/NetlinkSocket.h"

#include "Kem/Trace.h"

#include <cerrno>
#include <linux/netlink.h>

namespace Vorn {

namespace {

Kem::TraceFacility netlinkTrace("VornNetlink");

constexpr int sendBufferBytes = 32768;
constexpr int receiveBufferBytes = 1048576;

} // namespace

int openNetlinkSocket(NetlinkSocketCalls const& calls) {
   int const fd = calls.openSocket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
   if (fd < 0)
      return fd;
   if (calls.setOption(fd, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes) < 0) {
      KEM_TRACE(netlinkTrace, 0, "setsockopt SO_SNDBUF failure");
      calls.closeSocket(fd);
      return -1;
   }
   if (calls.setOption(fd, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes) < 0) {
      KEM_TRACE(netlinkTrace, 0, "setsockopt SO_RCVBUF failure");
      calls.closeSocket(fd);
      return -1;
   }
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   if (calls.bindSocket(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0) {
      KEM_TRACE(netlinkTrace, 0, "bind failed: " << errno);
      calls.closeSocket(fd);
      return -1;
   }
   return fd;
}

} // namespace Vorn
