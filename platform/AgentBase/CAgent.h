// The base of every agent: its place in the cell, its connection to the state database, its redundancy role.
//
// The runner makes the agent by the module's factory and drives it in this order:
//
//    made ──► connected ──► redundancy status and agent configuration mounted ──► doPreInit, doInit
//         doInit asks for mounts ──► doMountsComplete ──► running: notifications, timers, boot stages
//
// An agent derives from it and overrides what it needs. It is never torn down while the
// process runs; it ends with it.
#pragma once

#include "Ordel/client/EntityManager.h"
#include "Ordel/client/Mount.h"
#include "records/Agent/Status.h"
#include "records/Redundancy/RedundancyStatus.h"

#include <memory>
#include <string>

namespace AgentBase {

class CAgent : public Ordel::Mounter {
  public:
   ~CAgent() override;

   virtual char const* fwkType() const { return typeInfo().name; }

   // --- What the runner and the stage machinery call.
   void doMountsComplete(Ordel::MountStatus const& mountStatus,
                         Ordel::EntityManager& entityManager) override {}
   void handleMountStatus(Ordel::MountStatus const& mountStatus) override {}
   // The agent has become warm: its start has settled, and what it wrote is there for others to see.
   virtual void doUpdateWarm() {}
   // Before doInit, with the redundancy status at hand.
   virtual void doPreInit() {}
   // Asks the entity manager for the agent's mounts.
   virtual void doInit() {}
   // All agents have reported the stage as done.
   virtual void handleStageProgressionComplete(std::string const& stage, uint32_t instance) {}
   // The stage is reached; the agent answers with doStageComplete of its stages helper, now or later.
   virtual void doStage(std::string const& stageClass, std::string const& stage) {}
   // The same with the instance of the boot; calls doStage unless overridden.
   virtual void doStageForInstance(std::string const& stageClass, std::string const& stage,
                                   uint32_t instance);
   // The boot stages begin again.
   virtual void handleStageInstance(uint32_t instance) {}

   // --- Attributes.

   // The name by which the database knows the process; that of the agent unless set.
   std::string agentOrdelName() const { return agentOrdelName_.empty() ? name().str() : agentOrdelName_; }
   virtual void agentOrdelNameIs(std::string const& agentOrdelName) { agentOrdelName_ = agentOrdelName; }
   // How often it traces, until the agent is warm, what it is waiting for; 0, as at first, for never.
   Kem::Seconds warmupReportingInterval() const { return warmupReportingInterval_; }
   virtual void warmupReportingIntervalIs(Kem::Seconds interval);
   Kem::Ptr<Ordel::EntityManager> const& entityManager() const { return entityManager_; }
   virtual void entityManagerIs(Kem::Ptr<Ordel::EntityManager> const& entityManager);
   // Path of the settings of the agent's process, an Agent::AgentConfig: "cell/1/agent/config/Vorn".
   std::string agentCfgName() const { return cellPath_ + "/agent/config/" + name().str(); }
   // Path of what the agent reports about itself: "cell/1/agent/status/Vorn".
   std::string agentStatusName() const { return cellPath_ + "/agent/status/" + name().str(); }
   // The supervisor that the process runs on; 1 unless the runner says otherwise.
   uint32_t cellId() const { return cellId_; }
   // Sets cellPath too.
   virtual void cellIdIs(uint32_t cellId);
   // The line card, for an agent that runs once for each; 0 for the others.
   uint32_t sliceId() const { return sliceId_; }
   virtual void sliceIdIs(uint32_t sliceId) { sliceId_ = sliceId; }
   // Path of the directory of the cell, without a slash at its end: "cell/1".
   std::string const& cellPath() const { return cellPath_; }
   virtual void cellPathIs(std::string const& cellPath) { cellPath_ = cellPath; }
   bool warm() const { return warm_; }
   // Calls doUpdateWarm when it becomes true.
   virtual void warmIs(bool warm);
   // Whether startupReady follows from initialized, as at first. Off, the agent says itself when it is ready.
   bool autoSetReady() const { return autoSetReady_; }
   virtual void autoSetReadyIs(bool autoSetReady) { autoSetReady_ = autoSetReady; }
   // Null until the base has mounted it.
   Kem::Ptr<Redundancy::RedundancyStatus const> const& redundancyStatus() const { return redundancyStatus_; }
   virtual void redundancyStatusIs(Kem::Ptr<Redundancy::RedundancyStatus const> const& redundancyStatus);
   // For the agent to write, no more than once a second. Null until the base has mounted it.
   Kem::Ptr<Agent::Status> const& agentStatus() const { return agentStatus_; }
   virtual void agentStatusIs(Kem::Ptr<Agent::Status> const& agentStatus);
   // The agent has started all that it starts by itself; it becomes warm when that has settled.
   bool startupReady() const { return startupReady_; }
   virtual void startupReadyIs(bool startupReady) { startupReady_ = startupReady; }
   // doMountsComplete has returned.
   bool initialized() const { return initialized_; }
   virtual void initializedIs(bool initialized);

   // An agent is no record: it is in no tree and encodes nothing.
   Kem::AttrId attributeCount() const override { return 0; }
   void encodeContents(Kem::AttributeSink& out) const override {}
   void encodeDifference(Kem::Entity const& before, Kem::AttributeSink& out) const override {}

  protected:
   explicit CAgent(Kem::Name name);

  private:
   class WarmupReport;
   void reportWarmup();

   std::string agentOrdelName_;
   Kem::Seconds warmupReportingInterval_ = 0;
   std::unique_ptr<WarmupReport> agentWarmupReportReactor_;
   Kem::Ptr<Ordel::EntityManager> entityManager_;
   uint32_t cellId_ = 1;
   uint32_t sliceId_ = 0;
   std::string cellPath_ = "cell/1";
   Kem::Ptr<Redundancy::RedundancyStatus const> redundancyStatus_;
   Kem::Ptr<Agent::Status> agentStatus_;
   bool warm_ = false;
   bool autoSetReady_ = true;
   bool startupReady_ = false;
   bool initialized_ = false;
};

// What a module exports, under this C name: makes the agent, with one reference that is the caller's.
inline constexpr char moduleFactoryName[] = "agentModuleFactory";
using ModuleFactory = CAgent* (*)(char const* agentName);

} // namespace AgentBase
