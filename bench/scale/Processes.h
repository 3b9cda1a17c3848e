// The processes of the benchmarks at scale, and what they use.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace Bench {

// An agent on the database that listens at `socketPath`, made of the programs in `binFolder`. The constructor
// returns when it is ready, and ends the program with a message when it doesn't get so far.
class AgentProcess {
  public:
   enum class Network {
      own, // without devices, where the user may
      ours,
   };
   AgentProcess(std::string const& binFolder, std::string const& socketPath, bool hasTraceFile,
                Network network = Network::own);
   ~AgentProcess();
   AgentProcess(AgentProcess const&) = delete;
   AgentProcess& operator=(AgentProcess const&) = delete;

   static std::string traceFolder(std::string const& socketPath) { return socketPath + ".trace"; }
   void end(int signal);              // and waits for it
   pid_t pid() const { return pid_; } // -1 when it has ended

  private:
   pid_t pid_ = -1;
   int errors_ = -1;
};

// Returns when the agent has worked off what was published.
void settle(std::string const& binFolder, std::string const& socketPath);

// `what` is a line of /proc/PID/status (proc(5)): "VmRSS" now, "VmHWM" at its peak. 0 when there is no such line.
size_t residentMegabytes(pid_t pid, char const* what);

// What the process has used of the processors, in seconds, by the scheduler's count.
double processorTime(pid_t pid);

double medianOf(std::vector<double> values); // there must be one

} // namespace Bench
