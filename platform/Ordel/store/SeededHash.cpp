#include "Ordel/store/SeededHash.h"
#include "Kem/Assert.h"

#include <cstring>
#include <sys/random.h>

namespace Ordel {

HashSeed HashSeed::drawn() {
   HashSeed seed;
   ssize_t const size = getrandom(&seed, sizeof seed, 0);
   KEM_ASSERT(size == sizeof seed);
   seed.second |= 1; // a product with zero would be zero
   return seed;
}

uint32_t seededHash(std::string_view bytes, HashSeed const& seed) {
   uint64_t hash = bytes.size() ^ seed.first;
   while (!bytes.empty()) {
      uint64_t piece = 0;
      size_t const size = bytes.size() < sizeof piece ? bytes.size() : sizeof piece;
      std::memcpy(&piece, bytes.data(), size);
      hash = foldedProduct(hash ^ piece, seed.second);
      hash += seed.first;
      bytes.remove_prefix(size);
   }
   return seededHash(hash, seed);
}

} // namespace Ordel
