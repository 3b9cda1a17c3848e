// Answers the question whether everything has been worked off.
//
// A round asks every agent with a probe that goes out behind all that was published before. An agent answers
// once it has taken that in and has sent all that follows from it. When all have answered and nothing has
// been written since the round began, things have settled; else there is another round.
//
// There is one round at a time: questions that come meanwhile wait for the next one. So an agent that doesn't
// answer has one probe to answer, however many ask. A round goes on when nobody waits for it any more.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"

#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Ordel {

class Server;
class ServerClient;

class Settling {
  public:
   explicit Settling(Server& server) : server_(server) {}

   // The client gets its reply now or later: done, absent with the names of the agents that have not settled
   // in time, or refused when it has maxQuestionsPerClient open already.
   void begin(ServerClient& client, uint32_t request, uint32_t milliseconds); // 0: no limit
   void settled(ServerClient const& client, uint32_t probe);
   // The client has gone: it is neither waited for nor answered. Takes no longer the more others ask.
   void clientGone(ServerClient const& client);

  private:
   struct Question final : Kem::Clock::NotifieeConst {
      Question(Settling& owner, ServerClient& asking, uint32_t asRequest)
          : settling(owner), client(asking), request(asRequest) {}
      void onTime() override { settling.timeOut(*this); }

      Settling& settling;
      ServerClient& client;
      uint32_t const request;
      bool isInRound = false; // else it waits for the next one
   };

   bool isRoundOpen() const { return !waiting_.empty(); }
   std::vector<ServerClient*> agents() const;
   void beginRound();
   void endRoundIfAnswered();
   void answerRound();
   void timeOut(Question& question);

   Server& server_;
   std::unordered_map<ServerClient const*, std::list<Question>> questions_; // by the client that asks
   // Of the round that is open.
   std::unordered_set<ServerClient const*> waiting_; // agents that have not answered
   uint64_t blockCount_ = 0;                         // when it began
   uint32_t probe_ = 0;                              // of the last round
};

} // namespace Ordel
