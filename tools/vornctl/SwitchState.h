// What the commands look at: the records of the switch as they were at one moment, read only.
//
// A command names the parts that it needs, and only those are mounted; the others are null. References of
// `chosen` lead to records of `inputs` when both are there. Tests make the records themselves.
#pragma once

#include "AgentProcess.h"

#include "Kem/Dir.h"
#include "Kem/Time.h"
#include "records/Agent/Status.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Bridging/VlanStatusDir.h"
#include "records/Errdisable/Status.h"
#include "records/Interface/AllIntfConfigDir.h"
#include "records/Interface/AllIntfNamespaceConfigDir.h"
#include "records/Interface/AllIntfStatusDir.h"
#include "records/Interface/AllVlanIntfAutoState.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/Interface/Hardware/SubIntfStatusDir.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocalDir.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Interface/VlanIntfStatusDir.h"
#include "records/Interface/VlanIntfStatusLocalDir.h"

#include <cstdint>

namespace Vornctl {

struct SwitchState {
   // --- What the bridging agent resolved.
   Kem::Ptr<Bridging::Config> config;
   Kem::Ptr<Bridging::SwitchIntfConfigDir> chosen; // the record that won for each port
   // --- What publishers want; a directory of Bridging::Input::Config.
   Kem::Ptr<Kem::Dir> inputs;
   // --- What dynamic sources ask for: directories of Bridging::Input::VlanIdSet and of
   // Bridging::Input::AllowedVlans.
   Kem::Ptr<Kem::Dir> dynVlans;
   Kem::Ptr<Kem::Dir> dynAllowedVlans;
   // --- Interfaces.
   Kem::Ptr<Interface::EthIntfConfigDir> ethIntfConfig;
   Kem::Ptr<Interface::EthIntfStatusDir> ethIntfStatus;
   // --- Routed interfaces.
   Kem::Ptr<Interface::AllIntfConfigDir> allIntfConfig;
   Kem::Ptr<Interface::AllIntfStatusDir> allIntfStatus;
   Kem::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfig;
   Kem::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatus;
   Kem::Ptr<Interface::VlanIntfStatusLocalDir> vlanIntfStatusLocal;
   Kem::Ptr<Kem::Dir> dynVlanIntfs; // directories of Interface::Input::DynVlanIntfConfigDir
   Kem::Ptr<Interface::AllVlanIntfAutoState> allVlanIntfAutoState;
   Kem::Ptr<Bridging::VlanStatusDir> vlanStatus;
   Kem::Ptr<Interface::SubIntfConfigDir> subIntfConfig;
   Kem::Ptr<Interface::SubIntfStatusDir> subIntfStatus;
   Kem::Ptr<Interface::SubIntfStatusLocalDir> subIntfStatusLocal;
   Kem::Ptr<Interface::Hardware::SubIntfStatusDir> subIntfHwStatus;
   Kem::Ptr<Interface::AllIntfNamespaceConfigDir> intfNamespace;
   // --- Disabled ports; a directory of Errdisable::CauseStatus.
   Kem::Ptr<Kem::Dir> causes;
   Kem::Ptr<Errdisable::Status> errdisable;
   // --- The agent.
   Kem::Ptr<Agent::Status> agentStatus;
   uint32_t agentPid = 0;     // of the agent that is connected to the database; 0 for none
   AgentProcess agentProcess; // where the agent looks for devices; fetched with `routed` and `agentPid`

   Kem::Seconds now = 0; // when all this was read, on the clock that the agent's times are of
};

// Parts of the state that a command may need.
enum class Part : uint32_t {
   config = 1 << 0,
   chosen = 1 << 1,
   inputs = 1 << 2,
   interfaces = 1 << 3,
   causes = 1 << 4, // causes and errdisable
   agentStatus = 1 << 5,
   agentPid = 1 << 6,
   dynamic = 1 << 7, // dynVlans and dynAllowedVlans
   routed = 1 << 8,  // all that is under "Routed interfaces"
};
constexpr Part operator|(Part a, Part b) {
   return static_cast<Part>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}
constexpr bool contains(Part parts, Part part) {
   return (static_cast<uint32_t>(parts) & static_cast<uint32_t>(part)) != 0;
}

} // namespace Vornctl
