// The VLANs of the selected input: their deferred stage, the copies, and the resolved records.

#include "AgentModel.h"

#include <utility>

namespace Model {

namespace {
unsigned numberOf(std::string const& vlanIntf) {
   return static_cast<unsigned>(std::stoul(vlanIntf.substr(4)));
}
} // namespace

// --- Another input is selected.

void Agent::handleSelectedInput() {
   settings_.detail = selected_ ? selected_->detail : "";
   std::vector<unsigned> numbers;
   for (auto const& [number, vlan] : vlans_)
      numbers.push_back(number);
   for (unsigned const number : numbers) {
      if (!vlans_.contains(number))
         continue;
      bool const isWanted = selected_ && selected_->vlans.contains(number);
      if (isWanted && vlans_.at(number).internal) {
         resolvedVlanDel(number);
         claimed(number);
      } else if (!routedPort_.contains(number) && !startupRoutedPort_.contains(number) && !isWanted) {
         handleVlan(number);
      }
   }
   // Claimed VLANs that the former input held, and had no copy of yet.
   for (auto const& [number, claims] : std::map(claims_))
      if (!isStatic(number) && !vlans_.contains(number))
         handleVlanNoLongerStatic(number);
   computeAllAllowed(true);
   stageAllVlans();
}

// A copy was made or deleted, or a VLAN has lost its input.
void Agent::handleVlan(unsigned number) {
   if (auto const state = vlanStates_.find(number); state != vlanStates_.end())
      return; // the copy's own handlers go on
   handleVlanNoLongerStatic(number);
}

void Agent::resolvedVlanDel(unsigned number) {
   if (vlans_.erase(number))
      tell({privateVlans, ""});
}

// --- The deferred stage.

void Agent::stageAllVlans() {
   vlanBacklog_.clear();
   forget({vlanStage, ""});
   for (auto const& [number, state] : std::map(vlanStates_))
      stageVlan(number);
   if (selected_)
      for (auto const& [number, vlan] : selected_->vlans)
         stageVlan(number);
}

void Agent::stageVlan(unsigned number) {
   std::shared_ptr<Vlan> in;
   if (selected_)
      if (auto const found = selected_->vlans.find(number); found != selected_->vlans.end())
         in = found->second;
   auto const state = vlanStates_.find(number);
   if (!in && state == vlanStates_.end()) {
      vlanBacklog_.erase(number);
      if (auto const left = vlans_.find(number);
          left != vlans_.end() ? !left->second.internal : claims_.contains(number))
         handleVlanNoLongerStatic(number); // it left before it had a copy
   } else if (!in || state == vlanStates_.end() || !(*in == state->second.copy)) {
      vlanBacklog_.insert(number);
      arm(Stage::vlans);
   } else {
      // The same from another record: the copy follows that one from now on, and nothing else happens.
      forget({vlanEntry, std::to_string(number)});
      state->second.record = in;
      vlanBacklog_.erase(number);
   }
}

void Agent::processVlanBacklog() {
   while (!vlanBacklog_.empty()) {
      unsigned const number = *vlanBacklog_.begin();
      vlanBacklog_.erase(vlanBacklog_.begin());
      deliverVlan(number);
   }
}

void Agent::deliverVlan(unsigned number) {
   std::shared_ptr<Vlan> in;
   if (selected_)
      if (auto const found = selected_->vlans.find(number); found != selected_->vlans.end())
         in = found->second;
   auto const state = vlanStates_.find(number);
   if (in && state != vlanStates_.end() && *in == state->second.copy) {
      // What differed when it was put in the backlog has been mirrored since.
      forget({vlanEntry, std::to_string(number)});
      state->second.record = in;
      return;
   }
   vlanCopyDel(number);
   if (!in)
      return;
   vlanStates_[number].copy = *in;
   vlanStates_[number].record = in;
   // The copy was filled attribute by attribute while its machine followed it already: it is notified
   // of each.
   Vlan const fresh;
   FollowerId const follower{vlanCopy, std::to_string(number)};
   if (in->isSuspended != fresh.isSuspended)
      tell(follower, static_cast<int>(VlanAttr::isSuspended));
   if (in->name != fresh.name)
      tell(follower, static_cast<int>(VlanAttr::name));
   if (!(in->role == fresh.role))
      tell(follower, static_cast<int>(VlanAttr::role));
   for (auto const& group : in->trunkGroups)
      tell(follower, static_cast<int>(VlanAttr::trunkGroups), group);
   initializeVlan(number);
}

void Agent::vlanCopyDel(unsigned number) {
   forget({vlanEntry, std::to_string(number)});
   auto const state = vlanStates_.find(number);
   if (state == vlanStates_.end())
      return;
   if (state->second.isInitialized)
      retireVlan(number);
   forget({vlanCopy, std::to_string(number)});
   vlanStates_.erase(state);
   handleVlanNoLongerStatic(number);
}

// --- The life of one VLAN.

void Agent::initializeVlan(unsigned number) {
   auto& state = vlanStates_.at(number);
   state.isInitialized = true;
   claimed(number);
   if (auto const left = vlans_.find(number); left != vlans_.end() && left->second.internal)
      resolvedVlanDel(number); // a port's that hasn't taken it up again: the user's claim wins
   auto& out = vlans_[number];
   ++births_.vlans[number];
   tell({privateVlans, ""});
   out.source = selected_->name;
   // What only the protocol asked for is the lists' to allow from now on.
   if (auto const claims = claims_.find(number);
       claims != claims_.end() && claims->second == std::set<std::string>{"mvrp"})
      computeAllAllowed(false);
   out.name = state.copy.name;
   syncTrunkGroups(number);
   handleAdminState(number);
   vlans_.at(number).role = state.copy.role;
}

void Agent::retireVlan(unsigned number) {
   for (auto const& [intf, port] : ports_) {
      if (!port.copy.enabled || port.copy.mode > tunnel || resolved_.at(intf).native != number)
         continue;
      resolved_.at(intf).native = 0;
   }
   if (auto const out = vlans_.find(number); out != vlans_.end())
      out->second.role = {};
   tell({privateVlans, ""});
}

// The selected record has changed: the copy follows at once.
void Agent::mirrorVlan(unsigned number, Told const& told) {
   auto& state = vlanStates_.at(number);
   auto const& in = *state.record;
   auto& out = state.copy;
   FollowerId const follower{vlanCopy, std::to_string(number)};
   switch (static_cast<VlanAttr>(told.attribute)) {
   case VlanAttr::isSuspended:
      if (std::exchange(out.isSuspended, in.isSuspended) != in.isSuspended)
         tell(follower, told.attribute);
      return;
   case VlanAttr::name:
      if (std::exchange(out.name, in.name) != in.name)
         tell(follower, told.attribute);
      return;
   case VlanAttr::role:
      if (!(std::exchange(out.role, in.role) == in.role))
         tell(follower, told.attribute);
      return;
   case VlanAttr::trunkGroups: {
      bool const isWanted = in.trunkGroups.contains(told.key);
      if (isWanted ? out.trunkGroups.insert(told.key).second : out.trunkGroups.erase(told.key) != 0)
         tell(follower, told.attribute, told.key);
      return;
   }
   }
}

void Agent::handleVlanCopy(unsigned number, Told const& told) {
   auto const& state = vlanStates_.at(number);
   auto& out = vlans_.at(number);
   switch (static_cast<VlanAttr>(told.attribute)) {
   case VlanAttr::isSuspended:
      return handleAdminState(number);
   case VlanAttr::name:
      out.name = state.copy.name;
      return;
   case VlanAttr::role:
      out.role = state.copy.role;
      return tell({privateVlans, ""});
   case VlanAttr::trunkGroups:
      if (state.copy.trunkGroups.contains(told.key))
         out.trunkGroups.insert(told.key);
      else
         out.trunkGroups.erase(told.key);
      return handleAdminState(number); // also when nothing changed
   }
}

void Agent::syncTrunkGroups(unsigned number) {
   vlans_.at(number).trunkGroups = vlanStates_.at(number).copy.trunkGroups;
}

// The pass that gives each switchport its native VLAN and its membership again.
void Agent::handleAdminState(unsigned number) {
   vlans_.at(number).isSuspended = vlanStates_.at(number).copy.isSuspended;
   std::vector<std::string> ports;
   for (auto const& [intf, port] : ports_)
      if (port.copy.enabled)
         ports.push_back(intf);
   for (auto const& intf : inTableOrder(ports)) {
      auto const [mode, native] = modeAndNative(intf);
      auto& out = resolved_.at(intf);
      unsigned const before = out.native;
      bool const isOther = mode != out.mode || native != out.native;
      out.mode = mode;
      out.native = native;
      if (isOther) {
         computeAsym(intf);
         syncVlan(intf, before);
         syncVlan(intf, native);
      }
      syncVlan(intf, number);
      if (auto const primary = secondaries_.find(number); primary != secondaries_.end())
         for (unsigned const secondary : primary->second)
            syncVlan(intf, secondary);
      syncVlan(intf, vlans_.at(number).role.primary);
   }
   syncCpuPort(number);
}

// --- The processor's port.

void Agent::syncCpuPort(unsigned number) {
   auto& out = vlans_.at(number);
   auto const vlanIntf = intent_.vlanIntfs.find("Vlan" + std::to_string(number));
   if (vlanIntf != intent_.vlanIntfs.end() && vlanIntf->second.isInUse() && !out.isSuspended)
      out.members["Cpu"] = {.tagged = true};
   else
      out.members.erase("Cpu");
   syncCpuPortOfSecondaries(number);
   auto const role = roles_.find(number);
   if (out.role.primary == 0 || role == roles_.end() || role->second.primary == 0)
      return;
   auto const primary = vlans_.find(out.role.primary);
   if (primary != vlans_.end() && primary->second.role == Role() && !primary->second.internal)
      syncSecondaryCpuPort(primary->second, out);
}

void Agent::syncCpuPortOfSecondaries(unsigned number) {
   if (auto const primary = secondaries_.find(number); primary != secondaries_.end())
      for (unsigned const secondary : primary->second)
         if (auto const found = vlans_.find(secondary); found != vlans_.end())
            syncSecondaryCpuPort(vlans_.at(number), found->second);
}

void Agent::syncSecondaryCpuPort(ResolvedVlan const& primary, ResolvedVlan& secondary) {
   if (!secondary.isSuspended && primary.members.contains("Cpu"))
      secondary.members["Cpu"] = {.tagged = true};
   else
      secondary.members.erase("Cpu");
}

// What the library of private VLANs makes of the resolved roles.
void Agent::followRoles() {
   secondaries_.clear();
   roles_.clear();
   for (auto const& [number, vlan] : vlans_) {
      if (vlan.internal || vlan.role.type == 0)
         continue;
      roles_[number] = vlan.role;
      auto const primary = vlans_.find(vlan.role.primary);
      if (primary == vlans_.end() || primary->second.internal || !(primary->second.role == Role()))
         continue;
      secondaries_[vlan.role.primary].insert(number);
      roles_[vlan.role.primary] = {};
   }
}

// --- VLAN interfaces.

void Agent::handleVlanIntf(std::string const& intf) {
   if (intent_.vlanIntfs.contains(intf))
      claimed(numberOf(intf));
}

bool Agent::hasVlanIntf(unsigned number) const {
   return intent_.vlanIntfs.contains("Vlan" + std::to_string(number));
}

} // namespace Model
