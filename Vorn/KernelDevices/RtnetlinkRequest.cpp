#include "Vorn/KernelDevices/RtnetlinkRequest.h"

#include "Kem/Trace.h"
#include "Netlink/Kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/rtnetlink.h>
#include <optional>
#include <sys/socket.h>

namespace Vorn {

namespace {

Kem::TraceFacility rtnetlinkTrace("VornRtnetlink");

constexpr size_t replyBytes = 16384;
constexpr size_t headerBytes = sizeof(nlmsghdr);

static_assert(sizeof(sockaddr_nl) == 12 && headerBytes == 16 && sizeof(nlmsgerr) == 20);

// The answer to a request, as its datagrams are read.
class AnswerReader {
  public:
   explicit AnswerReader(uint32_t sequence) : sequence_(sequence) {}

   // The result of the request, or nothing while the answer is still to come.
   std::optional<int> datagram(char const* at, size_t remaining, msghdr const& message) {
      auto const& sender = *static_cast<sockaddr_nl const*>(message.msg_name);
      bool const isCut = message.msg_flags & MSG_TRUNC;
      while (remaining >= headerBytes) {
         nlmsghdr header;
         std::memcpy(&header, at, sizeof header);
         size_t const len = header.nlmsg_len;
         if (len > remaining || len < headerBytes) {
            if (isCut)
               KEM_TRACE(rtnetlinkTrace, 0, "Truncated message");
            else
               KEM_TRACE(rtnetlinkTrace, 0, "Malformed message: len=" << len);
            return unreadable();
         }
         if (sender.nl_pid == 0 && header.nlmsg_seq == sequence_)
            if (auto const result = answer(header, at + headerBytes))
               return result;
         size_t const step = std::min<size_t>(NLMSG_ALIGN(len), remaining);
         at += step;
         remaining -= step;
      }
      if (isCut) {
         KEM_TRACE(rtnetlinkTrace, 0, "Message truncated");
         return std::nullopt;
      }
      if (remaining != 0) {
         KEM_TRACE(rtnetlinkTrace, 0, "Remnant of size " << remaining);
         return unreadable();
      }
      return std::nullopt;
   }

   // An answer that can't be read leaves no error of an earlier call to be taken for its own.
   int unreadable() const {
      errno = kernelError_ ? kernelError_ : EPROTO;
      return -1;
   }

  private:
   std::optional<int> answer(nlmsghdr const& header, char const* payload) {
      if (header.nlmsg_type == NLMSG_ERROR) {
         if (header.nlmsg_len - headerBytes < sizeof(nlmsgerr)) {
            KEM_TRACE(rtnetlinkTrace, 0, "NLMSG_ERROR truncated");
            return unreadable();
         }
         int32_t error;
         std::memcpy(&error, payload, sizeof error);
         if (error == 0)
            return 0;
         kernelError_ = static_cast<int>(-static_cast<int64_t>(error));
         KEM_TRACE(rtnetlinkTrace, 0, "RTNETLINK answer: " << strerror(kernelError_));
         errno = kernelError_;
         if (kernelError_ == ENODEV || kernelError_ == EEXIST)
            return -1;
         // Not the end: see the header.
      }
      KEM_TRACE(rtnetlinkTrace, 0, "Unexpected reply");
      if (kernelError_)
         errno = kernelError_;
      return std::nullopt;
   }

   uint32_t const sequence_;
   int kernelError_ = 0;
};

} // namespace

int netlinkReq(int fd, nlmsghdr* req) {
   static uint32_t sequence = 0;
   auto& kernel = Netlink::kernel();
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   iovec piece{req, req->nlmsg_len};
   msghdr message{};
   message.msg_name = &address;
   message.msg_namelen = sizeof address;
   message.msg_iov = &piece;
   message.msg_iovlen = 1;

   req->nlmsg_seq = ++sequence;
   req->nlmsg_flags |= NLM_F_ACK;
   auto const sent = kernel.sendmsg(fd, &message, 0);
   if (sent < 0) {
      int const error = errno;
      KEM_TRACE(rtnetlinkTrace, 0, "rtnetlink sendmsg error: " << sent);
      errno = error;
      return -1;
   }

   char reply[replyBytes] = {};
   piece.iov_base = reply;
   AnswerReader reader(sequence);
   for (;;) {
      piece.iov_len = sizeof reply;
      auto const received = kernel.recvmsg(fd, &message, 0);
      if (received < 0) {
         int const error = errno;
         if (error == EAGAIN || error == EINTR)
            continue;
         KEM_TRACE(rtnetlinkTrace, 0, "rtnetlink recvmsg error: " << error << " " << strerror(error));
         errno = error;
         return -1;
      }
      if (received == 0) {
         KEM_TRACE(rtnetlinkTrace, 0, "EOF on rtnetlink");
         return reader.unreadable();
      }
      if (message.msg_namelen != sizeof address) {
         KEM_TRACE(rtnetlinkTrace, 0, "sender address length == " << message.msg_namelen);
         return reader.unreadable();
      }
      if (auto const result = reader.datagram(reply, static_cast<size_t>(received), message))
         return *result;
   }
}

int addAttr(nlmsghdr* msg, int maxlen, int type, void const* data, int len) {
   auto const begin = static_cast<int64_t>(NLMSG_ALIGN(static_cast<int64_t>(msg->nlmsg_len)));
   auto const attributeBytes = static_cast<int64_t>(len) + static_cast<int64_t>(sizeof(rtattr));
   auto const end = begin + static_cast<int64_t>(RTA_ALIGN(attributeBytes));
   if (end > maxlen) {
      KEM_TRACE(rtnetlinkTrace, 0, "addAttr ERROR: data exceeds maxlen=" << maxlen);
      return -1;
   }
   rtattr header{};
   header.rta_len = static_cast<unsigned short>(attributeBytes);
   header.rta_type = static_cast<unsigned short>(type);
   auto* const at = reinterpret_cast<char*>(msg) + begin;
   std::memcpy(at, &header, sizeof header);
   if (len > 0)
      std::memcpy(at + sizeof header, data, static_cast<size_t>(len));
   msg->nlmsg_len = static_cast<uint32_t>(end);
   return 0;
}

} // namespace Vorn
