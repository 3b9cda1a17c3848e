// A channel that a test scripts: what is sent is kept, and what is to be received is put in line. It has a
// descriptor that is readable while something waits, so that a watch in the event loop works on it.
#pragma once

#include "Netlink/Channel.h"
#include "Netlink/Message.h"

#include <cstdlib>
#include <deque>
#include <functional>
#include <net/if.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace Netlink {

class TestChannel final : public Channel {
  public:
   TestChannel() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC | EFD_SEMAPHORE)) {}
   ~TestChannel() override { close(fd_); }

   // A datagram of these messages.
   void deliver(std::string bytes) { put({Received::datagram, {}, 0}, std::move(bytes)); }
   void lose(int error) { put({Received::lost, {}, error}, {}); }

   int descriptor() const override { return fd_; }
   int send(std::string_view message) override {
      sent.emplace_back(message);
      if (onSend)
         onSend(fixedFrom<nlmsghdr>(message)->nlmsg_seq);
      return sendError;
   }
   Received receive() override {
      if (lastingError) {
         if (++failureCount > 1000)
            std::abort(); // who asks for ever would not end
         return {Received::lost, {}, lastingError};
      }
      if (waiting_.empty())
         return {};
      uint64_t one;
      static_cast<void>(read(fd_, &one, sizeof one));
      auto received = waiting_.front().first;
      current_ = std::move(waiting_.front().second);
      waiting_.pop_front();
      received.bytes = current_;
      return received;
   }

   bool hasWaiting() const { return !waiting_.empty(); }

   std::vector<std::string> sent;
   std::function<void(uint32_t sequence)> onSend;
   int sendError = 0;
   int lastingError = 0; // what each receive() fails with, while it isn't 0
   int failureCount = 0;

  private:
   void put(Received received, std::string bytes) {
      waiting_.emplace_back(received, std::move(bytes));
      uint64_t const one = 1;
      static_cast<void>(write(fd_, &one, sizeof one));
   }
   int const fd_;
   std::deque<std::pair<Received, std::string>> waiting_;
   std::string current_;
};

// --- What a kernel sends.

inline std::string errorMessage(uint32_t sequence, int error) {
   nlmsgerr header{};
   header.error = -error;
   MessageBuilder message(NLMSG_ERROR, 0, header);
   message.sequenceIs(sequence);
   return message.bytes();
}

// RTM_NEWLINK or RTM_DELLINK.
inline std::string linkMessage(uint16_t type, int index, std::string_view name, unsigned flags = 0,
                               uint32_t sequence = 0, uint16_t messageFlags = 0) {
   ifinfomsg header{};
   header.ifi_index = index;
   header.ifi_flags = flags;
   MessageBuilder message(type, messageFlags, header);
   message.textAttribute(IFLA_IFNAME, name);
   message.sequenceIs(sequence);
   return message.bytes();
}

inline std::string doneMessage(uint32_t sequence, int error = 0, uint16_t messageFlags = 0) {
   MessageBuilder message(NLMSG_DONE, static_cast<uint16_t>(NLM_F_MULTI | messageFlags), -error);
   message.sequenceIs(sequence);
   return message.bytes();
}

} // namespace Netlink
