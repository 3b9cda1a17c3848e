#include "WhyHost.h"

#include "TestWorld.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

using namespace Vornctl;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char unicastHost[] = "00:1c:73:00:00:01";
constexpr char multicastGroup[] = "01:00:5e:00:00:01";

struct WhyHostTest : testing::Test {
   WhyHostTest() { world.vlan(10, "servers"); }
   Kem::Ptr<Bridging::Input::Config> input(char const* name, uint32_t priority) {
      auto const made = world.input(name, 0, 0);
      made->fdbConfigPriorityIs(priority);
      return made;
   }
   // What decides, as "rule: finding", after yes or no.
   std::string decision(char const* addr = unicastHost, uint16_t vlan = 10) {
      Explanation const explanation = explainHost(state, addrOf(addr), vlan);
      EXPECT_TRUE(explanation.isDecided());
      EXPECT_EQ(explanation.isMember(), explanation.advice.empty());
      return (explanation.isMember() ? "yes, " : "no, ") + explanation.rules.back().name + ": " +
             explanation.rules.back().finding;
   }
   std::string finding(std::string const& rule, char const* addr = unicastHost) {
      for (Rule const& each : explainHost(state, addrOf(addr), 10).rules)
         if (each.name == rule)
            return each.finding;
      return "there is no rule " + rule;
   }
   WhyAnswer answer(char const* addr = unicastHost, uint16_t vlan = 10) {
      return whyHost(state, addrOf(addr), vlan, {});
   }
   static Sulvi::EthAddr addrOf(char const* addr) { return Sulvi::EthAddr(std::string_view(addr)); }

   TestWorld world;
   SwitchState& state = world.state;
};

TEST_F(WhyHostTest, answerTellsWhoDecidesAndWhoLostByWhat) {
   TestWorld::host(input("overlay", 7), 10, unicastHost, "Ethernet7");
   TestWorld::host(input("lab", 5), 10, unicastHost, "Ethernet5", Bridging::EntryType::dropMac);
   TestWorld::host(world.cli, 10, unicastHost, "Ethernet1");
   world.resolveHost(10, unicastHost, "Ethernet7");
   WhyAnswer const why = answer();
   EXPECT_TRUE(why.isMember);
   EXPECT_EQ(why.text, "00:1c:73:00:00:01 is in VLAN 10: static host on Ethernet7.\n"
                       "\n"
                       "  Input               overlay decides the address by its number 7; lost: lab 5\n"
                       "                      (dropped host) and cli 0 (static host on Ethernet1)\n"
                       "  VLAN                exists: \"servers\", from cli\n"
                       "  Filtering database  its own\n"
                       "> Host                static host on Ethernet7\n");
}

TEST_F(WhyHostTest, lastOfEqualsDecides) {
   TestWorld::host(input("a", 5), 10, unicastHost, "Ethernet1");
   TestWorld::host(input("b", 5), 10, unicastHost, "Ethernet2");
   TestWorld::host(input("c", 4), 10, unicastHost, "Ethernet3");
   EXPECT_EQ(
       finding("Input"),
       "b decides the address by its number 5, as the last by name of those with that number; lost: a 5 "
       "(static host on Ethernet1) and c 4 (static host on Ethernet3)");
}

TEST_F(WhyHostTest, addressThatNobodyHasIsToldWithWhereItIs) {
   EXPECT_EQ(decision(), "no, Input: no input has the address in VLAN 10");
   TestWorld::host(world.cli, 20, unicastHost, "Ethernet1");
   TestWorld::host(world.cli, 30, unicastHost, "Ethernet1");
   EXPECT_EQ(decision(),
             "no, Input: no input has the address in VLAN 10; elsewhere it has cli in VLAN 20 and 30");
   WhyAnswer const why = answer();
   EXPECT_FALSE(why.isMember);
   EXPECT_THAT(why.text, StartsWith("00:1c:73:00:00:01 is no static host or group of VLAN 10.\n"));
   EXPECT_THAT(why.text, HasSubstr("What to do:\n  - publish\n"));
   EXPECT_THAT(why.text,
               HasSubstr("bridging/input/config/cli.fdbConfig[10].configuredHost[00:1c:73:00:00:01]"));
   EXPECT_THAT(why.text, Not(HasSubstr("ethGroup")));
   EXPECT_THAT(answer(multicastGroup).text, HasSubstr("ethGroup[01:00:5e:00:00:01]"));
}

TEST_F(WhyHostTest, vlanThatIsNotResolvedIsExplained) {
   TestWorld::host(world.cli, 20, unicastHost, "Ethernet1");
   EXPECT_EQ(decision(unicastHost, 20),
             "no, VLAN: doesn't exist: cli, which gives all VLANs by its number 100, lacks it");
   world.internalVlan(1006, "Ethernet3");
   TestWorld::host(world.cli, 1006, unicastHost, "Ethernet1");
   EXPECT_EQ(decision(unicastHost, 1006),
             "no, VLAN: exists: the internal VLAN of Ethernet3, a routed port, and "
             "internal VLANs have no static hosts");
}

TEST_F(WhyHostTest, vlanThatIsMappedOntoAnotherDatabaseIsExplained) {
   TestWorld::host(world.cli, 10, unicastHost, "Ethernet1");
   state.config->vidToFidMapIs(10, Bridging::Fid(20));
   EXPECT_EQ(decision(),
             "no, Filtering database: the VLAN uses that of VLAN 20 (vidToFidMap) and has no static "
             "hosts of its own");
   state.config->vidToFidMapIs(10, Bridging::Fid(0));
   EXPECT_EQ(decision(), "yes, Host: static host on Ethernet1") << "0 is no mapping";
}

TEST_F(WhyHostTest, groupAndItsMembersAreTold) {
   TestWorld::group(world.cli, 10, multicastGroup, {"Ethernet10", "Ethernet2"});
   world.resolveGroup(10, multicastGroup, {"Ethernet10", "Ethernet2"});
   EXPECT_THAT(answer(multicastGroup).text,
               StartsWith("01:00:5e:00:00:01 is in VLAN 10: group of Ethernet2 and Ethernet10.\n"));
   EXPECT_EQ(decision(multicastGroup), "yes, Group: group of Ethernet2 and Ethernet10");
   world.resolveGroup(10, multicastGroup, {"Ethernet7"});
   EXPECT_THAT(answer(multicastGroup).text, HasSubstr("Members that cli doesn't have: Ethernet7."));
   TestWorld::group(world.cli, 10, "01:00:5e:00:00:02", {});
   EXPECT_EQ(decision("01:00:5e:00:00:02"), "yes, Group: group without members");
}

TEST_F(WhyHostTest, addressAsHostAndAsGroupIsToldAsSuch) {
   TestWorld::group(input("a", 3), 10, multicastGroup, {"Ethernet1"});
   TestWorld::host(input("b", 5), 10, multicastGroup, "Ethernet2");
   EXPECT_EQ(finding("Host or group", multicastGroup),
             "the inputs disagree: what b says counts, a host, and the other kind is left out");
   EXPECT_EQ(decision(multicastGroup), "yes, Host: static host on Ethernet2");
   // Only a multicast address can be a group.
   TestWorld::group(input("c", 9), 10, unicastHost, {"Ethernet1"});
   EXPECT_EQ(decision(), "no, Input: no input has the address in VLAN 10");
}

TEST_F(WhyHostTest, differenceToTheRulesIsTold) {
   TestWorld::host(input("a", 3), 10, unicastHost, "Ethernet1");
   EXPECT_THAT(answer().text, HasSubstr("By these rules it would be there: static host on Ethernet1."));
   world.resolveHost(10, unicastHost, "Ethernet9");
   EXPECT_THAT(answer().text, HasSubstr("fdbConfigPriority"));
   world.resolveHost(10, unicastHost, "Ethernet1");
   EXPECT_THAT(answer().text, Not(HasSubstr("By these rules")));
   world.resolveHost(10, "00:1c:73:00:00:02", "Ethernet1");
   EXPECT_THAT(answer("00:1c:73:00:00:02").text, HasSubstr("By these rules it would not be there."));
   EXPECT_THAT(answer().text, Not(HasSubstr("not connected")));
   state.agentPid = 0;
   EXPECT_THAT(answer().text, HasSubstr("The agent is not connected"));
}

TEST_F(WhyHostTest, jsonHoldsTheRulesAndWhoLost) {
   TestWorld::host(input("b", 5), 10, multicastGroup, "Ethernet2");
   TestWorld::group(input("a", 3), 10, multicastGroup, {"Ethernet1"});
   world.resolveHost(10, multicastGroup, "Ethernet2");
   auto const why = json::parse(whyHost(state, addrOf(multicastGroup), 10, {.wantsJson = true}).text);
   EXPECT_EQ(why["address"], multicastGroup);
   EXPECT_EQ(why["vlan"], 10);
   EXPECT_EQ(why["isResolved"], true);
   EXPECT_EQ(why["isResolvedByRules"], true);
   EXPECT_EQ(why["isContradiction"], true);
   EXPECT_EQ(why["resolved"], json({{"kind", "host"}, {"ports", {"Ethernet2"}}, {"type", "staticMac"}}));
   EXPECT_EQ(why["input"], "b");
   EXPECT_EQ(why["inputPriority"], 5);
   EXPECT_EQ(why["losers"][0]["name"], "a");
   EXPECT_EQ(why["losers"][0]["entry"], json({{"kind", "group"}, {"ports", {"Ethernet1"}}}));
   EXPECT_EQ(why["rules"].back()["decides"], true);
   EXPECT_EQ(why["agentPid"], 77);
   auto const nobody = json::parse(whyHost(state, addrOf(unicastHost), 10, {.wantsJson = true}).text);
   EXPECT_EQ(nobody["isResolved"], false);
   EXPECT_EQ(nobody["input"], nullptr);
   EXPECT_EQ(nobody["resolved"], nullptr);
   EXPECT_EQ(nobody["advice"].size(), 1u);
}

} // namespace
