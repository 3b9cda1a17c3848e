#include "Kem/Entity.h"
#include "Kem/TestRecords.h"

#include <memory>

namespace {

using namespace KemTest;
using Kem::Dir;

TEST(EntityNames, standInSelectorsAndPaths) {
   auto const bridging = Dir::make("bridging");
   auto const input = Dir::make("input");
   auto const box = Box::make("cli");
   bridging->entityPtrIs(input);
   input->entityPtrIs(box);
   auto const item = box->itemIs(10);
   EXPECT_EQ(box->fullName(), "bridging/input/cli");
   EXPECT_EQ(box->uriPath(), "/bridging/input/cli");
   EXPECT_EQ(item->fullName(), "bridging/input/cli.item[10]");
   EXPECT_EQ(item->uriPath(), "/bridging/input/cli/item/10");
   EXPECT_EQ(item->parentAttr(), "item");
   EXPECT_EQ(item->parentAttrId(), Box::kItem);
   EXPECT_EQ(item->parent(), box.ptr());
   EXPECT_EQ(item->keyText(), "10");
   EXPECT_TRUE(item->name().empty());
   EXPECT_EQ(box->parentAttr(), "entityPtr");
}

TEST(EntityNames, withoutAParentAreBare) {
   auto const box = Box::make("cli");
   EXPECT_EQ(box->name(), Kem::Name("cli"));
   EXPECT_EQ(box->fullName(), "cli");
   EXPECT_EQ(box->uriPath(), "/cli");
   EXPECT_EQ(box->parentAttr(), "");
   EXPECT_EQ(box->parent(), nullptr);
   EXPECT_EQ(Dir::make()->fullName(), "");
   EXPECT_EQ(Dir::make()->uriPath(), "");
}

TEST(EntityNames, rootWithoutANameLeavesNoSlash) {
   auto const root = Dir::make();
   auto const box = Box::make("a");
   root->entityPtrIs(box);
   EXPECT_EQ(box->fullName(), "a");
   EXPECT_EQ(box->uriPath(), "/a");
}

TEST(Entity, tellsTheTextOfItsAttributes) {
   auto const box = Box::make();
   EXPECT_STREQ(box->attributeString(Box::kLabel), "label");
   EXPECT_STREQ(box->attributeString(Box::kFavourite), "favourite");
   EXPECT_EQ(box->attributeString(Box::kAttributeCount), nullptr);
   EXPECT_STREQ(Dir::make()->attributeString(Dir::kEntityPtr), "entityPtr");
   EXPECT_EQ(Dir::make()->attributeString(1), nullptr);
}

TEST(Entity, removedOneHasNoParent) {
   auto const box = Box::make("cli");
   auto const item = box->itemIs(1);
   box->itemDel(1);
   EXPECT_EQ(item->parent(), nullptr);
   EXPECT_EQ(item->fullName(), "1");
}

TEST(Entity, oneThatOutlivesItsParentHasNone) {
   auto box = Box::make("cli");
   auto const item = box->itemIs(1);
   box = nullptr;
   EXPECT_EQ(Box::alive, 0);
   EXPECT_EQ(item->parent(), nullptr);
   EXPECT_EQ(item->fullName(), "1");
}

TEST(Entity, childrenGoWithTheirParent) {
   auto root = Dir::make();
   auto const box = Box::make("a");
   root->entityPtrIs(box);
   box->itemIs(1);
   box->itemIs(2);
   EXPECT_EQ(Item::alive, 2);
   root->entityPtrDel("a");
   EXPECT_EQ(Item::alive, 2); // the box is still held here
   box->itemDelAll();
   EXPECT_EQ(Item::alive, 0);
}

// --- The sink: where changes of mounted entities go.

struct Sink final : Kem::AttributeSink {
   void scalarChanging(Kem::Entity const& e, AttrId id) override { add("before ", e, id); }
   void memberChanging(Kem::Entity const& e, AttrId id, void const*) override { add("before ", e, id); }
   void scalarChanged(Kem::Entity const& e, AttrId id) override { add("", e, id); }
   void memberChanged(Kem::Entity const& e, AttrId id, void const*) override { add("", e, id); }
   void childAdded(Kem::Entity const& parent, AttrId, Kem::Entity const& child) override {
      calls.push_back("added " + child.fullName());
      EXPECT_EQ(child.parent(), &parent);
   }
   void childRemoved(Kem::Entity const& parent, AttrId id, void const*,
                     Ptr<Kem::Entity> const& child) override {
      calls.push_back("removed " + child->fullName());
      EXPECT_EQ(child->parent(), &parent) << "it is told before the child is let go";
   }
   void wantsBeforeIs(bool wants) { wantsBefore_ = wants; }
   void add(std::string const& text, Kem::Entity const& e, AttrId id) {
      calls.push_back(text + e.fullName() + '.' + e.attributeString(id));
   }
   Calls take() { return std::exchange(calls, {}); }
   Calls calls;
};

class SinkTest : public ::testing::Test {
  protected:
   Sink sink;
   Ptr<Box> const box = Box::make("box");
};

TEST_F(SinkTest, getsEveryChangeOnceAndNoEqualValue) {
   box->sinkIs(&sink, true);
   box->labelIs("x");
   box->labelIs("x");
   box->weightIs(1, 5);
   box->weightIs(1, 5);
   box->weightIs(1, 6);
   box->weightDel(1);
   box->weightDel(1);
   box->itemIs(3)->noteIs("n");
   box->itemDel(3);
   EXPECT_EQ(sink.take(), (Calls{"box.label", "box.weight", "box.weight", "box.weight", "added box.item[3]",
                                 "box.item[3].note", "removed box.item[3]"}));
}

TEST_F(SinkTest, reachesChildrenThatStandAndThatCome) {
   auto const standing = box->itemIs(1);
   box->sinkIs(&sink, true);
   auto const later = box->itemIs(2);
   EXPECT_EQ(standing->sink(), &sink);
   EXPECT_EQ(later->sink(), &sink);
   EXPECT_TRUE(later->isWritable());
   box->sinkIs(nullptr, false);
   EXPECT_EQ(standing->sink(), nullptr);
}

TEST_F(SinkTest, childThatWasRemovedOrOutlivesItsParentWritesToNoSink) {
   box->sinkIs(&sink, true);
   auto const item = box->itemIs(1);
   box->itemDel(1);
   sink.take();
   item->noteIs("late");
   EXPECT_EQ(sink.take(), Calls());

   auto other = Box::make("other");
   other->sinkIs(&sink, true);
   auto const orphan = other->itemIs(1);
   other = nullptr;
   sink.take();
   orphan->noteIs("late");
   EXPECT_EQ(sink.take(), Calls());
   EXPECT_EQ(orphan->sink(), nullptr);
}

TEST_F(SinkTest, heldLogIsToldBeforeTheChangeAndOnlyOfChanges) {
   box->sinkIs(&sink, true);
   sink.wantsBeforeIs(true);
   box->labelIs("x");
   box->labelIs("x");
   box->weightIs(1, 5);
   box->weightIs(1, 5);
   box->weightDel(1);
   EXPECT_EQ(sink.take(), (Calls{"before box.label", "box.label", "before box.weight", "box.weight",
                                 "before box.weight", "box.weight"}));
}

TEST_F(SinkTest, mutedOneHearsNothing) {
   box->sinkIs(&sink, true);
   sink.wantsBeforeIs(true);
   sink.isMutedIs(true);
   box->labelIs("x");
   box->weightIs(1, 5);
   box->itemIs(1);
   box->itemDel(1);
   EXPECT_EQ(sink.take(), Calls());
   EXPECT_EQ(box->label(), String8("x"));
}

template <class Change>
void expectRefused(Change&& change) {
   try {
      change();
      FAIL() << "changed a read-only instance";
   } catch (Kem::Exception const& e) {
      EXPECT_STREQ(e.what(), "attempting to modify a const instance");
   }
}

TEST_F(SinkTest, readOnlyInstanceRefusesEveryChangeAndKeepsItsValues) {
   box->labelIs("old");
   box->weightIs(1, 5);
   box->tagIs("t", true);
   auto const item = box->itemIs(3);
   box->sinkIs(&sink, false);
   expectRefused([&] { box->labelIs("new"); });
   expectRefused([&] { box->countIs(1); });
   expectRefused([&] { box->weightIs(1, 6); });
   expectRefused([&] { box->weightIs(2, 6); });
   expectRefused([&] { box->weightDel(1); });
   expectRefused([&] { box->weightDelAll(); });
   expectRefused([&] { box->tagIs("u", true); });
   expectRefused([&] { box->itemIs(4); });
   expectRefused([&] { box->newItem(3); });
   expectRefused([&] { box->itemDel(3); });
   expectRefused([&] { box->itemDelAll(); });
   expectRefused([&] { item->noteIs("n"); });
   EXPECT_EQ(box->label(), String8("old"));
   EXPECT_EQ(box->weight().size(), 1u);
   EXPECT_EQ(*box->weight().find(1), 5);
   EXPECT_EQ(box->item(3), item);
   EXPECT_EQ(box->item().size(), 1u);
   EXPECT_EQ(sink.take(), Calls());
}

TEST_F(SinkTest, readOnlyInstanceTakesWhatWouldChangeNothing) {
   box->labelIs("same");
   box->weightIs(1, 5);
   auto const item = box->itemIs(3);
   box->sinkIs(&sink, false);
   box->labelIs("same");
   box->weightIs(1, 5);
   box->weightDel(7);
   EXPECT_EQ(box->itemIs(3), item);
   EXPECT_EQ(sink.take(), Calls());
}

TEST_F(SinkTest, readOnlyInstanceTakesWhatComesFromTheDatabase) {
   box->sinkIs(&sink, false);
   sink.isMutedIs(true);
   box->labelIs("pushed");
   box->weightIs(1, 5);
   box->itemIs(2);
   EXPECT_EQ(box->label(), String8("pushed"));
   EXPECT_EQ(box->item().size(), 1u);
}

TEST(Entity, localOneCanAlwaysBeChanged) {
   auto const box = Box::make();
   EXPECT_FALSE(box->isWritable());
   box->labelIs("x");
   EXPECT_EQ(box->label(), String8("x"));
}

// --- Address in the database.

TEST(EntityAddress, isTheNumberOfTheNextNodeAboveAndTheStepsDown) {
   auto const box = Box::make("box");
   auto const item = box->itemIs(0x0102);
   Wire::Writer out;
   EXPECT_FALSE(item->encodeAddress(out)) << "no node above has a number";
   EXPECT_TRUE(out.empty());
   box->nodeNumberIs(7);
   EXPECT_TRUE(item->encodeAddress(out));
   EXPECT_EQ(out.view(), std::string_view("\x07\0\0\0\x01\x04\x02\x01", 8));
   out.clear();
   EXPECT_TRUE(box->encodeAddress(out));
   EXPECT_EQ(out.view(), std::string_view("\x07\0\0\0\0", 5));
}

// --- Singletons.

class SingletonTest : public ::testing::Test {
  protected:
   ~SingletonTest() override { Kem::singletonDelAll(); }
};

TEST_F(SingletonTest, isMadeOnceUnderTheNameOfItsType) {
   EXPECT_FALSE(Kem::singletonExists("KemTest::Box"));
   EXPECT_FALSE(Kem::singleton("KemTest::Box"));
   auto const made = Kem::singletonIs(Box::typeInfo_);
   EXPECT_TRUE(Kem::singletonExists("KemTest::Box"));
   EXPECT_FALSE(Kem::singletonExists("KemTest::Item"));
   EXPECT_EQ(Kem::singletonIs(Box::typeInfo_), made);
   EXPECT_EQ(Kem::singleton("KemTest::Box"), made);
   EXPECT_EQ(made->name(), Kem::Name("KemTest::Box"));
   EXPECT_TRUE(Kem::ptrCast<Box>(made));
}

TEST_F(SingletonTest, dropOfAllDestroysThem) {
   Kem::singletonIs(Box::typeInfo_);
   EXPECT_EQ(Box::alive, 1);
   Kem::singletonDelAll();
   EXPECT_EQ(Box::alive, 0);
   EXPECT_FALSE(Kem::singletonExists("KemTest::Box"));
}

TEST_F(SingletonTest, typeThatMakesNoInstanceIsAnAssertionFailure) {
   Kem::TypeInfo const abstract = {"KemTest::Abstract", 902, nullptr, nullptr};
   EXPECT_DEATH(Kem::singletonIs(abstract), "type.make");
}

TEST(EntityDeathTest, mayNotEndWhileAReactorStandsOnIt) {
   // Only an entity that is destroyed without regard to its count can come to this.
   EXPECT_DEATH(
       {
          auto box = Box::make();
          HearsAll reactor(box);
          box->deleteRef();
          box->deleteRef();
       },
       "notifiees_");
}

} // namespace
