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
         if (isOfOthers(ifName, socketFd))
            continue;
         KEM_TRACE(sweepTrace, 3, ifName << " did not find device in intfConfig");
         if (destroyVlanDevice(ifName, socketFd) >= 0)
            KEM_TRACE(sweepTrace, 1, "deleted unneeded kernel device: " << ifName);
         continue;
      }
      if (!intfPresentInStatus(ifName))
         continue;
      auto const isl = intfStatusLocal(ifName);
      if (!isl || keyOf(isl->netNsName()) == keyOf(ns) || isOfOthers(ifName, socketFd))
         continue;
      auto const otherNs = isl->netNsName();
      if (destroyVlanDevice(ifName, socketFd) < 0)
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
// it has use for it.
bool VlanIntfCommon::isOfOthers(Kem::String8 const& ifName, int socketFd) const {
   bool const isVlanIntf = Sulvi::vlanIdFromDeviceName(ifName).has_value();
   if (!isVlanIntf && !Sulvi::isSubIntf(ifName))
      return false; // a name that the derived class leaves alone
   auto const found = existingDevice(ifName, socketFd);
   if (found.kind == ExistingDevice::other) {
      KEM_TRACE(sweepTrace, 1, ifName << " is no VLAN device: left alone");
      return true;
   }
   std::string_view const name = ifName;
   auto const base = isVlanIntf ? in_.fabricDeviceName : Kem::String8(name.substr(0, name.rfind('.')));
   if (found.kind != ExistingDevice::vlan || found.base == base)
      return false;
   KEM_TRACE(sweepTrace, 3, ifName << " is on " << found.base << ", not on " << base << ": left alone");
   return true;
}

// Nobody opens this namespace, but an earlier configuration may have.
void VlanIntfCommon::sweepUnusedNs(Sulvi::NamespaceName const& name) {
   if (nsSocketFd(name) != 0)
      return;
   int const fd = Netlink::kernel().socketAt(AF_INET, SOCK_DGRAM, 0, name);
   if (fd == -1) {
      if (errno != ENOENT && errno != EINVAL) // it leads to no namespace
         sweepAgainIn(name);
      return;
   }
   doRemoveUnneededVlanNetworkDevices(fd, name);
   Netlink::kernel().close(fd);
}

void VlanIntfCommon::sweepAgainIn(Sulvi::NamespaceName const& ns) {
   sweepAgain_.insert(ns);
   if (kemClock_.timeMin() == Kem::never)
      kemClock_.timeMinIs(Kem::now() + firstRetry);
}

} // namespace Vorn
