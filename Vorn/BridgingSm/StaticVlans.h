// The VLANs of configIn, the input that was chosen for them: the path of each from there through the deferred
// stage and its copy to VlanConfigSm.
//
//    configIn ──VlanConfigCodef──► vlanConfigAfterCodef ──► VlanConfigSm ──► resolved VLAN
//
// Placing or deleting a copy is followed at once by handleVlanConfig(vlanId). Nothing here reads a VLAN from an
// input: the children follow the copies. A VLAN is static while configIn holds it or a copy of it exists; what
// dynamic sources ask for waits for the end of both (DynVlans.h).
//
// Owned by BridgingConfigSm.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/VlanConfigSm.h"
#include "Vorn/VlanConfigCodef/VlanConfigCodef.h"
#include "Vorn/VlanConfigCodef/VlanConfigOutput.h"
#include "records/Bridging/Input/Config.h"

namespace Vorn {

class BridgingConfigSm;

class StaticVlans final : public Kem::StateMachine, public VlanConfigOutput {
  public:
   explicit StaticVlans(BridgingConfigSm& parent) : parent_(parent) {}
   // Makes the deferred stage. A later step of the start calls handleVlanConfig().
   void handleInitialized() override;

   Kem::Ptr<VlanConfigCodef> const& vlanConfigCodef() const { return vlanConfigCodef_; }
   // Whether configIn holds the VLAN: then it is a static one, whoever else asks for it.
   bool isWanted(Bridging::VlanId vlanId) const;
   // The same, or it was one, and its copy is still on its way out.
   bool isStatic(Bridging::VlanId vlanId) const;

   // configIn has changed: what it lacks is deleted, and the deferred stage looks at the new one.
   void handleVlanConfig();
   // The copy came or went, or the claims on the VLAN while it had none. Nothing before handleInitialized().
   void handleVlanConfig(Bridging::VlanId vlanId);
   Kem::Ptr<VlanConfigSm> vlanConfigSm(Bridging::VlanId vlanId) const; // null when there is none

   // --- What the deferred stage asks for and writes.
   Kem::Ptr<Bridging::Input::Config const> const& configIn() const override;
   VlanConfigAfterCodef const& vlanConfigAfterCodef() const override { return vlanConfigAfterCodef_; }
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodef(Bridging::VlanId vlanId) const override;
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodefIs(Bridging::VlanId vlanId) override;
   void vlanConfigAfterCodefDel(Bridging::VlanId vlanId) override;
   void vlanConfigSmInitialize(Bridging::VlanId vlanId) override;
   AttrLogCheck* attrLogCheck() const override;

  private:
   void forEachPart(Kem::PartVisitor const& visit) override { visit(vlanConfigCodef_, vlanConfigSm_); }
   void vlanConfigSmIs(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig> const& copy);

   BridgingConfigSm& parent_;
   VlanConfigAfterCodef vlanConfigAfterCodef_;
   Kem::HashMap<VlanConfigSm, Bridging::VlanId> vlanConfigSm_;
   Kem::Ptr<VlanConfigCodef> vlanConfigCodef_; // null before handleInitialized()
};

} // namespace Vorn
