// Turns JSON into one block of operations for the database, checking it against the descriptors on the way.
//
// What exists is looked up in a tree that the caller keeps: a mirror that holds at least the directories and
// entities on the way to what is changed, and their numbers. What isn't in that tree counts as missing and is
// created where JSON gives content for it. Nothing is applied here. Every refusal names its place as a
// selector; the caller must then discard the operations.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Selector.h"
#include "treejson/JsonReader.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TreeJson {

class Change {
  public:
   // Operations are appended to `out`.
   Change(Ordel::Tree const& tree, Wire::Writer& out) : tree_(tree), out_(out) {}

   // Creates what is missing of the entity at the path, directories on the way too, and sets what the object
   // gives; the rest stays. "$type" is needed for what is created in a directory, and can't differ from the
   // type of what exists.
   void merge(std::string_view path, JsonReader& in);

   // Sets the attribute or member that the selector names. A member that is missing is created, also on the
   // way, with its defaults; an entity of a directory is not. A collection becomes what is given: of values
   // and references nothing else stays; entities that aren't given are deleted, those given are merged.
   void set(Ordel::Selector const& selector, JsonReader& in);

   void create(std::string_view path, std::string_view type);
   // An entity of a directory, or a member. Raises Absent where the directory or the entity isn't there.
   void erase(Ordel::Selector const& selector);

  private:
   struct Step {
      unsigned attribute;
      std::string key; // wire form
   };
   // An entity that exists, or that the operations will have created.
   struct Spot {
      Ordel::Entity const* existing; // null: created by the operations, or perhaps unknown to the tree
      Records::EntityType const* type;
   };
   class Inside;

   Spot reach(std::string_view path, std::string const& wantedType);
   Spot reachDirectory(std::string_view path);
   enum class Missing { isMade, isRefused };
   Spot reachParent(Ordel::Selector const& selector, size_t stepCount, Missing missing);
   Spot below(Spot const& spot, unsigned attribute, std::string_view key) const;
   unsigned attributeOf(Records::EntityType const& type, std::string_view name) const;
   std::string keyOf(Records::Attribute const& attribute, std::string_view text) const;

   void readEntity(Spot const& spot, JsonReader& in);
   void readAttribute(Spot const& spot, unsigned attribute, JsonReader& in);
   void readMembers(Spot const& spot, unsigned attribute, JsonReader& in, bool isWhole);
   void readMember(Spot const& spot, unsigned attribute, std::string_view key, std::string_view keyText,
                   JsonReader& in);
   Records::EntityType const& typeToCreate(Spot const& spot, unsigned attribute, std::string_view key,
                                           JsonReader const& in);
   Records::EntityType const& typeNamed(std::string_view name);

   void writeAt();
   void writeCreate(unsigned attribute, std::string_view key, Records::EntityType const& type,
                    bool isInDirectory);
   [[noreturn]] void refuse(std::string const& reason) const { refuseAt("", reason); }
   [[noreturn]] void refuseAt(std::string const& tail, std::string const& reason) const;

   Ordel::Tree const& tree_;
   Wire::Writer& out_;
   uint32_t node_ = 0;       // the existing node that operations count from
   std::vector<Step> steps_; // from it to the entity that is worked on
   std::string place_;       // selector of that entity
   bool isNamed_ = false;    // the last `at` names that entity
   std::map<std::string, Records::EntityType const*, std::less<>>
       created_; // by this block in directories, by path
};

// The type of the values at the selector, as far as the tree and the descriptors know it; null for entities,
// collections, references, and what they don't know.
Records::ValueType const* valueTypeAt(Ordel::Tree const& tree, Ordel::Selector const& selector);

// The value of a "$type" in the object that is read next, or an empty text.
std::string givenType(JsonReader in);

} // namespace TreeJson
