// The mounts of the bridging agent, in the order in which they are asked for. The agent waits for all of them
// as one group.
#pragma once

#include "Ordel/client/Mount.h"

#include <string>
#include <vector>

namespace Vorn {

// `cellPath` is the path of the supervisor's directory, such as "cell/1".
std::vector<Ordel::Mount> agentMounts(std::string const& cellPath);

} // namespace Vorn
