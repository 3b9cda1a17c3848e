#include "Vorn/BridgingSm/CpuPort.h"

#include "Vorn/testing/TestBridge.h"
#include "records/Bridging/SviMappingState.h"

namespace {

using Vorn::TestBridge;
using Vorn::TestTrace;

// A primary VLAN 100 with the CPU port, and its secondaries 101 and 102, all resolved.
struct CpuPortTest : testing::Test {
   CpuPortTest() {
      bridge.primaryVlan(100, {101, 102});
      bridge.vlanIntf(100);
      bridge.start();
   }
   Bridging::VlanConfig& vlan(uint16_t vlanId) { return *bridge.resolvedVlan(vlanId); }
   std::string cpu(uint16_t vlanId) { return bridge.membership(vlanId, "Cpu"); }
   void sync(uint16_t secondary) { doSyncCpuPort(bridge.sm->cpuPortInputs(), vlan(100), vlan(secondary)); }

   TestBridge bridge;
};

TEST_F(CpuPortTest, cpuIsATaggedMemberBothWays) {
   auto const record = Bridging::VlanConfig::make(10);
   Vorn::addCpuPort(*record);
   auto const* const member = record->intf("Cpu");
   ASSERT_TRUE(member);
   EXPECT_EQ(*member, (Bridging::VlanPortConfig{.tagged = true}));
   EXPECT_FALSE(member->mappedUntagged);
   EXPECT_EQ(member->direction, Bridging::VlanPortDirection::rxAndTx);
   Vorn::deleteCpuPort(*record);
   EXPECT_TRUE(record->intf().empty());
   EXPECT_EQ(Vorn::cpuIntfId(), Sulvi::IntfId("Cpu"));
}

TEST_F(CpuPortTest, withoutAMappingEverySecondaryIsServed) {
   sync(101);
   sync(102);
   EXPECT_EQ(cpu(101), "tagged");
   EXPECT_EQ(cpu(102), "tagged");
}

TEST_F(CpuPortTest, defaultMappingServesEverySecondary) {
   bridge.config->sviMappingIs(100)->defaultSviMappingIs(true);
   sync(102);
   EXPECT_EQ(cpu(102), "tagged");
}

TEST_F(CpuPortTest, mappingServesTheSecondariesThatItNames) {
   sync(101);
   sync(102);
   auto const mapping = bridge.config->sviMappingIs(100);
   mapping->secondaryVlanIs(101, true);
   mapping->secondaryVlanIs(102, false);
   sync(101);
   sync(102);
   EXPECT_EQ(cpu(101), "tagged");
   EXPECT_EQ(cpu(102), "");
}

TEST_F(CpuPortTest, mappingOfAnotherPrimarySaysNothing) {
   bridge.config->sviMappingIs(101);
   sync(101);
   EXPECT_EQ(cpu(101), "tagged");
}

TEST_F(CpuPortTest, primaryWithoutTheCpuHasNoneInItsSecondaries) {
   sync(101);
   Vorn::deleteCpuPort(vlan(100));
   sync(101);
   EXPECT_EQ(cpu(101), "");
}

TEST_F(CpuPortTest, suspendedSecondaryHasNoCpuWhateverTheMapping) {
   bridge.config->sviMappingIs(100)->defaultSviMappingIs(true);
   sync(101);
   vlan(101).adminStateIs(Bridging::VlanAdminState::suspended);
   sync(101);
   EXPECT_EQ(cpu(101), "");
}

// --- All pairs of a VLAN.

TEST_F(CpuPortTest, primaryBringsAllItsSecondariesInStep) {
   TestTrace trace;
   Vorn::deleteCpuPort(vlan(101));
   Vorn::deleteCpuPort(vlan(102));
   maybeSyncCpuPort(*bridge.sm, 100);
   EXPECT_EQ(cpu(101), "tagged");
   EXPECT_EQ(cpu(102), "tagged");
   EXPECT_TRUE(trace.has("maybeSyncCpuPort vid 100"));
}

TEST_F(CpuPortTest, secondaryThatIsNotResolvedIsPassedOver) {
   bridge.privateVlans->primaryVlan(100)->secondaryVlanIs(103, true);
   maybeSyncCpuPort(*bridge.sm, 100);
   EXPECT_FALSE(bridge.resolvedVlan(103));
   EXPECT_EQ(cpu(102), "tagged");
}

TEST_F(CpuPortTest, secondaryIsBroughtInStepWithItsPrimary) {
   Vorn::deleteCpuPort(vlan(101));
   Vorn::deleteCpuPort(vlan(102));
   maybeSyncCpuPort(*bridge.sm, 101);
   EXPECT_EQ(cpu(101), "tagged");
   EXPECT_EQ(cpu(102), "") << "its sister is not touched";
}

TEST_F(CpuPortTest, vlanThatIsNotResolvedIsIgnored) {
   maybeSyncCpuPort(*bridge.sm, 4000);
   EXPECT_FALSE(bridge.resolvedVlan(4000));
}

// The library decides who makes a pair; the resolved roles may be ahead of it for a moment.
TEST_F(CpuPortTest, vlanThatMakesNoPairHasTheRuleOfAVlanByItself) {
   using Role = Bridging::VlanTypeAndPrimaryVlan;
   Role const secondary{.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 100};
   auto const cpuAfterSync = [&] {
      maybeSyncCpuPort(*bridge.sm, 101);
      return cpu(101);
   };
   for (bool const hasOwnIntf : {false, true}) {
      if (hasOwnIntf)
         bridge.vlanIntf(101);
      std::string const own = hasOwnIntf ? "tagged" : "";
      Vorn::addCpuPort(vlan(100));
      EXPECT_EQ(cpuAfterSync(), "tagged");
      Vorn::deleteCpuPort(vlan(100));
      EXPECT_EQ(cpuAfterSync(), "") << "its own interface doesn't count";
      vlan(101).vlanTypeAndPrimaryVlanIs({});
      EXPECT_EQ(cpuAfterSync(), "") << "until the library says so";
      Vorn::addCpuPort(vlan(100));
      EXPECT_EQ(cpuAfterSync(), "tagged");

      Vorn::deleteCpuPort(vlan(100));
      bridge.privateVlans->vlanTypeAndPrimaryVlanIs(101, {});
      EXPECT_EQ(cpuAfterSync(), own) << "the library knows of no primary";
      bridge.privateVlans->vlanTypeAndPrimaryVlanDel(101);
      EXPECT_EQ(cpuAfterSync(), own) << "nor of the VLAN";
      bridge.privateVlans->vlanTypeAndPrimaryVlanIs(
          101, {.vlanType = Bridging::VlanType::secondary_, .primaryVlan = 4000});
      EXPECT_EQ(cpuAfterSync(), own) << "it knows of no such primary";
      bridge.privateVlans->vlanTypeAndPrimaryVlanIs(101, secondary);
      vlan(101).vlanTypeAndPrimaryVlanIs(secondary);
   }
}

TEST_F(CpuPortTest, vlanOfARoutedPortHasTheCpuWithoutAnInterface) {
   auto const internal = bridge.config->newVlanConfig(4000, true);
   maybeSyncCpuPort(*bridge.sm, 4000);
   EXPECT_EQ(cpu(4000), "tagged");
   bridge.privateVlans->primaryVlan(100)->secondaryVlanIs(4000, true);
   Vorn::deleteCpuPort(vlan(100));
   bridge.vlanIntf(100)->enabledIs(false);
   maybeSyncCpuPort(*bridge.sm, 100);
   EXPECT_EQ(cpu(4000), "tagged") << "the library has yet to hear that it is no secondary any more";
}

} // namespace
