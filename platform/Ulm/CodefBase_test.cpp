#include "Ulm/CodefBase.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// A stage with a count for a backlog.
class TestCodef final : public Ulm::CodefBase {
  public:
   explicit TestCodef(Kem::Ptr<Kem::Clock const> clock) : CodefBase(std::move(clock)) {}

   char const* fwkType() const override { return "TestCodef"; }
   uint64_t backlogSize() const override { return waiting; }
   uint64_t processBacklog(Kem::Seconds const& startTime) override {
      startTimes.push_back(startTime);
      Kem::VirtualTime::advanceTo(Kem::now() + sliceTime);
      uint64_t const count = std::min(waiting, hasRoom ? perSlice : roomFor);
      if (!hasRoom && count < waiting)
         pausedForRoom();
      waiting -= count;
      return count;
   }
   void add(uint64_t count) {
      waiting += count;
      armClock();
   }

   uint64_t waiting = 0;
   uint64_t perSlice = 10;
   Kem::Seconds sliceTime = 0;
   bool hasRoom = true;
   uint64_t roomFor = 0; // while there is none: entries that are finished before it is used up
   std::vector<Kem::Seconds> startTimes; // of the slices so far
};

struct CodefBaseTest : testing::Test {
   static void turn() { Kem::activityManager()->runTurn(); }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static bool isSettled() { return Kem::activityManager()->isSettled(); }

   Kem::VirtualTime time{1000.0};
   Kem::Ptr<TestCodef> codef = Kem::makePtr<TestCodef>(Kem::ActivityFacility::clock());
};

TEST_F(CodefBaseTest, startsWithSlicesOfTenMillisecondsAndNothingCounted) {
   EXPECT_EQ(codef->backlogQuantum(), 0.01);
   EXPECT_EQ(codef->updatesSeen(), 0u);
   EXPECT_EQ(codef->updatesProcessed(), 0u);
   EXPECT_EQ(codef->timeUsed(), 0.0);
   EXPECT_EQ(codef->dispatchCount(), 0u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 0u);
   EXPECT_EQ(codef->timeMin(), Kem::never);
   EXPECT_EQ(codef->clock(), Kem::ActivityFacility::clock());
   EXPECT_TRUE(isSettled());
}

TEST_F(CodefBaseTest, lengthOfASliceCanBeChanged) {
   codef->backlogQuantumIs(0.5);
   EXPECT_EQ(codef->backlogQuantum(), 0.5);
}

TEST_F(CodefBaseTest, countersAreRaisedAndSet) {
   codef->updatesSeenIs(1);
   codef->updatesSeenInc(10);
   codef->updatesProcessedIs(2);
   codef->updatesProcessedInc(20);
   codef->timeUsedIs(3);
   codef->timeUsedInc(30);
   codef->dispatchCountIs(4);
   codef->dispatchCountInc(40);
   codef->yieldBeforeFinishingCountIs(5);
   codef->yieldBeforeFinishingCountInc(50);
   EXPECT_EQ(codef->updatesSeen(), 11u);
   EXPECT_EQ(codef->updatesProcessed(), 22u);
   EXPECT_EQ(codef->timeUsed(), 33.0);
   EXPECT_EQ(codef->dispatchCount(), 44u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 55u);
}

TEST_F(CodefBaseTest, armedClockGivesASliceInTheNextTurn) {
   codef->add(3);
   EXPECT_TRUE(codef->startTimes.empty()) << "arming runs nothing";
   EXPECT_EQ(codef->timeMin(), 0.0);
   turn();
   EXPECT_EQ(codef->startTimes, std::vector{1000.0}) << "it starts at the present time";
   EXPECT_EQ(codef->updatesProcessed(), 3u);
   EXPECT_EQ(codef->dispatchCount(), 1u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 0u);
   EXPECT_EQ(codef->timeMin(), Kem::never);
}

TEST_F(CodefBaseTest, timeOfASliceIsCounted) {
   codef->sliceTime = 0.25;
   codef->add(15);
   run();
   EXPECT_EQ(codef->dispatchCount(), 2u);
   EXPECT_EQ(codef->timeUsed(), 0.5);
}

TEST_F(CodefBaseTest, backlogThatIsLeftOverGivesAnotherSliceInTheNextTurn) {
   codef->add(25);
   turn();
   EXPECT_EQ(codef->updatesProcessed(), 10u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 1u);
   EXPECT_EQ(codef->timeMin(), 1000.0) << "now: behind what is armed meanwhile";
   turn();
   EXPECT_EQ(codef->updatesProcessed(), 20u);
   run();
   EXPECT_EQ(codef->updatesProcessed(), 25u);
   EXPECT_EQ(codef->dispatchCount(), 3u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 2u);
}

TEST_F(CodefBaseTest, stageThatIsArmedMeanwhileComesBeforeWhatIsLeftOver) {
   codef->sliceTime = 0.25;
   codef->add(25);
   turn();
   auto const other = Kem::makePtr<TestCodef>(Kem::ActivityFacility::clock());
   other->sliceTime = 1;
   other->add(1);
   turn();
   EXPECT_EQ(other->startTimes, std::vector<Kem::Seconds>{1000.25});
   EXPECT_EQ(codef->startTimes, (std::vector<Kem::Seconds>{1000, 1001.25}));
}

TEST_F(CodefBaseTest, sliceThatUsedUpTheRoomIsTriedAgainAfterAMillisecondAndNotBefore) {
   codef->hasRoom = false;
   codef->roomFor = 1;
   codef->add(2);
   run();
   EXPECT_EQ(codef->dispatchCount(), 1u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 1u);
   EXPECT_DOUBLE_EQ(codef->timeMin(), 1000.001);
   Kem::activityManager()->advance(0.0009);
   EXPECT_EQ(codef->dispatchCount(), 1u);
   codef->hasRoom = true;
   Kem::activityManager()->advance(0.0002);
   EXPECT_EQ(codef->dispatchCount(), 2u);
   EXPECT_EQ(codef->waiting, 0u);
   EXPECT_EQ(codef->timeMin(), Kem::never);
}

TEST_F(CodefBaseTest, pauseCountsFromTheEndOfTheSlice) {
   codef->hasRoom = false;
   codef->roomFor = 1;
   codef->sliceTime = 2.0;
   codef->add(2);
   turn();
   EXPECT_DOUBLE_EQ(codef->timeMin(), 1002.001);
}

// A bulk change fills the log as soon as there is room. A single change in another stage, which always came when it
// was full, waited for the end of it, a tenth of a second at 4094 VLANs and 512 ports.
TEST_F(CodefBaseTest, stageThatFoundNoRoomComesBeforeTheOneThatUsedItUp) {
   codef->hasRoom = false;
   codef->roomFor = 10;
   codef->add(100);
   turn();
   auto const single = Kem::makePtr<TestCodef>(Kem::ActivityFacility::clock());
   single->hasRoom = false;
   single->add(1);
   turn();
   codef->hasRoom = single->hasRoom = true;
   Kem::activityManager()->advance(0.0005);
   EXPECT_EQ(single->waiting, 0u);
   EXPECT_EQ(codef->dispatchCount(), 1u);
   Kem::activityManager()->advance(0.0006);
   EXPECT_EQ(codef->waiting, 0u);
}

TEST_F(CodefBaseTest, sliceAfterAPauseThatEndsForTimeDoesNotPauseAgain) {
   codef->hasRoom = false;
   codef->add(25);
   turn();
   codef->hasRoom = true;
   Kem::VirtualTime::advanceTo(1001);
   turn();
   EXPECT_EQ(codef->waiting, 15u);
   EXPECT_EQ(codef->timeMin(), 1001.0);
}

TEST_F(CodefBaseTest, keyThatIsAddedDuringAPauseEndsIt) {
   codef->hasRoom = false;
   codef->add(1);
   turn();
   codef->hasRoom = true;
   codef->add(1);
   run();
   EXPECT_EQ(codef->waiting, 0u);
}

TEST_F(CodefBaseTest, processHasNotSettledWhileABacklogWaits) {
   codef->hasRoom = false;
   codef->add(1);
   run();
   EXPECT_FALSE(isSettled());
   codef->hasRoom = true;
   Kem::activityManager()->advance(1);
   EXPECT_TRUE(isSettled());
}

TEST_F(CodefBaseTest, withoutAClockNothingRunsBeforeOneIsSet) {
   codef->clockDel();
   EXPECT_FALSE(codef->clock());
   codef->add(1);
   run();
   EXPECT_EQ(codef->dispatchCount(), 0u);
   codef->clockIs(Kem::ActivityFacility::clock());
   codef->add(1);
   run();
   EXPECT_EQ(codef->updatesProcessed(), 2u);
}

TEST_F(CodefBaseTest, stageCanBeMadeWithoutAClock) {
   auto const idle = Kem::makePtr<TestCodef>(nullptr);
   idle->add(1);
   run();
   EXPECT_EQ(idle->dispatchCount(), 0u);
}

TEST_F(CodefBaseTest, switchedOffDeliveryHoldsTheSliceBack) {
   codef->hasNotificationActiveIs(false);
   EXPECT_FALSE(codef->hasNotificationActive());
   codef->add(1);
   run();
   EXPECT_EQ(codef->dispatchCount(), 0u);
   codef->hasNotificationActiveIs(true);
   EXPECT_TRUE(codef->hasNotificationActive());
   run();
   EXPECT_EQ(codef->dispatchCount(), 1u);
}

TEST_F(CodefBaseTest, zombieRunsNothingAndARevivedOneDoes) {
   codef->add(1);
   codef->kemDoZombieReactors(true);
   EXPECT_TRUE(codef->isZombie());
   run();
   EXPECT_EQ(codef->dispatchCount(), 0u);
   codef->kemDoZombieReactors(false);
   EXPECT_FALSE(codef->isZombie());
   codef->add(1);
   run();
   EXPECT_EQ(codef->waiting, 0u);
}

TEST_F(CodefBaseTest, stageThatGoesWithABacklogLeavesNothingBehind) {
   codef->hasRoom = false;
   codef->add(1);
   run();
   codef = nullptr;
   Kem::activityManager()->advance(1);
   EXPECT_TRUE(isSettled());
}

} // namespace
