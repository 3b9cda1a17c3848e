#include "Vorn/Rules/InternalVlan.h"

#include "Kem/Exception.h"
#include "records/Bridging/VlanConfig.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using Bridging::InternalVlanAllocationPolicy;
using Interface::EnabledState;
using Interface::IntfForwardingModel;
using Vorn::InternalVlanObstacle;

TEST(InternalVlan, obstaclesAreNamedInTheirOrder) {
   auto const config = Interface::EthIntfConfig::make("Ethernet1");
   auto const status = Interface::EthIntfStatus::make("Ethernet1");
   status->forwardingModelIs(IntfForwardingModel::intfForwardingModelRouted);
   EXPECT_EQ(Vorn::internalVlanObstacle(nullptr, nullptr), InternalVlanObstacle::notConfigured);
   EXPECT_EQ(Vorn::internalVlanObstacle(nullptr, status.ptr()), InternalVlanObstacle::notConfigured);
   config->enabledStateLocalIs(EnabledState::enabledStateShutdown);
   EXPECT_EQ(Vorn::internalVlanObstacle(config.ptr(), nullptr), InternalVlanObstacle::shutDown);
   EXPECT_EQ(Vorn::internalVlanObstacle(config.ptr(), status.ptr()), InternalVlanObstacle::shutDown);
   config->enabledStateLocalIs(EnabledState::enabledStateEnabled);
   EXPECT_EQ(Vorn::internalVlanObstacle(config.ptr(), nullptr), InternalVlanObstacle::noStatus);
   EXPECT_EQ(Vorn::internalVlanObstacle(config.ptr(), status.ptr()), InternalVlanObstacle::none);
   status->forwardingModelIs(IntfForwardingModel::intfForwardingModelBridged);
   EXPECT_EQ(Vorn::internalVlanObstacle(config.ptr(), status.ptr()), InternalVlanObstacle::notRouted);
}

struct FreeInternalVlanTest : testing::Test {
   void range(uint16_t min, uint16_t max, InternalVlanAllocationPolicy policy) {
      config->internalVlanRangeIs({.min = min, .max = max});
      config->internalVlanAllocationPolicyIs(policy);
   }
   uint16_t free() {
      return Vorn::freeInternalVlan(*config,
                                    [&](Bridging::VlanId vid) { return vlanIntfs.contains(vid.value()); });
   }
   Kem::Ptr<Bridging::Config> const config = Bridging::Config::make();
   std::set<uint16_t> vlanIntfs;
};

TEST_F(FreeInternalVlanTest, rangeIsWalkedInTheOrderOfThePolicy) {
   range(4000, 4002, InternalVlanAllocationPolicy::ascending);
   EXPECT_EQ(free(), 4000);
   range(4000, 4002, InternalVlanAllocationPolicy::descending);
   EXPECT_EQ(free(), 4002);
}

TEST_F(FreeInternalVlanTest, resolvedVlansAndVlanInterfacesTakeTheirNumbers) {
   range(4000, 4002, InternalVlanAllocationPolicy::ascending);
   config->vlanConfigIs(4000, true); // another port's
   EXPECT_EQ(free(), 4001);
   vlanIntfs.insert(4001);
   EXPECT_EQ(free(), 4002);
   config->vlanConfigIs(4002, false); // the user's
   EXPECT_EQ(free(), 0);
   config->vlanConfigDel(4000);
   EXPECT_EQ(free(), 4000) << "nothing was reserved";
}

TEST_F(FreeInternalVlanTest, rangeUpsideDownHasNoNumber) {
   for (auto const policy :
        {InternalVlanAllocationPolicy::ascending, InternalVlanAllocationPolicy::descending}) {
      for (uint16_t const min : {4001, 4010}) {
         range(min, 4000, policy);
         EXPECT_EQ(free(), 0);
      }
      range(4000, 4000, policy);
      EXPECT_EQ(free(), 4000);
   }
}

TEST_F(FreeInternalVlanTest, numberThatIsNoVlanRaisesWhenTheWalkGetsThere) {
   range(4094, 4095, InternalVlanAllocationPolicy::ascending);
   EXPECT_EQ(free(), 4094);
   vlanIntfs.insert(4094);
   EXPECT_THROW(free(), Kem::RangeException);
   range(0, 2, InternalVlanAllocationPolicy::descending);
   vlanIntfs = {1, 2};
   EXPECT_THROW(free(), Kem::RangeException);
   vlanIntfs = {2};
   EXPECT_EQ(free(), 1);
}

} // namespace
