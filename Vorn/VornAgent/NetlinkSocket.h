// Opens the socket for requests to the kernel's network configuration, rtnetlink(7).
#pragma once

#include <sys/socket.h>
#include <unistd.h>

namespace Vorn {

// The calls that opening makes; tests put failing ones in their place.
struct NetlinkSocketCalls {
   int (*openSocket)(int, int, int) = ::socket;
   int (*setOption)(int, int, int, void const*, socklen_t) = ::setsockopt;
   int (*bindSocket)(int, sockaddr const*, socklen_t) = ::bind;
   int (*closeSocket)(int) = ::close;
};

// A NETLINK_ROUTE socket in the namespace of the process, bound, subscribed to no group, closed on exec, with
// 32 KiB to send and 1 MiB to receive. Negative on failure; each failure has been traced, except that of
// socket(2) itself.
int openNetlinkSocket(NetlinkSocketCalls const& calls = {});

} // namespace Vorn
