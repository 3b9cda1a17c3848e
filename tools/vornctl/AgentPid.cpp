#include "AgentPid.h"

#include "Failures.h"

#include "Kem/Time.h"
#include "Ordel/client/Connection.h"

#include <nlohmann/json.hpp>

namespace Vornctl {

namespace {

constexpr Kem::Seconds answerTimeout = 5;

class Asker final : private Ordel::Connection {
  public:
   explicit Asker(std::string const& socketPath)
       : Connection(Records::schema(), "vornctl", Ordel::Role::tool), socketPath_(socketPath) {
      std::string error;
      if (!connectAndWait(socketPath, answerTimeout, error))
         throw Unreachable(error);
   }
   std::string clients() {
      Connection::clients(1);
      Kem::Seconds const deadline = Kem::now() + answerTimeout;
      while (!isReplied_) {
         Kem::Seconds const left = deadline - Kem::now();
         if (!isConnected() || left <= 0)
            throw Unreachable(socketPath_ + ": " +
                              (failure_.empty() ? "the database doesn't answer" : failure_));
         Connection::wait(left);
      }
      return reply_;
   }

  private:
   void onReply(uint32_t, Ordel::Status, std::string_view text) override {
      reply_ = text;
      isReplied_ = true;
   }
   void onClosed(std::string_view reason) override { failure_ = reason; }

   std::string const socketPath_;
   std::string reply_;
   std::string failure_;
   bool isReplied_ = false;
};

} // namespace

uint32_t agentPid(std::string const& socketPath, std::string const& agentName) {
   return agentPidIn(Asker(socketPath).clients(), agentName);
}

uint32_t agentPidIn(std::string const& clientsJson, std::string const& agentName) {
   try {
      for (nlohmann::json const& client : nlohmann::json::parse(clientsJson))
         if (client.at("role") == "agent" && client.at("name") == agentName)
            return client.at("pid").get<uint32_t>();
   } catch (nlohmann::json::exception const& error) {
      throw Unreachable(std::string("the database's answer can't be read: ") + error.what());
   }
   return 0;
}

} // namespace Vornctl
