// Tells the operator of each interface that changes its operational state, physical or not.
//
// Moved by operStatus of the interfaces, and by interfaces that come and go. Settings are read at each
// change: the interface's own word (linkStatusLogging), else the global one, else it is logged.
//
// - The state that an interface is found in, or first takes when nothing has been known of it, is no
//   change: a restart and a new interface log nothing. An interface that goes and comes back is a new one.
// - What comes and goes between two looks of this process is not seen.
// - A burst is cut at 1000 messages in 10 seconds; the next one says how many were left out.
#pragma once

#include "Kem/Activity.h"
#include "Kem/PacedLog.h"
#include "Kem/StateMachine.h"
#include "records/Interface/AllIntfConfigDir.h"
#include "records/Interface/AllIntfStatusDir.h"
#include "records/Interface/GlobalIntfConfig.h"
#include "records/Interface/IntfStatus.h"

#include <memory>
#include <unordered_map>

namespace Interface {

class LinkStatusLoggingDirSm final : public Kem::StateMachine {
  public:
   // Any record may be null, and is not watched then. The activity is that of the process;
   // its reactors know it themselves.
   LinkStatusLoggingDirSm(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity,
                          Kem::Ptr<GlobalIntfConfig const> globalConfig,
                          Kem::Ptr<AllIntfConfigDir const> allIntfConfigDir,
                          Kem::Ptr<AllIntfStatusDir const> allIntfStatusDir);

  private:
   // --- Reactions.
   struct KemAllIntfStatusDir final : AllIntfStatusDir::NotifieeConst {
      explicit KemAllIntfStatusDir(LinkStatusLoggingDirSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleIntfStatus(intfId); }
      LinkStatusLoggingDirSm& sm;
   };
   struct KemIntfStatus final : IntfStatus::NotifieeConst {
      explicit KemIntfStatus(LinkStatusLoggingDirSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override {
         last = notifier()->operStatus();
         isKnown = last != IntfOperStatus::intfOperUnknown;
      }
      void onOperStatus() override { sm.handleOperStatus(*this); }
      LinkStatusLoggingDirSm& sm;
      IntfOperStatus last = IntfOperStatus::intfOperUnknown; // when it was last looked at
      bool isKnown = false;                                  // something has been known of it
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemAllIntfStatusDir_, kemIntfStatus_); }
   void handleInitialized() override;
   void handleIntfStatus(Sulvi::IntfId intfId);
   void handleOperStatus(KemIntfStatus& reactor);

   bool isLogged(Sulvi::IntfId intfId) const;

   Kem::Ptr<GlobalIntfConfig const> globalConfig_;
   Kem::Ptr<AllIntfConfigDir const> allIntfConfigDir_;
   Kem::Ptr<AllIntfStatusDir const> allIntfStatusDir_;
   std::unordered_map<Sulvi::IntfId, std::unique_ptr<KemIntfStatus>> kemIntfStatus_;
   Kem::PacedLog changedLog_;
   KemAllIntfStatusDir kemAllIntfStatusDir_{*this};
};

} // namespace Interface
