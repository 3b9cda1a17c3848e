// A named object of the state tree: where it is, who follows it, and where its changes go.
//
// The attributes themselves are in the generated classes, which call scalarChanged and memberChanged
// after each change. A mutator calls no reactor: it records the change in each notifiee that wants
// it, and hands it to the sink (the attribute log of the connection that the entity was mounted
// through). An entity is owned by its parent or by whoever made it; the parent is a plain pointer, and
// null once the entity has been removed.
#pragma once

#include "Kem/Collections.h"
#include "Kem/FunctionRef.h"
#include "Kem/PtrInterface.h"
#include "Kem/String.h"
#include "Kem/Wire.h"

#include <memory>
#include <string>

namespace Kem {

class AttributeSink;
class Entity;
class Notifiee;

// Position of an attribute in the declared order of its class, inherited ones first.
using AttrId = uint8_t;

// What is known of a class. `id` is the number of the type in the schema; a class that is in no
// schema has noTypeId.
inline constexpr uint16_t noTypeId = 0xffff;
struct TypeInfo {
   char const* name;
   uint16_t id;
   TypeInfo const* base;
   Ptr<Entity> (
       *make)(); // an instance with its defaults, its key not yet set; null where there is no such thing
};

// Finds the class of a type number; null for an unknown one. The table behind it is generated.
using TypeFinder = TypeInfo const* (*)(uint16_t id);

class Entity : public PtrInterface {
  public:
   ~Entity() override;

   // The name in its directory; empty for a member of a collection and for a root.
   Name const& name() const { return name_; }
   Entity* parent() const { return parent_; }
   AttrId parentAttrId() const { return parentAttrId_; }
   // Name of the attribute of the parent that holds it; empty without a parent.
   std::string parentAttr() const;
   // As a selector, such as "bridging/config.vlanConfig[10]"; the bare name without a parent.
   std::string fullName() const;
   // As a path of slashes, such as "/bridging/config/vlanConfig/10".
   std::string uriPath() const;
   // Text name of a declared attribute; null for a number that the class has not.
   virtual char const* attributeString(AttrId id) const = 0;
   virtual TypeInfo const& typeInfo() const = 0;
   // The key under which it is in a collection, as text; a directory's child gives its name.
   virtual std::string keyText() const;
   // Whether it is under a key, which may be an empty text; without one its attribute names it.
   virtual bool hasKey() const { return !keyText().empty(); }

   // --- For the generated collections, the client of the state database and Dir.
   void nameIs(Name name) { name_ = std::move(name); }
   void parentIs(Entity* parent, AttrId attribute = 0);
   uint32_t nodeNumber() const { return nodeNumber_; }
   void nodeNumberIs(uint32_t number) { nodeNumber_ = number; }
   AttributeSink* sink() const { return sink_; }
   // Also for everything below it. Only what is writable may be changed by the process itself.
   void sinkIs(AttributeSink* sink, bool isWritable);
   bool isWritable() const { return isWritable_; }
   // Writes the `at` operation's address: node and steps. False while the node has no number.
   bool encodeAddress(Wire::Writer& out) const;

   // --- Generated: the record in its wire form, by attribute number. All answer false, or null, for what the
   // class has not, and leave `in` where it failed.
   virtual AttrId attributeCount() const = 0;
   virtual void encodeKey(Wire::Writer& out) const; // the key as in the parent's collection
   virtual bool decodeKey(Wire::Reader& in);        // of a new entity, before it is placed
   virtual bool encodeScalar(AttrId id, Wire::Writer& out) const { return false; } // false for a collection
   virtual bool isDefault(AttrId id) const { return false; }
   // Writes key and value.
   virtual bool encodeMember(AttrId id, void const* key, Wire::Writer& out) const { return false; }
   virtual void encodeMemberKey(AttrId id, void const* key, Wire::Writer& out) const {}
   // Reports to `out` every scalar that isn't at its default, and every member and child: the whole record.
   virtual void encodeContents(AttributeSink& out) const = 0;
   // Reports to `out` what makes `before` into this record.
   virtual void encodeDifference(Entity const& before, AttributeSink& out) const = 0;
   // Decodes the key of a collection and calls visit(&key); false when it can't be decoded.
   virtual bool visitMemberKey(AttrId id, Wire::Reader& key, FunctionRef<void(void const*)> visit) const {
      return false;
   }
   virtual bool applySet(AttrId id, Wire::Reader& in) { return false; }
   virtual bool applyPut(AttrId id, Wire::Reader& in) { return false; }
   virtual bool applyErase(AttrId id, Wire::Reader& in) { return false; }
   virtual bool applyReference(AttrId id, void const* key, Ptr<Entity> const& target) { return false; }
   virtual Entity* childByKey(AttrId id, Wire::Reader& key) { return nullptr; }
   // Places the entity that was made for `create` under its decoded key; an existing one is replaced.
   virtual bool placeChild(AttrId id, Ptr<Entity> const& child) { return false; }
   virtual void forEachChild(FunctionRef<void(Entity&)> visit) {}

  protected:
   explicit Entity(Name name = {}) : name_(std::move(name)) {}
   void onZeroReferences() override;

   // Before a change: raises "attempting to modify a const instance" where the process may only read.
   void changing() const {
      if (sink_ && !isWritable_) [[unlikely]]
         refuseReadOnly();
   }
   void scalarChanging(AttrId id) const; // the value has not changed yet
   void memberChanging(AttrId id, void const* key) const;
   void scalarChanged(AttrId id) const; // notifies and logs
   void memberChanged(AttrId id, void const* key) const;
   void childAdded(AttrId id, void const* key, Entity& child) const;
   void childRemoved(AttrId id, void const* key, Ptr<Entity> const& child) const;
   bool isFollowed() const { return notifiees_ || sink_; }

  private:
   friend class Notifiee;
   struct Followers;

   void leaveParent();
   [[noreturn]] static void throwConst();
   void refuseReadOnly() const;
   void notifieeAdd(Notifiee* notifiee) const;
   void notifieeDel(Notifiee* notifiee) const;

   AttrId parentAttrId_ = 0;
   bool isWritable_ = false;
   uint32_t nodeNumber_ = 0; // of an entity with a path; 0 while it has none
   Entity* parent_ = nullptr;
   AttributeSink* sink_ = nullptr; // where changes go; null for a local entity
   mutable Followers* notifiees_ = nullptr;
   Name name_;
};

// Where the changes of mounted entities go. One connection implements it as its attribute log; tests
// implement it to see operations.
class AttributeSink {
  public:
   // Muted while the changes that arrive from the database are applied: they must not go back.
   bool isMuted() const { return isMuted_; }
   void isMutedIs(bool muted) { isMuted_ = muted; }
   // While the log is held back it wants to know each thing before it changes.
   bool wantsBefore() const { return wantsBefore_; }

   virtual void scalarChanging(Entity const& entity, AttrId id) {}
   virtual void memberChanging(Entity const& entity, AttrId id, void const* key) {}
   virtual void scalarChanged(Entity const& entity, AttrId id) = 0;
   virtual void memberChanged(Entity const& entity, AttrId id, void const* key) = 0;
   // The sink takes what the child holds itself, by encodeContents.
   virtual void childAdded(Entity const& parent, AttrId id, Entity const& child) = 0;
   virtual void childRemoved(Entity const& parent, AttrId id, void const* key, Ptr<Entity> const& child) = 0;

  protected:
   ~AttributeSink() = default;
   bool isMuted_ = false;
   bool wantsBefore_ = false;
};

// Singletons: the one process-wide instance of a type, by the type's name.
Ptr<Entity> singleton(char const* typeName); // null while there is none
inline bool singletonExists(char const* typeName) {
   return static_cast<bool>(singleton(typeName));
}
// Creates it where it doesn't exist.
Ptr<Entity> singletonIs(TypeInfo const& type);
// Drops all; for the end of a test.
void singletonDelAll();

} // namespace Kem
