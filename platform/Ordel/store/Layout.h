// Where the attributes of one type of entity stand in the block behind an Entity. Private to the store.
//
// Scalars stand in their kept form (Values.h), references as a text handle, collections as a pointer to a
// Table that is null while the collection is empty. All of it is unaligned and copied in and out.
#pragma once

#include "Ordel/store/Entity.h"
#include "Ordel/store/Table.h"
#include "Ordel/store/Values.h"
#include "records/Schema.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Ordel {

// The codecs of a schema, each made once.
class Codecs {
  public:
   Codec const& codec(Records::ValueType const& type, Codec::Use use);
   Codec const& selector();

  private:
   std::map<std::pair<Records::ValueType const*, Codec::Use>, std::unique_ptr<Codec>> codecs_;
};

struct Slot {
   Records::Attribute const* attribute;
   Records::Form form;
   bool isInput;
   bool isKey;            // takes the key under which the entity stands
   uint32_t offset;       // in the block
   Codec const* key;      // collections, else null
   Codec const* value;    // null in a collection of entities
   std::string_view zero; // what text handle 0 stands for
   TableShape shape;      // collections
   bool isMulticast;      // each key is a multicast address
   int apart;             // position of the slot that has none of the same keys, -1 for none

   bool isCollection() const { return key != nullptr; }
   bool isSingle() const { return !isCollection(); }
   bool holdsEntities() const { return form == Records::Form::children; }
};

struct Layout {
   Layout(Records::EntityType const& entityType, Codecs& codecs);

   Records::EntityType const& type;
   std::vector<Slot> slots;  // by attribute
   std::string initialBlock; // of an entity with all defaults
};

} // namespace Ordel
