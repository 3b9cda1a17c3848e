#include "Ulm/Backlog.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Ulm::SliceEnd;
using Ulm::Step;

struct BacklogTest : testing::Test {
   void add(std::vector<int> const& keys) {
      for (int const key : keys)
         backlog.add(key);
   }
   // A slice of so many seconds, in which each step takes `stepTime` and finishes its key.
   uint64_t slice(Kem::Seconds quantum = 1.0) {
      return backlog.processSlice(
          Kem::now() + quantum, end,
          [&] {
             ++roomCount;
             return room-- > 0;
          },
          [&](int key) {
             served.push_back(key);
             Kem::VirtualTime::advanceTo(Kem::now() + stepTime);
             backlog.del(key);
             for (int const more : std::exchange(addedByStep, {}))
                backlog.add(more);
             return Step{.finishedCount = 1, .isFinished = true};
          });
   }
   std::vector<int> keys() {
      std::vector<int> result;
      for (auto const& [key, value] : backlog.keys()) {
         EXPECT_TRUE(value);
         result.push_back(key);
      }
      return result;
   }

   Kem::VirtualTime time;
   Ulm::Backlog<int> backlog{1};
   SliceEnd end{};
   std::vector<int> served;
   std::vector<int> addedByStep; // by the next step
   int room = 1000;              // steps that there is room for
   int roomCount = 0;            // how often it was asked for
   Kem::Seconds stepTime = 0;
};

using Keys = std::vector<int>;

TEST_F(BacklogTest, keyThatIsAddedTwiceWaitsOnce) {
   add({5, 3, 5});
   EXPECT_EQ(backlog.size(), 2u);
   EXPECT_TRUE(backlog.isMember(3));
   EXPECT_FALSE(backlog.isMember(4));
   EXPECT_EQ(keys(), (Keys{3, 5}));
}

TEST_F(BacklogTest, keysAreTakenOutOneByOneOrAllAtOnce) {
   add({1, 2, 3});
   backlog.del(2);
   backlog.del(7); // which doesn't wait
   EXPECT_EQ(keys(), (Keys{1, 3}));
   backlog.delAll();
   EXPECT_EQ(backlog.size(), 0u);
}

TEST_F(BacklogTest, emptyBacklogGivesZeroAndKeepsTheBookmark) {
   backlog.bookmarkIs(42);
   EXPECT_EQ(slice(), 0u);
   EXPECT_EQ(end, SliceEnd::backlogEmpty);
   EXPECT_EQ(backlog.bookmark(), 42);
   EXPECT_EQ(roomCount, 0);
}

TEST_F(BacklogTest, keysAreServedInTheirOrder) {
   add({30, 10, 20});
   EXPECT_EQ(slice(), 3u);
   EXPECT_EQ(served, (Keys{10, 20, 30}));
   EXPECT_EQ(end, SliceEnd::backlogEmpty);
   EXPECT_EQ(backlog.size(), 0u);
   EXPECT_EQ(backlog.bookmark(), 1) << "a slice that empties the backlog leaves it";
}

TEST_F(BacklogTest, sliceStartsAtTheBookmarkAndWrapsAround) {
   add({10, 20, 30});
   backlog.bookmarkIs(20);
   EXPECT_EQ(slice(), 3u);
   EXPECT_EQ(served, (Keys{20, 30, 10}));
   EXPECT_EQ(backlog.bookmark(), 20);
}

TEST_F(BacklogTest, sliceStartsBehindABookmarkThatNoLongerWaits) {
   add({10, 30});
   backlog.bookmarkIs(20);
   slice();
   EXPECT_EQ(served, (Keys{30, 10}));
}

TEST_F(BacklogTest, bookmarkBehindAllKeysStartsAtTheFirst) {
   add({10, 20});
   backlog.bookmarkIs(99);
   slice();
   EXPECT_EQ(served, (Keys{10, 20}));
}

TEST_F(BacklogTest, sliceEndsAtItsDeadlineAndTheNextOneGoesOnThere) {
   add({1, 2, 3, 4});
   stepTime = 0.5;
   EXPECT_EQ(slice(1.0), 2u);
   EXPECT_EQ(end, SliceEnd::timeIsUp);
   EXPECT_EQ(backlog.bookmark(), 3);
   EXPECT_EQ(keys(), (Keys{3, 4}));
   EXPECT_EQ(slice(1.0), 2u);
   EXPECT_EQ(served, (Keys{1, 2, 3, 4}));
   EXPECT_EQ(end, SliceEnd::backlogEmpty);
}

TEST_F(BacklogTest, timeJustBeforeTheDeadlineIsNotUpYet) {
   add({1, 2, 3});
   stepTime = 0.25;
   EXPECT_EQ(slice(0.5 + 1e-6), 3u);
   add({1, 2, 3});
   EXPECT_EQ(slice(0.5), 2u) << "reaching it counts";
}

TEST_F(BacklogTest, sliceThatStartsPastItsDeadlineFinishesExactlyOneEntry) {
   add({1, 2, 3});
   EXPECT_EQ(slice(-100.0), 1u);
   EXPECT_EQ(served, Keys{1});
   EXPECT_EQ(end, SliceEnd::timeIsUp);
   EXPECT_EQ(backlog.bookmark(), 2);
}

TEST_F(BacklogTest, withoutRoomFromTheStartNothingIsFinished) {
   add({5, 6});
   room = 0;
   EXPECT_EQ(slice(), 0u);
   EXPECT_EQ(end, SliceEnd::noRoom);
   EXPECT_EQ(backlog.bookmark(), 5);
   EXPECT_EQ(keys(), (Keys{5, 6}));
   EXPECT_TRUE(served.empty());
}

TEST_F(BacklogTest, withoutRoomAndPastTheDeadlineNothingIsFinishedEither) {
   add({5, 6});
   room = 0;
   EXPECT_EQ(slice(-1.0), 0u);
   EXPECT_EQ(end, SliceEnd::noRoom);
}

TEST_F(BacklogTest, roomIsAskedForBeforeEachStep) {
   add({1, 2, 3, 4});
   room = 2;
   EXPECT_EQ(slice(), 2u);
   EXPECT_EQ(roomCount, 3);
   EXPECT_EQ(end, SliceEnd::noRoom);
   EXPECT_EQ(backlog.bookmark(), 3);
   room = 1000;
   EXPECT_EQ(slice(), 2u);
   EXPECT_EQ(served, (Keys{1, 2, 3, 4}));
}

TEST_F(BacklogTest, timeThatIsUpIsSeenBeforeMissingRoom) {
   add({1, 2});
   room = 1;
   EXPECT_EQ(slice(0.0), 1u);
   EXPECT_EQ(end, SliceEnd::timeIsUp);
   EXPECT_EQ(roomCount, 1);
}

TEST_F(BacklogTest, keyAddedBeforeTheBookmarkIsReachedAfterTheWrap) {
   add({20, 30});
   backlog.bookmarkIs(20);
   addedByStep = {10};
   EXPECT_EQ(slice(), 3u);
   EXPECT_EQ(served, (Keys{20, 30, 10}));
}

TEST_F(BacklogTest, keyAddedAgainAndAgainStarvesNobody) {
   add({1, 2, 3});
   for (int i = 0; i < 3; ++i) {
      addedByStep = {1};
      EXPECT_EQ(slice(-1.0), 1u);
   }
   EXPECT_EQ(served, (Keys{1, 2, 3}));
   slice(-1.0);
   EXPECT_EQ(served.back(), 1) << "its next turn";
}

TEST_F(BacklogTest, keyThatIsAddedByItsOwnStepIsServedAgain) {
   add({1});
   addedByStep = {1};
   EXPECT_EQ(slice(), 2u);
   EXPECT_EQ(served, (Keys{1, 1}));
}

TEST_F(BacklogTest, unfinishedKeyGetsTheNextStepToo) {
   add({1, 2});
   std::vector<int> steps;
   auto const count = backlog.processSlice(
       Kem::now() + 1, end, [] { return true; },
       [&](int key) {
          steps.push_back(key);
          if (steps.size() < 3)
             return Step{.finishedCount = 0, .isFinished = false};
          backlog.del(key);
          return Step{.finishedCount = 1, .isFinished = true};
       });
   EXPECT_EQ(steps, (Keys{1, 1, 1, 2}));
   EXPECT_EQ(count, 2u);
}

TEST_F(BacklogTest, firstKeyIsNotStoppedByTimeBeforeItIsFinished) {
   add({1, 2});
   int steps = 0;
   auto const count = backlog.processSlice(
       Kem::now() - 1, end, [] { return true; },
       [&](int key) {
          bool const isFinished = ++steps == 4;
          if (isFinished)
             backlog.del(key);
          return Step{.finishedCount = isFinished ? 1u : 0u, .isFinished = isFinished};
       });
   EXPECT_EQ(steps, 4);
   EXPECT_EQ(count, 1u);
   EXPECT_EQ(backlog.bookmark(), 2);
}

TEST_F(BacklogTest, laterKeyCanBeStoppedInMidWorkAndIsTheBookmark) {
   add({1, 2, 3});
   auto const count = backlog.processSlice(
       Kem::now() + 1, end, [] { return true; },
       [&](int key) {
          Kem::VirtualTime::advanceTo(Kem::now() + 0.5);
          if (key == 1)
             backlog.del(key);
          return Step{.finishedCount = key == 1 ? 1u : 0u, .isFinished = key == 1};
       });
   EXPECT_EQ(count, 1u);
   EXPECT_EQ(end, SliceEnd::timeIsUp);
   EXPECT_EQ(backlog.bookmark(), 2);
   EXPECT_EQ(keys(), (Keys{2, 3}));
}

TEST_F(BacklogTest, stepMayCountForTwo) {
   add({1, 2});
   EXPECT_EQ(backlog.processSlice(
                 Kem::now() + 1, end, [] { return true; },
                 [&](int key) {
                    backlog.del(key);
                    return Step{.finishedCount = 2, .isFinished = true};
                 }),
             4u);
}

} // namespace
