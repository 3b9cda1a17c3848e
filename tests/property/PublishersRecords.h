// What several subjects of the publishers use: choosing numbers, and writing a struct into a record.
#pragma once

#include "Intent.h"
#include "Publishers.h"

#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"
#include "records/Bridging/Input/VlanConfig.h"

namespace Model {

// Among the numbers of VLANs are those of the range of internal ones.
inline unsigned someVlan(Dice& dice) {
   return dice.chance(4) ? 19 + dice.below(6) : 1 + dice.below(10);
}

inline Bridging::VlanXlateKey keyOf(Tags const& tags) {
   return {.outerVlanId = static_cast<uint16_t>(tags.first),
           .innerVlanId = static_cast<uint16_t>(tags.second)};
}
inline Bridging::VlanXlateMapping mappingOf(Tags const& tags) {
   return {.mappedVlanId = tags.first, .mappedInnerVlanId = tags.second};
}
Bridging::VlanTypeAndPrimaryVlan roleOf(Role const& role);
Bridging::VlanAdminState stateOf(bool isSuspended);
// For records that were just made.
void fill(Bridging::Input::VlanConfig& record, Vlan const& vlan);
void fill(Bridging::Input::SwitchIntfConfig& record, Port const& port);
void fill(Bridging::Input::FdbConfig& record, Fdb const& fdb);
// With groups of its own.
std::shared_ptr<Fdb> copyOf(Fdb const& fdb);

} // namespace Model
