// The table of learned hosts, "bridging/status": what the forwarding hardware's agent has learned, by
// filtering database and address. Read-only; Plaze/Table.h says what a table does.
#pragma once

#include "Plaze/Table.h"

#include "records/Bridging/types.h"

namespace Plaze::Bridging {

class Status final : public TypedTable<::Bridging::HostKey, ::Bridging::LearnedHost> {
  public:
   enum : Kem::AttrId { kLearnedHost = 0 };
   class NotifieeConst;

   static Kem::TypeInfo const typeInfo_;
   static Kem::Ptr<Status> make(Kem::Name name, std::string filePath);

   // Whether the last look found the host; its row may be unreadable at the moment.
   bool hasLearnedHost(::Bridging::HostKey const& key) const { return hasRow(key); }
   // Nothing where there is no such host, or where corruptionDetected() says that it couldn't be read.
   std::optional<::Bridging::LearnedHost> learnedHost(::Bridging::HostKey const& key) const {
      return row(key);
   }
   // visit(key, host) for each that can be read, in no order. It must not call update().
   template <class Visit>
   void forEachLearnedHost(Visit&& visit) const {
      forEachRow(visit);
   }

   char const* attributeString(Kem::AttrId id) const override {
      return id == kLearnedHost ? "learnedHost" : nullptr;
   }
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }

  private:
   Status(Kem::Name name, std::string filePath);
};

class Status::NotifieeConst : public TableNotifiee<Status, ::Bridging::HostKey> {
  public:
   virtual void onLearnedHost(::Bridging::HostKey const& key) {}
   virtual void onLearnedHost() {}
   virtual void onLearnedHostkemImmediate() {}

  protected:
   template <class Derived>
   explicit NotifieeConst(Derived*)
       : TableNotifiee(
             {.keyed = KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onLearnedHost, ::Bridging::HostKey const&),
              .plain = KEM_OVERRIDES(Derived, NotifieeConst, onLearnedHost),
              .immediate = KEM_OVERRIDES(Derived, NotifieeConst, onLearnedHostkemImmediate)}) {
      static_assert(std::is_final_v<Derived>, "a reactor is final: what it overrides is found out here");
      static_assert(KEM_REACHABLE(Derived, onLearnedHost, ::Bridging::HostKey const&) &&
                        KEM_REACHABLE_PLAIN(Derived, onLearnedHostkemImmediate),
                    "a reactor overrides in public: a hidden override would never be heard");
   }
   void onAttribute(Kem::AttrId) override { onLearnedHost(); }
   void onMember(Kem::AttrId) override { onLearnedHost(takeKey()); }
   void onCollectionNotification(Kem::AttrId) override { onLearnedHostkemImmediate(); }
};

} // namespace Plaze::Bridging
