#include "ErrdisableLib/RecoveryTime.h"

#include <algorithm>
#include <cmath>

namespace ErrdisableLib {

namespace {
constexpr Kem::Seconds defaultRecoveryInterval = 300;
}

Kem::Seconds recoveryTime(Kem::Seconds disabledAt, Errdisable::CauseGroup const* group) {
   if (!group || !group->recoveryEnabled())
      return Kem::never;
   Kem::Seconds const interval =
       std::isnan(group->recoveryInterval()) ? defaultRecoveryInterval : group->recoveryInterval();
   return disabledAt + std::max(interval, minRecoveryInterval);
}

} // namespace ErrdisableLib
