// The processor's own port as a member of VLANs: "Cpu", always tagged, in a VLAN that has an active VLAN
// interface, and in the secondary VLANs that the interface of their primary serves.
#pragma once

#include "records/Bridging/Config.h"
#include "records/Bridging/VlanConfig.h"
#include "records/PrivateVlanLib/LibState.h"

namespace Vorn {

class BridgingConfigSm;
class VlanInterfaces;

// What the rules look at.
struct CpuPortInputs {
   Bridging::Config const& config;
   PrivateVlanLib::LibState const& privateVlanLibState;
   VlanInterfaces const& vlanInterfaces;
};

Sulvi::IntfId cpuIntfId();
void addCpuPort(Bridging::VlanConfig& vlan);
void deleteCpuPort(Bridging::VlanConfig& vlan);
// The rule for a VLAN by itself: it is active and has an enabled VLAN interface.
bool wantsCpuPort(VlanInterfaces const& vlanInterfaces, Bridging::VlanConfig const& vlan);

// Brings the CPU port of a secondary VLAN in step with its primary: the primary has it, and its mapping,
// where there is one, serves the secondary (SviMappingSm).
void doSyncCpuPort(CpuPortInputs const& in, Bridging::VlanConfig const& primary,
                   Bridging::VlanConfig& secondary);
// The same for every pair that the VLAN is part of, as primary or as secondary; nothing for a VLAN without a
// role. Its own pair it takes from the resolved roles, which may be ahead of the library's: PrivateVlans looks
// at such a VLAN again.
void maybeSyncCpuPort(BridgingConfigSm& sm, Bridging::VlanId vlanId);
// For a VLAN that may have left a pair: the rule of the pair that the library knows of, or that of a VLAN by
// itself. Its own secondaries follow.
void resyncCpuPort(CpuPortInputs const& in, Bridging::VlanConfig& vlan);

} // namespace Vorn
