#include "Vorn/VlanIntfSm/VlanIntfConfigCodef.h"

#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "Vorn/Pacing/AttrLogCheck.h"
#include "Vorn/VlanIntfSm/KemVlanIntfConfig.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility vlanIntfCodefTrace("VornVlanIntfCodef");
}

bool isUsableVlanIntfId(Sulvi::IntfId intfId) {
   auto const number = Sulvi::VlanIntfId::vlanId(intfId);
   return Sulvi::VlanIntfId::isVlanIntfId(intfId) && number >= 1 && number <= 4094;
}

Kem::Ptr<VlanIntfConfigCodef>
vlanIntfConfigCodefFactory(Kem::Ptr<Kem::Clock const> const& clock,
                           Kem::Ptr<Interface::VlanIntfConfigDir const> const& configIn,
                           Kem::Ptr<DynVlanIntfList> const& dynVlanIntfList, VlanIntfSm& parent) {
   return Kem::makePtr<VlanIntfConfigCodef>(clock, configIn, dynVlanIntfList, parent);
}

VlanIntfConfigCodef::VlanIntfConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                                         Kem::Ptr<Interface::VlanIntfConfigDir const> const& configIn,
                                         Kem::Ptr<DynVlanIntfList> const& dynVlanIntfList, VlanIntfSm& parent)
    : CodefBase(clock), dynVlanIntfList_(dynVlanIntfList), parent_(parent) {
   kemConfigIn_.notifierIs(configIn);
   kemDynVlanIntfList_.notifierIs(dynVlanIntfList);
   handleInitialized();
}

void VlanIntfConfigCodef::handleInitialized() {
   initializedIs(true);
   handleVlanIntfConfig();
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanIntfConfigCodef::configured(Sulvi::IntfId intfId) const {
   auto const& configIn = kemConfigIn_.notifier();
   return configIn ? configIn->intfConfig(intfId) : nullptr;
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanIntfConfigCodef::dynamic(Sulvi::IntfId intfId) const {
   return dynVlanIntfList_ ? dynVlanIntfList_->intfConfig(intfId) : nullptr;
}

// --- Into the backlog, or out of it.

void VlanIntfConfigCodef::handleVlanIntfConfig() {
   if (auto const& configIn = kemConfigIn_.notifier())
      for (auto const& [intfId, config] : configIn->intfConfig())
         handleVlanIntfConfig(intfId);
   if (dynVlanIntfList_)
      for (auto const& [intfId, config] : dynVlanIntfList_->intfConfig())
         if (!configured(intfId))
            handleVlanIntfConfig(intfId);
}

void VlanIntfConfigCodef::handleVlanIntfConfig(Sulvi::IntfId intfId) {
   if (!isReady())
      return;
   bool const isWanted = configured(intfId) || dynamic(intfId);
   if (!isUsableVlanIntfId(intfId)) {
      parent_.in().problems->problemIs(intfId, DeviceAspect::existence,
                                       isWanted ? "a VLAN interface is called Vlan1 to Vlan4094" : "");
      return;
   }
   updatesSeenInc(1);
   backlog_.bookmarkIs(Sulvi::IntfId());
   if (!isWanted && !parent_.vlanIntfConfigAfterCodef(intfId)) {
      KEM_TRACE(vlanIntfCodefTrace, 5, "Deleting intfId: " << intfId << " from backlog");
      backlog_.del(intfId);
      return;
   }
   KEM_TRACE(vlanIntfCodefTrace, 5, "Adding intfId: " << intfId << " to backlog");
   backlog_.add(intfId);
   armClock();
}

// --- Slices.

uint64_t VlanIntfConfigCodef::processBacklog(Kem::Seconds const& startTime) {
   if (!isReady())
      return 0;
   auto* const log = parent_.in().vornAgent->roomToWrite();
   auto const count = processSlice(
       backlog_, startTime, vlanIntfCodefTrace, [&] { return !log || log->isAttrLogReady(); },
       [&](Sulvi::IntfId intfId) {
          backlog_.del(intfId);
          doEntry(intfId);
          return Ulm::Step{.finishedCount = 1, .isFinished = true};
       });
   if (backlog_.size() == 0)
      backlog_.bookmarkIs(Sulvi::IntfId());
   return count;
}

void VlanIntfConfigCodef::doEntry(Sulvi::IntfId intfId) {
   auto const requested = dynamic(intfId);
   auto selected = configured(intfId);
   if (!selected)
      selected = requested;
   auto const before = parent_.vlanIntfConfigAfterCodef(intfId);
   if (dynVlanIntfList_ && !requested)
      dynVlanIntfList_->intfConfigErrorDel(intfId);
   if (!selected) {
      if (before) {
         KEM_TRACE(vlanIntfCodefTrace, 5, "removing config for intf " << intfId);
         parent_.vlanIntfConfigAfterCodefDel(intfId);
      }
      return;
   }
   if (before && before != selected) {
      KEM_TRACE(vlanIntfCodefTrace, 5,
                "removing prev config " << intfId << "from source " << before->source());
      parent_.vlanIntfConfigAfterCodefDel(intfId);
   }
   if (requested)
      dynVlanIntfList_->intfConfigErrorIs(intfId, selected != requested);
   KEM_TRACE(vlanIntfCodefTrace, 5, "Adding config " << intfId << "from source" << selected->source());
   parent_.vlanIntfConfigAfterCodefIs(selected);
   if (auto const entry = parent_.vlanIntfConfig(intfId)) {
      entry->initializedIs(false);
      entry->handleInitialized();
   }
}

} // namespace Vorn
