// Where the tables of a system are: <root>/<system name>/Plaze/<path>, such as
// "/dev/shm/ar/Plaze/bridging/status". Without the root it is the text that the agent
// publishes for other processes.
#pragma once

#include <string>
#include <string_view>

namespace Plaze {

// PLAZE_ROOT of the environment, or "/dev/shm".
std::string defaultRoot();

// The name of this host: the state database gives its system the same one.
std::string defaultSystemName();

// "/ar/Plaze/bridging/status".
std::string publishedPath(std::string_view systemName, std::string_view path);

// Why these can't name a table; empty where they can. A system name is one part of a path, a path
// is parts joined by "/". A part is not empty, doesn't begin with "." and doesn't end with "~"
// (which a table in the making has).
std::string whyNotSystemName(std::string_view systemName);
std::string whyNotPath(std::string_view path);

} // namespace Plaze
