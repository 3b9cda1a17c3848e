// Decides how the agent starts, at once when it is made, and marks the end of the start.
//
//    forced hitfull                          ──► hitfull (1)
//    else a mode laid down by the operator   ──► that mode
//    else came up by a hitless reload        ──► hitless (2), until startupComplete
//    else                                    ──► hitfull (1)
//
// A hitfull start has nothing to wait for: its record says complete from the beginning. The agent owns it; it
// writes startupModeStatus, and startupStatus where that is mounted.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Agent/StartupConfig.h"
#include "records/Agent/StartupModeConfig.h"
#include "records/Agent/StartupModeStatus.h"
#include "records/Agent/StartupStatus.h"

namespace Agent {

// A configuration that lays down nothing.
Kem::Ptr<StartupConfig> nullStartupConfigFactory();

class StartupModeSm final : public Kem::StateMachine {
  public:
   // `startupStatus` may be null.
   StartupModeSm(Kem::Ptr<StartupModeConfig const> startupModeConfig,
                 Kem::Ptr<StartupModeStatus> startupModeStatus, Kem::Ptr<StartupConfig const> startupConfig,
                 Kem::Ptr<StartupStatus> startupStatus);

  private:
   // --- Reactions.
   struct KemStartupModeConfig final : StartupModeConfig::NotifieeConst {
      explicit KemStartupModeConfig(StartupModeSm& s) : NotifieeConst(this), sm(s) {}
      void onStartupComplete() override { sm.handleStartupComplete(); }
      StartupModeSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemStartupModeConfig_); }
   void handleInitialized() override;
   void handleStartupComplete();

   StartupMode decidedMode() const;

   Kem::Ptr<StartupModeConfig const> startupModeConfig_;
   Kem::Ptr<StartupModeStatus> startupModeStatus_;
   Kem::Ptr<StartupConfig const> startupConfig_;
   Kem::Ptr<StartupStatus> startupStatus_;
   KemStartupModeConfig kemStartupModeConfig_{*this};
};

} // namespace Agent
