#include "CongestionDropsLogging/CongestionDropsLoggingSm.h"

#include "Kem/Activity.h"
#include "Kem/Log.h"
#include "records/Interface/EthPhyIntfConfig.h"
#include "records/Interface/EthPhyIntfStatus.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using Interface::LoggingChoice;
using Lines = std::vector<std::string>;
Lines lines;

// Two ports; drops are counted and logged, every 60 seconds from 1000 on.
struct CongestionDropsTest : testing::Test {
   CongestionDropsTest() {
      lines.clear();
      Kem::logSinkIs([](int, std::string const& line) { lines.push_back(line); });
      hwStatus->congestionDropsSupportedIs(true);
      defaults->congestionDropsLoggingIs(true);
      statusDir->intfStatusIs("Ethernet1");
      statusDir->intfStatusIs("Ethernet2");
   }
   ~CongestionDropsTest() override { Kem::logSinkIs(nullptr); }
   void start() {
      sm = Kem::makePtr<Interface::CongestionDropsLoggingSm>(configDir, statusDir, defaults, hwStatus,
                                                             Kem::activityManager()->config()->clock());
      run();
   }
   void drop(Sulvi::IntfId intfId, uint64_t count) {
      statusDir->intfStatus(intfId)->congestionDropsInc(count);
      run();
   }
   static std::string line(std::string const& seconds, std::string const& ports) {
      return "%VORN-4-CONGESTION_DROPS: Frames dropped for congestion in the last " + seconds +
             " seconds: " + ports;
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void until(Kem::Seconds time) { Kem::activityManager()->advanceTo(time); }

   Kem::VirtualTime virtualTime{1000.0};
   Kem::Ptr<Interface::AllEthPhyIntfConfigDir> configDir = Interface::AllEthPhyIntfConfigDir::make();
   Kem::Ptr<Interface::AllEthPhyIntfStatusDir> statusDir = Interface::AllEthPhyIntfStatusDir::make();
   Kem::Ptr<Interface::EthPhyIntfGlobalDefaultConfigDir> defaults =
       Interface::EthPhyIntfGlobalDefaultConfigDir::make();
   Kem::Ptr<Interface::HwStatus> hwStatus = Interface::HwStatus::make();
   Kem::Ptr<Interface::CongestionDropsLoggingSm> sm;
};

TEST_F(CongestionDropsTest, dropsOfARoundAreOneMessage) {
   start();
   drop("Ethernet1", 5);
   drop("Ethernet2", 70);
   drop("Ethernet1", 2);
   until(1059.9);
   EXPECT_EQ(lines, Lines{});
   until(1060);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet2 70, Ethernet1 7")});
   until(1120);
   EXPECT_EQ(lines.size(), 1u) << "nothing was dropped since";
   drop("Ethernet1", 1);
   until(1180);
   EXPECT_EQ(lines.at(1), line("60", "Ethernet1 1"));
}

TEST_F(CongestionDropsTest, whatWasDroppedBeforeItWasLookedAtIsNotTold) {
   drop("Ethernet1", 1000);
   start();
   until(1030);
   statusDir->intfStatusIs("Ethernet3")->congestionDropsIs(500);
   until(1060);
   EXPECT_EQ(lines, Lines{});
   drop("Ethernet1", 1);
   drop("Ethernet3", 2);
   until(1120);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet3 2, Ethernet1 1")});
}

TEST_F(CongestionDropsTest, counterThatHasFallenWasStartedAnew) {
   drop("Ethernet1", 1000);
   start();
   statusDir->intfStatus("Ethernet1")->congestionDropsIs(3);
   until(1060);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet1 3")});
   statusDir->intfStatus("Ethernet1")->congestionDropsIs(0);
   until(1120);
   EXPECT_EQ(lines.size(), 1u);
   statusDir->intfStatus("Ethernet1")->congestionDropsIs(std::numeric_limits<uint64_t>::max());
   until(1180);
   EXPECT_EQ(lines.at(1), line("60", "Ethernet1 18446744073709551615"));
}

TEST_F(CongestionDropsTest, portThatVanishedIsForgotten) {
   drop("Ethernet1", 1000);
   start();
   statusDir->intfStatusDel("Ethernet1");
   until(1060);
   statusDir->intfStatusIs("Ethernet1")->congestionDropsIs(5);
   until(1120);
   EXPECT_EQ(lines, Lines{});
}

TEST_F(CongestionDropsTest, portsOwnWordBeatsTheGlobalOne) {
   configDir->intfConfigIs("Ethernet1")->congestionDropsLoggingIs(LoggingChoice::loggingOff);
   configDir->intfConfigIs("Ethernet2")->congestionDropsLoggingIs(static_cast<LoggingChoice>(77));
   start();
   drop("Ethernet1", 5);
   drop("Ethernet2", 6);
   until(1060);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet2 6")});
   defaults->congestionDropsLoggingIs(false);
   configDir->intfConfigIs("Ethernet1")->congestionDropsLoggingIs(LoggingChoice::loggingOn);
   drop("Ethernet1", 7);
   drop("Ethernet2", 8);
   until(1120);
   EXPECT_EQ(lines.at(1), line("60", "Ethernet1 7"));
   EXPECT_EQ(lines.size(), 2u);
   defaults->congestionDropsLoggingIs(true);
   drop("Ethernet2", 9);
   until(1180);
   EXPECT_EQ(lines.at(2), line("60", "Ethernet2 9")) << "what was dropped while it was off is not told";
}

TEST_F(CongestionDropsTest, nothingIsLoggedWhereDropsAreNotCounted) {
   hwStatus->congestionDropsSupportedIs(false);
   start();
   drop("Ethernet1", 5);
   until(1100);
   EXPECT_EQ(lines, Lines{});
   hwStatus->congestionDropsSupportedIs(true);
   run();
   drop("Ethernet1", 6);
   until(1159.9);
   EXPECT_EQ(lines, Lines{});
   until(1160);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet1 6")});
   hwStatus->congestionDropsSupportedIs(false);
   run();
   drop("Ethernet1", 7);
   until(2000);
   EXPECT_EQ(lines.size(), 1u);
}

TEST_F(CongestionDropsTest, changedIntervalHoldsForTheRoundThatRuns) {
   start();
   drop("Ethernet1", 5);
   until(1010);
   defaults->congestionDropsLoggingIntervalIs(20);
   run();
   until(1019.9);
   EXPECT_EQ(lines, Lines{});
   until(1020);
   EXPECT_EQ(lines, Lines{line("20", "Ethernet1 5")});
   defaults->congestionDropsLoggingIntervalIs(5);
   drop("Ethernet1", 6);
   until(1030);
   EXPECT_EQ(lines.at(1), line("5", "Ethernet1 6"));
}

TEST_F(CongestionDropsTest, strangeIntervals) {
   start();
   for (double const interval : {0.0, -1.0, -std::numeric_limits<double>::infinity()}) {
      defaults->congestionDropsLoggingIntervalIs(interval);
      lines.clear();
      drop("Ethernet1", 5);
      until(Kem::now() + 1);
      EXPECT_EQ(lines, Lines{line("1", "Ethernet1 5")}) << interval;
   }
   lines.clear();
   Kem::Seconds const last = Kem::now();
   defaults->congestionDropsLoggingIntervalIs(std::nan(""));
   drop("Ethernet1", 5);
   until(last + 59.9);
   EXPECT_EQ(lines, Lines{});
   until(last + 60);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet1 5")});
   defaults->congestionDropsLoggingIntervalIs(std::numeric_limits<double>::infinity());
   drop("Ethernet1", 5);
   until(last + 1e9);
   EXPECT_EQ(lines.size(), 1u);
}

TEST_F(CongestionDropsTest, messageNamesThePortsThatDroppedMostAndCountsTheOthers) {
   for (int i = 1; i <= 3000; ++i)
      statusDir->intfStatusIs("Ethernet" + std::to_string(i));
   statusDir->intfStatusIs("no such kind");
   start();
   for (int i = 1; i <= 3000; ++i)
      statusDir->intfStatus("Ethernet" + std::to_string(i))->congestionDropsIs(i == 77 ? 9 : 1);
   statusDir->intfStatus("no such kind")->congestionDropsIs(8);
   until(1060);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet77 9, no such kind 8, Ethernet1 1, Ethernet2 1, Ethernet3 1, "
                                     "Ethernet4 1, Ethernet5 1, Ethernet6 1, Ethernet7 1, Ethernet8 1, "
                                     "Ethernet9 1, Ethernet10 1, Ethernet11 1, Ethernet12 1, Ethernet13 1, "
                                     "Ethernet14 1, Ethernet15 1, Ethernet16 1, Ethernet17 1, "
                                     "Ethernet18 1 and 2981 other interfaces")});
}

TEST_F(CongestionDropsTest, missingRecordsAreNotWatched) {
   auto const clock = Kem::activityManager()->config()->clock();
   Interface::CongestionDropsLoggingSm const idle(nullptr, nullptr, nullptr, hwStatus, clock);
   Interface::CongestionDropsLoggingSm const unsupported(configDir, statusDir, defaults, nullptr, clock);
   drop("Ethernet1", 5);
   until(1200);
   EXPECT_EQ(lines, Lines{});
   configDir->intfConfigIs("Ethernet1")->congestionDropsLoggingIs(LoggingChoice::loggingOn);
   Interface::CongestionDropsLoggingSm const bare(configDir, statusDir, nullptr, hwStatus, clock);
   drop("Ethernet1", 6);
   drop("Ethernet2", 6);
   until(1260);
   EXPECT_EQ(lines, Lines{line("60", "Ethernet1 6")});
}

} // namespace
