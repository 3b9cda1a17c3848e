// Why a subinterface is up or down. Of ten conditions, tested in the order of SubIntfRow, the first that holds
// settles the operational status and whether the hardware is to program the interface: a VLAN id that is claimed
// twice is said even while the parent is down.
//
// Functions of the records alone: the agent writes what they say, and vornctl says it in words.
#pragma once

#include "records/Interface/Hardware/SubIntfStatus.h"
#include "records/Interface/IntfStatus.h"
#include "records/Interface/SubIntfConfig.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocalDir.h"

#include <string>

namespace Vorn {

enum class SubIntfRow : uint8_t {
   notEnabled = 1,
   noBridgeMacAddr, // the bridge has no address that its interfaces could have
   noVlanId,        // none is configured, or one that no frame can carry
   vlanIdTaken,     // another subinterface of the parent claims it too
   noEncap,
   noParentStatus,
   parentDown,
   parentNotRouted,
   notProgrammed, // the hardware has no answer yet, or failed
   up,
};

// What decides.
struct SubIntfFacts {
   bool isEnabled = false;
   bool hasBridgeMacAddr = false;
   uint16_t vlanId = 0; // as configured
   bool isVlanIdTaken = false;
   Interface::SubIntfEncapType encapType = Interface::SubIntfEncapType::subIntfEncapNone;
   bool hasParentStatus = false;
   // The next two count only with a status of the parent.
   Interface::IntfOperStatus parentOperStatus = Interface::IntfOperStatus::intfOperUnknown;
   Interface::IntfForwardingModel parentForwardingModel =
       Interface::IntfForwardingModel::intfForwardingModelUnknown;
   bool isProgrammed = false;
};

// The status of the parent and the hardware's record may be null.
SubIntfFacts subIntfFacts(Interface::SubIntfConfig const& config, bool hasBridgeMacAddr, bool isVlanIdTaken,
                          Interface::IntfStatus const* parentStatus,
                          Interface::Hardware::SubIntfStatus const* hwStatus);

SubIntfRow subIntfRow(SubIntfFacts const& facts);

Interface::IntfOperStatus operStatusOf(SubIntfRow row);

// Whether the hardware is to program the interface.
bool wantsProgramInHw(SubIntfRow row);

// Whether the number can be in a tag: 1 to 4094. Any other is taken as none.
constexpr bool isUsableVlanId(uint16_t vlanId) {
   return vlanId >= 1 && vlanId <= 4094;
}

// Whether another subinterface of the same parent claims the VLAN id of this one. Only those that the agent has taken
// on count: they have a configuration and both status records. Walks all of them.
bool isVlanIdTaken(Sulvi::IntfId intfId, Interface::SubIntfConfigDir const& configDir,
                   Interface::SubIntfStatusDir const& statusDir,
                   Interface::SubIntfStatusLocalDir const& statusLocalDir);

// What the agent's trace says of the row; empty for SubIntfRow::up.
std::string subIntfTraceText(SubIntfRow row, SubIntfFacts const& facts);

// The same for operators, as the end of "Ethernet1.10 is down: ".
std::string subIntfReason(SubIntfRow row, SubIntfFacts const& facts);

} // namespace Vorn
