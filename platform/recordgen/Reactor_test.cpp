// Reactors on generated classes: which of their functions are heard, with which keys, and when.
#include "Kem/Activity.h"
#include "Kem/Clock.h"
#include "SampleWorld.h"
#include "records/Sample.h"

#include <gmock/gmock.h>

namespace {

using namespace Sample;
using testing::ElementsAre;
using testing::IsEmpty;

using Calls = std::vector<std::string>;

struct HearsAll final : Store::NotifieeConst {
   HearsAll() : NotifieeConst(this) {}
   void handleInitialized() override { calls.push_back("initialized"); }
   void onOpen() override { calls.push_back("open"); } // inherited attribute
   void onBox(Level key) override { calls.push_back("box " + std::to_string(key)); }
   void onBoxkemImmediate() override { calls.push_back("box immediate"); }
   void onCarried() override { calls.push_back("carried " + std::to_string(notifier()->carried())); }
   void onLevel(Sulvi::IntfId key) override { calls.push_back("level " + key.stringValue().str()); }
   void onLevel() override { calls.push_back("level"); }
   void onLabel(Spot const& key) override { calls.push_back("label " + key.text()); }
   void onLeaving(Level key) override { calls.push_back("leaving " + std::to_string(key)); }
   void onShown() override { calls.push_back("shown"); }
   Calls calls;
};

// Overrides one form of one collection; other names stay those of the base.
struct HearsLevelsUnkeyed final : Store::NotifieeConst {
   HearsLevelsUnkeyed() : NotifieeConst(this) {}
   void onLevel() override { ++count; }
   int count = 0;
};

// Follows any kind of place by its base class.
struct HearsPlace final : Place::NotifieeConst {
   HearsPlace() : NotifieeConst(this) {}
   void onWarmth() override { ++count; }
   int count = 0;
};

struct Middle : Store::NotifieeConst {
   template <class Derived>
   explicit Middle(Derived* derived) : NotifieeConst(derived) {}
   void onSlogan() override { ++count; }
   int count = 0;
};
struct HearsThroughMiddle final : Middle {
   HearsThroughMiddle() : Middle(this) {}
};

// Shows what is found of it when it is compiled.
struct Probe final : Store::NotifieeConst {
   Probe() : NotifieeConst(this) {}
   void onLevelkemImmediate() override {}
   void onBox(Level) override {}
   void onSlogan() override {}
   static constexpr Kem::Interests interests() { return interestsOf<Probe>(); }
};

class ReactorTest : public testing::Test {
  protected:
   Kem::Ptr<Store> const store = Store::make("east");
   HearsAll reactor;

   Calls heard() {
      Kem::activityManager()->runUntilIdle();
      return std::exchange(reactor.calls, {});
   }
   size_t delivered() const { return Kem::activityManager()->activitySm().deliveredCount(); }
};

TEST_F(ReactorTest, overridesAreFoundWhenCompiled) {
   constexpr Kem::Interests found = Probe::interests();
   static_assert(found.keyed == uint64_t(1) << Store::kBox);
   static_assert(found.plain == uint64_t(1) << Store::kSlogan);
   static_assert(found.immediate == uint64_t(1) << Store::kLevel);
   EXPECT_EQ(found.keyed & found.plain, 0u);
}

TEST_F(ReactorTest, bindingCallsTheFullEvaluationOnce) {
   reactor.notifierIs(store);
   EXPECT_THAT(reactor.calls, ElementsAre("initialized"));
   reactor.notifierIs(store);
   EXPECT_THAT(heard(), ElementsAre("initialized"));
   EXPECT_EQ(reactor.notifier(), store);
}

TEST_F(ReactorTest, changesComeCoalescedByAttributeAndKey) {
   reactor.notifierIs(store);
   heard();
   store->levelIs("Ethernet2", 1);
   store->levelIs("Ethernet1", 1);
   store->levelIs("Ethernet2", 2);
   store->carriedInc(3);
   store->carriedInc(4);
   store->openIs(false);
   store->labelIs({4, Material::wood}, {});
   EXPECT_THAT(reactor.calls, IsEmpty()) << "a mutator calls no reactor";
   EXPECT_THAT(heard(), ElementsAre("open", "carried 7", "label 4/wood", "level Ethernet2", "level Ethernet1",
                                    "level"));
   store->levelDelAll();
   EXPECT_THAT(heard(), testing::UnorderedElementsAre("level Ethernet1", "level Ethernet2", "level"));
}

TEST_F(ReactorTest, childrenAndReferencesAreToldByKey) {
   reactor.notifierIs(store);
   heard();
   auto const box = store->boxIs(4);
   store->leavingIs(box);
   store->shownIs(box);
   EXPECT_THAT(heard(), ElementsAre("box 4", "leaving 4", "shown"));
   box->takenInc();
   EXPECT_THAT(heard(), IsEmpty()) << "what happens inside a child is the child's";
   store->boxDel(4);
   EXPECT_THAT(heard(), ElementsAre("box 4"));
}

TEST_F(ReactorTest, sameValueTellsNobody) {
   store->levelIs("Ethernet1", 1);
   store->shownIs(nullptr);
   reactor.notifierIs(store);
   heard();
   size_t const before = delivered();
   store->openIs(true);
   store->carriedIs(0);
   store->levelIs("Ethernet1", 1);
   store->levelDel("Ethernet9");
   store->shownIs(nullptr);
   store->boxDel(1);
   store->boxDelAll();
   EXPECT_THAT(heard(), IsEmpty());
   EXPECT_EQ(delivered(), before);
}

TEST_F(ReactorTest, whatIsNotOverriddenIsNotQueued) {
   HearsLevelsUnkeyed levels;
   levels.notifierIs(store);
   size_t const before = delivered();
   store->sloganIs("new");
   store->boxIs(1);
   EXPECT_TRUE(Kem::activityManager()->activitySm().isEmpty());
   store->levelIs("Ethernet1", 1);
   store->levelIs("Ethernet2", 2);
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(levels.count, 1);
   EXPECT_EQ(delivered(), before + 1);
}

TEST_F(ReactorTest, baseFollowsWhatIsDerived) {
   HearsPlace place;
   place.notifierIs(store);
   store->warmthIs(3);
   store->sloganIs("unheard");
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(place.count, 1);
}

TEST_F(ReactorTest, overrideOfAClassBetweenIsHeard) {
   HearsThroughMiddle between;
   between.notifierIs(store);
   store->sloganIs("new");
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(between.count, 1);
}

TEST_F(ReactorTest, wholeCollectionComesAfterMissedChanges) {
   reactor.notifierIs(store);
   heard();
   reactor.hasNotificationActiveIs(false);
   store->boxIs(1);
   store->boxIs(2);
   EXPECT_THAT(heard(), IsEmpty());
   reactor.hasNotificationActiveIs(true);
   EXPECT_THAT(heard(), ElementsAre("box immediate"));
}

TEST_F(ReactorTest, anotherBindingDropsPendingKeys) {
   reactor.notifierIs(store);
   store->levelIs("Ethernet1", 1);
   auto const other = Store::make("west");
   reactor.notifierIs(other);
   EXPECT_THAT(heard(), ElementsAre("initialized", "initialized"));
   other->levelIs("Ethernet2", 1);
   EXPECT_THAT(heard(), ElementsAre("level Ethernet2", "level"));
}

TEST_F(ReactorTest, inputsThatArriveByWireTellNobody) {
   auto const box = Box::make(1);
   struct Hears final : Box::NotifieeConst {
      Hears() : NotifieeConst(this) {}
      void onLabel() override { ++count; }
      int count = 0;
   } hears;
   hears.notifierIs(box);
   Wire::Writer no, spot;
   no.boolean(false);
   Wire::Reader in(no.view());
   EXPECT_TRUE(box->applySet(Box::kSealed, in));
   EXPECT_FALSE(box->sealed());
   EXPECT_TRUE(Kem::activityManager()->activitySm().isEmpty());
   box->labelIs({.text1 = "x"});
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(hears.count, 1);
}

} // namespace
