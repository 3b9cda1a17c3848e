#include "Vorn/VlanIntfSm/VlanIntfAddrs.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/VlanIntfSm/KemVlanIntfConfig.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"

#include <vector>

namespace Vorn {

namespace {
Kem::TraceFacility vlanIntfAddrsTrace("VornVlanIntfAddrs");
}

VlanIntfAddrs::VlanIntfAddrs(VlanIntfSm& vlanIntfSm, Kem::Ptr<Kem::Dir const> interfaceInputVlan)
    : vlanIntfSm_(vlanIntfSm) {
   kemInterfaceInputVlan_.notifierIs(std::move(interfaceInputVlan));
}

void VlanIntfAddrs::handleInitialized() {
   initializedIs(true);
   if (auto const dir = kemInterfaceInputVlan_.notifier())
      for (auto const& [name, entity] : dir->entities())
         handleEntityPtr(name);
}

void VlanIntfAddrs::handleEntityPtr(Kem::Name const& name) {
   if (!isReady())
      return;
   auto const dir = kemInterfaceInputVlan_.notifier();
   auto const input = dir->entity<Interface::Input::VlanIntfAddr>(name);
   if (!input && dir->entityPtr(name))
      KEM_TRACE(vlanIntfAddrsTrace, 0,
                "interface/input/vlan/" << name << " is no Interface::Input::VlanIntfAddr: ignored");
   if (followEntities())
      for (auto const& [intfId, entry] : vlanIntfSm_.vlanIntfConfig())
         entry->handleMacAddrWithRetry();
   else if (input)
      handleInputVlanIntfMacAddr(*input);
}

// All of them, since several may have changed in one turn: one publisher that takes over from another is no
// second one. True when one of those before is gone or is another record.
bool VlanIntfAddrs::followEntities() {
   auto const dir = kemInterfaceInputVlan_.notifier();
   std::vector<Kem::Name> gone;
   for (auto const& [name, reactor] : inputVlanIntfAddr_)
      if (reactor->notifier().ptr() != dir->entity<Interface::Input::VlanIntfAddr>(name).ptr())
         gone.push_back(name);
   for (auto const& name : gone)
      inputVlanIntfAddr_.erase(name);
   for (auto const& [name, entity] : dir->entities())
      if (auto const input = dir->entity<Interface::Input::VlanIntfAddr>(name)) {
         auto const reactor =
             *inputVlanIntfAddr_.findOrInsert(name, [&] { return Kem::makePtr<KemInputVlanIntfAddr>(*this); })
                  .first;
         reactor->notifierIs(input);
      }
   return !gone.empty();
}

void VlanIntfAddrs::handleInputVlanIntfMacAddr(Interface::Input::VlanIntfAddr const& input) {
   for (auto const& [intfId, isMember] : input.vlanIntf())
      handleInputVlanIntf(intfId);
}

void VlanIntfAddrs::handleInputVlanIntf(Sulvi::IntfId intfId) {
   if (auto const entry = vlanIntfSm_.vlanIntfConfig(intfId))
      entry->handleMacAddrWithRetry();
}

Sulvi::EthAddr VlanIntfAddrs::macAddr(Sulvi::IntfId intfId) const {
   KEM_INVARIANT(inputVlanIntfAddr_.size() <= 1, "inputVlanIntfAddrs() <= 1");
   for (auto const& [name, reactor] : inputVlanIntfAddr_)
      if (reactor->notifier()->vlanIntf(intfId))
         return reactor->notifier()->macAddr();
   return {};
}

} // namespace Vorn
