#include "Vorn/BridgingSm/DynAllowedVlans.h"

#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include <algorithm>

namespace Vorn {

namespace {
Kem::TraceFacility dynAllowedVlansTrace("VornDynAllowedVlans");
}

DynAllowedVlans::DynAllowedVlans(BridgingConfigSm& parent, Kem::Ptr<Kem::Dir const> const& dynAllowedVlanDir)
    : parent_(parent), dynAllowedVlanDir_(dynAllowedVlanDir) {
   kemDynAllowedVlanDir_.notifierIs(dynAllowedVlanDir_);
}

void DynAllowedVlans::handleInitialized() {
   initializedIs(true);
   handleDynAllowedVlan();
}

void DynAllowedVlans::handleDynAllowedVlan(Kem::Name const& entityName) {
   if (!isReady())
      return;
   Kem::String8 const& name = entityName.stringValue();
   auto const entity = dynAllowedVlanDir_->entity<Bridging::Input::AllowedVlans>(entityName);
   if (entity) {
      KEM_TRACE(dynAllowedVlansTrace, 3, "Create DynAllowedVlanSm " << name);
      dynAllowedVlanSmIs(name, entity);
   } else if (dynAllowedVlanSm(name)) {
      KEM_TRACE(dynAllowedVlansTrace, 3, "Delete DynAllowedVlanSm " << name);
      dynAllowedVlanSmDel(name);
      handleTrunkAllowedVlans(); // its VLANs have gone
   }
}

void DynAllowedVlans::handleDynAllowedVlan() {
   if (!isReady() || !dynAllowedVlanDir_)
      return;
   for (auto const& [name, sm] : dynAllowedVlanSm_)
      if (!dynAllowedVlanDir_->entity<Bridging::Input::AllowedVlans>(Kem::Name(name)))
         handleDynAllowedVlan(Kem::Name(name)); // it went while nothing was delivered
   for (auto const& [name, entity] : dynAllowedVlanDir_->entities())
      handleDynAllowedVlan(name);
}

Kem::Ptr<DynAllowedVlanSm> DynAllowedVlans::dynAllowedVlanSm(Kem::String8 const& name) const {
   auto const* const found = dynAllowedVlanSm_.find(name);
   return found ? *found : nullptr;
}

void DynAllowedVlans::dynAllowedVlanSmIs(Kem::String8 const& name,
                                         Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans) {
   if (auto const standing = dynAllowedVlanSm(name)) {
      standing->allowedVlansIs(allowedVlans);
      return;
   }
   auto const sm = Kem::makePtr<DynAllowedVlanSm>(name, allowedVlans, parent_);
   dynAllowedVlanSm_.findOrInsert(name, [&] { return sm; }); // the ports look for it in its first evaluation
   sm->handleInitialized();
}

// Out of the table first: a port asks the table whether another source gives it a group that it is to lose.
void DynAllowedVlans::dynAllowedVlanSmDel(Kem::String8 const& name) {
   auto const sm = dynAllowedVlanSm(name);
   if (!sm)
      return;
   dynAllowedVlanSm_.erase(name);
   listingDel(*sm);
   sm->tearDown();
}

// --- Who names what.

namespace {
template <class Index, class Key>
void sourceIs(Index& index, Key const& key, DynAllowedVlanSm const& source) {
   auto& sources = *index.findOrInsert(key, [] { return DynAllowedVlans::Sources(); }).first;
   if (std::find(sources.begin(), sources.end(), &source) == sources.end())
      sources.push_back(&source);
}

template <class Index, class Key>
void sourceDel(Index& index, Key const& key, DynAllowedVlanSm const& source) {
   auto* const sources = index.find(key);
   if (!sources)
      return;
   std::erase(*sources, &source);
   if (sources->empty())
      index.erase(key);
}
} // namespace

void DynAllowedVlans::listingIs(Sulvi::IntfId intfId, DynAllowedVlanSm const& source) {
   sourceIs(sourcesOf_, intfId, source);
}

void DynAllowedVlans::listingDel(Sulvi::IntfId intfId, DynAllowedVlanSm const& source) {
   sourceDel(sourcesOf_, intfId, source);
}

void DynAllowedVlans::groupIs(Kem::String8 const& name, DynAllowedVlanSm const& source) {
   sourceIs(sourcesOfGroup_, name, source);
}

void DynAllowedVlans::groupDel(Kem::String8 const& name, DynAllowedVlanSm const& source) {
   sourceDel(sourcesOfGroup_, name, source);
}

void DynAllowedVlans::listingDel(DynAllowedVlanSm const& source) {
   for (auto const& [key, sources] : sourcesOf_) {
      Sulvi::IntfId const intfId = key;
      listingDel(intfId, source);
   }
}

void DynAllowedVlans::handleTrunkAllowedVlans() {
   parent_.switchIntfSm().forEach([](Sulvi::IntfId, auto const& port) { port->doUpdateTrunkAllowedVlans(); });
}

} // namespace Vorn
