#include "PrivateVlan.h"

#include "Json.h"
#include "Words.h"

namespace Vornctl {

using Bridging::VlanId;
using Bridging::VlanType;

bool hasPrivateRole(Bridging::VlanConfig const& vlan) {
   return vlan.vlanTypeAndPrimaryVlan() != Bridging::VlanTypeAndPrimaryVlan();
}

std::string privateTypeText(Bridging::VlanConfig const& vlan) {
   switch (auto const type = vlan.vlanTypeAndPrimaryVlan().vlanType) {
   case VlanType::primary_:
      return "primary";
   case VlanType::secondary_:
      return "secondary";
   default:
      return "type " + std::to_string(static_cast<unsigned>(type));
   }
}

std::string pairProblem(Bridging::Config const& config, Bridging::VlanConfig const& vlan) {
   auto const role = vlan.vlanTypeAndPrimaryVlan();
   std::string const name = "VLAN " + std::to_string(role.primaryVlan.value());
   if (!hasPrivateRole(vlan))
      return {};
   if (vlan.internal())
      return "it is the internal VLAN of " + vlan.configuredName().str();
   if (role.vlanType == VlanType::primary_)
      return "it is of the primary type, but names " + name + " as its primary";
   if (role.primaryVlan == 0)
      return "it names no primary";
   if (role.primaryVlan == vlan.vlanId())
      return "it names itself as its primary";
   auto const primary = config.vlanConfig(VlanId(role.primaryVlan));
   if (!primary)
      return name + ", which it names, doesn't exist";
   if (primary->internal())
      return name + ", which it names, is the internal VLAN of " + primary->configuredName().str();
   if (primary->vlanTypeAndPrimaryVlan().vlanType != VlanType::primary_)
      return name + ", which it names, is a secondary VLAN itself";
   if (primary->vlanTypeAndPrimaryVlan().primaryVlan != 0)
      return name + ", which it names, names a primary itself";
   return {};
}

Bridging::VlanIdOrNone primaryOf(Bridging::Config const& config, Bridging::VlanConfig const& vlan) {
   return pairProblem(config, vlan).empty() ? vlan.vlanTypeAndPrimaryVlan().primaryVlan
                                            : Bridging::VlanIdOrNone(0);
}

std::vector<VlanId> secondariesOf(Bridging::Config const& config, VlanId primary) {
   std::vector<VlanId> secondaries;
   for (auto const& [vlanId, vlan] : sortedMembers(config.vlanConfig()))
      if (vlan->vlanTypeAndPrimaryVlan().primaryVlan == primary && primaryOf(config, *vlan) == primary)
         secondaries.push_back(vlanId);
   return secondaries;
}

uint16_t filteringDatabase(Bridging::Config const& config, VlanId vlanId) {
   auto const* const fid = config.vidToFidMap().find(vlanId);
   return fid && *fid != 0 ? fid->value() : vlanId.value();
}

std::string roleText(Bridging::Config const& config, Bridging::VlanConfig const& vlan) {
   if (hasPrivateRole(vlan)) {
      auto const problem = pairProblem(config, vlan);
      if (problem.empty())
         return "a secondary of VLAN " + std::to_string(vlan.vlanTypeAndPrimaryVlan().primaryVlan.value());
      bool const isPrimary = vlan.vlanTypeAndPrimaryVlan().vlanType == VlanType::primary_;
      return std::string(isPrimary ? "a primary" : "a secondary") + " of nobody: " + problem;
   }
   std::vector<std::string> secondaries;
   for (VlanId const secondary : secondariesOf(config, vlan.vlanId()))
      secondaries.push_back(std::to_string(secondary.value()));
   return secondaries.empty() ? "" : "the primary of VLAN " + joined(secondaries);
}

std::string roleOnPortText(Bridging::VlanConfig const& vlan, Bridging::Input::SwitchIntfConfig const& record,
                           Bridging::SwitchIntfConfig const& resolved) {
   auto const role = vlan.vlanTypeAndPrimaryVlan();
   auto const [mode, native] = resolved.switchportModeAndNativeVlan();
   if (role.vlanType != VlanType::secondary_ || role.primaryVlan == 0)
      return {};
   if (mode == Bridging::SwitchportMode::trunk_)
      return record.trunkPrivateVlanMapping() ? ", in which the port only receives (trunkPrivateVlanMapping)"
                                              : "";
   if (mode != Bridging::SwitchportMode::access_ || resolved.asymVlanEnabled())
      return {};
   std::string const primary = std::to_string(role.primaryVlan.value());
   if (native == vlan.vlanId())
      return ", in which the port only receives; it sends in VLAN " + primary;
   return native == role.primaryVlan ? ", in which the port only sends; it receives in VLAN " + primary : "";
}

} // namespace Vornctl
