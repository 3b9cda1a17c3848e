#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Vorn/testing/TestBridge.h"

namespace {

using Bridging::VlanType;
using Bridging::VlanXlateKey;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Mode = TestBridge::Mode;
using Numbers = std::vector<uint16_t>;

constexpr VlanXlateKey key(uint16_t outer, uint16_t inner = 0) {
   return {.outerVlanId = outer, .innerVlanId = inner};
}

// A trunk port, and two primary VLANs, 100 and 200, with secondaries.
struct VlanTranslationTest : testing::Test {
   VlanTranslationTest() {
      bridge.hasLibrary = true;
      for (uint16_t const primary : {100, 200}) {
         bridge.vlan(primary);
         bridge.secondaryVlan(primary + 1, primary);
         bridge.secondaryVlan(primary + 2, primary);
      }
      port = bridge.trunk("Ethernet1");
   }
   Bridging::SwitchIntfConfig& out() { return *bridge.resolvedPort("Ethernet1"); }
   std::string egress() { return bridge.egress("Ethernet1"); }
   std::string ingress() { return bridge.ingress("Ethernet1"); }

   TestBridge bridge;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> port;
};

// --- Copies.

TEST_F(VlanTranslationTest, nativeTranslationsAreCopied) {
   port->ingressNativeVlanXlateIs(7);
   port->egressNativeVlanXlateIs(4094);
   bridge.start();
   EXPECT_EQ(out().ingressNativeVlanXlate(), 7);
   EXPECT_EQ(out().egressNativeVlanXlate(), 4094);
   port->ingressNativeVlanXlateIs(8);
   port->egressNativeVlanXlateIs(0);
   bridge.run();
   EXPECT_EQ(out().ingressNativeVlanXlate(), 8);
   EXPECT_EQ(out().egressNativeVlanXlate(), 0);
}

TEST_F(VlanTranslationTest, translationsAreCopiedWhole) {
   TestTrace trace;
   port->ingressVlanXlateIs(key(5, 6), {.mappedVlanId = 7, .mappedInnerVlanId = 8});
   port->egressVlanXlateIs(key(7), {.mappedVlanId = 5});
   bridge.start();
   EXPECT_EQ(ingress(), "5/6 to 7/8");
   EXPECT_EQ(egress(), "7/0 to 5");
   EXPECT_TRUE(trace.has(" add key 5/6 to Ethernet1 mapping "));
   EXPECT_TRUE(trace.has(" add key: 7/0 to Ethernet1 mapping "));
   trace.clear();
   port->ingressVlanXlateIs(key(5, 6), {.mappedVlanId = 9});
   port->egressVlanXlateIs(key(8), {.mappedVlanId = 6});
   bridge.run();
   EXPECT_EQ(ingress(), "5/6 to 9");
   EXPECT_EQ(egress(), "7/0 to 5, 8/0 to 6");
   EXPECT_FALSE(trace.has("7/0")) << "it didn't change";
   port->ingressVlanXlateDel(key(5, 6));
   port->egressVlanXlateDel(key(7));
   bridge.run();
   EXPECT_EQ(ingress(), "");
   EXPECT_EQ(egress(), "8/0 to 6");
   EXPECT_TRUE(trace.has(" remove mapping for key 5/6"));
   EXPECT_TRUE(trace.has(" remove mapping for key 7/0"));
}

TEST_F(VlanTranslationTest, keysAndMappingsMayBeNoVlanNumbers) {
   port->trunkPrivateVlanMappingIs(true);
   port->ingressVlanXlateIs(key(0), {.mappedVlanId = 4094});
   port->egressVlanXlateIs(key(4095, 65535), {.mappedVlanId = 0});
   bridge.start();
   EXPECT_EQ(ingress(), "0/0 to 4094");
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201, 4095/65535 to 0");
   port->trunkPrivateVlanMappingIs(false);
   bridge.run();
   EXPECT_EQ(egress(), "4095/65535 to 0");
   EXPECT_THROW(port->egressVlanXlateIs(key(1), {.mappedVlanId = 4095}), Kem::RangeException);
}

TEST_F(VlanTranslationTest, translationsOfAnotherBestInputReplaceTheOldOnes) {
   port->ingressVlanXlateIs(key(5), {.mappedVlanId = 7});
   port->egressVlanXlateIs(key(7), {.mappedVlanId = 5});
   port->egressVlanXlateIs(key(8), {.mappedVlanId = 5});
   bridge.start();
   auto const other = bridge.input("other").port("Ethernet1");
   other->switchportModeIs(Mode::trunk_);
   other->ingressVlanXlateIs(key(6), {.mappedVlanId = 7});
   other->egressVlanXlateIs(key(8), {.mappedVlanId = 6});
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(ingress(), "6/0 to 7");
   EXPECT_EQ(egress(), "8/0 to 6");
}

TEST_F(VlanTranslationTest, otherRecordIsEvaluatedAtOnce) {
   port->ingressVlanXlateIs(key(5), {.mappedVlanId = 7});
   port->egressVlanXlateIs(key(7), {.mappedVlanId = 5});
   bridge.start();
   auto const other = Bridging::Input::SwitchIntfConfig::make("Ethernet1", Mode::trunk_);
   other->trunkPrivateVlanMappingIs(true);
   other->ingressNativeVlanXlateIs(9);
   other->ingressVlanXlateIs(key(6), {.mappedVlanId = 7});
   bridge.portSm("Ethernet1")->switchIntfConfigIs(other);
   EXPECT_EQ(out().ingressNativeVlanXlate(), 9);
   EXPECT_EQ(ingress(), "6/0 to 7");
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
}

// The port was a routed one, of which a new best input drops what its copy reported; what the old input
// translated has to go all the same.
TEST_F(VlanTranslationTest, disabledPortLosesTheTranslationsOfItsOldInputToo) {
   port->enabledIs(false);
   port->ingressVlanXlateIs(key(5), {.mappedVlanId = 7});
   port->egressVlanXlateIs(key(7), {.mappedVlanId = 5});
   bridge.start();
   EXPECT_EQ(egress(), "7/0 to 5");
   bridge.input("other").port("Ethernet1")->enabledIs(false);
   bridge.publish("other", 200);
   bridge.run();
   EXPECT_EQ(ingress(), "");
   EXPECT_EQ(egress(), "");
}

TEST_F(VlanTranslationTest, leftoversOfThePreviousRunGo) {
   auto const before = bridge.config->switchIntfConfigIs("Ethernet1");
   before->ingressVlanXlateIs(key(5), {.mappedVlanId = 7});
   before->egressVlanXlateIs(key(7), {.mappedVlanId = 5});
   before->egressVlanXlateIs(key(100), {.mappedVlanId = 99});
   before->egressVlanXlateIs(key(100, 1), {.mappedVlanId = 99});
   before->egressVlanXlateIs(key(300), {.mappedVlanId = 301});
   before->egressVlanXlateIs(key(0), {.mappedVlanId = 301}); // no VLAN numbers
   before->egressVlanXlateIs(key(4095), {.mappedVlanId = 301});
   port->trunkPrivateVlanMappingIs(true);
   bridge.start();
   EXPECT_EQ(ingress(), "");
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
}

// --- Primary VLANs on a trunk.

TEST_F(VlanTranslationTest, mappingOfATrunkAddsAndRemovesItsPrimaries) {
   TestTrace trace;
   port->egressVlanXlateIs(key(100), {.mappedVlanId = 7});
   port->egressVlanXlateIs(key(300), {.mappedVlanId = 8});
   bridge.start();
   EXPECT_EQ(egress(), "100/0 to 7, 300/0 to 8");
   EXPECT_EQ(bridge.membership(201, "Ethernet1"), "tagged");
   port->trunkPrivateVlanMappingIs(true);
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 7, 200/0 to 201, 300/0 to 8") << "the configured one wins";
   EXPECT_TRUE(
       trace.has(" SwitchIntfSm::doAddPrivateVlanMapping(Ethernet1)  added egress  mapping from 200 to 201"));
   EXPECT_EQ(bridge.membership(201, "Ethernet1"), "tagged rx");
   EXPECT_EQ(bridge.membership(200, "Ethernet1"), "tagged");
   port->trunkPrivateVlanMappingIs(false);
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 7, 300/0 to 8") << "only what the input doesn't hold goes";
   EXPECT_TRUE(trace.has(" Removing egress mapping for primary vlan:  200"));
   EXPECT_EQ(bridge.membership(201, "Ethernet1"), "tagged");
}

TEST_F(VlanTranslationTest, portThatIsNoTrunkAnyMoreLosesThem) {
   port->trunkPrivateVlanMappingIs(true);
   bridge.start();
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
   port->switchportModeIs(Mode::access_);
   bridge.run();
   EXPECT_EQ(egress(), "");
   port->switchportModeIs(Mode::trunk_);
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
}

TEST_F(VlanTranslationTest, modeOfADisabledPortCountsToo) {
   // When it comes up, nobody asks for its mapping again.
   port->trunkPrivateVlanMappingIs(true);
   port->switchportModeIs(Mode::access_);
   port->enabledIs(false);
   bridge.start();
   port->switchportModeIs(Mode::trunk_);
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
   port->enabledIs(true);
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
}

// The price of one table for two writers.
TEST_F(VlanTranslationTest, keyThatTheInputLosesGoesAlthoughAPrimaryVlanWantsIt) {
   port->trunkPrivateVlanMappingIs(true);
   port->egressVlanXlateIs(key(100), {.mappedVlanId = 7});
   bridge.start();
   port->egressVlanXlateDel(key(100));
   bridge.run();
   EXPECT_EQ(egress(), "200/0 to 201");
   bridge.secondaryVlan(103, 100); // the primary is evaluated
   bridge.run();
   EXPECT_EQ(egress(), "100/0 to 101, 200/0 to 201");
}

// --- Secondaries of an access port.

TEST_F(VlanTranslationTest, accessPortInAPrimaryFollowsItsMapping) {
   port->switchportModeIs(Mode::access_);
   port->accessVlanIs(100);
   bridge.start();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{100});
   port->privateVlanMappingIs(101, true);
   port->privateVlanMappingIs(201, true); // of another primary
   port->privateVlanMappingIs(300, true); // not resolved
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101}));
   port->defaultPrivateVlanMappingIs(true);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101, 102}));
   port->defaultPrivateVlanMappingIs(false);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), (Numbers{100, 101}));
   port->privateVlanMappingDel(101);
   bridge.run();
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), Numbers{100});
}

// Members that somebody took out show who is looked at.
TEST_F(VlanTranslationTest, mappingOfOneSecondaryIsNotLookedAtWhereAllAreMapped) {
   port->switchportModeIs(Mode::access_);
   port->accessVlanIs(100);
   port->defaultPrivateVlanMappingIs(true);
   bridge.start();
   bridge.resolvedVlan(101)->intfDel("Ethernet1");
   port->privateVlanMappingIs(101, true);
   bridge.run();
   EXPECT_EQ(bridge.membership(101, "Ethernet1"), "");
}

TEST_F(VlanTranslationTest, mappingSaysNothingToOtherPorts) {
   bridge.vlan(10);
   struct {
      Mode mode;
      bool isEnabled;
      uint16_t accessVlan;
   } const cases[] = {{Mode::access_, true, 10},
                      {Mode::access_, true, 999},
                      {Mode::trunk_, true, 100},
                      {Mode::access_, false, 100}};
   bridge.start();
   for (auto const& each : cases) {
      port->switchportModeIs(each.mode);
      port->enabledIs(each.isEnabled);
      port->accessVlanIs(each.accessVlan);
      port->privateVlanMappingDelAll();
      port->defaultPrivateVlanMappingIs(false);
      bridge.run();
      bridge.resolvedVlan(101)->intfIs("Ethernet1", {.mappedUntagged = true}); // it would be put right
      port->privateVlanMappingIs(101, true);
      bridge.run();
      EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged mapped") << each.accessVlan;
      port->defaultPrivateVlanMappingIs(true);
      bridge.run();
      EXPECT_EQ(bridge.membership(101, "Ethernet1"), "untagged mapped") << each.accessVlan;
   }
}

} // namespace
