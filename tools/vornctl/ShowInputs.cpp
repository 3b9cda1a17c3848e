#include "Show.h"

#include "Inputs.h"
#include "Json.h"
#include "Table.h"
#include "Words.h"

#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/VlanConfig.h"

#include <map>
#include <set>
#include <tuple>

namespace Vornctl {

namespace {

// Ports that the same input won over the same others, by the same numbers.
struct Contest {
   std::string winner;
   uint32_t priority = 0;
   std::vector<Input> losers;
   std::vector<Sulvi::IntfId> ports;
};

struct Outcome {
   std::vector<Input> inputs;
   size_t vlanWinner = 0;
   std::map<std::string, size_t> portsWon; // by name of the input
   std::map<Sulvi::IntfId, PortChoice> choices;
   std::vector<Contest> contests;
};

Outcome outcomeOf(SwitchState const& state) {
   Outcome outcome;
   outcome.inputs = inputsOf(state);
   outcome.vlanWinner = vlanWinner(state, outcome.inputs);
   // Ports that nobody won too, and those whose record is no longer in the inputs.
   std::set<Sulvi::IntfId> ports;
   for (Input const& input : outcome.inputs)
      input.config->switchIntfConfig().forEach([&](Sulvi::IntfId port, auto const&) { ports.insert(port); });
   state.chosen->switchIntfConfig().forEach([&](Sulvi::IntfId port, auto const&) { ports.insert(port); });
   std::map<std::tuple<std::string, uint32_t, std::string>, Contest> contests;
   for (Sulvi::IntfId const port : ports) {
      PortChoice const choice = choiceOf(state, outcome.inputs, port);
      if (!choice.winner.empty())
         ++outcome.portsWon[choice.winner];
      Contest& contest = contests[{choice.winner, choice.priority, losersText(choice.losers)}];
      contest.winner = choice.winner;
      contest.priority = choice.priority;
      contest.losers = choice.losers;
      contest.ports.push_back(port);
      outcome.choices[port] = choice;
   }
   for (auto& [key, contest] : contests)
      outcome.contests.push_back(std::move(contest));
   std::stable_sort(outcome.contests.begin(), outcome.contests.end(),
                    [](Contest const& a, Contest const& b) { return a.priority > b.priority; });
   return outcome;
}

std::vector<std::string> winsOf(Outcome const& outcome, size_t i) {
   std::vector<std::string> wins;
   if (i == outcome.vlanWinner)
      wins.push_back("all VLANs");
   auto const won = outcome.portsWon.find(outcome.inputs[i].name);
   if (won != outcome.portsWon.end())
      wins.push_back(counted(won->second, "port"));
   return wins.empty() ? std::vector<std::string>{"-"} : wins;
}

// A priority and what it wins: "100 (31)" for 31 ports. The priority 0 takes no part.
std::string rankText(uint32_t priority, size_t count) {
   return std::to_string(priority) + " (" + std::to_string(count) + ')';
}

std::string outcomeText(Outcome const& outcome, Format const& format) {
   Table inputs({{"Input"},
                 {"VLANs by", Table::Align::right},
                 {"Ports by", Table::Align::right},
                 {"Source"},
                 {"Won"}});
   for (size_t i = 0; i < outcome.inputs.size(); ++i) {
      Input const& input = outcome.inputs[i];
      std::string const detail = shortened(input.config->sourceDetail().view(), 24);
      inputs.add({input.name, rankText(input.vlanPriority(), input.config->vlanConfig().size()),
                  rankText(input.portPriority(), input.config->switchIntfConfig().size()),
                  detail.empty() ? "-" : detail},
                 winsOf(outcome, i));
   }
   std::string text = inputs.text(format.width) +
                      "\nThe greatest number wins, 0 takes no part; in brackets what the input holds.\n";
   if (outcome.vlanWinner == outcome.inputs.size())
      text += "No input gives the VLANs.\n";
   if (outcome.contests.empty())
      return text;
   Table contests({{"Won by"}, {"With", Table::Align::right}, {"Over"}, {"Ports"}});
   for (Contest const& contest : outcome.contests)
      contests.add({contest.winner.empty() ? "(none)" : contest.winner,
                    contest.winner.empty() ? "-" : std::to_string(contest.priority),
                    contest.losers.empty() ? "-" : losersText(contest.losers)},
                   portList(contest.ports));
   return text + '\n' + contests.text(format.width);
}

Json outcomeJson(Outcome const& outcome) {
   Json inputs = Json::object();
   for (Input const& input : outcome.inputs) {
      auto const won = outcome.portsWon.find(input.name);
      inputs[input.name] = {{"sourceDetail", input.config->sourceDetail().str()},
                            {"vlanConfigPriority", input.vlanPriority()},
                            {"switchIntfConfigPriority", input.portPriority()},
                            {"fdbConfigPriority", input.config->fdbConfigPriority()},
                            {"vlans", input.config->vlanConfig().size()},
                            {"ports", input.config->switchIntfConfig().size()},
                            {"portsWon", won == outcome.portsWon.end() ? 0 : won->second}};
   }
   Json ports = Json::object();
   for (auto const& [port, choice] : outcome.choices) {
      Json losers = Json::array();
      for (Input const& loser : choice.losers)
         losers.push_back({{"name", loser.name}, {"priority", loser.portPriority()}});
      ports[port.stringValue().str()] = {{"input", choice.winner.empty() ? Json() : Json(choice.winner)},
                                         {"priority", choice.priority},
                                         {"losers", std::move(losers)}};
   }
   bool const hasWinner = outcome.vlanWinner < outcome.inputs.size();
   return {{"inputs", std::move(inputs)},
           {"vlans",
            {{"input", hasWinner ? Json(outcome.inputs[outcome.vlanWinner].name) : Json()},
             {"priority", hasWinner ? outcome.inputs[outcome.vlanWinner].vlanPriority() : 0}}},
           {"ports", std::move(ports)}};
}

} // namespace

std::string showInputs(SwitchState const& state, Format const& format) {
   Outcome const outcome = outcomeOf(state);
   return format.wantsJson ? jsonText(outcomeJson(outcome)) : outcomeText(outcome, format);
}

} // namespace Vornctl
