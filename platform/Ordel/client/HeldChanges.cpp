#include "Ordel/client/HeldChanges.h"

#include "Kem/Record.h"

namespace Ordel {

using Kem::AttrId;
using Kem::Ptr;

std::string HeldChanges::keyBytes(Kem::Entity const& entity, AttrId id, void const* key) {
   Wire::Writer out;
   entity.encodeMemberKey(id, key, out);
   return std::string(out.view());
}

bool HeldChanges::isNew(Kem::Entity const& entity) const {
   if (new_.empty())
      return false;
   if (&entity == lastNew_)
      return true;
   // What is only below a new one isn't remembered: it may be gone, and its address be another's.
   if (new_.contains(&entity)) {
      lastNew_ = &entity;
      return true;
   }
   for (Kem::Entity const* at = entity.parent(); at; at = at->parent())
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
   at->second = {true, false, std::string(value.view()), nullptr};
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
   at->second = {wasThere, false, std::string(value.view()), nullptr};
   ++count_;
}

void HeldChanges::isInDatabase(Kem::Entity const& entity, AttrId id, std::string const& key,
                               std::string value) {
   if (isNew(entity))
      return;
   auto const [at, isFirst] = thingsOf(entity).try_emplace({id, key});
   if (!isFirst)
      return;
   at->second = {true, false, std::move(value), nullptr};
   ++count_;
}

void HeldChanges::childAdded(Kem::Entity const& parent, AttrId id, Kem::Entity const& child) {
   if (isNew(parent))
      return;
   // The removed entity itself comes back: what was done to it meanwhile has not been seen.
   if (auto const old = places_.find(&child); old != places_.end()) {
      Wire::Writer key;
      child.encodeKey(key);
      if (old->second.first == &parent)
         foreignChange(parent, id, key.view());
   }
   new_.insert(&child);
   kept_.emplace_back(&child);
}

void HeldChanges::childRemoved(Kem::Entity const& parent, AttrId id, void const* key,
                               Ptr<Kem::Entity> const& child) {
   if (isNew(parent) || new_.contains(child.ptr()))
      return;
   Thing const thing(id, keyBytes(parent, id, key));
   Before& before = thingsOf(parent)[thing];
   before.wasThere = true;
   before.entity = child;
   places_[child.ptr()] = {&parent, thing};
}

// --- Other writers.

void HeldChanges::foreignChange(Kem::Entity const& entity, AttrId id, std::string_view key) {
   auto const at = index_.find(&entity);
   if (at == index_.end())
      return;
   Things& things = touched_[at->second].things;
   if (auto const thing = things.find({id, std::string(key)}); thing != things.end())
      thing->second.isStale = true;
}

void HeldChanges::foreignChangeIn(Kem::Entity const& removed) {
   Kem::Entity const* top = &removed;
   while (top->parent())
      top = top->parent();
   if (auto const at = places_.find(top); at != places_.end())
      foreignChange(*at->second.first, at->second.second.first, at->second.second.second);
}

Ptr<Kem::Entity> HeldChanges::removed(Kem::Entity const& parent, AttrId id, std::string_view key) const {
   auto const at = index_.find(&parent);
   if (at == index_.end())
      return nullptr;
   Things const& things = touched_[at->second].things;
   auto const thing = things.find({id, std::string(key)});
   return thing == things.end() ? nullptr : thing->second.entity;
}

void HeldChanges::foreignChangeOfAll() {
   for (auto& touched : touched_)
      for (auto& [thing, before] : touched.things)
         before.isStale = true;
}

// --- Release.

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
   places_.clear();
   new_.clear();
   lastNew_ = nullptr;
   kept_.clear();
   count_ = 0;
}

void HeldChanges::tellDifference(Kem::Entity& entity, Things const& things) {
   // An entity that went is told before what came under its key in another collection: the schema may keep the
   // two apart, and what is told may reach the database in several blocks. (A value that went for an entity that
   // came is told first by the order of attributes.)
   auto const hasGone = [&](Things::value_type const& item) {
      Wire::Reader key(item.first.second);
      return item.second.entity && !item.second.isStale && !entity.childByKey(item.first.first, key);
   };
   std::multimap<std::string_view, Things::value_type const*> gone; // by key; those not told yet
   for (auto const& item : things)
      if (hasGone(item))
         gone.emplace(item.first.second, &item);
   Wire::Writer now;
   for (auto const& item : things) {
      auto const [begin, end] = gone.equal_range(item.first.second);
      for (auto at = begin; at != end; ++at)
         tellEntity(entity, at->second->first.first, at->second->first.second, at->second->second);
      gone.erase(begin, end);
      if (hasGone(item))
         continue;
      Kem::AttrId const id = item.first.first;
      std::string const& key = item.first.second;
      Before const& before = item.second;
      if (before.isStale) {
         tellStale(entity, id, key, before);
         continue;
      }
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

void HeldChanges::tellStale(Kem::Entity& entity, AttrId id, std::string const& key, Before const& before) {
   Wire::Writer now;
   if (key.empty() && entity.encodeScalar(id, now)) {
      log_.scalarChanged(entity, id);
      return;
   }
   Wire::Reader in(key);
   Ptr<Kem::Entity> const child(entity.childByKey(id, in));
   withKey(entity, id, key, [&](void const* k) {
      if (!child && !before.entity) {
         log_.memberChanged(entity, id, k);
         return;
      }
      // Either may have become a node of the database meanwhile. To erase what isn't there does no harm.
      if (before.entity)
         log_.childRemoved(entity, id, k, before.entity);
      if (child) {
         log_.childRemoved(entity, id, k, child);
         log_.childAdded(entity, id, *child);
      }
   });
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
      // A node lives on under the new object.
      replaced_(*old, *now);
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
