#include "DynamicSources.h"

#include "Words.h"

#include "Vorn/Rules/AllowedVlans.h"
#include "Vorn/Rules/BestInput.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/TrunkGroup.h"

#include <algorithm>

namespace Vornctl {

namespace {

template <class Visit>
void forEachAllower(SwitchState const& state, Visit&& visit) {
   if (!state.dynAllowedVlans)
      return;
   for (auto const& [name, entity] : state.dynAllowedVlans->entities())
      if (auto const source = Kem::ptrCast<Bridging::Input::AllowedVlans>(entity))
         visit(name.str(), *source);
}

// Visits name and VLANs of each source that allows some on the port.
template <class Visit>
void forEachAllowed(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
                    Visit&& visit) {
   if (!Vorn::takesDynAllowedVlans(record))
      return;
   forEachAllower(state, [&](std::string const& name, Bridging::Input::AllowedVlans const& source) {
      auto const* const list = source.vlans(record.intfId());
      if (!list)
         return;
      VornUtils::VlanIdSet vlans;
      VornUtils::computeVlanSet(vlans, list->view());
      visit(name, vlans);
   });
}

} // namespace

Sources dynVlanSources(SwitchState const& state) {
   return state.dynVlans ? Vorn::dynVlanSources(*state.dynVlans) : Sources();
}

std::vector<Vorn::DynVlanSource const*> claimsOf(Sources const& sources, Bridging::VlanId vlanId) {
   std::vector<Vorn::DynVlanSource const*> claims;
   for (auto const& source : sources)
      if (source.vlans.vlan(vlanId))
         claims.push_back(&source);
   std::sort(claims.begin(), claims.end(),
             [](auto const* a, auto const* b) { return Vorn::isPreferred(a->rank, b->rank); });
   return claims;
}

std::string claimsText(std::vector<Vorn::DynVlanSource const*> const& claims) {
   std::vector<std::string> texts;
   for (auto const* const claim : claims)
      texts.push_back(claim->rank.name.str() + ' ' + std::to_string(claim->rank.priority));
   return joined(texts);
}

std::string staticInputOf(SwitchState const& state, Bridging::VlanId vlanId) {
   auto const input = Vorn::bestVlanInput(*state.inputs);
   return input && input->vlanConfig().find(vlanId) ? input->name().str() : "";
}

VornUtils::VlanIdSet mvrpOnlyVlans(SwitchState const& state) {
   for (auto const& source : dynVlanSources(state))
      if (source.rank.name.view() == Vorn::mvrpSource)
         return Vorn::mvrpOnlyVlans(source.vlans, Vorn::bestVlanInput(*state.inputs).ptr());
   return {};
}

VornUtils::VlanIdSet allowedVlans(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record) {
   auto allowed = Vorn::allowedVlans(record).vlans;
   if (Vorn::takesDynamicVlans(record))
      allowed -= mvrpOnlyVlans(state);
   forEachAllowed(state, record,
                  [&](std::string const&, VornUtils::VlanIdSet const& vlans) { allowed |= vlans; });
   return allowed;
}

std::vector<std::string> allowersOf(SwitchState const& state, Bridging::Input::SwitchIntfConfig const& record,
                                    Bridging::VlanId vlanId) {
   std::vector<std::string> names;
   forEachAllowed(state, record, [&](std::string const& name, VornUtils::VlanIdSet const& vlans) {
      if (vlans.vlan(vlanId))
         names.push_back(name);
   });
   return names;
}

std::vector<DynTrunkGroup> dynTrunkGroupsOf(SwitchState const& state, Sulvi::IntfId port) {
   std::vector<DynTrunkGroup> groups;
   forEachAllower(state, [&](std::string const& name, Bridging::Input::AllowedVlans const& source) {
      for (auto const& [group, record] : source.trunkGroup())
         if (record->intfList().find(port))
            groups.push_back({group.str(), name});
   });
   std::sort(groups.begin(), groups.end(), [](DynTrunkGroup const& a, DynTrunkGroup const& b) {
      return std::tie(a.group, a.source) < std::tie(b.group, b.source);
   });
   return groups;
}

} // namespace Vornctl
