#include "Process/Failure.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace Process {

void say(std::string_view who, std::string_view text) {
   std::string line(who);
   line.append(": ").append(text);
   std::replace_if(
       line.begin(), line.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
   line += '\n';
   std::cout.flush();
   std::fflush(stdout);
   std::fwrite(line.data(), 1, line.size(), stderr);
}

void sayWithPid(std::string_view who, std::string_view text) {
   say(std::string(who) + '[' + std::to_string(getpid()) + ']', text);
}

int runTool(char const* program, Kem::FunctionRef<int()> command) {
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
