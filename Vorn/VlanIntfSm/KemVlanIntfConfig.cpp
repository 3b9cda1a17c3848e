#include "Vorn/VlanIntfSm/KemVlanIntfConfig.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "Sulvi/KernelDeviceName.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility vlanIntfTrace("VornVlanIntf");
}

KemVlanIntfConfig::KemVlanIntfConfig(VlanIntfSm& parent,
                                     Kem::Ptr<Interface::VlanIntfConfig const> const& config)
    : parent_(parent), intfId_(config->intfId()) {
   kemConfig_.notifierIs(config);
}

// --- Life.

void KemVlanIntfConfig::handleInitialized() {
   syncCpuPort();
   auto const status = parent_.vlanIntfStatusDir()->intfStatus(intfId_);
   auto const local = parent_.vlanIntfStatusLocalDir()->intfStatusLocal(intfId_);
   if (!status || !local) {
      KEM_TRACE(vlanIntfTrace, 1,
                "VlanIntfSm: no visd or visld yet for " << intfId_ << " source " << config()->source());
      return;
   }
   vlanIntfStatus_ = status;
   vlanIntfStatusLocal_ = local;
   kemVlanIntfStatus_.notifierIs(status);
   initializedIs(true);
   KEM_INVARIANT(Sulvi::VlanIntfId::isVlanIntfId(intfId_), "Sulvi::VlanIntfId::isVlanIntfId(intfId())");
   parent_.intfIs(intfId_, true);
   auto const num = Sulvi::VlanIntfId::vlanId(intfId_);
   KEM_INVARIANT(num < 4095, "num < 4095");
   vlanId_ = Bridging::VlanId(num).value(); // raises for a number that is none
   deviceName_ = Sulvi::vlanDeviceName(num);
   if (!parent_.standbyMode()) {
      status->maxMtuIs(parent_.maxMtu());
      status->intfConfigIs(
          Kem::Ptr<Interface::IntfConfig>(const_cast<Interface::VlanIntfConfig*>(config().ptr())));
   }
   parent_.intfBackLogIs(intfId_, true);
   parent_.armIntfConfigClock();
}

void KemVlanIntfConfig::handleIntfStatusCreated() {
   // The same two again, as after a start: nothing new.
   if (initialized() && vlanIntfStatus_ == parent_.vlanIntfStatusDir()->intfStatus(intfId_) &&
       vlanIntfStatusLocal_ == parent_.vlanIntfStatusLocalDir()->intfStatusLocal(intfId_))
      return;
   handleInitialized();
}

// Without its records the interface has no device: one that stayed would outlive the configuration.
void KemVlanIntfConfig::handleIntfStatusGone() {
   if (initialized())
      giveUpDevice();
   initializedIs(false);
   operational_ = false;
   kemVlanIntfStatus_.notifierIs(nullptr);
   vlanIntfStatus_ = nullptr;
   vlanIntfStatusLocal_ = nullptr;
   parent_.intfIs(intfId_, false);
   parent_.in().problems->problemDel(intfId_);
}

void KemVlanIntfConfig::giveUpDevice() {
   parent_.prepNs(keyOf(vlanIntfStatusLocal_->netNsName()));
   parent_.doDestroyVlanDevice(deviceName_, vlanIntfStatusLocal_, 0);
   vlanIntfStatusLocal_->netNsNameIs(Sulvi::DEFAULT_NS);
   if (!parent_.standbyMode())
      vlanIntfStatus_->intfConfigIs(nullptr);
}

void KemVlanIntfConfig::doPrepareToDie() {
   if (initialized())
      giveUpDevice();
   else if (!parent_.intfPresentInConfig(deviceNameOf(intfId_))) // not merely another source of it
      parent_.removeDeviceWherever(deviceNameOf(intfId_));
   if (auto const status = parent_.vlanIntfStatusDir()->intfStatus(intfId_); status && !parent_.standbyMode())
      status->intfConfigIs(nullptr);
   parent_.intfIs(intfId_, false);
   syncCpuPort();
   preparedToDie_ = true;
}

// --- Evaluation.

void KemVlanIntfConfig::doEvaluateInterfaceConfiguration() {
   if (!doEvaluateInterfaceConfigurationWithRetval())
      parent_.addIntfToRetryCollection(intfId_, deviceName_);
}

bool KemVlanIntfConfig::doEvaluateInterfaceConfigurationWithRetval() {
   bool const result = parent_.doEvaluateInterfaceConfigurationWithRetval(
       initialized(), preparedToDie_, intfId_, vlanId_, parent_.in().fabricDeviceName, deviceName_,
       intfId_.stringValue(), vlanIntfStatus_, vlanIntfStatusLocal_);
   bool const isReadyForTraffic = parent_.fabricUp() && parent_.hasBridgeMacAddr();
   if (parent_.continueProcessing())
      operational_ = isReadyForTraffic;
   if (parent_.continueProcessing() && isReadyForTraffic) {
      handleEnabled();
      handleMtu();
   } else if (parent_.continueProcessing()) {
      KEM_TRACE(vlanIntfTrace, 3,
                "Vlan not ready, fabricUp " << parent_.fabricUp() << ", bridgeMac "
                                            << parent_.in().bridgingConfig->bridgeMacAddr());
   }
   return result && !parent_.kernelCallFailed();
}

// --- Attributes.

void KemVlanIntfConfig::withRetry(void (KemVlanIntfConfig::*handle)()) {
   parent_.kernelCallFailedIs(false);
   (this->*handle)();
   if (parent_.kernelCallFailed())
      parent_.addIntfToRetryCollection(intfId_, deviceName_);
}

void KemVlanIntfConfig::handleEnabled() {
   syncCpuPort();
   // Without fabric or bridge address it stays as it is; the evaluation that follows their coming is next.
   if (initialized() && parent_.fabricUp() && parent_.hasBridgeMacAddr())
      setUpOrDown();
}

void KemVlanIntfConfig::syncCpuPort() {
   if (!parent_.standbyMode())
      parent_.syncCpuPort(Sulvi::VlanIntfId::vlanId(intfId_));
}

void KemVlanIntfConfig::setUpOrDown() {
   KEM_INVARIANT(!deviceName_.empty(), "deviceName()");
   bool const up = config()->enabled() && !parent_.isSecondaryVlan(vlanId_);
   bool const wasSwitched = parent_.setInterfaceUpOrDown(
       deviceName_, up, parent_.nsSocketFdFromIntfStatusLocal(vlanIntfStatusLocal_));
   // The kernel takes a device that comes up for operational, whatever it was told before.
   if (wasSwitched && up && vlanIntfStatus_->operStatus() != Interface::IntfOperStatus::intfOperUp &&
       parent_.in().kernelOperStateRoot->intfStatusOperStatusSm()->doSyncIntfStatus(intfId_) != 0)
      parent_.kernelCallFailedIs(true);
}

void KemVlanIntfConfig::handleMtu() {
   if (!initialized())
      return;
   parent_.doSyncMtu(vlanIntfStatus_, vlanIntfStatusLocal_, config());
}

void KemVlanIntfConfig::handleMacAddr() {
   parent_.handleMacAddr(initialized(), intfId_, deviceName_);
}

} // namespace Vorn
