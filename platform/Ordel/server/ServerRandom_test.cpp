// Clients that write, mount, unmount, lag and go at random. Whenever everything has been taken in, each
// mirror must be the database's tree, on what it mounts.
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Ordel/server/Server.h"
#include "Ordel/server/TestClient.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace {

using namespace TestRecords;
using Ordel::Entity;
using Ordel::Server;
using Ordel::Tree;

struct ServerRandomTest : testing::TestWithParam<unsigned> {
   ServerRandomTest() { Kem::traceSettingIs("*/-"); }

   Kem::VirtualTime time;
   std::mt19937 random{GetParam()};
   Server server{std::make_unique<Tree>(schema(), 1), "switch1"};
   // A client, and what it has mounted.
   struct Player {
      std::unique_ptr<TestClient> client;
      std::map<uint32_t, std::string> mounts;
      bool isWriter;
   };
   std::vector<Player> players;
   uint32_t nextMount = 1;

   // Names are few, so that the players meet.
   unsigned number(unsigned count) { return random() % count; }
   std::string name() { return std::string(1, static_cast<char>('a' + number(4))); }
   // Directories are named by another letter, because what is at a place can't become of another type.
   std::string directoryPath() {
      static char const* const paths[] = {"input", "input/dir", "input/dir/s", "input/dir/s/s"};
      return paths[number(4)];
   }
   std::string mountPath() {
      static char const* const paths[] = {"config", "input", "input/dir", "input/dir/s", "input/config/cli"};
      unsigned const which = number(8);
      return which < 5 ? paths[which] : directoryPath() + "/" + name();
   }
   std::string filterSelector() {
      static char const* const parts[] = {
          ".named",    ".vlanConfig[1]", ".group[a].group[b]", ".count",
          ".named[a]", ".vlanConfig",    ".group[a].member",   ".vlanConfig[2].intf[Ethernet1]"};
      return (number(2) ? "config" : directoryPath() + "/" + name()) + parts[number(8)];
   }

   // Operations that a database never refuses, on a config.
   void changeConfig(Block& block, uint32_t node, std::vector<Step> const& way) {
      std::string const a = stringBytes(name());
      std::string const vlan = u16Bytes(static_cast<uint16_t>(1 + number(3)));
      switch (number(9)) {
      case 0:
         block.at(node, way).set(Config::count, u32Bytes(number(3)));
         return;
      case 1:
         block.at(node, way).put(Config::named, stringBytes("a longer name " + name()),
                                 number(2) ? "\1"sv : "\0"sv);
         return;
      case 2:
         block.at(node, way).erase(Config::named, stringBytes("a longer name " + name()));
         return;
      case 3:
         block.at(node, way).create(Config::vlanConfig, vlan, vlanType);
         break;
      case 4:
         block.at(node, way).erase(Config::vlanConfig, vlan);
         return;
      case 5:
         block.at(node, way).create(Config::group, a, groupType);
         break;
      case 6:
         block.at(node, way).erase(Config::group, a);
         return;
      case 7:
         block.at(node, way).put(Config::xlate, u32Bytes(number(5)),
                                 std::string(16, static_cast<char>(number(3))));
         return;
      default:
         block.at(node, way).erase(Config::xlate, u32Bytes(number(5)));
         return;
      }
      // Inside a child.
      std::vector<Step> inside = way;
      if (number(2)) {
         inside.push_back({Config::vlanConfig, vlan});
         block.at(node, inside).set(Vlan::configuredName, stringBytes(name()));
         if (number(2))
            block.put(Vlan::intf, intfBytes("Ethernet1"), portBytes(number(2), 0, number(2)));
         else
            block.erase(Vlan::intf, intfBytes("Ethernet1"));
         return;
      }
      inside.push_back({Config::group, a});
      block.at(node, inside)
          .put(Group::member, std::string(1, static_cast<char>(number(3))), u32Bytes(number(3)));
      if (number(2))
         block.create(Group::group, stringBytes("b"), groupType);
      else
         block.erase(Group::group, stringBytes("b"));
      inside.push_back({Group::group, stringBytes("b")});
      block.at(node, inside)
          .put(Group::member, std::string(1, static_cast<char>(number(3))), u32Bytes(number(3)));
   }

   // A player writes to what is in its mirror: that is what a client knows the numbers of.
   void write(Player& player) {
      Tree const& mirror = player.client->mirror;
      std::vector<Entity const*> configs, directories;
      for (auto const& [mount, path] : player.mounts)
         if (Entity const* const entity = mirror.find(path))
            collect(mirror, *entity, configs, directories);
      Block block;
      for (unsigned i = 1 + number(3); i-- > 0;) {
         if (!configs.empty() && number(3)) {
            Entity const* const config = configs[number(configs.size())];
            if (config->node() != 0)
               changeConfig(block, config->node(), {});
         } else if (!directories.empty()) {
            Entity const* const directory = directories[number(directories.size())];
            if (directory->node() == 0)
               continue;
            std::string const child = name();
            block.at(directory->node());
            switch (number(4)) {
            case 0:
               block.erase(0, stringBytes(child));
               break;
            case 1:
               if (std::string const path = mirror.path(*directory);
                   path != "input" && path != "input/dir/s/s/s")
                  block.createNode("s", dirType);
               break;
            default:
               // All entities of these names are of one type, so that nothing is refused.
               block.createNode(child, configType);
               if (number(2))
                  changeConfig(block, directory->node(), {{0, stringBytes(child)}});
            }
         }
      }
      if (!block.view().empty())
         player.client->write(block);
   }
   // What the player writes in its mirror: whole nodes with their numbers.
   static void collect(Tree const& mirror, Entity const& entity, std::vector<Entity const*>& configs,
                       std::vector<Entity const*>& directories) {
      if (!entity.isDirectory()) {
         if (entity.type().name == "Test::Config")
            configs.push_back(&entity);
         return;
      }
      if (mirror.path(entity) != "input/config")
         directories.push_back(&entity);
      for (Ordel::Members member(mirror, entity, 0); member.next();)
         collect(mirror, *member.entity(), configs, directories);
   }

   void mount(Player& player) {
      if (player.mounts.size() >= 4)
         return;
      std::string const path = mountPath();
      // One mount of a place at a time, so that a mirror can give up what it unmounts.
      for (auto const& [mount, other] : player.mounts)
         if (path == other || path.starts_with(other + "/") || other.starts_with(path + "/"))
            return;
      player.mounts[nextMount] = path;
      player.client->mount(nextMount++, path, Ordel::mountAwait);
   }
   void unmount(Player& player) {
      if (player.mounts.empty())
         return;
      auto const at = std::next(player.mounts.begin(), number(player.mounts.size()));
      // What is on its way for the node must not meet a mirror without it.
      player.client->take();
      player.client->unmount(at->first);
      if (uint32_t const node = player.client->mounted[at->first]; node && player.client->mirror.node(node))
         player.client->mirror.unmount(node);
      player.mounts.erase(at);
   }

   void verify() {
      for (Player& player : players) {
         player.client->take();
         EXPECT_EQ(player.client->refused, "");
         EXPECT_TRUE(player.client->failed.empty() || !player.isWriter);
         EXPECT_TRUE(player.client->replies.empty()) << player.client->replies.begin()->second.text;
         for (auto const& [mount, path] : player.mounts)
            ASSERT_EQ(mirrored(*player.client, path), standing(server, path)) << path;
         player.client->changes.clear(); // all rounds together would be hundreds of megabytes
      }
   }
   void join() {
      bool const isWriter = number(3) > 0;
      players.push_back({std::make_unique<TestClient>(server), {}, isWriter});
      players.back().client->appliesOwn = isWriter;
      if (!isWriter)
         return;
      // Writers that are sent nothing but what they mount from the start.
      mount(players.back());
   }
};

TEST_P(ServerRandomTest, everyMirrorEndsAsTheDatabase) {
   for (int i = 0; i < 5; ++i)
      join();
   for (int round = 0; round < 60; ++round) {
      for (int step = 0; step < 60; ++step) {
         Player& player = players[number(players.size())];
         switch (number(12)) {
         case 0:
            mount(player);
            break;
         case 1:
            if (number(4) == 0)
               unmount(player);
            break;
         case 2:
            player.client->take();
            break;
         case 3:
         case 4:
            player.client->take(number(300));
            break;
         case 5:
            if (number(20) == 0) {
               players.erase(players.begin() + static_cast<long>(&player - players.data()));
               join();
            }
            break;
         default:
            if (player.isWriter)
               write(player);
         }
      }
      verify();
      if (HasFailure())
         FAIL() << "round " << round;
   }
}

// Filters, by clients that only read: a mirror of a part is compared with that part.
TEST_P(ServerRandomTest, filteredMirrorsEndAsTheirParts) {
   players.push_back({std::make_unique<TestClient>(server), {}, true});
   players[0].client->mount(nextMount, "config");
   players[0].mounts[nextMount++] = "config";
   players[0].client->mount(nextMount, "input/dir");
   players[0].mounts[nextMount++] = "input/dir";
   players[0].client->take();
   struct Reader {
      std::unique_ptr<TestClient> client;
      std::string selector;
   };
   std::vector<Reader> readers;
   for (int i = 0; i < 12; ++i) {
      readers.push_back({std::make_unique<TestClient>(server), filterSelector()});
      readers.back().client->mount(1, readers.back().selector, Ordel::mountAwait);
   }
   for (int round = 0; round < 100; ++round) {
      for (int step = 0; step < 30; ++step) {
         write(players[0]);
         readers[number(readers.size())].client->take(number(200));
         players[0].client->take();
      }
      for (Reader& reader : readers) {
         reader.client->take();
         Ordel::Selector selector;
         std::string error;
         ASSERT_TRUE(Ordel::Selector::parse(reader.selector, selector, error)) << error;
         auto const part = [&](Tree const& tree) -> std::string {
            Ordel::Located const at = tree.locate(selector);
            if (at.status != Ordel::Status::done)
               return "nothing";
            if (at.attribute < 0)
               return dump(tree, *at.entity);
            auto const attribute = static_cast<unsigned>(at.attribute);
            if (at.key)
               return hex(*tree.member(*at.entity, attribute, *at.key));
            if (!at.entity->type().attributes[attribute].key)
               return hex(tree.value(*at.entity, attribute));
            std::map<std::string, std::string> members;
            for (Ordel::Members member(tree, *at.entity, attribute); member.next();)
               members[std::string(member.key())] =
                   member.entity() ? dump(tree, *member.entity()) : hex(member.value());
            std::string text;
            for (auto const& [key, value] : members)
               text += hex(key) + ": " + value + "\n";
            return text;
         };
         ASSERT_EQ(part(reader.client->mirror), part(server.tree()))
             << reader.selector << " in round " << round;
      }
   }
}

// Clients are behind from the start, because a large text fills their buffers. That takes about 30 MB for
// each client, so there are few rounds of many steps.
TEST_P(ServerRandomTest, clientsThatAreBehindEndAsTheDatabase) {
   TestClient filler(server, "filler");
   uint32_t const config = server.tree().find("config")->node();
   for (int i = 0; i < 4; ++i)
      join();
   for (int round = 0; round < 3; ++round) {
      for (Player& player : players) {
         if (player.mounts.empty())
            mount(player);
         bool const hasConfig = std::any_of(player.mounts.begin(), player.mounts.end(),
                                            [](auto const& mount) { return mount.second == "config"; });
         if (!hasConfig) {
            player.mounts[nextMount] = "config";
            player.client->mount(nextMount++, "config");
         }
         player.client->take();
      }
      std::string const large(1'000'000, 'x');
      auto const isBehind = [](Player const& player) { return !player.client->link->pending().empty(); };
      for (int i = 0; i < 40 && !std::all_of(players.begin(), players.end(), isBehind); ++i)
         filler.write(
             Block().at(config).set(Config::text, stringBytes(large + std::to_string(round * 100 + i))));
      for (int step = 0; step < 600; ++step) {
         Player& player = players[number(players.size())];
         if (number(40) == 0)
            player.client->take(number(2) ? number(1000) : 4'500'000);
         else if (player.isWriter)
            write(player);
         else if (number(10) == 0)
            mount(player);
      }
      verify();
      if (HasFailure())
         FAIL() << "round " << round;
   }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ServerRandomTest, testing::Range(1u, 9u));

} // namespace
