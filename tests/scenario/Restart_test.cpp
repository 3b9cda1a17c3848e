// The agent and the database are stopped and started: what was written stays, and nobody else is disturbed.
#include "Ordel/wire/Frames.h"
#include "ProcessFacts.h"
#include "Processes.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace Scenario;
using ::testing::HasSubstr;
using ::testing::Not;

std::string const boot = "cell/1/stage/boot/status";
std::string const vorn = "cell/1/stage/boot/config/inputDir/Vorn";
std::string const ethPriority = "bridging/input/config/eth.switchIntfConfigPriority";

// What outlives an agent: everything except what it reports about its own process.
std::vector<std::string> const lasting = {"bridging",
                                          "interface",
                                          "oxa",
                                          "cell/1/stage",
                                          "cell/1/interface",
                                          "cell/1/redundancy",
                                          "cell/1/agent/startupStatus"};

std::string lastingDump(Database const& database) {
   std::string all;
   for (std::string const& place : lasting)
      all += database.ctl({"dump", place}).output;
   return all;
}

struct RestartTest : testing::Test {
   Database database;

   void done(std::vector<std::string> const& arguments) {
      Result const result = database.ctl(arguments);
      EXPECT_EQ(result.status, 0) << arguments[0] << ' ' << arguments[1] << ": " << result.errors;
   }
   // The boot stage is reached; returns when the agent has reported it.
   void completeStage(std::string const& stage, int instance) {
      done({"set", boot + ".instance", std::to_string(instance)});
      done({"set", boot + ".stage", stage});
      done({"wait", vorn + ".stageComplete[" + stage + "]", std::to_string(instance)});
   }
   std::string dump() { return lastingDump(database); }
};

TEST_F(RestartTest, agentComesUpAnswersAStageAndEndsCleanly) {
   Agent agent(database);
   EXPECT_EQ(database.get(ethPriority), "10");
   completeStage("NetworkAgent", 1);
   completeStage("ErrdisableStatusUpdate", 1);
   agent.process().signal(SIGTERM);
   EXPECT_EQ(agent.process().wait(), 0);
   EXPECT_THAT(agent.process().errors().text(), HasSubstr("stopped by signal 15"));
}

TEST_F(RestartTest, whatAKilledAgentWroteStaysAndTheNextOneTakesItOver) {
   {
      Agent agent(database);
      completeStage("NetworkAgent", 1);
      agent.process().signal(SIGKILL);
      EXPECT_EQ(agent.process().wait(), 128 + SIGKILL);
   }
   std::string const left = dump();
   EXPECT_EQ(database.get(vorn + ".stageComplete[NetworkAgent]"), "1");

   // A subscriber on all that lasts sees nothing of the restart: intent is unchanged, and so is the outcome.
   std::vector<std::string> watch{"watch"};
   watch.insert(watch.end(), lasting.begin(), lasting.end());
   auto watcher = database.startCtl(watch);
   done({"wait", ethPriority, "10"});
   Agent next(database);
   done({"settle", "--timeout", "20"});
   EXPECT_EQ(dump(), left);
   done({"set", "bridging/input/config/cli.sourceDetail", "the last change"});
   auto const line = watcher->readLine();
   ASSERT_TRUE(line);
   EXPECT_THAT(*line, HasSubstr("the last change"));

   // The stage that was reported before is not begun again; a new boot is.
   completeStage("NetworkAgent", 2);
}

TEST_F(RestartTest, killOfTheAgentWhileInputPoursInLeavesADatabaseThatServesEveryoneElse) {
   auto batch = database.startCtl({"batch"});
   std::string document;
   for (int round = 0; round < 5; ++round) {
      Agent agent(database);
      for (int vlan = 1; vlan <= 200; ++vlan)
         batch->write("[\"set\", \"bridging/input/config/cli.vlanConfig[" + std::to_string(vlan) +
                      "].configuredName\", \"round " + std::to_string(round) + "\"]\n");
      agent.process().signal(SIGKILL);
      agent.process().wait();
      int answers = 0;
      for (int vlan = 1; vlan <= 200; ++vlan)
         if (auto const line = batch->readLine())
            ++answers;
      EXPECT_EQ(answers, 200);
   }
   Agent last(database);
   done({"settle", "--timeout", "20"});
   EXPECT_EQ(database.get(ethPriority), "10");
}

TEST_F(RestartTest, respawningRunnerBringsTheAgentBack) {
   Agent agent(database, {"--respawn"});
   done({"settle", "--timeout", "20"});
   std::string const clients = database.ctl({"clients", "--json"}).output;
   auto const at = clients.find("\"pid\":");
   ASSERT_NE(at, std::string::npos) << clients;
   // The first client is the agent: nobody else is connected but the asker itself.
   pid_t const pid = std::stoi(clients.substr(at + 6));
   ASSERT_NE(pid, agent.process().pid());
   done({"set", ethPriority, "0"});
   ::kill(pid, SIGKILL);
   // The next agent writes its priority again.
   done({"wait", ethPriority, "10", "--timeout", "20"});
   EXPECT_TRUE(agent.process().errors().waitFor("was ended by signal 9", limit));
   agent.process().signal(SIGTERM);
   EXPECT_EQ(agent.process().wait(), 0);
}

TEST_F(RestartTest, runnerEndsWithTheDatabaseAndSaysSo) {
   Agent agent(database);
   database.kill();
   EXPECT_EQ(agent.process().wait(), 5);
   EXPECT_THAT(agent.process().errors().text(), HasSubstr("the connection to the state database has ended"));
}

TEST_F(RestartTest, traceSettingOfARunningAgentIsSetInTheTree) {
   Agent agent(database);
   done({"set", "cell/1/agent/config/Vorn.traceSetting", "Vorn*/0-5"});
   done({"settle", "--timeout", "20"});
   completeStage("NetworkAgent", 1);
   EXPECT_TRUE(agent.process().errors().waitFor("doStage NetworkAgent", limit));
   // The same line is in the trace file, also after a kill.
   agent.process().signal(SIGKILL);
   agent.process().wait();
   Result const trace = run({program("zivcat"), database.folder().file("Vorn.zv")});
   EXPECT_EQ(trace.status, 0) << trace.errors;
   EXPECT_THAT(trace.output, HasSubstr("doStage NetworkAgent"));
}

TEST_F(RestartTest, traceFileHoldsTheFlowThatLedToACrashWithoutAnySetting) {
   Agent agent(database);
   done({"set", "bridging/input/config/cli.vlanConfig[10]", R"({"configuredName": "crash"})"});
   done({"set", "bridging/input/config/cli.vlanConfigPriority", "100"});
   done({"settle", "--timeout", "20"});
   agent.process().signal(SIGKILL);
   agent.process().wait();
   Result const trace = run({program("zivcat"), database.folder().file("Vorn.zv")});
   EXPECT_THAT(trace.output, HasSubstr("Adding Vlan: 10 to output"));
   EXPECT_THAT(trace.output, Not(HasSubstr("backlog processing 10"))) << "handlers are not in it: level 8";
   EXPECT_THAT(agent.process().errors().text(), Not(HasSubstr("Adding Vlan")));
}

TEST(SnapshotRestartTest, databaseThatWasStoppedComesBackTheSame) {
   TempFolder folder;
   Database database({"--snapshot", folder.file("state")});
   EXPECT_EQ(database.ctl({"load", EXAMPLE_FOLDER "/small-switch.json"}).status, 0);
   EXPECT_EQ(database.ctl({"load", EXAMPLE_FOLDER "/second-publisher.json"}).status, 0);
   std::string before;
   {
      Agent agent(database);
      EXPECT_EQ(database.ctl({"settle", "--timeout", "20"}).status, 0);
      before = lastingDump(database);
      EXPECT_EQ(database.stop(), 0);
      EXPECT_EQ(agent.process().wait(), 5);
   }
   EXPECT_THAT(before, HasSubstr("lab automation"));
   database.start();
   EXPECT_EQ(lastingDump(database), before);
   Agent agent(database);
   EXPECT_EQ(database.ctl({"settle", "--timeout", "20"}).status, 0);
   EXPECT_EQ(lastingDump(database), before);
}

// --- Cells.

TEST_F(RestartTest, cellThatTheDatabaseDoesNotHaveIsRefused) {
   Agent agent(database);
   Result const result =
       run({program("agent-runner"), "--module", std::string(MODULE_FOLDER) + "/libVorn.so", "--cell", "2"},
           {}, database.environment());
   EXPECT_EQ(result.status, 4);
   EXPECT_THAT(result.errors, HasSubstr("the database has no cell 2: there is no cell/2/redundancy/status"));
   EXPECT_EQ(database.ctl({"ls", "cell"}).output, "1\n") << "nothing is left behind";
}

// The second supervisor's agent waits beside the first one's, and takes over when that has ended.
TEST_F(RestartTest, secondSupervisorsAgentIsStandbyUntilItsCellSaysOtherwise) {
   std::string const first = "cell/1/redundancy/status", second = "cell/2/redundancy/status";
   done({"set", first + ".protocol", "protocolHotStandby"});
   done({"create", second, "Redundancy::RedundancyStatus"});
   done({"set", second + ".protocol", "protocolHotStandby"});
   done({"set", second + ".mode", "modeStandby"});
   auto active = std::make_unique<Agent>(database);
   done({"set", ethPriority, "3"});
   Agent standby(database, {"--cell", "2"});
   done({"settle", "--timeout", "20"});
   // The places of the second supervisor are there once its agent has asked for them.
   for (char const* const place : {"interface/nsconfig", "interface/status/eth/vlan/local", "stage/boot/status"})
      done({"get", std::string("cell/2/") + place});
   EXPECT_EQ(database.get(ethPriority), "3");
   active->process().signal(SIGKILL);
   active->process().wait();
   done({"set", second + ".mode", "modeActive"});
   done({"wait", ethPriority, "10", "--timeout", "20"});
}

// Another process holds the lock that a database takes at its start.
TEST(DatabaseStartTest, stopIsLookedAtWhileTheStartWaits) {
   TempFolder folder;
   int const lock = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   ASSERT_EQ(::flock(lock, LOCK_EX), 0);
   Process database({program("ordeld"), "--socket", folder.file("ordel.sock")});
   auto const end = std::chrono::steady_clock::now() + limit;
   // Before it is ordeld, the process has the folder open from this one.
   auto const waits = [&] {
      std::error_code error;
      auto const exe =
          std::filesystem::read_symlink("/proc/" + std::to_string(database.pid()) + "/exe", error);
      return exe.filename() == "ordeld" && hasOpen(database.pid(), folder.path());
   };
   while (!waits() && std::chrono::steady_clock::now() < end)
      ::usleep(1000);
   ASSERT_TRUE(waits()) << "it is where it waits for the lock";
   database.signal(SIGTERM);
   EXPECT_EQ(database.wait(), 0);
   EXPECT_THAT(database.errors().text(), Not(HasSubstr("ready")));
   ::close(lock);
}

// --- agent-runner by itself.

// It may take devices away. The parent of the test is what started it, in the machine's network.
TEST_F(RestartTest, agentOfATestIsNotInTheMachinesNetwork) {
   Agent agent(database);
   auto const networkOf = [](pid_t pid) {
      return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/ns/net");
   };
   auto const network = networkOf(agent.process().pid()), machines = networkOf(::getppid());
   if (!Tests::isInOwnNetwork())
      GTEST_SKIP() << "no right to make a network namespace";
   EXPECT_NE(network, machines);
   std::filesystem::path const named = "/proc/" + std::to_string(agent.process().pid()) + "/root/run/netns";
   EXPECT_TRUE(!std::filesystem::exists(named) || std::filesystem::is_empty(named));
}

TEST(RunnerTest, wrongUsageIsReportedAndEndsWith2) {
   for (std::vector<std::string> const& arguments : {std::vector<std::string>{"--cell", "0"},
                                                     {"--cell", "x"},
                                                     {"--name", "a/b"},
                                                     {"--name", ""},
                                                     {"surplus"},
                                                     {"--nonsense"}}) {
      std::vector<std::string> command{program("agent-runner")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      Result const result = run(command);
      EXPECT_EQ(result.status, 2) << arguments[0];
      EXPECT_NE(result.errors, "");
   }
}

TEST(RunnerTest, moduleThatCanNotBeLoadedIsNamed) {
   TempFolder folder;
   Result result = run({program("agent-runner"), "--module", folder.file("absent.so")});
   EXPECT_EQ(result.status, 3);
   EXPECT_THAT(result.errors, HasSubstr("absent.so"));
   result = run({program("agent-runner"), "--module", folder.fileOf("text.so", "no module")});
   EXPECT_EQ(result.status, 3);
   EXPECT_THAT(result.errors, HasSubstr("text.so"));
}

TEST(RunnerTest, databaseThatCanNotBeReachedIsNamed) {
   TempFolder folder;
   Result const result = run({program("agent-runner"), "--module", std::string(MODULE_FOLDER) + "/libVorn.so",
                              "--socket", folder.file("absent.sock")});
   EXPECT_EQ(result.status, 4);
   EXPECT_THAT(result.errors, HasSubstr("absent.sock"));
}

// Whether it ends in half of the time for which it looks for a database. A runner that looked at the signal only
// then would end with the same status.
bool endsAtOnce(Process& agent) {
   auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
   while (agent.isRunning() && std::chrono::steady_clock::now() < end)
      ::usleep(1000);
   return !agent.isRunning();
}

TEST(RunnerTest, stopIsLookedAtWhileTheDatabaseIsWaitedFor) {
   TempFolder folder;
   Process agent({program("agent-runner"), "--module", std::string(MODULE_FOLDER) + "/libVorn.so", "--socket",
                  folder.file("absent.sock")});
   ASSERT_TRUE(agent.errors().waitFor("waiting for the state database: ", limit)) << agent.errors().text();
   agent.signal(SIGTERM);
   EXPECT_TRUE(endsAtOnce(agent));
   EXPECT_EQ(agent.wait(), 0) << "and not 4, with which it ends when it has waited long enough";
   EXPECT_THAT(agent.errors().text(), HasSubstr("stopped by signal 15"));
}

// A socket at which a test takes the place of the database.
class ListeningSocket {
  public:
   explicit ListeningSocket(std::string const& name) : path_(folder_.file(name)) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      EXPECT_LT(path_.size(), sizeof address.sun_path);
      path_.copy(address.sun_path, sizeof address.sun_path - 1);
      EXPECT_EQ(::bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
      EXPECT_EQ(::listen(descriptor_, 8), 0);
   }
   ~ListeningSocket() { ::close(descriptor_); }
   ListeningSocket(ListeningSocket const&) = delete;
   ListeningSocket& operator=(ListeningSocket const&) = delete;

   std::string const& path() const { return path_; }
   int descriptor() const { return descriptor_; }

  private:
   TempFolder const folder_;
   std::string const path_;
   int const descriptor_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

// It accepts connections but doesn't answer: a database that is stopped, or busy with a large snapshot.
TEST(RunnerTest, stopIsLookedAtWhileTheDatabaseDoesNotAnswer) {
   ListeningSocket const silent("silent.sock");
   Process agent({program("agent-runner"), "--module", std::string(MODULE_FOLDER) + "/libVorn.so", "--socket",
                  silent.path()});
   int const client = ::accept(silent.descriptor(), nullptr, nullptr);
   ASSERT_GE(client, 0);
   agent.signal(SIGTERM);
   EXPECT_TRUE(endsAtOnce(agent));
   EXPECT_EQ(agent.wait(), 0);
   EXPECT_THAT(agent.errors().text(), HasSubstr("stopped by signal 15"));
   ::close(client);
}

// A database that was built with other records says so; asking it again would not help.
TEST(RunnerTest, databaseOfOtherRecordsEndsItAtOnce) {
   ListeningSocket const other("other.sock");
   unsigned asked = 0;
   std::thread database([&] {
      for (int client; (client = ::accept(other.descriptor(), nullptr, nullptr)) >= 0; ::close(client)) {
         ++asked;
         Ordel::FrameBuffer out;
         out.begin(Ordel::Frame::refused).string("the client was built with other records than the database");
         out.end();
         EXPECT_EQ(::send(client, out.view().data(), out.size(), MSG_NOSIGNAL),
                   static_cast<ssize_t>(out.size()));
         char byte;
         while (::recv(client, &byte, 1, 0) > 0) {
         }
      }
   });
   Result const result = run({program("agent-runner"), "--module", std::string(MODULE_FOLDER) + "/libVorn.so",
                              "--socket", other.path()});
   ::shutdown(other.descriptor(), SHUT_RDWR);
   database.join();
   EXPECT_EQ(result.status, 4);
   EXPECT_THAT(result.errors,
               HasSubstr("other.sock: the client was built with other records than the database"));
   EXPECT_EQ(asked, 1u);
}

TEST(RunnerTest, helpAndVersionGoToStandardOutput) {
   Result const help = run({program("agent-runner"), "--help"});
   EXPECT_EQ(help.status, 0);
   EXPECT_THAT(help.output, HasSubstr("Exit status:"));
   Result const version = run({program("agent-runner"), "--version"});
   EXPECT_EQ(version.status, 0);
   EXPECT_THAT(version.output, HasSubstr("agent-runner "));
}

} // namespace
