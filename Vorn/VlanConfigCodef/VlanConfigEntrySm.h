// Mirrors the input of one VLAN to the copy that VlanConfigSm follows, attribute by attribute and at once. It
// exists as long as the copy does, and is replaced when another input is chosen. Owned by VlanConfigCodef.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/Input/VlanConfig.h"

namespace Vorn {

class VlanConfigEntrySm final : public Kem::StateMachine {
  public:
   VlanConfigEntrySm(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig const> const& vcfgIn,
                     Kem::Ptr<Bridging::Input::VlanConfig> vcfgOut);

   Bridging::VlanId vlanId() const { return vlanId_; }
   Kem::Ptr<Bridging::Input::VlanConfig const> vcfgIn() const { return kemVcfgIn_.notifier(); }
   Kem::Ptr<Bridging::Input::VlanConfig> const& vcfgOut() const { return vcfgOut_; }

  private:
   struct KemVcfgIn final : Bridging::Input::VlanConfig::NotifieeConst {
      explicit KemVcfgIn(VlanConfigEntrySm& s) : NotifieeConst(this), sm(s) {}
      void onConfiguredName() override { sm.handleConfiguredName(); }
      void onAdminState() override { sm.handleAdminState(); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onVlanTypeAndPrimaryVlan() override { sm.handleVlanTypeAndPrimaryVlan(); }
      VlanConfigEntrySm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemVcfgIn_); }
   void handleConfiguredName();
   void handleAdminState();
   void handleTrunkGroup(Kem::String8 const& name);
   void handleVlanTypeAndPrimaryVlan();

   Bridging::VlanId const vlanId_;
   Kem::Ptr<Bridging::Input::VlanConfig> const vcfgOut_;
   KemVcfgIn kemVcfgIn_{*this};
};

} // namespace Vorn
