#include "Vorn/SubIntfSm/SubIntfConfigCodef.h"

#include "Kem/Trace.h"
#include "Vorn/Pacing/AttrLogCheck.h"
#include "Vorn/Rules/SubIntfIds.h"
#include "Vorn/SubIntfSm/SubIntfConfigOutput.h"

namespace Vorn {

namespace {
Kem::TraceFacility subIntfCodefTrace("VornSubIntfCodef");
}

Kem::Ptr<SubIntfConfigCodef> subIntfConfigCodefFactory(
    Kem::Ptr<Kem::Clock const> const& clock, Kem::Ptr<Interface::SubIntfConfigDir const> const& intfConfigDir,
    Kem::Ptr<Interface::SubIntfStatusDir const> const& intfStatusDir,
    Kem::Ptr<Interface::SubIntfStatusLocalDir const> const& intfStatusLocalDir, SubIntfConfigOutput& parent) {
   return Kem::makePtr<SubIntfConfigCodef>(clock, intfConfigDir, intfStatusDir, intfStatusLocalDir, parent);
}

SubIntfConfigCodef::SubIntfConfigCodef(
    Kem::Ptr<Kem::Clock const> const& clock, Kem::Ptr<Interface::SubIntfConfigDir const> const& intfConfigDir,
    Kem::Ptr<Interface::SubIntfStatusDir const> const& intfStatusDir,
    Kem::Ptr<Interface::SubIntfStatusLocalDir const> const& intfStatusLocalDir, SubIntfConfigOutput& parent)
    : CodefBase(clock), parent_(parent) {
   kemIntfConfigDir_.notifierIs(intfConfigDir);
   kemIntfStatusDir_.notifierIs(intfStatusDir);
   kemIntfStatusLocalDir_.notifierIs(intfStatusLocalDir);
}

void SubIntfConfigCodef::handleInitialized() {
   initializedIs(true);
   handleSubIntfConfig();
}

SubIntfRecords SubIntfConfigCodef::records(Sulvi::IntfId intfId) const {
   return {
       .config = kemIntfConfigDir_.notifier()->intfConfig(intfId),
       .status = kemIntfStatusDir_.notifier()->intfStatus(intfId),
       .statusLocal = kemIntfStatusLocalDir_.notifier()->intfStatusLocal(intfId),
   };
}

bool SubIntfConfigCodef::existsInOrdel(Sulvi::IntfId intfId) const {
   return records(intfId).areComplete();
}

// --- Into the backlog, or out of it.

void SubIntfConfigCodef::handleSubIntfConfig(Sulvi::IntfId intfId) {
   if (!isReady())
      return;
   updatesSeenInc(1);
   backlog_.bookmarkIs({});
   bool const isConfigured = kemIntfConfigDir_.notifier()->intfConfig(intfId) != nullptr;
   auto const problem = isConfigured ? subIntfIdProblem(intfId) : std::string();
   parent_.subIntfConfigRefused(intfId, problem);
   if (!problem.empty())
      return;
   if (!existsInOrdel(intfId) && !parent_.subIntfConfigAfterCodef(intfId)) {
      KEM_TRACE(subIntfCodefTrace, 5, "Deleting intfId: " << intfId << " from backlog");
      backlog_.del(intfId);
      if (!isConfigured)
         parent_.subIntfConfigGone(intfId);
      return;
   }
   backlogAdd(intfId);
}

void SubIntfConfigCodef::handleSubIntfConfig() {
   for (auto const& [intfId, config] : kemIntfConfigDir_.notifier()->intfConfig())
      handleSubIntfConfig(intfId);
}

void SubIntfConfigCodef::handleSubIntfStatus(Sulvi::IntfId intfId) {
   if (!isReady() || !subIntfIdProblem(intfId).empty())
      return;
   updatesSeenInc(1);
   auto const found = records(intfId);
   auto const entry = subIntfConfigEntrySm(intfId);
   if (entry ? entry->records() == found : !found.areComplete())
      return;
   backlog_.bookmarkIs({});
   backlogAdd(intfId);
}

void SubIntfConfigCodef::backlogAdd(Sulvi::IntfId intfId) {
   KEM_TRACE(subIntfCodefTrace, 5, "Adding intfId: " << intfId << " to backlog");
   backlog_.add(intfId);
   armClock();
}

// --- Slices.

uint64_t SubIntfConfigCodef::processBacklog(Kem::Seconds const& startTime) {
   KEM_TRACE(subIntfCodefTrace, 7, "backlog processed " << 0 << " remaining size " << backlogSize());
   AttrLogCheck* const log = parent_.attrLogCheck();
   auto const count = processSlice(
       backlog_, startTime, subIntfCodefTrace, [&] { return !log || log->isAttrLogReady(); },
       [&](Sulvi::IntfId intfId) {
          backlog_.del(intfId);
          doEntry(intfId);
          return Ulm::Step{.finishedCount = 1, .isFinished = true};
       });
   if (backlogSize() == 0) {
      KEM_TRACE(subIntfCodefTrace, 7, "backlog finished " << count << " remaining size " << backlogSize());
      backlog_.bookmarkIs({});
      parent_.subIntfConfigBacklogEmpty();
   }
   return count;
}

void SubIntfConfigCodef::doEntry(Sulvi::IntfId intfId) {
   auto const found = records(intfId);
   auto entry = subIntfConfigEntrySm(intfId);
   if (entry && entry->records() == found)
      return;
   if (entry) {
      if (found.areComplete())
         KEM_TRACE(subIntfCodefTrace, 5, "Deleting subIntf: " << intfId << " from output (stale)");
      else
         KEM_TRACE(subIntfCodefTrace, 5, "Removing subIntf: " << intfId << " from output");
      childDel(subIntfConfigEntrySm_, intfId);
      parent_.subIntfConfigAfterCodefDel(intfId);
   }
   if (!found.areComplete())
      return;
   parent_.subIntfConfigAfterCodefIs(intfId);
   entry = Kem::makePtr<SubIntfConfigEntrySm>(found, Interface::SubIntfConfig::make(intfId));
   subIntfConfigEntrySm_.findOrInsert(intfId, [&] { return entry; });
   entry->handleInitialized();
   parent_.subIntfConfigInitialize(entry->cfgOut());
}

// --- Entries.

Kem::Ptr<SubIntfConfigEntrySm> SubIntfConfigCodef::subIntfConfigEntrySm(Sulvi::IntfId intfId) const {
   auto const* const found = subIntfConfigEntrySm_.find(intfId);
   return found ? *found : nullptr;
}

} // namespace Vorn
