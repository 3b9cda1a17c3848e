// What BridgingConfigSm follows, and the handler of each notification. Included by BridgingConfigSm.cpp only.
#pragma once

#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

struct BridgingConfigSm::Reactors {
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
   struct KemRecoveryTimer final : Kem::Clock::NotifieeConst {
      explicit KemRecoveryTimer(BridgingConfigSm& s) : sm(s) {}
      void onTime() override { sm.handleRecoveryTimer(); }
      BridgingConfigSm& sm;
   };
   struct KemCliConfig final : Bridging::Input::CliConfig::NotifieeConst {
      explicit KemCliConfig(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onVidToFidMap(Bridging::VlanId vlanId) override { sm.handleVidToFidMap(vlanId); }
      void onIeeeReservedForwarding(Sulvi::EthAddr addr) override { sm.handleIeeeReservedForwarding(addr); }
      BridgingConfigSm& sm;
   };
   struct KemEthIntfStatusDir final : Interface::EthIntfStatusDir::NotifieeConst {
      explicit KemEthIntfStatusDir(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleEthIntfStatus(intfId); }
      BridgingConfigSm& sm;
   };

   explicit Reactors(BridgingConfigSm& sm)
       : kemConfig(sm), kemVlanIntfConfig(sm), kemDynVlanIntfList(sm), kemEthIntfConfigDir(sm),
         kemRecoveryTimer(sm), kemCliConfig(sm), kemEthIntfStatusDir(sm) {}
   void notifiersAre(BridgingConfigInputs const& in) {
      kemConfig.notifierIs(in.config);
      kemVlanIntfConfig.notifierIs(in.vlanIntfConfig);
      kemDynVlanIntfList.notifierIs(in.dynVlanIntfList);
      kemEthIntfConfigDir.notifierIs(in.ethIntfConfigDir);
      kemRecoveryTimer.notifierIs(in.recoveryTimer);
      kemCliConfig.notifierIs(in.cliConfig);
      kemEthIntfStatusDir.notifierIs(in.ethIntfStatusDir);
   }

   void forEachPart(Kem::PartVisitor const& visit) {
      visit(kemConfig, kemVlanIntfConfig, kemDynVlanIntfList, kemEthIntfConfigDir, kemRecoveryTimer,
            kemCliConfig, kemEthIntfStatusDir);
   }

   KemConfig kemConfig;
   KemVlanIntfConfig kemVlanIntfConfig;
   KemDynVlanIntfList kemDynVlanIntfList;
   KemEthIntfConfigDir kemEthIntfConfigDir;
   KemRecoveryTimer kemRecoveryTimer;
   KemCliConfig kemCliConfig;
   KemEthIntfStatusDir kemEthIntfStatusDir;
};

} // namespace Vorn
