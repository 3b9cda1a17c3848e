// The members of one collection: key and value packed side by side, found through an open-addressed index.
//
// Members stand in the order in which they came; a removal leaves a hole that is closed later, all at once.
// So a position that a reader has reached stays good as long as the generation is the same, and what comes
// later is behind it. The index holds positions in two bytes while they fit, in four beyond; up to eight
// members have none. Sizes are known at run time only. Owns the texts of keys and values, not the entities
// that values may point at. Private to the store.
#pragma once

#include "Ordel/store/SeededHash.h"
#include "Ordel/store/Values.h"

#include <cstdint>
#include <string_view>

namespace Ordel {

struct TableShape {
   uint8_t keySize;
   bool isKeyText;
   uint8_t valueSize;
   bool isValueText;
};

// What a key is looked up by: its kept bytes with zeros above, or the wire bytes of a text.
struct KeyProbe {
   uint64_t bits = 0;
   std::string_view text;
};

class Table {
  public:
   static constexpr uint32_t none = UINT32_MAX;

   explicit Table(TableShape shape);
   ~Table();
   Table(Table const&) = delete;
   Table& operator=(Table const&) = delete;

   uint32_t count() const { return used_ - holeCount_; }
   // All members are below it.
   uint32_t end() const { return used_; }
   bool isMember(uint32_t position) const { return !holes_ || !isHole(position); }
   // Different in every table, and after every change of positions.
   uint32_t generation() const { return generation_; }

   uint32_t find(KeyProbe const& key) const; // none: not there
   // The value of a new member is all zeros where it is a text, else undefined. `expected` is how many members
   // may come, this one among them: a table that has to grow does it once for them, up to maxExpected. Who
   // expects some calls `trim` when no more come.
   static constexpr uint32_t maxExpected = 1024;
   uint32_t findOrInsert(KeyProbe const& key, bool& isNew, uint32_t expected = 1);
   // Gives back the room of many more members than there are.
   void trim() {
      if (capacity_ > 2 * used_ + 16) [[unlikely]]
         shrink();
   }
   uint32_t capacity() const { return capacity_; } // members that it has room for

   // The text of the value is freed; that of the key is freed or given back.
   void erase(uint32_t position);
   Text eraseAndGiveKey(uint32_t position);

   char const* key(uint32_t position) const { return slot(position); }
   uint64_t keyBits(uint32_t position) const { return load(slot(position)); }
   char* value(uint32_t position) const { return slot(position) + shape_.keySize; }

  private:
   char* slot(uint32_t position) const { return slots_ + size_t{position} * slotSize_; }
   bool isIndexFull() const { return mask_ - used_ < mask_ / 4; } // more than three quarters
   bool isHole(uint32_t position) const { return holes_[position / 8] >> (position % 8) & 1; }
   uint64_t load(char const* key) const { return loadBytes(key, shape_.keySize); }
   uint32_t hash(KeyProbe const& key) const {
      if (shape_.isKeyText)
         return seededHash(key.text);
      return seededHash(key.bits);
   }
   uint32_t hashAt(uint32_t position) const;
   bool isEqual(uint32_t position, KeyProbe const& key) const {
      uint64_t const bits = load(slot(position));
      return shape_.isKeyText ? textView(bits) == key.text : bits == key.bits;
   }
   uint32_t indexed(uint32_t at) const {
      return isWide_ ? static_cast<uint32_t*>(index_)[at] : static_cast<uint16_t*>(index_)[at];
   }
   void indexIs(uint32_t at, uint32_t entry) {
      if (isWide_)
         static_cast<uint32_t*>(index_)[at] = entry;
      else
         static_cast<uint16_t*>(index_)[at] = static_cast<uint16_t>(entry);
   }
   uint32_t placeFor(uint32_t hash) const;
   bool makeRoom(uint32_t expected);
   void closeHoles();
   void shrink();
   void buildIndex();
   void leaveIndex(uint32_t position);
   void leave(uint32_t position);

   TableShape shape_;
   uint16_t slotSize_;
   bool isWide_ = false;
   uint32_t used_ = 0; // positions, holes included
   uint32_t capacity_ = 0;
   uint32_t holeCount_ = 0;
   uint32_t mask_ = 0; // of the index
   uint32_t generation_;
   char* slots_ = nullptr;
   void* index_ = nullptr;    // position + 1, 0 for a free place
   uint8_t* holes_ = nullptr; // a bit for each position of the capacity, from the first hole on
};

} // namespace Ordel
