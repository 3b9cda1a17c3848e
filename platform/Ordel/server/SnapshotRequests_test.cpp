#include "Ordel/server/SnapshotRequests.h"

#include "Ordel/server/TestServer.h"

#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::Frame;
using Ordel::SnapshotRequests;
using Ordel::Status;

struct SnapshotRequestsTest : ServerTest {
   TestClient first{server, "first"};
   TestClient second{server, "second"};

   static void ask(TestClient& client, uint32_t number) { client.request(Frame::snapshot, number); }
   static size_t replyCount(TestClient& client) {
      client.take();
      return client.replies.size();
   }
};

TEST_F(SnapshotRequestsTest, firstIsServedAtOnce) {
   ask(first, 1);
   EXPECT_EQ(snapshotCount, 1);
   EXPECT_EQ(replyCount(first), 1u);
   EXPECT_EQ(first.replies[1].status, Status::done);
}

TEST_F(SnapshotRequestsTest, thoseThatComeSoonAfterwardsShareTheNextOne) {
   ask(first, 1);
   for (uint32_t number = 2; number <= 10; ++number) {
      ask(first, number);
      ask(second, number);
   }
   EXPECT_EQ(snapshotCount, 1);
   Kem::activityManager()->advance(SnapshotRequests::shortestPause - 0.1);
   EXPECT_EQ(snapshotCount, 1);
   EXPECT_EQ(replyCount(second), 0u);
   Kem::activityManager()->advance(0.2);
   EXPECT_EQ(snapshotCount, 2);
   EXPECT_EQ(replyCount(first), 10u);
   EXPECT_EQ(replyCount(second), 9u);
   EXPECT_EQ(second.replies[10].status, Status::done);
   Kem::activityManager()->advance(10);
   EXPECT_EQ(snapshotCount, 2) << "nobody has asked since";
   ask(first, 11);
   EXPECT_EQ(snapshotCount, 3);
}

TEST_F(SnapshotRequestsTest, pauseGrowsWithTheTimeThatASnapshotTakes) {
   TestClient client(server, "client");
   int count = 0;
   SnapshotRequests requests([&] {
      if (++count == 1)
         Kem::VirtualTime::advanceTo(Kem::now() + 0.5);
      return std::string();
   });
   requests.begin(*client.link, 1);
   requests.begin(*client.link, 2);
   Kem::activityManager()->advance(0.5 * SnapshotRequests::pauseFactor - 0.1);
   EXPECT_EQ(count, 1);
   Kem::activityManager()->advance(0.2);
   EXPECT_EQ(count, 2);
}

TEST_F(SnapshotRequestsTest, failureIsToldToAllWhoWait) {
   ask(first, 1);
   snapshotError = "disk full";
   ask(first, 2);
   ask(second, 3);
   Kem::activityManager()->advance(2);
   EXPECT_EQ(replyCount(first), 2u);
   EXPECT_EQ(replyCount(second), 1u);
   EXPECT_EQ(first.replies[2].status, Status::refused);
   EXPECT_EQ(second.replies[3].text, "disk full");
}

TEST_F(SnapshotRequestsTest, requestsOfOneClientThatWaitAreLimited) {
   ask(first, 1);
   for (uint32_t number = 2; number <= Ordel::maxQuestionsPerClient + 2; ++number)
      ask(first, number);
   EXPECT_EQ(replyCount(first), 2u);
   EXPECT_EQ(first.replies[Ordel::maxQuestionsPerClient + 2].status, Status::refused);
   EXPECT_EQ(first.replies[Ordel::maxQuestionsPerClient + 2].text,
             "more than 16 open requests for a snapshot");
   ask(second, 1);
   Kem::activityManager()->advance(2);
   EXPECT_EQ(replyCount(first), Ordel::maxQuestionsPerClient + 2);
   EXPECT_EQ(replyCount(second), 1u);
}

TEST_F(SnapshotRequestsTest, clientThatGoesIsForgotten) {
   ask(first, 1);
   {
      TestClient brief(server, "brief");
      ask(brief, 1);
   }
   Kem::activityManager()->advance(2);
   EXPECT_EQ(snapshotCount, 1) << "nobody waits for another one";
}

} // namespace
