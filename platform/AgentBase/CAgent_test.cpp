#include "AgentBase/CAgent.h"

#include "Kem/Activity.h"
#include "Kem/TestTrace.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Agent final : AgentBase::CAgent {
   Agent() : CAgent("Sample") {}
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"Sample::Agent", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   void doUpdateWarm() override { ++warmCount; }
   void doStage(std::string const& stageClass, std::string const& stage) override {
      stages.push_back(stageClass + ' ' + stage);
   }
   int warmCount = 0;
   std::vector<std::string> stages;
};

struct CAgentTest : testing::Test {
   std::vector<std::string> traced() { return trace.take(); }

   Kem::TestTrace trace;
   Kem::VirtualTime time;
   Kem::Ptr<Agent> const agent = Kem::makePtr<Agent>();
};

TEST_F(CAgentTest, beginsColdOnTheFirstSupervisorUnderItsOwnName) {
   EXPECT_STREQ(agent->fwkType(), "Sample::Agent");
   EXPECT_EQ(agent->agentOrdelName(), "Sample");
   EXPECT_EQ(agent->cellPath(), "cell/1");
   EXPECT_EQ(agent->agentCfgName(), "cell/1/agent/config/Sample");
   EXPECT_FALSE(agent->initialized() || agent->startupReady() || agent->warm());
   EXPECT_FALSE(agent->entityManager());
   EXPECT_FALSE(agent->redundancyStatus());
   EXPECT_FALSE(agent->agentStatus());
   agent->agentOrdelNameIs("Sample-2");
   EXPECT_EQ(agent->agentOrdelName(), "Sample-2");
}

TEST_F(CAgentTest, pathOfTheCellFollowsItsNumber) {
   agent->cellIdIs(2);
   EXPECT_EQ(agent->cellPath(), "cell/2");
   EXPECT_EQ(agent->agentCfgName(), "cell/2/agent/config/Sample");
   EXPECT_EQ(agent->agentStatusName(), "cell/2/agent/status/Sample");
}

TEST_F(CAgentTest, stageOfAnInstanceIsAStage) {
   agent->doStageForInstance("bootStageClass", "NetworkAgent", 3);
   EXPECT_THAT(agent->stages, ElementsAre("bootStageClass NetworkAgent"));
}

TEST_F(CAgentTest, isToldOnceThatItHasBecomeWarm) {
   agent->warmIs(false);
   EXPECT_EQ(agent->warmCount, 0);
   agent->warmIs(true);
   agent->warmIs(true);
   EXPECT_EQ(agent->warmCount, 1);
}

TEST_F(CAgentTest, isReadyWhenInitializedUnlessItSaysSoItself) {
   agent->initializedIs(true);
   EXPECT_TRUE(agent->startupReady());
   auto const other = Kem::makePtr<Agent>();
   other->autoSetReadyIs(false);
   other->initializedIs(true);
   EXPECT_FALSE(other->startupReady());
   other->startupReadyIs(true);
   EXPECT_TRUE(other->startupReady());
}

TEST_F(CAgentTest, saysWhatItWaitsForUntilItIsWarm) {
   auto* const loop = Kem::activityManager();
   loop->advance(100);
   EXPECT_THAT(traced(), IsEmpty()) << "not unless asked to";
   agent->autoSetReadyIs(false);
   agent->warmupReportingIntervalIs(10);
   loop->advance(9.9);
   EXPECT_THAT(traced(), IsEmpty());
   loop->advance(0.1);
   EXPECT_THAT(traced(), ElementsAre("Sample is not warm yet: its mounts are not complete"));
   agent->initializedIs(true);
   loop->advance(10);
   EXPECT_THAT(traced(), ElementsAre("Sample is not warm yet: it has not said that it is ready"));
   agent->startupReadyIs(true);
   loop->advance(10);
   EXPECT_THAT(traced(), ElementsAre("Sample is not warm yet: what it started has not settled"));
   agent->warmIs(true);
   loop->advance(100);
   EXPECT_THAT(traced(), IsEmpty());
}

} // namespace
