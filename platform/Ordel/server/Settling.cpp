#include "Ordel/server/Settling.h"

#include "Kem/Activity.h"
#include "Ordel/server/Server.h"

#include <algorithm>

namespace Ordel {

void Settling::begin(ServerClient& client, uint32_t request, uint32_t milliseconds) {
   std::list<Question>& ofClient = questions_[&client];
   if (ofClient.size() >= maxQuestionsPerClient) {
      client.reply(request, Status::refused,
                   "more than " + std::to_string(maxQuestionsPerClient) + " open questions");
      return;
   }
   Question& question = ofClient.emplace_back(*this, client, request);
   if (milliseconds > 0) {
      question.notifierIs(Kem::ActivityFacility::clock());
      question.timeMinIs(Kem::now() + milliseconds / 1000.0);
   }
   if (!isRoundOpen())
      beginRound();
}

std::vector<ServerClient*> Settling::agents() const {
   std::vector<ServerClient*> agents;
   for (auto const& client : server_.clients())
      if (client->isWelcome() && !client->isRefused() && client->role() == Role::agent)
         agents.push_back(client.get());
   return agents;
}

void Settling::beginRound() {
   ++probe_;
   blockCount_ = server_.blockCount();
   for (auto& [client, ofClient] : questions_)
      for (Question& question : ofClient)
         question.isInRound = true;
   for (ServerClient* const agent : agents()) {
      waiting_.insert(agent);
      agent->probe(probe_);
   }
   endRoundIfAnswered();
}

void Settling::endRoundIfAnswered() {
   if (isRoundOpen())
      return;
   if (server_.blockCount() == blockCount_ || agents().empty())
      answerRound();
   if (!questions_.empty())
      beginRound();
}

void Settling::answerRound() {
   for (auto& [client, ofClient] : questions_)
      ofClient.remove_if([](Question& question) {
         if (question.isInRound)
            question.client.reply(question.request, Status::done, "");
         return question.isInRound;
      });
   std::erase_if(questions_, [](auto const& item) { return item.second.empty(); });
}

void Settling::settled(ServerClient const& client, uint32_t probe) {
   if (probe == probe_ && waiting_.erase(&client) > 0)
      endRoundIfAnswered();
}

void Settling::clientGone(ServerClient const& client) {
   questions_.erase(&client);
   if (waiting_.erase(&client) > 0)
      endRoundIfAnswered();
}

void Settling::timeOut(Question& question) {
   std::vector<std::string> labels;
   for (ServerClient const* const agent : waiting_)
      labels.push_back(agent->label());
   std::sort(labels.begin(), labels.end());
   std::string names;
   for (std::string const& label : labels)
      names += (names.empty() ? "" : ", ") + label;
   question.client.reply(question.request, Status::absent, "not settled: " + names);
   auto const at = questions_.find(&question.client);
   at->second.remove_if([&](Question const& other) { return &other == &question; });
   if (at->second.empty())
      questions_.erase(at);
}

} // namespace Ordel
