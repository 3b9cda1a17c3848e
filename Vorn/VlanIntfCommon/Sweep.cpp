// Devices that an earlier run left and no configuration wants, in one namespace: looked for when its socket is
// opened, and once at the start in the namespaces that nobody uses.
#include "Kem/Activity.h"
#include "Kem/Trace.h"
#include "KernelNetworkInfo/Manager.h"
#include "Netlink/Kernel.h"
#include "Sulvi/KernelDeviceName.h"
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"
#include "records/KernelNetworkInfo/Interface.h"
#include "records/KernelNetworkInfo/Root.h"

#include <cerrno>
#include <cstring>

namespace Vorn {

namespace {
Kem::TraceFacility sweepTrace("VornSweep");
}

void VlanIntfCommon::doRemoveUnneededVlanNetworkDevices(int socketFd, Sulvi::NamespaceName const& ns) {
   KEM_TRACE(sweepTrace, 3,
             "Deleting unneeded kernel vlan network devices for NS " << ns << " FD: " << socketFd);
   auto const root = KernelNetworkInfo::Root::make();
   // Its constructor reads the first dump.
   auto const manager =
       Kem::makePtr<KernelNetworkInfo::Manager>(Kem::activityManager()->config(), root, nullptr, nullptr, ns);
   if (!manager->isFollowing())
      sweepAgainIn(ns);
   for (auto const& [ifName, device] : root->interfaceByName()) {
      KEM_TRACE(sweepTrace, 8, "Found device: " << ifName);
      if (!intfPresentInConfig(ifName)) {
         if (isToBeLeft(ifName, ns, socketFd, true))
            continue;
         KEM_TRACE(sweepTrace, 3, ifName << " did not find device in intfConfig");
         if (removeStale(ifName, ns, socketFd))
            KEM_TRACE(sweepTrace, 1, "deleted unneeded kernel device: " << ifName);
         continue;
      }
      if (!intfPresentInStatus(ifName))
         continue;
      auto const isl = intfStatusLocal(ifName);
      if (!isl || keyOf(isl->netNsName()) == keyOf(ns) || isToBeLeft(ifName, ns, socketFd, true))
         continue;
      auto const otherNs = isl->netNsName();
      if (!removeStale(ifName, ns, socketFd))
         continue;
      KEM_TRACE(sweepTrace, 1,
                "deleted unneeded kernel device: " << ifName << " from NS " << ns << ". StatusLocal had NS "
                                                   << otherNs);
      // Unless the record is right and this one was left over.
      int const otherFd = nsSocketFd(otherNs);
      if (otherFd == 0 || existingDevice(ifName, otherFd).kind != ExistingDevice::vlan)
         isl->netNsNameIs(Sulvi::DEFAULT_NS);
   }
   KEM_TRACE(sweepTrace, 3, "Finished deleting unneeded kernel devices");
}

// A device of a name that we give, but not on the base that we would put it on, or of another kind: whoever made
// it has use for it. One that can't be looked at is left for the next time.
bool VlanIntfCommon::isToBeLeft(Kem::String8 const& ifName, Sulvi::NamespaceName const& ns, int socketFd,
                                bool isListed) {
   auto const found = existingDevice(ifName, socketFd);
   switch (found.kind) {
   case ExistingDevice::none:
      if (isListed) // it has gone just now, or can't be found for a moment
         sweepAgainIn(ns);
      return true;
   case ExistingDevice::other:
      KEM_TRACE(sweepTrace, 1, ifName << " is no VLAN device: left alone");
      return true;
   case ExistingDevice::unknown:
      if (found.error != ENOPKG) // without 802.1Q it is no VLAN device
         sweepAgainIn(ns);
      return true;
   case ExistingDevice::vlan:
      break;
   }
   std::string_view const name = ifName;
   auto const base = Sulvi::vlanIdFromDeviceName(ifName) ? in_.fabricDeviceName
                                                         : Kem::String8(name.substr(0, name.rfind('.')));
   if (found.base == base)
      return false;
   KEM_TRACE(sweepTrace, 3, ifName << " is on " << found.base << ", not on " << base << ": left alone");
   return true;
}

// A device that stays against our will keeps its VLAN from others, or goes on carrying traffic.
void VlanIntfCommon::destroyOrSweepAgain(Kem::String8 const& deviceName, int fd,
                                         Sulvi::NamespaceName const& ns) {
   if (fd == 0) {
      sweepAgainIn(ns);
      return;
   }
   if (destroyVlanDevice(deviceName, fd) >= 0)
      return;
   int const error = errno;
   if (error == EINVAL)
      return; // no VLAN device, so somebody else's
   // One that wasn't known to exist is hardly there; a look at the list costs little.
   kernelCallFailed_ |= error != ENODEV || deviceVlanId(deviceName) != 0;
   sweepAgainIn(ns);
}

// What fails now is done by a later sweep. True when the device is gone.
bool VlanIntfCommon::removeStale(Kem::String8 const& ifName, Sulvi::NamespaceName const& ns, int socketFd) {
   if (destroyVlanDevice(ifName, socketFd) >= 0)
      return true;
   sweepAgainIn(ns);
   return false;
}

void VlanIntfCommon::removeDeviceWherever(Kem::String8 const& deviceName) {
   deviceVlanId_.erase(deviceName);
   auto const removeIn = [&](Sulvi::NamespaceName const& ns, int fd) {
      if (!isToBeLeft(deviceName, ns, fd, false) && removeStale(deviceName, ns, fd))
         KEM_TRACE(sweepTrace, 1, "deleted unneeded kernel device: " << deviceName);
   };
   removeIn(Sulvi::DEFAULT_NS, in_.socketFd);
   for (auto const& [name, netNs] : in_.netNsCollection->netNsByName()) {
      if (int const fd = nsSocketFd(name)) {
         removeIn(name, fd);
      } else if (int const visiting = visitNs(name); visiting != -1) {
         removeIn(name, visiting);
         Netlink::kernel().close(visiting);
      }
   }
}

// Nobody opens this namespace, but an earlier configuration may have.
void VlanIntfCommon::sweepUnusedNs(Sulvi::NamespaceName const& name) {
   if (nsSocketFd(name) != 0)
      return;
   int const fd = visitNs(name);
   if (fd == -1)
      return;
   doRemoveUnneededVlanNetworkDevices(fd, name);
   Netlink::kernel().close(fd);
}

// A socket in the namespace, for the caller to close; -1, and a later sweep, when it can't be entered.
int VlanIntfCommon::visitNs(Sulvi::NamespaceName const& name) {
   int const fd = Netlink::kernel().socketAt(AF_INET, SOCK_DGRAM, 0, name);
   if (fd == -1 && errno != ENOENT && errno != EINVAL) // it leads to no namespace
      sweepAgainIn(name);
   return fd;
}

void VlanIntfCommon::sweepNamespacesAgain() {
   for (auto const& [name, netNs] : in_.netNsCollection->netNsByName())
      sweepAgainIn(name);
}

void VlanIntfCommon::sweepAgainIn(Sulvi::NamespaceName const& ns) {
   sweepAgain_.insert(keyOf(ns));
   if (kemClock_.timeMin() == Kem::never)
      kemClock_.timeMinIs(Kem::now() + firstRetry);
}

} // namespace Vorn
