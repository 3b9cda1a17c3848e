// What can be found out about the agent's process from outside, through /proc: the network namespace that it runs
// in, which is the default one of all its records, and the name of its fabric device. Both need the rights of its
// user; without them, and without an agent, vornctl's own are taken, and `remark` says so.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Vornctl {

class AgentProcess {
  public:
   // No agent: vornctl's own namespace and environment.
   AgentProcess();
   // `procFolder` is /proc, or another folder for tests.
   explicit AgentProcess(uint32_t pid, std::string const& procFolder = "/proc");

   // Has the calling thread in the agent's network namespace while it exists, where that is another one.
   class Visit {
     public:
      explicit Visit(AgentProcess const& agent);
      ~Visit();
      Visit(Visit const&) = delete;
      Visit& operator=(Visit const&) = delete;
      // errno; 0 when the thread is where it has to be.
      int error() const { return error_; }

     private:
      int back_ = -1; // the namespace to return to; -1 when it wasn't left
      int error_ = 0;
   };

   // Of the device that carries VLAN interfaces.
   std::string const& fabricDeviceName() const { return fabricDeviceName_; }
   std::string const& remark() const { return remark_; }

  private:
   std::shared_ptr<int const> otherNetNs_; // the agent's, where it is another one than vornctl's
   std::string fabricDeviceName_;
   std::string remark_;
};

} // namespace Vornctl
