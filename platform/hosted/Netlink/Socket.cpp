#include "Netlink/Socket.h"

#include "Sulvi/SocketAt.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace Netlink {

Socket::Socket(Sulvi::NamespaceName const& netNs, uint32_t groups) {
   fd_ = Sulvi::socketAt(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK, NETLINK_ROUTE, netNs);
   if (fd_ >= 0) {
      // The forced size needs a right that tests may lack; the other one is cut to what the system allows.
      if (setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBufferBytes, sizeof receiveBufferBytes) != 0)
         setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
      sockaddr_nl address{};
      address.nl_family = AF_NETLINK;
      address.nl_groups = groups;
      if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
         return;
   }
   error_ = errno;
   if (fd_ >= 0)
      close(fd_);
   fd_ = -1;
}

Socket::~Socket() {
   if (fd_ >= 0)
      close(fd_);
}

int Socket::send(std::string_view message) {
   if (fd_ < 0)
      return error_;
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   ssize_t sent;
   do {
      sent = sendto(fd_, message.data(), message.size(), MSG_DONTWAIT,
                    reinterpret_cast<sockaddr const*>(&kernel), sizeof kernel);
   } while (sent < 0 && errno == EINTR);
   return sent < 0 ? errno : 0;
}

bool Socket::fill() {
   at_ = count_ = 0;
   if (!buffers_ || wantedBytes_ != bufferBytes_) {
      bufferBytes_ = wantedBytes_;
      buffers_.reset(new char[batch * bufferBytes_]);
   }
   for (unsigned i = 0; i < batch; ++i) {
      pieces_[i] = {buffers_.get() + i * bufferBytes_, bufferBytes_};
      auto& header = messages_[i].msg_hdr;
      header = {};
      header.msg_name = &senders_[i];
      header.msg_namelen = sizeof senders_[i];
      header.msg_iov = &pieces_[i];
      header.msg_iovlen = 1;
   }
   int read;
   do {
      read = recvmmsg(fd_, messages_.data(), batch, MSG_DONTWAIT | MSG_TRUNC, nullptr);
   } while (read < 0 && errno == EINTR);
   count_ = static_cast<unsigned>(std::max(read, 0));
   return read > 0;
}

Received Socket::receive() {
   if (fd_ < 0)
      return {};
   for (;;) {
      if (!hasMore() && !fill()) {
         if (errno == EAGAIN || errno == EWOULDBLOCK)
            return {};
         return {Received::lost, {}, errno};
      }
      auto const& message = messages_[at_];
      auto const& sender = senders_[at_];
      char const* const bytes = buffers_.get() + at_ * bufferBytes_;
      ++at_;
      if (message.msg_hdr.msg_namelen != sizeof sender || sender.nl_pid != 0)
         continue;
      if (message.msg_len > bufferBytes_) {
         wantedBytes_ = std::max(wantedBytes_, std::min<size_t>(message.msg_len, maxBufferBytes));
         return {Received::lost, {}, EMSGSIZE};
      }
      return {Received::datagram, {bytes, message.msg_len}, 0};
   }
}

} // namespace Netlink
