// Answers the question whether everything has been worked off.
//
// A round asks every agent with a probe that goes out behind all that was published before. An agent answers
// once it has taken that in and has sent all that follows from it. When all have answered and nothing has
// been written since the round began, things have settled; else there is another round.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"

#include <cstdint>
#include <list>
#include <vector>

namespace Ordel {

class Server;
class ServerClient;

class Settling {
  public:
   explicit Settling(Server& server) : server_(server) {}

   // The client gets its reply now or later: done, or absent with those that have not settled in time.
   void begin(ServerClient& client, uint32_t request, uint32_t milliseconds); // 0: no limit
   void settled(ServerClient const& client, uint32_t probe);
   // The client has gone: it is neither waited for nor answered.
   void clientGone(ServerClient const& client);

  private:
   struct Question final : Kem::Clock::NotifieeConst {
      Question(Settling& owner, ServerClient& asking, uint32_t asRequest)
          : settling(owner), client(asking), request(asRequest) {}
      void onTime() override { settling.timeOut(*this); }

      Settling& settling;
      ServerClient& client;
      uint32_t const request;
      uint32_t probe = 0;                       // of this round
      uint64_t blockCount = 0;                  // when it began
      std::vector<ServerClient const*> waiting; // for their answers
   };

   void beginRound(Question& question);
   void endRoundIfAnswered(Question& question);
   void timeOut(Question& question);
   void remove(Question& question);

   Server& server_;
   std::list<Question> questions_;
   uint32_t lastProbe_ = 0;
};

} // namespace Ordel
