// Whether a VLAN interface is up, and by which row of the table:
//
//    noConfig           unknown          no configuration has reached it yet
//    notEnabled         down             shut down
//    secondaryVlan      down             its VLAN is a secondary one: the primary's interface serves it
//    noVlanStatusDir    lowerLayerDown   nothing is known of forwarding ports
//    forwardable        up               its VLAN has a forwarding port other than the CPU's
//    ownAutoStateOff    up               no such port, and the interface doesn't ask for one
//    allAutoStateOff    up               no such port, and no interface of the switch asks for one
//    noForwardingPort   lowerLayerDown   no such port, and autostate is on for the interface and for all
//
// The first row that fits holds. A function of facts alone: the agent and vornctl ask the same one.
#pragma once

#include "Sulvi/IntfId.h"
#include "records/Bridging/VlanStatusDir.h"
#include "records/Interface/AllVlanIntfAutoState.h"
#include "records/Interface/IntfConfig.h"
#include "records/Interface/types.h"
#include "records/PrivateVlanLib/LibState.h"

namespace Vorn {

enum class VlanIntfRow : uint8_t {
   noConfig = 1,
   notEnabled,
   secondaryVlan,
   noVlanStatusDir,
   forwardable,
   ownAutoStateOff,
   allAutoStateOff,
   noForwardingPort,
};

struct VlanIntfFacts {
   bool hasConfig =
       false; // the status record refers to a configuration; without one, the next two don't count
   bool enabled = false;
   bool autoState = true; // of the configuration
   bool isSecondary = false;
   bool hasVlanStatusDir = false;
   bool isForwardable = false; // a forwarding port other than the CPU's; counts with a VlanStatusDir only
   bool allAutoState = true;   // the switch for all VLAN interfaces
};

VlanIntfRow vlanIntfRow(VlanIntfFacts const& facts);
Interface::IntfOperStatus operStatusOf(VlanIntfRow row);
// The reason in words for operators, as the rest of a sentence that begins with the interface: "is shut down".
char const* reasonOf(VlanIntfRow row);

// Whether the VLAN has a forwarding port other than "Cpu". Ports count by being listed, whatever their value. False
// without a record of the VLAN.
bool isVlanForwardable(Bridging::VlanStatusDir const& vlanStatusDir, Bridging::VlanId vlanId);

// The facts of a VLAN interface whose VLAN has that number, from the records. `config` is what its status record
// refers to. Anything may be null; without `allVlanIntfAutoState` autostate is on, and without `libState` no VLAN is a
// secondary one.
VlanIntfFacts vlanIntfFacts(Interface::IntfConfig const* config, Bridging::VlanId vlanId,
                            Bridging::VlanStatusDir const* vlanStatusDir,
                            PrivateVlanLib::LibState const* libState,
                            Interface::AllVlanIntfAutoState const* allVlanIntfAutoState);

} // namespace Vorn
