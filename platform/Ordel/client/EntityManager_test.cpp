// The client over its real connection: mounts, what becomes of what was mounted, and both sides' values when
// several write. The bytes are carried by the test (SteppedDatabase.h), so each order of events can be had.
#include "Ordel/client/EntityManager.h"

#include "Kem/Dir.h"
#include "Kem/Trace.h"
#include "Ordel/client/SteppedDatabase.h"
#include "Ordel/wire/Messages.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/HwCapabilities.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanConfig.h"

#include <gmock/gmock.h>

namespace {

using Bridging::SwitchIntfConfigDir;
using Bridging::VlanId;
using Bridging::Input::Config;
using Ordel::CountingMounter;
using Ordel::DifferenceCount;
using Ordel::SteppedDatabase;
using Sulvi::IntfId;
using testing::Contains;
using testing::HasSubstr;

struct EntityManagerTest : testing::Test {
   // Without the places of the schema that the tests delete: nobody may delete those. They are made by somebody
   // who has gone again.
   static Records::Schema const& schema() {
      static std::vector<Records::Place> const places = [] {
         std::vector<Records::Place> kept;
         for (auto const& place : Records::schema().places)
            if (!place.path.starts_with(SteppedDatabase::inputPath) &&
                place.path != SteppedDatabase::configPath && place.path != "bridging/hwcapabilities")
               kept.push_back(place);
         return kept;
      }();
      static Records::Schema const schema = [] {
         auto copy = Records::schema();
         copy.places = places;
         return copy;
      }();
      return schema;
   }
   EntityManagerTest() {
      auto& maker = database.client("maker");
      maker.mount<Bridging::Config>("wc", SteppedDatabase::configPath);
      maker.mount<Bridging::HwCapabilities>("wc", "bridging/hwcapabilities");
      maker.mount<Bridging::Input::CliConfig>("wc", std::string(SteppedDatabase::inputPath) + "/cli");
      maker.hangUp();
      lines().clear();
      Kem::traceSettingIs("OrdelClient/0-9,OrdelMount/0-9");
      Kem::traceToStandardErrorIs(false);
      Kem::traceSinkIs([](Kem::TraceLine const& line) { lines().emplace_back(line.text); });
   }
   ~EntityManagerTest() override {
      Kem::traceSinkIs(nullptr);
      Kem::traceToStandardErrorIs(true);
      Kem::traceSettingIs("");
   }
   static std::vector<std::string>& lines() {
      static std::vector<std::string> all;
      return all;
   }
   // Deletes an entity of a directory, as an operator with a tool of his own does.
   void erase(std::string const& directory, char const* name) {
      auto const& tree = database.server->tree();
      ASSERT_TRUE(tree.find(directory));
      Wire::Writer block;
      tree.encodeAt(*tree.find(directory), block);
      block.u8(static_cast<uint8_t>(Ordel::Op::erase));
      block.u8(0);
      block.string(name);
      auto& client = operatorClient();
      database.server->write(*client.atServer, 0, 0, 0, block.view());
      EXPECT_FALSE(tree.find(directory + "/" + name)) << "it can't be deleted";
   }
   SteppedDatabase::Client& operatorClient() {
      if (!operator_)
         operator_ = &database.client("operator");
      return *operator_;
   }
   template <class T>
   void expectSame(char const* path, Kem::Ptr<T> const& record) {
      auto const standing = database.contents<T>(path);
      ASSERT_TRUE(standing);
      EXPECT_EQ(DifferenceCount::between(*standing, *record), std::vector<std::string>{});
   }

   SteppedDatabase database{std::make_unique<Ordel::Tree>(schema(), 1)};
   SteppedDatabase::Client& agent = database.client("agent");
   SteppedDatabase::Client* operator_ = nullptr;
};

// --- Mounts.

TEST_F(EntityManagerTest, connectedClientKnowsTheSystemsName) {
   EXPECT_TRUE(agent.manager->isConnected());
   EXPECT_EQ(agent.manager->systemName(), "switch1");
   EXPECT_EQ(agent.manager->name(), "agent");
}

TEST_F(EntityManagerTest, groupIsCompleteOnceWhenAllItsMountsHaveEnded) {
   auto const mounter = Kem::makePtr<CountingMounter>();
   auto const group = agent.manager->getMountGroup(*mounter);
   group->doMount({"r", "Bridging::Config", SteppedDatabase::configPath});
   group->doMount({"r", "Bridging::Config", "no/such/place"});
   group->doMount({"r", "Kem::Dir", SteppedDatabase::configPath});
   group->doClose(false, "three", 0.0);
   EXPECT_EQ(mounter->completeCount, 0u);
   database.settle();
   EXPECT_EQ(mounter->completeCount, 1u);
   EXPECT_EQ(mounter->statusCount, 3u);
   EXPECT_EQ(mounter->status.done, 1u);
   EXPECT_EQ(mounter->status.failed, 2u);
   EXPECT_THAT(lines(), Contains(HasSubstr("mount of no/such/place as Bridging::Config failed")));
}

TEST_F(EntityManagerTest, getEntityAnswersForWhatIsMountedAndBelow) {
   agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   EXPECT_TRUE(agent.manager->getEntity(SteppedDatabase::inputPath));
   EXPECT_TRUE(agent.manager->getEntity(std::string(SteppedDatabase::inputPath) + "/cli"))
       << "below a mounted directory";
   EXPECT_FALSE(agent.manager->getEntity("bridging/input")) << "on the way only";
   EXPECT_FALSE(agent.manager->getEntity(SteppedDatabase::configPath));
}

TEST_F(EntityManagerTest, writableMountMakesWhatIsAbsent) {
   erase("bridging", "config");
   EXPECT_TRUE(agent.mount<Bridging::Config>("w", SteppedDatabase::configPath));
   EXPECT_TRUE(database.server->tree().find(SteppedDatabase::configPath));
}

TEST_F(EntityManagerTest, readOnlyMountOfWhatIsAbsentIsNull) {
   erase("bridging", "hwcapabilities");
   EXPECT_FALSE(agent.mount<Bridging::HwCapabilities>("r", "bridging/hwcapabilities"));
   EXPECT_FALSE(database.server->tree().find("bridging/hwcapabilities"));
}

// --- What was mounted goes.

TEST_F(EntityManagerTest, writtenEntityThatIsDeletedIsPutBackWhole) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   config->hostAgingTimeIs(17);
   config->newVlanConfig(VlanId(10), true)->intfIs(IntfId("Ethernet1"), {.tagged = true});
   database.settle();
   erase("bridging", "config");
   database.settle();
   EXPECT_THAT(lines(), Contains(HasSubstr("bridging/config, which is mounted, was deleted")));
   ASSERT_TRUE(database.server->tree().find(SteppedDatabase::configPath));
   expectSame(SteppedDatabase::configPath, config);
   EXPECT_EQ(agent.manager->getEntity(SteppedDatabase::configPath), config) << "one object all along";
   // No ghost: what is written from now on arrives, and what others write too.
   config->hostAgingTimeIs(18);
   database.settle();
   expectSame(SteppedDatabase::configPath, config);
   auto const other = operatorClient().mount<Bridging::Config>("w", SteppedDatabase::configPath);
   other->hostAgingTimeIs(19);
   database.settle();
   EXPECT_EQ(config->hostAgingTime(), 19);
}

TEST_F(EntityManagerTest, clientHasNotSettledWhileItPutsSomethingBack) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   database.settle();
   EXPECT_TRUE(Kem::activityManager()->isSettled());
   erase("bridging", "config");
   database.toClient(agent);
   database.turn();
   EXPECT_FALSE(Kem::activityManager()->isSettled());
   database.settle();
   EXPECT_TRUE(Kem::activityManager()->isSettled());
}

TEST_F(EntityManagerTest, clientSettlesAlsoWhereSomethingCanNotBePutBack) {
   auto const eth = std::string(SteppedDatabase::inputPath) + "/eth";
   agent.mount<Config>("wc", eth);
   database.settle();
   erase(SteppedDatabase::inputPath, "eth");
   // Before the agent hears of it, another has made something else there.
   auto const made = Kem::Ptr<CountingMounter>(Kem::makePtr<CountingMounter>());
   auto const group = operatorClient().manager->getMountGroup(*made);
   group->doMount({"wc", "Kem::Dir", eth});
   group->doClose(true, "test", 0.0);
   while (database.toServer(operatorClient())) {
   }
   ASSERT_TRUE(database.server->tree().find(eth));
   database.settle();
   EXPECT_THAT(lines(), Contains(HasSubstr(eth + " can't be mounted again: ")));
   EXPECT_TRUE(Kem::activityManager()->isSettled());
}

TEST_F(EntityManagerTest, whatIsWrittenWhileAnEntityIsAbsentIsNotLost) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   database.settle();
   erase("bridging", "config");
   config->hostAgingTimeIs(1); // on its way when the deletion arrives
   SteppedDatabase::turn();
   database.toClient(agent);
   database.turn();
   config->pausePassThroughIs(true); // while it is put back
   database.settle();
   expectSame(SteppedDatabase::configPath, config);
}

TEST_F(EntityManagerTest, writtenEntityInsideAFollowedDirectoryIsPutBackThereToo) {
   auto const eth = agent.mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/eth");
   auto const inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   eth->switchIntfConfigPriorityIs(10);
   database.settle();
   erase(SteppedDatabase::inputPath, "eth");
   database.settle();
   EXPECT_EQ(inputs->entity<Config>("eth"), eth);
   EXPECT_EQ(database.contents<Config>(std::string(SteppedDatabase::inputPath) + "/eth")
                 ->switchIntfConfigPriority(),
             10u);
   eth->switchIntfConfigPriorityIs(11);
   database.settle();
   EXPECT_EQ(database.contents<Config>(std::string(SteppedDatabase::inputPath) + "/eth")
                 ->switchIntfConfigPriority(),
             11u);
}

TEST_F(EntityManagerTest, writtenEntityThatIsDeletedWhileTheLogIsHeldIsPutBackToo) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const vlan = config->newVlanConfig(VlanId(10), false);
   vlan->configuredNameIs("ten");
   database.settle();
   agent.manager->attributeLog()->isHeldIs(true);
   vlan->configuredNameIs("other");
   config->newVlanConfig(VlanId(11), false);
   erase("bridging", "config");
   database.settle();
   vlan->configuredNameIs("ten");
   agent.manager->attributeLog()->isHeldIs(false);
   database.settle();
   expectSame(SteppedDatabase::configPath, config);
}

TEST_F(EntityManagerTest, readEntityThatIsDeletedIsEmptyUntilItExistsAgain) {
   auto const out = operatorClient().mount<Bridging::Config>("w", SteppedDatabase::configPath);
   out->hostAgingTimeIs(17);
   for (uint16_t vlan = 10; vlan < 30; ++vlan)
      out->newVlanConfig(VlanId(vlan), false);
   for (uint16_t vlan = 10; vlan < 30; ++vlan)
      out->vidToFidMapIs(VlanId(vlan), Bridging::Fid(vlan));
   auto const config = agent.mount<Bridging::Config>("r", SteppedDatabase::configPath);
   ASSERT_EQ(config->hostAgingTime(), 17);
   operatorClient().hangUp(); // he would put it back
   operator_ = nullptr;
   auto& other = database.client("other");
   erase("bridging", "config");
   database.settle();
   EXPECT_EQ(config->hostAgingTime(), Bridging::Config::make()->hostAgingTime());
   EXPECT_TRUE(config->vlanConfig().empty());
   EXPECT_TRUE(config->vidToFidMap().empty());
   EXPECT_THAT(lines(), Contains(HasSubstr("it is taken as empty until it exists again")));

   auto const again = other.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   again->hostAgingTimeIs(18);
   database.settle();
   EXPECT_EQ(config->hostAgingTime(), 18) << "what followed the old one follows the new one";
}

TEST_F(EntityManagerTest, whatAReadEntityHeldIsReferredToNoMoreWhenItIsDeleted) {
   auto const path = std::string(SteppedDatabase::inputPath) + "/mvrp";
   auto const port = operatorClient().mount<Config>("wc", path)->newSwitchIntfConfig(IntfId("Ethernet1"));
   operatorClient().mount<SwitchIntfConfigDir>("w", SteppedDatabase::chosenPath)->switchIntfConfigIs(port);
   auto const mvrp = agent.mount<Config>("r", path);
   auto const chosen = agent.mount<SwitchIntfConfigDir>("r", SteppedDatabase::chosenPath);
   ASSERT_TRUE(chosen->switchIntfConfig(IntfId("Ethernet1")));
   operatorClient().hangUp();
   operator_ = nullptr;
   erase(SteppedDatabase::inputPath, "mvrp");
   database.settle();
   EXPECT_TRUE(mvrp->switchIntfConfig().empty());
   EXPECT_FALSE(chosen->switchIntfConfig(IntfId("Ethernet1")));
}

TEST_F(EntityManagerTest, readEntityInsideAFollowedDirectoryComesBackAsTheSameObject) {
   operatorClient().mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/mvrp");
   auto const mvrp = agent.mount<Config>("r", std::string(SteppedDatabase::inputPath) + "/mvrp");
   auto const inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   ASSERT_EQ(inputs->entity<Config>("mvrp"), mvrp);
   operatorClient().hangUp();
   operator_ = nullptr;
   erase(SteppedDatabase::inputPath, "mvrp");
   database.settle();
   EXPECT_FALSE(inputs->entityPtr("mvrp"));
   auto const again = operatorClient().mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/mvrp");
   again->vlanConfigPriorityIs(60);
   database.settle();
   EXPECT_EQ(inputs->entity<Config>("mvrp"), mvrp);
   EXPECT_EQ(mvrp->vlanConfigPriority(), 60u);
}

TEST_F(EntityManagerTest, directoryThatIsDeletedWithWhatIsMountedInItComesBackAsItWas) {
   auto const eth = agent.mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/eth");
   auto const inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   eth->switchIntfConfigPriorityIs(10);
   operatorClient().mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/mvrp");
   operatorClient().hangUp();
   operator_ = nullptr;
   database.settle();
   erase("bridging/input", "config");
   database.settle();
   EXPECT_EQ(agent.manager->getEntity(SteppedDatabase::inputPath), inputs);
   EXPECT_EQ(inputs->entity<Config>("eth"), eth) << "put back";
   EXPECT_FALSE(inputs->entityPtr("mvrp")) << "nobody has put it back";
   operatorClient().mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/mvrp");
   database.settle();
   EXPECT_TRUE(inputs->entityPtr("mvrp")) << "the directory is followed as before";
   expectSame(SteppedDatabase::inputPath, inputs);
}

// --- The end of the database.

TEST_F(EntityManagerTest, endOfTheDatabaseWithinAHandlerWaitsForTheLoop) {
   // 1. A handler writes more than a block, so that the log leaves while the handler runs.
   // 2. The database has ended, and what it sent before is still to be read: it has a new input in it, which
   //    would run the queue.
   struct KemConfig final : Bridging::Config::NotifieeConst {
      explicit KemConfig(std::function<void()> f) : NotifieeConst(this), then(std::move(f)) {}
      void onHostAgingTime() override { then(); }
      std::function<void()> then;
   };
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   auto const theirs = operatorClient().mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const theirInputs = operatorClient().mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   bool hasRun = false;
   KemConfig reactor([&] {
      auto const made = Config::make();
      made->nameIs("mvrp");
      theirInputs->entityPtrIs(made);
      operatorClient().manager->attributeLog()->flush();
      database.toServer(operatorClient());
      EXPECT_TRUE(database.toClient(agent));
      agent.hangUp();
      for (uint16_t vlan = 1; vlan <= 4000; ++vlan)
         config->newVlanConfig(VlanId(vlan), false)->configuredNameIs("a name that fills the log");
      EXPECT_GE(agent.manager->attributeLog()->socketFd(), 0) << "it can still be measured";
      EXPECT_EQ(agent.closedCount, 0u);
      EXPECT_FALSE(inputs->entityPtr("mvrp"));
      hasRun = true;
   });
   reactor.notifierIs(config);
   theirs->hostAgingTimeIs(5);
   operatorClient().manager->attributeLog()->flush();
   database.toServer(operatorClient());
   database.toClient(agent);
   database.turn();
   ASSERT_TRUE(hasRun);
   database.turn();
   database.turn();
   EXPECT_EQ(agent.closedCount, 1u);
   EXPECT_TRUE(inputs->entityPtr("mvrp")) << "what it sent before its end";
}

// --- Two writers, one value.

struct TwoWritersTest : EntityManagerTest {
   SteppedDatabase::Client& other = database.client("other");
};

TEST_F(TwoWritersTest, writeOfAHandlerWithinAFrameMeetsTheRestOfTheFrame) {
   // 1. Another client creates an input and sets the aging time, in one frame.
   // 2. The agent's reactor runs between the two and sets the aging time as well.
   // 3. The rest of the frame overwrites that here; at the database the agent's write is the later one.
   struct KemInputs final : Kem::Dir::NotifieeConst {
      explicit KemInputs(Kem::Ptr<Bridging::Config> c) : NotifieeConst(this), config(std::move(c)) {}
      void onEntityPtr(Kem::Name const&) override { config->hostAgingTimeIs(5); }
      Kem::Ptr<Bridging::Config> config;
   };
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   KemInputs reactor(config);
   reactor.notifierIs(agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath));
   auto const otherConfig = other.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const otherInputs = other.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);

   auto const made = Config::make();
   made->nameIs("mvrp");
   otherInputs->entityPtrIs(made);
   otherConfig->hostAgingTimeIs(6);
   database.settle();
   expectSame(SteppedDatabase::configPath, config);
   expectSame(SteppedDatabase::configPath, otherConfig);
}

TEST_F(TwoWritersTest, changeByAnotherInWhatTheProcessWritesIsReportedOnceItIsInTheTree) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   auto const theirs = other.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const theirInputs = other.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   std::vector<std::string> seen;
   agent.manager->foreignChangeHookIs([&](Kem::Entity const& changed) {
      auto const* const vlan = dynamic_cast<Bridging::VlanConfig const*>(&changed);
      seen.push_back(vlan ? vlan->configuredName().str() : std::to_string(config->vlanConfig().size()));
   });
   config->newVlanConfig(VlanId(7), false)->configuredNameIs("own");
   auto const made = Config::make();
   made->nameIs("mvrp");
   theirInputs->entityPtrIs(made);
   database.settle();
   EXPECT_EQ(seen, std::vector<std::string>{}) << "its own writes, and what it only reads";
   theirs->newVlanConfig(VlanId(8), false);
   database.settle();
   theirs->vlanConfig(VlanId(7))->configuredNameIs("theirs");
   database.settle();
   theirs->vlanConfig(VlanId(7))->intfIs("Ethernet1", {});
   database.settle();
   theirs->vlanConfigDel(VlanId(8));
   database.settle();
   EXPECT_EQ(seen, (std::vector<std::string>{"2", "theirs", "theirs", "1"}));
}

TEST_F(TwoWritersTest, valueThatIsPutBackWhileTheLogIsHeldMeetsAnothersWrite) {
   auto const config = agent.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   auto const otherConfig = other.mount<Bridging::Config>("w", SteppedDatabase::configPath);
   config->hostAgingTimeIs(1);
   database.settle();
   agent.manager->attributeLog()->isHeldIs(true);
   config->hostAgingTimeIs(2);
   otherConfig->hostAgingTimeIs(3);
   database.settle();
   config->hostAgingTimeIs(1); // as it was when the log was held, but no longer in the database
   agent.manager->attributeLog()->isHeldIs(false);
   database.settle();
   expectSame(SteppedDatabase::configPath, config);
   EXPECT_EQ(otherConfig->hostAgingTime(), 1);
}

TEST_F(TwoWritersTest, mountDoesNotOvertakeWhatWasWrittenBefore) {
   auto const inputs = agent.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   auto const made = Config::make();
   made->nameIs("mvrp");
   inputs->entityPtrIs(made);
   database.settle();
   made->vlanConfigPriorityIs(7);
   // Mounted by its own path in the same turn.
   auto const mounter = Kem::makePtr<CountingMounter>();
   auto const group = agent.manager->getMountGroup(*mounter);
   group->doMount({"w", "Bridging::Input::Config", std::string(SteppedDatabase::inputPath) + "/mvrp"});
   uint64_t const before = agent.manager->attributeLog()->bytesWritten();
   group->doClose(false, "", 0.0);
   EXPECT_GT(agent.manager->attributeLog()->bytesWritten(), before) << "the write left before the mount";
   database.settle();
   EXPECT_EQ(made->vlanConfigPriority(), 7u);
   expectSame((std::string(SteppedDatabase::inputPath) + "/mvrp").c_str(), made);
}

TEST_F(TwoWritersTest, directoryEntityMadeAgainWhileTheLogWasHeldIsStillReachedByOthers) {
   auto const inputs = agent.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   auto const make = [&] {
      auto const made = Config::make();
      made->nameIs("mvrp");
      made->vlanConfigPriorityIs(7);
      inputs->entityPtrIs(made);
      return made;
   };
   make();
   database.settle();
   agent.manager->attributeLog()->isHeldIs(true);
   inputs->entityPtrDel("mvrp");
   auto const again = make();
   agent.manager->attributeLog()->isHeldIs(false);
   database.settle();
   auto const theirs = other.mount<Config>("w", std::string(SteppedDatabase::inputPath) + "/mvrp");
   theirs->vlanConfigPriorityIs(8);
   database.settle();
   EXPECT_EQ(again->vlanConfigPriority(), 8u);
}

// 1. Another deletes an entity of the directory.
// 2. Before the agent hears of that, it replaces the entity by one of its own.
TEST_F(TwoWritersTest, deletionOfAnEarlierEntityLeavesTheOneThatWasMadeMeanwhile) {
   auto const inputs = agent.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   auto const make = [&] {
      auto const made = Config::make();
      made->nameIs("mvrp");
      inputs->entityPtrIs(made);
      return made;
   };
   make();
   auto const otherInputs = other.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   otherInputs->entityPtrDel("mvrp");
   database.turn();
   ASSERT_TRUE(database.toServer(other));
   ASSERT_TRUE(database.toClient(agent));
   inputs->entityPtrDel("mvrp");
   auto const again = make();
   database.settle();
   EXPECT_EQ(inputs->entityPtr("mvrp"), again);
   again->vlanConfigPriorityIs(7);
   database.settle();
   expectSame(SteppedDatabase::inputPath, inputs);
   EXPECT_EQ(otherInputs->entity<Config>("mvrp")->vlanConfigPriority(), 7u);
}

TEST_F(TwoWritersTest, directoryEntityRemovedWhileTheLogWasHeldGoes) {
   auto const inputs = agent.mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   auto const made = Config::make();
   made->nameIs("mvrp");
   inputs->entityPtrIs(made);
   database.settle();
   agent.manager->attributeLog()->isHeldIs(true);
   inputs->entityPtrDel("mvrp");
   agent.manager->attributeLog()->isHeldIs(false);
   database.settle();
   EXPECT_FALSE(database.server->tree().find(std::string(SteppedDatabase::inputPath) + "/mvrp"));
}

// --- References of what the process writes, over a restart.

struct RestartedWriterTest : EntityManagerTest {
   // The publisher's port, chosen by the agent; and then the agent's process ends.
   RestartedWriterTest() {
      mvrp->newSwitchIntfConfig(IntfId("Ethernet1"));
      mvrp->newSwitchIntfConfig(IntfId("Ethernet2"));
      database.settle();
      inputs = agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
      dir = agent.mount<SwitchIntfConfigDir>("w", SteppedDatabase::chosenPath);
      for (char const* port : {"Ethernet1", "Ethernet2"})
         dir->switchIntfConfigIs(inputs->entity<Config>("mvrp")->switchIntfConfig(IntfId(port)));
      database.settle();
      agent.hangUp();
   }
   void restart() {
      again = &database.client("again");
      // Before its target, as the agent mounts it.
      dir = again->mount<SwitchIntfConfigDir>("w", SteppedDatabase::chosenPath);
      inputs = again->mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   }
   bool isInDatabase(char const* port) {
      auto const& tree = database.server->tree();
      Wire::Writer key;
      IntfId(port).encode(key);
      return tree
          .member(*tree.find(SteppedDatabase::chosenPath), SwitchIntfConfigDir::kSwitchIntfConfig, key.view())
          .has_value();
   }
   SteppedDatabase::Client& publisher = database.client("publisher");
   Kem::Ptr<Config> mvrp = publisher.mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/mvrp");
   SteppedDatabase::Client* again = nullptr;
   Kem::Ptr<SwitchIntfConfigDir> dir;
   Kem::Ptr<Kem::Dir> inputs;
};

TEST_F(RestartedWriterTest, choiceOfTheProcessIsNotUndoneByUnrelatedRecords) {
   // 1. The agent has been restarted: its choice came with the mount.
   // 2. The record that it had chosen is deleted; it chooses another.
   // 3. Somebody makes an unrelated VLAN.
   restart();
   auto const other = publisher.mount<Config>("wc", std::string(SteppedDatabase::inputPath) + "/other");
   other->newSwitchIntfConfig(IntfId("Ethernet1"));
   database.settle();
   mvrp->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   auto const choice = inputs->entity<Config>("other")->switchIntfConfig(IntfId("Ethernet1"));
   dir->switchIntfConfigIs(choice);
   database.settle();
   mvrp->newVlanConfig(VlanId(5));
   database.settle();
   EXPECT_EQ(dir->switchIntfConfig(IntfId("Ethernet1")), choice);
   EXPECT_TRUE(isInDatabase("Ethernet1"));
}

TEST_F(RestartedWriterTest, whatTheProcessDeletesLeavesTheDatabase) {
   restart();
   mvrp->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   EXPECT_TRUE(dir->switchIntfConfig(IntfId("Ethernet1"))) << "the process says when it goes";
   dir->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   EXPECT_FALSE(isInDatabase("Ethernet1"));
}

TEST_F(RestartedWriterTest, referenceWhoseTargetWentMeanwhileIsTakenAwayOnDemand) {
   mvrp->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   restart();
   EXPECT_FALSE(dir->switchIntfConfig(IntfId("Ethernet1")));
   EXPECT_TRUE(dir->switchIntfConfig(IntfId("Ethernet2")));
   EXPECT_TRUE(isInDatabase("Ethernet1"));
   again->manager->danglingReferencesDel();
   database.settle();
   EXPECT_FALSE(isInDatabase("Ethernet1"));
   EXPECT_TRUE(isInDatabase("Ethernet2"));
}

TEST_F(RestartedWriterTest, itIsTakenAwayByTheReleaseOfAHeldLog) {
   mvrp->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   restart();
   again->manager->attributeLog()->isHeldIs(true);
   again->manager->danglingReferencesDel();
   database.settle();
   EXPECT_TRUE(isInDatabase("Ethernet1"));
   again->manager->attributeLog()->isHeldIs(false);
   database.settle();
   EXPECT_FALSE(isInDatabase("Ethernet1"));
}

TEST_F(RestartedWriterTest, placeThatWasSetAndDeletedWhileTheLogIsHeldLeavesTheDatabase) {
   mvrp->switchIntfConfigDel(IntfId("Ethernet1"));
   database.settle();
   restart();
   again->manager->attributeLog()->isHeldIs(true);
   auto const own = Bridging::Input::SwitchIntfConfig::make(IntfId("Ethernet1"));
   dir->switchIntfConfigIs(own);
   dir->switchIntfConfigDel(IntfId("Ethernet1"));
   again->manager->attributeLog()->isHeldIs(false);
   database.settle();
   EXPECT_FALSE(isInDatabase("Ethernet1"));
}

// --- Settling

// An agent that is asked as it connects once answered before it knew what it had to work on.
TEST_F(EntityManagerTest, probeIsNotAnsweredWhileMountsAreAwaited) {
   Ordel::ServerClient& asking = database.server->connect({});
   Ordel::FrameBuffer frames;
   encode(frames, Ordel::Message::Hello{.fingerprint = Records::schema().fingerprint, .name = "asking"});
   encode(frames, Ordel::Message::Settle{.request = 1, .agent = agent.manager->name()});
   asking.receive(frames.view());
   asking.consumed(asking.output().size()); // the welcome
   auto const mounter = Kem::makePtr<CountingMounter>();
   auto const group = agent.manager->getMountGroup(*mounter);
   group->doMount({"r", "Bridging::Config", SteppedDatabase::configPath});
   group->doClose(true, "test", 0.0);
   database.toClient(agent);
   Kem::activityManager()->runUntilIdle();
   database.toServer(agent);
   asking.fill();
   EXPECT_EQ(asking.output(), "");
   database.settle();
   EXPECT_EQ(mounter->completeCount, 1u);
   asking.fill();
   EXPECT_NE(asking.output(), "");
   database.server->disconnect(asking);
}

// --- What is kept.

TEST_F(EntityManagerTest, inputsThatComeAndGoLeaveNothingBehind) {
   agent.mount<Kem::Dir>("ri", SteppedDatabase::inputPath);
   auto const inputs = operatorClient().mount<Kem::Dir>("wi", SteppedDatabase::inputPath);
   size_t const agents = agent.manager->nodeCount(), operators = operatorClient().manager->nodeCount();
   for (int i = 0; i < 100; ++i) {
      auto const made = Config::make();
      made->nameIs("input" + std::to_string(i));
      inputs->entityPtrIs(made);
      database.settle();
      inputs->entityPtrDel(made->name());
      database.settle();
   }
   EXPECT_EQ(agent.manager->nodeCount(), agents) << "who only heard of them";
   EXPECT_EQ(operatorClient().manager->nodeCount(), operators) << "who made them";
}

} // namespace
