// The references that the state database told, as long as the database decides about them: who holds each,
// and the selector that it names.
//
//    holder that the process only reads   the reference follows its selector for good: null while the target
//                                         isn't there, and set again whenever one is
//    holder that the process writes       it waits here for its target, is set once, and belongs to the
//                                         process from then on. Nothing is changed behind the writer's back
//
// A reference of the second kind whose target isn't there is dangling: the database has it, the
// process doesn't see it. It ends when the target comes, when the process sets or deletes the
// place itself, or by takeDangling().
//
// Only the references whose target came or went are looked up again: each is found by the target that it
// has, or by the selector that it waits for.
#pragma once

#include "Kem/Entity.h"
#include "records/Schema.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ordel {

class References {
  public:
   // `find` gives the entity of a selector, null when there is none.
   using Find = std::function<Kem::Ptr<Kem::Entity>(std::string const& selector)>;
   References(Records::Schema const& schema, Find find);

   // One reference: an attribute of the holder, or its member `key` (wire form).
   struct Place {
      Kem::Ptr<Kem::Entity> holder;
      Kem::AttrId attribute;
      std::string key; // empty for a scalar
   };
   struct Dangling {
      Place place;
      std::string selector;
   };

   // The database says that the reference names the selector. Empty is null: of a scalar nothing is left, a
   // member is still in the database, with a null target.
   void referenceIs(Place place, std::string selector);
   void referenceDel(Place const& place);
   // The process writes the place itself. Returns the selector that dangled there until now.
   std::optional<std::string> taken(Kem::Entity const& holder, Kem::AttrId attribute, std::string const& key);

   // The entity, with all below it, came into the tree or left it. Takes effect with resolve().
   void came(Kem::Ptr<Kem::Entity> const& entity);
   void went(Kem::Ptr<Kem::Entity> const& entity);
   bool hasNews() const { return !came_.empty() || !went_.empty(); }
   // Looks up the references of those that came or went, and forgets the holders among these that left. The
   // log of the holders must be muted.
   void resolve();

   // Forgets the dangling references and returns them.
   std::vector<Dangling> takeDangling();
   // Of holders that the process writes.
   bool hasDangling() const { return danglingCount_ > 0; }
   // Those that are kept.
   size_t size() const { return size_; }
   // Selectors that were looked up since the start.
   uint64_t lookupCount() const { return lookupCount_; }

  private:
   using Thing = std::pair<Kem::AttrId, std::string>;
   struct Reference {
      std::string selector;
      std::vector<std::string> waitsFor; // the forms that the selector can have; while the target isn't there
      Kem::Entity const* current = nullptr; // what the holder was given last
      bool isDangling = false;
   };
   struct Holder {
      Kem::Ptr<Kem::Entity> entity;
      std::map<Thing, Reference> references;
   };
   using Key = std::pair<Kem::Entity const*, Thing>; // of one reference

   // Gives the holder what the selector names now. False when it needn't be kept any more.
   bool apply(Key const& key, Holder& holder, Reference& reference);
   static void give(Kem::Entity& holder, Thing const& thing, Kem::Ptr<Kem::Entity> const& target);
   void forget(Key const& key);
   void forgetHolder(Kem::Entity const& holder);
   void unlink(Key const& key, Reference& reference); // from the two tables below
   std::vector<std::string> formsOf(std::string const& selector) const;

   Find find_;
   // Types of the keys of all collections of entities with that name.
   std::unordered_map<std::string_view, std::vector<Records::ValueType const*>> keyTypes_;
   std::unordered_map<Kem::Entity const*, Holder> holders_;
   std::unordered_multimap<Kem::Entity const*, Key> byTarget_;
   std::unordered_multimap<std::string, Key> bySelector_; // those that wait
   std::vector<Kem::Ptr<Kem::Entity>> came_;
   std::vector<Kem::Ptr<Kem::Entity>> went_;
   size_t size_ = 0;
   size_t danglingCount_ = 0;
   uint64_t lookupCount_ = 0;
};

} // namespace Ordel
