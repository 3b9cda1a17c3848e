// A shared-memory table as an entity: reactors follow its rows, while the rows
// themselves stay in the shared memory.
//
// The table keeps a shadow of the keys (KeyShadow) and looks at the memory when it is woken (TableWatch).
// What a look finds reaches reactors as every change of an entity does: queued, by key, one notification for
// many changes. A value is copied from the memory when it is asked for, so it may be newer than the
// notification, or gone already.
//
// A file that is absent, or that is no such table, makes an empty table; the right one is taken when it
// comes. Only the writing process can write; for this one the table is read-only.
//
// Each walk or read that must be complete is bracketed like this. A row that can't be read whole is left out
// and remembered, and must not be taken for one that was removed:
//
//    int tries = 3;
//    do {
//       table->corruptionDetectedIs(false);
//       ... read ...
//    } while (table->corruptionDetected() && --tries > 0);
//
// The bound is needed: a writer that was killed in the middle of a row leaves it unreadable until the next
// writer comes. Owned by whoever mounted it. The notifications end when the last reference goes.
#pragma once

#include "Plaze/KeyShadow.h"
#include "Plaze/TableType.h"
#include "Plaze/TableWatch.h"

#include "Kem/Notifiee.h"
#include "Kem/Record.h"
#include "records/Codec.h"

#include <optional>

namespace Plaze {

class Table : public Kem::Entity {
  public:
   // Quick looks at rows that can't be read, followUpDelay apart, before it is
   // said and left to the slow look.
   static constexpr unsigned maxQuickLooks = 20;

   std::string const& filePath() const { return reader_.path(); }
   // Whether there is a file, and it is the right one.
   bool isPresent() const { return reader_.state() == Reader::State::good; }
   // Keys that the last look found.
   size_t size() const { return shadow_.slots().size(); }

   // Whether a row couldn't be read whole since this was last set to false.
   bool corruptionDetected() const { return corruptionDetected_; }
   void corruptionDetectedIs(bool detected) { corruptionDetected_ = detected; }

   // Looks now, without waiting to be woken. Reactors are notified in a later turn.
   void update() { look(); }

   Kem::AttrId attributeCount() const override { return 1; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}

  protected:
   Table(Kem::Name name, TableType const& type, std::string filePath);
   ~Table() override;

   // To be called once by the constructor of the class: the first look, and from then on by itself.
   void follow();
   // A key was added, changed or removed.
   virtual void handleKey(std::string_view key) = 0;

   KeyShadow::Slots const& slots() const { return shadow_.slots(); }
   // The value of a key, null where it isn't there or can't be read; the bytes hold until the next call.
   std::string const* valueAt(KeyShadow::Slots::const_iterator at) const;
   void refuseRow(std::string_view key) const;

  private:
   bool look();
   void tellState();

   TableType const& type_;
   Reader reader_;
   KeyShadow shadow_;
   mutable Entry entry_;
   mutable bool corruptionDetected_ = false;
   unsigned unreadableLooks_ = 0; // one after the other
   Reader::State toldState_ = Reader::State::absent;
   std::string toldReason_;
   std::optional<TableWatch> watch_;
};

// The rows of one type. The class of each table gives them the names of its attribute.
template <class Key, class Value>
class TypedTable : public Table {
  protected:
   using Table::Table;

   bool hasRow(Key const& key) const { return find(key) != slots().end(); }
   std::optional<Value> row(Key const& key) const { return valueOf(find(key)); }
   template <class Visit>
   void forEachRow(Visit&& visit) const {
      for (auto at = slots().begin(); at != slots().end(); ++at) {
         auto const key = decoded<Key>(at->first);
         if (!key)
            continue; // refused when it came
         if (auto const value = valueOf(at))
            visit(*key, *value);
      }
   }
   void handleKey(std::string_view bytes) override {
      if (auto const key = decoded<Key>(bytes))
         memberChanged(0, &*key);
      else
         refuseRow(bytes);
   }

  private:
   template <class T>
   static std::optional<T> decoded(std::string_view bytes) {
      Wire::Reader in(bytes);
      T value = Records::decode<T>(in);
      return in.good() && in.done() ? std::optional<T>(std::move(value)) : std::nullopt;
   }
   std::optional<Value> valueOf(KeyShadow::Slots::const_iterator at) const {
      auto const* const bytes = at == slots().end() ? nullptr : valueAt(at);
      if (!bytes)
         return std::nullopt;
      auto value = decoded<Value>(*bytes);
      if (!value)
         refuseRow(at->first);
      return value;
   }
   KeyShadow::Slots::const_iterator find(Key const& key) const {
      Wire::Writer out;
      Records::encode(out, key);
      return slots().find(out.view());
   }
};

// What the NotifieeConst of each table has in common: everything but the name of the attribute.
template <class T, class Key>
class TableNotifiee : public Kem::Notifiee {
  public:
   Kem::Ptr<T const> notifier() const { return Kem::Ptr<T const>(static_cast<T const*>(boundNotifier())); }
   // The entity already bound: nothing. Another one: unbinds, binds, and runs handleInitialized().
   void notifierIs(Kem::Ptr<T const> const& table) {
      if (notifierBind(table) && table && !isZombie())
         handleInitialized();
   }

  protected:
   explicit TableNotifiee(Kem::Interests interests) : Notifiee(interests) {}
   Key takeKey() { return takePending(pending_, 0); }
   void memberPending(Kem::AttrId, void const* key) override { pending_.add(*static_cast<Key const*>(key)); }
   void memberPendingClear(Kem::AttrId) override { pending_.clear(); }

  private:
   Kem::PendingKeys<Key> pending_;
};

} // namespace Plaze
