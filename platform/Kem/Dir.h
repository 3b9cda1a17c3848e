// A directory of the state tree: named children of any class, directories among them.
//
// The one collection that holds more than one class, and so the place where publishers come and go. Iteration
// is in the order of names, which is stable between changes.
#pragma once

#include "Kem/Notifiee.h"
#include "Kem/Record.h"

namespace Kem {

class Dir final : public Record {
  public:
   enum : AttrId { kEntityPtr = 0 };
   class NotifieeConst;
   using Entities = RbTreeMap<Entity, Name>;

   static TypeInfo const typeInfo_;
   static Ptr<Dir> make(Name name = {});

   // The child of that name; null when there is none.
   Ptr<Entity> entityPtr(Name const& name) const;
   // The same as a class; null also when the child is of another one.
   template <class T>
   Ptr<T> entity(Name const& name) const {
      return ptrCast<T>(entityPtr(name));
   }
   // Places the child under its name; another one of that name is removed first.
   void entityPtrIs(Ptr<Entity> const& child);
   // Nothing happens when there is none.
   void entityPtrDel(Name const& name);
   Entities const& entities() const { return entities_; }

   char const* attributeString(AttrId id) const override { return id == kEntityPtr ? "entityPtr" : nullptr; }
   TypeInfo const& typeInfo() const override { return typeInfo_; }
   AttrId attributeCount() const override { return 1; }
   void encodeMemberKey(AttrId id, void const* key, Wire::Writer& out) const override;
   void encodeContents(AttributeSink& out) const override;
   void encodeDifference(Entity const& before, AttributeSink& out) const override;
   bool visitMemberKey(AttrId id, Wire::Reader& key, FunctionRef<void(void const*)> visit) const override;
   bool applyErase(AttrId id, Wire::Reader& in) override;
   Entity* childByKey(AttrId id, Wire::Reader& key) override;
   bool placeChild(AttrId id, Ptr<Entity> const& child) override;
   void forEachChild(FunctionRef<void(Entity&)> visit) override;

  private:
   using Record::Record;
   Entities entities_;
};

class Dir::NotifieeConst : public Notifiee {
  public:
   virtual void onEntityPtr(Name const& name) {}
   virtual void onEntityPtr() {}
   virtual void onEntityPtrkemImmediate() {}

   Ptr<Dir const> notifier() const { return Ptr<Dir const>(static_cast<Dir const*>(boundNotifier())); }
   // The entity already bound: nothing. Another one: unbinds, binds, and runs handleInitialized().
   void notifierIs(Ptr<Dir const> const& dir);

  protected:
   template <class Derived>
   explicit NotifieeConst(Derived*)
       : Notifiee({.keyed = KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onEntityPtr, Name const&),
                   .plain = KEM_OVERRIDES(Derived, NotifieeConst, onEntityPtr),
                   .immediate = KEM_OVERRIDES(Derived, NotifieeConst, onEntityPtrkemImmediate)}) {
      static_assert(std::is_final_v<Derived>, "a reactor is final: what it overrides is found out here");
      static_assert(KEM_REACHABLE(Derived, onEntityPtr, Name const&) &&
                        KEM_REACHABLE_PLAIN(Derived, onEntityPtrkemImmediate),
                    "a reactor overrides in public: a hidden override would never be heard");
   }
   void onAttribute(AttrId) override { onEntityPtr(); }
   void onMember(AttrId id) override { onEntityPtr(takePending(pendingEntityPtr_, id)); }
   void onCollectionNotification(AttrId) override { onEntityPtrkemImmediate(); }
   void memberPending(AttrId, void const* key) override {
      pendingEntityPtr_.add(*static_cast<Name const*>(key));
   }
   void memberPendingClear(AttrId) override { pendingEntityPtr_.clear(); }

  private:
   PendingKeys<Name> pendingEntityPtr_;
};

} // namespace Kem
