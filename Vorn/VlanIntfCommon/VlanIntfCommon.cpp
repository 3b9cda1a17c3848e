#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Sulvi/IntfKind.h"
#include "Sulvi/KernelDeviceName.h"
#include "SyncMtu/SyncMtu.h"
#include "Vorn/KernelDevices/LinkSettings.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace Vorn {

namespace {

Kem::TraceFacility commonTrace("VornVlanIntfCommon");

using Interface::IntfOperStatus;

// Frames of the highest priority inside the system leave with the highest priority of the VLAN tag
// (IEEE 802.1Q, priority code point).
constexpr unsigned highestPriority = 7;

} // namespace

Kem::String8 deviceNameOf(Sulvi::IntfId intfId) {
   return Sulvi::VlanIntfId::isVlanIntfId(intfId) ? Sulvi::vlanDeviceName(Sulvi::VlanIntfId::vlanId(intfId))
                                                  : Sulvi::kernelDeviceName(intfId);
}

VlanIntfCommon::VlanIntfCommon(VlanIntfInputs in)
    : in_(std::move(in)), intfNamespaces_(Kem::makePtr<IntfNamespaces>(
                              in_.allIntfNamespaceConfigDir,
                              [this](Sulvi::IntfId intfId) { doEvaluateInterfaceConfiguration(intfId); })) {
   kemBridgingConfig_.notifierIs(in_.bridgingConfig);
   kemNetNsCollection_.notifierIs(in_.netNsCollection);
   kemClock_.notifierIs(in_.clock);
   handleClock();
}

VlanIntfCommon::~VlanIntfCommon() = default;

void VlanIntfCommon::forEachPart(Kem::PartVisitor const& visit) {
   visit(kemBridgingConfig_, kemNetNsCollection_, kemNetNs_, kemClock_, intfNamespaces_);
}

// --- What the derived class says and does.

void VlanIntfCommon::doEvaluateInterfaceConfiguration(Sulvi::IntfId) {
   KEM_ASSERT(0 && "Derived class should implement this");
}
Sulvi::EthAddr VlanIntfCommon::getIntfMacAddr(Sulvi::IntfId) const {
   KEM_ASSERT(0 && "Derived class should implement this");
   return {};
}
void VlanIntfCommon::setIntfAddr(Sulvi::IntfId, Sulvi::EthAddr const&) {
   KEM_ASSERT(0 && "Derived class should implement this");
}
bool VlanIntfCommon::retryNeeded(Sulvi::IntfId) {
   KEM_ASSERT(0 && "derived class should implement");
   return false;
}
bool VlanIntfCommon::intfPresentInConfig(Kem::String8 const&) const {
   KEM_ASSERT(0 && "Derived class should implement this");
   return false;
}
bool VlanIntfCommon::intfPresentInStatus(Kem::String8 const&) const {
   KEM_ASSERT(0 && "Derived class should implement this");
   return false;
}
Kem::Ptr<Interface::EthIntfStatusLocal> VlanIntfCommon::intfStatusLocal(Kem::String8 const&) const {
   KEM_ASSERT(0 && "Derived class should implement this");
   return nullptr;
}
bool VlanIntfCommon::isStandbyMode() const {
   KEM_ASSERT(0 && "Derived class should implement this");
   return false;
}
void VlanIntfCommon::armIntfConfigClock() {
   KEM_ASSERT(0 && "Derived class should implement this");
}
uint32_t VlanIntfCommon::kernelDeviceIndex(Kem::String8 const&) const {
   return 0;
}

// --- Evaluation.

void VlanIntfCommon::evaluateInterfaceConfiguration() {
   if (intf_.empty())
      return;
   for (auto const& [intfId, isMember] : intf_)
      intfBackLogIs(intfId, true);
   armIntfConfigClock();
}

bool VlanIntfCommon::doEvaluateInterfaceConfigurationWithRetval(
    bool initialized, bool preparedToDie, Sulvi::IntfId intfId, uint16_t vlanId,
    Kem::String8 const& baseDeviceName, Kem::String8 const& deviceName, Kem::String8 const& name,
    Kem::Ptr<Interface::EthIntfStatus> const& intfStatus,
    Kem::Ptr<Interface::EthIntfStatusLocal> const& isl) {
   continueProcessing_ = false;
   kernelCallFailed_ = false;
   if (!initialized)
      return true;
   if (preparedToDie) {
      KEM_TRACE(commonTrace, 3, name << " exiting because preparedToDie is true");
      return true;
   }

   // What stands in the way is traced at level 0 once, by DeviceProblems; here at each try.
   // Where it is to be.
   auto const dstNs = intfNamespaces_->netNsName(intfId);
   auto const existenceIs = [&](std::string_view problem) { in_.problems->existenceIs(intfId, problem); };
   prepNs(dstNs);
   if (nsSocketFd(dstNs) == 0) {
      auto const nsText = dstNs.stringValue().str();
      if (!in_.netNsCollection->netNsByName(dstNs)) {
         existenceIs("namespace " + nsText + " doesn't exist");
         return true; // its coming starts another evaluation
      }
      KEM_TRACE(commonTrace, 3, name << "No valid socket found for NS`" << dstNs);
      existenceIs("namespace " + nsText + " can't be entered");
      return false;
   }

   // Where it is. A device that is in the default namespace may have an empty name in its record.
   auto srcNs = keyOf(isl->netNsName());
   if (!srcNs.isDefault() && leaveVanishedNs(isl, srcNs))
      srcNs = Sulvi::DEFAULT_NS;
   int const srcSockFd = nsSocketFd(srcNs);
   if (srcSockFd <= 0 && !srcNs.isDefault() && in_.netNsCollection->netNsByName(srcNs)) {
      existenceIs("namespace " + srcNs.stringValue().str() + " can't be entered");
      return false; // its socket may be refused for a moment
   }
   if (srcSockFd <= 0) {
      std::cerr << "Failed(srcSockFd > 0)  srcSockFd: " << srcSockFd << " srcNs: " << srcNs
                << " dstNs: " << dstNs << " intfId: " << intfId << std::endl;
      KEM_ASSERT(!"srcSockFd > 0");
   }

   if (vlanId == 0) {
      doDestroyVlanDevice(deviceName, isl, 0);
      in_.problems->problemDel(intfId);
      continueProcessing_ = true;
      return true;
   }

   // A device of another VLAN, or in another namespace, is destroyed there and made afresh. One that the picture of
   // the kernel doesn't show yet is found by takeOverOrRemake.
   auto const current = deviceVlanId(deviceName);
   bool const isMoved =
       srcNs != dstNs && (current != 0 || !isl->netNsName().empty() || kernelDeviceIndex(deviceName) != 0);
   if ((current != 0 && current != vlanId) || isMoved)
      doDestroyVlanDevice(deviceName, isl, 0);

   auto const ret = doCreateVlanDevice(vlanId, baseDeviceName, deviceName, in_.netlinkFd, dstNs);
   switch (ret) {
   case VlanNoBase:
   case VlanNoNamespace: {
      KEM_TRACE(commonTrace, 3,
                "vlan create errorin dstNs. No retry. NS " << dstNs << " vlanId " << vlanId << " error "
                                                           << static_cast<int>(ret));
      bool const hasNs = dstNs.isDefault() || in_.netNsCollection->netNsByName(dstNs);
      bool const isBase = ret == VlanNoBase && hasNs;
      existenceIs(isBase ? "base device " + baseDeviceName.str() + " doesn't exist"
                         : "namespace " + dstNs.stringValue().str() + " doesn't exist");
      // What is known to be there wasn't found for another reason, which may pass without a notification.
      return !(isBase ? kernelDeviceIndex(baseDeviceName) != 0
                      : in_.netNsCollection->netNsByName(dstNs) != nullptr);
   }
   case VlanRefused:
      KEM_TRACE(commonTrace, 3, "vlan create failed in dstNs " << dstNs << " vlanId " << vlanId);
      // It may be taken by a device of ours in a namespace that no record tells of.
      if (isVlanTaken_ && in_.problems->problem(intfId) != createProblem_)
         sweepNamespacesAgain();
      existenceIs(createProblem_);
      return false;
   case VlanNotNeeded:
      KEM_TRACE(commonTrace, 3, "vlan create not needed in dstNs " << dstNs << " vlanId " << vlanId);
      return true;
   case VlanCreated:
   case VlanExists:
      break;
   default:
      KEM_ASSERT(!"ret == VlanNotNeeded");
   }
   KEM_TRACE(commonTrace, 5, "vlan created in dstNs " << dstNs << " vlanId " << vlanId);
   existenceIs({});
   // One that existed is where it was found, which the record may not know yet.
   setIntfStatusLocalNetNsName(isl, dstNs);

   if (fabricUp_ && hasBridgeMacAddr()) {
      handleMacAddr(true, intfId, deviceName);
      if (!isStandbyMode())
         intfStatus->deviceNameIs(deviceName);
      // A new device has been told that it is dormant, in doCreateVlanDevice.
      auto const fresh = ret == VlanCreated && !kernelCallFailed_
                             ? std::optional(IntfOperStatus::intfOperDormant)
                             : std::nullopt;
      if (in_.kernelOperStateRoot->intfStatusOperStatusSm()->doSyncIntfStatus(intfId, fresh) != 0)
         kernelCallFailed_ = true;
   }
   continueProcessing_ = true;
   return true;
}

bool VlanIntfCommon::hasBridgeMacAddr() const {
   return in_.bridgingConfig->bridgeMacAddr() != Sulvi::EthAddr::ethAddrZero();
}

// --- The device.

uint16_t VlanIntfCommon::deviceVlanId(Kem::String8 const& deviceName) const {
   auto const* const found = deviceVlanId_.find(deviceName);
   return found ? *found : 0;
}

VlanCreateStatus VlanIntfCommon::doCreateVlanDevice(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                                    Kem::String8 const& deviceName, int socketFd,
                                                    Sulvi::NamespaceName const& dstNs) {
   if (vlanId == 0)
      return VlanNotNeeded;
   isVlanTaken_ = false;
   // The kernel's refusal of what it can't do is never answered: it is found out before.
   createProblem_ = ability_.kernelProblem(in_.socketFd);
   in_.problems->kernelProblemIs(createProblem_);
   if (createProblem_.empty())
      createProblem_ = DeviceAbility::nameProblem(deviceName);
   if (createProblem_.empty())
      createProblem_ = ability_.baseProblem(baseDeviceName, in_.socketFd, kernelDeviceIndex(baseDeviceName));
   if (!createProblem_.empty()) {
      deviceVlanId_.erase(deviceName);
      return VlanRefused;
   }
   auto ret = requestVlanDevice(vlanId, baseDeviceName, deviceName, socketFd, dstNs);
   if (ret == VlanRefused)
      createProblem_ = std::string("the kernel refuses it: ") + strerror(errno);
   if (ret == VlanExists)
      ret = takeOverOrRemake(vlanId, baseDeviceName, deviceName, socketFd, dstNs);
   if (ret != VlanCreated && ret != VlanExists) {
      deviceVlanId_.erase(deviceName);
      return ret;
   }
   *deviceVlanId_.findOrInsert(deviceName, [] { return uint16_t(0); }).first = vlanId;
   if (setVlanDeviceEgressMap(deviceName, highestPriority, highestPriority, nsSocketFd(dstNs)) < 0)
      kernelCallFailed_ = true;
   if (ret == VlanCreated &&
       in_.kernelOperStateManager->doSetOperState(deviceName, IntfOperStatus::intfOperDormant, dstNs) != 0)
      kernelCallFailed_ = true;
   return ret;
}

// A request that failed on its way may have been done all the same: then there is a device that nobody knows of.
VlanCreateStatus VlanIntfCommon::requestVlanDevice(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                                   Kem::String8 const& deviceName, int socketFd,
                                                   Sulvi::NamespaceName const& dstNs) {
   auto const ret = createVlanDevice(baseDeviceName, deviceName, vlanId, socketFd, dstNs);
   if (ret == VlanRefused) {
      int const error = errno;
      sweepAgainIn(dstNs);
      errno = error;
   }
   return ret;
}

// The kernel says that there is such a device. It may be one of an earlier configuration, or somebody else's; the
// VLAN of the base may be taken by a device of another name; and since the kernel makes a device in the default
// namespace before it moves it, the name may be taken there.
VlanCreateStatus VlanIntfCommon::takeOverOrRemake(uint16_t vlanId, Kem::String8 const& baseDeviceName,
                                                  Kem::String8 const& deviceName, int socketFd,
                                                  Sulvi::NamespaceName const& dstNs) {
   int fd = nsSocketFd(dstNs);
   auto found = existingDevice(deviceName, fd);
   if (found.kind == ExistingDevice::vlan && found.vlanId == vlanId && found.base == baseDeviceName)
      return VlanExists;
   if (found.kind == ExistingDevice::none && !dstNs.isDefault()) {
      fd = in_.socketFd;
      found = existingDevice(deviceName, fd);
   }
   if (found.kind == ExistingDevice::vlan) {
      KEM_TRACE(commonTrace, 1,
                "device " << deviceName << " has VLAN " << found.vlanId << " of " << found.base
                          << ", not VLAN " << vlanId << " of " << baseDeviceName << " in NS " << dstNs
                          << ": made again");
      static_cast<void>(destroyVlanDevice(deviceName, fd));
      auto const again = requestVlanDevice(vlanId, baseDeviceName, deviceName, socketFd, dstNs);
      if (again != VlanExists)
         return again;
      found = existingDevice(deviceName, fd);
   }
   isVlanTaken_ = found.kind == ExistingDevice::none;
   createProblem_ =
       found.kind == ExistingDevice::other ? "a device " + deviceName.str() + " exists that is no VLAN device"
       : found.kind == ExistingDevice::none
           ? "VLAN " + std::to_string(vlanId) + " of " + baseDeviceName.str() + " belongs to another device"
           : "device " + deviceName.str() + " exists and can't be looked at";
   return VlanRefused;
}

void VlanIntfCommon::doDestroyVlanDevice(Kem::String8 const& deviceName,
                                         Kem::Ptr<Interface::EthIntfStatusLocal> const& isl, int socketFd) {
   int const fd = isl ? nsSocketFdFromIntfStatusLocal(isl) : socketFd;
   destroyOrSweepAgain(deviceName, fd, isl ? isl->netNsName() : sockets_.nsOf(fd));
   deviceVlanId_.erase(deviceName);
   setIntfStatusLocalNetNsName(isl, Sulvi::DEFAULT_NS);
}

bool VlanIntfCommon::setInterfaceUpOrDown(Kem::String8 const& deviceName, bool up, int fd) {
   if (fd == 0 || deviceVlanId(deviceName) == 0)
      return false;
   int error = 0;
   bool wasSwitched = false;
   if (setInterfaceUpOrDownInternal(deviceName, up, fd, &error, &wasSwitched) >= 0)
      return wasSwitched;
   if (error == ENODEV) {
      kernelCallFailed_ = true;    // somebody removed it, or it can't be found just now
   } else if (error != ENETDOWN) { // with that it comes up with its base
      std::cerr << "setInterfaceUpOrDown failure, " << deviceName << " errno " << error << std::endl;
      Netlink::kernel().exitProcess(1);
   }
   return false;
}

// --- Address and MTU.

void VlanIntfCommon::handleMacAddr(bool initialized, Sulvi::IntfId intfId, Kem::String8 const& deviceName) {
   if (!initialized || deviceVlanId(deviceName) == 0 || !hasBridgeMacAddr())
      return;
   auto const addr = getIntfMacAddr(intfId);
   auto const addressIs = [&](std::string const& problem) {
      in_.problems->problemIs(intfId, DeviceAspect::address, problem);
   };
   int const fd = nsSocketFd(intfNamespaces_->netNsName(intfId));
   if (fd == 0)
      return; // the evaluation that moves it there comes by here
   if (addr.isMulticast()) {
      addressIs("a multicast address can't be the address of a device: " + addr.stringValue().str());
      return;
   }
   KEM_TRACE(commonTrace, 5, "Setting mac addr of " << intfId << " to " << addr);
   if (setKernelDeviceMacAddress(deviceName, addr, fd) != 0) {
      addressIs("its address can't be set to " + addr.stringValue().str() + ": " + strerror(errno));
      kernelCallFailed_ = true;
      return;
   }
   addressIs({});
   if (!isStandbyMode())
      setIntfAddr(intfId, addr);
}

void VlanIntfCommon::doSyncMtu(Kem::Ptr<Interface::EthIntfStatus> const& intfStatus,
                               Kem::Ptr<Interface::EthIntfStatusLocal> const& isl,
                               Kem::Ptr<Interface::IntfConfig const> const& intfConfig) {
   int const fd = nsSocketFdFromIntfStatusLocal(isl);
   KEM_TRACE(commonTrace, 7,
             " ns in IntfStatus is: \"" << isl->netNsName() << "\" fd: " << fd
                                        << " this: " << static_cast<void const*>(this));
   auto const intfId = intfConfig->intfId();
   if (deviceVlanId(deviceNameOf(intfId)) == 0)
      return; // the evaluation that makes the device comes by here
   in_.problems->problemIs(intfId, DeviceAspect::mtu, Interface::mtuProblem(*intfConfig));
   if (!Interface::syncMtu(intfStatus, isl, intfConfig, false, true, fd)) {
      KEM_TRACE(commonTrace, 0, "Error setting the link mtu for interface " << intfId);
      kernelCallFailed_ = true;
   }
}

// --- Helpers.

void VlanIntfCommon::memberIs(IntfSet& set, Sulvi::IntfId intfId, bool value) {
   if (value)
      set.findOrInsert(intfId, [] { return true; });
   else
      set.erase(intfId);
}

} // namespace Vorn
