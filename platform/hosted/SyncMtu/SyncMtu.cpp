#include "SyncMtu/SyncMtu.h"

#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Sulvi/IntfKind.h"
#include "Sulvi/KernelDeviceName.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/sockios.h>
#include <net/if.h>

namespace Interface {

namespace {

Kem::TraceFacility mtuTrace("SyncMtu");

constexpr uint32_t defaultMtu = 1500;
constexpr uint32_t minMtu = 68;
constexpr uint32_t maxMtu = 65535;

Kem::String8 deviceOf(IntfStatus const& status) {
   if (!status.deviceName().empty())
      return status.deviceName();
   auto const intfId = status.intfId();
   return Sulvi::VlanIntfId::isVlanIntfId(intfId) ? Sulvi::vlanDeviceName(Sulvi::VlanIntfId::vlanId(intfId))
                                                  : Sulvi::kernelDeviceName(intfId);
}

// The MTU of one device in the kernel; both calls give 0 or an errno.
class LinkMtu {
  public:
   LinkMtu(Kem::String8 const& device, int fd) : fd_(fd) {
      std::memcpy(args_.ifr_name, device.charPtr(), std::min<size_t>(device.size(), IFNAMSIZ - 1));
   }
   int set(uint32_t mtu) {
      args_.ifr_mtu = static_cast<int>(mtu);
      return call(SIOCSIFMTU);
   }
   int get(uint32_t& mtu) {
      int const error = call(SIOCGIFMTU);
      mtu = static_cast<uint32_t>(args_.ifr_mtu);
      return error;
   }
   // The largest that the kernel takes, below one for which it said ERANGE. The MTU only grows on the way.
   int setLargestBelow(uint32_t refused, uint32_t& mtu) {
      if (int const error = get(mtu))
         return error;
      // Mostly the device has it already.
      for (uint32_t next = mtu + 1; next < refused; next = mtu + (refused - mtu) / 2) {
         int const error = set(next);
         if (error == 0)
            mtu = next;
         else if (error == ERANGE)
            refused = next;
         else
            return error;
         if (refused - mtu < 2)
            break;
      }
      return 0;
   }

  private:
   int call(unsigned long request) { return Netlink::kernel().ioctl(fd_, request, &args_) < 0 ? errno : 0; }

   int const fd_;
   ifreq args_{};
};

} // namespace

std::string mtuProblem(IntfConfig const& config) {
   uint32_t const mtu = config.mtu();
   if (mtu == 0 || (mtu >= minMtu && mtu <= maxMtu))
      return {};
   return "MTU " + std::to_string(mtu) + " is not from " + std::to_string(minMtu) + " to " +
          std::to_string(maxMtu) + ": the device has " + std::to_string(defaultMtu);
}

bool syncMtu(Kem::Ptr<IntfStatus const> const& status, Kem::Ptr<IntfStatusLocal const> const& statusLocal,
             Kem::Ptr<IntfConfig const> const& config, bool isWithoutMaxMtu, bool isOnAnotherDevice, int fd) {
   if (!status || !config || fd <= 0)
      return true;
   auto const device = deviceOf(*status);
   uint32_t wanted = mtuProblem(*config).empty() && config->mtu() != 0 ? config->mtu() : defaultMtu;
   if (!isWithoutMaxMtu && status->maxMtu() >= minMtu)
      wanted = std::min(wanted, status->maxMtu());
   if (device.size() >= IFNAMSIZ) // the kernel would take the name of another device for it
      return true;

   LinkMtu mtu(device, fd);
   int error = mtu.set(wanted); // which changes nothing when the device has it
   uint32_t largest = 0;
   if (error == ERANGE && isOnAnotherDevice) {
      error = mtu.setLargestBelow(wanted, largest);
      if (error == 0) {
         KEM_TRACE(mtuTrace, 0,
                   "device " << device << " has MTU " << largest << " instead of " << wanted
                             << ": the device that it is on carries no more");
         return true;
      }
   }
   if (error == 0) {
      KEM_TRACE(mtuTrace, 5, "device " << device << " has MTU " << wanted);
      return true;
   }
   KEM_TRACE(mtuTrace, 0,
             "MTU of device " << device << " in namespace \""
                              << (statusLocal ? statusLocal->netNsName() : Sulvi::NamespaceName())
                              << "\" can't be set to " << wanted << ": " << strerror(error));
   // These two say that the value is none for this kind of device.
   return error == ERANGE || error == EINVAL;
}

} // namespace Interface
