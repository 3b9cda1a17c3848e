// What dynamic VLANs do to ports: their native VLANs, and the lists of trunks where "mvrp" asks for them.
#include "Vorn/BridgingSm/TestDynVlans.h"

namespace {

using Vorn::DynVlansTest;
using Vorn::Names;

using Mode = Vorn::TestBridge::Mode;

// --- Native VLANs of ports.

struct DynVlanNativeTest : DynVlansTest {
   DynVlanNativeTest() {
      bridge.access("Ethernet1", 7);
      bridge.trunk("Ethernet2", "1-4094", 7);
      bridge.access("Ethernet3", 7)->switchportModeIs(Mode::dot1qTunnel_);
      auto const tap = bridge.port("Ethernet4");
      tap->switchportModeIs(Mode::tap_);
      tap->tapNativeVlanIs(7);
      bridge.access("Ethernet5", 7)->enabledIs(false);
   }
   Names modes() {
      Names seen;
      for (char const* port : {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4", "Ethernet5"})
         seen.push_back(bridge.mode(port));
      return seen;
   }
   Names const without{"access 0", "trunk 0", "dot1qTunnel 0", "tap 7", "routed 0"};
   Names const with{"access 7", "trunk 7", "dot1qTunnel 7", "tap 7", "routed 0"};
};

TEST_F(DynVlanNativeTest, portsTakeADynamicVlanUpAndLoseItWithIt) {
   bridge.start();
   EXPECT_EQ(modes(), without);
   bridge.dynVlans("a", "7");
   bridge.run();
   EXPECT_EQ(modes(), with);
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "untagged");
   EXPECT_EQ(bridge.membership(7, "Ethernet2"), "untagged");
   bridge.dynVlansDel("a");
   bridge.run();
   EXPECT_EQ(modes(), without);
   EXPECT_EQ(trace.level("Updated native vlan of interface Ethernet1 to vlan: 0"), 2);
}

TEST_F(DynVlanNativeTest, portsKeepAVlanThatTurnsFromStaticToDynamicAndBack) {
   bridge.vlan(7);
   bridge.start();
   bridge.dynVlans("a", "7");
   bridge.run();
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(modes(), with);
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "untagged");
   bridge.vlan(7);
   bridge.run();
   EXPECT_EQ(modes(), with);
}

// --- The source "mvrp".

struct DynVlanMvrpTest : DynVlansTest {
   DynVlanMvrpTest() {
      bridge.trunk("Ethernet1", "1-100");
      bridge.trunk("Ethernet2", "1-100");
      bridge.dynAllowed("mvrp")->vlansIs("Ethernet2", "7");
   }
   std::string allowed(Sulvi::IntfId port) { return bridge.portSm(port)->trunkAllowedVlanSet().text(); }
};

TEST_F(DynVlanMvrpTest, vlanThatItAloneAsksForIsAllowedByDynamicListsOnly) {
   bridge.start();
   trace.clear();
   bridge.dynVlans("mvrp", "7");
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "mvrp");
   EXPECT_EQ(allowed("Ethernet1"), "1-6,8-100");
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   EXPECT_EQ(bridge.membership(7, "Ethernet2"), "tagged");
   EXPECT_EQ(trace.count("Mvrp dynamic vlan 7"), 2u) << "once for each port";
   EXPECT_EQ(trace.count("Static entry for vlan 7 does not exist"), 2u);
}

TEST_F(DynVlanMvrpTest, staticEntryLetsTheListsHaveIt) {
   bridge.start();
   bridge.dynVlans("mvrp", "7,8");
   bridge.run();
   bridge.vlan(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   EXPECT_EQ(allowed("Ethernet1"), "1-7,9-100");
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "mvrp");
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   EXPECT_EQ(bridge.membership(7, "Ethernet2"), "tagged");
}

TEST_F(DynVlanMvrpTest, portsComputeOnceForAllVlansOfAList) {
   bridge.trunk("Ethernet3.1"); // a subinterface says each time that it has no set
   bridge.start();
   trace.clear();
   bridge.dynVlans("mvrp", "7-50");
   bridge.run();
   EXPECT_EQ(trace.count("Allowed vlans are not applicable for sub interface Ethernet3.1"), 1u);
   trace.clear();
   bridge.dynVlans("overlay", "60-70");
   bridge.run();
   EXPECT_EQ(trace.count("Allowed vlans are not applicable"), 0u);
}

TEST_F(DynVlanMvrpTest, vlanThatAnotherSourceHasIsTakenFromTheListsAndGivenBack) {
   bridge.start();
   bridge.dynVlans("overlay", "7");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   bridge.dynVlans("mvrp", "7,8");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   bridge.dynVlans("mvrp", "8");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   bridge.dynVlans("mvrp", "7,8");
   bridge.run();
   bridge.dynVlansDel("mvrp");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   EXPECT_EQ(allowed("Ethernet1"), "1-100");
}

TEST_F(DynVlanMvrpTest, vlanThatItNoLongerAsksForIsAllowedWhenSomebodyMakesIt) {
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.run();
   bridge.dynVlans("mvrp", "8");
   bridge.run();
   bridge.vlan(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
}

TEST_F(DynVlanMvrpTest, staticEntryOfAVlanThatTwoSourcesClaimTriggersNothing) {
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.dynVlans("overlay", "7");
   bridge.run();
   bridge.vlan(7);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(7), "cli");
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
}

TEST_F(DynVlanMvrpTest, listsLoseAStaticEntryThatTwoSourcesClaimWhenItGoes) {
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.dynVlans("overlay", "7");
   bridge.run();
   bridge.vlan(7);
   bridge.run();
   bridge.port("Ethernet1")->trunkAllowedVlansIs("1-99");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged") << "any change of the port computes its list";
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   EXPECT_EQ(allowed("Ethernet1"), "1-6,8-99");
}

// One port has computed its list for a reason of its own, another hasn't; both are brought up to date.
TEST_F(DynVlanMvrpTest, staticEntryThatTriggeredNothingIsSeenWithTheNextChangeOfMvrp) {
   bridge.trunk("Ethernet3", "1-100");
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.dynVlans("overlay", "7");
   bridge.run();
   bridge.vlan(7);
   bridge.run();
   bridge.port("Ethernet1")->trunkAllowedVlansIs("1-99");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet3"), "");
   bridge.dynVlans("mvrp", "7,9");
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet3"), "tagged");
   EXPECT_EQ(allowed("Ethernet3"), "1-8,10-100");
}

TEST_F(DynVlanMvrpTest, garbageInThePortsListIsNamedOnceAndNotWithEachVlan) {
   bridge.trunk("Ethernet3", "1-100,banana");
   bridge.start();
   for (char const* list : {"7", "7,8", "9"}) {
      bridge.dynVlans("mvrp", list);
      bridge.run();
   }
   EXPECT_EQ(trace.count("Ethernet3 allowed VLANs left out, no VLAN numbers: banana"), 1u);
}

TEST_F(DynVlanMvrpTest, listsLoseAStaticEntryThatWentWhileItWaitedForItsCopy) {
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.run();
   holdBackCopies();
   bridge.vlan(7);
   bridge.run();
   bridge.portSm("Ethernet1")->doComputeTrunkAllowedVlans(); // as for any change of the port
   EXPECT_TRUE(bridge.portSm("Ethernet1")->trunkAllowedVlanSet().vlan(7));
   bridge.vlanDel(7);
   bridge.run();
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "");
   EXPECT_EQ(allowed("Ethernet1"), "1-6,8-100");
}

TEST_F(DynVlanMvrpTest, anotherInputIsSeenByTheLists) {
   bridge.start();
   bridge.dynVlans("mvrp", "7-9");
   bridge.dynVlans("overlay", "9");
   bridge.run();
   auto const other = bridge.input("other");
   for (uint16_t const vlanId : {7, 9})
      other.vlan(vlanId);
   bridge.run();
   other.prioritiesAre(200);
   bridge.run();
   EXPECT_EQ(allowed("Ethernet1"), "1-7,9-100");
   EXPECT_EQ(bridge.membership(7, "Ethernet1"), "tagged");
   EXPECT_EQ(bridge.membership(9, "Ethernet1"), "tagged");
   bridge.withdraw("other");
   bridge.run();
   EXPECT_EQ(allowed("Ethernet1"), "1-6,10-100");
   EXPECT_EQ(bridge.membership(9, "Ethernet1"), "");
}

// A change of the whole input is seen where the static entry alone would trigger nothing.
TEST_F(DynVlanMvrpTest, anotherInputWithAVlanThatTwoSourcesClaimIsSeenByTheLists) {
   bridge.start();
   bridge.dynVlans("mvrp", "9");
   bridge.dynVlans("overlay", "9");
   bridge.run();
   auto const other = bridge.input("other");
   other.vlan(9);
   bridge.run();
   other.prioritiesAre(200);
   bridge.run();
   EXPECT_EQ(bridge.sourceOf(9), "other");
   EXPECT_EQ(bridge.membership(9, "Ethernet1"), "tagged");
}

TEST_F(DynVlanMvrpTest, unconnectedInterfaceLosesItsVlansAndGetsNoneFromDynamicLists) {
   for (char const* port : {"Ethernet65536", "Port-Channel65536"}) {
      bridge.trunk(port, "1-10");
      bridge.dynAllowed("mvrp")->vlansIs(port, "7,20");
   }
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.run();
   for (char const* port : {"Ethernet65536", "Port-Channel65536"})
      EXPECT_EQ(allowed(port), "1-6,8-10");
   EXPECT_GE(trace.count("Dont look at dynAllowedVlan for Unconnected interface Ethernet65536"), 1u);
   EXPECT_GE(trace.count("Dont look at dynAllowedVlan for Unconnected interface Port-Channel65536"), 1u);
}

TEST_F(DynVlanMvrpTest, tapsToolsAndSubinterfacesAreNotReached) {
   auto const tap = bridge.port("Ethernet3");
   tap->switchportModeIs(Mode::tap_);
   tap->tapAllowedVlansIs("5-9");
   auto const tool = bridge.port("Ethernet4");
   tool->switchportModeIs(Mode::tool_);
   tool->toolAllowedVlansIs("5-9");
   bridge.trunk("Ethernet5.1");
   for (char const* port : {"Ethernet3", "Ethernet4", "Ethernet5.1"})
      bridge.dynAllowed("overlay")->vlansIs(port, "30");
   bridge.start();
   bridge.dynVlans("mvrp", "7");
   bridge.run();
   EXPECT_EQ(allowed("Ethernet3"), "5-9");
   EXPECT_EQ(allowed("Ethernet4"), "5-9");
   EXPECT_EQ(allowed("Ethernet5.1"), "");
}

} // namespace
