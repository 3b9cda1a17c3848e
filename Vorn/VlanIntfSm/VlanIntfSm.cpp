#include "Vorn/VlanIntfSm/VlanIntfSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/KernelDeviceName.h"
#include "Vorn/BridgingSm/CpuPort.h"

#include <utility>

namespace Vorn {

namespace {
Kem::TraceFacility vlanIntfSmTrace("VornVlanIntfSm");
}

Kem::Ptr<VlanIntfSm> vlanIntfSmFactory(VlanIntfSmInputs const& in) {
   return Kem::makeInitialized<VlanIntfSm>(in);
}

VlanIntfSm::VlanIntfSm(VlanIntfSmInputs const& in)
    : VlanIntfCommon(in), in_(in), standbyMode_(in.standbyMode),
      vlanInterfaces_(in.vlanIntfConfigDir, in.dynVlanIntfList),
      vlanIntfAddrs_(Kem::makePtr<VlanIntfAddrs>(*this, in.interfaceInputVlan)) {}

void VlanIntfSm::forEachPart(Kem::PartVisitor const& visit) {
   VlanIntfCommon::forEachPart(visit);
   visit(kemKernelIntfCollection_, kemStatusDir_, kemStatusLocalDir_, kemPrivateVlanLibState_,
         kemHwCapabilities_, intfConfigClock_, fabricInterfaceReactor_, vlanIntfAddrs_, vlanIntfConfigCodef_,
         vlanIntfConfig_);
}

void VlanIntfSm::handleInitialized() {
   KEM_INVARIANT(in_.vornAgent, "vornAgent()");
   KEM_INVARIANT(in_.vornAgent->dynVlanIntfSm(), "vornAgent()->dynVlanIntfSm()");
   KEM_INVARIANT(in_.socketFd >= 0, "socketFd() >= 0");
   initializedIs(true);
   nsSocketFdIs(Sulvi::DEFAULT_NS, in_.socketFd);
   doInitIntfNamespaceConfig();
   doRemoveUnneededVlanNetworkDevices(in_.socketFd, Sulvi::DEFAULT_NS);

   kemKernelIntfCollection_.notifierIs(in_.kernelIntfCollection);
   kemStatusDir_.notifierIs(in_.vlanIntfStatusDir);
   kemStatusLocalDir_.notifierIs(in_.vlanIntfStatusLocalDir);
   kemPrivateVlanLibState_.notifierIs(in_.privateVlanLibState);
   kemHwCapabilities_.notifierIs(in_.bridgingHwCapabilities);
   intfConfigClock_.notifierIs(in_.clock);
   vlanIntfConfigCodef_ =
       vlanIntfConfigCodefFactory(in_.clock, in_.vlanIntfConfigDir, in_.dynVlanIntfList, *this);
   vlanIntfAddrs_->handleInitialized();

   handleNsByName();
   for (auto const& [intfId, status] : in_.vlanIntfStatusDir->intfStatus())
      handleIntfStatus(intfId);
   for (auto const& [intfId, local] : in_.vlanIntfStatusLocalDir->intfStatusLocal())
      handleIntfStatusLocal(intfId);
   for (auto const& [name, device] : in_.kernelIntfCollection->interfaceByName())
      if (Sulvi::vlanIdFromDeviceName(name))
         static_cast<void>(isAnotherDevice(name));
   handleInterfaceByName(in_.fabricDeviceName);
   for (auto const& [vlanId, isSecondary] : in_.privateVlanLibState->secondaryVlan())
      handleSecondaryVlan(vlanId);
}

// --- Interfaces.

Kem::Ptr<KemVlanIntfConfig> VlanIntfSm::vlanIntfConfig(Sulvi::IntfId intfId) const {
   auto const* const found = vlanIntfConfig_.find(intfId);
   return found ? *found : nullptr;
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanIntfSm::vlanIntfConfigAfterCodef(Sulvi::IntfId intfId) const {
   auto const* const found = vlanIntfConfigAfterCodef_.find(intfId);
   return found ? *found : nullptr;
}

void VlanIntfSm::vlanIntfConfigAfterCodefIs(Kem::Ptr<Interface::VlanIntfConfig const> const& config) {
   auto const intfId = config->intfId();
   vlanIntfConfigAfterCodef_.findOrInsert(intfId, [&] { return config; });
   vlanIntfConfig_.findOrInsert(intfId, [&] { return Kem::makePtr<KemVlanIntfConfig>(*this, config); });
}

void VlanIntfSm::vlanIntfConfigAfterCodefDel(Sulvi::IntfId intfId) {
   Kem::childDel(vlanIntfConfig_, intfId);
   vlanIntfConfigAfterCodef_.erase(intfId);
   in_.problems->problemDel(intfId);
}

// --- Changes of what all of them are on.

void VlanIntfSm::handleInterfaceByName(Kem::String8 const& name) {
   auto const device = in_.kernelIntfCollection->interfaceByName(name);
   if (name == in_.fabricDeviceName) {
      if (device && fabricInterfaceReactor_ && fabricInterfaceReactor_->isOf(*device))
         return;
      // What was on the one before is gone with it, in every namespace.
      fabricInterfaceReactor_ = nullptr;
      fabricUpIs(false);
      if (device)
         fabricInterfaceReactor_ = Kem::makeInitialized<FabricInterfaceReactor>(*this, device);
      else
         KEM_TRACE(vlanIntfSmTrace, 1, name << ": Unable to find fabric device in kernelIntfCollection");
      evaluateInterfaceConfiguration();
      return;
   }
   auto const vlanId = Sulvi::vlanIdFromDeviceName(name);
   if (!vlanId)
      return;
   // One of ours that went, or was made again, without our doing. One that we made again is evaluated once more,
   // which changes nothing.
   bool const isTheOneBefore = !isAnotherDevice(name);
   auto const entry = isTheOneBefore ? nullptr : vlanIntfConfig(vlanIntfIdOf(*vlanId));
   if (entry && entry->initialized() && deviceVlanId(name) != 0 &&
       entry->vlanIntfStatusLocal()->netNsName().isDefault()) {
      KEM_TRACE(vlanIntfSmTrace, 1,
                name << (device ? " is another device: " : " is gone: ") << entry->intfId()
                     << " is evaluated again");
      intfBackLogIs(entry->intfId(), true);
      armIntfConfigClock();
   }
}

// Whether there was a device of that name in the picture of the kernel's devices, and it is gone or another one now.
bool VlanIntfSm::isAnotherDevice(Kem::String8 const& deviceName) {
   auto const index = kernelDeviceIndex(deviceName);
   auto const [known, isNew] = knownIndexes_.findOrInsert(deviceName, [&] { return index; });
   auto const before = std::exchange(*known, index);
   if (index == 0)
      knownIndexes_.erase(deviceName);
   return index == 0 || (!isNew && before != index);
}

uint32_t VlanIntfSm::kernelDeviceIndex(Kem::String8 const& deviceName) const {
   auto const device = in_.kernelIntfCollection->interfaceByName(deviceName);
   return device ? device->ifIndex() : 0;
}

void VlanIntfSm::handleIntfConfigClock() {
   Kem::Seconds const deadline = Kem::now() + evaluationSlice;
   for (auto const& [intfId, isMember] : intfBackLog()) {
      if (Kem::now() > deadline)
         break;
      if (auto const entry = vlanIntfConfig(intfId))
         entry->doEvaluateInterfaceConfiguration();
      intfBackLogIs(intfId, false);
   }
   if (!intfBackLog().empty())
      armIntfConfigClock();
}

void VlanIntfSm::handleBridgingMaxFrameSize() {
   if (standbyMode_)
      return;
   KEM_TRACE(vlanIntfSmTrace, 5, "() maxMtuSize: " << maxMtu());
   for (auto const& [intfId, entry] : vlanIntfConfig_)
      if (entry->vlanIntfStatus())
         entry->vlanIntfStatus()->maxMtuIs(maxMtu());
}

// --- Status records.

void VlanIntfSm::handleIntfStatus(Sulvi::IntfId intfId) {
   auto const status = in_.vlanIntfStatusDir->intfStatus(intfId);
   if (auto const entry = vlanIntfConfig(intfId)) {
      if (status)
         entry->handleIntfStatusCreated();
      else
         entry->handleIntfStatusGone();
   }
   dropConfigOf(intfId);
   auto const& mirrored = in_.kernelOperStateRoot->intfStatusDir();
   if (status)
      mirrored->intfStatusIs(status);
   else
      mirrored->intfStatusDel(intfId);
}

// What an earlier run wrote into the status of an interface that is no longer configured.
void VlanIntfSm::dropConfigOf(Sulvi::IntfId intfId) {
   auto const status = in_.vlanIntfStatusDir->intfStatus(intfId);
   if (status && !standbyMode_ && !vlanInterfaces_.find(intfId))
      status->intfConfigIs(nullptr);
}

void VlanIntfSm::handleIntfStatusLocal(Sulvi::IntfId intfId) {
   auto const local = in_.vlanIntfStatusLocalDir->intfStatusLocal(intfId);
   countIntf(intfId, local);
   if (auto const entry = vlanIntfConfig(intfId)) {
      if (local)
         entry->handleIntfStatusCreated();
      else
         entry->handleIntfStatusGone();
   }
   auto const& mirrored = in_.kernelOperStateRoot->intfStatusLocalDir();
   if (local)
      mirrored->intfStatusLocalIs(local);
   else
      mirrored->intfStatusLocalDel(intfId);
}

// --- Private VLANs and the processor's port.

bool VlanIntfSm::isSecondaryVlan(uint16_t vlanId) const {
   return in_.privateVlanLibState->secondaryVlan(vlanId);
}

// The device of a secondary VLAN is held down: its traffic uses that of the primary.
void VlanIntfSm::handleSecondaryVlan(Bridging::VlanId vlanId) {
   if (!fabricUp() || !hasBridgeMacAddr())
      return;
   auto const entry = vlanIntfConfig(vlanIntfIdOf(vlanId.value()));
   if (entry && entry->initialized() && entry->config()->enabled())
      entry->handleEnabledWithRetry();
}

void VlanIntfSm::syncCpuPort(uint16_t vlanId) {
   if (vlanId < 1 || vlanId > 4094)
      return;
   auto const vlan = in_.bridgingConfig->vlanConfig(vlanId);
   if (vlan)
      Vorn::syncCpuPort({*in_.bridgingConfig, *in_.privateVlanLibState, vlanInterfaces_}, *vlan);
}

void VlanIntfSm::doSyncCpuPort(Bridging::VlanConfig const& primary, Bridging::VlanConfig& secondary) {
   Vorn::doSyncCpuPort({*in_.bridgingConfig, *in_.privateVlanLibState, vlanInterfaces_}, primary, secondary);
}

// --- Role.

void VlanIntfSm::standbyModeIs(bool standbyMode) {
   if (standbyMode_ == standbyMode)
      return;
   standbyMode_ = standbyMode;
   handleStandbyMode();
}

void VlanIntfSm::handleStandbyMode() {
   if (standbyMode_)
      return;
   KEM_TRACE(vlanIntfSmTrace, 0, "Transitioning to active mode: doing handleInitialized");
   for (auto const& [intfId, entry] : vlanIntfConfig_)
      entry->handleInitialized();
   for (auto const& [intfId, status] : in_.vlanIntfStatusDir->intfStatus())
      dropConfigOf(intfId);
}

// --- What VlanIntfCommon asks for.

void VlanIntfSm::doEvaluateInterfaceConfiguration(Sulvi::IntfId intfId) {
   if (auto const entry = vlanIntfConfig(intfId))
      entry->doEvaluateInterfaceConfiguration();
}

bool VlanIntfSm::retryNeeded(Sulvi::IntfId intfId) {
   auto const entry = vlanIntfConfig(intfId);
   return entry && !entry->doEvaluateInterfaceConfigurationWithRetval();
}

Sulvi::EthAddr VlanIntfSm::getIntfMacAddr(Sulvi::IntfId intfId) const {
   auto addr = in_.bridgingConfig->bridgeMacAddr();
   auto const isSet = [](Sulvi::EthAddr const& a) { return a != Sulvi::EthAddr::ethAddrZero(); };
   if (auto const entry = vlanIntfConfig(intfId); entry && isSet(entry->config()->addr()))
      addr = entry->config()->addr();
   if (auto const published = vlanIntfAddrs_->macAddr(intfId); isSet(published))
      addr = published;
   return addr;
}

void VlanIntfSm::setIntfAddr(Sulvi::IntfId intfId, Sulvi::EthAddr const& addr) {
   KEM_TRACE(vlanIntfSmTrace, 5, "Setting vlanIntfStatus addr for " << intfId << " to " << addr);
   if (auto const status = in_.vlanIntfStatusDir->intfStatus(intfId))
      status->addrIs(addr);
}

bool VlanIntfSm::intfPresentInConfig(Kem::String8 const& ifName) const {
   KEM_INVARIANT(initialized(), "initialized()");
   auto const vlanId = Sulvi::vlanIdFromDeviceName(ifName);
   return !vlanId || vlanInterfaces_.find(vlanIntfIdOf(*vlanId));
}

bool VlanIntfSm::intfPresentInStatus(Kem::String8 const& ifName) const {
   auto const vlanId = Sulvi::vlanIdFromDeviceName(ifName);
   return vlanId && in_.vlanIntfStatusDir->intfStatus(vlanIntfIdOf(*vlanId));
}

Kem::Ptr<Interface::EthIntfStatusLocal> VlanIntfSm::intfStatusLocal(Kem::String8 const& ifName) const {
   auto const vlanId = Sulvi::vlanIdFromDeviceName(ifName);
   return vlanId ? in_.vlanIntfStatusLocalDir->intfStatusLocal(vlanIntfIdOf(*vlanId)) : nullptr;
}

} // namespace Vorn
