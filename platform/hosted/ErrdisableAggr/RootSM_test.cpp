#include "ErrdisableAggr/RootSM.h"

#include "Kem/Activity.h"
#include "records/Errdisable/IntfErrdisableStatus.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Causes = std::map<std::string, double>;

struct ErrdisableAggrTest : testing::Test {
   static void place(Kem::Ptr<Kem::Dir> const& dir, Kem::Ptr<Kem::Entity> const& entity, char const* name) {
      entity->nameIs(name);
      dir->entityPtrIs(entity);
   }
   Kem::Ptr<Errdisable::CauseStatus> newCause(char const* name) {
      auto const cause = Errdisable::CauseStatus::make();
      place(causeDir, cause, name);
      return cause;
   }
   Kem::Ptr<Errdisable::CauseGroup> newGroup(char const* name, double interval) {
      auto const group = Errdisable::CauseGroup::make();
      group->recoveryEnabledIs(true);
      group->recoveryIntervalIs(interval);
      place(groupDir, group, name);
      return group;
   }
   void start() {
      sm = Kem::makePtr<ErrdisableAggr::RootSM>(Kem::activityManager()->config(), causeDir, groupDir, status,
                                                aggr);
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   // What is written of the port, nothing where it isn't listed.
   Causes causes(Sulvi::IntfId intfId) const {
      Causes causes;
      if (auto const record = status->intfStatus(intfId))
         for (auto const& [name, time] : record->cause())
            causes[name.str()] = time;
      return causes;
   }
   uint32_t count(Sulvi::IntfId intfId) const {
      auto const* const count = aggr->intfStatus(intfId);
      return count ? *count : 0;
   }
   double recoveryTime(Sulvi::IntfId intfId) const { return status->intfStatus(intfId)->recoveryTime(); }

   Kem::VirtualTime virtualTime{1000.0};
   Kem::Ptr<Kem::Dir> causeDir = Kem::Dir::make();
   Kem::Ptr<Kem::Dir> groupDir = Kem::Dir::make();
   Kem::Ptr<Errdisable::Status> status = Errdisable::Status::make();
   Kem::Ptr<ErrdisableAggr::IntfAggrStatus> aggr = ErrdisableAggr::IntfAggrStatus::make();
   Kem::Ptr<ErrdisableAggr::RootSM> sm;
};

// Counts what a subscriber of the sum would be sent.
struct Changes {
   explicit Changes(Kem::Ptr<Errdisable::Status> const& status) {
      dir.notifierIs(status);
      for (auto const& [intfId, record] : status->intfStatus()) {
         records.push_back(std::make_unique<KemRecord>(*this));
         records.back()->notifierIs(record);
      }
   }
   struct KemDir final : Errdisable::Status::NotifieeConst {
      explicit KemDir(Changes& c) : NotifieeConst(this), changes(c) {}
      void onIntfStatus(Sulvi::IntfId) override { ++changes.count; }
      Changes& changes;
   };
   struct KemRecord final : Errdisable::IntfErrdisableStatus::NotifieeConst {
      explicit KemRecord(Changes& c) : NotifieeConst(this), changes(c) {}
      void onCause(Kem::Name const&) override { ++changes.count; }
      void onRecoveryTime() override { ++changes.count; }
      Changes& changes;
   };
   int count = 0;
   KemDir dir{*this};
   std::vector<std::unique_ptr<KemRecord>> records;
};

TEST_F(ErrdisableAggrTest, portIsListedWithEveryCauseThatHoldsIt) {
   auto const flap = newCause("link-flap");
   auto const test = newCause("test");
   start();
   flap->intfStatusIs("Ethernet1", 900);
   test->intfStatusIs("Ethernet1", 950);
   test->intfStatusIs("Ethernet2", 960);
   run();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"link-flap", 900}, {"test", 950}}));
   EXPECT_EQ(causes("Ethernet2"), (Causes{{"test", 960}}));
   EXPECT_EQ(count("Ethernet1"), 2u);
   EXPECT_EQ(count("Ethernet2"), 1u);
   flap->intfStatusDel("Ethernet1");
   test->intfStatusIs("Ethernet1", 970);
   test->intfStatusDel("Ethernet2");
   run();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"test", 970}}));
   EXPECT_EQ(count("Ethernet1"), 1u);
   EXPECT_FALSE(status->intfStatus("Ethernet2"));
   EXPECT_FALSE(aggr->intfStatus("Ethernet2"));
}

TEST_F(ErrdisableAggrTest, causesThatComeGoAndAreReplacedAreFollowed) {
   start();
   auto test = newCause("test");
   test->intfStatusIs("Ethernet1", 900);
   run();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"test", 900}}));
   causeDir->entityPtrDel("test");
   test = newCause("test");
   test->intfStatusIs("Ethernet2", 910);
   run();
   EXPECT_FALSE(status->intfStatus("Ethernet1"));
   EXPECT_EQ(causes("Ethernet2"), (Causes{{"test", 910}}));
   test->intfStatusIs("Ethernet3", 920);
   run();
   EXPECT_EQ(causes("Ethernet3"), (Causes{{"test", 920}}));
   causeDir->entityPtrDel("test");
   run();
   EXPECT_TRUE(status->intfStatus().empty());
   EXPECT_TRUE(aggr->intfStatus().empty());
}

TEST_F(ErrdisableAggrTest, causeThatVanishesLeavesThePortsToTheOthers) {
   newCause("link-flap")->intfStatusIs("Ethernet1", 900);
   newCause("test")->intfStatusIs("Ethernet1", 950);
   start();
   causeDir->entityPtrDel("link-flap");
   run();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"test", 950}}));
   EXPECT_EQ(count("Ethernet1"), 1u);
}

TEST_F(ErrdisableAggrTest, entitiesOfOtherTypesDoNotCount) {
   place(causeDir, Errdisable::CauseGroup::make(), "group");
   place(causeDir, Kem::Dir::make(), "dir");
   place(groupDir, Errdisable::CauseStatus::make(), "test");
   newCause("test")->intfStatusIs("Ethernet1", 900);
   start();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"test", 900}}));
   EXPECT_EQ(recoveryTime("Ethernet1"), 0);
   place(causeDir, Errdisable::CauseGroup::make(), "test");
   run();
   EXPECT_TRUE(status->intfStatus().empty());
}

// --- recoveryTime.

TEST_F(ErrdisableAggrTest, recoveryTimeIsThatOfTheCauseThatHoldsThePortLongest) {
   newCause("a")->intfStatusIs("Ethernet1", 900);
   newCause("b")->intfStatusIs("Ethernet1", 950);
   newGroup("a", 300);
   auto const b = newGroup("b", 100);
   start();
   EXPECT_EQ(recoveryTime("Ethernet1"), 1200);
   b->recoveryIntervalIs(400);
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 1350);
   b->recoveryEnabledIs(false);
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 0) << "one of them holds it for good";
   causeDir->entityPtrDel("b");
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 1200);
}

TEST_F(ErrdisableAggrTest, groupsMayComeGoAndBeReplaced) {
   auto const cause = newCause("a");
   cause->intfStatusIs("Ethernet1", 900);
   start();
   EXPECT_EQ(recoveryTime("Ethernet1"), 0);
   newGroup("other", 10);
   newGroup("a", 300);
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 1200);
   newGroup("a", 400);
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 1300);
   groupDir->entityPtrDel("a");
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 0);
}

TEST_F(ErrdisableAggrTest, strangeTimesAndIntervalsGiveNumbers) {
   auto const cause = newCause("a");
   auto const group = newGroup("a", std::nan(""));
   cause->intfStatusIs("Ethernet1", std::nan(""));
   cause->intfStatusIs("no such port", -5);
   start();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"a", 0}}));
   EXPECT_EQ(recoveryTime("Ethernet1"), 300);
   EXPECT_EQ(recoveryTime("no such port"), 295);
   group->recoveryIntervalIs(std::numeric_limits<double>::infinity());
   run();
   EXPECT_EQ(recoveryTime("Ethernet1"), 0);
}

// --- Restart.

TEST_F(ErrdisableAggrTest, restartOnTheSameCausesTouchesNothing) {
   newCause("a")->intfStatusIs("Ethernet1", 900);
   newCause("b")->intfStatusIs("Ethernet1", std::nan(""));
   newGroup("a", 300);
   start();
   sm = nullptr;
   Changes changes(status);
   start();
   EXPECT_EQ(changes.count, 0);
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"a", 900}, {"b", 0}}));
}

TEST_F(ErrdisableAggrTest, restartPutsRightWhatAnEarlierRunLeft) {
   // Ethernet1 was held by a cause that is gone, Ethernet2 by nobody any more, Ethernet3 still is.
   status->intfStatusIs("Ethernet1")->causeIs("gone", 800);
   status->intfStatusIs("Ethernet1")->recoveryTimeIs(1100);
   status->intfStatusIs("Ethernet2")->causeIs("a", 800);
   status->intfStatusIs("Ethernet3")->causeIs("a", 900);
   status->intfStatusIs("Ethernet3")->causeIs("gone", 900);
   aggr->intfStatusIs("Ethernet4", 3);
   auto const a = newCause("a");
   a->intfStatusIs("Ethernet1", 850);
   a->intfStatusIs("Ethernet3", 900);
   start();
   EXPECT_EQ(causes("Ethernet1"), (Causes{{"a", 850}}));
   EXPECT_EQ(recoveryTime("Ethernet1"), 0);
   EXPECT_FALSE(status->intfStatus("Ethernet2"));
   EXPECT_EQ(causes("Ethernet3"), (Causes{{"a", 900}}));
   EXPECT_EQ(count("Ethernet3"), 1u);
   EXPECT_EQ(count("Ethernet4"), 0u);
}

// --- Inputs.

TEST_F(ErrdisableAggrTest, missingRecordsAreNotWatchedAndNotWritten) {
   auto const activity = Kem::activityManager()->config();
   auto const cause = newCause("a");
   cause->intfStatusIs("Ethernet1", 900);
   aggr->intfStatusIs("Ethernet9", 1);
   sm = Kem::makePtr<ErrdisableAggr::RootSM>(activity, causeDir, nullptr, nullptr, aggr);
   EXPECT_EQ(count("Ethernet1"), 1u);
   EXPECT_EQ(count("Ethernet9"), 0u);
   sm = Kem::makePtr<ErrdisableAggr::RootSM>(activity, causeDir, groupDir, status, nullptr);
   cause->intfStatusIs("Ethernet2", 910);
   run();
   EXPECT_EQ(causes("Ethernet2"), (Causes{{"a", 910}}));
   sm = Kem::makePtr<ErrdisableAggr::RootSM>(activity, nullptr, groupDir, status, aggr);
   EXPECT_TRUE(status->intfStatus().empty()) << "nothing holds a port where there are no causes";
}

TEST_F(ErrdisableAggrTest, thousandsOfPortsAndHundredsOfCauses) {
   for (int c = 0; c < 200; ++c)
      newCause(("cause" + std::to_string(c)).c_str());
   start();
   for (int c = 0; c < 200; c += 50)
      for (int i = 1; i <= 2000; ++i)
         causeDir->entity<Errdisable::CauseStatus>("cause" + std::to_string(c))
             ->intfStatusIs("Ethernet" + std::to_string(i), 900);
   run();
   EXPECT_EQ(status->intfStatus().size(), 2000u);
   EXPECT_EQ(count("Ethernet2000"), 4u);
   for (int c = 0; c < 200; ++c)
      causeDir->entityPtrDel("cause" + std::to_string(c));
   run();
   EXPECT_TRUE(status->intfStatus().empty());
}

} // namespace
