// With what status the agent's process ends, and why. `agent-runner --help` lists the same.
#pragma once

namespace AgentBase::ExitStatus {

inline constexpr int stopped = 0;     // SIGTERM or SIGINT; also an agent that asks to be started again
inline constexpr int agentFailed = 1; // the agent gave up on a failure that it names
inline constexpr int usage = 2;
inline constexpr int noModule = 3;   // the module can't be loaded, or has no factory
inline constexpr int noDatabase = 4; // it can't be reached, refused the connection, or lacks the agent's cell
inline constexpr int lostDatabase = 5; // the connection ended while the agent ran
inline constexpr int exception = 6;    // an exception reached no catcher
// A failed assertion ends the process by SIGABRT, which a shell shows as 134.

} // namespace AgentBase::ExitStatus
