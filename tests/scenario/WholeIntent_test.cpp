// All kinds of intent at once: a restart and a switchover on it change nothing before anybody's eyes.
//
// WHOLE_INTENT=full runs it at the greatest size there is: 4094 VLANs, half of them dynamic, 200 private ones,
// 512 ports, 16 000 static hosts.
#include "Subscriber.h"
#include "WholeIntent.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

namespace {

using namespace Scenario;

WholeIntent intentOfThisRun() {
   char const* const size = std::getenv("WHOLE_INTENT");
   if (size && std::string_view(size) == "full")
      return {.vlans = 4094, .privateVlans = 200, .ports = 512, .hosts = 16000};
   return {};
}

struct WholeIntentTest : testing::Test {
   static constexpr char resolved[] = "bridging";
   std::string const role = "cell/1/redundancy/status";
   WholeIntent const intent = intentOfThisRun();
   Switch bridge;

   void SetUp() override {
      for (std::string const& document : intent.documents())
         bridge.done({"load", "-"}, document);
      bridge.settle();
   }
   std::unique_ptr<Subscriber> subscribe() {
      return std::make_unique<Subscriber>(bridge.database().socket(), resolved);
   }
   void comeBack() {
      bridge.killAgent();
      bridge.startAgent();
      bridge.settle();
   }
   // The first line in which two dumps differ, as it is in each; empty when they are equal. They are too long
   // for the test library to compare.
   static std::string firstDifference(std::string const& dump, std::string const& other) {
      std::istringstream lines(dump), otherLines(other);
      for (std::string line, otherLine;;) {
         bool const isOver = !std::getline(lines, line), isOtherOver = !std::getline(otherLines, otherLine);
         if (isOver && isOtherOver)
            return {};
         if (isOver || isOtherOver || line != otherLine)
            return "\"" + (isOver ? "" : line) + "\" and \"" + (isOtherOver ? "" : otherLine) + "\"";
      }
   }
   // By the names of the members alone: what is in them is hundreds of megabytes of text.
   size_t count(std::string const& collection) {
      std::string const keys = bridge.database().ctl({"ls", "bridging/config." + collection}).output;
      return static_cast<size_t>(std::count(keys.begin(), keys.end(), '\n'));
   }
};

TEST_F(WholeIntentTest, everyKindOfItIsResolved) {
   EXPECT_EQ(count("switchIntfConfig"), size_t(intent.ports));
   EXPECT_GE(count("vlanConfig"), size_t(intent.vlans)); // and the internal ones
   EXPECT_EQ(bridge.get("bridging/config.vlanConfig[4].configSource"), "\"mvrp\"");
   EXPECT_EQ(bridge.get("bridging/config.vlanConfig[2].configSource"), "\"overlay\"");
   EXPECT_EQ(bridge.get("bridging/config.vlanConfig[100].configSource"),
             "\"overlay\""); // has the greater priority
   EXPECT_EQ(bridge.get("bridging/config.vlanConfig[1].configSource"), "\"cli\"");
   EXPECT_EQ(bridge.get("bridging/config.vidToFidMap[3]"), "1"); // a secondary VLAN of the first group
   // The widest rank wins; of equal ranks the last by name.
   EXPECT_EQ(bridge.read("bridging/config.fdbConfig[1].configuredHost[02:00:00:00:00:00]")["intf"],
             "Ethernet3");
}

TEST_F(WholeIntentTest, nobodySeesAnythingOfARestart) {
   std::string const before = bridge.dump();
   auto const subscriber = subscribe();
   comeBack();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen().substr(0, 2000);
   EXPECT_EQ(firstDifference(bridge.dump(), before), "");
   // The new agent follows what is asked for, and leaves no other trace than the old one would.
   bridge.set("bridging/input/dynvlan/vlan/overlay.configPriority", "5");
   bridge.settle();
   EXPECT_EQ(bridge.get("bridging/config.vlanConfig[100].configSource"), "\"mvrp\"");
   bridge.set("bridging/input/dynvlan/vlan/overlay.configPriority", "20");
   bridge.settle();
   EXPECT_EQ(firstDifference(bridge.dump(), before), "");
}

TEST_F(WholeIntentTest, nobodySeesAnythingOfASwitchover) {
   std::string const before = bridge.dump();
   bridge.killAgent();
   bridge.set(role + ".protocol", "protocolHotStandby");
   bridge.set(role + ".mode", "modeStandby");
   bridge.startAgent();
   bridge.settle();
   auto const subscriber = subscribe();
   bridge.set(role + ".mode", "modeActive");
   bridge.settle();
   subscriber->takeAll();
   EXPECT_EQ(subscriber->bytes(), 0u) << subscriber->seen().substr(0, 2000);
   EXPECT_EQ(firstDifference(bridge.dump(), before), "");
}

} // namespace
