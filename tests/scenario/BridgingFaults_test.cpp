// Faults in the middle of bulk changes: the agent is killed at every fiftieth change, a subscriber stops
// reading. In the end the tree is the right one.
//
// Where a subscriber has to stand still it is a process of this same program, started with --subscribe: it
// obeys its standard input, `text FILE` writes its mirror once all that the database had for it has come.
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

// Two inputs for the same VLANs and ports. Which of them counts is decided by priorities alone, so that a
// whole bulk of changes begins with one small write.
struct BridgingFaultsTest : testing::Test {
   Switch bridge;
   int vlanCount = 0;
   int portCount = 0;

   // `few` lets each port into the first four VLANs, `many` into all; half of the VLANs have other names.
   // Without `few` nothing is resolved before `many`.
   void loadInputs(int vlans, int ports, bool hasFew) {
      vlanCount = vlans;
      portCount = ports;
      if (hasFew)
         bridge.load(Json{{"bridging/input/config/few", input("1-4", "few", 1)}});
      bridge.load(Json{{"bridging/input/config/many", input("1-4094", "many", 0)}});
      bridge.settle();
   }
   Json input(char const* allowed, std::string const& name, int priority) const {
      Json vlans = Json::object(), ports = Json::object();
      for (int vlan = 1; vlan <= vlanCount; ++vlan)
         vlans[std::to_string(vlan)] = {{"configuredName", vlan % 2 ? name : "both"}};
      for (int port = 1; port <= portCount; ++port)
         ports["Ethernet" + std::to_string(port)] = {{"switchportMode", "trunk_"},
                                                     {"trunkAllowedVlans", allowed}};
      return {{"$type", "Bridging::Input::Config"},
              {"vlanConfig", vlans},
              {"switchIntfConfig", ports},
              {"vlanConfigPriority", priority},
              {"switchIntfConfigPriority", priority ? 11 : 0}};
   }
   // The resolved tree, but for whom each VLAN came from: one that is the same in both inputs keeps its first
   // source until the agent is started anew.
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
   stopped.signal(SIGSTOP);
   siginfo_t info;
   ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(stopped.pid()), &info, WSTOPPED), 0);

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

TEST_F(BridgingFaultsTest, settleWaitsForDeferredStages) {
   loadInputs(600, 100, true);
   for (bool const isMany : {true, false, true, false}) {
      manyIs(isMany);
      bridge.settle();
      EXPECT_EQ(subscriber()->memberships(), isMany ? allMemberships() : size_t(4 * portCount));
   }
   // It was more than one slice that it waited for. The agent tells so within a second.
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
