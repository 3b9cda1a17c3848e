#include "Ordel/client/References.h"

#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Selector.h"

#include <algorithm>
#include <utility>

namespace Ordel {

using Kem::Entity;
using Kem::Ptr;

namespace {

template <class Use>
void eachEntityBelow(Entity& entity, Use const& use) {
   use(entity);
   entity.forEachChild([&](Entity& child) { eachEntityBelow(child, use); });
}

} // namespace

References::References(Records::Schema const& schema, Find find) : find_(std::move(find)) {
   for (auto const& type : schema.entities)
      for (auto const& attribute : type.attributes)
         if (attribute.form == Records::Form::children) {
            auto& types = keyTypes_[attribute.name];
            if (std::find(types.begin(), types.end(), attribute.key) == types.end())
               types.push_back(attribute.key);
         }
}

// --- What the database says.

void References::referenceIs(Place place, std::string selector) {
   Key const key(place.holder.ptr(), Thing(place.attribute, std::move(place.key)));
   if (selector.empty() && key.second.second.empty()) {
      forget(key);
      give(*place.holder, key.second, nullptr);
      return;
   }
   Holder& holder = holders_[key.first];
   holder.entity = place.holder;
   auto const [at, isNew] = holder.references.try_emplace(key.second);
   size_ += isNew;
   Reference& reference = at->second;
   if (!isNew)
      unlink(key, reference);
   reference.selector = std::move(selector);
   if (!apply(key, holder, reference))
      forget(key);
}

void References::referenceDel(Place const& place) {
   forget({place.holder.ptr(), {place.attribute, place.key}});
}

// --- What the process does.

std::optional<std::string> References::taken(Entity const& holder, Kem::AttrId attribute,
                                             std::string const& key) {
   auto const at = holders_.find(&holder);
   if (at == holders_.end())
      return {};
   auto const reference = at->second.references.find({attribute, key});
   if (reference == at->second.references.end() || !reference->second.isDangling)
      return {};
   auto selector = reference->second.selector;
   forget({&holder, {attribute, key}});
   return selector;
}

std::vector<References::Dangling> References::takeDangling() {
   std::vector<Dangling> dangling;
   std::vector<Key> keys;
   for (auto const& [entity, holder] : holders_)
      for (auto const& [thing, reference] : holder.references)
         if (reference.isDangling) {
            dangling.push_back({{holder.entity, thing.first, thing.second}, reference.selector});
            keys.emplace_back(entity, thing);
         }
   for (auto const& key : keys)
      forget(key);
   return dangling;
}

// --- Targets and holders that come and go.

void References::came(Ptr<Entity> const& entity) {
   if (!bySelector_.empty())
      came_.push_back(entity);
}

void References::went(Ptr<Entity> const& entity) {
   if (!holders_.empty())
      went_.push_back(entity);
}

void References::resolve() {
   if (!hasNews())
      return;
   std::vector<Key> concerned;
   for (auto const& top : std::exchange(went_, {}))
      eachEntityBelow(*top, [&](Entity& entity) {
         if (!entity.sink())
            forgetHolder(entity);
         auto const [first, last] = byTarget_.equal_range(&entity);
         for (auto at = first; at != last; ++at)
            concerned.push_back(at->second);
      });
   for (auto const& top : std::exchange(came_, {}))
      eachEntityBelow(*top, [&](Entity& entity) {
         if (bySelector_.empty())
            return;
         auto const [first, last] = bySelector_.equal_range(entity.fullName());
         for (auto at = first; at != last; ++at)
            concerned.push_back(at->second);
      });
   for (auto const& key : concerned) {
      auto const holder = holders_.find(key.first);
      if (holder == holders_.end())
         continue;
      auto const at = holder->second.references.find(key.second);
      if (at != holder->second.references.end() && !apply(key, holder->second, at->second))
         forget(key);
   }
}

bool References::apply(Key const& key, Holder& holder, Reference& reference) {
   ++lookupCount_;
   auto const found = find_(reference.selector);
   bool const isOwn = holder.entity->isWritable();
   if (found.ptr() != reference.current || !found)
      give(*holder.entity, key.second, found);
   unlink(key, reference);
   if (found && isOwn)
      return false;
   reference.current = found.ptr();
   if (found) {
      byTarget_.emplace(found.ptr(), key);
      return true;
   }
   reference.isDangling = isOwn;
   danglingCount_ += isOwn;
   reference.waitsFor = formsOf(reference.selector);
   for (auto const& form : reference.waitsFor)
      bySelector_.emplace(form, key);
   return true;
}

void References::give(Entity& holder, Thing const& thing, Ptr<Entity> const& target) {
   Kem::AttrId const attribute = thing.first;
   std::string const& key = thing.second;
   if (key.empty()) {
      holder.applyReference(attribute, nullptr, target);
      return;
   }
   Wire::Reader in(key);
   holder.visitMemberKey(attribute, in, [&](void const* k) { holder.applyReference(attribute, k, target); });
}

// --- The tables.

void References::unlink(Key const& key, Reference& reference) {
   auto const drop = [&](auto& table, auto const& from) {
      auto const [first, last] = table.equal_range(from);
      for (auto at = first; at != last; ++at)
         if (at->second == key) {
            table.erase(at);
            return;
         }
   };
   if (reference.current)
      drop(byTarget_, reference.current);
   for (auto const& form : std::exchange(reference.waitsFor, {}))
      drop(bySelector_, form);
   danglingCount_ -= std::exchange(reference.isDangling, false);
}

void References::forget(Key const& key) {
   auto const holder = holders_.find(key.first);
   if (holder == holders_.end())
      return;
   auto const at = holder->second.references.find(key.second);
   if (at == holder->second.references.end())
      return;
   unlink(key, at->second);
   holder->second.references.erase(at);
   --size_;
   if (holder->second.references.empty())
      holders_.erase(holder);
}

void References::forgetHolder(Entity const& entity) {
   auto const at = holders_.find(&entity);
   if (at == holders_.end())
      return;
   for (auto& [thing, reference] : at->second.references)
      unlink({&entity, thing}, reference);
   size_ -= at->second.references.size();
   holders_.erase(at);
}

// A target is found by its full name, but a reference may have been written by hand, with another text for the
// same key. What a key's text can mean depends on its type, so there is a form for each type that it can have.
std::vector<std::string> References::formsOf(std::string const& text) const {
   Selector selector;
   std::string error;
   if (!Selector::parse(text, selector, error))
      return {};
   std::vector<Selector> forms{Selector{selector.path, {}}};
   for (auto const& step : selector.steps) {
      auto const types = keyTypes_.find(step.attribute);
      if (types == keyTypes_.end() || !step.hasKey)
         return {};
      std::vector<Selector> longer;
      for (auto const* type : types->second) {
         KeyBytes const key = keyFromText(*type, step.key);
         if (!key.isGood())
            continue;
         for (Selector form : forms) {
            form.steps.push_back({step.attribute, keyText(*type, key.bytes), true});
            if (std::find(longer.begin(), longer.end(), form) == longer.end())
               longer.push_back(std::move(form));
         }
      }
      forms = std::move(longer);
   }
   std::vector<std::string> texts;
   for (auto const& form : forms)
      texts.push_back(form.text());
   return texts;
}

} // namespace Ordel
