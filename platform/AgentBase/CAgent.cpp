#include "AgentBase/CAgent.h"

#include <utility>

namespace AgentBase {

CAgent::CAgent(Kem::Name name) : Mounter(std::move(name)) {}

CAgent::~CAgent() = default;

void CAgent::doStageForInstance(std::string const& stageClass, std::string const& stage, uint32_t) {
   doStage(stageClass, stage);
}

void CAgent::entityManagerIs(Kem::Ptr<Ordel::EntityManager> const& entityManager) {
   entityManager_ = entityManager;
}

void CAgent::cellIdIs(uint32_t cellId) {
   cellId_ = cellId;
   cellPathIs("cell/" + std::to_string(cellId));
}

void CAgent::warmIs(bool warm) {
   if (std::exchange(warm_, warm) != warm && warm)
      doUpdateWarm();
}

void CAgent::redundancyStatusIs(Kem::Ptr<Redundancy::RedundancyStatus const> const& redundancyStatus) {
   redundancyStatus_ = redundancyStatus;
}

} // namespace AgentBase
