#include "Vorn/Rules/AllowedVlans.h"

#include "Sulvi/IntfKind.h"

namespace Vorn {

using Bridging::Input::SwitchIntfConfig;
using InputMode = Bridging::Input::SwitchportMode;

bool hasVlanSets(Sulvi::IntfId intfId) {
   return !Sulvi::SubIntfId::isSubIntfId(intfId);
}

AllowedVlans allowedVlans(SwitchIntfConfig const& record) {
   AllowedVlans allowed{.vlans = {}, .attribute = "trunkAllowedVlans", .list = {}, .leftOut = {}};
   if (record.switchportMode() == InputMode::tap_) {
      allowed.attribute = "tapAllowedVlans";
      allowed.list = record.tapAllowedVlans();
   } else if (record.switchportMode() == InputMode::tool_) {
      allowed.attribute = "toolAllowedVlans";
      allowed.list = record.toolAllowedVlans();
   } else {
      allowed.list = record.trunkAllowedVlans();
   }
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
