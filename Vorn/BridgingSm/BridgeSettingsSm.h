// What is set for the bridge as a whole: the command line's input says which VLANs share a filtering database
// and which reserved addresses are forwarded, and both are copied into the resolved configuration. A change
// of the default switchport mode in the resolved configuration ends the process: the next one applies it.
//
// Private VLANs share a filtering database too, and there is one map for both. It depends on the tree alone,
// not on who wrote last: a secondary VLAN of a primary uses the database of that, another one what the
// command line says.
//
// Owned by BridgingConfigSm, which initializes it as the last step of its own start.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/PrivateVlanLib/LibState.h"

namespace Vorn {

class BridgeSettingsSm final : public Kem::StateMachine {
  public:
   BridgeSettingsSm(Kem::Ptr<Bridging::Config> config,
                    Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig,
                    Kem::Ptr<PrivateVlanLib::LibState const> privateVlanLibState);
   // Copies all settings.
   void handleInitialized() override;
   // The command line's input is a new entity: its settings replace those of the old one.
   void cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);
   // Brings the VLAN's entry of the map up to date. PrimaryVlanSm writes that of a VLAN that becomes a
   // secondary, and calls this for one that ceases to be.
   void handleVidToFidMap(Bridging::VlanId vlanId);

  private:
   // --- Reactions.
   struct KemConfig final : Bridging::Config::NotifieeConst {
      explicit KemConfig(BridgeSettingsSm& s) : NotifieeConst(this), sm(s) {}
      void onDefaultSwitchportMode() override { sm.handleDefaultSwitchportMode(); }
      BridgeSettingsSm& sm;
   };
   struct KemCliConfig final : Bridging::Input::CliConfig::NotifieeConst {
      explicit KemCliConfig(BridgeSettingsSm& s) : NotifieeConst(this), sm(s) {}
      void onVidToFidMap(Bridging::VlanId vlanId) override { sm.handleVidToFidMap(vlanId); }
      void onIeeeReservedForwarding(Sulvi::EthAddr addr) override { sm.handleIeeeReservedForwarding(addr); }
      BridgeSettingsSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemConfig_, kemCliConfig_); }
   void handleDefaultSwitchportMode();
   void handleAllVidToFidMap();
   void handleIeeeReservedForwarding(Sulvi::EthAddr addr);
   void handleIeeeReservedForwarding();

   Kem::Ptr<Bridging::Config> const config_;
   Kem::Ptr<Bridging::Input::CliConfig const> cliConfig_;
   Kem::Ptr<PrivateVlanLib::LibState const> const privateVlanLibState_;
   KemConfig kemConfig_{*this};
   KemCliConfig kemCliConfig_{*this};
};

} // namespace Vorn
