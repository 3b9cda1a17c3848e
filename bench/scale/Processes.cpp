#include "Processes.h"

#include "tests/network/OwnNetwork.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

AgentProcess::AgentProcess(std::string const& binFolder, std::string const& socketPath, bool hasTraceFile,
                           Network network) {
   int ends[2];
   if (pipe2(ends, O_CLOEXEC) != 0)
      std::exit(1);
   if (hasTraceFile)
      std::filesystem::create_directory(traceFolder(socketPath));
   pid_ = fork();
   if (pid_ == 0) {
      if (network == Network::own)
         static_cast<void>(Tests::enterOwnNetwork());
      dup2(ends[1], 2);
      if (hasTraceFile)
         setenv("ZIVLOGDIR", traceFolder(socketPath).c_str(), 1);
      else
         setenv("ZIVLOG_DISABLE", "1", 1);
      std::string const program = binFolder + "/agent-runner";
      execl(program.c_str(), program.c_str(), "--socket", socketPath.c_str(), nullptr);
      _exit(127);
   }
   close(ends[1]);
   errors_ = ends[0];
   std::string text;
   char piece[512];
   for (ssize_t got; text.find("is ready") == text.npos && (got = read(errors_, piece, sizeof piece)) > 0;)
      text.append(piece, static_cast<size_t>(got));
   if (text.find("is ready") == text.npos) {
      std::fprintf(stderr, "the agent did not start:\n%s", text.c_str());
      std::exit(1);
   }
}

AgentProcess::~AgentProcess() {
   end(SIGTERM);
}

void AgentProcess::end(int signal) {
   if (pid_ < 0)
      return;
   kill(pid_, signal);
   waitpid(pid_, nullptr, 0);
   close(errors_);
   pid_ = -1;
}

void settle(std::string const& binFolder, std::string const& socketPath) {
   std::string const command = binFolder + "/ordelctl --socket " + socketPath + " settle --timeout 120";
   if (std::system(command.c_str()) != 0)
      std::exit(1);
}

size_t residentMegabytes(pid_t pid, char const* what) {
   std::ifstream status("/proc/" + std::to_string(pid) + "/status");
   for (std::string line; std::getline(status, line);)
      if (line.rfind(std::string(what) + ":", 0) == 0)
         return std::stoul(line.substr(std::strlen(what) + 1)) / 1024;
   return 0;
}

double processorTime(pid_t pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/schedstat");
   double nanoseconds = 0;
   file >> nanoseconds;
   return nanoseconds * 1e-9;
}

double medianOf(std::vector<double> values) {
   std::sort(values.begin(), values.end());
   return values[values.size() / 2];
}

} // namespace Bench
