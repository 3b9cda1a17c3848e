#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"

#include "Vorn/Pacing/TestAttrLog.h"
#include "Vorn/testing/TestBridge.h"
#include "Vorn/testing/WriteOrder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Vorn::SwitchportBitMap;
using Vorn::TestBridge;
using Vorn::TestTrace;

using Config = Bridging::Input::SwitchIntfConfig;
using Mode = TestBridge::Mode;
using Ids = std::vector<Sulvi::IntfId>;

// The port "Ethernet1", asked for by the command line.
struct SwitchIntfConfigCodefTest : testing::Test {
   SwitchIntfConfigCodefTest() { port = bridge.port("Ethernet1"); }
   void start() {
      bridge.start();
      codef = bridge.sm->switchIntfConfigCodef();
   }
   // The keys that wait.
   Ids backlog() {
      Ids keys;
      for (auto const& [intfId, value] : codef->backlog().keys())
         keys.push_back(intfId);
      return keys;
   }
   uint64_t slice(Kem::Seconds quantum = 1) {
      codef->backlogQuantumIs(quantum);
      return codef->processBacklog(Kem::now());
   }
   // Delivers what has changed, without a slice.
   void notice() { Kem::activityManager()->deliverQueued(); }
   Kem::Ptr<Config> copy(Sulvi::IntfId intfId = "Ethernet1") {
      return bridge.sm->switchports().switchIntfConfigAfterCodef(intfId);
   }
   Vorn::SwitchIntfConfigEntrySm& entry(Sulvi::IntfId intfId = "Ethernet1") {
      return *codef->switchIntfConfigEntrySm(intfId);
   }
   uint32_t pending(Sulvi::IntfId intfId = "Ethernet1") { return entry(intfId).pendingOps().value(); }

   Vorn::TestAttrLog log;
   TestBridge bridge;
   Kem::Ptr<Config> port;
   Kem::Ptr<Vorn::SwitchIntfConfigCodef> codef;
};

// The nine attributes that wait, in the order in which they are applied.
struct Operation {
   uint32_t bit;
   char const* trace;
   void (*change)(Config&);
   bool (*areEqual)(Config const&, Config const&);
};
Operation const operations[] = {
    {0x001, " Operation switchport", [](Config& c) { c.enabledIs(false); },
     [](Config const& a, Config const& b) { return a.enabled() == b.enabled(); }},
    {0x010, " Operation switchportTrunkAllowedVlan", [](Config& c) { c.trunkAllowedVlansIs("7"); },
     [](Config const& a, Config const& b) { return a.trunkAllowedVlans() == b.trunkAllowedVlans(); }},
    {0x020, " Operation switchportAsymVlans", [](Config& c) { c.asymVlansIs("7"); },
     [](Config const& a, Config const& b) { return a.asymVlans() == b.asymVlans(); }},
    {0x004, " Operation switchportAccessVlan", [](Config& c) { c.accessVlanIs(7); },
     [](Config const& a, Config const& b) { return a.accessVlan() == b.accessVlan(); }},
    {0x008, " Operation switchportTrunkVlan", [](Config& c) { c.trunkNativeVlanIs(7); },
     [](Config const& a, Config const& b) { return a.trunkNativeVlan() == b.trunkNativeVlan(); }},
    {0x100, " Operation switchportTapNativeVlan", [](Config& c) { c.tapNativeVlanIs(7); },
     [](Config const& a, Config const& b) { return a.tapNativeVlan() == b.tapNativeVlan(); }},
    {0x040, " Operation switchportTapAllowedVlan", [](Config& c) { c.tapAllowedVlansIs("7"); },
     [](Config const& a, Config const& b) { return a.tapAllowedVlans() == b.tapAllowedVlans(); }},
    {0x080, " Operation switchportToolAllowedVlan", [](Config& c) { c.toolAllowedVlansIs("7"); },
     [](Config const& a, Config const& b) { return a.toolAllowedVlans() == b.toolAllowedVlans(); }},
    {0x002, " Operation switchportMode", [](Config& c) { c.switchportModeIs(Mode::trunk_); },
     [](Config const& a, Config const& b) { return a.switchportMode() == b.switchportMode(); }},
};

// A stage without a directory, or one that has lost it, is asked all the same.
TEST_F(SwitchIntfConfigCodefTest, withoutADirectoryNothingIsChosen) {
   start();
   ASSERT_TRUE(copy());
   auto const without = Kem::makePtr<Vorn::SwitchIntfConfigCodef>(Kem::ActivityFacility::clock(), nullptr,
                                                                  bridge.sm->switchports());
   without->handleSwitchIntfConfig();
   ASSERT_TRUE(copy());
   without->handleSwitchIntfConfig("Ethernet1");
   EXPECT_FALSE(copy());
   EXPECT_FALSE(without->switchIntfConfigEntrySm("Ethernet1"));
}

// --- Attributes that wait.

TEST_F(SwitchIntfConfigCodefTest, eachOfTheNineWaitsForItsSlice) {
   TestTrace trace;
   start();
   EXPECT_STREQ(codef->fwkType(), "Vorn::SwitchIntfConfigCodef");
   for (auto const& [bit, text, change, areEqual] : operations) {
      uint64_t const seen = codef->updatesSeen();
      trace.clear();
      change(*port);
      notice();
      EXPECT_EQ(pending(), bit);
      EXPECT_FALSE(areEqual(*port, *copy())) << text;
      EXPECT_EQ(backlog(), Ids{"Ethernet1"}) << text;
      EXPECT_EQ(codef->updatesSeen(), seen + 1) << text;
      EXPECT_EQ(codef->timeMin(), 0.0) << "in the next turn";
      EXPECT_TRUE(trace.has("Adding IntfId: Ethernet1 to backlog"));
      bridge.run();
      EXPECT_TRUE(areEqual(*port, *copy())) << text;
      EXPECT_EQ(pending(), 0u) << text;
      EXPECT_EQ(backlog(), Ids{}) << text;
      EXPECT_EQ(trace.from("backlog processing Ethernet1 "),
                std::vector<std::string>{std::string("backlog processing Ethernet1") + text});
   }
}

TEST_F(SwitchIntfConfigCodefTest, allNineAreAppliedOneByOneAndTheModeLast) {
   TestTrace trace;
   start();
   for (auto const& operation : operations)
      operation.change(*port);
   notice();
   EXPECT_EQ(pending(), SwitchportBitMap::kemUniversal);
   uint32_t left = SwitchportBitMap::kemUniversal;
   for (size_t i = 0; i + 2 < std::size(operations); ++i) {
      EXPECT_FALSE(entry().performPendingOperations());
      left &= ~operations[i].bit;
      EXPECT_EQ(pending(), left) << operations[i].trace;
      EXPECT_TRUE(operations[i].areEqual(*port, *copy())) << operations[i].trace;
      EXPECT_FALSE(operations[i + 1].areEqual(*port, *copy())) << operations[i + 1].trace;
   }
   EXPECT_TRUE(entry().performPendingOperations()) << "the tool's list and the mode by one call";
   EXPECT_EQ(pending(), 0u);
   EXPECT_EQ(copy()->switchportMode(), Mode::trunk_);
   EXPECT_EQ(copy()->toolAllowedVlans(), "7");
   std::vector<std::string> expected;
   for (auto const& operation : operations)
      expected.push_back(std::string("backlog processing Ethernet1") + operation.trace);
   EXPECT_EQ(trace.from("backlog processing Ethernet1 "), expected);
   EXPECT_EQ(trace.level("backlog processing Ethernet1 Operation switchportMode"), 8);
}

TEST_F(SwitchIntfConfigCodefTest, callWithNothingPendingIsDone) {
   start();
   EXPECT_TRUE(entry().performPendingOperations());
}

TEST_F(SwitchIntfConfigCodefTest, toolsListAloneIsDoneByOneCall) {
   start();
   port->toolAllowedVlansIs("5");
   notice();
   EXPECT_TRUE(entry().performPendingOperations());
   EXPECT_EQ(copy()->toolAllowedVlans(), "5");
}

TEST_F(SwitchIntfConfigCodefTest, switchGoesBeforeTheModeInAStepOfItsOwn) {
   start();
   port->enabledIs(false);
   port->switchportModeIs(Mode::tap_);
   notice();
   EXPECT_FALSE(entry().performPendingOperations());
   EXPECT_FALSE(copy()->enabled());
   EXPECT_EQ(copy()->switchportMode(), Mode::access_);
   EXPECT_TRUE(entry().performPendingOperations());
   EXPECT_EQ(copy()->switchportMode(), Mode::tap_);
}

TEST_F(SwitchIntfConfigCodefTest, changeThatComesBackIsCancelled) {
   TestTrace trace;
   start();
   port->accessVlanIs(2);
   notice();
   EXPECT_EQ(pending(), 0x004u);
   uint64_t const seen = codef->updatesSeen();
   port->accessVlanIs(1);
   notice();
   EXPECT_EQ(codef->updatesSeen(), seen + 1);
   EXPECT_EQ(pending(), 0u);
   EXPECT_EQ(backlog(), Ids{});
   EXPECT_TRUE(trace.has("Deleting IntfId: Ethernet1 from backlog because configs are equal"));
   trace.clear();
   bridge.run();
   EXPECT_FALSE(trace.has("Operation"));
}

TEST_F(SwitchIntfConfigCodefTest, changeThatComesBackWithinOneTurnNeverWaits) {
   TestTrace trace;
   start();
   trace.clear();
   port->accessVlanIs(2);
   port->accessVlanIs(1);
   bridge.run();
   EXPECT_FALSE(trace.has("Adding IntfId"));
   EXPECT_FALSE(trace.has("because configs are equal")) << "it wasn't there";
   EXPECT_EQ(pending(), 0u);
}

TEST_F(SwitchIntfConfigCodefTest, bitOfAnAttributeThatCameBackStaysWhileAnotherDiffers) {
   start();
   port->accessVlanIs(2);
   port->trunkNativeVlanIs(3);
   notice();
   port->accessVlanIs(1);
   notice();
   EXPECT_EQ(pending(), 0x00cu);
   EXPECT_EQ(backlog(), Ids{"Ethernet1"});
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(copy()->accessVlan(), 1);
   EXPECT_EQ(copy()->trunkNativeVlan(), 3);
}

TEST_F(SwitchIntfConfigCodefTest, portSeesItsListsBeforeItsNewMode) {
   bridge.attrLogCheck = &log.check;
   for (uint16_t const vlanId : {1, 10, 20})
      bridge.vlan(vlanId);
   start();
   ASSERT_EQ(bridge.vlansOf("Ethernet1"), std::vector<uint16_t>{1});
   port->switchportModeIs(Mode::trunk_);
   port->trunkAllowedVlansIs("20");
   notice();
   log.roomFor(1);
   EXPECT_EQ(slice(), 0u);
   bridge.run(); // the port looks at its copy, and finds no room for more
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), std::vector<uint16_t>{1}) << "as a trunk of all VLANs it had more";
   EXPECT_EQ(copy()->trunkAllowedVlans(), "20");
   log.drain();
   bridge.advance(0.01);
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), std::vector<uint16_t>{20});
}

// --- Attributes that are copied as they change.

TEST_F(SwitchIntfConfigCodefTest, everythingElseIsCopiedAtOnceWithoutTheBacklog) {
   start();
   Bridging::VlanXlateKey const key{.outerVlanId = 5, .innerVlanId = 6};
   Bridging::VlanXlateMapping const mapping{.mappedVlanId = 7};
   port->toolIdentityTaggingIs(true);
   port->tapIdentificationVlanIs(9);
   port->tapMplsPopIs(true);
   port->tapTruncationSizeIs(100);
   port->toolTruncationSizeIs(200);
   port->toolDot1qRemoveVlansIs("1,2");
   port->defaultPrivateVlanMappingIs(true);
   port->macLearningEnabledIs(false);
   port->floodingEnabledIs(false);
   port->egressNativeVlanXlateIs(11);
   port->ingressNativeVlanXlateIs(12);
   port->trunkPrivateVlanMappingIs(true);
   port->vlanTpidIs(0x9100);
   port->blockUnknownUnicastIs(true);
   port->blockUnknownMulticastIs(true);
   port->tapGroupIs("t", true);
   port->tapRawIntfIs("Ethernet5", true);
   port->toolGroupIs("u", false);
   port->trunkGroupIs("v", true);
   port->privateVlanMappingIs(101, true);
   port->egressVlanXlateIs(key, mapping);
   port->ingressVlanXlateIs(key, {.mappedVlanId = 8});
   notice();
   EXPECT_EQ(backlog(), Ids{});
   auto const out = copy();
   EXPECT_TRUE(out->toolIdentityTagging());
   EXPECT_EQ(out->tapIdentificationVlan(), 9);
   EXPECT_TRUE(out->tapMplsPop());
   EXPECT_EQ(out->tapTruncationSize(), 100);
   EXPECT_EQ(out->toolTruncationSize(), 200);
   EXPECT_EQ(out->toolDot1qRemoveVlans(), "1,2");
   EXPECT_TRUE(out->defaultPrivateVlanMapping());
   EXPECT_FALSE(out->macLearningEnabled());
   EXPECT_FALSE(out->floodingEnabled());
   EXPECT_EQ(out->egressNativeVlanXlate(), 11);
   EXPECT_EQ(out->ingressNativeVlanXlate(), 12);
   EXPECT_TRUE(out->trunkPrivateVlanMapping());
   EXPECT_EQ(out->vlanTpid(), 0x9100);
   EXPECT_TRUE(out->blockUnknownUnicast());
   EXPECT_TRUE(out->blockUnknownMulticast());
   EXPECT_TRUE(out->tapGroup("t"));
   EXPECT_TRUE(out->tapRawIntf("Ethernet5"));
   ASSERT_TRUE(out->toolGroup().find("u")) << "with its value";
   EXPECT_FALSE(out->toolGroup("u"));
   EXPECT_TRUE(out->trunkGroup("v"));
   EXPECT_TRUE(out->privateVlanMapping(101));
   ASSERT_TRUE(out->egressVlanXlate(key));
   EXPECT_EQ(*out->egressVlanXlate(key), mapping);
   ASSERT_TRUE(out->ingressVlanXlate(key));
   EXPECT_EQ(out->ingressVlanXlate(key)->mappedVlanId, 8);

   port->tapGroupDel("t");
   port->tapRawIntfDel("Ethernet5");
   port->toolGroupDel("u");
   port->trunkGroupDel("v");
   port->privateVlanMappingDel(101);
   port->egressVlanXlateDel(key);
   port->ingressVlanXlateDel(key);
   notice();
   EXPECT_TRUE(out->tapGroup().empty());
   EXPECT_TRUE(out->tapRawIntf().empty());
   EXPECT_TRUE(out->toolGroup().empty());
   EXPECT_TRUE(out->trunkGroup().empty());
   EXPECT_TRUE(out->privateVlanMapping().empty());
   EXPECT_TRUE(out->egressVlanXlate().empty());
   EXPECT_TRUE(out->ingressVlanXlate().empty());
}

// --- Ports come, go and change their best record.

// Every attribute to what isn't its default.
void setAll(Config& in) {
   Bridging::VlanXlateKey const key{.outerVlanId = 5};
   for (auto const& operation : operations)
      operation.change(in);
   in.trunkPrivateVlanMappingIs(true);
   in.toolIdentityTaggingIs(true);
   in.tapIdentificationVlanIs(9);
   in.tapMplsPopIs(true);
   in.tapTruncationSizeIs(100);
   in.toolTruncationSizeIs(200);
   in.toolDot1qRemoveVlansIs("1,2");
   in.tapGroupIs("t", true);
   in.tapRawIntfIs("Ethernet5", true);
   in.toolGroupIs("u", true);
   in.trunkGroupIs("v", false);
   in.defaultPrivateVlanMappingIs(true);
   in.blockUnknownUnicastIs(true);
   in.blockUnknownMulticastIs(true);
   in.macLearningEnabledIs(false);
   in.floodingEnabledIs(false);
   in.privateVlanMappingIs(101, true);
   in.egressNativeVlanXlateIs(11);
   in.ingressNativeVlanXlateIs(12);
   in.egressVlanXlateIs(key, {.mappedVlanId = 7});
   in.ingressVlanXlateIs(key, {.mappedVlanId = 8});
   in.vlanTpidIs(0x9100);
}

TEST_F(SwitchIntfConfigCodefTest, arrivingPortIsCopiedWholeAndAtOnce) {
   TestTrace trace;
   start();
   auto const in = bridge.port("Ethernet2");
   setAll(*in);
   uint64_t const slices = codef->dispatchCount();
   bridge.run();
   EXPECT_EQ(codef->dispatchCount(), slices);
   EXPECT_TRUE(trace.has(" Creating SwitchIntfConfigSm IntfId=Ethernet2"));
   EXPECT_EQ(entry("Ethernet2").configIn(), in);
   EXPECT_EQ(entry("Ethernet2").intfId(), Sulvi::IntfId("Ethernet2"));
   EXPECT_TRUE(entry("Ethernet2").initialized());
   // Both encode alike when nothing differs.
   struct Differences final : Kem::AttributeSink {
      std::vector<std::string> names;
      void scalarChanged(Kem::Entity const& e, Kem::AttrId id) override {
         names.push_back(e.attributeString(id));
      }
      void memberChanged(Kem::Entity const& e, Kem::AttrId id, void const*) override {
         names.push_back(e.attributeString(id));
      }
      void childAdded(Kem::Entity const&, Kem::AttrId, Kem::Entity const&) override {}
      void childRemoved(Kem::Entity const&, Kem::AttrId, void const*, Kem::Ptr<Kem::Entity> const&) override {
      }
   };
   Differences differences;
   in->encodeDifference(*copy("Ethernet2"), differences);
   EXPECT_THAT(differences.names, ElementsAre());
   Differences fromDefault;
   in->encodeDifference(*Config::make("Ethernet2"), fromDefault);
   EXPECT_EQ(fromDefault.names.size(), 31u) << "the check sees every attribute but the key";
}

// SwitchIntfSm is notified of each as it is written, so it sees this order.
TEST_F(SwitchIntfConfigCodefTest, copyIsMadeInItsOrder) {
   start();
   auto const better = bridge.publish("better", 200).port("Ethernet1");
   setAll(*better);
   Vorn::WriteOrder order;
   order.follow("copy", *copy());
   std::vector<std::string> expected;
   for (char const* name : {"switchportMode",
                            "enabled",
                            "accessVlan",
                            "trunkNativeVlan",
                            "trunkAllowedVlans",
                            "asymVlans",
                            "trunkPrivateVlanMapping",
                            "tapNativeVlan",
                            "tapAllowedVlans",
                            "toolAllowedVlans",
                            "toolIdentityTagging",
                            "tapIdentificationVlan",
                            "tapMplsPop",
                            "tapTruncationSize",
                            "toolTruncationSize",
                            "toolDot1qRemoveVlans",
                            "tapGroup",
                            "tapRawIntf",
                            "toolGroup",
                            "trunkGroup",
                            "defaultPrivateVlanMapping",
                            "blockUnknownUnicast",
                            "blockUnknownMulticast",
                            "macLearningEnabled",
                            "floodingEnabled",
                            "privateVlanMapping",
                            "egressNativeVlanXlate",
                            "ingressNativeVlanXlate",
                            "egressVlanXlate",
                            "ingressVlanXlate",
                            "vlanTpid"})
      expected.push_back(std::string("copy.") + name);
   bridge.run();
   EXPECT_EQ(order.take(), expected);
}

TEST_F(SwitchIntfConfigCodefTest, portThatGoesLosesItsEntryAndItsCopyAtOnce) {
   TestTrace trace;
   start();
   port->accessVlanIs(2);
   notice();
   EXPECT_EQ(backlog(), Ids{"Ethernet1"});
   bridge.portDel("Ethernet1");
   notice();
   EXPECT_EQ(backlog(), Ids{}) << "without a slice";
   EXPECT_FALSE(codef->switchIntfConfigEntrySm("Ethernet1"));
   EXPECT_FALSE(copy());
   EXPECT_FALSE(bridge.portSm("Ethernet1"));
   EXPECT_TRUE(trace.has(" Deleting SwitchIntfConfigSm IntfId=Ethernet1"));
}

TEST_F(SwitchIntfConfigCodefTest, newBestRecordReplacesTheEntryAndDropsWhatWaited) {
   start();
   auto const existing = copy();
   auto const other = bridge.input("a").port("Ethernet1");
   other->accessVlanIs(3);
   bridge.run();
   port->accessVlanIs(2);
   notice();
   bridge.input("a").prioritiesAre(200);
   notice();
   EXPECT_EQ(copy(), existing);
   EXPECT_EQ(entry().configIn(), other);
   EXPECT_EQ(pending(), 0u);
   EXPECT_EQ(copy()->accessVlan(), 3) << "at once";
   EXPECT_EQ(backlog(), Ids{"Ethernet1"}) << "the key stays";
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(copy()->accessVlan(), 3);
   EXPECT_EQ(backlog(), Ids{});
   port->accessVlanIs(4);
   bridge.run();
   EXPECT_EQ(copy()->accessVlan(), 3) << "the loser is not followed";
}

TEST_F(SwitchIntfConfigCodefTest, membersOfAnOlderRecordStayInTapGroupsAndRawInterfacesOnly) {
   Bridging::VlanXlateKey const key{.outerVlanId = 5};
   port->tapGroupIs("old", true);
   port->tapRawIntfIs("Ethernet8", true);
   port->toolGroupIs("old", true);
   port->trunkGroupIs("old", true);
   port->privateVlanMappingIs(101, true);
   port->egressVlanXlateIs(key, {.mappedVlanId = 7});
   port->ingressVlanXlateIs(key, {.mappedVlanId = 7});
   start();
   auto const other = bridge.input("a").port("Ethernet1");
   other->tapGroupIs("new", true);
   bridge.run();
   bridge.input("a").prioritiesAre(200);
   bridge.run();
   ASSERT_EQ(entry().configIn(), other);
   EXPECT_TRUE(copy()->tapGroup("old"));
   EXPECT_TRUE(copy()->tapGroup("new"));
   EXPECT_TRUE(copy()->tapRawIntf("Ethernet8"));
   EXPECT_TRUE(copy()->toolGroup().empty());
   EXPECT_TRUE(copy()->trunkGroup().empty());
   EXPECT_TRUE(copy()->privateVlanMapping().empty());
   EXPECT_TRUE(copy()->egressVlanXlate().empty());
   EXPECT_TRUE(copy()->ingressVlanXlate().empty());
}

TEST_F(SwitchIntfConfigCodefTest, newBestRecordHasThePortEvaluatedAsAWhole) {
   bridge.vlan(10);
   bridge.vlan(20);
   start();
   auto const portSm = bridge.portSm("Ethernet1");
   auto const other = bridge.input("a").port("Ethernet1");
   other->switchportModeIs(Mode::trunk_);
   other->trunkAllowedVlansIs("20");
   bridge.run();
   bridge.input("a").record->switchIntfConfigPriorityIs(200);
   bridge.run();
   EXPECT_EQ(bridge.portSm("Ethernet1"), portSm);
   EXPECT_EQ(bridge.mode("Ethernet1"), "trunk 0");
   EXPECT_EQ(bridge.vlansOf("Ethernet1"), std::vector<uint16_t>{20});
}

TEST_F(SwitchIntfConfigCodefTest, existingEntryIsReturnedForTheSameRecordsAndRefusesOthers) {
   start();
   auto const named = [](char const* name) {
      auto const record = Config::make("Ethernet1");
      record->nameIs(name);
      return record;
   };
   codef->switchIntfConfigEntrySmDel("Ethernet1");
   auto const in = named("standingIn"), out = named("standingOut");
   auto const made = codef->switchIntfConfigEntrySmIs("Ethernet1", in, out);
   EXPECT_EQ(codef->switchIntfConfigEntrySmIs("Ethernet1", in, out), made);
   auto const refusal = [&](auto const& otherIn, auto const& otherOut) -> std::string {
      try {
         codef->switchIntfConfigEntrySmIs("Ethernet1", otherIn, otherOut);
         return "nothing";
      } catch (Kem::RangeException const& e) {
         return e.what();
      }
   };
   EXPECT_EQ(refusal(named("asked"), out), "Reinstantiating the pointer interface where constructor "
                                           "parameter attribute _configIn has a different "
                                           "value of standingIn than the current value of asked not allowed");
   EXPECT_EQ(refusal(in, named("asked")), "Reinstantiating the pointer interface where constructor parameter "
                                          "attribute _configOut has a different "
                                          "value of standingOut than the current value of asked not allowed");
}

// --- Slices.

TEST_F(SwitchIntfConfigCodefTest, keyWithoutAnEntryIsDroppedAndCounted) {
   TestTrace trace;
   start();
   codef->updateBacklog("Ethernet77", false);
   EXPECT_EQ(backlog(), Ids{"Ethernet77"});
   EXPECT_EQ(slice(), 1u);
   EXPECT_EQ(backlog(), Ids{});
   EXPECT_TRUE(trace.has("No SwitchIntfConfigEntrySm found for Ethernet77"));
}

TEST_F(SwitchIntfConfigCodefTest, firstPortIsFinishedHoweverLateTheSliceIs) {
   start();
   for (auto const& operation : operations)
      operation.change(*port);
   notice();
   EXPECT_EQ(slice(-5), 1u);
   EXPECT_EQ(pending(), 0u);
   EXPECT_EQ(copy()->switchportMode(), Mode::trunk_);
}

TEST_F(SwitchIntfConfigCodefTest, laterPortWaitsForTheNextSlice) {
   TestTrace trace;
   auto const second = bridge.port("Ethernet2");
   start();
   port->accessVlanIs(2);
   second->accessVlanIs(2);
   notice();
   trace.clear();
   EXPECT_EQ(slice(0), 1u);
   EXPECT_EQ(backlog(), Ids{"Ethernet2"});
   EXPECT_EQ(codef->backlog().bookmark(), Sulvi::IntfId("Ethernet2"));
   EXPECT_EQ(trace.level("Pausing backlog processing at Ethernet2"), 7);
   EXPECT_EQ(pending("Ethernet2"), 0x004u);
   EXPECT_EQ(slice(0), 1u);
   EXPECT_EQ(copy("Ethernet2")->accessVlan(), 2);
}

TEST_F(SwitchIntfConfigCodefTest, fullLogStopsTheSliceBeforeTheFirstOperation) {
   TestTrace trace;
   bridge.attrLogCheck = &log.check;
   start();
   port->accessVlanIs(2);
   port->trunkNativeVlanIs(3);
   notice();
   log.fill();
   EXPECT_EQ(slice(), 0u);
   EXPECT_EQ(pending(), 0x00cu);
   EXPECT_EQ(backlog(), Ids{"Ethernet1"});
   EXPECT_EQ(codef->backlog().bookmark(), Sulvi::IntfId("Ethernet1"));
   EXPECT_EQ(trace.level("Pausing backlog processing at Ethernet1 - attr log full"), 7);
   EXPECT_EQ(copy()->accessVlan(), 1);
}

TEST_F(SwitchIntfConfigCodefTest, logThatFillsUpStopsAPortBetweenItsOperations) {
   bridge.attrLogCheck = &log.check;
   start();
   for (auto const& operation : operations)
      operation.change(*port);
   notice();
   log.roomFor(3);
   EXPECT_EQ(slice(), 0u) << "no port is finished";
   EXPECT_EQ(pending(), SwitchportBitMap::kemUniversal & ~(0x001u | 0x010u | 0x020u));
   EXPECT_EQ(backlog(), Ids{"Ethernet1"});
   bridge.run();
   EXPECT_NE(pending(), 0u);
   log.drain();
   bridge.advance(0.01);
   EXPECT_EQ(pending(), 0u);
   EXPECT_EQ(copy()->switchportMode(), Mode::trunk_);
   EXPECT_EQ(backlog(), Ids{});
}

TEST_F(SwitchIntfConfigCodefTest, finishedPortsAreCounted) {
   auto const second = bridge.port("Ethernet2");
   start();
   for (auto const& operation : operations)
      operation.change(*port);
   second->accessVlanIs(2);
   bridge.run();
   EXPECT_EQ(codef->updatesProcessed(), 2u) << "ports, not operations";
}

// --- Life.

TEST_F(SwitchIntfConfigCodefTest, isInitializedOnce) {
   start();
   EXPECT_TRUE(codef->initialized());
   EXPECT_DEATH(codef->handleInitialized(), HasSubstr("\"!initialized()\""));
}

TEST_F(SwitchIntfConfigCodefTest, wholeInputIsTakenInWithoutDeletingEntries) {
   start();
   auto const existing = codef->switchIntfConfigEntrySm("Ethernet1");
   codef->handleSwitchIntfConfig();
   EXPECT_EQ(codef->switchIntfConfigEntrySm("Ethernet1"), existing);
   codef->handleSwitchIntfConfig("Ethernet1");
   EXPECT_NE(codef->switchIntfConfigEntrySm("Ethernet1"), existing);
}

TEST_F(SwitchIntfConfigCodefTest, backlogCanBeEmptied) {
   start();
   port->accessVlanIs(2);
   notice();
   codef->backlogDelAll();
   EXPECT_EQ(codef->backlogSize(), 0u);
   bridge.run();
   EXPECT_EQ(copy()->accessVlan(), 1);
}

} // namespace
