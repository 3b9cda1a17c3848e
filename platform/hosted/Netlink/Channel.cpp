#include "Netlink/Channel.h"

#include "Netlink/Message.h"

#include <cerrno>

namespace Netlink {

bool Received::isFailure() const {
   return kind == lost && error != ENOBUFS && error != EMSGSIZE;
}

int transact(Channel& channel, MessageBuilder request) {
   static uint32_t sequence = 0;
   ++sequence;
   request.sequenceIs(sequence);
   request.flagsAdd(NLM_F_REQUEST | NLM_F_ACK);
   if (int const error = channel.send(request.bytes()))
      return error;
   constexpr int maxLosses = 16;
   for (int losses = 0;;) {
      auto const received = channel.receive();
      if (received.kind == Received::nothing)
         return ENODATA;
      if (received.isFailure() || (received.kind == Received::lost && ++losses > maxLosses))
         return received.error;
      if (received.kind == Received::lost)
         continue; // perhaps of an earlier request; a missing answer is reported as ENODATA
      std::optional<int> answer;
      bool const isWhole = forEachMessage(received.bytes, [&](Message const& message) {
         if (message.sequence != sequence || message.type != NLMSG_ERROR || answer)
            return;
         auto const error = fixedFrom<nlmsgerr>(message.payload);
         answer = error && error->error <= 0 ? -error->error : EPROTO;
      });
      if (answer)
         return *answer;
      if (!isWhole)
         return EPROTO;
   }
}

} // namespace Netlink
