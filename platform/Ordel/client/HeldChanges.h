// What a held attribute log remembers: for every thing that was changed, what
// stood there when the log was held.
//
// Three kinds of things: a scalar or a member of a collection of values (its old wire form, or that it was
// absent), and an owned entity (the old one itself, kept alive, or that it was absent). Below an entity that
// came to stand after the log was held nothing is remembered: it is new as a whole.
//
// release() tells the log what differs. An entity that was removed and made again is compared with the old
// one, which is first brought back to what it held when the log was held, since it may have been emptied
// before it was removed.
#pragma once

#include "Kem/Entity.h"

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Ordel {

class HeldChanges {
  public:
   explicit HeldChanges(Kem::AttributeSink& log) : log_(log) {}

   void scalarChanging(Kem::Entity const& entity, Kem::AttrId id);
   // Of a collection of values or references, or of owned entities when one is about to be placed or removed.
   void memberChanging(Kem::Entity const& entity, Kem::AttrId id, void const* key);
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child);
   void childRemoved(Kem::Entity const& parent, Kem::AttrId id, void const* key,
                     Kem::Ptr<Kem::Entity> const& child);

   // Tells the log of what differs now, parents before what they hold, and forgets everything.
   void release();
   size_t count() const { return count_; }

  private:
   struct Before {
      bool wasThere = false;
      std::string value;            // key and value of a member, value of a scalar
      Kem::Ptr<Kem::Entity> entity; // of an owned entity that was there
   };
   // By attribute, and by key in wire form (empty for a scalar).
   using Things = std::map<std::pair<Kem::AttrId, std::string>, Before>;
   struct Touched {
      Kem::Ptr<Kem::Entity> entity; // keeps it, also when it is removed
      Things things;
   };

   bool isNew(Kem::Entity const& entity) const;
   Things& thingsOf(Kem::Entity const& entity);
   void rollBack(Kem::Entity& entity);
   void tellDifference(Kem::Entity& entity, Things const& things);
   void tellEntity(Kem::Entity& parent, Kem::AttrId id, std::string const& key, Before const& before);

   Kem::AttributeSink& log_;
   std::unordered_map<Kem::Entity const*, size_t> index_; // into touched_
   std::vector<Touched> touched_;                         // in the order of the first change
   std::unordered_set<Kem::Entity const*> new_;           // entities that came after the log was held
   std::vector<Kem::Ptr<Kem::Entity const>> kept_;        // keeps the addresses in new_ from being used again
   size_t count_ = 0;
};

} // namespace Ordel
