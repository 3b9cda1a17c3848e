#include "Ordel/store/Table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace {

using Ordel::Table;

constexpr Ordel::TableShape numberShape{4, false, 2, false};
constexpr Ordel::TableShape textShape{8, true, 8, true};

void put(Table& table, uint64_t key, uint16_t value) {
   bool isNew = false;
   uint32_t const position = table.findOrInsert({key, {}}, isNew);
   std::memcpy(table.value(position), &value, 2);
}

std::map<uint64_t, uint16_t> contentOf(Table const& table) {
   std::map<uint64_t, uint16_t> content;
   for (uint32_t i = 0; i < table.end(); ++i)
      if (table.isMember(i)) {
         uint16_t value;
         std::memcpy(&value, table.value(i), 2);
         EXPECT_TRUE(content.emplace(table.keyBits(i), value).second);
      }
   return content;
}

TEST(TableTest, holdsWhatAMapHolds) {
   for (uint32_t const keys : {6u, 40u, 700u}) {
      std::mt19937 random(keys);
      Table table(numberShape);
      std::map<uint64_t, uint16_t> model;
      for (int i = 0; i < 20000; ++i) {
         uint64_t const key = random() % keys * 0x10001;
         bool const isErase = random() % 100 < (i / 2000 % 2 ? 70 : 30); // fills and empties in turn
         uint32_t const position = table.find({key, {}});
         ASSERT_EQ(position != Table::none, model.count(key) == 1);
         if (!isErase) {
            put(table, key, static_cast<uint16_t>(i));
            model[key] = static_cast<uint16_t>(i);
         } else if (position != Table::none) {
            table.erase(position);
            model.erase(key);
         }
         ASSERT_EQ(table.count(), model.size());
         if (i % 500 == 0) {
            ASSERT_EQ(contentOf(table), model);
         }
      }
      ASSERT_EQ(contentOf(table), model);
   }
}

TEST(TableTest, holdsMoreThanTwoByteIndexesReach) {
   Table table(numberShape);
   for (uint32_t i = 0; i < 150000; ++i)
      put(table, i, static_cast<uint16_t>(i));
   EXPECT_EQ(table.count(), 150000u);
   for (uint32_t i = 0; i < 150000; ++i)
      ASSERT_EQ(table.find({i, {}}), i);
   EXPECT_EQ(table.find({150000, {}}), Table::none);
}

TEST(TableTest, membersThatWereExpectedMayComeOrNot) {
   for (uint32_t const expected : {2u, 9u, 100u, 1000u, UINT32_MAX})
      for (uint32_t const coming : {1u, 8u, 9u, 500u, 3000u}) {
         Table table(numberShape);
         std::map<uint64_t, uint16_t> model;
         for (uint32_t i = 0; i < coming; ++i) {
            bool isNew = false;
            uint32_t const position = table.findOrInsert({i, {}}, isNew, expected);
            ASSERT_TRUE(isNew);
            auto const value = static_cast<uint16_t>(i);
            std::memcpy(table.value(position), &value, 2);
            model[i] = value;
            ASSERT_EQ(table.findOrInsert({i, {}}, isNew, expected), position);
            ASSERT_FALSE(isNew);
         }
         EXPECT_EQ(contentOf(table), model);
         EXPECT_EQ(table.find({coming, {}}), Table::none);
         for (uint32_t i = 0; i < coming; i += 2)
            table.erase(table.find({i, {}})), model.erase(i);
         for (uint32_t i = 0; i < coming; ++i) // where the holes are
            ASSERT_EQ(table.find({i, {}}) != Table::none, model.count(i) == 1);
      }
}

TEST(TableTest, roomForMembersThatDidNotComeIsGivenBack) {
   for (uint32_t const coming : {1u, 9u, 500u}) {
      Table table(numberShape);
      bool isNew = false;
      for (uint32_t i = 0; i < coming; ++i)
         table.findOrInsert({i, {}}, isNew, 1000);
      EXPECT_GE(table.capacity(), 1000u);
      table.trim();
      EXPECT_LT(table.capacity(), 2 * coming + 16);
      for (uint32_t i = 0; i < 2000; ++i)
         ASSERT_EQ(table.find({i, {}}), i < coming ? i : Table::none);
      put(table, coming, 0);
      EXPECT_EQ(table.find({coming, {}}), coming);
   }
}

// A member that comes when the holes are closed for it is found again.
TEST(TableTest, memberThatComesWhileHolesAreClosedIsFound) {
   Table table(numberShape);
   std::map<uint64_t, uint16_t> model;
   for (uint32_t i = 0; i < 10000; ++i) {
      put(table, i, static_cast<uint16_t>(i));
      model[i] = static_cast<uint16_t>(i);
      if (i % 3 != 0 && i >= 20) {
         table.erase(table.find({i - 20, {}}));
         model.erase(i - 20);
      }
      ASSERT_NE(table.find({i, {}}), Table::none) << i;
   }
   EXPECT_EQ(contentOf(table), model);
}

TEST(TableTest, membersKeepTheirOrderAndPositionsWithinAGeneration) {
   Table table(numberShape);
   for (uint32_t i = 0; i < 100; ++i)
      put(table, i, 0);
   uint32_t const generation = table.generation();
   for (uint32_t i = 0; i < 20; ++i)
      table.erase(table.find({i, {}}));
   EXPECT_EQ(table.generation(), generation);
   EXPECT_EQ(table.find({20, {}}), 20u);
   EXPECT_FALSE(table.isMember(19));
   for (uint32_t i = 20; i < 99; ++i)
      table.erase(table.find({i, {}}));
   EXPECT_NE(table.generation(), generation); // the holes were closed
   ASSERT_EQ(table.count(), 1u);
   EXPECT_EQ(table.find({99, {}}) + 1, table.end());
}

TEST(TableTest, noTwoTablesShareAGeneration) {
   std::set<uint32_t> generations;
   for (int i = 0; i < 10; ++i)
      generations.insert(Table(numberShape).generation());
   EXPECT_EQ(generations.size(), 10u);
}

TEST(TableTest, keysOfTextAreTheTablesOwnUntilGivenBack) {
   Table table(textShape);
   bool isNew = false;
   for (int i = 0; i < 50; ++i) {
      std::string const key = "key " + std::to_string(i);
      uint32_t const position = table.findOrInsert({0, key}, isNew);
      EXPECT_TRUE(isNew);
      Ordel::Text const value = Ordel::makeText("value " + std::to_string(i));
      std::memcpy(table.value(position), &value, sizeof value);
   }
   uint32_t const position = table.find({0, "key 7"});
   ASSERT_NE(position, Table::none);
   EXPECT_EQ(Ordel::textView(table.keyBits(position)), "key 7");
   Ordel::Text const key = table.eraseAndGiveKey(position);
   EXPECT_EQ(Ordel::textView(key), "key 7");
   Ordel::freeText(key);
   EXPECT_EQ(table.find({0, "key 7"}), Table::none);
   table.erase(table.find({0, "key 8"}));
   EXPECT_EQ(table.find({0, "key 8"}), Table::none);
   EXPECT_NE(table.find({0, "key 9"}), Table::none);
}

} // namespace
