// Internal VLANs of routed ports: who has which number, who waits for one, and what remains after a restart.

#include "AgentModel.h"

namespace Model {

Agent::ModeAndNative Agent::modeAndNative(std::string const& intf) {
   auto const& copy = ports_.at(intf).copy;
   int const mode = copy.enabled ? copy.mode : int(routed);
   if (mode == routed)
      return {routed, internalVlanOf(intf)};
   unsigned native = mode == trunk  ? copy.trunkNative
                     : mode == tap  ? copy.tapNative
                     : mode == tool ? 1
                                    : copy.accessVlan;
   if (mode <= tunnel && !vlans_.contains(native))
      native = 0;
   if (auto const held = internalVlan_.find(intf); held != internalVlan_.end())
      release(intf, held->second); // it has just stopped being routed
   dropStartup(intf);
   waiting_.erase(intf);
   return {mode, native};
}

unsigned Agent::internalVlanOf(std::string const& intf) {
   if (auto const held = internalVlan_.find(intf); held != internalVlan_.end())
      return held->second;
   auto const& port = ports_.at(intf);
   if (port.config && port.config->isShut)
      dropStartup(intf); // a shut port gives its VLAN back
   if (!port.config || port.config->isShut || !port.status || port.status->forwardingModel != routedModel)
      return 0;
   unsigned number = 0;
   if (auto const startup = startupInternalVlan_.find(intf); startup != startupInternalVlan_.end()) {
      number = startup->second;
      auto const left = vlans_.find(number);
      bool const isTaken = (left != vlans_.end() && !left->second.internal) || hasVlanIntf(number) ||
                           routedPort_.contains(number);
      startupRoutedPort_.erase(number);
      startupInternalVlan_.erase(startup);
      if (isTaken) {
         // It gets no other number here: recovery lets it try again.
         if (left != vlans_.end() && left->second.internal && !routedPort_.contains(number))
            resolvedVlanDel(number);
         number = 0;
      }
   } else {
      number = allocate();
   }
   if (number == 0) {
      waiting_.try_emplace(intf, now_); // since it failed, not since it was last evaluated
      return 0;
   }
   waiting_.erase(intf);
   routedPort_[number] = intf;
   internalVlan_[intf] = number;
   bool const isNew = !vlans_.contains(number);
   auto& vlan = vlans_[number];
   if (isNew)
      vlanIsBorn(number);
   vlan.internal = true;
   vlan.source = "internal";
   vlan.isSuspended = false;
   vlan.name = intf;
   return number;
}

unsigned Agent::allocate() const {
   unsigned const min = settings_.rangeMin, max = settings_.rangeMax;
   if (min > max)
      return 0;
   for (unsigned i = 0; i <= max - min; ++i) {
      unsigned const number = settings_.allocatesDescending ? max - i : min + i;
      if (!vlans_.contains(number) && !hasVlanIntf(number))
         return number;
   }
   return 0;
}

void Agent::release(std::string const& intf, unsigned number) {
   internalVlan_.erase(intf);
   routedPort_.erase(number);
   resolvedVlanDel(number);
   if (auto const out = resolved_.find(intf); out != resolved_.end()) {
      out->second.mode = routed;
      out->second.native = 0;
   }
}

// A VLAN or a VLAN interface of the user's takes the number: the user's claim wins.
void Agent::claimed(unsigned number) {
   auto const owner = routedPort_.find(number);
   if (owner == routedPort_.end())
      return;
   std::string const intf = owner->second;
   release(intf, number);
   waiting_.try_emplace(intf, now_);
}

// --- A restart.

// The numbers of ports that the agent's own input routes are held back until the ports have been evaluated.
void Agent::takeOver() {
   std::vector<std::string> ports;
   for (auto const& [intf, port] : resolved_)
      ports.push_back(intf);
   for (auto const& intf : inTableOrder(ports)) {
      auto const& port = resolved_.at(intf);
      auto const record = own_->ports.find(intf);
      if (record == own_->ports.end() || record->second->enabled)
         continue;
      auto const config = intent_.intfConfigs.find(intf);
      if (config != intent_.intfConfigs.end() && config->second->isShut)
         continue;
      if (port.mode != routed || port.native == 0 || startupRoutedPort_.contains(port.native))
         continue;
      startupInternalVlan_[intf] = port.native;
      startupRoutedPort_[port.native] = intf;
   }
}

// A port that is a switchport, shut or gone claims nothing any more: the number is free again.
void Agent::dropStartup(std::string const& intf) {
   auto const startup = startupInternalVlan_.find(intf);
   if (startup == startupInternalVlan_.end())
      return;
   unsigned const number = startup->second;
   startupInternalVlan_.erase(startup);
   startupRoutedPort_.erase(number);
   if (auto const left = vlans_.find(number);
       left != vlans_.end() && left->second.internal && !routedPort_.contains(number))
      resolvedVlanDel(number);
}

// --- Recovery: only the cause is taken away; the port allocates at its next evaluation.

void Agent::recover() {
   constexpr double interval = 10;
   for (auto const& [intf, since] : std::map(waiting_)) {
      if (now_ - since < interval)
         continue;
      if (allocate() == 0)
         break;
      waiting_.erase(intf);
   }
   recoveryTime_ = now_ + interval;
}

} // namespace Model
