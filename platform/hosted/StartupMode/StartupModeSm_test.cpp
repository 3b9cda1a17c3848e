#include "StartupMode/StartupModeSm.h"

#include "Kem/Activity.h"

#include <gtest/gtest.h>

namespace {

using Agent::StartupMode;

struct StartupModeSmTest : testing::Test {
   void start(bool forceHitfull, bool hitlessReload) {
      config = Agent::StartupModeConfig::make(forceHitfull, hitlessReload);
      sm = Kem::makePtr<Agent::StartupModeSm>(config, status, laidDown, startupStatus);
   }
   void startupComplete() {
      config->startupCompleteIs(true);
      Kem::activityManager()->runUntilIdle();
   }
   Kem::Ptr<Agent::StartupModeConfig> config;
   Kem::Ptr<Agent::StartupModeStatus> status = Agent::StartupModeStatus::make();
   Kem::Ptr<Agent::StartupConfig> laidDown = Agent::nullStartupConfigFactory();
   Kem::Ptr<Agent::StartupStatus> startupStatus = Agent::StartupStatus::make();
   Kem::Ptr<Agent::StartupModeSm> sm;
};

TEST_F(StartupModeSmTest, hitlessReloadIsPublishedAtOnceAsMode2) {
   start(false, true);
   EXPECT_EQ(static_cast<int>(status->startupMode()), 2);
   EXPECT_EQ(startupStatus->startupMode(), StartupMode::startupModeHitless);
   EXPECT_FALSE(startupStatus->complete());
}

TEST_F(StartupModeSmTest, anyOtherStartIsHitfullAndHasNothingToWaitFor) {
   start(false, false);
   EXPECT_EQ(static_cast<int>(status->startupMode()), 1);
   EXPECT_TRUE(startupStatus->complete());
}

TEST_F(StartupModeSmTest, forcedHitfullBeatsTheReload) {
   start(true, true);
   EXPECT_EQ(status->startupMode(), StartupMode::startupModeHitfull);
}

TEST_F(StartupModeSmTest, modeLaidDownBeatsTheReloadButNotTheForce) {
   laidDown->startupModeIs(StartupMode::startupModeHitless);
   start(false, false);
   EXPECT_EQ(status->startupMode(), StartupMode::startupModeHitless);
   start(true, false);
   EXPECT_EQ(status->startupMode(), StartupMode::startupModeHitfull);
}

TEST_F(StartupModeSmTest, startupCompleteEndsAHitlessStart) {
   start(false, true);
   startupComplete();
   EXPECT_TRUE(startupStatus->complete());
   EXPECT_EQ(startupStatus->startupMode(), StartupMode::startupModeHitless);
}

TEST_F(StartupModeSmTest, worksWithoutAMountedStatus) {
   startupStatus = nullptr;
   start(false, true);
   startupComplete();
   EXPECT_EQ(status->startupMode(), StartupMode::startupModeHitless);
}

} // namespace
