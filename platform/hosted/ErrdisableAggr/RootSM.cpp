#include "ErrdisableAggr/RootSM.h"

#include "ErrdisableLib/RecoveryTime.h"
#include "Kem/Trace.h"
#include "records/Errdisable/IntfErrdisableStatus.h"

#include <algorithm>
#include <cmath>

namespace ErrdisableAggr {

namespace {
Kem::TraceFacility theTrace("ErrdisableAggr");
}

struct RootSM::Cause {
   explicit Cause(RootSM& s) : sm(s) {}

   struct KemCauseStatus final : Errdisable::CauseStatus::NotifieeConst {
      explicit KemCauseStatus(Cause& c) : NotifieeConst(this), cause(c) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { cause.sm.handleIntf(intfId); }
      Cause& cause;
   };
   struct KemCauseGroup final : Errdisable::CauseGroup::NotifieeConst {
      explicit KemCauseGroup(Cause& c) : NotifieeConst(this), cause(c) {}
      void onRecoveryEnabled() override { cause.sm.handleIntfsOf(*cause.status()); }
      void onRecoveryInterval() override { cause.sm.handleIntfsOf(*cause.status()); }
      Cause& cause;
   };

   void forEachPart(Kem::PartVisitor const& visit) { visit(kemCauseStatus, kemCauseGroup); }

   Kem::Ptr<Errdisable::CauseStatus const> status() const { return kemCauseStatus.notifier(); } // never null
   Kem::Ptr<Errdisable::CauseGroup const> group() const { return kemCauseGroup.notifier(); }

   RootSM& sm;
   KemCauseStatus kemCauseStatus{*this};
   KemCauseGroup kemCauseGroup{*this};
};

RootSM::RootSM(Kem::Ptr<Kem::ActivityConfig> const&, Kem::Ptr<Kem::Dir const> causeDir,
               Kem::Ptr<Kem::Dir const> causeGroupDir, Kem::Ptr<Errdisable::Status> status,
               Kem::Ptr<IntfAggrStatus> intfAggrStatus)
    : causeDir_(std::move(causeDir)), causeGroupDir_(std::move(causeGroupDir)), status_(std::move(status)),
      intfAggrStatus_(std::move(intfAggrStatus)) {
   kemCauseDir_.notifierIs(causeDir_);
   kemCauseGroupDir_.notifierIs(causeGroupDir_);
   handleInitialized();
}

RootSM::~RootSM() = default;

void RootSM::forEachPart(Kem::PartVisitor const& visit) {
   visit(kemCauseDir_, kemCauseGroupDir_, causes_);
}

void RootSM::handleInitialized() {
   if (causeDir_)
      for (auto const& [name, entity] : causeDir_->entities())
         handleCause(name);
   handleAllIntfs();
}

void RootSM::handleCause(Kem::Name const& name) {
   auto const causeStatus = causeDir_->entity<Errdisable::CauseStatus const>(name);
   KEM_TRACE(theTrace, 3, "cause " << name << (causeStatus ? " is there" : " is gone"));
   if (!causeStatus) {
      causes_.erase(name);
      return;
   }
   auto& cause = causes_[name];
   if (!cause)
      cause = std::make_unique<Cause>(*this);
   cause->kemCauseStatus.notifierIs(causeStatus);
   handleCauseGroup(name);
}

void RootSM::handleCauseGroup(Kem::Name const& name) {
   auto const cause = causes_.find(name);
   if (causeGroupDir_ && cause != causes_.end())
      cause->second->kemCauseGroup.notifierIs(causeGroupDir_->entity<Errdisable::CauseGroup const>(name));
}

void RootSM::handleIntf(Sulvi::IntfId intfId) {
   std::map<Kem::Name, double> times; // by the causes that hold the port
   Kem::Seconds recoveryTime = 0;
   for (auto const& [name, cause] : causes_) {
      double const* const time = cause->status()->intfStatus(intfId);
      if (!time)
         continue;
      // What is no number is never equal to what exists: it would be written over and over.
      times[name] = std::isnan(*time) ? 0 : *time;
      recoveryTime = std::max(recoveryTime, ErrdisableLib::recoveryTime(times[name], cause->group().ptr()));
   }

   if (times.empty()) {
      if (status_)
         status_->intfStatusDel(intfId);
      if (intfAggrStatus_)
         intfAggrStatus_->intfStatusDel(intfId);
      return;
   }
   if (status_) {
      auto const record = status_->intfStatusIs(intfId);
      for (auto const& [name, time] : record->cause())
         if (!times.contains(name))
            record->causeDel(name);
      for (auto const& [name, time] : times)
         record->causeIs(name, time);
      record->recoveryTimeIs(std::isinf(recoveryTime) ? 0 : recoveryTime);
   }
   if (intfAggrStatus_)
      intfAggrStatus_->intfStatusIs(intfId, static_cast<uint32_t>(times.size()));
}

void RootSM::handleIntfsOf(Errdisable::CauseStatus const& causeStatus) {
   for (auto const& [intfId, time] : causeStatus.intfStatus())
      handleIntf(intfId);
}

void RootSM::handleAllIntfs() {
   Kem::ValueMap<Sulvi::IntfId, bool> intfIds;
   auto const add = [&](Sulvi::IntfId intfId, auto const&) {
      intfIds.findOrInsert(intfId, [] { return true; });
   };
   if (status_)
      status_->intfStatus().forEach(add);
   if (intfAggrStatus_)
      intfAggrStatus_->intfStatus().forEach(add);
   for (auto const& [name, cause] : causes_)
      cause->status()->intfStatus().forEach(add);
   intfIds.forEach([&](Sulvi::IntfId intfId, bool) { handleIntf(intfId); });
}

} // namespace ErrdisableAggr
