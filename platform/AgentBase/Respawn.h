// Starts the agent's process again each time that it ends, as a service manager would.
//
// The pause before the next start grows from 0.1 to 10 seconds, and is short again after the process has run
// for 30. A start that the kernel refuses (no memory, too many processes) is tried again after the pause like
// one that failed. SIGTERM and SIGINT go to the process, and end this with it.
//
// To a service manager the two are one service: the process says that it is ready and feeds the watchdog, so
// that one that hangs stops feeding it. This feeds only in the pauses, and says when the service stops. A
// manager takes messages of both where it is told to (NotifyAccess=all).
#pragma once

#include <sys/types.h>
#include <unistd.h>

namespace AgentBase {

// Runs `child` in a process of its own until it is to end for good; returns the status to
// end with. `fork` is for tests.
int respawn(int (*child)(void*), void* context, pid_t (*fork)() = ::fork);

} // namespace AgentBase
