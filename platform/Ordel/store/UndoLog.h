// What a block of operations has changed in a Store, in the order of the changes, so
// that all of it can be taken back.
//
// One short entry for each change, and one for a whole row of new members: it says where their operations are
// in the block, whose bytes stay where they are until the block stands or is rolled back. A text that a change
// displaces moves into the log, which frees it when the block is through; displaced entities stay whole until
// the next block. Buffers are kept from block to block. Private to the tree.
#pragma once

#include "Ordel/store/Store.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Ordel {

class UndoLog {
  public:
   static constexpr size_t keptBytes = 8u << 20; // buffers above it are given back after a block

   explicit UndoLog(Store& store) : store_(store) {}

   enum class Undone : uint8_t { set, put, replaced, erased, created, takenOut };

   // A block begins.
   void begin() {
      nextNodeBefore_ = store_.nextNode;
      bytesBefore_ = store_.bytes;
   }
   // A change of the entity, any but `put`: made, taken out, or of its attribute, where `key` is what keepKey
   // gave for a member and `old` what displace gave for a value that was overwritten.
   void record(Undone what, Entity& entity, unsigned attribute, uint64_t key, uint64_t old) {
      entries_.push_back({what, static_cast<uint8_t>(attribute), &entity, key, old});
   }
   // A new member, by the `put` from `begin` to `end`.
   void recordPut(Entity& entity, unsigned attribute, char const* begin, char const* end) {
      if (!entries_.empty()) {
         Entry& last = entries_.back();
         if (last.what == Undone::put && last.old == addressOf(begin) && last.entity == &entity &&
             last.attribute == attribute) {
            last.old = addressOf(end);
            return;
         }
      }
      record(Undone::put, entity, attribute, addressOf(begin), addressOf(end));
   }
   uint64_t keepKey(Slot const& slot, KeyProbe const& key);
   uint64_t displace(Slot const& slot, char const* place);

   // The block failed: the store is as it was at its begin.
   void rollBack();
   // The block stands: what it displaced is dropped.
   void commit();

   // Empties a buffer, and gives its memory back where it is large.
   template <class Buffer>
   static void clearBuffer(Buffer& buffer) {
      buffer.clear();
      if (buffer.capacity() * sizeof(typename Buffer::value_type) > keptBytes)
         Buffer().swap(buffer);
   }

  private:
   struct Entry {
      Undone what;
      uint8_t attribute;
      Entity* entity; // changed, made or taken out
      // Of `put`: where the operations begin and end. Else kept bits, or of a text its piece in keyBytes_,
      uint64_t key;
      uint64_t old; // and the kept value, or its piece in oldBytes_ where it is longer than eight bytes.
   };

   static uint64_t addressOf(char const* bytes) { return reinterpret_cast<uintptr_t>(bytes); }
   static void takeBack(Entry const& puts);
   KeyProbe keptKey(Slot const& slot, uint64_t kept) const;
   void restore(Slot const& slot, char* place, uint64_t old);
   void clear();

   Store& store_;
   std::vector<Entry> entries_;
   std::string keyBytes_;
   std::string oldBytes_;
   uint32_t nextNodeBefore_ = 0;
   size_t bytesBefore_ = 0;
};

} // namespace Ordel
