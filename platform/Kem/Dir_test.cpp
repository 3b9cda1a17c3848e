#include "Kem/Dir.h"
#include "Kem/TestRecords.h"

namespace {

using namespace KemTest;
using Kem::Dir;
using Kem::Name;

struct Follower final : Dir::NotifieeConst {
   explicit Follower(Ptr<Dir const> const& dir) : NotifieeConst(this) { notifierIs(dir); }
   void handleInitialized() override {
      for (auto const& [name, child] : notifier()->entities())
         calls.push_back("found " + name.str());
   }
   void onEntityPtr(Name const& name) override {
      calls.push_back(name.str() + (notifier()->entityPtr(name) ? " stands" : " is gone"));
   }
   void onEntityPtrkemImmediate() override { calls.push_back("look again"); }
   Calls take() { return std::exchange(calls, {}); }
   Calls calls;
};

class DirTest : public LoopTest {
  protected:
   Ptr<Dir> const dir = Dir::make("input");
};

TEST_F(DirTest, holdsChildrenOfAnyClassInTheOrderOfTheirNames) {
   dir->entityPtrIs(Box::make("mlag"));
   dir->entityPtrIs(Dir::make("cli"));
   dir->entityPtrIs(Box::make("arp"));
   Calls names;
   for (auto const& [name, child] : dir->entities())
      names.push_back(name.str());
   EXPECT_EQ(names, (Calls{"arp", "cli", "mlag"}));
   EXPECT_TRUE(dir->entity<Box>("mlag"));
   EXPECT_FALSE(dir->entity<Box>("cli")) << "it is of another class";
   EXPECT_FALSE(dir->entityPtr("none"));
}

TEST_F(DirTest, nullChildIsRefused) {
   try {
      dir->entityPtrIs(nullptr);
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(), "null _entityPtr parameter to mutator for Kem::Dir::entityPtr not allowed");
   }
}

TEST_F(DirTest, memberKeyCanBeShownFromItsWireForm) {
   Wire::Writer key;
   key.string("mlag");
   Wire::Reader in(key.view());
   std::string shown;
   EXPECT_TRUE(dir->visitMemberKey(
       Dir::kEntityPtr, in, [&](void const* name) { shown = static_cast<Kem::Name const*>(name)->str(); }));
   EXPECT_EQ(shown, "mlag");
   Wire::Reader none("");
   EXPECT_FALSE(dir->visitMemberKey(Dir::kEntityPtr, none, [](void const*) { FAIL(); }));
}

TEST_F(DirTest, followerFindsWhatStandsAndHearsWhatComesAndGoes) {
   dir->entityPtrIs(Box::make("a"));
   Follower follower(dir);
   EXPECT_EQ(follower.take(), Calls{"found a"});
   dir->entityPtrIs(Box::make("b"));
   dir->entityPtrDel("a");
   EXPECT_EQ(follower.take(), Calls()) << "nothing before the turn";
   loop().runUntilIdle();
   EXPECT_EQ(follower.take(), (Calls{"b stands", "a is gone"}));
}

TEST_F(DirTest, childOfTheSameNameReplacesTheStandingOne) {
   auto const first = Box::make("a"), second = Box::make("a");
   dir->entityPtrIs(first);
   Follower follower(dir);
   follower.take();
   dir->entityPtrIs(first);
   EXPECT_TRUE(loop().activitySm().isEmpty()) << "the same child again is no change";
   dir->entityPtrIs(second);
   loop().runUntilIdle();
   EXPECT_EQ(follower.take(), Calls{"a stands"});
   EXPECT_EQ(first->parent(), nullptr);
   EXPECT_EQ(dir->entityPtr("a"), second);
}

TEST_F(DirTest, wireStepsFindPlaceAndErase) {
   Wire::Writer out;
   Box::make("a")->encodeKey(out);
   auto const in = [&] { return Wire::Reader(out.view()); };

   auto const box = Box::make();
   auto key = in();
   EXPECT_TRUE(box->decodeKey(key));
   EXPECT_TRUE(dir->placeChild(Dir::kEntityPtr, box));
   key = in();
   EXPECT_EQ(dir->childByKey(Dir::kEntityPtr, key), box.ptr());
   key = in();
   EXPECT_FALSE(dir->applyErase(1, key));
   EXPECT_EQ(dir->entities().size(), 1u);
   key = in();
   EXPECT_TRUE(dir->applyErase(Dir::kEntityPtr, key));
   EXPECT_TRUE(dir->entities().empty());

   Wire::Reader cut(out.view().substr(0, 1));
   EXPECT_FALSE(dir->applyErase(Dir::kEntityPtr, cut));
   cut = Wire::Reader(out.view().substr(0, 1));
   EXPECT_EQ(dir->childByKey(Dir::kEntityPtr, cut), nullptr);
   cut = Wire::Reader(out.view().substr(0, 1));
   EXPECT_FALSE(Box::make()->decodeKey(cut));
}

} // namespace
