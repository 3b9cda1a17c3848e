// The inputs of BridgingConfigSm: what it follows, and what it writes to. The agent and the tests fill it in.
#pragma once

#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/FdbConfigDir.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/DynVlanSrcTable.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/PrivateVlanLib/LibState.h"
#include "records/Vorn/DynVlanIntfList.h"

namespace Vorn {

class AttrLogCheck;

// A null input is not followed.
struct BridgingConfigInputs {
   Kem::Ptr<Bridging::Input::Config const> configIn;
   Kem::Ptr<Bridging::SwitchIntfConfigDir const> allSwitchIntfConfigs; // the best record of each port
   Kem::Ptr<Bridging::FdbConfigDir const> fdbConfigDir;                // merged static hosts and groups
   Kem::Ptr<Bridging::Config> config;                                  // the result
   Kem::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfig;
   Kem::Ptr<DynVlanIntfList const> dynVlanIntfList; // must not be null
   Kem::Ptr<Interface::EthIntfConfigDir const> ethIntfConfigDir;
   Kem::Ptr<Kem::Dir const> dynAllowedVlanDir; // a Bridging::Input::AllowedVlans of each source
   Kem::Ptr<Kem::Dir const> dynVlanDir;        // a Bridging::Input::VlanIdSet of each source
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> dynVlanSrcTable;    // which of them claim which VLAN
   Kem::Ptr<Errdisable::CauseStatus> noInternalVlanIdCauseStatus; // ports that wait for an internal VLAN
   Kem::Ptr<Kem::Clock const> recoveryTimer;
   Kem::Ptr<Bridging::Input::CliConfig const> cliConfig;
   Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState;
   AttrLogCheck* attrLogCheck = nullptr; // whether the deferred stages may write; null: always
   Kem::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir;
};

} // namespace Vorn
