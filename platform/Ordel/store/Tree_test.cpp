#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"
#include "Sulvi/IntfId.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace TestRecords;
using Ordel::Applied;
using Ordel::Entity;
using Ordel::Op;
using Ordel::Status;
using Ordel::Tree;
using ::testing::ElementsAre;

struct TreeTest : testing::Test {
   Tree tree{schema(), 1};
   Entity const& config = *tree.find("config");
   Entity const& cli = *tree.find("input/config/cli");
   Entity const& dir = *tree.find("input/dir");

   Applied const& apply(std::string_view block) { return tree.apply(block); }

   // The block is refused with that text, and the tree is as it was.
   void verifyRefused(std::string_view block, std::string const& error, uint8_t flags = 0,
                      Status status = Status::refused) {
      std::string const before = dump(tree);
      uint32_t const next = tree.nextNode();
      size_t const count = tree.entityCount();
      Applied const& applied = tree.apply(block, flags);
      EXPECT_EQ(applied.error, error);
      EXPECT_EQ(applied.status, status);
      EXPECT_TRUE(applied.bytes.empty() && applied.groups.empty() && applied.nodes.empty());
      EXPECT_EQ(dump(tree), before);
      EXPECT_EQ(tree.nextNode(), next);
      EXPECT_EQ(tree.entityCount(), count);
   }
   void verifyMalformed(std::string_view block) {
      std::string const before = dump(tree);
      Applied const& applied = tree.apply(block);
      EXPECT_TRUE(applied.isMalformed);
      EXPECT_EQ(applied.status, Status::refused);
      EXPECT_NE(applied.error, "");
      EXPECT_EQ(dump(tree), before);
   }
   // The block is done and has no effect.
   void verifyDropped(std::string_view block) {
      std::string const before = dump(tree);
      Applied const& applied = tree.apply(block);
      EXPECT_EQ(applied.error, "");
      EXPECT_TRUE(applied.isDone());
      EXPECT_EQ(hex(applied.bytes), "");
      EXPECT_TRUE(applied.groups.empty() && applied.nodes.empty());
      EXPECT_EQ(dump(tree), before);
   }
   void verifyPassedOn(std::string_view block, std::string_view bytes) {
      Applied const& applied = tree.apply(block);
      EXPECT_EQ(applied.error, "");
      EXPECT_EQ(hex(applied.bytes), hex(bytes));
   }
};

TEST_F(TreeTest, startsWithAllPlacesOfTheSchema) {
   EXPECT_EQ(tree.root().node(), Ordel::rootNode);
   EXPECT_EQ(config.type().name, "Test::Config");
   EXPECT_EQ(cli.type().name, "Test::CliConfig");
   EXPECT_TRUE(dir.isDirectory());
   ASSERT_NE(tree.find("cell/1/status"), nullptr);
   EXPECT_EQ(tree.find("cell/1/status")->type().name, "Test::Group");
   EXPECT_TRUE(tree.find("cell/1")->isDirectory());
   EXPECT_EQ(tree.find("status"), nullptr);
   EXPECT_EQ(tree.entityCount(), 9u);
   EXPECT_EQ(tree.nextNode(), 10u);
   EXPECT_EQ(tree.node(tree.find("cell/1/status")->node()), tree.find("cell/1/status"));
   EXPECT_EQ(tree.node(tree.find("cell")->node()), tree.find("cell"));
   EXPECT_EQ(tree.find(""), &tree.root());
   EXPECT_EQ(tree.node(cli.node()), &cli);
   EXPECT_EQ(tree.path(cli), "input/config/cli");
   EXPECT_EQ(cli.name(), "cli");
}

TEST_F(TreeTest, findsNothingAtOddPaths) {
   for (char const* path : {"input/", "/input", "input//config", "none", "config/none", "/"})
      EXPECT_EQ(tree.find(path), nullptr) << path;
}

TEST_F(TreeTest, cellNumberIsGiven) {
   Tree const other(schema(), 2);
   EXPECT_NE(other.find("cell/2/status"), nullptr);
   EXPECT_EQ(other.find("cell/1"), nullptr);
}

TEST_F(TreeTest, entityHasItsDefaultsAndItsKey) {
   EXPECT_EQ(tree.value(config, Config::name), stringBytes("config"));
   EXPECT_EQ(tree.value(config, Config::enabled), "\1"sv);
   EXPECT_EQ(tree.value(config, Config::text), "\4none"sv);
   EXPECT_EQ(tree.value(config, Config::vlan), "\1\0"sv);
   EXPECT_EQ(tree.value(config, Config::peer), "\0"sv);
   EXPECT_EQ(tree.count(config, Config::port), 0u);
}

TEST_F(TreeTest, setsScalarsOfEveryStorage) {
   Block block;
   block.at(config.node())
       .set(Config::enabled, "\0"sv)
       .set(Config::count, u32Bytes(70000))
       .set(Config::text, stringBytes("a name"))
       .set(Config::intf, intfBytes("Ethernet3/1"))
       .set(Config::peer, stringBytes("input/config/cli"))
       .set(Config::limits, "0123456789abcdef"sv);
   verifyPassedOn(block, block);
   EXPECT_EQ(tree.value(config, Config::enabled), "\0"sv);
   EXPECT_EQ(tree.value(config, Config::count), u32Bytes(70000));
   EXPECT_EQ(tree.value(config, Config::text), stringBytes("a name"));
   EXPECT_EQ(tree.value(config, Config::intf), intfBytes("Ethernet3/1"));
   EXPECT_EQ(tree.value(config, Config::peer), stringBytes("input/config/cli"));
   EXPECT_EQ(tree.value(config, Config::limits), "0123456789abcdef"sv);
   verifyDropped(block);
}

TEST_F(TreeTest, textGoesBackToItsDefault) {
   apply(Block().at(config.node()).set(Config::text, stringBytes("x")));
   apply(Block().at(config.node()).set(Config::text, stringBytes("none")));
   EXPECT_EQ(tree.value(config, Config::text), "\4none"sv);
   Wire::Writer out;
   tree.encodeScalars(config, out);
   EXPECT_EQ(hex(out.view()), "");
   apply(Block().at(config.node()).set(Config::text, stringBytes("")));
   EXPECT_EQ(tree.value(config, Config::text), "\0"sv);
}

TEST_F(TreeTest, irregularInterfaceNamesKeepTheirWireForm) {
   std::string const name = intfBytes("Weird name");
   Block block;
   block.at(config.node()).set(Config::intf, name).put(Config::port, name, portBytes(1, 0, 7));
   verifyPassedOn(block, block);
   EXPECT_EQ(tree.value(config, Config::intf), name);
   EXPECT_EQ(tree.member(config, Config::port, name), portBytes(1, 0, 7));
   Ordel::Members member(tree, config, Config::port);
   ASSERT_TRUE(member.next());
   EXPECT_EQ(member.key(), name);
   EXPECT_FALSE(member.next());
}

TEST_F(TreeTest, putsAndErasesMembers) {
   std::string const one = intfBytes("Ethernet1"), two = intfBytes("Ethernet2");
   Block block;
   block.at(config.node())
       .put(Config::port, one, portBytes(1, 0, 0))
       .put(Config::port, two, portBytes(0, 1, 9));
   verifyPassedOn(block, block);
   verifyDropped(block);
   EXPECT_EQ(tree.count(config, Config::port), 2u);
   Block change;
   change.at(config.node()).put(Config::port, two, portBytes(1, 1, 1)).erase(Config::port, one);
   verifyPassedOn(change, change);
   EXPECT_EQ(tree.member(config, Config::port, one), std::nullopt);
   EXPECT_EQ(tree.member(config, Config::port, two), portBytes(1, 1, 1));
   verifyDropped(Block().at(config.node()).erase(Config::port, one));
}

TEST_F(TreeTest, operationsThatChangeNothingAreLeftOut) {
   std::string const one = stringBytes("one"), two = stringBytes("two"), three = stringBytes("three");
   apply(Block().at(config.node()).put(Config::named, two, "\1"sv));
   verifyPassedOn(
       Block()
           .at(config.node())
           .put(Config::named, one, "\1"sv)
           .put(Config::named, two, "\1"sv)
           .put(Config::named, three, "\0"sv)
           .at(cli.node())
           .set(Config::enabled, "\1"sv)
           .erase(Config::named, one),
       Block().at(config.node()).put(Config::named, one, "\1"sv).put(Config::named, three, "\0"sv));
}

TEST_F(TreeTest, passesOnInTheOrderOfTheBlock) {
   Block block;
   block.at(config.node())
       .put(Config::named, stringBytes("a"), "\1"sv)
       .create(Config::vlanConfig, u16Bytes(1), vlanType)
       .put(Config::named, stringBytes("b"), "\1"sv)
       .create(Config::vlanConfig, u16Bytes(2), vlanType)
       .erase(Config::vlanConfig, u16Bytes(1))
       .set(Config::count, u32Bytes(1));
   verifyPassedOn(block, block);
   EXPECT_EQ(tree.count(config, Config::vlanConfig), 1u);
   uint32_t const number = tree.nextNode();
   verifyPassedOn(
       Block().at(dir.node()).createNode("a", dirType).erase(0, stringBytes("a")).createNode("b", dirType),
       Block()
           .at(dir.node())
           .createNode("a", dirType, number)
           .erase(0, stringBytes("a"))
           .createNode("b", dirType, number + 1));
}

TEST_F(TreeTest, groupsTellEntityAndOperations) {
   Block block;
   block.at(config.node())
       .create(Config::vlanConfig, u16Bytes(10), vlanType)
       .at(config.node(), {{Config::vlanConfig, u16Bytes(10)}})
       .set(Vlan::internal, "\1"sv)
       .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, 0));
   Applied const& applied = apply(block);
   ASSERT_EQ(applied.groups.size(), 2u);
   EXPECT_EQ(applied.groups[0].entity, &config);
   Entity const* const vlan = applied.groups[1].entity;
   EXPECT_EQ(vlan, tree.child(config, Config::vlanConfig, u16Bytes(10)));
   EXPECT_EQ(&vlan->nodeEntity(), &config);
   EXPECT_FALSE(vlan->isNode());
   EXPECT_EQ(applied.at(applied.groups[1]),
             Block().at(config.node(), {{Config::vlanConfig, u16Bytes(10)}}).view());
   Ordel::OperationReader reader(vlan->type(), applied.operations(applied.groups[1]));
   Ordel::Operation operation;
   ASSERT_TRUE(reader.next(operation));
   EXPECT_EQ(operation.op, Op::set);
   EXPECT_EQ(operation.value, "\1"sv);
   ASSERT_TRUE(reader.next(operation));
   EXPECT_EQ(operation.op, Op::put);
   EXPECT_EQ(operation.key, intfBytes("Ethernet1"));
   EXPECT_EQ(operation.value, portBytes(1, 0, 0));
   EXPECT_FALSE(reader.next(operation));
   EXPECT_TRUE(reader.isGood());
   EXPECT_TRUE(applied.nodes.empty());
}

// --- Nodes

TEST_F(TreeTest, createsNodesWithNumbersOfItsOwn) {
   uint32_t const number = tree.nextNode();
   Block block;
   block.at(dir.node())
       .createNode("a", configType)
       .at(dir.node(), {{0, stringBytes("a")}})
       .set(Config::count, u32Bytes(1));
   Block passedOn;
   passedOn.at(dir.node()).createNode("a", configType, number).at(number).set(Config::count, u32Bytes(1));
   verifyPassedOn(block, passedOn);
   Entity const* const made = tree.node(number);
   ASSERT_NE(made, nullptr);
   EXPECT_EQ(tree.path(*made), "input/dir/a");
   EXPECT_EQ(tree.value(*made, Config::name), stringBytes("a"));
   verifyDropped(Block().at(dir.node()).createNode("a", configType));
}

TEST_F(TreeTest, listsNodesThatComeAndGo) {
   Applied const& applied = apply(Block()
                                      .at(dir.node())
                                      .createNode("sub", dirType)
                                      .at(dir.node(), {{0, stringBytes("sub")}})
                                      .createNode("leaf", groupType)
                                      .at(dir.node())
                                      .erase(0, stringBytes("sub"))
                                      .createNode("sub", groupType));
   std::vector<std::string> seen;
   for (auto const& change : applied.nodes)
      seen.push_back((change.isCreated ? "+" : "-") + tree.path(*change.entity) + " " +
                     std::string(change.entity->type().name));
   EXPECT_THAT(seen, ElementsAre("+input/dir/sub Kem::Dir", "+input/dir/sub/leaf Test::Group",
                                 "-input/dir/sub Kem::Dir", "-input/dir/sub/leaf Test::Group",
                                 "+input/dir/sub Test::Group"));
   EXPECT_TRUE(applied.nodes[0].entity->isErased());
   EXPECT_FALSE(applied.nodes[4].entity->isErased());
}

TEST_F(TreeTest, numbersAreNeverUsedAgain) {
   uint32_t const first = tree.nextNode();
   apply(Block().at(dir.node()).createNode("a", dirType));
   apply(Block().at(dir.node()).erase(0, stringBytes("a")));
   EXPECT_EQ(tree.node(first), nullptr);
   apply(Block().at(dir.node()).createNode("a", dirType));
   EXPECT_EQ(tree.find("input/dir/a")->node(), first + 1);
}

TEST_F(TreeTest, eraseOfADirectoryTakesAllBelow) {
   size_t const before = tree.entityCount();
   apply(Block()
             .at(dir.node())
             .createNode("a", dirType)
             .at(dir.node(), {{0, stringBytes("a")}})
             .createNode("b", configType));
   uint32_t const below = tree.find("input/dir/a/b")->node();
   apply(Block().at(below).create(Config::vlanConfig, u16Bytes(5), vlanType));
   EXPECT_EQ(tree.entityCount(), before + 3);
   Block erase;
   erase.at(dir.node()).erase(0, stringBytes("a"));
   verifyPassedOn(erase, erase);
   EXPECT_EQ(tree.entityCount(), before);
   EXPECT_EQ(tree.node(below), nullptr);
}

// --- What is no longer there

TEST_F(TreeTest, operationsOnAnErasedNodeAreDropped) {
   apply(Block().at(dir.node()).createNode("a", configType));
   uint32_t const number = tree.find("input/dir/a")->node();
   apply(Block().at(dir.node()).erase(0, stringBytes("a")));
   Block late;
   late.at(number)
       .set(Config::text, stringBytes("late"))
       .create(Config::vlanConfig, u16Bytes(1), vlanType)
       .at(number, {{Config::vlanConfig, u16Bytes(1)}})
       .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(0, 0, 0))
       .at(dir.node(), {{0, stringBytes("a")}})
       .erase(Config::named, stringBytes("x"));
   verifyDropped(late);
   verifyRefused(late, "node " + std::to_string(number) + ": not there", Ordel::writeStrict, Status::absent);
}

TEST_F(TreeTest, operationsOnAnAbsentMemberAreDropped) {
   Block block;
   block.at(config.node(), {{Config::vlanConfig, u16Bytes(9)}}).set(Vlan::configuredName, stringBytes("x"));
   verifyDropped(block);
   verifyRefused(block, "config.vlanConfig[9]: not there", Ordel::writeStrict, Status::absent);
   // An attribute that only a derived type has.
   verifyDropped(
       Block().at(config.node(), {{Config::vlanConfig, u16Bytes(9)}}).set(Vlan::extra, "12345678"sv));
   verifyRefused(Block().at(config.node()).erase(Config::named, stringBytes("x")),
                 "config.named[x]: not there", Ordel::writeStrict, Status::absent);
}

TEST_F(TreeTest, aNameThatNobodyRemembersRefusesTheBlock) {
   verifyRefused(Block().at(dir.node(), {{0, stringBytes("nobody")}}).set(1, "\0"sv),
                 "input/dir/nobody: not there", 0, Status::absent);
   verifyDropped(Block().at(dir.node(), {{0, stringBytes("nobody")}}));
}

TEST_F(TreeTest, aNodeThatNeverWasIsRefused) {
   verifyRefused(Block().at(9999).set(1, "\0"sv), "node 9999: there never was one of this number");
}

// --- Refusals

TEST_F(TreeTest, refusesValuesOutsideTheirRange) {
   verifyRefused(Block().at(config.node()).set(Config::vlan, u16Bytes(4095)),
                 "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   verifyRefused(Block().at(config.node()).set(Config::vlan, u16Bytes(0)),
                 "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   apply(Block().at(config.node()).set(Config::vlan, u16Bytes(4094)));
   EXPECT_EQ(tree.value(config, Config::vlan), u16Bytes(4094));
   verifyRefused(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(5000), vlanType),
                 "config.vlanConfig[5000]: VlanId::value < 1 or > 4094 not allowed");
   std::string const learned = intfBytes("Ethernet1") + u16Bytes(4095) + stringBytes("");
   verifyRefused(Block().at(config.node()).put(Config::learned, "abcdef"sv, learned),
                 "config.learned[61:62:63:64:65:66].vlan: VlanId::value < 1 or > 4094 not allowed");
}

TEST_F(TreeTest, refusesBooleansThatAreNeither) {
   verifyRefused(Block().at(config.node()).set(Config::enabled, "\2"sv),
                 "config.enabled: neither false nor true");
   verifyRefused(Block().at(config.node()).put(Config::port, intfBytes("Ethernet3/1"), portBytes(0, 2, 0)),
                 "config.port[Ethernet3/1].shut: neither false nor true");
}

TEST_F(TreeTest, refusesWhatIsNotANumber) {
   auto const bytes = [](double v) { return std::string(reinterpret_cast<char const*>(&v), 8); };
   verifyRefused(
       Block().at(config.node()).set(Config::ratio, bytes(std::numeric_limits<double>::quiet_NaN())),
       "config.ratio: not a number");
   verifyRefused(
       Block().at(config.node()).set(Config::ratio, bytes(-std::numeric_limits<double>::quiet_NaN())),
       "config.ratio: not a number");
   EXPECT_TRUE(
       apply(Block().at(config.node()).set(Config::ratio, bytes(-std::numeric_limits<double>::infinity())))
           .isDone());
}

TEST_F(TreeTest, refusesTheWrongForm) {
   verifyRefused(Block().at(config.node()).put(Config::text, "", ""), "config.text: is no collection");
   verifyRefused(Block().at(config.node()).set(Config::port, ""), "config.port: a collection can't be set");
   verifyRefused(Block().at(config.node()).put(Config::group, stringBytes("x"), ""),
                 "config.group: holds entities, which are created");
   verifyRefused(Block().at(config.node()).create(Config::port, intfBytes("Ethernet1"), vlanType),
                 "config.port: holds no entities");
   verifyRefused(Block().at(config.node()).erase(Config::count, ""), "config.count: is no collection");
   verifyRefused(Block().at(config.node(), {{Config::port, intfBytes("Ethernet1")}}),
                 "config.port: holds no entities");
   verifyRefused(Block().at(config.node()).set(Config::mode, "\0"sv),
                 "config: Test::Config has no attribute of number 18");
}

TEST_F(TreeTest, refusesNumbersThatAnEnumerationHasNot) {
   verifyRefused(Block().at(cli.node()).set(Config::mode, "\7"sv),
                 "input/config/cli.mode: Mode::value > 1 not allowed");
   EXPECT_TRUE(apply(Block().at(cli.node()).set(Config::mode, "\1"sv)).isDone());
   // An open one takes any number.
   Block open;
   open.at(config.node()).put(Config::host, "abcdef"sv, "abcdef" + intfBytes("Ethernet1") + "\7");
   verifyPassedOn(open, open);
}

TEST_F(TreeTest, refusesMembersUnderAnotherKeyThanTheirOwn) {
   std::string const rest = intfBytes("Ethernet1") + std::string(1, '\0');
   verifyRefused(Block().at(config.node()).put(Config::host, "abcdef"sv, "abcdeg" + rest),
                 "config.host[61:62:63:64:65:66].addr: 61:62:63:64:65:67 differs from the key");
   verifyRefused(Block().at(config.node()).put(Config::host, "abcdef"sv, std::string(6, '\0') + rest),
                 "config.host[61:62:63:64:65:66].addr: 00:00:00:00:00:00 differs from the key");
   EXPECT_TRUE(apply(Block().at(config.node()).put(Config::host, "abcdef"sv, "abcdef" + rest)).isDone());
}

TEST_F(TreeTest, refusesBareNumbersAsNamesOfInterfaces) {
   Wire::Writer name;
   Sulvi::IntfId("4711").encode(name);
   verifyRefused(Block().at(config.node()).put(Config::port, name.view(), portBytes(0, 0, 0)),
                 "config.port[4711]: a bare number is no name of an interface");
   EXPECT_TRUE(
       apply(Block().at(config.node()).put(Config::port, intfBytes("4711a"), portBytes(0, 0, 0))).isDone());
}

TEST_F(TreeTest, placesOfTheSchemaCannotBeDeleted) {
   auto const verifyStays = [&](char const* directory, char const* name) {
      std::string const path = *directory ? std::string(directory) + "/" + name : name;
      verifyRefused(Block().at(tree.find(directory)->node()).erase(0, stringBytes(name)),
                    path + ": is a place of the schema and can't be deleted");
   };
   verifyStays("input/config", "cli");
   verifyStays("input", "config"); // a directory
   verifyStays("", "input");       // one on the way
   verifyStays("", "config");
   verifyStays("cell/1", "status");
   verifyStays("cell", "1"); // holds places
   verifyStays("", "cell");
}

TEST_F(TreeTest, whatOthersCreatedCanBeDeleted) {
   apply(Block()
             .at(tree.root().node())
             .createNode("status", groupType) // the name of a place, but one of a cell
             .at(tree.find("input")->node())
             .createNode("cell", dirType)
             .at(tree.find("input/config")->node())
             .createNode("lag", configType)
             .at(tree.find("cell")->node())
             .createNode("2", dirType)
             .createNode("x1", dirType)
             .at(tree.find("cell/1")->node())
             .createNode("config", configType));
   std::pair<char const*, char const*> const made[] = {{"", "status"},          {"input", "cell"},
                                                       {"input/config", "lag"}, {"cell", "2"},
                                                       {"cell", "x1"},          {"cell/1", "config"}};
   for (auto const& [directory, name] : made) {
      Applied const& applied = apply(Block().at(tree.find(directory)->node()).erase(0, stringBytes(name)));
      EXPECT_EQ(applied.error, "");
      EXPECT_FALSE(applied.bytes.empty()) << name;
   }
}

TEST_F(TreeTest, refusesTypesThatDoNotFit) {
   verifyRefused(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(7), groupType),
                 "config.vlanConfig[7]: Test::Group can't stand where Test::Vlan is declared");
   verifyRefused(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(7), 99),
                 "config.vlanConfig[7]: there is no type of number 99");
   EXPECT_TRUE(
       apply(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(7), wideVlanType)).isDone());
   verifyRefused(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(7), vlanType),
                 "config.vlanConfig[7]: is a Test::WideVlan and can't become a Test::Vlan");
   verifyDropped(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(7), wideVlanType));
}

TEST_F(TreeTest, refusesBadNames) {
   for (std::string_view name : {"a/b"sv, "a.b"sv, "a[b"sv, "a]b"sv, "a\0b"sv}) {
      Applied const& applied = apply(Block().at(dir.node()).createNode(name, dirType));
      EXPECT_EQ(applied.status, Status::refused);
      EXPECT_THAT(applied.error, testing::EndsWith(": a name has no / . [ ] and no NUL in it"));
      EXPECT_THAT(applied.error, testing::StartsWith("input/dir.entityPtr["));
   }
   verifyRefused(Block().at(dir.node()).createNode("", dirType),
                 "input/dir.entityPtr[\"\"]: a name is not empty");
   EXPECT_FALSE(apply(Block().at(dir.node()).createNode(std::string(256, 'x'), dirType)).isDone());
   EXPECT_TRUE(apply(Block().at(dir.node()).createNode(std::string(255, 'x'), dirType)).isDone());
   EXPECT_NE(tree.find("input/dir/" + std::string(255, 'x')), nullptr);
}

TEST_F(TreeTest, refusesNumbersFromAClient) {
   verifyRefused(Block().at(dir.node()).createNode("a", dirType, 500),
                 "input/dir/a: the number of a node is given by the database");
}

TEST_F(TreeTest, refusesOverlongTexts) {
   std::string const most(Ordel::maxStringBytes, 'x');
   EXPECT_TRUE(apply(Block().at(config.node()).set(Config::text, stringBytes(most))).isDone());
   Wire::Writer longer;
   longer.string(most + "x");
   verifyRefused(Block().at(config.node()).set(Config::text, longer.view()),
                 "config.text: longer than 1048576 bytes");
   Wire::Writer ns;
   ns.string(std::string(151, 'n'));
   verifyRefused(Block().at(config.node()).set(Config::ns, ns.view()),
                 "config.ns: NamespaceName::bytes > 150 not allowed");
}

TEST_F(TreeTest, refusesReferencesThatAreNoSelectors) {
   verifyRefused(Block().at(config.node()).set(Config::peer, stringBytes("a..b")),
                 "config.peer: \"a..b\": the name of an attribute is expected at byte 3");
   Block good;
   good.at(config.node()).put(Config::source, intfBytes("Ethernet1"), stringBytes("config.vlanConfig[10]"));
   verifyPassedOn(good, good);
   EXPECT_EQ(tree.member(config, Config::source, intfBytes("Ethernet1")),
             stringBytes("config.vlanConfig[10]"));
}

TEST_F(TreeTest, refusesTooDeep) {
   std::vector<Step> steps;
   for (size_t i = 0; i < Ordel::maxStepCount; ++i) {
      EXPECT_TRUE(
          apply(Block()
                    .at(config.node(), steps)
                    .create(i ? uint8_t{Group::group} : uint8_t{Config::group}, stringBytes("g"), groupType))
              .isDone());
      steps.push_back(
          {i ? static_cast<uint8_t>(Group::group) : static_cast<uint8_t>(Config::group), stringBytes("g")});
   }
   Applied const& applied =
       apply(Block().at(config.node(), steps).create(Group::group, stringBytes("g"), groupType));
   EXPECT_THAT(applied.error, testing::EndsWith(".group[g]: too deep"));
   uint32_t at = dir.node(); // a directory at depth 2
   for (size_t depth = 2; depth < Ordel::maxPathDepth; ++depth) {
      uint32_t const next = tree.nextNode();
      ASSERT_TRUE(apply(Block().at(at).createNode("d", dirType)).isDone());
      at = next;
   }
   EXPECT_FALSE(apply(Block().at(at).createNode("d", dirType)).isDone());
   EXPECT_TRUE(apply(Block().at(at).createNode("leaf", groupType)).isDone());
}

TEST_F(TreeTest, malformedBytesAreRefused) {
   std::string const whole(Block()
                               .at(config.node(), {})
                               .put(Config::named, stringBytes("abc"), "\1"sv)
                               .create(Config::vlanConfig, u16Bytes(3), vlanType)
                               .view());
   size_t const ends[] = {0, 6, 13}; // between operations
   for (size_t size = 1; size < whole.size(); ++size)
      if (std::find(std::begin(ends), std::end(ends), size) == std::end(ends))
         verifyMalformed(whole.substr(0, size));
   EXPECT_EQ(whole.size(), 19u);
   verifyMalformed("\2\1\0"sv);                              // before an `at`
   verifyMalformed(Block().at(config.node()).raw("\7\0"sv)); // no such operation
   verifyMalformed(
       Block().at(config.node()).set(Config::text, "\xff\1\0\0\0x"sv)); // a length of five bytes for one
   verifyMalformed(Block().at(config.node()).set(Config::intf, "\0\0\0\x7c"sv)); // no such interface id
}

// --- Inputs

TEST_F(TreeTest, inputsAreGivenWithTheCreation) {
   std::vector<Step> const ten{{Config::vlanConfig, u16Bytes(10)}};
   EXPECT_TRUE(apply(Block()
                         .at(config.node())
                         .create(Config::vlanConfig, u16Bytes(10), vlanType)
                         .at(config.node(), ten)
                         .set(Vlan::internal, "\1"sv)
                         .set(Vlan::vlanId, u16Bytes(10)))
                   .isDone());
   Entity const* const vlan = tree.child(config, Config::vlanConfig, u16Bytes(10));
   EXPECT_EQ(tree.value(*vlan, Vlan::vlanId), u16Bytes(10));
   EXPECT_EQ(tree.value(*vlan, Vlan::internal), "\1"sv);
   verifyDropped(Block().at(config.node(), ten).set(Vlan::internal, "\1"sv));
   verifyRefused(Block().at(config.node(), ten).set(Vlan::internal, "\0"sv),
                 "config.vlanConfig[10].internal: is given at creation");
   verifyRefused(Block().at(config.node(), ten).set(Vlan::vlanId, u16Bytes(11)),
                 "config.vlanConfig[10].vlanId: is given at creation");
   verifyRefused(Block()
                     .at(config.node())
                     .create(Config::vlanConfig, u16Bytes(12), vlanType)
                     .at(config.node(), {{Config::vlanConfig, u16Bytes(12)}})
                     .set(Vlan::vlanId, u16Bytes(11)),
                 "config.vlanConfig[12].vlanId: is given at creation");
}

// --- All or nothing

TEST_F(TreeTest, aRefusalTakesEverythingBack) {
   apply(Block()
             .at(config.node())
             .set(Config::text, stringBytes("before"))
             .set(Config::limits, "0123456789abcdef"sv)
             .put(Config::named, stringBytes("kept"), "\1"sv)
             .put(Config::learned, "abcdef"sv, intfBytes("Odd") + u16Bytes(3) + stringBytes("tag"))
             .put(Config::xlate, "abcd"sv, "0123456789abcdef"sv)
             .create(Config::group, stringBytes("g"), groupType)
             .at(config.node(), {{Config::group, stringBytes("g")}})
             .create(Group::group, stringBytes("h"), groupType)
             .at(dir.node())
             .createNode("a", dirType));
   verifyRefused(Block()
                     .at(config.node())
                     .set(Config::text, stringBytes("after"))
                     .set(Config::text, stringBytes("after that"))
                     .set(Config::limits, "xxxxxxxxxxxxxxxx"sv)
                     .put(Config::named, stringBytes("kept"), "\0"sv)
                     .put(Config::named, stringBytes("new"), "\0"sv)
                     .erase(Config::named, stringBytes("kept"))
                     .put(Config::learned, "abcdef"sv, intfBytes("") + u16Bytes(4) + stringBytes("other"))
                     .erase(Config::learned, "abcdef"sv)
                     .erase(Config::xlate, "abcd"sv)
                     .at(config.node(), {{Config::group, stringBytes("g")}, {Group::group, stringBytes("h")}})
                     .put(Group::member, "\1"sv, u32Bytes(1))
                     .at(config.node(), {{Config::group, stringBytes("g")}})
                     .erase(Group::group, stringBytes("h"))
                     .create(Group::group, stringBytes("h"), groupType)
                     .at(config.node())
                     .erase(Config::group, stringBytes("g"))
                     .create(Config::group, stringBytes("g"), groupType)
                     .at(dir.node())
                     .createNode("b", configType)
                     .at(dir.node(), {{0, stringBytes("b")}})
                     .put(Config::named, stringBytes("x"), "\1"sv)
                     .at(dir.node())
                     .erase(0, stringBytes("a"))
                     .at(config.node())
                     .set(Config::vlan, u16Bytes(0)),
                 "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_NE(tree.find("input/dir/a"), nullptr);
   EXPECT_EQ(tree.node(dir.node()), &dir);
}

// --- Encoding

TEST_F(TreeTest, encodesMembersAndAttributes) {
   apply(Block()
             .at(config.node())
             .set(Config::count, u32Bytes(3))
             .put(Config::named, stringBytes("n"), "\1"sv)
             .create(Config::vlanConfig, u16Bytes(10), vlanType)
             .at(config.node(), {{Config::vlanConfig, u16Bytes(10)}})
             .set(Vlan::configuredName, stringBytes("red")));
   Wire::Writer out;
   tree.encodeScalars(config, out);
   EXPECT_EQ(hex(out.view()), hex(Block().set(Config::count, u32Bytes(3))));
   out.clear();
   tree.encodeAttribute(config, Config::vlan, out);
   EXPECT_EQ(hex(out.view()), hex(Block().set(Config::vlan, u16Bytes(1))));
   out.clear();
   tree.encodeMember(config, Config::named, stringBytes("n"), out);
   tree.encodeMember(config, Config::named, stringBytes("gone"), out);
   tree.encodeMember(config, Config::vlanConfig, u16Bytes(11), out);
   tree.encodeMember(config, Config::vlanConfig, u16Bytes(10), out);
   EXPECT_EQ(hex(out.view()), hex(Block()
                                      .put(Config::named, stringBytes("n"), "\1"sv)
                                      .erase(Config::named, stringBytes("gone"))
                                      .erase(Config::vlanConfig, u16Bytes(11))
                                      .create(Config::vlanConfig, u16Bytes(10), vlanType)
                                      .at(config.node(), {{Config::vlanConfig, u16Bytes(10)}})
                                      .set(Vlan::configuredName, stringBytes("red"))));
}

// --- Mirrors

TEST_F(TreeTest, aMirrorFollowsWhatIsPassedOn) {
   Tree mirror(schema());
   mirror.mount(config.node(), config.type(), "config");
   mirror.mount(dir.node(), dir.type(), "input/dir");
   EXPECT_EQ(mirror.find("input")->node(), 0u);
   EXPECT_TRUE(mirror
                   .apply(apply(Block()
                                    .at(dir.node())
                                    .createNode("a", configType)
                                    .at(dir.node(), {{0, stringBytes("a")}})
                                    .put(Config::named, stringBytes("x"), "\1"sv))
                              .bytes)
                   .isDone());
   ASSERT_NE(mirror.find("input/dir/a"), nullptr);
   EXPECT_EQ(dump(mirror, *mirror.find("input/dir")), dump(tree, dir));
   // Inputs that come in a later piece.
   uint32_t const made = tree.nextNode();
   EXPECT_TRUE(mirror.apply(Block().at(dir.node()).createNode("v", vlanType, made)).isDone());
   EXPECT_TRUE(mirror.apply(Block().at(made).set(Vlan::internal, "\1"sv)).isDone());
   EXPECT_EQ(mirror.value(*mirror.node(made), Vlan::internal), "\1"sv);
}

TEST_F(TreeTest, aMirrorTakesANewNodeForAnOldPath) {
   Tree mirror(schema());
   mirror.mount(7, tables().entities[configType], "x/y");
   mirror.apply(Block().at(7).set(Config::count, u32Bytes(5)));
   Entity const& again = mirror.mount(9, tables().entities[groupType], "x/y");
   EXPECT_EQ(&again, mirror.find("x/y"));
   EXPECT_EQ(again.type().name, "Test::Group");
   EXPECT_EQ(mirror.node(7), nullptr);
   mirror.unmount(9);
   EXPECT_EQ(mirror.find("x/y"), nullptr);
   mirror.unmount(9);
   EXPECT_TRUE(mirror.apply(Block().at(9).put(Group::member, "\1"sv, u32Bytes(1))).isDone()); // late, dropped
}

// --- Selectors

struct LocateTest : TreeTest {
   Ordel::Located locate(std::string_view text) {
      Ordel::Selector selector;
      std::string error;
      EXPECT_TRUE(Ordel::Selector::parse(text, selector, error)) << error;
      return tree.locate(selector);
   }
   LocateTest() {
      tree.apply(Block()
                     .at(config.node())
                     .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
                     .at(config.node(), {{Config::vlanConfig, u16Bytes(10)}})
                     .put(Vlan::intf, intfBytes("Ethernet3/1.100"), portBytes(1, 0, 2)));
   }
};

TEST_F(LocateTest, leadsToEntitiesAttributesAndMembers) {
   EXPECT_EQ(locate("/").entity, &tree.root());
   EXPECT_EQ(locate("input/config/cli").entity, &cli);
   Ordel::Located const attribute = locate("config.vlanConfig[10].extra");
   EXPECT_EQ(attribute.status, Status::done);
   EXPECT_EQ(attribute.entity, tree.child(config, Config::vlanConfig, u16Bytes(10)));
   EXPECT_EQ(attribute.attribute, Vlan::extra);
   EXPECT_EQ(attribute.key, std::nullopt);
   Ordel::Located const member = locate("config.vlanConfig[10].intf[Ethernet3/1.100]");
   EXPECT_EQ(member.status, Status::done);
   EXPECT_EQ(tree.member(*member.entity, Vlan::intf, *member.key), portBytes(1, 0, 2));
   Ordel::Located const below = locate("config.vlanConfig[10]");
   EXPECT_EQ(below.entity, attribute.entity);
   EXPECT_EQ(below.attribute, -1);
   EXPECT_EQ(locate("input.entityPtr[dir]").entity, &dir);
}

TEST_F(LocateTest, tellsAbsentFromImpossible) {
   auto const verify = [&](std::string_view text, Status status, std::string const& error) {
      Ordel::Located const located = locate(text);
      EXPECT_EQ(located.status, status) << text;
      EXPECT_EQ(located.error, error);
   };
   verify("input/none/x", Status::absent, "input/none/x: not there");
   verify("config.vlanConfig[11].intf", Status::absent, "config.vlanConfig[11]: not there");
   verify("config.named[x]", Status::absent, "config.named[x]: not there");
   verify("config.none", Status::refused, "config: Test::Config has no attribute none");
   verify("config.text[x]", Status::refused, "config.text[x]: the attribute has no members");
   verify("config.vlanConfig[0]", Status::refused,
          "config.vlanConfig[0]: VlanId::value < 1 or > 4094 not allowed");
   verify("config.vlanConfig[ten]", Status::refused,
          "config.vlanConfig[ten]: \"ten\" is no Test::VlanId: a number is expected");
   verify("config.named[x].y", Status::refused, "config.named[x]: is a value and has no attributes");
   Ordel::Located const absent = locate("config.vlanConfig[11]");
   EXPECT_EQ(absent.entity, &config);
   EXPECT_EQ(absent.attribute, Config::vlanConfig);
   EXPECT_EQ(absent.key, u16Bytes(11));
}

TEST_F(LocateTest, textOfASelectorLeadsBack) {
   Entity const& vlan = *tree.child(config, Config::vlanConfig, u16Bytes(10));
   EXPECT_EQ(Ordel::selectorText(tree, tree.root()), "/");
   EXPECT_EQ(Ordel::selectorText(tree, tree.root(), 0, stringBytes("config")), "/.entityPtr[config]");
   EXPECT_EQ(Ordel::selectorText(tree, vlan), "config.vlanConfig[10]");
   EXPECT_EQ(Ordel::selectorText(tree, vlan, Vlan::extra), "config.vlanConfig[10].extra");
   EXPECT_EQ(Ordel::selectorText(tree, vlan, Vlan::intf, intfBytes("Ethernet3/1.100")),
             "config.vlanConfig[10].intf[Ethernet3/1.100]");
   EXPECT_EQ(Ordel::selectorText(tree, config, Config::xlate, "\x64\0\0\0"sv), "config.xlate[100/0]");
}

} // namespace
