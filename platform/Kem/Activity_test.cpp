// The turn: its order, its hooks, what counts as settled, and the descriptors in it.
#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/TestRecords.h"

#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace KemTest;

// Two connected sockets.
struct Pair {
   Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0); }
   ~Pair() {
      closeEnd(0);
      closeEnd(1);
   }
   void closeEnd(int i) {
      if (ends[i] >= 0)
         close(ends[i]);
      ends[i] = -1;
   }
   void put(char const* text) const { EXPECT_GT(write(ends[1], text, strlen(text)), 0); }
   int ends[2];
};

struct Watch final : Kem::FileDescriptorWatch {
   explicit Watch(int fd = -1) { descriptorIs(fd); }
   void onReadable() override {
      char bytes[64];
      auto const count = read(descriptor(), bytes, sizeof bytes);
      calls.push_back(count > 0    ? "read " + std::string(bytes, static_cast<size_t>(count))
                      : count == 0 ? "end"
                                   : "error");
      if (count <= 0)
         descriptorIs(-1);
      if (then)
         then();
   }
   void onWritable() override {
      calls.push_back("writable");
      wantsWritableIs(false);
      if (then)
         then();
   }
   Calls take() { return std::exchange(calls, {}); }
   Calls calls;
   std::function<void()> then;
};

struct Alarm final : Kem::Clock::NotifieeConst {
   explicit Alarm(std::function<void()> what) : what_(std::move(what)) {
      notifierIs(Kem::ActivityFacility::clock());
   }
   void onTime() override { what_(); }
   std::function<void()> what_;
};

struct OnLabel final : Box::NotifieeConst {
   OnLabel(Ptr<Box> const& box, std::function<void()> what) : NotifieeConst(this), what_(std::move(what)) {
      notifierIs(box);
   }
   void onLabel() override { what_(); }
   std::function<void()> what_;
};

// A function object as a hook behind deliveries.
struct Hook {
   explicit Hook(std::function<void()> f, Kem::DeliveryEnd step = Kem::DeliveryEnd::send)
       : what(std::move(f)) {
      Kem::activityManager()->deliveryEndHookAdd(step, what);
   }
   ~Hook() { remove(); }
   void remove() { Kem::activityManager()->deliveryEndHookDel(what); }
   std::function<void()> what;
};

using ActivityTest = LoopTest;

TEST_F(ActivityTest, turnDeliversAfterDescriptorsAndAgainAfterTimers) {
   Calls order;
   auto const box = Box::make();
   OnLabel reactor(box, [&] { order.push_back("reactor"); });
   Alarm timer([&] {
      order.push_back("timer");
      box->labelIs("y");
   });
   Hook hook([&] { order.push_back("hook"); });
   Pair pair;
   Watch watch(pair.ends[0]);
   watch.then = [&] { order.push_back("descriptor"); };
   box->labelIs("x");
   timer.timeMinIs(0.0);
   pair.put("x");
   EXPECT_TRUE(loop().runTurn());
   EXPECT_EQ(order, (Calls{"descriptor", "reactor", "hook", "timer", "reactor", "hook"}));
}

TEST_F(ActivityTest, timersOfOneTargetAreOneStepAndThoseOfALaterOneTheNext) {
   Calls order;
   auto const box = Box::make();
   OnLabel reactor(box, [&] { order.push_back(box->label().str()); });
   auto const write = [&](char const* label) {
      return [&, label] {
         order.push_back("timer");
         box->labelIs(label);
      };
   };
   Alarm first(write("first")), second(write("second")), third(write("third"));
   third.timeMinIs(Kem::now());
   first.timeMinIs(0.0);
   second.timeMinIs(0.0);
   Hook hook([&] { order.push_back("hook"); });
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"hook", "timer", "timer", "second", "hook", "timer", "third", "hook"}));
}

TEST_F(ActivityTest, whatDescriptorsAndTimersChangeIsDeliveredInTheSameTurn) {
   auto const box = Box::make();
   Calls heard;
   OnLabel reactor(box, [&] { heard.push_back(box->label().str()); });
   Alarm timer([&] { box->labelIs("by timer"); });
   timer.timeMinIs(0.0);
   loop().runTurn();
   EXPECT_EQ(heard, Calls{"by timer"});
}

TEST_F(ActivityTest, idleTurnSaysSo) {
   EXPECT_FALSE(loop().runTurn());
   loop().runUntilIdle();
   EXPECT_TRUE(loop().isSettled());
}

TEST_F(ActivityTest, runUntilIdleFollowsAChainToItsEnd) {
   auto const box = Box::make();
   OnLabel reactor(box, [&] {
      if (box->label().size() < 50)
         box->labelIs(box->label() + "x");
   });
   box->labelIs("x");
   loop().runUntilIdle();
   EXPECT_EQ(box->label().size(), 50u);
}

TEST_F(ActivityTest, runEndsAtStopAlsoAtOneThatCameBefore) {
   auto const box = Box::make();
   OnLabel reactor(box, [&] { loop().stop(); });
   box->labelIs("x");
   loop().run();
   EXPECT_EQ(box->label(), String8("x"));
   loop().stop();
   loop().run();
}

TEST_F(ActivityTest, turnEndsWhenTheLoopIsToldToStop) {
   // Who said it may have closed what the others would use.
   auto const box = Box::make();
   Calls heard;
   OnLabel first(box, [&] {
      heard.emplace_back("first");
      loop().stop();
   });
   OnLabel second(box, [&] { heard.emplace_back("second"); });
   Alarm timer([&] { heard.emplace_back("timer"); });
   timer.timeMinIs(0.0);
   box->labelIs("x");
   loop().run();
   EXPECT_EQ(heard, Calls{"first"});
   // Nothing is lost.
   loop().runUntilIdle();
   EXPECT_EQ(heard, (Calls{"first", "second", "timer"}));
}

TEST_F(ActivityTest, turnEndsWithTheTimerThatStopsTheLoop) {
   Calls heard;
   Alarm first([&] {
      heard.emplace_back("first");
      loop().stop();
   });
   Alarm second([&] { heard.emplace_back("second"); });
   first.timeMinIs(0.0);
   second.timeMinIs(0.0);
   loop().run();
   EXPECT_EQ(heard, Calls{"first"});
   loop().runUntilIdle();
   EXPECT_EQ(heard, (Calls{"first", "second"}));
}

// --- Settled.

TEST_F(ActivityTest, isNotSettledWhileSomethingIsQueuedOrDue) {
   auto const box = Box::make();
   OnLabel reactor(box, [] {});
   EXPECT_TRUE(loop().isSettled());
   box->labelIs("x");
   EXPECT_FALSE(loop().isSettled());
   loop().runUntilIdle();
   EXPECT_TRUE(loop().isSettled());
   Alarm timer([] {});
   timer.timeMinIs(1001.0);
   EXPECT_TRUE(loop().isSettled()) << "a timer of later is no work of now";
   Kem::VirtualTime::advanceTo(1001.0);
   EXPECT_FALSE(loop().isSettled());
   loop().runUntilIdle();
   EXPECT_TRUE(loop().isSettled());
}

TEST_F(ActivityTest, isNotSettledWhileWorkIsPutOff) {
   struct Backlog final : Kem::DeferredWork {
      bool hasWork() const override { return size > 0; }
      int size = 0;
   };
   Backlog empty;
   auto backlog = std::make_unique<Backlog>();
   EXPECT_TRUE(loop().isSettled());
   backlog->size = 3;
   EXPECT_FALSE(loop().isSettled());
   loop().runUntilIdle();
   EXPECT_FALSE(loop().isSettled());
   backlog = nullptr;
   EXPECT_TRUE(loop().isSettled());
}

// --- Hooks.

TEST_F(ActivityTest, hooksRunInOrderAtTheEndOfEveryTurn) {
   Calls order;
   Hook a([&] { order.push_back("a"); });
   Hook b([&] { order.push_back("b"); });
   loop().runTurn();
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"a", "b", "a", "b"}));
   a.remove();
   loop().runTurn();
   EXPECT_EQ(order.size(), 5u);
}

TEST_F(ActivityTest, hooksRunByTheirStepsWhateverTheOrderOfAdding) {
   using Kem::DeliveryEnd;
   Calls order;
   Hook report([&] { order.push_back("report"); }, DeliveryEnd::report);
   Hook send([&] { order.push_back("send"); }, DeliveryEnd::send);
   std::unique_ptr<Hook> early, late;
   Hook settle(
       [&] {
          order.push_back("settle");
          if (early)
             return;
          early = std::make_unique<Hook>([&] { order.push_back("encode too"); }, DeliveryEnd::encode);
          late = std::make_unique<Hook>([&] { order.push_back("send too"); }, DeliveryEnd::send);
       },
       DeliveryEnd::settle);
   Hook encode([&] { order.push_back("encode"); }, DeliveryEnd::encode);
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"encode", "settle", "send", "send too", "report"}));
   order.clear();
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"encode", "encode too", "settle", "send", "send too", "report"}));
}

// --- The end of the loop.

TEST_F(ActivityTest, turnEndsWhenTheLoopWasToldToStop) {
   auto const box = Box::make(), other = Box::make();
   Calls order;
   OnLabel first(box, [&] {
      order.push_back("reactor");
      loop().stop();
   });
   OnLabel second(other, [&] { order.push_back("second reactor"); });
   Alarm timer([&] { order.push_back("timer"); });
   Hook hook([&] { order.push_back("hook"); });
   box->labelIs("x");
   other->labelIs("x");
   timer.timeMinIs(0.0);
   loop().run();
   EXPECT_EQ(order, (Calls{"reactor", "hook"})) << "what was written by then leaves, and nothing else runs";
   order.clear();
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"second reactor", "hook", "timer", "hook"})) << "it wasn't lost";
}

TEST_F(ActivityTest, stopByADescriptorOrATimerLeavesTheOthersUncalled) {
   Pair pair, otherPair;
   Calls order;
   Watch watch(pair.ends[0]), other(otherPair.ends[0]);
   watch.then = other.then = [&] {
      order.push_back("descriptor");
      loop().stop();
   };
   pair.put("x");
   otherPair.put("x");
   loop().run();
   EXPECT_EQ(order, Calls{"descriptor"});
   loop().run();
   EXPECT_EQ(order.size(), 2u) << "the other one comes in a later turn";
   order.clear();
   Alarm a([&] {
      order.push_back("timer");
      loop().stop();
   });
   Alarm b([&] { order.push_back("timer"); });
   a.timeMinIs(0.0);
   b.timeMinIs(Kem::now());
   loop().run();
   EXPECT_EQ(order, Calls{"timer"});
}

TEST_F(ActivityTest, stopOutsideATurnHoldsNoDeliveryBack) {
   auto const box = Box::make();
   int heard = 0;
   OnLabel reactor(box, [&] { ++heard; });
   loop().stop();
   box->labelIs("x");
   loop().deliverQueued();
   EXPECT_EQ(heard, 1);
   loop().run(); // at once
}

TEST_F(ActivityTest, hookMayRemoveItselfAndOthersAndAdd) {
   Calls order;
   std::unique_ptr<Hook> added;
   Hook c([&] { order.push_back("c"); });
   Hook* self = nullptr;
   Hook a([&] {
      order.push_back("a");
      self->remove();
      c.remove();
   });
   self = &a;
   Hook b([&] {
      order.push_back("b");
      if (!added)
         added = std::make_unique<Hook>([&] { order.push_back("added"); });
   });
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"c", "a", "b", "added"})) << "none is left out when one before it goes";
   order.clear();
   loop().runTurn();
   EXPECT_EQ(order, (Calls{"b", "added"}));
}

TEST_F(ActivityTest, whatAHookQueuesIsDeliveredBeforeTheLoopIsIdle) {
   auto const box = Box::make();
   int heard = 0;
   OnLabel reactor(box, [&] { ++heard; });
   Hook hook([&] { box->labelIs("by the hook"); });
   loop().runUntilIdle();
   EXPECT_EQ(heard, 1);
}

// --- Descriptors.

class DescriptorTest : public LoopTest {
  protected:
   Pair pair;
   Watch watch{pair.ends[0]};
};

TEST_F(DescriptorTest, readableIsToldWhenBytesCome) {
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls());
   pair.put("abc");
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls{"read abc"});
}

TEST_F(DescriptorTest, writableIsToldWhenItIsWanted) {
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls());
   watch.wantsWritableIs(true);
   EXPECT_TRUE(watch.wantsWritable());
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls{"writable"});
   watch.wantsWritableIs(true);
   pair.put("x");
   loop().runTurn();
   EXPECT_EQ(watch.take(), (Calls{"writable", "read x"}));
}

TEST_F(DescriptorTest, fullSocketIsNotWritable) {
   std::string const block(65536, 'x');
   while (write(pair.ends[0], block.data(), block.size()) > 0) {
   }
   watch.wantsWritableIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls());
   char bytes[65536];
   while (read(pair.ends[1], bytes, sizeof bytes) > 0) {
   }
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls{"writable"});
}

TEST_F(DescriptorTest, hangUpCountsAsReadable) {
   pair.closeEnd(1);
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls{"end"});
}

TEST_F(DescriptorTest, readableThatIsNotWantedWaits) {
   watch.wantsReadableIs(false);
   pair.put("abc");
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls());
   watch.wantsReadableIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(watch.take(), Calls{"read abc"});
}

TEST_F(DescriptorTest, hangUpIsNotToldWhileNothingIsWanted) {
   watch.wantsReadableIs(false);
   pair.closeEnd(1);
   loop().runUntilIdle(100);
   EXPECT_EQ(watch.take(), Calls());
}

TEST_F(DescriptorTest, unreadBytesAreToldAgain) {
   struct Lazy final : Kem::FileDescriptorWatch {
      void onReadable() override { ++told; }
      int told = 0;
   } lazy;
   watch.descriptorIs(-1);
   lazy.descriptorIs(pair.ends[0]);
   pair.put("x");
   loop().runTurn();
   loop().runTurn();
   EXPECT_EQ(lazy.told, 2);
}

TEST_F(DescriptorTest, watchMayBeEndedInTheHandlerOfAnother) {
   Pair other;
   auto second = std::make_unique<Watch>(other.ends[0]);
   watch.then = [&] { second = nullptr; };
   second->then = [&] { watch.descriptorIs(-1); };
   pair.put("a");
   other.put("b");
   loop().runTurn();
   // Whichever came first ended the other one.
   EXPECT_EQ((watch.take().size()) + (second ? second->take().size() : 0), 1u);
}

TEST_F(DescriptorTest, watchMayBeDestroyedInItsOwnHandler) {
   Pair other;
   auto own = std::make_unique<Watch>(other.ends[0]);
   int told = 0;
   own->then = [&told, &owner = own] {
      ++told;
      owner = nullptr;
   };
   other.put("x");
   loop().runUntilIdle();
   EXPECT_EQ(told, 1);
}

TEST_F(DescriptorTest, newWatchOnTheSameNumberGetsNoEventOfTheOldOne) {
   // Both are ready in one turn. The first one called closes the other and opens a new one under its number.
   Pair other, fresh;
   Watch a, b;
   watch.descriptorIs(-1);
   a.descriptorIs(pair.ends[0]);
   b.descriptorIs(other.ends[0]);
   auto const replace = [&fresh](Watch& ended, Pair& its) {
      int const number = ended.descriptor();
      ended.descriptorIs(-1);
      EXPECT_EQ(dup2(fresh.ends[0], number), number); // closes what was there
      its.ends[0] = number;
      ended.descriptorIs(number);
   };
   bool isReplaced = false;
   a.then = [&] {
      if (!std::exchange(isReplaced, true))
         replace(b, other);
   };
   b.then = [&] {
      if (!std::exchange(isReplaced, true))
         replace(a, pair);
   };
   pair.put("a");
   other.put("b");
   loop().runTurn();
   EXPECT_TRUE(isReplaced);
   EXPECT_EQ(a.calls.size() + b.calls.size(), 1u) << "nothing has come to the new one";
   fresh.put("for the new one");
   loop().runUntilIdle();
   EXPECT_EQ(a.calls.size() + b.calls.size(), 2u);
}

TEST_F(DescriptorTest, wantsWithoutADescriptorAreWithoutEffect) {
   Watch none;
   none.wantsReadableIs(true);
   none.wantsWritableIs(true);
   EXPECT_EQ(none.descriptor(), -1);
   loop().runUntilIdle();
   EXPECT_EQ(none.take(), Calls());
}

TEST_F(DescriptorTest, twoWatchesOfOneDescriptorAreAnAssertionFailure) {
   EXPECT_DEATH(Watch second(pair.ends[0]), "!watches");
}

TEST(RealDescriptor, wakesAWaitingLoop) {
   Pair pair;
   Watch watch(pair.ends[0]);
   watch.then = [] { Kem::activityManager()->stop(); };
   pair.put("x");
   Kem::activityManager()->run();
   EXPECT_EQ(watch.take(), Calls{"read x"});
}

} // namespace
