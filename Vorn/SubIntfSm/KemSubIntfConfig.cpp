#include "Vorn/SubIntfSm/KemSubIntfConfig.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/KernelDeviceName.h"
#include "Vorn/KernelDevices/DeviceAbility.h"
#include "Vorn/KernelDevices/LinkSettings.h"
#include "Vorn/Rules/SubIntfIds.h"
#include "Vorn/Rules/SubIntfStatus.h"
#include "Vorn/SubIntfSm/SubIntfSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility kemSubIntfTrace("VornSubIntf");
}

KemSubIntfConfig::KemSubIntfConfig(SubIntfSm& sm, Kem::Ptr<Interface::SubIntfConfig const> const& config)
    : sm_(sm), config_(config) {
   kemConfig_.notifierIs(config);
}

void KemSubIntfConfig::handleInitialized() {
   subIntfStatus_ = sm_.in().subIntfStatusDir->intfStatus(intfId());
   subIntfStatusLocal_ = sm_.in().subIntfStatusLocalDir->intfStatusLocal(intfId());
   findSubIntfHwStatus();
   if (!subIntfStatus_ || !subIntfStatusLocal_) {
      initializedIs(false);
      return;
   }
   auto const number = subIntfNumber(intfId());
   if (!number)
      return;
   KEM_INVARIANT(*number < subIntfNumberLimit, "num < 4095");
   parentIntfId_ = parentOfSubIntf(intfId());
   getParentIntfStatus();
   sm_.parentIntfIs(parentIntfId_)->subIntfIs(intfId(), true);
   sm_.intfIs(intfId(), true);
   deviceName_ = Sulvi::kernelDeviceName(intfId());
   sm_.followKernelDevice(deviceName_);
   initializedIs(true);
   if (!sm_.standbyMode())
      subIntfStatus_->maxMtuIs(sm_.maxMtu());
   kemSubIntfStatus_.notifierIs(subIntfStatus_); // which need not hear of what was written just now
   // The claim is there before others are evaluated: at a start both claimants of a VLAN id are down at once.
   setVlanId(usableVlanId());
   if (sm_.subIntfConfigCodef() && sm_.subIntfConfigCodef()->backlogSize() != 0)
      sm_.evaluateLater(intfId());
   else
      doEvaluateInterfaceConfiguration();
}

// --- Reactions.

void KemSubIntfConfig::handleConfig() {
   doEvaluateInterfaceConfiguration();
}

void KemSubIntfConfig::handleMtuChange() {
   sm_.kernelCallFailedIs(false);
   handleMtu();
   retryAfterFailure();
}

void KemSubIntfConfig::handleMtu() {
   // A device that doesn't exist has no MTU.
   if (initialized() && sm_.deviceVlanId(deviceName_) != 0)
      sm_.doSyncMtu(subIntfStatus_, subIntfStatusLocal_, config_);
}

void KemSubIntfConfig::handleMacAddr() {
   sm_.kernelCallFailedIs(false);
   sm_.handleMacAddr(initialized(), intfId(), deviceName_);
   retryAfterFailure();
}

void KemSubIntfConfig::retryAfterFailure() {
   if (initialized() && needsRetry(true))
      sm_.addIntfToRetryCollection(intfId(), deviceName_);
}

void KemSubIntfConfig::handleSubIntfHwStatus() {
   findSubIntfHwStatus();
   handleHardwareStatus();
}

void KemSubIntfConfig::handleHardwareStatus() {
   if (initialized())
      doEvaluateInterfaceConfiguration();
}

// The active agent decides; this one follows.
void KemSubIntfConfig::handleOperStatusOnStandby() {
   if (sm_.standbyMode() && initialized())
      doEvaluateInterfaceConfiguration();
}

// --- The VLAN id.

uint16_t KemSubIntfConfig::usableVlanId() const {
   return isUsableVlanId(config_->vlanId()) ? config_->vlanId() : uint16_t(0);
}

void KemSubIntfConfig::setVlanId(uint16_t vlanId) {
   auto const parent = sm_.parentIntf(parentIntfId_);
   if (!parent)
      return;
   if (vlanId != curVlanId_) {
      if (curVlanId_ != 0) {
         parent->vlanIdCountIs(curVlanId_, static_cast<int16_t>(parent->vlanIdCount(curVlanId_) - 1));
         KEM_INVARIANT(parent->vlanIdCount(curVlanId_) >= 0, "parent->vlanIdCount( curVlanId() ) >= 0");
         if (parent->vlanIdCount(curVlanId_) == 1)
            sm_.handleParentIntfUpdate(parentIntfId_); // the one that is left has it to itself
      }
      curVlanId_ = vlanId;
      if (vlanId != 0) {
         parent->vlanIdCountIs(vlanId, static_cast<int16_t>(parent->vlanIdCount(vlanId) + 1));
         KEM_INVARIANT(parent->vlanIdCount(vlanId) < 4096, "parent->vlanIdCount( vlanId ) < 4096");
         if (parent->vlanIdCount(vlanId) == 2)
            sm_.handleParentIntfUpdate(parentIntfId_); // the one that had it to itself falls too
      }
   }
   invalidCfg_ = vlanId != 0 && parent->vlanIdCount(vlanId) > 1;
}

// --- The operational status.

bool KemSubIntfConfig::isOperUp() const {
   return subIntfStatus_ && subIntfStatus_->operStatus() == Interface::IntfOperStatus::intfOperUp;
}

void KemSubIntfConfig::findSubIntfHwStatus() {
   kemSubIntfHwStatus_.notifierIs(sm_.in().subIntfHwStatusDir->subIntfStatus(intfId()));
}

void KemSubIntfConfig::getParentIntfStatus() {
   parentIntfStatus_ = sm_.in().allIntfStatusDir->intfStatus(parentIntfId_);
}

void KemSubIntfConfig::doSetOperStatus() {
   if (!initialized() || sm_.standbyMode())
      return;
   auto const before = subIntfStatus_->operStatus();
   findSubIntfHwStatus();
   getParentIntfStatus();
   auto const facts = subIntfFacts(*config_, sm_.hasBridgeMacAddr(), invalidCfg_, parentIntfStatus_.ptr(),
                                   kemSubIntfHwStatus_.notifier().ptr());
   auto const row = subIntfRow(facts);
   if (row != SubIntfRow::up)
      KEM_TRACE(kemSubIntfTrace, 5,
                intfId() << (row == SubIntfRow::notEnabled ? "" : " ") << subIntfTraceText(row, facts));
   subIntfStatus_->programInHwIs(wantsProgramInHw(row));
   setWaitQ(row);

   subIntfStatus_->operStatusIs(operStatusOf(row));
   if (subIntfStatus_->operStatus() == before)
      return;
   auto change = subIntfStatus_->operStatusChange();
   ++change.count;
   change.time = Kem::now();
   subIntfStatus_->operStatusChangeIs(change);
   KEM_TRACE(kemSubIntfTrace, 5, intfId() << " subIntfStatus- operStatusChange()" << change);
}

// A hitless reload waits for those that the hardware has still to program, and for no others.
void KemSubIntfConfig::setWaitQ(SubIntfRow row) {
   auto const& oxaState = sm_.in().oxaState;
   if (!oxaState)
      return;
   if (row == SubIntfRow::notProgrammed) {
      KEM_TRACE(kemSubIntfTrace, 3, "Enq intf " << intfId() << " to subIntfWaitQ");
      oxaState->subIntfWaitQIs(intfId(), true);
      return;
   }
   if (row == SubIntfRow::up)
      KEM_TRACE(kemSubIntfTrace, 3, "Deq intf " << intfId() << " from subIntfWaitQ");
   oxaState->subIntfWaitQDel(intfId());
}

bool KemSubIntfConfig::doSetKernelOperState() {
   auto const& root = sm_.in().kernelOperStateRoot;
   if (!isOperUp()) {
      if (!sm_.standbyMode())
         root->intfStatusDir()->intfStatusDel(intfId());
      root->intfStatusLocalDir()->intfStatusLocalDel(intfId());
      return false;
   }
   bool const isNew = !root->intfStatusDir()->intfStatus(intfId());
   if (!sm_.standbyMode())
      root->intfStatusDir()->intfStatusIs(subIntfStatus_);
   root->intfStatusLocalDir()->intfStatusLocalIs(subIntfStatusLocal_);
   return isNew;
}

// --- The evaluation.

// False from the time a record of it goes or is replaced until the deferred stage gets to it. What would be written
// to the old ones, such as where the device is, would be lost.
bool KemSubIntfConfig::hasCurrentRecords() const {
   return sm_.in().subIntfStatusDir->intfStatus(intfId()) == subIntfStatus_ &&
          sm_.in().subIntfStatusLocalDir->intfStatusLocal(intfId()) == subIntfStatusLocal_;
}

bool KemSubIntfConfig::doEvaluateInterfaceConfigurationWithRetval() {
   if (!initialized()) {
      KEM_TRACE(kemSubIntfTrace, 3, intfId() << " Not initialized");
      return true;
   }
   auto const entry =
       sm_.subIntfConfigCodef() ? sm_.subIntfConfigCodef()->subIntfConfigEntrySm(intfId()) : nullptr;
   if (entry && !entry->initialized()) {
      KEM_TRACE(kemSubIntfTrace, 3, intfId() << ": Codef Entry NOT initialized");
      return true;
   }
   if (!hasCurrentRecords()) {
      KEM_TRACE(kemSubIntfTrace, 3, intfId() << " has other records and is made again");
      return true;
   }
   setVlanId(usableVlanId());
   doSetOperStatus();
   bool const result = sm_.doEvaluateInterfaceConfigurationWithRetval(
       initialized(), preparedToDie_, intfId(), curVlanId_, Sulvi::kernelDeviceName(parentIntfId_),
       deviceName_, intfId().stringValue(), subIntfStatus_, subIntfStatusLocal_);
   bool const isNewlyMirrored = doSetKernelOperState();
   if (!sm_.continueProcessing()) {
      if (!result && curVlanId_ != 0 && !invalidCfg_)
         sm_.takeVlanIdFromLeftovers(parentIntfId_, curVlanId_);
      restrainWaitingDevice();
      return result;
   }
   int const fd = sm_.nsSocketFdFromIntfStatusLocal(subIntfStatusLocal_);
   KEM_INVARIANT(!deviceName_.empty(), "deviceName()");
   sm_.setInterfaceUpOrDown(deviceName_, isOperUp(), fd);
   handleMtu();
   // The mirror may not have seen that it left, and its device with it.
   auto const& mirror = sm_.in().kernelOperStateRoot->intfStatusOperStatusSm();
   if (isNewlyMirrored && mirror->doSyncIntfStatus(intfId()) != 0)
      sm_.kernelCallFailedIs(true);
   return true;
}

// The evaluation stopped, perhaps because the namespace of the device doesn't exist yet; the device waits where it is.
// It must not keep a VLAN id that the interface no longer claims, nor carry traffic for one that is down.
void KemSubIntfConfig::restrainWaitingDevice() {
   sm_.prepNs(keyOf(subIntfStatusLocal_->netNsName()));
   int const fd = sm_.nsSocketFdFromIntfStatusLocal(subIntfStatusLocal_);
   if (fd == 0)
      return;
   auto const device = existingDevice(deviceName_, fd);
   if (device.kind != ExistingDevice::vlan)
      return;
   int error = 0;
   if (device.vlanId != curVlanId_)
      sm_.doDestroyVlanDevice(deviceName_, subIntfStatusLocal_, 0);
   else if (!isOperUp() && setInterfaceUpOrDownInternal(deviceName_, false, fd, &error) < 0)
      sm_.kernelCallFailedIs(true);
}

// A VLAN id that is claimed twice is no failure of the kernel: who has the device doesn't count, and the end of the
// conflict evaluates both.
bool KemSubIntfConfig::needsRetry(bool isFinished) const {
   return !invalidCfg_ && (!isFinished || sm_.kernelCallFailed());
}

void KemSubIntfConfig::doEvaluateInterfaceConfiguration() {
   if (!initialized())
      return;
   bool const isFinished = doEvaluateInterfaceConfigurationWithRetval();
   bool const lacksDevice = isOperUp() && !invalidCfg_ && sm_.deviceVlanId(deviceName_) == 0;
   if (!needsRetry(isFinished) && !lacksDevice)
      return;
   KEM_TRACE(kemSubIntfTrace, 3, intfId() << " device " << deviceName_ << " is tried again");
   sm_.addIntfToRetryCollection(intfId(), deviceName_);
}

bool KemSubIntfConfig::retryNeeded() {
   if (!initialized())
      handleInitialized();
   return needsRetry(doEvaluateInterfaceConfigurationWithRetval());
}

// --- The end.

void KemSubIntfConfig::doPrepareToDie() {
   if (initialized()) {
      setVlanId(0);
      sm_.subIntfDel(parentIntfId_, intfId());
      // What is merely replaced keeps its device. Any other gave up its claim, and its device would keep the VLAN
      // id from the next claimant.
      sm_.prepNs(keyOf(subIntfStatusLocal_->netNsName()));
      if (!sm_.subIntfConfigCodef()->existsInOrdel(intfId()))
         sm_.doDestroyVlanDevice(deviceName_, subIntfStatusLocal_, 0);
      if (!sm_.standbyMode())
         sm_.in().kernelOperStateRoot->intfStatusDir()->intfStatusDel(intfId());
      sm_.in().kernelOperStateRoot->intfStatusLocalDir()->intfStatusLocalDel(intfId());
      if (sm_.in().oxaState)
         sm_.in().oxaState->subIntfWaitQDel(intfId());
   }
   preparedToDie_ = true;
}

} // namespace Vorn
