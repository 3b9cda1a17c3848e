// Addresses that somebody publishes for VLAN interfaces, such as one that a pair of switches shares: follows
// the entities of "interface/input/vlan", of which at most one is in use. Owned by VlanIntfSm.
#pragma once

#include "Kem/Dir.h"
#include "Kem/StateMachine.h"
#include "records/Interface/Input/VlanIntfAddr.h"

namespace Vorn {

class VlanIntfSm;

class VlanIntfAddrs final : public Kem::StateMachine {
  public:
   // `interfaceInputVlan` may be null: then there are none.
   VlanIntfAddrs(VlanIntfSm& vlanIntfSm, Kem::Ptr<Kem::Dir const> interfaceInputVlan);
   void handleInitialized() override;

   // The published address of the interface, zero for none. Asserts "inputVlanIntfAddrs() <= 1".
   Sulvi::EthAddr macAddr(Sulvi::IntfId intfId) const;

  private:
   struct KemInterfaceInputVlan final : Kem::Dir::NotifieeConst {
      explicit KemInterfaceInputVlan(VlanIntfAddrs& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleEntityPtr(name); }
      VlanIntfAddrs& sm;
   };
   struct KemInputVlanIntfAddr final : Interface::Input::VlanIntfAddr::NotifieeConst {
      explicit KemInputVlanIntfAddr(VlanIntfAddrs& s) : NotifieeConst(this), sm(s) {}
      void onMacAddr() override { sm.handleInputVlanIntfMacAddr(*notifier()); }
      void onVlanIntf(Sulvi::IntfId intfId) override { sm.handleInputVlanIntf(intfId); }
      VlanIntfAddrs& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemInterfaceInputVlan_, inputVlanIntfAddr_);
   }
   void handleEntityPtr(Kem::Name const& name);
   bool followEntities();
   void handleInputVlanIntfMacAddr(Interface::Input::VlanIntfAddr const& input);
   void handleInputVlanIntf(Sulvi::IntfId intfId);

   VlanIntfSm& vlanIntfSm_;
   Kem::HashMap<KemInputVlanIntfAddr, Kem::Name> inputVlanIntfAddr_;
   KemInterfaceInputVlan kemInterfaceInputVlan_{*this};
};

} // namespace Vorn
