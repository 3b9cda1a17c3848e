// Binding, registration, delivery on and off, zombies. Delivery itself: Delivery_test.cpp.
#include "Kem/Notifiee.h"
#include "Kem/TestRecords.h"

#include <deque>
#include <memory>
#include <random>
#include <set>

namespace {

using namespace KemTest;

class NotifieeTest : public LoopTest {
  protected:
   Ptr<Box> const box = Box::make("box");
   HearsAll reactor;

   Calls heard() {
      loop().runUntilIdle();
      return reactor.take();
   }
   void changeAll(int n) {
      box->labelIs("l" + std::to_string(n));
      box->weightIs(1, n);
   }
};

// --- Binding.

TEST_F(NotifieeTest, bindingReplaysOnceAndAtOnce) {
   box->labelIs("before");
   reactor.notifierIs(box);
   EXPECT_EQ(reactor.take(), Calls{"initialized"}) << "a direct call, not through the queue";
   EXPECT_EQ(heard(), Calls());
   EXPECT_EQ(reactor.notifier(), box);
   EXPECT_TRUE(reactor.isRegisteredNotifiee());
}

TEST_F(NotifieeTest, bindingOfTheSameEntityRunsNothingAndKeepsWhatIsPending) {
   reactor.notifierIs(box);
   reactor.take();
   box->labelIs("x");
   reactor.notifierIs(box);
   EXPECT_EQ(reactor.take(), Calls());
   EXPECT_EQ(heard(), Calls{"label=x"});
}

TEST_F(NotifieeTest, rebindingDropsWhatIsPendingAndReplays) {
   reactor.notifierIs(box);
   changeAll(1);
   auto const other = Box::make("other");
   other->labelIs("of the other");
   reactor.take();
   reactor.notifierIs(other);
   EXPECT_EQ(heard(), Calls{"initialized"});
   box->labelIs("unheard");
   EXPECT_EQ(heard(), Calls());
   other->weightIs(2, 2);
   EXPECT_EQ(heard(), (Calls{"weight[2]=2", "weight"}));
}

TEST_F(NotifieeTest, keysOfTheOldBindingAreNotDeliveredForTheNewOne) {
   reactor.notifierIs(box);
   box->weightIs(1, 1);
   auto const other = Box::make("other");
   reactor.notifierIs(other);
   reactor.take();
   other->weightIs(2, 2);
   EXPECT_EQ(heard(), (Calls{"weight[2]=2", "weight"}));
}

TEST_F(NotifieeTest, unbindingDropsWhatIsPending) {
   reactor.notifierIs(box);
   reactor.take();
   changeAll(1);
   reactor.notifierIs(nullptr);
   EXPECT_EQ(heard(), Calls());
   EXPECT_FALSE(reactor.notifier());
   changeAll(2);
   EXPECT_EQ(heard(), Calls());
   reactor.notifierIs(box);
   EXPECT_EQ(heard(), Calls{"initialized"});
}

TEST_F(NotifieeTest, reactorHoldsWhatItFollows) {
   auto other = Box::make("other");
   reactor.notifierIs(other);
   other = nullptr;
   EXPECT_EQ(Box::alive, 2);
   reactor.notifierIs(nullptr);
   EXPECT_EQ(Box::alive, 1);
}

TEST_F(NotifieeTest, eachOfSeveralReactorsHearsInTheOrderOfBinding) {
   Calls order;
   struct Named final : Box::NotifieeConst {
      Named(Ptr<Box> const& box, std::string name, Calls& order)
          : NotifieeConst(this), name_(std::move(name)), order_(order) {
         notifierIs(box);
      }
      void onLabel() override { order_.push_back(name_); }
      std::string name_;
      Calls& order_;
   };
   Named a(box, "a", order);
   auto b = std::make_unique<Named>(box, "b", order);
   Named c(box, "c", order);
   box->labelIs("1");
   loop().runUntilIdle();
   EXPECT_EQ(order, (Calls{"a", "b", "c"}));
   b = nullptr;
   box->labelIs("2");
   loop().runUntilIdle();
   EXPECT_EQ(order, (Calls{"a", "b", "c", "a", "c"}));
}

// --- Which changes are wanted is found out when a reactor is compiled.

TEST_F(NotifieeTest, attributeThatIsNotOverriddenQueuesNothing) {
   struct HearsCount final : Box::NotifieeConst {
      explicit HearsCount(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onCount() override { ++heard; }
      int heard = 0;
   } only(box);
   box->labelIs("x");
   box->weightIs(1, 1);
   box->itemIs(1);
   box->itemDel(1);
   EXPECT_FALSE(only.hasPending());
   EXPECT_TRUE(loop().activitySm().isEmpty());
   box->countIs(1);
   EXPECT_TRUE(only.hasPending());
   loop().runUntilIdle();
   EXPECT_EQ(only.heard, 1);
}

TEST_F(NotifieeTest, reactorsOfOneEntityEachHearWhatTheyWant) {
   Calls heard;
   struct Label final : Box::NotifieeConst {
      Label(Ptr<Box> const& b, Calls& calls) : NotifieeConst(this), calls_(calls) { notifierIs(b); }
      void onLabel() override { calls_.push_back("label"); }
      Calls& calls_;
   };
   struct Count final : Box::NotifieeConst {
      Count(Ptr<Box> const& b, Calls& calls) : NotifieeConst(this), calls_(calls) { notifierIs(b); }
      void onCount() override { calls_.push_back("count"); }
      Calls& calls_;
   };
   Label label(box, heard);
   auto count = std::make_unique<Count>(box, heard);
   box->labelIs("1");
   box->countIs(1);
   loop().runUntilIdle();
   EXPECT_EQ(heard, (Calls{"label", "count"}));
   count = nullptr;
   box->labelIs("2");
   box->countIs(2);
   loop().runUntilIdle();
   EXPECT_EQ(heard, (Calls{"label", "count", "label"}));
}

TEST_F(NotifieeTest, keyedOverrideAloneHearsKeysOnly) {
   struct Keyed final : Box::NotifieeConst {
      explicit Keyed(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onWeight(uint32_t key) override { keys.push_back(key); }
      std::vector<uint32_t> keys;
   } keyed(box);
   auto const before = loop().activitySm().deliveredCount();
   box->weightIs(3, 1);
   box->weightIs(4, 1);
   box->tagIs("t", true);
   loop().runUntilIdle();
   EXPECT_EQ(keyed.keys, (std::vector<uint32_t>{3, 4}));
   EXPECT_EQ(loop().activitySm().deliveredCount() - before, 2u);
}

TEST_F(NotifieeTest, unkeyedOverrideAloneHearsOnceForAllKeys) {
   struct Plain final : Box::NotifieeConst {
      explicit Plain(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onWeight() override { ++heard; }
      int heard = 0;
   } plain(box);
   for (uint32_t n = 0; n < 100; ++n)
      box->weightIs(n, 1);
   loop().runUntilIdle();
   EXPECT_EQ(plain.heard, 1);
}

TEST_F(NotifieeTest, wholeCollectionOverrideAloneHearsNoPlainChange) {
   struct Whole final : Box::NotifieeConst {
      explicit Whole(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onWeightkemImmediate() override { ++heard; }
      int heard = 0;
   } whole(box);
   box->weightIs(1, 1);
   EXPECT_TRUE(loop().activitySm().isEmpty());
   EXPECT_EQ(whole.heard, 0);
}

TEST_F(NotifieeTest, overridesOfAClassBetweenCount) {
   struct Between : Box::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      void onWeight(uint32_t key) override { sum += key; }
      uint32_t sum = 0;
   };
   struct Last final : Between {
      explicit Last(Ptr<Box> const& b) : Between(this) { notifierIs(b); }
   } last(box);
   box->weightIs(5, 1);
   loop().runUntilIdle();
   EXPECT_EQ(last.sum, 5u);
}

// --- Registration off and on.

TEST_F(NotifieeTest, withdrawnOneHearsNothingAndKeepsItsNotifier) {
   reactor.notifierIs(box);
   changeAll(1);
   reactor.isRegisteredNotifieeIs(false);
   reactor.take();
   changeAll(2);
   EXPECT_EQ(heard(), Calls());
   EXPECT_EQ(reactor.notifier(), box);
   EXPECT_FALSE(reactor.isRegisteredNotifiee());
}

TEST_F(NotifieeTest, registeredAgainLooksAtEverythingOnce) {
   reactor.notifierIs(box);
   reactor.isRegisteredNotifieeIs(false);
   changeAll(2);
   reactor.take();
   reactor.isRegisteredNotifieeIs(true);
   EXPECT_EQ(reactor.take(), Calls()) << "through the queue";
   EXPECT_EQ(heard(), (Calls{"label=l2", "count=0", "weight immediate", "weight", "tag immediate", "tag",
                             "item immediate", "item"}));
   reactor.isRegisteredNotifieeIs(true);
   EXPECT_EQ(heard(), Calls());
   box->weightIs(7, 7);
   EXPECT_EQ(heard(), (Calls{"weight[7]=7", "weight"}));
}

TEST_F(NotifieeTest, registrationWithoutABindingDoesNothing) {
   reactor.isRegisteredNotifieeIs(true);
   EXPECT_FALSE(reactor.isRegisteredNotifiee());
   EXPECT_EQ(heard(), Calls());
}

// --- Delivery off and on.

TEST_F(NotifieeTest, changesWaitWhileDeliveryIsOff) {
   reactor.notifierIs(box);
   reactor.take();
   reactor.hasNotificationActiveIs(false);
   EXPECT_FALSE(reactor.hasNotificationActive());
   box->labelIs("while off");
   EXPECT_EQ(heard(), Calls());
   EXPECT_TRUE(loop().isSettled());
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(reactor.take(), Calls());
   EXPECT_EQ(heard(), Calls{"label=while off"});
}

TEST_F(NotifieeTest, collectionThatChangedWhileDeliveryWasOffIsLookedAtAsAWhole) {
   reactor.notifierIs(box);
   reactor.take();
   reactor.hasNotificationActiveIs(false);
   box->weightIs(1, 1);
   box->weightIs(2, 1);
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard(), (Calls{"weight immediate", "weight"})) << "and not the ones that stood still";
   box->weightIs(3, 1);
   EXPECT_EQ(heard(), (Calls{"weight[3]=1", "weight"}));
}

TEST_F(NotifieeTest, nothingMissedNothingDelivered) {
   reactor.notifierIs(box);
   reactor.take();
   reactor.hasNotificationActiveIs(false);
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard(), Calls());
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard(), Calls());
}

TEST_F(NotifieeTest, whatWasPendingWhenDeliveryWentOffComesWhenItIsOn) {
   reactor.notifierIs(box);
   reactor.take();
   changeAll(1);
   reactor.hasNotificationActiveIs(false);
   EXPECT_EQ(heard(), Calls());
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard(), (Calls{"label=l1", "weight[1]=1", "weight"}));
}

TEST_F(NotifieeTest, keyedReactorWithoutAWholeFormLosesNoKeyWhileDeliveryIsOff) {
   struct Keyed final : Box::NotifieeConst {
      explicit Keyed(Ptr<Box> const& b) : NotifieeConst(this) { notifierIs(b); }
      void onWeight(uint32_t key) override { keys.push_back(key); }
      std::vector<uint32_t> keys;
   } keyed(box);
   keyed.hasNotificationActiveIs(false);
   box->weightIs(3, 1);
   box->weightIs(4, 1);
   box->weightIs(3, 2);
   loop().runUntilIdle();
   EXPECT_TRUE(keyed.keys.empty());
   keyed.hasNotificationActiveIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(keyed.keys, (std::vector<uint32_t>{3, 4}));
}

TEST_F(NotifieeTest, rebindingWhileDeliveryIsOffForgetsWhatTheOldOneMissed) {
   reactor.notifierIs(box);
   reactor.hasNotificationActiveIs(false);
   changeAll(1);
   auto const other = Box::make("other");
   reactor.take();
   reactor.notifierIs(other);
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard(), Calls{"initialized"});
}

// --- Zombies.

TEST_F(NotifieeTest, zombieRunsNothing) {
   reactor.notifierIs(box);
   reactor.take();
   changeAll(1);
   reactor.kemDoZombieReactors(true);
   EXPECT_TRUE(reactor.isZombie());
   EXPECT_FALSE(reactor.isRegisteredNotifiee());
   EXPECT_EQ(heard(), Calls()) << "what was pending is dropped";
   changeAll(2);
   EXPECT_EQ(heard(), Calls());
   reactor.handleNotification(*loop().config());
   EXPECT_EQ(reactor.take(), Calls());
}

TEST_F(NotifieeTest, zombieIsBoundWithoutAReplay) {
   reactor.kemDoZombieReactors(true);
   reactor.notifierIs(box);
   EXPECT_EQ(reactor.take(), Calls());
   EXPECT_EQ(reactor.notifier(), box);
   EXPECT_FALSE(reactor.isRegisteredNotifiee());
   changeAll(1);
   EXPECT_EQ(heard(), Calls());
   reactor.isRegisteredNotifieeIs(true);
   EXPECT_FALSE(reactor.isRegisteredNotifiee());
}

TEST_F(NotifieeTest, zombieMadeByAnEarlierHandlerOfTheSameTurnRunsNothing) {
   struct Killer final : Box::NotifieeConst {
      Killer(Ptr<Box> const& b, Notifiee& victim) : NotifieeConst(this), victim_(victim) { notifierIs(b); }
      void onLabel() override { victim_.kemDoZombieReactors(true); }
      Notifiee& victim_;
   } killer(box, reactor);
   reactor.notifierIs(box);
   reactor.take();
   changeAll(1);
   EXPECT_EQ(heard(), Calls());
}

TEST_F(NotifieeTest, revivedOneLooksAtEverythingOnce) {
   reactor.notifierIs(box);
   reactor.kemDoZombieReactors(true);
   changeAll(3);
   reactor.take();
   reactor.kemDoZombieReactors(false);
   EXPECT_FALSE(reactor.isZombie());
   EXPECT_EQ(heard(), (Calls{"label=l3", "count=0", "weight immediate", "weight", "tag immediate", "tag",
                             "item immediate", "item"}));
   changeAll(4);
   EXPECT_EQ(heard(), (Calls{"label=l4", "weight[1]=4", "weight"}));
}

TEST_F(NotifieeTest, revivedWhileDeliveryIsOffLooksWhenItIsOn) {
   reactor.notifierIs(box);
   reactor.take();
   reactor.kemDoZombieReactors(true);
   reactor.hasNotificationActiveIs(false);
   reactor.kemDoZombieReactors(false);
   EXPECT_EQ(heard(), Calls());
   reactor.hasNotificationActiveIs(true);
   EXPECT_EQ(heard().size(), 8u);
}

// --- Pending keys.

TEST(PendingKeys, comeOnceInTheOrderOfArrivalAtAnyCount) {
   for (int const count : {1, 15, 16, 17, 18, 40, 1000}) {
      Kem::PendingKeys<uint32_t> keys;
      for (int round = 0; round < 2; ++round)
         for (int n = 0; n < count; ++n)
            keys.add(static_cast<uint32_t>(n * 7919 % 100003));
      for (int n = 0; n < count; ++n) {
         ASSERT_FALSE(keys.empty());
         EXPECT_EQ(keys.take(), static_cast<uint32_t>(n * 7919 % 100003));
      }
      EXPECT_TRUE(keys.empty());
   }
}

TEST(PendingKeys, keyThatWasTakenCanComeAgain) {
   for (uint32_t const count : {2u, 17u, 100u}) {
      Kem::PendingKeys<uint32_t> keys;
      for (uint32_t n = 0; n < count; ++n)
         keys.add(n);
      EXPECT_EQ(keys.take(), 0u);
      keys.add(0);
      keys.add(1);
      for (uint32_t n = 1; n < count; ++n)
         EXPECT_EQ(keys.take(), n);
      EXPECT_EQ(keys.take(), 0u);
      EXPECT_TRUE(keys.empty());
   }
}

TEST(PendingKeys, thatNeverRestDoAsASetWithAQueue) {
   std::mt19937 random(11);
   for (uint32_t const universe : {5u, 16u, 17u, 40u, 300u}) {
      Kem::PendingKeys<uint32_t> keys;
      std::deque<uint32_t> queue;
      std::set<uint32_t> waiting;
      for (int step = 0; step < 5000; ++step) {
         uint32_t const key = random() % universe;
         keys.add(key);
         if (waiting.insert(key).second)
            queue.push_back(key);
         if (queue.size() > 1 && random() % 2) {
            ASSERT_EQ(keys.take(), queue.front());
            waiting.erase(queue.front());
            queue.pop_front();
         }
         ASSERT_FALSE(keys.empty());
      }
      keys.clear();
      EXPECT_TRUE(keys.empty());
      keys.add(3);
      EXPECT_EQ(keys.take(), 3u);
   }
}

} // namespace
