// What a held log remembers, and what it tells in the end, as small cases: the log is a list of words here.
#include "Ordel/client/HeldChanges.h"

#include "Kem/Dir.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/VlanConfig.h"

#include <gtest/gtest.h>

namespace {

using Bridging::VlanId;
using Kem::Entity;
using Kem::Ptr;
using Ordel::HeldChanges;
using Sulvi::IntfId;
using Words = std::vector<std::string>;

// Hands every change to the HeldChanges while it is held, and writes down what it is told.
struct Log final : Kem::AttributeSink {
   void scalarChanging(Entity const& e, Kem::AttrId id) override { held.scalarChanging(e, id); }
   void memberChanging(Entity const& e, Kem::AttrId id, void const* key) override {
      held.memberChanging(e, id, key);
   }
   void scalarChanged(Entity const& e, Kem::AttrId id) override { say("set", e, id, ""); }
   void memberChanged(Entity const& e, Kem::AttrId id, void const* key) override {
      Wire::Writer value;
      say(e.encodeMember(id, key, value) ? "put" : "erase", e, id, "");
   }
   void childAdded(Entity const& e, Kem::AttrId id, Entity const& child) override {
      if (wantsBefore_)
         return held.childAdded(e, id, child);
      say("create", e, id, child.keyText());
   }
   void childRemoved(Entity const& e, Kem::AttrId id, void const* key, Ptr<Entity> const& child) override {
      if (wantsBefore_)
         return held.childRemoved(e, id, key, child);
      say("remove", e, id, child->keyText());
   }
   void say(char const* verb, Entity const& e, Kem::AttrId id, std::string const& key) {
      if (!wantsBefore_)
         words.push_back(std::string(verb) + " " + e.attributeString(id) + (key.empty() ? "" : " " + key));
   }
   void hold() { wantsBefore_ = true; }
   Words release() {
      wantsBefore_ = false;
      held.release();
      return std::exchange(words, {});
   }
   HeldChanges held{*this, [this](Entity& before, Entity&) { words.push_back("same " + before.keyText()); }};
   Words words;
};

struct HeldChangesTest : testing::Test {
   HeldChangesTest() {
      config->nameIs("config");
      vlan->configuredNameIs("ten");
      vlan->intfIs(port, {.tagged = true});
      config->sinkIs(&log, true);
      log.hold();
   }
   ~HeldChangesTest() override { config->sinkIs(nullptr, false); }
   static std::string wire(VlanId id) {
      Wire::Writer out;
      out.u16(id.value());
      return std::string(out.view());
   }
   Log log;
   IntfId port{"Ethernet1"};
   Ptr<Bridging::Config> config = Bridging::Config::make();
   Ptr<Bridging::VlanConfig> vlan = config->newVlanConfig(VlanId(10), false);
};

TEST_F(HeldChangesTest, entityIsNewUntilTheReleaseOnly) {
   auto const made = config->newVlanConfig(VlanId(20), false);
   made->intfIs(port, {.tagged = true});
   vlan->intfDel(port); // not taken for one of the new one's
   made->intfIs(port, {.tagged = false});
   EXPECT_EQ(log.held.count(), 2u); // the new VLAN, and the port of the old one
   EXPECT_EQ(log.release(), (Words{"create vlanConfig 20", "erase intf"}));
   log.hold();
   config->newVlanConfig(VlanId(30), false);
   made->intfDel(port);
   EXPECT_EQ(log.release(), (Words{"create vlanConfig 30", "erase intf"}));
}

TEST_F(HeldChangesTest, entityThatWentIsToldBeforeWhatCame) {
   config->vidToFidMapIs(VlanId(10), Bridging::Fid(7));
   config->vlanConfigDel(VlanId(10));
   EXPECT_EQ(log.release(), (Words{"remove vlanConfig 10", "put vidToFidMap"}));
}

TEST_F(HeldChangesTest, onlyTheFirstChangeOfAThingIsRemembered) {
   vlan->configuredNameIs("a");
   vlan->configuredNameIs("b");
   vlan->intfDel(port);
   EXPECT_EQ(log.held.count(), 2u);
   EXPECT_EQ(log.release(), (Words{"set configuredName", "erase intf"}));
   EXPECT_EQ(log.held.count(), 0u);
   EXPECT_TRUE(log.held.empty());
}

TEST_F(HeldChangesTest, whatIsAsBeforeIsNotTold) {
   vlan->configuredNameIs("a");
   vlan->configuredNameIs("ten");
   vlan->intfDel(port);
   vlan->intfIs(port, {.tagged = true});
   EXPECT_EQ(log.release(), Words{});
}

TEST_F(HeldChangesTest, belowANewEntityNothingIsRemembered) {
   auto const made = config->newVlanConfig(VlanId(20), false);
   size_t const count = log.held.count();
   made->configuredNameIs("twenty");
   made->intfIs(port, {});
   EXPECT_EQ(log.held.count(), count) << "it is told whole";
   EXPECT_EQ(log.release(), Words{"create vlanConfig 20"});
}

TEST_F(HeldChangesTest, entityThatCameAndWentIsNothing) {
   config->newVlanConfig(VlanId(20), false);
   config->vlanConfigDel(VlanId(20));
   EXPECT_EQ(log.release(), Words{});
}

TEST_F(HeldChangesTest, entityRemovedAndMadeAgainIsComparedAndToldAsTheSame) {
   config->vlanConfigDel(VlanId(10));
   config->newVlanConfig(VlanId(10), false)->configuredNameIs("ten");
   EXPECT_EQ(log.release(), (Words{"same 10", "erase intf"}));
}

TEST_F(HeldChangesTest, entityIsComparedWithWhatItHeldNotWithWhatItHeldWhenItWasRemoved) {
   vlan->intfDelAll();
   vlan->configuredNameIs("");
   config->vlanConfigDel(VlanId(10));
   auto const made = config->newVlanConfig(VlanId(10), false);
   made->configuredNameIs("ten");
   made->intfIs(port, {.tagged = true});
   EXPECT_EQ(log.release(), Words{"same 10"});
}

TEST_F(HeldChangesTest, entityMadeAgainWithAnotherInputIsAnother) {
   config->vlanConfigDel(VlanId(10));
   config->newVlanConfig(VlanId(10), true);
   EXPECT_EQ(log.release(), (Words{"remove vlanConfig 10", "create vlanConfig 10"}));
}

TEST_F(HeldChangesTest, entityOfADirectoryIsRememberedLikeAMember) {
   auto const dir = Kem::Dir::make();
   auto const inside = Bridging::Config::make();
   inside->nameIs("x");
   dir->entityPtrIs(inside);
   dir->sinkIs(&log, true);
   dir->entityPtrDel("x");
   EXPECT_EQ(log.release(), Words{"remove entityPtr x"});
   dir->sinkIs(nullptr, false);
}

// --- What the database has and the process doesn't see.

TEST_F(HeldChangesTest, placeThatOnlyTheDatabaseKnowsIsTakenAway) {
   log.held.isInDatabase(*vlan, Bridging::VlanConfig::kConfiguredName, "", "\x05other");
   EXPECT_EQ(log.release(), Words{"set configuredName"});
}

TEST_F(HeldChangesTest, placeThatOnlyTheDatabaseKnowsCountsAsWhatWasBefore) {
   log.held.isInDatabase(*vlan, Bridging::VlanConfig::kConfiguredName, "", "\x05other");
   vlan->configuredNameIs("other");
   EXPECT_EQ(log.release(), Words{}) << "the database has it";
}

// --- Other writers. What they change comes in with the log muted.

TEST_F(HeldChangesTest, thingThatAnotherChangedTooIsToldInAnyCase) {
   vlan->configuredNameIs("a");
   log.held.foreignChange(*vlan, Bridging::VlanConfig::kConfiguredName, "");
   vlan->configuredNameIs("ten");
   EXPECT_EQ(log.release(), Words{"set configuredName"}) << "as it was is not what the database has now";
}

TEST_F(HeldChangesTest, thingThatOnlyAnotherChangedIsHis) {
   log.held.foreignChange(*vlan, Bridging::VlanConfig::kConfiguredName, "");
   EXPECT_TRUE(log.held.empty());
   EXPECT_EQ(log.release(), Words{});
}

TEST_F(HeldChangesTest, removedEntityThatAnotherChangedIsRemovedAndMadeAgain) {
   Ptr<Entity> const old = vlan;
   config->vlanConfigDel(VlanId(10));
   log.held.foreignChangeIn(*old);
   config->newVlanConfig(VlanId(10), false)->configuredNameIs("ten");
   EXPECT_EQ(log.release(), (Words{"remove vlanConfig 10", "remove vlanConfig 10", "create vlanConfig 10"}));
}

TEST_F(HeldChangesTest, removedEntityCanBeAskedFor) {
   EXPECT_FALSE(log.held.removed(*config, Bridging::Config::kVlanConfig, wire(VlanId(10))));
   Ptr<Entity> const old = vlan;
   config->vlanConfigDel(VlanId(10));
   EXPECT_EQ(log.held.removed(*config, Bridging::Config::kVlanConfig, wire(VlanId(10))), old);
}

TEST_F(HeldChangesTest, sameObjectThatComesBackIsToldWhole) {
   // What was done to it while it was nowhere has not been seen.
   auto const dir = Kem::Dir::make();
   Ptr<Bridging::Config> const inside = Bridging::Config::make();
   inside->nameIs("x");
   dir->entityPtrIs(inside);
   dir->sinkIs(&log, true);
   dir->entityPtrDel("x");
   inside->hostAgingTimeIs(5);
   dir->entityPtrIs(inside);
   EXPECT_EQ(log.release(), (Words{"remove entityPtr x", "remove entityPtr x", "create entityPtr x"}));
   dir->sinkIs(nullptr, false);
}

TEST_F(HeldChangesTest, everythingCanBeMarkedAtOnce) {
   vlan->configuredNameIs("a");
   vlan->configuredNameIs("ten");
   log.held.foreignChangeOfAll();
   EXPECT_EQ(log.release(), Words{"set configuredName"});
}

} // namespace
