#include "Ordel/server/Settling.h"

#include "Ordel/server/TestServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <utility>

namespace {

using namespace TestRecords;
using Ordel::Frame;
using Ordel::Role;
using Ordel::Status;
using ::testing::IsEmpty;

struct SettleTest : ServerTest {
   TestClient asking{server, "asking"};
   TestClient agent{server, "Vorn", Role::agent};
   TestClient other{server, "Other", Role::agent};

   static void answer(TestClient& client) {
      client.take();
      for (uint32_t const probe : std::exchange(client.probes, {}))
         client.request(Frame::settled, probe);
   }
   bool isAnswered() {
      asking.take();
      return asking.replies.count(1) > 0;
   }
};

TEST_F(SettleTest, isDoneWhenAllAgentsHaveAnswered) {
   asking.settle(1);
   answer(agent);
   EXPECT_FALSE(isAnswered());
   answer(other);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
}

TEST_F(SettleTest, isDoneAtOnceWithoutAgents) {
   server.disconnect(*std::exchange(agent.link, nullptr));
   server.disconnect(*std::exchange(other.link, nullptr));
   asking.settle(1);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
}

TEST_F(SettleTest, toolsAreNotAsked) {
   asking.settle(1);
   asking.take();
   EXPECT_THAT(asking.probes, IsEmpty());
}

TEST_F(SettleTest, writeDuringARoundMakesAnotherRound) {
   asking.settle(1);
   answer(agent);
   other.write(putNamed(config, "a", true));
   answer(other);
   EXPECT_FALSE(isAnswered());
   answer(agent);
   answer(other);
   EXPECT_TRUE(isAnswered());
}

TEST_F(SettleTest, writeThatChangesNothingDoesNot) {
   other.write(putNamed(config, "a", true));
   asking.settle(1);
   other.write(putNamed(config, "a", true));
   answer(agent);
   answer(other);
   EXPECT_TRUE(isAnswered());
}

TEST_F(SettleTest, probeComesBehindWhatWasPublished) {
   agent.mount(1, "config");
   agent.take();
   std::string const large(1'000'000, 'x');
   for (int i = 0; i < 40 && agent.link->pending().empty(); ++i)
      asking.write(Block().at(config).set(Config::text, stringBytes(large + std::to_string(i))));
   asking.settle(1);
   EXPECT_FALSE(agent.link->pending().empty());
   agent.take(3u << 20);
   EXPECT_THAT(agent.probes, IsEmpty());
   agent.take();
   EXPECT_EQ(agent.probes.size(), 1u);
   verifyMirrored(agent, "config");
}

TEST_F(SettleTest, agentThatGoesIsNotWaitedFor) {
   asking.settle(1);
   answer(agent);
   server.disconnect(*std::exchange(other.link, nullptr));
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
}

// Its leaving ends a round, and another one begins at once.
TEST_F(SettleTest, agentThatGoesIsNotAskedInTheNextRound) {
   server.disconnect(*std::exchange(agent.link, nullptr));
   asking.settle(1);
   asking.settle(2);
   server.disconnect(*std::exchange(other.link, nullptr));
   asking.take();
   EXPECT_EQ(asking.replies.size(), 2u);
}

TEST_F(SettleTest, timeLimitNamesWhoHasNotSettled) {
   asking.settle(1, 500);
   answer(agent);
   Kem::activityManager()->advance(0.4);
   EXPECT_FALSE(isAnswered());
   Kem::activityManager()->advance(0.2);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::absent);
   EXPECT_EQ(asking.replies[1].text, "not settled: Other (pid 1000, uid 0)");
   answer(other); // too late
   EXPECT_FALSE(other.link->isRefused());
}

// The other agent's answer would else be followed by a second probe in a round that nobody waits for.
TEST_F(SettleTest, roundThatNobodyWaitsForIsTheLast) {
   asking.settle(1, 500);
   Kem::activityManager()->advance(1);
   asking.write(putNamed(config, "a", true));
   answer(agent);
   answer(other);
   agent.take();
   EXPECT_THAT(agent.probes, IsEmpty());
}

TEST_F(SettleTest, questionsThatComeDuringARoundWaitForTheNextOne) {
   asking.settle(1);
   answer(agent);
   asking.write(putNamed(config, "a", true)); // the agent has not answered for that
   asking.settle(2);
   answer(other);
   asking.take();
   EXPECT_THAT(asking.replies, IsEmpty());
   answer(agent);
   answer(other);
   asking.take();
   EXPECT_EQ(asking.replies[1].status, Status::done);
   EXPECT_EQ(asking.replies[2].status, Status::done);
}

// A hundred thousand questions once cost an agent as many probes, and the database seconds when the agent left.
TEST_F(SettleTest, agentHasOneProbeToAnswerHoweverManyAsk) {
   std::list<TestClient> many;
   for (int i = 0; i < 100; ++i) {
      TestClient& client = many.emplace_back(server, "asking");
      for (uint32_t request = 1; request <= Ordel::maxQuestionsPerClient; ++request)
         client.settle(request, request);
   }
   Kem::activityManager()->advance(1);
   for (TestClient& client : many)
      for (uint32_t request = 1; request <= Ordel::maxQuestionsPerClient; ++request)
         client.settle(request);
   agent.take();
   EXPECT_EQ(agent.probes.size(), 1u);
   answer(agent);
   answer(other);
   answer(agent);
   answer(other);
   for (TestClient& client : many) {
      client.take();
      ASSERT_EQ(client.replies.size(), Ordel::maxQuestionsPerClient);
      for (auto const& [request, reply] : client.replies)
         EXPECT_EQ(reply.status, Status::done);
   }
}

TEST_F(SettleTest, openQuestionsOfOneClientAreLimited) {
   for (uint32_t request = 1; request <= Ordel::maxQuestionsPerClient + 2; ++request)
      asking.settle(request);
   asking.take();
   ASSERT_EQ(asking.replies.size(), 2u);
   EXPECT_EQ(asking.replies[Ordel::maxQuestionsPerClient + 1].status, Status::refused);
   EXPECT_EQ(asking.replies[Ordel::maxQuestionsPerClient + 1].text, "more than 16 open questions");
   for (int round = 0; round < 2; ++round) {
      answer(agent);
      answer(other);
   }
   asking.take();
   EXPECT_EQ(asking.replies.size(), Ordel::maxQuestionsPerClient + 2);
   asking.settle(100); // there is room again
   answer(agent);
   answer(other);
   asking.take();
   EXPECT_EQ(asking.replies[100].status, Status::done);
}

TEST_F(SettleTest, agentThatComesDuringARoundIsAskedInTheNextOne) {
   asking.settle(1);
   TestClient late(server, "Late", Role::agent);
   late.take();
   EXPECT_THAT(late.probes, IsEmpty());
   asking.settle(2);
   answer(agent);
   answer(other);
   EXPECT_TRUE(isAnswered());
   answer(agent);
   answer(other);
   asking.take();
   EXPECT_EQ(asking.replies.count(2), 0u);
   answer(late);
   asking.take();
   EXPECT_EQ(asking.replies[2].status, Status::done);
}

// --- One agent by its name

TEST_F(SettleTest, agentOfTheNameIsAskedAlone) {
   asking.settle(1, 0, "Vorn");
   other.take();
   EXPECT_THAT(other.probes, IsEmpty());
   EXPECT_FALSE(isAnswered());
   answer(agent);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
}

TEST_F(SettleTest, roundOfAllDoesNotHoldUpTheAgentThatIsAskedByName) {
   asking.settle(2);
   answer(agent);
   asking.settle(1, 0, "Vorn");
   answer(agent);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies.count(2), 0u);
   answer(other);
   asking.take();
   EXPECT_EQ(asking.replies[2].status, Status::done);
}

// What others write meanwhile was published after the question; what it writes itself may come back to it.
TEST_F(SettleTest, onlyItsOwnWritesMakeAnotherRoundOfAnAgentThatIsAskedByName) {
   asking.settle(1, 0, "Vorn");
   other.write(putNamed(config, "a", true));
   answer(agent);
   EXPECT_TRUE(isAnswered());

   asking.settle(2, 0, "Vorn");
   agent.write(putNamed(config, "b", true));
   answer(agent);
   asking.take();
   EXPECT_EQ(asking.replies.count(2), 0u);
   answer(agent);
   asking.take();
   EXPECT_EQ(asking.replies[2].status, Status::done);
}

TEST_F(SettleTest, refusedWriteOfTheAgentMakesAnotherRound) {
   asking.settle(1, 0, "Vorn");
   agent.write(Block().at(config).set(Config::vlan, u16Bytes(5000)));
   answer(agent);
   EXPECT_FALSE(isAnswered());
   answer(agent);
   EXPECT_TRUE(isAnswered());
}

TEST_F(SettleTest, agentThatIsNotConnectedIsWaitedFor) {
   asking.settle(1, 500, "Late");
   TestClient tool(server, "Late"); // the name alone makes no agent
   Kem::activityManager()->advance(0.4);
   EXPECT_FALSE(isAnswered());
   TestClient late(server, "Late", Role::agent);
   answer(late);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
   asking.settle(2, 500, "Late");
   answer(late);
   asking.take();
   EXPECT_EQ(asking.replies[2].status, Status::done);
}

TEST_F(SettleTest, answerIsNoWhenTheAgentDoesNotComeInTime) {
   asking.settle(1, 500, "Late\n");
   Kem::activityManager()->advance(0.6);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::absent);
   EXPECT_EQ(asking.replies[1].text, "not settled: Late\\n is not connected");
   TestClient late(server, "Late\n", Role::agent); // nobody asks for it any more
   late.take();
   EXPECT_THAT(late.probes, IsEmpty());
}

TEST_F(SettleTest, agentThatGoesIsAskedAgainWhenItIsBack) {
   asking.settle(1, 0, "Vorn");
   server.disconnect(*std::exchange(agent.link, nullptr));
   EXPECT_FALSE(isAnswered());
   TestClient back(server, "Vorn", Role::agent);
   EXPECT_FALSE(isAnswered());
   answer(back);
   EXPECT_TRUE(isAnswered());
   EXPECT_EQ(asking.replies[1].status, Status::done);
}

// The old connection has been hung up, but not been taken away, when the new one says hello.
TEST_F(SettleTest, successorIsAskedWhereItComesBeforeTheOtherHasGone) {
   asking.settle(1, 0, "Vorn");
   agent.hasHungUp = true;
   TestClient back(server, "Vorn", Role::agent);
   ASSERT_TRUE(back.isWelcome);
   server.disconnect(*std::exchange(agent.link, nullptr));
   answer(back);
   EXPECT_TRUE(isAnswered());
}

TEST_F(SettleTest, openQuestionsOfOneClientAreLimitedOverAllNames) {
   for (uint32_t request = 1; request <= Ordel::maxQuestionsPerClient + 1; ++request)
      asking.settle(request, 500, "agent" + std::to_string(request));
   asking.take();
   ASSERT_EQ(asking.replies.size(), 1u);
   EXPECT_EQ(asking.replies[Ordel::maxQuestionsPerClient + 1].text, "more than 16 open questions");
   asking.settle(100, 0, std::string(256, 'x'));
   asking.take();
   EXPECT_EQ(asking.replies[100].text, "an agent's name has at most 255 bytes");
   Kem::activityManager()->advance(1);
   asking.take();
   EXPECT_EQ(asking.replies.size(), Ordel::maxQuestionsPerClient + 2);
}

TEST_F(SettleTest, askingClientMayGo) {
   {
      TestClient brief(server, "brief");
      brief.settle(1, 1000);
   }
   {
      TestClient brief(server, "brief");
      brief.settle(1, 1000, "Vorn");
      brief.settle(2, 1000, "Nobody");
   }
   answer(agent);
   answer(other);
   Kem::activityManager()->advance(2);
   EXPECT_FALSE(agent.link->isRefused());
}

} // namespace
