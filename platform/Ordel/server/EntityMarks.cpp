#include "Ordel/server/EntityMarks.h"

#include "Kem/Assert.h"

#include <bit>
#include <cstring>
#include <functional>
#include <utility>

namespace Ordel {

namespace {

uint64_t word(std::string_view key) {
   uint64_t bits = 0;
   std::memcpy(&bits, key.data(), key.size());
   return bits;
}

} // namespace

std::string_view EntityMarks::key(Mark const& mark) const {
   if (mark.keySize != isLong)
      return {reinterpret_cast<char const*>(&mark.keyWord), mark.keySize};
   return std::string_view(longKeys_).substr(mark.keyWord >> 32, mark.keyWord & UINT32_MAX);
}

size_t EntityMarks::hash(unsigned attribute, std::string_view key) {
   uint64_t bits = key.size() <= sizeof bits ? word(key) : std::hash<std::string_view>()(key);
   bits = (bits ^ attribute) * 0x9e3779b97f4a7c15u; // 2^64 divided by the golden ratio
   return static_cast<size_t>(bits ^ bits >> 32);
}

bool EntityMarks::isOf(Mark const& mark, unsigned attribute, std::string_view wanted) const {
   return mark.attribute == attribute && key(mark) == wanted;
}

// The place that holds the position, which must be in the index.
size_t EntityMarks::placeOf(size_t position) const {
   Mark const& mark = marks_[position];
   size_t at = hash(mark.attribute, key(mark)) & (index_.size() - 1);
   while (index_[at] != position + 1)
      at = (at + 1) & (index_.size() - 1);
   return at;
}

EntityMarks::Mark* EntityMarks::find(unsigned attribute, std::string_view wanted) {
   if (index_.empty()) {
      for (Mark& mark : marks_)
         if (isOf(mark, attribute, wanted))
            return &mark;
      return nullptr;
   }
   size_t const mask = index_.size() - 1;
   for (size_t at = hash(attribute, wanted) & mask; index_[at] != free; at = (at + 1) & mask)
      if (Mark& mark = marks_[index_[at] - 1]; isOf(mark, attribute, wanted))
         return &mark;
   return nullptr;
}

EntityMarks::Mark& EntityMarks::findOrAdd(unsigned attribute, std::string_view wanted, bool& isNew) {
   Mark* const standing = find(attribute, wanted);
   isNew = !standing;
   if (standing)
      return *standing;
   Mark& mark = marks_.emplace_back();
   mark.attribute = static_cast<uint8_t>(attribute);
   if (wanted.size() <= sizeof mark.keyWord) {
      mark.keySize = static_cast<uint8_t>(wanted.size());
      mark.keyWord = word(wanted);
   } else {
      mark.keySize = isLong;
      mark.keyWord = uint64_t{longKeys_.size()} << 32 | wanted.size();
      longKeys_ += wanted;
      KEM_ASSERT(longKeys_.size() <= UINT32_MAX);
   }
   if (marks_.size() > unindexedCount && marks_.size() * 2 > index_.size()) {
      buildIndex();
   } else if (!index_.empty()) {
      size_t const mask = index_.size() - 1;
      size_t at = hash(attribute, wanted) & mask;
      while (index_[at] != free)
         at = (at + 1) & mask;
      index_[at] = static_cast<uint32_t>(marks_.size());
   }
   return mark;
}

void EntityMarks::remove(Mark& mark) {
   auto const position = static_cast<size_t>(&mark - marks_.data());
   size_t const last = marks_.size() - 1;
   if (!index_.empty()) {
      size_t const hole = placeOf(position);
      if (position != last)
         index_[placeOf(last)] = static_cast<uint32_t>(position + 1);
      // Closes the hole: what is behind it moves up where it still can be found.
      size_t const mask = index_.size() - 1;
      size_t free_ = hole;
      for (size_t at = (hole + 1) & mask; index_[at] != free; at = (at + 1) & mask) {
         // The last mark still is at its old position.
         Mark const& other = index_[at] == position + 1 ? marks_[last] : marks_[index_[at] - 1];
         size_t const home = hash(other.attribute, key(other)) & mask;
         if (((at - home) & mask) >= ((at - free_) & mask)) {
            index_[free_] = index_[at];
            free_ = at;
         }
      }
      index_[free_] = free;
   }
   if (mark.keySize == isLong)
      longKeyGarbage_ += mark.keyWord & UINT32_MAX;
   if (position != last)
      marks_[position] = std::move(marks_[last]);
   marks_.pop_back();
   if (longKeyGarbage_ > keptGarbage && longKeyGarbage_ > longKeys_.size() / 2)
      compactKeys();
}

void EntityMarks::buildIndex() {
   index_.assign(std::bit_ceil(marks_.size() * 4), free);
   size_t const mask = index_.size() - 1;
   for (size_t i = 0; i < marks_.size(); ++i) {
      size_t at = hash(marks_[i].attribute, key(marks_[i])) & mask;
      while (index_[at] != free)
         at = (at + 1) & mask;
      index_[at] = static_cast<uint32_t>(i + 1);
   }
}

void EntityMarks::compactKeys() {
   std::string keys;
   for (Mark& mark : marks_) {
      if (mark.keySize != isLong)
         continue;
      std::string_view const bytes = key(mark);
      mark.keyWord = uint64_t{keys.size()} << 32 | bytes.size();
      keys += bytes;
   }
   longKeys_ = std::move(keys);
   longKeyGarbage_ = 0;
}

size_t EntityMarks::totalCount() const {
   auto count = static_cast<size_t>(std::popcount(scalars_)) + marks_.size();
   for (Mark const& mark : marks_)
      if (mark.below)
         count += mark.below->totalCount();
   return count;
}

} // namespace Ordel
