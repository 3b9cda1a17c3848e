#include "Ordel/server/LargeBlock.h"

#include "Ordel/server/TestServer.h"

#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::LargeBlock;
using Ordel::Status;

struct LargeBlockTest : ServerTest {
   TestClient writer{server, "writer"};
   TestClient other{server, "other"};
   std::string const before = standing(server, "");
   static std::string bytesOf(std::string_view operations) { return std::string(operations); }
   std::string const block = bytesOf(
       Block().at(config).put(Config::named, stringBytes("a"), "\1"sv).set(Config::vlan, u16Bytes(5)));

   static void part(TestClient& client, std::string_view bytes) {
      client.write(bytes, 1, Ordel::writeContinues);
   }
   TestClient::Reply last(TestClient& client, std::string_view bytes) {
      client.write(bytes, 1);
      client.take();
      EXPECT_EQ(client.replies.size(), 1u);
      return client.replies[1];
   }
};

TEST_F(LargeBlockTest, partsAreAppliedAsOne) {
   for (char const& byte : block.substr(0, block.size() - 1)) {
      part(writer, {&byte, 1});
      ASSERT_EQ(standing(server, ""), before);
   }
   writer.take();
   EXPECT_TRUE(writer.replies.empty());
   EXPECT_EQ(last(writer, block.substr(block.size() - 1)).status, Status::done);
   EXPECT_NE(standing(server, ""), before);
   EXPECT_EQ(server.blockCount(), 1u);
}

TEST_F(LargeBlockTest, refusalTakesAllPartsBack) {
   part(writer, block);
   auto const reply = last(writer, Block().at(config).set(Config::vlan, u16Bytes(5000)));
   EXPECT_EQ(reply.status, Status::refused);
   EXPECT_EQ(reply.text, "config.vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_EQ(standing(server, ""), before);
   writer.replies.clear();
   EXPECT_EQ(last(writer, block).status, Status::done) << "the next one is a block of its own";
}

TEST_F(LargeBlockTest, oneClientAtATimeMaySendOne) {
   part(writer, block);
   part(other, block);
   other.take();
   EXPECT_TRUE(other.replies.empty());
   auto const reply = last(other, block);
   EXPECT_EQ(reply.status, Status::refused);
   EXPECT_EQ(reply.text, "another large write is coming in; try again");
   EXPECT_EQ(standing(server, ""), before);
   EXPECT_EQ(last(writer, "").status, Status::done);
   EXPECT_NE(standing(server, ""), before);
   part(other, block);
   other.replies.clear();
   EXPECT_EQ(last(other, "").status, Status::done);
}

TEST_F(LargeBlockTest, itsSizeIsLimited) {
   std::string const piece(16u << 20, '\0');
   for (size_t bytes = 0; bytes <= LargeBlock::maxBytes; bytes += piece.size())
      part(writer, piece);
   part(writer, piece);
   auto const reply = last(writer, block);
   EXPECT_EQ(reply.status, Status::refused);
   EXPECT_EQ(reply.text, "a write may have 128 MiB, in all its parts");
   EXPECT_EQ(standing(server, ""), before);
}

TEST_F(LargeBlockTest, partsHaveToComeInTime) {
   part(writer, block);
   Kem::activityManager()->advance(LargeBlock::timeLimit - 0.1);
   part(writer, "");
   Kem::activityManager()->advance(LargeBlock::timeLimit - 0.1);
   part(other, "");
   Kem::activityManager()->advance(0.2);
   EXPECT_EQ(last(writer, "").text, "the rest of a large write did not come in time");
   EXPECT_EQ(standing(server, ""), before);
}

TEST_F(LargeBlockTest, clientThatGoesMakesRoomForTheNext) {
   {
      TestClient brief(server, "brief");
      part(brief, block);
      part(other, block); // refused already
   }
   EXPECT_EQ(last(other, "").status, Status::refused);
   EXPECT_EQ(standing(server, ""), before);
   part(writer, block);
   EXPECT_EQ(last(writer, "").status, Status::done);
}

} // namespace
