// How a private VLAN stands among the translations of a trunk port: frames of a primary VLAN leave under the
// number of its smallest secondary, which is what the far side can classify.
#pragma once

#include "records/Bridging/types.h"

namespace Vorn {

// Of frames with the primary VLAN as their only tag.
inline Bridging::VlanXlateKey primaryVlanKey(Bridging::VlanId primary) {
   return {.outerVlanId = primary, .innerVlanId = 0};
}
inline Bridging::VlanXlateMapping secondaryVlanMapping(Bridging::VlanId secondary) {
   return {.mappedVlanId = Bridging::VlanIdOrNone(secondary)};
}

} // namespace Vorn
