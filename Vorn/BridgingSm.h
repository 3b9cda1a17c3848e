// The resolved bridging configuration: from the inputs that publishers write to Bridging::Config.
//
//    publishers' inputs
//       │ InputSelectorSm          one best input for VLANs, a best record for each port, the global settings
//       ▼
//    VlanConfigCodef, SwitchIntfConfigCodef       deferred stages: copies of the records, in slices
//       │ vlanConfigAfterCodef, switchIntfConfigAfterCodef
//       ▼
//    BridgingConfigSm              the tables of children, and the internal VLANs of routed ports
//       ├── VlanConfigSm           one VLAN: its resolved record, and who is re-evaluated when it changes
//       └── SwitchIntfSm           one port: mode, native VLAN, and its membership in every VLAN
//       ▼
//    Bridging::Config
//
// The agent makes both state machines, BridgingConfigSm first, and owns them.
#pragma once

#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/InputSelectorSm.h"
