// Internal VLANs: a routed port is no switchport, yet the hardware needs a VLAN for it, so each routed port
// gets one of its own from a configured range.
//
//    no VLAN ──routed, not shut, forwarding model routed, number free──► VLAN held
//    no VLAN ──the same, no number free──► waiting
//    VLAN held ──left routed mode, shut, forwarding model left, record gone──► no VLAN
//    VLAN held ──number claimed by a VLAN or a VLAN interface──► waiting
//    waiting ──10 seconds passed and a number is free──► no VLAN, and VLAN held at the next evaluation
//    waiting ──left routed mode──► no VLAN
//
// A waiting port stands in the errdisable cause "no-internal-vlan", and is given no number within these 10
// seconds, by whatever evaluation; one that holds a VLAN never stands there. The tables are
// BridgingConfigSm's; allocation and recovery are its operations, in InternalVlans.cpp; the choice for one
// port is SwitchIntfSm's.
#pragma once

#include "records/Bridging/Config.h"

namespace Vorn {

class BridgingConfigSm;

// The VLAN interface of that number: "Vlan" and the number.
Sulvi::IntfId vlanIntfIdOf(uint32_t vlanId);

// Writes the resolved VLAN of a routed port: internal, active, named after the port,
// with the CPU port as its member.
Kem::Ptr<Bridging::VlanConfig> createRoutedPortVlanConfig(Bridging::Config& config, Bridging::VlanId vlanId,
                                                          Sulvi::IntfId intfId);

// Takes the VLAN from the port, which stays routed, without a VLAN. Asserts "vlanId": it isn't 0.
void deleteRoutedPortVlanConfig(BridgingConfigSm& sm, Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId);

} // namespace Vorn
