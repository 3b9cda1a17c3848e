#include "Vorn/Rules/PrivateVlans.h"

#include "records/Bridging/SviMappingState.h"

namespace Vorn {

bool mapsPrimaryVlans(Bridging::Input::SwitchIntfConfig const& record) {
   return record.trunkPrivateVlanMapping() &&
          record.switchportMode() == Bridging::Input::SwitchportMode::trunk_;
}

bool isServed(Bridging::Config const& config, Bridging::VlanId primary, Bridging::VlanId secondary) {
   auto const mapping = config.sviMapping(primary);
   return !mapping || mapping->defaultSviMapping() || mapping->secondaryVlan(secondary);
}

} // namespace Vorn
