// The memory of a Tree: entities, their packed attributes, and the nodes by number. Private to the tree, the
// applier of operations and walks.
//
// Nothing is checked here: callers pass attributes of a fitting form and values that a codec has
// read. An entity that is taken out stays whole, with its subtree, until `bury`, so that it can
// be put back and still be read.
#pragma once

#include "Ordel/store/Entity.h"
#include "Ordel/store/FormerNodes.h"
#include "Ordel/store/Layout.h"
#include "Ordel/store/Tree.h"

#include <cstring>
#include <deque>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Ordel {

class Store {
  public:
   Store(Records::Schema const& schema, bool isMirror);
   ~Store();
   Store(Store const&) = delete;
   Store& operator=(Store const&) = delete;

   static constexpr uint32_t noMoreNodes = UINT32_MAX; // of nextNode: all numbers have been given
   static constexpr unsigned dirEntities = 0;          // the attribute of a directory that holds its entities

   Records::Schema const& schema;
   bool isMirror;
   uint32_t nextNode = 1;
   uint32_t serial = 0; // of the block that is applied
   size_t entityCount = 0;
   size_t bytes = 0;            // about, of all entities but the root, and of what they hold
   size_t byteLimit = SIZE_MAX; // operations that would pass it are refused
   Entity* root = nullptr;
   std::vector<Walk*> walks;

   Layout const& layout(Records::EntityType const& type) const { return layouts_[type.id]; }
   static Layout const& layout(Entity const& entity) { return *entity.layout_; }
   static Slot const& slot(Entity const& entity, unsigned attribute) {
      return entity.layout_->slots[attribute];
   }

   // Where the attribute stands in the entity.
   static char* place(Entity& entity, Slot const& slot) {
      return reinterpret_cast<char*>(&entity + 1) + slot.offset;
   }
   static char const* place(Entity const& entity, Slot const& slot) {
      return reinterpret_cast<char const*>(&entity + 1) + slot.offset;
   }
   static Table* table(Entity const& entity, Slot const& slot) { // null while empty
      Table* table;
      std::memcpy(&table, place(entity, slot), sizeof table);
      return table;
   }
   static Table& tableMade(Entity& entity, Slot const& slot) {
      Table* const members = table(entity, slot);
      return members ? *members : newTable(entity, slot);
   }
   static void dropTableIfEmpty(Entity& entity, Slot const& slot);
   static Entity* entityAt(Table const& table, uint32_t position) {
      Entity* entity;
      std::memcpy(&entity, table.value(position), sizeof entity);
      return entity;
   }
   static KeyProbe probe(Slot const& slot, Packed const& key) {
      KeyProbe probe;
      if (slot.shape.isKeyText)
         probe.text = key.view();
      else
         probe.bits = loadBytes(key.bytes, key.size);
      return probe;
   }
   // The key under which the entity is in its parent's table; not of the root.
   static KeyProbe probeOf(Entity const& entity);
   static Entity* child(Entity const& entity, Slot const& slot, KeyProbe const& key);
   // Wire form of the key of a child.
   static std::string_view keyOf(Entity const& entity, std::string& scratch);
   static std::string_view keyAt(Table const& table, uint32_t position, Slot const& slot,
                                 std::string& scratch);

   // Makes an entity under a key that is free and counts it; `node` 0 for none.
   Entity& create(Records::EntityType const& type, Entity& parent, unsigned attribute, KeyProbe const& key,
                  uint32_t node);
   // What `bytes` counts: a member of a map or of references, without the text of its value; that text; an
   // entity with what it holds, but for the entities below it; all that is in the tree.
   static size_t memberBytes(Slot const& slot, KeyProbe const& key) {
      return memberBytes(slot) + (slot.shape.isKeyText ? textBytes(key.text) : 0);
   }
   static size_t valueTextBytes(Slot const& slot, char const* place) {
      return slot.value->isText() ? textBytes(loadBytes(place, sizeof(Text))) : 0;
   }
   static size_t bytesOf(Entity const& entity);
   size_t countBytes() const;
   // Takes an entity with all below it out of the tree, or puts it back.
   void takeOut(Entity& entity);
   void putBack(Entity& entity);
   // Frees an entity that was taken out, now or with the next `bury`.
   void destroy(Entity& entity);
   void buryLater(Entity& entity) { graveyard_.push_back(&entity); }
   void bury();
   // The key attribute follows from the key, because both are of one kind.
   static bool isKeyFilled(Entity const& entity);
   void numberIs(Entity& entity, uint32_t node);
   void bornInIs(Entity& entity, uint32_t block) { entity.bornIn_ = block; }
   static uint32_t bornIn(Entity const& entity) { return entity.bornIn_; }
   static unsigned depth(Entity const& entity) { return entity.depth_; }
   static unsigned steps(Entity const& entity) { return entity.steps_; }
   static Entity* parent(Entity const& entity) { return entity.parent_; }
   // Tell the walks, once it is certain; of an erased one also all that stood below it.
   void entityCreated(Entity const& entity);
   void entityErased(Entity& entity);

   Entity* node(uint32_t number) const;
   // The node at the path, or the deepest one on the way with what is left of the path in `rest`.
   Entity* reach(std::string_view path, std::string_view& rest) const;
   Entity* reachStep(Entity const& directory, std::string_view name) const;
   void remember(Entity const& node); // its type, because it is erased
   Records::EntityType const* formerType(uint32_t node) const;
   Records::EntityType const* formerType(uint32_t directory, std::string_view name) const;

   // It is a place of the schema, or holds one: a cell's places stand below "cell/" and any number.
   bool isDeclared(Entity const& entity) const;

   static std::string path(Entity const& entity); // of its node
   static void encodeAt(Entity const& entity, Wire::Writer& out);
   static void encodeCreate(Entity const& entity, Wire::Writer& out);
   static void encodeSet(Entity const& entity, unsigned attribute, Wire::Writer& out);
   static void encodeScalars(Entity const& entity, Wire::Writer& out);
   static bool hasScalars(Entity const& entity); // some differ from their defaults
   static std::string selectorText(Entity const& entity);
   static std::string selectorText(Entity const& entity, unsigned attribute, std::string_view key);

   // Calls with each entity below the attribute's table.
   template <class Use>
   static void eachChild(Entity const& entity, Slot const& slot, Use const& use) {
      if (Table const* members = table(entity, slot))
         for (uint32_t i = 0; i < members->end(); ++i)
            if (members->isMember(i))
               use(*entityAt(*members, i));
   }
   // Calls with the entity and all below it, those above first.
   template <class Use>
   static void eachBelow(Entity& entity, Use const& use) {
      use(entity);
      for (Slot const& slot : entity.layout_->slots)
         if (slot.holdsEntities())
            eachChild(entity, slot, [&](Entity& below) { eachBelow(below, use); });
   }

  private:
   // It has to be told: not its default, and not told by the key.
   static bool isTold(Entity const& entity, Slot const& slot);
   static constexpr size_t textOverhead = 24, memberOverhead = 8,
                           entityOverhead = 32; // about, of the allocator
   static size_t textBytes(std::string_view text) { return text.size() + textOverhead; }
   static size_t textBytes(Text text) { return text ? textBytes(textView(text)) : 0; }
   static size_t memberBytes(Slot const& slot) {
      return size_t{slot.shape.keySize} + slot.shape.valueSize + memberOverhead;
   }
   static size_t bareBytes(Entity const& entity); // without what it holds
   static Table& newTable(Entity& entity, Slot const& slot);
   Entity* allocate(Layout const& layout);
   static void fillKeyAttribute(Entity& entity);

   Codecs codecs_;
   std::unordered_set<std::string_view> places_, cellPlaces_; // paths of the schema's
   std::vector<Layout> layouts_;                              // by type
   std::unordered_map<uint32_t, Entity*> nodes_;
   FormerNodes former_;
   std::vector<Entity*> graveyard_;
};

} // namespace Ordel
