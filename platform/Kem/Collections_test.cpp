// What both tables promise to those who change them during an iteration, and from destructors.
#include "Kem/Collections.h"
#include "Kem/PtrInterface.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace {

struct SameHash {
   SameHash(uint32_t n) : number(n) {}
   operator uint32_t() const { return number; }
   uint32_t number;
   uint32_t hash() const { return 0; }
   friend auto operator<=>(SameHash const&, SameHash const&) = default;
};

template <class Table_, class Key_>
struct Case {
   using Table = Table_;
   using Key = Key_;
};

template <class C>
class Iteration : public ::testing::Test {
  protected:
   using Table = typename C::Table;
   using Key = typename C::Key;

   static void insert(Table& table, uint32_t key) {
      table.findOrInsert(Key(key), [&] { return static_cast<int>(key); });
   }
   static void fill(Table& table, uint32_t size) {
      for (uint32_t n = 0; n < size; ++n)
         insert(table, n);
   }
   static std::vector<uint32_t> keys(Table const& table) {
      std::vector<uint32_t> all;
      table.forEach([&](Key const& key, int) { all.push_back(key); });
      return all;
   }
   // Walks the table, calls change(position) on each entry, and returns what was visited.
   static std::vector<uint32_t> walk(Table& table, std::function<void(size_t)> const& change) {
      std::vector<uint32_t> visited;
      for (auto at = table.begin(); at; at.next()) {
         EXPECT_EQ(at.value(), static_cast<int>(uint32_t(at.key())));
         visited.push_back(at.key());
         change(visited.size() - 1);
         EXPECT_EQ(uint32_t(at.key()), visited.back()) << "an iterator keeps its entry when that is removed";
         EXPECT_EQ(at.value(), static_cast<int>(visited.back()));
      }
      return visited;
   }
};
using Cases = ::testing::Types<Case<Kem::ValueMap<uint32_t, int>, uint32_t>,
                               Case<Kem::ValueMap<SameHash, int>, SameHash>,
                               Case<Kem::OrderedValueMap<uint32_t, int>, uint32_t>>;
TYPED_TEST_SUITE(Iteration, Cases);

TYPED_TEST(Iteration, withoutChangeVisitsEachEntryOnceInTheSameOrder) {
   for (uint32_t size = 0; size < 60; ++size) {
      typename TestFixture::Table table;
      this->fill(table, size);
      EXPECT_EQ(this->walk(table, [](size_t) {}), this->keys(table));
   }
}

// Every entry removed at every position, tables of every size on both sides of a growth.
TYPED_TEST(Iteration, removalOfAnyEntryVisitsEachRemainingOneOnce) {
   for (uint32_t const size : {1u, 2u, 3u, 4u, 6u, 7u, 12u, 13u}) {
      for (size_t position = 0; position < size; ++position) {
         for (size_t victim = 0; victim < size; ++victim) {
            typename TestFixture::Table table;
            this->fill(table, size);
            auto expected = this->keys(table);
            uint32_t const key = expected[victim];
            auto const visited = this->walk(table, [&](size_t at) {
               if (at == position) {
                  EXPECT_TRUE(table.erase(typename TestFixture::Key(key)));
               }
            });
            if (victim > position) // the others had been visited when they went
               expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(victim));
            EXPECT_EQ(visited, expected) << victim << " removed at " << position << " of " << size;
         }
      }
   }
}

TYPED_TEST(Iteration, removalOfEachEntryAsItIsVisitedVisitsAll) {
   typename TestFixture::Table table;
   this->fill(table, 500); // the hash table shrinks several times on the way
   auto const expected = this->keys(table);
   EXPECT_EQ(this->walk(table, [&](size_t at) { table.erase(expected[at]); }), expected);
   EXPECT_TRUE(table.empty());
}

TYPED_TEST(Iteration, removalOfAllOthersEndsIt) {
   typename TestFixture::Table table;
   this->fill(table, 300);
   auto const all = this->keys(table);
   auto const visited = this->walk(table, [&](size_t) {
      for (uint32_t const key : all)
         if (key != all.front())
            table.erase(key);
   });
   EXPECT_EQ(visited, std::vector<uint32_t>{all.front()});
}

TYPED_TEST(Iteration, clearEndsIt) {
   typename TestFixture::Table table;
   this->fill(table, 10);
   EXPECT_EQ(this->walk(table, [&](size_t) { table.clear(); }).size(), 1u);
}

TYPED_TEST(Iteration, insertionVisitsEachEntryThatStaysOnce) {
   typename TestFixture::Table table;
   this->fill(table, 20);
   auto const before = this->keys(table);
   auto const visited = this->walk(table, [&](size_t at) {
      if (at == 5)
         for (uint32_t n = 1000; n < 1400; ++n) // the hash table grows several times
            this->insert(table, n);
   });
   for (uint32_t const key : before)
      EXPECT_EQ(std::count(visited.begin(), visited.end(), key), 1);
   EXPECT_EQ(std::set<uint32_t>(visited.begin(), visited.end()).size(), visited.size());
}

TYPED_TEST(Iteration, underRandomChangesVisitsWhatStaysOnceAndNothingTwice) {
   std::mt19937 random(3);
   for (int round = 0; round < 300; ++round) {
      typename TestFixture::Table table;
      for (uint32_t n = random() % 40; n > 0; --n)
         this->insert(table, random() % 64);
      auto const before = this->keys(table);
      std::set<uint32_t> touched;
      auto const visited = this->walk(table, [&](size_t) {
         for (uint32_t changes = random() % 4; changes > 0; --changes) {
            uint32_t const key = random() % 64;
            touched.insert(key);
            if (random() % 2)
               table.erase(key);
            else
               this->insert(table, key);
         }
      });
      EXPECT_EQ(std::set<uint32_t>(visited.begin(), visited.end()).size(), visited.size());
      for (uint32_t const key : before)
         if (!touched.contains(key)) {
            EXPECT_EQ(std::count(visited.begin(), visited.end(), key), 1);
         }
   }
}

TYPED_TEST(Iteration, copyOfAnIteratorGoesItsOwnWay) {
   typename TestFixture::Table table;
   this->fill(table, 5);
   auto const all = this->keys(table);
   auto at = table.begin();
   at.next();
   auto copy = at;
   at.next();
   table.erase(copy.key());
   EXPECT_EQ(uint32_t(copy.key()), all[1]);
   copy.next();
   EXPECT_EQ(uint32_t(copy.key()), all[2]);
   copy = table.begin();
   EXPECT_EQ(uint32_t(copy.key()), all[0]);
   EXPECT_EQ(uint32_t(at.key()), all[2]);
}

TYPED_TEST(Iteration, rangeForSeesKeysAndValues) {
   typename TestFixture::Table table;
   this->fill(table, 4);
   int sum = 0;
   for (auto const& [key, value] : table)
      sum += static_cast<int>(uint32_t(key)) * value;
   EXPECT_EQ(sum, 0 + 1 + 4 + 9);
}

// --- Values that come back to their table when they are destroyed.

struct Node : Kem::PtrInterface {
   static inline int alive = 0;
   explicit Node(std::function<void()> last = {}) : last_(std::move(last)) { ++alive; }
   ~Node() override {
      --alive;
      if (last_)
         last_();
   }
   std::function<void()> last_;
};

template <class Table>
class Destruction : public ::testing::Test {
  protected:
   ~Destruction() override { EXPECT_EQ(Node::alive, 0); }
   static void add(Table& table, uint32_t key, std::function<void()> last = {}) {
      table.findOrInsert(key, [&] { return Kem::makePtr<Node>(std::move(last)); });
   }
};
using Tables = ::testing::Types<Kem::HashMap<Node, uint32_t>, Kem::RbTreeMap<Node, uint32_t>>;
TYPED_TEST_SUITE(Destruction, Tables);

TYPED_TEST(Destruction, eraseDestroysWhenTheEntryHasLeftTheTable) {
   TypeParam table;
   bool wasThere = true;
   for (uint32_t n = 1; n < 20; ++n)
      this->add(table, n);
   this->add(table, 0, [&] {
      wasThere = table.find(0) != nullptr;
      table.erase(1);
      for (uint32_t n = 100; n < 200; ++n)
         this->add(table, n);
   });
   EXPECT_TRUE(table.erase(0));
   EXPECT_FALSE(wasThere);
   EXPECT_EQ(table.size(), 118u);
   EXPECT_EQ(table.find(1), nullptr);
   EXPECT_NE(table.find(19), nullptr);
}

TYPED_TEST(Destruction, clearDestroysWhenTheTableIsEmpty) {
   TypeParam table;
   std::vector<size_t> sizes;
   for (uint32_t n = 0; n < 10; ++n)
      this->add(table, n, [&, n] {
         sizes.push_back(table.size());
         table.erase(n ^ 1);
      });
   table.clear();
   EXPECT_EQ(sizes, std::vector<size_t>(10, 0));
}

TYPED_TEST(Destruction, endOfTheTableMayBeSeenByItsValues) {
   int found = 0;
   {
      TypeParam table;
      for (uint32_t n = 0; n < 10; ++n)
         this->add(table, n, [&] {
            for (uint32_t other = 0; other < 10; ++other)
               found += table.find(other) != nullptr;
            table.erase(3);
         });
   }
   EXPECT_EQ(found, 0);
}

TYPED_TEST(Destruction, iteratorMayHoldTheLastReferenceOfItsEntry) {
   TypeParam table;
   for (uint32_t n = 0; n < 20; ++n)
      this->add(table, n);
   std::vector<uint32_t> order;
   table.forEach([&](uint32_t key, auto const&) { order.push_back(key); });
   // The first one takes the third and fourth along when it goes, which is when the iterator steps.
   table.erase(order[0]);
   this->add(table, order[0], [&] {
      table.erase(order[2]);
      table.erase(order[3]);
   });
   std::vector<uint32_t> visited;
   for (auto at = table.begin(); at; at.next()) {
      visited.push_back(at.key());
      if (at.key() == order[0])
         table.erase(order[0]);
   }
   auto expected = order;
   expected.erase(expected.begin() + 2, expected.begin() + 4);
   EXPECT_EQ(visited, expected);
}

TYPED_TEST(Destruction, iteratorFindsTheNextEntryWhenTheLastReferenceThatItDropsMovesAll) {
   TypeParam table;
   std::vector<uint32_t> order;
   for (uint32_t n = 0; n < 5; ++n)
      this->add(table, n);
   table.forEach([&](uint32_t key, auto const&) { order.push_back(key); });
   table.erase(order[0]);
   this->add(table, order[0], [&] {
      for (uint32_t n = 1000; n < 1200; ++n)
         this->add(table, n);
   });
   std::vector<uint32_t> visited;
   for (auto at = table.begin(); at; at.next()) {
      if (at.key() < 1000)
         visited.push_back(at.key());
      if (at.key() == order[0])
         table.erase(order[0]);
   }
   EXPECT_EQ(visited, order);
}

TYPED_TEST(Destruction, iteratorHoldsACountedReferenceOfItsEntry) {
   TypeParam table;
   this->add(table, 1);
   {
      auto const at = table.begin();
      table.erase(1);
      EXPECT_EQ(Node::alive, 1);
      EXPECT_EQ(at.value()->references(), 1u);
   }
   EXPECT_EQ(Node::alive, 0);
}

} // namespace
