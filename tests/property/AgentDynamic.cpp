// Dynamic VLANs, which sources claim beside the selected input, and what sources allow on trunks.

#include "AgentModel.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Model {

namespace {

constexpr char protocol[] = "mvrp"; // whose VLANs no configured list allows
constexpr char unconnectedPort[] = "Ethernet65536";

std::string nameOf(unsigned number) {
   char text[9];
   std::snprintf(text, sizeof text, "VLAN%04u", number);
   return text;
}

} // namespace

// --- Sources of VLANs.

// A source came or went, or is another one of that name.
void Agent::handleSource(std::string const& name) {
   auto const found = intent_.sources.find(name);
   FollowerId const follower{source, name};
   if (found == intent_.sources.end()) {
      forget(follower);
      if (sources_.contains(name))
         giveUpClaims(name, {});
      sources_.erase(name);
      if (name == protocol)
         computeAllAllowed(true);
      return;
   }
   auto& followed = sources_[name];
   if (followed == found->second)
      return;
   forget(follower);
   followed = found->second;
   handleSourceVlans(name);
   handleSourceGroups(name);
}

// Its list or its rank has changed.
void Agent::handleSourceVlans(std::string const& name) {
   auto const& wanted = vlansOf(sources_.at(name)->vlans);
   for (unsigned number = 1; number <= lastVlan; ++number) {
      if (!wanted.test(number))
         continue;
      auto const claims = claims_.find(number);
      if (claims == claims_.end()) {
         if (!isStatic(number))
            dynamicVlanIs(number, name);
      } else if (!isStatic(number)) {
         auto const& current = vlans_.at(number).source;
         unsigned const rank = sources_.at(name)->priority, currentRank = sources_.at(current)->priority;
         if (rank > currentRank || (rank == currentRank && current < name))
            dynamicVlanPassesTo(number, name);
      }
      claims_[number].insert(name);
   }
   giveUpClaims(name, wanted);
   if (name == protocol)
      computeAllAllowed(true);
   // One that has lowered its rank keeps none that another one ranks above.
   for (auto const& [number, claims] : claims_)
      if (!isStatic(number) && vlans_.at(number).source == name)
         if (auto const best = bestSource(number); best != name)
            dynamicVlanPassesTo(number, best);
}

void Agent::giveUpClaims(std::string const& name, VlanSet const& wanted) {
   for (auto const& [number, before] : std::map(claims_)) {
      if (!before.contains(name) || wanted.test(number))
         continue;
      auto& claims = claims_.at(number);
      claims.erase(name);
      if (claims.empty()) {
         claims_.erase(number);
         madeDynamic_.erase(number);
         dynamicVlanDel(number);
      } else if (!isStatic(number) && vlans_.at(number).source == name) {
         dynamicVlanPassesTo(number, bestSource(number));
      }
   }
}

// The greatest rank, and of equal ones the greatest name.
std::string Agent::bestSource(unsigned number) const {
   std::string best;
   unsigned rank = 0;
   for (auto const& name : claims_.at(number)) {
      unsigned const its = sources_.at(name)->priority;
      if (its >= rank) { // they come by name
         best = name;
         rank = its;
      }
   }
   return best;
}

void Agent::handleSourceGroups(std::string const& name) {
   for (auto const& [number, claims] : claims_)
      if (claims.contains(name) && !isStatic(number) && vlans_.at(number).source == name &&
          std::exchange(vlans_.at(number).trunkGroups, sources_.at(name)->trunkGroups) !=
              sources_.at(name)->trunkGroups)
         syncOnAllPorts(number);
}

void Agent::handleSourceGroup(std::string const& name, std::string const& group) {
   bool const isWanted = sources_.at(name)->trunkGroups.contains(group);
   for (auto const& [number, claims] : claims_) {
      if (!claims.contains(name) || isStatic(number) || vlans_.at(number).source != name)
         continue;
      auto& groups = vlans_.at(number).trunkGroups;
      if (isWanted ? groups.insert(group).second : groups.erase(group) != 0)
         syncOnAllPorts(number);
   }
}

// --- A dynamic VLAN.

// Whether the selected input has the VLAN, or has had it until the deferred stage comes to it.
bool Agent::isStatic(unsigned number) const {
   return (selected_ && selected_->vlans.contains(number)) || vlanStates_.contains(number);
}

void Agent::dynamicVlanIs(unsigned number, std::string const& name) {
   if (selected_ && selected_->vlans.contains(number))
      return;
   claimed(number);
   if (auto const left = vlans_.find(number); left != vlans_.end() && left->second.internal)
      resolvedVlanDel(number);
   bool const isNew = !vlans_.contains(number);
   auto& out = vlans_[number];
   if (isNew)
      vlanIsBorn(number);
   madeDynamic_.insert(number);
   out.source = name;
   if (std::exchange(out.isSuspended, false))
      touchRelatives(number);
   out.name = nameOf(number);
   roleIs(number, {});
   out.trunkGroups = sources_.at(name)->trunkGroups;
   for (auto const& [intf, port] : ports_) {
      // As with a configured VLAN, ports whose native VLAN it is get it.
      if (port.copy.enabled && configuredNative(port.copy) == number)
         syncModeAndNative(intf);
      syncVlan(intf, number);
   }
}

void Agent::dynamicVlanDel(unsigned number) {
   if (isStatic(number) || routedPort_.contains(number))
      return;
   resolvedVlanDel(number);
   for (auto const& [intf, port] : ports_)
      if (port.copy.enabled && port.copy.mode <= tunnel && resolved_.at(intf).native == number)
         resolved_.at(intf).native = 0;
}

void Agent::dynamicVlanPassesTo(unsigned number, std::string const& name) {
   vlans_.at(number).source = name;
   vlans_.at(number).trunkGroups = sources_.at(name)->trunkGroups;
   syncOnAllPorts(number);
}

// The selected input lacks it, and no copy is left. A claim keeps it.
void Agent::handleVlanNoLongerStatic(unsigned number) {
   if (!claims_.contains(number))
      return resolvedVlanDel(number);
   dynamicVlanIs(number, bestSource(number));
   computeAllAllowed(true);
}

// Whether a source has it, and no copy of a static one.
bool Agent::isDynamic(unsigned number) const {
   return madeDynamic_.contains(number) && !vlanStates_.contains(number);
}

// Another input gives the VLANs. What is dynamic stays as it is, but for what making it again would bring.
void Agent::handleClaimsOfNewChoice() {
   for (auto const& [number, claims] : std::map(claims_)) {
      if (isStatic(number))
         continue;
      if (!isDynamic(number) || !vlans_.contains(number)) {
         handleVlanNoLongerStatic(number);
         continue;
      }
      if (auto const best = bestSource(number); vlans_.at(number).source != best)
         dynamicVlanPassesTo(number, best);
   }
   computeAllAllowed(true);
}

// Ports compute what they may carry where that has changed by what only the protocol asks for. Without `syncs`
// the VLANs concerned are looked at when they come up.
void Agent::computeAllAllowed(bool syncs) {
   if (VlanSet const now = lookAtProtocol(); std::exchange(allComputedWith_, now) != now)
      for (auto const& [intf, port] : ports_)
         computeAllowed(intf);
   if (!syncs)
      return;
   VlanSet const changed = std::exchange(protocolChanges_, {});
   for (auto const& [number, vlan] : vlans_)
      if (changed.test(number))
         syncOnAllPorts(number);
}

// What only the protocol asks for, at this moment.
VlanSet const& Agent::lookAtProtocol() {
   VlanSet now;
   if (auto const learned = sources_.find(protocol); learned != sources_.end())
      now = vlansOf(learned->second->vlans);
   if (selected_)
      for (auto const& [number, vlan] : selected_->vlans)
         now.reset(number);
   protocolChanges_ |= now ^ protocolOnly_;
   protocolOnly_ = now;
   return protocolOnly_;
}

void Agent::syncOnAllPorts(unsigned number) {
   for (auto const& [intf, port] : ports_)
      syncVlan(intf, number);
}

// --- Sources that widen trunks.

void Agent::handleWidener(std::string const& name) {
   auto const found = intent_.wideners.find(name);
   forget({widener, name});
   if (found == intent_.wideners.end()) {
      if (wideners_.erase(name))
         handleWidenerReplaced();
      return;
   }
   bool const isNew = !wideners_.contains(name);
   auto& followed = wideners_[name];
   if (followed == found->second)
      return;
   followed = found->second;
   if (!isNew)
      handleWidenerReplaced();
   for (auto const& [intf, list] : followed->lists)
      handleAllowedVlans(intf);
   for (auto const& [intf, port] : ports_)
      handleDynamicGroups(intf);
}

// A port whose VLANs that changes looks at them; the others leave theirs alone.
void Agent::handleWidenerReplaced() {
   for (auto const& [intf, port] : ports_)
      handleDynamicGroups(intf);
   for (auto const& [intf, port] : ports_) {
      computeAllowed(intf);
      if (!port.isAllowedSynced && port.copy.enabled && isTrunkLike(port.copy.mode))
         syncAllVlans(intf);
   }
}

// What a source lists for the port has changed.
void Agent::handleAllowedVlans(std::string const& intf) {
   auto const port = ports_.find(intf);
   if (port == ports_.end())
      return;
   computeAllowed(intf);
   if (port->second.copy.enabled && isTrunkLike(port->second.copy.mode))
      syncAllVlans(intf);
}

// The port's groups are those that a source gives it now.
void Agent::handleDynamicGroups(std::string const& intf) {
   auto const port = ports_.find(intf);
   if (port == ports_.end())
      return;
   auto const before = std::exchange(port->second.dynamicGroups, dynamicGroupsOf(intf));
   auto const& now = port->second.dynamicGroups;
   auto const& own = port->second.copy.trunkGroups;
   bool const gains = std::any_of(now.begin(), now.end(), [&](auto const& group) {
      return !before.contains(group) && !own.contains(group); // its own counts already
   });
   bool const loses =
       std::any_of(before.begin(), before.end(), [&](auto const& group) { return !now.contains(group); });
   if ((gains || loses) && port->second.copy.enabled && port->second.copy.mode == trunk)
      syncAllVlans(intf);
}

std::set<std::string> Agent::dynamicGroupsOf(std::string const& intf) const {
   std::set<std::string> groups;
   for (auto const& [name, its] : wideners_)
      for (auto const& [group, members] : its->groups)
         if (members->contains(intf))
            groups.insert(group);
   return groups;
}

// What a trunk may carry: its list, without what only the protocol asks for, and with what sources add.
VlanSet Agent::trunkVlans(std::string const& intf, VlanSet allowed) {
   allowed &= ~lookAtProtocol();
   if (intf == unconnectedPort)
      return allowed;
   for (auto const& [name, its] : wideners_)
      if (auto const list = its->lists.find(intf); list != its->lists.end())
         allowed |= vlansOf(list->second);
   return allowed;
}

void Agent::startSources() {
   for (auto const& [name, record] : intent_.sources)
      handleSource(name);
   for (auto const& [name, record] : intent_.wideners)
      handleWidener(name);
}

} // namespace Model
