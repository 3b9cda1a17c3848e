#include "Kem/OrderedTable.h"
#include "Kem/String.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <vector>

namespace {

using Table = Kem::OrderedTable<int, int>;

void fill(Table& table, std::initializer_list<int> keys) {
   for (int const key : keys)
      table.findOrInsert(key, [&] { return key * 10; });
}

std::vector<int> from(Table const& table, int key) {
   std::vector<int> keys;
   for (auto at = table.from(key); at; at.next())
      keys.push_back(at.key());
   return keys;
}

TEST(OrderedTable, doesAsAMapUnderRandomOperations) {
   std::mt19937 random(5);
   Kem::OrderedTable<Kem::String8, int> table;
   std::map<std::string, int> model;
   for (int step = 0; step < 8000; ++step) {
      auto const text = std::to_string(random() % 100);
      auto const versionBefore = table.version();
      bool isChanged;
      if (random() % 2) {
         isChanged = table.erase(text);
         ASSERT_EQ(isChanged, model.erase(text) == 1);
      } else {
         auto const [value, isNew] = table.findOrInsert(text, [&] { return step; });
         isChanged = isNew;
         ASSERT_EQ(isNew, model.emplace(text, step).second);
         ASSERT_EQ(*value, model[text]);
      }
      ASSERT_EQ(table.version() != versionBefore, isChanged);
      ASSERT_EQ(table.size(), model.size());
      ASSERT_EQ(table.find(text) != nullptr, model.contains(text));
      if (step % 50 == 0) {
         auto expected = model.begin();
         table.forEach([&](Kem::String8 const& key, int value) {
            ASSERT_EQ(key.view(), expected->first);
            ASSERT_EQ(value, expected++->second);
         });
      }
   }
}

TEST(OrderedTable, fromStartsAtTheFirstKeyThatIsNotLess) {
   Table table;
   fill(table, {30, 10, 20});
   EXPECT_EQ(from(table, 5), (std::vector{10, 20, 30}));
   EXPECT_EQ(from(table, 20), (std::vector{20, 30}));
   EXPECT_EQ(from(table, 21), (std::vector{30}));
   EXPECT_EQ(from(table, 31), std::vector<int>());
   EXPECT_EQ(from(Table(), 0), std::vector<int>());
}

TEST(OrderedTable, fromFindsItsPlaceWhenTheRememberedKeyIsGone) {
   Table table;
   fill(table, {10, 20, 30});
   int const bookmark = 20;
   table.erase(20);
   EXPECT_EQ(from(table, bookmark), (std::vector{30}));
   fill(table, {25});
   EXPECT_EQ(from(table, bookmark), (std::vector{25, 30}));
}

TEST(OrderedTable, insertionBehindTheIteratorIsVisited) {
   Table table;
   fill(table, {10, 30});
   std::vector<int> visited;
   for (auto at = table.begin(); at; at.next()) {
      visited.push_back(at.key());
      fill(table, {5, 20});
   }
   EXPECT_EQ(visited, (std::vector{10, 20, 30}));
}

TEST(OrderedTable, makeMayThrowOrComeBack) {
   Table table;
   fill(table, {1});
   EXPECT_THROW(table.findOrInsert(2, []() -> int { throw std::runtime_error("no"); }), std::runtime_error);
   EXPECT_EQ(table.size(), 1u);
   auto const [value, isNew] = table.findOrInsert(5, [&] {
      table.erase(1);
      fill(table, {4, 6});
      return 7;
   });
   EXPECT_TRUE(isNew);
   EXPECT_EQ(*value, 7);
   auto const again = table.findOrInsert(8, [&] {
      fill(table, {8});
      return 1;
   });
   EXPECT_FALSE(again.second);
   EXPECT_EQ(*again.first, 80);
   EXPECT_EQ(from(table, 0), (std::vector{4, 5, 6, 8}));
}

TEST(OrderedTable, moveLeavesAnEmptyTableAndIteratorsNotice) {
   Table a, b;
   fill(a, {1, 2, 3});
   fill(b, {2, 9});
   auto at = a.begin();
   a = std::move(b);
   EXPECT_TRUE(b.empty());
   at.next();
   EXPECT_EQ(at.key(), 2);
   EXPECT_EQ(at.value(), 20);
   at.next();
   EXPECT_EQ(at.key(), 9);
   Table c = std::move(a);
   EXPECT_TRUE(a.empty());
   EXPECT_EQ(c.size(), 2u);
   at.next();
   EXPECT_FALSE(at.valid());
}

} // namespace
