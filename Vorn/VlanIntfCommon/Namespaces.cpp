// Network namespaces: a socket for each that is in use, what happens when one comes, goes or is made again under its
// name, and how many interfaces are in it.
#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"

#include <cerrno>
#include <cstring>

namespace Vorn {

namespace {
Kem::TraceFacility namespacesTrace("VornNamespaces");
}

// --- Sockets.

void VlanIntfCommon::prepNs(Sulvi::NamespaceName const& dstNs) {
   if (int const fd = nsSocketFd(dstNs)) {
      KEM_TRACE(namespacesTrace, 8, "NS " << dstNs << " has FD " << fd);
      return;
   }
   if (!in_.netNsCollection->netNsByName(dstNs)) {
      KEM_TRACE(namespacesTrace, 3, "NS " << dstNs << " has not been configured yet");
      return;
   }
   int const fd = Netlink::kernel().socketAt(AF_INET, SOCK_DGRAM, 0, dstNs);
   if (fd == -1) {
      KEM_TRACE(namespacesTrace, 3, "NS " << dstNs << " socketAt failed: " << strerror(errno));
      return;
   }
   auto const inode = Netlink::kernel().netNsInode(dstNs);
   if (inode == 0) { // without it, it wouldn't be noticed that the name comes to mean another one
      KEM_TRACE(namespacesTrace, 3, "NS " << dstNs << " can't be looked at: " << strerror(errno));
      Netlink::kernel().close(fd);
      return;
   }
   sockets_.fdIs(dstNs, fd, inode);
   doRemoveUnneededVlanNetworkDevices(fd, dstNs);
}

int VlanIntfCommon::nsSocketFdFromIntfStatusLocal(
    Kem::Ptr<Interface::EthIntfStatusLocal const> const& isl) const {
   return nsSocketFd(isl ? isl->netNsName() : Sulvi::DEFAULT_NS);
}

// --- Who is in which.

void VlanIntfCommon::setIntfStatusLocalNetNsName(Kem::Ptr<Interface::EthIntfStatusLocal> const& isl,
                                                 Sulvi::NamespaceName const& nsName) {
   if (!isl)
      return;
   auto const oldNsName = keyOf(isl->netNsName());
   auto const& newNsName = keyOf(nsName);
   if (oldNsName == newNsName)
      return;
   sockets_.intfIsIn(isl->intfId(), newNsName);
   if (!oldNsName.isDefault() && nsIntfRefcount(oldNsName) == 0) {
      KEM_TRACE(namespacesTrace, 3, "Freeing FD to namespace " << oldNsName);
      sockets_.close(oldNsName);
   }
   isl->netNsNameIs(newNsName);
   if (!newNsName.isDefault() && nsIntfRefcount(newNsName) == 1)
      prepNs(newNsName);
}

void VlanIntfCommon::countIntf(Sulvi::IntfId intfId,
                               Kem::Ptr<Interface::EthIntfStatusLocal const> const& isl) {
   auto const before = nsOfIntf(intfId);
   sockets_.intfIsIn(intfId, isl ? isl->netNsName() : Sulvi::DEFAULT_NS);
   if (!before.isDefault() && nsIntfRefcount(before) == 0 && nsSocketFd(before) != 0) {
      KEM_TRACE(namespacesTrace, 3, "Freeing FD to namespace " << before);
      sockets_.close(before);
   }
}

// The record says that the device is in a namespace that can't be entered because it no longer exists: the
// device is gone with it. True when that is so.
bool VlanIntfCommon::leaveVanishedNs(Kem::Ptr<Interface::EthIntfStatusLocal> const& isl,
                                     Sulvi::NamespaceName const& srcNs) {
   if (nsSocketFd(srcNs) != 0)
      return false; // it may have lost its name, but its devices can be reached
   auto const netNs = in_.netNsCollection->netNsByName(srcNs);
   if (netNs && netNs->inode() != 0) {
      prepNs(srcNs);
      if (keyOf(isl->netNsName()) == srcNs)
         return false;
   }
   KEM_TRACE(namespacesTrace, 1, "NS " << srcNs << " of " << isl->intfId() << " is gone");
   setIntfStatusLocalNetNsName(isl, Sulvi::DEFAULT_NS);
   return true;
}

// --- A namespace comes, goes, or is another one.

void VlanIntfCommon::handleNsByName() {
   for (auto const& [name, netNs] : in_.netNsCollection->netNsByName()) {
      handleNsByName(name);
      sweepUnusedNs(name);
   }
}

void VlanIntfCommon::handleNsByName(Sulvi::NamespaceName const& name) {
   in_.kernelOperStateManager->netNsDel(name);
   auto const netNs = in_.netNsCollection->netNsByName(name);
   if (netNs) {
      auto const reactor = *kemNetNs_.findOrInsert(name, [&] { return Kem::makePtr<KemNetNs>(*this); }).first;
      reactor->notifierIs(netNs);
      if (netNs->inode() != 0 && sockets_.inode(name) != 0 && netNs->inode() != sockets_.inode(name))
         forgetReplacedNs(name);
      evaluateInterfaceConfiguration();
      return;
   }
   kemNetNs_.erase(name);
   for (auto const& [intfId, isMember] : intf_)
      if (nsOfIntf(intfId) == name || intfNamespaces_->netNsName(intfId) == name) {
         intfBackLogIs(intfId, true);
         armIntfConfigClock();
      }
   if (nsSocketFd(name) != 0 && nsIntfRefcount(name) == 0) {
      KEM_TRACE(namespacesTrace, 3, "Freeing FD to unused namespace " << name);
      sockets_.close(name);
   }
}

void VlanIntfCommon::handleNsChange(Sulvi::NamespaceName const& name) {
   handleNsByName(name);
   auto const netNs = in_.netNsCollection->netNsByName(name);
   if (netNs && netNs->inode() != 0)
      sweepUnusedNs(name);
}

// The name means another namespace now. The devices in the old one would keep their VLANs taken on their bases
// for as long as it lives.
void VlanIntfCommon::forgetReplacedNs(Sulvi::NamespaceName const& name) {
   KEM_TRACE(namespacesTrace, 1, "NS " << name << " was made again");
   for (auto const intfId : sockets_.intfsIn(name)) {
      auto const deviceName = deviceNameOf(intfId);
      static_cast<void>(destroyVlanDevice(deviceName, nsSocketFd(name)));
      deviceVlanId_.erase(deviceName);
   }
   sockets_.close(name);
}

} // namespace Vorn
