// When a port that a cause disabled comes back by itself. One rule for the cause's state machine, which
// brings it back, and for the sum over all causes, which says when.
#pragma once

#include "Kem/Time.h"
#include "records/Errdisable/CauseGroup.h"

namespace ErrdisableLib {

// Shortest time that a port stays disabled, whatever is configured: a cause that finds the port faulty again
// at once must not make it go up and down without a pause.
inline constexpr Kem::Seconds minRecoveryInterval = 1.0;

// Seconds of Kem::now(); Kem::never when the port doesn't come back by itself, as without a group. An
// interval that is too short counts as the shortest one, and one that is no number as the default of 300 s.
Kem::Seconds recoveryTime(Kem::Seconds disabledAt, Errdisable::CauseGroup const* group);

} // namespace ErrdisableLib
