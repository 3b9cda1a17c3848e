// The owner of the resolved configuration, and what its parts share. Made once by the agent, when its
// supervisor becomes active. The selector says which input is configIn and calls handleVlanConfig() when that
// changes.
//
// Every subject is a class with its tables, its children, its reactors and their handlers in files of its own;
// here are only its member, its step of the start (handleInitialized has their order), and what the others
// call of it:
//
//    StaticVlans      VLANs of configIn, and VlanConfigSm for each
//    DynVlans         VLANs that dynamic sources ask for, and DynVlanSm for each source
//    Switchports      ports, and SwitchIntfSm for each
//    DynAllowedVlans  what dynamic sources allow on ports, and DynAllowedVlanSm for each source
//    StaticHosts      static hosts and groups, and FdbConfigSm for each VLAN
//    PrivateVlans     primary VLANs and mappings, PrimaryVlanSm and SviMappingSm for each
//    BridgeSettingsSm settings of the bridge as a whole
//    ResolvedVlans    the one writer of resolved VLANs
//    InternalVlans    numbers of routed ports
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/BridgeSettingsSm.h"
#include "Vorn/BridgingSm/BridgingConfigInputs.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/BridgingSm/DynAllowedVlans.h"
#include "Vorn/BridgingSm/DynVlans.h"
#include "Vorn/BridgingSm/InternalVlans.h"
#include "Vorn/BridgingSm/PrivateVlans.h"
#include "Vorn/BridgingSm/ResolvedVlans.h"
#include "Vorn/BridgingSm/StaticHosts.h"
#include "Vorn/BridgingSm/StaticVlans.h"
#include "Vorn/BridgingSm/Switchports.h"
#include "Vorn/BridgingSm/VlanInterfaces.h"
#include "Vorn/Rules/VlanLists.h"

#include <memory>

namespace Vorn {

class BridgingConfigSm final : public Kem::StateMachine {
  public:
   // How often recovery looks at the ports that wait for an internal VLAN, in seconds.
   static constexpr Kem::Seconds recoveryPeriod = 10.0;

   explicit BridgingConfigSm(BridgingConfigInputs inputs);
   ~BridgingConfigSm() override;
   // The first full evaluation; the factory runs it. Asserts "dynVlanIntfList()".
   void handleInitialized() override;

   // --- Inputs and outputs.
   Kem::Ptr<Bridging::Input::Config const> const& configIn() const { return in_.configIn; }
   // Only stores: the selector calls handleVlanConfig() next.
   void configInIs(Kem::Ptr<Bridging::Input::Config const> const& input) { in_.configIn = input; }
   Bridging::Config& config() const { return *in_.config; }
   Bridging::Input::CliConfig const& cliConfig() const { return *in_.cliConfig; }
   // The command line's input is a new entity: its settings replace those of the old one.
   void cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);
   PrivateVlanLib::LibState const& privateVlanLibState() const { return *in_.privateVlanLibState; }
   Kem::Ptr<DynVlanIntfList const> const& dynVlanIntfList() const { return in_.dynVlanIntfList; }
   AttrLogCheck* attrLogCheck() const { return in_.attrLogCheck; }

   // Somebody else changed something in the resolved configuration. Nothing is worked out again at once; what
   // is remembered of what was written counts no more.
   void handleForeignChange(Kem::Entity const& changed);

   // --- The parts.
   StaticVlans& staticVlans() { return *staticVlans_; }
   DynVlans& dynVlans() { return *dynVlans_; }
   Switchports& switchports() { return *switchports_; }
   DynAllowedVlans& dynAllowedVlans() { return *dynAllowedVlans_; }
   StaticHosts& staticHosts() { return *staticHosts_; }
   PrivateVlans& privateVlans() { return *privateVlans_; }
   ResolvedVlans& resolvedVlans() { return resolvedVlans_; }
   InternalVlans& internalVlans() { return internalVlans_; }
   VlanInterfaces const& vlanInterfaces() const { return vlanInterfaces_; }
   CpuPortInputs cpuPortInputs() const { return {config(), privateVlanLibState(), vlanInterfaces()}; }
   VlanLists& vlanLists() { return vlanLists_; }

   // --- What is called of them from many places; each says more.
   void handleVlanConfig() { staticVlans_->handleVlanConfig(); }
   void handleVlanConfig(Bridging::VlanId vlanId) { staticVlans_->handleVlanConfig(vlanId); }
   Kem::Ptr<VlanConfigCodef> const& vlanConfigCodef() const { return staticVlans_->vlanConfigCodef(); }
   SwitchIntfSms const& switchIntfSm() const { return switchports_->switchIntfSm(); }
   Kem::Ptr<SwitchIntfSm> switchIntfSm(Sulvi::IntfId intfId) const {
      return switchports_->switchIntfSm(intfId);
   }
   Kem::Ptr<SwitchIntfConfigCodef> const& switchIntfConfigCodef() const {
      return switchports_->switchIntfConfigCodef();
   }
   // The VLAN came or went.
   void handleFdbConfig(Bridging::VlanId vlanId) { staticHosts_->handleFdbConfig(vlanId); }
   void handleVidToFidMap(Bridging::VlanId vlanId) { settings_->handleVidToFidMap(vlanId); }
   // The smallest secondary VLAN of a primary one; 4095 when there is none.
   Bridging::VlanIdOrAny getMinSecondaryVlanId(Bridging::VlanId vlanId) const;

   // --- Internal VLANs, passed on to InternalVlans, which says more.
   Bridging::VlanIdOrNone allocateInternalVlanId() const; // asserts "initialized()"
   void handleInternalVlanIdInUse(Bridging::VlanId vlanId) { internalVlans_.handleInUse(vlanId); }
   Sulvi::IntfId routedPort(Bridging::VlanId vlanId) const;
   Bridging::VlanIdOrNone internalVlanId(Sulvi::IntfId intfId) const;
   Sulvi::IntfId startupRoutedPort(Bridging::VlanId vlanId) const;
   Bridging::VlanIdOrNone startupInternalVlanId(Sulvi::IntfId intfId) const;

  private:
   struct Reactors; // BridgingConfigReactors.h: what isn't followed by a part
   void forEachPart(Kem::PartVisitor const& visit) override;

   // --- Reactions.
   void handleVlanIntfConfig(Sulvi::IntfId intfId);
   void handleRecoveryTimer();

   BridgingConfigInputs in_;
   VlanInterfaces const vlanInterfaces_{in_.vlanIntfConfig, in_.dynVlanIntfList};
   VlanLists vlanLists_;
   Kem::Ptr<Switchports> const switchports_;
   ResolvedVlans resolvedVlans_{in_.config, switchports_->switchIntfSm()};
   InternalVlans internalVlans_{in_.config, resolvedVlans_, vlanInterfaces_, in_.noInternalVlanIdCauseStatus};
   Kem::Ptr<StaticVlans> const staticVlans_;
   Kem::Ptr<DynVlans> const dynVlans_;
   Kem::Ptr<DynAllowedVlans> const dynAllowedVlans_;
   Kem::Ptr<StaticHosts> const staticHosts_;
   Kem::Ptr<BridgeSettingsSm> const settings_;
   Kem::Ptr<PrivateVlans> const privateVlans_;
   std::unique_ptr<Reactors> const reactors_;
};

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs);

} // namespace Vorn
