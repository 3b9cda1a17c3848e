#include "Vorn/SubIntfSm/SubIntfSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/KernelDeviceName.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/KernelDevices/LinkSettings.h"
#include "Vorn/Rules/SubIntfIds.h"

#include <net/if.h>

namespace Vorn {

namespace {
Kem::TraceFacility subIntfSmTrace("VornSubIntfSm");
}

Kem::Ptr<SubIntfSm> subIntfSmFactory(SubIntfInputs const& in) {
   return Kem::makeInitialized<SubIntfSm>(in);
}

SubIntfSm::SubIntfSm(SubIntfInputs const& in) : VlanIntfCommon(in), in_(in), standbyMode_(in.standbyMode) {
   kemCapability_.notifierIs(in_.intfHwCapability);
   kemKernelIntfCollection_.notifierIs(in_.kernelIntfCollection);
   kemAllIntfStatusDir_.notifierIs(in_.allIntfStatusDir);
   kemStatusDir_.notifierIs(in_.subIntfStatusDir);
   kemStatusLocalDir_.notifierIs(in_.subIntfStatusLocalDir);
   kemHwStatusDir_.notifierIs(in_.subIntfHwStatusDir);
   kemHwCapabilities_.notifierIs(in_.bridgingHwCapabilities);
}

void SubIntfSm::handleInitialized() {
   initializedIs(true);
   fabricUpIs(true); // subinterfaces are not on the fabric device
   KEM_INVARIANT(in_.socketFd >= 0, "socketFd() >= 0");
   nsSocketFdIs(Sulvi::DEFAULT_NS, in_.socketFd);
   doInitIntfNamespaceConfig();
   doRemoveUnneededVlanNetworkDevices(in_.socketFd, Sulvi::DEFAULT_NS);
   subIntfConfigCodef_ = subIntfConfigCodefFactory(in_.clock, in_.subIntfConfigDir, in_.subIntfStatusDir,
                                                   in_.subIntfStatusLocalDir, *this);
   subIntfConfigCodef_->handleInitialized();
   intfConfigClock_.notifierIs(in_.clock);
   handleIntfStatus();
   handleIntfStatusLocal();
   handleNsByName(); // once it is known who is where
   for (auto const& [name, device] : in_.kernelIntfCollection->interfaceByName())
      handleKernelDeviceByName(name);
}

void SubIntfSm::forEachPart(Kem::PartVisitor const& visit) {
   VlanIntfCommon::forEachPart(visit);
   visit(subIntfConfigCodef_, subIntfConfig_, intfStatus_, kemKernelDevice_, kemCapability_,
         kemKernelIntfCollection_, kemAllIntfStatusDir_, kemStatusDir_, kemStatusLocalDir_, kemHwStatusDir_,
         kemHwCapabilities_, intfConfigClock_);
}

// --- What the deferred stage passes on.

bool SubIntfSm::subIntfConfigAfterCodef(Sulvi::IntfId intfId) const {
   return subIntfConfigAfterCodef_.find(intfId) != nullptr;
}

void SubIntfSm::subIntfConfigAfterCodefIs(Sulvi::IntfId intfId) {
   subIntfConfigAfterCodef_.findOrInsert(intfId, [] { return true; });
}

void SubIntfSm::subIntfConfigAfterCodefDel(Sulvi::IntfId intfId) {
   subIntfConfigAfterCodef_.erase(intfId);
   auto const entry = subIntfConfig(intfId);
   if (!entry)
      return;
   childDel(subIntfConfig_, intfId);
   intfIs(intfId, false);
   in_.problems->problemDel(intfId);
   kemKernelDevice_.erase(entry->deviceName());
   if (!subIntfConfigCodef_->existsInOrdel(intfId))
      takeStatusDown(intfId);
}

void SubIntfSm::subIntfConfigInitialize(Kem::Ptr<Interface::SubIntfConfig const> const& cfgOut) {
   auto const entry =
       *subIntfConfig_
            .findOrInsert(cfgOut->intfId(), [&] { return Kem::makePtr<KemSubIntfConfig>(*this, cfgOut); })
            .first;
   entry->handleInitialized();
}

// The device may be left from an earlier run, or from before a status record went.
void SubIntfSm::subIntfConfigGone(Sulvi::IntfId intfId) {
   if (!subIntfIdProblem(intfId).empty())
      return;
   auto const isl = in_.subIntfStatusLocalDir->intfStatusLocal(intfId);
   auto const ns = isl ? keyOf(isl->netNsName()) : Sulvi::DEFAULT_NS;
   auto const deviceName = Sulvi::kernelDeviceName(intfId);
   prepNs(ns);
   if (nsSocketFd(ns) != 0 && existingDevice(deviceName, nsSocketFd(ns)).kind == ExistingDevice::vlan)
      doDestroyVlanDevice(deviceName, isl, in_.socketFd);
}

void SubIntfSm::subIntfConfigRefused(Sulvi::IntfId intfId, std::string const& problem) {
   if (!problem.empty())
      in_.problems->problemIs(intfId, DeviceAspect::existence, problem);
   else if (!subIntfConfig(intfId))
      in_.problems->problemDel(intfId);
}

void SubIntfSm::subIntfConfigBacklogEmpty() {
   if (!intfBackLog().empty())
      armIntfConfigClock();
}

AttrLogCheck* SubIntfSm::attrLogCheck() const {
   return in_.vornAgent ? in_.vornAgent->roomToWrite() : nullptr;
}

Kem::Ptr<KemSubIntfConfig> SubIntfSm::subIntfConfig(Sulvi::IntfId intfId) const {
   auto const* const found = subIntfConfig_.find(intfId);
   return found ? *found : nullptr;
}

// --- Evaluation.

void SubIntfSm::doEvaluateInterfaceConfiguration(Sulvi::IntfId intfId) {
   auto const entry = subIntfConfig(intfId);
   if (!entry)
      return;
   if (entry->initialized())
      entry->doEvaluateInterfaceConfiguration();
   else
      entry->handleInitialized();
}

bool SubIntfSm::retryNeeded(Sulvi::IntfId intfId) {
   auto const entry = subIntfConfig(intfId);
   return entry && entry->retryNeeded();
}

void SubIntfSm::evaluateLater(Sulvi::IntfId intfId) {
   intfBackLogIs(intfId, true);
   armIntfConfigClock();
}

void SubIntfSm::evaluateAllLater() {
   for (auto const& [intfId, entry] : subIntfConfig_)
      intfBackLogIs(intfId, true);
   armIntfConfigClock();
}

// While the deferred stage has work, not all claims to VLAN ids are known; it arms the clock at its end.
void SubIntfSm::handleIntfConfigClock() {
   if (!isReady() || subIntfConfigCodef_->backlogSize() != 0)
      return;
   Kem::Seconds const deadline = Kem::now() + subIntfConfigCodef_->backlogQuantum();
   for (auto const& [key, value] : intfBackLog()) {
      if (Kem::now() > deadline)
         break;
      auto const intfId = key;
      doEvaluateInterfaceConfiguration(intfId);
      intfBackLogIs(intfId, false);
   }
   if (!intfBackLog().empty())
      armIntfConfigClock();
}

// --- Parents.

Kem::Ptr<SubIntfsUnderParent> SubIntfSm::parentIntf(Sulvi::IntfId parentIntfId) const {
   auto const* const found = parentIntf_.find(parentIntfId);
   return found ? *found : nullptr;
}

Kem::Ptr<SubIntfsUnderParent> SubIntfSm::parentIntfIs(Sulvi::IntfId parentIntfId) {
   auto const [parent, isNew] = parentIntf_.findOrInsert(
       parentIntfId, [&] { return Kem::makePtr<SubIntfsUnderParent>(parentIntfId); });
   auto const made = *parent;
   if (isNew) {
      handleAllIntfStatus(parentIntfId);
      followKernelDevice(Sulvi::kernelDeviceName(parentIntfId));
   }
   return made;
}

void SubIntfSm::subIntfDel(Sulvi::IntfId parentIntfId, Sulvi::IntfId intfId) {
   auto const parent = parentIntf(parentIntfId);
   if (!parent)
      return;
   parent->subIntfDel(intfId);
   if (!parent->subIntf().empty())
      return;
   parentIntf_.erase(parentIntfId);
   intfStatus_.erase(parentIntfId);
   kemKernelDevice_.erase(Sulvi::kernelDeviceName(parentIntfId));
}

void SubIntfSm::handleParentIntfUpdate(Sulvi::IntfId parentIntfId) {
   auto const parent = parentIntf(parentIntfId);
   if (!parent)
      return;
   for (auto const& [intfId, value] : parent->subIntf())
      intfBackLogIs(intfId, true);
   armIntfConfigClock();
}

void SubIntfSm::takeVlanIdFromLeftovers(Sulvi::IntfId parentIntfId, uint16_t vlanId) {
   for (auto const& [intfId, config] : in_.subIntfConfigDir->intfConfig()) {
      if (parentOfSubIntf(intfId) != parentIntfId || subIntfConfigCodef_->existsInOrdel(intfId))
         continue;
      auto const deviceName = Sulvi::kernelDeviceName(intfId);
      auto const isl = in_.subIntfStatusLocalDir->intfStatusLocal(intfId);
      prepNs(isl ? keyOf(isl->netNsName()) : Sulvi::DEFAULT_NS);
      int const fd = nsSocketFdFromIntfStatusLocal(isl);
      auto const device = fd != 0 ? existingDevice(deviceName, fd) : ExistingDevice();
      if (device.kind == ExistingDevice::vlan && device.vlanId == vlanId)
         doDestroyVlanDevice(deviceName, isl, in_.socketFd);
   }
}

void SubIntfSm::handleAllIntfStatus(Sulvi::IntfId intfId) {
   if (!isReady() || !parentIntf(intfId))
      return;
   if (auto const status = in_.allIntfStatusDir->intfStatus(intfId)) {
      auto const reactor =
          *intfStatus_.findOrInsert(intfId, [&] { return Kem::makePtr<KemIntfStatus>(*this); }).first;
      reactor->notifierIs(status);
   } else if (intfStatus_.erase(intfId)) {
      handleParentIntfUpdate(intfId);
   }
}

// --- The kernel's devices.

Sulvi::IntfId SubIntfSm::subIntfOfDevice(Kem::String8 const& ifName) {
   if (!Sulvi::isSubIntf(ifName))
      return {};
   auto const intfId = Sulvi::getIntfIdFromKernelDeviceName(ifName);
   return subIntfIdProblem(intfId).empty() && Sulvi::kernelDeviceName(intfId) == ifName ? intfId
                                                                                        : Sulvi::IntfId();
}

void SubIntfSm::followKernelDevice(Kem::String8 const& deviceName) {
   if (auto const device = in_.kernelIntfCollection->interfaceByName(deviceName)) {
      auto const reactor =
          *kemKernelDevice_.findOrInsert(deviceName, [&] { return Kem::makePtr<KemKernelDevice>(*this); })
               .first;
      reactor->notifierIs(device);
   } else {
      kemKernelDevice_.erase(deviceName);
   }
}

// A parent's device came or went; or one of ours was removed by somebody else.
void SubIntfSm::handleKernelDeviceByName(Kem::String8 const& name) {
   if (!isReady())
      return;
   if (auto const own = subIntfConfig(subIntfOfDevice(name)); own && own->initialized()) {
      followKernelDevice(name);
      if (in_.kernelIntfCollection->interfaceByName(name))
         handleKernelDeviceFlags(name);
      else if (own->subIntfStatusLocal()->netNsName().isDefault() && deviceVlanId(name) != 0)
         evaluateLater(own->intfId());
      return;
   }
   auto const parentIntfId = Sulvi::getIntfIdFromKernelDeviceName(name);
   if (!parentIntf(parentIntfId))
      return;
   followKernelDevice(name);
   handleParentIntfUpdate(parentIntfId);
}

// The kernel switches VLAN devices on and off with their base. One of ours counts only when it isn't as it should
// be, since each of our own changes is reported too.
void SubIntfSm::handleKernelDeviceFlags(Kem::String8 const& name) {
   auto const own = subIntfConfig(subIntfOfDevice(name));
   if (!own) {
      handleParentIntfUpdate(Sulvi::getIntfIdFromKernelDeviceName(name));
      return;
   }
   auto const device = in_.kernelIntfCollection->interfaceByName(name);
   if (!own->initialized() || !device || bool(device->flags() & IFF_UP) == own->isOperUp())
      return;
   // The picture may be behind, with the next news still to be read.
   int const fd = nsSocketFdFromIntfStatusLocal(own->subIntfStatusLocal());
   if (isInterfaceUp(name, fd) != own->isOperUp())
      evaluateLater(own->intfId());
}

void SubIntfSm::handleKernelDeviceReplaced(Kem::String8 const& name) {
   if (auto const own = subIntfConfig(subIntfOfDevice(name)))
      evaluateLater(own->intfId());
   else
      handleParentIntfUpdate(Sulvi::getIntfIdFromKernelDeviceName(name));
}

// The largest MTU that the devices above it can have.
void SubIntfSm::handleKernelDeviceMtu(Kem::String8 const& name) {
   handleParentIntfUpdate(Sulvi::getIntfIdFromKernelDeviceName(name));
}

uint32_t SubIntfSm::kernelDeviceIndex(Kem::String8 const& deviceName) const {
   auto const device = in_.kernelIntfCollection->interfaceByName(deviceName);
   return device ? device->ifIndex() : 0;
}

// --- Status records.

void SubIntfSm::handleIntfStatus() {
   for (auto const& [intfId, status] : in_.subIntfStatusDir->intfStatus())
      handleIntfStatus(intfId);
}

void SubIntfSm::handleIntfStatus(Sulvi::IntfId intfId) {
   if (!isReady() || standbyMode_ || subIntfConfig(intfId))
      return;
   in_.kernelOperStateRoot->intfStatusDir()->intfStatusDel(intfId);
   if (!subIntfConfigCodef_->existsInOrdel(intfId) || !subIntfIdProblem(intfId).empty())
      takeStatusDown(intfId);
}

void SubIntfSm::handleIntfStatusLocal() {
   for (auto const& [intfId, isl] : in_.subIntfStatusLocalDir->intfStatusLocal())
      handleIntfStatusLocal(intfId);
}

void SubIntfSm::handleIntfStatusLocal(Sulvi::IntfId intfId) {
   if (!isReady())
      return;
   auto const isl = in_.subIntfStatusLocalDir->intfStatusLocal(intfId);
   auto const entry = subIntfConfig(intfId);
   // With the record it is forgotten where the device is, unless it is where it would be looked for.
   auto const place = nsOfIntf(intfId);
   if (!place.isDefault() && place != (isl ? keyOf(isl->netNsName()) : Sulvi::DEFAULT_NS)) {
      prepNs(place);
      if (entry && entry->initialized())
         doDestroyVlanDevice(entry->deviceName(), entry->subIntfStatusLocal(), 0);
      else
         doDestroyVlanDevice(Sulvi::kernelDeviceName(intfId), nullptr, nsSocketFd(place));
   }
   countIntf(intfId, isl);
   if (!entry)
      in_.kernelOperStateRoot->intfStatusLocalDir()->intfStatusLocalDel(intfId);
}

// Nobody drives an interface that lacks one of its records, or that the switch can't have.
void SubIntfSm::takeStatusDown(Sulvi::IntfId intfId) {
   auto const status = in_.subIntfStatusDir->intfStatus(intfId);
   if (!status || standbyMode_)
      return;
   status->programInHwIs(false);
   status->operStatusIs(Interface::IntfOperStatus::intfOperLowerLayerDown);
}

// --- What holds for all.

void SubIntfSm::handleSubIntfHwStatus(Sulvi::IntfId intfId) {
   if (auto const entry = subIntfConfig(intfId))
      entry->handleSubIntfHwStatus();
}

void SubIntfSm::handleSubIntfSupported() {
   if (!isReady())
      return;
   KEM_TRACE(subIntfSmTrace, 3, "subintfSupported " << in_.intfHwCapability->subintfSupported());
   evaluateAllLater();
}

void SubIntfSm::handleBridgingMaxFrameSize() {
   if (standbyMode_ || !isReady())
      return;
   KEM_TRACE(subIntfSmTrace, 3, "() maxMtuSize: " << maxMtu());
   for (auto const& [intfId, entry] : subIntfConfig_)
      if (entry->subIntfStatus())
         entry->subIntfStatus()->maxMtuIs(maxMtu());
}

void SubIntfSm::standbyModeIs(bool standbyMode) {
   if (standbyMode_ == standbyMode)
      return;
   standbyMode_ = standbyMode;
   handleStandbyMode();
}

void SubIntfSm::handleStandbyMode() {
   if (standbyMode_ || !isReady())
      return;
   handleBridgingMaxFrameSize();
   handleIntfStatus();
   evaluateAllLater();
}

// --- What VlanIntfCommon asks for.

Sulvi::EthAddr SubIntfSm::getIntfMacAddr(Sulvi::IntfId intfId) const {
   auto const entry = subIntfConfig(intfId);
   if (entry && entry->config()->addr() != Sulvi::EthAddr::ethAddrZero())
      return entry->config()->addr();
   return in_.bridgingConfig->bridgeMacAddr();
}

void SubIntfSm::setIntfAddr(Sulvi::IntfId intfId, Sulvi::EthAddr const& addr) {
   if (standbyMode_)
      return;
   if (auto const status = in_.subIntfStatusDir->intfStatus(intfId))
      status->addrIs(addr);
}

bool SubIntfSm::intfPresentInConfig(Kem::String8 const& ifName) const {
   auto const intfId = subIntfOfDevice(ifName);
   return intfId.empty() || in_.subIntfConfigDir->intfConfig(intfId);
}

bool SubIntfSm::intfPresentInStatus(Kem::String8 const& ifName) const {
   auto const intfId = subIntfOfDevice(ifName);
   return !intfId.empty() && in_.subIntfStatusDir->intfStatus(intfId);
}

Kem::Ptr<Interface::EthIntfStatusLocal> SubIntfSm::intfStatusLocal(Kem::String8 const& ifName) const {
   auto const intfId = subIntfOfDevice(ifName);
   return intfId.empty() ? nullptr : in_.subIntfStatusLocalDir->intfStatusLocal(intfId);
}

} // namespace Vorn
