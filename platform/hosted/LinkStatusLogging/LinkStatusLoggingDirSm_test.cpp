#include "LinkStatusLogging/LinkStatusLoggingDirSm.h"

#include "records/Interface/IntfConfig.h"
#include "records/Interface/VlanIntfStatus.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Interface::IntfOperStatus;
using Interface::LoggingChoice;
using Lines = std::vector<std::string>;
Lines lines;

// One interface, down.
struct LinkStatusLoggingTest : testing::Test {
   LinkStatusLoggingTest() {
      lines.clear();
      Kem::logSinkIs([](int, std::string const& line) {
         lines.push_back(line.substr(line.find(": ") + 2));
         EXPECT_EQ(line.substr(0, line.find(": ")), "%VORN-5-INTF_STATUS_CHANGED");
      });
      set("Ethernet1", IntfOperStatus::intfOperDown);
   }
   ~LinkStatusLoggingTest() override { Kem::logSinkIs(nullptr); }
   void start() {
      sm = Kem::makePtr<Interface::LinkStatusLoggingDirSm>(Kem::activityManager()->config(), globalConfig,
                                                           configDir, statusDir);
      run();
   }
   void set(Sulvi::IntfId intfId, IntfOperStatus operStatus) {
      statusDir->intfStatusIs(intfId)->operStatusIs(operStatus);
      run();
   }
   void up(Sulvi::IntfId intfId = "Ethernet1") { set(intfId, IntfOperStatus::intfOperUp); }
   void down(Sulvi::IntfId intfId = "Ethernet1") { set(intfId, IntfOperStatus::intfOperDown); }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   Kem::VirtualTime virtualTime{nextStart += 1000};
   static inline Kem::Seconds nextStart = 1000; // the message's rate is shared by all tests
   Kem::Ptr<Interface::GlobalIntfConfig> globalConfig = Interface::GlobalIntfConfig::make();
   Kem::Ptr<Interface::AllIntfConfigDir> configDir = Interface::AllIntfConfigDir::make();
   Kem::Ptr<Interface::AllIntfStatusDir> statusDir = Interface::AllIntfStatusDir::make();
   Kem::Ptr<Interface::LinkStatusLoggingDirSm> sm;
};

TEST_F(LinkStatusLoggingTest, eachChangeIsLoggedAndTheInitialStateIsNot) {
   start();
   EXPECT_EQ(lines, Lines{});
   up();
   set("Ethernet1", IntfOperStatus::intfOperLowerLayerDown);
   EXPECT_EQ(lines, (Lines{"Ethernet1 is up, was down", "Ethernet1 is down (lower layer), was up"}));
}

TEST_F(LinkStatusLoggingTest, stateThatANewInterfaceFirstTakesIsNoChange) {
   start();
   statusDir->intfStatusIs("Vlan10"); // with its defaults first
   run();
   down("Vlan10");
   EXPECT_EQ(lines, Lines{});
   up("Vlan10");
   EXPECT_EQ(lines, Lines{"Vlan10 is up, was down"});
}

TEST_F(LinkStatusLoggingTest, interfaceThatComesBackIsANewOne) {
   start();
   auto const gone = statusDir->intfStatus("Ethernet1");
   statusDir->intfStatusDel("Ethernet1");
   run();
   EXPECT_EQ(gone->references(), 1u) << "nobody else keeps it";
   up();
   EXPECT_EQ(lines, Lines{});
   statusDir->intfStatusDel("Ethernet1");
   set("Ethernet1", IntfOperStatus::intfOperDown); // in one turn
   EXPECT_EQ(lines, Lines{});
   up();
   EXPECT_EQ(lines, Lines{"Ethernet1 is up, was down"});
}

TEST_F(LinkStatusLoggingTest, whatComesAndGoesWithinATurnIsNotSeen) {
   start();
   auto const status = statusDir->intfStatus("Ethernet1");
   status->operStatusIs(IntfOperStatus::intfOperUp);
   status->operStatusIs(IntfOperStatus::intfOperDown);
   run();
   EXPECT_EQ(lines, Lines{});
}

TEST_F(LinkStatusLoggingTest, everyStateHasAText) {
   start();
   for (unsigned const number : {3u, 4u, 5u, 6u, 200u, 0u})
      set("Ethernet1", static_cast<IntfOperStatus>(number));
   EXPECT_EQ(lines, (Lines{"Ethernet1 is testing, was down", "Ethernet1 is unknown, was testing",
                           "Ethernet1 is dormant, was unknown", "Ethernet1 is not present, was dormant",
                           "Ethernet1 is in state 200, was not present",
                           "Ethernet1 is in state 0, was in state 200"}));
}

TEST_F(LinkStatusLoggingTest, interfacesOwnWordBeatsTheGlobalOne) {
   configDir->intfConfigIs("Ethernet1")->linkStatusLoggingIs(LoggingChoice::loggingOff);
   down("Ethernet2");
   start();
   up("Ethernet1");
   up("Ethernet2");
   EXPECT_EQ(lines, Lines{"Ethernet2 is up, was down"});
   globalConfig->linkStatusLoggingIs(false);
   configDir->intfConfigIs("Ethernet1")->linkStatusLoggingIs(LoggingChoice::loggingOn);
   down("Ethernet1");
   down("Ethernet2");
   EXPECT_EQ(lines.at(1), "Ethernet1 is down, was up");
   EXPECT_EQ(lines.size(), 2u);
   configDir->intfConfigIs("Ethernet1")->linkStatusLoggingIs(static_cast<LoggingChoice>(9));
   up("Ethernet1");
   EXPECT_EQ(lines.size(), 2u) << "a word that is none leaves it to the global setting";
   globalConfig->linkStatusLoggingIs(true);
   down("Ethernet1");
   EXPECT_EQ(lines.at(2), "Ethernet1 is down, was up") << "what was not logged is known all the same";
}

TEST_F(LinkStatusLoggingTest, recordsOfAnyKindAreFollowed) {
   auto const vlan = Interface::VlanIntfStatus::make("Vlan7");
   vlan->operStatusIs(IntfOperStatus::intfOperDown);
   statusDir->intfStatusIs(vlan);
   down("no such kind");
   start();
   up("Vlan7");
   up("no such kind");
   EXPECT_EQ(lines, (Lines{"Vlan7 is up, was down", "no such kind is up, was down"}));
}

TEST_F(LinkStatusLoggingTest, burstIsCutAndCounted) {
   for (int i = 1; i <= 3000; ++i)
      down("Ethernet" + std::to_string(i));
   start();
   for (auto const& [intfId, intfStatus] : statusDir->intfStatus())
      intfStatus->operStatusIs(IntfOperStatus::intfOperUp);
   run();
   EXPECT_EQ(lines.size(), 1000u);
   Kem::activityManager()->advance(100);
   down();
   EXPECT_EQ(lines.at(1000), "Ethernet1 is down, was up (2000 like it left out)");
}

TEST_F(LinkStatusLoggingTest, missingRecordsAreNotWatched) {
   Interface::LinkStatusLoggingDirSm const idle(nullptr, nullptr, nullptr, nullptr);
   Interface::LinkStatusLoggingDirSm const bare(nullptr, nullptr, nullptr, statusDir);
   up();
   EXPECT_EQ(lines, Lines{"Ethernet1 is up, was down"});
}

} // namespace
