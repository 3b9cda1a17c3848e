// What somebody else edits in what the agent resolved. Of the resolved VLANs the library of private VLANs is
// told, of the choices the deferred stage of ports; nobody of anything else.

#include "AgentModel.h"

namespace Model {

void Agent::vlanEdited(unsigned number, std::function<void(ResolvedVlan&)> const& edit) {
   auto& vlan = vlans_.at(number);
   ResolvedVlan edited = vlan;
   edit(edited);
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
   edit(settings_);
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
