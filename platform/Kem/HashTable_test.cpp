#include "Kem/Collections.h"
#include "Kem/HashTable.h"
#include "Kem/String.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

namespace {

using Kem::HashTable;
using Kem::String8;

// All of them meet in one place.
struct Clash {
   uint32_t number;
   uint32_t hash() const { return 0xffffffff; } // whose home is the last one
   friend auto operator<=>(Clash const&, Clash const&) = default;
};
// Pairs of keys whose hashes differ in the top bit only, which the order of the table doesn't hold.
struct TopBit {
   uint32_t number;
   uint32_t hash() const { return (number >> 1) | number << 31; }
   friend auto operator<=>(TopBit const&, TopBit const&) = default;
};
// Multiples of 65536: as numbers without a hash of their own they share their low bits.
enum class Sparse : uint32_t {};

template <class Key>
Key keyOf(uint32_t n) {
   if constexpr (std::is_same_v<Key, String8>)
      return String8("Ethernet" + std::to_string(n));
   else if constexpr (std::is_same_v<Key, Sparse>)
      return Sparse(n << 16);
   else if constexpr (std::is_same_v<Key, uint64_t>)
      return uint64_t(n) << 32;
   else
      return Key{n};
}

template <class Key>
struct InTableOrder {
   bool operator()(Key const& a, Key const& b) const {
      auto const orderA = Kem::reverseBits(Kem::hashOf(a)) | 1, orderB = Kem::reverseBits(Kem::hashOf(b)) | 1;
      return orderA != orderB ? orderA < orderB : a < b;
   }
};

template <class Key>
class HashTableTest : public ::testing::Test {};
using Keys = ::testing::Types<uint32_t, uint64_t, String8, Clash, TopBit, Sparse>;
TYPED_TEST_SUITE(HashTableTest, Keys);

// The model is a std::map in the order that the table promises.
TYPED_TEST(HashTableTest, doesAsAMapUnderRandomOperations) {
   std::mt19937 random(7);
   HashTable<TypeParam, int> table;
   std::map<TypeParam, int, InTableOrder<TypeParam>> model;
   uint32_t universe = 8;
   for (int step = 0; step < 12000; ++step) {
      if (step % 1000 == 0)
         universe = 1u << random() % 9; // grows and shrinks in turn
      auto const key = keyOf<TypeParam>(random() % universe);
      switch (random() % 20) {
      case 0:
         if (random() % 20 == 0) {
            table.clear();
            model.clear();
         }
         break;
      case 1 ... 8: {
         auto const before = table.version();
         bool const isErased = table.erase(key);
         ASSERT_EQ(isErased, model.erase(key) == 1);
         ASSERT_EQ(table.version() != before, isErased);
         break;
      }
      default: {
         auto const before = table.version();
         auto const [value, isNew] = table.findOrInsert(key, [&] { return step; });
         ASSERT_EQ(isNew, model.emplace(key, step).second);
         ASSERT_EQ(*value, model[key]);
         ASSERT_EQ(table.version() != before, isNew);
      }
      }
      ASSERT_EQ(table.size(), model.size());
      auto const* found = table.find(key);
      ASSERT_EQ(found != nullptr, model.contains(key));
      if (step % 16 == 0) {
         auto expected = model.begin();
         table.forEach([&](TypeParam const& k, int v) {
            ASSERT_NE(expected, model.end());
            ASSERT_TRUE(k == expected->first && v == expected->second);
            ++expected;
         });
         ASSERT_EQ(expected, model.end());
      }
   }
}

TYPED_TEST(HashTableTest, iterationOrderDoesNotDependOnTheSizeOfTheTable) {
   HashTable<TypeParam, int> grown, small;
   for (uint32_t n = 0; n < 400; ++n)
      grown.findOrInsert(keyOf<TypeParam>(n), [] { return 0; });
   for (uint32_t n = 40; n < 400; ++n)
      grown.erase(keyOf<TypeParam>(n));
   for (uint32_t n = 40; n-- > 0;)
      small.findOrInsert(keyOf<TypeParam>(n), [] { return 0; });
   std::vector<TypeParam> a, b;
   grown.forEach([&](auto const& k, int) { a.push_back(k); });
   small.forEach([&](auto const& k, int) { b.push_back(k); });
   EXPECT_EQ(a, b);
   EXPECT_EQ(a.size(), 40u);
}

TEST(HashTable, emptyOneHasNoArray) {
   HashTable<uint32_t, int> table;
   EXPECT_EQ(table.memoryBytes(), 0u);
   EXPECT_EQ(table.find(3), nullptr);
   EXPECT_FALSE(table.erase(3));
   EXPECT_FALSE(table.begin().valid());
   table.clear();
   EXPECT_TRUE(table.empty());
}

TEST(HashTable, capacityIsAPowerOfTwoBetweenTheSizeAndEightTimesIt) {
   HashTable<uint32_t, uint32_t> table;
   size_t const slot = 12;
   auto const check = [&] {
      size_t const slots = table.memoryBytes() / slot;
      EXPECT_GT(slots, table.size());
      size_t power = 1;
      while (power * 2 <= slots)
         power *= 2;
      EXPECT_LT(slots - power, 70u) << "the room behind the last home";
      EXPECT_LE(power, std::max<size_t>(8, table.size() * 8));
   };
   for (uint32_t n = 0; n < 5000; ++n) {
      table.findOrInsert(n, [&] { return n; });
      check();
   }
   for (uint32_t n = 0; n < 5000; ++n) {
      table.erase(n);
      if (!table.empty())
         check();
   }
   EXPECT_LE(table.memoryBytes(), 8 * slot + 4 * slot);
}

TEST(HashTable, memoryOfEqualHashesIsBoundedBySizeToo) {
   HashTable<Clash, int> table;
   for (uint32_t n = 0; n < 1000; ++n)
      table.findOrInsert(Clash{n * 7919 % 1000}, [] { return 0; });
   EXPECT_EQ(table.size(), 1000u);
   EXPECT_LE(table.memoryBytes(), 12u * (2048 + 2048));
   for (uint32_t n = 0; n < 1000; ++n)
      ASSERT_NE(table.find(Clash{n}), nullptr);
}

TEST(HashTable, smallConsecutiveNumbersSpreadEvenly) {
   // 4094 VLANs: the first half of the order holds the even ones, the second half the odd ones.
   HashTable<uint16_t, int> table;
   for (uint16_t n = 1; n < 4095; ++n)
      table.findOrInsert(n, [] { return 0; });
   size_t position = 0;
   table.forEach([&](uint16_t key, int) { EXPECT_EQ(key % 2, position++ < 2047 ? 0 : 1); });
}

TEST(HashTable, wideNumbersCountWithAllTheirBits) {
   EXPECT_NE(Kem::hashOf(uint64_t(1) << 32), Kem::hashOf(uint64_t(2) << 32));
   EXPECT_NE(Kem::hashOf(uint64_t(1) << 32), Kem::hashOf(uint64_t(1)));
}

TEST(HashTable, numbersThatDifferInHighBitsOnlyGetHomesOfTheirOwn) {
   for (int const shift : {0, 6, 12, 14, 16, 20}) {
      std::set<uint32_t> homes32, homes64;
      for (uint32_t n = 0; n < 1024; ++n) {
         homes32.insert(Kem::reverseBits(Kem::hashOf(n << shift)) >> 22);
         homes64.insert(Kem::reverseBits(Kem::hashOf(uint64_t(n) << 2 * shift)) >> 22);
      }
      EXPECT_GT(homes32.size(), 400u) << shift; // thrown at random, 1024 keys meet about 647 of 1024 homes
      EXPECT_GT(homes64.size(), 400u) << 2 * shift;
   }
}

TEST(HashTable, valueFoundKeepsItsPlaceWhileOthersAreLookedUp) {
   HashTable<uint32_t, int> table;
   for (uint32_t n = 0; n < 3; ++n) // the array of four is full to its bound
      table.findOrInsert(n, [] { return 1; });
   int* const value = table.find(1);
   for (uint32_t n = 0; n < 3; ++n)
      EXPECT_FALSE(table.findOrInsert(n, [] { return 2; }).second);
   EXPECT_EQ(table.find(1), value) << "a find must not grow the table";
}

TEST(HashTable, makeThatThrowsLeavesTheTableAsItWas) {
   HashTable<uint32_t, int> table;
   for (uint32_t n = 0; n < 48; ++n) {
      EXPECT_THROW(table.findOrInsert(n, []() -> int { throw std::runtime_error("no"); }),
                   std::runtime_error);
      EXPECT_EQ(table.find(n), nullptr);
      table.findOrInsert(n, [&] { return static_cast<int>(n); });
   }
   for (uint32_t n = 0; n < 48; ++n)
      EXPECT_EQ(*table.find(n), static_cast<int>(n));
   EXPECT_EQ(table.size(), 48u);
}

TEST(HashTable, makeMayInsertOthers) {
   HashTable<uint32_t, int> table;
   auto const [value, isNew] = table.findOrInsert(1000, [&] {
      for (uint32_t n = 0; n < 100; ++n)
         table.findOrInsert(n, [] { return 1; });
      return 2;
   });
   EXPECT_TRUE(isNew);
   EXPECT_EQ(*value, 2);
   EXPECT_EQ(table.size(), 101u);
   EXPECT_EQ(*table.find(1000), 2);
   EXPECT_EQ(*table.find(99), 1);
}

TEST(HashTable, makeThatInsertsItsOwnKeyLeavesOneEntry) {
   HashTable<uint32_t, int> table;
   auto const [value, isNew] = table.findOrInsert(5, [&] {
      table.findOrInsert(5, [] { return 1; });
      return 2;
   });
   EXPECT_FALSE(isNew);
   EXPECT_EQ(*value, 1);
   EXPECT_EQ(table.size(), 1u);
}

TEST(HashTable, keyMayBeTheOneThatStandsInTheTable) {
   HashTable<String8, String8> table;
   for (int n = 0; n < 48; ++n)
      table.findOrInsert(String8("key" + std::to_string(n)),
                         [&] { return String8("next" + std::to_string(n)); });
   // Inserts, by references to what is in the slots that the insertion moves.
   for (int n = 0; n < 48; ++n) {
      String8 const& inside = *table.find(String8("key" + std::to_string(n)));
      table.findOrInsert(inside, [&] { return inside; });
   }
   for (int n = 0; n < 48; ++n)
      EXPECT_EQ(*table.find(String8("next" + std::to_string(n))), String8("next" + std::to_string(n)));
   String8 const* inside = nullptr;
   table.forEach([&](String8 const& key, String8 const&) { inside = &key; });
   EXPECT_TRUE(table.erase(*inside));
   EXPECT_EQ(table.size(), 95u);
}

TEST(HashTable, moveLeavesAnEmptyTable) {
   HashTable<uint32_t, int> a;
   a.findOrInsert(1, [] { return 1; });
   HashTable<uint32_t, int> b = std::move(a);
   EXPECT_TRUE(a.empty()); // NOLINT(bugprone-use-after-move): promised
   EXPECT_EQ(b.size(), 1u);
   a.findOrInsert(2, [] { return 2; }); // NOLINT(bugprone-use-after-move)
   b = std::move(a);
   EXPECT_EQ(b.find(1), nullptr);
   EXPECT_EQ(*b.find(2), 2);
   EXPECT_TRUE(a.empty()); // NOLINT(bugprone-use-after-move)
}

TEST(HashTable, iteratorNoticesThatItsTableWasReplaced) {
   HashTable<uint32_t, int> a, b;
   for (uint32_t n = 0; n < 100; ++n)
      a.findOrInsert(n, [] { return 1; });
   b.findOrInsert(0, [] { return 2; });
   auto at = a.begin();
   a = std::move(b);
   at.next();
   EXPECT_FALSE(at.valid()); // only 0 is there, and it has been passed
}

} // namespace
