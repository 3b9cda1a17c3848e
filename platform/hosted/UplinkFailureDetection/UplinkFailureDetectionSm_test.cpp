#include "UplinkFailureDetection/UplinkFailureDetectionSm.h"

#include "Kem/Activity.h"
#include "records/UplinkFailureDetection/GroupStatus.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>

namespace {

using Interface::IntfOperStatus;
using Names = std::set<std::string>;

// One group "core": uplinks Ethernet1 and Ethernet2, downlinks Ethernet3 and Ethernet4. All ports are up.
struct UplinkFailureTest : testing::Test {
   UplinkFailureTest() {
      for (auto const* name : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"})
         dir->intfStatusIs(name)->operStatusIs(IntfOperStatus::intfOperUp);
      newGroup("core", {"Ethernet1", "Ethernet2"}, {"Ethernet3", "Ethernet4"});
   }
   Kem::Ptr<UplinkFailureDetection::GroupConfig> newGroup(char const* name, Names const& uplinks,
                                                          Names const& downlinks) {
      auto const group = config->groupIs(name);
      for (auto const& uplink : uplinks)
         group->uplinkIs(uplink, true);
      for (auto const& downlink : downlinks)
         group->downlinkIs(downlink, true);
      return group;
   }
   void start() {
      root = Kem::makePtr<UplinkFailureDetection::Root>("uplinkFailureDetectionRoot");
      root->uplinkFailureDetectionSmIs(config, status, cause, dir);
      run();
   }
   void set(Sulvi::IntfId intfId, IntfOperStatus operStatus) {
      dir->intfStatusIs(intfId)->operStatusIs(operStatus);
      run();
   }
   void up(Sulvi::IntfId intfId) { set(intfId, IntfOperStatus::intfOperUp); }
   void down(Sulvi::IntfId intfId) { set(intfId, IntfOperStatus::intfOperDown); }
   void loseUplinks() {
      down("Ethernet1");
      down("Ethernet2");
   }
   Names disabled() const {
      Names names;
      for (auto const& [intfId, time] : cause->intfStatus())
         names.insert(intfId.stringValue().str());
      return names;
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void until(Kem::Seconds time) { Kem::activityManager()->advanceTo(time); }

   Kem::VirtualTime virtualTime{1000.0};
   Kem::Ptr<UplinkFailureDetection::Config> config = UplinkFailureDetection::Config::make();
   Kem::Ptr<UplinkFailureDetection::Status> status = UplinkFailureDetection::Status::make();
   Kem::Ptr<Errdisable::CauseStatus> cause = Errdisable::CauseStatus::make();
   Kem::Ptr<Interface::EthIntfStatusDir> dir = Interface::EthIntfStatusDir::make();
   Kem::Ptr<UplinkFailureDetection::Root> root;
};

Names const none;
Names const both = {"Ethernet3", "Ethernet4"};

// --- Failure.

TEST_F(UplinkFailureTest, downlinksAreDisabledWhenTheLastUplinkIsLost) {
   start();
   EXPECT_EQ(status->group("core")->uplinksUp(), 2u);
   down("Ethernet1");
   EXPECT_EQ(disabled(), none);
   EXPECT_EQ(status->group("core")->uplinksUp(), 1u);
   until(1010);
   down("Ethernet2");
   EXPECT_EQ(disabled(), both);
   EXPECT_EQ(*cause->intfStatus("Ethernet3"), 1010);
   EXPECT_EQ(status->group("core")->uplinksUp(), 0u);
   EXPECT_TRUE(status->group("core")->failed());
   EXPECT_EQ(status->group("core")->failures(), 1u);
}

TEST_F(UplinkFailureTest, onlyUpIsUp) {
   start();
   down("Ethernet1");
   for (auto const operStatus :
        {IntfOperStatus::intfOperTesting, IntfOperStatus::intfOperUnknown, IntfOperStatus::intfOperDormant,
         IntfOperStatus::intfOperLowerLayerDown, static_cast<IntfOperStatus>(99)}) {
      set("Ethernet2", operStatus);
      EXPECT_EQ(disabled(), both) << static_cast<int>(operStatus);
      up("Ethernet2");
      EXPECT_EQ(disabled(), none);
   }
}

TEST_F(UplinkFailureTest, uplinkWithoutARecordIsDown) {
   dir->intfStatusDel("Ethernet1");
   start();
   EXPECT_EQ(disabled(), none);
   dir->intfStatusDel("Ethernet2");
   run();
   EXPECT_EQ(disabled(), both);
   up("Ethernet1"); // a new record
   EXPECT_EQ(disabled(), none);
   dir->intfStatusDel("Ethernet1");
   dir->intfStatusIs("Ethernet1"); // replaced in one turn
   run();
   EXPECT_EQ(disabled(), both);
   up("Ethernet1");
   EXPECT_EQ(disabled(), none);
}

TEST_F(UplinkFailureTest, groupWithoutUplinksNeverFails) {
   newGroup("idle", {}, {"Ethernet4"});
   config->group("idle")->uplinkIs("Ethernet9", false);
   start();
   EXPECT_EQ(disabled(), none);
   EXPECT_FALSE(status->group("idle")->failed());
}

TEST_F(UplinkFailureTest, memberThatIsFalseIsNoUplink) {
   newGroup("edge", {"Ethernet5"}, {"Ethernet6"})->uplinkIs("Ethernet1", false);
   start();
   EXPECT_EQ(disabled(), Names{"Ethernet6"});
   EXPECT_EQ(status->group("edge")->uplinksUp(), 0u);
}

TEST_F(UplinkFailureTest, portThatIsBothInOneGroupIsAnUplink) {
   config->group("core")->downlinkIs("Ethernet1", true);
   config->group("core")->downlinkIs("Ethernet4", false);
   start();
   loseUplinks();
   EXPECT_EQ(disabled(), Names{"Ethernet3"});
}

TEST_F(UplinkFailureTest, failurePassesOnFromGroupToGroup) {
   newGroup("next", {"Ethernet3"}, {"Ethernet7"});
   start();
   loseUplinks();
   EXPECT_EQ(disabled(), both);
   down("Ethernet3"); // since it is disabled
   EXPECT_EQ(disabled(), (Names{"Ethernet3", "Ethernet4", "Ethernet7"}));
   up("Ethernet1");
   EXPECT_EQ(disabled(), Names{"Ethernet7"});
   up("Ethernet3");
   EXPECT_EQ(disabled(), none);
}

TEST_F(UplinkFailureTest, downlinkOfTwoGroupsIsDisabledWhileOneOfThemIsFailed) {
   newGroup("edge", {"Ethernet5"}, {"Ethernet4"});
   start();
   EXPECT_EQ(disabled(), Names{"Ethernet4"});
   loseUplinks();
   EXPECT_EQ(disabled(), both);
   up("Ethernet5");
   EXPECT_EQ(disabled(), both);
   up("Ethernet1");
   EXPECT_EQ(disabled(), none);
}

// --- Recovery.

TEST_F(UplinkFailureTest, downlinksComeBackAfterTheDelay) {
   config->recoveryDelayIs(20);
   start();
   loseUplinks();
   until(1100);
   up("Ethernet2");
   until(1110);
   up("Ethernet1"); // a second one changes nothing
   EXPECT_EQ(status->group("core")->uplinksUp(), 2u);
   until(1119.9);
   EXPECT_EQ(disabled(), both);
   EXPECT_TRUE(status->group("core")->failed());
   until(1120);
   EXPECT_EQ(disabled(), none);
   EXPECT_FALSE(status->group("core")->failed());
}

TEST_F(UplinkFailureTest, uplinkThatIsLostAgainBeginsTheDelayAnew) {
   config->recoveryDelayIs(20);
   start();
   loseUplinks();
   up("Ethernet1");
   until(1015);
   down("Ethernet1");
   until(1030);
   EXPECT_EQ(disabled(), both);
   up("Ethernet1");
   until(1049.9);
   EXPECT_EQ(disabled(), both);
   until(1050);
   EXPECT_EQ(disabled(), none);
   EXPECT_EQ(status->group("core")->failures(), 1u) << "it had not recovered in between";
   loseUplinks();
   EXPECT_EQ(status->group("core")->failures(), 2u);
   up("Ethernet1");
   until(1060);
   EXPECT_EQ(disabled(), both) << "the delay of an earlier recovery doesn't count";
}

TEST_F(UplinkFailureTest, groupsRecoverEachAtItsOwnTime) {
   config->recoveryDelayIs(20);
   newGroup("edge", {"Ethernet5"}, {"Ethernet6"});
   start();
   loseUplinks();
   up("Ethernet1");
   until(1010);
   up("Ethernet5");
   until(1020);
   EXPECT_EQ(disabled(), Names{"Ethernet6"});
   until(1030);
   EXPECT_EQ(disabled(), none);
}

TEST_F(UplinkFailureTest, changedDelayHoldsForARecoveryThatRuns) {
   config->recoveryDelayIs(100);
   start();
   loseUplinks();
   up("Ethernet1");
   until(1010);
   config->recoveryDelayIs(30);
   run();
   until(1029.9);
   EXPECT_EQ(disabled(), both);
   until(1030);
   EXPECT_EQ(disabled(), none);
}

TEST_F(UplinkFailureTest, strangeDelays) {
   start();
   for (double const delay : {std::nan(""), -5.0, -std::numeric_limits<double>::infinity()}) {
      config->recoveryDelayIs(delay);
      loseUplinks();
      EXPECT_EQ(disabled(), both);
      up("Ethernet1");
      EXPECT_EQ(disabled(), none) << delay;
   }
   config->recoveryDelayIs(std::numeric_limits<double>::infinity());
   loseUplinks();
   up("Ethernet1");
   until(1e9);
   EXPECT_EQ(disabled(), both);
   config->recoveryDelayIs(0);
   run();
   EXPECT_EQ(disabled(), none);
}

// --- Configuration.

TEST_F(UplinkFailureTest, changesOfAFailedGroupTakeEffect) {
   start();
   loseUplinks();
   auto const group = config->group("core");
   group->downlinkIs("Ethernet5", true);
   group->downlinkDel("Ethernet3");
   run();
   EXPECT_EQ(disabled(), (Names{"Ethernet4", "Ethernet5"}));
   dir->intfStatusIs("Port-Channel1")->operStatusIs(IntfOperStatus::intfOperUp);
   group->uplinkIs("Port-Channel1", true);
   run();
   EXPECT_EQ(disabled(), none);
   group->uplinkIs("Port-Channel1", false);
   run();
   EXPECT_EQ(disabled(), (Names{"Ethernet4", "Ethernet5"}));
}

TEST_F(UplinkFailureTest, removedGroupReleasesItsDownlinksAtOnce) {
   config->recoveryDelayIs(100);
   start();
   loseUplinks();
   config->groupDel("core");
   run();
   EXPECT_EQ(disabled(), none);
   EXPECT_FALSE(status->group("core"));
   newGroup("core", {"Ethernet1"}, {"Ethernet3"});
   run();
   EXPECT_EQ(disabled(), Names{"Ethernet3"});
   EXPECT_EQ(status->group("core")->failures(), 1u);
}

TEST_F(UplinkFailureTest, replacedGroupIsFollowed) {
   start();
   config->groupDel("core");
   newGroup("core", {"Ethernet1"}, {"Ethernet3"}); // in one turn
   run();
   down("Ethernet1");
   EXPECT_EQ(disabled(), Names{"Ethernet3"});
   config->group("core")->downlinkIs("Ethernet8", true);
   run();
   EXPECT_EQ(disabled(), (Names{"Ethernet3", "Ethernet8"}));
}

// --- Others, and restart.

TEST_F(UplinkFailureTest, portThatSomeoneElseReleasesStaysSoUntilTheNextFailure) {
   newGroup("edge", {"Ethernet5"}, {"Ethernet6"});
   start();
   loseUplinks();
   cause->intfStatusDel("Ethernet3");
   run();
   up("Ethernet5"); // an evaluation for another reason
   EXPECT_EQ(disabled(), Names{"Ethernet4"});
   up("Ethernet1");
   down("Ethernet1");
   EXPECT_EQ(disabled(), both);
}

TEST_F(UplinkFailureTest, restartOfAFailedGroupChangesNothing) {
   start();
   loseUplinks();
   root = nullptr;
   until(2000);
   start();
   EXPECT_EQ(disabled(), both);
   EXPECT_EQ(*cause->intfStatus("Ethernet3"), 1000);
   EXPECT_EQ(status->group("core")->failures(), 1u);
}

TEST_F(UplinkFailureTest, restartFindsWhatHasChangedMeanwhile) {
   config->recoveryDelayIs(20);
   start();
   loseUplinks();
   root = nullptr;
   cause->intfStatusIs("Ethernet9", 900); // of a group that is gone
   status->groupIs("gone")->failedIs(true);
   up("Ethernet1");
   start();
   EXPECT_EQ(disabled(), both) << "the uplink has to be back for the delay";
   EXPECT_FALSE(status->group("gone"));
   until(1020);
   EXPECT_EQ(disabled(), none);
}

// --- Inputs.

TEST_F(UplinkFailureTest, missingRecordsAreNotWatchedAndNotWritten) {
   using UplinkFailureDetection::Root;
   Root idle("root");
   idle.uplinkFailureDetectionSmIs(nullptr, nullptr, nullptr, nullptr);
   Root silent("root");
   silent.uplinkFailureDetectionSmIs(config, nullptr, nullptr, dir);
   Root blind("root");
   blind.uplinkFailureDetectionSmIs(config, status, cause, nullptr);
   run();
   EXPECT_EQ(disabled(), none) << "nothing is known of uplinks";
   Root bare("root");
   bare.uplinkFailureDetectionSmIs(config, nullptr, cause, dir);
   loseUplinks();
   EXPECT_EQ(disabled(), both);
   EXPECT_FALSE(status->group("core")->failed());
}

TEST_F(UplinkFailureTest, thousandsOfPortsOfAnyKindInOneTurn) {
   auto const group = newGroup("big", {}, {"no such kind", "Vlan7"});
   for (int i = 10; i < 3010; ++i) {
      std::string const name = "Ethernet" + std::to_string(i);
      group->uplinkIs(name, true);
      group->downlinkIs(name + ".5", true);
      dir->intfStatusIs(name)->operStatusIs(IntfOperStatus::intfOperUp);
   }
   start();
   for (auto const& [intfId, intfStatus] : dir->intfStatus())
      intfStatus->operStatusIs(IntfOperStatus::intfOperDown);
   run();
   EXPECT_EQ(cause->intfStatus().size(), 3004u);
   up("Ethernet3009");
   EXPECT_EQ(disabled(), both);
}

TEST_F(UplinkFailureTest, rootMakesOneMachine) {
   start();
   auto const sm = root->uplinkFailureDetectionSm();
   EXPECT_EQ(root->uplinkFailureDetectionSmIs(nullptr, nullptr, nullptr, nullptr), sm);
   EXPECT_EQ(root->name(), Kem::Name("uplinkFailureDetectionRoot"));
}

} // namespace
