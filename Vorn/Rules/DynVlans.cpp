#include "Vorn/Rules/DynVlans.h"

namespace Vorn {

VornUtils::VlanIdSet mvrpOnlyVlans(VornUtils::VlanIdSet const& mvrp,
                                   Bridging::Input::Config const* configIn) {
   VornUtils::VlanIdSet only = mvrp;
   if (configIn && !mvrp.empty())
      configIn->vlanConfig().forEach([&](Bridging::VlanId vlanId, auto const&) { only.doRemove(vlanId); });
   return only;
}

std::vector<DynVlanSource> dynVlanSources(Kem::Dir const& dynVlanDir) {
   std::vector<DynVlanSource> sources;
   for (auto const& [name, entity] : dynVlanDir.entities()) {
      auto const record = Kem::ptrCast<Bridging::Input::VlanIdSet>(entity);
      if (!record)
         continue;
      DynVlanSource source{.rank = {name.stringValue(), record->configPriority()},
                           .record = record,
                           .vlans = {},
                           .leftOut = {}};
      source.leftOut = VornUtils::computeVlanSet(source.vlans, record->vlans().view());
      sources.push_back(std::move(source));
   }
   return sources;
}

DynVlanSource const* sourceOfRecord(std::vector<DynVlanSource> const& sources, Bridging::VlanId vlanId) {
   DynVlanSource const* best = nullptr;
   for (auto const& source : sources)
      if (source.vlans.vlan(vlanId) && (!best || isPreferred(source.rank, best->rank)))
         best = &source;
   return best;
}

} // namespace Vorn
