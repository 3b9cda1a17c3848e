#include "Process/Failure.h"

#include "Kem/Printable.h"
#include "Kem/StandardStreams.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace Process {

void say(std::string_view who, std::string_view text) {
   std::string line(who);
   line.append(": ").append(text);
   line = Kem::printable(line);
   line += '\n';
   std::cout.flush();
   std::fflush(stdout);
   std::fwrite(line.data(), 1, line.size(), stderr);
}

void sayWithPid(std::string_view who, std::string_view text) {
   say(std::string(who) + '[' + std::to_string(getpid()) + ']', text);
}

int runTool(char const* program, Kem::FunctionRef<int()> command) {
   if (!Kem::openStandardStreams())
      return exitUsage;
   // Also where it was started with the signal ignored.
   std::signal(SIGPIPE, SIG_DFL);
   try {
      return command();
   } catch (Failure const& failure) {
      say(program, failure.what());
      return failure.exitStatus();
   }
}

} // namespace Process
