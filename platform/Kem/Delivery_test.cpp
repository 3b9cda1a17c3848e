// The queue of reactors: what comes when, how often, and what handlers may do to it.
#include "Kem/Activity.h"
#include "Kem/TestRecords.h"
#include "Kem/TestTrace.h"
#include "Kem/Trace.h"

#include <functional>
#include <memory>
#include <stdexcept>

namespace {

using namespace KemTest;

// Runs what the test gives it.
struct Acts final : Box::NotifieeConst {
   explicit Acts(Ptr<Box const> const& box) : NotifieeConst(this) { notifierIs(box); }
   void onLabel() override {
      ++labels;
      if (label)
         label();
   }
   void onWeight(uint32_t key) override {
      keys.push_back(key);
      if (weight)
         weight(key);
   }
   void onNotificationException(std::exception_ptr exception) override {
      if (rethrows)
         return Notifiee::onNotificationException(exception);
      try {
         std::rethrow_exception(exception);
      } catch (std::exception const& e) {
         caught.push_back(e.what());
      }
   }
   std::function<void()> label;
   std::function<void(uint32_t)> weight;
   int labels = 0;
   std::vector<uint32_t> keys;
   Calls caught;
   bool rethrows = false;
};

class DeliveryTest : public LoopTest {
  protected:
   Ptr<Box> const box = Box::make("box");
};

TEST_F(DeliveryTest, mutatorCallsNoReactor) {
   HearsAll reactor(box);
   reactor.take();
   box->labelIs("x");
   box->weightIs(1, 1);
   box->itemIs(1);
   EXPECT_EQ(reactor.take(), Calls());
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(reactor.take(), (Calls{"label=x", "weight[1]=1", "weight", "item[1]=grey", "item"}));
   EXPECT_FALSE(loop().runTurn());
}

TEST_F(DeliveryTest, twoWritesInOneTurnAreOneNotificationOfTheLatestValue) {
   HearsAll reactor(box);
   reactor.take();
   box->labelIs("first");
   box->labelIs("second");
   box->weightIs(1, 1);
   box->weightIs(1, 2);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), (Calls{"label=second", "weight[1]=2", "weight"}));
}

TEST_F(DeliveryTest, writeAndReturnIsOneNotificationThatSeesNoChange) {
   box->labelIs("old");
   HearsAll reactor(box);
   reactor.take();
   box->labelIs("new");
   box->labelIs("old");
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), Calls{"label=old"});
}

TEST_F(DeliveryTest, removalIsVisibleAsTheAbsenceOfTheKey) {
   box->weightIs(1, 1);
   box->itemIs(2);
   HearsAll reactor(box);
   reactor.take();
   box->weightDel(1);
   box->itemDel(2);
   box->weightIs(9, 1);
   box->weightDel(9);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(),
             (Calls{"weight[1]=absent", "weight[9]=absent", "weight", "item[2]=absent", "item"}));
}

TEST_F(DeliveryTest, removalAndReturnIsOneNotificationOfThePresentKey) {
   box->itemIs(2, "red");
   HearsAll reactor(box);
   reactor.take();
   box->itemDel(2);
   box->itemIs(2, "blue");
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), (Calls{"item[2]=blue", "item"}));
}

TEST_F(DeliveryTest, goesByAttributeInDeclaredOrderAndByKeyInTheOrderOfArrival) {
   HearsAll reactor(box);
   reactor.take();
   box->tagIs("t", true);
   box->weightIs(7, 1);
   box->weightIs(3, 1);
   box->labelIs("x");
   box->weightIs(5, 1);
   box->weightIs(7, 2);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(),
             (Calls{"label=x", "weight[7]=2", "weight[3]=1", "weight[5]=1", "weight", "tag[t]=true", "tag"}));
}

TEST_F(DeliveryTest, eachKeyComesOnceAlsoWhenThereAreMany) {
   Acts reactor(box);
   std::vector<uint32_t> expected;
   for (uint32_t n = 0; n < 500; ++n)
      expected.push_back(n * 7 % 500);
   for (int round = 1; round < 4; ++round)
      for (uint32_t const key : expected)
         box->weightIs(key, round);
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(reactor.keys, expected);
   EXPECT_FALSE(loop().runTurn());
}

TEST_F(DeliveryTest, onlyTheKeysThatChangedAreDelivered) {
   for (uint32_t n = 0; n < 4094; ++n)
      box->weightIs(n, 1);
   Acts reactor(box);
   auto const before = loop().activitySm().deliveredCount();
   box->weightIs(17, 2);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>{17});
   EXPECT_EQ(loop().activitySm().deliveredCount() - before, 1u);
}

TEST_F(DeliveryTest, handlerThatWritesAgainIsCalledInALaterTurn) {
   Acts reactor(box);
   reactor.label = [&] {
      if (reactor.labels < 3)
         box->labelIs("write " + std::to_string(reactor.labels));
   };
   box->labelIs("first");
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(reactor.labels, 1);
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(reactor.labels, 2);
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(reactor.labels, 3);
   EXPECT_FALSE(loop().runTurn());
}

TEST_F(DeliveryTest, whatElseIsPendingForAHandlerThatWritesAgainIsNotLost) {
   Acts reactor(box);
   reactor.weight = [&](uint32_t key) {
      if (key == 1)
         box->weightIs(3, 1);
   };
   box->weightIs(1, 1);
   box->weightIs(2, 1);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, (std::vector<uint32_t>{1, 2, 3}));
}

TEST_F(DeliveryTest, reactorsQueuedByAHandlerWaitForTheNextTurn) {
   auto const other = Box::make("other");
   HearsAll second(other);
   second.take();
   Acts first(box);
   first.label = [&] { other->labelIs("from the first"); };
   box->labelIs("x");
   loop().runTurn();
   EXPECT_EQ(second.take(), Calls());
   loop().runTurn();
   EXPECT_EQ(second.take(), Calls{"label=from the first"});
}

TEST_F(DeliveryTest, reactorThatUnbindsItselfHearsNoMore) {
   Acts reactor(box);
   reactor.weight = [&](uint32_t) { reactor.notifierIs(nullptr); };
   box->weightIs(1, 1);
   box->weightIs(2, 1);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>{1});
}

TEST_F(DeliveryTest, reactorThatTurnsItsDeliveryOffHearsTheRestLater) {
   Acts reactor(box);
   reactor.weight = [&](uint32_t key) {
      if (key == 1)
         reactor.hasNotificationActiveIs(false);
   };
   box->weightIs(1, 1);
   box->weightIs(2, 1);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>{1});
   reactor.hasNotificationActiveIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, (std::vector<uint32_t>{1, 2}));
}

TEST_F(DeliveryTest, reactorMayDestroyItselfInItsHandler) {
   auto reactor = std::make_unique<Acts>(box);
   std::vector<uint32_t> keys;
   reactor->weight = [&](uint32_t key) {
      auto& heard = keys; // the captures go with the reactor
      auto& owner = reactor;
      heard.push_back(key);
      owner = nullptr;
   };
   box->weightIs(1, 1);
   box->weightIs(2, 1);
   loop().runUntilIdle();
   EXPECT_EQ(keys, std::vector<uint32_t>{1});
   box->weightIs(3, 1);
   EXPECT_TRUE(loop().activitySm().isEmpty());
}

TEST_F(DeliveryTest, reactorDestroyedWhileQueuedIsForgotten) {
   auto first = std::make_unique<HearsAll>(box), middle = std::make_unique<HearsAll>(box);
   HearsAll last(box);
   last.take();
   box->labelIs("x");
   middle = nullptr;
   first = nullptr;
   loop().runUntilIdle();
   EXPECT_EQ(last.take(), Calls{"label=x"});
}

TEST_F(DeliveryTest, handlerMayDestroyTheLastReactorOfItsTurn) {
   // Two that write to each other for ever, and a third that the first one ends:
   // the turn must end all the same.
   auto const other = Box::make("other");
   Acts first(box), second(other);
   auto last = std::make_unique<HearsAll>(box);
   first.label = [&] {
      last = nullptr;
      other->labelIs(String8("ping") + std::to_string(first.labels));
   };
   second.label = [&] { box->labelIs(String8("pong") + std::to_string(second.labels)); };
   box->labelIs("x");
   loop().runTurn();
   EXPECT_EQ(first.labels, 1);
   EXPECT_EQ(second.labels, 0);
   loop().runTurn();
   loop().runTurn();
   EXPECT_EQ(first.labels, 2);
   EXPECT_EQ(second.labels, 1);
   second.label = nullptr;
   loop().runUntilIdle();
}

TEST_F(DeliveryTest, handlersDoNotRunTheLoop) {
   Acts reactor(box);
   reactor.label = [&] {
      box->labelIs("again");
      loop().runTurn();
   };
   EXPECT_DEATH(
       {
          box->labelIs("x");
          loop().runTurn();
       },
       "!isInTurn_");
}

TEST_F(DeliveryTest, deliverQueuedLeavesTimersAlone) {
   Acts reactor(box);
   reactor.label = [&] {
      if (reactor.labels == 1)
         box->labelIs("y");
   };
   box->labelIs("x");
   loop().deliverQueued();
   EXPECT_EQ(reactor.labels, 2) << "until the queue is empty";
}

// --- From the loop to a handler.

TEST_F(DeliveryTest, oneCallDeliversOneThing) {
   HearsAll reactor(box);
   reactor.take();
   box->weightIs(1, 1);
   box->weightIs(2, 2);
   reactor.handleNotification(*reactor.activityPtr());
   EXPECT_EQ(reactor.take(), Calls{"weight[1]=1"});
   reactor.handleDefault(*reactor.activityPtr(), Box::kWeight, false);
   EXPECT_EQ(reactor.take(), Calls{"weight[2]=2"});
   reactor.handleNotification(*reactor.activityPtr());
   EXPECT_EQ(reactor.take(), Calls{"weight"});
   EXPECT_FALSE(reactor.hasPending());
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), Calls());
}

TEST_F(DeliveryTest, whatWasTakenFromTheQueueCanBeQueuedAgain) {
   HearsAll reactor(box);
   reactor.take();
   EXPECT_EQ(&reactor.actsm(), &loop().activitySm());
   reactor.redispatch(reactor.actsm());
   EXPECT_TRUE(reactor.actsm().isEmpty()) << "nothing is pending";
   box->labelIs("x");
   reactor.actsm().dequeue(reactor);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), Calls());
   reactor.redispatch(reactor.actsm());
   reactor.redispatch(reactor.actsm());
   loop().runUntilIdle();
   EXPECT_EQ(reactor.take(), Calls{"label=x"});
}

TEST_F(DeliveryTest, zombieIsDeliveredNothingByAnyWay) {
   Acts reactor(box);
   reactor.kemDoZombieReactors(true);
   reactor.handleDefault(*loop().config(), Box::kLabel, false);
   reactor.handleNotification(*loop().config());
   EXPECT_EQ(reactor.labels, 0);
}

TEST_F(DeliveryTest, reactorThatStopsTheLoopKeepsWhatElseIsPendingForIt) {
   Acts reactor(box);
   reactor.label = [&] { loop().stop(); };
   box->labelIs("x");
   box->weightIs(7, 1);
   loop().run();
   EXPECT_EQ(reactor.labels, 1);
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>());
   loop().runTurn();
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>{7});
}

// --- Exceptions.

TEST_F(DeliveryTest, exceptionIsTracedWithThePlaceThatTheReactorFollows) {
   Kem::TestTrace trace;
   Acts reactor(box);
   reactor.label = [] { throw std::runtime_error("bad label"); };
   box->labelIs("x");
   loop().runUntilIdle();
   reactor.label = [&] {
      reactor.notifierIs(nullptr);
      throw std::runtime_error("late");
   };
   box->labelIs("y");
   loop().runUntilIdle();
   EXPECT_EQ(trace.take(),
             (Calls{"a reactor on box raised: bad label", "a reactor on nothing any more raised: late"}));
}

TEST_F(DeliveryTest, exceptionOfAHandlerReachesItsReactor) {
   Acts reactor(box);
   HearsAll other(box);
   other.take();
   reactor.label = [] { throw std::runtime_error("bad label"); };
   box->labelIs("x");
   loop().runUntilIdle();
   EXPECT_EQ(reactor.caught, Calls{"bad label"});
   EXPECT_EQ(other.take(), Calls{"label=x"}) << "the others of the turn are served";
}

TEST_F(DeliveryTest, exceptionThatNobodyTakesLeavesTheLoopAndNothingIsLost) {
   Acts reactor(box);
   reactor.rethrows = true;
   reactor.label = [&] { throw std::runtime_error("bad label"); };
   HearsAll other(box);
   other.take();
   box->labelIs("x");
   box->weightIs(5, 1);
   EXPECT_THROW(loop().runTurn(), std::runtime_error);
   loop().runUntilIdle();
   EXPECT_EQ(reactor.keys, std::vector<uint32_t>{5});
   EXPECT_EQ(other.take(), (Calls{"label=x", "weight[5]=1", "weight"}));
}

TEST_F(DeliveryTest, exceptionOfAReactorThatUnboundItselfStillReachesIt) {
   Acts reactor(box);
   reactor.label = [&] {
      box->labelIs("y");
      reactor.notifierIs(nullptr);
      throw std::runtime_error("late");
   };
   box->labelIs("x");
   loop().runUntilIdle();
   EXPECT_EQ(reactor.caught, Calls{"late"});
}

TEST_F(DeliveryTest, exceptionOfAReactorThatDestroyedItselfLeavesTheLoop) {
   auto reactor = std::make_unique<Acts>(box);
   reactor->label = [&owner = reactor] {
      auto& o = owner;
      o = nullptr;
      throw std::runtime_error("gone");
   };
   box->labelIs("x");
   EXPECT_THROW(loop().runTurn(), std::runtime_error);
}

} // namespace
