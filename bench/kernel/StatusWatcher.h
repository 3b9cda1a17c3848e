// The subscriber of the benchmark of devices: a process of its own that mirrors the status records of VLAN
// interfaces and subinterfaces, and counts those that are up with a device and an address.
#pragma once

#include <string>
#include <sys/types.h>

namespace Bench {

class StatusWatcher {
  public:
   // Returns when the records are mounted. It says once when `wanted` interfaces are up.
   StatusWatcher(std::string const& socketPath, unsigned wanted);
   ~StatusWatcher();
   StatusWatcher(StatusWatcher const&) = delete;
   StatusWatcher& operator=(StatusWatcher const&) = delete;

   pid_t pid() const { return pid_; }
   // Until then; ends the program when that takes more than `limit` seconds.
   void waitFor(double limit = 600);

  private:
   class Mirror;
   static void run(std::string const& socketPath, unsigned wanted, int pipe);

   int pipe_ = -1;
   pid_t pid_ = -1;
};

} // namespace Bench
