#include "Ordel/store/TestRecords.h"
#include "treejson/Writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace TestRecords;
using ::testing::HasSubstr;

struct WriterTest : testing::Test {
   Ordel::Tree tree{schema(), 1};
   Ordel::Entity const& cli = *tree.find("input/config/cli");
   Ordel::Entity const& dir = *tree.find("input/dir");

   void apply(std::string_view block) {
      Ordel::Applied const& applied = tree.apply(block);
      ASSERT_TRUE(applied.isDone()) << applied.error;
   }
   Ordel::Located locate(std::string_view text) {
      Ordel::Selector selector;
      std::string error;
      EXPECT_TRUE(Ordel::Selector::parse(text, selector, error)) << error;
      return tree.locate(selector);
   }
   std::string oneLine(std::string_view selector) { return TreeJson::oneLine(tree, locate(selector)); }
   std::string document(std::string_view selector) {
      std::string text;
      TreeJson::Writer writer(tree, TreeJson::Layout::indented,
                              [&](std::string_view piece) { text += piece; });
      writer.document(locate(selector));
      writer.flush();
      return text;
   }
   // VLAN 10 with two ports and a name, in the input of the command line.
   void createVlan() {
      std::string const key = u16Bytes(10);
      apply(Block()
                .at(cli.node())
                .create(Config::vlanConfig, key, vlanType)
                .at(cli.node(), {{Config::vlanConfig, key}})
                .set(Vlan::internal, "\1")
                .set(Vlan::configuredName, stringBytes("servers"))
                .put(Vlan::intf, intfBytes("Ethernet10"), portBytes(1, 0, 0))
                .put(Vlan::intf, intfBytes("Ethernet2"), portBytes(0, 0, 2)));
   }
};

TEST_F(WriterTest, scalarsAndMembersAreTheirValues) {
   createVlan();
   EXPECT_EQ(oneLine("input/config/cli.text"), "\"none\"");
   EXPECT_EQ(oneLine("input/config/cli.mode"), "\"access_\"");
   EXPECT_EQ(oneLine("input/config/cli.vlanConfig[10].configuredName"), "\"servers\"");
   EXPECT_EQ(oneLine("input/config/cli.vlanConfig[10].intf[Ethernet2]"),
             R"({"direction": 2, "shut": false, "tagged": false})");
   EXPECT_EQ(oneLine("input/config/cli.peer"), "null");
}

TEST_F(WriterTest, anEntityIsAnObjectOfItsAttributes) {
   createVlan();
   EXPECT_EQ(oneLine("input/config/cli.vlanConfig[10]"),
             R"({"configuredName": "servers", "internal": true, )"
             R"("intf": {"Ethernet2": {"direction": 2, "shut": false, "tagged": false}, )"
             R"("Ethernet10": {"direction": 0, "shut": false, "tagged": true}}, "vlanId": 10})");
}

TEST_F(WriterTest, indentedTextHasTwoSpacesALevel) {
   createVlan();
   EXPECT_EQ(TreeJson::indented(tree, locate("input/config/cli.vlanConfig[10]")),
             R"({
  "configuredName": "servers",
  "internal": true,
  "intf": {
    "Ethernet2": {"direction": 2, "shut": false, "tagged": false},
    "Ethernet10": {"direction": 0, "shut": false, "tagged": true}
  },
  "vlanId": 10
})");
   EXPECT_EQ(TreeJson::indented(tree, locate("input/config/cli.port")), "{}");
}

TEST_F(WriterTest, typeIsGivenWhereThePlaceLeavesItOpen) {
   createVlan();
   EXPECT_THAT(oneLine("input/config/cli"), HasSubstr(R"({"$type": "Test::CliConfig", "count": 0, )"));
   EXPECT_THAT(oneLine("input/config/cli.vlanConfig"), HasSubstr(R"({"10": {"configuredName")"));
   // A derived type is named anywhere.
   apply(Block().at(cli.node()).create(Config::vlanConfig, u16Bytes(20), wideVlanType));
   EXPECT_THAT(oneLine("input/config/cli.vlanConfig[20]"), HasSubstr(R"({"$type": "Test::WideVlan", )"));
}

TEST_F(WriterTest, aDirectoryIsAnEntityToo) {
   apply(Block().at(dir.node()).createNode("b", groupType).createNode("a", dirType));
   EXPECT_EQ(oneLine("input/dir"),
             R"({"$type": "Kem::Dir", "entityPtr": {"a": {"$type": "Kem::Dir", "entityPtr": {}}, )"
             R"("b": {"$type": "Test::Group", "group": {}, "member": {}, "name": "b"}}})");
}

TEST_F(WriterTest, keysOfEveryObjectAreInNaturalOrder) {
   Block block;
   block.at(cli.node());
   for (char const* name : {"Ethernet10", "Ethernet2", "Ethernet2/10", "Ethernet2/9", "Vlan1", "Ethernet1"})
      block.put(Config::port, intfBytes(name), portBytes(0, 0, 0));
   for (char const* name : {"b", "a10", "a9", "a", "B"})
      block.put(Config::named, stringBytes(name), "\1");
   apply(block);
   std::vector<std::string> keys;
   for (TreeJson::SortedKey const& key : TreeJson::sortedKeys(tree, cli, Config::port))
      keys.push_back(key.text);
   EXPECT_THAT(keys, ::testing::ElementsAre("Ethernet1", "Ethernet2", "Ethernet2/9", "Ethernet2/10",
                                            "Ethernet10", "Vlan1"));
   EXPECT_EQ(oneLine("input/config/cli.named"),
             R"({"B": true, "a": true, "a9": true, "a10": true, "b": true})");
   std::vector<std::string> attributes;
   auto const whole = nlohmann::ordered_json::parse(oneLine("input/config/cli"));
   for (auto const& [name, value] : whole.items())
      attributes.push_back(name);
   EXPECT_TRUE(std::is_sorted(attributes.begin(), attributes.end()));
   EXPECT_EQ(attributes.size(), cli.type().attributes.size() + 1);
}

TEST_F(WriterTest, joinedKeysAndAddresses) {
   apply(Block()
             .at(cli.node())
             .put(Config::xlate, u16Bytes(100) + u16Bytes(0), std::string(16, '\0'))
             .put(Config::learned, "\x00\x1c\x73\x00\x00\xab"sv, tables().learned.zero));
   EXPECT_EQ(oneLine("input/config/cli.xlate"), R"({"100/0": {"high": 0, "low": 0}})");
   EXPECT_EQ(oneLine("input/config/cli.learned"),
             R"({"00:1c:73:00:00:ab": {"intf": "", "tag": "", "vlan": 1}})");
}

TEST_F(WriterTest, referencesAreSelectors) {
   apply(Block()
             .at(cli.node())
             .set(Config::peer, stringBytes("config"))
             .put(Config::source, intfBytes("Ethernet1"), stringBytes("config.vlanConfig[10]")));
   EXPECT_EQ(oneLine("input/config/cli.peer"), R"({"$ref": "config"})");
   EXPECT_EQ(oneLine("input/config/cli.source"), R"({"Ethernet1": {"$ref": "config.vlanConfig[10]"}})");
}

TEST_F(WriterTest, aDocumentNamesEntitiesByPathAndDirectoriesWhereTheyAreEmpty) {
   apply(Block().at(dir.node()).createNode("x10", groupType).createNode("x9", dirType));
   EXPECT_EQ(document("input/dir"), R"({
  "input/dir/x9": {
    "$type": "Kem::Dir"
  },
  "input/dir/x10": {
    "$type": "Test::Group",
    "group": {},
    "member": {},
    "name": "x10"
  }
})");
   EXPECT_EQ(document("input/dir.entityPtr"), document("input/dir"));
   EXPECT_EQ(document("input/dir/x9"), "{\n  \"input/dir/x9\": {\n    \"$type\": \"Kem::Dir\"\n  }\n}");
   std::vector<std::string> paths;
   auto const whole = nlohmann::json::parse(document("/"));
   for (auto const& [path, value] : whole.items())
      paths.push_back(path);
   EXPECT_THAT(paths, ::testing::UnorderedElementsAre("cell/1/status", "config", "input/config/cli",
                                                      "input/dir/x10", "input/dir/x9"));
}

TEST_F(WriterTest, aDocumentOfAPartLeadsToIt) {
   createVlan();
   EXPECT_EQ(document("input/config/cli.vlanConfig[10].intf[Ethernet2]"), R"({
  "input/config/cli": {
    "$type": "Test::CliConfig",
    "vlanConfig": {
      "10": {
        "intf": {
          "Ethernet2": {"direction": 2, "shut": false, "tagged": false}
        }
      }
    }
  }
})");
   EXPECT_EQ(document("input/config/cli.text"), R"({
  "input/config/cli": {
    "$type": "Test::CliConfig",
    "text": "none"
  }
})");
}

TEST_F(WriterTest, largeTextsComeInPieces) {
   Block block;
   block.at(cli.node());
   for (int i = 0; i < 20000; ++i)
      block.put(Config::named, stringBytes("name-" + std::to_string(i)), "\1");
   apply(block);
   std::string text;
   size_t pieceCount = 0, longest = 0;
   TreeJson::Writer writer(tree, TreeJson::Layout::oneLine, [&](std::string_view piece) {
      text += piece;
      ++pieceCount;
      longest = std::max(longest, piece.size());
   });
   writer.text("value: ");
   writer.located(locate("input/config/cli"));
   writer.flush();
   EXPECT_GT(pieceCount, 3u);
   EXPECT_LT(longest, 100000u);
   EXPECT_EQ(nlohmann::json::parse(text.substr(7))["named"].size(), 20000u);
}

} // namespace
