// The typed store behind the state database, and behind the mirrors that tools keep.
//
// A tree of entities, driven by the descriptors of records/Schema.h; it knows no record class. The database's
// tree starts with the places that the schema lists and gives every node a number of its own; a mirror starts
// with a bare root and takes the numbers that the database gave. All changes come as a block of operations
// (Protocol.h), which is checked against the descriptors and applied whole or not at all: at the first
// refusal everything is taken back in reverse, and the error names the place as a selector. Bad bytes never
// raise and never half apply.
//
// Values go in and out in wire form. A view of bytes that a call returns is good until the next
// call on the tree. An Entity is good until it is erased, and an erased one still until the next
// `apply`. Nothing here knows sockets, clients or JSON; text is in Selector.h and KeyText.h,
// reading a large subtree in pieces in Walk.h.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Entity.h"
#include "Ordel/wire/Protocol.h"
#include "records/Schema.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Ordel {

class Applier;
struct Slot;
class Store;
class Table;
class Walk;
struct Selector;

// The number of the root in a database.
inline constexpr uint32_t rootNode = 1;

// The effective operations of one block on one entity, in the order of the block; an
// entity can come more than once.
struct Group {
   Entity const* entity; // may be erased by a later operation of the block; still readable then
   size_t begin;         // of its `at`, in Applied::bytes
   size_t body;          // of what follows the `at`
   size_t end;
   size_t first; // of its operations, counted over the block: where they stand in Applied::isNew
};

// A node that came or went in a block. The nodes below an erased one are listed too, those above first.
struct NodeChange {
   Entity const* entity;
   bool isCreated;
};

// How a block of operations went. Good until the next `apply`.
struct Applied {
   Status status = Status::done;
   bool isMalformed = false; // the bytes themselves were bad, not only what they say; with Status::refused
   std::string error;        // "place: reason", for a status other than done
   std::string_view bytes;   // the effective operations in canonical form, to be passed on as they are
   std::span<Group const> groups;
   std::span<NodeChange const> nodes; // in the order of the block
   std::span<uint8_t const>
       isNew; // for each effective operation: it brought a member that wasn't there before

   bool isDone() const { return status == Status::done; }
   std::string_view at(Group const& group) const {
      return bytes.substr(group.begin, group.body - group.begin);
   }
   std::string_view operations(Group const& group) const {
      return bytes.substr(group.body, group.end - group.body);
   }
};

// What a selector leads to.
struct Located {
   Status status = Status::done; // absent: it could stand there but does not; refused: it can't stand there
   std::string error;            // for a status other than done
   Entity const* entity =
       nullptr;        // the entity itself, or the one that holds the attribute; the last one reached
   int attribute = -1; // of `entity`; -1 where the selector names the entity itself
   std::optional<std::string>
       key; // wire form; with an attribute only. Of an entity that is absent: where it would stand
};

class Tree {
  public:
   // The tree of a database: all places of the schema, those of a cell below "cell/<cell>/".
   Tree(Records::Schema const& schema, unsigned cell);
   // A mirror: a root without a number.
   explicit Tree(Records::Schema const& schema);
   ~Tree();
   Tree(Tree const&) = delete;
   Tree& operator=(Tree const&) = delete;

   Records::Schema const& schema() const;
   bool isMirror() const;

   // Nodes. Paths have no slash at either end; the root's is "".
   Entity const& root() const;
   Entity const* find(std::string_view path) const; // null: nothing there
   Entity const* node(uint32_t number) const;       // null: never was, or erased
   // The path of the entity, or of the node that it belongs to.
   std::string path(Entity const& entity) const;
   Located locate(Selector const& selector) const;

   // Applies a block of operations. `flags` are WriteFlags. An operation on what is no longer there is
   // dropped, or refused as absent in a strict block; one on a node that never was is refused.
   Applied const& apply(std::string_view operations, uint8_t flags = 0);

   // Mirrors only. `mount` makes or finds the node at the path, with plain directories on the way; one that
   // is there with another number or type is replaced. `unmount` takes the node away with all below it.
   Entity const& mount(uint32_t node, Records::EntityType const& type, std::string_view path);
   void unmount(uint32_t node);

   // Reading. The attribute must be one of the entity's type and of a fitting form; keys are in wire form,
   // and one that isn't well formed is just not there.
   std::string_view value(Entity const& entity, unsigned attribute) const; // scalar or reference
   size_t count(Entity const& entity, unsigned attribute) const;           // members of a collection
   std::optional<std::string_view> member(Entity const& entity, unsigned attribute,
                                          std::string_view key) const;
   Entity const* child(Entity const& entity, unsigned attribute,
                       std::string_view key) const; // null: not there

   // Operations that bring a reader to the present state; none writes the `at` of `entity` itself.
   void encodeAt(Entity const& entity, Wire::Writer& out) const; // node and steps
   void encodeScalars(Entity const& entity,
                      Wire::Writer& out) const; // `set` of what differs from its default
   void encodeAttribute(Entity const& entity, unsigned attribute,
                        Wire::Writer& out) const; // `set`, as it is
   // `put`; for an entity `create` and, with `at`s of its own, all that it
   // holds; for an absent member `erase`.
   void encodeMember(Entity const& entity, unsigned attribute, std::string_view key, Wire::Writer& out) const;

   // About, of all that is in the tree. An operation that adds to it and passes the limit is refused; a snapshot
   // isn't.
   size_t bytes() const;
   size_t countBytes() const; // the same, by looking at all of it: for tests
   void byteLimitIs(size_t bytes);
   // Number of entities, the root included.
   size_t entityCount() const;
   // The number that the next node gets; greater than all that were given.
   uint32_t nextNode() const;

  private:
   friend class Walk;
   friend class Snapshot;
   std::unique_ptr<Store> store_;
   std::unique_ptr<Applier> applier_;
   mutable std::string scratch_; // for values that are not kept in wire form
};

// Reads the members of one collection, in an order that is stable between changes:
//    for (Members member(tree, entity, attribute); member.next();) …
// The tree must not change meanwhile.
class Members {
  public:
   Members(Tree const& tree, Entity const& entity, unsigned attribute);
   bool next();
   std::string_view key() const;   // wire form
   std::string_view value() const; // wire form; empty for an entity
   Entity const* entity() const;   // null in a map or in references

  private:
   Table const* table_; // null while empty
   Slot const& slot_;
   uint32_t at_ = 0; // one behind the member that is read
   mutable std::string keyScratch_;
   mutable std::string valueScratch_;
};

// The selector of an entity, of an attribute of it, of a member (key in wire form).
std::string selectorText(Tree const& tree, Entity const& entity);
std::string selectorText(Tree const& tree, Entity const& entity, unsigned attribute);
std::string selectorText(Tree const& tree, Entity const& entity, unsigned attribute, std::string_view key);

} // namespace Ordel
