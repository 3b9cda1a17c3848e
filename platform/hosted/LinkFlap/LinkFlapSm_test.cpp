#include "LinkFlap/LinkFlapSm.h"

#include "Kem/Activity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using Interface::LinkStatus;

constexpr char port[] = "Ethernet1";

struct LinkFlapTest : testing::Test {
   LinkFlapTest() { newPort(port); }

   void newPort(Sulvi::IntfId intfId) {
      auto const status = statusDir->intfStatusIs(intfId);
      status->linkStatusIs(LinkStatus::linkUp);
      status->linkStatusChangesIs(1);
   }
   void start() {
      root = Kem::makePtr<LinkFlap::Root>("linkFlapRoot");
      root->linkFlapSmIs(Kem::activityManager()->config(), configDir, statusDir, errdisableConfig, config,
                         cause, "link-flap");
      run();
   }
   // The link takes the other state, as the agent of its hardware reports it.
   void flap(Sulvi::IntfId intfId = port, int times = 1) {
      for (int i = 0; i < times; ++i) {
         auto const status = statusDir->intfStatus(intfId);
         status->linkStatusIs(status->linkStatus() == LinkStatus::linkUp ? LinkStatus::linkDown
                                                                         : LinkStatus::linkUp);
         status->linkStatusChangesIs(status->linkStatusChanges() + 1);
         run();
      }
   }
   bool isHeld(Sulvi::IntfId intfId = port) const { return cause->intfStatus(intfId); }
   void release() {
      cause->intfStatusDelAll();
      run();
   }
   Kem::Ptr<Interface::EthPhyIntfConfig> portConfig() { return configDir->intfConfigIs(port); }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void until(Kem::Seconds time) { Kem::activityManager()->advanceTo(time); }

   Kem::VirtualTime virtualTime{1000.0};
   Kem::Ptr<Interface::AllEthPhyIntfConfigDir> configDir = Interface::AllEthPhyIntfConfigDir::make();
   Kem::Ptr<Interface::AllEthPhyIntfStatusDir> statusDir = Interface::AllEthPhyIntfStatusDir::make();
   Kem::Ptr<Errdisable::Config> errdisableConfig = Errdisable::Config::make();
   Kem::Ptr<LinkFlap::Config> config = LinkFlap::Config::make(); // 5 changes in 10 s
   Kem::Ptr<Errdisable::CauseStatus> cause = Errdisable::CauseStatus::make();
   Kem::Ptr<LinkFlap::Root> root;
};

// --- Counting.

TEST_F(LinkFlapTest, tooManyChangesWithinTheIntervalHoldThePort) {
   start();
   flap(port, 4);
   EXPECT_FALSE(isHeld());
   until(1009.9);
   EXPECT_FALSE(isHeld());
   flap();
   ASSERT_TRUE(isHeld());
   EXPECT_EQ(*cause->intfStatus(port), 1009.9);
}

TEST_F(LinkFlapTest, intervalSlides) {
   start();
   flap(port, 2);
   until(1006);
   flap(port, 2);
   until(1010); // the first two are too old now
   flap(port, 2);
   EXPECT_FALSE(isHeld());
   until(1016);
   flap(port, 2);
   EXPECT_FALSE(isHeld());
   until(1019);
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, changesThatOneTurnBringsTogetherAllCount) {
   start();
   statusDir->intfStatus(port)->linkStatusChangesIs(5);
   run();
   EXPECT_FALSE(isHeld());
   statusDir->intfStatus(port)->linkStatusChangesIs(6);
   run();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, stateCountsWhereNobodyKeepsTheCounter) {
   start();
   auto const status = statusDir->intfStatus(port);
   for (int i = 0; i < 4; ++i) {
      status->linkStatusIs(i % 2 ? LinkStatus::linkUp : LinkStatus::linkDown);
      run();
   }
   EXPECT_FALSE(isHeld());
   status->linkStatusIs(LinkStatus::linkDown);
   run();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, stateAndCounterOfOneChangeCountOnceThoughTheyComeApart) {
   start();
   auto const status = statusDir->intfStatus(port);
   for (int i = 0; i < 4; ++i) {
      status->linkStatusIs(i % 2 ? LinkStatus::linkUp : LinkStatus::linkDown);
      run();
      status->linkStatusChangesIs(status->linkStatusChanges() + 1);
      run();
   }
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, portsAreCountedEachForItself) {
   newPort("Ethernet2");
   start();
   flap("Ethernet1", 4);
   flap("Ethernet2", 4);
   EXPECT_TRUE(cause->intfStatus().empty());
   flap("Ethernet2");
   EXPECT_FALSE(isHeld("Ethernet1"));
   EXPECT_TRUE(isHeld("Ethernet2"));
}

TEST_F(LinkFlapTest, whatAPortDidBeforeItWasSeenIsNoFlap) {
   statusDir->intfStatus(port)->linkStatusChangesIs(100);
   start();
   // A new record comes with its defaults first.
   auto const status = statusDir->intfStatusIs("Ethernet2");
   run();
   status->linkStatusChangesIs(100);
   status->linkStatusIs(LinkStatus::linkDown);
   run();
   EXPECT_TRUE(cause->intfStatus().empty());
   flap("Ethernet2", 5);
   EXPECT_TRUE(isHeld("Ethernet2"));
}

TEST_F(LinkFlapTest, counterThatStartsAnewIsNoFlap) {
   statusDir->intfStatus(port)->linkStatusChangesIs(100);
   start();
   statusDir->intfStatus(port)->linkStatusChangesIs(7);
   run();
   EXPECT_FALSE(isHeld());
   flap(port, 4);
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, stateThatIsUnknownForAWhileIsNoChange) {
   start();
   auto const status = statusDir->intfStatus(port);
   for (int i = 0; i < 10; ++i) {
      status->linkStatusIs(i % 2 ? LinkStatus::linkUp : LinkStatus::linkUnknown);
      run();
   }
   EXPECT_FALSE(isHeld());
   config->maxFlapsIs(1);
   status->linkStatusIs(LinkStatus::linkUnknown);
   run();
   status->linkStatusIs(LinkStatus::linkDown);
   run();
   EXPECT_TRUE(isHeld()) << "it went down while it was unknown";
}

// --- Holding and coming back.

TEST_F(LinkFlapTest, linkThatGoesDownByBeingHeldAndComesBackIsNoFlap) {
   config->maxFlapsIs(2);
   start();
   flap(port, 2);
   EXPECT_TRUE(isHeld());
   flap(); // down, since it is held
   until(1001);
   release();
   flap(); // and up again
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld()) << "it is counted again";
}

TEST_F(LinkFlapTest, linkThatWasDownWhenItWasHeldMayComeUpOnce) {
   config->maxFlapsIs(1);
   start();
   flap();
   EXPECT_TRUE(isHeld());
   release();
   flap();
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, portThatCameBackIsCountedFromNothing) {
   config->maxFlapsIs(3);
   start();
   auto const status = statusDir->intfStatus(port);
   for (auto const link : {LinkStatus::linkDown, LinkStatus::linkUp, LinkStatus::linkDown}) {
      status->linkStatusIs(link);
      run();
   }
   EXPECT_TRUE(isHeld());
   release();
   for (auto const link : {LinkStatus::linkUp, LinkStatus::linkDown, LinkStatus::linkUp}) {
      status->linkStatusIs(link);
      run();
   }
   EXPECT_FALSE(isHeld());
   status->linkStatusIs(LinkStatus::linkDown);
   run();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, standingEntryIsLeftAsItIs) {
   cause->intfStatusIs(port, 900);
   start();
   flap(port, 20);
   EXPECT_EQ(*cause->intfStatus(port), 900);
}

TEST_F(LinkFlapTest, portHeldByAnEarlierRunMayComeUpOnce) {
   config->maxFlapsIs(1);
   statusDir->intfStatus(port)->linkStatusIs(LinkStatus::linkDown);
   cause->intfStatusIs(port, 900);
   start();
   release();
   flap();
   EXPECT_FALSE(isHeld());
}

// --- Settings.

TEST_F(LinkFlapTest, portsOwnSettingsBeatTheGlobalOnes) {
   portConfig()->linkFlapMaxFlapsIs(3);
   portConfig()->linkFlapIntervalIs(2);
   start();
   flap(port, 2);
   until(1002);
   flap(port, 2);
   EXPECT_FALSE(isHeld());
   until(1003.9);
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, changedSettingsHoldFromTheNextChangeOn) {
   start();
   flap(port, 2);
   config->maxFlapsIs(3);
   run();
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, noChangeCountsWhileDetectionIsOff) {
   errdisableConfig->detectionEnabledIs("other", false);
   start();
   flap(port, 4);
   errdisableConfig->detectionEnabledIs("link-flap", false);
   flap(port, 20);
   EXPECT_FALSE(isHeld());
   errdisableConfig->detectionEnabledIs("link-flap", true);
   flap(port, 4);
   EXPECT_FALSE(isHeld()) << "what was before is forgotten";
   portConfig()->linkFlapDetectionIs(false);
   flap(port, 20);
   EXPECT_FALSE(isHeld());
   portConfig()->linkFlapDetectionIs(true);
   flap(port, 5);
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, operatorWhoShutsThePortDownDoesNotFlapIt) {
   config->maxFlapsIs(1);
   portConfig();
   start();
   for (int i = 0; i < 5; ++i) {
      portConfig()->enabledIs(false);
      flap();
      portConfig()->enabledIs(true);
      flap();
   }
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, laneThatIsNotInUseIsNotCounted) {
   statusDir->intfStatus(port)->activeIs(false);
   start();
   flap(port, 20);
   EXPECT_FALSE(isHeld());
}

TEST_F(LinkFlapTest, limitsThatAreNoneCountNothing) {
   start();
   config->maxFlapsIs(0);
   flap(port, 20);
   EXPECT_FALSE(isHeld());
   config->maxFlapsIs(5);
   for (double const interval : {0.0, -5.0, std::nan("")}) {
      config->flapIntervalIs(interval);
      flap(port, 20);
      EXPECT_FALSE(isHeld()) << interval;
   }
   // Of a port they are as if it said nothing.
   portConfig()->linkFlapIntervalIs(std::nan(""));
   config->flapIntervalIs(std::numeric_limits<double>::infinity());
   flap(port, 4);
   until(1e9);
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld()) << "an endless interval forgets nothing";
}

TEST_F(LinkFlapTest, hugeLimitsAreReachedToo) {
   config->maxFlapsIs(3000);
   config->flapIntervalIs(1e9);
   start();
   for (int i = 0; i < 2999; ++i) {
      until(1001 + i);
      flap();
   }
   EXPECT_FALSE(isHeld());
   flap();
   EXPECT_TRUE(isHeld());
}

// --- Ports and inputs.

TEST_F(LinkFlapTest, portsComeAndGo) {
   start();
   newPort("Ethernet2");
   run();
   flap("Ethernet2", 4);
   statusDir->intfStatusDel("Ethernet2");
   run();
   newPort("Ethernet2");
   run();
   flap("Ethernet2", 4);
   EXPECT_FALSE(isHeld("Ethernet2")) << "a new port starts anew";
   statusDir->intfStatusDel("Ethernet2");
   newPort("Ethernet2"); // in one turn
   run();
   flap("Ethernet2", 4);
   EXPECT_FALSE(isHeld("Ethernet2"));
   flap("Ethernet2");
   EXPECT_TRUE(isHeld("Ethernet2"));
   statusDir->intfStatusDel("Ethernet2");
   run();
   EXPECT_TRUE(isHeld("Ethernet2"));
}

TEST_F(LinkFlapTest, thousandsOfPortsOfAnyKind) {
   start();
   for (int i = 2; i <= 4000; ++i)
      newPort("Ethernet" + std::to_string(i));
   newPort("no such kind");
   run();
   for (auto const& [intfId, status] : statusDir->intfStatus())
      status->linkStatusChangesIs(6);
   run();
   EXPECT_EQ(cause->intfStatus().size(), 4001u);
   EXPECT_TRUE(isHeld("no such kind"));
}

TEST_F(LinkFlapTest, missingRecordsAreNotWatched) {
   auto const activity = Kem::activityManager()->config();
   LinkFlap::Root idle("linkFlapRoot");
   idle.linkFlapSmIs(activity, nullptr, nullptr, nullptr, nullptr, nullptr, "link-flap");
   LinkFlap::Root blind("linkFlapRoot");
   blind.linkFlapSmIs(activity, nullptr, statusDir, nullptr, config, nullptr, "link-flap");
   LinkFlap::Root bare("linkFlapRoot");
   bare.linkFlapSmIs(activity, nullptr, statusDir, nullptr, config, cause, "link-flap");
   flap(port, 5);
   EXPECT_TRUE(isHeld());
}

TEST_F(LinkFlapTest, rootMakesOneMachine) {
   start();
   auto const sm = root->linkFlapSm();
   EXPECT_EQ(root->linkFlapSmIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, "other"), sm);
   EXPECT_EQ(root->name(), Kem::Name("linkFlapRoot"));
}

} // namespace
