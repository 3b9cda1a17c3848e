#include "Ordel/store/TestRecords.h"
#include "treejson/Change.h"
#include "treejson/Document.h"
#include "treejson/Error.h"
#include "treejson/Writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace {

using namespace TestRecords;
using TreeJson::Change;
using TreeJson::Document;
using TreeJson::JsonReader;

Ordel::Selector selectorOf(std::string_view text) {
   Ordel::Selector selector;
   std::string error;
   EXPECT_TRUE(Ordel::Selector::parse(text, selector, error)) << error;
   return selector;
}

// A database with the small schema, and changes to it. Each call returns the error, or an empty text.
struct World {
   Ordel::Tree tree{schema(), 1};

   template <class Build>
   std::string apply(Build const& build) {
      Wire::Writer out;
      try {
         build(out);
      } catch (TreeJson::Absent const& error) {
         return std::string("absent: ") + error.what();
      } catch (TreeJson::Error const& error) {
         return error.what();
      }
      Ordel::Applied const& applied = tree.apply(out.view(), Ordel::writeStrict);
      EXPECT_FALSE(applied.isMalformed) << applied.error;
      return applied.status == Ordel::Status::absent ? "absent: " + applied.error : applied.error;
   }
   std::string load(std::string_view text) {
      return apply([&](Wire::Writer& out) { Document(text).operations(tree, out); });
   }
   std::string set(std::string_view selector, std::string_view json) {
      return apply([&](Wire::Writer& out) {
         JsonReader in(json);
         Change(tree, out).set(selectorOf(selector), in);
      });
   }
   std::string create(std::string_view path, std::string_view type) {
      return apply([&](Wire::Writer& out) { Change(tree, out).create(path, type); });
   }
   std::string erase(std::string_view selector) {
      return apply([&](Wire::Writer& out) { Change(tree, out).erase(selectorOf(selector)); });
   }
   std::string get(std::string_view selector) {
      Ordel::Located const located = tree.locate(selectorOf(selector));
      return located.status == Ordel::Status::done ? TreeJson::oneLine(tree, located) : located.error;
   }
   std::string document() {
      std::string text;
      TreeJson::Writer writer(tree, TreeJson::Layout::indented,
                              [&](std::string_view piece) { text += piece; });
      writer.document(tree.locate(selectorOf("/")));
      writer.flush();
      return text;
   }
   void verifyNotLoaded(std::string_view text, std::string const& error) {
      std::string const before = dump(tree);
      EXPECT_EQ(load(text), error);
      EXPECT_EQ(dump(tree), before);
   }
};

struct LoadTest : testing::Test, World {};
struct SetTest : testing::Test, World {};

// --- Documents

TEST_F(LoadTest, setsWhatIsGivenAndLeavesTheRest) {
   ASSERT_EQ(load(R"({"input/config/cli": {"count": 5, "text": "x", "port": {"Ethernet1": {}}}})"), "");
   ASSERT_EQ(load(R"({"input/config/cli": {"text": "y", "port": {"Ethernet2": {"shut": true}}}})"), "");
   EXPECT_EQ(get("input/config/cli.count"), "5");
   EXPECT_EQ(get("input/config/cli.text"), "\"y\"");
   EXPECT_EQ(get("input/config/cli.port"),
             R"({"Ethernet1": {"direction": 0, "shut": false, "tagged": false}, )"
             R"("Ethernet2": {"direction": 0, "shut": true, "tagged": false}})");
}

TEST_F(LoadTest, createsMissingMembersWithTheirInputs) {
   ASSERT_EQ(load(R"({"input/config/cli": {"vlanConfig": {
      "10": {"configuredName": "a", "internal": true, "intf": {"Ethernet1": {"tagged": true}}},
      "20": {}}}})"),
             "");
   EXPECT_EQ(get("input/config/cli.vlanConfig"),
             R"({"10": {"configuredName": "a", "internal": true, "intf": )"
             R"({"Ethernet1": {"direction": 0, "shut": false, "tagged": true}}, "vlanId": 10}, )"
             R"("20": {"configuredName": "", "internal": false, "intf": {}, "vlanId": 20}})");
}

TEST_F(LoadTest, createsEntitiesAndTheDirectoriesOnTheWay) {
   ASSERT_EQ(load(R"({
      "input/new/deeper/a": {"$type": "Test::Group", "member": {"1": -1}},
      "input/new/b": {"member": {"2": 2}, "$type": "Test::Group"},
      "input/new/deeper/empty": {"$type": "Kem::Dir"}})"),
             "");
   EXPECT_EQ(get("input/new/deeper/a.member"), R"({"1": -1})");
   EXPECT_EQ(get("input/new/b.member"), R"({"2": 2})");
   EXPECT_EQ(get("input/new/deeper/empty"), R"({"$type": "Kem::Dir", "entityPtr": {}})");
}

TEST_F(LoadTest, takesADirectoryAsAnEntity) {
   ASSERT_EQ(load(R"({"input/dir": {"entityPtr": {"a": {"$type": "Test::Group", "member": {"1": 1}},
                                                  "b": {"$type": "Kem::Dir", "entityPtr": {}}}}})"),
             "");
   EXPECT_EQ(get("input/dir/a.member[1]"), "1");
   EXPECT_EQ(get("input/dir/b"), R"({"$type": "Kem::Dir", "entityPtr": {}})");
   EXPECT_EQ(load(R"({"input/dir": {"entityPtr": {"c": {}}}})"),
             "input/dir/c: isn't there, so \"$type\" is needed to create it");
   EXPECT_EQ(load(R"({"input/dir": {"entityPtr": {"c.d": {"$type": "Kem::Dir"}}}})"),
             "input/dir/c.d: a name has no / . [ ] and no NUL in it");
}

TEST_F(LoadTest, aNewEntityOfADirectoryNeedsItsType) {
   verifyNotLoaded(R"({"input/config/cli": {"count": 7}, "input/config/lag": {"count": 1}})",
                   "input/config/lag: isn't there, so \"$type\" is needed to create it");
   verifyNotLoaded(R"({"input/config/lag": {"$type": "Test::Nothing"}})",
                   "input/config/lag: there is no type Test::Nothing");
}

TEST_F(LoadTest, anotherTypeThanTheExistingOneIsRefused) {
   EXPECT_EQ(load(R"({"config": {"$type": "Test::Config", "count": 1}})"), "");
   verifyNotLoaded(R"({"config": {"$type": "Test::CliConfig"}})",
                   "config: is a Test::Config and can't become a Test::CliConfig");
   verifyNotLoaded(R"({"config/x": {"$type": "Test::Group"}})", "config: is a Test::Config and no directory");
   verifyNotLoaded(R"({"a": {"$type": "Test::Group"}, "a/b": {"$type": "Test::Group"}})",
                   "a: is a Test::Group and no directory");
   verifyNotLoaded(R"({"a/b": {"$type": "Test::Group"}, "a": {"$type": "Test::Group"}})",
                   "a: is a Kem::Dir and can't become a Test::Group");
   ASSERT_EQ(load(R"({"config": {"vlanConfig": {"10": {}}}})"), "");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"10": {"$type": "Test::WideVlan"}}}})",
                   "config.vlanConfig[10]: is a Test::Vlan and can't become a Test::WideVlan");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"20": {"$type": "Test::Group"}}}})",
                   "config.vlanConfig[20]: Test::Group can't stand where Test::Vlan is declared");
}

TEST_F(LoadTest, derivedTypesOfMembersAreReported) {
   ASSERT_EQ(
       load(
           R"({"config": {"vlanConfig": {"10": {"$type": "Test::WideVlan", "extra": 18446744073709551615}}}})"),
       "");
   EXPECT_EQ(get("config.vlanConfig[10].extra"), "18446744073709551615");
   // The type of what exists is known.
   ASSERT_EQ(load(R"({"config": {"vlanConfig": {"10": {"extra": 3}}}})"), "");
   EXPECT_EQ(get("config.vlanConfig[10].extra"), "3");
}

TEST_F(LoadTest, inputsCanOnlyBeGivenAtCreation) {
   ASSERT_EQ(load(R"({"config": {"vlanConfig": {"10": {"internal": true}}}})"), "");
   EXPECT_EQ(load(R"({"config": {"vlanConfig": {"10": {"internal": true, "vlanId": 10}}}})"), "");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"10": {"internal": false}}}})",
                   "config.vlanConfig[10].internal: is given at creation");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"11": {"vlanId": 12}}}})",
                   "config.vlanConfig[11].vlanId: is given at creation");
}

TEST_F(LoadTest, errorsNamePlaceAndReason) {
   verifyNotLoaded(R"({"config": {"colour": 1}})", "config: Test::Config has no attribute colour");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"10": {"intf": {"Ethernet1": {"shut": 1}}}}}})",
                   "config.vlanConfig[10].intf[Ethernet1].shut: 1 is no bool; expected true or false");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"5000": {}}}})",
                   "config.vlanConfig[5000]: VlanId::value < 1 or > 4094 not allowed");
   verifyNotLoaded(R"({"config": {"vlan": 5000}})", "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   verifyNotLoaded(R"({"input/config/cli": {"mode": "up"}})",
                   "input/config/cli.mode: \"up\" is no Mode; expected access_ or trunk_");
   verifyNotLoaded(R"({"config": {"port": []}})",
                   "config.port: a list is no collection; expected an object of members");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"10": true}}})",
                   "config.vlanConfig[10]: true is no Test::Vlan; expected an object of its attributes");
   verifyNotLoaded(R"({"config": {"peer": "config"}})",
                   "config.peer: \"config\" is no reference; expected {\"$ref\": \"selector\"} or null");
   verifyNotLoaded(R"({"config": {"$type": 1}})", "config.$type: 1 is no name of a type");
   verifyNotLoaded(R"({"config": {"learned": {"00:1c": {}}}})",
                   load(R"({"config": {"learned": {"00:1c": {}}}})"));
   EXPECT_EQ(load(R"({"config": {"learned": {"00:1c": {}}}})").find("config.learned[00:1c]: "), 0u);
}

TEST_F(LoadTest, whatIsGivenTwiceIsRefused) {
   verifyNotLoaded(R"({"config": {"count": 1, "count": 2}})", "config.count: given twice");
   verifyNotLoaded(R"({"config": {"vlanConfig": {"10": {}, "10": {}}}})",
                   "config.vlanConfig[10]: given twice");
   verifyNotLoaded(R"({"config": {"learned": {"00:00:00:00:00:0a": {}, "00:00:00:00:00:0A": {}}}})",
                   "config.learned[00:00:00:00:00:0A]: given twice");
   verifyNotLoaded(R"({"config": {}, "config": {}})", "config: given twice");
}

TEST_F(LoadTest, onlyPathsCanBeNamed) {
   verifyNotLoaded("[]", "a document is an object of paths, not a list");
   verifyNotLoaded(R"({"config": 1})", "config: 1 is no entity; expected an object");
   verifyNotLoaded(R"({"config.vlanConfig[10]": {}})",
                   "config.vlanConfig[10]: a document holds entities by path; this names something else");
   verifyNotLoaded(R"({"/": {}})", "/: a document holds entities by path; this names something else");
   verifyNotLoaded(R"({"config//x": {}})", "\"config//x\": the path: a name is not empty");
}

TEST_F(LoadTest, syntaxIsCheckedFirst) {
   verifyNotLoaded("{\"config\": {\"colour\": 1}\n", "line 2, column 1: expected ',' or '}'");
   verifyNotLoaded("{\"config\": {}} x", "line 1, column 16: something follows behind the end");
}

TEST_F(LoadTest, tooManyLevelsAtOnceAreRefused) {
   std::string path = "d1";
   for (int i = 2; i <= 10; ++i)
      path += "/d" + std::to_string(i);
   verifyNotLoaded(
       "{\"" + path + "\": {\"$type\": \"Kem::Dir\"}}",
       "d1/d2/d3/d4/d5/d6/d7/d8/d9/d10: more than 8 levels below what exists; create the directories above "
       "it first");
}

// --- Single changes

TEST_F(SetTest, setsOneAttribute) {
   EXPECT_EQ(set("config.count", "7"), "");
   EXPECT_EQ(get("config.count"), "7");
   EXPECT_EQ(set("config.peer", R"({"$ref": "input/config/cli"})"), "");
   EXPECT_EQ(get("config.peer"), R"({"$ref": "input/config/cli"})");
   EXPECT_EQ(set("config.limits", R"({"low": 1, "high": 2})"), "");
   EXPECT_EQ(get("config.limits"), R"({"high": 2, "low": 1})");
}

TEST_F(SetTest, setsOneMemberAndCreatesIt) {
   EXPECT_EQ(set("config.port[Ethernet1]", R"({"tagged": true})"), "");
   EXPECT_EQ(get("config.port[Ethernet1].x"), "config.port[Ethernet1]: is a value and has no attributes");
   EXPECT_EQ(get("config.port[Ethernet1]"), R"({"direction": 0, "shut": false, "tagged": true})");
   EXPECT_EQ(set("config.vlanConfig[10]", R"({"configuredName": "a"})"), "");
   EXPECT_EQ(set("config.vlanConfig[10].intf[Ethernet1]", "{}"), "");
   EXPECT_EQ(set("config.vlanConfig[10].configuredName", "\"b\""), "");
   EXPECT_EQ(get("config.vlanConfig[10].configuredName"), "\"b\"");
   EXPECT_EQ(set("config.xlate[100/0]", R"({"low": 3})"), "");
   EXPECT_EQ(get("config.xlate"), R"({"100/0": {"high": 0, "low": 3}})");
   EXPECT_EQ(set("input/dir.entityPtr[x]", R"({"$type": "Test::Group"})"), "");
   EXPECT_EQ(get("input/dir/x.name"), "\"x\"");
}

TEST_F(SetTest, memberOnTheWayIsMadeWithItsDefaults) {
   EXPECT_EQ(set("config.vlanConfig[10].configuredName", "\"b\""), "");
   EXPECT_EQ(get("config.vlanConfig[10].configuredName"), "\"b\"");
   EXPECT_EQ(set("config.vlanConfig[11].intf[Ethernet1]", "{}"), "");
   EXPECT_EQ(get("config.vlanConfig[11].configuredName"), "\"\"");
   EXPECT_EQ(set("config.vlanConfig[10].intf[Ethernet1]", "{}"), "");
   EXPECT_EQ(get("config.vlanConfig[10].configuredName"), "\"b\"") << "one that exists stays as it is";
}

TEST_F(SetTest, whatIsInNothingIsAbsent) {
   EXPECT_EQ(set("nowhere.count", "1"), "absent: nowhere: not there");
   EXPECT_EQ(set("input/dir.entityPtr[x].count", "1"), "absent: input/dir.entityPtr[x]: not there");
}

TEST_F(SetTest, aCollectionBecomesWhatIsGiven) {
   ASSERT_EQ(
       load(
           R"({"config": {"named": {"a": true, "b": true}, "vlanConfig": {"10": {"configuredName": "x"}, "20": {}}}})"),
       "");
   EXPECT_EQ(set("config.named", R"({"b": false, "c": true})"), "");
   EXPECT_EQ(get("config.named"), R"({"b": false, "c": true})");
   EXPECT_EQ(set("config.named", "{}"), "");
   EXPECT_EQ(get("config.named"), "{}");
   EXPECT_EQ(set("config.vlanConfig", R"({"10": {}, "30": {}})"), "");
   EXPECT_EQ(get("config.vlanConfig[10].configuredName"), "\"x\"");
   EXPECT_EQ(get("config.vlanConfig[20]"), "config.vlanConfig[20]: not there");
   EXPECT_EQ(get("config.vlanConfig[30].vlanId"), "30");
}

TEST_F(SetTest, errorsNamePlaceAndReason) {
   EXPECT_EQ(set("config", "{}"), "config: is an entity; what can be set is an attribute or a member");
   EXPECT_EQ(set("config.colour", "1"), "config: Test::Config has no attribute colour");
   EXPECT_EQ(set("config.vlanConfig[10].colour", "1"),
             "config.vlanConfig[10]: Test::Vlan has no attribute colour");
   EXPECT_EQ(set("config.count[1]", "1"), "config.count[1]: the attribute has no members");
   EXPECT_EQ(set("config.port[Ethernet1].tagged", "true"),
             "config.port[Ethernet1]: is a value and has no attributes");
   EXPECT_EQ(set("config.vlanConfig[10].intf[Ethernet1].tagged", "true"),
             "config.vlanConfig[10].intf[Ethernet1]: is a value and has no attributes");
   EXPECT_EQ(set("config.vlanConfig[x]", "{}"),
             "config.vlanConfig[x]: \"x\" is no Test::VlanId: a number is expected");
   EXPECT_EQ(set("config.count", "\"x\""),
             "config.count: \"x\" is no u32; expected a whole number from 0 to 4294967295");
   EXPECT_EQ(set("config.name", "\"x\""), "config.name: is given at creation");
}

TEST_F(SetTest, createsInDirectories) {
   EXPECT_EQ(create("input/dir/a", "Test::Group"), "");
   EXPECT_EQ(create("input/dir/a", "Test::Group"), ""); // exists already
   EXPECT_EQ(create("x/y/z", "Kem::Dir"), "");
   EXPECT_EQ(get("x/y"),
             R"({"$type": "Kem::Dir", "entityPtr": {"z": {"$type": "Kem::Dir", "entityPtr": {}}}})");
   EXPECT_EQ(create("input/dir/a", "Test::Config"),
             "input/dir/a: is a Test::Group and can't become a Test::Config");
   EXPECT_EQ(create("input/dir/b", "Test::Nothing"), "input/dir/b: there is no type Test::Nothing");
   EXPECT_EQ(create("config/b", "Test::Group"), "config: is a Test::Config and no directory");
   EXPECT_EQ(create("", "Kem::Dir"), "/: is the root and can't be created");
}

TEST_F(SetTest, deletesEntitiesAndMembers) {
   ASSERT_EQ(load(R"({"input/dir/a": {"$type": "Test::Group"},
                      "config": {"named": {"a": true}, "vlanConfig": {"10": {"intf": {"Ethernet1": {}}}}}})"),
             "");
   EXPECT_EQ(erase("config.named[a]"), "");
   EXPECT_EQ(erase("config.named[a]"), "absent: config.named[a]: not there");
   EXPECT_EQ(erase("config.vlanConfig[10].intf[Ethernet1]"), "");
   EXPECT_EQ(erase("config.vlanConfig[10]"), "");
   EXPECT_EQ(erase("config.vlanConfig[10]"), "absent: config.vlanConfig[10]: not there");
   EXPECT_EQ(erase("config.vlanConfig[10].intf[Ethernet1]"), "absent: config.vlanConfig[10]: not there");
   EXPECT_EQ(erase("input/dir/a"), "");
   EXPECT_EQ(erase("input/dir/a"), "absent: input/dir/a: not there");
   EXPECT_EQ(erase("no/where"), "absent: no: not there");
   EXPECT_EQ(get("config.vlanConfig"), "{}");
   EXPECT_EQ(get("input/dir"), R"({"$type": "Kem::Dir", "entityPtr": {}})");
}

TEST_F(SetTest, memberTakesItsKeyWhereItIsLeftOut) {
   EXPECT_EQ(set("config.host[00:1c:73:00:00:01]", R"({"intf": "Ethernet1"})"), "");
   EXPECT_EQ(load(R"({"config": {"host": {"00:1c:73:00:00:02": {},
                                          "00:1c:73:00:00:03": {"addr": "00:1c:73:00:00:03"}}}})"),
             "");
   for (char const* addr : {"00:1c:73:00:00:01", "00:1c:73:00:00:02", "00:1c:73:00:00:03"})
      EXPECT_THAT(get(std::string("config.host[") + addr + "]"),
                  testing::HasSubstr(std::string("\"addr\": \"") + addr + "\""));
   EXPECT_EQ(set("config.host[00:1c:73:00:00:01]", R"({"addr": "00:1c:73:00:00:02"})"),
             "config.host[00:1c:73:00:00:01].addr: 00:1c:73:00:00:02 differs from the key");
   EXPECT_EQ(
       load(R"({"config": {"count": 7, "host": {"00:1c:73:00:00:04": {"addr": "00:00:00:00:00:00"}}}})"),
       "config.host[00:1c:73:00:00:04].addr: 00:00:00:00:00:00 differs from the key");
   EXPECT_EQ(get("config.count"), "0") << "a refused document leaves nothing";
}

TEST_F(SetTest, numbersOutsideAClosedEnumerationAreRefused) {
   EXPECT_EQ(set("input/config/cli.mode", "7"),
             "input/config/cli.mode: 7 is no Mode; expected access_ or trunk_");
   EXPECT_EQ(load(R"({"input/config/cli": {"mode": 2}})"),
             "input/config/cli.mode: 2 is no Mode; expected access_ or trunk_");
   EXPECT_EQ(set("config.host[00:1c:73:00:00:01]", R"({"mode": 7})"), "") << "this one is open";
}

TEST_F(SetTest, placesOfTheSchemaCannotBeDeleted) {
   EXPECT_EQ(erase("input/config/cli"), "input/config/cli: is a place of the schema and can't be deleted");
   EXPECT_EQ(erase("input.entityPtr[config]"), "input/config: is a place of the schema and can't be deleted");
}

TEST_F(SetTest, onlyEntitiesAndMembersCanBeDeleted) {
   EXPECT_EQ(erase("/"), "/: is the root and can't be deleted");
   EXPECT_EQ(erase("config.count"),
             "config.count: is no entity and no member of a collection, so it can't be deleted");
   EXPECT_EQ(erase("config.named"),
             "config.named: is no entity and no member of a collection, so it can't be deleted");
}

TEST(ValueTypeAtTest, givesTheTypeOfValuesOnly) {
   World world;
   auto const typeAt = [&](char const* selector) -> std::string_view {
      ValueType const* type = TreeJson::valueTypeAt(world.tree, selectorOf(selector));
      return type ? type->name : "";
   };
   EXPECT_EQ(typeAt("config.text"), "string");
   EXPECT_EQ(typeAt("config.named[a]"), "bool");
   EXPECT_EQ(typeAt("config.vlanConfig[10].configuredName"), "string"); // though it isn't there
   EXPECT_EQ(typeAt("config.vlanConfig[10]"), "");
   EXPECT_EQ(typeAt("config.named"), "");
   EXPECT_EQ(typeAt("config.peer"), "");
   EXPECT_EQ(typeAt("config.colour"), "");
   EXPECT_EQ(typeAt("nowhere.text"), "");
}

// --- Round trips

// Fills a tree at random, by the descriptors and in wire form, so without any JSON.
class RandomTree {
  public:
   explicit RandomTree(uint32_t seed) : random_(seed) {}

   void fill(Ordel::Tree& tree) {
      std::vector<std::string> directories{"input/dir", "input/config", "cell/1"};
      for (int i = 0; i < 6; ++i) {
         Ordel::Entity const& directory = *tree.find(directories[random_() % directories.size()]);
         uint16_t const type = static_cast<uint16_t>(random_() % std::size(tables().entities));
         std::string const name = "n" + std::to_string(i);
         std::string const path = tree.path(directory) + "/" + name;
         apply(tree, Block().at(directory.node()).createNode(name, type));
         if (type == dirType)
            directories.push_back(path);
         else
            fillEntity(tree, path, {}, schema().entities[type], 0);
      }
      for (char const* path : {"config", "input/config/cli", "cell/1/status"})
         fillEntity(tree, path, {}, tree.find(path)->type(), 0);
   }

  private:
   static void apply(Ordel::Tree& tree, std::string_view block) {
      Ordel::Applied const& applied = tree.apply(block);
      ASSERT_TRUE(applied.isDone()) << applied.error;
   }

   void fillEntity(Ordel::Tree& tree, std::string const& path, std::vector<Step> const& steps,
                   EntityType const& type, int depth) {
      uint32_t const node = tree.find(path)->node();
      for (uint8_t i = 0; i < type.attributes.size(); ++i) {
         Attribute const& attribute = type.attributes[i];
         if (random_() % 3 == 0)
            continue;
         Block block;
         block.at(node, steps);
         if (attribute.form == Form::scalar && !attribute.isInput)
            apply(tree, block.set(i, value(*attribute.value)));
         else if (attribute.form == Form::reference)
            apply(tree, block.set(i, reference()));
         else if (attribute.key)
            for (size_t n = random_() % 4; n > 0; --n)
               addMember(tree, path, steps, attribute, i, depth);
      }
   }

   void addMember(Ordel::Tree& tree, std::string const& path, std::vector<Step> steps,
                  Attribute const& attribute, uint8_t number, int depth) {
      uint32_t const node = tree.find(path)->node();
      std::string const key = value(*attribute.key);
      Block block;
      block.at(node, steps);
      if (attribute.form == Form::map)
         return apply(tree, block.put(number, key, valueUnder(key, *attribute.value)));
      if (attribute.form == Form::references)
         return apply(tree, block.put(number, key, reference()));
      if (depth == 2)
         return;
      bool const isWide = attribute.target->id == vlanType && random_() % 2;
      EntityType const& type = isWide ? schema().entities[wideVlanType] : *attribute.target;
      steps.push_back({number, key});
      block.create(number, key, type.id);
      if (type.find("internal") >= 0)
         block.at(node, steps).set(Vlan::internal, random_() % 2 ? "\1"sv : "\0"sv);
      Ordel::Applied const& applied = tree.apply(block);
      if (applied.isDone()) // else one of the other type is there
         fillEntity(tree, path, steps, type, depth + 1);
   }

   std::string valueUnder(std::string const& key, ValueType const& type) {
      std::string const wire = value(type);
      return type.hasKey ? key + wire.substr(key.size()) : wire;
   }

   std::string reference() {
      char const* const selectors[] = {"", "config", "input/config/cli.vlanConfig[10]",
                                       "a/b.group[\"x]\\xff\"]"};
      return stringBytes(selectors[random_() % std::size(selectors)]);
   }

   std::string value(ValueType const& type) {
      switch (type.kind) {
      case Kind::boolean:
         return std::string(1, static_cast<char>(random_() % 2));
      case Kind::float64: {
         double const number =
             std::ldexp(static_cast<double>(random_()) - 2e9, static_cast<int>(random_() % 600) - 300);
         return std::string(reinterpret_cast<char const*>(&number), sizeof number);
      }
      case Kind::string:
      case Kind::namespaceName: {
         std::string text;
         for (size_t i = random_() % 8; i > 0; --i)
            text += type.kind == Kind::string && random_() % 3 == 0 ? static_cast<char>(random_())
                                                                    : static_cast<char>('a' + random_() % 26);
         std::string const wire = bytesOf(type, text);
         return wire.empty() ? std::string(type.zero) : wire;
      }
      case Kind::intfId: {
         char const* const forms[] = {"Ethernet", "Ethernet3/", "Vlan", "odd \"]", "x"};
         return intfBytes(forms[random_() % std::size(forms)] + std::to_string(random_() % 20));
      }
      case Kind::record: {
         std::string wire;
         for (Records::Field const& field : type.fields)
            wire += value(*field.type);
         return wire;
      }
      default:
         break;
      }
      if (type.rangeText) {
         uint64_t const count = type.max - type.min + 1;
         return u16Bytes(static_cast<uint16_t>(
                             type.min + random_() % (random_() % 2 ? std::min<uint64_t>(20, count) : count)))
             .substr(0, type.size);
      }
      std::string wire;
      for (int i = 0; i < type.size; ++i)
         wire += static_cast<char>(random_());
      return wire;
   }

   std::mt19937 random_;
};

TEST(RoundTripTest, whatWasDumpedIsLoadedTheSame) {
   for (uint32_t seed = 0; seed < 200; ++seed) {
      World first, second;
      RandomTree(seed).fill(first.tree);
      ASSERT_FALSE(testing::Test::HasFatalFailure());
      std::string const text = first.document();
      ASSERT_EQ(second.load(text), "") << "seed " << seed;
      ASSERT_EQ(dump(second.tree, false), dump(first.tree, false)) << "seed " << seed;
      ASSERT_EQ(second.document(), text) << "seed " << seed;
   }
}

TEST(RoundTripTest, loadingWhatExistsChangesNothing) {
   for (uint32_t seed = 0; seed < 50; ++seed) {
      World world;
      RandomTree(seed).fill(world.tree);
      Wire::Writer out;
      std::string const text = world.document();
      Document(text).operations(world.tree, out);
      Ordel::Applied const& applied = world.tree.apply(out.view());
      ASSERT_TRUE(applied.isDone()) << applied.error;
      ASSERT_EQ(applied.bytes, "") << "seed " << seed;
   }
}

} // namespace
