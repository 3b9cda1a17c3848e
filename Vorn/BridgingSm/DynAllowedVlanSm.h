// One dynamic source of allowed VLANs: another agent that widens what trunks carry. It computes nothing: it says
// to the ports concerned that they are to compute their allowed VLANs and trunk groups again, for which they
// read its record themselves (VlanMembership.cpp).
//
// Owned by DynAllowedVlans, which takes it out of its table before it tears it down: the ports must not find the
// groups of a source that is on its way out.
#pragma once

#include "Kem/Collections.h"
#include "Kem/StateMachine.h"
#include "records/Bridging/Input/AllowedVlans.h"
#include "records/Bridging/Input/TrunkGroup.h"

namespace Vorn {

class BridgingConfigSm;

class DynAllowedVlanSm final : public Kem::StateMachine {
  public:
   DynAllowedVlanSm(Kem::String8 const& name,
                    Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans,
                    BridgingConfigSm& parent);

   // One trunk group of the source: the ports in it are given the group.
   class KemDynTrunkGroupSm final : public Kem::StateMachine {
     public:
      KemDynTrunkGroupSm(Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup,
                         BridgingConfigSm& parent);
      void handleInitialized() override;
      // Takes the group from the ports that have it and that no other source lists in it.
      void doPrepareToDie() override;
      // Another record under the name: the ports follow that one.
      void trunkGroupIs(Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup);

     private:
      struct KemTrunkGroup final : Bridging::Input::TrunkGroup::NotifieeConst {
         explicit KemTrunkGroup(KemDynTrunkGroupSm& s) : NotifieeConst(this), sm(s) {}
         void onIntfList(Sulvi::IntfId intfId) override { sm.handleIntfList(intfId); }
         void onIntfListkemImmediate() override { sm.handleIntfList(); }
         KemDynTrunkGroupSm& sm;
      };
      void forEachPart(Kem::PartVisitor const& visit) override { visit(kemTrunkGroup_); }
      void handleIntfList(Sulvi::IntfId intfId);
      void handleIntfList();

      Kem::String8 const trunkGroupName_;
      BridgingConfigSm& parent_;
      Kem::Ptr<Bridging::Input::TrunkGroup const> trunkGroup_;
      KemTrunkGroup kemTrunkGroup_{*this};
   };

   Kem::String8 const& name() const { return name_; }
   Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans() const { return allowedVlans_; }
   // Another record under the name: it is followed from now on, and all ports compute again.
   void allowedVlansIs(Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans);
   // Null when there is none.
   Kem::Ptr<KemDynTrunkGroupSm> dynTrunkGroupSm(Kem::String8 const& trunkGroupName) const;
   // Makes the child, or has the existing one follow another record. Null raises a range exception.
   void dynTrunkGroupSmIs(Kem::Ptr<Bridging::Input::TrunkGroup const> const& trunkGroup);

   void handleInitialized() override;
   // The groups go. The allowed VLANs are for the owner to take back, when this is out of its table.
   void doPrepareToDie() override;

  private:
   // --- Reactions.
   struct KemAllowedVlans final : Bridging::Input::AllowedVlans::NotifieeConst {
      explicit KemAllowedVlans(DynAllowedVlanSm& s) : NotifieeConst(this), sm(s) {}
      void onVlans(Sulvi::IntfId intfId) override { sm.handleAllowedVlans(intfId); }
      void onVlanskemImmediate() override { sm.handleAllowedVlans(); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onTrunkGroupkemImmediate() override { sm.handleTrunkGroup(); }
      DynAllowedVlanSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemAllowedVlans_, dynTrunkGroupSm_); }
   void handleAllowedVlans(Sulvi::IntfId intfId);
   void handleAllowedVlans();
   void handleTrunkGroup(Kem::String8 const& name);
   void handleTrunkGroup();

   Kem::String8 const name_;
   BridgingConfigSm& parent_;
   Kem::Ptr<Bridging::Input::AllowedVlans const> allowedVlans_;
   Kem::HashMap<KemDynTrunkGroupSm, Kem::String8> dynTrunkGroupSm_;
   KemAllowedVlans kemAllowedVlans_{*this};
};

} // namespace Vorn
