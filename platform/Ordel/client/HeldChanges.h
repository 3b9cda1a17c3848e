// What a held attribute log remembers: for every thing that the process changed, what the database has there.
//
// Three kinds of things: a scalar or a member of a collection of values (its old wire form, or that it was
// absent), and an owned entity (the old one itself, kept alive, or that it was absent). Below an entity that
// was made after the log was held nothing is remembered: it is new as a whole.
//
// release() tells the log what differs. An entity that was removed and made again is compared with the old
// one, which is first brought back to what it held when the log was held, since it may have been emptied
// before it was removed.
//
// Another writer may change the same thing meanwhile. Then what is remembered of it is no longer what the
// database has, and the thing is told in any case, an entity as removed and made again.
#pragma once

#include "Kem/Entity.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Ordel {

class HeldChanges {
  public:
   // `replaced(before, now)` is called on release for an entity that was removed and made
   // again, and is one to the database.
   using Replaced = std::function<void(Kem::Entity& before, Kem::Entity& now)>;
   HeldChanges(Kem::AttributeSink& log, Replaced replaced) : log_(log), replaced_(std::move(replaced)) {}

   void scalarChanging(Kem::Entity const& entity, Kem::AttrId id);
   // Of a collection of values or references, or of owned entities when one is about to be placed or removed.
   void memberChanging(Kem::Entity const& entity, Kem::AttrId id, void const* key);
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child);
   void childRemoved(Kem::Entity const& parent, Kem::AttrId id, void const* key,
                     Kem::Ptr<Kem::Entity> const& child);

   // The database has this value at a place where the process has none or null (wire form, with the key). To be
   // called before the process changes the place.
   void isInDatabase(Kem::Entity const& entity, Kem::AttrId id, std::string const& key, std::string value);

   // Another writer changed the thing (key in wire form, empty for a scalar); or something in an entity that
   // the process has removed; or anything whatever.
   void foreignChange(Kem::Entity const& entity, Kem::AttrId id, std::string_view key);
   void foreignChangeIn(Kem::Entity const& removed);
   void foreignChangeOfAll();

   // The entity that the process removed from that place; null when there is none.
   Kem::Ptr<Kem::Entity> removed(Kem::Entity const& parent, Kem::AttrId id, std::string_view key) const;

   // Tells the log of what differs now, parents before what they hold, an entity that went before what came under
   // its key, and forgets everything.
   void release();
   size_t count() const { return count_; } // different things
   bool empty() const { return touched_.empty(); }

   // The key of a member in wire form; and back: calls visit with the key as the class has it.
   static std::string keyBytes(Kem::Entity const& entity, Kem::AttrId id, void const* key);
   template <class Visit>
   static void withKey(Kem::Entity const& entity, Kem::AttrId id, std::string const& key, Visit visit) {
      Wire::Reader in(key);
      entity.visitMemberKey(id, in, visit);
   }

  private:
   struct Before {
      bool wasThere = false;
      bool isStale = false;         // another writer has been there since
      std::string value;            // key and value of a member, value of a scalar
      Kem::Ptr<Kem::Entity> entity; // of an owned entity that was there
   };
   // By attribute, and by key in wire form (empty for a scalar).
   using Thing = std::pair<Kem::AttrId, std::string>;
   using Things = std::map<Thing, Before>;
   struct Touched {
      Kem::Ptr<Kem::Entity> entity; // keeps it, also when it is removed
      Things things;
   };

   bool isNew(Kem::Entity const& entity) const;
   Things& thingsOf(Kem::Entity const& entity);
   void rollBack(Kem::Entity& entity);
   void tellDifference(Kem::Entity& entity, Things const& things);
   void tellEntity(Kem::Entity& parent, Kem::AttrId id, std::string const& key, Before const& before);

   void tellStale(Kem::Entity& entity, Kem::AttrId id, std::string const& key, Before const& before);

   Kem::AttributeSink& log_;
   Replaced const replaced_;
   std::unordered_map<Kem::Entity const*, size_t> index_; // into touched_
   std::vector<Touched> touched_;                         // in the order of the first change
   std::unordered_map<Kem::Entity const*, std::pair<Kem::Entity const*, Thing>>
       places_;                                    // of removed entities
   std::unordered_set<Kem::Entity const*> new_;    // entities that came after the log was held
   mutable Kem::Entity const* lastNew_ = nullptr;  // the one asked for last: it is filled member by member
   std::vector<Kem::Ptr<Kem::Entity const>> kept_; // keeps the addresses in new_ from being used again
   size_t count_ = 0;
};

} // namespace Ordel
