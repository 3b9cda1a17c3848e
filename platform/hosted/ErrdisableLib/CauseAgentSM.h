// The machinery of one cause for which ports are disabled: lets its ports come back after a time, and reports
// each port that is disabled or released to the operator.
//
//    port not listed ──the cause's writer adds it to intfStatus──► disabled
//    disabled ──the writer takes it out, or here, when its time is over──► port not listed
//
// It finds no fault itself: that is the writer's work, another state machine of this process or another
// process. It doesn't touch ports either: ErrdisableAggr sums up all causes, and the interface manager acts
// on that sum. It is moved by the entries of the cause's status, by recoveryEnabled and recoveryInterval of
// the cause's group, by detectionEnabled of the configuration, and by its timer.
//
// - A port comes back recoveryInterval seconds after its entry's time, at once when that has passed already.
//   Without a group, or with recoveryEnabled false, only the writer or the operator brings it back.
// - An entry's time that this clock has not reached, or that is no time at all, is of another boot or of
//   another clock. It is set to the present when it is first seen, so that no port waits for a time that
//   never comes, and so that everyone who reads the record reckons alike.
// - An operator who turns a cause's detection off wants none of its ports disabled: they come back after
//   minRecoveryInterval, whatever the group says: those that are disabled already and those that a
//   writer still adds.
// - What another process alone may write stays as it is: then ports are logged, and their
//   writer brings them back.
// - What is at the start was logged by an earlier run, and is not logged again.
#pragma once

#include "AgentBase/CAgent.h"
#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "Kem/PacedLog.h"
#include "Kem/StateMachine.h"
#include "Ordel/client/EntityManager.h"
#include "records/Errdisable/CauseGroup.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Errdisable/Config.h"
#include "records/Interface/AllIntfConfigDir.h"
#include "records/Interface/AllIntfStatusDir.h"

#include <string>

namespace ErrdisableLib {

class CauseAgentSM final : public Kem::StateMachine {
  public:
   // Any record may be null, and is not watched then. With a null `causeStatus` the status is the entry
   // `causeName` of `causeDir`, whenever there is one. The group is the entry `groupName` of `causeGroupDir`.
   CauseAgentSM(Kem::Name causeName, Kem::Name groupName,
                Kem::Ptr<Errdisable::CauseStatus> const& causeStatus, Kem::Ptr<Kem::Dir const> causeDir,
                Kem::Ptr<Kem::Dir const> causeGroupDir, Kem::Ptr<Errdisable::Config const> config);

   Kem::Name const& causeName() const { return causeName_; }
   Kem::Ptr<Errdisable::CauseStatus> const& causeStatus() const { return causeStatus_; }

  private:
   // --- Reactions.
   struct KemCauseDir final : Kem::Dir::NotifieeConst {
      explicit KemCauseDir(CauseAgentSM& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleCause(); }
      void onEntityPtr(Kem::Name const& name) override {
         if (name == sm.causeName_)
            sm.handleCause();
      }
      CauseAgentSM& sm;
   };
   struct KemCauseGroupDir final : Kem::Dir::NotifieeConst {
      explicit KemCauseGroupDir(CauseAgentSM& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleCauseGroup(); }
      void onEntityPtr(Kem::Name const& name) override {
         if (name == sm.groupName_)
            sm.handleCauseGroup();
      }
      CauseAgentSM& sm;
   };
   struct KemCauseStatus final : Errdisable::CauseStatus::NotifieeConst {
      explicit KemCauseStatus(CauseAgentSM& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      void onIntfStatus() override { sm.handleRecovery(); } // once, after all of them
      CauseAgentSM& sm;
   };
   struct KemCauseGroup final : Errdisable::CauseGroup::NotifieeConst {
      explicit KemCauseGroup(CauseAgentSM& s) : NotifieeConst(this), sm(s) {}
      void onRecoveryEnabled() override { sm.handleRecovery(); }
      void onRecoveryInterval() override { sm.handleRecovery(); }
      CauseAgentSM& sm;
   };
   struct KemConfig final : Errdisable::Config::NotifieeConst {
      explicit KemConfig(CauseAgentSM& s) : NotifieeConst(this), sm(s) {}
      void onDetectionEnabled(Kem::Name const& causeName) override {
         if (causeName == sm.causeName_)
            sm.handleRecovery();
      }
      CauseAgentSM& sm;
   };
   struct KemRecoveryTimer final : Kem::Clock::NotifieeConst {
      explicit KemRecoveryTimer(CauseAgentSM& s) : NotifieeConst(Kem::ActivityFacility::clock()), sm(s) {}
      void onTime() override { sm.handleRecovery(); }
      CauseAgentSM& sm;
   };
   void handleCause();
   void handleCauseGroup();
   void handleIntfStatus(Sulvi::IntfId intfId);
   // Brings back the ports whose time is over, and sets the timer for the next one.
   void handleRecovery();
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemCauseStatus_, kemCauseDir_, kemCauseGroup_, kemCauseGroupDir_, kemConfig_, kemRecoveryTimer_);
   }

   // --- Helpers.
   void causeStatusIs(Kem::Ptr<Errdisable::CauseStatus> const& causeStatus);
   bool mayWrite() const;
   void correctTime(Sulvi::IntfId intfId, Kem::Seconds time);
   bool isDetectionOff() const;
   Kem::Seconds recoveryTimeOf(Kem::Seconds disabledAt) const;
   void logReleased(Sulvi::IntfId intfId, char const* reason);

   // --- Inputs.
   Kem::Name const causeName_;
   Kem::Name const groupName_;
   Kem::Ptr<Errdisable::CauseStatus> causeStatus_;
   bool const isStatusGiven_; // false: found in causeDir_
   Kem::Ptr<Kem::Dir const> causeDir_;
   Kem::Ptr<Kem::Dir const> causeGroupDir_;
   Kem::Ptr<Errdisable::Config const> config_;

   // --- State.
   Kem::Ptr<Errdisable::CauseGroup const> causeGroup_;
   Kem::ValueMap<Sulvi::IntfId, bool> held_; // ports that were listed when last looked at
   Kem::PacedLog disabledLog_;
   Kem::PacedLog releasedLog_;

   KemCauseStatus kemCauseStatus_{*this};
   KemCauseDir kemCauseDir_{*this};
   KemCauseGroup kemCauseGroup_{*this};
   KemCauseGroupDir kemCauseGroupDir_{*this};
   KemConfig kemConfig_{*this};
   KemRecoveryTimer kemRecoveryTimer_{*this};
};

// Makes the state machine of a cause on what `entityManager` has mounted: "interface/errdisable/cause",
// "interface/errdisable/causegroup" and "interface/errdisable/config". `causeStatus` may be null: see above.
// The two directories of interfaces are for causes that look at interfaces, which none of this switch does;
// they may be null. The caller keeps what is returned for as long as the cause is to work.
Kem::Ptr<CauseAgentSM> CauseSMInit(AgentBase::CAgent* agent, Ordel::EntityManager const& entityManager,
                                   Kem::Name const& causeName, Kem::Name const& groupName,
                                   Kem::Ptr<Errdisable::CauseStatus> const& causeStatus,
                                   Kem::Ptr<Interface::AllIntfConfigDir const> const& allIntfConfigDir,
                                   Kem::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir);

} // namespace ErrdisableLib
