#include "Ulm/CodefBase.h"

namespace Ulm {

CodefBase::CodefBase(Kem::Ptr<Kem::Clock const> clock) {
   kemClock_.notifierIs(std::move(clock));
}

void CodefBase::handleTime() {
   isPausedForRoom_ = false;
   Kem::Seconds const startTime = Kem::now();
   uint64_t const finishedCount = processBacklog(startTime);
   updatesProcessedInc(finishedCount);
   Kem::Seconds const endTime = Kem::now();
   timeUsedInc(endTime - startTime);
   dispatchCountInc(1);
   if (backlogSize() == 0)
      return;
   yieldBeforeFinishingCountInc(1);
   // Behind the stages that are armed meanwhile, which have 0 as their target.
   Kem::Seconds const pause = finishedCount == 0 ? roomPauseOfNothing : roomPause;
   kemClock_.timeMinIs(isPausedForRoom_ ? endTime + pause : endTime);
}

} // namespace Ulm
