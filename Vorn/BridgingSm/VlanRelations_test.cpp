#include "Vorn/BridgingSm/VlanRelations.h"

#include "Vorn/testing/TestBridge.h"

namespace {

using Bridging::VlanAdminState;
using Bridging::VlanType;
using Vorn::TestBridge;
using Vorn::TestTrace;
using Vorn::VlanRelations;

using Numbers = std::vector<uint16_t>;

// --- The table by itself.

struct VlanRelationsTest : testing::Test {
   void secondary(uint16_t vlanId, uint16_t primary) {
      relations.roleIs(vlanId, {.vlanType = VlanType::secondary_, .primaryVlan = primary});
   }
   std::string marked() { return relations.takeMarked().text(); }

   VlanRelations relations;
};

TEST_F(VlanRelationsTest, changeMarksTheVlanItsPrimaryAndThoseThatNameIt) {
   secondary(11, 10);
   secondary(12, 10);
   secondary(10, 9);
   secondary(20, 19);
   EXPECT_EQ(marked(), "9-12,19-20");
   int calls = 0;
   relations.markHookIs([&] { ++calls; });
   relations.markRelatives(10);
   relations.markRelatives(11);
   EXPECT_EQ(marked(), "9-12");
   EXPECT_EQ(calls, 1);
   relations.markRelatives(30);
   EXPECT_EQ(marked(), "") << "a VLAN that nobody names, and that names nobody";
   secondary(30, 0);
   EXPECT_EQ(marked(), "30") << "its type alone says how trunks take part";
   EXPECT_EQ(calls, 2);
}

TEST_F(VlanRelationsTest, lastRoleCounts) {
   secondary(11, 10);
   marked();
   secondary(11, 10);
   EXPECT_EQ(marked(), "") << "the same";
   relations.roleIs(11, {.vlanType = VlanType::primary_, .primaryVlan = 10});
   EXPECT_EQ(marked(), "10-11") << "another type";
   secondary(11, 20);
   EXPECT_EQ(marked(), "10-11,20") << "by both roles";
   EXPECT_FALSE(relations.names(11, 10));
   EXPECT_TRUE(relations.names(11, 20));
   relations.markRelatives(10);
   EXPECT_EQ(marked(), "");
   relations.roleIs(11, {});
   EXPECT_EQ(marked(), "11,20");
   relations.markRelatives(20);
   EXPECT_EQ(marked(), "");
   secondary(11, 11);
   EXPECT_EQ(marked(), "11") << "its own primary";
}

// --- What follows for the ports.

struct VlanRelationsOfPortsTest : testing::Test {
   VlanRelationsOfPortsTest() { bridge.hasLibrary = true; }
   bool hasMarks() { return !bridge.sm->resolvedVlans().relations().takeMarked().empty(); }

   TestBridge bridge;
};

TEST_F(VlanRelationsOfPortsTest, rolesThatTheLibraryDoesNotKnowReachThePorts) {
   // 10 names a primary though it is of the primary type, and so it is none for the library; for the rules of
   // membership it is one.
   bridge.vlan(10);
   bridge.vlan(11);
   bridge.access("Ethernet1", 10)->defaultPrivateVlanMappingIs(true);
   bridge.access("Ethernet2", 11);
   bridge.start();
   bridge.roleIs(10, VlanType::primary_, 30);
   bridge.secondaryVlan(11, 10);
   bridge.run();
   EXPECT_FALSE(bridge.privateVlans->primaryVlan(10));
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), (Numbers{10, 11}));
   EXPECT_EQ(bridge.membership(11, "Ethernet2"), "untagged rx");
   bridge.roleIs(10, VlanType::secondary_, 30);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{10});
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{11});
   EXPECT_EQ(bridge.membership(11, "Ethernet2"), "untagged");
   EXPECT_FALSE(hasMarks());
}

TEST_F(VlanRelationsOfPortsTest, mappingOfAPortReachesThemToo) {
   auto const port = bridge.access("Ethernet1", 10);
   bridge.roleIs(10, VlanType::primary_, 30);
   bridge.secondaryVlan(11, 10);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{10});
   port->privateVlanMappingIs(11, true);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
   port->privateVlanMappingDel(11);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{10});
   port->defaultPrivateVlanMappingIs(true);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
}

TEST_F(VlanRelationsOfPortsTest, secondaryOfItselfOrOfASecondaryHasItsOwnPortsOnly) {
   bridge.access("Ethernet1", 10);
   bridge.access("Ethernet2", 11);
   bridge.vlan(11);
   bridge.start();
   bridge.secondaryVlan(10, 10);
   bridge.secondaryVlan(11, 10);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.membership(11, "Ethernet2"), "untagged");
   EXPECT_EQ(bridge.vlansOf("Ethernet2"), Numbers{11});
   EXPECT_EQ(bridge.fid(10), 0);
   EXPECT_EQ(bridge.fid(11), 0);
}

TEST_F(VlanRelationsOfPortsTest, stateOfANativeVlanReachesThePrimaryThatItNames) {
   bridge.roleIs(11, VlanType::primary_, 10); // a relation that the library doesn't know
   bridge.vlan(10);
   bridge.access("Ethernet1", 11);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
   bridge.vlan(11)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{});
   bridge.vlan(11)->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
}

TEST_F(VlanRelationsOfPortsTest, stateOfANativeVlanReachesThoseThatNameIt) {
   bridge.roleIs(10, VlanType::primary_, 30); // the library doesn't take it for a primary
   bridge.secondaryVlan(11, 10);
   bridge.access("Ethernet1", 10)->defaultPrivateVlanMappingIs(true);
   bridge.start();
   ASSERT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
   bridge.vlan(10)->adminStateIs(VlanAdminState::suspended);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{});
   bridge.vlan(10)->adminStateIs(VlanAdminState::active);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
}

TEST_F(VlanRelationsOfPortsTest, existenceOfAPrimaryReachesThoseThatNameIt) {
   bridge.secondaryVlan(11, 10);
   bridge.access("Ethernet1", 11);
   bridge.start();
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged");
   bridge.roleIs(10, VlanType::primary_, 30); // nor is it one for the library
   bridge.run();
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged rx");
   bridge.vlanDel(10);
   bridge.run();
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged");
}

TEST_F(VlanRelationsOfPortsTest, internalVlanThatIsNamedCountsWhileItIsThere) {
   bridge.internalVlansAre(1006, 1006);
   bridge.secondaryVlan(11, 1006);
   bridge.access("Ethernet1", 11);
   bridge.start();
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged");
   bridge.routed("Ethernet2");
   bridge.run();
   ASSERT_EQ(bridge.mode("Ethernet2"), "routed 1006");
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged rx");
   EXPECT_EQ(bridge.fid(11), 0) << "no pair";
   bridge.port("Ethernet2")->enabledIs(true);
   bridge.run();
   EXPECT_EQ(bridge.membership(11, "Ethernet1"), "untagged");
}

TEST_F(VlanRelationsOfPortsTest, roleThatSomebodyElseEditsCounts) {
   bridge.vlan(10);
   bridge.roleIs(11, VlanType::primary_, 10); // no pair, of which the library would tell
   bridge.access("Ethernet1", 11);
   bridge.start();
   ASSERT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
   auto const vlan = bridge.resolvedVlan(11);
   vlan->vlanTypeAndPrimaryVlanIs({});
   bridge.sm->resolvedVlans().handleForeignChange(*vlan);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{11});
   vlan->vlanTypeAndPrimaryVlanIs({.vlanType = VlanType::primary_, .primaryVlan = 10});
   bridge.sm->resolvedVlans().handleForeignChange(*vlan);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{10, 11}));
}

TEST_F(VlanRelationsOfPortsTest, vlanThatSomebodyElseTookAwayBeginsAsAPlainOne) {
   bridge.startBridgingOnly();
   auto& vlans = bridge.sm->resolvedVlans();
   Bridging::VlanTypeAndPrimaryVlan const role{.vlanType = VlanType::primary_, .primaryVlan = 10};
   vlans.vlanTypeAndPrimaryVlanIs(*vlans.vlanIs(11), role);
   bridge.config->vlanConfigDel(11);
   auto const again = vlans.vlanIs(11);
   vlans.relations().takeMarked();
   vlans.vlanTypeAndPrimaryVlanIs(*again, role);
   EXPECT_EQ(vlans.relations().takeMarked().text(), "10-11");
}

TEST_F(VlanRelationsOfPortsTest, plainVlansAreNeverMarked) {
   bridge.vlan(10);
   bridge.startBridgingOnly();
   bridge.sm->resolvedVlans().vlanIs(10);
   auto const vlan = bridge.resolvedVlan(10);
   bridge.sm->resolvedVlans().adminStateIs(*vlan, VlanAdminState::suspended);
   bridge.sm->resolvedVlans().vlanTypeAndPrimaryVlanIs(*vlan, {});
   bridge.sm->resolvedVlans().vlanDel(10);
   EXPECT_FALSE(hasMarks());
}

TEST_F(VlanRelationsOfPortsTest, secondaryThatNamesNoPrimaryIsNamedInTheLog) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.start();
   bridge.roleIs(10, VlanType::secondary_, 0);
   bridge.run();
   EXPECT_EQ(trace.level("VLAN 10 is a secondary VLAN, but names no primary"), 0);
   EXPECT_EQ(bridge.membership(10, "Ethernet1"), "untagged") << "left as it was";
}

} // namespace
