// Datagrams to and from the kernel: the seam between what speaks netlink and the socket (Netlink/Socket.h).
// Tests put a scripted one in its place (Netlink/TestChannel.h).
#pragma once

#include <cstdint>
#include <string_view>

namespace Netlink {

struct Received {
   enum Kind {
      datagram, // `bytes`, which hold until the next call
      nothing,  // nothing waits
      lost, // messages were dropped or cut off, for the reason in `error`; what is known may be out of date
   };
   Kind kind = nothing;
   std::string_view bytes = {};
   int error = 0; // errno

   // Of what was lost: the channel itself fails, and the next call would say the same. Otherwise the kernel
   // dropped messages or cut one off, and goes on.
   bool isFailure() const;
};

class Channel {
  public:
   virtual ~Channel() = default;

   // For the event loop; -1 where there is none.
   virtual int descriptor() const = 0;
   // 0, or errno. It doesn't block.
   virtual int send(std::string_view message) = 0;
   // The next datagram of the kernel, without waiting for one.
   virtual Received receive() = 0;
   // Whether receive() has more that the descriptor doesn't tell of, since it was read from there together with
   // what receive() gave last.
   virtual bool hasMore() const { return false; }
};

class MessageBuilder;

// Sends the request and answers what the kernel says to it: 0 when it was done, else an errno. The kernel
// answers a request before send() returns, so this doesn't wait; ENODATA says that it did not answer after
// all, EPROTO that its answer can't be read; the error of a channel that fails, or that goes on losing
// messages, is given as it is. Other messages that wait in the channel are dropped, so a channel for
// notifications is not the one to use.
int transact(Channel& channel, MessageBuilder request);

} // namespace Netlink
