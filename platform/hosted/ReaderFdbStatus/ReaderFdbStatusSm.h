// Makes the shared-memory table of learned hosts look like the tree entity Bridging::Status, so that whoever
// follows learned hosts follows one kind of record.
//
//    Plaze::Bridging::Status  ──one pass for all that changed──►  Bridging::Status
//    10/00:1c:73:00:00:01                                            fdbStatus[10]
//                                                                       learnedHost[00:1c:73:00:00:01]
//
// A pass reads the whole table and then writes what differs. It runs once in the constructor, and again in
// each turn in which the table says that something changed. No read that was torn is written: the rows are
// read again, a few times at once, since a writer is done with a row in microseconds. A row that can't be
// read even then, because its writer was stopped in the middle of it, keeps what is known of its host, and is
// no removed one. The table reports it again when it changes.
//
// It needs no other state than the two: an entry of Bridging::Status that the table doesn't hold goes,
// whoever made it. The agent owns it; it is the only writer of Bridging::Status.
#pragma once

#include "Kem/StateMachine.h"
#include "Plaze/BridgingStatus.h"
#include "records/Bridging/FdbStatus.h"
#include "records/Bridging/Status.h"

#include <vector>

namespace Bridging {

class ReaderFdbStatusSm final : public Kem::StateMachine {
  public:
   // Reads of the table in one pass before rows that can't be read are left out.
   static constexpr unsigned maxReads = 4;

   // `plazeStatus` may be null: then `status` is left alone.
   ReaderFdbStatusSm(Kem::Ptr<Status> status, Kem::Ptr<Plaze::Bridging::Status> plazeStatus);

   // The pass.
   void handlePlazeFdbStatuses();

  private:
   // --- Reactions.
   struct KemPlazeStatus final : Plaze::Bridging::Status::NotifieeConst {
      explicit KemPlazeStatus(ReaderFdbStatusSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handlePlazeFdbStatuses(); }
      void onLearnedHost() override { sm.handlePlazeFdbStatuses(); }
      ReaderFdbStatusSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemPlazeStatus_); }

   // --- Helpers.
   struct Row {
      HostKey key;
      LearnedHost host;
   };
   std::vector<Row> readRows();

   Kem::Ptr<Status> status_;
   Kem::Ptr<Plaze::Bridging::Status> plazeStatus_;
   KemPlazeStatus kemPlazeStatus_{*this};
};

} // namespace Bridging
