// What SwitchIntfSm follows, and the handler of each notification. Included by SwitchIntfSm.cpp only.
#pragma once

#include "Vorn/BridgingSm/SwitchIntfSm.h"

namespace Vorn {

struct SwitchIntfSm::Reactors {
   struct KemSwitchIntfConfig final : Bridging::Input::SwitchIntfConfig::NotifieeConst {
      explicit KemSwitchIntfConfig(SwitchIntfSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleSwitchIntfConfig(); }
      void onEnabled() override { sm.handleEnabled(); }
      void onSwitchportMode() override { sm.handleSwitchportMode(); }
      void onAccessVlan() override { sm.handleAccessVlan(); }
      void onTrunkNativeVlan() override { sm.handleTrunkNativeVlan(); }
      void onTapNativeVlan() override { sm.handleTrunkNativeVlan(); }
      void onTrunkAllowedVlans() override { sm.handleTrunkAllowedVlans(); }
      void onTapAllowedVlans() override { sm.handleTrunkAllowedVlans(); }
      void onToolAllowedVlans() override { sm.handleTrunkAllowedVlans(); }
      void onAsymVlans() override { sm.handleAsymVlans(); }
      void onMacLearningEnabled() override { sm.handleMacLearningEnabled(); }
      void onFloodingEnabled() override { sm.handleFloodingEnabled(); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onVlanTpid() override { sm.handleVlanTpid(); }
      void onIngressNativeVlanXlate() override { sm.handleIngressNativeVlanXlate(); }
      void onEgressNativeVlanXlate() override { sm.handleEgressNativeVlanXlate(); }
      void onIngressVlanXlate(Bridging::VlanXlateKey const& key) override { sm.handleIngressVlanXlate(key); }
      void onIngressVlanXlatekemImmediate() override { sm.handleIngressVlanXlate(); }
      void onEgressVlanXlate(Bridging::VlanXlateKey const& key) override { sm.handleEgressVlanXlate(key); }
      void onEgressVlanXlatekemImmediate() override { sm.handleEgressVlanXlate(); }
      void onPrivateVlanMapping(Bridging::VlanId vlanId) override { sm.handlePrivateVlanMapping(vlanId); }
      void onDefaultPrivateVlanMapping() override { sm.handleDefaultPrivateVlanMapping(); }
      void onTrunkPrivateVlanMapping() override { sm.handleTrunkPrivateVlanMapping(); }
      SwitchIntfSm& sm;
   };
   struct KemEthIntfConfig final : Interface::EthIntfConfig::NotifieeConst {
      explicit KemEthIntfConfig(SwitchIntfSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleEthIntfConfig(); }
      void onEnabledStateLocal() override { sm.handleEnabledStateLocal(); }
      SwitchIntfSm& sm;
   };
   struct KemEthIntfStatus final : Interface::EthIntfStatus::NotifieeConst {
      explicit KemEthIntfStatus(SwitchIntfSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleEthIntfForwardingModel(); }
      void onForwardingModel() override { sm.handleEthIntfForwardingModel(); }
      SwitchIntfSm& sm;
   };

   explicit Reactors(SwitchIntfSm& sm)
       : kemSwitchIntfConfig(sm), kemEthIntfConfig(sm), kemEthIntfStatus(sm) {}

   void forEachPart(Kem::PartVisitor const& visit) {
      visit(kemSwitchIntfConfig, kemEthIntfConfig, kemEthIntfStatus);
   }

   KemSwitchIntfConfig kemSwitchIntfConfig;
   KemEthIntfConfig kemEthIntfConfig;
   KemEthIntfStatus kemEthIntfStatus;
};

} // namespace Vorn
