#include "Ordel/store/SeededHash.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using Ordel::HashSeed;
using Ordel::seededHash;

constexpr HashSeed seed = {0x243f6a8885a308d3u, 0x13198a2e03707345u};
constexpr uint32_t places = 4096;

// How many of so many places are taken; by chance it would be 63 of a hundred when there are as many keys.
template <class Keys>
size_t placesTaken(Keys const& keys, HashSeed const& by) {
   std::set<uint32_t> taken;
   for (auto const& key : keys)
      taken.insert(seededHash(key, by) % places);
   return taken.size();
}

TEST(SeededHashTest, equalKeysHaveEqualHashesInOneProcess) {
   EXPECT_EQ(seededHash("Ethernet3/1"), seededHash(std::string("Ethernet3/1")));
   EXPECT_EQ(seededHash(uint64_t(77)), seededHash(uint64_t(77)));
}

TEST(SeededHashTest, lengthCounts) {
   std::string const zeros(20, '\0');
   std::set<uint32_t> hashes;
   for (size_t size = 0; size <= zeros.size(); ++size)
      hashes.insert(seededHash(std::string_view(zeros).substr(0, size), seed));
   EXPECT_EQ(hashes.size(), zeros.size() + 1);
}

TEST(SeededHashTest, rowsOfNumbersAndNamesSpread) {
   for (HashSeed const& by : {seed, HashSeed::drawn()}) {
      for (unsigned shift : {0, 1, 8, 16, 32, 47}) {
         std::vector<uint64_t> row;
         for (uint64_t i = 0; i < places; ++i)
            row.push_back(i << shift);
         EXPECT_GT(placesTaken(row, by), places / 2) << shift;
      }
      std::vector<std::string> names;
      for (unsigned i = 0; i < places; ++i)
         names.push_back("Port-Channel" + std::to_string(i));
      EXPECT_GT(placesTaken(names, by), places / 2);
   }
}

// Keys that were looked out so that they meet under one seed are scattered under another.
TEST(SeededHashTest, whatMeetsUnderOneSeedDoesNotUnderAnother) {
   std::vector<uint64_t> numbers;
   for (uint64_t i = 0; numbers.size() < 64; ++i)
      if (seededHash(i, seed) % places == 0)
         numbers.push_back(i);
   std::vector<std::string> names;
   for (unsigned i = 0; names.size() < 64; ++i)
      if (std::string name = "g" + std::to_string(i); seededHash(name, seed) % places == 0)
         names.push_back(std::move(name));
   EXPECT_EQ(placesTaken(numbers, seed), 1u);
   EXPECT_EQ(placesTaken(names, seed), 1u);
   HashSeed const other = HashSeed::drawn();
   EXPECT_GT(placesTaken(numbers, other), 48u);
   EXPECT_GT(placesTaken(names, other), 48u);
   EXPECT_GT(placesTaken(names, Ordel::theHashSeed), 48u) << "each process has a seed of its own";
}

} // namespace
