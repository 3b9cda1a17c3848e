// What a block of operations comes to: what is passed on, what is dropped, whom it concerns, and what a refused
// one leaves. The operations one by one, with all that they refuse, are in Tree_test.
#include "Ordel/store/Applier.h"
#include "Ordel/store/TestRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::Applied;
using Ordel::Applier;
using Ordel::Entity;
using Ordel::Status;
using Ordel::Store;
using ::testing::ElementsAre;

struct ApplierTest : testing::Test {
   Store store{schema(), false};
   Applier applier{store};

   ApplierTest() {
      apply(Block()
                .at(store.root->node())
                .createNode("a", configType)
                .createNode("b", configType)
                .createNode("dir", dirType));
   }
   Entity& at(std::string_view path) {
      std::string_view rest;
      return *store.reach(path, rest);
   }
   uint32_t node(std::string_view path) { return at(path).node(); }
   Applied const& apply(Block const& block, uint8_t flags = 0) { return applier.apply(block, flags); }

   std::vector<std::string> namesOfGroups(Applied const& applied) {
      std::vector<std::string> names;
      for (Ordel::Group const& group : applied.groups)
         names.emplace_back(group.entity->name());
      return names;
   }
   std::vector<std::string> nodeChanges(Applied const& applied) {
      std::vector<std::string> changes;
      for (auto const& change : applied.nodes)
         changes.push_back((change.isCreated ? "+" : "-") + std::string(change.entity->name()));
      return changes;
   }
};

TEST_F(ApplierTest, whatTookEffectIsPassedOnAsItStands) {
   Block block;
   block.at(node("a")).set(Config::count, u32Bytes(7)).put(Config::named, stringBytes("x"), "\1");
   Applied const& applied = apply(block);
   EXPECT_EQ(hex(applied.bytes), hex(block.view()));
}

TEST_F(ApplierTest, whatChangesNothingIsLeftOut) {
   apply(Block().at(node("a")).set(Config::count, u32Bytes(7)));
   Applied const& applied = apply(Block()
                                      .at(node("a"))
                                      .set(Config::count, u32Bytes(7))        // stands already
                                      .set(Config::vlan, u16Bytes(5))         // does not
                                      .erase(Config::named, stringBytes("x")) // isn't there
                                      .put(Config::named, stringBytes("y"), "\1"));
   Block expected;
   expected.at(node("a")).set(Config::vlan, u16Bytes(5)).put(Config::named, stringBytes("y"), "\1");
   EXPECT_EQ(hex(applied.bytes), hex(expected.view()));
}

TEST_F(ApplierTest, entityWithoutAnEffectHasNoGroup) {
   Applied const& applied = apply(Block()
                                      .at(node("a"))
                                      .set(Config::count, u32Bytes(1))
                                      .at(node("b"))
                                      .set(Config::count, u32Bytes(0)) // the default
                                      .at(node("a"))
                                      .set(Config::count, u32Bytes(2)));
   EXPECT_THAT(namesOfGroups(applied), ElementsAre("a", "a")) << "one for each time that it was named";
}

TEST_F(ApplierTest, groupsSayWhereTheirOperationsStand) {
   Block block;
   block.at(node("a"))
       .set(Config::count, u32Bytes(1))
       .set(Config::vlan, u16Bytes(9))
       .at(node("b"))
       .set(Config::count, u32Bytes(2));
   Applied const& applied = apply(block);
   ASSERT_EQ(applied.groups.size(), 2u);
   Ordel::Group const& second = applied.groups[1];
   EXPECT_EQ(hex(applied.at(second)), hex(Block().at(node("b")).view()));
   EXPECT_EQ(hex(applied.operations(second)), hex(Block().set(Config::count, u32Bytes(2)).view()));
   EXPECT_EQ(second.first, 2u) << "counted over the block: behind the two operations of the first group";
}

TEST_F(ApplierTest, newMembersAreMarked) {
   apply(Block().at(node("a")).put(Config::named, stringBytes("old"), "\1"));
   Applied const& applied =
       apply(Block()
                 .at(node("a"))
                 .put(Config::named, stringBytes("old"), std::string(1, '\0'))
                 .put(Config::named, stringBytes("new"), "\1")
                 .put(Config::named, stringBytes("new"), "\1") // dropped, so not marked at all
                 .erase(Config::named, stringBytes("old"))
                 .create(Config::group, stringBytes("g"), groupType));
   EXPECT_THAT(std::vector<int>(applied.isNew.begin(), applied.isNew.end()), ElementsAre(0, 1, 0, 1));
}

TEST_F(ApplierTest, createdNodeIsPassedOnWithItsNumber) {
   uint32_t const next = store.nextNode;
   Applied const& applied = apply(Block().at(node("dir")).createNode("x", configType));
   EXPECT_EQ(hex(applied.bytes), hex(Block().at(node("dir")).createNode("x", configType, next).view()));
   EXPECT_THAT(nodeChanges(applied), ElementsAre("+x"));
}

TEST_F(ApplierTest, nodesBelowAnErasedOneAreListed) {
   apply(Block()
             .at(node("dir"))
             .createNode("above", dirType)
             .at(node("dir"), {{0, stringBytes("above")}})
             .createNode("below", configType));
   Applied const& applied = apply(Block().at(node("dir")).erase(0, stringBytes("above")));
   EXPECT_THAT(nodeChanges(applied), ElementsAre("-above", "-below"));
   EXPECT_EQ(applied.groups.size(), 1u) << "one operation says it all";
}

TEST_F(ApplierTest, refusedBlockLeavesAndPassesOnNothing) {
   uint32_t const next = store.nextNode;
   Applied const& applied = apply(Block()
                                      .at(node("a"))
                                      .set(Config::count, u32Bytes(7))
                                      .at(node("dir"))
                                      .createNode("x", configType)
                                      .at(node("b"))
                                      .set(Config::vlan, u16Bytes(0)));
   EXPECT_EQ(applied.status, Status::refused);
   EXPECT_EQ(applied.error, "b.vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_FALSE(applied.isMalformed);
   EXPECT_TRUE(applied.bytes.empty() && applied.groups.empty() && applied.nodes.empty() &&
               applied.isNew.empty());
   EXPECT_EQ(&at("dir/x"), &at("dir")) << "there is nothing below";
   EXPECT_EQ(store.nextNode, next);
   EXPECT_FALSE(apply(Block().at(node("a")).set(Config::count, u32Bytes(0))).groups.size());
}

TEST_F(ApplierTest, lateOperationIsReadOverByTheTypeThatStoodThere) {
   uint32_t const gone = node("b");
   apply(Block().at(store.root->node()).erase(0, stringBytes("b")));
   Block late;
   late.at(gone).set(Config::text, stringBytes("late")).at(node("a")).set(Config::count, u32Bytes(3));
   EXPECT_THAT(namesOfGroups(apply(late)), ElementsAre("a")) << "what follows is still served";
   apply(Block().at(node("a")).set(Config::count, u32Bytes(0)));
   Applied const& strict = apply(late, Ordel::writeStrict);
   EXPECT_EQ(strict.status, Status::absent);
   EXPECT_EQ(strict.error, "node " + std::to_string(gone) + ": not there");
   EXPECT_TRUE(strict.bytes.empty()) << "a strict block is refused as a whole";
}

TEST_F(ApplierTest, bytesThatAreNoOperationsAreMalformed) {
   std::string const cut(Block().at(node("a")).set(Config::count, u32Bytes(7)).view().substr(0, 9));
   Applied const& applied = applier.apply(cut, 0);
   EXPECT_TRUE(applied.isMalformed);
   EXPECT_EQ(applied.error, "a.count: malformed bytes for u32");
   EXPECT_TRUE(applier.apply("\2\1", 0).isMalformed) << "nobody was named";
}

// A snapshot brings its own numbers and is never in doubt about what is there.
TEST_F(ApplierTest, loadingTakesNumbersFromTheOperations) {
   Store bare(schema(), false);
   Applier loader(bare);
   bare.nextNode = 100;
   EXPECT_TRUE(loader.load(Block().at(Ordel::rootNode).createNode("x", configType, 42)).isDone());
   EXPECT_NE(bare.node(42), nullptr);
   EXPECT_EQ(bare.nextNode, 100u);
   EXPECT_EQ(loader.load(Block().at(Ordel::rootNode).createNode("y", configType, 100)).error,
             "y: the number of a node is given by the database")
       << "one that is yet to be given";
   EXPECT_EQ(loader.load(Block().at(42).erase(Config::named, stringBytes("n"))).error,
             "x.named: a snapshot erases nothing");
   EXPECT_EQ(loader.load(Block().at(77)).error, "node 77: there never was one of this number");
}

// --- The limit of the tree

TEST_F(ApplierTest, whatAddsToAFullTreeIsRefused) {
   std::string const text(1000, 'x');
   apply(Block()
             .at(node("a"))
             .set(Config::text, stringBytes(text))
             .put(Config::named, stringBytes("old"), "\1"sv));
   size_t const before = store.bytes;
   store.byteLimit = before;
   auto const verifyRefused = [&](Block const& block, std::string const& place) {
      Applied const& applied = apply(block);
      EXPECT_EQ(applied.status, Status::refused);
      EXPECT_FALSE(applied.isMalformed);
      EXPECT_EQ(applied.error, place + ": the database is full: the tree may hold 0 MiB");
      EXPECT_EQ(store.bytes, before);
      EXPECT_EQ(store.countBytes(), before);
   };
   verifyRefused(Block().at(node("a")).put(Config::named, stringBytes("new"), "\1"sv), "a.named[new]");
   verifyRefused(Block().at(node("a")).set(Config::text, stringBytes(text + "y")), "a.text");
   verifyRefused(Block().at(node("dir")).createNode("made", configType), "dir/made");
   verifyRefused(Block().at(node("a")).create(Config::vlanConfig, u16Bytes(5), vlanType), "a.vlanConfig[5]");
   // What comes before in the same block is taken back.
   verifyRefused(Block()
                     .at(node("a"))
                     .erase(Config::named, stringBytes("old"))
                     .put(Config::named, stringBytes("n"), "\1"sv)
                     .set(Config::text, stringBytes(text + text)),
                 "a.text");
}

TEST_F(ApplierTest, fullTreeCanBeChangedAndMadeEmptier) {
   std::string const text(1000, 'x');
   apply(Block()
             .at(node("a"))
             .set(Config::text, stringBytes(text))
             .put(Config::named, stringBytes("old"), "\1"sv));
   store.byteLimit = 0;
   EXPECT_TRUE(apply(Block()
                         .at(node("a"))
                         .set(Config::text, stringBytes(std::string(1000, 'y')))
                         .set(Config::vlan, u16Bytes(7))
                         .put(Config::named, stringBytes("old"), "\0"sv)
                         .erase(Config::named, stringBytes("old"))
                         .set(Config::text, stringBytes("")))
                   .isDone());
   EXPECT_TRUE(apply(Block().at(store.root->node()).erase(Store::dirEntities, stringBytes("b"))).isDone());
   EXPECT_EQ(store.bytes, store.countBytes());
}

} // namespace
