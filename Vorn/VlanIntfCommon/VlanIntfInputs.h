// What the state machines of VLAN interfaces and of subinterfaces are given alike.
#pragma once

#include "Kem/Clock.h"
#include "KernelOperState/Root.h"
#include "Vorn/VlanIntfCommon/DeviceProblems.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/HwCapabilities.h"
#include "records/Interface/AllIntfNamespaceConfigDir.h"
#include "records/Interface/IntfNamespaceConfig.h"
#include "records/KernelNetNsInfo/NetNs.h"
#include "records/KernelNetNsInfo/Root.h"

namespace Vorn {

class AttrLogCheck;
class DynVlanIntfReactor;

// What they need of the agent that owns them.
class VlanIntfAgent {
  public:
   // Who says whether there is room to write; null for always.
   virtual AttrLogCheck* roomToWrite() = 0;
   // The merger of the dynamic sources; it exists before the state machines do.
   virtual Kem::Ptr<DynVlanIntfReactor> const& dynVlanIntfSm() const = 0;

  protected:
   ~VlanIntfAgent() = default;
};

struct VlanIntfInputs {
   Kem::String8 fabricDeviceName;
   int socketFd = -1;  // a socket in the namespace of the process
   int netlinkFd = -1; // the blocking route socket
   Kem::Ptr<KernelOperState::KernelOperStateManager> kernelOperStateManager;
   Kem::Ptr<KernelOperState::Root> kernelOperStateRoot;
   Kem::Ptr<Bridging::Config> bridgingConfig;
   Kem::Ptr<Bridging::HwCapabilities const> bridgingHwCapabilities;
   Kem::Ptr<KernelNetNsInfo::Root> netNsCollection;
   Kem::Ptr<Interface::AllIntfNamespaceConfigDir const> allIntfNamespaceConfigDir;
   Kem::Ptr<Kem::Clock const> clock;
   VlanIntfAgent* vornAgent = nullptr;
   Kem::Ptr<DeviceProblems> problems; // never null
};

} // namespace Vorn
