#include "Ordel/store/Walk.h"
#include "Kem/Assert.h"
#include "Ordel/store/Store.h"
#include "Ordel/wire/OperationWriter.h"

#include <algorithm>

namespace Ordel {

Walk::Walk(Tree const& tree, Entity const& entity, Extent extent) : store_(*tree.store_), extent_(extent) {
   levels_.push_back({&entity});
   known_.insert(&entity);
   store_.walks.push_back(this);
}

Walk::~Walk() {
   std::erase(store_.walks, this);
}

bool Walk::next(Wire::Writer& out, size_t maxBytes) {
   size_t const begin = out.size();
   size_t const end = begin + std::max<size_t>(maxBytes, 1);
   named_ = nullptr;
   while (!levels_.empty()) {
      if (out.size() >= end)
         return true;
      Level& level = levels_.back();
      if (!level.areScalarsDone) {
         level.areScalarsDone = true;
         if (Store::hasScalars(*level.entity)) {
            nameEntity(*level.entity, out);
            Store::encodeScalars(*level.entity, out);
         }
      }
      if (readMembers(out, end))
         levels_.pop_back();
   }
   return false;
}

// Goes on with the collections of the last level. True when they are through; else a piece is full, or an
// entity below has become the last level.
bool Walk::readMembers(Wire::Writer& out, size_t end) {
   Level& level = levels_.back();
   Entity const& entity = *level.entity;
   auto const& slots = Store::layout(entity).slots;
   std::string scratch;
   for (; level.attribute < slots.size(); ++level.attribute, level.position = 0, level.generation = 0) {
      Slot const& slot = slots[level.attribute];
      Table const* const members = slot.isCollection() ? Store::table(entity, slot) : nullptr;
      if (!members)
         continue;
      if (level.generation != members->generation()) {
         level.generation = members->generation();
         level.position = 0;
      }
      while (level.position < members->end()) {
         if (out.size() >= end)
            return false;
         uint32_t const position = level.position++;
         if (!members->isMember(position))
            continue;
         nameEntity(entity, out);
         if (slot.holdsEntities()) {
            Entity const& below = *Store::entityAt(*members, position);
            Store::encodeCreate(below, out);
            if (extent_ == Extent::shallow && entity.isDirectory())
               continue;
            known_.insert(&below);
            if (Store::hasScalars(below)) { // now, so that no piece ends between
               nameEntity(below, out);
               Store::encodeScalars(below, out);
            }
            levels_.push_back({&below, 0, 0, 0, true}); // `level` is gone
            return false;
         }
         OperationWriter(out).begin(Op::put, level.attribute);
         // One after the other: both may stand in `scratch`.
         std::string_view const key = Store::keyAt(*members, position, slot, scratch);
         out.raw(key.data(), key.size());
         std::string_view const value = slot.value->view(members->value(position), slot.zero, scratch);
         out.raw(value.data(), value.size());
      }
   }
   return true;
}

void Walk::nameEntity(Entity const& entity, Wire::Writer& out) {
   if (named_ == &entity)
      return;
   Store::encodeAt(entity, out);
   named_ = &entity;
}

void Walk::entityCreated(Entity const& entity) {
   if (known_.count(entity.parent()) && !(extent_ == Extent::shallow && entity.isNode()))
      known_.insert(&entity);
}

// Leaves it, with all that is below it.
void Walk::entityErased(Entity const& entity) {
   known_.erase(&entity);
   auto const level =
       std::find_if(levels_.begin(), levels_.end(), [&](Level const& at) { return at.entity == &entity; });
   levels_.erase(level, levels_.end());
}

} // namespace Ordel
