#include "DynVlanIntf/DynVlanIntfConfigSm.h"

#include "DynVlanIntf/DynVlanIntfReactor.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "records/Bridging/types.h"

namespace Vorn {

namespace {
Kem::TraceFacility dynVlanIntfConfigTrace("DynVlanIntfConfig");
}

DynVlanIntfConfigSm::DynVlanIntfConfigSm(Kem::String8 const& name, DynVlanIntfReactor& parent)
    : parent_(parent), rank_{.name = name} {}

void DynVlanIntfConfigSm::configDirIs(
    Kem::Ptr<Interface::Input::DynVlanIntfConfigDir const> const& configDir) {
   kemConfigDir_.notifierIs(configDir);
}

void DynVlanIntfConfigSm::doPrepareToDie() {
   asked_.forEach([&](Sulvi::IntfId intfId, bool isVlanIntf) {
      if (isVlanIntf)
         parent_.configDel(rank_, intfId);
   });
}

// The rank first, so that no interface goes to another source on the way.
void DynVlanIntfConfigSm::handleConfigDir() {
   initializedIs(true);
   handlePriority();
   auto const configDir = kemConfigDir_.notifier();
   for (auto const& [intfId, config] : configDir->intfConfig())
      handleIntfConfig(intfId);
   for (auto const& [intfId, isVlanIntf] : asked_)
      if (!configDir->intfConfig(intfId))
         handleIntfConfig(Sulvi::IntfId(intfId)); // takes it out of the table
}

void DynVlanIntfConfigSm::handlePriority() {
   auto const before = rank_;
   rank_.priority = kemConfigDir_.notifier()->priority();
   if (rank_ == before)
      return;
   KEM_TRACE(dynVlanIntfConfigTrace, 3, "source " << name() << " has priority " << rank_.priority);
   asked_.forEach([&](Sulvi::IntfId intfId, bool isVlanIntf) {
      if (isVlanIntf)
         parent_.rankIs(before, rank_, intfId);
   });
}

void DynVlanIntfConfigSm::handleIntfConfig(Sulvi::IntfId intfId) {
   bool const isVlanIntf = Bridging::VlanId::isLegal(Sulvi::VlanIntfId::vlanId(intfId));
   auto const config = kemConfigDir_.notifier()->intfConfig(intfId);
   if (!config) {
      asked_.erase(intfId);
      if (isVlanIntf)
         parent_.configDel(rank_, intfId);
      parent_.doSyncError(name(), intfId);
      return;
   }
   bool const isNew = asked_.findOrInsert(intfId, [&] { return isVlanIntf; }).second;
   if (isVlanIntf)
      parent_.configIs(rank_, intfId, config);
   else if (isNew)
      KEM_TRACE(dynVlanIntfConfigTrace, 0,
                "source " << name() << " asks for " << intfId << ", which is no VLAN interface");
   parent_.doSyncError(name(), intfId);
}

} // namespace Vorn
