// The inputs of SubIntfSm: what it follows, and what it writes to. The agent and the tests fill it in.
#pragma once

#include "Vorn/VlanIntfCommon/VlanIntfInputs.h"
#include "records/Interface/AllIntfStatusDir.h"
#include "records/Interface/Hardware/Capability.h"
#include "records/Interface/Hardware/SubIntfStatusDir.h"
#include "records/Interface/SubIntfConfigDir.h"
#include "records/Interface/SubIntfStatusDir.h"
#include "records/Interface/SubIntfStatusLocalDir.h"
#include "records/KernelNetworkInfo/Root.h"
#include "records/Vorn/VornOxaState.h"

namespace Vorn {

// Only `oxaState` may be null.
struct SubIntfInputs : VlanIntfInputs {
   Kem::Ptr<KernelNetworkInfo::Root> kernelIntfCollection; // of the default namespace
   Kem::Ptr<Interface::SubIntfStatusDir> subIntfStatusDir;
   Kem::Ptr<Interface::SubIntfStatusLocalDir> subIntfStatusLocalDir;
   Kem::Ptr<Interface::SubIntfConfigDir const> subIntfConfigDir;
   Kem::Ptr<Interface::Hardware::Capability const> intfHwCapability;
   Kem::Ptr<Interface::Hardware::SubIntfStatusDir const> subIntfHwStatusDir;
   Kem::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir;
   Kem::Ptr<VornOxaState> oxaState; // of a hitless start; null otherwise
   bool standbyMode = false;
};

} // namespace Vorn
