// Tells a service manager that asks for it (NOTIFY_SOCKET, sd_notify(3)) what state the process is in.
#pragma once

namespace Process {

// Such as "READY=1". Without effect when nobody asks; where the manager can't be reached, a line on standard
// error says why, and the process goes on.
void serviceNotify(char const* state);
// The same without waiting for a manager that has no room for the message, which is dropped then.
void serviceNotifyIfRoom(char const* state);

} // namespace Process
