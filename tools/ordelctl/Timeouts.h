// How long commands wait.
#pragma once

#include "Kem/Time.h"

namespace Ordelctl {

inline constexpr Kem::Seconds defaultTimeout = 10;
inline constexpr char timeoutText[] = "seconds, above 0 and up to 1000000";

inline bool isTimeout(Kem::Seconds seconds) {
   return seconds > 0 && seconds <= 1e6;
}

} // namespace Ordelctl
