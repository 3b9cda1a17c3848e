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
   struct KemRecoveryTimer final : Kem::Clock::NotifieeConst {
      explicit KemRecoveryTimer(BridgingConfigSm& s) : sm(s) {}
      void onTime() override { sm.handleRecoveryTimer(); }
      BridgingConfigSm& sm;
   };

   explicit Reactors(BridgingConfigSm& sm)
       : kemVlanIntfConfig(sm), kemDynVlanIntfList(sm), kemRecoveryTimer(sm) {}
   void notifiersAre(BridgingConfigInputs const& in) {
      kemVlanIntfConfig.notifierIs(in.vlanIntfConfig);
      kemDynVlanIntfList.notifierIs(in.dynVlanIntfList);
      kemRecoveryTimer.notifierIs(in.recoveryTimer);
   }

   void forEachPart(Kem::PartVisitor const& visit) {
      visit(kemVlanIntfConfig, kemDynVlanIntfList, kemRecoveryTimer);
   }

   KemVlanIntfConfig kemVlanIntfConfig;
   KemDynVlanIntfList kemDynVlanIntfList;
   KemRecoveryTimer kemRecoveryTimer;
};

} // namespace Vorn
