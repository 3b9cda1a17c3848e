// The resolved VLANs: the only writer of Bridging::VlanConfig, except for its members. Every resolved VLAN is
// made, changed and deleted here, because three things have to follow: the VLAN is sorted into ordinary or
// special, the ports forget what they wrote into a deleted one, and the private VLANs that it is related to
// are marked (VlanRelations.h).
//
// A VLAN is ordinary when its membership depends on nothing but its number: active, not internal, without
// trunk groups and without a role among private VLANs. A port that looks at all VLANs passes over the
// ordinary ones without a look-up (SwitchIntfSm::doSyncAllVlans).
//
// Members are not written here: each port writes its own (SwitchIntfSm), and CpuPort.h writes the
// processor's. Nor does anything here run over the ports to update them: the caller does, once its changes
// are complete. Owned by BridgingConfigSm.
#pragma once

#include "Kem/Collections.h"
#include "Vorn/BridgingSm/VlanRelations.h"
#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/VlanConfig.h"

namespace Vorn {

class SwitchIntfSm;
using SwitchIntfSms = Kem::HashMap<SwitchIntfSm, Sulvi::IntfId>;

class ResolvedVlans {
  public:
   // `ports` are informed of deleted VLANs. Both outlive this.
   ResolvedVlans(Kem::Ptr<Bridging::Config> config, SwitchIntfSms const& ports)
       : config_(std::move(config)), ports_(ports) {}
   // Sorts the VLANs of the previous run.
   void handleInitialized();
   // Somebody else edited a resolved VLAN, or something else of the resolved configuration, which may be that
   // VLANs came or went. What is remembered of them counts no more: a port's next pass looks at them.
   void handleForeignChange(Kem::Entity const& changed);

   // --- Look-ups.
   // The writable record; null when there is none.
   Kem::Ptr<Bridging::VlanConfig> vlan(Bridging::VlanId vlanId) const { return config_->vlanConfig(vlanId); }
   VornUtils::VlanIdSet const& ordinary() const { return ordinary_; }
   VornUtils::VlanIdSet const& special() const { return special_; } // all others
   VlanRelations& relations() { return relations_; }

   // --- Making and deleting.
   // Finds or makes a VLAN that somebody asked for. An internal one of that number is deleted first, and its
   // members with it.
   Kem::Ptr<Bridging::VlanConfig> vlanIs(Bridging::VlanId vlanId);
   // Finds or makes an internal VLAN. Raises a range exception when a VLAN of that number is not internal.
   Kem::Ptr<Bridging::VlanConfig> internalVlanIs(Bridging::VlanId vlanId);
   void vlanDel(Bridging::VlanId vlanId); // nothing when there is none

   // --- Attributes.
   void configSourceIs(Bridging::VlanConfig& vlan, Kem::String8 const& source);
   void configuredNameIs(Bridging::VlanConfig& vlan, Kem::String8 const& name);
   void adminStateIs(Bridging::VlanConfig& vlan, Bridging::VlanAdminState state);
   void vlanTypeAndPrimaryVlanIs(Bridging::VlanConfig& vlan, Bridging::VlanTypeAndPrimaryVlan const& role);
   void trunkGroupIs(Bridging::VlanConfig& vlan, Kem::String8 const& name);
   void trunkGroupDel(Bridging::VlanConfig& vlan, Kem::String8 const& name);

  private:
   void classify(Bridging::VlanConfig const& vlan);
   void forgetMembers(Bridging::VlanId vlanId);
   Kem::Ptr<Bridging::VlanConfig> findOrMake(Bridging::VlanId vlanId, bool isInternal);

   Kem::Ptr<Bridging::Config> const config_;
   SwitchIntfSms const& ports_;
   VornUtils::VlanIdSet ordinary_;
   VornUtils::VlanIdSet special_;
   VlanRelations relations_;
};

} // namespace Vorn
