#include "Ordel/store/Table.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <new>

namespace Ordel {

namespace {

constexpr uint32_t maxUnindexed = 8;

uint32_t nextGeneration() {
   static std::atomic<uint32_t> last{0};
   return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void* allocated(void* memory) {
   if (!memory)
      throw std::bad_alloc();
   return memory;
}

} // namespace

Table::Table(TableShape shape)
    : shape_(shape), slotSize_(static_cast<uint16_t>(shape.keySize + shape.valueSize)),
      generation_(nextGeneration()) {}

Table::~Table() {
   if (shape_.isKeyText || shape_.isValueText) {
      for (uint32_t i = 0; i < used_; ++i) {
         if (!isMember(i))
            continue;
         Text text;
         if (shape_.isKeyText)
            freeText(load(slot(i)));
         if (shape_.isValueText) {
            std::memcpy(&text, value(i), 8);
            freeText(text);
         }
      }
   }
   std::free(slots_);
   std::free(index_);
   std::free(holes_);
}

uint32_t Table::hashAt(uint32_t position) const {
   uint64_t const bits = load(slot(position));
   return shape_.isKeyText ? textHash(bits) : hash({bits, {}});
}

uint32_t Table::find(KeyProbe const& key) const {
   if (!index_) {
      for (uint32_t i = 0; i < used_; ++i)
         if (isMember(i) && isEqual(i, key))
            return i;
      return none;
   }
   for (uint32_t at = hash(key) & mask_;; at = (at + 1) & mask_) {
      uint32_t const entry = indexed(at);
      if (entry == 0)
         return none;
      if (isEqual(entry - 1, key))
         return entry - 1;
   }
}

uint32_t Table::findOrInsert(KeyProbe const& key, bool& isNew, uint32_t expected) {
   isNew = false;
   uint32_t hashed = 0, at = 0; // in the index
   if (!index_) {
      if (uint32_t const found = find(key); found != none)
         return found;
   } else {
      hashed = hash(key);
      for (at = hashed & mask_;; at = (at + 1) & mask_) {
         uint32_t const entry = indexed(at);
         if (entry == 0)
            break;
         if (isEqual(entry - 1, key))
            return entry - 1;
      }
   }
   isNew = true;
   // The text first: when memory runs out, the table is as before.
   uint64_t const kept = shape_.isKeyText ? makeText(key.text) : key.bits;
   if (used_ == capacity_ && makeRoom(expected) && index_)
      at = placeFor(hashed);
   uint32_t const position = used_++;
   copyBytes(slot(position), &kept, shape_.keySize);
   if (shape_.isValueText)
      std::memset(value(position), 0, sizeof(Text));
   if (index_ && !isIndexFull())
      indexIs(at, position + 1);
   else if (used_ > maxUnindexed)
      buildIndex();
   return position;
}

// The free place of the index where a key of this hash belongs.
uint32_t Table::placeFor(uint32_t hash) const {
   uint32_t at = hash & mask_;
   while (indexed(at) != 0)
      at = (at + 1) & mask_;
   return at;
}

// True when members have moved, and with them the index.
bool Table::makeRoom(uint32_t expected) {
   if (holeCount_ > used_ / 4) {
      closeHoles();
      return true;
   }
   uint32_t const more = std::max({4u, std::min(capacity_ / 4, 1u << 20), std::min(expected, maxExpected)});
   uint32_t const capacity = capacity_ + more;
   slots_ = static_cast<char*>(allocated(std::realloc(slots_, size_t{capacity} * slotSize_)));
   if (holes_) {
      size_t const before = (capacity_ + 7) / 8, after = (capacity + 7) / 8;
      holes_ = static_cast<uint8_t*>(allocated(std::realloc(holes_, after)));
      std::memset(holes_ + before, 0, after - before);
   }
   capacity_ = capacity;
   return false;
}

void Table::closeHoles() {
   uint32_t to = 0;
   for (uint32_t from = 0; from < used_; ++from)
      if (isMember(from))
         std::memmove(slot(to++), slot(from), slotSize_);
   used_ = to;
   holeCount_ = 0;
   std::free(holes_);
   holes_ = nullptr;
   generation_ = nextGeneration();
   if (used_ < capacity_ / 2)
      shrink();
   else if (index_)
      buildIndex();
}

void Table::shrink() {
   capacity_ = used_ + used_ / 4 + 4;
   slots_ = static_cast<char*>(allocated(std::realloc(slots_, size_t{capacity_} * slotSize_)));
   if (index_)
      buildIndex();
}

// Twice the members at least, so that it lasts until half as many again have come; and room for those that the
// capacity is meant for.
void Table::buildIndex() {
   uint32_t const places =
       std::bit_ceil(std::max({used_ * 2, maxUnindexed * 2, capacity_ + capacity_ / 3 + 2}));
   bool const isWide = places > 65536;
   void* const index = allocated(std::calloc(places, isWide ? 4 : 2));
   std::free(index_);
   index_ = index;
   isWide_ = isWide;
   mask_ = places - 1;
   for (uint32_t i = 0; i < used_; ++i) {
      if (isMember(i))
         indexIs(placeFor(hashAt(i)), i + 1);
   }
}

// Takes the place out and moves up what was probed past it.
void Table::leaveIndex(uint32_t position) {
   uint32_t at = hashAt(position) & mask_;
   while (indexed(at) != position + 1)
      at = (at + 1) & mask_;
   for (uint32_t next = (at + 1) & mask_; indexed(next) != 0; next = (next + 1) & mask_) {
      uint32_t const home = hashAt(indexed(next) - 1) & mask_;
      if (((next - home) & mask_) < ((next - at) & mask_))
         continue; // stands between its home and the gap
      indexIs(at, indexed(next));
      at = next;
   }
   indexIs(at, 0);
}

void Table::leave(uint32_t position) {
   if (index_)
      leaveIndex(position);
   if (shape_.isValueText) {
      Text text;
      std::memcpy(&text, value(position), 8);
      freeText(text);
   }
   if (position + 1 == used_) {
      --used_;
      while (used_ > 0 && !isMember(used_ - 1)) {
         --used_;
         holes_[used_ / 8] = static_cast<uint8_t>(holes_[used_ / 8] & ~(1 << used_ % 8));
         --holeCount_;
      }
      return;
   }
   if (!holes_)
      holes_ = static_cast<uint8_t*>(allocated(std::calloc((capacity_ + 7) / 8, 1)));
   holes_[position / 8] = static_cast<uint8_t>(holes_[position / 8] | 1 << position % 8);
   ++holeCount_;
   if (holeCount_ > 64 && holeCount_ > used_ / 4 * 3)
      closeHoles();
}

void Table::erase(uint32_t position) {
   Text const key = eraseAndGiveKey(position);
   if (shape_.isKeyText)
      freeText(key);
}

Text Table::eraseAndGiveKey(uint32_t position) {
   uint64_t const key = load(slot(position));
   leave(position);
   return key;
}

} // namespace Ordel
