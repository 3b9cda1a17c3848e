// Faults in the middle of bulk changes: the agent is killed at every fiftieth change, a subscriber stops
// reading, the database is stopped. In the end the tree must be right.
//
// A subscriber that has to be stopped is a process of this same program, started with --subscribe: it obeys
// its standard input, `text FILE` writes its mirror once all that the database had for it has arrived.
#include "ProcessFacts.h"
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iostream>
#include <poll.h>
#include <sstream>

namespace {

using namespace Scenario;

constexpr char resolved[] = "bridging/config";

// --- The subscriber's side.

int subscribe(std::string const& socket) {
   Subscriber subscriber(socket, resolved);
   subscriber.isTellingIs(false);
   std::cout << "mounted" << std::endl;
   while (subscriber.isConnected()) {
      pollfd ready[2] = {{0, POLLIN, 0}, {subscriber.descriptor(), POLLIN, 0}};
      ::poll(ready, 2, -1);
      if (ready[1].revents && !subscriber.receive())
         return 1;
      if (!ready[0].revents)
         continue;
      std::string command, file;
      if (!(std::cin >> command >> file))
         return 0;
      subscriber.takeAll();
      std::ofstream(file) << subscriber.text();
      std::cout << subscriber.memberships() << std::endl;
   }
   return 1;
}

// --- The test's side.

// Returns when it is stopped.
void stop(Process& process) {
   process.signal(SIGSTOP);
   siginfo_t info;
   EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(process.pid()), &info, WSTOPPED), 0);
}

// Two inputs for the same VLANs and ports. Which of them counts is decided by priorities alone, so that a
// whole bulk of changes begins with one small write.
struct BridgingFaultsTest : testing::Test {
   Switch bridge;
   int vlanCount = 0;
   int portCount = 0;

   // `few` makes each port a member of the first four VLANs, `many` of all; half of the VLANs have other
   // names there. Without `few` nothing is resolved before `many`.
   void loadInputs(int vlans, int ports, bool hasFew) {
      vlanCount = vlans;
      portCount = ports;
      if (hasFew)
         bridge.load(Json{{"bridging/input/config/few", input("1-4", "few", 1)}});
      bridge.load(Json{{"bridging/input/config/many", input("1-4094", "many", 0)}});
      bridge.settle();
   }
   Json input(char const* allowed, std::string const& name, int priority) const {
      return {{"$type", "Bridging::Input::Config"},
              {"vlanConfig", vlans(name)},
              {"switchIntfConfig", trunks(allowed)},
              {"vlanConfigPriority", priority},
              {"switchIntfConfigPriority", priority ? 11 : 0}};
   }
   Json vlans(std::string const& name) const {
      Json all = Json::object();
      for (int vlan = 1; vlan <= vlanCount; ++vlan)
         all[std::to_string(vlan)] = {{"configuredName", vlan % 2 ? name : "both"}};
      return all;
   }
   Json trunks(char const* allowed) const {
      Json all = Json::object();
      for (int port = 1; port <= portCount; ++port)
         all["Ethernet" + std::to_string(port)] = {{"switchportMode", "trunk_"},
                                                   {"trunkAllowedVlans", allowed}};
      return all;
   }
   // The resolved tree, except for the source of each VLAN: one that is the same in both inputs keeps its
   // first source until the agent is started again.
   std::string dump() const {
      std::istringstream lines(bridge.dump(resolved));
      std::string text;
      for (std::string line; std::getline(lines, line);)
         if (line.find("\"configSource\": ") == std::string::npos)
            text += line + "\n";
      return text;
   }
   // `many` counts from now on, or no longer.
   void manyIs(bool counts) {
      bridge.load(
          Json{{"bridging/input/config/many",
                {{"vlanConfigPriority", counts ? 20 : 0}, {"switchIntfConfigPriority", counts ? 20 : 0}}}});
   }
   std::unique_ptr<Subscriber> subscriber() {
      return std::make_unique<Subscriber>(bridge.database().socket(), resolved);
   }
   size_t allMemberships() const { return size_t(vlanCount) * size_t(portCount); }
};

TEST_F(BridgingFaultsTest, agentThatIsKilledAtAnyChangeOfABulkIsMadeUpForByTheNextOne) {
   constexpr size_t step = 50, kills = 60;
   loadInputs(120, 100, true);
   std::string const few = dump();
   auto const subscriber = this->subscriber();
   subscriber->isTellingIs(false);
   manyIs(true);
   bridge.settle();
   subscriber->takeAll();
   EXPECT_GT(subscriber->count(), step * kills);
   EXPECT_EQ(subscriber->memberships(), allMemberships());
   std::string const many = dump();

   bool isMany = true;
   size_t halfWay = 0;
   for (size_t kill = 1; kill <= kills; ++kill) {
      subscriber->takeAll();
      subscriber->begin();
      isMany = !isMany;
      manyIs(isMany);
      subscriber->takeUntil(kill * step);
      bridge.killAgent();
      subscriber->takeAll();
      std::string const left = dump();
      halfWay += left != few && left != many;
      bridge.startAgent();
      bridge.settle();
      ASSERT_TRUE(dump() == (isMany ? many : few)) << "killed at " << kill * step;
   }
   std::cout << halfWay << " of " << kills << " kills left a tree that was half-way" << std::endl;
   EXPECT_GT(halfWay, 0u);
   subscriber->takeAll();
   EXPECT_TRUE(subscriber->text() == this->subscriber()->text());
}

TEST_F(BridgingFaultsTest, stoppedSubscriberHoldsUpNobodyAndEndsWithTheTree) {
   loadInputs(300, 150, true);
   Process stopped({"/proc/self/exe", "--subscribe", bridge.database().socket()});
   ASSERT_EQ(stopped.readLine().value_or(stopped.errors().text()), "mounted");
   stop(stopped);

   for (bool const isMany : {true, false, true}) {
      manyIs(isMany);
      bridge.settle(); // while it is stopped
   }
   auto const other = subscriber();
   EXPECT_EQ(other->memberships(), allMemberships());

   stopped.signal(SIGCONT);
   TempFolder const folder;
   stopped.write("text " + folder.file("text") + "\n");
   EXPECT_EQ(stopped.readLine(), std::to_string(allMemberships()));
   std::ostringstream text;
   text << std::ifstream(folder.file("text")).rdbuf();
   EXPECT_TRUE(text.str() == other->text());
   EXPECT_EQ(stopped.errors().text(), "");
}

// Nanoseconds that the process has run or has waited for a processor. One that has something to do adds to it
// all the time.
uint64_t busyTime(pid_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/schedstat");
   uint64_t ran = 0, waited = 0;
   EXPECT_TRUE(file >> ran >> waited);
   return ran + waited;
}

// Returns when the process has been idle, but for a timer or so, for some while.
void awaitIdle(pid_t pid) {
   using Clock = std::chrono::steady_clock;
   auto const giveUp = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
   for (int idle = 0; idle < 5;) {
      auto const begin = Clock::now();
      uint64_t const before = busyTime(pid);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      auto const passed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
      idle = double(busyTime(pid) - before) < 0.5 * double(passed) ? idle + 1 : 0;
      if (Clock::now() > giveUp) {
         ADD_FAILURE() << "process " << pid << " does not become idle";
         return;
      }
   }
}

// The VLANs are made when all ports exist, and the database is stopped from before the agent sees the first
// of them until the agent has nothing more to do.
TEST_F(BridgingFaultsTest, stoppedDatabaseMakesTheAgentWaitNotGrow) {
   vlanCount = 1500;
   portCount = 256;
   bridge.load(Json{{cliInput,
                     {{"switchIntfConfig", trunks("1-4094")},
                      {"vlanConfigPriority", 1},
                      {"switchIntfConfigPriority", 11}}}});
   bridge.settle();
   pid_t const agent = bridge.agentProcess().pid();
   size_t const before = memoryOf(agent, "VmHWM");

   stop(bridge.agentProcess());
   bridge.load(Json{{cliInput, {{"vlanConfig", vlans("cli")}}}});
   stop(bridge.database().process());
   bridge.agentProcess().signal(SIGCONT);
   awaitIdle(agent);
   size_t const atStop = memoryOf(agent, "VmHWM");
   EXPECT_TRUE(bridge.agentProcess().isRunning());

   bridge.database().process().signal(SIGCONT);
   bridge.settle();
   size_t const atEnd = memoryOf(agent, "VmHWM");
   EXPECT_EQ(subscriber()->memberships(), allMemberships());
   std::cout << "agent: " << before << " KiB before, " << atStop << " KiB while the database was stopped, "
             << atEnd << " KiB at most" << std::endl;
   // What it still had to do is most of the tree, as it had no more room than a few of its slices fill.
   if (isMemoryMeaningful) {
      EXPECT_LT(atStop - before, (atEnd - before) / 2);
   }
}

// At any moment: while the agent waits for room, and while it writes.
TEST_F(BridgingFaultsTest, databaseThatEndsWhileTheAgentHasABacklogEndsItWithItsStatus) {
   constexpr int lostDatabase = 5;
   loadInputs(1000, 128, true);
   stop(bridge.agentProcess());
   manyIs(true);
   stop(bridge.database().process());
   bridge.agentProcess().signal(SIGCONT);
   awaitIdle(bridge.agentProcess().pid());
   bridge.database().kill();
   EXPECT_EQ(bridge.agentProcess().wait(), lostDatabase) << bridge.agentProcess().errors().text();

   for (size_t const memberships : {1u, 2000u, 20'000u, 60'000u}) {
      bridge.database().start();
      bridge.startAgent();
      loadInputs(1000, 128, true);
      auto const seen = subscriber();
      manyIs(true);
      while (seen->memberships() < 4 * 128 + memberships && seen->receive()) {
      }
      bridge.database().kill();
      EXPECT_EQ(bridge.agentProcess().wait(), lostDatabase) << bridge.agentProcess().errors().text();
   }
}

TEST_F(BridgingFaultsTest, settleWaitsForDeferredStages) {
   // So many that no machine is done with them in one slice.
   loadInputs(4000, 200, true);
   for (bool const isMany : {true, false, true, false}) {
      manyIs(isMany);
      bridge.settle();
      EXPECT_EQ(subscriber()->memberships(), isMany ? allMemberships() : size_t(4 * portCount));
   }
   // It waited for more than one slice. The agent reports that within a second.
   auto const status = std::make_unique<Subscriber>(bridge.database().socket(), "cell/1/agent/status/Vorn");
   auto const slicesLeftOver = [&] {
      return bridge
          .read("cell/1/agent/status/Vorn.deferredStage[VlanConfigCodef]")["yieldBeforeFinishingCount"]
          .get<uint64_t>();
   };
   while (slicesLeftOver() == 0 && !HasFailure()) {
      status->begin();
      status->takeUntil(1);
   }
}

} // namespace

int main(int argc, char** argv) {
   testing::InitGoogleTest(&argc, argv);
   if (argc == 3 && std::string_view(argv[1]) == "--subscribe")
      return subscribe(argv[2]);
   return RUN_ALL_TESTS();
}
