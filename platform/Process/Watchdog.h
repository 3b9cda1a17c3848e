// The service manager's watchdog (WATCHDOG_USEC, sd_watchdog_enabled(3)): the manager ends a process that
// doesn't feed it in time.
//
// It is fed from the event loop, at once and then twice in each interval. So a loop that makes turns feeds
// it, however much it has to do, and one that waits in a call that doesn't return stops. A meal that the
// manager has no room for is dropped, since to wait for room would be such a call.
#pragma once

#include "Kem/Clock.h"

namespace Process {

// Within which the manager wants to hear of this process; 0 when it doesn't ask for that, or asks another process
// (WATCHDOG_PID).
Kem::Seconds watchdogInterval();

// For a child that works in its parent's place: the manager is fed by it when it would be by its parent.
void inheritWatchdog();

// WATCHDOG=1, without effect when nobody asks.
void feedWatchdog();

class Watchdog final : private Kem::Clock::NotifieeConst {
  public:
   // Feeds while it exists, where the manager asks for it.
   Watchdog();

  private:
   void onTime() override;

   Kem::Seconds const interval_;
};

} // namespace Process
