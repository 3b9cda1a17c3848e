#include "AgentBase/StagesHelper.h"

#include "Kem/Activity.h"
#include "records/Stage/Progress.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class StageAgent final : public AgentBase::CAgent {
  public:
   StageAgent() : CAgent(Kem::Name("stage-agent")) {}
   void doStage(std::string const& stageClass, std::string const& stage) override {
      stages.push_back(stageClass + "/" + stage);
   }
   void handleStageInstance(uint32_t instance) override { instances.push_back(instance); }
   void handleStageProgressionComplete(std::string const& stage, uint32_t instance) override {
      ended.push_back(stage + "/" + std::to_string(instance));
   }
   char const* attributeString(Kem::AttrId) const override { return nullptr; }
   Kem::TypeInfo const& typeInfo() const override {
      static Kem::TypeInfo const type = {"StageAgent", Kem::noTypeId, nullptr, nullptr};
      return type;
   }
   std::vector<std::string> stages, ended;
   std::vector<uint32_t> instances;
};

struct StagesHelperTest : testing::Test {
   void SetUp() override { start(); }
   void start() {
      helper = Kem::makePtr<AgentBase::StagesHelper>("bootStageClass", status, progressDir, config, *agent);
   }
   void reach(char const* stage) {
      status->stageIs(stage);
      run();
   }
   static void run() { Kem::activityManager()->runUntilIdle(); }

   Kem::Ptr<StageAgent> agent = Kem::makePtr<StageAgent>();
   Kem::Ptr<Stage::Status> status = Stage::Status::make();
   Kem::Ptr<Stage::ProgressDir> progressDir = Stage::ProgressDir::make();
   Kem::Ptr<Stage::AgentConfig> config = Stage::AgentConfig::make();
   Kem::Ptr<AgentBase::StagesHelper> helper;
};

using Names = std::vector<std::string>;

TEST_F(StagesHelperTest, declaresTheStagesThatTheAgentTakesPartIn) {
   helper->waitForStage("NetworkAgent");
   EXPECT_TRUE(config->waitForStage("NetworkAgent"));
   EXPECT_FALSE(config->waitForStage("Other"));
}

TEST_F(StagesHelperTest, agentIsCalledWhenADeclaredStageIsReached) {
   helper->waitForStage("NetworkAgent");
   run();
   EXPECT_EQ(agent->stages, Names{});
   reach("Other");
   EXPECT_EQ(agent->stages, Names{});
   reach("NetworkAgent");
   EXPECT_EQ(agent->stages, Names{"bootStageClass/NetworkAgent"});
}

TEST_F(StagesHelperTest, stageThatRunsAlreadyIsBegunInTheNextTurnAndNotFromWaitForStage) {
   reach("NetworkAgent");
   helper->waitForStage("NetworkAgent");
   EXPECT_EQ(agent->stages, Names{});
   run();
   EXPECT_EQ(agent->stages, Names{"bootStageClass/NetworkAgent"});
}

TEST_F(StagesHelperTest, stageIsBegunOnceForEachInstanceOfTheBoot) {
   helper->waitForStage("NetworkAgent");
   status->instanceIs(1);
   reach("NetworkAgent");
   reach("Other");
   reach("NetworkAgent");
   EXPECT_EQ(agent->stages.size(), 1u);
   status->instanceIs(2);
   run();
   EXPECT_EQ(agent->stages.size(), 2u);
   EXPECT_EQ(agent->instances, (std::vector<uint32_t>{1, 2}));
}

TEST_F(StagesHelperTest, reportBearsTheInstanceOfTheBoot) {
   helper->waitForStage("NetworkAgent");
   status->instanceIs(7);
   reach("NetworkAgent");
   EXPECT_EQ(config->stageComplete("NetworkAgent"), nullptr);
   helper->doStageComplete("NetworkAgent");
   ASSERT_NE(config->stageComplete("NetworkAgent"), nullptr);
   EXPECT_EQ(*config->stageComplete("NetworkAgent"), 7u);
}

TEST_F(StagesHelperTest, stageThatWasReportedBeforeARestartIsNotBegunAgain) {
   helper->waitForStage("NetworkAgent");
   reach("NetworkAgent");
   helper->doStageComplete("NetworkAgent");
   start(); // a new process on the same records
   helper->waitForStage("NetworkAgent");
   run();
   EXPECT_EQ(agent->stages.size(), 1u);
}

// A completion that comes late, as that of a hitless reload does, belongs to the boot that asked for it.
TEST_F(StagesHelperTest, lateReportBearsTheInstanceThatItsStageWasBegunFor) {
   helper->waitForStage("NetworkAgent");
   status->instanceIs(7);
   reach("NetworkAgent");
   reach("");
   status->instanceIs(8);
   run();
   helper->doStageComplete("NetworkAgent");
   ASSERT_NE(config->stageComplete("NetworkAgent"), nullptr);
   EXPECT_EQ(*config->stageComplete("NetworkAgent"), 7u);
   EXPECT_FALSE(helper->isStageComplete("NetworkAgent"));
   reach("NetworkAgent");
   EXPECT_EQ(agent->stages.size(), 2u) << "the new boot's stage is begun";
   helper->doStageComplete("NetworkAgent");
   EXPECT_EQ(*config->stageComplete("NetworkAgent"), 8u);
   EXPECT_TRUE(helper->isStageComplete("NetworkAgent"));
}

TEST_F(StagesHelperTest, stageThatWasNotBegunIsNotReported) {
   helper->waitForStage("NetworkAgent");
   status->instanceIs(7);
   run();
   helper->doStageComplete("NetworkAgent");
   helper->doStageComplete("Other");
   EXPECT_TRUE(config->stageComplete().empty());
}

// A hitless start takes part in stages that the next start, an ordinary one, knows nothing of.
TEST_F(StagesHelperTest, stagesThatOnlyAnEarlierRunDeclaredAreNeitherBegunNorWaitedFor) {
   for (char const* stage : {"NetworkAgent", "VornStatusUpdate", "NoSuchStage"})
      config->waitForStageIs(stage, true);
   reach("VornStatusUpdate");
   start();
   helper->waitForStage("NetworkAgent");
   run();
   EXPECT_EQ(agent->stages, Names{});
   EXPECT_TRUE(config->waitForStage("NetworkAgent"));
   EXPECT_EQ(config->waitForStage().size(), 1u);
   // What is declared later counts from then on; what others write in, never.
   config->waitForStageIs("NoSuchStage", true);
   reach("NoSuchStage");
   EXPECT_EQ(agent->stages, Names{});
   helper->waitForStage("VornSubIntfUp");
   reach("VornSubIntfUp");
   reach("NetworkAgent");
   EXPECT_EQ(agent->stages, (Names{"bootStageClass/VornSubIntfUp", "bootStageClass/NetworkAgent"}));
   EXPECT_EQ(config->waitForStage().size(), 2u);
}

TEST_F(StagesHelperTest, agentThatDeclaresNothingTakesPartInNothing) {
   config->waitForStageIs("NetworkAgent", true);
   start();
   run();
   EXPECT_TRUE(config->waitForStage().empty());
}

TEST_F(StagesHelperTest, stagesOfAnotherClassAreNotItsOwn) {
   helper->waitForStage("NetworkAgent");
   status->stageClassIs("shutdownStageClass");
   reach("NetworkAgent");
   EXPECT_EQ(agent->stages, Names{});
   status->stageClassIs("bootStageClass");
   run();
   EXPECT_EQ(agent->stages.size(), 1u);
}

TEST_F(StagesHelperTest, endOfAStageForAllAgentsIsPassedOn) {
   auto const progress = progressDir->newProgress("NetworkAgent");
   run();
   progress->instanceIs(3);
   progress->stateIs(Stage::ProgressState::inProgress);
   run();
   EXPECT_EQ(agent->ended, Names{});
   progress->stateIs(Stage::ProgressState::done);
   run();
   EXPECT_EQ(agent->ended, Names{"NetworkAgent/3"});
}

TEST_F(StagesHelperTest, worksWithoutAnyRecord) {
   AgentBase::StagesHelper bare("bootStageClass", nullptr, nullptr, nullptr, *agent);
   bare.waitForStage("NetworkAgent");
   bare.doStageComplete("NetworkAgent");
   run();
   EXPECT_EQ(agent->stages, Names{});
}

} // namespace
