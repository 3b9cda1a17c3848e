// A routing netlink socket in a network namespace, perhaps with notifications. It takes datagrams of the
// kernel only, and none from other processes, who could send them as well.
//
// The namespace is entered to open it and never again; the socket stays in it, also when its name goes.
#pragma once

#include "Netlink/Channel.h"
#include "Sulvi/NamespaceName.h"

#include <array>
#include <linux/netlink.h>
#include <memory>
#include <sys/socket.h>

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
   bool hasMore() const override { return at_ < count_; }

  private:
   // Datagrams that one call of the kernel reads at most. A device that is made brings five or six.
   static constexpr unsigned batch = 16;
   // Room for the largest piece of a dump (32 KiB); grows when something longer was cut off.
   static constexpr size_t firstBufferBytes = 64 * 1024;
   static constexpr size_t maxBufferBytes = 16 * 1024 * 1024;
   // Notifications that wait while the process is busy with something else: some thousand links.
   static constexpr int receiveBufferBytes = 4 * 1024 * 1024;

   bool fill(); // reads a batch; false with errno

   int fd_ = -1;
   int error_ = 0;
   size_t bufferBytes_ = firstBufferBytes; // of each datagram
   size_t wantedBytes_ = firstBufferBytes; // from the next batch on
   // Memory of the batch, of which the system gives as much as datagrams fill.
   std::unique_ptr<char[]> buffers_;
   std::array<mmsghdr, batch> messages_{};
   std::array<iovec, batch> pieces_{};
   std::array<sockaddr_nl, batch> senders_{};
   unsigned at_ = 0; // the next one of the batch
   unsigned count_ = 0;
};

} // namespace Netlink
