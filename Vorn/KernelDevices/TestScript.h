// A kernel whose answers a test writes out, for what no kernel would say by itself. In use while it exists. A
// request is answered by what is in `answers`, one datagram for each recvmsg; an ioctl by `ioctlResults`.
#pragma once

#include "Netlink/Kernel.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <linux/if_vlan.h>
#include <linux/netlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace Vorn {

class ScriptedKernel final : public Netlink::Kernel {
  public:
   struct NothingLeft : std::runtime_error {
      NothingLeft() : runtime_error("no answer is left") {}
   };
   struct Circumstances {
      uint32_t port = 0; // of the sender
      int flags = 0;
      socklen_t senderBytes = sizeof(sockaddr_nl);
      int error = 0; // of the call
   };
   struct Datagram {
      std::string bytes = {};
      Circumstances circumstances = {};
   };
   // Gets the sequence number of the request.
   using Answer = std::function<Datagram(uint32_t sequence)>;

   ScriptedKernel() { Netlink::kernelIs(this); }
   ~ScriptedKernel() override { Netlink::kernelIs(nullptr); }

   std::deque<Answer> answers;
   int sendError = 0;
   std::vector<std::string> sent;
   std::string sentTo; // the address
   size_t replyRoom = 0;
   int lastFd = -1;
   // Of each ioctl: its number, and the bytes of its argument as they came in.
   std::vector<std::pair<unsigned long, std::string>> ioctls;
   // Changes the argument, and gives 0 or an errno.
   std::function<int(unsigned long request, void* argument)> onIoctl = [](unsigned long, void*) { return 0; };

   ssize_t sendmsg(int fd, msghdr const* message, int) override {
      lastFd = fd;
      sentTo.assign(static_cast<char const*>(message->msg_name), message->msg_namelen);
      sent.emplace_back(static_cast<char const*>(message->msg_iov->iov_base), message->msg_iov->iov_len);
      errno = sendError;
      return sendError ? -1 : static_cast<ssize_t>(sent.back().size());
   }
   ssize_t recvmsg(int, msghdr* message, int) override {
      if (answers.empty())
         throw NothingLeft();
      nlmsghdr request;
      std::memcpy(&request, sent.back().data(), sizeof request);
      auto const [bytes, circumstances] = answers.front()(request.nlmsg_seq);
      answers.pop_front();
      if (circumstances.error) {
         errno = circumstances.error;
         return -1;
      }
      auto& sender = *static_cast<sockaddr_nl*>(message->msg_name);
      sender.nl_pid = circumstances.port;
      message->msg_namelen = circumstances.senderBytes;
      message->msg_flags = circumstances.flags;
      replyRoom = message->msg_iov->iov_len;
      std::memcpy(message->msg_iov->iov_base, bytes.data(), bytes.size());
      return static_cast<ssize_t>(bytes.size());
   }
   int ioctl(int fd, unsigned long request, void* argument) override {
      lastFd = fd;
      ioctls.emplace_back(
          request, std::string(static_cast<char const*>(argument),
                               request == SIOCSIFVLAN ? sizeof(vlan_ioctl_args) : sizeof(struct ifreq)));
      int const error = onIoctl(request, argument);
      errno = error ? error : errno;
      return error ? -1 : 0;
   }
   unsigned ifNametoindex(char const*, int) override { return 7; }
   int socketAt(int, int, int, Sulvi::NamespaceName const&) override { std::abort(); }
   int getnsByName(Sulvi::NamespaceName const&, int) override { return 0x01020304; }
   int close(int) override { return closeResult; }
   uint64_t netNsInode(Sulvi::NamespaceName const&) override { std::abort(); }
   std::unique_ptr<Netlink::Channel> channel(Sulvi::NamespaceName const&, uint32_t) override { std::abort(); }

   int closeResult = 0;
};

} // namespace Vorn
