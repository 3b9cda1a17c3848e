#include "Vorn/VornAgent/StatusReport.h"

#include "Vorn/testing/TestSwitch.h"
#include "records/Bridging/Input/CliConfig.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

using Vorn::StatusReport;
using Vorn::TestSwitch;

constexpr char statusPath[] = "cell/1/agent/status/Vorn";

struct StatusReportTest : testing::Test {
   // The agent's record, and what a third party sees of it.
   void start() {
      sw.startAgent();
      status = TestSwitch::mount<Agent::Status>(*sw.agentManager, "wf", statusPath);
      report = std::make_unique<StatusReport>(status, *sw.agent);
      TestSwitch::run();
      seen = sw.subscribe<Agent::Status>(statusPath);
   }
   void vlansArePublished(unsigned first, unsigned last) {
      auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
      cli->vlanConfigPriorityIs(100);
      for (unsigned vlan = first; vlan <= last; ++vlan)
         cli->vlanConfigIs(Bridging::VlanId(vlan));
      TestSwitch::run();
   }
   static void pass(Kem::Seconds seconds) {
      Kem::activityManager()->advance(seconds);
      TestSwitch::run();
   }
   ~StatusReportTest() override {
      report = nullptr;
      status = nullptr;
      seen = nullptr;
   }

   TestSwitch sw;
   Kem::Ptr<Agent::Status> status;
   Kem::Ptr<Agent::Status> seen;
   std::unique_ptr<StatusReport> report;
};

TEST_F(StatusReportTest, firstReportIsMadeAtOnce) {
   start();
   EXPECT_EQ(seen->pid(), static_cast<uint32_t>(getpid()));
   ASSERT_TRUE(seen->deferredStage("VlanConfigCodef"));
   EXPECT_TRUE(seen->deferredStage("SwitchIntfConfigCodef"));
   EXPECT_TRUE(seen->deferredStage("VlanIntfConfigCodef"));
   EXPECT_TRUE(seen->deferredStage("SubIntfConfigCodef"));
   EXPECT_EQ(seen->deferredStage().size(), 4u);
   EXPECT_GT(seen->attributeLog().kernBufferSize, 0);
   EXPECT_EQ(seen->attributeLog().kernBufferThreshold, seen->attributeLog().kernBufferSize / 2);
   EXPECT_EQ(seen->attributeLog().kernBufferUsage, -1) << "no stage has measured yet";
}

TEST_F(StatusReportTest, changesAreReportedAfterASecondAndNotBefore) {
   start();
   auto const before = seen->attributeLog();
   vlansArePublished(1, 40);
   pass(0.9);
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->updatesSeen, 0u);
   pass(0.1);
   auto const& stage = *seen->deferredStage("VlanConfigCodef");
   auto const& codef = *sw.agent->bridgingConfigSm()->vlanConfigCodef();
   EXPECT_EQ(stage.updatesSeen, codef.updatesSeen());
   EXPECT_GE(stage.updatesSeen, 40u);
   EXPECT_EQ(stage.updatesProcessed, codef.updatesProcessed());
   EXPECT_EQ(stage.dispatchCount, codef.dispatchCount());
   EXPECT_GT(stage.dispatchCount, 0u);
   EXPECT_EQ(stage.yieldBeforeFinishingCount, codef.yieldBeforeFinishingCount());
   EXPECT_EQ(stage.timeUsed, codef.timeUsed());
   EXPECT_EQ(stage.backlog, 0u);
   auto const after = seen->attributeLog();
   EXPECT_GE(after.operationsWritten, before.operationsWritten + 40) << "a VLAN is at least one operation";
   EXPECT_GT(after.bytesWritten, before.bytesWritten);
   EXPECT_GE(after.kernBufferUsage, 0);
}

TEST_F(StatusReportTest, keysThatWaitAreReported) {
   start();
   auto const cli = sw.publish<Bridging::Input::CliConfig>("bridging/input/config/cli");
   auto const& codef = sw.agent->bridgingConfigSm()->vlanConfigCodef();
   auto const clock = codef->clock();
   codef->clockDel();
   vlansArePublished(1, 7);
   pass(1);
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->backlog, 7u);
   EXPECT_EQ(seen->deferredStage("SwitchIntfConfigCodef")->backlog, 0u);
   codef->clockIs(clock);
   pass(1);
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->backlog, 0u);
}

TEST_F(StatusReportTest, agentThatHasNothingToDoWritesNothing) {
   start();
   vlansArePublished(1, 3);
   pass(1);
   auto const& log = *sw.agentManager->attributeLog();
   uint64_t const written = log.operationsWritten();
   auto const reported = seen->attributeLog();
   pass(1);
   pass(60);
   EXPECT_EQ(log.operationsWritten(), written);
   EXPECT_EQ(seen->attributeLog(), reported);
}

// An agent with nothing but its timers: recovery and each mounted table look every 10 s.
TEST_F(StatusReportTest, agentThatHasNothingToDoSleeps) {
   start();
   vlansArePublished(1, 3);
   pass(2);
   size_t wakes = 0;
   Kem::Seconds const end = Kem::now() + 60;
   for (; Kem::activityManager()->nextTarget() <= end; ++wakes)
      Kem::activityManager()->advanceTo(Kem::activityManager()->nextTarget());
   EXPECT_LE(wakes, 20u) << "in a minute";
   vlansArePublished(4, 4);
   pass(1);
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->updatesSeen,
             sw.agent->bridgingConfigSm()->vlanConfigCodef()->updatesSeen());
}

TEST_F(StatusReportTest, figuresOfTheRunBeforeAreReplacedByTheFirstReport) {
   auto const left = sw.publish<Agent::Status>(statusPath);
   left->pidIs(4);
   left->deferredStageIs("VlanConfigCodef", {.backlog = 5, .updatesSeen = 6});
   left->attributeLogIs({.operationsWritten = 1000000, .bytesWritten = 9000000});
   TestSwitch::run();
   start();
   EXPECT_EQ(seen->pid(), static_cast<uint32_t>(getpid()));
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->backlog, 0u);
   EXPECT_EQ(seen->deferredStage("VlanConfigCodef")->updatesSeen, 0u);
   EXPECT_LT(seen->attributeLog().operationsWritten, 1000u);
   EXPECT_LT(seen->attributeLog().bytesWritten, 100000u);
}

TEST_F(StatusReportTest, standbySupervisorHasTheStagesOfInterfacesOnly) {
   auto const redundancy = sw.publish<Redundancy::RedundancyStatus>("cell/1/redundancy/status");
   redundancy->protocolIs(Redundancy::RedundancyProtocol::protocolHotStandby);
   redundancy->modeIs(Redundancy::RedundancyMode::modeStandby);
   sw.publish<Agent::Status>(statusPath)->deferredStageIs("VlanConfigCodef", {.backlog = 5});
   TestSwitch::run();
   start();
   EXPECT_FALSE(seen->deferredStage("VlanConfigCodef"));
   EXPECT_TRUE(seen->deferredStage("VlanIntfConfigCodef"));
   EXPECT_EQ(seen->deferredStage().size(), 2u);
   redundancy->modeIs(Redundancy::RedundancyMode::modeActive);
   pass(1);
   EXPECT_EQ(seen->deferredStage().size(), 4u);
}

} // namespace
