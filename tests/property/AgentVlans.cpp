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
      } else if (!routedPort_.contains(number) && !startupRoutedPort_.contains(number) && !isWanted &&
                 !isDynamic(number)) {
         handleVlan(number);
      }
   }
   stageAllVlans();
   handleClaimsOfNewChoice();
}

// A copy was made or deleted, or a VLAN has lost its input.
void Agent::handleVlan(unsigned number) {
   if (auto const state = vlanStates_.find(number); state != vlanStates_.end())
      return; // the copy's own handlers go on
   handleVlanNoLongerStatic(number);
}

void Agent::resolvedVlanDel(unsigned number) {
   if (!vlans_.contains(number))
      return;
   touchRelatives(number);
   roleIs(number, {});
   vlans_.erase(number);
   tell({library, ""}, 0, std::to_string(number));
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
   bool const isNew = !vlans_.contains(number); // a source may have it already
   auto& out = vlans_[number];
   if (isNew)
      vlanIsBorn(number);
   out.source = selected_->name;
   // What only the protocol asked for is the lists' to allow from now on.
   if (auto const claims = claims_.find(number);
       claims != claims_.end() && claims->second == std::set<std::string>{"mvrp"})
      computeAllAllowed(false);
   out.name = state.copy.name;
   syncTrunkGroups(number);
   handleAdminState(number);
   roleIs(number, state.copy.role);
}

void Agent::vlanIsBorn(unsigned number) {
   ++births_.vlans[number];
   touchRelatives(number);
   tell({library, ""}, 0, std::to_string(number));
}

void Agent::retireVlan(unsigned number) {
   for (auto const& [intf, port] : ports_) {
      if (!port.copy.enabled || port.copy.mode > tunnel || resolved_.at(intf).native != number)
         continue;
      resolved_.at(intf).native = 0;
   }
   if (vlans_.contains(number))
      roleIs(number, {});
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
      return roleIs(number, state.copy.role);
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
   bool const isSuspended = vlanStates_.at(number).copy.isSuspended;
   if (vlans_.at(number).isSuspended != isSuspended)
      touchRelatives(number);
   vlans_.at(number).isSuspended = isSuspended;
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
