// Generated classes: what mutators store and refuse, who is notified, and the wire form. The
// records are those of sample.schema.
#include "Kem/Dir.h"
#include "SampleWorld.h"
#include "records/Codec.h"
#include "records/Sample.h"
#include "records/Sample/Deep.h"
#include "records/TypeInfo.h"

#include <gmock/gmock.h>

#include <sstream>
#include <type_traits>

namespace {

using namespace Sample;
using namespace SampleTest;
using testing::ElementsAre;
using testing::ThrowsMessage;

// What can't be written must not compile.
template <class T>
concept HasSealedIs = requires(T& box) {
   box.sealedIs(true);
};
template <class T>
concept HasNumberIs = requires(T& box) {
   box.numberIs(Level(1));
};
template <class T>
concept HasLabelIs = requires(T& box) {
   box.labelIs(Label());
};
static_assert(!HasSealedIs<Box> && !HasNumberIs<Box>, "keys and inputs are read-only");
static_assert(HasLabelIs<Box>, "what is only initially given can be changed");
static_assert(std::is_final_v<Store> && !std::is_final_v<Place>);
static_assert(!std::is_constructible_v<Box, Level> && !std::is_copy_constructible_v<Box>);
static_assert(std::is_same_v<Box::Label, Label>, "a record has a second name beside its attribute");
static_assert(Store::kMaterial == 4 && Store::kBox == 3 && Store::kAttributeCount == 17);
static_assert(sizeof(Level) == 2 && sizeof(Percent) == 1 && std::is_trivially_copyable_v<Level>);

Label someLabel() {
   return {.text1 = "tea", .serial = 4711, .fill = 99, .weight = 0.25};
}

// --- Values

TEST(RecordTest, recordsBeginWithTheirDeclaredDefaults) {
   auto const store = Store::make("east");
   EXPECT_EQ(store->placeName(), "east");
   EXPECT_TRUE(store->open());
   EXPECT_EQ(store->warmth(), -4);
   EXPECT_EQ(store->material(), Material::wood) << "the first enumerator, although 0 is none";
   EXPECT_EQ(store->slogan(), "boxes");
   EXPECT_TRUE(store->port().empty());
   EXPECT_EQ(store->shown(), nullptr);
   EXPECT_TRUE(store->label().empty());
   auto const box = store->boxIs(1);
   EXPECT_TRUE(box->sealed());
   EXPECT_EQ(box->origin(), (Spot{1, Material::steel}));
   EXPECT_EQ(box->label(), (Label{"none", 0, 50, 1.5}));
   EXPECT_EQ(store->references(), 1u);
   EXPECT_EQ(box->references(), 2u);
}

TEST(RecordTest, membersAreFoundChangedAndDeleted) {
   auto const store = Store::make("east");
   store->levelIs("Ethernet1", 5);
   store->levelIs("Ethernet2", 6);
   store->levelIs("Ethernet1", 7);
   ASSERT_NE(store->level("Ethernet1"), nullptr);
   EXPECT_EQ(*store->level("Ethernet1"), 7);
   EXPECT_EQ(store->level("Ethernet3"), nullptr);
   EXPECT_EQ(store->level().size(), 2u);
   store->levelDel("Ethernet1");
   store->levelDel("Ethernet3");
   EXPECT_EQ(store->level("Ethernet1"), nullptr);
   EXPECT_EQ(store->level().size(), 1u);
   store->levelDelAll();
   EXPECT_TRUE(store->level().empty());
}

TEST(RecordTest, memberOfASetIsFalseWhenAbsent) {
   auto const box = Box::make(1);
   EXPECT_FALSE(box->mark("fragile"));
   box->markIs("fragile", true);
   EXPECT_TRUE(box->mark("fragile"));
   box->markIs("fragile", false);
   EXPECT_FALSE(box->mark("fragile"));
   EXPECT_EQ(box->mark().size(), 1u);
}

TEST(RecordTest, countersStep) {
   auto const box = Box::make(1);
   box->takenInc();
   box->takenInc(5);
   box->takenDec(2);
   EXPECT_EQ(box->taken(), 4u);
   box->takenDec();
   box->takenIs(100);
   EXPECT_EQ(box->taken(), 100u);
}

TEST(RecordTest, computedNumberFollowsItsAttributeDownToZero) {
   auto const box = Box::make(1);
   EXPECT_EQ(box->unexplained(), 0u);
   box->takenIs(3);
   EXPECT_EQ(box->unexplained(), 0u);
   box->takenIs(10);
   EXPECT_EQ(box->unexplained(), 7u);
}

TEST(RecordTest, attributeThatIsOverruledReadsAsFalseAndKeepsItsValue) {
   auto const store = Store::make("hall");
   store->materialIs(Material::wood);
   EXPECT_TRUE(store->selling());
   store->materialIs(Material::steel);
   EXPECT_FALSE(store->selling());
   store->materialIs(Material::wood);
   EXPECT_TRUE(store->selling());
   store->sellingIs(false);
   EXPECT_FALSE(store->selling());
}

TEST(RecordTest, localObjectIsHeldAndToldToNobody) {
   auto const box = Box::make(1);
   EXPECT_FALSE(box->scale());
   auto const scale = Kem::Dir::make("scale");
   box->scaleIs(scale);
   EXPECT_EQ(box->scale(), Kem::Ptr<Kem::Entity>(scale));
   EXPECT_EQ(scale->references(), 2u);
   CountingSink sink;
   box->encodeContents(sink);
   EXPECT_EQ(sink.total(), 0);
}

TEST(RecordTest, orderedCollectionsIterateByKey) {
   auto const store = Store::make("east");
   for (auto const* name : {"m", "z", "a"})
      store->roomIs(name);
   std::vector<std::string> names;
   for (auto const& [name, room] : store->room())
      names.push_back(room->placeName().str());
   EXPECT_THAT(names, ElementsAre("a", "m", "z"));
   store->labelIs({2, Material::wood}, {});
   store->labelIs({1, Material::steel}, {});
   store->labelIs({2, Material::steel}, {});
   std::vector<std::string> spots;
   for (auto const& [spot, label] : store->label())
      spots.push_back(spot.text());
   EXPECT_THAT(spots, ElementsAre("1/steel", "2/wood", "2/steel"));
}

TEST(RecordTest, iterationSurvivesTheDeletionOfEveryEntry) {
   auto const store = Store::make("east");
   for (int i = 1; i <= 100; ++i)
      store->boxIs(i);
   int visited = 0;
   for (auto at = store->box().begin(); at; at.next()) {
      store->boxDel(at.key());
      EXPECT_EQ(at.value()->parent(), nullptr);
      ++visited;
   }
   EXPECT_EQ(visited, 100);
   EXPECT_TRUE(store->box().empty());
}

// --- Children and references

TEST(RecordTest, childIsReturnsTheStandingOne) {
   auto const store = Store::make("east");
   auto const box = store->boxIs(5, false, {2, Material::wood});
   EXPECT_EQ(box->number(), 5);
   EXPECT_EQ(box->parent(), store.ptr());
   EXPECT_EQ(box->parentAttr(), "box");
   EXPECT_EQ(store->boxIs(5, false, {2, Material::wood}), box);
   EXPECT_EQ(store->box(5), box);
   EXPECT_EQ(store->box(6), nullptr);
}

TEST(RecordTest, anotherInputIsRefusedWithBothValues) {
   auto const store = Store::make("east");
   auto const box = store->boxIs(5, false, {2, Material::wood});
   EXPECT_THAT(
       [&] {
          store->boxIs(5, true, {2, Material::wood});
       },
       ThrowsMessage<Kem::RangeException>(
           "Reinstantiating the pointer interface where constructor parameter attribute _sealed has a "
           "different value of false than the current value of true not allowed"));
   EXPECT_THAT(
       [&] {
          store->boxIs(5, false, {2, Material::steel});
       },
       ThrowsMessage<Kem::RangeException>(
           "Reinstantiating the pointer interface where constructor parameter attribute _origin has a "
           "different value of 2/wood than the current value of 2/steel not allowed"));
   EXPECT_EQ(store->box(5), box);
}

TEST(RecordTest, whatIsOnlyInitiallyGivenIsNotCompared) {
   auto const store = Store::make("east");
   auto const box = store->boxIs(5, true, {}, someLabel());
   EXPECT_EQ(box->label(), someLabel());
   EXPECT_EQ(store->boxIs(5, true, {}, Label()), box);
   EXPECT_EQ(box->label(), someLabel()) << "the existing one keeps what it has";
}

TEST(RecordTest, newReplacesAStandingChild) {
   auto const store = Store::make("east");
   auto const old = store->boxIs(5);
   auto const box = store->newBox(5, false);
   EXPECT_NE(box, old);
   EXPECT_EQ(store->box(5), box);
   EXPECT_EQ(old->parent(), nullptr);
   EXPECT_EQ(old->references(), 1u);
}

TEST(RecordTest, childOfADerivedClassCanBePlaced) {
   auto const store = Store::make("east");
   auto const inner = Store::make("inner");
   store->roomIs(inner);
   EXPECT_EQ(store->room("inner"), inner);
   EXPECT_EQ(store->room("inner")->typeInfo().name, std::string("Sample::Store"));
   store->roomIs(inner);
   EXPECT_EQ(inner->parent(), store.ptr()) << "placing it again leaves it where it stands";
   EXPECT_THAT([&] { store->roomIs(Kem::Ptr<Place>()); },
               ThrowsMessage<Kem::RangeException>(
                   "null _room parameter to mutator for Sample::Store::room not allowed"));
}

TEST(RecordTest, referencesStandUnderTheKeyOfTheirRecord) {
   auto const store = Store::make("east");
   auto const box = Box::make(9);
   store->leavingIs(box);
   EXPECT_EQ(store->leaving(9), box);
   EXPECT_EQ(box->parent(), nullptr);
   store->leavingDel(9);
   EXPECT_EQ(store->leaving(9), nullptr);
   EXPECT_THAT([&] { store->leavingIs(nullptr); },
               ThrowsMessage<Kem::RangeException>(
                   "null _leaving parameter to mutator for Sample::Store::leaving not allowed"));
}

TEST(RecordTest, singleReferenceMayBeNull) {
   auto const store = Store::make("east");
   auto const box = Box::make(9);
   store->shownIs(box);
   EXPECT_EQ(store->shown(), box);
   store->shownIs(nullptr);
   EXPECT_EQ(store->shown(), nullptr);
}

// --- Names

TEST(RecordTest, placesHaveSelectorsByKey) {
   auto const store = Store::make("east");
   auto const box = store->boxIs(5);
   EXPECT_EQ(box->keyText(), "5");
   EXPECT_EQ(box->fullName(), "east.box[5]");
   EXPECT_EQ(store->roomIs("")->fullName(), "east.room[\"\"]") << "an empty key is a key";
   EXPECT_EQ(store->roomIs("a]b")->fullName(), "east.room[\"a]b\"]");
   EXPECT_EQ(box->attributeString(Box::kTaken), std::string("taken"));
   EXPECT_EQ(box->attributeString(Box::kAttributeCount), nullptr);
   EXPECT_EQ(store->attributeString(Store::kOpen), std::string("open"));
}

TEST(RecordTest, recordInADirectoryStandsUnderItsName) {
   auto const dir = Kem::Dir::make("boxes");
   auto const box = Box::make(5);
   box->nameIs("five");
   dir->entityPtrIs(box);
   EXPECT_EQ(box->keyText(), "five");
   EXPECT_EQ(box->fullName(), "boxes/five");
   Wire::Writer key;
   box->encodeKey(key);
   Wire::Reader in(key.view());
   EXPECT_EQ(in.string(), "five");
}

TEST(RecordTest, typesAreFoundByNumber) {
   EXPECT_EQ(Records::typeInfo(0), &Kem::Dir::typeInfo_);
   EXPECT_EQ(Records::typeInfo(Store::typeInfo_.id), &Store::typeInfo_);
   EXPECT_EQ(Store::typeInfo_.base, &Place::typeInfo_);
   EXPECT_EQ(Records::typeInfo(5), nullptr);
   EXPECT_TRUE(Kem::ptrCast<Deep::Visitor>(Deep::Visitor::typeInfo_.make()));
}

// --- Wire form

class WireTest : public testing::Test {
  protected:
   Kem::Ptr<Store> const store = Store::make("east");

   // Everything in the store differs from its default.
   void furnish() {
      store->openIs(false);
      store->warmthIs(-273);
      auto const box = store->boxIs(1, false, {3, Material::wood}, someLabel());
      box->takenIs(12);
      box->markIs("fragile", true);
      box->markIs("", false);
      store->boxIs(100);
      store->materialIs(Material::steel);
      store->sloganIs(std::string(300, 'x'));
      store->portIs("Ethernet3/1.100");
      store->doorIs(Sulvi::EthAddr(0, 0x1c, 0x73, 0, 0, 1));
      store->netNsIs("blue");
      store->carriedIs(uint64_t(1) << 40);
      store->labelIs({3, Material::steel}, someLabel());
      store->levelIs("Vlan10", 42);
      store->levelIs("an odd name", 43);
      store->countIs(7, {.things = 3, .purpose = static_cast<Purpose>(77)});
      auto const room = Store::make("inner");
      room->sloganIs("");
      store->roomIs(room);
      store->roomIs("plain")->boxIs(2)->takenInc();
   }
   Kem::Ptr<Store> copy() const {
      auto const result = Store::make("east");
      CopyingSink sink(*store, *result);
      store->encodeContents(sink);
      EXPECT_TRUE(sink.isGood);
      return result;
   }
   static bool apply(Kem::Entity& entity, bool (Kem::Entity::*function)(Kem::AttrId, Wire::Reader&),
                     Kem::AttrId id, Wire::Writer const& bytes) {
      Wire::Reader in(bytes.view());
      return (entity.*function)(id, in);
   }
};

TEST_F(WireTest, contentsMakeAnEqualRecord) {
   furnish();
   auto const other = copy();
   ASSERT_TRUE(isEqual(*store, *other));
   ASSERT_TRUE(isEqual(*other, *store));
   EXPECT_EQ(other->material(), Material::steel);
   EXPECT_EQ(*other->count(7), (Count{7, 3, static_cast<Purpose>(77)})) << "the enumeration is open";
   EXPECT_EQ(other->box(1)->origin(), (Spot{3, Material::wood}));
   EXPECT_FALSE(other->box(1)->sealed());
   ASSERT_NE(other->level("an odd name"), nullptr);
   EXPECT_EQ(*other->level("an odd name"), 43);
   EXPECT_EQ(other->room("inner")->typeInfo().id, Store::typeInfo_.id);
   EXPECT_EQ(other->room("plain")->box(2)->taken(), 1u);
   EXPECT_EQ(other->parent(), nullptr);
}

TEST_F(WireTest, contentsOfAFreshRecordAreNothing) {
   CountingSink sink;
   store->encodeContents(sink);
   EXPECT_EQ(sink.total(), 0);
   for (Kem::AttrId id = 0; id < Store::kAttributeCount; ++id)
      EXPECT_EQ(store->isDefault(id), id != Store::kPlaceName) << store->attributeString(id);
   furnish();
   for (Kem::AttrId id = 0; id < Store::kLeaving; ++id)
      EXPECT_FALSE(store->isDefault(id)) << store->attributeString(id);
}

TEST_F(WireTest, differenceMakesOneRecordIntoTheOther) {
   furnish();
   auto const before = copy(), target = copy();
   store->openIs(true);
   store->warmthIs(20);
   store->box(1)->markDelAll();
   store->boxDel(100);
   store->boxIs(7)->takenInc();
   store->labelDelAll();
   store->levelIs("Vlan10", 1);
   store->levelIs("Vlan11", 2);
   store->newRoom("inner");
   auto const after = copy();

   CopyingSink sink(*after, *target);
   for (auto const& [number, box] : after->box())
      if (auto const standing = target->box(number))
         sink.standingChild(*box, *standing);
   after->encodeDifference(*before, sink);
   EXPECT_TRUE(sink.isGood);
   EXPECT_TRUE(isEqual(*after, *target));
   EXPECT_FALSE(isEqual(*after, *before));
   EXPECT_TRUE(target->open());
   EXPECT_EQ(target->box(100), nullptr);
   EXPECT_EQ(target->room("inner")->typeInfo().id, Place::typeInfo_.id) << "another class is another record";
}

TEST_F(WireTest, childWithOtherInputsIsMadeAnew) {
   auto const other = Store::make("east");
   store->boxIs(1, true);
   other->boxIs(1, false);
   CountingSink sink;
   store->encodeDifference(*other, sink);
   EXPECT_EQ(sink.removed, 1);
   EXPECT_EQ(sink.added, 1);
}

TEST_F(WireTest, keysCanBeReadBack) {
   auto const key = Box::make(99);
   Wire::Writer out;
   key->encodeKey(out);
   auto const box = Box::make(1);
   Wire::Reader in(out.view());
   EXPECT_TRUE(box->decodeKey(in));
   EXPECT_EQ(box->number(), 99);
}

TEST_F(WireTest, memberKeysAreShownToAVisitor) {
   Wire::Writer out;
   Spot const spot{7, Material::wood};
   store->encodeMemberKey(Store::kLabel, &spot, out);
   Wire::Reader in(out.view());
   Spot seen;
   EXPECT_TRUE(store->visitMemberKey(Store::kLabel, in,
                                     [&](void const* key) { seen = *static_cast<Spot const*>(key); }));
   EXPECT_EQ(seen, spot);
   Wire::Reader cut(out.view().substr(1));
   EXPECT_FALSE(store->visitMemberKey(Store::kLabel, cut, [](void const*) { FAIL(); }));
}

TEST_F(WireTest, absentMemberHasNoForm) {
   Wire::Writer out;
   Sulvi::IntfId const port = "Ethernet1";
   EXPECT_FALSE(store->encodeMember(Store::kLevel, &port, out));
   EXPECT_TRUE(out.empty());
   EXPECT_FALSE(store->encodeMember(Store::kWarmth, &port, out)) << "no collection";
   EXPECT_FALSE(store->encodeScalar(Store::kLevel, out)) << "a collection";
}

TEST_F(WireTest, referencesTravelAsSelectors) {
   auto const box = store->boxIs(3);
   store->shownIs(box);
   store->leavingIs(box);
   Wire::Writer single;
   EXPECT_TRUE(store->encodeScalar(Store::kShown, single));
   EXPECT_EQ(Wire::Reader(single.view()).string(), "east.box[3]");
   Wire::Writer member;
   Level const key = 3;
   EXPECT_TRUE(store->encodeMember(Store::kLeaving, &key, member));
   Wire::Reader in(member.view());
   EXPECT_EQ(in.u16(), 3);
   EXPECT_EQ(in.string(), "east.box[3]");
   store->shownIs(nullptr);
   single.clear();
   EXPECT_TRUE(store->encodeScalar(Store::kShown, single));
   EXPECT_EQ(Wire::Reader(single.view()).string(), "");
}

TEST_F(WireTest, referencesAreSetByTheirTarget) {
   auto const box = Box::make(3);
   Level const key = 3;
   EXPECT_TRUE(store->applyReference(Store::kShown, nullptr, box));
   EXPECT_EQ(store->shown(), box);
   EXPECT_TRUE(store->applyReference(Store::kLeaving, &key, box));
   EXPECT_EQ(store->leaving(3), box);
   EXPECT_FALSE(store->applyReference(Store::kShown, nullptr, store)) << "of another class";
   EXPECT_EQ(store->shown(), box);
   EXPECT_FALSE(store->applyReference(Store::kLeaving, &key, store));
   EXPECT_TRUE(store->applyReference(Store::kShown, nullptr, nullptr));
   EXPECT_EQ(store->shown(), nullptr);
   EXPECT_TRUE(store->applyReference(Store::kLeaving, &key, nullptr));
   EXPECT_TRUE(store->leaving().empty());
   EXPECT_FALSE(store->applyReference(Store::kOpen, nullptr, box));
   Wire::Writer bytes;
   bytes.u16(3);
   bytes.string("somewhere");
   EXPECT_FALSE(apply(*store, &Kem::Entity::applyPut, Store::kLeaving, bytes))
       << "who keeps the tree resolves it";
}

TEST_F(WireTest, memberThatKnowsItsKeyGoesUnderNoOther) {
   auto const put = [&](uint16_t key, uint16_t number) {
      Wire::Writer bytes;
      bytes.u16(key);
      Records::encode(bytes, Count{.number = number, .things = 3});
      return apply(*store, &Kem::Entity::applyPut, Store::kCount, bytes);
   };
   EXPECT_TRUE(put(7, 7));
   EXPECT_FALSE(put(7, 8));
   store->countIs(9, {.things = 4}); // left out, so filled in
   EXPECT_THAT([&] { store->countIs(9, {.number = 8}); },
               ThrowsMessage<Kem::RangeException>("Count::number differs from the key"));
   EXPECT_EQ(*store->count(7), (Count{7, 3}));
   EXPECT_EQ(*store->count(9), (Count{9, 4}));
}

TEST_F(WireTest, badBytesChangeNothingAndThrowNothing) {
   furnish();
   auto const before = copy();
   Wire::Writer zero, tooLong, two;
   zero.u16(0); // no Level
   tooLong.string(std::string(151, 'n'));
   two.u8(2);
   EXPECT_FALSE(apply(*store, &Kem::Entity::applySet, Store::kNetNs, tooLong));
   EXPECT_FALSE(apply(*store, &Kem::Entity::applySet, Store::kOpen, two)) << "neither false nor true";
   EXPECT_FALSE(apply(*store, &Kem::Entity::applySet, Store::kWarmth, two)) << "cut off";
   EXPECT_FALSE(apply(*store, &Kem::Entity::applyErase, Store::kBox, zero));
   Wire::Writer member;
   Sulvi::IntfId("Vlan10").encode(member);
   member.u16(101);
   EXPECT_FALSE(apply(*store, &Kem::Entity::applyPut, Store::kLevel, member));
   EXPECT_FALSE(apply(*store, &Kem::Entity::applySet, Store::kAttributeCount, two)) << "no such attribute";
   EXPECT_FALSE(apply(*store, &Kem::Entity::applyPut, Store::kOpen, two)) << "no collection";
   Wire::Reader key(zero.view());
   EXPECT_EQ(store->childByKey(Store::kBox, key), nullptr);
   EXPECT_FALSE(store->placeChild(Store::kBox, Place::make("x"))) << "of another class";
   EXPECT_FALSE(store->placeChild(Store::kLevel, Box::make(1))) << "no children";
   EXPECT_TRUE(isEqual(*store, *before));
}

TEST_F(WireTest, childrenAreFoundByKeyAndVisited) {
   auto const box = store->boxIs(3);
   store->roomIs("r");
   Wire::Writer bytes;
   bytes.u16(3);
   Wire::Reader in(bytes.view());
   EXPECT_EQ(store->childByKey(Place::kBox, in), box.ptr());
   std::vector<std::string> seen;
   store->forEachChild([&](Kem::Entity& child) { seen.push_back(child.fullName()); });
   EXPECT_THAT(seen, ElementsAre("east.box[3]", "east.room[r]"));
}

} // namespace
