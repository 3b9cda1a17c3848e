// A routing netlink socket in a network namespace, perhaps with notifications. It takes datagrams of the
// kernel only, and none from other processes, who could send them as well.
//
// The namespace is entered to open it and never again; the socket stays in it, also when its name goes.
#pragma once

#include "Netlink/Channel.h"
#include "Sulvi/NamespaceName.h"

#include <vector>

namespace Netlink {

class Socket final : public Channel {
  public:
   // `groups` are bits such as RTMGRP_LINK, 0 for no notifications. It isn't open
   // where that failed; error() says why.
   Socket(Sulvi::NamespaceName const& netNs, uint32_t groups);
   ~Socket() override;
   Socket(Socket const&) = delete;
   Socket& operator=(Socket const&) = delete;

   bool isOpen() const { return fd_ >= 0; }
   int error() const { return error_; } // errno of the attempt to open it, 0 where it is open

   int descriptor() const override { return fd_; }
   int send(std::string_view message) override;
   Received receive() override;

  private:
   // Room for the largest piece of a dump (32 KiB); grows when something longer was cut off.
   static constexpr size_t firstBufferBytes = 64 * 1024;
   static constexpr size_t maxBufferBytes = 16 * 1024 * 1024;
   // Notifications that wait while the process is busy with something else: some thousand links.
   static constexpr int receiveBufferBytes = 4 * 1024 * 1024;

   int fd_ = -1;
   int error_ = 0;
   std::vector<char> buffer_;
};

} // namespace Netlink
