#include "Vorn/Selection/InputFdbConfigSm.h"

#include "Vorn/testing/TestBridge.h"
#include "Vorn/testing/WriteOrder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Vorn::TestBridge;
using Vorn::TestInput;
using Vorn::TestTrace;

constexpr char unicastHost[] = "00:1c:73:00:00:01";
constexpr char multicast[] = "01:00:5e:00:00:01";

struct InputFdbConfigSmTest : testing::Test {
   InputFdbConfigSmTest() { bridge.vlan(10); }
   // An input that takes part in hosts and groups only.
   TestInput input(char const* name, uint32_t priority = 0) {
      auto const made = bridge.input(name);
      made.fdbPriorityIs(priority);
      return made;
   }
   void started() {
      bridge.start();
      bridge.run();
   }
   std::string host(char const* addr = unicastHost) { return bridge.mergedHost(10, addr); }
   std::string group(char const* addr = multicast) { return bridge.mergedGroup(10, addr); }
   bool isMerged(uint16_t vlanId = 10) { return bridge.fdbConfigDir->fdbConfig(vlanId) != nullptr; }
   Kem::Ptr<Vorn::InputFdbConfigSm> sm(char const* name, uint16_t vlanId = 10) {
      return bridge.selector->config(name)->inputFdbConfigSm(vlanId);
   }
   // What was said about addresses of two kinds.
   std::vector<std::string> complaints(TestTrace& trace) {
      auto found = trace.from("Vlan 10: ");
      trace.clear();
      return found;
   }

   TestBridge bridge;
};

// --- Hosts.

TEST_F(InputFdbConfigSmTest, lastOfEqualsWinsAlsoAtZeroAndAGreaterPriorityOverBoth) {
   started();
   input("a").host(10, unicastHost, "Ethernet1");
   input("b").host(10, unicastHost, "Ethernet2");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet2");
   input("a0", 1).host(10, unicastHost, "Ethernet3");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
   EXPECT_EQ(bridge.host(10, unicastHost), "Ethernet3") << "and so it is resolved";
}

TEST_F(InputFdbConfigSmTest, hostThatTheWinnerGivesUpPassesToTheNextBest) {
   auto const better = input("better", 5);
   better.host(10, unicastHost, "Ethernet5");
   input("worse", 3).host(10, unicastHost, "Ethernet3");
   started();
   EXPECT_EQ(host(), "Ethernet5");
   better.hostDel(10, unicastHost);
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
}

TEST_F(InputFdbConfigSmTest, hostThatNobodyHoldsIsNotMerged) {
   auto const only = input("a");
   only.host(10, unicastHost, "Ethernet1");
   only.host(10, "00:1c:73:00:00:02", "Ethernet1");
   started();
   only.hostDel(10, unicastHost);
   bridge.run();
   EXPECT_EQ(host(), "");
   EXPECT_EQ(bridge.host(10, unicastHost), "");
   EXPECT_EQ(host("00:1c:73:00:00:02"), "Ethernet1");
}

TEST_F(InputFdbConfigSmTest, changesOfTheLoserAreNotMerged) {
   input("a", 5).host(10, unicastHost, "Ethernet5");
   auto const loser = input("b", 3);
   started();
   loser.host(10, unicastHost, "Ethernet1");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet5");
   loser.hostDel(10, unicastHost);
   bridge.run();
   EXPECT_EQ(host(), "Ethernet5");
}

TEST_F(InputFdbConfigSmTest, hostIsCopiedWithAllThatItSays) {
   auto const a = input("a");
   Sulvi::EthAddr const addr{std::string_view(unicastHost)};
   started();
   Bridging::ConfiguredHost const dropped = {
       .addr = addr, .intf = "Ethernet1", .entryType = static_cast<Bridging::EntryType>(1)};
   a.fdb(10)->configuredHostIs(addr, dropped);
   bridge.run();
   EXPECT_EQ(*bridge.fdbConfigDir->fdbConfig(10)->configuredHost(addr), dropped);
   EXPECT_EQ(*bridge.config->fdbConfig(Bridging::Fid(10))->configuredHost(addr), dropped);
}

TEST_F(InputFdbConfigSmTest, multicastAddressMayBeAHost) {
   input("a").host(10, multicast, "Ethernet1");
   started();
   EXPECT_EQ(host(multicast), "Ethernet1");
   EXPECT_EQ(group(), "");
}

TEST_F(InputFdbConfigSmTest, priorityCountsFromTheNextEvaluationOfAnAddressOn) {
   auto const a = input("a", 5);
   a.host(10, unicastHost, "Ethernet5");
   auto const b = input("b", 3);
   b.host(10, unicastHost, "Ethernet3");
   started();
   b.fdbPriorityIs(9);
   bridge.run();
   EXPECT_EQ(host(), "Ethernet5") << "nobody watches it";
   b.host(10, unicastHost, "Ethernet4");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet4");
}

TEST_F(InputFdbConfigSmTest, eachVlanIsMergedByItself) {
   bridge.vlan(20);
   input("a", 5).host(10, unicastHost, "Ethernet1");
   auto const b = input("b", 3);
   b.host(10, unicastHost, "Ethernet2");
   b.host(20, unicastHost, "Ethernet3");
   started();
   EXPECT_EQ(bridge.mergedHost(10, unicastHost), "Ethernet1");
   EXPECT_EQ(bridge.mergedHost(20, unicastHost), "Ethernet3");
   EXPECT_FALSE(sm("a", 20));
}

// --- Groups.

TEST_F(InputFdbConfigSmTest, membersFollowTheWinner) {
   auto const a = input("a");
   a.group(10, multicast, {"Ethernet1", "Ethernet2"});
   started();
   EXPECT_EQ(group(), "{Ethernet1 Ethernet2}");
   a.group(10, multicast, {"Ethernet3"})->intfDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet2 Ethernet3}");
   EXPECT_EQ(bridge.group(10, multicast), "{Ethernet2 Ethernet3}");
   a.groupDel(10, multicast);
   bridge.run();
   EXPECT_EQ(group(), "");
   EXPECT_EQ(bridge.group(10, multicast), "");
   EXPECT_FALSE(sm("a")->ethGroup(Sulvi::EthAddr(std::string_view(multicast))));
}

TEST_F(InputFdbConfigSmTest, membersOfALosingGroupAreNotMerged) {
   input("a", 5).group(10, multicast, {"Ethernet1"});
   auto const loser = input("b", 3);
   loser.group(10, multicast, {"Ethernet2"});
   started();
   EXPECT_EQ(group(), "{Ethernet1}");
   loser.group(10, multicast, {"Ethernet3"})->intfDel("Ethernet2");
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet1}");
   // Nor does a member go that the winner has too.
   loser.group(10, multicast, {"Ethernet1"});
   bridge.run();
   loser.group(10, multicast)->intfDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet1}");
}

TEST_F(InputFdbConfigSmTest, betterInputTakesAGroupOverAsAWhole) {
   input("a", 5).group(10, multicast, {"Ethernet1", "Ethernet2"});
   auto const b = input("b", 9);
   started();
   b.group(10, multicast, {"Ethernet2", "Ethernet3"});
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet2 Ethernet3}");
}

TEST_F(InputFdbConfigSmTest, groupThatTheWinnerGivesUpGetsTheMembersOfTheNextAndKeepsItsOwn) {
   auto const better = input("b", 9);
   better.group(10, multicast, {"Ethernet2"});
   auto const next = input("a", 5);
   next.group(10, multicast, {"Ethernet1"});
   started();
   EXPECT_EQ(group(), "{Ethernet2}");
   better.groupDel(10, multicast);
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet1 Ethernet2}");
   // The members of the former winner go when the group of the new one is looked at as a whole.
   next.groupDel(10, multicast);
   next.group(10, multicast, {"Ethernet1"});
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet1}");
}

TEST_F(InputFdbConfigSmTest, groupWithoutMembersIsAGroup) {
   auto const a = input("a");
   auto const record = a.group(10, multicast, {"Ethernet1"});
   started();
   record->intfDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(group(), "{}");
   record->intfIs("Ethernet2", false);
   bridge.run();
   EXPECT_EQ(group(), "{}") << "false is no member";
}

TEST_F(InputFdbConfigSmTest, groupThatIsMadeAgainInOneTurnIsFollowed) {
   auto const a = input("a");
   a.group(10, multicast, {"Ethernet1"});
   started();
   a.groupDel(10, multicast);
   auto const other = a.group(10, multicast, {"Ethernet2"});
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet2}");
   other->intfIs("Ethernet3", true);
   bridge.run();
   EXPECT_EQ(group(), "{Ethernet2 Ethernet3}");
}

TEST_F(InputFdbConfigSmTest, memberOfAGroupThatGoesInTheSameTurnIsNotEvaluated) {
   auto const a = input("a");
   auto const record = a.group(10, multicast, {"Ethernet1"});
   started();
   record->intfIs("Ethernet2", true);
   a.groupDel(10, multicast);
   bridge.run();
   EXPECT_EQ(group(), "");
}

TEST_F(InputFdbConfigSmTest, groupOfAnAddressThatIsNotMulticastIsLeftOutAndNamed) {
   TestTrace trace;
   auto const a = input("a");
   started();
   a.group(10, unicastHost, {"Ethernet1"});
   bridge.run();
   EXPECT_EQ(group(unicastHost), "");
   EXPECT_THAT(complaints(trace),
               ElementsAre("Vlan 10: 00:1c:73:00:00:01 of input a is no multicast address: its group is left "
                           "out"));
   // The address can be a host all the same.
   input("b").host(10, unicastHost, "Ethernet2");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet2");
   EXPECT_EQ(group(unicastHost), "");
}

// --- Inputs and VLANs come and go.

TEST_F(InputFdbConfigSmTest, vlanThatTheWinnerGivesUpAsAWholePassesToTheOthers) {
   auto const better = input("better", 5);
   better.host(10, unicastHost, "Ethernet5");
   better.host(10, "00:1c:73:00:00:05", "Ethernet5");
   better.group(10, multicast, {"Ethernet5"});
   auto const worse = input("worse", 3);
   worse.host(10, unicastHost, "Ethernet3");
   worse.group(10, multicast, {"Ethernet3"});
   started();
   better.fdbDel(10);
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
   EXPECT_EQ(host("00:1c:73:00:00:05"), "");
   EXPECT_EQ(group(), "{Ethernet3 Ethernet5}") << "members stay when the winner changes";
   EXPECT_FALSE(sm("better"));
   worse.fdbDel(10);
   bridge.run();
   EXPECT_FALSE(isMerged());
   EXPECT_FALSE(bridge.config->fdbConfig(Bridging::Fid(10)));
}

TEST_F(InputFdbConfigSmTest, inputThatIsWithdrawnLeavesItsHostsToTheOthers) {
   bridge.vlan(20);
   auto const better = input("better", 5);
   better.host(10, unicastHost, "Ethernet5");
   better.host(10, "00:1c:73:00:00:05", "Ethernet5");
   better.host(20, unicastHost, "Ethernet5");
   input("worse", 3).host(10, unicastHost, "Ethernet3");
   started();
   EXPECT_EQ(bridge.host(20, unicastHost), "Ethernet5");
   bridge.withdraw("better");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
   EXPECT_EQ(host("00:1c:73:00:00:05"), "");
   EXPECT_FALSE(isMerged(20)) << "nobody holds the VLAN";
   EXPECT_EQ(bridge.host(20, unicastHost), "");
}

TEST_F(InputFdbConfigSmTest, lastChangesOfAnInputThatIsWithdrawnInTheSameTurnAreNotEvaluated) {
   auto const a = input("a");
   auto const record = a.group(10, multicast);
   started();
   Vorn::WriteOrder order;
   order.follow("merged", *bridge.fdbConfigDir);
   a.host(10, unicastHost, "Ethernet1");
   a.host(20, unicastHost, "Ethernet1");
   record->intfIs("Ethernet1", true);
   a.group(10, "01:00:5e:00:00:02", {"Ethernet1"});
   bridge.withdraw("a");
   bridge.run();
   EXPECT_FALSE(isMerged(10));
   EXPECT_THAT(order.take(), ElementsAre("-merged.fdbConfig[10]")) << "and nothing before it";
}

TEST_F(InputFdbConfigSmTest, lastChangesOfAVlanThatGoesInTheSameTurnAreNotEvaluated) {
   auto const a = input("a");
   a.host(10, unicastHost, "Ethernet1");
   auto const record = a.group(10, multicast);
   started();
   a.host(10, "00:1c:73:00:00:02", "Ethernet2");
   record->intfIs("Ethernet1", true);
   a.fdbDel(10);
   bridge.run();
   EXPECT_FALSE(isMerged());
}

TEST_F(InputFdbConfigSmTest, vlanThatIsMadeAgainInOneTurnIsFollowed) {
   auto const a = input("a");
   a.host(10, unicastHost, "Ethernet1");
   a.group(10, multicast, {"Ethernet1"});
   started();
   a.fdbDel(10);
   a.host(10, "00:1c:73:00:00:02", "Ethernet2");
   a.group(10, "01:00:5e:00:00:02", {"Ethernet2"});
   bridge.run();
   EXPECT_EQ(host(), "");
   EXPECT_EQ(host("00:1c:73:00:00:02"), "Ethernet2");
   EXPECT_EQ(group(), "");
   EXPECT_EQ(group("01:00:5e:00:00:02"), "{Ethernet2}");
   a.host(10, unicastHost, "Ethernet3");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
}

TEST_F(InputFdbConfigSmTest, inputThatIsMadeAgainInOneTurnIsFollowed) {
   auto const a = input("a");
   a.host(10, unicastHost, "Ethernet1");
   a.host(20, unicastHost, "Ethernet1");
   a.group(10, multicast, {"Ethernet1"});
   input("b").host(10, "00:1c:73:00:00:0b", "Ethernet9");
   started();
   bridge.withdraw("a");
   auto const other = input("a");
   other.host(10, unicastHost, "Ethernet2");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet2");
   EXPECT_EQ(group(), "");
   EXPECT_FALSE(isMerged(20));
   other.host(10, unicastHost, "Ethernet3");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
}

TEST_F(InputFdbConfigSmTest, twoInputsThatGiveAVlanUpAndOneThatTakesItAgain) {
   auto const a = input("a");
   a.host(10, unicastHost, "Ethernet1");
   auto const b = input("b");
   b.host(10, unicastHost, "Ethernet2");
   started();
   a.fdbDel(10);
   b.fdbDel(10);
   bridge.turn();
   b.host(10, unicastHost, "Ethernet3");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
   b.hostDel(10, unicastHost);
   bridge.run();
   EXPECT_EQ(host(), "");
}

// --- Start.

TEST_F(InputFdbConfigSmTest, whatThePreviousRunMergedAndNobodyHoldsGoesAtTheStart) {
   auto const merged = bridge.fdbConfigDir->fdbConfigIs(10);
   Sulvi::EthAddr const stale{"00:1c:73:00:00:09"};
   merged->configuredHostIs(stale, {.addr = stale, .intf = "Ethernet1"});
   merged->ethGroupIs(Sulvi::EthAddr(std::string_view(multicast)))->intfIs("Ethernet9", true);
   merged->ethGroupIs(Sulvi::EthAddr("01:00:5e:00:00:09"));
   bridge.fdbConfigDir->fdbConfigIs(20)->configuredHostIs(stale, {.addr = stale, .intf = "Ethernet1"});
   auto const a = input("a");
   a.host(10, unicastHost, "Ethernet1");
   a.group(10, multicast, {"Ethernet1"});
   started();
   EXPECT_EQ(host("00:1c:73:00:00:09"), "");
   EXPECT_EQ(host(), "Ethernet1");
   EXPECT_EQ(group(), "{Ethernet1}");
   EXPECT_EQ(group("01:00:5e:00:00:09"), "");
   EXPECT_FALSE(isMerged(20));
   EXPECT_EQ(bridge.fdbConfigDir->fdbConfig(10), merged) << "the record itself stays";
}

TEST_F(InputFdbConfigSmTest, thirdInputThatComesHasEveryAddressOfTheVlanResolvedAgain) {
   input("a", 5).host(10, unicastHost, "Ethernet5");
   auto const b = input("b", 3);
   b.host(10, unicastHost, "Ethernet3");
   started();
   b.fdbPriorityIs(9); // unseen
   input("c").host(10, "00:1c:73:00:00:0c", "Ethernet1");
   bridge.run();
   EXPECT_EQ(host(), "Ethernet3");
}

// --- One address as a host and as a group.

TEST_F(InputFdbConfigSmTest, kindOfTheBestInputCountsAndBothAreNamedOnce) {
   TestTrace trace;
   auto const a = input("a", 3);
   a.group(10, multicast, {"Ethernet1"});
   auto const b = input("b", 5);
   started();
   EXPECT_EQ(group(), "{Ethernet1}");
   EXPECT_THAT(complaints(trace), IsEmpty());
   b.host(10, multicast, "Ethernet2");
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet2");
   EXPECT_EQ(group(), "");
   EXPECT_EQ(bridge.host(10, multicast), "Ethernet2");
   EXPECT_EQ(bridge.group(10, multicast), "");
   EXPECT_EQ(trace.level("is a static host in"), 0);
   EXPECT_THAT(complaints(trace),
               ElementsAre("Vlan 10: 01:00:5e:00:00:01 is a static host in input b and a group "
                           "in input a: the host counts"));
   // Changes on both sides change nothing, and are no reason to say it again.
   a.group(10, multicast, {"Ethernet3"});
   bridge.run();
   b.host(10, multicast, "Ethernet4");
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet4");
   EXPECT_EQ(group(), "");
   EXPECT_THAT(complaints(trace), IsEmpty());
   // The contradiction ends, and comes up again.
   b.hostDel(10, multicast);
   bridge.run();
   EXPECT_EQ(host(multicast), "");
   EXPECT_EQ(group(), "{Ethernet1 Ethernet3}");
   b.host(10, multicast, "Ethernet2");
   bridge.run();
   EXPECT_EQ(complaints(trace).size(), 1u);
}

TEST_F(InputFdbConfigSmTest, groupOfTheBestInputCountsOverAHost) {
   TestTrace trace;
   input("a", 3).host(10, multicast, "Ethernet1");
   auto const b = input("b", 5);
   started();
   b.group(10, multicast, {"Ethernet2"});
   bridge.run();
   EXPECT_EQ(host(multicast), "");
   EXPECT_EQ(group(), "{Ethernet2}");
   EXPECT_THAT(complaints(trace),
               ElementsAre("Vlan 10: 01:00:5e:00:00:01 is a static host in input a and a group "
                           "in input b: the group counts"));
   b.groupDel(10, multicast);
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet1");
   EXPECT_EQ(group(), "");
}

TEST_F(InputFdbConfigSmTest, worseInputOfTheOtherKindChangesNothing) {
   auto const a = input("a", 5);
   a.host(10, multicast, "Ethernet1");
   a.group(10, "01:00:5e:00:00:02", {"Ethernet1"});
   auto const b = input("b", 3);
   started();
   b.group(10, multicast, {"Ethernet2"});
   b.host(10, "01:00:5e:00:00:02", "Ethernet2");
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet1");
   EXPECT_EQ(group(), "");
   EXPECT_EQ(host("01:00:5e:00:00:02"), "");
   EXPECT_EQ(group("01:00:5e:00:00:02"), "{Ethernet1}");
   b.groupDel(10, multicast);
   b.hostDel(10, "01:00:5e:00:00:02");
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet1");
   EXPECT_EQ(group("01:00:5e:00:00:02"), "{Ethernet1}");
}

// The same inputs, in every order in which they can come: one end.
TEST_F(InputFdbConfigSmTest, orderInWhichAContradictionComesUpDoesNotMatter) {
   std::vector<int> order = {0, 1, 2};
   started();
   do {
      for (int const i : order) {
         if (i == 0)
            input("a", 3).group(10, multicast, {"Ethernet1"});
         else if (i == 1)
            input("b", 5).host(10, multicast, "Ethernet2");
         else
            input("c", 4).group(10, multicast, {"Ethernet3"});
         bridge.run();
      }
      EXPECT_EQ(host(multicast), "Ethernet2");
      EXPECT_EQ(group(), "");
      bridge.withdraw("b");
      bridge.run();
      EXPECT_EQ(host(multicast), "");
      EXPECT_EQ(group(), "{Ethernet3}");
      bridge.withdraw("a");
      bridge.withdraw("c");
      bridge.run();
      EXPECT_FALSE(isMerged());
   } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(InputFdbConfigSmTest, contradictionThatStandsAtTheStartIsResolvedAndNamed) {
   TestTrace trace;
   // The previous run left both kinds.
   auto const merged = bridge.fdbConfigDir->fdbConfigIs(10);
   Sulvi::EthAddr const addr{std::string_view(multicast)};
   merged->configuredHostIs(addr, {.addr = addr, .intf = "Ethernet1"});
   merged->ethGroupIs(addr)->intfIs("Ethernet1", true);
   input("a", 5).group(10, multicast, {"Ethernet5"});
   input("b", 3).host(10, multicast, "Ethernet3");
   started();
   EXPECT_EQ(host(multicast), "");
   EXPECT_EQ(group(), "{Ethernet5}");
   EXPECT_EQ(complaints(trace).size(), 1u);
}

// A priority that changes unseen turns the contradiction round; the next change of a member shows it.
TEST_F(InputFdbConfigSmTest, kindThatComesToCountUnseenTakesThePlaceOfTheOther) {
   auto const a = input("a", 3);
   auto const record = a.group(10, multicast, {"Ethernet1"});
   auto const b = input("b", 5);
   b.host(10, multicast, "Ethernet2");
   started();
   b.fdbPriorityIs(1);
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet2");
   record->intfIs("Ethernet3", true);
   bridge.run();
   EXPECT_EQ(host(multicast), "");
   EXPECT_EQ(group(), "{Ethernet1 Ethernet3}");
   b.fdbPriorityIs(5);
   record->intfDel("Ethernet3");
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet2");
   EXPECT_EQ(group(), "");
}

TEST_F(InputFdbConfigSmTest, inputThatHasAnAddressAsBothCountsWithItsGroup) {
   TestTrace trace;
   auto const a = input("a", 5);
   a.group(10, multicast, {"Ethernet1"});
   a.host(10, multicast, "Ethernet2");
   started();
   EXPECT_EQ(host(multicast), "");
   EXPECT_EQ(group(), "{Ethernet1}");
   EXPECT_EQ(complaints(trace).size(), 1u);
   a.groupDel(10, multicast);
   bridge.run();
   EXPECT_EQ(host(multicast), "Ethernet2");
   EXPECT_EQ(group(), "");
}

// --- What would end the agent.

struct InputFdbConfigSmDeathTest : InputFdbConfigSmTest {
   InputFdbConfigSmDeathTest() {
      a.host(10, unicastHost, "Ethernet1");
      started();
   }
   TestInput const a = input("a");
   Sulvi::EthAddr const groupAddr{std::string_view(multicast)};
};

TEST_F(InputFdbConfigSmDeathTest, hostThatNoInputHoldsCannotBeConfigured) {
   Sulvi::EthAddr const unknown{"00:1c:73:00:00:02"};
   EXPECT_DEATH(sm("a")->doConfigureHost(*a.record, {.addr = unknown, .intf = "Ethernet1"}),
                HasSubstr("\"bestConfig\""));
}

TEST_F(InputFdbConfigSmDeathTest, groupThatNoInputHoldsCannotBeConfigured) {
   auto const group = Bridging::EthGroup::make(groupAddr);
   EXPECT_DEATH(sm("a")->doConfigureGroup(*a.record, *group), HasSubstr("\"bestConfig\""));
}

TEST_F(InputFdbConfigSmDeathTest, memberOfAGroupThatNoInputHoldsCannotBeConfigured) {
   a.group(10, multicast);
   bridge.run();
   auto const reactor = sm("a")->ethGroup(groupAddr);
   ASSERT_TRUE(reactor);
   a.groupDel(10, multicast);
   EXPECT_DEATH(reactor->doConfigureIntf(*a.record, "Ethernet1"), HasSubstr("\"bestConfig\""));
   reactor->doRemoveIntf(*a.record, "Ethernet1"); // this may find nobody
}

TEST_F(InputFdbConfigSmDeathTest, hostIsNotTakenFromAnInputThatHasTheAddressAsAGroup) {
   input("b", 5).group(10, multicast);
   EXPECT_DEATH(sm("a")->doRemoveHost(groupAddr),
                HasSubstr("\"fdb->configuredHostIteratorConst().isMemberOf( ethAddr )\""));
}

TEST_F(InputFdbConfigSmDeathTest, groupIsNotTakenFromAnInputThatHasTheAddressAsAHost) {
   input("b", 5).host(10, multicast, "Ethernet1");
   EXPECT_DEATH(sm("a")->doResyncGroup(groupAddr), HasSubstr("\"fdb->ethGroup( ethAddr )\""));
}

TEST_F(InputFdbConfigSmDeathTest, groupThatIsNullIsRefused) {
   try {
      sm("a")->ethGroupIs(nullptr);
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(),
                   "null _ethGroup parameter to mutator for Vorn::InputFdbConfigSm::ethGroup not allowed");
   }
}

} // namespace
