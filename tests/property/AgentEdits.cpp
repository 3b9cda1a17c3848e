// What somebody else edits in what the agent resolved. Of the resolved VLANs the library of private VLANs is
// told, of the choices the deferred stage of ports; nobody of anything else.

#include "AgentModel.h"

namespace Model {

void Agent::vlanEdited(unsigned number, std::function<void(ResolvedVlan&)> const& edit) {
   auto& vlan = vlans_.at(number);
   ResolvedVlan edited = vlan;
   if (hasCpuPort(number))
      edited.members["Cpu"] = {.tagged = true};
   auto const before = edited;
   edit(edited);
   auto const isOther = [](auto const& cpu, auto const& was) {
      return cpu.empty() != was.empty() || (!cpu.empty() && !(cpu.mapped() == was.mapped()));
   };
   auto const cpu = std::map(edited.members).extract("Cpu"), was = std::map(before.members).extract("Cpu");
   if (edited.isSuspended != before.isSuspended || isOther(cpu, was))
      edited_.insert(number);
   edited.members.erase("Cpu");
   roleIs(number, edited.role);
   vlan = edited;
}

void Agent::portEdited(std::string const& intf, std::function<void(ResolvedPort&)> const& edit) {
   edit(resolved_.at(intf));
}

void Agent::portMadeAgain(std::string const& intf) {
   auto& port = resolved_.at(intf);
   port = {.mode = port.mode, .native = port.native};
   ++births_.ports[intf];
}

void Agent::settingsEdited(std::function<void(Outcome&)> const& edit) {
   auto const before = settings_.sviMappings;
   edit(settings_);
   for (unsigned number = 1; number <= lastVlan; ++number) {
      auto const was = before.find(number);
      auto const is = settings_.sviMappings.find(number);
      if ((was == before.end()) != (is == settings_.sviMappings.end()) ||
          (was != before.end() && !(was->second == is->second)))
         edited_.insert(number);
   }
}

void Agent::choiceDeleted(std::string const& intf) {
   chosen_.erase(intf);
   chosenFrom_.erase(intf);
   tell({portStage, ""}, 0, intf);
}

void Agent::waitDeleted(std::string const& intf) {
   waiting_.erase(intf);
}

} // namespace Model
