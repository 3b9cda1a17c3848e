#include "Inputs.h"

#include "Words.h"

#include "Vorn/Rules/BestInput.h"

#include <algorithm>

namespace Vornctl {

std::vector<Input> inputsOf(SwitchState const& state) {
   std::vector<Input> inputs;
   Vorn::forEachInput(*state.inputs, [&](Kem::Ptr<Bridging::Input::Config> const& config) {
      inputs.push_back({config->name().str(), config});
   });
   return inputs;
}

size_t vlanWinner(SwitchState const& state, std::vector<Input> const& inputs) {
   auto const best = Vorn::bestVlanInput(*state.inputs);
   auto const at =
       std::find_if(inputs.begin(), inputs.end(), [&](Input const& input) { return input.config == best; });
   return static_cast<size_t>(at - inputs.begin());
}

PortChoice choiceOf(SwitchState const& state, std::vector<Input> const& inputs, Sulvi::IntfId port) {
   PortChoice choice;
   choice.record = state.chosen->switchIntfConfig(port);
   if (auto const best = Vorn::bestPortRecord(*state.inputs, port).input)
      choice.byRule = best->name().str();
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
