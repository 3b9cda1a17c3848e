// Who is notified of what, and when: changes queue those who follow them, one batch at a time; stages with a
// backlog work after the batch.

#include "AgentModel.h"

#include <algorithm>

#include <sstream>
#include <utility>

namespace Model {

Agent::Agent(Intent const& intent, Survivors const& survivors, double now, PortOrder const& portOrder)
    : intent_(intent), now_(now), portOrder_(portOrder) {
   vlans_ = survivors.outcome.vlans;
   resolved_ = survivors.outcome.ports;
   waiting_ = survivors.outcome.waiting;
   settings_ = survivors.outcome;
   own_->name = agentsInput;
   own_->portPriority = agentsPriority;
   for (auto const& [intf, enabled] : survivors.outcome.defaults) {
      own_->ports[intf] = std::make_shared<Port>();
      own_->ports[intf]->enabled = enabled;
   }
   chosenFrom_ = survivors.outcome.chosen;
   for (auto const& [intf, record] : survivors.chosen)
      chosen_[intf] = survivors.outcome.chosen.at(intf) == agentsInput ? own_->ports.at(intf) : record;
   for (auto const& [number, vlan] : vlans_)
      handleLibraryVlan(number);
   forget({primaries, ""}); // there is nobody yet

   // The bridge starts on what the last life left; until the selector has run, the agent's own input gives
   // the VLANs.
   selected_ = own_;
   settings_.allocatesDescending = intent_.settings->allocatesDescending;
   settings_.rangeMin = intent_.settings->rangeMin;
   settings_.rangeMax = intent_.settings->rangeMax;
   takeOver();
   handleSelectedInput();
   startSources();
   std::vector<std::string> ports;
   for (auto const& [intf, record] : chosen_)
      if (record)
         ports.push_back(intf);
   for (auto const& intf : inTableOrder(ports))
      createPortEntry(intf, chosen_[intf]);
   for (auto const& [intf, vlanIntf] : intent_.vlanIntfs)
      handleVlanIntf(intf);
   recoveryTime_ = 0;
   followedSettings_ = intent_.settings;
   for (auto const& [primary, secondaries] : std::map(secondaries_))
      handlePrimary(primary);
   handleSviMappings();
   copyAllFidsAndReserved();
   startSelection();
}

void Agent::changed(Change const& change) {
   auto const inputOf = [&] {
      auto const found = followed_.find(change.name);
      auto const at = intent_.inputs.find(change.name);
      // A reactor follows an object: changes of another one of that name don't reach it.
      return found != followed_.end() && at != intent_.inputs.end() && found->second == at->second
                 ? found->second
                 : nullptr;
   };
   switch (change.what) {
   case Change::inputs:
      tell({inputDir, ""}, 0, change.name);
      if (intent_.inputs.contains(change.name))
         deliverAll(); // a new input is seen as it comes, before what it holds
      break;
   case Change::vlanPriority:
      if (inputOf())
         tell({input, change.name}, 0);
      break;
   case Change::portPriority:
      if (inputOf())
         tell({input, change.name}, 1);
      break;
   case Change::inputPort:
      if (inputOf())
         tell({input, change.name}, 4, change.key);
      break;
   case Change::inputVlan:
      if (selected_ && inputOf() == selected_)
         tell({vlanStage, ""}, 0, std::to_string(change.number));
      break;
   case Change::vlanAttribute: {
      auto const entry = vlanStates_.find(change.number);
      auto const& record = intent_.inputs.at(change.name)->vlans.at(change.number);
      if (entry != vlanStates_.end() && entry->second.record == record)
         tell({vlanEntry, std::to_string(change.number)}, change.attribute, change.key);
      break;
   }
   case Change::portAttribute: {
      auto const entry = ports_.find(change.key);
      auto const& record = intent_.inputs.at(change.name)->ports.at(change.key);
      if (entry != ports_.end() && entry->second.record == record)
         tell({portEntry, change.key}, change.attribute, change.member);
      break;
   }
   case Change::intfConfig:
      tell({bridgeIntfConfigs, ""}, 0, change.key);
      tell({selectorIntfs, ""}, 0, change.key);
      break;
   case Change::intfConfigShut:
      if (auto const port = ports_.find(change.key);
          port != ports_.end() && port->second.config &&
          port->second.config == intent_.intfConfigs.at(change.key))
         tell({portConfig, change.key});
      break;
   case Change::intfStatus:
      tell({bridgeIntfStatuses, ""}, 0, change.key);
      break;
   case Change::intfStatusModel:
      if (auto const port = ports_.find(change.key);
          port != ports_.end() && port->second.status &&
          port->second.status == intent_.intfStatuses.at(change.key))
         tell({portStatus, change.key});
      break;
   case Change::vlanIntf:
      tell({bridgeVlanIntfs, ""}, 0, change.key);
      break;
   case Change::vlanIntfSource:
      deliverAll(); // a new one is seen as it comes, and all that was before it
      break;
   case Change::setting:
      tell({selectorSettings, ""}, change.attribute);
      break;
   case Change::fid:
      tell({bridgeSettings, ""}, 0, std::to_string(change.number));
      break;
   case Change::reserved:
      tell({bridgeSettings, ""}, 1, change.key);
      break;
   case Change::source:
      tell({sourceDir, ""}, 0, change.name);
      if (intent_.sources.contains(change.name))
         deliverAll();
      break;
   case Change::sourceVlans:
   case Change::sourceGroup:
      if (auto const found = sources_.find(change.name);
          found != sources_.end() && found->second == intent_.sources.at(change.name))
         tell({source, change.name}, change.what,
              change.what == Change::sourceGroup ? change.key : std::string());
      break;
   case Change::widener:
      tell({widenerDir, ""}, 0, change.name);
      if (intent_.wideners.contains(change.name))
         deliverAll();
      break;
   case Change::widenerList:
   case Change::widenerGroup:
   case Change::widenerGroupMember:
      if (auto const found = wideners_.find(change.name);
          found != wideners_.end() && found->second == intent_.wideners.at(change.name))
         tell({widener, change.name}, change.what == Change::widenerList ? 0 : 1,
              change.what == Change::widenerList ? change.key : std::string());
      break;
   case Change::sviMapping:
      tell({sviMappings, ""}, 0, std::to_string(change.number));
      break;
   case Change::sviServed:
   case Change::sviServesAll:
      if (auto const found = followedMappings_.find(change.number);
          found != followedMappings_.end() &&
          found->second == intent_.settings->sviMappings.at(change.number))
         tell({oneSviMapping, std::to_string(change.number)}, change.what, change.key);
      break;
   case Change::inputFdb:
      if (inputOf())
         tell({input, change.name}, 5, std::to_string(change.number));
      break;
   case Change::inputHost:
   case Change::inputGroup:
   case Change::groupMember: {
      std::string const place = std::to_string(change.number) + " " + change.key + " " + change.member;
      if (inputOf() && fdbOf(change.name, change.number))
         tell({inputFdb, change.name}, change.what, place);
      break;
   }
   case Change::hardware:
      tell({selectorHardware, ""});
      break;
   }
}

void Agent::tell(FollowerId const& follower, int attribute, std::string const& key) {
   auto& keys = pending_[follower][attribute];
   if (std::find(keys.begin(), keys.end(), key) == keys.end())
      keys.push_back(key);
   auto const isThis = [&](auto const& queued) { return queued.follower == follower; };
   if (std::none_of(queue_.begin(), queue_.end(), isThis))
      queue_.push_back({follower, batch_});
}

void Agent::forget(FollowerId const& follower) {
   pending_.erase(follower);
   std::erase_if(queue_, [&](auto const& queued) { return queued.follower == follower; });
}

// By attribute, and by key as they came.
Agent::Told Agent::takePending(FollowerId const& follower) {
   auto& pending = pending_.at(follower);
   auto const first = pending.begin();
   Told const told{first->first, first->second.front()};
   first->second.erase(first->second.begin());
   if (first->second.empty())
      pending.erase(first);
   if (pending.empty())
      pending_.erase(follower);
   return told;
}

// Delivers to each that is queued now all that is pending for it. What a handler causes waits for the next
// batch; when a follower causes something for itself, the rest of what is pending for it waits too.
bool Agent::deliverBatch() {
   if (queue_.empty())
      return false;
   ++batch_;
   while (!queue_.empty() && queue_.front().batch != batch_) {
      FollowerId const follower = queue_.front().follower;
      queue_.pop_front();
      auto const isThis = [&](auto const& queued) { return queued.follower == follower; };
      while (pending_.contains(follower) && std::none_of(queue_.begin(), queue_.end(), isThis)) {
         deliver(follower, takePending(follower));
      }
   }
   return true;
}

void Agent::deliverAll() {
   while (deliverBatch()) {
   }
}

void Agent::arm(Stage stage) {
   if (std::find(armed_.begin(), armed_.end(), stage) == armed_.end())
      armed_.push_back(stage);
}

// The stages come first: their target is long past. At the start of a life recovery comes before them.
bool Agent::fireTimers() {
   bool const isRecoveryDue = recoveryTime_ <= now_;
   if (armed_.empty() && !isRecoveryDue)
      return false;
   bool const isStart = recoveryTime_ == 0;
   if (isStart)
      recover();
   bool const hadStages = !armed_.empty();
   for (Stage const stage : std::exchange(armed_, {}))
      stage == Stage::vlans   ? processVlanBacklog()
      : stage == Stage::ports ? processPortBacklog()
                              : lookAtRelatives();
   if (isRecoveryDue && !isStart) {
      if (hadStages)
         deliverBatch();
      recover();
   }
   deliverBatch();
   return true;
}

void Agent::run(double now) {
   for (;;) {
      bool const hasDelivered = deliverBatch();
      if (fireTimers() || hasDelivered)
         continue;
      if (recoveryTime_ > now)
         break;
      now_ = recoveryTime_; // it fires at its own time
   }
   now_ = now;
}

void Agent::deliver(FollowerId const& follower, Told const& told) {
   auto const& [who, name] = follower;
   auto const number = [](std::string const& text) { return static_cast<unsigned>(std::stoul(text)); };
   switch (who) {
   case inputDir:
      return handleInput(told.key);
   case input:
      if (told.attribute == 0)
         return findBestVlanInput();
      if (told.attribute == 1)
         return handlePortPriority(*followed_.at(name));
      if (told.attribute == 5)
         return handleFdb(name, number(told.key));
      return decidePort(told.key);
   case selectorIntfs:
      return handleDefaultRecord(told.key);
   case selectorSettings:
      return copySetting(static_cast<Setting>(told.attribute));
   case selectorHardware:
      return copyForwardingMode();
   case bridgeIntfConfigs:
      return handleIntfConfig(told.key);
   case bridgeIntfStatuses:
      return handleIntfStatus(told.key);
   case bridgeVlanIntfs:
      return handleVlanIntf(told.key);
   case bridgeSettings:
      if (told.attribute == 0)
         return copyFid(number(told.key));
      return copyReserved(told.key);
   case library:
      return handleLibraryVlan(number(told.key));
   case libraryRole:
      return handleLibraryRole(number(name));
   case libraryPrimary:
      return handleLibraryPrimary(number(name));
   case primaries:
      return handlePrimary(number(told.key));
   case onePrimary:
      return handleSecondary(number(name), number(told.key));
   case sviMappings:
      return handleSviMapping(number(told.key));
   case oneSviMapping:
      if (told.attribute == Change::sviServed)
         return handleSviServed(number(name), number(told.key));
      return handleSviServesAll(number(name));
   case vlanStage:
      return stageVlan(number(told.key));
   case portStage:
      return stagePort(told.key);
   case vlanEntry:
      return mirrorVlan(number(name), told);
   case vlanCopy:
      return handleVlanCopy(number(name), told);
   case portEntry:
      return mirrorPort(name, told);
   case portCopy:
      return handlePortCopy(name, told);
   case portConfig:
      return handleShut(name);
   case sourceDir:
      return handleSource(told.key);
   case source:
      if (told.attribute == Change::sourceVlans)
         return handleSourceVlans(name);
      return handleSourceGroup(name, told.key);
   case widenerDir:
      return handleWidener(told.key);
   case widener:
      if (told.attribute == 0)
         return handleAllowedVlans(told.key);
      for (auto const& [intf, port] : ports_)
         handleDynamicGroups(intf);
      return;
   case inputFdb: {
      std::istringstream place(told.key);
      unsigned vlan = 0;
      std::string address, member;
      place >> vlan >> address;
      std::getline(place >> std::ws, member);
      if (told.attribute == Change::inputHost)
         return handleHost(name, vlan, address);
      if (told.attribute == Change::inputGroup)
         return handleGroup(name, vlan, address);
      return handleGroupMember(name, vlan, address, member);
   }
   case portStatus:
      return handleForwardingModel(name);
   }
}

Outcome Agent::outcome() const {
   Outcome out = settings_;
   out.vlans = vlans_;
   for (auto& [number, vlan] : out.vlans)
      if (hasCpuPort(number))
         vlan.members["Cpu"] = {.tagged = true};
      else
         vlan.members.erase("Cpu");
   out.ports = resolved_;
   out.waiting = waiting_;
   out.merged = fdbs_;
   out.fdbs = resolvedFdbs();
   out.chosen = chosenFrom_;
   out.defaults.clear();
   for (auto const& [intf, record] : own_->ports)
      out.defaults[intf] = record->enabled;
   return out;
}

} // namespace Model
