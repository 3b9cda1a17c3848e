// The commands that ask the database itself: settle, clients, snapshot.
#pragma once

#include "Session.h"

#include <string>

namespace Ordelctl {

// Raises TreeJson::Absent when the agents have not settled in time.
void settle(Session& session, Kem::Seconds timeout);
// The clients as JSON, as the database tells them (Ordel/ClientReport.h).
std::string clients(Session& session);
// The same as a table for people.
std::string clientTable(std::string const& json);
// Every mount, a line each, by client: mode, path, type.
std::string mountList(std::string const& json);
void snapshot(Session& session);

} // namespace Ordelctl
