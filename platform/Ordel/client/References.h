// The references that came from the state database: who holds each, and the selector that it names.
//
// A reference is null while its target isn't there, and is set again whenever a target stands under its
// selector. References that the process itself sets are not kept here.
#pragma once

#include "Kem/Entity.h"
#include "records/Schema.h"

#include <map>
#include <string>
#include <tuple>

namespace Ordel {

class References {
  public:
   // `find` gives the entity of a selector, null when there is none.
   using Find = Kem::Ptr<Kem::Entity> (*)(void* context, std::string const& selector);
   References(Find find, void* context) : find_(find), context_(context) {}

   // The reference `attribute` of `holder`, or its member `key` (wire form), names the selector; empty is
   // null. A member that is set to null still stands, with a null target.
   void referenceIs(Kem::Ptr<Kem::Entity> const& holder, Kem::AttrId attribute, std::string key,
                    std::string selector);
   void referenceDel(Kem::Entity const& holder, Kem::AttrId attribute, std::string const& key);

   // Looks every reference up again; to be called when entities came or went.
   void resolve();
   bool empty() const { return all_.empty(); }
   size_t size() const { return all_.size(); }

  private:
   struct Target {
      Kem::Ptr<Kem::Entity> holder;
      std::string selector;
      Kem::Entity const* current = nullptr; // what the holder was given last
   };
   using Place = std::tuple<Kem::Entity const*, Kem::AttrId, std::string>;
   void apply(Place const& place, Target& target);

   Find find_;
   void* context_;
   std::map<Place, Target> all_;
};

} // namespace Ordel
