#include "Ordel/server/Settling.h"

#include "Kem/Activity.h"
#include "Ordel/server/Server.h"

#include <algorithm>
#include <string>

namespace Ordel {

void Settling::begin(ServerClient& client, uint32_t request, uint32_t milliseconds) {
   Question& question = questions_.emplace_back(*this, client, request);
   if (milliseconds > 0) {
      question.notifierIs(Kem::ActivityFacility::clock());
      question.timeMinIs(Kem::now() + milliseconds / 1000.0);
   }
   beginRound(question);
}

void Settling::beginRound(Question& question) {
   question.probe = ++lastProbe_;
   question.blockCount = server_.blockCount();
   question.waiting.clear();
   for (auto const& client : server_.clients())
      if (client->isWelcome() && !client->isRefused() && client->role() == Role::agent) {
         question.waiting.push_back(client.get());
         client->probe(question.probe);
      }
   endRoundIfAnswered(question);
}

void Settling::endRoundIfAnswered(Question& question) {
   if (!question.waiting.empty())
      return;
   bool const hasAgents =
       std::any_of(server_.clients().begin(), server_.clients().end(), [](auto const& client) {
          return client->isWelcome() && !client->isRefused() && client->role() == Role::agent;
       });
   if (hasAgents && server_.blockCount() != question.blockCount) {
      beginRound(question);
      return;
   }
   question.client.reply(question.request, Status::done, "");
   remove(question);
}

void Settling::settled(ServerClient const& client, uint32_t probe) {
   auto const at = std::find_if(questions_.begin(), questions_.end(),
                                [&](Question const& question) { return question.probe == probe; });
   if (at == questions_.end())
      return; // answered by then
   if (std::erase(at->waiting, &client) > 0)
      endRoundIfAnswered(*at);
}

void Settling::clientGone(ServerClient const& client) {
   questions_.remove_if([&](Question const& question) { return &question.client == &client; });
   for (auto at = questions_.begin(); at != questions_.end();) {
      Question& question = *at++; // it may be removed
      if (std::erase(question.waiting, &client) > 0)
         endRoundIfAnswered(question);
   }
}

void Settling::timeOut(Question& question) {
   std::string names;
   for (ServerClient const* const client : question.waiting)
      names += (names.empty() ? "" : ", ") + client->label();
   question.client.reply(question.request, Status::absent, "not settled: " + names);
   remove(question);
}

void Settling::remove(Question& question) {
   questions_.remove_if([&](Question const& other) { return &other == &question; });
}

} // namespace Ordel
