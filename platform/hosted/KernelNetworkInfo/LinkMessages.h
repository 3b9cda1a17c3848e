// What rtnetlink says about network devices, taken out of its datagrams. A pure function of the bytes: no
// socket, no state, and nothing is taken on trust.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KernelNetworkInfo {

struct LinkEvent {
   enum Kind : uint8_t {
      present, // the device exists, with this name and these flags
      gone,    // it doesn't any more
      dumpEnd, // the answer to a dump is complete; `error` is 0, or why it isn't
   };
   Kind kind = present;
   bool isInterrupted = false; // part of a dump during which devices changed, so that some may be missing
   int index = 0;              // of the device, above 0
   uint32_t flags = 0;         // as in netdevice(7)
   uint32_t mtu = 0;           // bytes; 0 where it isn't said
   std::string name;           // 1..15 bytes
   uint32_t sequence = 0;      // of the request that it answers
   int error = 0;              // errno

   friend bool operator==(LinkEvent const&, LinkEvent const&) = default;
};

// Appends the events of one datagram. False where a part of it can't be read, or the kernel says that it
// dropped something: what could be read is appended all the same, and the rest is known from a dump only.
//
// Left out, as no events: messages of other types, acknowledgements, and what bridges say of their ports in
// messages of the same type (another family), where "gone" means that the port left its bridge.
bool readLinkEvents(std::string_view datagram, std::vector<LinkEvent>& events);

} // namespace KernelNetworkInfo
