// The agent under a service manager with a watchdog, which the test plays.
#include "Processes.h"

#include "Process/TestServiceManager.h"

#include <gmock/gmock.h>

#include <set>

namespace Scenario {
namespace {

using testing::AnyOf;

constexpr int limitInMs = 30000;
// The manager wants to hear of the service within this; several times as long shows that it hears nothing.
constexpr int intervalInMs = 200;
constexpr int silenceInMs = 5 * intervalInMs;

struct WatchdogScenario : testing::Test {
   // The shell gives the runner's own number to it, as a manager does.
   void start(std::string const& options) {
      Environment environment = database.environment();
      environment["NOTIFY_SOCKET"] = database.folder().file("notify");
      environment["WATCHDOG_USEC"] = std::to_string(intervalInMs * 1000);
      environment["ZIVLOG_DISABLE"] = "1";
      runner = std::make_unique<Process>(
          std::vector<std::string>{"/bin/sh", "-c",
                                   "WATCHDOG_PID=$$ exec '" + program("agent-runner") + "' --module '" +
                                       MODULE_FOLDER + "/libVorn.so' " + options},
          environment);
   }
   // Waits for the message; the others before it, in order and each once. Who feeds is kept.
   std::string toldUntil(std::string const& wanted) {
      std::string others;
      for (std::string message; (message = manager.told(limitInMs)) != wanted;) {
         if (message.empty()) {
            ADD_FAILURE() << "no " << wanted << ": " << runner->errors().text();
            break;
         }
         if (message == "WATCHDOG=1")
            feeders.insert(manager.sender());
         if (others.find(message) == std::string::npos)
            others += (others.empty() ? "" : " ") + message;
      }
      return others;
   }
   // Stops the process; what it said before that is dropped.
   void stop(pid_t pid) {
      ::kill(pid, SIGSTOP);
      std::string const path = "/proc/" + std::to_string(pid) + "/stat";
      for (std::string text; text.find(") T ") == std::string::npos;)
         std::getline(std::ifstream(path), text);
      while (!manager.told().empty()) {
      }
   }

   Database database;
   ::Process::TestServiceManager manager{database.folder().file("notify")};
   std::unique_ptr<Process> runner;
   std::set<pid_t> feeders;
};

TEST_F(WatchdogScenario, agentFeedsItUntilItIsStuck) {
   start("");
   EXPECT_EQ(toldUntil("READY=1"), "WATCHDOG=1") << "fed while it starts, too";
   EXPECT_EQ(toldUntil("WATCHDOG=1"), "");
   EXPECT_EQ(manager.sender(), runner->pid());
   stop(runner->pid());
   EXPECT_EQ(manager.told(silenceInMs), "");
   runner->signal(SIGCONT);
   EXPECT_EQ(toldUntil("WATCHDOG=1"), "");
   runner->signal(SIGTERM);
   EXPECT_EQ(runner->wait(), 0);
   EXPECT_THAT(toldUntil("STOPPING=1"), AnyOf("WATCHDOG=1", ""));
}

// The parent can't know whether the agent's loop makes turns.
TEST_F(WatchdogScenario, parentOfARespawnedAgentDoesNotFeedItForAChildThatIsStuck) {
   start("--respawn");
   toldUntil("READY=1");
   EXPECT_EQ(toldUntil("WATCHDOG=1"), "");
   pid_t const child = manager.sender();
   EXPECT_NE(child, runner->pid());
   stop(child);
   EXPECT_EQ(manager.told(silenceInMs), "");
   ::kill(child, SIGCONT);
   EXPECT_EQ(toldUntil("WATCHDOG=1"), "");
   EXPECT_EQ(manager.sender(), child);
}

// An agent that is started again is no end of the service; a manager that hears of an end ends the rest.
TEST_F(WatchdogScenario, onlyTheParentOfARespawnedAgentSaysThatTheServiceStops) {
   start("--respawn");
   toldUntil("READY=1");
   pid_t const child = manager.sender();
   EXPECT_EQ(feeders, std::set{child});
   ::kill(child, SIGTERM);
   EXPECT_EQ(toldUntil("READY=1"), "WATCHDOG=1");
   EXPECT_NE(manager.sender(), child);
   EXPECT_TRUE(feeders.count(runner->pid())) << "in the pause";
   runner->signal(SIGTERM);
   EXPECT_EQ(runner->wait(), 0);
   EXPECT_THAT(toldUntil("STOPPING=1"), AnyOf("WATCHDOG=1", ""));
   EXPECT_EQ(manager.sender(), runner->pid());
   EXPECT_EQ(manager.told(), "") << "once";
}

} // namespace
} // namespace Scenario
