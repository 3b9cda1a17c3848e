// The commands that ask the database itself: settle, clients, snapshot.
#pragma once

#include "Session.h"

#include <string>
#include <string_view>

namespace Ordelctl {

inline constexpr char defaultAgent[] = "Vorn";
inline constexpr char agentNameText[] = "an agent's name has 1 to 255 bytes";
bool isAgentName(std::string_view name);

// Raises TreeJson::Absent when the agent has not settled in time, or isn't there by then. "": all agents that
// are connected.
void settle(Session& session, std::string_view agent, Kem::Seconds timeout);
// The clients as JSON, as the database reports them (Ordel/ClientReport.h).
std::string clients(Session& session);
// The same as a table for people.
std::string clientTable(std::string const& json);
// Every mount, a line each, by client: mode, path, type.
std::string mountList(std::string const& json);
void snapshot(Session& session);

} // namespace Ordelctl
