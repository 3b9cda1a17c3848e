// Watches the fabric device, on which all VLAN devices are: whether it is up, and whether it is still the same
// device. Owned by VlanIntfSm; there is none while the kernel has no such device.
#pragma once

#include "Kem/StateMachine.h"
#include "records/KernelNetworkInfo/Interface.h"

namespace Vorn {

class VlanIntfSm;

class FabricInterfaceReactor final : public Kem::StateMachine {
  public:
   FabricInterfaceReactor(VlanIntfSm& vlanIntfSm,
                          Kem::Ptr<KernelNetworkInfo::Interface const> const& fabricInterface);
   void handleInitialized() override;
   bool isOf(KernelNetworkInfo::Interface const& device) const {
      return kemFabricInterface_.notifier().ptr() == &device;
   }

  private:
   struct KemFabricInterface final : KernelNetworkInfo::Interface::NotifieeConst {
      explicit KemFabricInterface(FabricInterfaceReactor& s) : NotifieeConst(this), sm(s) {}
      void onFlags() override { sm.handleFlags(); }
      void onIfIndex() override { sm.handleIfIndex(); }
      void onMtu() override { sm.handleMtu(); }
      FabricInterfaceReactor& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemFabricInterface_); }
   void handleFlags();
   void handleIfIndex(); // another device under the name: what was on the old one is gone
   void handleMtu();     // it may carry more than before

   VlanIntfSm& vlanIntfSm_;
   uint32_t ifIndex_ = 0;
   KemFabricInterface kemFabricInterface_{*this};
};

} // namespace Vorn
