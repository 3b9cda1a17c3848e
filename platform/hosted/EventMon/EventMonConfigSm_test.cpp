#include "EventMon/EventMonConfigSm.h"

#include "Kem/Activity.h"

#include <gtest/gtest.h>

namespace {

// Logs what it finds each time it is called: "on", "off" or "none", with the trace stream.
struct TestSm final : EventMon::EventMonConfigSm {
   explicit TestSm(Kem::Ptr<EventMon::Config const> const& config) : EventMonConfigSm("mac") {
      eventMonConfigIs(config);
   }
   void doOnTableEnabled() override {
      auto const table = ownTable();
      log += !table ? "none" : table->enabled() ? "on" : "off";
      log += zvHandle() ? "+zv;" : ";";
   }
   std::string take() {
      Kem::activityManager()->runUntilIdle();
      return std::exchange(log, "");
   }
   std::string log;
};

struct EventMonConfigSmTest : testing::Test {
   Kem::Ptr<EventMon::Config> config = EventMon::Config::make();
};

TEST_F(EventMonConfigSmTest, theTableThatStandsIsEvaluatedInTheConstructor) {
   config->tableIs("mac");
   auto const sm = Kem::makePtr<TestSm>(config);
   EXPECT_EQ(sm->log, "on;");
   EXPECT_EQ(sm->ownTable(), config->table("mac"));
}

TEST_F(EventMonConfigSmTest, noTableAndNoConfigurationAreNone) {
   EXPECT_EQ(Kem::makePtr<TestSm>(config)->log, "none;");
   auto const sm = Kem::makePtr<TestSm>(nullptr);
   EXPECT_EQ(sm->log, "") << "null is what it started with";
   EXPECT_FALSE(sm->ownTable());
}

TEST_F(EventMonConfigSmTest, tableIsFollowedThroughItsLife) {
   auto const sm = Kem::makePtr<TestSm>(config);
   sm->take();
   auto const table = config->tableIs("mac");
   EXPECT_EQ(sm->take(), "on;");
   table->enabledIs(false);
   EXPECT_EQ(sm->take(), "off;");
   table->enabledIs(true);
   EXPECT_EQ(sm->take(), "on;");
   table->foreverLogsCleanupThresholdIs(100);
   EXPECT_EQ(sm->take(), "") << "the logger reads that for itself";
   config->tableDel("mac");
   EXPECT_EQ(sm->take(), "none;");
   table->enabledIs(false);
   EXPECT_EQ(sm->take(), "") << "a removed entry is followed no more";
}

TEST_F(EventMonConfigSmTest, replacedTableIsFollowedInThePlaceOfTheOldOne) {
   auto const before = config->tableIs("mac");
   auto const sm = Kem::makePtr<TestSm>(config);
   sm->take();
   config->newTable("mac");
   EXPECT_EQ(sm->take(), "on;");
   before->enabledIs(false);
   EXPECT_EQ(sm->take(), "");
   config->table("mac")->enabledIs(false);
   EXPECT_EQ(sm->take(), "off;");
}

TEST_F(EventMonConfigSmTest, otherTablesDoNotDisturb) {
   config->tableIs("mac");
   auto const sm = Kem::makePtr<TestSm>(config);
   sm->take();
   config->tableIs("arp")->enabledIs(false);
   EXPECT_EQ(sm->take(), "");
   config->table("arp")->enabledIs(true);
   config->tableDel("arp");
   EXPECT_EQ(sm->take(), "");
   sm->tableNotify("arp");
   EXPECT_EQ(sm->take(), "");
   sm->tableNotify("mac");
   EXPECT_EQ(sm->take(), "on;");
}

TEST_F(EventMonConfigSmTest, traceStreamIsToldWhileAConfigurationIsBound) {
   auto const sm = Kem::makePtr<TestSm>(nullptr);
   auto const stream = EventMon::Config::make(); // any counted object will do
   sm->zvHandleIs(stream);
   EXPECT_EQ(sm->take(), "");
   config->tableIs("mac");
   sm->eventMonConfigIs(config);
   EXPECT_EQ(sm->take(), "on+zv;");
   sm->zvHandleIs(stream);
   EXPECT_EQ(sm->take(), "") << "it is that one already";
   sm->zvHandleIs(nullptr);
   EXPECT_EQ(sm->take(), "on;");
}

TEST_F(EventMonConfigSmTest, configurationTakenAwayCountsAsTableGone) {
   auto const table = config->tableIs("mac");
   auto const sm = Kem::makePtr<TestSm>(config);
   sm->take();
   sm->eventMonConfigIs(nullptr);
   EXPECT_EQ(sm->log, "none;");
   sm->take();
   table->enabledIs(false);
   config->tableDel("mac");
   EXPECT_EQ(sm->take(), "");
}

} // namespace
