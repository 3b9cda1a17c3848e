#include "Netlink/Socket.h"

#include "Sulvi/SocketAt.h"

#include <algorithm>
#include <cerrno>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Netlink {

Socket::Socket(Sulvi::NamespaceName const& netNs, uint32_t groups) : buffer_(firstBufferBytes) {
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

Received Socket::receive() {
   if (fd_ < 0)
      return {};
   for (;;) {
      sockaddr_nl sender{};
      socklen_t senderBytes = sizeof sender;
      ssize_t const length = recvfrom(fd_, buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&sender), &senderBytes);
      if (length < 0) {
         if (errno == EINTR)
            continue;
         if (errno == EAGAIN || errno == EWOULDBLOCK)
            return {};
         return {Received::lost, {}, errno};
      }
      if (senderBytes != sizeof sender || sender.nl_pid != 0)
         continue;
      if (static_cast<size_t>(length) > buffer_.size()) {
         buffer_.resize(std::min(static_cast<size_t>(length), maxBufferBytes));
         return {Received::lost, {}, EMSGSIZE};
      }
      return {Received::datagram, {buffer_.data(), static_cast<size_t>(length)}, 0};
   }
}

} // namespace Netlink
