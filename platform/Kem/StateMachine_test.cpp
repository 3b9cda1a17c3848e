#include "Kem/StateMachine.h"

#include "Kem/Clock.h"
#include "Kem/Collections.h"
#include "Kem/TestRecords.h"
#include "Kem/TestTrace.h"

#include <algorithm>
#include <map>
#include <memory>

namespace {

using namespace KemTest;

Calls theCalls;

void called(std::string const& what) {
   theCalls.push_back(what);
}

struct KemLabel final : Box::NotifieeConst {
   KemLabel(std::string w, Ptr<Box> const& box) : NotifieeConst(this), who(std::move(w)) { notifierIs(box); }
   void onLabel() override { called(who + " heard " + notifier()->label().str()); }
   std::string who;
};

struct KemTimer final : Kem::Clock::NotifieeConst {
   explicit KemTimer(std::string w) : NotifieeConst(Kem::ActivityFacility::clock()), who(std::move(w)) {}
   void onTime() override { called(who + " fired"); }
   std::string who;
};

// A machine below the other one: a reactor, and what it does before it goes.
class Port final : public Kem::StateMachine {
  public:
   Port(Ptr<Box> const& box, std::string const& name) : name_(name), kemLabel_(name, box) {}
   ~Port() override {
      called(name_ + (kemLabel_.isZombie() ? " ends" : " ends with a live reactor"));
      ++ended;
   }
   void doPrepareToDie() override {
      called(name_ + " clears, " + (kemLabel_.isZombie() ? "its reactor is a zombie" : "its reactor hears"));
   }
   // A handler that its owner calls directly.
   void handleMode() {
      if (isReady())
         called(name_ + " handles the mode");
   }
   static inline int ended = 0;

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemLabel_); }
   std::string name_;
   KemLabel kemLabel_;
};

// Holds parts, and is no machine itself.
struct Group {
   explicit Group(Ptr<Box> const& box) : kemLabel("group", box) {}
   void forEachPart(Kem::PartVisitor const& visit) { visit(kemLabel); }
   KemLabel kemLabel;
};

// One part of each kind.
class Bridge final : public Kem::StateMachine {
  public:
   explicit Bridge(Ptr<Box> const& b) : box(b), kemLabel_("own", b) {
      port.findOrInsert(1, [&] { return Kem::makePtr<Port>(box, "port"); });
      ordered.findOrInsert(1, [&] { return Kem::makePtr<Port>(box, "ordered"); });
      only = Kem::makePtr<Port>(box, "only");
      groups["g"] = std::make_unique<Group>(box);
   }
   KemTimer& timer() { return kemTimer_; }

   Ptr<Box> const box;
   Kem::HashMap<Port, int> port;
   Kem::RbTreeMap<Port, int> ordered;
   Ptr<Port> only;
   Ptr<Port> none;
   std::map<std::string, std::unique_ptr<Group>> groups;

  private:
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemLabel_, kemTimer_, port, ordered, only, none, groups);
   }
   KemLabel kemLabel_;
   KemTimer kemTimer_{"timer"};
};

struct StateMachineTest : LoopTest {
   StateMachineTest() {
      theCalls.clear();
      Port::ended = 0;
   }
   // The tree's notifications of a change, and of a timer that is due.
   Calls heard() {
      theCalls.clear();
      box->labelIs(Kem::String8("x" + std::to_string(++changes)));
      if (bridge)
         bridge->timer().timeMinIs(0.0);
      loop().runUntilIdle();
      for (auto& call : theCalls)
         call.resize(call.find(' '));
      std::sort(theCalls.begin(), theCalls.end());
      return std::exchange(theCalls, {});
   }
   Ptr<Box> const box = Box::make();
   Ptr<Bridge> bridge = Kem::makeInitialized<Bridge>(box);
   int changes = 0;
   Calls const everything = {"group", "only", "ordered", "own", "port", "timer"};
};

TEST_F(StateMachineTest, deliveryIsSwitchedOffAndOnForTheWholeTree) {
   EXPECT_EQ(heard(), everything);
   bridge->hasNotificationActiveIs(false);
   EXPECT_FALSE(bridge->only->hasNotificationActive());
   EXPECT_EQ(heard(), Calls());
   bridge->hasNotificationActiveIs(true);
   loop().runUntilIdle();
   EXPECT_EQ(theCalls.size(), everything.size()) << "what changed meanwhile waited";
   EXPECT_EQ(heard(), everything);
}

TEST_F(StateMachineTest, zombiesAreMadeAndRevivedForTheWholeTree) {
   bridge->kemDoZombieReactors(true);
   EXPECT_TRUE(bridge->isZombie());
   EXPECT_TRUE(bridge->only->isZombie());
   EXPECT_EQ(heard(), Calls());
   bridge->kemDoZombieReactors(false);
   EXPECT_FALSE(bridge->only->isZombie());
   EXPECT_EQ(heard(), everything);
}

TEST_F(StateMachineTest, handlersThatAreCalledDirectlyWaitForTheFirstEvaluationAndEndWithTheLife) {
   auto const& port = bridge->only;
   Kem::TestTrace trace("KemStateMachine/0-9");
   port->handleMode();
   EXPECT_EQ(theCalls, Calls());
   EXPECT_EQ(trace.take(), (Calls{"(anonymous namespace)::Port: skipping because not initialized yet"}));
   port->handleInitialized();
   EXPECT_TRUE(port->initialized());
   port->handleMode();
   EXPECT_EQ(theCalls, Calls{"only handles the mode"});
   EXPECT_EQ(trace.take(), (Calls{"(anonymous namespace)::Port is initialized"}));
   port->kemDoZombieReactors(true);
   port->handleMode();
   EXPECT_EQ(theCalls, Calls{"only handles the mode"});
   EXPECT_EQ(trace.take(), Calls()) << "a zombie says nothing either";
}

TEST_F(StateMachineTest, childIsRemovedInThreeSteps) {
   EXPECT_FALSE(childDel(bridge->port, 2));
   EXPECT_TRUE(childDel(bridge->port, 1));
   EXPECT_EQ(theCalls, (Calls{"port clears, its reactor is a zombie", "port ends"}));
   EXPECT_TRUE(bridge->port.empty());
   theCalls.clear();
   childDel(bridge->only);
   EXPECT_EQ(theCalls, (Calls{"only clears, its reactor is a zombie", "only ends"}));
   childDel(bridge->only);
   EXPECT_EQ(theCalls.size(), 2u) << "there is none any more";
   EXPECT_EQ(heard(), (Calls{"group", "ordered", "own", "timer"}));
}

TEST_F(StateMachineTest, removedChildThatIsStillHeldHearsNothing) {
   auto const held = bridge->only;
   childDel(bridge->only);
   EXPECT_EQ(heard(), (Calls{"group", "ordered", "own", "port", "timer"}));
   held->handleInitialized();
   held->handleMode();
   EXPECT_EQ(theCalls, Calls());
}

TEST_F(StateMachineTest, allChildrenAreRemoved) {
   for (int key = 2; key < 50; ++key)
      bridge->ordered.findOrInsert(key, [&] { return Kem::makePtr<Port>(box, "ordered"); });
   childDelAll(bridge->ordered);
   EXPECT_TRUE(bridge->ordered.empty());
   EXPECT_EQ(theCalls.size(), 98u);
}

TEST_F(StateMachineTest, outputsStayWhereTheOwnerLeavesThem) {
   bridge->isNondestructingIs(true);
   EXPECT_TRUE(bridge->isNondestructing());
   auto const held = bridge->only;
   childDel(bridge->only);
   EXPECT_EQ(theCalls, Calls()) << "nothing was cleared";
   EXPECT_TRUE(held->isZombie());
   held->isNondestructingIs(false);
   held->tearDown();
   EXPECT_EQ(theCalls, Calls{"only clears, its reactor is a zombie"});
}

TEST_F(StateMachineTest, childrenDoNotDieWithLiveReactors) {
   bridge = nullptr;
   EXPECT_EQ(Port::ended, 3);
   std::sort(theCalls.begin(), theCalls.end());
   EXPECT_EQ(theCalls, (Calls{"only ends", "ordered ends", "port ends"}));
   EXPECT_EQ(heard(), Calls());
}

TEST_F(StateMachineTest, childThatOutlivesItsOwnerIsAZombie) {
   auto const held = bridge->only;
   bridge = nullptr;
   EXPECT_TRUE(held->isZombie());
   EXPECT_EQ(heard(), Calls());
}

TEST_F(StateMachineTest, flagsLeaveTheCountAlone) {
   uint32_t const before = bridge->references();
   bridge->isNondestructingIs(true);
   bridge->initializedIs(true);
   bridge->kemDoZombieReactors(true);
   EXPECT_EQ(bridge->references(), before);
   EXPECT_TRUE(bridge->initialized());
   bridge->initializedIs(false);
   bridge->kemDoZombieReactors(false);
   EXPECT_TRUE(bridge->isNondestructing());
   EXPECT_FALSE(bridge->initialized());
   EXPECT_EQ(bridge->references(), before);
}

} // namespace
