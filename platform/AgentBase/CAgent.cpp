#include "AgentBase/CAgent.h"

#include "Kem/Clock.h"
#include "Kem/Trace.h"

#include <utility>

namespace AgentBase {

namespace {
Kem::TraceFacility theTrace("AgentBase");
}

class CAgent::WarmupReport final : public Kem::Clock::NotifieeConst {
  public:
   explicit WarmupReport(CAgent& a) : NotifieeConst(Kem::ActivityFacility::clock()), agent(a) {}
   void onTime() override { agent.reportWarmup(); }
   CAgent& agent;
};

CAgent::CAgent(Kem::Name name) : Mounter(std::move(name)) {}

CAgent::~CAgent() = default;

void CAgent::doStageForInstance(std::string const& stageClass, std::string const& stage, uint32_t) {
   doStage(stageClass, stage);
}

void CAgent::warmupReportingIntervalIs(Kem::Seconds interval) {
   warmupReportingInterval_ = interval;
   if (!agentWarmupReportReactor_)
      agentWarmupReportReactor_ = std::make_unique<WarmupReport>(*this);
   agentWarmupReportReactor_->timeMinIs(interval > 0 && !warm_ ? Kem::now() + interval : Kem::never);
}

void CAgent::reportWarmup() {
   char const* const missing = !initialized_    ? "its mounts are not complete"
                               : !startupReady_ ? "it has not said that it is ready"
                                                : "what it started has not settled";
   KEM_TRACE(theTrace, 0, name() << " is not warm yet: " << missing);
   warmupReportingIntervalIs(warmupReportingInterval_);
}

void CAgent::entityManagerIs(Kem::Ptr<Ordel::EntityManager> const& entityManager) {
   entityManager_ = entityManager;
}

void CAgent::cellIdIs(uint32_t cellId) {
   cellId_ = cellId;
   cellPathIs("cell/" + std::to_string(cellId));
}

void CAgent::warmIs(bool warm) {
   if (std::exchange(warm_, warm) == warm)
      return;
   warmupReportingIntervalIs(warmupReportingInterval_);
   if (warm)
      doUpdateWarm();
}

void CAgent::redundancyStatusIs(Kem::Ptr<Redundancy::RedundancyStatus const> const& redundancyStatus) {
   redundancyStatus_ = redundancyStatus;
}

void CAgent::agentStatusIs(Kem::Ptr<Agent::Status> const& agentStatus) {
   agentStatus_ = agentStatus;
}

void CAgent::initializedIs(bool initialized) {
   initialized_ = initialized;
   if (autoSetReady_)
      startupReadyIs(initialized);
}

} // namespace AgentBase
