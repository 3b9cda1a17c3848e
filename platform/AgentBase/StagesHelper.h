// One agent's part in the boot stages of one class.
//
// The stage driver moves Stage::Status from stage to stage; a stage ends when every agent that takes part in
// it has reported. This helper declares the stages in the agent's Stage::AgentConfig, calls the agent's
// doStageForInstance when one of them is reached, and reports:
//
//    waitForStage ──► waiting ──Stage::Status names the stage──► doStage ──doStageComplete──► reported
//                        ▲                                                                       │
//                        └────────────────────── the instance of the boot rises ─────────────────┘
//
// A stage is begun once for each instance of the boot. One that was reported before the agent was
// restarted is not begun again: the report is in the database. The agent is called from the event
// loop, never from waitForStage.
//
// Only what this process declares counts. A stage that an earlier run declared and this one doesn't is taken
// out of the record in the turn after the start: the driver must not wait for it.
#pragma once

#include "AgentBase/CAgent.h"
#include "records/Stage/AgentConfig.h"
#include "records/Stage/ProgressDir.h"
#include "records/Stage/Status.h"

#include <map>
#include <set>

namespace AgentBase {

class StagesHelper final : public Kem::PtrInterface {
  public:
   // Any of the three records may be null: then nothing is declared, or nothing ever reached.
   StagesHelper(std::string stageClass, Kem::Ptr<Stage::Status const> stageStatus,
                Kem::Ptr<Stage::ProgressDir const> progressDir, Kem::Ptr<Stage::AgentConfig> agentConfig,
                CAgent& agent);
   ~StagesHelper() override;

   std::string const& stageClass() const { return stageClass_; }

   // The agent takes part in the stage.
   void waitForStage(std::string const& stage);
   // The agent is done with the stage: reported for the instance of the boot that it was begun for, which may
   // not be the one that runs now. Nothing for a stage that this process has not begun.
   void doStageComplete(std::string const& stage);
   // Whether the stage is reported for the instance of the boot that runs now, by this process or an earlier one.
   bool isStageComplete(std::string const& stage) const;

  private:
   struct KemStageStatus;
   struct KemProgressDir;
   struct KemProgress;
   struct KemDeclared;

   void handleDeclared();
   void handleStage();
   void handleInstance();
   void handleProgress(Kem::Name const& stage);
   void handleProgressState(Stage::Progress const& progress);

   std::string const stageClass_;
   Kem::Ptr<Stage::Status const> stageStatus_;
   Kem::Ptr<Stage::ProgressDir const> progressDir_;
   Kem::Ptr<Stage::AgentConfig> agentConfig_;
   CAgent& agent_;
   std::set<std::string> declared_;           // by this process
   std::map<std::string, uint32_t> begunFor_; // instance by stage
   std::unique_ptr<KemStageStatus> kemStageStatus_;
   std::unique_ptr<KemProgressDir> kemProgressDir_;
   std::map<Kem::Name, std::unique_ptr<KemProgress>> kemProgress_;
   std::unique_ptr<KemDeclared> kemDeclared_;
};

} // namespace AgentBase
