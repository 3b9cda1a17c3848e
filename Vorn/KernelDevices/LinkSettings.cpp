#include "Vorn/KernelDevices/LinkSettings.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Vorn/KernelDevices/KernelNames.h"

#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>

namespace Vorn {

namespace {

Kem::TraceFacility linkSettingsTrace("VornLinkSettings");

ifreq requestFor(Kem::String8 const& name) {
   ifreq request{};
   nameIs(request.ifr_name, name);
   return request;
}

// `action` is "getting" or "setting". errno stays as it is.
void addressFailed(char const* action, Kem::String8 const& name, Sulvi::EthAddr const& addr, int fd) {
   int const error = errno;
   KEM_TRACE(linkSettingsTrace, 0,
             "Error " << action << " address " << addr << " on interface " << name << " fd " << fd << ": "
                      << strerror(error) << " (" << error << ")");
   errno = error;
}

} // namespace

int setKernelDeviceMacAddress(Kem::String8 const& name, Sulvi::EthAddr const& addr, int fd) {
   KEM_INVARIANT(addr != Sulvi::EthAddr::ethAddrZero(), "addr != Sulvi::EthAddr::ethAddrZero()");
   auto& kernel = Netlink::kernel();
   auto current = requestFor(name);
   current.ifr_hwaddr.sa_family = ARPHRD_ETHER;
   // Without an answer the address in the request is zero, and differs.
   if (kernel.ioctl(fd, SIOCGIFHWADDR, &current) < 0)
      addressFailed("getting", name, addr, fd);
   if (std::memcmp(current.ifr_hwaddr.sa_data, addr.bytes().data(), Sulvi::EthAddr::size) == 0) {
      KEM_TRACE(linkSettingsTrace, 5, "Mac address for " << name << " already set correctly");
      return 0;
   }
   auto wanted = requestFor(name);
   wanted.ifr_hwaddr.sa_family = ARPHRD_ETHER;
   std::memcpy(wanted.ifr_hwaddr.sa_data, addr.bytes().data(), Sulvi::EthAddr::size);
   int const result = kernel.ioctl(fd, SIOCSIFHWADDR, &wanted);
   if (result < 0)
      addressFailed("setting", name, addr, fd);
   return result;
}

std::optional<bool> isInterfaceUp(Kem::String8 const& name, int fd) {
   auto request = requestFor(name);
   if (Netlink::kernel().ioctl(fd, SIOCGIFFLAGS, &request) < 0)
      return std::nullopt;
   return static_cast<bool>(request.ifr_flags & IFF_UP);
}

int setInterfaceUpOrDownInternal(Kem::String8 name, bool up, int fd, int* err, bool* wasSwitched) {
   if (wasSwitched)
      *wasSwitched = false;
   auto& kernel = Netlink::kernel();
   char const* const state = up ? "up" : "down";
   auto current = requestFor(name);
   int const result = kernel.ioctl(fd, SIOCGIFFLAGS, &current);
   if (result < 0) {
      *err = errno;
      KEM_TRACE(linkSettingsTrace, 0,
                "Error getting flags for kernel interface " << name << " " << strerror(*err));
      return result;
   }
   if (static_cast<bool>(current.ifr_flags & IFF_UP) == up) {
      KEM_TRACE(linkSettingsTrace, 5, "Interface " << name << " is already " << state);
      return result;
   }
   auto wanted = requestFor(name);
   wanted.ifr_flags = static_cast<short>(up ? current.ifr_flags | IFF_UP : current.ifr_flags & ~IFF_UP);
   int const setResult = kernel.ioctl(fd, SIOCSIFFLAGS, &wanted);
   if (setResult < 0) {
      *err = errno;
      KEM_TRACE(linkSettingsTrace, 0,
                "Error setting kernel interface " << name << " " << state << " " << strerror(*err));
   } else if (wasSwitched) {
      *wasSwitched = true;
   }
   return setResult;
}

} // namespace Vorn
