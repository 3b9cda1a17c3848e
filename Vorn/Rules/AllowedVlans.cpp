#include "Vorn/Rules/AllowedVlans.h"

#include "Sulvi/IntfKind.h"

namespace Vorn {

using Bridging::Input::SwitchIntfConfig;
using InputMode = Bridging::Input::SwitchportMode;

bool hasVlanSets(Sulvi::IntfId intfId) {
   return !Sulvi::SubIntfId::isSubIntfId(intfId);
}

AllowedVlanList allowedVlanList(SwitchIntfConfig const& record) {
   if (record.switchportMode() == InputMode::tap_)
      return {"tapAllowedVlans", record.tapAllowedVlans()};
   if (record.switchportMode() == InputMode::tool_)
      return {"toolAllowedVlans", record.toolAllowedVlans()};
   return {"trunkAllowedVlans", record.trunkAllowedVlans()};
}

bool takesDynamicVlans(SwitchIntfConfig const& record) {
   return hasVlanSets(record.intfId()) && record.switchportMode() != InputMode::tap_ &&
          record.switchportMode() != InputMode::tool_;
}

bool takesDynAllowedVlans(SwitchIntfConfig const& record) {
   return takesDynamicVlans(record) && !Sulvi::EthIntfId::isUnconnected(record.intfId()) &&
          !Sulvi::PortChannelIntfId::isRecirc(record.intfId());
}

AllowedVlans allowedVlans(SwitchIntfConfig const& record) {
   auto const configured = allowedVlanList(record);
   AllowedVlans allowed{
       .vlans = {}, .attribute = configured.attribute, .list = configured.list, .leftOut = {}};
   if (hasVlanSets(record.intfId()))
      allowed.leftOut = VornUtils::computeVlanSet(allowed.vlans, allowed.list.view());
   return allowed;
}

bool isAsymmetric(SwitchIntfConfig const& record) {
   return !record.asymVlans().empty() && record.switchportMode() == InputMode::access_;
}

AsymVlans asymVlans(SwitchIntfConfig const& record) {
   AsymVlans asym;
   if (hasVlanSets(record.intfId()) && isAsymmetric(record))
      asym.leftOut = VornUtils::computeVlanSet(asym.vlans, record.asymVlans().view());
   return asym;
}

} // namespace Vorn
