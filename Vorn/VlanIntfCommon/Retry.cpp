// Evaluations that failed: the first retry comes firstRetry after the failure, then a pass each retryGap, each in
// slices of retrySlice, without a bound on their number.
#include "Kem/Trace.h"
#include "Vorn/VlanIntfCommon/VlanIntfCommon.h"

namespace Vorn {

namespace {
Kem::TraceFacility retryTrace("VornRetry");
}

void VlanIntfCommon::addIntfToRetryCollection(Sulvi::IntfId intfId, Kem::String8 const& deviceName) {
   memberIs(retryIntfCollection_, intfId, true);
   kemClock_.timeMinIs(Kem::now() + firstRetry);
   KEM_TRACE(retryTrace, 3, "VlanIntfCommon: " << deviceName << ": Scheduled retry for " << intfId);
}

void VlanIntfCommon::handleClock() {
   kemClock_.timeMinIs(Kem::never);
   doRetryEvaluateIntfConfiguration();
}

void VlanIntfCommon::doRetryEvaluateIntfConfiguration() {
   Kem::Seconds const deadline = Kem::now() + retrySlice;
   auto const again = std::move(sweepAgain_);
   sweepAgain_.clear();
   for (auto const& ns : again) {
      if (!ns.isDefault() && !in_.netNsCollection->netNsByName(ns))
         continue; // it has gone
      if (nsSocketFd(ns) != 0)
         doRemoveUnneededVlanNetworkDevices(nsSocketFd(ns), ns);
      else
         sweepUnusedNs(ns);
   }
   bool isPaused = false;
   for (auto at = retryBookmark_ == Sulvi::IntfId() ? retryIntfCollection_.begin()
                                                    : retryIntfCollection_.from(retryBookmark_);
        at; at.next()) {
      auto const intfId = at.key();
      if (Kem::now() > deadline) {
         KEM_TRACE(retryTrace, 5, "Pausing retry processing at " << intfId);
         retryBookmark_ = intfId;
         isPaused = true;
         break;
      }
      KEM_TRACE(retryTrace, 5, "Retrying doEvaluateInterfaceConfiguration() for " << intfId);
      if (retryNeeded(intfId))
         KEM_TRACE(retryTrace, 5, "VlanIntfCommon: retry processing failed for " << intfId);
      else
         memberIs(retryIntfCollection_, intfId, false);
   }
   if (!isPaused) {
      KEM_TRACE(retryTrace, 5, "retry processing finished");
      retryBookmark_ = Sulvi::IntfId();
   }
   if (!retryIntfCollection_.empty() || !sweepAgain_.empty())
      kemClock_.timeMinIs(Kem::now() + retryGap);
}

} // namespace Vorn
