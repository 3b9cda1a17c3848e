// VLANs that dynamic sources ask for, beside the one chosen static input. Here are the claims, the sources'
// state machines, and what is done to the resolved VLANs; at once, without a deferred stage.
//
//    no VLAN ──first claim──► dynamic ──static copy made──► static ──copy gone, claims left──► dynamic
//    dynamic ──last claim gone──► no VLAN
//    dynamic, and the chosen input holds it ──last claim gone──► waits for its static copy
//
// A static VLAN beats a dynamic one: while configIn holds the VLAN nothing is made or deleted here, and while
// a copy of it exists that its input has dropped, the VLAN is on its way out and left to that. Claims are recorded
// all the same, and take effect when the copy goes (StaticVlans::handleVlanConfig(vlanId)).
//
// Owned by BridgingConfigSm. All that is written to resolved VLANs goes through ResolvedVlans.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Dir.h"
#include "Vorn/BridgingSm/DynVlanSm.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/DynVlanSrc.h"
#include "records/Bridging/Input/DynVlanSrcTable.h"

namespace Vorn {

class DynVlans final : public Kem::StateMachine {
  public:
   using DynVlanSms = Kem::RbTreeMap<DynVlanSm, Kem::String8>; // by the name of the source

   // `dynVlanDir` may be null: no sources.
   DynVlans(BridgingConfigSm& parent, Kem::Ptr<Kem::Dir const> const& dynVlanDir,
            Kem::Ptr<Bridging::Input::DynVlanSrcTable> table);
   void handleInitialized() override;

   // --- Sources.
   DynVlanSms const& dynVlanSm() const { return dynVlanSm_; }
   Kem::Ptr<DynVlanSm> dynVlanSm(Kem::String8 const& name) const; // null when there is none
   // Makes the child, or has the existing one follow another record.
   void dynVlanSmIs(Kem::String8 const& name, Kem::Ptr<Bridging::Input::VlanIdSet const> const& vlanIdSet);
   void dynVlanSmDel(Kem::String8 const& name); // nothing when there is none

   // --- Claims.
   Bridging::Input::DynVlanSrcTable& table() { return *table_; }
   void dynVlanSrcDel(Bridging::VlanId vlanId);
   bool isClaimed(Bridging::VlanId vlanId) const { return table_->dynVlanSrc().find(vlanId); }
   // Exactly one source claims the VLAN, and that is "mvrp".
   bool isClaimedByMvrpOnly(Bridging::VlanId vlanId) const;
   // The name of the preferred one among the claimants; empty when there is none. Asserts
   // "sm && sm->vlanIdSet()".
   Kem::String8 getDynVlanConfigSource(Bridging::VlanId vlanId) const;

   // --- Resolved VLANs.
   // The resolved VLAN is there by a claim, and no copy of a static one has taken it over.
   bool isDynamic(Bridging::VlanId vlanId) const;
   // Makes the VLAN, or makes a former static one dynamic. With `mvrpDynVlan` the ports compute their allowed
   // VLANs first, where those can have changed. Returns false, and does nothing, where a static VLAN exists.
   bool doCreateDynVlan(Bridging::VlanId vlanId, Kem::String8 const& configSrcName,
                        Bridging::Input::VlanIdSet const& vlanIdSet, bool mvrpDynVlan);
   // The processor's port of a dynamic VLAN follows the VLAN interface as it is now, and that of its secondaries.
   void doSyncCpuPort(Bridging::VlanConfig& vlan);
   // Nothing where a static VLAN exists, or the number is that of a routed port.
   void doDelDynVlan(Bridging::VlanId vlanId);
   // There is no static VLAN any more: the claimed one exists by its claims. Asserts "sm".
   void doTurnDynamic(Bridging::VlanId vlanId);
   // Hands the VLAN to its preferred claimant. Asserts "configSourceDynSm".
   void doPassOn(Bridging::VlanId vlanId);
   // Another input gives the static VLANs. Claimed ones that the former one held, and had no copy of yet, are
   // dynamic now where this one lacks them, and from the source that is preferred now.
   void handleConfigIn();
   // Makes the VLAN's trunk groups those of the set; returns whether anything changed.
   bool updateTrunkGroup(Bridging::VlanConfig& vlan, Bridging::Input::VlanIdSet const& vlanIdSet);

   // --- Allowed VLANs of trunks.
   // What "mvrp" asks for and configIn lacks, which no trunk's own list allows.
   VornUtils::VlanIdSet const& mvrpOnly();
   // All ports compute their allowed VLANs, if that set has changed since they all did last.
   // Returns the VLANs that came into it or left it since, for the caller to sync.
   VornUtils::VlanIdSet doComputeTrunkAllowedVlans();
   // The same for who syncs no VLANs: those concerned wait for the next caller of the other.
   void doComputePorts();
   void doSyncVlans(VornUtils::VlanIdSet const& vlans); // those that are resolved, on all ports

  private:
   // --- Reactions.
   struct KemDynVlanDir final : Kem::Dir::NotifieeConst {
      explicit KemDynVlanDir(DynVlans& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleDynVlanIdSet(name); }
      void onEntityPtrkemImmediate() override { sm.handleDynVlanIdSet(); }
      DynVlans& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemDynVlanDir_, dynVlanSm_); }
   void handleDynVlanIdSet(Kem::Name const& name);
   void handleDynVlanIdSet();

   // --- What mvrpOnly() was worked out from, and what it is.
   struct MvrpOnly {
      Kem::Ptr<Bridging::Input::Config const> configIn;
      uint32_t version = 0; // of its VLANs
      VornUtils::VlanIdSet asked;
      VornUtils::VlanIdSet only;
   };

   BridgingConfigSm& parent_;
   Kem::Ptr<Kem::Dir const> const dynVlanDir_;
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> const table_;
   DynVlanSms dynVlanSm_;
   Kem::Ptr<DynVlanSm> mvrp_; // the one of that name; null when there is none
   MvrpOnly mvrpOnly_;
   VornUtils::VlanIdSet touched_;   // came into mvrpOnly() or left it since they were last handed to a caller
   bool havePortsComputed_ = false; // with mvrpOnly() as it is
   VornUtils::VlanIdSet made_;      // claimed VLANs that were made here
   KemDynVlanDir kemDynVlanDir_{*this};
};

} // namespace Vorn
