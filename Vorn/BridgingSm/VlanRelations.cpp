#include "Vorn/BridgingSm/VlanRelations.h"

namespace Vorn {

void VlanRelations::roleIs(Bridging::VlanId vlanId, Role const& role) {
   auto const found = role_.find(vlanId);
   if (role == (found == role_.end() ? Role() : found->second))
      return;
   mark(vlanId);
   markRelatives(vlanId);
   if (auto const old = primary(vlanId); old != 0) {
      auto const others = naming_.find(Bridging::VlanId(old));
      others->second.doRemove(vlanId);
      if (others->second.empty())
         naming_.erase(others);
   }
   if (role == Role())
      role_.erase(found);
   else
      role_[vlanId] = role;
   if (role.primaryVlan != 0)
      naming_[Bridging::VlanId(role.primaryVlan)].vlanIs(vlanId);
   markRelatives(vlanId);
}

Bridging::VlanIdOrNone VlanRelations::primary(Bridging::VlanId vlanId) const {
   auto const found = role_.find(vlanId);
   return found == role_.end() ? Bridging::VlanIdOrNone(0) : found->second.primaryVlan;
}

bool VlanRelations::names(Bridging::VlanId vlanId, Bridging::VlanId other) const {
   return primary(vlanId) == other;
}

void VlanRelations::mark(Bridging::VlanId vlanId) {
   bool const isFirst = marked_.empty();
   marked_.vlanIs(vlanId);
   if (isFirst && markHook_)
      markHook_();
}

void VlanRelations::markRelatives(Bridging::VlanId vlanId) {
   auto const named = primary(vlanId);
   auto const naming = naming_.find(vlanId);
   if (named == 0 && naming == naming_.end())
      return;
   mark(vlanId);
   if (named != 0)
      mark(Bridging::VlanId(named));
   if (naming != naming_.end())
      naming->second.forEach([&](uint16_t other) { marked_.vlanIs(other); });
}

} // namespace Vorn
