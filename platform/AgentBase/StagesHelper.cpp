#include "AgentBase/StagesHelper.h"

#include "Kem/Clock.h"
#include "Kem/Trace.h"
#include "records/Stage/Progress.h"

namespace AgentBase {

namespace {
Kem::TraceFacility stagesTrace("AgentStages");
}

struct StagesHelper::KemStageStatus final : Stage::Status::NotifieeConst {
   explicit KemStageStatus(StagesHelper& h) : NotifieeConst(this), helper(h) {}
   void onStage() override { helper.handleStage(); }
   void onStageClass() override { helper.handleStage(); }
   void onInstance() override { helper.handleInstance(); }
   StagesHelper& helper;
};

struct StagesHelper::KemProgressDir final : Stage::ProgressDir::NotifieeConst {
   explicit KemProgressDir(StagesHelper& h) : NotifieeConst(this), helper(h) {}
   void onProgress(Kem::Name const& stage) override { helper.handleProgress(stage); }
   StagesHelper& helper;
};

struct StagesHelper::KemProgress final : Stage::Progress::NotifieeConst {
   explicit KemProgress(StagesHelper& h) : NotifieeConst(this), helper(h) {}
   void onState() override { helper.handleProgressState(*notifier()); }
   StagesHelper& helper;
};

// A stage that is declared may be the one that runs already. The agent learns that in the next turn, since it
// may be in the middle of its start now.
struct StagesHelper::KemDeclared final : Kem::Clock::NotifieeConst {
   explicit KemDeclared(StagesHelper& h) : NotifieeConst(Kem::ActivityFacility::clock()), helper(h) {}
   void onTime() override { helper.handleDeclared(); }
   StagesHelper& helper;
};

StagesHelper::StagesHelper(std::string stageClass, Kem::Ptr<Stage::Status const> stageStatus,
                           Kem::Ptr<Stage::ProgressDir const> progressDir,
                           Kem::Ptr<Stage::AgentConfig> agentConfig, CAgent& agent)
    : stageClass_(std::move(stageClass)), stageStatus_(std::move(stageStatus)),
      progressDir_(std::move(progressDir)), agentConfig_(std::move(agentConfig)), agent_(agent) {
   kemStageStatus_ = std::make_unique<KemStageStatus>(*this);
   kemStageStatus_->notifierIs(stageStatus_);
   kemDeclared_ = std::make_unique<KemDeclared>(*this);
   kemDeclared_->timeMinIs(0.0);
   kemProgressDir_ = std::make_unique<KemProgressDir>(*this);
   kemProgressDir_->notifierIs(progressDir_);
   if (progressDir_)
      for (auto const& [stage, progress] : progressDir_->progress())
         handleProgress(stage);
}

StagesHelper::~StagesHelper() = default;

void StagesHelper::waitForStage(std::string const& stage) {
   if (!agentConfig_)
      return;
   KEM_TRACE(stagesTrace, 5, "takes part in stage " << stage);
   declared_.insert(stage);
   agentConfig_->waitForStageIs(stage, true);
   kemDeclared_->timeMinIs(0.0);
}

void StagesHelper::doStageComplete(std::string const& stage) {
   auto const begun = begunFor_.find(stage);
   if (begun == begunFor_.end()) {
      KEM_TRACE(stagesTrace, 1, "stage " << stage << " is not reported: it was not begun");
      return;
   }
   agentConfig_->stageCompleteIs(stage, begun->second);
}

bool StagesHelper::isStageComplete(std::string const& stage) const {
   auto const* const reported = agentConfig_ && stageStatus_ ? agentConfig_->stageComplete(stage) : nullptr;
   return reported && *reported == stageStatus_->instance();
}

void StagesHelper::handleDeclared() {
   if (!agentConfig_)
      return;
   for (auto const& [stage, isWaiting] : agentConfig_->waitForStage())
      if (!declared_.contains(stage.str())) {
         KEM_TRACE(stagesTrace, 3, "stage " << stage << " was declared by an earlier run only");
         agentConfig_->waitForStageDel(stage);
      }
   handleStage();
}

void StagesHelper::handleStage() {
   if (!stageStatus_ || !agentConfig_ || stageStatus_->stageClass().view() != stageClass_)
      return;
   std::string const stage = stageStatus_->stage().str();
   uint32_t const instance = stageStatus_->instance();
   if (!declared_.contains(stage) || isStageComplete(stage))
      return;
   auto const [begun, isFirst] = begunFor_.try_emplace(stage, instance);
   if (!isFirst && begun->second == instance)
      return;
   begun->second = instance;
   agent_.doStageForInstance(stageClass_, stage, instance);
}

void StagesHelper::handleInstance() {
   agent_.handleStageInstance(stageStatus_->instance());
   handleStage();
}

void StagesHelper::handleProgress(Kem::Name const& stage) {
   auto const progress = progressDir_->progress(stage);
   if (!progress) {
      kemProgress_.erase(stage);
      return;
   }
   auto& reactor = kemProgress_[stage];
   if (!reactor)
      reactor = std::make_unique<KemProgress>(*this);
   reactor->notifierIs(progress);
}

void StagesHelper::handleProgressState(Stage::Progress const& progress) {
   if (progress.state() == Stage::ProgressState::done)
      agent_.handleStageProgressionComplete(progress.stage().str(), progress.instance());
}

} // namespace AgentBase
