// What a subscriber is sent, and when: marks instead of values, tickets, what `isFresh`, `isKnown` and `epoch` are
// for. A mirror takes in what is drained, and must end as the tree.
#include "Ordel/server/PendingTree.h"

#include "Ordel/store/TestRecords.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace TestRecords;
using Ordel::PendingTree;
using Ordel::Tree;

struct PendingTreeTest : testing::Test {
   Tree tree{schema(), 1};
   PendingTree pending{tree};
   Tree mirror{schema()};
   uint32_t const config = tree.find("config")->node();
   uint32_t const dir = tree.find("input/dir")->node();
   std::vector<uint32_t> drained; // nodes of which all has been sent

   PendingTreeTest() {
      for (char const* const path : {"config", "input/dir"})
         mirror.mount(tree.find(path)->node(), tree.find(path)->type(), path);
   }
   // Applies a block and marks what took effect, as the subscriptions do.
   void write(Block const& block, bool isOwn = false) {
      Ordel::Applied const& applied = tree.apply(block);
      ASSERT_TRUE(applied.isDone()) << applied.error;
      for (Ordel::Group const& group : applied.groups) {
         Ordel::GroupPlace const place(applied, group);
         Ordel::EntityMarks* const marks = pending.marksAt(place, isOwn);
         Ordel::OperationReader operations(group.entity->type(), applied.operations(group));
         Ordel::Operation operation;
         for (size_t i = group.first; marks && operations.next(operation); ++i)
            pending.operationIs(*marks, place, operation, applied.isNew[i], PendingTree::Created::whole,
                                isOwn);
      }
   }
   // Sends so much, and returns what was sent.
   std::string drain(size_t maxBytes = SIZE_MAX / 2) {
      Wire::Writer out;
      pending.drain(out, maxBytes, drained);
      Ordel::Applied const& applied = mirror.apply(out.view());
      EXPECT_TRUE(applied.isDone()) << applied.error;
      return std::string(out.view());
   }
   void verifyMirrored(std::string_view path = "config") {
      EXPECT_EQ(dump(mirror, *mirror.find(path)), dump(tree, *tree.find(path)));
   }
   // Brings the mirror to the present state.
   void sendAll() {
      pending.nodeIs(*tree.find("config"), false);
      drain();
      verifyMirrored();
   }

   Block put(std::string_view name) {
      return Block().at(config).put(Config::named, stringBytes(name), "\1"sv);
   }
   Block erase(std::string_view name) { return Block().at(config).erase(Config::named, stringBytes(name)); }
};

TEST_F(PendingTreeTest, nothingWaitsAtFirst) {
   EXPECT_TRUE(pending.empty());
   EXPECT_TRUE(pending.isSent(pending.ticket()));
   EXPECT_EQ(pending.markCount(), 0u);
   EXPECT_EQ(drain(), "");
}

// --- Marks hold no values

TEST_F(PendingTreeTest, whatChangesOftenHasOneMarkAndIsSentAsItIsThen) {
   for (uint16_t i = 2; i < 100; ++i)
      write(Block().at(config).set(Config::vlan, u16Bytes(i)));
   EXPECT_EQ(pending.markCount(), 1u);
   EXPECT_EQ(hex(drain()), hex(Block().at(config).set(Config::vlan, u16Bytes(99))));
   EXPECT_TRUE(pending.empty());
   EXPECT_EQ(drained, std::vector<uint32_t>{config});
}

TEST_F(PendingTreeTest, atIsSaidOnceForWhatIsSentOfOneEntity) {
   write(put("a"));
   write(Block().at(config).set(Config::vlan, u16Bytes(7)));
   EXPECT_EQ(hex(drain()), hex(Block()
                                   .at(config)
                                   .set(Config::vlan, u16Bytes(7)) // scalars come first
                                   .put(Config::named, stringBytes("a"), "\1"sv)));
}

// --- isKnown: whether the subscriber may have the member

TEST_F(PendingTreeTest, memberThatCameAndWentUnseenLeavesNothing) {
   write(put("a"));
   write(erase("a"));
   EXPECT_EQ(pending.markCount(), 0u);
   EXPECT_EQ(drain(), "");
}

TEST_F(PendingTreeTest, memberThatTheSubscriberHasIsToldAsGone) {
   write(put("a"));
   sendAll();
   write(erase("a"));
   EXPECT_EQ(hex(drain()), hex(erase("a")));
   verifyMirrored();
}

TEST_F(PendingTreeTest, memberThatWentAndCameAgainIsSentAsItIs) {
   write(put("a"));
   sendAll();
   write(erase("a"));
   write(put("a"));
   EXPECT_EQ(hex(drain()), hex(put("a")));
}

TEST_F(PendingTreeTest, entityThatWentAndCameAgainIsReplaced) {
   Block const create = Block().at(config).create(Config::group, stringBytes("g"), groupType);
   write(create);
   write(Block()
             .at(config, {{Config::group, stringBytes("g")}})
             .put(Group::member, intfBytes("Ethernet1"), "\1"sv));
   sendAll();
   Block const gone = Block().at(config).erase(Config::group, stringBytes("g"));
   write(gone);
   write(create);
   // What the old one held must not show in the new one.
   EXPECT_EQ(hex(drain()), hex(Block()
                                   .at(config)
                                   .erase(Config::group, stringBytes("g"))
                                   .create(Config::group, stringBytes("g"), groupType)));
   verifyMirrored();
}

TEST_F(PendingTreeTest, changesInsideAnEntityThatTheSubscriberHasAreMarkedThere) {
   write(Block().at(config).create(Config::group, stringBytes("g"), groupType));
   sendAll();
   Block const inside = Block()
                            .at(config, {{Config::group, stringBytes("g")}})
                            .put(Group::member, intfBytes("Ethernet1"), "\1"sv);
   write(inside);
   EXPECT_EQ(pending.markCount(), 2u); // the way, and the member
   EXPECT_EQ(hex(drain()), hex(inside));
}

// --- isFresh: the subscriber has nothing of the node

TEST_F(PendingTreeTest, freshNodeNeedsNoMarks) {
   pending.nodeIs(*tree.find("config"), true);
   for (int i = 0; i < 100; ++i)
      write(put(std::to_string(i)));
   EXPECT_EQ(pending.markCount(), 1u); // all of it
   drain();
   verifyMirrored();
}

TEST_F(PendingTreeTest, nodeIsFreshNoLongerOnceTheSubscriberHasWritten) {
   pending.nodeIs(*tree.find("config"), true);
   write(put("a"));
   mirror.apply(put("a"));
   // The subscriber puts the same, which has no effect here; so it has the member.
   pending.subscriberWrote();
   write(erase("a"));
   drain();
   verifyMirrored();
}

// --- epoch: what has been sent since a mark was made

TEST_F(PendingTreeTest, memberThatAPieceMayHaveHeldIsToldAsGone) {
   for (int i = 0; i < 100; ++i)
      tree.apply(put("a member of a long name " + std::to_string(i)));
   pending.nodeIs(*tree.find("config"), true);
   drain(500); // the node is being sent, as it is when a piece is made
   constexpr int lateCount = 20;
   for (int i = 0; i < lateCount; ++i)
      write(put("late " + std::to_string(i)));
   while (!mirror.member(*mirror.find("config"), Config::named, stringBytes("late 0")))
      ASSERT_NE(drain(50), "");
   ASSERT_FALSE(pending.empty());
   // Their marks say that the subscriber has never been sent them. Pieces have been, since.
   for (int i = 0; i < lateCount; ++i)
      write(erase("late " + std::to_string(i)));
   drain();
   verifyMirrored();
}

TEST_F(PendingTreeTest, memberOfANodeThatIsBeingSentLeavesNothingWhenNoPieceWentOut) {
   for (int i = 0; i < 100; ++i)
      tree.apply(put("a member of a long name " + std::to_string(i)));
   pending.nodeIs(*tree.find("config"), true);
   drain(500);
   size_t const before = pending.markCount();
   write(put("late"));
   write(erase("late"));
   EXPECT_EQ(pending.markCount(), before);
   drain();
   verifyMirrored();
}

// --- Order, and when something has been sent

TEST_F(PendingTreeTest, nodesAreSentInTheOrderOfTheirFirstMarks) {
   write(Block().at(dir).createNode("one", configType));
   drain();
   uint32_t const one = tree.find("input/dir/one")->node();
   write(Block().at(one).set(Config::vlan, u16Bytes(2)));
   write(put("a"));
   write(Block().at(one).set(Config::count, u32Bytes(3)));
   EXPECT_EQ(hex(drain()), hex(Block()
                                   .at(one)
                                   .set(Config::count, u32Bytes(3))
                                   .set(Config::vlan, u16Bytes(2))
                                   .at(config)
                                   .put(Config::named, stringBytes("a"), "\1"sv)));
}

TEST_F(PendingTreeTest, reservedNodeComesBeforeThoseThatAreMarkedFirst) {
   write(Block().at(dir).createNode("one", configType));
   drain();
   uint32_t const one = tree.find("input/dir/one")->node();
   pending.reserve(config);
   write(Block().at(one).set(Config::vlan, u16Bytes(2)));
   write(put("a"));
   EXPECT_EQ(hex(drain()), hex(Block()
                                   .at(config)
                                   .put(Config::named, stringBytes("a"), "\1"sv)
                                   .at(one)
                                   .set(Config::vlan, u16Bytes(2))));
}

TEST_F(PendingTreeTest, ticketIsSentWhenAllThatWaitedThenHasBeenDrained) {
   write(put("a"));
   uint64_t const ticket = pending.ticket();
   EXPECT_FALSE(pending.isSent(ticket));
   drain();
   EXPECT_TRUE(pending.isSent(ticket));
}

// Else a `mountDone` behind it would never come.
TEST_F(PendingTreeTest, nodeThatChangesAllTheTimeHoldsUpNoTicket) {
   for (int i = 0; i < 100; ++i)
      tree.apply(put("a member of a long name " + std::to_string(i)));
   pending.nodeIs(*tree.find("config"), true);
   uint64_t const ticket = pending.ticket();
   int pieces = 0;
   for (; !pending.isSent(ticket) && pieces < 1000; ++pieces) {
      drain(500);
      write(Block().at(config).set(Config::count, u32Bytes(static_cast<uint32_t>(pieces + 1))));
   }
   EXPECT_LT(pieces, 20);
   EXPECT_FALSE(pending.empty()); // the change that came last
   drain();
   verifyMirrored();
}

TEST_F(PendingTreeTest, holdsWhatWaitsAndWhatIsBeingSent) {
   for (int i = 0; i < 100; ++i)
      tree.apply(put("a member of a long name " + std::to_string(i)));
   EXPECT_FALSE(pending.holds(config));
   pending.nodeIs(*tree.find("config"), true);
   EXPECT_TRUE(pending.holds(config));
   drain(500);
   EXPECT_TRUE(pending.holds(config));
   EXPECT_TRUE(drained.empty());
   drain();
   EXPECT_FALSE(pending.holds(config));
   EXPECT_EQ(drained, std::vector<uint32_t>{config});
}

TEST_F(PendingTreeTest, ofANodeThatIsDroppedNothingIsSent) {
   write(put("a"));
   pending.drop(config);
   EXPECT_TRUE(pending.empty());
   EXPECT_EQ(drain(), "");
   for (int i = 0; i < 100; ++i)
      write(put("a member of a long name " + std::to_string(i)));
   drain(500);
   EXPECT_FALSE(pending.empty());
   pending.drop(config); // in the middle of being sent
   EXPECT_TRUE(pending.empty());
   EXPECT_EQ(drain(), "");
}

// --- What the subscriber writes while it doesn't read

TEST_F(PendingTreeTest, ownMarksAreStraysUntilAllIsSent) {
   write(put("foreign"));
   EXPECT_EQ(pending.strayCount(), 0u);
   for (int i = 0; i < 10; ++i) {
      mirror.apply(put("own"));
      write(put("own"), true);
      mirror.apply(erase("own"));
      write(erase("own"), true);
   }
   EXPECT_EQ(pending.strayCount(), 20u);
   drain();
   EXPECT_EQ(pending.strayCount(), 0u);
   verifyMirrored();
}

// It has the member, though it was never sent it.
TEST_F(PendingTreeTest, memberThatTheSubscriberPutItselfIsToldAsGone) {
   mirror.apply(put("own"));
   write(put("own"), true);
   write(erase("own"));
   EXPECT_EQ(hex(drain()), hex(erase("own")));
   verifyMirrored();
}

// --- Directories

TEST_F(PendingTreeTest, ofADirectoryItsEntitiesAreSentAndTheirContentsInTheirTurn) {
   tree.apply(Block().at(dir).createNode("one", configType));
   uint32_t const one = tree.find("input/dir/one")->node();
   tree.apply(Block().at(one).set(Config::count, u32Bytes(3)).put(Config::named, stringBytes("a"), "\1"sv));
   pending.nodeIs(*tree.find("input/dir"), true);
   EXPECT_EQ(hex(drain()), hex(Block().at(dir).createNode("one", configType, one)));
   pending.nodeIs(*tree.find("input/dir/one"), true);
   drain();
   verifyMirrored("input/dir/one");
}

// Constructor inputs are among the scalars, so these come with the creation; the rest when it is its turn.
TEST_F(PendingTreeTest, entityOfADirectoryIsCreatedWithItsScalars) {
   tree.apply(Block().at(dir).createNode("one", configType));
   uint32_t const one = tree.find("input/dir/one")->node();
   tree.apply(Block().at(one).set(Config::count, u32Bytes(3)).put(Config::named, stringBytes("a"), "\1"sv));
   pending.nodeIs(*tree.find("input/dir"), true);
   pending.nodeIs(*tree.find("input/dir/one"), true);
   std::string const first =
       hex(Block().at(dir).createNode("one", configType, one).at(one).set(Config::count, u32Bytes(3)));
   EXPECT_EQ(hex(drain()).substr(0, first.size()), first);
   verifyMirrored("input/dir/one");
}

} // namespace
