// Sums up all causes for which ports are disabled, by port: which causes hold it, how many they are, and when
// it comes back by itself.
//
//    "interface/errdisable/cause": link-flap      ┌► Errdisable::Status, which the interface manager acts on
//                                  test        ───┤
//                                  ...            └► ErrdisableAggr::IntfAggrStatus, for this process
//
// Every Errdisable::CauseStatus in the directory counts, whoever writes it; entities of other types
// that are there don't. It disables and recovers nothing itself: a port leaves the sum when its last
// cause lets it go. It is moved by causes that come and go, by their entries, and by their groups,
// which say when ports come back.
//
// What it writes for a port is always reckoned again and written whole; a record that is right
// already is not touched. So what an earlier run left is put right at the start, and nobody is
// disturbed where nothing has changed.
//
// recoveryTime is that of the cause that holds the port longest, and 0 where one of them holds it for good.
#pragma once

#include "Kem/Activity.h"
#include "Kem/Dir.h"
#include "Kem/StateMachine.h"
#include "records/Errdisable/CauseGroup.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Errdisable/Status.h"
#include "records/ErrdisableAggr/IntfAggrStatus.h"

#include <map>
#include <memory>

namespace ErrdisableAggr {

class RootSM final : public Kem::StateMachine {
  public:
   // Any record may be null, and is then not watched, or not written. The activity is that of the process;
   // its reactors know it themselves.
   RootSM(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Kem::Dir const> causeDir,
          Kem::Ptr<Kem::Dir const> causeGroupDir, Kem::Ptr<Errdisable::Status> status,
          Kem::Ptr<IntfAggrStatus> intfAggrStatus);
   ~RootSM() override;

  private:
   struct Cause; // one cause: its name, and reactors on its status and its group

   // --- Reactions.
   struct KemCauseDir final : Kem::Dir::NotifieeConst {
      explicit KemCauseDir(RootSM& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleCause(name); }
      void onEntityPtr() override { sm.handleAllIntfs(); } // once, after all of them
      RootSM& sm;
   };
   struct KemCauseGroupDir final : Kem::Dir::NotifieeConst {
      explicit KemCauseGroupDir(RootSM& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleCauseGroup(name); }
      void onEntityPtr() override { sm.handleAllIntfs(); }
      RootSM& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleInitialized() override;
   void handleCause(Kem::Name const& name);
   void handleCauseGroup(Kem::Name const& name);
   // Reckons one port again, and writes what came out.
   void handleIntf(Sulvi::IntfId intfId);
   void handleIntfsOf(Errdisable::CauseStatus const& causeStatus);
   // Also the ports that are in the sum and that no cause holds any more.
   void handleAllIntfs();

   Kem::Ptr<Kem::Dir const> causeDir_;
   Kem::Ptr<Kem::Dir const> causeGroupDir_;
   Kem::Ptr<Errdisable::Status> status_;
   Kem::Ptr<IntfAggrStatus> intfAggrStatus_;
   std::map<Kem::Name, std::unique_ptr<Cause>> causes_;

   KemCauseDir kemCauseDir_{*this};
   KemCauseGroupDir kemCauseGroupDir_{*this};
};

} // namespace ErrdisableAggr
