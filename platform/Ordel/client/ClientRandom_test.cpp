// Clients that write the same records at random, from outside and from handlers, within a frame and between
// frames, with their logs held and flowing, while bytes are on their way in pieces of any size. Whenever
// everything has arrived, each client must have what the database has.
#include "Ordel/client/SteppedDatabase.h"

#include "Kem/Dir.h"
#include "Kem/Trace.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/VlanConfig.h"

#include <random>

namespace {

using Bridging::VlanId;
using Ordel::DifferenceCount;
using Ordel::SteppedDatabase;

struct ClientRandomTest : testing::TestWithParam<unsigned> {
   // Writes whenever an entity comes or goes: also in the middle of a frame.
   struct KemInputDir final : Kem::Dir::NotifieeConst {
      KemInputDir(ClientRandomTest& t, size_t w) : NotifieeConst(this), test(t), who(w) {}
      void onEntityPtr(Kem::Name const&) override {
         if (test.number(2) && test.isRunning)
            test.change(who);
      }
      ClientRandomTest& test;
      size_t who;
   };
   struct Player {
      SteppedDatabase::Client* client;
      Kem::Ptr<Bridging::Config> config;
      Kem::Ptr<Kem::Dir> inputs;
      std::unique_ptr<KemInputDir> kemInputDir;
   };

   ClientRandomTest() {
      Kem::traceSettingIs("*/-");
      for (char const* name : {"one", "two", "three"}) {
         auto& client = database.client(name);
         players.push_back({&client, client.mount<Bridging::Config>("w", SteppedDatabase::configPath),
                            client.mount<Kem::Dir>("wi", SteppedDatabase::inputPath), nullptr});
         auto& player = players.back();
         player.kemInputDir = std::make_unique<KemInputDir>(*this, players.size() - 1);
         player.kemInputDir->notifierIs(player.inputs);
      }
   }
   ~ClientRandomTest() override { Kem::traceSettingIs(""); }

   unsigned number(unsigned count) { return random() % count; }
   // Values and keys are few, so that the players meet.
   void changeVlan(Bridging::VlanConfig& vlan) {
      Sulvi::IntfId const port("Ethernet" + std::to_string(1 + number(2)));
      switch (number(4)) {
      case 0:
         return vlan.configuredNameIs(std::string(1, static_cast<char>('a' + number(3))));
      case 1:
         return vlan.intfIs(port, {.tagged = number(2) == 0});
      case 2:
         return vlan.intfDel(port);
      default:
         return vlan.trunkGroupIs("g", number(2) == 0);
      }
   }
   void changeInput(Bridging::Input::Config& input) {
      VlanId const vlan(static_cast<uint16_t>(1 + number(2)));
      switch (number(4)) {
      case 0:
         return input.vlanConfigPriorityIs(number(3));
      case 1:
         return input.vlanConfigIs(vlan)->configuredNameIs(
             std::string(1, static_cast<char>('a' + number(3))));
      case 2:
         return input.vlanConfigDel(vlan);
      default:
         return input.sourceDetailIs(std::string(1, static_cast<char>('a' + number(3))));
      }
   }
   void change(size_t who) {
      auto const& player = players[who];
      VlanId const vlan(static_cast<uint16_t>(1 + number(2)));
      Kem::Name const name(std::string(1, static_cast<char>('x' + number(2))));
      auto const input = player.inputs->entity<Bridging::Input::Config>(name);
      switch (number(9)) {
      case 0:
         return player.config->hostAgingTimeIs(number(3));
      case 1:
         return player.config->vlanConfigDel(vlan);
      case 2:
      case 3:
      case 4:
         if (auto const record = player.config->vlanConfig(vlan))
            return changeVlan(*record);
         return changeVlan(*player.config->newVlanConfig(vlan, false));
      case 5:
         return player.inputs->entityPtrDel(name);
      default:
         if (input)
            return changeInput(*input);
         auto const made = Bridging::Input::Config::make();
         made->nameIs(name);
         changeInput(*made);
         return player.inputs->entityPtrIs(made);
      }
   }
   void step() {
      size_t const who = number(3);
      auto& client = *players[who].client;
      switch (number(10)) {
      case 0:
      case 1:
      case 2:
         for (unsigned i = number(4); i > 0; --i)
            change(who);
         break;
      case 3:
      case 4:
         database.toServer(client, 1 + number(200));
         break;
      case 5:
      case 6:
         database.toClient(client, 1 + number(200));
         break;
      case 7:
         if (number(4) == 0)
            client.manager->attributeLog()->isHeldIs(!client.manager->attributeLog()->isHeld());
         break;
      default:
         database.turn();
      }
   }
   void settle() {
      isRunning = false;
      for (auto const& player : players)
         player.client->manager->attributeLog()->isHeldIs(false);
      database.settle();
      isRunning = true;
   }
   template <class T>
   void expectSame(char const* path, Player const& player, Kem::Ptr<T> const& record) {
      auto const standing = database.contents<T>(path);
      EXPECT_EQ(DifferenceCount::between(*standing, *record), std::vector<std::string>{})
          << player.client->manager->name() << " has in " << path << " what the database hasn't";
   }

   bool isRunning = true;
   std::mt19937 random{GetParam()};
   SteppedDatabase database;
   std::vector<Player> players;
};

TEST_P(ClientRandomTest, bothSidesEndWithTheSameValues) {
   for (int round = 0; round < 60; ++round) {
      for (unsigned i = 5 + number(40); i > 0; --i)
         step();
      settle();
      for (auto const& player : players) {
         ASSERT_EQ(player.client->closedCount, 0u) << player.client->closedReason;
         expectSame(SteppedDatabase::configPath, player, player.config);
         expectSame(SteppedDatabase::inputPath, player, player.inputs);
      }
      ASSERT_FALSE(HasFailure()) << "round " << round;
   }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ClientRandomTest, testing::Range(1u, 13u));

} // namespace
