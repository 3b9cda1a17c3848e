// Who is connected to the database, as JSON: the answer to `clients`.
//
//    [{"name": "Vorn", "pid": 12, "uid": 0, "role": "agent",
//      "mounts": [{"path": "bridging/config", "type": "Bridging::Config", "mode": "wc"}],
//      "pendingBytes": 0, "pendingMarks": 0, "receivedBytes": 120, "receivedOperations": 7, "refusedWrites": 0,
//      "sentBytes": 3000}]
//
// The letters of a mode: r or w, then c creates, a awaits, s shallow. pendingMarks counts what the client
// will be sent when it has read what waits; receivedOperations those that took effect. The report has some 4 MiB
// at most: of a client with many mounts it shows the first ones, and "mountsLeftOut" says how many more there are.
#pragma once

#include <string>

namespace Ordel {

class Server;

std::string clientReport(Server const& server);

} // namespace Ordel
