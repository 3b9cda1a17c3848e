#include "KernelOperState/IntfStatusOperStatusSm.h"

#include "Kem/Activity.h"

#include <algorithm>

namespace KernelOperState {

IntfStatusOperStatusSm::IntfStatusOperStatusSm(Kem::Ptr<Kem::ActivityConfig> const&,
                                               Kem::Ptr<IntfStatusDir const> intfStatusDir,
                                               Kem::Ptr<IntfStatusLocalDir const> intfStatusLocalDir,
                                               Kem::Ptr<KernelOperStateManager> kosm,
                                               Kem::Ptr<KernelNetNsInfo::Root const> netNsCollection)
    : intfStatusDir_(std::move(intfStatusDir)), intfStatusLocalDir_(std::move(intfStatusLocalDir)),
      kosm_(std::move(kosm)), netNsCollection_(std::move(netNsCollection)) {
   kemIntfStatusDir_.notifierIs(intfStatusDir_);
   kemIntfStatusLocalDir_.notifierIs(intfStatusLocalDir_);
   kemNetNsCollection_.notifierIs(netNsCollection_);
   if (!intfStatusDir_ || !intfStatusLocalDir_)
      return;
   for (auto const& [intfId, status] : intfStatusDir_->intfStatus())
      handleIntfStatus(intfId);
   for (auto const& [intfId, local] : intfStatusLocalDir_->intfStatusLocal())
      handleIntfStatusLocal(intfId);
}

// --- Reactions.

void IntfStatusOperStatusSm::handleIntfStatus(Sulvi::IntfId intfId) {
   auto const status = intfStatusDir_->intfStatus(intfId);
   if (!status) {
      kemIntfStatus_.erase(intfId);
      told_.erase(intfId);
      return;
   }
   auto const reactor =
       *kemIntfStatus_.findOrInsert(intfId, [&] { return Kem::makePtr<KemIntfStatus>(*this); }).first;
   reactor->notifierIs(status);
}

void IntfStatusOperStatusSm::handleIntfStatusLocal(Sulvi::IntfId intfId) {
   auto const local = intfStatusLocalDir_->intfStatusLocal(intfId);
   if (!local) {
      kemIntfStatusLocal_.erase(intfId);
      told_.erase(intfId);
      return;
   }
   auto const reactor =
       *kemIntfStatusLocal_.findOrInsert(intfId, [&] { return Kem::makePtr<KemIntfStatusLocal>(*this); })
            .first;
   reactor->notifierIs(local);
}

void IntfStatusOperStatusSm::handleNetNs(Sulvi::NamespaceName const& netNs) {
   kosm_->netNsDel(netNs);
   if (!netNsCollection_->netNsByName(netNs) || !intfStatusLocalDir_)
      return;
   // A new namespace with that name, so nothing that was sent to the previous one counts.
   for (auto const& [intfId, local] : intfStatusLocalDir_->intfStatusLocal())
      if (local->netNsName() == netNs)
         doSyncIntfStatus(intfId);
}

void IntfStatusOperStatusSm::handleChange(Sulvi::IntfId intfId) {
   Told now;
   if (!wanted(intfId, now)) {
      told_.erase(intfId);
      return;
   }
   auto const* const before = told_.find(intfId);
   if (!before || !(*before == now))
      tell(intfId, now);
}

int IntfStatusOperStatusSm::doSyncIntfStatus(Sulvi::IntfId intfId,
                                             std::optional<Interface::IntfOperStatus> fresh) {
   Told now;
   if (!wanted(intfId, now))
      return 0;
   if (!fresh || kernelOperState(*fresh) != kernelOperState(now.operStatus))
      return tell(intfId, now);
   isTold(intfId, now);
   return 0;
}

// Whatever was in the way may have passed without a notification.
void IntfStatusOperStatusSm::handleRetry() {
   auto const pause = std::min(2 * retryPause_, lastRetry);
   auto const again = std::move(refused_);
   for (auto const& [intfId, isRefused] : again)
      static_cast<void>(doSyncIntfStatus(intfId));
   if (refused_.empty())
      return;
   retryPause_ = pause;
   kemClock_.timeMinIs(Kem::now() + retryPause_);
}

// --- Helpers.

bool IntfStatusOperStatusSm::wanted(Sulvi::IntfId intfId, Told& told) const {
   if (!intfStatusDir_ || !intfStatusLocalDir_)
      return false;
   auto const status = intfStatusDir_->intfStatus(intfId);
   auto const local = intfStatusLocalDir_->intfStatusLocal(intfId);
   if (!status || !local || status->deviceName().empty())
      return false;
   told = {status->deviceName(), local->netNsName(), status->operStatus()};
   return true;
}

int IntfStatusOperStatusSm::tell(Sulvi::IntfId intfId, Told const& told) {
   int const error = kosm_->doSetOperState(told.deviceName, told.operStatus, told.netNsName);
   if (error == 0) {
      isTold(intfId, told);
      return 0;
   }
   told_.erase(intfId);
   refused_.findOrInsert(intfId, [] { return true; });
   if (kemClock_.timeMin() == Kem::never) {
      retryPause_ = firstRetry;
      kemClock_.timeMinIs(Kem::now() + retryPause_);
   }
   return error;
}

void IntfStatusOperStatusSm::isTold(Sulvi::IntfId intfId, Told const& told) {
   *told_.findOrInsert(intfId, [] { return Told(); }).first = told;
   refused_.erase(intfId);
}

} // namespace KernelOperState
