#include "Vorn/BridgingSm/VlanRelations.h"

#include "Vorn/testing/TestBridge.h"

#include <random>

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

// --- Any history ends where a start with the same tree does.

struct AnyHistory {
   explicit AnyHistory(unsigned seed) : random(seed) {
      bridge.hasLibrary = true;
      for (uint16_t const vlanId : {1, 2, 3})
         bridge.vlanIntf(vlanId);
      for (char const* port : ports)
         bridge.port(port)->trunkAllowedVlansIs("1-8");
   }
   unsigned below(unsigned bound) { return static_cast<unsigned>(random() % bound); }
   uint16_t number() { return static_cast<uint16_t>(1 + below(8)); }
   bool flip() { return below(2) == 0; }

   void step() {
      uint16_t const vlanId = number();
      auto const port = bridge.port(ports[below(std::size(ports))]);
      switch (below(12)) {
      case 0:
         bridge.vlanDel(vlanId);
         break;
      case 1: // replaced
         bridge.vlanDel(vlanId);
         bridge.vlan(vlanId);
         break;
      case 2:
         bridge.vlan(vlanId)->adminStateIs(flip() ? VlanAdminState::active : VlanAdminState::suspended);
         break;
      case 3:
      case 4:
      case 5:
         if (auto const role = below(4); role == 0)
            bridge.roleIs(vlanId, VlanType::primary_, 0);
         else
            bridge.roleIs(vlanId, role == 1 ? VlanType::primary_ : VlanType::secondary_,
                          static_cast<uint16_t>(1 + below(4)));
         break;
      case 6:
         port->switchportModeIs(flip() ? TestBridge::Mode::access_ : TestBridge::Mode::trunk_);
         port->enabledIs(below(5) != 0);
         break;
      case 7:
         port->accessVlanIs(vlanId);
         break;
      case 8:
         flip() ? port->privateVlanMappingIs(vlanId, true) : port->privateVlanMappingDel(vlanId);
         port->defaultPrivateVlanMappingIs(below(4) == 0);
         break;
      case 9:
         port->trunkPrivateVlanMappingIs(flip());
         break;
      case 10:
         flip() ? bridge.cli->vidToFidMapIs(vlanId, static_cast<uint16_t>(below(3) * 40))
                : bridge.cli->vidToFidMapDel(vlanId);
         break;
      default:
         if (below(4) == 0)
            return bridge.cli->sviMappingDel(vlanId);
         bridge.sviMapping(vlanId)->defaultSviMappingIs(flip());
         flip() ? bridge.sviMapping(vlanId)->secondaryVlanIs(number(), flip())
                : bridge.sviMapping(vlanId)->secondaryVlanDel(number());
      }
   }

   // All that private VLANs have a part in.
   std::string outcome() {
      std::string text;
      for (uint16_t const vlanId : bridge.resolvedVlans()) {
         text += "VLAN " + std::to_string(vlanId) + " fid " + std::to_string(bridge.fid(vlanId));
         for (char const* member : {"Cpu", "Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"})
            text += std::string("; ") + member + " " + bridge.membership(vlanId, member);
         text += '\n';
      }
      for (char const* port : ports)
         text += std::string(port) + " " + bridge.mode(port) + ": " + bridge.egress(port) + '\n';
      return text;
   }

   static constexpr char const* ports[] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"};
   std::mt19937 random;
   TestBridge bridge;
};

TEST(VlanRelationsHistoryTest, anyHistoryEndsWhereAStartWithTheSameTreeDoes) {
   for (unsigned seed = 1; seed <= 60; ++seed) {
      AnyHistory history(seed);
      history.bridge.start();
      for (int settled = 0; settled < 12; ++settled) {
         for (unsigned steps = 1 + history.below(8); steps > 0; --steps) {
            history.step();
            if (history.flip())
               history.bridge.turn();
         }
         history.bridge.run();
         auto const reached = history.outcome();
         history.bridge.restart();
         ASSERT_EQ(reached, history.outcome()) << "after a restart, seed " << seed << " round " << settled;
         history.bridge.stop();
         history.bridge.config = Bridging::Config::make();
         history.bridge.start();
         ASSERT_EQ(reached, history.outcome()) << "from nothing, seed " << seed << " round " << settled;
      }
   }
}

} // namespace
