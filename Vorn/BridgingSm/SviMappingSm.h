// One primary VLAN with a mapping of its VLAN interface: copies which secondaries the interface serves from
// the command line's input, and has the processor's port follow in each of them.
//
// The owner, PrivateVlans, takes the copy away with the machine.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/SviMappingState.h"

namespace Vorn {

class BridgingConfigSm;

class SviMappingSm final : public Kem::StateMachine {
  public:
   // `sviMappingState` may be null, and is then never evaluated.
   SviMappingSm(BridgingConfigSm& parent, Kem::Ptr<Bridging::SviMappingState const> const& sviMappingState,
                Kem::Ptr<Bridging::SviMappingState> sviMappingStateOut);
   // Copies all, and takes away what the input lacks.
   void handleInitialized() override;

   // 1 where there is no input.
   Bridging::VlanId primaryVlan() const;
   // Another record of the same primary: all of it is copied.
   void sviMappingStateIs(Kem::Ptr<Bridging::SviMappingState const> const& sviMappingState);
   // The resolved record is another object, with what it holds.
   void sviMappingStateOutIs(Kem::Ptr<Bridging::SviMappingState> const& out) { sviMappingStateOut_ = out; }
   // Both assert "initialized()".
   void handleSecondaryVlan(Bridging::VlanId vlanId);
   void handleDefaultSviMapping();

  private:
   // --- Reactions.
   struct KemSviMappingState final : Bridging::SviMappingState::NotifieeConst {
      explicit KemSviMappingState(SviMappingSm& s) : NotifieeConst(this), sm(s) {}
      void onSecondaryVlan(Bridging::VlanId vlanId) override { sm.handleSecondaryVlan(vlanId); }
      void onDefaultSviMapping() override { sm.handleDefaultSviMapping(); }
      SviMappingSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemSviMappingState_); }

   BridgingConfigSm& parent_;
   Kem::Ptr<Bridging::SviMappingState const> sviMappingState_;
   Kem::Ptr<Bridging::SviMappingState> sviMappingStateOut_;
   KemSviMappingState kemSviMappingState_{*this};
};

} // namespace Vorn
