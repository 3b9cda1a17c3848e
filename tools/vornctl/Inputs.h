// How the inputs of the publishers compete: for the VLANs as wholes, and for each port by their records.
//
// The rules are those of the agent (Vorn/Rules/BestInput.h). Who has won a port is what the agent says
// (SwitchState::chosen); who has won the VLANs it doesn't say, so its rule is asked here.
#pragma once

#include "SwitchState.h"

#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

#include <string>
#include <vector>

namespace Vornctl {

struct Input {
   std::string name;
   Kem::Ptr<Bridging::Input::Config> config;
   uint32_t vlanPriority() const { return config->vlanConfigPriority(); }
   uint32_t portPriority() const { return config->switchIntfConfigPriority(); }
};

// All inputs in the order of names.
std::vector<Input> inputsOf(SwitchState const& state);

// Position of the input that gives the VLANs; the number of inputs when none takes part.
size_t vlanWinner(SwitchState const& state, std::vector<Input> const& inputs);

// One port, seen from the inputs.
struct PortChoice {
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> record; // that won; null when none did
   std::string winner;                                 // name of its input; empty when there is none
   uint32_t priority = 0;
   std::vector<Input> losers; // that hold a record for the port too, the greatest number first
   std::string byRule; // name of the input that wins by the rule; differs while the agent hasn't followed
};
PortChoice choiceOf(SwitchState const& state, std::vector<Input> const& inputs, Sulvi::IntfId port);

// "cli 50 and eth 10".
std::string losersText(std::vector<Input> const& losers);

} // namespace Vornctl
