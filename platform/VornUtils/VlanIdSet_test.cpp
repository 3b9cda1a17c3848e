#include "VornUtils/VlanIdSet.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using VornUtils::computeVlanSet;
using VornUtils::VlanIdSet;

// The set that the list gives, as a list; behind a "!" the items that were refused.
std::string taken(std::string_view list) {
   VlanIdSet set;
   std::string const refused = computeVlanSet(set, list);
   return set.text() + (refused.empty() ? "" : "!" + refused);
}

TEST(VlanIdSet, holdsNumbersAndForgetsThem) {
   VlanIdSet set;
   EXPECT_TRUE(set.empty());
   set.vlanIs(1);
   set.vlanIs(4094);
   EXPECT_TRUE(set.vlan(1));
   EXPECT_TRUE(set.vlan(4094));
   EXPECT_FALSE(set.vlan(2));
   EXPECT_EQ(set.size(), 2u);
   set.doRemove(1);
   EXPECT_FALSE(set.vlan(1));
   set.doClear();
   EXPECT_TRUE(set.empty());
}

TEST(VlanIdSet, numbersBeyondItsCapacityAreNeverMembers) {
   VlanIdSet set;
   set.vlanIs(4096);
   set.vlanIs(70000);
   set.doRemove(4096);
   EXPECT_TRUE(set.empty());
   EXPECT_FALSE(set.vlan(4096));
   EXPECT_FALSE(set.vlan(0xffffffff));
}

TEST(VlanIdSet, visitsItsMembersInOrder) {
   VlanIdSet set;
   computeVlanSet(set, "300,7,9-10");
   std::vector<int> seen;
   set.forEach([&](uint16_t number) { seen.push_back(number); });
   EXPECT_EQ(seen, (std::vector<int>{7, 9, 10, 300}));
}

TEST(VlanIdSet, takesPutsAndComparesAllMembersOfAnotherSet) {
   VlanIdSet set, other;
   computeVlanSet(set, "1-10,100");
   computeVlanSet(other, "5-12,4094");
   EXPECT_EQ((VlanIdSet(set) |= other).text(), "1-12,100,4094");
   EXPECT_EQ((VlanIdSet(set) -= other).text(), "1-4,100");
   EXPECT_EQ((VlanIdSet(set) ^= other).text(), "1-4,11-12,100,4094");
   EXPECT_TRUE((VlanIdSet(set) ^= set).empty());
}

TEST(VlanIdSet, isComposedOfThreeSetsAndTellsWhetherItChanged) {
   VlanIdSet set, base, removed, added;
   computeVlanSet(set, "7");
   computeVlanSet(base, "1-10,4094");
   computeVlanSet(removed, "3-5,20,4094");
   computeVlanSet(added, "5,64,4094");
   EXPECT_TRUE(set.compose(base, removed, added));
   EXPECT_EQ(set.text(), "1-2,5-10,64,4094");
   EXPECT_FALSE(set.compose(base, removed, added));
   added.doRemove(4094);
   EXPECT_TRUE(set.compose(base, removed, added));
   EXPECT_EQ(set.text(), "1-2,5-10,64");
}

TEST(VlanIdSet, findsMembersAtTheEndsOfItsWords) {
   VlanIdSet set;
   std::vector<uint16_t> const members = {0, 63, 64, 127, 1000, 4031, 4032, 4095};
   for (uint16_t const number : members)
      set.vlanIs(number);
   std::vector<uint16_t> visited;
   set.forEach([&](uint16_t number) { visited.push_back(number); });
   EXPECT_EQ(visited, members);
   EXPECT_EQ(set.size(), members.size());
   EXPECT_EQ(set.text(), "0,63-64,127,1000,4031-4032,4095");
}

TEST(ComputeVlanSet, addsToWhatIsThere) {
   VlanIdSet set;
   set.vlanIs(5);
   EXPECT_EQ(computeVlanSet(set, "7-8"), "");
   EXPECT_EQ(set.text(), "5,7-8");
}

TEST(ComputeVlanSet, takesNumbersRangesBlanksAndOverlaps) {
   EXPECT_EQ(taken(""), "");
   EXPECT_EQ(taken("10"), "10");
   EXPECT_EQ(taken("1-4094"), "1-4094");
   EXPECT_EQ(taken(" 10 , 20 - 22\t"), "10,20-22");
   EXPECT_EQ(taken("20-25,22-30,21,20-20"), "20-30");
   EXPECT_EQ(taken("30,10"), "10,30");
   EXPECT_EQ(taken(",,5,,"), "5");
   EXPECT_EQ(taken("0010"), "10");
}

TEST(ComputeVlanSet, leavesOutWhatIsNoVlanAndKeepsTheRest) {
   EXPECT_EQ(taken("0,10"), "10!0");
   EXPECT_EQ(taken("4095,10"), "10!4095");
   EXPECT_EQ(taken("4090-4096,10"), "10!4090-4096");
   EXPECT_EQ(taken("20-10,30"), "30!20-10");
   EXPECT_EQ(taken("ten,10,1x"), "10!ten,1x");
   EXPECT_EQ(taken("1-2-3,10"), "10!1-2-3");
   EXPECT_EQ(taken("-5,5-,10"), "10!-5,5-");
   EXPECT_EQ(taken("99999999999999999999,10"), "10!99999999999999999999");
   EXPECT_EQ(taken("1 0,10"), "10!1 0");
   EXPECT_EQ(taken(std::string_view("10\0,11", 6)), std::string("11!10\0", 6));
}

TEST(ComputeVlanSet, ofMuchGarbageTheBeginningIsTold) {
   std::string garbage;
   for (int i = 0; i < 1000; ++i)
      garbage += "x" + std::to_string(i) + ",7,";
   VornUtils::VlanIdSet set;
   std::string const told = VornUtils::computeVlanSet(set, garbage);
   EXPECT_EQ(told.substr(0, 9), "x0,x1,x2,");
   EXPECT_EQ(told.substr(told.find(' ')), " and 947 more");
   EXPECT_LE(told.size(), 250u);
   EXPECT_TRUE(set.vlan(7));
   EXPECT_EQ(VornUtils::computeVlanSet(set, std::string(100000, 'y') + ",z"), std::string(40, 'y') + "...,z");
}

} // namespace
