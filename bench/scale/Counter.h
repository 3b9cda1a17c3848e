// The subscriber of the scale benchmark: a process of its own that mirrors "bridging" and counts what
// it sees.
//
// It reports through shared memory, and by a byte on a pipe when it has seen what it was asked to wait for.
// Times are those of the system's monotonic clock, which all processes share.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace Bench {

class Counter {
  public:
   explicit Counter(std::string const& socketPath);
   ~Counter();

   // Memberships that exist now, and changes of any kind seen since the start.
   int64_t memberships() const { return seen_->memberships; }
   int64_t vlan1Memberships() const { return seen_->vlan1Memberships; }
   uint64_t changes() const { return seen_->changes; }
   pid_t pid() const { return pid_; }

   // Sets how many memberships, in all VLANs or in VLAN 1, waitFor() waits for. Called before the change is
   // published.
   void expect(int64_t memberships) { seen_->target = memberships; }
   void expectInVlan1(int64_t memberships) { seen_->vlan1Target = memberships; }
   // The time at which they were seen. Ends the program when that takes more than `limit` seconds.
   double waitFor(double limit = 120);

  private:
   struct Seen {
      std::atomic<int64_t> memberships;
      std::atomic<uint64_t> changes;
      std::atomic<int64_t> vlan1Memberships;
      std::atomic<int64_t> target; // -1: nothing is waited for
      std::atomic<int64_t> vlan1Target;
      std::atomic<double> time;
   };
   struct Mirror;
   static void run(std::string const& socketPath, Seen& seen, int pipe);

   Seen* seen_;
   int pipe_ = -1;
   pid_t pid_ = -1;
};

} // namespace Bench
