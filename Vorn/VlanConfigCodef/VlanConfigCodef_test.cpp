#include "Vorn/VlanConfigCodef/VlanConfigCodef.h"

#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/testing/TestBridge.h"

#include <gmock/gmock.h>

namespace {

using Bridging::VlanAdminState;
using testing::HasSubstr;
using Vorn::compareVlanTrunkGroups;
using Vorn::copyVlanTrunkGroups;
using Vorn::TestBridge;
using Vorn::TestInput;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

struct VlanConfigCodefTest : testing::Test {
   void start() {
      bridge.start();
      codef = bridge.sm->vlanConfigCodef();
   }
   // The keys that wait.
   Numbers backlog() {
      Numbers keys;
      for (auto const& [vlanId, value] : codef->backlog().keys())
         keys.push_back(vlanId);
      return keys;
   }
   uint64_t slice(Kem::Seconds quantum = 1) {
      codef->backlogQuantumIs(quantum);
      return codef->processBacklog(Kem::now());
   }
   // Delivers to the stage what has changed in its input, without a slice.
   void notice() { Kem::activityManager()->deliverQueued(); }
   Kem::Ptr<Bridging::Input::VlanConfig> copy(uint16_t vlanId) {
      return bridge.sm->staticVlans().vlanConfigAfterCodef(vlanId);
   }
   // The input that the VLAN's entry follows.
   Kem::Ptr<Bridging::Input::VlanConfig const> followed(uint16_t vlanId) {
      auto const entry = codef->vlanConfigEntrySm(vlanId);
      return entry ? entry->vcfgIn() : nullptr;
   }

   Vorn::TestAttrLog log;
   TestBridge bridge;
   Kem::Ptr<Vorn::VlanConfigCodef> codef;
};

// --- Into the backlog.

TEST_F(VlanConfigCodefTest, newVlanWaitsForASlice) {
   TestTrace trace;
   start();
   EXPECT_STREQ(codef->fwkType(), "Vorn::VlanConfigCodef");
   uint64_t const seen = codef->updatesSeen();
   bridge.vlan(10);
   notice();
   EXPECT_EQ(backlog(), Numbers{10});
   EXPECT_EQ(codef->backlogSize(), 1u);
   EXPECT_EQ(codef->updatesSeen(), seen + 1);
   EXPECT_FALSE(copy(10));
   EXPECT_EQ(codef->timeMin(), 0.0) << "in the next turn";
   EXPECT_TRUE(trace.has("Adding Vlan: 10 to backlog"));
   bridge.run();
   EXPECT_TRUE(copy(10));
   EXPECT_EQ(backlog(), Numbers{});
   EXPECT_EQ(codef->updatesProcessed(), 1u);
   EXPECT_EQ(codef->dispatchCount(), 1u);
}

TEST_F(VlanConfigCodefTest, vlanThatIsGoneWaitsForASliceToo) {
   TestTrace trace;
   bridge.vlan(10);
   start();
   bridge.vlanDel(10);
   notice();
   EXPECT_EQ(backlog(), Numbers{10});
   EXPECT_TRUE(copy(10));
   EXPECT_TRUE(bridge.resolvedVlan(10));
   EXPECT_EQ(slice(), 1u);
   EXPECT_FALSE(copy(10));
   EXPECT_FALSE(codef->vlanConfigEntrySm(10));
   EXPECT_FALSE(bridge.resolvedVlan(10));
   EXPECT_TRUE(trace.has("Deleting Vlan: 10 from output"));
   EXPECT_FALSE(trace.has("(stale)"));
}

TEST_F(VlanConfigCodefTest, vlanThatCameAndWentBeforeItsSliceIsNoMore) {
   TestTrace trace;
   start();
   bridge.vlan(10);
   notice();
   bridge.vlanDel(10);
   notice();
   EXPECT_EQ(backlog(), Numbers{});
   EXPECT_TRUE(trace.has("Deleting Vlan: 10 from backlog"));
   EXPECT_EQ(slice(), 0u);
}

TEST_F(VlanConfigCodefTest, vlanThatVanishedAndCameBackEqualIsNotTouched) {
   bridge.vlan(10)->configuredNameIs("users");
   start();
   auto const existing = copy(10);
   auto const vlanSm = bridge.sm->staticVlans().vlanConfigSm(10);
   bridge.vlanDel(10);
   notice();
   EXPECT_EQ(backlog(), Numbers{10});
   auto const back = bridge.vlan(10);
   back->configuredNameIs("users");
   notice();
   EXPECT_EQ(backlog(), Numbers{});
   bridge.run();
   EXPECT_EQ(copy(10), existing);
   EXPECT_EQ(bridge.sm->staticVlans().vlanConfigSm(10), vlanSm);
   EXPECT_EQ(followed(10), back);
}

TEST_F(VlanConfigCodefTest, vlanThatVanishedWhileItWaitedIsDeletedByItsSlice) {
   bridge.vlan(10);
   start();
   TestInput const other = bridge.publish("a", 200);
   other.vlan(10)->configuredNameIs("theirs");
   notice();
   ASSERT_EQ(backlog(), Numbers{10});
   other.vlanDel(10);
   EXPECT_EQ(slice(), 1u) << "before the notification comes";
   EXPECT_FALSE(copy(10));
}

TEST_F(VlanConfigCodefTest, eachDifferenceCounts) {
   struct Difference {
      char const* what;
      void (*make)(Bridging::Input::VlanConfig&);
   };
   Difference const differences[] = {
       {"configuredName", [](auto& v) { v.configuredNameIs("other"); }},
       {"adminState", [](auto& v) { v.adminStateIs(VlanAdminState::suspended); }},
       {"vlanTypeAndPrimaryVlan", [](auto& v) { v.vlanTypeAndPrimaryVlanIs({.primaryVlan = 3}); }},
       {"vlanType",
        [](auto& v) { v.vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_}); }},
       {"trunkGroup", [](auto& v) { v.trunkGroupIs("a", true); }},
   };
   bridge.vlan(10);
   start();
   auto const other = bridge.input("a");
   bridge.run();
   for (auto const& [what, make] : differences) {
      other.vlanDel(10);
      make(*other.vlan(10));
      bridge.sm->configInIs(other.record);
      codef->handleVlanConfig();
      EXPECT_EQ(backlog(), Numbers{10}) << what;
      bridge.sm->configInIs(bridge.cli);
      codef->handleVlanConfig();
      EXPECT_EQ(backlog(), Numbers{}) << what << " and back";
   }
}

// --- Another input.

TEST_F(VlanConfigCodefTest, inputWithTheSameContentsOnlyMovesTheEntries) {
   TestTrace trace;
   bridge.vlan(10)->trunkGroupIs("a", true);
   start();
   auto const existing = copy(10);
   auto const vlanSm = bridge.sm->staticVlans().vlanConfigSm(10);
   auto const resolved = bridge.resolvedVlan(10);
   TestInput const other = bridge.input("a");
   other.vlan(10)->trunkGroupIs("a", true);
   bridge.run();
   trace.clear();
   other.prioritiesAre(200);
   bridge.run();
   EXPECT_EQ(codef->configIn(), other.record);
   EXPECT_EQ(backlog(), Numbers{});
   EXPECT_EQ(copy(10), existing);
   EXPECT_EQ(bridge.sm->staticVlans().vlanConfigSm(10), vlanSm);
   EXPECT_EQ(bridge.resolvedVlan(10), resolved);
   EXPECT_EQ(followed(10), other.vlan(10));
   EXPECT_TRUE(trace.has("Deleting and recreating VlanConfigEntrySm due to change in the best input: 10"));
   EXPECT_TRUE(trace.has("Deleting Vlan: 10 from backlog"));
   other.vlan(10)->configuredNameIs("theirs");
   bridge.vlan(10)->configuredNameIs("ours");
   bridge.run();
   EXPECT_EQ(resolved->configuredName(), "theirs") << "the entry follows the new input";
}

TEST_F(VlanConfigCodefTest, inputWithOtherContentsHasTheVlanBuiltAgainAndCountsForTwo) {
   TestTrace trace;
   bridge.vlan(10)->configuredNameIs("ours");
   bridge.vlan(20);
   start();
   auto const existing = copy(10);
   auto const vlanSm = bridge.sm->staticVlans().vlanConfigSm(10);
   TestInput const other = bridge.input("a");
   other.vlan(10)->configuredNameIs("theirs");
   other.vlan(20);
   bridge.run();
   bridge.sm->configInIs(other.record);
   codef->handleVlanConfig();
   EXPECT_EQ(backlog(), Numbers{10});
   trace.clear();
   EXPECT_EQ(slice(), 2u);
   EXPECT_NE(copy(10), existing);
   EXPECT_NE(bridge.sm->staticVlans().vlanConfigSm(10), vlanSm);
   EXPECT_EQ(followed(10), other.vlan(10));
   EXPECT_EQ(bridge.resolvedVlan(10)->configuredName(), "theirs");
   EXPECT_EQ(trace.from("Deleting Vlan: 10 from output"),
             std::vector<std::string>{"Deleting Vlan: 10 from output (stale)"});
   EXPECT_TRUE(trace.has("Adding Vlan: 10 to output"));
}

TEST_F(VlanConfigCodefTest, newInputStartsWithAnEmptyBacklogAndAFreshBookmark) {
   start();
   bridge.vlan(10);
   bridge.vlan(20);
   notice();
   EXPECT_EQ(slice(0), 1u) << "the first, and then the time is up";
   EXPECT_EQ(codef->backlog().bookmark(), 20);
   TestInput const other = bridge.input("a");
   other.vlan(30);
   bridge.sm->configInIs(other.record);
   codef->handleVlanConfig();
   EXPECT_EQ(backlog(), (Numbers{10, 30})) << "10 is to go, 20 never came";
   EXPECT_EQ(codef->backlog().bookmark(), 1);
}

TEST_F(VlanConfigCodefTest, noInputAtAllTakesAllVlansAway) {
   bridge.vlan(10);
   bridge.vlan(20);
   start();
   bridge.sm->configInIs(nullptr);
   codef->handleVlanConfig();
   EXPECT_EQ(backlog(), (Numbers{10, 20}));
   EXPECT_EQ(slice(), 2u);
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

// --- The entry.

TEST_F(VlanConfigCodefTest, copyTakesTheWholeInput) {
   auto const in = bridge.vlan(10);
   in->configuredNameIs("users");
   in->adminStateIs(VlanAdminState::suspended);
   in->vlanTypeAndPrimaryVlanIs({.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 5});
   in->trunkGroupIs("a", true);
   in->trunkGroupIs("b", false);
   start();
   auto const out = copy(10);
   EXPECT_EQ(out->configuredName(), "users");
   EXPECT_EQ(out->adminState(), VlanAdminState::suspended);
   EXPECT_EQ(out->vlanTypeAndPrimaryVlan(), in->vlanTypeAndPrimaryVlan());
   EXPECT_TRUE(compareVlanTrunkGroups(*in, *out));
   EXPECT_EQ(codef->vlanConfigEntrySm(10)->vlanId(), 10);
   EXPECT_EQ(codef->vlanConfigEntrySm(10)->vcfgOut(), out);
}

TEST_F(VlanConfigCodefTest, laterChangesAreCopiedAtOnceWithoutTheBacklog) {
   auto const in = bridge.vlan(10);
   in->trunkGroupIs("gone", true);
   start();
   auto const out = copy(10);
   in->configuredNameIs("users");
   in->adminStateIs(VlanAdminState::suspended);
   in->vlanTypeAndPrimaryVlanIs({.primaryVlan = 5});
   in->trunkGroupIs("a", true);
   in->trunkGroupIs("b", false);
   in->trunkGroupDel("gone");
   bridge.turn();
   EXPECT_EQ(out->configuredName(), "users");
   EXPECT_EQ(out->adminState(), VlanAdminState::suspended);
   EXPECT_EQ(out->vlanTypeAndPrimaryVlan().primaryVlan, 5);
   EXPECT_TRUE(out->trunkGroup("a"));
   EXPECT_TRUE(out->trunkGroup().find("b")) << "with its value";
   EXPECT_FALSE(out->trunkGroup("b"));
   EXPECT_FALSE(out->trunkGroup().find("gone"));
   EXPECT_EQ(codef->dispatchCount(), 1u) << "the slice of the start";
   EXPECT_EQ(backlog(), Numbers{});
}

TEST_F(VlanConfigCodefTest, existingEntryIsReturnedForTheSameRecordsAndRefusesOthers) {
   start();
   auto const named = [](char const* name) {
      auto const record = Bridging::Input::VlanConfig::make(10);
      record->nameIs(name);
      return record;
   };
   auto const in = named("standingIn"), out = named("standingOut");
   auto const entry = codef->vlanConfigEntrySmIs(10, in, out);
   EXPECT_EQ(codef->vlanConfigEntrySmIs(10, in, out), entry);
   auto const refusal = [&](auto const& otherIn, auto const& otherOut) -> std::string {
      try {
         codef->vlanConfigEntrySmIs(10, otherIn, otherOut);
         return "nothing";
      } catch (Kem::RangeException const& e) {
         return e.what();
      }
   };
   EXPECT_EQ(
       refusal(named("asked"), out),
       "Reinstantiating the pointer interface where constructor parameter attribute _vcfgIn has a different "
       "value of standingIn than the current value of asked not allowed");
   EXPECT_EQ(
       refusal(in, named("asked")),
       "Reinstantiating the pointer interface where constructor parameter attribute _vcfgOut has a different "
       "value of standingOut than the current value of asked not allowed");
   codef->vlanConfigEntrySmDel(10);
   EXPECT_EQ(refusal(named("asked"), out), "nothing");
}

TEST(VlanTrunkGroups, areComparedByNameAndValue) {
   auto const make = [](std::vector<std::pair<char const*, bool>> const& groups) {
      auto const vlan = Bridging::Input::VlanConfig::make(10);
      for (auto const& [name, value] : groups)
         vlan->trunkGroupIs(name, value);
      return vlan;
   };
   EXPECT_TRUE(compareVlanTrunkGroups(*make({}), *make({})));
   EXPECT_TRUE(
       compareVlanTrunkGroups(*make({{"a", true}, {"b", false}}), *make({{"b", false}, {"a", true}})));
   EXPECT_FALSE(compareVlanTrunkGroups(*make({{"a", true}}), *make({{"b", true}})));
   EXPECT_FALSE(compareVlanTrunkGroups(*make({{"a", false}}), *make({{"a", true}})));
   EXPECT_FALSE(compareVlanTrunkGroups(*make({{"a", true}}), *make({{"a", true}, {"b", false}})));
   EXPECT_TRUE(compareVlanTrunkGroups(*make({{"a", false}}), *make({{"b", false}})))
       << "one that is lacking is false";
}

TEST(VlanTrunkGroups, areCopiedAndNoneIsRemoved) {
   auto const source = Bridging::Input::VlanConfig::make(10);
   auto const destination = Bridging::Input::VlanConfig::make(10);
   source->trunkGroupIs("a", true);
   source->trunkGroupIs("b", false);
   destination->trunkGroupIs("b", true);
   destination->trunkGroupIs("c", true);
   copyVlanTrunkGroups(*source, *destination);
   EXPECT_EQ(destination->trunkGroup().size(), 3u);
   EXPECT_TRUE(destination->trunkGroup("a"));
   EXPECT_FALSE(destination->trunkGroup("b"));
   EXPECT_TRUE(destination->trunkGroup("c"));
}

// --- Slices.

TEST_F(VlanConfigCodefTest, emptyBacklogGivesZeroAndKeepsTheBookmark) {
   start();
   EXPECT_EQ(slice(), 0u);
   EXPECT_EQ(codef->backlog().bookmark(), 1);
}

TEST_F(VlanConfigCodefTest, sliceThatIsLateFinishesOneVlanAndSaysWhereItStopped) {
   TestTrace trace;
   start();
   for (uint16_t const vlanId : {30, 10, 20})
      bridge.vlan(vlanId);
   notice();
   trace.clear();
   EXPECT_EQ(slice(-5), 1u);
   EXPECT_TRUE(copy(10));
   EXPECT_EQ(backlog(), (Numbers{20, 30}));
   EXPECT_EQ(codef->backlog().bookmark(), 20);
   EXPECT_EQ(trace.level("backlog processing 10"), 8);
   EXPECT_EQ(trace.level("Pausing backlog processing at 20"), 7);
   EXPECT_FALSE(trace.has("attr log full"));
   EXPECT_EQ(slice(), 2u);
   EXPECT_EQ(trace.count("Pausing"), 1u);
}

TEST_F(VlanConfigCodefTest, fullLogStopsTheSliceBeforeItsFirstVlan) {
   TestTrace trace;
   bridge.attrLogCheck = &log.check;
   start();
   bridge.vlan(10);
   notice();
   log.fill();
   EXPECT_EQ(slice(), 0u);
   EXPECT_EQ(backlog(), Numbers{10});
   EXPECT_EQ(codef->backlog().bookmark(), 10);
   EXPECT_EQ(trace.level("Pausing backlog processing at 10 - attr log full"), 7);
   EXPECT_FALSE(copy(10));
}

TEST_F(VlanConfigCodefTest, sliceThatIsLateAfterAFullLogDoesNotBlameTheLog) {
   bridge.attrLogCheck = &log.check;
   start();
   bridge.vlan(10);
   bridge.vlan(20);
   notice();
   log.fill();
   ASSERT_EQ(slice(), 0u);
   log.drain();
   TestTrace trace;
   EXPECT_EQ(slice(0), 1u);
   EXPECT_TRUE(trace.has("Pausing backlog processing at 20"));
   EXPECT_FALSE(trace.has("attr log full"));
}

TEST_F(VlanConfigCodefTest, logThatFillsUpStopsTheSliceBetweenVlansAndNothingIsLost) {
   bridge.attrLogCheck = &log.check;
   start();
   for (uint16_t vlanId = 1; vlanId <= 10; ++vlanId)
      bridge.vlan(vlanId);
   notice();
   log.roomFor(4);
   EXPECT_EQ(slice(), 4u);
   EXPECT_EQ(codef->backlog().bookmark(), 5);
   EXPECT_EQ(bridge.resolvedVlans(), (Numbers{1, 2, 3, 4}));
   bridge.run(); // tries, and pauses
   EXPECT_EQ(bridge.resolvedVlans().size(), 4u);
   EXPECT_FALSE(Kem::activityManager()->isSettled());
   log.drain();
   bridge.advance(0.01);
   EXPECT_EQ(bridge.resolvedVlans().size(), 10u);
   EXPECT_EQ(codef->backlogSize(), 0u);
}

TEST_F(VlanConfigCodefTest, thousandsOfVlansAreDeliveredByTheClock) {
   for (uint16_t vlanId = 1; vlanId <= 4094; ++vlanId)
      bridge.vlan(vlanId);
   bridge.startBridgingOnly();
   codef = bridge.sm->vlanConfigCodef();
   codef->backlogQuantumIs(-1); // each slice is late, and finishes one VLAN
   bridge.startSelector();
   notice();
   EXPECT_EQ(codef->backlogSize(), 4094u);
   EXPECT_EQ(bridge.resolvedVlans().size(), 0u);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans().size(), 4094u);
   EXPECT_EQ(codef->updatesProcessed(), 4094u);
   EXPECT_EQ(codef->dispatchCount(), 4094u);
   EXPECT_EQ(codef->yieldBeforeFinishingCount(), 4093u);
   EXPECT_EQ(backlog(), Numbers{});
}

// 1. The command line's document raises the priority of an input, and then changes a VLAN.
// 2. The selector has the stage look at everything: the VLAN differs from its copy, and waits for a slice.
// 3. Its entry copies the change before that slice comes.
TEST_F(VlanConfigCodefTest, vlanThatIsEqualAgainWhenItsSliceComesIsNotTouched) {
   auto const vlan = bridge.vlan(10);
   start();
   auto const existing = copy(10);
   auto const vlanSm = bridge.sm->staticVlans().vlanConfigSm(10);
   auto const resolved = bridge.resolvedVlan(10);
   vlan->configuredNameIs("users");
   codef->handleVlanConfig();
   EXPECT_EQ(backlog(), Numbers{10});
   notice();
   EXPECT_EQ(copy(10)->configuredName(), "users");
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(copy(10), existing);
   EXPECT_EQ(bridge.sm->staticVlans().vlanConfigSm(10), vlanSm);
   EXPECT_EQ(bridge.resolvedVlan(10), resolved);
   bridge.run();
   EXPECT_EQ(resolved->configuredName(), "users");
   EXPECT_EQ(followed(10), vlan);
}

TEST_F(VlanConfigCodefTest, vlanThatIsEqualWhenItsSliceComesFollowsTheInputOfThatMoment) {
   auto const vlan = bridge.vlan(10);
   start();
   auto const vlanSm = bridge.sm->staticVlans().vlanConfigSm(10);
   auto const other = bridge.input("a").vlan(10);
   other->configuredNameIs("users");
   bridge.run();
   bridge.input("a").record->vlanConfigPriorityIs(200);
   notice();
   ASSERT_EQ(backlog(), Numbers{10});
   vlan->configuredNameIs("users"); // in the losing input, which the entry still follows
   notice();
   EXPECT_EQ(copy(10)->configuredName(), "users");
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(bridge.sm->staticVlans().vlanConfigSm(10), vlanSm);
   EXPECT_EQ(followed(10), other);
}

// --- Life.

TEST_F(VlanConfigCodefTest, isInitializedOnce) {
   start();
   EXPECT_TRUE(codef->initialized());
   EXPECT_DEATH(codef->handleInitialized(), HasSubstr("\"!initialized()\""));
}

TEST_F(VlanConfigCodefTest, backlogCanBeEmptied) {
   start();
   bridge.vlan(10);
   notice();
   codef->backlogDelAll();
   bridge.run();
   EXPECT_FALSE(copy(10));
}

} // namespace
