#include "Vorn/BridgingSm/VlanRelations.h"

namespace Vorn {

void VlanRelations::primaryIs(Bridging::VlanId vlanId, Bridging::VlanIdOrNone primary) {
   if (auto const old = primary_.find(vlanId); old != primary_.end()) {
      auto const others = naming_.find(old->second);
      others->second.doRemove(vlanId);
      if (others->second.empty())
         naming_.erase(others);
      primary_.erase(old);
   }
   if (primary == 0)
      return;
   Bridging::VlanId const named(primary);
   primary_.emplace(vlanId, named);
   naming_[named].vlanIs(vlanId);
}

bool VlanRelations::names(Bridging::VlanId vlanId, Bridging::VlanId primary) const {
   auto const found = primary_.find(vlanId);
   return found != primary_.end() && found->second == primary;
}

void VlanRelations::mark(Bridging::VlanId vlanId) {
   bool const isFirst = marked_.empty();
   marked_.vlanIs(vlanId);
   if (isFirst && markHook_)
      markHook_();
}

void VlanRelations::markRelatives(Bridging::VlanId vlanId) {
   auto const primary = primary_.find(vlanId);
   auto const naming = naming_.find(vlanId);
   if (primary == primary_.end() && naming == naming_.end())
      return;
   mark(vlanId);
   if (primary != primary_.end())
      mark(primary->second);
   if (naming != naming_.end())
      naming->second.forEach([&](uint16_t other) { marked_.vlanIs(other); });
}

} // namespace Vorn
