#include "Ordel/client/TypedTree.h"

#include "Kem/Activity.h"
#include "Ordel/client/TestDatabase.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanConfig.h"

namespace {

using Bridging::VlanId;
using Ordel::TestDatabase;

struct TypedTreeTest : testing::Test {
   TestDatabase database;
   TestDatabase::Client& writer = database.client();
   TestDatabase::Client& reader = database.client();
};

TEST_F(TypedTreeTest, whatOneClientWritesAnotherReads) {
   auto const out = writer.mount<Bridging::Config>("bridging/config", true);
   auto const in = reader.mount<Bridging::Config>("bridging/config", false);
   auto const vlan = out->vlanConfigIs(VlanId(10), true);
   vlan->configuredNameIs("servers");
   vlan->intfIs(Sulvi::IntfId("Ethernet3/1"), {.tagged = true});
   vlan->trunkGroupIs("blue", true);
   out->hostAgingTimeIs(17.5);
   EXPECT_FALSE(in->vlanConfig(VlanId(10))) << "before the turn has ended";
   writer.flush();

   EXPECT_EQ(in->hostAgingTime(), 17.5);
   auto const seen = in->vlanConfig(VlanId(10));
   ASSERT_TRUE(seen);
   EXPECT_TRUE(seen->internal()) << "a constructor input comes with the creation";
   EXPECT_EQ(seen->configuredName(), Kem::String8("servers"));
   ASSERT_TRUE(seen->intf(Sulvi::IntfId("Ethernet3/1")));
   EXPECT_TRUE(seen->intf(Sulvi::IntfId("Ethernet3/1"))->tagged);
   EXPECT_TRUE(seen->trunkGroup("blue"));
   EXPECT_EQ(seen->fullName(), "bridging/config.vlanConfig[10]");

   vlan->intfDel(Sulvi::IntfId("Ethernet3/1"));
   writer.flush();
   EXPECT_FALSE(seen->intf(Sulvi::IntfId("Ethernet3/1")));
   out->vlanConfigDel(VlanId(10));
   writer.flush();
   EXPECT_FALSE(in->vlanConfig(VlanId(10)));
}

TEST_F(TypedTreeTest, mountBringsWhatStands) {
   auto const out = writer.mount<Bridging::Config>("bridging/config", true);
   for (uint16_t v = 1; v <= 200; ++v)
      out->vlanConfigIs(VlanId(v), false)->intfIs(Sulvi::IntfId("Ethernet1"), {});
   writer.flush();
   auto const in = reader.mount<Bridging::Config>("bridging/config", false);
   EXPECT_EQ(in->vlanConfig().size(), 200u);
   EXPECT_TRUE(in->vlanConfig(VlanId(200))->intf(Sulvi::IntfId("Ethernet1")));
}

TEST_F(TypedTreeTest, whatComesInDoesNotGoBack) {
   auto const out = writer.mount<Bridging::Config>("bridging/config", true);
   reader.mount<Bridging::Config>("bridging/config", true);
   out->pausePassThroughIs(true);
   writer.flush();
   reader.flush();
   EXPECT_TRUE(reader.blocks().empty());
}

TEST_F(TypedTreeTest, readOnlyInstanceRefusesMutators) {
   auto const in = reader.mount<Bridging::Config>("bridging/config", false);
   try {
      in->hostAgingTimeIs(1);
      FAIL() << "the mutator was let through";
   } catch (Kem::Exception const& exception) {
      EXPECT_STREQ(exception.what(), "attempting to modify a const instance");
   }
   EXPECT_NE(in->hostAgingTime(), 1);
}

TEST_F(TypedTreeTest, entityMountedForWritingStaysSoInsideAReadOnlyDirectory) {
   auto const eth = writer.mount<Bridging::Input::Config>("bridging/input/config/eth", true);
   auto const dir = writer.mount<Kem::Dir>("bridging/input/config", false);
   EXPECT_EQ(dir->entity<Bridging::Input::Config>("eth"), eth);
   eth->switchIntfConfigPriorityIs(10);
   auto const cli = dir->entity<Bridging::Input::CliConfig>("cli");
   ASSERT_TRUE(cli);
   EXPECT_THROW(cli->vlanConfigPriorityIs(1), Kem::Exception);
   EXPECT_EQ(writer.mount<Bridging::Input::Config>("bridging/input/config/eth", true), eth);
}

// Follows a directory of inputs and writes down what each new one looks like when it first appears.
struct KemInputDir final : Kem::Dir::NotifieeConst {
   KemInputDir() : NotifieeConst(this) {}
   void onEntityPtr(Kem::Name const& name) override {
      auto const input = notifier()->entity<Bridging::Input::Config>(name);
      seen.push_back(name.str() +
                     (input ? " priority " + std::to_string(input->vlanConfigPriority()) : " gone"));
   }
   std::vector<std::string> seen;
};

TEST_F(TypedTreeTest, newEntityOfAFollowedDirectoryAppearsWithItsDefaultsFirst) {
   // A publisher that creates its input and raises the priorities in one go is
   // served as if it had done so in two.
   auto const dir = reader.mount<Kem::Dir>("bridging/input/config", false);
   reader.tree.runsQueueOnCreationIs(true);
   KemInputDir reactor;
   reactor.notifierIs(dir);

   auto const writerDir = writer.mount<Kem::Dir>("bridging/input/config", true);
   auto const mvrp = Bridging::Input::Config::make();
   mvrp->nameIs("mvrp");
   mvrp->vlanConfigPriorityIs(60);
   mvrp->newVlanConfig(VlanId(5))->configuredNameIs("five");
   writerDir->entityPtrIs(mvrp);
   writer.flush();

   EXPECT_EQ(reactor.seen, std::vector<std::string>{"mvrp priority 0"});
   auto const seen = dir->entity<Bridging::Input::Config>("mvrp");
   EXPECT_EQ(seen->vlanConfigPriority(), 60u);
   ASSERT_TRUE(seen->vlanConfig(VlanId(5)));
   EXPECT_EQ(seen->vlanConfig(VlanId(5))->configuredName(), Kem::String8("five"));

   writerDir->entityPtrDel("mvrp");
   writer.flush();
   Kem::activityManager()->runUntilIdle();
   EXPECT_EQ(reactor.seen.back(), "mvrp gone");
}

TEST_F(TypedTreeTest, referenceIsNullWhileItsTargetIsNotThere) {
   auto const cliOut = writer.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", true);
   auto const dirOut = writer.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", true);
   auto const record = cliOut->newSwitchIntfConfig(Sulvi::IntfId("Ethernet1"));
   dirOut->switchIntfConfigIs(record);
   writer.flush();
   EXPECT_TRUE(database.value("bridging/switchIntfConfig.switchIntfConfig[Ethernet1]"));

   // The reader mounts the reference before its target.
   auto const dir = reader.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", false);
   EXPECT_FALSE(dir->switchIntfConfig(Sulvi::IntfId("Ethernet1")));
   auto const cli = reader.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", false);
   ASSERT_TRUE(dir->switchIntfConfig(Sulvi::IntfId("Ethernet1")));
   EXPECT_EQ(dir->switchIntfConfig(Sulvi::IntfId("Ethernet1")),
             cli->switchIntfConfig(Sulvi::IntfId("Ethernet1")));

   cliOut->switchIntfConfigDel(Sulvi::IntfId("Ethernet1"));
   writer.flush();
   EXPECT_FALSE(dir->switchIntfConfig(Sulvi::IntfId("Ethernet1")));
   auto const again = cliOut->newSwitchIntfConfig(Sulvi::IntfId("Ethernet1"));
   writer.flush();
   EXPECT_TRUE(dir->switchIntfConfig(Sulvi::IntfId("Ethernet1")))
       << "a target has come back under the selector";
}

TEST_F(TypedTreeTest, referenceFindsItsTargetWhateverBytesTheKeyHas) {
   auto const cliOut = writer.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", true);
   auto const dirOut = writer.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", true);
   auto const cli = reader.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", false);
   auto const dir = reader.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", false);
   for (char const* key : {"", "a]b", "\"quoted\"", "a\\b", "tab\t", "a.b/c[d"}) {
      dirOut->switchIntfConfigIs(cliOut->newSwitchIntfConfig(Sulvi::IntfId(key)));
      writer.flush();
      auto const target = cli->switchIntfConfig(Sulvi::IntfId(key));
      ASSERT_TRUE(target) << key;
      EXPECT_EQ(dir->switchIntfConfig(Sulvi::IntfId(key)), target) << target->fullName();
   }
}

TEST_F(TypedTreeTest, recordThatNoReferenceNamesLooksNothingUp) {
   // Whether the references came with a mount, as after a restart, or not.
   auto const cliOut = writer.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", true);
   auto const dirOut = writer.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", true);
   for (int port = 1; port <= 100; ++port)
      dirOut->switchIntfConfigIs(
          cliOut->newSwitchIntfConfig(Sulvi::IntfId("Ethernet" + std::to_string(port))));
   cliOut->switchIntfConfigDel(Sulvi::IntfId("Ethernet100")); // one has no target
   writer.flush();
   for (bool const isWritable : {true, false}) {
      auto& restarted = database.client();
      auto const dir =
          restarted.mount<Bridging::SwitchIntfConfigDir>("bridging/switchIntfConfig", isWritable);
      restarted.mount<Bridging::Input::CliConfig>("bridging/input/config/cli", false);
      ASSERT_EQ(dir->switchIntfConfig().size(), 99u);
      uint64_t const before = restarted.tree.references().lookupCount();
      size_t const numbers = restarted.tree.nodeCount();
      for (uint16_t vlan = isWritable ? 1 : 101; vlan <= (isWritable ? 100 : 200); ++vlan) {
         cliOut->newVlanConfig(VlanId(vlan));
         writer.flush();
      }
      EXPECT_EQ(restarted.tree.references().lookupCount(), before);
      EXPECT_EQ(restarted.tree.nodeCount(), numbers);
   }
}

TEST_F(TypedTreeTest, operationsThatDoNotFitTheSchemaAreTold) {
   auto const in = reader.mount<Bridging::Config>("bridging/config", false);
   Wire::Writer bad;
   bad.u8(1);
   bad.u32(in->nodeNumber());
   bad.u8(0);
   bad.u8(2); // set
   bad.u8(61);
   EXPECT_NE(reader.take(bad.view()), "");
   EXPECT_NE(reader.take("\x09"), "");
   EXPECT_EQ(reader.take(""), "");
}

} // namespace
