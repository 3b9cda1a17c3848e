#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/Pacing/AttrLogCheck.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigOutput.h"

namespace Vorn {

namespace {
Kem::TraceFacility switchCodefTrace("VornSwitchCodef");
}

SwitchIntfConfigCodef::SwitchIntfConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                                             Kem::Ptr<Bridging::SwitchIntfConfigDir const> const& configIn,
                                             SwitchIntfConfigOutput& configOut)
    : CodefBase(clock), configOut_(configOut) {
   kemConfigIn_.notifierIs(configIn);
}

void SwitchIntfConfigCodef::handleInitialized() {
   KEM_INVARIANT(!initialized(), "!initialized()");
   initializedIs(true);
   handleSwitchIntfConfig();
}

// --- Ports come, go and change their best record.

void SwitchIntfConfigCodef::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   auto const dir = kemConfigIn_.notifier();
   auto const in = dir ? dir->switchIntfConfig(intfId) : nullptr; // without a directory nothing is chosen
   if (!in) {
      backlog_.del(intfId);
      KEM_TRACE(switchCodefTrace, 5,
                " Deleting SwitchIntfConfigSm"
                    << " IntfId=" << intfId);
      switchIntfConfigEntrySmDel(intfId);
      configOut_.switchIntfConfigAfterCodefDel(intfId);
      return;
   }
   switchIntfConfigEntrySmDel(intfId);
   createEntry(intfId, in);
}

void SwitchIntfConfigCodef::handleSwitchIntfConfig() {
   auto const dir = kemConfigIn_.notifier();
   if (!dir)
      return;
   for (auto const& [intfId, in] : dir->switchIntfConfig())
      createEntry(intfId, in);
}

void SwitchIntfConfigCodef::createEntry(Sulvi::IntfId intfId,
                                        Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& in) {
   auto const out = configOut_.switchIntfConfigAfterCodefIs(intfId, Bridging::Input::SwitchportMode::access_);
   KEM_TRACE(switchCodefTrace, 5, " Creating SwitchIntfConfigSm IntfId=" << intfId);
   switchIntfConfigEntrySmIs(intfId, in, out);
}

void SwitchIntfConfigCodef::updateBacklog(Sulvi::IntfId intfId, bool areConfigsEqual) {
   updatesSeenInc(1);
   if (!areConfigsEqual) {
      KEM_TRACE(switchCodefTrace, 5, "Adding IntfId: " << intfId << " to backlog");
      backlog_.add(intfId);
      armClock();
   } else if (backlog_.isMember(intfId)) {
      KEM_TRACE(switchCodefTrace, 5,
                "Deleting IntfId: " << intfId << " from backlog because configs are equal");
      backlog_.del(intfId);
   }
}

// --- Slices.

uint64_t SwitchIntfConfigCodef::processBacklog(Kem::Seconds const& startTime) {
   AttrLogCheck* const log = configOut_.attrLogCheck();
   return processSlice(
       backlog_, startTime, switchCodefTrace, [&] { return !log || log->isAttrLogReady(); },
       [&](Sulvi::IntfId intfId) {
          auto const entry = switchIntfConfigEntrySm(intfId);
          if (!entry)
             KEM_TRACE(switchCodefTrace, 1, "No SwitchIntfConfigEntrySm found for " << intfId);
          if (entry && !entry->performPendingOperations())
             return Ulm::Step{.finishedCount = 0, .isFinished = false};
          backlog_.del(intfId);
          return Ulm::Step{.finishedCount = 1, .isFinished = true};
       });
}

// --- Entries.

Kem::Ptr<SwitchIntfConfigEntrySm> SwitchIntfConfigCodef::switchIntfConfigEntrySm(Sulvi::IntfId intfId) const {
   auto const* const found = switchIntfConfigEntrySm_.find(intfId);
   return found ? *found : nullptr;
}

Kem::Ptr<SwitchIntfConfigEntrySm>
SwitchIntfConfigCodef::switchIntfConfigEntrySmIs(Sulvi::IntfId intfId,
                                                 Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& in,
                                                 Kem::Ptr<Bridging::Input::SwitchIntfConfig> const& out) {
   if (auto const existing = switchIntfConfigEntrySm(intfId)) {
      if (existing->configIn() != in)
         Kem::throwReinstantiating("configIn", existing->configIn()->fullName(), in->fullName());
      if (existing->configOut() != out)
         Kem::throwReinstantiating("configOut", existing->configOut()->fullName(), out->fullName());
      return existing;
   }
   auto const entry = Kem::makePtr<SwitchIntfConfigEntrySm>(*this, intfId, in, out);
   switchIntfConfigEntrySm_.findOrInsert(intfId, [&] { return entry; });
   entry->handleInitialized();
   return entry;
}

} // namespace Vorn
