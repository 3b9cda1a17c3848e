#include "Vorn/Rules/DynVlans.h"
#include "Vorn/Rules/VlanLists.h"

#include "records/Bridging/Input/VlanConfig.h"

#include <gtest/gtest.h>

namespace {

using Bridging::Input::VlanIdSet;

struct DynVlansRulesTest : testing::Test {
   void source(char const* name, char const* vlans, uint32_t priority) {
      auto const record = VlanIdSet::make();
      record->nameIs(name);
      record->vlansIs(vlans);
      record->configPriorityIs(priority);
      dir->entityPtrIs(record);
   }
   std::string sourceOf(uint16_t vlanId) {
      auto const sources = Vorn::dynVlanSources(*dir);
      auto const* const best = Vorn::sourceOfRecord(sources, vlanId);
      return best ? best->rank.name.str() : "";
   }
   Kem::Ptr<Kem::Dir> const dir = Kem::Dir::make("vlan");
};

TEST_F(DynVlansRulesTest, greatestPriorityIsPreferredAndThenTheGreatestName) {
   source("a", "7", 10);
   source("b", "7", 10);
   source("c", "7,8", 9);
   EXPECT_EQ(sourceOf(7), "b");
   EXPECT_EQ(sourceOf(8), "c");
   EXPECT_EQ(sourceOf(9), "");
   source("a", "7", 11);
   EXPECT_EQ(sourceOf(7), "a");
}

TEST_F(DynVlansRulesTest, priorityZeroTakesPart) {
   source("a", "7", 0);
   EXPECT_EQ(sourceOf(7), "a");
   EXPECT_TRUE(Vorn::isPreferred({"a", 0}, {}));
   EXPECT_FALSE(Vorn::isPreferred({"a", 0}, {"a", 0}));
}

TEST_F(DynVlansRulesTest, namesCompareAsBytes) {
   EXPECT_TRUE(Vorn::isPreferred({"\xff", 1}, {"z", 1}));
   EXPECT_TRUE(Vorn::isPreferred({"a", 1}, {"Z", 1}));
   EXPECT_TRUE(Vorn::isPreferred({"ab", 1}, {"a", 1}));
}

TEST_F(DynVlansRulesTest, entitiesOfOtherClassesAreNoSources) {
   dir->entityPtrIs(Kem::Dir::make("other"));
   source("a", "7,x", 0);
   auto const sources = Vorn::dynVlanSources(*dir);
   ASSERT_EQ(sources.size(), 1u);
   EXPECT_EQ(sources[0].vlans.text(), "7");
   EXPECT_EQ(sources[0].leftOut, "x");
}

TEST_F(DynVlansRulesTest, mvrpHasForItselfWhatTheChosenInputLacks) {
   VornUtils::VlanIdSet mvrp;
   VornUtils::computeVlanSet(mvrp, "1-4094");
   EXPECT_EQ(Vorn::mvrpOnlyVlans(mvrp, nullptr).text(), "1-4094");
   auto const input = Bridging::Input::Config::make();
   EXPECT_EQ(Vorn::mvrpOnlyVlans(mvrp, input.ptr()).text(), "1-4094");
   for (uint16_t const vlanId : {1, 64, 65, 4094})
      input->vlanConfigIs(vlanId);
   EXPECT_EQ(Vorn::mvrpOnlyVlans(mvrp, input.ptr()).text(), "2-63,66-4093");
   EXPECT_EQ(Vorn::mvrpOnlyVlans({}, input.ptr()).text(), "");
}

TEST(VlanListsTest, listIsTheSameHoweverOftenItIsAskedFor) {
   Vorn::VlanLists lists;
   for (int round = 0; round < 2; ++round) {
      EXPECT_EQ(lists.list("1-5,x").vlans.text(), "1-5");
      EXPECT_EQ(lists.list("1-5,x").leftOut, "x");
      EXPECT_EQ(lists.list("").vlans.text(), "");
   }
}

TEST(VlanListsTest, moreListsThanItKeepsAreReadAllTheSame) {
   Vorn::VlanLists lists;
   for (int round = 0; round < 2; ++round)
      for (uint32_t i = 0; i < Vorn::VlanLists::capacity + 10; ++i) {
         std::string const text = std::to_string(1 + i % 4094);
         ASSERT_EQ(lists.list(text).vlans.text(), text);
      }
}

} // namespace
