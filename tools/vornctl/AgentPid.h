// Whether an agent is there: asks the database who is connected.
#pragma once

#include <cstdint>
#include <string>

namespace Vornctl {

// The process of the agent of that name; 0 when none is connected. Raises Unreachable.
uint32_t agentPid(std::string const& socketPath, std::string const& agentName);

// The same from the database's answer, the JSON that `ordelctl clients --json` prints. Raises Unreachable for
// what can't be read.
uint32_t agentPidIn(std::string const& clientsJson, std::string const& agentName);

} // namespace Vornctl
