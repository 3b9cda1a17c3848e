// Applies blocks of operations to a Store: reads, checks, changes, and takes everything back at the first
// refusal.
//
// The undo log holds one short record for each change. Texts that a change displaced move into it and are
// freed when the block is through; displaced entities stay whole until the next block. Buffers are kept from
// block to block. Private to the tree.
#pragma once

#include "Ordel/Store.h"
#include "Ordel/Tree.h"

#include <string>
#include <vector>

namespace Ordel {

class Applier {
  public:
   explicit Applier(Store& store) : store_(store) {}

   Applied const& apply(std::string_view operations, uint8_t flags);
   // Builds a bare tree from a snapshot: numbers are taken from the operations, what is not there is refused,
   // nothing is recorded. A refused load leaves the store half built; it is thrown away.
   Applied const& load(std::string_view operations);

  private:
   enum class Undone : uint8_t { set, put, replaced, erased, created, takenOut };
   struct Undo {
      Undone what;
      uint8_t attribute;
      Entity* entity; // changed, made or taken out
      uint64_t key;   // kept bits, or of a text its piece in keyBytes_
      uint64_t old;   // kept value, or its piece in oldBytes_ where it is longer than eight bytes
   };
   // What the operations that follow an `at` are said of.
   struct Target {
      Entity* entity = nullptr;
      Layout const* layout = nullptr; // also of what is no longer there, where its type is still known
      bool isUnknown = false;         // not there, of a type that nobody remembers
      std::string place;              // of what is not there
   };

   void run(std::string_view operations);
   void readAt(Wire::Reader& in);
   bool stepInto(Wire::Reader& in);
   void readSet(Wire::Reader& in, char const* begin);
   void readPut(Wire::Reader& in, char const* begin);
   void readErase(Wire::Reader& in, char const* begin);
   void readCreate(Wire::Reader& in, char const* begin);

   Slot const* readSlot(Wire::Reader& in);
   bool readKey(Wire::Reader& in, Slot const& slot, Packed& key);
   bool readValue(Wire::Reader& in, Slot const& slot, Packed const* key, Packed& value);
   Slot const* slotOfDerived(Layout const& layout, unsigned attribute) const;

   void store(Entity& entity, Slot const& slot, char* place, Packed const& value);
   bool isStored(Slot const& slot, char const* place, Packed const& value) const;
   uint64_t displace(Slot const& slot, char const* place);
   void restore(Slot const& slot, char* place, uint64_t old);
   void erase(Entity& entity);
   void create(Records::EntityType const& type, unsigned attribute, KeyProbe const& key, uint32_t node);

   // The operation from `begin` to where the reader stands took effect, or did not.
   void effective(Wire::Reader const& in, char const* begin, bool isNew = false);
   void dropped(char const* begin);
   void openGroup();
   void flushRun(char const* end);
   void closeGroup(char const* end);

   bool notThere(std::string const& place);
   void refuse(std::string const& place, std::string_view reason, Status status = Status::refused);
   void refuseMalformed(std::string_view reason);
   std::string place(Slot const* slot = nullptr, Packed const* key = nullptr) const;

   uint64_t keepKey(Slot const& slot, KeyProbe const& key);
   KeyProbe keptKey(Slot const& slot, uint64_t kept) const;
   void record(Undone what, Entity& entity, unsigned attribute, uint64_t key, uint64_t old);
   void rollBack();
   void commit();

   Store& store_;
   bool isStrict_ = false;
   bool isLoading_ = false;

   // Of the block.
   char const* blockBegin_ = nullptr;
   Target target_;
   std::vector<Undo> undo_;
   std::string keyBytes_;
   std::string oldBytes_;
   uint32_t nextNodeBefore_ = 0;

   // What takes effect.
   Applied applied_;
   Wire::Writer out_;
   std::vector<Group> groups_;
   std::vector<NodeChange> nodes_;
   std::vector<uint8_t> isNew_;
   bool isGroupOpen_ = false;
   char const* runBegin_ = nullptr; // of operations that are passed on as they stand
};

} // namespace Ordel
