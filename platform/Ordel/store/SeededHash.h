// The hash of keys in the database's tables: keyed by numbers that each process draws for itself.
//
// Names and numbers come from any client. With a hash that is known beforehand one could choose them so that
// they all meet, and every look-up would walk through all of them. Nothing that can be seen follows from
// these hashes: members are in the order in which they came.
#pragma once

#include <cstdint>
#include <string_view>

namespace Ordel {

struct HashSeed {
   uint64_t first;
   uint64_t second;
   static HashSeed drawn(); // from the kernel's random numbers
};
inline HashSeed const theHashSeed = HashSeed::drawn();

// Both halves of the product, folded: each bit of it depends on all bits of both.
inline uint64_t foldedProduct(uint64_t a, uint64_t b) {
   unsigned __int128 const product = static_cast<unsigned __int128>(a) * b;
   return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

inline uint32_t seededHash(uint64_t number, HashSeed const& seed = theHashSeed) {
   // Twice: after one product by a number drawn at random, some rows would still stand in steps.
   uint64_t const once = foldedProduct(number ^ seed.first, seed.second);
   return static_cast<uint32_t>(foldedProduct(once ^ seed.second, 0x9e3779b97f4a7c15u));
}
uint32_t seededHash(std::string_view bytes, HashSeed const& seed = theHashSeed);

} // namespace Ordel
