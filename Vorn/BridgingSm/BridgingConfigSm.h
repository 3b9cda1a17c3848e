// The owner of the resolved configuration. It keeps one child for each VLAN and each port, creates and
// deletes them as the copies of the deferred stages come and go, and holds what the children share.
//
// Nothing here reads a VLAN or a port from an input: children follow the copies. The selector says which
// input is configIn and calls handleVlanConfig() when that changes. Made once by the agent, when its
// supervisor becomes active.
//
// The paths of VLANs and ports through the class have a file each:
//
//    BridgingConfigSm.cpp         start, and look-ups
//    BridgingConfigReactors.h     what is followed, and the handler of each notification
//    BridgingConfigVlans.cpp      VLANs: from configIn and the copies to VlanConfigSm; VLAN interfaces
//    BridgingConfigPorts.cpp      ports: from the copies and the interfaces' records to SwitchIntfSm
//
// Every other subject is a class with its tables, its children, its reactors and their handlers in files of
// its own; here are only its member, its step of the start, and the operations that others call on this
// class: BridgeSettingsSm, DynVlans, DynAllowedVlans, InternalVlans, PrivateVlans, ResolvedVlans, StaticHosts,
// VlanInterfaces.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/BridgeSettingsSm.h"
#include "Vorn/BridgingSm/BridgingConfigInputs.h"
#include "Vorn/BridgingSm/DynAllowedVlans.h"
#include "Vorn/BridgingSm/DynVlans.h"
#include "Vorn/BridgingSm/InternalVlans.h"
#include "Vorn/BridgingSm/PrivateVlans.h"
#include "Vorn/BridgingSm/ResolvedVlans.h"
#include "Vorn/BridgingSm/StaticHosts.h"
#include "Vorn/BridgingSm/SwitchIntfSm.h"
#include "Vorn/BridgingSm/VlanConfigSm.h"
#include "Vorn/BridgingSm/VlanInterfaces.h"
#include "Vorn/Rules/VlanLists.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigOutput.h"
#include "Vorn/VlanConfigCodef/VlanConfigCodef.h"
#include "Vorn/VlanConfigCodef/VlanConfigOutput.h"

#include <memory>

namespace Vorn {

class BridgingConfigSm final : public Kem::StateMachine,
                               public VlanConfigOutput,
                               public SwitchIntfConfigOutput {
  public:
   // How often recovery looks at the ports that wait for an internal VLAN, in seconds.
   static constexpr Kem::Seconds recoveryPeriod = 10.0;

   explicit BridgingConfigSm(BridgingConfigInputs inputs);
   ~BridgingConfigSm() override;
   // The first full evaluation; the factory runs it. Asserts "dynVlanIntfList()".
   void handleInitialized() override;

   // --- Inputs and outputs.
   Kem::Ptr<Bridging::Input::Config const> const& configIn() const override { return in_.configIn; }
   // Only stores: the selector calls handleVlanConfig() next.
   void configInIs(Kem::Ptr<Bridging::Input::Config const> const& input) { in_.configIn = input; }
   Bridging::Config& config() const { return *in_.config; }
   Bridging::Input::CliConfig const& cliConfig() const { return *in_.cliConfig; }
   // The command line's input is a new entity: its settings replace those of the old one.
   void cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);
   Bridging::Input::DynVlanSrcTable const& dynVlanSrcTable() const { return *in_.dynVlanSrcTable; }
   // Whether configIn holds the VLAN: then it is a static one, whoever else asks for it.
   bool isWanted(Bridging::VlanId vlanId) const {
      return in_.configIn && in_.configIn->vlanConfig().find(vlanId);
   }
   PrivateVlanLib::LibState const& privateVlanLibState() const { return *in_.privateVlanLibState; }
   Kem::Ptr<DynVlanIntfList const> const& dynVlanIntfList() const { return in_.dynVlanIntfList; }
   AttrLogCheck* attrLogCheck() const override { return in_.attrLogCheck; }

   // Somebody else changed something in the resolved configuration. Nothing is worked out again at once; what
   // is remembered of what was written counts no more.
   void handleForeignChange(Kem::Entity const& changed);

   // --- What the children share.
   ResolvedVlans& resolvedVlans() { return resolvedVlans_; }
   InternalVlans& internalVlans() { return internalVlans_; }
   VlanInterfaces const& vlanInterfaces() const { return vlanInterfaces_; }
   PrivateVlans& privateVlans() { return *privateVlans_; }
   VlanLists& vlanLists() { return vlanLists_; }
   DynVlans& dynVlans() { return *dynVlans_; }
   DynAllowedVlans& dynAllowedVlans() { return *dynAllowedVlans_; }
   // The smallest secondary VLAN of a primary one; 4095 when there is none.
   Bridging::VlanIdOrAny getMinSecondaryVlanId(Bridging::VlanId vlanId) const;
   void handleVidToFidMap(Bridging::VlanId vlanId) { settings_->handleVidToFidMap(vlanId); }

   // --- VLANs: configIn, its copies, and a child for each copy. Placing or deleting a copy is followed at
   // once by handleVlanConfig(vlanId).
   Kem::Ptr<VlanConfigCodef> const& vlanConfigCodef() const { return vlanConfigCodef_; }
   // configIn has changed: what it lacks is deleted, and the deferred stage looks at the new one.
   void handleVlanConfig();
   VlanConfigAfterCodef const& vlanConfigAfterCodef() const override { return vlanConfigAfterCodef_; }
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodef(Bridging::VlanId vlanId) const override;
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodefIs(Bridging::VlanId vlanId) override;
   void vlanConfigAfterCodefDel(Bridging::VlanId vlanId) override;
   void handleVlanConfig(Bridging::VlanId vlanId);
   void vlanConfigSmInitialize(Bridging::VlanId vlanId) override;
   Kem::Ptr<VlanConfigSm> vlanConfigSm(Bridging::VlanId vlanId) const; // null when there is none

   // --- Ports: their copies, and a child for each copy. Placing or deleting a copy is followed at once by
   // handleSwitchIntfConfig(intfId).
   Kem::Ptr<SwitchIntfConfigCodef> const& switchIntfConfigCodef() const { return switchIntfConfigCodef_; }
   // Ports come one at a time: asserts "!initialized()".
   void handleSwitchIntfConfig();
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig>
   switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) override;
   void switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) override;
   void handleSwitchIntfConfig(Sulvi::IntfId intfId);
   void switchIntfSmInitialize(Sulvi::IntfId intfId) override;
   // No input holds the port: deletes what the previous run resolved for it. A port that has a child is left
   // alone: the deferred stage deletes its copy, and the rest follows.
   void doForgetPort(Sulvi::IntfId intfId);
   SwitchIntfSms const& switchIntfSm() const { return switchIntfSm_; }
   Kem::Ptr<SwitchIntfSm> switchIntfSm(Sulvi::IntfId intfId) const; // null when there is none
   // Makes the child, or passes new records on to the existing one. Another `bridgingConfig` for an existing
   // one raises a range exception.
   Kem::Ptr<SwitchIntfSm>
   switchIntfSmIs(Sulvi::IntfId intfId,
                  Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                  Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                  Kem::Ptr<Bridging::Config> const& bridgingConfig,
                  Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus);

   // --- Static hosts and groups, passed on to StaticHosts.
   // The VLAN came or went.
   void handleFdbConfig(Bridging::VlanId vlanId) { staticHosts_->handleFdbConfig(vlanId); }
   Kem::Ptr<FdbConfigSm> fdbConfigSm(Bridging::VlanId vlanId) const {
      return staticHosts_->fdbConfigSm(vlanId);
   }

   // --- Dynamic VLANs, passed on to DynVlans, which says more.
   bool doCreateDynVlan(Bridging::VlanId vlanId, Kem::String8 const& configSrcName,
                        Bridging::Input::VlanIdSet const& vlanIdSet, bool mvrpDynVlan) {
      return dynVlans_->doCreateDynVlan(vlanId, configSrcName, vlanIdSet, mvrpDynVlan);
   }
   void doDelDynVlan(Bridging::VlanId vlanId) { dynVlans_->doDelDynVlan(vlanId); }
   Kem::String8 getDynVlanConfigSource(Bridging::VlanId vlanId) const {
      return dynVlans_->getDynVlanConfigSource(vlanId);
   }

   // --- Internal VLANs, passed on to InternalVlans, which says more.
   Bridging::VlanIdOrNone allocateInternalVlanId() const; // asserts "initialized()"
   void handleInternalVlanIdInUse(Bridging::VlanId vlanId) { internalVlans_.handleInUse(vlanId); }
   Sulvi::IntfId routedPort(Bridging::VlanId vlanId) const;
   Bridging::VlanIdOrNone internalVlanId(Sulvi::IntfId intfId) const;
   Sulvi::IntfId startupRoutedPort(Bridging::VlanId vlanId) const;
   Bridging::VlanIdOrNone startupInternalVlanId(Sulvi::IntfId intfId) const;

  private:
   struct Reactors;
   void forEachPart(Kem::PartVisitor const& visit) override;

   // --- Reactions.
   void handleVlanIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfStatus(Sulvi::IntfId intfId);
   void handleRecoveryTimer();

   // --- Helpers.
   void vlanConfigSmIs(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig> const& copy);
   void releaseVanishedRoutedPort(SwitchIntfSm& sm);

   BridgingConfigInputs in_;
   VlanConfigAfterCodef vlanConfigAfterCodef_;
   Kem::HashMap<Bridging::Input::SwitchIntfConfig, Sulvi::IntfId> switchIntfConfigAfterCodef_;
   VlanInterfaces const vlanInterfaces_{in_.vlanIntfConfig, in_.dynVlanIntfList};
   ResolvedVlans resolvedVlans_{in_.config, switchIntfSm_};
   InternalVlans internalVlans_{in_.config, resolvedVlans_, vlanInterfaces_, in_.noInternalVlanIdCauseStatus};
   Kem::HashMap<VlanConfigSm, Bridging::VlanId> vlanConfigSm_;
   SwitchIntfSms switchIntfSm_;
   VlanLists vlanLists_;
   Kem::Ptr<DynVlans> const dynVlans_;
   Kem::Ptr<DynAllowedVlans> const dynAllowedVlans_;
   Kem::Ptr<VlanConfigCodef> vlanConfigCodef_;
   Kem::Ptr<SwitchIntfConfigCodef> switchIntfConfigCodef_;
   Kem::Ptr<StaticHosts> const staticHosts_;
   Kem::Ptr<BridgeSettingsSm> const settings_;
   Kem::Ptr<PrivateVlans> const privateVlans_;
   std::unique_ptr<Reactors> const reactors_;
};

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs);

} // namespace Vorn
