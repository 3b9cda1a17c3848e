// The small world of the unit tests of this room: hand-written records in the form of the generated ones,
// reactors that record their notifications, and a fixture that owns the clock.
//
//    Box   label, count          scalars
//          weight[u32]           values in a hash map
//          tag[String8]          values in key order
//          item[u16]             owned children
//          favourite[u16]        references to Items
//    Item  number (key), colour (input), note
#pragma once

#include "Kem/Activity.h"
#include "Kem/Dir.h"
#include "Kem/Notifiee.h"
#include "Kem/Record.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace KemTest {

using Kem::AttrId;
using Kem::Ptr;
using Kem::String8;
using Calls = std::vector<std::string>; // notifications, in order

class Item final : public Kem::Record {
  public:
   enum : AttrId { kNumber = 0, kColour = 1, kNote = 2, kAttributeCount = 3 };
   static Kem::TypeInfo const typeInfo_;
   static inline int alive = 0; // objects of this class

   static Ptr<Item> make(uint16_t number = 0, String8 colour = "grey") {
      auto item = Ptr<Item>::adopt(new Item);
      item->number_ = number;
      item->colour_ = std::move(colour);
      return item;
   }
   ~Item() override { --alive; }

   uint16_t number() const { return number_; }
   String8 const& colour() const { return colour_; }
   String8 const& note() const { return note_; }
   void noteIs(String8 const& v) { scalarIs(note_, kNote, v); }

   char const* attributeString(AttrId id) const override {
      static constexpr char const* names[] = {"number", "colour", "note"};
      return id < kAttributeCount ? names[id] : nullptr;
   }
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }
   std::string keyText() const override { return std::to_string(number_); }
   AttrId attributeCount() const override { return kAttributeCount; }
   void encodeKey(Wire::Writer& out) const override { out.u16(number_); }
   void encodeContents(Kem::AttributeSink& out) const override {
      if (!note_.empty())
         out.scalarChanged(*this, kNote);
   }
   void encodeDifference(Entity const& before, Kem::AttributeSink& out) const override {
      if (static_cast<Item const&>(before).note_ != note_)
         out.scalarChanged(*this, kNote);
   }
   bool hasSameInputs(Entity const& other) const override {
      return static_cast<Item const&>(other).colour_ == colour_;
   }

  private:
   Item() { ++alive; }
   uint16_t number_ = 0;
   String8 colour_;
   String8 note_;
};

inline Kem::TypeInfo const Item::typeInfo_ = {"KemTest::Item", 901, nullptr,
                                              [] { return Ptr<Kem::Entity>(make()); }};

class Box final : public Kem::Record {
  public:
   enum : AttrId {
      kLabel = 0,
      kCount = 1,
      kWeight = 2,
      kTag = 3,
      kItem = 4,
      kFavourite = 5,
      kAttributeCount = 6
   };
   class NotifieeConst;
   static Kem::TypeInfo const typeInfo_;
   static inline int alive = 0;

   using Weights = Kem::ValueMap<uint32_t, int>;
   using Tags = Kem::OrderedValueMap<String8, bool>;
   using Items = Kem::HashMap<Item, uint16_t>;

   static Ptr<Box> make(Kem::Name name = {}) { return Ptr<Box>::adopt(new Box(std::move(name))); }
   ~Box() override { --alive; }

   String8 const& label() const { return label_; }
   void labelIs(String8 const& v) { scalarIs(label_, kLabel, v); }

   uint64_t count() const { return count_; }
   void countIs(uint64_t v) { scalarIs(count_, kCount, v); }

   Weights const& weight() const { return weight_; }
   void weightIs(uint32_t key, int value) { memberIs(weight_, kWeight, key, value); }
   void weightDel(uint32_t key) { memberDel(weight_, kWeight, key); }
   void weightDelAll() { memberDelAll(weight_, kWeight); }

   Tags const& tag() const { return tag_; }
   void tagIs(String8 const& key, bool value) { memberIs(tag_, kTag, key, value); }
   void tagDel(String8 const& key) { memberDel(tag_, kTag, key); }
   void tagDelAll() { memberDelAll(tag_, kTag); }

   Items const& item() const { return item_; }
   Ptr<Item> item(uint16_t number) const {
      auto const* found = item_.find(number);
      return found ? *found : nullptr;
   }
   Ptr<Item> itemIs(uint16_t number, String8 const& colour = "grey") {
      auto child = childIs<Item>(item_, kItem, number, [&] { return Item::make(number, colour); });
      if (child->colour() != colour)
         Kem::throwReinstantiating("colour", child->colour().str(), colour.str());
      return child;
   }
   Ptr<Item> newItem(uint16_t number, String8 const& colour = "grey") {
      auto child = Item::make(number, colour);
      childPlace(item_, kItem, number, child);
      return child;
   }
   void itemDel(uint16_t number) { childDel(item_, kItem, number); }
   void itemDelAll() { childDelAll(item_, kItem); }

   Items const& favourite() const { return favourite_; }
   void favouriteIs(Ptr<Item> const& record) {
      if (!record)
         Kem::throwNullParameter("favourite", "KemTest::Box");
      memberIs(favourite_, kFavourite, record->number(), record);
   }
   void favouriteDel(uint16_t number) { memberDel(favourite_, kFavourite, number); }

   char const* attributeString(AttrId id) const override {
      static constexpr char const* names[] = {"label", "count", "weight", "tag", "item", "favourite"};
      return id < kAttributeCount ? names[id] : nullptr;
   }
   Kem::TypeInfo const& typeInfo() const override { return typeInfo_; }
   AttrId attributeCount() const override { return kAttributeCount; }
   void encodeContents(Kem::AttributeSink& out) const override {
      if (!label_.empty())
         out.scalarChanged(*this, kLabel);
      if (count_ != 0)
         out.scalarChanged(*this, kCount);
      encodeMembers(weight_, kWeight, out);
      encodeMembers(tag_, kTag, out);
      encodeChildren(item_, kItem, out);
      encodeMembers(favourite_, kFavourite, out);
   }
   void encodeDifference(Entity const& other, Kem::AttributeSink& out) const override {
      auto const& before = static_cast<Box const&>(other);
      if (before.label_ != label_)
         out.scalarChanged(*this, kLabel);
      if (before.count_ != count_)
         out.scalarChanged(*this, kCount);
      encodeMemberDifference(before.weight_, weight_, kWeight, out);
      encodeMemberDifference(before.tag_, tag_, kTag, out);
      encodeChildDifference(before.item_, item_, kItem, out);
   }
   void forEachChild(Kem::FunctionRef<void(Entity&)> visit) override {
      item_.forEach([&](uint16_t, Ptr<Item> const& child) { visit(*child); });
   }

  private:
   explicit Box(Kem::Name name) : Record(std::move(name)) { ++alive; }
   String8 label_;
   uint64_t count_ = 0;
   Weights weight_;
   Tags tag_;
   Items item_;
   Items favourite_;
};

inline Kem::TypeInfo const Box::typeInfo_ = {"KemTest::Box", 900, nullptr,
                                             [] { return Ptr<Kem::Entity>(make()); }};

class Box::NotifieeConst : public Kem::Notifiee {
  public:
   virtual void onLabel() {}
   virtual void onCount() {}
   virtual void onWeight(uint32_t key) {}
   virtual void onWeight() {}
   virtual void onWeightkemImmediate() {}
   virtual void onTag(String8 const& key) {}
   virtual void onTag() {}
   virtual void onTagkemImmediate() {}
   virtual void onItem(uint16_t key) {}
   virtual void onItem() {}
   virtual void onItemkemImmediate() {}

   Ptr<Box const> notifier() const { return Ptr<Box const>(static_cast<Box const*>(boundNotifier())); }
   void notifierIs(Ptr<Box const> const& box) {
      if (notifierBind(box) && box && !isZombie())
         handleInitialized();
   }

  protected:
   template <class Derived>
   explicit NotifieeConst(Derived*) : Notifiee(interests<Derived>()) {}
   template <class Derived>
   static constexpr Kem::Interests interests() {
      Kem::Interests wanted;
      auto const set = [](uint64_t& bits, AttrId id, bool on) { bits |= uint64_t(on) << id; };
      set(wanted.plain, kLabel, KEM_OVERRIDES(Derived, NotifieeConst, onLabel));
      set(wanted.plain, kCount, KEM_OVERRIDES(Derived, NotifieeConst, onCount));
      set(wanted.keyed, kWeight, KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onWeight, uint32_t));
      set(wanted.plain, kWeight, KEM_OVERRIDES(Derived, NotifieeConst, onWeight));
      set(wanted.immediate, kWeight, KEM_OVERRIDES(Derived, NotifieeConst, onWeightkemImmediate));
      set(wanted.keyed, kTag, KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onTag, String8 const&));
      set(wanted.plain, kTag, KEM_OVERRIDES(Derived, NotifieeConst, onTag));
      set(wanted.immediate, kTag, KEM_OVERRIDES(Derived, NotifieeConst, onTagkemImmediate));
      set(wanted.keyed, kItem, KEM_OVERRIDES_KEYED(Derived, NotifieeConst, onItem, uint16_t));
      set(wanted.plain, kItem, KEM_OVERRIDES(Derived, NotifieeConst, onItem));
      set(wanted.immediate, kItem, KEM_OVERRIDES(Derived, NotifieeConst, onItemkemImmediate));
      return wanted;
   }
   void onAttribute(AttrId id) override {
      switch (id) {
      case kLabel:
         return onLabel();
      case kCount:
         return onCount();
      case kWeight:
         return onWeight();
      case kTag:
         return onTag();
      case kItem:
         return onItem();
      }
   }
   void onMember(AttrId id) override {
      switch (id) {
      case kWeight:
         return onWeight(takePending(pendingWeight_, id));
      case kTag:
         return onTag(takePending(pendingTag_, id));
      case kItem:
         return onItem(takePending(pendingItem_, id));
      }
   }
   void onCollectionNotification(AttrId id) override {
      switch (id) {
      case kWeight:
         return onWeightkemImmediate();
      case kTag:
         return onTagkemImmediate();
      case kItem:
         return onItemkemImmediate();
      }
   }
   void memberPending(AttrId id, void const* key) override {
      switch (id) {
      case kWeight:
         return pendingWeight_.add(*static_cast<uint32_t const*>(key));
      case kTag:
         return pendingTag_.add(*static_cast<String8 const*>(key));
      case kItem:
         return pendingItem_.add(*static_cast<uint16_t const*>(key));
      }
   }
   void memberPendingClear(AttrId id) override {
      switch (id) {
      case kWeight:
         return pendingWeight_.clear();
      case kTag:
         return pendingTag_.clear();
      case kItem:
         return pendingItem_.clear();
      }
   }

  private:
   Kem::PendingKeys<uint32_t> pendingWeight_;
   Kem::PendingKeys<String8> pendingTag_;
   Kem::PendingKeys<uint16_t> pendingItem_;
};

// Overrides every form of everything, and writes down each call.
struct HearsAll final : Box::NotifieeConst {
   explicit HearsAll(Ptr<Box const> const& box = nullptr) : NotifieeConst(this) { notifierIs(box); }
   void handleInitialized() override { calls.push_back("initialized"); }
   void onLabel() override { calls.push_back("label=" + notifier()->label().str()); }
   void onCount() override { calls.push_back("count=" + std::to_string(notifier()->count())); }
   void onWeight(uint32_t key) override {
      auto const* value = notifier()->weight().find(key);
      calls.push_back("weight[" + std::to_string(key) + "]=" + (value ? std::to_string(*value) : "absent"));
   }
   void onWeight() override { calls.push_back("weight"); }
   void onWeightkemImmediate() override { calls.push_back("weight immediate"); }
   void onTag(String8 const& key) override {
      auto const* value = notifier()->tag().find(key);
      calls.push_back("tag[" + key.str() + "]=" + (value ? *value ? "true" : "false" : "absent"));
   }
   void onTag() override { calls.push_back("tag"); }
   void onTagkemImmediate() override { calls.push_back("tag immediate"); }
   void onItem(uint16_t key) override {
      auto const item = notifier()->item(key);
      calls.push_back("item[" + std::to_string(key) + "]=" + (item ? item->colour().str() : "absent"));
   }
   void onItem() override { calls.push_back("item"); }
   void onItemkemImmediate() override { calls.push_back("item immediate"); }

   // The notifications since the last call of this.
   Calls take() { return std::exchange(calls, {}); }
   Calls calls;
};

// A test that owns the clock: it starts at 1000 seconds and stands still. At its end the loop must be empty.
class LoopTest : public ::testing::Test {
  protected:
   ~LoopTest() override { EXPECT_TRUE(loop().activitySm().isEmpty()) << "a reactor is still queued"; }
   static Kem::ActivityManager& loop() { return *Kem::activityManager(); }
   Kem::VirtualTime time_{1000.0};
};

} // namespace KemTest
