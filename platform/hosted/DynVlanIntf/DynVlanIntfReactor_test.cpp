#include "DynVlanIntf/DynVlanIntfReactor.h"

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"
#include "Kem/Time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using Interface::VlanIntfConfig;
using Interface::Input::DynVlanIntfConfigDir;
using Interface::Input::DynVlanIntfErrorDir;
using testing::Contains;
using testing::IsEmpty;
using Vorn::DynVlanIntfReactor;
using Vorn::SourcePriorityPair;
using ConfigPtr = Kem::Ptr<VlanIntfConfig>;

TEST(SourcePriorityPairTest, priorityDecidesAndThenTheNameBytewise) {
   EXPECT_LT((SourcePriorityPair{1, "z"}), (SourcePriorityPair{2, "a"}));
   EXPECT_LT((SourcePriorityPair{2, "a"}), (SourcePriorityPair{2, "b"}));
   EXPECT_LT((SourcePriorityPair{2, "Z"}), (SourcePriorityPair{2, "a"}));
   EXPECT_LT((SourcePriorityPair{2, "s10"}), (SourcePriorityPair{2, "s9"})) << "not as people read";
   EXPECT_EQ((SourcePriorityPair{2, "a"}), (SourcePriorityPair{2, "a"}));
   EXPECT_LT((SourcePriorityPair{0, "a"}), (SourcePriorityPair{0xffffffff, ""}));
}

using Answers = std::map<std::string, bool>;

struct DynVlanIntfTest : testing::Test {
   void start(bool standbyMode = false) {
      sm = Kem::makePtr<DynVlanIntfReactor>(dir, errorDir, list, standbyMode);
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   template <class T>
   static Kem::Ptr<T> place(Kem::Ptr<Kem::Dir> const& where, Kem::Name const& name) {
      auto const made = T::make();
      made->nameIs(name);
      where->entityPtrIs(made);
      return made;
   }
   Kem::Ptr<DynVlanIntfConfigDir> source(Kem::Name const& name, uint32_t priority = 0) {
      auto const made = place<DynVlanIntfConfigDir>(dir, name);
      made->priorityIs(priority);
      return made;
   }
   ConfigPtr winner(char const* name) const { return list->intfConfig(name); }
   // What the source reads of its interfaces.
   Answers answers(Kem::Name const& name) const {
      Answers found;
      if (auto const errors = errorDir->entity<DynVlanIntfErrorDir>(name))
         errors->intfConfigError().forEach(
             [&](Sulvi::IntfId intfId, bool isError) { found[intfId.stringValue().str()] = isError; });
      return found;
   }
   std::vector<std::string> answered() const {
      std::vector<std::string> names;
      for (auto const& [name, entity] : errorDir->entities())
         names.push_back(name.str());
      return names;
   }

   Kem::VirtualTime time{1000.0};
   Kem::TestTrace trace{"DynVlanIntf*/0-9"};
   Kem::Ptr<Kem::Dir> dir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Kem::Dir> errorDir = Kem::Dir::make("dynvlanintf");
   Kem::Ptr<Vorn::DynVlanIntfList> list = Vorn::DynVlanIntfList::make();
   Kem::Ptr<DynVlanIntfReactor> sm;
};

// --- The list.

TEST_F(DynVlanIntfTest, recordOfTheSourceItselfIsInTheList) {
   auto const a = source("a");
   auto const config = a->intfConfigIs("Vlan10");
   start();
   EXPECT_EQ(winner("Vlan10"), config);
   auto const later = a->intfConfigIs("Vlan11");
   run();
   EXPECT_EQ(winner("Vlan11"), later);
   a->intfConfigDel("Vlan10");
   run();
   EXPECT_FALSE(winner("Vlan10"));
   EXPECT_EQ(list->intfConfig().size(), 1u);
}

TEST_F(DynVlanIntfTest, greatestPriorityWinsAndThenTheGreatestName) {
   auto const a = source("a", 5), b = source("b", 5), c = source("c", 1);
   auto const ofA = a->intfConfigIs("Vlan10"), ofB = b->intfConfigIs("Vlan10"),
              ofC = c->intfConfigIs("Vlan10");
   start();
   EXPECT_EQ(winner("Vlan10"), ofB);
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", true}}));
   EXPECT_EQ(answers("b"), (Answers{{"Vlan10", false}}));
   EXPECT_EQ(answers("c"), (Answers{{"Vlan10", true}}));

   c->priorityIs(6);
   run();
   EXPECT_EQ(winner("Vlan10"), ofC);
   EXPECT_EQ(answers("b"), (Answers{{"Vlan10", true}}));
   EXPECT_EQ(answers("c"), (Answers{{"Vlan10", false}}));

   c->priorityIs(4);
   b->intfConfigDel("Vlan10");
   run();
   EXPECT_EQ(winner("Vlan10"), ofA);
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
   EXPECT_EQ(answers("b"), Answers());
   EXPECT_EQ(answers("c"), (Answers{{"Vlan10", true}}));
}

TEST_F(DynVlanIntfTest, eachInterfaceHasItsOwnWinner) {
   auto const a = source("a", 1), b = source("b", 2);
   auto const ofA = a->intfConfigIs("Vlan10");
   a->intfConfigIs("Vlan11");
   auto const ofB = b->intfConfigIs("Vlan11");
   start();
   EXPECT_EQ(winner("Vlan10"), ofA);
   EXPECT_EQ(winner("Vlan11"), ofB);
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}, {"Vlan11", true}}));
}

TEST_F(DynVlanIntfTest, sourceThatGoesLeavesItsInterfacesToTheNext) {
   auto const a = source("a", 1), b = source("b", 2);
   auto const ofA = a->intfConfigIs("Vlan10");
   b->intfConfigIs("Vlan10");
   b->intfConfigIs("Vlan11");
   start();
   dir->entityPtrDel("b");
   run();
   EXPECT_EQ(winner("Vlan10"), ofA);
   EXPECT_FALSE(winner("Vlan11"));
   EXPECT_FALSE(sm->dynVlanIntfConfigSm("b"));
   EXPECT_EQ(answered(), (std::vector<std::string>{"a"}));
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
}

TEST_F(DynVlanIntfTest, replacedSourceCountsWithWhatItHasNow) {
   auto const a = source("a", 5), b = source("b", 3);
   a->intfConfigIs("Vlan10");
   a->intfConfigIs("Vlan11");
   auto const ofB = b->intfConfigIs("Vlan12");
   start();
   auto const made = source("a", 2);
   auto const config = made->intfConfigIs("Vlan10");
   made->intfConfigIs("Vlan12");
   run();
   EXPECT_EQ(winner("Vlan10"), config);
   EXPECT_FALSE(winner("Vlan11"));
   EXPECT_EQ(winner("Vlan12"), ofB);
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}, {"Vlan12", true}}));
   made->priorityIs(4);
   run();
   EXPECT_EQ(winner("Vlan12"), made->intfConfig("Vlan12")) << "the new one is followed";
   a->intfConfigIs("Vlan13");
   run();
   EXPECT_FALSE(winner("Vlan13")) << "the one that went isn't";
}

TEST_F(DynVlanIntfTest, replacedInterfaceRecordTakesItsPlace) {
   auto const a = source("a", 5), b = source("b", 3);
   a->intfConfigIs("Vlan10");
   b->intfConfigIs("Vlan10");
   start();
   auto const made = a->newIntfConfig("Vlan10");
   auto const lower = b->newIntfConfig("Vlan10");
   run();
   EXPECT_EQ(winner("Vlan10"), made);
   a->intfConfigDel("Vlan10");
   run();
   EXPECT_EQ(winner("Vlan10"), lower);
}

// Those who follow the list would take an interface down and up again.
TEST_F(DynVlanIntfTest, changeOfPriorityThatChangesNothingIsNotSeenInTheList) {
   struct KemList final : Vorn::DynVlanIntfList::NotifieeConst {
      KemList() : NotifieeConst(this) {}
      void onIntfConfig() override { ++count; }
      unsigned count = 0;
   };
   auto const a = source("a", 5);
   a->intfConfigIs("Vlan10");
   source("b", 3)->intfConfigIs("Vlan10");
   start();
   KemList follower;
   follower.notifierIs(list);
   a->priorityIs(9);
   run();
   auto const made = source("a", 9); // replaced, with the same record's like
   run();
   EXPECT_EQ(follower.count, 1u) << "the interface went with the old record, to b";
   made->priorityIs(1);
   run();
   EXPECT_EQ(follower.count, 1u);
}

TEST_F(DynVlanIntfTest, nameThatIsNoVlanInterfaceIsNamedOnceAndAskedForInVain) {
   auto const a = source("a");
   for (char const* const name : {"Vlan0", "Vlan4095", "Vlan10x", "Ethernet1", "Vlan1", "Vlan4094"})
      a->intfConfigIs(name);
   start();
   EXPECT_EQ(list->intfConfig().size(), 2u);
   EXPECT_TRUE(winner("Vlan1"));
   EXPECT_TRUE(winner("Vlan4094"));
   EXPECT_EQ(answers("a"), (Answers{{"Vlan0", true},
                                    {"Vlan4095", true},
                                    {"Vlan10x", true},
                                    {"Ethernet1", true},
                                    {"Vlan1", false},
                                    {"Vlan4094", false}}));
   std::string const text = "source a asks for Ethernet1, which is no VLAN interface";
   unsigned level = 9;
   for (auto const& line : trace.lines())
      if (line.text == text)
         level = static_cast<unsigned>(line.level);
   EXPECT_EQ(level, 0u);
   trace.take();
   a->newIntfConfig("Ethernet1");
   a->priorityIs(7);
   run();
   EXPECT_THAT(trace.take(), testing::Not(Contains(text)));
   a->intfConfigDel("Ethernet1");
   run();
   EXPECT_FALSE(answers("a").contains("Ethernet1"));
   dir->entityPtrDel("a");
   run();
   EXPECT_TRUE(list->intfConfig().empty());
}

TEST_F(DynVlanIntfTest, entityOfAnotherKindIsNamedAndPassedOver) {
   dir->entityPtrIs(Kem::Dir::make("odd"));
   start();
   EXPECT_THAT(trace.take(), Contains("source odd is no Interface::Input::DynVlanIntfConfigDir"));
   EXPECT_THAT(answered(), IsEmpty());
   source("odd")->intfConfigIs("Vlan10"); // in its place
   run();
   EXPECT_TRUE(winner("Vlan10"));
   dir->entityPtrIs(Kem::Dir::make("odd"));
   run();
   EXPECT_FALSE(winner("Vlan10"));
   EXPECT_THAT(answered(), IsEmpty());
}

TEST_F(DynVlanIntfTest, withoutDirectoriesThereIsNothingToDo) {
   sm = Kem::makePtr<DynVlanIntfReactor>(nullptr, errorDir, list, false);
   sm = Kem::makePtr<DynVlanIntfReactor>(dir, nullptr, list, false);
   source("a")->intfConfigIs("Vlan10");
   run();
   EXPECT_TRUE(winner("Vlan10"));
}

TEST_F(DynVlanIntfTest, listThatIsNotNewLosesWhatNobodyAsksFor) {
   auto const stale = VlanIntfConfig::make("Vlan99");
   list->intfConfigIs(stale);
   start();
   EXPECT_FALSE(winner("Vlan99"));
}

// --- Answers.

TEST_F(DynVlanIntfTest, staticConfigurationIsAnErrorOfTheWinner) {
   auto const a = source("a", 1), b = source("b", 2);
   a->intfConfigIs("Vlan10");
   b->intfConfigIs("Vlan10");
   start();
   list->intfConfigErrorIs("Vlan10", true);
   run();
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", true}}));
   EXPECT_EQ(answers("b"), (Answers{{"Vlan10", true}}));
   // The next one inherits it, since the static configuration still wins.
   dir->entityPtrDel("b");
   run();
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", true}}));
   list->intfConfigErrorIs("Vlan10", false);
   run();
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
}

TEST_F(DynVlanIntfTest, errorGoesWithTheLastWhoAsked) {
   auto const a = source("a");
   a->intfConfigIs("Vlan10");
   start();
   list->intfConfigErrorIs("Vlan10", true);
   run();
   a->intfConfigDel("Vlan10");
   run();
   EXPECT_TRUE(list->intfConfigError().empty());
   a->intfConfigIs("Vlan10");
   run();
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
}

TEST_F(DynVlanIntfTest, entityOfAnswersComesAndGoesWithItsSource) {
   start();
   source("a");
   run();
   EXPECT_EQ(answered(), (std::vector<std::string>{"a"})) << "also without an interface";
   dir->entityPtrDel("a");
   run();
   EXPECT_THAT(answered(), IsEmpty());
}

TEST_F(DynVlanIntfTest, answersOfThePreviousRunAreKeptOrCorrected) {
   source("a")->intfConfigIs("Vlan10");
   auto const kept = place<DynVlanIntfErrorDir>(errorDir, "a");
   kept->intfConfigErrorIs("Vlan10", true);
   kept->intfConfigErrorIs("Vlan11", true);
   place<DynVlanIntfErrorDir>(errorDir, "gone")->intfConfigErrorIs("Vlan10", true);
   errorDir->entityPtrIs(Kem::Dir::make("odd"));
   start();
   EXPECT_EQ(answered(), (std::vector<std::string>{"a"}));
   EXPECT_EQ(errorDir->entity<DynVlanIntfErrorDir>("a"), kept);
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
}

TEST_F(DynVlanIntfTest, answersThatSomebodyTakesAwayAreWrittenAgain) {
   source("a")->intfConfigIs("Vlan10");
   start();
   errorDir->entityPtrDel("a");
   place<DynVlanIntfErrorDir>(errorDir, "stranger");
   run();
   EXPECT_EQ(answered(), (std::vector<std::string>{"a"}));
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
}

TEST_F(DynVlanIntfTest, standbyKeepsTheListAndWritesNoAnswers) {
   auto const theirs = place<DynVlanIntfErrorDir>(errorDir, "theirs");
   auto const a = source("a", 1);
   a->intfConfigIs("Vlan10");
   start(true);
   EXPECT_TRUE(sm->standbyMode());
   EXPECT_TRUE(winner("Vlan10"));
   auto const b = source("b", 2);
   auto const ofB = b->intfConfigIs("Vlan10");
   list->intfConfigErrorIs("Vlan10", true);
   run();
   EXPECT_EQ(winner("Vlan10"), ofB);
   dir->entityPtrDel("a");
   run();
   EXPECT_EQ(answered(), (std::vector<std::string>{"theirs"}));

   sm->standbyModeIs(false);
   EXPECT_EQ(answered(), (std::vector<std::string>{"b"}));
   EXPECT_EQ(answers("b"), (Answers{{"Vlan10", true}}));

   sm->standbyModeIs(true);
   list->intfConfigErrorIs("Vlan10", false);
   dir->entityPtrDel("b");
   run();
   EXPECT_EQ(answers("b"), (Answers{{"Vlan10", true}})) << "nothing is written and nothing torn down";
   sm->standbyModeIs(false);
   EXPECT_THAT(answered(), IsEmpty());
}

TEST_F(DynVlanIntfTest, endLeavesWhatWasWritten) {
   source("a")->intfConfigIs("Vlan10");
   start();
   sm = nullptr;
   run();
   EXPECT_EQ(answers("a"), (Answers{{"Vlan10", false}}));
   EXPECT_TRUE(winner("Vlan10"));
}

TEST_F(DynVlanIntfTest, whatChangedWhileNothingWasDeliveredIsLookedUp) {
   auto const a = source("a", 1);
   a->intfConfigIs("Vlan10");
   source("b")->intfConfigIs("Vlan11");
   start();
   for (bool const asZombie : {false, true}) {
      asZombie ? sm->kemDoZombieReactors(true) : sm->hasNotificationActiveIs(false);
      dir->entityPtrDel("b");
      a->intfConfigDel("Vlan10");
      a->priorityIs(9);
      auto const ofA = a->intfConfigIs("Vlan12");
      source("c", 5)->intfConfigIs("Vlan12");
      run();
      EXPECT_FALSE(winner("Vlan12"));
      asZombie ? sm->kemDoZombieReactors(false) : sm->hasNotificationActiveIs(true);
      run();
      EXPECT_FALSE(winner("Vlan10"));
      EXPECT_FALSE(winner("Vlan11"));
      EXPECT_EQ(winner("Vlan12"), ofA);
      EXPECT_EQ(answers("a"), (Answers{{"Vlan12", false}}));
      EXPECT_EQ(answers("c"), (Answers{{"Vlan12", true}}));
      // Back to the beginning.
      a->intfConfigDel("Vlan12");
      dir->entityPtrDel("c");
      a->priorityIs(1);
      a->intfConfigIs("Vlan10");
      source("b")->intfConfigIs("Vlan11");
      run();
      EXPECT_TRUE(winner("Vlan10"));
      EXPECT_TRUE(winner("Vlan11"));
   }
}

// --- Histories.

struct DynVlanIntfHistoryTest : DynVlanIntfTest, testing::WithParamInterface<unsigned> {
   unsigned pick(unsigned below) { return std::uniform_int_distribution<unsigned>(0, below - 1)(random); }
   void change() {
      static constexpr char const* names[] = {"a", "b", "c"};
      static constexpr char const* intfs[] = {"Vlan1", "Vlan2", "Vlan3", "Vlan0", "Loopback1"};
      Kem::Name const name = names[pick(3)];
      Sulvi::IntfId const intfId = intfs[pick(5)];
      auto const standing = dir->entity<DynVlanIntfConfigDir>(name);
      unsigned const what = pick(12);
      if (what == 0) {
         dir->entityPtrDel(name);
      } else if (what == 1 || !standing) {
         source(name, pick(3))->intfConfigIs(intfId);
      } else if (what == 2) {
         dir->entityPtrIs(Kem::Dir::make(name));
      } else if (what <= 4) {
         standing->priorityIs(pick(3));
      } else if (what == 5) {
         standing->newIntfConfig(intfId);
      } else if (what <= 7) {
         standing->intfConfigDel(intfId);
      } else if (what == 8) {
         if (list->intfConfig(intfId))
            list->intfConfigErrorIs(intfId, pick(2));
      } else if (what == 9) {
         sm->standbyModeIs(pick(2));
      } else {
         standing->intfConfigIs(intfId);
      }
   }
   std::map<std::string, Answers> allAnswers() const {
      std::map<std::string, Answers> all;
      for (auto const& name : answered())
         all[name] = answers(name);
      return all;
   }
   static std::map<std::string, ConfigPtr> winners(Vorn::DynVlanIntfList const& list) {
      std::map<std::string, ConfigPtr> all;
      for (auto const& [intfId, config] : list.intfConfig())
         all[intfId.stringValue().str()] = config;
      return all;
   }
   std::mt19937 random{GetParam()};
};

// A fresh one beside it, on the same sources with a list and answers of its own, comes to the same.
TEST_P(DynVlanIntfHistoryTest, endsAsAFreshStartWouldBegin) {
   start();
   size_t contested = 0;
   for (int round = 0; round < 300; ++round) {
      for (unsigned i = 0, count = 1 + pick(4); i < count; ++i)
         change();
      run();
      auto const freshList = Vorn::DynVlanIntfList::make();
      for (auto const& [intfId, isError] : list->intfConfigError())
         freshList->intfConfigErrorIs(intfId, isError);
      auto const freshErrors = Kem::Dir::make("fresh");
      auto const fresh = Kem::makePtr<DynVlanIntfReactor>(dir, freshErrors, freshList, false);
      ASSERT_EQ(winners(*list), winners(*freshList)) << "round " << round;
      if (sm->standbyMode())
         continue;
      auto const before = allAnswers();
      std::swap(errorDir, const_cast<Kem::Ptr<Kem::Dir>&>(freshErrors));
      ASSERT_EQ(allAnswers(), before) << "round " << round;
      std::swap(errorDir, const_cast<Kem::Ptr<Kem::Dir>&>(freshErrors));
      for (auto const& [name, ofName] : before)
         for (auto const& [intf, isError] : ofName)
            contested += isError && list->intfConfig(intf);
   }
   EXPECT_GT(contested, 20u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DynVlanIntfHistoryTest, testing::Range(1u, 21u));

} // namespace
