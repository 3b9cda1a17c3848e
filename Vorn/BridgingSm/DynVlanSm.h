// One dynamic source of VLANs: another agent that wants VLANs to exist at run time. It claims the VLANs of its
// list in the table of DynVlans, which makes them and decides what a claim is worth.
//
// Among the sources that claim a VLAN one is its configSource, and gives the VLAN its trunk groups. When that
// one lets go, or falls behind another, the VLAN passes to the next (doModifyDynVlanCfg). The claim on a static
// VLAN is recorded and waits.
//
// Owned by DynVlans, which puts it in its table before it calls handleInitialized().
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/Rules/DynVlans.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Input/VlanIdSet.h"
#include "records/Bridging/VlanConfig.h"

#include <optional>

namespace Vorn {

class BridgingConfigSm;
class DynVlans;

class DynVlanSm final : public Kem::StateMachine {
  public:
   DynVlanSm(Kem::String8 const& name, Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet,
             BridgingConfigSm& parent);

   Kem::String8 const& name() const { return name_; }
   Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet() const { return vlanIdSet_; }
   // Another record under the name: it is followed from now on, and all is evaluated again.
   void vlanIdSetIs(Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet);
   // The list as the record has it at the moment, read.
   VornUtils::VlanIdSet const& vlans();
   DynVlanRank rank() const { return {name_, vlanIdSet_->configPriority()}; }
   bool isMvrp() const { return isMvrp_; }

   void handleInitialized() override;
   // Asserts "initialized()". Gives up all claims.
   void doPrepareToDie() override;
   // The list or the priority has changed. Asserts "initialized()".
   void handleVlans();
   // The VLAN passes to this source, with its trunk groups.
   void doModifyDynVlanCfg(Bridging::VlanId vlanId);

  private:
   // --- Reactions.
   struct KemVlanIdSet final : Bridging::Input::VlanIdSet::NotifieeConst {
      explicit KemVlanIdSet(DynVlanSm& s) : NotifieeConst(this), sm(s) {}
      void onVlans() override { sm.handleVlans(); }
      void onConfigPriority() override { sm.handleVlans(); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onTrunkGroupkemImmediate() override { sm.handleTrunkGroup(); }
      DynVlanSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemVlanIdSet_); }
   void handleTrunkGroup(Kem::String8 const& name);
   void handleTrunkGroup(); // all of them

   // --- Helpers.
   void claim(Bridging::VlanId vlanId, VornUtils::VlanIdSet& created);
   void maybeTakeOver(Bridging::VlanId vlanId);
   void maybeDelVlans(VornUtils::VlanIdSet const& set);
   void passOnOutranked();
   bool isConfigSource(Bridging::VlanId vlanId) const;
   void updateSwitchIntf(Bridging::VlanConfig& vlan);
   template <class Visit>
   void forEachOwnVlan(Visit&& visit);

   Kem::String8 const name_;
   bool const isMvrp_;
   BridgingConfigSm& parent_;
   DynVlans& dynVlans_;
   Kem::Ptr<Bridging::Input::VlanIdSet const> vlanIdSet_;
   Kem::String8 text_;                // that was read last
   VornUtils::VlanIdSet vlans_;       // what it says
   VornUtils::VlanIdSet claimed_;     // what is recorded in the table
   std::optional<uint32_t> priority_; // with which it was evaluated last
   KemVlanIdSet kemVlanIdSet_{*this};
};

} // namespace Vorn
