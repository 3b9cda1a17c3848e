#include "AllowedVlans.h"

#include "Inputs.h"

#include "Sulvi/IntfKind.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/TrunkGroup.h"
#include "records/Bridging/Input/VlanIdSet.h"

namespace Vornctl {

namespace {

using Bridging::Input::SwitchIntfConfig;
using InputMode = Bridging::Input::SwitchportMode;

// VLANs that MVRP has learned and nobody has configured are not for the configured list to allow.
void takeLearnedOut(SwitchState const& state, AllowedVlans& allowed) {
   auto const mvrp = state.dynVlans ? state.dynVlans->entity<Bridging::Input::VlanIdSet>("mvrp") : nullptr;
   if (!mvrp)
      return;
   auto const inputs = inputsOf(state);
   size_t const winner = vlanWinner(inputs);
   VornUtils::VlanIdSet claimed;
   VornUtils::computeVlanSet(claimed, mvrp->vlans().view());
   claimed.forEach([&](uint16_t vlan) {
      bool const isConfigured = winner < inputs.size() && Bridging::VlanId::isLegal(vlan) &&
                                inputs[winner].config->vlanConfig().find(Bridging::VlanId(vlan));
      if (isConfigured || !allowed.vlans.vlan(vlan))
         return;
      allowed.vlans.doRemove(vlan);
      allowed.learned.vlanIs(vlan);
   });
}

template <class Visit>
void forEachDynamicSource(SwitchState const& state, Visit&& visit) {
   if (!state.dynAllowedVlans)
      return;
   for (auto const& [name, entity] : state.dynAllowedVlans->entities())
      if (auto const source = Kem::ptrCast<Bridging::Input::AllowedVlans>(entity))
         visit(name.str(), *source);
}

} // namespace

AllowedVlans allowedVlans(SwitchState const& state, SwitchIntfConfig const& record) {
   AllowedVlans allowed;
   InputMode const mode = record.switchportMode();
   if (mode == InputMode::tap_) {
      allowed.attribute = "tapAllowedVlans";
      allowed.list = record.tapAllowedVlans().str();
   } else if (mode == InputMode::tool_) {
      allowed.attribute = "toolAllowedVlans";
      allowed.list = record.toolAllowedVlans().str();
   } else {
      allowed.attribute = "trunkAllowedVlans";
      allowed.list = record.trunkAllowedVlans().str();
   }
   allowed.leftOut = VornUtils::computeVlanSet(allowed.vlans, allowed.list);
   if (mode == InputMode::tap_ || mode == InputMode::tool_)
      return allowed; // dynamic sources don't reach these
   takeLearnedOut(state, allowed);
   Sulvi::IntfId const port = record.intfId();
   if (Sulvi::EthIntfId::isUnconnected(port) || Sulvi::PortChannelIntfId::isRecirc(port))
      return allowed;
   forEachDynamicSource(state, [&](std::string const& name, Bridging::Input::AllowedVlans const& source) {
      if (auto const* const list = source.vlans(port)) {
         AllowedVlans::Addition addition{name, {}};
         VornUtils::computeVlanSet(addition.vlans, list->view());
         addition.vlans.forEach([&](uint16_t vlan) { allowed.vlans.vlanIs(vlan); });
         allowed.additions.push_back(std::move(addition));
      }
   });
   return allowed;
}

std::vector<std::string> dynTrunkGroups(SwitchState const& state, Sulvi::IntfId port) {
   std::vector<std::string> groups;
   forEachDynamicSource(state, [&](std::string const&, Bridging::Input::AllowedVlans const& source) {
      for (auto const& [name, group] : source.trunkGroup())
         if (group->intfList().find(port))
            groups.push_back(name.str());
   });
   return groups;
}

} // namespace Vornctl
