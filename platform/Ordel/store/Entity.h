// One entity of the tree: its place, and its scalars packed behind it.
//
// Made, changed and ended by the tree alone; others read its place here and what it holds
// through Tree. A node is an entity with a path of its own: a directory or an entity in one.
// Others stand in a collection of an entity.
#pragma once

#include "records/Schema.h"

#include <cstdint>
#include <string_view>

namespace Ordel {

struct Layout;
class Store;

class Entity {
  public:
   Records::EntityType const& type() const { return *type_; }
   bool isDirectory() const { return type_->isDirectory(); }
   // The entity whose collection it is in; null for the root, also good on an erased entity.
   Entity const* parent() const { return parent_; }
   // Where in the parent it exists.
   unsigned attributeInParent() const { return attribute_; }
   bool isNode() const { return steps_ == 0; }
   // The entity itself, or the nearest one above it that is a node.
   Entity const& nodeEntity() const {
      Entity const* entity = this;
      while (!entity->isNode())
         entity = entity->parent_;
      return *entity;
   }
   // Its number; 0 for what is no node, and in a mirror for directories that were only passed on the way.
   uint32_t node() const { return node_; }
   // Of a node, in its directory; empty for the root.
   std::string_view name() const;
   // It was erased by the block that was applied last.
   bool isErased() const { return isErased_; }

  private:
   friend class Store;
   Entity() = default;
   ~Entity() = default;

   Records::EntityType const* type_ = nullptr;
   Layout const* layout_ = nullptr;
   Entity* parent_ = nullptr;
   uint64_t key_ = 0; // packed, as in the parent's table
   uint32_t node_ = 0;
   uint32_t bornIn_ = 0;   // the block that created it
   uint8_t attribute_ = 0; // in the parent
   uint8_t steps_ = 0;     // below its node
   uint8_t depth_ = 0;     // of a node, below the root
   bool isErased_ = false;
};

} // namespace Ordel
