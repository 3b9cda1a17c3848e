#include "StartupMode/StartupModeSm.h"

#include "Kem/Trace.h"

namespace Agent {

namespace {
Kem::TraceFacility theTrace("StartupMode");
}

Kem::Ptr<StartupConfig> nullStartupConfigFactory() {
   return StartupConfig::make();
}

StartupModeSm::StartupModeSm(Kem::Ptr<StartupModeConfig const> startupModeConfig,
                             Kem::Ptr<StartupModeStatus> startupModeStatus,
                             Kem::Ptr<StartupConfig const> startupConfig,
                             Kem::Ptr<StartupStatus> startupStatus)
    : startupModeConfig_(std::move(startupModeConfig)), startupModeStatus_(std::move(startupModeStatus)),
      startupConfig_(std::move(startupConfig)), startupStatus_(std::move(startupStatus)) {
   handleInitialized();
   kemStartupModeConfig_.notifierIs(startupModeConfig_);
}

StartupMode StartupModeSm::decidedMode() const {
   if (startupModeConfig_->forceCurrStartupHitfull())
      return StartupMode::startupModeHitfull;
   if (startupConfig_->startupMode() != StartupMode::startupModeUnknown)
      return startupConfig_->startupMode();
   return startupModeConfig_->hitlessReload() ? StartupMode::startupModeHitless
                                              : StartupMode::startupModeHitfull;
}

void StartupModeSm::handleInitialized() {
   StartupMode const mode = decidedMode();
   KEM_TRACE(theTrace, 3, "startupMode is " << static_cast<unsigned>(mode));
   startupModeStatus_->startupModeIs(mode);
   if (startupStatus_)
      startupStatus_->startupModeIs(mode);
   handleStartupComplete();
}

void StartupModeSm::handleStartupComplete() {
   bool const isHitless = startupModeStatus_->startupMode() == StartupMode::startupModeHitless;
   if (startupStatus_)
      startupStatus_->completeIs(!isHitless || startupModeConfig_->startupComplete());
}

} // namespace Agent
