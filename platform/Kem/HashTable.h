// The table under every hashed collection: open addressing, sorted.
//
// The home of an entry is the high bits of its bit-reversed hash, and the entries are sorted by that
// reversed hash (ties by key), each at its home or behind it with no gap between. Two things follow.
// Iteration order does not depend on the size of the table: growing and shrinking keep it. And a lookup,
// found or not, ends at the first greater entry. Reversal spreads small consecutive numbers evenly
// over the table; the low bits of a hash must be as good as its high ones.
//
// Entries that come in iteration order, as from another table with the same keys, go right behind the last
// one, without a look at the others: all of them would crowd the low end of a table that is still small.
//
// An iterator remembers its entry and the table's version of change. When the version has moved it finds its
// place again by key, so any entry may be removed or added during iteration: each entry that stays is visited
// once. Memory is one array; an entry costs 4 bytes beside key and value. A table that grows is between 3/8
// and 3/4 full; one that loses entries is halved when it is less than 1/8 full.
//
// Keys and values may come back to the table from their constructors and destructors. What find() points to
// stays valid until the next insertion or removal.
#pragma once

#include "Kem/Assert.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <optional>
#include <utility>

namespace Kem {

// Hash of a key: its own hash(), or made of the number itself. Numbers of two bytes are theirs: they come in
// rows. Wider ones are often packed of fields, and may differ in the high bits only.
template <class Key>
uint32_t hashOf(Key const& key) {
   if constexpr (requires { key.hash(); }) {
      return key.hash();
   } else if constexpr (sizeof(Key) <= sizeof(uint16_t)) {
      return static_cast<uint32_t>(key);
   } else {
      // The middle of a product with the golden ratio: each of its bits depends on
      // all bits of the number below it.
      uint64_t const wide = static_cast<uint64_t>(key);
      return static_cast<uint32_t>((wide ^ wide >> 32) * 0x9e3779b97f4a7c15u >> 32);
   }
}

[[gnu::always_inline]] inline uint32_t reverseBits(uint32_t v) {
   v = __builtin_bswap32(v);
   v = ((v & 0x0f0f0f0fu) << 4) | ((v >> 4) & 0x0f0f0f0fu);
   v = ((v & 0x33333333u) << 2) | ((v >> 2) & 0x33333333u);
   return ((v & 0x55555555u) << 1) | ((v >> 1) & 0x55555555u);
}

template <class Key, class Value>
class HashTable {
  public:
   struct Entry {
      Key key;
      Value value;
   };

   HashTable() noexcept = default;
   HashTable(HashTable&& other) noexcept {
      swapEntries(other);
      ++other.version_;
   }
   HashTable& operator=(HashTable&& other) noexcept {
      HashTable old(std::move(*this)); // destroyed when all is in place
      swapEntries(other);
      ++other.version_;
      return *this;
   }
   ~HashTable() { clear(); }

   size_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   // Moves with every insertion and removal.
   uint32_t version() const { return version_; }
   // Bytes of the array, used and free.
   size_t memoryBytes() const { return slotCount() * sizeof(Slot); }

   Value* find(Key const& key) {
      Slot* slot = findSlot(orderOf(key), key);
      return slot ? &slot->entry().value : nullptr;
   }
   Value const* find(Key const& key) const { return const_cast<HashTable*>(this)->find(key); }

   // The value of the key, made by `make()` where there is none; the flag says that it was made. `make` may
   // change the table; when it inserts that key itself, what it returned is dropped.
   template <class Make>
   std::pair<Value*, bool> findOrInsert(Key const& key, Make&& make) {
      uint32_t const order = orderOf(key);
      size_t at = lowerBound(order, key);
      if (isAt(at, order, key))
         return {&slots_[at].entry().value, false};
      // Made before anything moves: `make` may throw or come back here, and `key` may be in a slot.
      uint32_t const versionBefore = version_;
      Entry made{key, make()};
      if (size_ >= maxSize())
         resize(bits_ < 0 ? 2 : bits_ + 1, slackBits_);
      if (version_ != versionBefore) {
         at = lowerBound(order, made.key);
         if (isAt(at, order, made.key))
            return {&slots_[at].entry().value, false};
      }
      // The run from here to the first free slot moves up by one.
      size_t gap = at;
      while (gap < slotCount() && slots_[gap].order != 0)
         ++gap;
      if (gap == slotCount()) {
         // Only a run that reaches the end of the array comes here: more room behind the last home.
         resize(bits_, slackBits_ + 1);
         at = lowerBound(order, made.key);
         gap = at;
         while (slots_[gap].order != 0)
            ++gap;
      }
      size_t const lastMoved = gap;
      for (; gap > at; --gap)
         slots_[gap].take(slots_[gap - 1]);
      new (slots_[at].memory) Entry(std::move(made));
      slots_[at].order = order;
      end_ = std::max(end_, static_cast<uint32_t>(lastMoved + 1));
      ++size_;
      ++version_;
      return {&slots_[at].entry().value, true};
   }

   bool erase(Key const& key) {
      Slot* slot = findSlot(orderOf(key), key);
      if (!slot)
         return false;
      // The entry leaves the table before it is destroyed: its destructor may come back here.
      [[maybe_unused]] Entry removed = std::move(slot->entry());
      slot->drop();
      size_t at = static_cast<size_t>(slot - slots_);
      while (at + 1 < slotCount() && slots_[at + 1].order != 0 && home(slots_[at + 1].order) <= at) {
         slots_[at].take(slots_[at + 1]);
         ++at;
      }
      while (end_ > 0 && slots_[end_ - 1].order == 0)
         --end_;
      --size_;
      ++version_;
      if (bits_ > 3 && size_ * 8 < capacity())
         resize(bits_ - 1, defaultSlackBits);
      return true;
   }

   void clear() {
      // The entries leave the table before they are destroyed: their destructors may come back here.
      Slot* const slots = std::exchange(slots_, nullptr);
      size_t const end = end_;
      size_ = 0;
      end_ = 0;
      bits_ = -1;
      slackBits_ = defaultSlackBits;
      ++version_;
      if (!slots)
         return;
      for (size_t i = 0; i < end; ++i)
         if (slots[i].order != 0)
            slots[i].drop();
      ::operator delete(slots, std::align_val_t(alignof(Slot)));
   }

   // Forward iterator that survives any change of the table. It copies key and value of its entry.
   class Iterator {
     public:
      explicit Iterator(HashTable const& table) : table_(&table) { settle(0); }

      bool valid() const { return entry_.has_value(); }
      explicit operator bool() const { return valid(); }
      Key const& key() const { return entry_->key; }
      // The value as it was when the iterator came to it, also after the entry was removed.
      Value const& value() const { return entry_->value; }
      Entry const& operator*() const { return *entry_; }
      Iterator& operator++() {
         next();
         return *this;
      }
      bool operator==(std::default_sentinel_t) const { return !valid(); }
      void next() {
         if (version_ == table_->version_)
            settle(at_ + 1);
         else
            settle(table_->upperBound(orderOf(key()), key()));
      }

     private:
      void settle(size_t at) {
         version_ = table_->version_;
         size_t const end = table_->end_;
         while (at < end && table_->slots_[at].order == 0)
            ++at;
         at_ = at;
         // The copy of the last entry goes last: its destructor may change the table.
         [[maybe_unused]] std::optional<Entry> const last = std::move(entry_);
         entry_.reset();
         if (at < end)
            entry_.emplace(table_->slots_[at].entry());
      }

      HashTable const* table_;
      size_t at_ = 0;
      uint32_t version_ = 0;
      std::optional<Entry> entry_;
   };

   Iterator begin() const { return Iterator(*this); }
   std::default_sentinel_t end() const { return {}; }

   // Calls visit(key, value) for each entry in iteration order. The visitor must not change the table; it is
   // the fast walk for code that doesn't.
   template <class Visit>
   void forEach(Visit&& visit) const {
      for (size_t i = 0, end = end_; i < end; ++i)
         if (slots_[i].order != 0)
            visit(slots_[i].entry().key, slots_[i].entry().value);
   }

  private:
   static constexpr uint8_t defaultSlackBits = 2; // 4 slots behind the last home

   struct Slot {
      uint32_t order; // bit-reversed hash with the lowest bit set; 0 in a free slot
      alignas(Entry) unsigned char memory[sizeof(Entry)];

      Entry& entry() { return *std::launder(reinterpret_cast<Entry*>(memory)); }
      void drop() {
         entry().~Entry();
         order = 0;
      }
      void take(Slot& from) {
         new (memory) Entry(std::move(from.entry()));
         order = from.order;
         from.drop();
      }
   };

   static uint32_t orderOf(Key const& key) { return reverseBits(hashOf(key)) | 1; }
   size_t capacity() const { return bits_ < 0 ? 0 : size_t(1) << bits_; }
   size_t slotCount() const { return bits_ < 0 ? 0 : capacity() + (size_t(1) << slackBits_); }
   size_t maxSize() const { return bits_ < 0 ? 0 : capacity() - capacity() / 4; }
   size_t home(uint32_t order) const { return bits_ < 0 ? 0 : order >> (32 - bits_); }

   // First slot from the key's home on that is free or holds an entry not less than the key.
   size_t lowerBound(uint32_t order, Key const& key) const {
      size_t at = home(order);
      size_t const end = end_;
      if (end == 0 || order > slots_[end - 1].order)
         return std::max(at, end);
      if (order == slots_[end - 1].order && slots_[end - 1].entry().key == key)
         return end - 1; // the entry that came last, which is often looked up again at once
      while (at < end && slots_[at].order != 0 && slots_[at].order < order)
         ++at;
      while (at < end && slots_[at].order == order && slots_[at].entry().key < key)
         ++at;
      return at;
   }
   // First slot that can hold an entry greater than the key, whether or not the key is there.
   size_t upperBound(uint32_t order, Key const& key) const {
      if (bits_ < 0)
         return 0;
      size_t const at = lowerBound(order, key);
      return isAt(at, order, key) ? at + 1 : at;
   }
   Slot* findSlot(uint32_t order, Key const& key) {
      if (size_ == 0)
         return nullptr;
      size_t const at = lowerBound(order, key);
      return isAt(at, order, key) ? &slots_[at] : nullptr;
   }
   bool isAt(size_t at, uint32_t order, Key const& key) const {
      return at < slotCount() && slots_[at].order == order && slots_[at].entry().key == key;
   }

   // Entries are sorted, so they are laid out again in one pass, each at its
   // home or right behind the last one.
   void resize(int bits, uint8_t slackBits) {
      HashTable bigger;
      bigger.bits_ = static_cast<int8_t>(bits);
      for (bigger.slackBits_ = slackBits;; ++bigger.slackBits_)
         if (fits(bigger))
            break;
      bigger.allocate();
      size_t next = 0;
      for (size_t i = 0, end = end_; i < end; ++i) {
         if (slots_[i].order == 0)
            continue;
         size_t const at = std::max(next, bigger.home(slots_[i].order));
         bigger.slots_[at].take(slots_[i]);
         next = at + 1;
      }
      bigger.size_ = std::exchange(size_, 0);
      bigger.end_ = static_cast<uint32_t>(next);
      end_ = 0;
      swapEntries(bigger);
      ++version_;
   }
   // Whether all entries find a slot in a table of that shape.
   bool fits(HashTable const& shape) const {
      size_t next = 0;
      for (size_t i = 0, end = end_; i < end; ++i)
         if (slots_[i].order != 0)
            next = std::max(next, shape.home(slots_[i].order)) + 1;
      return next < shape.slotCount();
   }
   void allocate() {
      slots_ =
          static_cast<Slot*>(::operator new(slotCount() * sizeof(Slot), std::align_val_t(alignof(Slot))));
      for (size_t i = 0, end = slotCount(); i < end; ++i)
         slots_[i].order = 0;
   }
   // All but the version, which only moves forward: an iterator must not take
   // another table's entries for its own.
   void swapEntries(HashTable& other) noexcept {
      std::swap(slots_, other.slots_);
      std::swap(size_, other.size_);
      std::swap(bits_, other.bits_);
      std::swap(slackBits_, other.slackBits_);
      std::swap(end_, other.end_);
   }

   Slot* slots_ = nullptr;
   uint32_t size_ = 0;
   uint32_t end_ = 0; // behind the last entry
   uint32_t version_ = 0;
   int8_t bits_ = -1; // capacity is 2 to this; -1 has no array
   uint8_t slackBits_ = defaultSlackBits;
};

} // namespace Kem
