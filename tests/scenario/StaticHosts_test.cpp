// Static hosts and groups of several publishers, through the database and the real agent: who wins, who takes
// over, what is refused, what two publishers contradict each other in, and restarts in between.
#include "Subscriber.h"
#include "Switch.h"

#include <gmock/gmock.h>

namespace {

using namespace Scenario;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char unicastHost[] = "00:1c:73:00:00:01";
constexpr char multicastGroup[] = "01:00:5e:00:00:01";

struct StaticHostsTest : testing::Test {
   StaticHostsTest() {
      bridge.load(Json{{cliInput, {{"vlanConfigPriority", 100}, {"vlanConfig", {{"10", Json::object()}}}}},
                       {a, {{"$type", "Bridging::Input::Config"}}},
                       {b, {{"$type", "Bridging::Input::Config"}}}});
      bridge.settle();
   }
   static std::string hostOf(std::string const& input, std::string const& addr, int vlan = 10) {
      return input + ".fdbConfig[" + std::to_string(vlan) + "].configuredHost[" + addr + "]";
   }
   static std::string groupOf(std::string const& input, std::string const& addr, int vlan = 10) {
      return input + ".fdbConfig[" + std::to_string(vlan) + "].ethGroup[" + addr + "]";
   }
   static std::string on(char const* port) { return std::string("{\"intf\": \"") + port + "\"}"; }
   // The port of a resolved host; empty when there is none.
   std::string host(std::string const& addr = unicastHost, int vlan = 10) {
      std::string const selector = hostOf("bridging/config", addr, vlan);
      return bridge.exists(selector) ? bridge.read(selector)["intf"].get<std::string>() : "";
   }
   std::vector<std::string> members(std::string const& addr = multicastGroup) {
      std::string const selector = groupOf("bridging/config", addr);
      return bridge.exists(selector) ? bridge.keys(selector + ".intf") : std::vector<std::string>{"no group"};
   }
   Result vornctl(std::vector<std::string> const& arguments) {
      std::vector<std::string> command{program("vornctl")};
      command.insert(command.end(), arguments.begin(), arguments.end());
      return run(command, {}, bridge.database().environment());
   }

   std::string const a = "bridging/input/config/a";
   std::string const b = "bridging/input/config/b";
   Switch bridge;
};

TEST_F(StaticHostsTest, addressIsDecidedByItselfAndPassesToTheNextBest) {
   bridge.set(hostOf(a, unicastHost), on("Ethernet1"));
   bridge.set(hostOf(b, unicastHost), on("Ethernet2"));
   bridge.set(hostOf(a, "00:1c:73:00:00:0a"), on("Ethernet3"));
   bridge.settle();
   EXPECT_EQ(host(), "Ethernet2") << "the last of equals";
   EXPECT_EQ(host("00:1c:73:00:00:0a"), "Ethernet3");
   bridge.set(a + ".fdbConfigPriority", "1");
   bridge.set(hostOf(a, unicastHost), on("Ethernet4"));
   bridge.settle();
   EXPECT_EQ(host(), "Ethernet4");
   Result const why = vornctl({"why", unicastHost, "10"});
   EXPECT_EQ(why.status, 0) << why.errors;
   EXPECT_THAT(why.output, HasSubstr("a decides the address by its number 1; lost: b 0 (static\n"));
   EXPECT_THAT(vornctl({"show", "mac", "static", "10"}).output,
               HasSubstr("10    00:1c:73:00:00:01  forward  a      Et4\n"));
   // The publisher goes as a whole.
   bridge.erase(a);
   bridge.settle();
   EXPECT_EQ(host(), "Ethernet2");
   EXPECT_EQ(host("00:1c:73:00:00:0a"), "");
   bridge.erase(b + ".fdbConfig[10]");
   bridge.settle();
   EXPECT_EQ(host(), "");
   EXPECT_FALSE(bridge.exists("bridging/config.fdbConfig[10]"));
   EXPECT_FALSE(bridge.exists("bridging/fdbConfigDir.fdbConfig[10]"));
   EXPECT_EQ(vornctl({"why", unicastHost, "10"}).status, 1);
}

TEST_F(StaticHostsTest, hostsFollowTheirVlanAndItsFilteringDatabase) {
   bridge.set(hostOf(a, unicastHost, 20), on("Ethernet1"));
   bridge.settle();
   EXPECT_EQ(host(unicastHost, 20), "");
   bridge.set(cliInput + ".vlanConfig[20]", "{}");
   bridge.settle();
   EXPECT_EQ(host(unicastHost, 20), "Ethernet1");
   bridge.set(cliInput + ".vidToFidMap[20]", "10");
   bridge.settle();
   EXPECT_EQ(host(unicastHost, 20), "");
   EXPECT_THAT(vornctl({"why", unicastHost, "20"}).output, HasSubstr("> Filtering database"));
   bridge.erase(cliInput + ".vidToFidMap[20]");
   bridge.settle();
   EXPECT_EQ(host(unicastHost, 20), "Ethernet1");
}

TEST_F(StaticHostsTest, inputThatHasOneAddressAsBothKindsIsRefused) {
   bridge.set(groupOf(a, multicastGroup), R"({"intf": {"Ethernet1": true}})");
   bridge.settle();
   std::string const before = bridge.dump();
   Result const host = bridge.database().ctl({"set", hostOf(a, multicastGroup), on("Ethernet2")});
   EXPECT_EQ(host.status, 3);
   EXPECT_EQ(host.errors, "ordelctl: " + hostOf(a, multicastGroup) + ": is in ethGroup too\n");
   Result const group = bridge.database().ctl({"set", groupOf(a, unicastHost), "{}"});
   EXPECT_EQ(group.status, 3);
   EXPECT_EQ(group.errors, "ordelctl: " + groupOf(a, unicastHost) + ": is no multicast address\n");
   // A document is taken whole or not at all.
   Json const document = {{b,
                           {{"sourceDetail", "both"},
                            {"fdbConfig",
                             {{"10",
                               {{"configuredHost", {{multicastGroup, {{"intf", "Ethernet2"}}}}},
                                {"ethGroup", {{multicastGroup, {{"intf", {{"Ethernet1", true}}}}}}}}}}}}}};
   Result const both = bridge.database().ctl({"load", "-"}, document.dump());
   EXPECT_EQ(both.status, 3);
   EXPECT_THAT(both.errors, HasSubstr(groupOf(b, multicastGroup) + ": is in configuredHost too"));
   bridge.settle();
   EXPECT_EQ(bridge.dump(), before);
   EXPECT_THAT(members(), ElementsAre("Ethernet1"));
}

TEST_F(StaticHostsTest, inputsThatContradictEachOtherAreNamedAndTheAgentRunsOn) {
   bridge.set(a + ".fdbConfigPriority", "3");
   bridge.set(b + ".fdbConfigPriority", "5");
   bridge.set(groupOf(a, multicastGroup), R"({"intf": {"Ethernet1": true}})");
   bridge.settle();
   EXPECT_THAT(members(), ElementsAre("Ethernet1"));
   bridge.set(hostOf(b, multicastGroup), on("Ethernet2"));
   bridge.settle();
   std::string const complaint =
       "Vlan 10: 01:00:5e:00:00:01 is a static host in input b and a group in input a: the host counts";
   EXPECT_EQ(host(multicastGroup), "Ethernet2");
   EXPECT_THAT(members(), ElementsAre("no group"));
   EXPECT_THAT(bridge.agentProcess().errors().text(), HasSubstr(complaint));
   // The next agent meets the same pair.
   bridge.killAgent();
   bridge.startAgent();
   bridge.settle();
   EXPECT_TRUE(bridge.agentProcess().isRunning());
   EXPECT_THAT(bridge.agentProcess().errors().text(), HasSubstr(complaint));
   EXPECT_EQ(host(multicastGroup), "Ethernet2");
   bridge.erase(hostOf(b, multicastGroup));
   bridge.settle();
   EXPECT_EQ(host(multicastGroup), "");
   EXPECT_THAT(members(), ElementsAre("Ethernet1"));
   EXPECT_TRUE(bridge.agentProcess().isRunning());
}

TEST_F(StaticHostsTest, restartShowsNothingAndTakesInWhatChangedMeanwhile) {
   for (int i = 1; i <= 50; ++i) {
      std::string const addr = "00:1c:73:00:01:" + std::to_string(10 + i % 90);
      bridge.set(hostOf(i % 2 ? a : b, addr), on("Ethernet1"));
   }
   bridge.set(groupOf(a, multicastGroup), R"({"intf": {"Ethernet1": true, "Ethernet2": true}})");
   bridge.set(hostOf(b, unicastHost), on("Ethernet2"));
   bridge.settle();
   Subscriber subscriber(bridge.database().socket(), "bridging");
   bridge.killAgent();
   bridge.startAgent();
   bridge.settle();
   subscriber.takeAll();
   EXPECT_EQ(subscriber.bytes(), 0u) << subscriber.seen();
   // Kinds change places while no agent runs, inputs and hosts go.
   bridge.killAgent();
   bridge.erase(groupOf(a, multicastGroup));
   bridge.set(hostOf(a, multicastGroup), on("Ethernet7"));
   bridge.erase(b);
   bridge.startAgent();
   bridge.settle();
   EXPECT_EQ(host(multicastGroup), "Ethernet7");
   EXPECT_THAT(members(), ElementsAre("no group"));
   EXPECT_EQ(host(), "");
   EXPECT_EQ(bridge.keys("bridging/config.fdbConfig[10].configuredHost").size(), 26u);
   // And back.
   bridge.killAgent();
   bridge.erase(hostOf(a, multicastGroup));
   bridge.set(groupOf(a, multicastGroup), R"({"intf": {"Ethernet3": true}})");
   bridge.startAgent();
   bridge.settle();
   EXPECT_EQ(host(multicastGroup), "");
   EXPECT_THAT(members(), ElementsAre("Ethernet3"));
}

} // namespace
