// The table of interface counters, "interface/counter/subintf/current": frames and bytes of
// each subinterface, written by the agent of the forwarding hardware. Read-only; Plaze/Table.h
// says what a table does.
#pragma once

#include "Plaze/Table.h"

#include "Sulvi/IntfId.h"
#include "records/Interface/types.h"

namespace Plaze::Interface {

class AllIntfCounterDir final : public TypedTable<Sulvi::IntfId, ::Interface::IntfCounters> {
  public:
   enum : Kem::AttrId { kIntfCounter = 0 };
   class NotifieeConst;

   static Kem::TypeInfo const typeInfo_;
   static Kem::Ptr<AllIntfCounterDir> make(Kem::Name name, std::string filePath);

   // Whether the last look found the interface; its row may be unreadable at the moment.
   bool hasIntfCounter(Sulvi::IntfId intfId) const { return hasRow(intfId); }
   // Nothing where there is no such interface, or where corruptionDetected() says that it couldn't be read.
   std::optional<::Interface::IntfCounters> intfCounter(Sulvi::IntfId intfId) const { return row(intfId); }
   // visit(intfId, counters) for each that can be read, in no order. It must not call update().
   template <class Visit>
   void forEachIntfCounter(Visit&& visit) const {
      forEachRow(visit);
   }

   char const* attributeString(Kem::AttrId id) const override {
      return id == kIntfCounter ? "intfCounter" : nullptr;
   }
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }

  private:
   AllIntfCounterDir(Kem::Name name, std::string filePath);
};

class AllIntfCounterDir::NotifieeConst : public TableNotifiee<AllIntfCounterDir, Sulvi::IntfId> {
  public:
   virtual void onIntfCounter(Sulvi::IntfId intfId) {}
   virtual void onIntfCounter() {}
   virtual void onIntfCounterkemImmediate() {}

  protected:
   template <class Derived>
   explicit NotifieeConst(Derived*)
       : TableNotifiee({.keyed = KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onIntfCounter, Sulvi::IntfId),
                        .plain = KEM_OVERRIDES(Derived, NotifieeConst, onIntfCounter),
                        .immediate = KEM_OVERRIDES(Derived, NotifieeConst, onIntfCounterkemImmediate)}) {
      static_assert(std::is_final_v<Derived>, "a reactor is final: what it overrides is found out here");
      static_assert(KEM_REACHABLE(Derived, onIntfCounter, Sulvi::IntfId) &&
                        KEM_REACHABLE_PLAIN(Derived, onIntfCounterkemImmediate),
                    "a reactor overrides in public: a hidden override would never be heard");
   }
   void onAttribute(Kem::AttrId) override { onIntfCounter(); }
   void onMember(Kem::AttrId) override { onIntfCounter(takeKey()); }
   void onCollectionNotification(Kem::AttrId) override { onIntfCounterkemImmediate(); }
};

} // namespace Plaze::Interface
