// Disables the downlinks of each group that has lost its uplinks, so that those behind them take another way:
// adds them to the cause's status, and takes them out when an uplink is back.
//
//    working ──no uplink up──► failed ──an uplink up──► recovering ──for recoveryDelay──► working
//                                ▲                          │
//                                └──────no uplink up────────┘
//
// Downlinks are disabled while a group is failed or recovering. It is moved by the configuration, by
// operStatus of the uplinks, and by its timer; whatever moved it, the next turn of the loop looks at all
// groups once. It reports each group in UplinkFailureDetection::Status, where `failed` holds until the
// downlinks are released; ErrdisableLib logs the ports.
//
// - An uplink without a status record is down. A group without uplinks never fails.
// - A port that is both in one group is an uplink: disabled, it could never come up again. In
//   different groups it may be both, and a failure passes on from one to the next.
// - A downlink of several groups is disabled while any of them is failed.
// - A port that someone else takes out of the cause's status stays out until its group fails again.
// - A restart goes on from what the status says: what is still failed counts as no new failure, and what no
//   group disables any more is released. A group that is removed releases its downlinks at once.
// - A delay that is not above 0 doesn't count.
#pragma once

#include "Kem/Clock.h"
#include "Kem/StateMachine.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/UplinkFailureDetection/Config.h"
#include "records/UplinkFailureDetection/GroupConfig.h"
#include "records/UplinkFailureDetection/Status.h"

#include <map>
#include <memory>
#include <unordered_map>

namespace UplinkFailureDetection {

class UplinkFailureDetectionSm final : public Kem::StateMachine {
  public:
   // Any record may be null, and is then not watched, or not written. Without `ethIntfStatusDir` nothing is
   // known of uplinks, and no group fails.
   UplinkFailureDetectionSm(Kem::Ptr<Config const> config, Kem::Ptr<Status> status,
                            Kem::Ptr<Errdisable::CauseStatus> causeStatus,
                            Kem::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir);
   ~UplinkFailureDetectionSm() override;

  private:
   struct Group;

   // --- Reactions: all ask for one evaluation, in the next turn.
   struct KemConfig final : Config::NotifieeConst {
      explicit KemConfig(UplinkFailureDetectionSm& s) : NotifieeConst(this), sm(s) {}
      void onRecoveryDelay() override { sm.evaluateSoon(); }
      void onGroup() override { sm.evaluateSoon(); }
      UplinkFailureDetectionSm& sm;
   };
   struct KemEthIntfStatusDir final : Interface::EthIntfStatusDir::NotifieeConst {
      explicit KemEthIntfStatusDir(UplinkFailureDetectionSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus() override { sm.evaluateSoon(); }
      UplinkFailureDetectionSm& sm;
   };
   struct KemUplink final : Interface::EthIntfStatus::NotifieeConst {
      explicit KemUplink(UplinkFailureDetectionSm& s) : NotifieeConst(this), sm(s) {}
      void onOperStatus() override { sm.evaluateSoon(); }
      UplinkFailureDetectionSm& sm;
   };
   struct KemTimer final : Kem::Clock::NotifieeConst {
      explicit KemTimer(UplinkFailureDetectionSm& s) : NotifieeConst(Kem::ActivityFacility::clock()), sm(s) {}
      void onTime() override { sm.evaluate(); }
      UplinkFailureDetectionSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleInitialized() override;
   void evaluateSoon() { kemTimer_.timeMinIs(0.0); }
   void evaluate();

   // --- Steps of an evaluation.
   using IntfIds = Kem::ValueMap<Sulvi::IntfId, bool>;
   void followGroups();
   void followUplinks();
   // Sets the group's state and reports it; returns when it has to be looked at again.
   Kem::Seconds evaluateGroup(Kem::Name const& name, Group& group);
   void applyDownlinks();
   bool isUp(Sulvi::IntfId uplink) const;

   Kem::Ptr<Config const> config_;
   Kem::Ptr<Status> status_;
   Kem::Ptr<Errdisable::CauseStatus> causeStatus_;
   Kem::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir_;

   std::map<Kem::Name, std::unique_ptr<Group>> groups_;
   std::unordered_map<Sulvi::IntfId, std::unique_ptr<KemUplink>> uplinks_; // those that have a record
   IntfIds disabled_;                                                      // downlinks as last applied

   KemConfig kemConfig_{*this};
   KemEthIntfStatusDir kemEthIntfStatusDir_{*this};
   KemTimer kemTimer_{*this};
};

// The owner of the uplink failure machine.
class Root final : public Kem::StateMachine {
  public:
   explicit Root(Kem::Name name) : name_(std::move(name)) {}

   Kem::Name const& name() const { return name_; }
   Kem::Ptr<UplinkFailureDetectionSm> const& uplinkFailureDetectionSm() const {
      return sm_;
   } // null until made
   // Makes the machine, or returns the existing one. See its constructor.
   Kem::Ptr<UplinkFailureDetectionSm>
   uplinkFailureDetectionSmIs(Kem::Ptr<Config const> const& config, Kem::Ptr<Status> const& status,
                              Kem::Ptr<Errdisable::CauseStatus> const& causeStatus,
                              Kem::Ptr<Interface::EthIntfStatusDir const> const& ethIntfStatusDir);

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(sm_); }

   Kem::Name const name_;
   Kem::Ptr<UplinkFailureDetectionSm> sm_;
};

} // namespace UplinkFailureDetection
