// The owner of the resolved configuration. It keeps one child for each VLAN and each port, creates and
// deletes them as the copies of the deferred stages come and go, and holds the tables that tie routed ports
// to internal VLANs (InternalVlans.h tells the rules).
//
// Nothing here reads a VLAN or a port from an input: children follow the copies. The selector says which
// input is configIn and calls handleVlanConfig() when that changes. Made by the agent on the active
// supervisor, for good.
#pragma once

#include "Kem/Clock.h"
#include "Kem/Dir.h"
#include "Vorn/BridgingSm/SwitchIntfSm.h"
#include "Vorn/BridgingSm/VlanConfigSm.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigOutput.h"
#include "Vorn/VlanConfigCodef/VlanConfigCodef.h"
#include "Vorn/VlanConfigCodef/VlanConfigOutput.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/FdbConfigDir.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/Input/DynVlanSrcTable.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Errdisable/CauseStatus.h"
#include "records/Interface/EthIntfConfigDir.h"
#include "records/Interface/EthIntfStatusDir.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/PrivateVlanLib/LibState.h"
#include "records/Vorn/DynVlanIntfList.h"

namespace Vorn {

// What BridgingConfigSm is made of. A null input is not followed.
struct BridgingConfigInputs {
   Kem::Ptr<Bridging::Input::Config const> configIn;
   Kem::Ptr<Bridging::SwitchIntfConfigDir const> allSwitchIntfConfigs; // the best record of each port
   Kem::Ptr<Bridging::FdbConfigDir const> fdbConfigDir;
   Kem::Ptr<Bridging::Config> config; // the result
   Kem::Ptr<Interface::VlanIntfConfigDir const> vlanIntfConfig;
   Kem::Ptr<DynVlanIntfList const> dynVlanIntfList; // must be there
   Kem::Ptr<Interface::EthIntfConfigDir const> ethIntfConfigDir;
   Kem::Ptr<Kem::Dir const> dynAllowedVlanDir;
   Kem::Ptr<Kem::Dir const> dynVlanDir;
   Kem::Ptr<Bridging::Input::DynVlanSrcTable> dynVlanSrcTable;
   Kem::Ptr<Errdisable::CauseStatus> noInternalVlanIdCauseStatus; // ports that wait for an internal VLAN
   Kem::Ptr<Kem::Clock const> recoveryTimer;
   Kem::Ptr<Bridging::Input::CliConfig const> cliConfig;
   Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState;
   AttrLogCheck* attrLogCheck = nullptr; // whether the deferred stages may write; null: always
   Kem::Ptr<Interface::EthIntfStatusDir const> ethIntfStatusDir;
};

class BridgingConfigSm final : public Kem::PtrInterface,
                               public VlanConfigOutput,
                               public SwitchIntfConfigOutput {
  public:
   // Seconds that a port waits for an internal VLAN before recovery looks at it, and between two looks.
   static constexpr Kem::Seconds recoveryInterval = 10.0;

   explicit BridgingConfigSm(BridgingConfigInputs inputs);
   ~BridgingConfigSm() override;
   // The first full evaluation; the factory runs it. Asserts "dynVlanIntfList()".
   void handleInitialized();

   // --- Inputs and outputs.
   Kem::Ptr<Bridging::Input::Config const> const& configIn() const override { return in_.configIn; }
   // Only stores: the selector calls handleVlanConfig() next.
   void configInIs(Kem::Ptr<Bridging::Input::Config const> const& input) { in_.configIn = input; }
   Bridging::Config& config() const { return *in_.config; }
   Bridging::SwitchIntfConfigDir const* allSwitchIntfConfigs() const {
      return in_.allSwitchIntfConfigs.ptr();
   }
   Bridging::Input::CliConfig const& cliConfig() const { return *in_.cliConfig; }
   Bridging::Input::DynVlanSrcTable const& dynVlanSrcTable() const { return *in_.dynVlanSrcTable; }
   PrivateVlanLib::LibState const& privateVlanLibState() const { return *in_.privateVlanLibState; }
   Errdisable::CauseStatus& noInternalVlanIdCauseStatus() const { return *in_.noInternalVlanIdCauseStatus; }
   Kem::Ptr<DynVlanIntfList const> const& dynVlanIntfList() const { return in_.dynVlanIntfList; }
   AttrLogCheck* attrLogCheck() const override { return in_.attrLogCheck; }
   bool initialized() const { return initialized_; }

   // --- Copies of the deferred stages. Placing or deleting one is followed at once by the handler below.
   VlanConfigAfterCodef const& vlanConfigAfterCodef() const override { return vlanConfigAfterCodef_; }
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodef(Bridging::VlanId vlanId) const override;
   Kem::Ptr<Bridging::Input::VlanConfig> vlanConfigAfterCodefIs(Bridging::VlanId vlanId) override;
   void vlanConfigAfterCodefDel(Bridging::VlanId vlanId) override;
   void vlanConfigSmInitialize(Bridging::VlanId vlanId) override;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig>
   switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) override;
   void switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) override;
   void switchIntfSmInitialize(Sulvi::IntfId intfId) override;
   Kem::Ptr<VlanConfigCodef> const& vlanConfigCodef() const { return vlanConfigCodef_; }
   Kem::Ptr<SwitchIntfConfigCodef> const& switchIntfConfigCodef() const { return switchIntfConfigCodef_; }

   // --- What the selector and the deferred stages call.
   // configIn has changed: what it lacks is deleted, and the deferred stage looks at the new one.
   void handleVlanConfig();
   void handleVlanConfig(Bridging::VlanId vlanId);
   // Ports come one at a time: asserts "!initialized()".
   void handleSwitchIntfConfig();
   void handleSwitchIntfConfig(Sulvi::IntfId intfId);

   // --- Children; null where there is none.
   using SwitchIntfSms = Kem::HashMap<SwitchIntfSm, Sulvi::IntfId>;
   SwitchIntfSms const& switchIntfSm() const { return switchIntfSm_; }
   Kem::Ptr<SwitchIntfSm> switchIntfSm(Sulvi::IntfId intfId) const;
   // Makes the child, or passes new records on to the standing one. Another `bridgingConfig` for a standing
   // one raises a range exception.
   Kem::Ptr<SwitchIntfSm>
   switchIntfSmIs(Sulvi::IntfId intfId,
                  Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                  Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                  Kem::Ptr<Bridging::Config> const& bridgingConfig,
                  Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus);
   Kem::Ptr<VlanConfigSm> vlanConfigSm(Bridging::VlanId vlanId) const;

   // --- Resolved VLANs, as the ports look at them. A VLAN is ordinary when its membership hangs on nothing
   // but its number: active, not internal, without trunk groups and without a role among private VLANs.
   VornUtils::VlanIdSet const& ordinaryVlans() const { return ordinaryVlans_; }
   VornUtils::VlanIdSet const& specialVlans() const { return specialVlans_; } // all others that stand
   // To be told of each resolved VLAN that was made, and of each change of what is named
   // above, before ports are synced.
   void resolvedVlanChanged(Bridging::VlanConfig const& vlan);
   // Deletes the resolved VLAN; nothing when there is none. The only way: the ports have to know.
   void resolvedVlanDel(Bridging::VlanId vlanId);
   // The VLAN interface of that number, configured statically or else by a dynamic
   // source; null when there is none.
   Kem::Ptr<Interface::VlanIntfConfig const> vlanIntfConfigOf(Bridging::VlanId vlanId) const;
   // The smallest secondary VLAN of a primary one; 4095 when there is none.
   Bridging::VlanIdOrAny getMinSecondaryVlanId(Bridging::VlanId vlanId) const;

   // --- Internal VLANs of routed ports; see InternalVlans.h. Each pair is written together.
   Sulvi::IntfId routedPort(Bridging::VlanId vlanId) const; // the empty id when there is none
   void routedPortIs(Bridging::VlanId vlanId, Sulvi::IntfId intfId);
   void routedPortDel(Bridging::VlanId vlanId) { routedPort_.erase(vlanId); }
   Bridging::VlanIdOrNone internalVlanId(Sulvi::IntfId intfId) const; // 0 when there is none
   void internalVlanIdIs(Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId);
   void internalVlanIdDel(Sulvi::IntfId intfId) { internalVlanId_.erase(intfId); }
   // What the run before left, until its port claims it.
   Sulvi::IntfId startupRoutedPort(Bridging::VlanId vlanId) const;
   void startupRoutedPortDel(Bridging::VlanId vlanId) { startupRoutedPort_.erase(vlanId); }
   Bridging::VlanIdOrNone startupInternalVlanId(Sulvi::IntfId intfId) const;
   void startupInternalVlanIdDel(Sulvi::IntfId intfId) { startupInternalVlanId_.erase(intfId); }
   // The first free number of the range; 0 when there is none. Reserves nothing.
   Bridging::VlanIdOrNone allocateInternalVlanId() const;
   // The user's configuration takes the number: its routed port gives it up and waits.
   void handleInternalVlanIdInUse(Bridging::VlanId vlanId);

  private:
   // --- Reactions.
   struct KemConfig final : Bridging::Config::NotifieeConst {
      explicit KemConfig(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onDefaultSwitchportMode() override { sm.handleDefaultSwitchportMode(); }
      BridgingConfigSm& sm;
   };
   struct KemVlanIntfConfig final : Interface::VlanIntfConfigDir::NotifieeConst {
      explicit KemVlanIntfConfig(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleVlanIntfConfig(intfId); }
      BridgingConfigSm& sm;
   };
   struct KemDynVlanIntfList final : DynVlanIntfList::NotifieeConst {
      explicit KemDynVlanIntfList(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleVlanIntfConfig(intfId); }
      BridgingConfigSm& sm;
   };
   struct KemEthIntfConfigDir final : Interface::EthIntfConfigDir::NotifieeConst {
      explicit KemEthIntfConfigDir(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleEthIntfConfig(intfId); }
      BridgingConfigSm& sm;
   };
   struct KemEthIntfStatusDir final : Interface::EthIntfStatusDir::NotifieeConst {
      explicit KemEthIntfStatusDir(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleEthIntfStatus(intfId); }
      BridgingConfigSm& sm;
   };
   struct KemCliConfig final : Bridging::Input::CliConfig::NotifieeConst {
      explicit KemCliConfig(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onVidToFidMap(Bridging::VlanId vlanId) override { sm.handleVidToFidMap(vlanId); }
      void onIeeeReservedForwarding(Sulvi::EthAddr addr) override { sm.handleIeeeReservedForwarding(addr); }
      BridgingConfigSm& sm;
   };
   struct KemRecoveryTimer final : Kem::Clock::NotifieeConst {
      explicit KemRecoveryTimer(BridgingConfigSm& s) : sm(s) {}
      void onTime() override { sm.handleRecoveryTimer(); }
      BridgingConfigSm& sm;
   };
   void handleDefaultSwitchportMode();
   void handleVlanIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfStatus(Sulvi::IntfId intfId);
   void handleVidToFidMap(Bridging::VlanId vlanId);
   void handleAllVidToFidMap();
   void handleIeeeReservedForwarding(Sulvi::EthAddr addr);
   void handleIeeeReservedForwarding();
   void handleRecoveryTimer();

   // --- Helpers.
   void takeOverInternalVlans();
   void releaseVanishedRoutedPort(SwitchIntfSm& sm);
   void vlanConfigSmIs(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig> const& copy);

   BridgingConfigInputs in_;
   bool initialized_ = false;
   VlanConfigAfterCodef vlanConfigAfterCodef_;
   Kem::HashMap<Bridging::Input::SwitchIntfConfig, Sulvi::IntfId> switchIntfConfigAfterCodef_;
   Kem::ValueMap<Bridging::VlanId, Sulvi::IntfId> routedPort_;
   Kem::ValueMap<Sulvi::IntfId, Bridging::VlanIdOrNone> internalVlanId_;
   Kem::ValueMap<Sulvi::IntfId, Bridging::VlanIdOrNone> startupInternalVlanId_;
   Kem::ValueMap<Bridging::VlanId, Sulvi::IntfId> startupRoutedPort_;
   VornUtils::VlanIdSet ordinaryVlans_;
   VornUtils::VlanIdSet specialVlans_;
   Kem::HashMap<VlanConfigSm, Bridging::VlanId> vlanConfigSm_;
   SwitchIntfSms switchIntfSm_;
   Kem::Ptr<VlanConfigCodef> vlanConfigCodef_;
   Kem::Ptr<SwitchIntfConfigCodef> switchIntfConfigCodef_;
   KemConfig kemConfig_{*this};
   KemVlanIntfConfig kemVlanIntfConfig_{*this};
   KemDynVlanIntfList kemDynVlanIntfList_{*this};
   KemEthIntfConfigDir kemEthIntfConfigDir_{*this};
   KemEthIntfStatusDir kemEthIntfStatusDir_{*this};
   KemCliConfig kemCliConfig_{*this};
   KemRecoveryTimer kemRecoveryTimer_{*this};
};

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs);

} // namespace Vorn
