// One primary VLAN: keeps what its secondaries share with it in step with the library's record of it.
//
//    a secondary, both VLANs resolved    uses the primary's filtering database; the processor's port of the
//                                        primary serves it too, where the SVI mapping says so
//    one that has left                   the rules of a plain VLAN, or of the primary that it belongs to now
//    either                              the translation of each trunk port that maps private VLANs follows, and
//                                        both VLANs are marked, so that every port's membership in them is worked
//                                        out again (VlanRelations.h)
//
// It has no doPrepareToDie: its owner, PrivateVlans, has what it wrote taken back by release().
#pragma once

#include "Kem/StateMachine.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/VlanConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

namespace Vorn {

class BridgingConfigSm;
class SwitchIntfSm;

class PrimaryVlanSm final : public Kem::StateMachine {
  public:
   // `primaryVlanState` may be null: then there are no secondaries.
   PrimaryVlanSm(BridgingConfigSm& parent,
                 Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& primaryVlanState);
   // Evaluates each secondary.
   void handleInitialized() override;

   // 1 where there is no record.
   Bridging::VlanId primaryVlan() const;
   // Another record of the same primary: the secondaries that it lacks are released, the others evaluated.
   void primaryVlanStateIs(Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& primaryVlanState);
   // All that follows from whether the VLAN is a secondary of this primary. Asserts "initialized()".
   void handleSecondaryVlan(Bridging::VlanId vlanId);
   // The primary is none any more: each VLAN that it took for a secondary is released, whatever became of the
   // record meanwhile.
   void release();

  private:
   // --- Reactions.
   struct KemPrimaryVlanState final : PrivateVlanLib::PrimaryVlanState::NotifieeConst {
      explicit KemPrimaryVlanState(PrimaryVlanSm& s) : NotifieeConst(this), sm(s) {}
      void onSecondaryVlan(Bridging::VlanId vlanId) override { sm.handleSecondaryVlan(vlanId); }
      PrimaryVlanSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemPrimaryVlanState_); }

   // --- Helpers.
   void syncSecondaryVlan(Bridging::VlanId vlanId, bool isSecondary);
   void doTakeIn(Bridging::VlanConfig const& primary, Bridging::VlanConfig& secondary);
   void doLetGo(Bridging::VlanId vlanId, Kem::Ptr<Bridging::VlanConfig> const& vlan);
   void syncTranslations(Bridging::VlanId vlanId, bool isSecondary); // on all ports
   void syncTranslation(SwitchIntfSm& port, Bridging::VlanId vlanId, bool isSecondary,
                        Bridging::VlanIdOrAny min);

   BridgingConfigSm& parent_;
   Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> primaryVlanState_;
   VornUtils::VlanIdSet secondaries_; // as they were evaluated last
   KemPrimaryVlanState kemPrimaryVlanState_{*this};
};

} // namespace Vorn
