#include "Ordel/server/Settling.h"

#include "Kem/Activity.h"
#include "Kem/Printable.h"
#include "Ordel/server/Server.h"

#include <algorithm>
#include <utility>

namespace Ordel {

namespace {

std::string const allAgents;

bool isAgent(ServerClient const& client) {
   return client.isWelcome() && !client.isRefused() && client.role() == Role::agent;
}

} // namespace

// --- Questions

void Settling::begin(ServerClient& client, uint32_t request, uint32_t milliseconds, std::string_view agent) {
   if (agent.size() > maxNameBytes) {
      client.reply(request, Status::refused,
                   "an agent's name has at most " + std::to_string(maxNameBytes) + " bytes");
      return;
   }
   auto& ofClient = ofClient_[&client];
   if (ofClient.size() >= maxQuestionsPerClient) {
      client.reply(request, Status::refused,
                   "more than " + std::to_string(maxQuestionsPerClient) + " open questions");
      return;
   }
   Subject& subject = subjects_.try_emplace(std::string(agent)).first->second;
   subject.agent = agent;
   uint64_t const number = ++lastQuestion_;
   Question& question =
       subject.questions.try_emplace(number, *this, subject, client, number, request).first->second;
   ofClient.emplace(number, &subject);
   if (milliseconds > 0) {
      question.notifierIs(Kem::ActivityFacility::clock());
      question.timeMinIs(Kem::now() + milliseconds / 1000.0);
   }
   if (!subject.isRoundOpen())
      beginRound(subject);
}

void Settling::timeOut(Question& question) {
   Subject& subject = question.subject;
   std::vector<std::string> labels;
   for (ServerClient const* const agent : subject.waiting)
      labels.push_back(agent->label());
   std::sort(labels.begin(), labels.end());
   std::string names;
   for (std::string const& label : labels)
      names += (names.empty() ? "" : ", ") + label;
   if (labels.empty()) // only one agent that is asked for by name can be missing
      names = Kem::printable(subject.agent) + " is not connected";
   question.client.reply(question.request, Status::absent, "not settled: " + names);
   questionDel(question);
   subjectDelIfIdle(subject);
}

void Settling::questionDel(Question& question) {
   auto const at = ofClient_.find(&question.client);
   at->second.erase(question.number);
   if (at->second.empty())
      ofClient_.erase(at);
   question.subject.questions.erase(question.number);
}

void Settling::subjectDelIfIdle(Subject& subject) {
   if (subject.questions.empty() && !subject.isRoundOpen())
      subjects_.erase(subjects_.find(subject.agent));
}

// --- Rounds

std::vector<ServerClient*> Settling::agentsOf(Subject const& subject) const {
   std::vector<ServerClient*> agents;
   for (auto const& client : server_.clients())
      if (isAgent(*client) && (subject.isForAll() || client->name() == subject.agent))
         agents.push_back(client.get());
   return agents;
}

// Differs from what it was when a round began if the agents may have to act on something that came meanwhile.
uint64_t Settling::progressOf(Subject const& subject) const {
   if (subject.isForAll())
      return server_.blockCount();
   uint64_t progress = 0;
   for (ServerClient const* const agent : agentsOf(subject))
      progress += agent->receivedOperations() + agent->refusedWrites();
   return progress;
}

void Settling::beginRound(Subject& subject) {
   std::vector<ServerClient*> const agents = agentsOf(subject);
   if (agents.empty() && !subject.isForAll())
      return; // until it comes
   subject.probe = ++lastProbe_;
   subject.progress = progressOf(subject);
   for (auto& [number, question] : subject.questions)
      question.isInRound = true;
   for (ServerClient* const agent : agents) {
      subject.waiting.insert(agent);
      agent->probe(subject.probe);
   }
   if (agents.empty()) { // there is nobody to wait for
      answerRound(subject);
      subjectDelIfIdle(subject);
   }
}

void Settling::endRoundIfAnswered(Subject& subject) {
   if (subject.isRoundOpen())
      return;
   if (progressOf(subject) == subject.progress)
      answerRound(subject);
   if (subject.questions.empty())
      subjectDelIfIdle(subject);
   else
      beginRound(subject);
}

void Settling::answerRound(Subject& subject) {
   for (auto at = subject.questions.begin(); at != subject.questions.end();) {
      Question& question = at++->second;
      if (!question.isInRound)
         continue;
      question.client.reply(question.request, Status::done, "");
      questionDel(question);
   }
}

void Settling::settled(ServerClient const& client, uint32_t probe) {
   answered(allAgents, client, probe);
   answered(client.name(), client, probe);
}

void Settling::answered(std::string const& subject, ServerClient const& agent, uint32_t probe) {
   auto const at = subjects_.find(subject);
   if (at != subjects_.end() && at->second.probe == probe && at->second.waiting.erase(&agent) > 0)
      endRoundIfAnswered(at->second);
}

// --- Who comes and goes

void Settling::agentCame(ServerClient const& agent) {
   if (auto const at = subjects_.find(agent.name()); at != subjects_.end() && !at->second.isRoundOpen())
      beginRound(at->second);
}

void Settling::clientGone(ServerClient const& client) {
   if (auto const at = ofClient_.find(&client); at != ofClient_.end()) {
      for (auto const& [number, subject] : std::exchange(at->second, {})) {
         subject->questions.erase(number);
         subjectDelIfIdle(*subject);
      }
      ofClient_.erase(at);
   }
   agentGone(allAgents, client);
   agentGone(client.name(), client);
}

void Settling::agentGone(std::string const& subject, ServerClient const& agent) {
   auto const at = subjects_.find(subject);
   if (at == subjects_.end() || at->second.waiting.erase(&agent) == 0)
      return;
   Subject& left = at->second;
   if (left.isForAll()) {
      endRoundIfAnswered(left);
      return;
   }
   if (left.isRoundOpen())
      return;
   if (left.questions.empty())
      subjectDelIfIdle(left);
   else
      beginRound(left); // its successor may have connected already
}

} // namespace Ordel
