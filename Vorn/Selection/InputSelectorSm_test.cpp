#include "Vorn/Selection/InputSelectorSm.h"

#include "Vorn/testing/TestBridge.h"
#include "Vorn/testing/WriteOrder.h"

#include <limits>

namespace {

using Bridging::SwitchForwardingMode;
using Vorn::TestBridge;
using Vorn::TestInput;
using Vorn::TestTrace;

using Numbers = std::vector<uint16_t>;

struct InputSelectorSmTest : testing::Test {
   // Name of the input that gives the VLANs; "None" for none.
   std::string best() {
      auto const& input = bridge.sm->configIn();
      return input ? input->name().str() : "None";
   }
   // Name of the input that gives the record of the port; "" for none.
   std::string owner(Sulvi::IntfId intfId) {
      auto const record = bridge.allSwitchIntfConfigs->switchIntfConfig(intfId);
      return record && record->parent() ? record->parent()->name().str() : "";
   }
   // As the operator sees it.
   bool isDefaultRecord(Sulvi::IntfId intfId) { return bridge.eth->switchIntfConfig(intfId) != nullptr; }
   void supportedModesAre(std::vector<unsigned> const& modes) {
      bridge.hwCapabilities->supportedForwardingModeDelAll();
      for (uint32_t i = 0; i < modes.size(); ++i)
         bridge.hwCapabilities->supportedForwardingModeIs(i, static_cast<SwitchForwardingMode>(modes[i]));
   }
   void chosenModeIs(unsigned mode) { bridge.cli->forwardingModeIs(static_cast<SwitchForwardingMode>(mode)); }
   unsigned forwardingMode() { return static_cast<unsigned>(bridge.config->forwardingMode()); }

   TestBridge bridge;
};

// --- The VLANs: one whole input.

TEST_F(InputSelectorSmTest, inputWithTheGreatestPriorityGivesTheVlans) {
   bridge.start();
   EXPECT_EQ(best(), "cli");
   bridge.publish("a", 101).vlan(20);
   bridge.run();
   EXPECT_EQ(best(), "a");
   bridge.input("a").prioritiesAre(99);
   bridge.run();
   EXPECT_EQ(best(), "cli");
}

TEST_F(InputSelectorSmTest, vlanThatOnlyALowerInputHoldsIsNotResolved) {
   bridge.vlan(10);
   bridge.start();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
   bridge.publish("a", 200).vlan(20);
   bridge.run();
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{20});
}

TEST_F(InputSelectorSmTest, winnerWithoutAnyVlanTakesAllVlansAway) {
   bridge.vlan(10);
   bridge.start();
   bridge.publish("a", 200);
   bridge.run();
   EXPECT_EQ(best(), "a");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
}

TEST_F(InputSelectorSmTest, onATieTheFirstInTheDirectoryStaysAndOneMoreMovesItAtOnce) {
   bridge.start();
   bridge.publish("b", 300).vlan(20);
   bridge.publish("a", 300).vlan(30);
   bridge.run();
   EXPECT_EQ(best(), "a") << "the directory's order decides, not who won before";
   bridge.input("b").prioritiesAre(301);
   bridge.run();
   EXPECT_EQ(best(), "b");
}

TEST_F(InputSelectorSmTest, greatestPriorityThereIsWins) {
   bridge.start();
   bridge.publish("z", std::numeric_limits<uint32_t>::max());
   bridge.publish("y", std::numeric_limits<uint32_t>::max() - 1);
   bridge.run();
   EXPECT_EQ(best(), "z");
}

TEST_F(InputSelectorSmTest, priorityZeroTakesNoPart) {
   TestTrace trace;
   bridge.vlan(10);
   bridge.port("Ethernet1");
   TestInput{bridge.cli}.prioritiesAre(0);
   bridge.start();
   EXPECT_EQ(best(), "None");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(owner("Ethernet1"), "");
   EXPECT_TRUE(trace.has(": best vlan config is None with priority 0"));
}

TEST_F(InputSelectorSmTest, winnerThatFallsToZeroLeavesNone) {
   bridge.vlan(10);
   bridge.port("Ethernet1");
   bridge.start();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   TestInput{bridge.cli}.prioritiesAre(0);
   bridge.run();
   EXPECT_EQ(best(), "None");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_EQ(owner("Ethernet1"), "");
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1"));
}

TEST_F(InputSelectorSmTest, traceNamesTheWinner) {
   TestTrace trace;
   bridge.start();
   bridge.publish("a", 4294967295u);
   bridge.run();
   EXPECT_TRUE(trace.has(": best vlan config is cli with priority 100"));
   EXPECT_TRUE(trace.has(": best vlan config is a with priority 4294967295"));
}

TEST_F(InputSelectorSmTest, detailOfTheWinnerIsShown) {
   bridge.cli->sourceDetailIs("typed");
   bridge.start();
   EXPECT_EQ(bridge.config->vlanConfigSourceDetail(), "typed");
   auto const other = bridge.publish("a", 200);
   other.record->sourceDetailIs("learned");
   bridge.run();
   EXPECT_EQ(bridge.config->vlanConfigSourceDetail(), "learned");
   other.prioritiesAre(0);
   TestInput{bridge.cli}.prioritiesAre(0);
   bridge.run();
   EXPECT_EQ(bridge.config->vlanConfigSourceDetail(), "") << "nobody wins";
}

TEST_F(InputSelectorSmTest, selectionHasWrittenAllWhenTheNotificationIsOver) {
   bridge.start();
   bridge.publish("a", 200).record->sourceDetailIs("a's");
   bridge.turn();
   EXPECT_EQ(best(), "a");
   EXPECT_EQ(bridge.config->vlanConfigSourceDetail(), "a's");
}

// --- Inputs come and go.

TEST_F(InputSelectorSmTest, inputsThatExistAtTheStartMayHaveTheirPriorities) {
   bridge.input("a").prioritiesAre(500);
   bridge.start();
   EXPECT_EQ(best(), "a");
}

TEST_F(InputSelectorSmTest, newInputWithAVlanPriorityEndsTheAgent) {
   bridge.start();
   bridge.input("a").record->vlanConfigPriorityIs(1);
   EXPECT_DEATH(bridge.run(), "bic->vlanConfigPriority\\(\\) == 0");
}

TEST_F(InputSelectorSmTest, newInputWithAPortPriorityEndsTheAgent) {
   bridge.start();
   bridge.input("a").record->switchIntfConfigPriorityIs(1);
   EXPECT_DEATH(bridge.run(), "bic->switchIntfConfigPriority\\(\\) == 0");
}

TEST_F(InputSelectorSmTest, newInputMayHavePriorityForHosts) {
   bridge.start();
   bridge.input("a").record->fdbConfigPriorityIs(7);
   bridge.run();
   EXPECT_TRUE(bridge.selector->config("a"));
}

TEST_F(InputSelectorSmTest, winnerThatVanishesIsFollowedByTheNext) {
   bridge.vlan(10);
   bridge.start();
   bridge.publish("a", 200).vlan(20);
   bridge.run();
   bridge.withdraw("a");
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
   EXPECT_FALSE(bridge.selector->config("a"));
}

TEST_F(InputSelectorSmTest, inputThatVanishesWhileNothingIsDeliveredIsNotFollowedAnyMore) {
   bridge.start();
   bridge.publish("a", 200).vlan(20);
   bridge.run();
   bridge.selector->hasNotificationActiveIs(false);
   bridge.withdraw("a");
   bridge.run();
   bridge.selector->hasNotificationActiveIs(true);
   bridge.run();
   EXPECT_FALSE(bridge.selector->config("a"));
   EXPECT_EQ(best(), "cli");
}

TEST_F(InputSelectorSmTest, loserThatVanishesLeavesTheVlansAlone) {
   TestTrace trace;
   bridge.start();
   bridge.publish("a", 50);
   bridge.run();
   trace.clear();
   bridge.withdraw("a");
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_EQ(trace.count(": best vlan config is "), 0u);
}

TEST_F(InputSelectorSmTest, inputMayVanishWhileThereIsNoBestInput) {
   TestInput{bridge.cli}.prioritiesAre(0);
   bridge.input("a");
   bridge.start();
   ASSERT_EQ(best(), "None");
   bridge.withdraw("a");
   bridge.run();
   EXPECT_FALSE(bridge.selector->config("a"));
   EXPECT_EQ(best(), "None");
}

TEST_F(InputSelectorSmTest, inputThatIsReplacedUnderItsNameIsFollowedInItsPlace) {
   bridge.start();
   bridge.publish("a", 200).vlan(20);
   bridge.run();
   bridge.withdraw("a");
   auto const replacement = bridge.input("a");
   bridge.run();
   EXPECT_EQ(best(), "cli") << "the new one is born with priority 0";
   replacement.vlan(30);
   replacement.prioritiesAre(200);
   bridge.run();
   EXPECT_EQ(best(), "a");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{30});
}

// Deleted and made again before the selector has been notified of either.
TEST_F(InputSelectorSmTest, portsOfAnInputThatIsReplacedAreDecidedAgain) {
   bridge.start();
   auto const old = bridge.publish("a", 200);
   for (char const* name : {"Ethernet1", "Ethernet2", "Ethernet3"})
      old.port(name);
   bridge.access("Ethernet1", 10);
   bridge.run();
   ASSERT_EQ(owner("Ethernet1"), "a");
   bridge.withdraw("a");
   auto const replacement = bridge.input("a");
   replacement.port("Ethernet3");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet2"));
   EXPECT_FALSE(bridge.resolvedPort("Ethernet2"));
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet3")) << "it has no priority yet";
   // From now on only the new entity counts.
   old.port("Ethernet4");
   old.portDel("Ethernet1");
   replacement.prioritiesAre(200);
   bridge.run();
   EXPECT_EQ(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet3"),
             replacement.record->switchIntfConfig("Ethernet3"));
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet4"));
   replacement.portDel("Ethernet3");
   bridge.run();
   EXPECT_FALSE(bridge.resolvedPort("Ethernet3"));
}

// The notification of the directory comes before that of the input: it was queued first, for another input.
TEST_F(InputSelectorSmTest, portThatAnInputGaveUpJustBeforeItWentIsDecidedAgain) {
   bridge.start();
   for (bool const isReplaced : {true, false}) {
      bridge.publish("a", 200).port("Ethernet1");
      bridge.publish("b", 50);
      bridge.run();
      ASSERT_EQ(owner("Ethernet1"), "a");
      bridge.withdraw("b");
      bridge.input("a").portDel("Ethernet1");
      bridge.withdraw("a");
      if (isReplaced)
         bridge.input("a");
      bridge.run();
      EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet1")) << isReplaced;
      EXPECT_FALSE(bridge.resolvedPort("Ethernet1")) << isReplaced;
      bridge.withdraw("a");
      bridge.run();
   }
}

// --- What went while no agent ran.

TEST_F(InputSelectorSmTest, portThatLostItsLastRecordMeanwhileGoes) {
   bridge.vlan(10);
   bridge.access("Port-Channel7", 10);
   bridge.access("Port-Channel8", 10);
   bridge.start();
   ASSERT_EQ(bridge.membership(10, "Port-Channel7"), "untagged");
   bridge.stop();
   bridge.portDel("Port-Channel7");
   bridge.start();
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Port-Channel7"));
   EXPECT_FALSE(bridge.resolvedPort("Port-Channel7"));
   EXPECT_EQ(bridge.membership(10, "Port-Channel7"), "");
   EXPECT_EQ(bridge.membership(10, "Port-Channel8"), "untagged");
   bridge.access("Port-Channel7", 10);
   bridge.run();
   EXPECT_EQ(bridge.membership(10, "Port-Channel7"), "untagged");
}

// A reference whose target was deleted by its publisher is null when the next agent starts: only the resolved
// record shows that there was a port.
TEST_F(InputSelectorSmTest, resolvedPortThatNoInputHoldsGoesWithWhatItHad) {
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
   bridge.intf("Ethernet1");
   bridge.forwardingModelIs("Ethernet1", TestBridge::routedModel);
   bridge.start();
   ASSERT_EQ(bridge.mode("Ethernet1"), "routed 1006");
   bridge.stop();
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.allSwitchIntfConfigs->switchIntfConfigDelAll();
   bridge.config->switchIntfConfigIs("Ethernet2");
   bridge.cause->intfStatusIs("Ethernet2", TestBridge::startTime);
   bridge.start();
   EXPECT_TRUE(bridge.config->switchIntfConfig().empty());
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_FALSE(bridge.waitingSince("Ethernet2"));
   bridge.intf("Ethernet3");
   bridge.forwardingModelIs("Ethernet3", TestBridge::routedModel);
   bridge.run();
   EXPECT_EQ(bridge.mode("Ethernet3"), "routed 1006") << "the number is free again";
}

TEST_F(InputSelectorSmTest, portsOfAnInputThatWasWithdrawnMeanwhileGo) {
   auto const a = bridge.input("a");
   a.prioritiesAre(200);
   a.port("Ethernet1");
   a.port("Ethernet2");
   bridge.port("Ethernet1");
   bridge.start();
   ASSERT_EQ(owner("Ethernet1"), "a");
   bridge.stop();
   bridge.withdraw("a");
   bridge.start();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet2"));
   EXPECT_FALSE(bridge.resolvedPort("Ethernet2"));
}

TEST_F(InputSelectorSmTest, portWhoseDefaultRecordIsMadeByTheStartKeepsWhatItHad) {
   bridge.vlan(1);
   bridge.intf("Ethernet1");
   bridge.config->switchIntfConfigIs("Ethernet1");
   auto const record = bridge.resolvedPort("Ethernet1");
   bridge.start();
   EXPECT_EQ(bridge.resolvedPort("Ethernet1"), record);
   EXPECT_EQ(bridge.mode("Ethernet1"), "access 1");
}

// --- The order of the start, as a subscriber sees it.

TEST_F(InputSelectorSmTest, startWritesInItsOrder) {
   // What a previous run left, and what has changed since.
   for (uint16_t const number : {10, 99})
      bridge.config->vlanConfigIs(number);
   bridge.config->switchIntfConfigIs("Port-Channel9");
   bridge.config->vidToFidMapIs(30, 7);
   bridge.config->vlanConfigSourceDetailIs("old");
   bridge.cli->sourceDetailIs("typed");
   bridge.eth->sourceDetailIs("defaults");
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.intf("Ethernet2");
   bridge.cli->hostAgingTimeIs(17);
   bridge.cli->pausePassThroughIs(true);
   bridge.internalVlansAre(2000, 2100, Bridging::InternalVlanAllocationPolicy::descending);
   bridge.cli->vidToFidMapIs(20, 7);
   bridge.cli->ieeeReservedForwardingIs(Sulvi::EthAddr("01:80:c2:00:00:0e"), true);
   supportedModesAre({2});
   Vorn::WriteOrder order;
   order.follow("config", *bridge.config);
   order.follow("best", *bridge.allSwitchIntfConfigs);
   order.follow("eth", *bridge.eth);
   using Steps = std::vector<std::string>;
   bridge.startBridgingOnly();
   EXPECT_EQ(order.take(), (Steps{
                               "config.internalVlanAllocationPolicy",
                               "config.internalVlanRange",
                               "config.vlanConfigSourceDetail",
                               "-config.vlanConfig[10]",
                               "-config.vlanConfig[99]",
                               "config.ieeeReservedForwarding",
                               "config.vidToFidMap",
                           }));
   bridge.startSelector();
   EXPECT_EQ(order.take(), (Steps{
                               "eth.switchIntfConfig[Ethernet2]",
                               "config.hostAgingTime",
                               "config.pausePassThrough",
                               "config.forwardingMode",
                               "best.switchIntfConfig",
                               "config.vlanConfigSourceDetail",
                               "-config.switchIntfConfig[Port-Channel9]",
                           }));
   bridge.run();
   // Ports follow when they are noticed, VLANs in later slices.
   EXPECT_EQ(order.take(), (Steps{
                               "config.switchIntfConfig[Ethernet1]",
                               "config.switchIntfConfig[Ethernet2]",
                               "config.vlanConfig[10]",
                               "config.vlanConfig[10].configSource",
                               "config.switchIntfConfig[Ethernet1].switchportModeAndNativeVlan",
                               "config.vlanConfig[10].intf",
                           }));
}

// --- Strangers and the rest.

TEST_F(InputSelectorSmTest, entityThatIsNoInputIsPassedOver) {
   bridge.inputDir->entityPtrIs(Kem::Dir::make("stranger"));
   bridge.start();
   bridge.inputDir->entityPtrIs(Kem::Dir::make("another"));
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_FALSE(bridge.selector->config("stranger"));
   EXPECT_FALSE(bridge.selector->config("another"));
}

TEST_F(InputSelectorSmTest, followedInputKeepsItsReactor) {
   bridge.start();
   auto const reactor = bridge.selector->config("cli");
   bridge.selector->configIs(bridge.cli);
   EXPECT_EQ(bridge.selector->config("cli"), reactor);
}

TEST_F(InputSelectorSmTest, reactorOfAVanishedInputDecidesNothingWhoeverHoldsIt) {
   bridge.start();
   auto const input = bridge.publish("a", 200);
   bridge.run();
   auto const reactor = bridge.selector->config("a");
   bridge.withdraw("a");
   bridge.run();
   TestTrace trace;
   input.prioritiesAre(300);
   input.port("Ethernet1");
   bridge.run();
   EXPECT_TRUE(reactor->isZombie());
   EXPECT_TRUE(trace.lines().empty()) << trace.text();
}

TEST_F(InputSelectorSmTest, nullInputIsRefused) {
   bridge.start();
   try {
      bridge.selector->configIs(nullptr);
      FAIL();
   } catch (Kem::RangeException const& e) {
      EXPECT_STREQ(e.what(),
                   "null _config parameter to mutator for Vorn::InputSelectorSm::config not allowed");
   }
}

// What the previous run resolved stays too: nobody knows what the inputs hold.
TEST_F(InputSelectorSmTest, withoutADirectoryNothingIsSelectedAndNothingForgotten) {
   bridge.vlan(10);
   bridge.access("Ethernet1", 10);
   bridge.intf("Ethernet2");
   bridge.config->switchIntfConfigIs("Ethernet3");
   bridge.startBridgingOnly();
   auto inputs = bridge.selectorInputs();
   inputs.inputDir = nullptr;
   bridge.selector = Vorn::inputSelectorSmFactory(inputs);
   bridge.run();
   EXPECT_FALSE(bridge.selector->config("cli"));
   EXPECT_EQ(best(), "eth") << "as it was made";
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{});
   EXPECT_TRUE(bridge.allSwitchIntfConfigs->switchIntfConfig().empty());
   EXPECT_TRUE(bridge.resolvedPort("Ethernet3"));
   // With it, all of that happens.
   bridge.startSelector();
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_EQ(owner("Ethernet2"), "eth");
   EXPECT_FALSE(bridge.resolvedPort("Ethernet3"));
}

TEST_F(InputSelectorSmTest, selectorThatStartsLaterAdoptsWhatExists) {
   bridge.vlan(10);
   bridge.startBridgingOnly();
   bridge.run();
   EXPECT_EQ(best(), "eth");
   bridge.startSelector();
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
}

// --- The ports: each by itself.

TEST_F(InputSelectorSmTest, portIsServedByTheBestInputAmongThoseThatHoldIt) {
   bridge.start();
   auto const low = bridge.publish("a", 10);
   auto const high = bridge.publish("b", 20);
   low.port("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a") << "b's priority does not count without a record";
   high.port("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "b");
   high.portDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a");
   low.portDel("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "");
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1"));
}

TEST_F(InputSelectorSmTest, recordItselfIsPublishedAndNoCopy) {
   auto const record = bridge.port("Ethernet1");
   bridge.start();
   EXPECT_EQ(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet1"), record);
}

TEST_F(InputSelectorSmTest, priorityOfPortsIsNotThatOfVlans) {
   bridge.port("Ethernet1");
   bridge.start();
   auto const a = bridge.input("a");
   bridge.run();
   a.port("Ethernet1");
   a.record->switchIntfConfigPriorityIs(200);
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a");
   EXPECT_EQ(best(), "cli");
}

TEST_F(InputSelectorSmTest, raisedPriorityMovesAllPortsOfTheInput) {
   bridge.start();
   bridge.port("Ethernet1");
   auto const a = bridge.publish("a", 50);
   a.port("Ethernet1");
   a.port("Ethernet2");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_EQ(owner("Ethernet2"), "a");
   a.prioritiesAre(101);
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a");
   a.prioritiesAre(100);
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a") << "on a tie the first in the directory";
   a.prioritiesAre(1);
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   EXPECT_EQ(owner("Ethernet2"), "a");
}

TEST_F(InputSelectorSmTest, priorityOfAnInputWithoutPortsDecidesNothing) {
   TestTrace trace;
   bridge.port("Ethernet1");
   bridge.start();
   bridge.input("a");
   bridge.run();
   trace.clear();
   bridge.input("a").record->switchIntfConfigPriorityIs(500);
   bridge.run();
   EXPECT_EQ(trace.count(" best = "), 0u);
}

TEST_F(InputSelectorSmTest, portThatSeveralInputsHoldIsDecidedOnce) {
   TestTrace trace;
   for (char const* name : {"a", "b", "c"})
      bridge.input(name).port("Ethernet1");
   bridge.start();
   bridge.run();
   trace.clear();
   bridge.input("c").record->switchIntfConfigPriorityIs(500);
   bridge.run();
   EXPECT_EQ(trace.count("InputSelectorSm Ethernet1 best = "), 1u);
   EXPECT_EQ(owner("Ethernet1"), "c");
}

TEST_F(InputSelectorSmTest, inputThatCannotWinIsNotLookedAt) {
   TestTrace trace;
   bridge.port("Ethernet1");
   bridge.input("z").prioritiesAre(100);
   bridge.start();
   EXPECT_TRUE(trace.has("InputSelectorSm considering cli"));
   EXPECT_FALSE(trace.has("InputSelectorSm considering z")) << "behind cli, with no more than cli";
   EXPECT_FALSE(trace.has("InputSelectorSm considering eth")) << "behind cli, with less";
}

TEST_F(InputSelectorSmTest, decisionIsTraced) {
   TestTrace trace;
   bridge.start();
   bridge.port("Ethernet1");
   bridge.run();
   EXPECT_TRUE(trace.has("Creating allSwitchIntfConfigDir switchIntfConfig"));
   EXPECT_TRUE(trace.has("cli.switchIntfConfig[Ethernet1]")) << "the best record";
   bridge.portDel("Ethernet1");
   bridge.run();
   EXPECT_TRUE(trace.has(" best = <none>"));
   EXPECT_TRUE(trace.has("Deleting allSwitchIntfConfigDir switchIntfConfig"));
}

TEST_F(InputSelectorSmTest, portsOfAVanishedInputFallBackWhereAnotherHoldsThem) {
   bridge.start();
   auto const a = bridge.publish("a", 200);
   a.port("Ethernet1");
   bridge.port("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a");
   bridge.withdraw("a");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "cli");
}

TEST_F(InputSelectorSmTest, portThatOnlyAVanishedInputHeldStaysUntilItIsDecidedAgain) {
   bridge.start();
   auto const a = bridge.publish("a", 200);
   auto const record = a.port("Ethernet1");
   bridge.run();
   bridge.withdraw("a");
   bridge.run();
   EXPECT_EQ(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet1"), record);
   bridge.port("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "cli");
   bridge.portDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet1"));
}

TEST_F(InputSelectorSmTest, recordOfAVanishedInputIsNotFollowedBack) {
   bridge.start();
   auto const a = bridge.publish("a", 200);
   a.port("Ethernet1");
   bridge.run();
   bridge.withdraw("a");
   bridge.run();
   a.portDel("Ethernet1"); // by its publisher, whose input is no longer in the directory
   a.prioritiesAre(300);
   bridge.run();
   EXPECT_EQ(best(), "cli");
   EXPECT_TRUE(bridge.allSwitchIntfConfigs->switchIntfConfig("Ethernet1"));
}

// --- Default records.

TEST_F(InputSelectorSmTest, withoutADirectoryOfInterfacesThereAreNoDefaultRecords) {
   bridge.intf("Ethernet1");
   bridge.vlan(10);
   bridge.ethIntfConfigDir = nullptr;
   bridge.start();
   EXPECT_FALSE(isDefaultRecord("Ethernet1"));
   EXPECT_EQ(bridge.resolvedVlans(), Numbers{10});
}

TEST_F(InputSelectorSmTest, interfaceGetsADefaultRecordInAccessMode) {
   bridge.intf("Ethernet1");
   bridge.start();
   bridge.intf("Ethernet2");
   bridge.run();
   for (char const* name : {"Ethernet1", "Ethernet2"}) {
      ASSERT_TRUE(isDefaultRecord(name)) << name;
      auto const record = bridge.eth->switchIntfConfig(name);
      EXPECT_TRUE(record->enabled());
      EXPECT_EQ(record->switchportMode(), TestBridge::Mode::access_);
      EXPECT_EQ(owner(name), "eth");
   }
}

// Each of them in a world of its own.
TEST(InputSelectorDefaults, onlyWhatCanBeASwitchportGetsADefaultRecord) {
   char const* const eligible[] = {"Ethernet1",         "Ethernet3/1", "Ethernet65536", "Port-Channel5",
                                   "Port-Channel70000", "Foo",         "Ethernet1.7",   "Cpu"};
   char const* const others[] = {"Vlan10",        "Vlan5000",  "Loopback0", "Management1",
                                 "Management1/1", "Internal3", "Vxlan1"};
   for (bool const isLater : {false, true}) {
      TestBridge bridge;
      if (isLater)
         bridge.start();
      for (char const* name : eligible)
         bridge.intf(name);
      for (char const* name : others)
         bridge.intf(name);
      if (!isLater)
         bridge.start();
      bridge.run();
      for (char const* name : eligible)
         EXPECT_TRUE(bridge.eth->switchIntfConfig(name)) << name;
      EXPECT_EQ(bridge.eth->switchIntfConfig().size(), std::size(eligible));
   }
}

TEST(InputSelectorDefaults, anyDefaultModeButRoutedMeansAnEnabledPort) {
   for (unsigned const mode : {0u, 1u, 2u, 3u, 4u, 6u, 255u}) {
      TestBridge bridge;
      bridge.config->defaultSwitchportModeIs(static_cast<Bridging::SwitchportMode>(mode));
      bridge.intf("Ethernet1");
      bridge.start();
      EXPECT_TRUE(bridge.eth->switchIntfConfig("Ethernet1")->enabled()) << mode;
   }
}

TEST_F(InputSelectorSmTest, defaultRecordGoesWithItsInterface) {
   bridge.intf("Ethernet1");
   bridge.start();
   bridge.ethIntfConfigDir->intfConfigDel("Ethernet1");
   bridge.run();
   EXPECT_FALSE(isDefaultRecord("Ethernet1"));
   EXPECT_FALSE(bridge.resolvedPort("Ethernet1"));
}

TEST_F(InputSelectorSmTest, staleDefaultRecordsOfTheRunBeforeGo) {
   for (char const* name : {"Ethernet1", "Ethernet9", "Loopback0"})
      bridge.eth->switchIntfConfigIs(name);
   bridge.intf("Ethernet1");
   bridge.intf("Loopback0");
   bridge.start();
   EXPECT_TRUE(isDefaultRecord("Ethernet1"));
   EXPECT_FALSE(isDefaultRecord("Ethernet9")) << "no such interface";
   EXPECT_FALSE(isDefaultRecord("Loopback0")) << "no switchport";
}

TEST_F(InputSelectorSmTest, routedByDefaultMeansADisabledAccessPort) {
   bridge.config->defaultSwitchportModeIs(Bridging::SwitchportMode::routed_);
   bridge.intf("Ethernet1");
   bridge.start();
   auto const record = bridge.eth->switchIntfConfig("Ethernet1");
   ASSERT_TRUE(record);
   EXPECT_FALSE(record->enabled());
   EXPECT_EQ(record->switchportMode(), TestBridge::Mode::access_);
}

TEST_F(InputSelectorSmTest, onlyTheSwitchOfADefaultRecordIsSetAgain) {
   auto const record = bridge.eth->switchIntfConfigIs("Ethernet1", TestBridge::Mode::trunk_);
   record->enabledIs(false);
   record->accessVlanIs(77);
   bridge.intf("Ethernet1");
   bridge.start();
   EXPECT_TRUE(record->enabled());
   EXPECT_EQ(record->switchportMode(), TestBridge::Mode::trunk_);
   EXPECT_EQ(record->accessVlan(), 77);
}

TEST_F(InputSelectorSmTest, switchOfADefaultRecordIsSetAgainByEachWordOfItsInterface) {
   bridge.intf("Ethernet1");
   bridge.start();
   bridge.eth->switchIntfConfig("Ethernet1")->enabledIs(false);
   bridge.ethIntfConfigDir->newIntfConfig("Ethernet1");
   bridge.run();
   EXPECT_TRUE(bridge.eth->switchIntfConfig("Ethernet1")->enabled());
}

TEST_F(InputSelectorSmTest, anyInputAboveTenBeatsTheDefaultRecord) {
   bridge.intf("Ethernet1");
   bridge.start();
   auto const a = bridge.publish("a", 9);
   a.port("Ethernet1");
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "eth");
   a.prioritiesAre(11);
   bridge.run();
   EXPECT_EQ(owner("Ethernet1"), "a");
}

// --- Settings for the whole bridge.

TEST_F(InputSelectorSmTest, settingsComeFromTheCommandLineWhoeverWins) {
   bridge.cli->hostAgingTimeIs(17.5);
   bridge.cli->pausePassThroughIs(true);
   bridge.internalVlansAre(2000, 2100, TestBridge::Policy::descending);
   TestInput{bridge.cli}.prioritiesAre(0);
   bridge.start();
   EXPECT_EQ(bridge.config->hostAgingTime(), 17.5);
   EXPECT_TRUE(bridge.config->pausePassThrough());
   EXPECT_EQ(bridge.config->internalVlanRange().min, 2000);
   EXPECT_EQ(bridge.config->internalVlanRange().max, 2100);
   EXPECT_EQ(bridge.config->internalVlanAllocationPolicy(),
             Bridging::InternalVlanAllocationPolicy::descending);
}

TEST_F(InputSelectorSmTest, eachSettingIsFollowed) {
   bridge.start();
   bridge.cli->hostAgingTimeIs(0);
   bridge.run();
   EXPECT_EQ(bridge.config->hostAgingTime(), 0.0);
   bridge.cli->pausePassThroughIs(true);
   bridge.run();
   EXPECT_TRUE(bridge.config->pausePassThrough());
   bridge.cli->internalVlanRangeIs({.min = 3000, .max = 3001});
   bridge.run();
   EXPECT_EQ(bridge.config->internalVlanRange().min, 3000);
   EXPECT_EQ(bridge.config->internalVlanRange().max, 3001);
   bridge.cli->internalVlanAllocationPolicyIs(Bridging::InternalVlanAllocationPolicy::descending);
   bridge.run();
   EXPECT_EQ(bridge.config->internalVlanAllocationPolicy(),
             Bridging::InternalVlanAllocationPolicy::descending);
}

TEST_F(InputSelectorSmTest, commandLinesInputThatIsReplacedGivesTheSettings) {
   bridge.start();
   bridge.withdraw("cli");
   auto const replacement = Bridging::Input::CliConfig::make();
   bridge.place("cli", replacement);
   supportedModesAre({2, 1});
   replacement->pausePassThroughIs(true);
   replacement->forwardingModeIs(SwitchForwardingMode::storeAndForward);
   replacement->internalVlanRangeIs({.min = 3000, .max = 3001});
   replacement->internalVlanAllocationPolicyIs(Bridging::InternalVlanAllocationPolicy::descending);
   bridge.run();
   EXPECT_EQ(bridge.selector->cliConfig(), replacement);
   EXPECT_TRUE(bridge.config->pausePassThrough());
   EXPECT_EQ(forwardingMode(), 1u);
   EXPECT_EQ(bridge.config->internalVlanRange().min, 3000);
   EXPECT_EQ(bridge.config->internalVlanAllocationPolicy(),
             Bridging::InternalVlanAllocationPolicy::descending);
   replacement->hostAgingTimeIs(99);
   bridge.run();
   EXPECT_EQ(bridge.config->hostAgingTime(), 99.0);
   bridge.cli->hostAgingTimeIs(1);
   bridge.run();
   EXPECT_EQ(bridge.config->hostAgingTime(), 99.0) << "the old one is not followed any more";
}

TEST_F(InputSelectorSmTest, anotherInputOfTheCommandLinesTypeGivesNoSettings) {
   TestTrace trace;
   bridge.cli->hostAgingTimeIs(17);
   bridge.start();
   auto const intruder = Bridging::Input::CliConfig::make();
   bridge.place("x", intruder);
   intruder->hostAgingTimeIs(99);
   bridge.run();
   EXPECT_EQ(bridge.selector->cliConfig(), bridge.cli);
   EXPECT_EQ(bridge.config->hostAgingTime(), 17.0);
   EXPECT_EQ(trace.level("x is of the command line's type; settings of the bridge are taken from cli only"),
             0);
   bridge.withdraw("x");
   bridge.run();
   EXPECT_EQ(bridge.config->hostAgingTime(), 17.0);
   // The next agent finds both.
   bridge.stop();
   bridge.place("x", intruder);
   bridge.start();
   EXPECT_EQ(bridge.selector->cliConfig(), bridge.cli);
   EXPECT_EQ(bridge.config->hostAgingTime(), 17.0);
}

TEST_F(InputSelectorSmTest, commandLinesInputOfTheDirectoryCountsFromTheStart) {
   auto inputs = bridge.selectorInputs();
   auto const other = Bridging::Input::CliConfig::make();
   other->hostAgingTimeIs(5);
   bridge.startBridgingOnly();
   inputs = bridge.selectorInputs();
   inputs.cliConfig = other;
   bridge.cli->hostAgingTimeIs(6);
   bridge.selector = Vorn::inputSelectorSmFactory(inputs);
   EXPECT_EQ(bridge.selector->cliConfig(), bridge.cli);
   EXPECT_EQ(bridge.config->hostAgingTime(), 6.0);
}

// --- Forwarding mode.

TEST_F(InputSelectorSmTest, modeThatIsNotChosenIsTheHardwaresFirst) {
   supportedModesAre({2, 1});
   bridge.start();
   EXPECT_EQ(forwardingMode(), 2u);
}

TEST_F(InputSelectorSmTest, modeThatIsNotChosenWithoutAListIsZero) {
   bridge.config->forwardingModeIs(SwitchForwardingMode::cutThrough);
   bridge.start();
   EXPECT_EQ(forwardingMode(), 0u);
}

TEST_F(InputSelectorSmTest, listWithoutAFirstEntryHasNoPreference) {
   bridge.config->forwardingModeIs(SwitchForwardingMode::cutThrough);
   bridge.hwCapabilities->supportedForwardingModeIs(1, SwitchForwardingMode::storeAndForward);
   bridge.start();
   EXPECT_EQ(forwardingMode(), 0u);
   chosenModeIs(1);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 1u) << "but it is searched";
}

TEST_F(InputSelectorSmTest, chosenModeIsTakenIfTheHardwareHasIt) {
   supportedModesAre({2, 1, 7});
   bridge.start();
   chosenModeIs(7);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 7u);
   chosenModeIs(0);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 2u);
}

TEST_F(InputSelectorSmTest, chosenModeThatTheHardwareLacksIsTracedAndReplacedByTheFirst) {
   TestTrace trace;
   supportedModesAre({2, 1});
   bridge.start();
   EXPECT_FALSE(trace.has("Selected forwarding mode: "));
   chosenModeIs(9);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 2u);
   EXPECT_EQ(trace.level("Selected forwarding mode: 9 is not in list of supported modes."), 0);
   EXPECT_EQ(static_cast<unsigned>(bridge.cli->forwardingMode()), 9u) << "the input is left alone";
}

TEST_F(InputSelectorSmTest, chosenModeWithoutAListIsZero) {
   TestTrace trace;
   chosenModeIs(1);
   bridge.config->forwardingModeIs(SwitchForwardingMode::cutThrough);
   bridge.start();
   EXPECT_EQ(forwardingMode(), 0u);
   EXPECT_TRUE(trace.has("Selected forwarding mode: 1 is not in list of supported modes."));
}

TEST_F(InputSelectorSmTest, withoutCapabilitiesThereIsNoModeToChoose) {
   TestTrace trace;
   bridge.config->forwardingModeIs(SwitchForwardingMode::cutThrough);
   bridge.hwCapabilities = nullptr;
   bridge.start();
   EXPECT_EQ(forwardingMode(), 0u);
   chosenModeIs(1);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 0u);
   EXPECT_TRUE(trace.has("Selected forwarding mode: 1 is not in list of supported modes."));
}

TEST_F(InputSelectorSmTest, listIsFollowed) {
   supportedModesAre({1});
   chosenModeIs(2);
   bridge.start();
   EXPECT_EQ(forwardingMode(), 1u);
   bridge.hwCapabilities->supportedForwardingModeIs(1, SwitchForwardingMode::cutThrough);
   bridge.run();
   EXPECT_EQ(forwardingMode(), 2u);
   bridge.hwCapabilities->supportedForwardingModeDelAll();
   bridge.run();
   EXPECT_EQ(forwardingMode(), 0u);
}

} // namespace
