// Rows of the table of learned hosts, for tests: who they are is told by the filtering database and a last byte.
#pragma once

#include "Plaze/BridgingStatus.h"

#include <string>

namespace Plaze {

template <class T>
std::string wire(T const& value) {
   Wire::Writer out;
   Records::encode(out, value);
   return std::string(out.view());
}

inline Sulvi::EthAddr mac(uint8_t last) {
   return {0x00, 0x1c, 0x73, 0, 0, last};
}

inline ::Bridging::HostKey keyOf(uint16_t fid, uint8_t last) {
   ::Bridging::HostKey key;
   key.fid = fid;
   key.addr = mac(last);
   return key;
}

inline ::Bridging::LearnedHost hostAt(uint8_t last, char const* intf, uint32_t moves = 0) {
   ::Bridging::LearnedHost host;
   host.addr = mac(last);
   host.intf = Sulvi::IntfId(intf);
   host.moves = moves;
   return host;
}

} // namespace Plaze
