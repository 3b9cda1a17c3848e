// A bare relay between two sockets: what arrives on the first connection goes out unchanged on the second. It
// is the yardstick for the database on a shared machine: the same frames and the same hops, without any work
// on the frames.
#pragma once

#include <string>
#include <sys/types.h>

namespace Bench {

// Starts the relay in a process of its own, listening at the path; returns its pid. The first to connect is
// the writer.
pid_t startRelay(std::string const& socketPath);

// Starts `program --socket socketPath` and returns once it accepts connections.
pid_t startDatabase(std::string const& program, std::string const& socketPath);

void stop(pid_t pid);

// A connected stream socket; ends the program with a message when nobody listens.
int connectTo(std::string const& socketPath);

} // namespace Bench
