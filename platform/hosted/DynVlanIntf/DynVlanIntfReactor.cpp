#include "DynVlanIntf/DynVlanIntfReactor.h"

#include "Kem/Trace.h"

#include <vector>

namespace Vorn {

namespace {
Kem::TraceFacility dynVlanIntfTrace("DynVlanIntf");
}

using Interface::Input::DynVlanIntfConfigDir;
using Interface::Input::DynVlanIntfErrorDir;

DynVlanIntfReactor::DynVlanIntfReactor(Kem::Ptr<Kem::Dir const> dynVlanIntfDir,
                                       Kem::Ptr<Kem::Dir> dynVlanIntfErrorDir,
                                       Kem::Ptr<DynVlanIntfList> dynVlanIntfList, bool standbyMode)
    : dynVlanIntfDir_(std::move(dynVlanIntfDir)), dynVlanIntfErrorDir_(std::move(dynVlanIntfErrorDir)),
      dynVlanIntfList_(std::move(dynVlanIntfList)), standbyMode_(standbyMode) {
   kemDynVlanIntfDir_.notifierIs(dynVlanIntfDir_);
   kemDynVlanIntfErrorDir_.notifierIs(dynVlanIntfErrorDir_);
   kemDynVlanIntfList_.notifierIs(dynVlanIntfList_);
   handleInitialized();
}

void DynVlanIntfReactor::handleInitialized() {
   initializedIs(true);
   handleSource();
   // What a list that isn't new holds beyond that.
   for (auto const& [intfId, config] : dynVlanIntfList_->intfConfig())
      if (!dynVlanIntfConfigPrioritySm_.contains(intfId))
         dynVlanIntfList_->intfConfigDel(Sulvi::IntfId(intfId));
   handleErrorDir();
}

void DynVlanIntfReactor::standbyModeIs(bool standbyMode) {
   if (standbyMode == standbyMode_)
      return;
   standbyMode_ = standbyMode;
   handleErrorDir();
}

Kem::Ptr<DynVlanIntfConfigSm> DynVlanIntfReactor::dynVlanIntfConfigSm(Kem::String8 const& name) const {
   auto const* const found = dynVlanIntfConfigSm_.find(name);
   return found ? *found : nullptr;
}

// --- Sources.

void DynVlanIntfReactor::handleSource(Kem::Name const& entityName) {
   Kem::String8 const name = entityName.stringValue();
   auto const configDir = dynVlanIntfDir_->entity<DynVlanIntfConfigDir>(entityName);
   auto const standing = dynVlanIntfConfigSm(name);
   if (!configDir) {
      if (dynVlanIntfDir_->entityPtr(entityName))
         KEM_TRACE(dynVlanIntfTrace, 0, "source " << name << " is no Interface::Input::DynVlanIntfConfigDir");
      if (!standing)
         return;
      KEM_TRACE(dynVlanIntfTrace, 3, "source " << name << " has gone");
      // Out of the table first: its own answers needn't be written any more.
      dynVlanIntfConfigSm_.erase(name);
      standing->tearDown();
      handleErrorDir(entityName);
      return;
   }
   if (standing) {
      standing->configDirIs(configDir);
      return;
   }
   KEM_TRACE(dynVlanIntfTrace, 3, "source " << name << " has come");
   auto const made = Kem::makePtr<DynVlanIntfConfigSm>(name, *this);
   dynVlanIntfConfigSm_.findOrInsert(name, [&] { return made; }); // it is looked for in its first evaluation
   made->configDirIs(configDir);
   handleErrorDir(entityName);
}

void DynVlanIntfReactor::handleSource() {
   if (!dynVlanIntfDir_)
      return;
   for (auto const& [name, sm] : dynVlanIntfConfigSm_)
      if (!dynVlanIntfDir_->entity<DynVlanIntfConfigDir>(Kem::Name(name)))
         handleSource(Kem::Name(name)); // it went while nothing was delivered
   for (auto const& [name, entity] : dynVlanIntfDir_->entities())
      handleSource(name);
}

// --- The list.

void DynVlanIntfReactor::configIs(SourcePriorityPair const& source, Sulvi::IntfId intfId,
                                  Kem::Ptr<Interface::VlanIntfConfig> const& config) {
   winnerSync(intfId, [&](DynVlanIntfConfigPrioritySm& sources) { sources.configIs(source, config); });
}

void DynVlanIntfReactor::configDel(SourcePriorityPair const& source, Sulvi::IntfId intfId) {
   winnerSync(intfId, [&](DynVlanIntfConfigPrioritySm& sources) { sources.configDel(source); });
}

void DynVlanIntfReactor::rankIs(SourcePriorityPair const& before, SourcePriorityPair const& now,
                                Sulvi::IntfId intfId) {
   winnerSync(intfId, [&](DynVlanIntfConfigPrioritySm& sources) {
      auto const found = sources.configs().find(before);
      if (found == sources.configs().end())
         return;
      auto const config = found->second;
      sources.configDel(before);
      sources.configIs(now, config);
   });
}

// Makes the change, and then the list and the answers of those whom it concerns: who won before, and who wins now.
template <class Change>
void DynVlanIntfReactor::winnerSync(Sulvi::IntfId intfId, Change&& change) {
   auto& sources = dynVlanIntfConfigPrioritySm_[intfId];
   auto const before = sources.winner();
   change(sources);
   auto const now = sources.winner();
   listSync(intfId, sources);
   if (sources.configs().empty())
      dynVlanIntfConfigPrioritySm_.erase(intfId);
   if (before == now)
      return;
   KEM_TRACE(dynVlanIntfTrace, 3,
             intfId << " is from source '" << now << "', before from '" << before << "'");
   doSyncError(before, intfId);
   doSyncError(now, intfId);
}

void DynVlanIntfReactor::listSync(Sulvi::IntfId intfId, DynVlanIntfConfigPrioritySm const& sources) {
   auto const config = sources.config();
   if (!config) {
      dynVlanIntfList_->intfConfigDel(intfId);
      // Nobody asks: whoever asks next is not overridden before somebody says so.
      dynVlanIntfList_->intfConfigErrorDel(intfId);
   } else if (dynVlanIntfList_->intfConfig(intfId) != config) {
      dynVlanIntfList_->intfConfigIs(config);
   }
}

Kem::String8 DynVlanIntfReactor::winnerOf(Sulvi::IntfId intfId) const {
   auto const found = dynVlanIntfConfigPrioritySm_.find(intfId);
   return found == dynVlanIntfConfigPrioritySm_.end() ? Kem::String8() : found->second.winner();
}

// --- Answers.

bool DynVlanIntfReactor::isError(DynVlanIntfConfigSm const& source, Sulvi::IntfId intfId) const {
   return winnerOf(intfId) != source.name() || dynVlanIntfList_->intfConfigError(intfId);
}

void DynVlanIntfReactor::doSyncError(Kem::String8 const& name, Sulvi::IntfId intfId) {
   auto const source = dynVlanIntfConfigSm(name);
   if (!writesErrors() || !source)
      return;
   auto const errors = dynVlanIntfErrorDir_->entity<DynVlanIntfErrorDir>(Kem::Name(name));
   if (!errors)
      return; // it is made with all answers
   if (source->asked().find(intfId))
      errors->intfConfigErrorIs(intfId, isError(*source, intfId));
   else
      errors->intfConfigErrorDel(intfId);
}

// The entity of one source, whole.
void DynVlanIntfReactor::handleErrorDir(Kem::Name const& entityName) {
   if (!writesErrors())
      return;
   auto const source = dynVlanIntfConfigSm(entityName.stringValue());
   if (!source) {
      dynVlanIntfErrorDir_->entityPtrDel(entityName);
      return;
   }
   auto errors = dynVlanIntfErrorDir_->entity<DynVlanIntfErrorDir>(entityName);
   if (!errors) {
      errors = DynVlanIntfErrorDir::make();
      errors->nameIs(entityName);
      dynVlanIntfErrorDir_->entityPtrIs(errors);
   }
   std::vector<Sulvi::IntfId> gone;
   errors->intfConfigError().forEach([&](Sulvi::IntfId intfId, bool) {
      if (!source->asked().find(intfId))
         gone.push_back(intfId);
   });
   for (auto const intfId : gone)
      errors->intfConfigErrorDel(intfId);
   source->asked().forEach(
       [&](Sulvi::IntfId intfId, bool) { errors->intfConfigErrorIs(intfId, isError(*source, intfId)); });
}

void DynVlanIntfReactor::handleErrorDir() {
   if (!writesErrors())
      return;
   std::vector<Kem::Name> names;
   for (auto const& [name, entity] : dynVlanIntfErrorDir_->entities())
      names.push_back(name);
   for (auto const& [name, source] : dynVlanIntfConfigSm_)
      names.emplace_back(name);
   for (auto const& name : names)
      handleErrorDir(name);
}

void DynVlanIntfReactor::handleIntfConfigError(Sulvi::IntfId intfId) {
   doSyncError(winnerOf(intfId), intfId);
}

} // namespace Vorn
