// What a record is, as data: the descriptors of every type of the state tree.
//
// The generator makes one constant table of them from the *.schema files. The state database and the tools
// work from this table and know no record class; the generated classes use the same numbers. Nothing here
// allocates or changes. Attribute numbers are positions in `attributes`, the inherited ones first, so a
// record can be read as its base.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace Records {

enum class Kind : uint8_t {
   boolean,       // 1 byte
   u8,            // 1 byte
   u16,           // 2 bytes
   u32,           // 4 bytes
   u64,           // 8 bytes
   s16,           // 2 bytes
   s32,           // 4 bytes
   s64,           // 8 bytes
   float64,       // 8 bytes, IEEE 754
   string,        // bytes with their length: string, Kem::Name
   namespaceName, // a string of at most 150 bytes
   intfId,        // Sulvi::IntfId: u32 number, or 0xffffffff and a string
   ethAddr,       // 6 bytes
   enumeration,   // as its base u8 or u32; a closed one has a range
   record,        // its fields one after the other
};

struct EnumValue {
   std::string_view name;
   uint64_t number;
};

struct ValueType;

struct Field {
   std::string_view name;
   ValueType const* type;
   std::string_view meaning;
   // The field is not 0 while the one at position `whileField` has the number `whileNumber`; -1 without such a
   // condition.
   int16_t whileField = -1;
   uint64_t whileNumber = 0;
   char const* whileText = nullptr; // what a value that breaks the condition is refused with
};

// The type of a value, a key or a field.
struct ValueType {
   std::string_view name; // "Bridging::VlanId", "bool"
   Kind kind;
   uint8_t size;          // bytes on the wire; 0 where it varies
   uint64_t min, max;     // range of an unsigned number or a closed enumeration, bounds included
   char const* rangeText; // what a value outside the range is refused with; null without a range
   std::span<EnumValue const> enumerators;
   std::span<Field const> fields;
   char joint;            // a record used as a key: what is between its fields in text; 0 for none
   std::string_view zero; // wire form of the default value
   std::string_view meaning;
   bool hasKey =
       false; // of a record: its first field, of fixed size, equals the key that it is under in a map
};

enum class Form : uint8_t {
   scalar,     // one value
   map,        // values by key
   children,   // entities by key, owned
   reference,  // one entity elsewhere, by its selector; the empty text is null
   references, // entities elsewhere, by key
};

struct EntityType;

struct Attribute {
   std::string_view name;
   Form form;
   bool isInput;   // given at creation and not changed later: keys and constructor inputs
   bool isOrdered; // the collection iterates in key order
   bool isCounter;
   ValueType const* key;     // collections, else null
   ValueType const* value;   // scalar and map, else null
   EntityType const* target; // children and references, else null
   std::string_view initial; // wire form of the default of a scalar
   std::string_view unit;
   std::string_view meaning;
   bool isMulticast = false; // each key is a multicast address
   int16_t apart = -1;       // position of a collection that has none of the same keys, -1 for none
};

struct EntityType {
   std::string_view name;  // "Bridging::Config"
   uint16_t id;            // position in Schema::entities
   EntityType const* base; // null for none
   std::span<Attribute const> attributes;
   int16_t keyAttribute; // position of the key, -1 without one
   std::string_view meaning;

   // Position of the attribute of that name, or -1.
   int find(std::string_view attribute) const {
      for (size_t i = 0; i < attributes.size(); ++i)
         if (attributes[i].name == attribute)
            return static_cast<int>(i);
      return -1;
   }
   bool isA(EntityType const& other) const {
      for (EntityType const* t = this; t; t = t->base)
         if (t == &other)
            return true;
      return false;
   }
   bool isDirectory() const { return id == 0; }
};

struct Place {
   std::string_view path; // relative to the root, or to the directory of a cell
   EntityType const* type;
   bool isCell;
   std::string_view meaning;
};

struct Schema {
   std::span<EntityType const> entities; // 0 is Kem::Dir
   std::span<Place const> places;        // parents before children; directories on the way are named too
   uint64_t fingerprint;                 // of everything that the wire form depends on

   // The type of that name, or null.
   EntityType const* entity(std::string_view name) const {
      for (auto const& type : entities)
         if (type.name == name)
            return &type;
      return nullptr;
   }
};

// The one table of this build.
Schema const& schema();

} // namespace Records
