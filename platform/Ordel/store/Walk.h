// Reads an entity and all below it as operations, in pieces of bounded size, while the tree goes on changing.
//
// Who takes the pieces in order, together with every change made between them to what the walk `knows`, ends
// up with the present state: what is erased meanwhile is skipped, what stands still is not left out,
// something may come twice. A piece never ends between the `create` of an entity and its scalars, so that
// constructor inputs come with it.
//
// The tree must outlive the walk. A tree tells its walks of erased entities, so keep few of them.
#pragma once

#include "Kem/Wire.h"
#include "Ordel/store/Tree.h"

#include <unordered_set>
#include <vector>

namespace Ordel {

class Walk {
  public:
   enum class Extent : uint8_t {
      deep,    // all that is below
      shallow, // of a directory the creations of its entities only; of another entity as deep
   };

   Walk(Tree const& tree, Entity const& entity, Extent extent);
   ~Walk();
   Walk(Walk const&) = delete;
   Walk& operator=(Walk const&) = delete;

   // Appends operations until `maxBytes` are passed or all is read. The piece begins with an `at`, and is
   // empty only at the end. False: nothing is left, also when the entity has been erased.
   bool next(Wire::Writer& out, size_t maxBytes);

   // The reader has been told of the entity, by a piece or by the change that created it in an entity known
   // before. Changes to others are not for the reader: it will get them whole.
   bool knows(Entity const& entity) const { return known_.count(&entity) != 0; }

  private:
   friend class Store;
   // An entity on the way, and how much of it has been read.
   struct Level {
      Entity const* entity;
      unsigned attribute = 0;
      uint32_t position = 0;   // in the collection of that attribute
      uint32_t generation = 0; // of the collection, when the position was taken
      bool areScalarsDone = false;
   };

   void entityCreated(Entity const& entity);
   void entityErased(Entity const& entity);
   void nameEntity(Entity const& entity, Wire::Writer& out);
   bool readMembers(Wire::Writer& out, size_t end);

   Store& store_;
   Extent extent_;
   std::vector<Level> levels_;
   std::unordered_set<Entity const*> known_;
   Entity const* named_ = nullptr; // that the last `at` of this piece named
};

} // namespace Ordel
