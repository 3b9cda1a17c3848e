#include "Inputs.h"

#include "Words.h"

#include <algorithm>

namespace Vornctl {

std::vector<Input> inputsOf(SwitchState const& state) {
   std::vector<Input> inputs;
   for (auto const& [name, entity] : state.inputs->entities())
      if (auto const config = Kem::ptrCast<Bridging::Input::Config>(entity))
         inputs.push_back({name.str(), config});
   return inputs;
}

size_t vlanWinner(std::vector<Input> const& inputs) {
   size_t best = inputs.size();
   uint32_t bestPriority = 0;
   for (size_t i = 0; i < inputs.size(); ++i)
      if (inputs[i].vlanPriority() > bestPriority) {
         best = i;
         bestPriority = inputs[i].vlanPriority();
      }
   return best;
}

PortChoice choiceOf(SwitchState const& state, std::vector<Input> const& inputs, Sulvi::IntfId port) {
   PortChoice choice;
   choice.record = state.chosen->switchIntfConfig(port);
   for (Input const& input : inputs) {
      auto const record = input.config->switchIntfConfig(port);
      if (!record)
         continue;
      if (record == choice.record) {
         choice.winner = input.name;
         choice.priority = input.portPriority();
      } else {
         choice.losers.push_back(input);
      }
   }
   std::stable_sort(choice.losers.begin(), choice.losers.end(),
                    [](Input const& a, Input const& b) { return a.portPriority() > b.portPriority(); });
   return choice;
}

std::string losersText(std::vector<Input> const& losers) {
   std::vector<std::string> items;
   for (Input const& loser : losers)
      items.push_back(loser.name + ' ' + std::to_string(loser.portPriority()));
   return joined(items);
}

} // namespace Vornctl
