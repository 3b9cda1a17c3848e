// The translations of ports, and what a port makes of private VLANs.
//
// Two write the translation of leaving frames: the port's input, which wins, and private VLANs on a trunk that
// maps them. The table remembers neither: a key that the input loses goes, and a private VLAN's translation
// comes back only when somebody writes it again.

#include "AgentModel.h"

namespace Model {

bool Agent::mapsPrimaries(Port const& copy) const {
   return copy.mapsOnTrunk && copy.mode == trunk;
}

// --- Copies.

// When the port comes up, or has another record: what neither the input nor a private VLAN explains goes.
void Agent::syncTranslations(std::string const& intf) {
   auto const& copy = ports_.at(intf).copy;
   auto& out = resolved_.at(intf);
   out.ingressNative = copy.ingressNative;
   out.egressNative = copy.egressNative;
   out.ingress = copy.ingress;
   std::erase_if(out.egress, [&](auto const& entry) {
      auto const [outer, inner] = entry.first;
      auto const primary = secondaries_.find(outer);
      bool const isPrimarys =
          mapsPrimaries(copy) && inner == 0 && primary != secondaries_.end() && !primary->second.empty();
      return !isPrimarys && !copy.egress.contains(entry.first);
   });
   for (auto const& [from, to] : copy.egress)
      out.egress[from] = to;
}

void Agent::handleTranslation(std::map<Tags, Tags> const& in, std::map<Tags, Tags>& out, Tags const& key) {
   if (auto const found = in.find(key); found != in.end())
      out[key] = found->second;
   else
      out.erase(key);
}

// --- Primary VLANs on a trunk.

void Agent::mapPrimary(std::string const& intf, unsigned primary) {
   auto const found = secondaries_.find(primary);
   if (found == secondaries_.end() || found->second.empty())
      return;
   if (Tags const key{primary, 0}; !ports_.at(intf).copy.egress.contains(key))
      resolved_.at(intf).egress[key] = {*found->second.begin(), 0};
}

// After a secondary has joined or left.
void Agent::syncPrimaryTranslation(std::string const& intf, unsigned primary, unsigned secondary,
                                   bool isSecondary) {
   Tags const key{primary, 0};
   if (ports_.at(intf).copy.egress.contains(key))
      return;
   auto& out = resolved_.at(intf).egress;
   if (!isSecondary) {
      auto const found = out.find(key);
      if (found == out.end() || found->second != Tags(secondary, 0))
         return;
      out.erase(found);
   }
   mapPrimary(intf, primary);
}

void Agent::handleMapsOnTrunk(std::string const& intf) {
   auto const& copy = ports_.at(intf).copy;
   auto& out = resolved_.at(intf).egress;
   if (mapsPrimaries(copy))
      for (auto const& [primary, secondaries] : secondaries_)
         mapPrimary(intf, primary);
   else
      std::erase_if(out, [&](auto const& entry) {
         return secondaries_.contains(entry.first.first) && !copy.egress.contains(entry.first);
      });
   for (auto const& [number, role] : roles_)
      if (role.type == 1)
         syncVlan(intf, number);
}

// --- Secondary VLANs of an access port in their primary.

void Agent::handleMappedSecondary(std::string const& intf, unsigned number) {
   if (!ports_.at(intf).copy.mapsAllSecondaries && isMappable(intf, number))
      syncVlan(intf, number);
}

void Agent::handleMapsAllSecondaries(std::string const& intf) {
   for (auto const& [number, vlan] : vlans_)
      if (isMappable(intf, number))
         syncVlan(intf, number);
}

// Whether the VLAN is a secondary of the port's VLAN, or names it as its primary without being one.
bool Agent::isMappable(std::string const& intf, unsigned number) const {
   auto const& out = resolved_.at(intf);
   if (!ports_.at(intf).copy.enabled || out.mode != access || out.native == 0)
      return false;
   auto const primary = secondaries_.find(out.native);
   if (primary != secondaries_.end() && primary->second.contains(number))
      return true;
   auto const vlan = vlans_.find(number);
   return vlan != vlans_.end() && vlan->second.role.primary == out.native;
}

} // namespace Model
