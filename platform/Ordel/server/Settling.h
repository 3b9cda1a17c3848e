// Answers the question whether everything has been worked off: by one agent, or by all that are connected.
//
// A round asks its agents with a probe that goes out behind all that was published before. An agent answers
// once it has taken that in and has sent all that follows from it. When all have answered, things have settled,
// unless something has happened meanwhile that they may have to act on: a write of anybody where all are asked,
// a write of its own or a refusal of one where it is one agent. Then there is another round.
//
// There is one round at a time for each agent that is asked for by name, and one for all: questions that come
// meanwhile wait for the next one. So an agent that doesn't answer has two probes to answer, however many ask.
// A round goes on when nobody waits for it any more. A question for an agent that isn't connected begins no
// round; it waits until the agent comes.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
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
   // in time, or refused when it has maxQuestionsPerClient open already. `agent` "" is all that are connected,
   // also when none is. `milliseconds` 0 is no limit.
   void begin(ServerClient& client, uint32_t request, uint32_t milliseconds, std::string_view agent);
   void settled(ServerClient const& client, uint32_t probe);
   // An agent has said hello and can be asked.
   void agentCame(ServerClient const& agent);
   // The client has gone: it is neither waited for nor answered. Takes no longer the more others ask.
   void clientGone(ServerClient const& client);

  private:
   struct Subject;
   struct Question final : Kem::Clock::NotifieeConst {
      Question(Settling& owner, Subject& ofSubject, ServerClient& asking, uint64_t asNumber,
               uint32_t asRequest)
          : settling(owner), subject(ofSubject), client(asking), number(asNumber), request(asRequest) {}
      void onTime() override { settling.timeOut(*this); }

      Settling& settling;
      Subject& subject;
      ServerClient& client;
      uint64_t const number; // among all questions
      uint32_t const request;
      bool isInRound = false; // else it waits for the next one
   };
   // Whom questions are about, and the round that is open.
   struct Subject {
      std::string agent;                               // "" for all that are connected
      std::map<uint64_t, Question> questions;          // in the order in which they came
      std::unordered_set<ServerClient const*> waiting; // agents that have not answered
      uint64_t progress = 0;                           // when the round began
      uint32_t probe = 0;                              // of the last round
      bool isForAll() const { return agent.empty(); }
      bool isRoundOpen() const { return !waiting.empty(); }
   };

   std::vector<ServerClient*> agentsOf(Subject const& subject) const;
   uint64_t progressOf(Subject const& subject) const;
   void beginRound(Subject& subject);
   void endRoundIfAnswered(Subject& subject);
   void answerRound(Subject& subject);
   void answered(std::string const& subject, ServerClient const& agent, uint32_t probe);
   void agentGone(std::string const& subject, ServerClient const& agent);
   void timeOut(Question& question);
   void questionDel(Question& question);
   void subjectDelIfIdle(Subject& subject);

   Server& server_;
   std::unordered_map<std::string, Subject> subjects_; // by `agent`; those with a question or an open round
   // By the client that asks, and by the question's number.
   std::unordered_map<ServerClient const*, std::map<uint64_t, Subject*>> ofClient_;
   uint64_t lastQuestion_ = 0;
   uint32_t lastProbe_ = 0;
};

} // namespace Ordel
