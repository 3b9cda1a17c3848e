// Who is sent what: coverage by mounts, sequences, and which of its own writes a writer gets back.
#include "Ordel/server/Subscriptions.h"

#include "Ordel/server/TestServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

using namespace TestRecords;
using Ordel::Status;
using ::testing::IsEmpty;

// --- Sequences

struct SequenceTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient reader{server, "reader"};

   void SetUp() override {
      reader.mount(1, "config");
      reader.take();
   }
};

TEST_F(SequenceTest, eachBlockThatChangesSomethingHasOne) {
   uint64_t const before = server.sequence();
   uint64_t const blocks = server.blockCount();
   writer.write(putNamed(config, "a", true));
   EXPECT_EQ(server.sequence(), before + 1);
   writer.write(putNamed(config, "a", true)); // as it is
   EXPECT_EQ(server.sequence(), before + 1);
   EXPECT_EQ(server.blockCount(), blocks + 1);
}

TEST_F(SequenceTest, frameBearsThatOfTheLastBlockInIt) {
   writer.write(putNamed(config, "a", true));
   writer.write(putNamed(config, "b", true));
   reader.take();
   EXPECT_EQ(reader.seen, server.sequence());
   EXPECT_EQ(reader.changes.back(), std::string(Block()
                                                    .at(config)
                                                    .put(Config::named, stringBytes("a"), "\1"sv)
                                                    .put(Config::named, stringBytes("b"), "\1"sv)
                                                    .view()));
}

// What a mount brings is an event of its own: a write made before it was taken in is a conflict.
TEST_F(SequenceTest, whatAMountBroughtHasOneToo) {
   uint64_t const blocks = server.blockCount();
   uint64_t const before = server.sequence();
   writer.mount(1, "config");
   writer.take();
   EXPECT_GT(server.sequence(), before);
   EXPECT_EQ(server.blockCount(), blocks);
   EXPECT_EQ(writer.seen, server.sequence());
}

// --- Coverage

struct CoverageTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient client{server, "client"};

   // Whether the client is told of a write there.
   bool isTold(std::string_view block) {
      client.take();
      client.changes.clear();
      writer.write(block);
      client.take();
      return !client.changes.empty();
   }
};

TEST_F(CoverageTest, deepMountIsHandedDownToWhatComes) {
   client.mount(1, "input");
   writer.write(Block().at(dir).createNode("one", configType));
   EXPECT_TRUE(isTold(putNamed(client.node("input/dir/one"), "a", true)));
   client.unmount(1);
   EXPECT_FALSE(isTold(putNamed(client.node("input/dir/one"), "b", true)));
}

TEST_F(CoverageTest, shallowMountIsNot) {
   client.mount(1, "input/dir", Ordel::mountShallow);
   EXPECT_TRUE(isTold(Block().at(dir).createNode("one", configType)));
   EXPECT_FALSE(isTold(putNamed(client.node("input/dir/one"), "a", true)));
}

TEST_F(CoverageTest, mountOfAMemberLetsThatMemberThrough) {
   client.mount(1, "config.named[a]", Ordel::mountAwait);
   EXPECT_FALSE(isTold(putNamed(config, "b", true)));
   EXPECT_TRUE(isTold(putNamed(config, "a", true)));
   EXPECT_TRUE(isTold(Block().at(config).erase(Config::named, stringBytes("a"))));
}

TEST_F(CoverageTest, wayToAMemberIsToldWithoutWhatElseItHolds) {
   client.mount(1, "config.vlanConfig[10].configuredName", Ordel::mountAwait);
   client.take();
   EXPECT_TRUE(isTold(Block().at(config).create(Config::vlanConfig, u16Bytes(10), vlanType)));
   EXPECT_TRUE(isTold(Block().at(config, {vlan(10)}).set(Vlan::configuredName, stringBytes("ten"))));
   EXPECT_FALSE(
       isTold(Block().at(config, {vlan(10)}).put(Vlan::intf, intfBytes("Ethernet1"), portBytes(0, 0, 1))));
   EXPECT_FALSE(isTold(Block().at(config).create(Config::vlanConfig, u16Bytes(11), vlanType)));
}

TEST_F(CoverageTest, entityThatIsErasedEndsItsMountAndNoOther) {
   writer.write(Block().at(dir).createNode("one", configType).createNode("two", configType));
   client.mount(1, "input/dir/one");
   client.mount(2, "input/dir/two");
   client.take();
   writer.write(Block().at(dir).erase(0, stringBytes("one")));
   EXPECT_TRUE(isTold(putNamed(client.node("input/dir/two"), "a", true)));
   EXPECT_EQ(client.unmounted, std::vector<uint32_t>{1});
}

// --- Conflicts

struct ConflictTest : ServerTest {
   TestClient a{server, "a"};
   TestClient b{server, "b"};

   void SetUp() override {
      for (TestClient* const client : {&a, &b}) {
         client->appliesOwn = true;
         client->mount(1, "config");
         client->mount(2, "input");
         client->take();
         client->changes.clear();
      }
   }
   void verifyEqual() {
      a.take();
      b.take();
      for (char const* const path : {"config", "input"}) {
         verifyMirrored(a, path);
         verifyMirrored(b, path);
      }
   }
   static Block count(uint32_t node, uint32_t value) {
      Block block;
      block.at(node).set(Config::count, u32Bytes(value));
      return block;
   }
};

TEST_F(ConflictTest, writersOfOneValueAtOnceEndWithTheDatabasesValue) {
   a.write(count(config, 1));
   b.write(count(config, 2));
   verifyEqual();
   EXPECT_EQ(server.tree().value(*server.tree().find("config"), Config::count), u32Bytes(2));
   EXPECT_EQ(b.changes.size(), 1u); // both operations in their order
}

TEST_F(ConflictTest, writerThatHasSeenTheOthersWriteGetsNothingBack) {
   a.write(count(config, 1));
   b.take();
   b.changes.clear();
   b.write(count(config, 2));
   b.take();
   EXPECT_THAT(b.changes, IsEmpty());
   verifyEqual();
}

TEST_F(ConflictTest, alternatingWritersConverge) {
   for (uint32_t i = 0; i < 10; ++i) {
      a.write(count(config, i * 2));
      b.write(count(config, i * 2 + 1));
      if (i % 3 == 0)
         a.take();
      if (i % 4 == 0)
         b.take(20);
   }
   verifyEqual();
}

TEST_F(ConflictTest, sameNodeCreatedByBoth) {
   for (TestClient* const client : {&a, &b})
      client->write(Block()
                        .at(dir)
                        .createNode("one", configType)
                        .at(dir, {{0, stringBytes("one")}})
                        .set(Config::count, u32Bytes(client == &a ? 1 : 2)));
   verifyEqual();
   EXPECT_EQ(server.tree().value(*server.tree().find("input/dir/one"), Config::count), u32Bytes(2));
}

TEST_F(ConflictTest, nodeErasedByOneAndMadeAnewByTheOther) {
   a.write(Block().at(dir).createNode("one", configType));
   verifyEqual();
   a.write(Block().at(dir).erase(0, stringBytes("one")));
   b.write(Block()
               .at(dir)
               .erase(0, stringBytes("one"))
               .createNode("one", configType)
               .at(dir, {{0, stringBytes("one")}})
               .set(Config::count, u32Bytes(5)));
   verifyEqual();
   EXPECT_EQ(server.tree().value(*server.tree().find("input/dir/one"), Config::count), u32Bytes(5));
}

TEST_F(ConflictTest, memberErasedByOneAndPutByTheOther) {
   a.write(putNamed(config, "x", true));
   verifyEqual();
   a.write(Block().at(config).erase(Config::named, stringBytes("x")));
   b.write(putNamed(config, "x", false));
   verifyEqual();
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::named), 1u);
}

TEST_F(ConflictTest, writeBeforeTheContentsOfAMountHaveCome) {
   a.write(count(config, 1));
   TestClient late(server, "late");
   late.appliesOwn = true;
   late.mount(1, "config");
   late.take(60); // `mounted` only
   late.write(count(config, 7));
   late.take();
   a.take();
   verifyMirrored(late, "config");
   verifyMirrored(a, "config");
   EXPECT_EQ(server.tree().value(*server.tree().find("config"), Config::count), u32Bytes(7));
}

} // namespace
