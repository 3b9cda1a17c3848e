// What this system asks of the Linux kernel about network devices: the one seam between it and what makes,
// reads and changes devices. The platform's own is LinuxKernel; tests put a FakeKernel in its place, which
// has devices and namespaces of its own and fails where it is told to.
//
// Each call is that of the C library under the same name, with its result and errno, or that of
// Sulvi/SocketAt.h. Nothing is retried here and nothing is traced: that is for who asks.
#pragma once

#include "Netlink/Channel.h"
#include "Sulvi/NamespaceName.h"

#include <cstdint>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>

namespace Netlink {

class Kernel {
  public:
   virtual ~Kernel() = default;

   // --- The blocking route socket that requests for devices go through.
   virtual ssize_t sendmsg(int fd, msghdr const* message, int flags) = 0;
   virtual ssize_t recvmsg(int fd, msghdr* message, int flags) = 0;

   // --- Devices in the namespace of a socket. `argument` is what the request takes, see netdevice(7).
   virtual int ioctl(int fd, unsigned long request, void* argument) = 0;
   // As if_nametoindex(3), but in the namespace of a socket, which saves making one; 0 with errno when there is no
   // such device.
   virtual unsigned ifNametoindex(char const* name, int fd) = 0;

   // --- Sockets and namespaces.
   virtual int socketAt(int family, int type, int protocol, Sulvi::NamespaceName const& netNs) = 0;
   virtual int getnsByName(Sulvi::NamespaceName const& netNs, int nsType) = 0;
   virtual int close(int fd) = 0;
   // The number that tells the namespace from any other one that has or had the name; 0 when the name leads to
   // none.
   virtual uint64_t netNsInode(Sulvi::NamespaceName const& netNs) = 0;
   // The folder with a file for each named namespace: the system's own, but in a test.
   virtual std::string namespaceFolder() const;
   // Ends the process: the end that its logic asks for when a device can't be switched. A test's kernel throws.
   [[noreturn]] virtual void exitProcess(int status);
   // A route channel in a namespace, which is subscribed to groups such as RTMGRP_LINK. Null with errno where
   // that isn't possible.
   virtual std::unique_ptr<Channel> channel(Sulvi::NamespaceName const& netNs, uint32_t groups) = 0;
};

// The one in use.
Kernel& kernel();
// Puts another one in its place, which has to outlive its use; null for the platform's own.
void kernelIs(Kernel* kernel);

} // namespace Netlink
