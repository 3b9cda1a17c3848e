#include "Vorn/VlanIntfSm/FabricInterfaceReactor.h"

#include "Kem/Trace.h"
#include "Vorn/VlanIntfSm/VlanIntfSm.h"

#include <net/if.h>

namespace Vorn {

namespace {
Kem::TraceFacility fabricTrace("VornFabric");
}

FabricInterfaceReactor::FabricInterfaceReactor(
    VlanIntfSm& vlanIntfSm, Kem::Ptr<KernelNetworkInfo::Interface const> const& fabricInterface)
    : vlanIntfSm_(vlanIntfSm), ifIndex_(fabricInterface->ifIndex()) {
   kemFabricInterface_.notifierIs(fabricInterface);
}

void FabricInterfaceReactor::handleInitialized() {
   initializedIs(true);
   handleFlags();
}

void FabricInterfaceReactor::handleFlags() {
   if (!isReady())
      return;
   bool const up = kemFabricInterface_.notifier()->flags() & IFF_UP;
   KEM_TRACE(fabricTrace, 3, "Fabric ifUp " << up);
   if (up == vlanIntfSm_.fabricUp())
      return;
   vlanIntfSm_.fabricUpIs(up);
   if (up)
      vlanIntfSm_.evaluateInterfaceConfiguration();
}

void FabricInterfaceReactor::handleIfIndex() {
   auto const ifIndex = kemFabricInterface_.notifier()->ifIndex();
   if (!isReady() || ifIndex == ifIndex_)
      return;
   ifIndex_ = ifIndex;
   vlanIntfSm_.fabricUpIs(false);
   handleFlags();
}

void FabricInterfaceReactor::handleMtu() {
   if (isReady())
      vlanIntfSm_.evaluateInterfaceConfiguration();
}

} // namespace Vorn
