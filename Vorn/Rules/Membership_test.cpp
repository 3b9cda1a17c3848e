#include "Vorn/Rules/Membership.h"

#include "Kem/Exception.h"

#include <gtest/gtest.h>

namespace {

using Bridging::SwitchportMode;
using Bridging::VlanAdminState;
using Bridging::VlanPortConfig;
using Bridging::VlanPortDirection;
using Bridging::VlanType;
using Rule = Vorn::MembershipRule;

// One port, and the resolved VLANs 10, 11 and 12. The records are alone: nothing follows them.
struct MembershipTest : testing::Test {
   MembershipTest() {
      for (uint16_t const vlanId : {10, 11, 12})
         bridge->vlanConfigIs(vlanId);
   }
   void mode(SwitchportMode mode, uint16_t nativeVlan) {
      resolved->switchportModeAndNativeVlanIs({.switchportMode = mode, .nativeVlan = nativeVlan});
   }
   Bridging::VlanConfig& vlan(uint16_t vlanId) { return *bridge->vlanConfig(vlanId); }
   void roleIs(uint16_t vlanId, VlanType type, uint16_t primary) {
      vlan(vlanId).vlanTypeAndPrimaryVlanIs({.vlanType = type, .primaryVlan = primary});
   }
   Vorn::MembershipFacts facts() const { return {*record, *resolved, allowed, asym, dynTrunkGroup, *bridge}; }
   Rule in(uint16_t vlanId) {
      return membershipRule(vlan(vlanId), facts(), resolved->switchportModeAndNativeVlan().nativeVlan);
   }
   VlanPortConfig as(uint16_t vlanId) {
      return vlanPortConfig(facts(), vlanId, vlan(vlanId).vlanTypeAndPrimaryVlan());
   }

   Kem::Ptr<Bridging::Config> const bridge = Bridging::Config::make();
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> const record =
       Bridging::Input::SwitchIntfConfig::make("Ethernet1");
   Kem::Ptr<Bridging::SwitchIntfConfig> const resolved = Bridging::SwitchIntfConfig::make("Ethernet1");
   VornUtils::VlanIdSet allowed, asym;
   Vorn::TrunkGroups dynTrunkGroup;
};

constexpr SwitchportMode allModes[] = {SwitchportMode::access_,      SwitchportMode::trunk_,
                                       SwitchportMode::dot1qTunnel_, SwitchportMode::tap_,
                                       SwitchportMode::tool_,        SwitchportMode::routed_};

TEST_F(MembershipTest, ruleSaysWhetherThePortIsAMember) {
   for (Rule const yes : {Rule::internalVlanOfPort, Rule::tunnelNative, Rule::asymListed,
                          Rule::primaryOfNative, Rule::mappedToSecondaries, Rule::mappedToSecondary,
                          Rule::accessNative, Rule::noTrunkGroups, Rule::trunkGroup, Rule::dynTrunkGroup})
      EXPECT_TRUE(isMember(yes)) << static_cast<int>(yes);
   for (Rule const no :
        {Rule::vlanNotActive, Rule::routedPort, Rule::internalVlan, Rule::tunnelPort, Rule::asymNotAccess,
         Rule::asymNotListed, Rule::accessNoNative, Rule::unmappedSecondary, Rule::accessPort,
         Rule::unknownMode, Rule::notAllowed, Rule::noneOfItsTrunkGroups})
      EXPECT_FALSE(isMember(no)) << static_cast<int>(no);
}

// --- The order.

TEST_F(MembershipTest, vlanThatIsNotActiveComesBeforeAllElse) {
   vlan(10).adminStateIs(VlanAdminState::suspended);
   allowed.vlanIs(10);
   for (SwitchportMode const each : allModes) {
      mode(each, 10);
      EXPECT_EQ(in(10), Rule::vlanNotActive) << static_cast<int>(each);
   }
}

TEST_F(MembershipTest, routedPortComesBeforeInternalVlans) {
   bridge->vlanConfigIs(1006, true);
   mode(SwitchportMode::routed_, 1006);
   EXPECT_EQ(in(1006), Rule::internalVlanOfPort);
   EXPECT_EQ(in(10), Rule::routedPort);
   mode(SwitchportMode::routed_, 0);
   EXPECT_EQ(in(1006), Rule::routedPort);
}

TEST_F(MembershipTest, internalVlanIsClosedToSwitchportsOfAnyMode) {
   bridge->vlanConfigIs(1006, true);
   allowed.vlanIs(1006);
   for (SwitchportMode const each : allModes) {
      mode(each, 1006);
      EXPECT_EQ(in(1006), each == SwitchportMode::routed_ ? Rule::internalVlanOfPort : Rule::internalVlan);
   }
}

TEST_F(MembershipTest, tunnelComesBeforeAsymmetricVlansAndTrunkGroups) {
   mode(SwitchportMode::dot1qTunnel_, 10);
   resolved->asymVlanEnabledIs(true);
   asym.vlanIs(11);
   vlan(10).trunkGroupIs("red", true);
   EXPECT_EQ(in(10), Rule::tunnelNative);
   EXPECT_EQ(in(11), Rule::tunnelPort);
}

TEST_F(MembershipTest, asymmetricPortHasItsListAndNotItsNativeVlan) {
   mode(SwitchportMode::access_, 10);
   resolved->asymVlanEnabledIs(true);
   asym.vlanIs(11);
   EXPECT_EQ(in(11), Rule::asymListed);
   EXPECT_EQ(in(10), Rule::asymNotListed);
}

TEST_F(MembershipTest, asymmetricPortInAnotherModeIsAContradiction) {
   resolved->asymVlanEnabledIs(true);
   for (uint16_t const vlanId : {10, 11}) {
      allowed.vlanIs(vlanId);
      asym.vlanIs(vlanId);
      for (SwitchportMode const each :
           {SwitchportMode::trunk_, SwitchportMode::tap_, SwitchportMode::tool_}) {
         mode(each, 10);
         EXPECT_EQ(in(vlanId), Rule::asymNotAccess);
      }
   }
}

TEST_F(MembershipTest, nativeVlanThatIsAskedForNeedNotBeTheResolvedOne) {
   mode(SwitchportMode::access_, 10);
   EXPECT_EQ(membershipRule(vlan(11), facts(), 11), Rule::accessNative);
   EXPECT_EQ(membershipRule(vlan(10), facts(), 11), Rule::accessPort);
   EXPECT_EQ(membershipRule(vlan(10), facts(), 0), Rule::accessNoNative);
}

// --- Access ports.

TEST_F(MembershipTest, accessPortIsInItsNativeVlanOnly) {
   mode(SwitchportMode::access_, 10);
   EXPECT_EQ(in(10), Rule::accessNative);
   EXPECT_EQ(in(11), Rule::accessPort);
   mode(SwitchportMode::access_, 0);
   EXPECT_EQ(in(10), Rule::accessNoNative);
}

TEST_F(MembershipTest, portInASecondaryIsInThePrimaryToo) {
   roleIs(11, VlanType::secondary_, 10);
   mode(SwitchportMode::access_, 11);
   EXPECT_EQ(in(10), Rule::primaryOfNative);
   EXPECT_EQ(in(11), Rule::accessNative);
   EXPECT_EQ(in(12), Rule::accessPort);
   roleIs(10, VlanType::secondary_, 12);
   EXPECT_EQ(in(10), Rule::accessPort) << "no primary VLAN itself";
}

TEST_F(MembershipTest, portInThePrimaryIsInTheSecondariesThatItIsMappedTo) {
   roleIs(11, VlanType::secondary_, 10);
   mode(SwitchportMode::access_, 10);
   EXPECT_EQ(in(11), Rule::unmappedSecondary);
   record->privateVlanMappingIs(11, true);
   EXPECT_EQ(in(11), Rule::mappedToSecondary);
   record->defaultPrivateVlanMappingIs(true);
   EXPECT_EQ(in(11), Rule::mappedToSecondaries) << "asked before the single mapping";
   EXPECT_EQ(in(12), Rule::accessPort) << "no secondary of it";
   roleIs(10, VlanType::secondary_, 12);
   EXPECT_EQ(in(11), Rule::accessPort) << "the native VLAN is no primary one";
}

TEST_F(MembershipTest, nativeVlanThatIsAbsentOrNotActiveLendsNoOther) {
   roleIs(11, VlanType::secondary_, 10);
   record->defaultPrivateVlanMappingIs(true);
   mode(SwitchportMode::access_, 10);
   vlan(10).adminStateIs(VlanAdminState::suspended);
   EXPECT_EQ(in(11), Rule::accessPort);
   auto const secondary = bridge->vlanConfig(11);
   bridge->vlanConfigDel(10);
   EXPECT_EQ(in(11), Rule::accessPort);
   mode(SwitchportMode::access_, 11);
   bridge->vlanConfigDel(11);
   EXPECT_EQ(membershipRule(*secondary, facts(), 11), Rule::accessNative);
}

// --- Trunk, tap and tool ports.

TEST_F(MembershipTest, allowedVlansComeBeforeTrunkGroups) {
   vlan(11).trunkGroupIs("red", true);
   vlan(12).trunkGroupIs("red", true);
   record->trunkGroupIs("red", true);
   allowed.vlanIs(10);
   allowed.vlanIs(11);
   for (SwitchportMode const each : {SwitchportMode::trunk_, SwitchportMode::tap_, SwitchportMode::tool_}) {
      mode(each, 1);
      EXPECT_EQ(in(10), Rule::noTrunkGroups);
      EXPECT_EQ(in(11), Rule::trunkGroup);
      EXPECT_EQ(in(12), Rule::notAllowed);
   }
}

TEST_F(MembershipTest, vlanWithTrunkGroupsIsClosedToPortsThatHaveNoneOfThem) {
   mode(SwitchportMode::trunk_, 1);
   allowed.vlanIs(10);
   vlan(10).trunkGroupIs("red", true);
   vlan(10).trunkGroupIs("closed", false);
   EXPECT_EQ(in(10), Rule::noneOfItsTrunkGroups);
   record->trunkGroupIs("blue", true);
   record->trunkGroupIs("closed", true);
   EXPECT_EQ(in(10), Rule::noneOfItsTrunkGroups);
   dynTrunkGroup.findOrInsert("red", [] { return true; });
   EXPECT_EQ(in(10), Rule::dynTrunkGroup);
   // The port's own groups come first; the value beside their names has no meaning.
   record->trunkGroupIs("red", false);
   EXPECT_EQ(in(10), Rule::trunkGroup);
}

TEST_F(MembershipTest, vlanWhoseTrunkGroupsAreAllFalseIsOpenToNobody) {
   mode(SwitchportMode::trunk_, 1);
   allowed.vlanIs(10);
   vlan(10).trunkGroupIs("closed", false);
   record->trunkGroupIs("closed", true);
   EXPECT_EQ(in(10), Rule::noneOfItsTrunkGroups);
}

// --- How a port is a member.

TEST_F(MembershipTest, portIsUntaggedInItsNativeVlanAndTaggedInOthers) {
   for (SwitchportMode const each :
        {SwitchportMode::trunk_, SwitchportMode::dot1qTunnel_, SwitchportMode::routed_}) {
      mode(each, 10);
      EXPECT_EQ(as(10), VlanPortConfig{}) << static_cast<int>(each);
      EXPECT_EQ(as(11), VlanPortConfig{.tagged = true}) << static_cast<int>(each);
   }
   mode(SwitchportMode::access_, 10);
   EXPECT_EQ(as(10), VlanPortConfig{});
}

TEST_F(MembershipTest, toolPortOnlySendsAndIsNeverTagged) {
   mode(SwitchportMode::tool_, 1);
   record->toolIdentityTaggingIs(true);
   EXPECT_EQ(as(10), VlanPortConfig{.direction = VlanPortDirection::txOnly});
}

TEST_F(MembershipTest, tapPortOnlyReceivesAndIsTaggedByTheToolsSetting) {
   for (uint16_t const native : {10, 11}) {
      mode(SwitchportMode::tap_, native);
      for (bool const isTagging : {true, false}) {
         record->toolIdentityTaggingIs(isTagging);
         EXPECT_EQ(as(10), (VlanPortConfig{.tagged = isTagging, .direction = VlanPortDirection::rxOnly}));
      }
   }
}

TEST_F(MembershipTest, trunkWithPrivateVlanMappingOnlyReceivesInSecondaries) {
   mode(SwitchportMode::trunk_, 10);
   roleIs(11, VlanType::secondary_, 10);
   EXPECT_EQ(as(11), VlanPortConfig{.tagged = true});
   record->trunkPrivateVlanMappingIs(true);
   EXPECT_EQ(as(11), (VlanPortConfig{.tagged = true, .direction = VlanPortDirection::rxOnly}));
   EXPECT_EQ(as(12), VlanPortConfig{.tagged = true});
   mode(SwitchportMode::trunk_, 11);
   EXPECT_EQ(as(11), VlanPortConfig{.direction = VlanPortDirection::rxOnly});
   mode(SwitchportMode::dot1qTunnel_, 11);
   EXPECT_EQ(as(11), VlanPortConfig{}) << "a trunk's setting only";
}

TEST_F(MembershipTest, accessPortSendsInTheVlanThatItsNativeOneLends) {
   mode(SwitchportMode::access_, 10);
   roleIs(11, VlanType::secondary_, 10);
   EXPECT_EQ(as(11), (VlanPortConfig{.mappedUntagged = true, .direction = VlanPortDirection::txOnly}));
   mode(SwitchportMode::access_, 11);
   EXPECT_EQ(as(10), (VlanPortConfig{.mappedUntagged = true, .direction = VlanPortDirection::txOnly}));
   EXPECT_EQ(as(11), VlanPortConfig{.direction = VlanPortDirection::rxOnly});
}

TEST_F(MembershipTest, accessPortInASecondaryWithoutItsPrimaryGoesBothWays) {
   mode(SwitchportMode::access_, 11);
   roleIs(11, VlanType::secondary_, 10);
   roleIs(10, VlanType::secondary_, 12);
   EXPECT_EQ(as(11), VlanPortConfig{}) << "10 is no primary VLAN";
   bridge->vlanConfigDel(10);
   EXPECT_EQ(as(11), VlanPortConfig{}) << "10 isn't resolved";
   roleIs(11, VlanType::secondary_, 0);
   EXPECT_THROW(as(11), Kem::RangeException);
}

TEST_F(MembershipTest, asymmetricPortIsAMemberInOneWayOnly) {
   mode(SwitchportMode::access_, 10);
   resolved->asymVlanEnabledIs(true);
   for (uint16_t const vlanId : {10, 11})
      EXPECT_EQ(as(vlanId), VlanPortConfig{}) << vlanId;
}

} // namespace
