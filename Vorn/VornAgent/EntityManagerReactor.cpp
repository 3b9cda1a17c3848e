#include "Vorn/VornAgent/EntityManagerReactor.h"

#include "Vorn/VornAgent/VornAgent.h"

namespace Vorn {

EntityManagerReactor::EntityManagerReactor(Kem::Ptr<Redundancy::RedundancyStatus const> redundancyStatus,
                                           Agent* vornAgent)
    : redundancyStatus_(std::move(redundancyStatus)), vornAgent_(vornAgent) {
   kemRedundancyStatus_.notifierIs(redundancyStatus_);
   handleRedundancyStatus();
}

void EntityManagerReactor::handleRedundancyStatus() {
   if (!redundancyStatus_)
      return;
   bool const isHotStandby =
       redundancyStatus_->protocol() == Redundancy::RedundancyProtocol::protocolHotStandby;
   bool const isActive = redundancyStatus_->mode() == Redundancy::RedundancyMode::modeActive;
   vornAgent_->standbyModeIs(isHotStandby && !isActive);
}

} // namespace Vorn
