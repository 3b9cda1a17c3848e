// The kernel that this process runs on.
#pragma once

#include "Netlink/Kernel.h"

namespace Netlink {

class LinuxKernel final : public Kernel {
  public:
   ssize_t sendmsg(int fd, msghdr const* message, int flags) override;
   ssize_t recvmsg(int fd, msghdr* message, int flags) override;
   int ioctl(int fd, unsigned long request, void* argument) override;
   unsigned ifNametoindex(char const* name, int fd) override;
   int socketAt(int family, int type, int protocol, Sulvi::NamespaceName const& netNs) override;
   int getnsByName(Sulvi::NamespaceName const& netNs, int nsType) override;
   int close(int fd) override;
   uint64_t netNsInode(Sulvi::NamespaceName const& netNs) override;
   std::unique_ptr<Channel> channel(Sulvi::NamespaceName const& netNs, uint32_t groups) override;
};

} // namespace Netlink
