// Tells a service manager that asks for it (NOTIFY_SOCKET, sd_notify(3)) what state the process is in.
#pragma once

namespace AgentBase {

// Such as "READY=1". Without effect when nobody asks, or the manager can't be reached.
void serviceNotify(char const* state);

} // namespace AgentBase
