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
   auto const flags = kemFabricInterface_.notifier()->flags();
   bool const up = flags & IFF_UP;
   KEM_TRACE(fabricTrace, 3, "Fabric ifUp " << up);
   vlanIntfSm_.fabricUpIs(up);
   // Also when it is up again by now: with their base the kernel switches on devices that are to be off.
   // A carrier that comes back is passed on by the kernel to the devices on it, whose own states are lost with
   // that.
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
   vlanIntfSm_.evaluateInterfaceConfiguration();
}

void FabricInterfaceReactor::handleMtu() {
   if (isReady())
      vlanIntfSm_.evaluateInterfaceConfiguration();
}

} // namespace Vorn
