#include "ErrdisableLib/CauseAgentSM.h"

#include "Kem/Activity.h"
#include "Ordel/server/Listener.h"
#include "Ordel/store/Tree.h"
#include "records/TypeInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <unistd.h>
#include <vector>

namespace {

using Lines = std::vector<std::string>;
Lines lines;

// The records of one cause in this process, no database.
struct CauseAgentSMTest : testing::Test {
   CauseAgentSMTest() {
      lines.clear();
      Kem::logSinkIs([](int, std::string const& line) { lines.push_back(line); });
      place(causeDir, status, "flap");
   }
   ~CauseAgentSMTest() override { Kem::logSinkIs(nullptr); }

   static void place(Kem::Ptr<Kem::Dir> const& dir, Kem::Ptr<Kem::Entity> const& entity, char const* name) {
      entity->nameIs(name);
      dir->entityPtrIs(entity);
   }
   void recoversAfter(Kem::Seconds interval) {
      auto const group = Errdisable::CauseGroup::make();
      group->recoveryEnabledIs(true);
      group->recoveryIntervalIs(interval);
      place(groupDir, group, "flap");
   }
   Kem::Ptr<Errdisable::CauseGroup> group() { return groupDir->entity<Errdisable::CauseGroup>("flap"); }
   void start() {
      sm = Kem::makePtr<ErrdisableLib::CauseAgentSM>("flap", "flap", status, causeDir, groupDir, config);
      run();
   }
   void disable(Sulvi::IntfId intfId, Kem::Seconds at = Kem::now()) {
      status->intfStatusIs(intfId, at);
      run();
   }
   bool isDisabled(Sulvi::IntfId intfId) const { return status->intfStatus(intfId); }
   static void run() { Kem::activityManager()->runUntilIdle(); }
   static void until(Kem::Seconds time) { Kem::activityManager()->advanceTo(time); }

   Kem::VirtualTime time{1000.0};
   Kem::Ptr<Errdisable::CauseStatus> status = Errdisable::CauseStatus::make();
   Kem::Ptr<Kem::Dir> causeDir = Kem::Dir::make();
   Kem::Ptr<Kem::Dir> groupDir = Kem::Dir::make();
   Kem::Ptr<Errdisable::Config> config = Errdisable::Config::make();
   Kem::Ptr<ErrdisableLib::CauseAgentSM> sm;
};

// --- Timed recovery.

TEST_F(CauseAgentSMTest, eachPortComesBackWhenItsOwnTimeIsOver) {
   recoversAfter(30);
   start();
   disable("Ethernet1");
   until(1010);
   disable("Ethernet2");
   until(1029.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1030);
   EXPECT_FALSE(isDisabled("Ethernet1"));
   EXPECT_TRUE(isDisabled("Ethernet2"));
   until(1039.9);
   EXPECT_TRUE(isDisabled("Ethernet2"));
   until(1040);
   EXPECT_FALSE(isDisabled("Ethernet2"));
}

TEST_F(CauseAgentSMTest, withoutAGroupOrWithRecoveryOffNothingComesBack) {
   start();
   disable("Ethernet1");
   until(1e6);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   recoversAfter(30);
   group()->recoveryEnabledIs(false);
   run();
   until(2e6);
   EXPECT_TRUE(isDisabled("Ethernet1"));
}

TEST_F(CauseAgentSMTest, changesOfTheGroupCountForPortsThatAreDisabledAlready) {
   recoversAfter(300);
   start();
   disable("Ethernet1");
   group()->recoveryIntervalIs(50);
   run();
   until(1049.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1050);
   EXPECT_FALSE(isDisabled("Ethernet1"));

   disable("Ethernet1");
   group()->recoveryEnabledIs(false);
   run();
   until(1200);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   group()->recoveryEnabledIs(true);
   run();
   EXPECT_FALSE(isDisabled("Ethernet1")) << "its time passed while recovery was off";
}

TEST_F(CauseAgentSMTest, groupMayComeGoAndBeReplaced) {
   start();
   disable("Ethernet1");
   recoversAfter(30);
   run();
   groupDir->entityPtrDel("flap");
   run();
   until(1050);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   recoversAfter(100);
   run();
   recoversAfter(200);
   run();
   until(1150);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1200);
   EXPECT_FALSE(isDisabled("Ethernet1"));
}

TEST_F(CauseAgentSMTest, entryThatIsWrittenAgainIsCountedFromItsNewTime) {
   recoversAfter(30);
   start();
   disable("Ethernet1");
   until(1020);
   disable("Ethernet1");
   until(1049.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1050);
   EXPECT_FALSE(isDisabled("Ethernet1"));
}

TEST_F(CauseAgentSMTest, entriesOfAnEarlierRunGoOnCounting) {
   recoversAfter(30);
   status->intfStatusIs("Ethernet1", 980);
   status->intfStatusIs("Ethernet2", 100);
   start();
   EXPECT_FALSE(isDisabled("Ethernet2"));
   until(1009.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1010);
   EXPECT_FALSE(isDisabled("Ethernet1"));
}

TEST_F(CauseAgentSMTest, timesOfAnotherClockAreSetToThePresent) {
   recoversAfter(30);
   status->intfStatusIs("Ethernet1", 5e8);
   start();
   EXPECT_EQ(*status->intfStatus("Ethernet1"), 1000);
   double const infinite = std::numeric_limits<double>::infinity();
   for (double const strange : {1000.1, std::nan(""), infinite, -infinite, -1.0}) {
      disable("Ethernet2", strange);
      ASSERT_TRUE(isDisabled("Ethernet2")) << strange;
      EXPECT_EQ(*status->intfStatus("Ethernet2"), 1000) << strange;
   }
   until(1029.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   EXPECT_TRUE(isDisabled("Ethernet2"));
   until(1030);
   EXPECT_FALSE(isDisabled("Ethernet1"));
   EXPECT_FALSE(isDisabled("Ethernet2"));
}

TEST_F(CauseAgentSMTest, thousandsOfPortsOfAnyKindComeBackTogether) {
   recoversAfter(30);
   start();
   for (int i = 1; i <= 5000; ++i)
      status->intfStatusIs("Ethernet" + std::to_string(i), 1000);
   for (auto const* name : {"Vlan10", "no such thing", "Port-Channel5.7"})
      status->intfStatusIs(name, 1000);
   run();
   EXPECT_EQ(status->intfStatus().size(), 5003u);
   until(1030);
   EXPECT_EQ(status->intfStatus().size(), 0u);
}

// --- Detection.

TEST_F(CauseAgentSMTest, detectionTurnedOffBringsThePortsBack) {
   start();
   disable("Ethernet1");
   until(1010);
   config->detectionEnabledIs("other", false);
   run();
   until(1020);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   config->detectionEnabledIs("flap", false);
   run();
   EXPECT_FALSE(isDisabled("Ethernet1"));
}

TEST_F(CauseAgentSMTest, portsThatAreAddedWhileDetectionIsOffComeBackAfterAPause) {
   recoversAfter(300);
   config->detectionEnabledIs("flap", false);
   start();
   disable("Ethernet1");
   until(1000.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1001);
   EXPECT_FALSE(isDisabled("Ethernet1"));
   config->detectionEnabledIs("flap", true);
   run();
   disable("Ethernet1");
   until(1300.9);
   EXPECT_TRUE(isDisabled("Ethernet1"));
   until(1301);
   EXPECT_FALSE(isDisabled("Ethernet1"));
}

// --- What the operator sees.

TEST_F(CauseAgentSMTest, logsEachPortThatGoesAndComesOnceAndWhy) {
   recoversAfter(30);
   start();
   disable("Ethernet1");
   disable("Ethernet1", 999);
   EXPECT_EQ(lines, Lines{"%VORN-4-ERRDISABLE_INTF_DISABLED: Ethernet1 is disabled: flap"});
   lines.clear();
   until(1029);
   EXPECT_EQ(lines, Lines{"%VORN-5-ERRDISABLE_INTF_RELEASED: Ethernet1 is no longer disabled by flap: its "
                          "recovery interval is over"});
   disable("Ethernet2");
   lines.clear();
   status->intfStatusDelAll();
   run();
   EXPECT_EQ(lines,
             Lines{"%VORN-5-ERRDISABLE_INTF_RELEASED: Ethernet2 is no longer disabled by flap: cleared"});
   disable("Ethernet3");
   lines.clear();
   config->detectionEnabledIs("flap", false);
   run();
   until(1100);
   EXPECT_EQ(lines, Lines{"%VORN-5-ERRDISABLE_INTF_RELEASED: Ethernet3 is no longer disabled by flap: its "
                          "detection is off"});
}

TEST_F(CauseAgentSMTest, logsNothingOfWhatStoodAtTheStartUntilItChanges) {
   status->intfStatusIs("Ethernet1", 900);
   start();
   EXPECT_EQ(lines, Lines{});
   status->intfStatusDel("Ethernet1");
   run();
   EXPECT_EQ(lines.size(), 1u);
}

TEST_F(CauseAgentSMTest, logsNothingWhileLoggingIsOff) {
   recoversAfter(30);
   config->loggingEnabledIs(false);
   start();
   disable("Ethernet1");
   until(1030);
   EXPECT_FALSE(isDisabled("Ethernet1"));
   EXPECT_EQ(lines, Lines{});
}

// --- Inputs.

TEST_F(CauseAgentSMTest, worksWithoutDirectoriesAndConfiguration) {
   sm = Kem::makePtr<ErrdisableLib::CauseAgentSM>("flap", "flap", status, nullptr, nullptr, nullptr);
   disable("Ethernet1");
   EXPECT_TRUE(isDisabled("Ethernet1"));
   EXPECT_EQ(lines.size(), 1u) << "logging is on where nobody says otherwise";
   auto const idle = Kem::makePtr<ErrdisableLib::CauseAgentSM>("x", "x", nullptr, nullptr, nullptr, nullptr);
   run();
   EXPECT_FALSE(idle->causeStatus());
}

TEST_F(CauseAgentSMTest, statusThatIsNotGivenIsFoundByNameWheneverItIsThere) {
   recoversAfter(30);
   causeDir->entityPtrDel("flap");
   place(causeDir, Errdisable::CauseGroup::make(), "flap"); // of another type
   sm = Kem::makePtr<ErrdisableLib::CauseAgentSM>("flap", "flap", nullptr, causeDir, groupDir, config);
   run();
   EXPECT_FALSE(sm->causeStatus());
   place(causeDir, status, "flap");
   run();
   disable("Ethernet1");
   until(1030);
   EXPECT_FALSE(isDisabled("Ethernet1"));

   causeDir->entityPtrDel("flap");
   run();
   EXPECT_FALSE(sm->causeStatus());
   auto const other = Errdisable::CauseStatus::make();
   other->intfStatusIs("Ethernet2", 1010);
   place(causeDir, other, "flap");
   run();
   until(1040);
   EXPECT_EQ(other->intfStatus().size(), 0u);
}

TEST_F(CauseAgentSMTest, replacedStatusIsANewStart) {
   sm = Kem::makePtr<ErrdisableLib::CauseAgentSM>("flap", "flap", nullptr, causeDir, groupDir, config);
   disable("Ethernet1");
   lines.clear();
   status = Errdisable::CauseStatus::make();
   place(causeDir, status, "flap");
   run();
   EXPECT_EQ(lines, Lines{});
   disable("Ethernet1");
   EXPECT_EQ(lines, Lines{"%VORN-4-ERRDISABLE_INTF_DISABLED: Ethernet1 is disabled: flap"});
}

TEST_F(CauseAgentSMTest, nothingHappensAfterItsEnd) {
   recoversAfter(30);
   start();
   disable("Ethernet1");
   sm = nullptr;
   until(2000);
   EXPECT_TRUE(isDisabled("Ethernet1"));
}

// --- Over the state database.

class TestMounter final : public Ordel::Mounter {
  public:
   TestMounter() : Mounter(Kem::Name("test")) {}
   void doMountsComplete(Ordel::MountStatus const&, Ordel::EntityManager&) override {}
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"TestMounter", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink&) const override {}
   void encodeDifference(Kem::Entity const&, Kem::AttributeSink&) const override {}
};

struct CauseSMInitTest : testing::Test {
   CauseSMInitTest() {
      std::string error;
      EXPECT_TRUE(listener.listen(socketPath, error)) << error;
      agent = connect("agent", {{"w", "Errdisable::CauseStatus", causePath + "link-flap"},
                                {"ri", "Kem::Dir", "interface/errdisable/cause"},
                                {"ri", "Kem::Dir", "interface/errdisable/causegroup"},
                                {"r", "Errdisable::Config", "interface/errdisable/config"}});
      publisher = connect("publisher", {{"w", "Errdisable::CauseStatus", causePath + "link-flap"},
                                        {"wc", "Errdisable::CauseStatus", causePath + "test"},
                                        {"w", "Errdisable::CauseGroup", groupPath + "link-flap"},
                                        {"wc", "Errdisable::CauseGroup", groupPath + "test"}});
   }
   ~CauseSMInitTest() override {
      agent = publisher = nullptr;
      run();
   }
   Kem::Ptr<Ordel::EntityManager> connect(char const* name, std::vector<Ordel::Mount> const& mounts) {
      auto const manager =
          Kem::makePtr<Ordel::EntityManager>(Records::schema(), Records::typeInfo, name, Ordel::Role::agent);
      EXPECT_EQ(manager->connect(socketPath, 0), "");
      run();
      auto const group = manager->getMountGroup(*mounter);
      for (auto const& mount : mounts)
         group->doMount(mount);
      group->doClose(false, "test", 0.0);
      run();
      return manager;
   }
   Kem::Ptr<Errdisable::CauseStatus> cause(Kem::Ptr<Ordel::EntityManager> const& manager, char const* name) {
      return manager->entity<Errdisable::CauseStatus>(causePath + name);
   }
   void recoversAfter(char const* name, Kem::Seconds interval) {
      auto const group = publisher->entity<Errdisable::CauseGroup>(groupPath + name);
      group->recoveryIntervalIs(interval);
      group->recoveryEnabledIs(true);
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   Kem::VirtualTime time{1000.0};
   std::string const causePath = "interface/errdisable/cause/",
                     groupPath = "interface/errdisable/causegroup/";
   std::string const socketPath = testing::TempDir() + "/cause-" + std::to_string(getpid()) + ".sock";
   Kem::Ptr<TestMounter> mounter = Kem::makePtr<TestMounter>();
   Ordel::Server server{std::make_unique<Ordel::Tree>(Records::schema(), 1), "sys"};
   Ordel::Listener listener{server};
   Kem::Ptr<Ordel::EntityManager> agent, publisher;
};

TEST_F(CauseSMInitTest, portOfAMountedCauseComesBackByTheGroupInTheDatabase) {
   auto const sm = ErrdisableLib::CauseSMInit(nullptr, *agent, "link-flap", "link-flap",
                                              cause(agent, "link-flap"), nullptr, nullptr);
   cause(agent, "link-flap")->intfStatusIs("Ethernet1", Kem::now());
   recoversAfter("link-flap", 30);
   EXPECT_TRUE(cause(publisher, "link-flap")->intfStatus("Ethernet1"));
   Kem::activityManager()->advanceTo(1030);
   EXPECT_FALSE(cause(publisher, "link-flap")->intfStatus("Ethernet1"));
}

TEST_F(CauseSMInitTest, causeOfAnotherProcessIsFollowedAndLeftToIt) {
   auto const sm = ErrdisableLib::CauseSMInit(nullptr, *agent, "test", "test", nullptr, nullptr, nullptr);
   ASSERT_TRUE(sm->causeStatus());
   lines.clear();
   Kem::logSinkIs([](int, std::string const& line) { lines.push_back(line); });
   cause(publisher, "test")->intfStatusIs("Ethernet1", 5e8);
   recoversAfter("test", 30);
   Kem::activityManager()->advanceTo(1e9);
   ASSERT_TRUE(cause(publisher, "test")->intfStatus("Ethernet1"));
   EXPECT_EQ(*cause(publisher, "test")->intfStatus("Ethernet1"), 5e8);
   cause(publisher, "test")->intfStatusDelAll();
   run();
   Kem::logSinkIs(nullptr);
   EXPECT_EQ(lines, (Lines{"%VORN-4-ERRDISABLE_INTF_DISABLED: Ethernet1 is disabled: test",
                           "%VORN-5-ERRDISABLE_INTF_RELEASED: Ethernet1 is no longer disabled by test: "
                           "cleared"}));
}

} // namespace
