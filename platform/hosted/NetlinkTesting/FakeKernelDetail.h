// What is shared by the sources of FakeKernel.
#pragma once

#include "NetlinkTesting/FakeKernel.h"

#include <cerrno>
#include <cstring>
#include <net/if.h>

namespace Netlink::FakeDetail {

constexpr unsigned maxMtu = 65535;
// States of a device, IF_OPER_UP and the like of linux/if.h.
constexpr uint8_t operUnknown = 0, operDown = 2, operTesting = 4, operDormant = 5, operUp = 6;

// A name out of a field of the kernel's structures, at most `bytes` long.
inline std::string nameIn(char const* field, size_t bytes) {
   return {field, strnlen(field, bytes)};
}

// The flags as netdevice(7) has them.
inline unsigned flagsOf(FakeKernel::Device const& device) {
   return (device.kind.empty() ? IFF_LOOPBACK : IFF_BROADCAST | IFF_MULTICAST) |
          (device.isUp ? IFF_UP | IFF_RUNNING : 0u);
}

inline int failed(int error) {
   errno = error;
   return -1;
}

} // namespace Netlink::FakeDetail
