#include "Ordel/store/UndoLog.h"
#include "Kem/Assert.h"
#include "Ordel/wire/Operations.h"

#include <cstring>

namespace Ordel {

// What is there, for the log: a text is moved, so the place must be overwritten.
uint64_t UndoLog::displace(Slot const& slot, char const* place) {
   size_t const size = slot.value->size();
   if (size <= sizeof(uint64_t))
      return loadBytes(place, size);
   uint64_t const old = oldBytes_.size();
   oldBytes_.append(place, size);
   return old;
}

void UndoLog::restore(Slot const& slot, char* place, uint64_t old) {
   size_t const size = slot.value->size();
   std::memcpy(place, size <= sizeof old ? reinterpret_cast<char const*>(&old) : oldBytes_.data() + old,
               size);
}

// Of a text its place in keyBytes_: where it begins and how long it is.
uint64_t UndoLog::keepKey(Slot const& slot, KeyProbe const& key) {
   if (!slot.shape.isKeyText)
      return key.bits;
   uint64_t const kept = uint64_t{keyBytes_.size()} << 32 | key.text.size();
   keyBytes_.append(key.text);
   return kept;
}

KeyProbe UndoLog::keptKey(Slot const& slot, uint64_t kept) const {
   if (!slot.shape.isKeyText)
      return {kept, {}};
   return {0, std::string_view(keyBytes_).substr(kept >> 32, kept & UINT32_MAX)};
}

// Reads the keys over once more. The last member goes first, so that the others stay where they are.
void UndoLog::takeBack(Entry const& puts) {
   Entity& entity = *puts.entity;
   Slot const& slot = Store::slot(entity, puts.attribute);
   Table& members = *Store::table(entity, slot);
   auto const* const begin = reinterpret_cast<char const*>(puts.key);
   auto const* const end = reinterpret_cast<char const*>(puts.old);
   std::vector<KeyProbe> keys;
   Wire::Reader in({begin, static_cast<size_t>(end - begin)});
   while (!in.done()) {
      in.u16(); // operation and attribute
      Packed key;
      KEM_ASSERT(slot.key->read(in, key));
      skipValue(slot.value->type(), in);
      keys.push_back(Store::probe(slot, key));
   }
   while (!keys.empty()) {
      members.erase(members.find(keys.back()));
      keys.pop_back();
   }
   members.trim();
   Store::dropTableIfEmpty(entity, slot);
}

void UndoLog::rollBack() {
   for (size_t i = entries_.size(); i-- > 0;) {
      Entry const& undo = entries_[i];
      Entity& entity = *undo.entity;
      if (undo.what == Undone::created) {
         store_.takeOut(entity);
         store_.destroy(entity);
         continue;
      }
      if (undo.what == Undone::takenOut) {
         store_.putBack(entity);
         continue;
      }
      Slot const& slot = Store::slot(entity, undo.attribute);
      auto const freeNew = [&](char* at) {
         if (slot.value->isText())
            freeText(displace(slot, at));
      };
      if (undo.what == Undone::set) {
         char* const at = Store::place(entity, slot);
         freeNew(at);
         restore(slot, at, undo.old);
         continue;
      }
      if (undo.what == Undone::put) {
         takeBack(undo);
         continue;
      }
      KeyProbe const key = keptKey(slot, undo.key);
      Table& members = Store::tableMade(entity, slot);
      bool isNew = false;
      char* const at = members.value(members.findOrInsert(key, isNew));
      if (!isNew)
         freeNew(at);
      restore(slot, at, undo.old);
   }
   store_.nextNode = nextNodeBefore_;
   store_.bytes = bytesBefore_;
   clear();
}

void UndoLog::commit() {
   for (Entry const& undo : entries_) {
      if (undo.what == Undone::takenOut) {
         store_.buryLater(*undo.entity);
         store_.entityErased(*undo.entity);
         continue;
      }
      if (undo.what == Undone::created)
         store_.entityCreated(*undo.entity);
      if (undo.what == Undone::created || undo.what == Undone::put)
         continue;
      if (Store::slot(*undo.entity, undo.attribute).value->isText())
         freeText(undo.old);
   }
   clear();
}

void UndoLog::clear() {
   clearBuffer(entries_);
   clearBuffer(keyBytes_);
   clearBuffer(oldBytes_);
}

} // namespace Ordel
