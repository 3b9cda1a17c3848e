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

   // Of the collection `port`, in wire form.
   std::map<std::string, std::string> membersOf(std::string_view path) {
      std::map<std::string, std::string> found;
      Entity const& entity = at(path);
      Ordel::Slot const& slot = Store::slot(entity, Config::port);
      if (Ordel::Table const* members = Store::table(entity, slot))
         for (uint32_t i = 0; i < members->end(); ++i)
            if (std::string scratch, other; members->isMember(i))
               found.emplace(Store::keyAt(*members, i, slot, scratch),
                             slot.value->view(members->value(i), slot.zero, other));
      return found;
   }
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

// Members that follow each other in one collection are taken in one go; each is still an operation of its own.
TEST_F(ApplierTest, membersInARowAreOperationsOfTheirOwn) {
   auto const put = [](Block& block, std::string const& name, bool value) {
      block.put(Config::named, stringBytes(name), std::string(1, value));
   };
   Block first;
   first.at(node("a"));
   put(first, "same", true);
   put(first, "other", true);
   EXPECT_EQ(hex(apply(first).bytes), hex(first.view()));
   Block row, effective;
   row.at(node("a"));
   put(row, "new", true);
   put(row, "same", true);   // exists already
   put(row, "other", false); // replaced
   put(row, "a longer name, so that no two operations of the row are of one size", true);
   put(row, "new", true);  // came a moment ago
   put(row, "new", false); // and is replaced
   row.set(Config::count, u32Bytes(1));
   effective.at(node("a"));
   put(effective, "new", true);
   put(effective, "other", false);
   put(effective, "a longer name, so that no two operations of the row are of one size", true);
   put(effective, "new", false);
   effective.set(Config::count, u32Bytes(1));
   Applied const& applied = apply(row);
   EXPECT_EQ(hex(applied.bytes), hex(effective.view()));
   EXPECT_THAT(std::vector<int>(applied.isNew.begin(), applied.isNew.end()), ElementsAre(1, 0, 1, 0, 0));
}

TEST_F(ApplierTest, refusalInARowTakesBackAllOfIt) {
   std::string const good(6, '\0'), bad = "\2" + std::string(5, '\0'); // no boolean
   // As numbers and by name: some ids of interfaces have no number.
   std::vector<std::string> const ports = {"Ethernet1",     "a port",       "Ethernet2",
                                           "Port-Channel7", "another port", "Ethernet3"};
   apply(Block().at(node("a")).put(Config::port, intfBytes("Ethernet2"), "\1" + std::string(5, '\0')));
   for (std::string const& refused : ports) {
      Block block;
      block.at(node("b")).put(Config::port, intfBytes("Cpu"), good);
      block.at(node("a"));
      for (std::string const& port : ports)
         block.put(Config::port, intfBytes(port), port == refused ? bad : good);
      Applied const& applied = apply(block);
      EXPECT_EQ(applied.status, Status::refused);
      EXPECT_EQ(applied.error, "a.port[" + refused + "].tagged: neither false nor true");
      EXPECT_TRUE(applied.bytes.empty());
      EXPECT_EQ(membersOf("a"),
                (std::map<std::string, std::string>{{intfBytes("Ethernet2"), "\1" + std::string(5, '\0')}}));
      EXPECT_EQ(membersOf("b").size(), 0u);
   }
}

TEST_F(ApplierTest, memberThatStoodBeforeARefusedRowIsKept) {
   std::string const value(6, '\0');
   apply(Block().at(node("a")).put(Config::port, intfBytes("Ethernet2"), value));
   Block block;
   block.at(node("a"));
   for (char const* port : {"Ethernet1", "Ethernet2", "Ethernet3"}) // the second one changes nothing
      block.put(Config::port, intfBytes(port), value);
   EXPECT_EQ(apply(block.set(Config::vlan, u16Bytes(0))).status, Status::refused);
   EXPECT_EQ(membersOf("a"), (std::map<std::string, std::string>{{intfBytes("Ethernet2"), value}}));
}

TEST_F(ApplierTest, rowThatLeavesFewMembersLeavesNoRoomForMany) {
   Block same, many;
   same.at(node("a"));
   many.at(node("a"));
   for (int number = 1; number <= 8; ++number) // the table has to grow while many seem to come
      same.put(Config::port, intfBytes("Ethernet" + std::to_string(number)), portBytes(0, 0, 0));
   for (int i = 0; i < 900; ++i) {
      same.put(Config::port, intfBytes("Ethernet1"), portBytes(i % 2, 0, 0));
      many.put(Config::port, intfBytes("Ethernet" + std::to_string(i)), portBytes(0, 0, 0));
   }
   auto const capacity = [&] {
      return Store::table(at("a"), Store::slot(at("a"), Config::port))->capacity();
   };
   apply(same);
   EXPECT_LT(capacity(), 32u);
   EXPECT_EQ(apply(many.set(Config::vlan, u16Bytes(0))).status, Status::refused);
   EXPECT_LT(capacity(), 32u);
   EXPECT_EQ(membersOf("a").size(), 8u);
}

TEST_F(ApplierTest, rowsOfTwoCollectionsTakeTurns) {
   std::string const value(6, '\0');
   Block block;
   block.at(node("a"));
   for (int i = 1; i <= 20; ++i)
      block.put(Config::port, intfBytes("Ethernet" + std::to_string(i)), value)
          .put(Config::named, stringBytes(std::to_string(i)), "\1");
   EXPECT_EQ(hex(apply(block).bytes), hex(block.view()));
   EXPECT_EQ(membersOf("a").size(), 20u);
   Block refused;
   refused.at(node("b"))
       .put(Config::port, intfBytes("Ethernet1"), value)
       .put(Config::named, stringBytes("x"), "\1")
       .put(Config::port, intfBytes("Ethernet2"), value)
       .set(Config::vlan, u16Bytes(0));
   EXPECT_EQ(apply(refused).status, Status::refused);
   EXPECT_EQ(membersOf("b").size(), 0u);
   EXPECT_EQ(Store::table(at("b"), Store::slot(at("b"), Config::named)), nullptr);
}

TEST_F(ApplierTest, rowThatIsCutShortIsTakenBack) {
   Block block;
   block.at(node("a"));
   for (char name = 'a'; name <= 'z'; ++name)
      block.put(Config::named, stringBytes(std::string(1, name)), "\1");
   for (size_t cut = 1; cut < 5; ++cut) { // of the last operation: at the end of it and before
      Applied const& applied = applier.apply(block.view().substr(0, block.view().size() - cut), 0);
      EXPECT_TRUE(applied.isMalformed) << cut;
      EXPECT_EQ(Store::table(at("a"), Store::slot(at("a"), Config::named)), nullptr) << cut;
   }
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
