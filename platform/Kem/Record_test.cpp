#include "Kem/Record.h"
#include "Kem/TestRecords.h"

#include <algorithm>

namespace {

using namespace KemTest;

class RecordTest : public LoopTest {
  protected:
   Ptr<Box> const box = Box::make("box");
   HearsAll reactor{box};

   // The reactor's notifications of what was changed since the last call.
   Calls heard() {
      loop().runUntilIdle();
      return reactor.take();
   }
   RecordTest() { reactor.take(); }
};

TEST_F(RecordTest, equalValueNotifiesNobody) {
   box->labelIs("");
   box->countIs(0);
   box->weightDel(1);
   box->weightDelAll();
   box->itemDel(1);
   EXPECT_EQ(heard(), Calls());
   box->labelIs("x");
   box->weightIs(1, 0);
   box->tagIs("t", false);
   box->itemIs(1);
   EXPECT_EQ(heard(),
             (Calls{"label=x", "weight[1]=0", "weight", "tag[t]=false", "tag", "item[1]=grey", "item"}));
   box->labelIs("x");
   box->weightIs(1, 0);
   box->tagIs("t", false);
   box->itemIs(1);
   EXPECT_EQ(heard(), Calls());
}

TEST_F(RecordTest, memberOfFalseIsNotAnAbsentOne) {
   box->tagIs("t", false);
   EXPECT_EQ(box->tag().size(), 1u);
   EXPECT_EQ(heard(), (Calls{"tag[t]=false", "tag"}));
   box->tagDel("t");
   EXPECT_EQ(heard(), (Calls{"tag[t]=absent", "tag"}));
}

TEST_F(RecordTest, removalOfAllTellsEachKey) {
   for (uint32_t n = 0; n < 4; ++n)
      box->weightIs(n, 1);
   heard();
   box->weightDelAll();
   EXPECT_TRUE(box->weight().empty());
   auto calls = heard();
   std::sort(calls.begin(), calls.end());
   EXPECT_EQ(calls, (Calls{"weight", "weight[0]=absent", "weight[1]=absent", "weight[2]=absent",
                           "weight[3]=absent"}));
}

TEST_F(RecordTest, memberMayBeRemovedByTheKeyThatStandsInTheCollection) {
   box->tagIs("a key too long for a short string, by some bytes", true);
   String8 const* inside = nullptr;
   box->tag().forEach([&](String8 const& key, bool) { inside = &key; });
   box->tagDel(*inside);
   EXPECT_EQ(heard(), (Calls{"tag[a key too long for a short string, by some bytes]=absent", "tag"}));
}

TEST_F(RecordTest, ownedChildWithEqualArgumentsIsTheSame) {
   auto const item = box->itemIs(1, "red");
   EXPECT_EQ(box->itemIs(1, "red"), item);
   EXPECT_EQ(Item::alive, 1);
   EXPECT_EQ(heard(), (Calls{"item[1]=red", "item"}));
}

TEST_F(RecordTest, ownedChildWithAnotherInputFails) {
   auto const item = box->itemIs(1, "red");
   try {
      box->itemIs(1, "blue");
      FAIL() << "made a child with another input";
   } catch (Kem::Exception const& e) {
      EXPECT_STREQ(
          e.what(),
          "Reinstantiating the pointer interface where constructor parameter attribute _colour has a "
          "different value of red than the current value of blue not allowed");
   }
   EXPECT_EQ(box->item(1), item);
   EXPECT_EQ(item->colour(), String8("red"));
   heard();
   // As operators know it: the attribute, the value that exists, the value asked for.
   try {
      Kem::throwReinstantiating("cfgIn", "old", "new");
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(), "Reinstantiating the pointer interface where constructor parameter attribute "
                             "_cfgIn has a different value of old than the current value of new not allowed");
   }
}

TEST_F(RecordTest, newOwnedChildReplacesTheStandingOne) {
   auto const first = box->itemIs(1, "red");
   auto const second = box->newItem(1, "blue");
   EXPECT_EQ(box->item(1), second);
   EXPECT_EQ(box->item().size(), 1u);
   EXPECT_EQ(first->parent(), nullptr);
   EXPECT_EQ(second->parent(), box.ptr());
   EXPECT_EQ(heard(), (Calls{"item[1]=blue", "item"}));
}

TEST_F(RecordTest, nullReferenceIsRefusedByName) {
   try {
      box->favouriteIs(nullptr);
      FAIL() << "took a null reference";
   } catch (Kem::Exception const& e) {
      EXPECT_STREQ(e.what(), "null _favourite parameter to mutator for KemTest::Box::favourite not allowed");
   }
   EXPECT_TRUE(box->favourite().empty());
   // The texts as they are quoted elsewhere.
   EXPECT_THROW(
       {
          try {
             Kem::throwNullParameter("vlanIntfConfig", "Vorn::VlanIntfSm");
          } catch (Kem::RangeException const& e) {
             EXPECT_STREQ(e.what(), "null _vlanIntfConfig parameter to mutator for "
                                    "Vorn::VlanIntfSm::vlanIntfConfig not allowed");
             throw;
          }
       },
       Kem::RangeException);
}

TEST_F(RecordTest, referenceHoldsItsTargetAndOwnsItNot) {
   auto item = Item::make(5);
   box->favouriteIs(item);
   EXPECT_EQ(item->parent(), nullptr);
   EXPECT_EQ(item->references(), 2u);
   box->favouriteDel(5);
   EXPECT_EQ(item->references(), 1u);
}

// --- Whole records.

struct Told final : Kem::AttributeSink {
   void scalarChanged(Kem::Entity const& e, AttrId id) override { calls.push_back(e.attributeString(id)); }
   void memberChanged(Kem::Entity const& e, AttrId id, void const* key) override {
      calls.push_back(e.attributeString(id) +
                      (id == Box::kTag ? '[' + static_cast<String8 const*>(key)->str() + ']'
                                       : '[' + std::to_string(*static_cast<uint32_t const*>(key)) + ']'));
   }
   void childAdded(Kem::Entity const&, AttrId, Kem::Entity const& child) override {
      calls.push_back("added " + child.keyText());
   }
   void childRemoved(Kem::Entity const&, AttrId, void const* key, Ptr<Kem::Entity> const&) override {
      calls.push_back("removed " + std::to_string(*static_cast<uint16_t const*>(key)));
   }
   Calls calls;
};

TEST(WholeRecord, contentsAreWhatIsNotDefault) {
   auto const box = Box::make();
   Told told;
   box->encodeContents(told);
   EXPECT_EQ(told.calls, Calls());
   box->labelIs("x");
   box->weightIs(4, 0);
   box->tagIs("t", false);
   box->itemIs(9);
   box->encodeContents(told);
   EXPECT_EQ(told.calls, (Calls{"label", "weight[4]", "tag[t]", "added 9"}));
}

TEST(WholeRecord, differenceIsWhatMakesOneFromTheOther) {
   auto const before = Box::make(), after = Box::make();
   for (auto const& box : {before, after}) {
      box->labelIs("same");
      box->weightIs(1, 1);
      box->weightIs(2, 2);
      box->tagIs("stays", true);
      box->itemIs(1, "red");
      box->itemIs(2, "red");
      box->itemIs(3, "red");
   }
   Told told;
   after->encodeDifference(*before, told);
   EXPECT_EQ(told.calls, Calls());

   after->countIs(5);
   after->weightIs(1, 10);
   after->weightDel(2);
   after->weightIs(3, 3);
   after->tagDel("stays");
   after->itemDel(1);
   after->item(2)->noteIs("n");
   after->newItem(3, "blue");
   after->itemIs(4);
   after->encodeDifference(*before, told);
   std::sort(told.calls.begin(), told.calls.end());
   EXPECT_EQ(told.calls, (Calls{"added 3", "added 4", "count", "note", "removed 1", "removed 3", "tag[stays]",
                                "weight[1]", "weight[2]", "weight[3]"}));
}

} // namespace
