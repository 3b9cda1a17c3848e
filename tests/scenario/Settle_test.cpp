// settle with a real agent: waits for it, and says so when it doesn't answer.
#include "Processes.h"

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

} // namespace
