#include "VlanOperStatus/VlanOperStatusSm.h"

#include "Kem/Assert.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "Vorn/Rules/VlanIntfStatus.h"

#include <string>

namespace VlanOperStatus {

namespace {

Kem::TraceFacility theTrace("VlanOperStatus");

bool isVlanIntf(Sulvi::IntfId intfId) {
   return Bridging::VlanId::isLegal(Sulvi::VlanIntfId::vlanId(intfId));
}

} // namespace

VlanOperStatusSm::VlanOperStatusSm(VlanOperStatusInputs inputs) : in_(std::move(inputs)) {
   kemVlanIntfStatusDir_.notifierIs(in_.vlanIntfStatusDir);
   kemVlanStatusDir_.notifierIs(in_.vlanStatusDir);
   kemVlanIntfConfigDir_.notifierIs(in_.vlanIntfConfigDir);
   kemDynVlanIntfList_.notifierIs(in_.dynVlanIntfList);
   kemPrivateVlanLibState_.notifierIs(in_.privateVlanLibState);
   kemAllVlanIntfAutoState_.notifierIs(in_.allVlanIntfAutoState);
}

void VlanOperStatusSm::handleInitialized() {
   KEM_INVARIANT(in_.dynVlanIntfList && in_.dynVlanIntfDir, "dynVlanIntfList() && dynVlanIntfDir()");
   initializedIs(true);
   if (in_.vlanStatusDir)
      for (auto const& [vlanId, vlanStatus] : in_.vlanStatusDir->vlanStatus())
         followVlanStatus(vlanId);
   handleVlanIntfConfig();
   KEM_TRACE(theTrace, 5, "handling VlanIntfStatus'es that already exist");
   doSyncOperStatus();
}

void VlanOperStatusSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(vlanIntfStatus_, vlanStatus_, vlanIntfConfigList_, referredConfig_);
   visit(kemVlanIntfStatusDir_, kemVlanStatusDir_, kemVlanIntfConfigDir_, kemDynVlanIntfList_,
         kemPrivateVlanLibState_, kemAllVlanIntfAutoState_);
}

Sulvi::IntfId VlanOperStatusSm::vlanIntfNameFromVlanId(Bridging::VlanId vlanId) {
   return Sulvi::IntfId("Vlan" + std::to_string(vlanId.value()));
}

// --- The decision.

void VlanOperStatusSm::doSetOperStatus(Sulvi::IntfId intfId) {
   using Vorn::VlanIntfRow;
   if (!initialized()) {
      KEM_TRACE(theTrace, 8, "skipping because not initialized yet");
      return;
   }
   auto const status = in_.vlanIntfStatusDir ? in_.vlanIntfStatusDir->intfStatus(intfId) : nullptr;
   if (!status) {
      KEM_TRACE(theTrace, 1, "there is no VlanIntfStatus for " << intfId);
      return;
   }
   auto const previous = status->operStatus();
   auto const config = referredConfig(*status);
   Bridging::VlanId const vlanId(Sulvi::VlanIntfId::vlanId(intfId)); // raises for a bad one
   referredConfigFollow(intfId, config);

   auto const facts = Vorn::vlanIntfFacts(config.ptr(), vlanId, in_.vlanStatusDir.ptr(),
                                          in_.privateVlanLibState.ptr(), in_.allVlanIntfAutoState.ptr());
   auto const row = vlanIntfRow(facts);
   switch (row) {
   case VlanIntfRow::noConfig:
      KEM_TRACE(theTrace, 3, intfId << " has no configuration yet");
      break;
   case VlanIntfRow::notEnabled:
      KEM_TRACE(theTrace, 3, intfId << " is not enabled");
      break;
   case VlanIntfRow::secondaryVlan:
      KEM_TRACE(theTrace, 3, intfId << " is secondary");
      break;
   case VlanIntfRow::noVlanStatusDir:
      KEM_TRACE(theTrace, 1, "vlanStatusDir() is NULL");
      break;
   default:
      if (!in_.vlanStatusDir->vlanStatus().find(vlanId))
         KEM_TRACE(theTrace, 1, "no VlanStatus for " << vlanId);
      KEM_TRACE(theTrace, 3, "intfId='" << intfId << "' vlanForwardable=" << facts.isForwardable);
   }

   auto const operStatus = operStatusOf(row);
   status->operStatusIs(operStatus);
   if (operStatus != previous)
      status->operStatusChangeIs({.time = Kem::now(), .count = status->operStatusChange().count + 1});
}

void VlanOperStatusSm::doSyncOperStatus() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (!in_.vlanIntfStatusDir)
      return;
   for (auto const& [intfId, status] : in_.vlanIntfStatusDir->intfStatus())
      if (isVlanIntf(intfId))
         doSetOperStatus(intfId);
}

// --- Status records.

void VlanOperStatusSm::handleIntfStatus(Sulvi::IntfId intfId) {
   auto const status = in_.vlanIntfStatusDir->intfStatus(intfId);
   if (!status) {
      vlanIntfStatus_.erase(intfId);
      referredConfig_.erase(intfId);
      return;
   }
   if (!isVlanIntf(intfId)) {
      KEM_TRACE(theTrace, 0, intfId << " is no VLAN interface: its status is left alone");
      return;
   }
   auto const reactor =
       *vlanIntfStatus_.findOrInsert(intfId, [&] { return Kem::makePtr<KemVlanIntfStatus>(*this); }).first;
   reactor->notifierIs(status);
}

void VlanOperStatusSm::handleIntfStatus() {
   for (auto const& [intfId, reactor] : vlanIntfStatus_)
      if (!in_.vlanIntfStatusDir->intfStatus(intfId))
         handleIntfStatus(Sulvi::IntfId(intfId)); // it went while nothing was delivered
   for (auto const& [intfId, status] : in_.vlanIntfStatusDir->intfStatus())
      handleIntfStatus(intfId);
}

// --- Forwarding ports.

void VlanOperStatusSm::handleVlanStatus(Bridging::VlanId vlanId) {
   KEM_INVARIANT(initialized(), "initialized()");
   followVlanStatus(vlanId);
   doSetOperStatus(vlanIntfNameFromVlanId(vlanId));
}

void VlanOperStatusSm::handleVlanStatus() {
   KEM_ASSERT(false);
}

void VlanOperStatusSm::handleVlanStatuses() {
   for (auto const& [vlanId, reactor] : vlanStatus_)
      if (!in_.vlanStatusDir->vlanStatus(vlanId))
         handleVlanStatus(Bridging::VlanId(vlanId)); // it went while nothing was delivered
   for (auto const& [vlanId, vlanStatus] : in_.vlanStatusDir->vlanStatus())
      handleVlanStatus(vlanId);
}

void VlanOperStatusSm::handleVlanPortStatus(Bridging::VlanId vlanId) {
   doSetOperStatus(vlanIntfNameFromVlanId(vlanId));
}

void VlanOperStatusSm::followVlanStatus(Bridging::VlanId vlanId) {
   auto const vlanStatus = in_.vlanStatusDir->vlanStatus(vlanId);
   if (!vlanStatus) {
      vlanStatus_.erase(vlanId);
      return;
   }
   (*vlanStatus_.findOrInsert(vlanId, [&] { return Kem::makePtr<KemVlanStatus>(*this); }).first)
       ->notifierIs(vlanStatus);
}

// --- Configurations.

void VlanOperStatusSm::handleVlanIntfConfig(Sulvi::IntfId intfId) {
   if (!initialized() || !isVlanIntf(intfId))
      return;
   if (auto const config = configured(intfId))
      (*vlanIntfConfigList_.findOrInsert(intfId, [&] { return Kem::makePtr<KemVlanIntfConfig>(*this); })
            .first)
          ->notifierIs(config);
   else
      vlanIntfConfigList_.erase(intfId);
   // Also where nothing else is watched than before: the status record may refer to the one that has gone.
   doSetOperStatus(intfId);
}

void VlanOperStatusSm::handleVlanIntfConfig() {
   for (auto const& [intfId, reactor] : vlanIntfConfigList_)
      if (!configured(intfId))
         handleVlanIntfConfig(Sulvi::IntfId(intfId)); // it went while nothing was delivered
   if (in_.vlanIntfConfigDir)
      for (auto const& [intfId, config] : in_.vlanIntfConfigDir->intfConfig())
         handleVlanIntfConfig(intfId);
   for (auto const& [intfId, config] : in_.dynVlanIntfList->intfConfig())
      if (!in_.vlanIntfConfigDir || !in_.vlanIntfConfigDir->intfConfig(intfId))
         handleVlanIntfConfig(intfId);
}

void VlanOperStatusSm::handleEnabledOrAutoState(Sulvi::IntfId intfId) {
   doSetOperStatus(intfId);
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanOperStatusSm::configured(Sulvi::IntfId intfId) const {
   if (in_.vlanIntfConfigDir)
      if (auto const config = in_.vlanIntfConfigDir->intfConfig(intfId))
         return config;
   return in_.dynVlanIntfList->intfConfig(intfId);
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanOperStatusSm::vlanIntfConfig(Sulvi::IntfId intfId) const {
   auto const* const reactor = vlanIntfConfigList_.find(intfId);
   return reactor ? (*reactor)->notifier() : nullptr;
}

Kem::Ptr<Interface::IntfConfig const>
VlanOperStatusSm::referredConfig(Interface::VlanIntfStatus const& status) const {
   Kem::Ptr<Interface::IntfConfig const> const referred = status.intfConfig();
   if (!referred || referred->parent())
      return referred;
   return configured(status.intfId()); // it has left its directory
}

void VlanOperStatusSm::referredConfigFollow(Sulvi::IntfId intfId,
                                            Kem::Ptr<Interface::IntfConfig const> const& config) {
   // Only a VLAN interface's own kind: nobody refers to another one.
   auto const referred = Kem::ptrCast<Interface::VlanIntfConfig const>(config);
   if (!referred || referred == vlanIntfConfig(intfId)) {
      referredConfig_.erase(intfId);
      return;
   }
   (*referredConfig_.findOrInsert(intfId, [&] { return Kem::makePtr<KemVlanIntfConfig>(*this); }).first)
       ->notifierIs(referred);
}

// --- Private VLANs.

void VlanOperStatusSm::handleSecondaryVlan(Bridging::VlanId vlanId) {
   doSetOperStatus(vlanIntfNameFromVlanId(vlanId));
}

} // namespace VlanOperStatus
