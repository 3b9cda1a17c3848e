// Of many publishers one intent: a whole input for the VLANs, a record for each port, the command line's
// settings; and the default records.

#include "AgentModel.h"

#include <algorithm>

#include <utility>

namespace Model {

namespace {

bool canBridge(std::string const& intf) {
   for (auto const* const other : {"Vlan", "Loopback", "Management", "Internal", "Vxlan"})
      if (intf.starts_with(other))
         return false;
   return true;
}

} // namespace

void Agent::startSelection() {
   // A new binding of the selector replays at once: interfaces and settings before the inputs.
   handleDefaultRecords();
   followSettings();
   handleInputs();
   handleDefaultRecords();
   copySettings();
   // Drops what an agent that had been running would have dropped: what no input holds any more.
   for (auto const& [intf, record] : std::map(chosen_))
      decidePort(intf);
   std::set<std::string> const gone = [&] {
      std::set<std::string> names;
      for (auto const& [intf, port] : resolved_)
         if (!chosen_.contains(intf) && !ports_.contains(intf))
            names.insert(intf);
      return names;
   }();
   for (auto const& intf : gone) {
      dropStartup(intf);
      resolved_.erase(intf);
      waiting_.erase(intf);
   }
}

// All inputs with the agent's own among them, by name.
static std::map<std::string, std::shared_ptr<Input>> allInputs(Intent const& intent,
                                                               std::shared_ptr<Input> const& own) {
   auto all = intent.inputs;
   all[agentsInput] = own;
   return all;
}

void Agent::handleInputs() {
   for (auto const& [name, in] : allInputs(intent_, own_))
      followInput(in);
   findBestVlanInput();
   decideAllPorts();
}

void Agent::handleInput(std::string const& name) {
   auto const found = intent_.inputs.find(name);
   if (found != intent_.inputs.end()) {
      followInput(found->second);
      followSettings();
      return;
   }
   hearOut(name);
   followed_.erase(name);
   handleFdbs(name);
   forget({input, name});
   if (selected_ && selected_->name == name)
      findBestVlanInput();
   decideAllPorts();
}

// Changes that an input made before it was deleted count.
void Agent::hearOut(std::string const& name) {
   FollowerId const follower{input, name};
   while (pending_.contains(follower))
      deliver(follower, takePending(follower));
   forget(follower);
}

void Agent::followInput(std::shared_ptr<Input> const& in) {
   auto const found = followed_.find(in->name);
   auto const before = found == followed_.end() ? nullptr : found->second;
   if (before == in)
      return;
   hearOut(in->name);
   followed_[in->name] = in;
   handlePortPriority(*in);
   findBestVlanInput();
   handleFdbs(in->name);
   if (!before)
      return;
   // It was deleted and made again within a turn: the ports that the old one won are decided again.
   std::vector<std::string> ports;
   for (auto const& [intf, record] : before->ports)
      ports.push_back(intf);
   for (auto const& intf : inTableOrder(ports))
      decidePort(intf);
}

void Agent::followSettings() {
   if (followedSettings_ == intent_.settings)
      return;
   followedSettings_ = intent_.settings;
   forget({selectorSettings, ""});
   forget({bridgeSettings, ""});
   copySettings();
   copyAllFidsAndReserved();
   handleSviMappings();
}

void Agent::findBestVlanInput() {
   std::shared_ptr<Input> best;
   for (auto const& [name, in] : allInputs(intent_, own_))
      if (in->vlanPriority > (best ? best->vlanPriority : 0))
         best = in;
   selected_ = best;
   handleSelectedInput();
}

void Agent::handlePortPriority(Input const& in) {
   if (!in.ports.empty())
      decideAllPorts();
}

void Agent::decideAllPorts() {
   std::set<std::string> done;
   for (auto const& [name, in] : allInputs(intent_, own_)) {
      std::vector<std::string> ports;
      for (auto const& [intf, record] : in->ports)
         ports.push_back(intf);
      for (auto const& intf : inTableOrder(ports))
         if (done.insert(intf).second)
            decidePort(intf);
   }
}

void Agent::decidePort(std::string const& intf) {
   std::shared_ptr<Port> best;
   unsigned priority = 0;
   for (auto const& [name, in] : allInputs(intent_, own_))
      if (in->portPriority > priority)
         if (auto const record = in->ports.find(intf); record != in->ports.end()) {
            best = record->second;
            priority = in->portPriority;
         }
   chosenIs(intf, best);
}

void Agent::chosenIs(std::string const& intf, std::shared_ptr<Port> const& record) {
   auto const found = chosen_.find(intf);
   if (record)
      chosenFrom_[intf] = inputOf(record);
   else
      chosenFrom_.erase(intf);
   if (record ? found != chosen_.end() && found->second == record : found == chosen_.end())
      return;
   if (record)
      chosen_[intf] = record;
   else
      chosen_.erase(found);
   tell({portStage, ""}, 0, intf);
}

std::string Agent::inputOf(std::shared_ptr<Port> const& record) const {
   for (auto const& [name, in] : allInputs(intent_, own_))
      for (auto const& [intf, port] : in->ports)
         if (port == record)
            return name;
   return "";
}

void Agent::handleDefaultRecord(std::string const& intf) {
   auto& ports = own_->ports;
   if (!intent_.intfConfigs.contains(intf) || !canBridge(intf)) {
      if (ports.erase(intf))
         tell({input, agentsInput}, 4, intf);
      return;
   }
   auto& record = ports[intf];
   if (!record) {
      record = std::make_shared<Port>();
      tell({input, agentsInput}, 4, intf);
   }
   bool const enabled = !intent_.isRoutedByDefault;
   if (record->enabled != enabled) {
      record->enabled = enabled;
      if (auto const port = ports_.find(intf); port != ports_.end() && port->second.record == record)
         tell({portEntry, intf}, static_cast<int>(PortAttr::enabled));
   }
}

void Agent::handleDefaultRecords() {
   std::vector<std::string> ports;
   for (auto const& [intf, config] : intent_.intfConfigs)
      ports.push_back(intf);
   for (auto const& intf : inTableOrder(ports))
      handleDefaultRecord(intf);
   for (auto const& [intf, record] : std::map(own_->ports))
      handleDefaultRecord(intf);
}

// --- Settings.

void Agent::copySettings() {
   for (auto const setting : {Setting::agingTime, Setting::passesPause, Setting::forwardingMode,
                              Setting::allocationPolicy, Setting::range})
      copySetting(setting);
}

void Agent::copySetting(Setting setting) {
   auto const& from = *followedSettings_;
   switch (setting) {
   case Setting::agingTime:
      settings_.agingTime = from.agingTime;
      return;
   case Setting::passesPause:
      settings_.passesPause = from.passesPause;
      return;
   case Setting::forwardingMode:
      return copyForwardingMode();
   case Setting::allocationPolicy:
      settings_.allocatesDescending = from.allocatesDescending;
      return;
   case Setting::range:
      settings_.rangeMin = from.rangeMin;
      settings_.rangeMax = from.rangeMax;
      return;
   }
}

void Agent::copyReserved(std::string const& address) {
   if (followedSettings_->reserved.contains(address))
      settings_.reserved.insert(address);
   else
      settings_.reserved.erase(address);
}

void Agent::copyAllFidsAndReserved() {
   for (auto const& [number, fid] : followedSettings_->fids)
      copyFid(number);
   for (auto const& [number, fid] : std::map(settings_.fids))
      copyFid(number);
   settings_.reserved = followedSettings_->reserved;
}

void Agent::copyForwardingMode() {
   auto const& supported = intent_.supportedModes;
   unsigned const chosen = followedSettings_->forwardingMode;
   bool const isOffered =
       chosen != 0 && std::find(supported.begin(), supported.end(), chosen) != supported.end();
   settings_.forwardingMode = isOffered ? chosen : supported.empty() ? 0 : supported[0];
}

} // namespace Model
