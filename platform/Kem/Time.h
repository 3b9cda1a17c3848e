// The clock that everything reads: seconds of a monotonic clock, as a double.
//
// A test takes the clock over with VirtualTime; from then on it stops until the test moves it.
#pragma once

#include <limits>

namespace Kem {

// A count of seconds.
using Seconds = double;

// A target that is never reached; stops a timer.
inline constexpr Seconds never = std::numeric_limits<double>::infinity();

// CLOCK_MONOTONIC, or the virtual time.
Seconds now();

// While one exists, now() gives its time. Only one at a time.
class VirtualTime {
  public:
   explicit VirtualTime(Seconds start = 1000.0);
   ~VirtualTime();
   VirtualTime(VirtualTime const&) = delete;
   VirtualTime& operator=(VirtualTime const&) = delete;

   // Moves the clock and does nothing else; ActivityManager::advanceTo also runs what falls
   // due on the way. Never backwards.
   static void advanceTo(Seconds time);
};

bool isTimeVirtual();

} // namespace Kem
