// Where a trace file is, and how many old ones are kept.
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

namespace Zivlog {

// The file for `fileName`, with each "%d" in it replaced by `pid`. A name with a '/' is taken as it is.
// Another one goes to the directory `zivlogDir` (the value of ZIVLOGDIR; null or empty for none), else to
// `logDir` if that can be written, else to the working directory.
std::string tracePath(std::string_view fileName, pid_t pid, char const* zivlogDir, std::string const& logDir);

// Removes what earlier processes left under the same name with other process ids, so that an agent that is
// started over and over can't fill the disk. `pattern` is a path with one "%d"; any other is left alone. The
// newest `kept` files stay, as do files that are no trace files, and files that a living process writes.
void removeOldTraces(std::string const& pattern, size_t kept);

} // namespace Zivlog
