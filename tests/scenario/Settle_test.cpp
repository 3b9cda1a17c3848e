// settle with a real agent: waits for it, and says so when it doesn't answer.
#include "Processes.h"
#include "RawClient.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(SettleTest, returnsWhenTheAgentHasTakenInAllThatWasPublished) {
   Database const database;
   Agent agent(database);
   EXPECT_EQ(database.ctl({"load", std::string(EXAMPLE_FOLDER) + "/small-switch.json"}).errors, "");
   Result const result = database.ctl({"settle"});
   EXPECT_EQ(result.status, 0) << result.errors;
   EXPECT_EQ(result.output + result.errors, "");
   Result const clients = database.ctl({"clients"});
   EXPECT_THAT(clients.output, HasSubstr(std::to_string(agent.process().pid())));
   EXPECT_THAT(clients.output, HasSubstr("agent"));
}

TEST(SettleTest, answersNoWhileAnAgentDoesNot) {
   Database const database;
   Agent agent(database);
   EXPECT_EQ(database.ctl({"settle"}).status, 0);
   agent.process().signal(SIGSTOP);
   Result const result = database.ctl({"settle", "--timeout", "0.2"});
   EXPECT_EQ(result.status, 1);
   EXPECT_THAT(result.errors, StartsWith("ordelctl: "));
   EXPECT_EQ(database.ctl({"batch"}, "[\"settle\", \"--timeout\", 0.2]\n").output.find("{\"ok\": false"), 0u);
   agent.process().signal(SIGCONT);
   EXPECT_EQ(database.ctl({"settle"}).status, 0);
}

// A question that is there before the agent has an answer that speaks for all that the agent does at its start.
TEST(SettleTest, waitsForAnAgentThatIsNotConnectedYet) {
   Database const database;
   EXPECT_EQ(database.ctl({"load", std::string(EXAMPLE_FOLDER) + "/small-switch.json"}).errors, "");
   auto const asking = database.startCtl({"batch"});
   asking->write("[\"settle\", \"--timeout\", 20]\n[\"ls\", \"bridging/config.vlanConfig\"]\n");
   // The database has had time to take the other one in.
   EXPECT_EQ(database.ctl({"settle", "--any"}).status, 0);
   Agent agent(database);
   EXPECT_EQ(asking->output().readLine(limit), "{\"ok\": true, \"value\": null}");
   auto const vlans = asking->output().readLine(limit);
   ASSERT_TRUE(vlans);
   EXPECT_EQ(*vlans + "\n", database.ctl({"batch"}, "[\"ls\", \"bridging/config.vlanConfig\"]\n").output);
   EXPECT_THAT(*vlans, HasSubstr("\"10\""));
}

// An agent of another name, which doesn't answer.
TEST(SettleTest, asksTheAgentThatIsNamed) {
   Database const database;
   Agent const agent(database);
   RawClient other(database.socket());
   other.hello("Other", Ordel::protocolMagic, Ordel::protocolVersion, Records::schema().fingerprint,
               Ordel::Role::agent);
   ASSERT_TRUE(other.read(Ordel::Frame::welcome));
   EXPECT_EQ(database.ctl({"settle"}).status, 0);
   EXPECT_EQ(database.ctl({"settle", "--agent", "Vorn"}).status, 0);
   EXPECT_THAT(database.ctl({"settle", "--agent", "Other", "--timeout", "0.2"}).errors,
               StartsWith("ordelctl: not settled: Other (pid "));
   Result const all = database.ctl({"settle", "--any", "--timeout", "0.2"});
   EXPECT_EQ(all.status, 1);
   EXPECT_THAT(all.errors, StartsWith("ordelctl: not settled: Other (pid "));
}

// The agent dies while it is asked, and nothing else happens: there is no agent left to wait for.
TEST(SettleTest, isAnsweredWhenTheAgentDiesMeanwhile) {
   Database const database;
   Agent agent(database);
   ASSERT_EQ(database.ctl({"settle"}).status, 0);
   agent.process().signal(SIGSTOP);
   RawClient asking(database.socket());
   asking.welcomed("asking");
   asking.send(Ordel::Message::Settle{.request = 1});
   asking.send(Ordel::Message::Clients{2});
   ASSERT_TRUE(asking.read(Ordel::Frame::reply)); // the question has been taken
   agent.process().signal(SIGKILL);
   auto const reply = asking.read(Ordel::Frame::reply);
   ASSERT_TRUE(reply);
   Ordel::Message::Reply answer;
   ASSERT_TRUE(Ordel::decode(reply->payload, answer));
   EXPECT_EQ(answer.request, 1u);
   EXPECT_EQ(answer.status, Ordel::Status::done);
}

// The database is stopped: the tool has a deadline of its own.
TEST(SettleTest, answersNoWhileTheDatabaseIsStopped) {
   Database database;
   auto const batch = database.startCtl({"batch"});
   batch->write("[\"get\", \"bridging/config.hostAgingTime\"]\n");
   ASSERT_TRUE(batch->output().readLine(limit));
   database.process().signal(SIGSTOP);
   batch->write("[\"settle\", \"--timeout\", 0.1]\n");
   EXPECT_EQ(batch->output().readLine(limit), "{\"ok\": false, \"error\": \"the database doesn't answer\"}");
   database.process().signal(SIGCONT);
}

} // namespace
