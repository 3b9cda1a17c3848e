// Applies blocks of operations to a Store: reads, checks, changes, and takes
// everything back at the first refusal.
//
// Applier.cpp reads a block, finds whom each operation is said of and gathers what took effect;
// ApplierOperations.cpp has the operations themselves. Private to the tree.
#pragma once

#include "Ordel/store/Store.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/UndoLog.h"

#include <string>
#include <vector>

namespace Ordel {

class Applier {
  public:
   explicit Applier(Store& store) : store_(store), undo_(store) {}

   Applied const& apply(std::string_view operations, uint8_t flags);
   // Builds a bare tree from a snapshot: numbers are taken from the operations, what is not there is refused,
   // nothing is recorded. A refused load leaves the store half built; it is thrown away.
   Applied const& load(std::string_view operations);

  private:
   using Undone = UndoLog::Undone;
   // What the operations that follow an `at` are said of.
   struct Target {
      Entity* entity = nullptr;
      Layout const* layout = nullptr; // also of what is no longer there, where its type is still known
      bool isUnknown = false;         // not there, of a type that nobody remembers
      std::string place;              // of what is not there
   };

   // A key that two collections had when one of them took it in, which the schema keeps apart.
   struct SharedKey {
      Entity const* entity;
      Slot const* slot;
      KeyProbe key; // a text is in the block
      std::string place;
   };

   void run(std::string_view operations);
   void readAt(Wire::Reader& in);
   bool stepInto(Wire::Reader& in);
   void readSet(Wire::Reader& in, char const* begin);
   void readPut(Wire::Reader& in, char const* begin);
   void readErase(Wire::Reader& in, char const* begin);
   void readCreate(Wire::Reader& in, char const* begin);

   Slot const* readSlot(Wire::Reader& in);
   bool readKey(Wire::Reader& in, Slot const& slot, Packed& key) {
      char const* const begin = in.position();
      return slot.key->read(in, key) || refuseKey(from(begin, in), slot);
   }
   bool readValue(Wire::Reader& in, Slot const& slot, Packed const* key, Packed& value) {
      char const* const begin = in.position();
      return slot.value->read(in, value) || refuseValue(from(begin, in), slot, key);
   }
   // All bytes of the block from there on, wherever the reader is by now.
   static std::string_view from(char const* begin, Wire::Reader const& in) {
      return {begin, static_cast<size_t>(in.position() + in.remaining() - begin)};
   }
   bool refuseKey(std::string_view bytes, Slot const& slot);
   bool refuseValue(std::string_view bytes, Slot const& slot, Packed const* key);
   bool readOnePut(Wire::Reader& in, char const* begin, Slot const& slot, unsigned attribute, Table*& members,
                   uint32_t expected);
   static uint32_t countAlike(char const* at, size_t remaining, size_t stride);
   Slot const* slotOfDerived(Layout const& layout, unsigned attribute) const;

   void store(Entity& entity, Slot const& slot, char* place, Packed const& value);
   static bool isUnderItsKey(Slot const& slot, Packed const& key, char const* value);
   bool isStored(Slot const& slot, char const* place, Packed const& value) const;
   void erase(Entity& entity);
   // Of a key that a collection takes in. False after a refusal; a key that another collection has too is only
   // noted, since the block may still erase it there.
   bool takesKey(Entity& entity, Slot const& slot, Packed const& key);
   // Refuses the first of the noted keys that is in both collections when the block ends.
   void refuseSharedKeys();
   void create(Records::EntityType const& type, unsigned attribute, KeyProbe const& key, uint32_t node);

   // The operation from `begin` to where the reader stands took effect, or did not.
   void effective(char const* begin, bool isNew = false) {
      if (!isLoading_)
         isNew_.push_back(isNew);
      if (runBegin_ || isLoading_)
         return;
      openGroup();
      runBegin_ = begin;
   }
   void dropped(char const* begin);
   void openGroup();
   void flushRun(char const* end);
   void closeGroup(char const* end);

   // There were so many bytes, and now there are so many. False after a refusal, where that is too much.
   bool isWithinLimit(Slot const* slot, Packed const* key);
   bool grow(size_t before, size_t now, Slot const* slot, Packed const* key);
   bool notThere(std::string const& place);
   void refuse(std::string const& place, std::string_view reason, Status status = Status::refused);
   void refuseMalformed(std::string_view reason);
   std::string place(Slot const* slot = nullptr, Packed const* key = nullptr) const;

   Store& store_;
   UndoLog undo_;
   bool isStrict_ = false;
   bool isLoading_ = false;

   // Of the block.
   size_t creationCount_ = 0;
   char const* blockBegin_ = nullptr;
   Target target_;

   // What takes effect.
   Applied applied_;
   Wire::Writer out_;
   std::vector<Group> groups_;
   std::vector<NodeChange> nodes_;
   std::vector<uint8_t> isNew_;
   std::vector<SharedKey> sharedKeys_;
   bool isGroupOpen_ = false;
   char const* runBegin_ = nullptr; // of operations that are passed on as they are
};

} // namespace Ordel
