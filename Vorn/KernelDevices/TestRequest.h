// A request for a VLAN device, written out by hand.
#pragma once

#include <cstdint>
#include <string>
#include <unistd.h>

namespace Vorn {

inline std::string numberBytes(uint32_t number) {
   return {reinterpret_cast<char const*>(&number), sizeof number};
}

// The request for the device "vlan10" with VLAN id 10, on a machine with the least significant byte first.
inline std::string vlan10Request(uint32_t sequence, uint32_t baseIndex, int netNsFd = -1) {
   std::string request = std::string(netNsFd < 0 ? "\x4c\0\0\0" : "\x54\0\0\0", 4) + // nlmsg_len 76 or 84
                         std::string("\x10\0\x05\x06", 4) + // RTM_NEWLINK, request, ack, excl, create
                         numberBytes(sequence) + numberBytes(static_cast<uint32_t>(getpid())) +
                         std::string("\x11\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16) +   // AF_PACKET
                         std::string("\x08\0\x05\0", 4) + numberBytes(baseIndex) + // IFLA_LINK
                         std::string("\x0b\0\x03\0vlan10\0\0", 12) +               // IFLA_IFNAME
                         std::string("\x18\0\x12\0", 4) +                          // IFLA_LINKINFO
                         std::string("\x08\0\x01\0vlan", 8) +                      //  IFLA_INFO_KIND
                         std::string("\x0c\0\x02\0", 4) +                          //  IFLA_INFO_DATA
                         std::string("\x06\0\x01\0\x0a\0\0\0", 8);                 //   IFLA_VLAN_ID
   if (netNsFd >= 0)
      request +=
          std::string("\x08\0\x1c\0", 4) + numberBytes(static_cast<uint32_t>(netNsFd)); // IFLA_NET_NS_FD
   return request;
}

} // namespace Vorn
