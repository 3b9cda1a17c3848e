// What BridgingConfigSm itself follows, and the handler of each notification; a subject with a class of its
// own has its reactors there. Included by BridgingConfigSm.cpp only.
#pragma once

#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

struct BridgingConfigSm::Reactors {
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
   struct KemEthIntfStatusDir final : Interface::EthIntfStatusDir::NotifieeConst {
      explicit KemEthIntfStatusDir(BridgingConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleEthIntfStatus(intfId); }
      BridgingConfigSm& sm;
   };

   explicit Reactors(BridgingConfigSm& sm)
       : kemVlanIntfConfig(sm), kemDynVlanIntfList(sm), kemEthIntfConfigDir(sm), kemRecoveryTimer(sm),
         kemEthIntfStatusDir(sm) {}
   void notifiersAre(BridgingConfigInputs const& in) {
      kemVlanIntfConfig.notifierIs(in.vlanIntfConfig);
      kemDynVlanIntfList.notifierIs(in.dynVlanIntfList);
      kemEthIntfConfigDir.notifierIs(in.ethIntfConfigDir);
      kemRecoveryTimer.notifierIs(in.recoveryTimer);
      kemEthIntfStatusDir.notifierIs(in.ethIntfStatusDir);
   }

   void forEachPart(Kem::PartVisitor const& visit) {
      visit(kemVlanIntfConfig, kemDynVlanIntfList, kemEthIntfConfigDir, kemRecoveryTimer,
            kemEthIntfStatusDir);
   }

   KemVlanIntfConfig kemVlanIntfConfig;
   KemDynVlanIntfList kemDynVlanIntfList;
   KemEthIntfConfigDir kemEthIntfConfigDir;
   KemRecoveryTimer kemRecoveryTimer;
   KemEthIntfStatusDir kemEthIntfStatusDir;
};

} // namespace Vorn
