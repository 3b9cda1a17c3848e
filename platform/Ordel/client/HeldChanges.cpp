#include "Ordel/client/HeldChanges.h"

#include "Kem/Record.h"

namespace Ordel {

using Kem::AttrId;
using Kem::Ptr;

namespace {

std::string keyBytes(Kem::Entity const& entity, AttrId id, void const* key) {
   Wire::Writer out;
   entity.encodeMemberKey(id, key, out);
   return std::string(out.view());
}

// Calls visit with the key as the class has it.
template <class Visit>
void withKey(Kem::Entity const& entity, AttrId id, std::string const& key, Visit visit) {
   Wire::Reader in(key);
   entity.visitMemberKey(id, in, visit);
}

} // namespace

bool HeldChanges::isNew(Kem::Entity const& entity) const {
   if (!new_.empty())
      for (Kem::Entity const* at = &entity; at; at = at->parent())
         if (new_.contains(at))
            return true;
   return false;
}

HeldChanges::Things& HeldChanges::thingsOf(Kem::Entity const& entity) {
   auto const [at, isFirst] = index_.try_emplace(&entity, touched_.size());
   if (isFirst)
      touched_.push_back({Ptr<Kem::Entity>(const_cast<Kem::Entity*>(&entity)), {}});
   return touched_[at->second].things;
}

void HeldChanges::scalarChanging(Kem::Entity const& entity, AttrId id) {
   if (isNew(entity))
      return;
   auto const [at, isFirst] = thingsOf(entity).try_emplace({id, {}});
   if (!isFirst)
      return;
   Wire::Writer value;
   entity.encodeScalar(id, value);
   at->second = {true, std::string(value.view()), nullptr};
   ++count_;
}

void HeldChanges::memberChanging(Kem::Entity const& entity, AttrId id, void const* key) {
   if (isNew(entity))
      return;
   std::string const bytes = keyBytes(entity, id, key);
   auto const [at, isFirst] = thingsOf(entity).try_emplace({id, bytes});
   if (!isFirst)
      return;
   // Of a collection of entities nothing is encoded here: childRemoved brings
   // the old entity, if there was one.
   Wire::Writer value;
   bool const wasThere = entity.encodeMember(id, key, value);
   at->second = {wasThere, std::string(value.view()), nullptr};
   ++count_;
}

void HeldChanges::childAdded(Kem::Entity const& parent, AttrId, Kem::Entity const& child) {
   if (isNew(parent))
      return;
   new_.insert(&child);
   kept_.emplace_back(&child);
}

void HeldChanges::childRemoved(Kem::Entity const& parent, AttrId id, void const* key,
                               Ptr<Kem::Entity> const& child) {
   if (isNew(parent) || new_.contains(child.ptr()))
      return;
   Before& before = thingsOf(parent)[{id, keyBytes(parent, id, key)}];
   before.wasThere = true;
   before.entity = child;
}

void HeldChanges::release() {
   // Told in the order of the first change, so that what was written first is sent first. What is told of an
   // entity that was itself removed is part of telling its parent.
   for (size_t i = 0; i < touched_.size(); ++i) {
      Kem::Entity& entity = *touched_[i].entity;
      if (entity.sink() == &log_)
         tellDifference(entity, touched_[i].things);
   }
   touched_.clear();
   index_.clear();
   new_.clear();
   kept_.clear();
   count_ = 0;
}

void HeldChanges::tellDifference(Kem::Entity& entity, Things const& things) {
   Wire::Writer now;
   for (auto const& item : things) {
      Kem::AttrId const id = item.first.first;
      std::string const& key = item.first.second;
      Before const& before = item.second;
      now.clear();
      if (key.empty() && entity.encodeScalar(id, now)) {
         if (now.view() != before.value)
            log_.scalarChanged(entity, id);
         continue;
      }
      Wire::Reader in(key);
      if (before.entity || entity.childByKey(id, in)) {
         tellEntity(entity, id, key, before);
         continue;
      }
      withKey(entity, id, key, [&](void const* k) {
         now.clear();
         bool const isThere = entity.encodeMember(id, k, now);
         if (isThere != before.wasThere || (isThere && now.view() != before.value))
            log_.memberChanged(entity, id, k);
      });
   }
}

void HeldChanges::tellEntity(Kem::Entity& parent, AttrId id, std::string const& key, Before const& before) {
   Wire::Reader in(key);
   Kem::Entity* const now = parent.childByKey(id, in);
   Kem::Entity* const old = before.entity.ptr();
   if (now == old)
      return;
   if (old)
      rollBack(*old);
   if (old && now && &old->typeInfo() == &now->typeInfo() &&
       static_cast<Kem::Record const&>(*now).hasSameInputs(*old)) {
      // The node of a directory's entity lives on under the new object.
      now->nodeNumberIs(old->nodeNumber());
      now->encodeDifference(*old, log_);
      return;
   }
   if (old)
      withKey(parent, id, key, [&](void const* k) { log_.childRemoved(parent, id, k, before.entity); });
   if (now)
      log_.childAdded(parent, id, *now);
}

void HeldChanges::rollBack(Kem::Entity& entity) {
   auto const at = index_.find(&entity);
   if (at != index_.end()) {
      for (auto const& [thing, before] : touched_[at->second].things) {
         auto const& [id, key] = thing;
         Wire::Reader value(before.value);
         Wire::Reader in(key);
         if (before.entity)
            entity.placeChild(id, before.entity);
         else if (key.empty() && before.wasThere)
            entity.applySet(id, value);
         else if (before.wasThere)
            entity.applyPut(id, value);
         else
            entity.applyErase(id, in);
      }
   }
   entity.forEachChild([this](Kem::Entity& child) { rollBack(child); });
}

} // namespace Ordel
