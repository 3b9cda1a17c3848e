#include "PrivateVlanLib/LibSm.h"

#include "Kem/Activity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>

namespace {

using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;

VlanTypeAndPrimaryVlan role(VlanType type, uint16_t primary) {
   VlanTypeAndPrimaryVlan value;
   value.vlanType = type;
   value.primaryVlan = primary;
   return value;
}

// The whole of a LibState as sorted text: "10 primary_ 0; 20 secondary_ 10; | 20 | 10: 20".
std::string text(PrivateVlanLib::LibState const& state) {
   std::map<int, VlanTypeAndPrimaryVlan> roles;
   std::map<int, bool> secondaries;
   std::map<int, std::map<int, bool>> primaries;
   state.vlanTypeAndPrimaryVlan().forEach([&](VlanId id, auto const& value) { roles[id] = value; });
   state.secondaryVlan().forEach([&](VlanId id, bool value) { secondaries[id] = value; });
   state.primaryVlan().forEach([&](VlanId id, auto const& primary) {
      primaries[id];
      primary->secondaryVlan().forEach([&](VlanId member, bool value) { primaries[id][member] = value; });
   });
   std::ostringstream out;
   auto list = [&](auto const& map) {
      for (auto const& [id, value] : map)
         out << id << (value ? " " : "=false ");
   };
   for (auto const& [id, value] : roles)
      out << id << "/" << static_cast<unsigned>(value.vlanType) << "/" << value.primaryVlan << " ";
   out << "| ";
   list(secondaries);
   for (auto const& [id, members] : primaries) {
      out << "| " << id << ": ";
      list(members);
   }
   return out.str();
}

// The same from the VLANs alone, by the plain rule, with no memory of what was before.
std::string recomputed(Bridging::Config const& config) {
   auto const state = PrivateVlanLib::LibState::make();
   config.vlanConfig().forEach([&](VlanId id, auto const& vlan) {
      auto const own = vlan->vlanTypeAndPrimaryVlan();
      if (vlan->internal() || own.vlanType == VlanType::primary_)
         return;
      state->secondaryVlanIs(id, true);
      state->vlanTypeAndPrimaryVlanIs(id, own);
      if (own.primaryVlan == 0)
         return;
      auto const primary = config.vlanConfig(VlanId(own.primaryVlan));
      if (!primary || primary->internal() || primary->vlanTypeAndPrimaryVlan() != role(VlanType::primary_, 0))
         return;
      state->primaryVlanIs(VlanId(own.primaryVlan))->secondaryVlanIs(id, true);
      state->vlanTypeAndPrimaryVlanIs(VlanId(own.primaryVlan), role(VlanType::primary_, 0));
   });
   return text(*state);
}

struct LibSmTest : testing::Test {
   void plain(uint16_t vlan, bool internal = false) { config->vlanConfigIs(vlan, internal); }
   void secondary(uint16_t vlan, uint16_t primary, VlanType type = VlanType::secondary_) {
      config->vlanConfigIs(vlan, false)->vlanTypeAndPrimaryVlanIs(role(type, primary));
   }
   std::string settled() {
      Kem::activityManager()->runUntilIdle();
      EXPECT_EQ(sm->pendingEntries(), 0u);
      return text(*state);
   }
   Kem::Ptr<Bridging::Config> config = Bridging::Config::make();
   Kem::Ptr<PrivateVlanLib::LibState> state = PrivateVlanLib::LibState::make();
   Kem::Ptr<PrivateVlanLib::LibSm> sm = Kem::makePtr<PrivateVlanLib::LibSm>(config, state);
};

TEST_F(LibSmTest, plainVlansHaveNoRole) {
   plain(10);
   plain(20);
   EXPECT_EQ(settled(), "| ");
}

TEST_F(LibSmTest, secondaryMakesItsPrimaryOne) {
   plain(10);
   secondary(20, 10);
   secondary(30, 10);
   EXPECT_EQ(settled(), "10/0/0 20/1/10 30/1/10 | 20 30 | 10: 20 30 ");
}

TEST_F(LibSmTest, vlansThatStandWhenItStartsAreTaken) {
   plain(10);
   secondary(20, 10);
   state->secondaryVlanIs(99, true); // left by somebody
   state->primaryVlanIs(98);
   sm = Kem::makePtr<PrivateVlanLib::LibSm>(config, state);
   EXPECT_EQ(text(*state), "10/0/0 20/1/10 | 20 | 10: 20 ") << "in the constructor, not a turn later";
}

TEST_F(LibSmTest, secondaryOfAMissingPrimaryIsASecondaryOfNobody) {
   secondary(20, 10);
   EXPECT_EQ(settled(), "20/1/10 | 20 ");
   plain(10);
   EXPECT_EQ(settled(), "10/0/0 20/1/10 | 20 | 10: 20 ");
   config->vlanConfigDel(10);
   EXPECT_EQ(settled(), "20/1/10 | 20 ");
}

TEST_F(LibSmTest, whatIsNoFitPrimaryHasNoSecondaries) {
   plain(10, true);   // internal
   secondary(11, 12); // a secondary itself
   config->vlanConfigIs(13, false)->vlanTypeAndPrimaryVlanIs(role(VlanType::primary_, 12));
   secondary(20, 10);
   secondary(21, 11);
   secondary(22, 13);
   secondary(23, 23);
   secondary(24, 0);
   EXPECT_EQ(settled(), "11/1/12 20/1/10 21/1/11 22/1/13 23/1/23 24/1/0 | 11 20 21 22 23 24 ");
   config->vlanConfig(13)->vlanTypeAndPrimaryVlanIs(role(VlanType::primary_, 0));
   EXPECT_EQ(settled(),
             "11/1/12 13/0/0 20/1/10 21/1/11 22/1/13 23/1/23 24/1/0 | 11 20 21 22 23 24 | 13: 22 ");
}

TEST_F(LibSmTest, otherTypesAreSecondariesToo) {
   plain(10);
   secondary(20, 10, static_cast<VlanType>(2));
   EXPECT_EQ(settled(), "10/0/0 20/2/10 | 20 | 10: 20 ");
}

TEST_F(LibSmTest, secondaryMovesToAnotherPrimary) {
   plain(10);
   plain(11);
   secondary(20, 10);
   settled();
   secondary(20, 11);
   EXPECT_EQ(settled(), "11/0/0 20/1/11 | 20 | 11: 20 ");
   config->vlanConfig(20)->vlanTypeAndPrimaryVlanIs({});
   EXPECT_EQ(settled(), "| ");
}

TEST_F(LibSmTest, vlanRemovedAndMadeAgainInOneTurnIsFollowedAsTheNewOne) {
   plain(10);
   secondary(20, 10);
   settled();
   config->vlanConfigDel(20);
   plain(20);
   EXPECT_EQ(settled(), "| ");
   secondary(20, 10);
   EXPECT_EQ(settled(), "10/0/0 20/1/10 | 20 | 10: 20 ");
}

// Counts what is told of the secondaries of one primary.
struct SecondaryCounter final : PrivateVlanLib::PrimaryVlanState::NotifieeConst {
   SecondaryCounter() : NotifieeConst(this) {}
   void onSecondaryVlan(VlanId id) override {
      log += std::to_string(id) + (notifier()->secondaryVlan(id) ? " in;" : " out;");
   }
   std::string log;
};

TEST_F(LibSmTest, pairOfAVlanThatWasRemovedAndMadeAgainIsToldOnceMore) {
   plain(10);
   secondary(20, 10);
   secondary(30, 10);
   settled();
   SecondaryCounter counter;
   counter.notifierIs(state->primaryVlan(10));
   config->vlanConfigDel(20);
   secondary(20, 10);
   EXPECT_EQ(settled(), "10/0/0 20/1/10 30/1/10 | 20 30 | 10: 20 30 ");
   EXPECT_EQ(std::exchange(counter.log, ""), "20 in;");
   config->vlanConfigDel(10);
   plain(10);
   EXPECT_EQ(settled(), "10/0/0 20/1/10 30/1/10 | 20 30 | 10: 20 30 ");
   EXPECT_THAT(counter.log, testing::AnyOf("20 in;30 in;", "30 in;20 in;"));
   EXPECT_EQ(counter.notifier(), state->primaryVlan(10)) << "the same record of it";
}

TEST_F(LibSmTest, worksWithoutABridgingConfig) {
   sm = Kem::makePtr<PrivateVlanLib::LibSm>(nullptr, state);
   EXPECT_EQ(settled(), "| ");
}

// Somebody who, like the followers of private VLANs, keeps a reactor for each primary
// and drops it with the primary.
struct Follower final : PrivateVlanLib::LibState::NotifieeConst {
   struct KemPrimary final : PrivateVlanLib::PrimaryVlanState::NotifieeConst {
      explicit KemPrimary(std::string& l) : NotifieeConst(this), log(l) {}
      void onSecondaryVlan(VlanId id) override {
         log += std::to_string(id) + (notifier()->secondaryVlan(id) ? " in;" : " out;");
      }
      std::string& log;
   };
   Follower() : NotifieeConst(this) {}
   void onPrimaryVlan(VlanId id) override {
      auto const primary = notifier()->primaryVlan(id);
      log += std::to_string(id) + (primary ? " primary;" : " gone;");
      if (!primary) {
         primaries.erase(id);
         return;
      }
      primaries[id] = Kem::makePtr<KemPrimary>(log);
      primaries[id]->notifierIs(primary);
   }
   std::string take() { return std::exchange(log, ""); }
   std::string log;
   std::map<int, Kem::Ptr<KemPrimary>> primaries;
};

TEST_F(LibSmTest, followersOfAPrimaryHearOfItsSecondariesBeforeItGoes) {
   // A follower of the state that was queued before must not drop the follower of the primary first:
   // 1. VLAN 11 becomes a primary, which queues the follower of the state.
   // 2. In the same turn VLAN 10 loses its secondary, which queues the follower of the primary.
   // 3. The state's follower is notified first. If the primary had gone already, the news of step 2
   //    would be lost.
   plain(10);
   plain(11);
   secondary(20, 10);
   settled();
   Follower follower;
   follower.notifierIs(state);
   follower.onPrimaryVlan(10);
   follower.take();
   secondary(21, 11);
   config->vlanConfigDel(20);
   EXPECT_EQ(settled(), "11/0/0 21/1/11 | 21 | 11: 21 ");
   EXPECT_EQ(follower.take(), "11 primary;20 out;10 gone;");
}

TEST_F(LibSmTest, emptiedPrimariesCountAsPending) {
   plain(10);
   secondary(20, 10);
   settled();
   config->vlanConfigDel(20);
   EXPECT_EQ(sm->pendingEntries(), 0u);
   Kem::activityManager()->runTurn();
   EXPECT_EQ(sm->pendingEntries(), 1u);
   Kem::activityManager()->runTurn();
   EXPECT_EQ(sm->pendingEntries(), 0u);
   EXPECT_FALSE(state->primaryVlan(10));
}

TEST_F(LibSmTest, primaryThatGetsASecondaryBackInTimeStays) {
   plain(10);
   secondary(20, 10);
   settled();
   auto const before = state->primaryVlan(10);
   config->vlanConfigDel(20);
   Kem::activityManager()->runTurn();
   secondary(30, 10);
   EXPECT_EQ(settled(), "10/0/0 30/1/10 | 30 | 10: 30 ");
   secondary(40, 10);
   EXPECT_EQ(settled(), "10/0/0 30/1/10 40/1/10 | 30 40 | 10: 30 40 ");
}

TEST_F(LibSmTest, changeOfOneVlanAmongAllTouchesOnlyThatOne) {
   plain(1);
   for (uint16_t vlan = 2; vlan <= 4094; ++vlan)
      secondary(vlan, 1);
   settled();
   ASSERT_EQ(state->primaryVlan(1)->secondaryVlan().size(), 4093u);
   size_t const before = Kem::activityManager()->activitySm().deliveredCount();
   struct Counter final : PrivateVlanLib::LibState::NotifieeConst {
      Counter() : NotifieeConst(this) {}
      void onSecondaryVlan(VlanId id) override { log += std::to_string(id) + ";"; }
      void onVlanTypeAndPrimaryVlan(VlanId id) override { log += std::to_string(id) + ";"; }
      std::string log;
   } counter;
   counter.notifierIs(state);
   config->vlanConfig(2000)->vlanTypeAndPrimaryVlanIs({});
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(counter.log, "2000;2000;");
   EXPECT_EQ(state->primaryVlan(1)->secondaryVlan().size(), 4092u);
   EXPECT_LE(Kem::activityManager()->activitySm().deliveredCount() - before, 4u);
}

TEST_F(LibSmTest, anyHistoryEndsWhereAPlainRecomputationDoes) {
   for (unsigned seed = 1; seed <= 40; ++seed) {
      std::mt19937 random(seed);
      auto below = [&](unsigned bound) { return static_cast<uint16_t>(random() % bound); };
      for (int step = 0; step < 300; ++step) {
         uint16_t const vlan = static_cast<uint16_t>(1 + below(12));
         switch (below(6)) {
         case 0:
            config->vlanConfigDel(vlan);
            break;
         case 1:
            if (!config->vlanConfig(vlan))
               plain(vlan, below(3) == 0);
            break;
         default:
            if (auto const standing = config->vlanConfig(vlan))
               standing->vlanTypeAndPrimaryVlanIs(role(static_cast<VlanType>(below(3)), below(13)));
         }
         if (below(3) == 0)
            Kem::activityManager()->runTurn();
         if (below(10) == 0) {
            ASSERT_EQ(settled(), recomputed(*config)) << "seed " << seed << " step " << step;
         }
      }
      ASSERT_EQ(settled(), recomputed(*config)) << "seed " << seed;
      EXPECT_EQ(text(*state).find("false"), std::string::npos);
   }
}

} // namespace
