#include "ErrdisableLib/CauseAgentSM.h"

#include "ErrdisableLib/RecoveryTime.h"
#include "Kem/Trace.h"

#include <algorithm>

namespace ErrdisableLib {

namespace {

Kem::TraceFacility theTrace("ErrdisableCause");

Kem::LogHandle const intfDisabled("ERRDISABLE_INTF_DISABLED", 4, {"%s is disabled: %s"},
                                  "Remove what the cause names, then let the interface recover.", 10.0,
                                  200.0);
Kem::LogHandle const intfReleased("ERRDISABLE_INTF_RELEASED", 5, {"%s is no longer disabled by %s: %s"},
                                  Kem::NoActionRequired, 10.0, 200.0);

} // namespace

CauseAgentSM::CauseAgentSM(Kem::Name causeName, Kem::Name groupName,
                           Kem::Ptr<Errdisable::CauseStatus> const& causeStatus,
                           Kem::Ptr<Kem::Dir const> causeDir, Kem::Ptr<Kem::Dir const> causeGroupDir,
                           Kem::Ptr<Errdisable::Config const> config)
    : causeName_(std::move(causeName)), groupName_(std::move(groupName)), isStatusGiven_(causeStatus),
      causeDir_(std::move(causeDir)), causeGroupDir_(std::move(causeGroupDir)), config_(std::move(config)),
      disabledLog_(intfDisabled), releasedLog_(intfReleased) {
   // The settings first: what is in the status is judged by them.
   kemConfig_.notifierIs(config_);
   kemCauseGroupDir_.notifierIs(causeGroupDir_);
   if (isStatusGiven_)
      causeStatusIs(causeStatus);
   else
      kemCauseDir_.notifierIs(causeDir_);
}

void CauseAgentSM::handleCause() {
   causeStatusIs(causeDir_->entity<Errdisable::CauseStatus>(causeName_));
}

void CauseAgentSM::causeStatusIs(Kem::Ptr<Errdisable::CauseStatus> const& causeStatus) {
   if (causeStatus == causeStatus_)
      return;
   KEM_TRACE(theTrace, 3, "status of cause " << causeName_ << (causeStatus ? " found" : " gone"));
   causeStatus_ = causeStatus;
   kemCauseStatus_.notifierIs(causeStatus_);
   held_.clear();
   if (causeStatus_)
      for (auto const& [intfId, time] : causeStatus_->intfStatus()) {
         held_.findOrInsert(intfId, [] { return true; });
         correctTime(intfId, time);
      }
   handleRecovery();
}

void CauseAgentSM::handleCauseGroup() {
   causeGroup_ = causeGroupDir_->entity<Errdisable::CauseGroup const>(groupName_);
   kemCauseGroup_.notifierIs(causeGroup_);
   handleRecovery();
}

void CauseAgentSM::handleIntfStatus(Sulvi::IntfId intfId) {
   double const* const time = causeStatus_->intfStatus(intfId);
   if (!time) {
      if (held_.erase(intfId))
         logReleased(intfId, "cleared");
      return;
   }
   correctTime(intfId, *time);
   auto const [held, isNew] = held_.findOrInsert(intfId, [] { return true; });
   if (!isNew)
      return;
   KEM_TRACE(theTrace, 3, intfId << " disabled by " << causeName_);
   if (!config_ || config_->loggingEnabled())
      disabledLog_({intfId.stringValue().str(), causeName_.str()});
}

void CauseAgentSM::handleRecovery() {
   Kem::Seconds next = Kem::never;
   if (causeStatus_ && mayWrite()) {
      Kem::Seconds const now = Kem::now();
      for (auto const& [intfId, time] : causeStatus_->intfStatus()) {
         Kem::Seconds const due = recoveryTimeOf(time);
         if (due <= now) {
            causeStatus_->intfStatusDel(intfId);
            // One that came and went within a turn was never reported.
            if (held_.erase(intfId))
               logReleased(intfId,
                           isDetectionOff() ? "its detection is off" : "its recovery interval is over");
         } else {
            next = std::min(next, due);
         }
      }
   }
   kemRecoveryTimer_.timeMinIs(next);
}

bool CauseAgentSM::mayWrite() const {
   return !causeStatus_->sink() || causeStatus_->isWritable();
}

void CauseAgentSM::correctTime(Sulvi::IntfId intfId, Kem::Seconds time) {
   Kem::Seconds const now = Kem::now();
   if (!(time >= 0 && time <= now) && mayWrite()) // also what is no number
      causeStatus_->intfStatusIs(intfId, now);
}

bool CauseAgentSM::isDetectionOff() const {
   bool const* const enabled = config_ ? config_->detectionEnabled().find(causeName_) : nullptr;
   return enabled && !*enabled;
}

Kem::Seconds CauseAgentSM::recoveryTimeOf(Kem::Seconds disabledAt) const {
   return isDetectionOff() ? disabledAt + minRecoveryInterval : recoveryTime(disabledAt, causeGroup_.ptr());
}

void CauseAgentSM::logReleased(Sulvi::IntfId intfId, char const* reason) {
   KEM_TRACE(theTrace, 3, intfId << " released by " << causeName_ << ": " << reason);
   if (!config_ || config_->loggingEnabled())
      releasedLog_({intfId.stringValue().str(), causeName_.str(), reason});
}

Kem::Ptr<CauseAgentSM> CauseSMInit(AgentBase::CAgent* agent, Ordel::EntityManager const& entityManager,
                                   Kem::Name const& causeName, Kem::Name const& groupName,
                                   Kem::Ptr<Errdisable::CauseStatus> const& causeStatus,
                                   Kem::Ptr<Interface::AllIntfConfigDir const> const&,
                                   Kem::Ptr<Interface::AllIntfStatusDir const> const&) {
   KEM_TRACE(theTrace, 3, (agent ? agent->name() : Kem::Name()) << ": cause " << causeName);
   return Kem::makePtr<CauseAgentSM>(causeName, groupName, causeStatus,
                                     entityManager.entity<Kem::Dir>("interface/errdisable/cause"),
                                     entityManager.entity<Kem::Dir>("interface/errdisable/causegroup"),
                                     entityManager.entity<Errdisable::Config>("interface/errdisable/config"));
}

} // namespace ErrdisableLib
