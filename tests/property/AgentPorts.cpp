// The ports: the deferred stage of their chosen records, what each is at the moment, and the VLANs that it is
// a member of.

#include "AgentModel.h"

#include <algorithm>

namespace Model {

namespace {

bool isSubinterface(std::string const& intf) {
   return intf.find('.') != intf.npos;
}

bool isForwarding(Port const& copy) {
   return copy.enabled && copy.mode != tap && copy.mode != tool;
}

bool intersects(std::set<std::string> const& a, std::set<std::string> const& b) {
   return std::any_of(a.begin(), a.end(), [&](auto const& name) { return b.contains(name); });
}

// The attributes that wait, in the order in which they are applied.
constexpr PortAttr operations[] = {PortAttr::enabled,    PortAttr::trunkAllowed, PortAttr::asym,
                                   PortAttr::accessVlan, PortAttr::trunkNative,  PortAttr::tapNative,
                                   PortAttr::tapAllowed, PortAttr::toolAllowed,  PortAttr::mode};

// Copies one attribute; returns whether it was another.
bool copyAttribute(PortAttr attribute, Port const& in, Port& out) {
   auto const copy = [](auto const& from, auto& to) {
      bool const isOther = from != to;
      to = from;
      return isOther;
   };
   switch (attribute) {
   case PortAttr::enabled:
      return copy(in.enabled, out.enabled);
   case PortAttr::mode:
      return copy(in.mode, out.mode);
   case PortAttr::accessVlan:
      return copy(in.accessVlan, out.accessVlan);
   case PortAttr::trunkNative:
      return copy(in.trunkNative, out.trunkNative);
   case PortAttr::trunkAllowed:
      return copy(in.trunkAllowed, out.trunkAllowed);
   case PortAttr::asym:
      return copy(in.asym, out.asym);
   case PortAttr::trunkGroups:
      return copy(in.trunkGroups, out.trunkGroups);
   case PortAttr::learns:
      return copy(in.learns, out.learns);
   case PortAttr::floods:
      return copy(in.floods, out.floods);
   case PortAttr::tpid:
      return copy(in.tpid, out.tpid);
   case PortAttr::ingressNative:
      return copy(in.ingressNative, out.ingressNative);
   case PortAttr::egressNative:
      return copy(in.egressNative, out.egressNative);
   case PortAttr::ingress:
      return copy(in.ingress, out.ingress);
   case PortAttr::egress:
      return copy(in.egress, out.egress);
   case PortAttr::mappedSecondaries:
      return copy(in.mappedSecondaries, out.mappedSecondaries);
   case PortAttr::mapsAllSecondaries:
      return copy(in.mapsAllSecondaries, out.mapsAllSecondaries);
   case PortAttr::mapsOnTrunk:
      return copy(in.mapsOnTrunk, out.mapsOnTrunk);
   case PortAttr::tapNative:
      return copy(in.tapNative, out.tapNative);
   case PortAttr::tapAllowed:
      return copy(in.tapAllowed, out.tapAllowed);
   case PortAttr::toolAllowed:
      return copy(in.toolAllowed, out.toolAllowed);
   case PortAttr::tagsIdentity:
      return copy(in.tagsIdentity, out.tagsIdentity);
   }
   return false;
}

constexpr PortAttr allAttributes[] = {
    PortAttr::enabled,      PortAttr::mode,      PortAttr::accessVlan,        PortAttr::trunkNative,
    PortAttr::trunkAllowed, PortAttr::asym,      PortAttr::trunkGroups,       PortAttr::learns,
    PortAttr::floods,       PortAttr::tpid,      PortAttr::ingressNative,     PortAttr::egressNative,
    PortAttr::ingress,      PortAttr::egress,    PortAttr::mappedSecondaries, PortAttr::mapsAllSecondaries,
    PortAttr::mapsOnTrunk,  PortAttr::tapNative, PortAttr::tapAllowed,        PortAttr::toolAllowed,
    PortAttr::tagsIdentity};

// The keys of a collection that is followed key by key.
std::set<std::string> keysOf(PortAttr attribute, Port const& port) {
   std::set<std::string> keys;
   if (attribute == PortAttr::mappedSecondaries)
      for (unsigned const number : port.mappedSecondaries)
         keys.insert(std::to_string(number));
   if (attribute == PortAttr::ingress || attribute == PortAttr::egress)
      for (auto const& [from, to] : attribute == PortAttr::ingress ? port.ingress : port.egress)
         keys.insert(tagsText(from));
   return keys;
}

// The same for one key of a collection that is followed key by key; for any other attribute as a whole.
bool copyMember(PortAttr attribute, std::string const& key, Port const& in, Port& out) {
   auto const copyKey = [](auto const& from, auto& to, auto const& item) {
      auto const before = to;
      to.erase(item);
      if (auto const found = from.find(item); found != from.end())
         to.insert(*found);
      return before != to;
   };
   switch (attribute) {
   case PortAttr::mappedSecondaries:
      return copyKey(in.mappedSecondaries, out.mappedSecondaries, static_cast<unsigned>(std::stoul(key)));
   case PortAttr::ingress:
      return copyKey(in.ingress, out.ingress, tagsOf(key));
   case PortAttr::egress:
      return copyKey(in.egress, out.egress, tagsOf(key));
   default:
      return copyAttribute(attribute, in, out);
   }
}

} // namespace

void Agent::sort(std::vector<std::string>& ports, std::map<std::string, int> const& order) {
   std::sort(ports.begin(), ports.end(),
             [&](auto const& a, auto const& b) { return order.at(a) < order.at(b); });
}

std::vector<std::string> Agent::inTableOrder(std::vector<std::string> ports) const {
   sort(ports, portOrder_.inTable);
   return ports;
}

// --- The deferred stage.

void Agent::stagePort(std::string const& intf) {
   auto const record = chosen_.find(intf);
   forget({portEntry, intf});
   if (record == chosen_.end()) {
      portBacklog_.erase(intf);
      portCopyDel(intf);
   } else {
      createPortEntry(intf, record->second);
   }
}

void Agent::createPortEntry(std::string const& intf, std::shared_ptr<Port> const& record) {
   auto const [at, isNew] = ports_.try_emplace(intf);
   auto& port = at->second;
   if (isNew) {
      if (auto const config = intent_.intfConfigs.find(intf); config != intent_.intfConfigs.end())
         port.config = config->second;
      if (auto const status = intent_.intfStatuses.find(intf); status != intent_.intfStatuses.end())
         port.status = status->second;
   }
   port.record = record;
   port.pending.clear();
   for (PortAttr const attribute : allAttributes) {
      auto keys = keysOf(attribute, port.copy);
      keys.merge(keysOf(attribute, *record));
      if (!keys.empty()) {
         copyAttribute(attribute, *record, port.copy);
         for (auto const& key : keys)
            tell({portCopy, intf}, static_cast<int>(attribute), key);
         continue;
      }
      // Groups are cleared and filled, so the port is notified of them in any case.
      bool const isRefilled = attribute == PortAttr::trunkGroups &&
                              !(record->trunkGroups.empty() && port.copy.trunkGroups.empty());
      if (copyAttribute(attribute, *record, port.copy) || isRefilled)
         tell({portCopy, intf}, static_cast<int>(attribute));
   }
   initializePort(intf);
   // A routed port is done with this pass: if it lost its number, the notifications of its copy don't give it
   // another one afterwards.
   if (resolved_.at(intf).mode == routed)
      forget({portCopy, intf});
}

void Agent::mirrorPort(std::string const& intf, Told const& told) {
   auto& port = ports_.at(intf);
   auto const attribute = static_cast<PortAttr>(told.attribute);
   if (std::find(std::begin(operations), std::end(operations), attribute) == std::end(operations)) {
      if (copyMember(attribute, told.key, *port.record, port.copy))
         tell({portCopy, intf}, told.attribute, told.key);
      return;
   }
   port.pending.insert(attribute);
   bool const differs = std::any_of(port.pending.begin(), port.pending.end(), [&](PortAttr a) {
      Port copy = port.copy;
      return copyAttribute(a, *port.record, copy);
   });
   if (differs) {
      portBacklog_.insert(intf);
      arm(Stage::ports);
   } else {
      portBacklog_.erase(intf);
      port.pending.clear();
   }
}

void Agent::processPortBacklog() {
   std::vector<std::string> keys(portBacklog_.begin(), portBacklog_.end());
   sort(keys, portOrder_.byPort);
   for (auto const& intf : keys) {
      while (ports_.contains(intf) && !performOneOperation(intf)) {
      }
      portBacklog_.erase(intf);
   }
}

// Returns whether nothing is left.
bool Agent::performOneOperation(std::string const& intf) {
   auto& port = ports_.at(intf);
   for (PortAttr const attribute : operations) {
      if (!port.pending.erase(attribute))
         continue;
      if (copyAttribute(attribute, *port.record, port.copy))
         tell({portCopy, intf}, static_cast<int>(attribute));
      break;
   }
   return port.pending.empty();
}

void Agent::portCopyDel(std::string const& intf) {
   dropStartup(intf);
   if (!ports_.contains(intf))
      return;
   retirePort(intf);
   forget({portCopy, intf});
   forget({portConfig, intf});
   forget({portStatus, intf});
   ports_.erase(intf);
   resolved_.erase(intf);
}

// --- The life of one port.

void Agent::initializePort(std::string const& intf) {
   auto& port = ports_.at(intf);
   port.isInitialized = true;
   bool const hadNumber = startupInternalVlan_.contains(intf);
   auto const [mode, native] = modeAndNative(intf);
   if (!resolved_.contains(intf))
      ++births_.ports[intf];
   auto& out = resolved_[intf];
   out.mode = mode;
   out.native = native;
   port.allowed.reset();
   port.asym.reset();
   computeAsym(intf);
   computeAllowed(intf);
   port.dynamicGroups = dynamicGroupsOf(intf);
   syncAllVlans(intf);
   syncFlags(intf);
   syncTranslations(intf);
   out.tpid = port.copy.tpid;
   handleMapsOnTrunk(intf);
   // A port that has just lost its number of the previous run doesn't get another one in the same pass.
   if (!hadNumber || native != 0 || startupInternalVlan_.contains(intf))
      handleForwardingModel(intf);
}

void Agent::retirePort(std::string const& intf) {
   for (auto& [number, vlan] : vlans_)
      vlan.members.erase(intf);
   if (auto const held = internalVlan_.find(intf); held != internalVlan_.end())
      release(intf, held->second);
   dropStartup(intf);
   waiting_.erase(intf);
}

void Agent::handlePortCopy(std::string const& intf, Told const& told) {
   auto& port = ports_.at(intf);
   auto& out = resolved_.at(intf);
   Port const& copy = port.copy;
   switch (static_cast<PortAttr>(told.attribute)) {
   case PortAttr::enabled:
   case PortAttr::asym:
      return handleEnabled(intf);
   case PortAttr::mode:
      if (!copy.enabled)
         return handleMapsOnTrunk(intf);
      computeAsym(intf);
      if (isTrunkLike(copy.mode))
         computeAllowed(intf);
      syncModeAndNative(intf);
      syncAllVlans(intf);
      syncFlags(intf);
      return handleMapsOnTrunk(intf);
   case PortAttr::accessVlan:
      if (!copy.enabled)
         return;
      computeAsym(intf);
      if (copy.mode == access || copy.mode == tunnel) {
         syncModeAndNative(intf);
         syncAllVlans(intf);
      }
      return;
   case PortAttr::trunkNative:
   case PortAttr::tapNative:
      if (copy.enabled && isTrunkLike(copy.mode))
         syncModeAndNative(intf);
      return;
   case PortAttr::trunkAllowed:
   case PortAttr::tapAllowed:
   case PortAttr::toolAllowed:
      computeAllowed(intf);
      if (copy.enabled && isTrunkLike(copy.mode))
         syncAllVlans(intf);
      return;
   case PortAttr::trunkGroups:
      if (copy.enabled && copy.mode == trunk)
         syncAllVlans(intf);
      return;
   case PortAttr::learns:
      return syncLearning(intf);
   case PortAttr::floods:
      return syncFlooding(intf);
   case PortAttr::tpid:
      out.tpid = copy.tpid;
      return;
   case PortAttr::ingressNative:
      out.ingressNative = copy.ingressNative;
      return;
   case PortAttr::egressNative:
      out.egressNative = copy.egressNative;
      return;
   case PortAttr::ingress:
      return handleTranslation(copy.ingress, out.ingress, tagsOf(told.key));
   case PortAttr::egress:
      return handleTranslation(copy.egress, out.egress, tagsOf(told.key));
   case PortAttr::mappedSecondaries:
      return handleMappedSecondary(intf, static_cast<unsigned>(std::stoul(told.key)));
   case PortAttr::mapsAllSecondaries:
      return handleMapsAllSecondaries(intf);
   case PortAttr::mapsOnTrunk:
      return handleMapsOnTrunk(intf);
   default:
      return; // counts from the next pass on
   }
}

void Agent::handleEnabled(std::string const& intf) {
   computeAsym(intf);
   syncModeAndNative(intf);
   syncAllVlans(intf);
   syncFlags(intf);
}

// --- The interface behind the port.

void Agent::handleIntfConfig(std::string const& intf) {
   auto const port = ports_.find(intf);
   if (port == ports_.end())
      return;
   auto const found = intent_.intfConfigs.find(intf);
   auto const config = found == intent_.intfConfigs.end() ? nullptr : found->second;
   if (port->second.config != config)
      forget({portConfig, intf});
   port->second.config = config;
   if (config)
      return handleShut(intf);
   dropStartup(intf);
   auto& out = resolved_.at(intf);
   if (out.mode == routed && out.native != 0) {
      release(intf, out.native);
      syncModeAndNative(intf);
   }
}

void Agent::handleIntfStatus(std::string const& intf) {
   auto const port = ports_.find(intf);
   if (port == ports_.end())
      return;
   auto const found = intent_.intfStatuses.find(intf);
   auto const status = found == intent_.intfStatuses.end() ? nullptr : found->second;
   if (port->second.status != status) {
      forget({portStatus, intf});
      port->second.status = status;
      handleForwardingModel(intf); // it may come with its model
   }
   if (status)
      return;
   dropStartup(intf);
   auto& out = resolved_.at(intf);
   if (out.mode == routed && out.native != 0) {
      release(intf, out.native);
      syncModeAndNative(intf);
   }
}

void Agent::handleShut(std::string const& intf) {
   auto const& port = ports_.at(intf);
   auto& out = resolved_.at(intf);
   if (out.mode != routed)
      return;
   if (port.config && port.config->isShut && out.native != 0)
      release(intf, out.native);
   handleEnabled(intf);
}

void Agent::handleForwardingModel(std::string const& intf) {
   auto const& port = ports_.at(intf);
   if (!port.status)
      return;
   auto& out = resolved_.at(intf);
   if (port.status->forwardingModel == routedModel) {
      if (out.mode == routed)
         syncModeAndNative(intf); // one without a VLAN may get one
   } else if (internalVlan_.contains(intf) && routedPort_.contains(out.native)) {
      release(intf, out.native);
   }
}

// --- Mode, native VLAN and the lists.

void Agent::syncModeAndNative(std::string const& intf) {
   auto& out = resolved_.at(intf);
   unsigned const before = out.native;
   auto const [mode, native] = modeAndNative(intf);
   out.mode = mode;
   out.native = native;
   computeAsym(intf);
   syncVlan(intf, before);
   syncVlan(intf, native);
}

void Agent::computeAllowed(std::string const& intf) {
   if (isSubinterface(intf))
      return;
   auto& port = ports_.at(intf);
   auto const& copy = port.copy;
   VlanSet const before = port.allowed;
   if (copy.mode == tap || copy.mode == tool)
      port.allowed = vlansOf(copy.mode == tap ? copy.tapAllowed : copy.toolAllowed);
   else
      port.allowed = trunkVlans(intf, vlansOf(copy.trunkAllowed));
   if (before != port.allowed)
      port.isAllowedSynced = false;
}

void Agent::computeAsym(std::string const& intf) {
   if (isSubinterface(intf))
      return;
   auto& port = ports_.at(intf);
   auto& out = resolved_.at(intf);
   bool const isAsym = !port.copy.asym.empty() && port.copy.mode == access;
   port.asym = isAsym ? vlansOf(port.copy.asym) : VlanSet();
   out.takesTagged = !isAsym;
   out.filters = !isAsym || port.asym.test(port.copy.accessVlan);
   out.isAsym = isAsym;
}

void Agent::syncFlags(std::string const& intf) {
   syncLearning(intf);
   syncFlooding(intf);
}

void Agent::syncLearning(std::string const& intf) {
   Port const& copy = ports_.at(intf).copy;
   resolved_.at(intf).learns = copy.learns && isForwarding(copy);
}

void Agent::syncFlooding(std::string const& intf) {
   Port const& copy = ports_.at(intf).copy;
   resolved_.at(intf).floods = copy.floods && isForwarding(copy);
}

// --- Membership.

void Agent::syncAllVlans(std::string const& intf) {
   ports_.at(intf).isAllowedSynced = true;
   for (auto const& [number, vlan] : vlans_)
      syncVlan(intf, number);
}

void Agent::syncVlan(std::string const& intf, unsigned number) {
   auto const vlan = vlans_.find(number);
   if (vlan == vlans_.end())
      return;
   if (isMember(intf, number))
      vlan->second.members[intf] = memberOf(intf, number);
   else
      vlan->second.members.erase(intf);
}

bool Agent::isMember(std::string const& intf, unsigned number) const {
   auto const& port = ports_.at(intf);
   auto const& out = resolved_.at(intf);
   auto const& vlan = vlans_.at(number);
   if (vlan.isSuspended)
      return false;
   if (out.mode == routed)
      return out.native == number;
   if (vlan.internal)
      return false;
   if (out.mode == tunnel)
      return out.native == number;
   if (out.isAsym && out.mode == access)
      return port.asym.test(number);
   if (out.mode == access)
      return isAccessMember(port.copy, out.native, number);
   return port.allowed.test(number) &&
          (vlan.trunkGroups.empty() || intersects(vlan.trunkGroups, port.copy.trunkGroups) ||
           intersects(vlan.trunkGroups, port.dynamicGroups));
}

bool Agent::isAccessMember(Port const& copy, unsigned native, unsigned number) const {
   if (native == 0)
      return false;
   auto const own = vlans_.find(native);
   auto const& vlan = vlans_.at(number);
   if (own != vlans_.end() && !own->second.isSuspended) {
      if (own->second.role.primary == number && vlan.role.type == 0)
         return true;
      if (vlan.role.primary == native && own->second.role.type == 0)
         return copy.mapsAllSecondaries || copy.mappedSecondaries.contains(number);
   }
   return native == number;
}

Member Agent::memberOf(std::string const& intf, unsigned number) const {
   auto const& copy = ports_.at(intf).copy;
   auto const& out = resolved_.at(intf);
   auto const& vlan = vlans_.at(number);
   if (out.isAsym)
      return {};
   bool const tagged = out.native != number;
   switch (out.mode) {
   case tool:
      return {.direction = 2};
   case tap:
      return {.tagged = copy.tagsIdentity, .direction = 1};
   case trunk:
      return {.tagged = tagged, .direction = copy.mapsOnTrunk && vlan.role.type == 1 ? 1u : 0u};
   case access: {
      if (out.native != 0 && out.native != number)
         return {.mapped = true, .direction = 2};
      auto const primary = vlans_.find(vlan.role.primary);
      bool const isSecondary =
          vlan.role.type == 1 && primary != vlans_.end() && primary->second.role.type == 0;
      return {.tagged = tagged, .direction = isSecondary ? 1u : 0u};
   }
   default:
      return {.tagged = tagged};
   }
}

} // namespace Model
