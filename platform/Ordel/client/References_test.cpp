// What the database told of references, as a story of small cases: who decides about one, when it is looked up,
// and what becomes of it when its target or its holder goes.
#include "Ordel/client/References.h"

#include "Kem/Dir.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"
#include "records/Interface/EthIntfStatusDir.h"

#include <gtest/gtest.h>

#include <map>

namespace {

using Bridging::SwitchIntfConfigDir;
using Bridging::Input::Config;
using Kem::Entity;
using Kem::Ptr;
using Ordel::References;
using Sulvi::IntfId;

// The mode of a mount: a log that must stay muted, since nothing of this goes back to the database.
struct Mode final : Kem::AttributeSink {
   Mode() { isMuted_ = true; }
   void scalarChanged(Entity const&, Kem::AttrId) override { FAIL(); }
   void memberChanged(Entity const&, Kem::AttrId, void const*) override { FAIL(); }
   void childAdded(Entity const&, Kem::AttrId, Entity const&) override { FAIL(); }
   void childRemoved(Entity const&, Kem::AttrId, void const*, Ptr<Entity> const&) override { FAIL(); }
};

struct ReferencesTest : testing::Test {
   ReferencesTest() {
      input->nameIs("mvrp");
      top->entityPtrIs(input);
      top->sinkIs(&mode, false);
      reader->sinkIs(&mode, false);
      writer->sinkIs(&mode, true);
   }
   ~ReferencesTest() override {
      for (Entity* entity : {static_cast<Entity*>(top.ptr()), static_cast<Entity*>(reader.ptr()),
                             static_cast<Entity*>(writer.ptr())})
         entity->sinkIs(nullptr, false);
   }
   // A port of the input comes, or goes.
   Ptr<Entity> portCame(char const* port) {
      Ptr<Entity> const record = input->newSwitchIntfConfig(IntfId(port));
      references.came(record);
      references.resolve();
      return record;
   }
   void portWent(char const* port) {
      Ptr<Entity> const record = input->switchIntfConfig(IntfId(port));
      input->switchIntfConfigDel(IntfId(port));
      references.went(record);
      references.resolve();
   }
   // The database says that the directory's member of that port names the input's record of the port.
   void referenceIs(Ptr<SwitchIntfConfigDir> const& holder, char const* port) {
      references.referenceIs(place(holder, port), "mvrp.switchIntfConfig[" + std::string(port) + "]");
   }
   static std::string key(char const* port) {
      Wire::Writer out;
      IntfId(port).encode(out);
      return std::string(out.view());
   }
   static References::Place place(Ptr<SwitchIntfConfigDir> const& holder, char const* port) {
      return {holder, SwitchIntfConfigDir::kSwitchIntfConfig, key(port)};
   }
   Ptr<Entity> find(std::string const& selector) const {
      for (auto const* port : {"Ethernet1", "Ethernet2"})
         if (selector == "mvrp.switchIntfConfig[" + std::string(port) + "]")
            return input->switchIntfConfig(IntfId(port));
      return nullptr;
   }

   Mode mode;
   Ptr<Kem::Dir> top = Kem::Dir::make();
   Ptr<Config> input = Config::make();
   Ptr<SwitchIntfConfigDir> reader = SwitchIntfConfigDir::make(); // what the process only reads
   Ptr<SwitchIntfConfigDir> writer = SwitchIntfConfigDir::make(); // what it writes
   References references{Records::schema(), [this](std::string const& selector) { return find(selector); }};
};

// --- A holder that the process only reads.

TEST_F(ReferencesTest, readersReferenceIsAbsentUntilItsTargetComes) {
   referenceIs(reader, "Ethernet1");
   EXPECT_FALSE(reader->switchIntfConfig(IntfId("Ethernet1")));
   auto const port = portCame("Ethernet1");
   EXPECT_EQ(reader->switchIntfConfig(IntfId("Ethernet1")), port);
}

TEST_F(ReferencesTest, readersReferenceFollowsItsSelectorForGood) {
   portCame("Ethernet1");
   referenceIs(reader, "Ethernet1");
   portWent("Ethernet1");
   EXPECT_FALSE(reader->switchIntfConfig(IntfId("Ethernet1")));
   auto const again = portCame("Ethernet1");
   EXPECT_EQ(reader->switchIntfConfig(IntfId("Ethernet1")), again);
}

TEST_F(ReferencesTest, referenceThatIsDeletedIsForgotten) {
   portCame("Ethernet1");
   referenceIs(reader, "Ethernet1");
   EXPECT_EQ(references.size(), 1u);
   references.referenceDel(place(reader, "Ethernet1"));
   EXPECT_EQ(references.size(), 0u);
}

TEST_F(ReferencesTest, selectorThatIsWrittenAnotherWayIsFoundToo) {
   // Nobody's full name has a quoted key that needs no quotes; a person may write one.
   Ptr<Entity> target;
   References quoted{Records::schema(), [&](std::string const&) { return target; }};
   quoted.referenceIs(place(reader, "Ethernet1"), "mvrp.switchIntfConfig[\"Ethernet1\"]");
   EXPECT_FALSE(reader->switchIntfConfig(IntfId("Ethernet1")));
   target = input->newSwitchIntfConfig(IntfId("Ethernet1"));
   quoted.came(target);
   quoted.resolve();
   EXPECT_EQ(reader->switchIntfConfig(IntfId("Ethernet1")), target);
}

TEST_F(ReferencesTest, numberWithZerosBeforeItNamesTheSameKey) {
   Ptr<Entity> target;
   References padded{Records::schema(), [&](std::string const&) { return target; }};
   padded.referenceIs(place(reader, "Ethernet1"), "mvrp.vlanConfig[007].intf[Ethernet1]");
   padded.referenceIs(place(reader, "Ethernet2"), "mvrp.vlanConfig[007]");
   uint64_t const before = padded.lookupCount();
   padded.came(input->newVlanConfig(Bridging::VlanId(7)));
   padded.resolve();
   EXPECT_EQ(padded.lookupCount(), before + 1) << "the second one; the first one names no entity";
}

// --- A holder that the process writes.

TEST_F(ReferencesTest, writersReferenceIsItsOwnOnceItHasATarget) {
   auto const port = portCame("Ethernet1");
   referenceIs(writer, "Ethernet1");
   EXPECT_EQ(writer->switchIntfConfig(IntfId("Ethernet1")), port);
   EXPECT_EQ(references.size(), 0u) << "the database decides about it no more";
   portWent("Ethernet1");
   EXPECT_EQ(writer->switchIntfConfig(IntfId("Ethernet1")), port) << "the writer says what becomes of it";
   portCame("Ethernet1");
   EXPECT_EQ(writer->switchIntfConfig(IntfId("Ethernet1")), port);
}

TEST_F(ReferencesTest, writersReferenceWaitsForItsTarget) {
   // As long as mounts come in, in any order.
   referenceIs(writer, "Ethernet1");
   EXPECT_TRUE(references.hasDangling());
   auto const port = portCame("Ethernet1");
   EXPECT_FALSE(references.hasDangling());
   EXPECT_EQ(writer->switchIntfConfig(IntfId("Ethernet1")), port);
}

TEST_F(ReferencesTest, placeThatTheProcessTakesIsNeverTouchedAgain) {
   referenceIs(writer, "Ethernet1");
   EXPECT_EQ(references.taken(*writer, SwitchIntfConfigDir::kSwitchIntfConfig, key("Ethernet1")),
             "mvrp.switchIntfConfig[Ethernet1]");
   EXPECT_FALSE(references.hasDangling());
   portCame("Ethernet1");
   EXPECT_FALSE(writer->switchIntfConfig(IntfId("Ethernet1"))) << "the process has chosen otherwise";
}

TEST_F(ReferencesTest, onlyADanglingPlaceCanBeTaken) {
   EXPECT_FALSE(references.taken(*writer, SwitchIntfConfigDir::kSwitchIntfConfig, key("Ethernet1")));
   referenceIs(reader, "Ethernet1");
   EXPECT_FALSE(references.taken(*reader, SwitchIntfConfigDir::kSwitchIntfConfig, key("Ethernet1")));
   EXPECT_EQ(references.size(), 1u);
}

TEST_F(ReferencesTest, danglingOnesAreHandedOverOnce) {
   portCame("Ethernet1");
   referenceIs(writer, "Ethernet1");
   referenceIs(writer, "Ethernet2");
   referenceIs(reader, "Ethernet2");
   auto const dangling = references.takeDangling();
   ASSERT_EQ(dangling.size(), 1u) << "not the one with a target, and not the reader's";
   EXPECT_EQ(dangling[0].place.holder, writer);
   EXPECT_EQ(dangling[0].place.key, key("Ethernet2"));
   EXPECT_EQ(dangling[0].selector, "mvrp.switchIntfConfig[Ethernet2]");
   EXPECT_TRUE(references.takeDangling().empty());
   portCame("Ethernet2");
   EXPECT_FALSE(writer->switchIntfConfig(IntfId("Ethernet2")));
   EXPECT_TRUE(reader->switchIntfConfig(IntfId("Ethernet2")));
}

// --- A single reference, which is null rather than absent.

TEST_F(ReferencesTest, singleReferenceIsNullWithoutATarget) {
   auto const config = Interface::EthIntfConfig::make(IntfId("Ethernet1"));
   auto const status = Interface::EthIntfStatus::make(IntfId("Ethernet1"));
   References single{Records::schema(), [&](std::string const& s) -> Ptr<Entity> {
                        if (s == "config")
                           return config;
                        return nullptr;
                     }};
   References::Place const intfConfig{status, Interface::EthIntfStatus::kIntfConfig, ""};
   single.referenceIs(intfConfig, "config");
   EXPECT_EQ(status->intfConfig(), config);
   single.referenceIs(intfConfig, "elsewhere");
   EXPECT_FALSE(status->intfConfig());
   single.referenceIs(intfConfig, "config");
   single.referenceIs(intfConfig, "");
   EXPECT_FALSE(status->intfConfig());
   EXPECT_EQ(single.size(), 0u) << "null needs no watching";
}

// --- What it costs.

TEST_F(ReferencesTest, unrelatedChangesLookNothingUp) {
   portCame("Ethernet1");
   referenceIs(reader, "Ethernet1"); // has its target
   referenceIs(reader, "Ethernet2"); // waits
   uint64_t const before = references.lookupCount();
   for (uint16_t vlan = 1; vlan <= 100; ++vlan) {
      Ptr<Entity> const record = input->newVlanConfig(Bridging::VlanId(vlan));
      references.came(record);
      references.resolve();
      input->vlanConfigDel(Bridging::VlanId(vlan));
      references.went(record);
      references.resolve();
   }
   EXPECT_EQ(references.lookupCount(), before);
   portWent("Ethernet1");
   EXPECT_EQ(references.lookupCount(), before + 1);
}

TEST_F(ReferencesTest, holderThatLeavesTheTreeIsForgottenWithItsReferences) {
   auto const dir = Kem::Dir::make("dir");
   auto const holder = SwitchIntfConfigDir::make();
   holder->nameIs("holder");
   top->entityPtrIs(dir);
   dir->entityPtrIs(holder);
   portCame("Ethernet1");
   referenceIs(holder, "Ethernet1");
   referenceIs(holder, "Ethernet2");
   EXPECT_EQ(references.size(), 2u);
   top->entityPtrDel("dir");
   references.went(dir);
   references.resolve();
   EXPECT_EQ(references.size(), 0u);
   portCame("Ethernet2");
   EXPECT_FALSE(holder->switchIntfConfig(IntfId("Ethernet2")));
}

} // namespace
