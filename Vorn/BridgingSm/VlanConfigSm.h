// One VLAN: mirrors the copy of its input into the resolved VLAN, and re-evaluates every port when its state
// or its trunk groups change. It also decides whether the CPU port belongs to the VLAN.
//
// The resolved record is looked up each time, not held. Owned by StaticVlans; the deferred stage calls
// handleInitialized() once the copy is complete, and before that every handler returns at once.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/Input/VlanConfig.h"
#include "records/Bridging/VlanConfig.h"

namespace Vorn {

class BridgingConfigSm;

class VlanConfigSm final : public Kem::StateMachine {
  public:
   VlanConfigSm(BridgingConfigSm& parent, Bridging::VlanId vlanId,
                Kem::Ptr<Bridging::Input::VlanConfig const> const& vlanConfigIn);

   Bridging::VlanId vlanId() const { return vlanId_; }
   Bridging::Input::VlanConfig const& vlanConfigIn() const { return *in_; }
   void vlanConfigInIs(Kem::Ptr<Bridging::Input::VlanConfig const> const& in);

   void handleInitialized() override;
   // Before it is deleted: switchports lose it as their native VLAN. The parent deletes the resolved record.
   void doPrepareToDie() override;

  private:
   // --- Reactions.
   struct KemVlanConfigIn final : Bridging::Input::VlanConfig::NotifieeConst {
      explicit KemVlanConfigIn(VlanConfigSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleVlanConfigIn(); }
      void onAdminState() override { sm.handleAdminState(); }
      void onVlanTypeAndPrimaryVlan() override { sm.handleVlanTypeAndPrimaryVlan(); }
      void onConfiguredName() override { sm.handleConfiguredName(); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onTrunkGroupkemImmediate() override { sm.handleTrunkGroup(); }
      VlanConfigSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemVlanConfigIn_); }
   // The VLAN follows a new copy: evaluates all of it.
   void handleVlanConfigIn();
   // The central pass: the state, and then every port's mode and membership.
   void handleAdminState();
   void handleVlanTypeAndPrimaryVlan();
   void handleConfiguredName();
   void handleTrunkGroup(Kem::String8 const& name);
   void handleTrunkGroup(); // all of them; without the central pass

   // --- Helpers.
   Kem::Ptr<Bridging::VlanConfig> vlanOut() const; // the resolved VLAN; asserts "vlanConfig": it exists
   void syncSwitchports(Bridging::VlanConfig& vlanOut);
   void syncCpuPort(Bridging::VlanConfig& vlanOut);
   void doMaybeUpdateTrunkAllowedVlans();

   BridgingConfigSm& parent_;
   Bridging::VlanId const vlanId_;
   Kem::Ptr<Bridging::Input::VlanConfig const> in_;
   KemVlanConfigIn kemVlanConfigIn_{*this};
};

} // namespace Vorn
