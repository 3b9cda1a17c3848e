#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/TestRecords.h"

#include <functional>
#include <memory>

namespace {

using namespace KemTest;
using Kem::Clock;

struct Timer final : Clock::NotifieeConst {
   explicit Timer(Ptr<Clock const> const& clock = Kem::ActivityFacility::clock()) { notifierIs(clock); }
   void onTime() override {
      fired.push_back(Kem::now());
      if (then)
         then();
   }
   void onNotificationException(std::exception_ptr exception) override {
      if (!takesExceptions)
         return ClockReactor::onNotificationException(exception);
      try {
         std::rethrow_exception(exception);
      } catch (std::exception const& e) {
         caught.push_back(e.what());
      }
   }
   std::vector<Kem::Seconds> fired;
   std::function<void()> then;
   Calls caught;
   bool takesExceptions = false;
};

using Times = std::vector<Kem::Seconds>;

class ClockTest : public LoopTest {
  protected:
   Timer timer;
};

TEST_F(ClockTest, firesWhenItsTargetIsReachedAndNotBefore) {
   timer.timeMinIs(1010.0);
   EXPECT_EQ(timer.timeMin(), 1010.0);
   loop().advanceTo(1009.999);
   EXPECT_EQ(timer.fired, Times());
   loop().advanceTo(1010.0);
   EXPECT_EQ(timer.fired, Times{1010.0});
}

TEST_F(ClockTest, firesOnceForEachTarget) {
   timer.timeMinIs(1001.0);
   loop().advance(100.0);
   EXPECT_EQ(timer.fired.size(), 1u);
   EXPECT_EQ(timer.timeMin(), Kem::never);
   timer.timeMinIs(1150.0);
   loop().advance(100.0);
   EXPECT_EQ(timer.fired, (Times{1001.0, 1150.0}));
}

TEST_F(ClockTest, newTargetReplacesTheOldOne) {
   timer.timeMinIs(1001.0);
   timer.timeMinIs(1005.0);
   loop().advanceTo(1004.0);
   EXPECT_EQ(timer.fired, Times());
   timer.timeMinIs(1004.5);
   loop().advanceTo(1010.0);
   EXPECT_EQ(timer.fired, Times{1004.5});
}

TEST_F(ClockTest, neverStopsIt) {
   timer.timeMinIs(1001.0);
   timer.timeMinIs(Kem::never);
   loop().advance(1e9);
   EXPECT_EQ(timer.fired, Times());
   EXPECT_TRUE(loop().isSettled());
}

TEST_F(ClockTest, targetInThePastFiresInTheNextTurn) {
   timer.timeMinIs(0.0);
   EXPECT_EQ(timer.fired, Times());
   EXPECT_FALSE(loop().isSettled());
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(timer.fired, Times{1000.0});
   EXPECT_FALSE(loop().runTurn());
}

TEST_F(ClockTest, targetThatAHandlerSetsToNowComesInALaterTurn) {
   timer.then = [&] {
      if (timer.fired.size() < 3)
         timer.timeMinIs(0.0);
   };
   timer.timeMinIs(0.0);
   for (size_t turn = 1; turn <= 3; ++turn) {
      EXPECT_TRUE(loop().runTurn());
      EXPECT_EQ(timer.fired.size(), turn);
   }
   EXPECT_FALSE(loop().runTurn());
}

TEST_F(ClockTest, eachReactorOfASharedClockHasItsOwnTarget) {
   Timer other;
   EXPECT_EQ(timer.notifier(), other.notifier());
   EXPECT_EQ(timer.notifier(), loop().config()->clock());
   other.timeMinIs(1002.0);
   timer.timeMinIs(1001.0);
   loop().advanceTo(1001.0);
   EXPECT_EQ(timer.fired, Times{1001.0});
   EXPECT_EQ(other.fired, Times());
   loop().advanceTo(1002.0);
   EXPECT_EQ(other.fired, Times{1002.0});
}

TEST_F(ClockTest, timersThatAreDueFireInTheOrderOfTheirTargets) {
   Calls order;
   Timer b, c;
   timer.then = [&] { order.push_back("a"); };
   b.then = [&] { order.push_back("b"); };
   c.then = [&] { order.push_back("c"); };
   c.timeMinIs(10.0);
   timer.timeMinIs(30.0);
   b.timeMinIs(20.0);
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"c", "b", "a"}));
}

TEST_F(ClockTest, withoutAClockNothingFires) {
   Timer unbound(nullptr);
   unbound.timeMinIs(0.0);
   loop().advance(10.0);
   EXPECT_EQ(unbound.fired, Times());
   unbound.notifierIs(Kem::ActivityFacility::clock());
   loop().runUntilIdle();
   EXPECT_EQ(unbound.fired.size(), 1u);
   unbound.timeMinIs(0.0);
   unbound.notifierIs(nullptr);
   loop().runUntilIdle();
   EXPECT_EQ(unbound.fired.size(), 1u);
}

TEST_F(ClockTest, bindingSetsNoTarget) {
   EXPECT_EQ(timer.timeMin(), Kem::never);
   loop().advance(1e6);
   EXPECT_EQ(timer.fired, Times());
}

TEST_F(ClockTest, timerMayBeDestroyedInTheHandlerOfAnother) {
   auto victim = std::make_unique<Timer>();
   timer.then = [&] { victim = nullptr; };
   timer.timeMinIs(1.0);
   victim->timeMinIs(2.0);
   loop().runUntilIdle();
   EXPECT_EQ(timer.fired.size(), 1u);
   EXPECT_TRUE(loop().isSettled());
}

TEST_F(ClockTest, timerMayDestroyItselfInItsHandler) {
   int fired = 0;
   auto self = std::make_unique<Timer>();
   self->then = [&fired, &owner = self] {
      ++fired;
      owner = nullptr;
   };
   self->timeMinIs(0.0);
   loop().runUntilIdle();
   EXPECT_EQ(fired, 1);
}

TEST_F(ClockTest, handlerMayStopOrPutOffAnotherThatIsDue) {
   Timer stopped, late;
   timer.then = [&] {
      stopped.timeMinIs(Kem::never);
      late.timeMinIs(1001.0);
   };
   timer.timeMinIs(1.0);
   stopped.timeMinIs(2.0);
   late.timeMinIs(2.0);
   loop().runUntilIdle();
   EXPECT_EQ(stopped.fired, Times());
   EXPECT_EQ(late.fired, Times());
   loop().advanceTo(1001.0);
   EXPECT_EQ(late.fired, Times{1001.0});
}

TEST_F(ClockTest, zombieDoesNotFireAndFiresWhenRevived) {
   timer.timeMinIs(1001.0);
   timer.kemDoZombieReactors(true);
   EXPECT_TRUE(timer.isZombie());
   loop().advanceTo(1002.0);
   EXPECT_EQ(timer.fired, Times());
   EXPECT_TRUE(loop().isSettled());
   timer.kemDoZombieReactors(false);
   loop().runUntilIdle();
   EXPECT_EQ(timer.fired, Times{1002.0});
}

TEST_F(ClockTest, deliveryOffHoldsIt) {
   timer.hasNotificationActiveIs(false);
   timer.timeMinIs(1001.0);
   loop().advanceTo(1002.0);
   EXPECT_EQ(timer.fired, Times());
   timer.hasNotificationActiveIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(timer.fired, Times{1002.0});
}

// --- Virtual time in the loop.

TEST_F(ClockTest, advanceStopsAtEachTargetOnTheWay) {
   timer.then = [&] { timer.timeMinIs(Kem::now() + 0.5); };
   timer.timeMinIs(1000.5);
   loop().advance(2.0);
   EXPECT_EQ(timer.fired, (Times{1000.5, 1001.0, 1001.5, 1002.0}));
   EXPECT_EQ(Kem::now(), 1002.0);
}

TEST_F(ClockTest, advanceRunsWhatATimerCausesAtThatTime) {
   auto const box = Box::make();
   struct Stamps final : Box::NotifieeConst {
      explicit Stamps(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onLabel() override { heard.push_back(Kem::now()); }
      Times heard;
   } stamps(box);
   timer.then = [&] { box->labelIs("now"); };
   timer.timeMinIs(1003.0);
   loop().advance(10.0);
   EXPECT_EQ(stamps.heard, Times{1003.0});
}

TEST_F(ClockTest, endlessTimerIsFoundOut) {
   timer.then = [&] { timer.timeMinIs(0.0); };
   timer.timeMinIs(0.0);
   EXPECT_DEATH(loop().runUntilIdle(100), "turns < maxTurns");
}

TEST(RealClock, turnWaitsForTheNextTimerAndNoLonger) {
   Timer timer;
   auto* const loop = Kem::activityManager();
   Kem::Seconds const start = Kem::now();
   timer.timeMinIs(start + 0.02);
   while (timer.fired.empty())
      loop->runTurn(60.0);
   EXPECT_GE(timer.fired[0], start + 0.02);
   EXPECT_LT(timer.fired[0], start + 30.0);
}

TEST_F(ClockTest, exceptionOfAHandlerReachesItsReactor) {
   Timer other;
   timer.takesExceptions = true;
   timer.then = [] { throw std::runtime_error("bad time"); };
   timer.timeMinIs(1001.0);
   other.timeMinIs(1001.0);
   loop().advanceTo(1001.0);
   EXPECT_EQ(timer.caught, Calls{"bad time"});
   EXPECT_EQ(other.fired, Times{1001.0}) << "the others that are due fire too";
}

TEST_F(ClockTest, exceptionThatNobodyTakesLeavesTheLoop) {
   auto gone = std::make_unique<Timer>();
   Timer other;
   gone->takesExceptions = true;
   gone->then = [&owner = gone] {
      auto& o = owner;
      o = nullptr;
      throw std::runtime_error("gone");
   };
   timer.then = [] { throw std::runtime_error("bad time"); };
   timer.timeMinIs(1001.0);
   EXPECT_THROW(loop().advanceTo(1001.0), std::runtime_error);
   gone->timeMinIs(1001.0);
   other.timeMinIs(1001.0);
   EXPECT_THROW(loop().runTurn(), std::runtime_error) << "the reactor has gone, so nobody takes it";
   loop().runUntilIdle();
   EXPECT_EQ(other.fired, Times{1001.0}) << "the others come in the next turn";
}

} // namespace
