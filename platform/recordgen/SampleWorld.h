// What the tests of generated classes share: a sink that copies one record tree into another through the wire
// form, and one that only counts.
#pragma once

#include "Kem/Entity.h"
#include "records/Schema.h"

#include <map>
#include <set>
#include <string>

namespace SampleTest {

// Counts what is reported to it, by kind.
struct CountingSink final : Kem::AttributeSink {
   int scalars = 0, members = 0, added = 0, removed = 0;
   int total() const { return scalars + members + added + removed; }

   void scalarChanged(Kem::Entity const&, Kem::AttrId) override { ++scalars; }
   void memberChanged(Kem::Entity const&, Kem::AttrId, void const*) override { ++members; }
   void childAdded(Kem::Entity const&, Kem::AttrId, Kem::Entity const&) override { ++added; }
   void childRemoved(Kem::Entity const&, Kem::AttrId, void const*, Kem::Ptr<Kem::Entity> const&) override {
      ++removed;
   }
};

// Takes what is said of a record tree and does it to a copy, by way of bytes, as the two ends of a connection
// do. References are resolved among the copied entities; one to anything else becomes null.
class CopyingSink final : public Kem::AttributeSink {
  public:
   CopyingSink(Kem::Entity const& from, Kem::Entity& to) { copies_[&from] = &to; }

   bool isGood = true; // every operation was taken
   size_t bytes = 0;   // of values and keys

   void scalarChanged(Kem::Entity const& entity, Kem::AttrId id) override {
      if (form(entity, id) == Records::Form::reference)
         return; // reported by selector, and resolved by whoever keeps the tree
      Wire::Writer out;
      isGood = entity.encodeScalar(id, out) && isGood;
      bytes += out.size();
      Wire::Reader in(out.view());
      isGood = copy(entity).applySet(id, in) && in.done() && isGood;
   }
   void memberChanged(Kem::Entity const& entity, Kem::AttrId id, void const* key) override {
      Wire::Writer out;
      bool const isThere = entity.encodeMember(id, key, out);
      if (form(entity, id) == Records::Form::references)
         return;
      if (!isThere)
         entity.encodeMemberKey(id, key, out);
      bytes += out.size();
      Wire::Reader in(out.view());
      isGood =
          (isThere ? copy(entity).applyPut(id, in) : copy(entity).applyErase(id, in)) && in.done() && isGood;
   }
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child) override {
      Wire::Writer key;
      child.encodeKey(key);
      bytes += key.size();
      Wire::Reader in(key.view());
      Kem::Ptr<Kem::Entity> const made = child.typeInfo().make();
      isGood = made->decodeKey(in) && in.done() && copy(parent).placeChild(id, made) && isGood;
      copies_[&child] = made.ptr();
      child.encodeContents(*this);
   }
   void childRemoved(Kem::Entity const& parent, Kem::AttrId id, void const* key,
                     Kem::Ptr<Kem::Entity> const&) override {
      Wire::Writer out;
      parent.encodeMemberKey(id, key, out);
      Wire::Reader in(out.view());
      isGood = copy(parent).applyErase(id, in) && in.done() && isGood;
   }
   // For encodeDifference, whose children exist already: their copies are found by key.
   void standingChild(Kem::Entity const& child, Kem::Entity& itsCopy) { copies_[&child] = &itsCopy; }

  private:
   static Records::Form form(Kem::Entity const& entity, Kem::AttrId id) {
      return Records::schema().entities[entity.typeInfo().id].attributes[id].form;
   }
   Kem::Entity& copy(Kem::Entity const& of) { return *copies_.at(&of); }

   std::map<Kem::Entity const*, Kem::Entity*> copies_;
};

// Records what encodeContents reports, so that two records can be compared without encodeDifference.
struct ListingSink final : Kem::AttributeSink {
   std::multiset<std::string> lines; // selector, attribute, bytes

   void scalarChanged(Kem::Entity const& entity, Kem::AttrId id) override {
      Wire::Writer out;
      entity.encodeScalar(id, out);
      add(entity, id, out);
   }
   void memberChanged(Kem::Entity const& entity, Kem::AttrId id, void const* key) override {
      Wire::Writer out;
      entity.encodeMember(id, key, out);
      add(entity, id, out);
   }
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child) override {
      lines.insert(child.fullName() + ' ' + child.typeInfo().name);
      child.encodeContents(*this);
   }
   void childRemoved(Kem::Entity const&, Kem::AttrId, void const*, Kem::Ptr<Kem::Entity> const&) override {}

  private:
   void add(Kem::Entity const& entity, Kem::AttrId id, Wire::Writer const& bytes) {
      lines.insert(entity.fullName() + '.' + entity.attributeString(id) + ' ' + std::string(bytes.view()));
   }
};

// Whether the two hold the same by the contents of each, and by the difference between them.
inline bool isEqual(Kem::Entity const& a, Kem::Entity const& b) {
   ListingSink listA, listB;
   a.encodeContents(listA);
   b.encodeContents(listB);
   CountingSink difference;
   a.encodeDifference(b, difference);
   return listA.lines == listB.lines && difference.total() == 0;
}

} // namespace SampleTest
