#include "Ordel/store/FormerNodes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Ordel::FormerNodes;

TEST(FormerNodesTest, knowsTheTypeByNumberAndByPlace) {
   FormerNodes former;
   former.add(7, 1, "cli", 20);
   EXPECT_EQ(former.type(7), 20);
   EXPECT_EQ(former.type(1, "cli"), 20);
   EXPECT_EQ(former.type(8), std::nullopt);
   EXPECT_EQ(former.type(2, "cli"), std::nullopt);
   EXPECT_EQ(former.type(1, "cl"), std::nullopt);
}

TEST(FormerNodesTest, ofAPlaceTheLastOneCounts) {
   FormerNodes former;
   former.add(7, 1, "cli", 20);
   former.add(8, 1, "cli", 21);
   EXPECT_EQ(former.type(1, "cli"), 21);
   EXPECT_EQ(former.type(7), 20);
}

TEST(FormerNodesTest, oneWithoutANumberIsKnownByItsPlace) {
   FormerNodes former;
   former.add(0, 1, "cli", 20);
   EXPECT_EQ(former.type(0), std::nullopt);
   EXPECT_EQ(former.type(1, "cli"), 20);
}

TEST(FormerNodesTest, theOldestIsForgotten) {
   FormerNodes former;
   former.add(1, 1, "once", 20);
   former.add(2, 1, "twice", 20);
   for (uint32_t number = 3; number <= FormerNodes::maxCount; ++number)
      former.add(number, 1, std::to_string(number), 20);
   EXPECT_EQ(former.type(1), 20);
   former.add(100'001, 1, "twice", 21);
   former.add(100'002, 1, "another", 21);
   EXPECT_EQ(former.count(), FormerNodes::maxCount);
   EXPECT_EQ(former.type(1), std::nullopt);
   EXPECT_EQ(former.type(1, "once"), std::nullopt);
   EXPECT_EQ(former.type(2), std::nullopt);
   EXPECT_EQ(former.type(1, "twice"), 21); // of the later one
   EXPECT_EQ(former.type(3), 20);
}

} // namespace
