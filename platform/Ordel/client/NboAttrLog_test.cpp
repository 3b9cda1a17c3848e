#include "Ordel/client/NboAttrLog.h"

#include "Ordel/client/TestDatabase.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/VlanConfig.h"

namespace {

using Bridging::VlanId;
using Ordel::TestDatabase;
using Sulvi::IntfId;

struct NboAttrLogTest : testing::Test {
   void SetUp() override {
      auto const vlan = config->vlanConfigIs(VlanId(10), false);
      vlan->configuredNameIs("servers");
      for (int port = 1; port <= 4; ++port)
         vlan->intfIs(port1(port), {.tagged = true});
      client.flush();
      groupsBefore = database.groupCount;
   }
   static IntfId port1(int number) { return IntfId("Ethernet" + std::to_string(number)); }
   // Groups of operations that changed the database since the log was held.
   size_t release() {
      client.log->isHeldIs(false);
      return database.groupCount - groupsBefore;
   }
   void rebuildVlan10() {
      auto const vlan = config->vlanConfigIs(VlanId(10), false);
      vlan->configuredNameIs("servers");
      for (int port = 4; port >= 1; --port)
         vlan->intfIs(port1(port), {.tagged = true});
   }
   TestDatabase database;
   TestDatabase::Client& client = database.client();
   Kem::Ptr<Bridging::Config> config = client.mount<Bridging::Config>("bridging/config", true);
   size_t groupsBefore = 0;
};

TEST_F(NboAttrLogTest, outputOfAConnectionIsFoundByItsName) {
   auto* const out = Kem::NboAttrLog::top()->outManagerSm();
   EXPECT_FALSE(out->socketOutSm("Vorn"));
   out->socketOutSmIs("Vorn", client.log);
   EXPECT_EQ(out->socketOutSm("Vorn"), client.log);
   out->socketOutSmDel("Vorn");
   EXPECT_FALSE(out->socketOutSm("Vorn"));
}

TEST_F(NboAttrLogTest, changesOfOneTurnAreOneBlock) {
   size_t const blocks = client.blocks().size();
   config->hostAgingTimeIs(1);
   config->pausePassThroughIs(true);
   EXPECT_EQ(client.blocks().size(), blocks);
   client.flush();
   EXPECT_EQ(client.blocks().size(), blocks + 1);
   client.flush();
   EXPECT_EQ(client.blocks().size(), blocks + 1) << "nothing was written since";
}

TEST_F(NboAttrLogTest, largeOutputLeavesInPiecesBeforeTheTurnEnds) {
   size_t const blocks = client.blocks().size();
   auto const vlan = config->vlanConfigIs(VlanId(11), false);
   for (int port = 1; port <= 20000; ++port)
      vlan->intfIs(port1(port), {});
   EXPECT_GT(client.blocks().size(), blocks + 2);
   client.flush();
   EXPECT_TRUE(database.value("bridging/config.vlanConfig[11].intf[Ethernet20000]"));
}

TEST_F(NboAttrLogTest, blockOfNewRecordsOrOfScalarsIsCutToo) {
   size_t const before = client.blocks().size();
   for (uint16_t vlan = 100; vlan < 4000; ++vlan)
      config->newVlanConfig(VlanId(vlan), false);
   for (uint16_t vlan = 100; vlan < 4000; ++vlan)
      config->vlanConfig(VlanId(vlan))->configuredNameIs("a name of some length, as users choose them");
   EXPECT_GT(client.blocks().size(), before + 2);
   for (size_t i = before; i < client.blocks().size(); ++i)
      EXPECT_LT(client.blocks()[i].size(), 65u << 10);
   client.flush();
   EXPECT_TRUE(database.value("bridging/config.vlanConfig[3999]"));
}

TEST_F(NboAttrLogTest, blockIsNotCutBetweenARecordAndItsInputs) {
   // The database refuses inputs that don't come with the creation.
   for (uint16_t vlan = 11; vlan < 4095; ++vlan)
      config->vlanConfigIs(VlanId(vlan), true)->configuredNameIs(std::string(vlan % 97, 'n'));
   client.flush();
   for (uint16_t vlan = 11; vlan < 4095; ++vlan)
      ASSERT_EQ(database.value("bridging/config.vlanConfig[" + std::to_string(vlan) + "].internal"), "\x01");
}

TEST_F(NboAttrLogTest, inputsOfARecordComeBeforeItsCollections) {
   // Of which a block may be cut. A record writes its base first, so a base with a collection can't have inputs
   // in a derived one.
   for (auto const& type : Records::schema().entities) {
      bool hasCollection = false;
      size_t const inherited = type.base ? type.base->attributes.size() : 0;
      for (size_t i = 0; i < type.attributes.size(); ++i) {
         auto const& attribute = type.attributes[i];
         if (i < inherited)
            hasCollection |= attribute.key != nullptr;
         else
            EXPECT_FALSE(hasCollection && attribute.isInput) << type.name << "." << attribute.name;
      }
   }
}

TEST_F(NboAttrLogTest, entityThatStandsNowhereIsNotWritten) {
   auto const loose = Bridging::VlanConfig::make(VlanId(9), false);
   loose->configuredNameIs("loose");
   size_t const blocks = client.blocks().size();
   client.flush();
   EXPECT_EQ(client.blocks().size(), blocks);
}

// --- The held log.

TEST_F(NboAttrLogTest, heldLogWritesNothing) {
   client.log->isHeldIs(true);
   size_t const blocks = client.blocks().size();
   config->hostAgingTimeIs(99);
   config->vlanConfigDel(VlanId(10));
   client.flush();
   EXPECT_EQ(client.blocks().size(), blocks);
   EXPECT_TRUE(database.value("bridging/config.vlanConfig[10]"));
   EXPECT_EQ(release(), 1u);
   EXPECT_FALSE(database.value("bridging/config.vlanConfig[10]"));
}

TEST_F(NboAttrLogTest, recordRemovedAndMadeAgainEqualDisturbsNothing) {
   client.log->isHeldIs(true);
   config->vlanConfigDel(VlanId(10));
   rebuildVlan10();
   EXPECT_EQ(release(), 0u);
}

TEST_F(NboAttrLogTest, recordEmptiedBeforeItWasRemovedIsComparedWithWhatItHeld) {
   // An owner that prepares to die clears what it wrote, and the record is removed only then.
   client.log->isHeldIs(true);
   auto const vlan = config->vlanConfig(VlanId(10));
   vlan->intfDelAll();
   vlan->configuredNameIs("");
   vlan->trunkGroupIs("added", true);
   config->vlanConfigDel(VlanId(10));
   rebuildVlan10();
   EXPECT_EQ(release(), 0u);
}

TEST_F(NboAttrLogTest, onlyWhatDiffersIsSent) {
   client.log->isHeldIs(true);
   config->vlanConfigDel(VlanId(10));
   rebuildVlan10();
   auto const vlan = config->vlanConfig(VlanId(10));
   vlan->intfDel(port1(2));
   vlan->intfIs(port1(3), {.tagged = false});
   vlan->intfIs(port1(5), {.tagged = true});
   config->vlanConfigIs(VlanId(20), true)->configuredNameIs("new");
   uint64_t const operations = client.log->operationsWritten();
   release();
   // Three members; creation, input and name of the new VLAN.
   EXPECT_EQ(client.log->operationsWritten() - operations, 6u);
   EXPECT_FALSE(database.value("bridging/config.vlanConfig[10].intf[Ethernet2]"));
   EXPECT_TRUE(database.value("bridging/config.vlanConfig[10].intf[Ethernet5]"));
   EXPECT_EQ(database.value("bridging/config.vlanConfig[20].configuredName"), std::string("\x03new"));
   EXPECT_EQ(database.value("bridging/config.vlanConfig[20].internal"), std::string("\x01"));
}

TEST_F(NboAttrLogTest, changeAndReturnOfAScalarOrMemberIsNothing) {
   client.log->isHeldIs(true);
   double const before = config->hostAgingTime();
   config->hostAgingTimeIs(1);
   config->hostAgingTimeIs(before);
   auto const vlan = config->vlanConfig(VlanId(10));
   vlan->intfDel(port1(1));
   vlan->intfIs(port1(1), {.tagged = true});
   config->vlanConfigIs(VlanId(30), false);
   config->vlanConfigDel(VlanId(30));
   EXPECT_EQ(release(), 0u);
}

TEST_F(NboAttrLogTest, recordMadeAgainWithAnotherInputIsReplaced) {
   client.log->isHeldIs(true);
   config->vlanConfigDel(VlanId(10));
   config->vlanConfigIs(VlanId(10), true);
   release();
   EXPECT_EQ(database.value("bridging/config.vlanConfig[10].internal"), std::string("\x01"));
   EXPECT_FALSE(database.value("bridging/config.vlanConfig[10].intf[Ethernet1]"));
}

TEST_F(NboAttrLogTest, logFlowsAgainAfterItsRelease) {
   client.log->isHeldIs(true);
   EXPECT_EQ(client.log->heldCount(), 0u);
   config->hostAgingTimeIs(5);
   EXPECT_EQ(client.log->heldCount(), 1u);
   release();
   EXPECT_EQ(client.log->heldCount(), 0u);
   config->pausePassThroughIs(true);
   client.flush();
   EXPECT_EQ(database.value("bridging/config.pausePassThrough"), std::string("\x01"));
}

} // namespace
