// What the mutators of generated records share: each is one line that calls one of these.
//
// All follow one order: nothing when nothing would change; the refusal of a read-only instance; the call to
// a held log before the change; the change; the notifications and the log.
#pragma once

#include "Kem/Entity.h"

#include <string>

namespace Kem {

// An existing child was asked for with another constructor input: the value that
// it has, and the one asked for.
[[noreturn]] void throwReinstantiating(char const* attribute, std::string const& standing,
                                       std::string const& asked);
[[noreturn]] void throwNullParameter(char const* attribute, char const* type);

class Record : public Entity {
  protected:
   using Entity::Entity;

   template <class T>
   void scalarIs(T& member, AttrId id, T const& value) {
      if (member == value)
         return;
      changing();
      scalarChanging(id);
      member = value;
      scalarChanged(id);
   }

   // Collections of values and of references.
   template <class Map, class Key, class Value>
   void memberIs(Map& map, AttrId id, Key const& key, Value const& value) {
      if (sink() && (sink()->wantsBefore() || !isWritable())) {
         if (auto const* old = map.find(key); old && *old == value)
            return;
         changing();
         memberChanging(id, &key);
      }
      auto const [at, isNew] = map.findOrInsert(key, [&] { return value; });
      if (!isNew) {
         if (*at == value)
            return;
         *at = value;
      }
      if (isFollowed())
         memberChanged(id, &key);
   }
   template <class Map, class Key>
   void memberDel(Map& map, AttrId id, Key const& key) {
      if (!map.find(key))
         return;
      changing();
      memberChanging(id, &key);
      // The key may be the one that is in the map.
      Key const gone = key;
      map.erase(gone);
      if (isFollowed())
         memberChanged(id, &gone);
   }
   template <class Map>
   void memberDelAll(Map& map, AttrId id) {
      for (auto at = map.begin(); at; at.next())
         memberDel(map, id, at.key());
   }

   // Collections of owned entities. `make` gives the new child, its key set.
   template <class T, class Map, class Key, class Make>
   Ptr<T> childIs(Map& map, AttrId id, Key const& key, Make&& make) {
      if (auto* standing = map.find(key))
         return *standing;
      Ptr<T> child = make();
      childPlace(map, id, key, child);
      return child;
   }
   template <class Map, class Key, class T>
   void childPlace(Map& map, AttrId id, Key const& key, Ptr<T> const& child) {
      childDel(map, id, key);
      changing();
      memberChanging(id, &key);
      map.findOrInsert(key, [&] { return child; });
      child->parentIs(this, id);
      childAdded(id, &key, *child);
   }
   template <class Map, class Key>
   void childDel(Map& map, AttrId id, Key const& key) {
      auto* standing = map.find(key);
      if (!standing)
         return;
      changing();
      memberChanging(id, &key);
      Key const gone = key;
      Ptr<Entity> const child(*standing);
      map.erase(gone);
      childRemoved(id, &gone, child);
   }
   template <class Map>
   void childDelAll(Map& map, AttrId id) {
      for (auto at = map.begin(); at; at.next())
         childDel(map, id, at.key());
   }

   // --- Whole records, for the log.
   template <class Map>
   void encodeMembers(Map const& map, AttrId id, AttributeSink& out) const {
      map.forEach([&](auto const& key, auto const&) { out.memberChanged(*this, id, &key); });
   }
   template <class Map>
   void encodeChildren(Map const& map, AttrId id, AttributeSink& out) const {
      map.forEach([&](auto const&, auto const& child) { out.childAdded(*this, id, *child); });
   }
   template <class Map>
   void encodeMemberDifference(Map const& before, Map const& map, AttrId id, AttributeSink& out) const {
      before.forEach([&](auto const& key, auto const&) {
         if (!map.find(key))
            out.memberChanged(*this, id, &key);
      });
      map.forEach([&](auto const& key, auto const& value) {
         auto const* old = before.find(key);
         if (!old || !(*old == value))
            out.memberChanged(*this, id, &key);
      });
   }
   template <class Map>
   void encodeChildDifference(Map const& before, Map const& map, AttrId id, AttributeSink& out) const {
      before.forEach([&](auto const& key, auto const& child) {
         if (!map.find(key))
            out.childRemoved(*this, id, &key, Ptr<Entity>(child));
      });
      map.forEach([&](auto const& key, auto const& child) {
         auto const* old = before.find(key);
         if (old && &(*old)->typeInfo() == &child->typeInfo() && !inputsDiffer(**old, *child)) {
            child->encodeDifference(**old, out);
            return;
         }
         if (old)
            out.childRemoved(*this, id, &key, Ptr<Entity>(*old));
         out.childAdded(*this, id, *child);
      });
   }

  public:
   // Whether a constructor input other than the key differs: then one can't be made from the other.
   virtual bool hasSameInputs(Entity const& other) const { return true; }

  private:
   static bool inputsDiffer(Entity const& a, Entity const& b) {
      return !static_cast<Record const&>(a).hasSameInputs(b);
   }
};

} // namespace Kem
