#include "Vorn/VlanConfigCodef/VlanConfigCodef.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/Pacing/AttrLogCheck.h"
#include "Vorn/VlanConfigCodef/VlanConfigOutput.h"

namespace Vorn {

namespace {
Kem::TraceFacility vlanCodefTrace("VornVlanCodef");
}

VlanConfigCodef::VlanConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                                 Kem::Ptr<Bridging::Input::Config const> const& configIn,
                                 VlanConfigOutput& configOut)
    : CodefBase(clock), configOut_(configOut) {
   kemConfigIn_.notifierIs(configIn);
   handleInitialized();
}

void VlanConfigCodef::handleInitialized() {
   KEM_INVARIANT(!initialized(), "!initialized()");
   initializedIs(true);
}

// --- Into the backlog, or out of it.

void VlanConfigCodef::handleVlanConfig(Bridging::VlanId vlanId) {
   if (!isReady())
      return;
   updatesSeenInc(1);
   auto const source = configIn();
   auto const in = source ? source->vlanConfig(vlanId) : nullptr;
   auto const out = configOut_.vlanConfigAfterCodef(vlanId);
   if (!in && !out) {
      backlogDel(vlanId);
      configOut_.vlanConfigAfterCodefDel(vlanId); // it may have kept the VLAN for a copy that won't come
   } else if (!in || !out) {
      KEM_TRACE(vlanCodefTrace, 5, "Adding Vlan: " << vlanId << " to backlog");
      backlogAdd(vlanId);
   } else if (!compareVlans(*in, *out)) {
      backlogAdd(vlanId);
   } else {
      recreateEntry(vlanId, in, out);
      backlogDel(vlanId);
   }
}

void VlanConfigCodef::handleVlanConfig() {
   if (!isReady())
      return;
   backlogDelAll();
   backlog_.bookmarkIs(1);
   kemConfigIn_.notifierIs(configOut_.configIn());
   for (auto const& [vlanId, copy] : configOut_.vlanConfigAfterCodef())
      handleVlanConfig(vlanId); // those that the new input lacks
   if (auto const source = configIn())
      for (auto const& [vlanId, vlan] : source->vlanConfig())
         handleVlanConfig(vlanId);
}

// The same VLAN, but it may come from another input: the entry has to follow that one, and nothing
// else changes.
void VlanConfigCodef::recreateEntry(Bridging::VlanId vlanId,
                                    Kem::Ptr<Bridging::Input::VlanConfig const> const& in,
                                    Kem::Ptr<Bridging::Input::VlanConfig> const& out) {
   KEM_TRACE(vlanCodefTrace, 5,
             "Deleting and recreating VlanConfigEntrySm due to change in the "
                 << "best input: " << vlanId);
   vlanConfigEntrySmDel(vlanId);
   vlanConfigEntrySmIs(vlanId, in, out);
   out->adminStateIs(in->adminState());
}

void VlanConfigCodef::backlogAdd(Bridging::VlanId vlanId) {
   backlog_.add(vlanId);
   armClock();
}

void VlanConfigCodef::backlogDel(Bridging::VlanId vlanId) {
   KEM_TRACE(vlanCodefTrace, 5, "Deleting Vlan: " << vlanId << " from backlog");
   backlog_.del(vlanId);
}

// --- Slices.

uint64_t VlanConfigCodef::processBacklog(Kem::Seconds const& startTime) {
   if (!isReady())
      return 0;
   AttrLogCheck* const log = configOut_.attrLogCheck();
   return processSlice(
       backlog_, startTime, vlanCodefTrace, [&] { return !log || log->isAttrLogReady(); },
       [&](Bridging::VlanId vlanId) {
          backlog_.del(vlanId);
          return Ulm::Step{.finishedCount = doEntry(vlanId), .isFinished = true};
       });
}

uint64_t VlanConfigCodef::doEntry(Bridging::VlanId vlanId) {
   auto const source = configIn();
   auto const in = source ? source->vlanConfig(vlanId) : nullptr;
   uint64_t count = 1;
   if (!in) {
      KEM_TRACE(vlanCodefTrace, 5, "Deleting Vlan: " << vlanId << " from output");
      vlanConfigEntrySmDel(vlanId);
      configOut_.vlanConfigAfterCodefDel(vlanId);
      return count;
   }
   if (auto const existing = configOut_.vlanConfigAfterCodef(vlanId)) {
      if (compareVlans(*in, *existing)) {
         // What differed when the key was added has been copied by the entry since.
         recreateEntry(vlanId, in, existing);
         return count;
      }
      // VlanConfigSm is made again too.
      KEM_TRACE(vlanCodefTrace, 5, "Deleting Vlan: " << vlanId << " from output (stale)");
      vlanConfigEntrySmDel(vlanId);
      configOut_.vlanConfigAfterCodefDel(vlanId);
      ++count;
   }
   KEM_TRACE(vlanCodefTrace, 5, "Adding Vlan: " << vlanId << " to output");
   auto const out = configOut_.vlanConfigAfterCodefIs(vlanId);
   out->configuredNameIs(in->configuredName());
   out->adminStateIs(in->adminState());
   out->vlanTypeAndPrimaryVlanIs(in->vlanTypeAndPrimaryVlan());
   copyVlanTrunkGroups(*in, *out);
   vlanConfigEntrySmIs(vlanId, in, out);
   configOut_.vlanConfigSmInitialize(vlanId);
   return count;
}

// --- Entries.

Kem::Ptr<VlanConfigEntrySm> VlanConfigCodef::vlanConfigEntrySm(Bridging::VlanId vlanId) const {
   auto const* const found = vlanConfigEntrySm_.find(vlanId);
   return found ? *found : nullptr;
}

Kem::Ptr<VlanConfigEntrySm>
VlanConfigCodef::vlanConfigEntrySmIs(Bridging::VlanId vlanId,
                                     Kem::Ptr<Bridging::Input::VlanConfig const> const& in,
                                     Kem::Ptr<Bridging::Input::VlanConfig> const& out) {
   if (auto const existing = vlanConfigEntrySm(vlanId)) {
      if (existing->vcfgIn() != in)
         Kem::throwReinstantiating("vcfgIn", existing->vcfgIn()->fullName(), in->fullName());
      if (existing->vcfgOut() != out)
         Kem::throwReinstantiating("vcfgOut", existing->vcfgOut()->fullName(), out->fullName());
      return existing;
   }
   return *vlanConfigEntrySm_
               .findOrInsert(vlanId, [&] { return Kem::makePtr<VlanConfigEntrySm>(vlanId, in, out); })
               .first;
}

bool compareVlans(Bridging::Input::VlanConfig const& a, Bridging::Input::VlanConfig const& b) {
   return a.configuredName() == b.configuredName() && a.adminState() == b.adminState() &&
          a.vlanTypeAndPrimaryVlan() == b.vlanTypeAndPrimaryVlan() && compareVlanTrunkGroups(a, b);
}

bool compareVlanTrunkGroups(Bridging::Input::VlanConfig const& a, Bridging::Input::VlanConfig const& b) {
   if (a.trunkGroup().size() != b.trunkGroup().size())
      return false;
   bool isEqual = true;
   a.trunkGroup().forEach(
       [&](Kem::String8 const& name, bool value) { isEqual = isEqual && value == b.trunkGroup(name); });
   return isEqual;
}

void copyVlanTrunkGroups(Bridging::Input::VlanConfig const& source,
                         Bridging::Input::VlanConfig& destination) {
   source.trunkGroup().forEach(
       [&](Kem::String8 const& name, bool value) { destination.trunkGroupIs(name, value); });
}

} // namespace Vorn
