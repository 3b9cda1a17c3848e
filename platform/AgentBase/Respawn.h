// Starts the agent's process again each time that it ends, as a service manager would.
//
// The pause before the next start grows from 0.1 to 10 seconds, and is short again after the process has run
// for 30. SIGTERM and SIGINT go to the process, and end this with it.
#pragma once

namespace AgentBase {

// Runs `child` in a process of its own until it is to end for good; returns the status to end with.
int respawn(int (*child)(void*), void* context);

} // namespace AgentBase
