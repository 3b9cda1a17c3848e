#include "Vorn/BridgingSm/EthGroupSm.h"

namespace Vorn {

EthGroupSm::EthGroupSm(Kem::Ptr<Bridging::EthGroup const> const& ethGroupIn,
                       Kem::Ptr<Bridging::EthGroup> ethGroupOut)
    : ethGroupIn_(ethGroupIn), ethGroupOut_(std::move(ethGroupOut)) {
   kemEthGroupIn_.notifierIs(ethGroupIn_);
}

void EthGroupSm::ethGroupsAre(Kem::Ptr<Bridging::EthGroup const> const& ethGroupIn,
                              Kem::Ptr<Bridging::EthGroup> const& ethGroupOut) {
   if (ethGroupIn == ethGroupIn_ && ethGroupOut == ethGroupOut_)
      return;
   ethGroupIn_ = ethGroupIn;
   ethGroupOut_ = ethGroupOut;
   kemEthGroupIn_.notifierIs(ethGroupIn_);
   handleInitialized();
}

void EthGroupSm::handleInitialized() {
   initializedIs(true);
   for (auto const& [intfId, isMember] : ethGroupIn_->intf())
      handleIntf(intfId);
   for (auto const& [intfId, isMember] : ethGroupOut_->intf())
      handleIntf(intfId);
}

void EthGroupSm::handleIntf(Sulvi::IntfId intfId) {
   if (ethGroupIn_->intf(intfId))
      ethGroupOut_->intfIs(intfId, true);
   else
      ethGroupOut_->intfDel(intfId);
}

} // namespace Vorn
