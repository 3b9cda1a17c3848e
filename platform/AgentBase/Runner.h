// Brings one agent up on the state database and keeps it running.
//
//    connecting ──► base mounts (redundancy status, without which it ends; agent configuration and status)
//         ──► doPreInit, doInit ──► doMountsComplete
//         ──► settled: the held log is released, "ready" ──► running ──SIGTERM, lost connection──► end
//
// Knows nothing of bridging: the agent comes from a module, by its factory.
#pragma once

#include "AgentBase/CAgent.h"
#include "AgentBase/ExitStatus.h"
#include "records/Agent/AgentConfig.h"

#include <memory>
#include <string>

namespace AgentBase {

struct RunnerOptions {
   std::string socketPath;
   std::string module; // file of the module
   std::string name = "Vorn";
   uint32_t cell = 1;
   bool isRespawning = false;

   // What the database knows the agent by: the supervisors' agents have one name, and connections each
   // their own.
   std::string clientName() const { return cell == 1 ? name : name + '@' + std::to_string(cell); }
};

class Runner {
  public:
   explicit Runner(RunnerOptions options);
   ~Runner();

   // Returns when the agent has ended, with the status that the process should end with. What went wrong has
   // been reported on standard error.
   int run();

  private:
   class BaseMounter;
   class ConnectTimer;
   class Ready;
   struct KemAgentConfig;

   int load();
   void connect();
   void connectLater(std::string const& reason);
   void handleClosed(std::string const& reason);
   bool hasAnswered() const; // the database, on the connection there is
   void mountCell();
   void handleCellMounted();
   void handleBaseMounted();
   void handleGroupComplete(Ordel::MountGroup const& group);
   void end(int status, std::string const& reason);

   RunnerOptions const options_;
   Kem::Ptr<CAgent> agent_;
   Kem::Ptr<Ordel::EntityManager> entityManager_;
   Kem::Ptr<BaseMounter> cellMounter_;
   Kem::Ptr<BaseMounter> baseMounter_;
   std::unique_ptr<KemAgentConfig> kemAgentConfig_;
   std::unique_ptr<ConnectTimer> connectTimer_;
   Kem::Seconds giveUpConnecting_ = 0;
   bool isWaitTold_ = false;
   std::unique_ptr<Ready> ready_;
   int status_ = ExitStatus::stopped;
};

} // namespace AgentBase
