// The processor's own port as a member of VLANs: "Cpu", always tagged, in a VLAN that has an active VLAN
// interface, in the secondary VLANs that the interface of their primary serves, and in those of routed ports.
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
// Brings the CPU port of a VLAN in step, whatever it was before: the VLAN of a routed port has it, a secondary
// of a pair follows its primary, any other VLAN has the rule of a VLAN by itself. Its own secondaries follow it.
//
// The pairs are those of the library, which may be a batch behind the resolved roles. Where it then tells of
// another pair, PrimaryVlanSm comes back to the VLAN, and PrivateVlans where nobody could be told; where it says
// nothing, because the roles are what they were again, its pair is still the right one. So who asks, and when,
// makes no difference in the end.
void syncCpuPort(CpuPortInputs const& in, Bridging::VlanConfig& vlan);
// The same for the resolved VLAN of that number; nothing where there is none.
void maybeSyncCpuPort(BridgingConfigSm& sm, Bridging::VlanId vlanId);

} // namespace Vorn
