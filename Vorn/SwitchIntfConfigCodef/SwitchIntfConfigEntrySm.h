// Mirrors the chosen input of one port to the copy that SwitchIntfSm follows.
//
// The first copy is made whole and at once. Afterwards nine attributes that move VLAN membership wait in
// pendingOps and are applied one to a step of the backlog, the mode last: SwitchIntfSm must never see a new
// mode with old lists. All other attributes are copied as they change. A port whose waiting attributes have
// all come back to the copy's values leaves the backlog. Another input takes another entry. Owned by
// SwitchIntfConfigCodef.
#pragma once

#include "Vorn/SwitchIntfConfigCodef/SwitchportBitMap.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

namespace Vorn {

class SwitchIntfConfigCodef;

class SwitchIntfConfigEntrySm final : public Kem::PtrInterface {
  public:
   using Config = Bridging::Input::SwitchIntfConfig;
   using SwitchportBitMap = Vorn::SwitchportBitMap; // its text form begins with this class

   SwitchIntfConfigEntrySm(SwitchIntfConfigCodef& parent, Sulvi::IntfId intfId,
                           Kem::Ptr<Config const> const& configIn, Kem::Ptr<Config> configOut);
   // Makes the copy, and has SwitchIntfSm evaluate it. The owner calls it once, when it holds the entry.
   void handleInitialized();

   Sulvi::IntfId intfId() const { return intfId_; }
   Kem::Ptr<Config const> configIn() const { return kemConfigIn_.notifier(); }
   Kem::Ptr<Config> const& configOut() const { return configOut_; }
   SwitchportBitMap pendingOps() const { return pendingOps_; }
   bool initialized() const { return initialized_; }

   // Applies one waiting attribute; the list of a tool port and the mode may go
   // together. True when none is left.
   bool performPendingOperations();

  private:
   // --- Reactions.
   struct KemConfigIn final : Config::NotifieeConst {
      explicit KemConfigIn(SwitchIntfConfigEntrySm& s) : NotifieeConst(this), sm(s) {}
      void onEnabled() override { sm.handleEnabled(); }
      void onSwitchportMode() override { sm.handleSwitchportMode(); }
      void onAccessVlan() override { sm.handleAccessVlan(); }
      void onTrunkNativeVlan() override { sm.handleTrunkNativeVlan(); }
      void onTrunkAllowedVlans() override { sm.handleTrunkAllowedVlans(); }
      void onAsymVlans() override { sm.handleAsymVlans(); }
      void onTapAllowedVlans() override { sm.handleTapAllowedVlans(); }
      void onToolAllowedVlans() override { sm.handleToolAllowedVlans(); }
      void onTapNativeVlan() override { sm.handleTapNativeVlan(); }
      void onToolIdentityTagging() override { sm.handleToolIdentityTagging(); }
      void onTapIdentificationVlan() override { sm.handleTapIdentificationVlan(); }
      void onTapMplsPop() override { sm.handleTapMplsPop(); }
      void onTapTruncationSize() override { sm.handleTapTruncationSize(); }
      void onToolTruncationSize() override { sm.handleToolTruncationSize(); }
      void onToolDot1qRemoveVlans() override { sm.handleToolDot1qRemoveVlans(); }
      void onDefaultPrivateVlanMapping() override { sm.handleDefaultPrivateVlanMapping(); }
      void onMacLearningEnabled() override { sm.handleMacLearningEnabled(); }
      void onFloodingEnabled() override { sm.handleFloodingEnabled(); }
      void onEgressNativeVlanXlate() override { sm.handleEgressNativeVlanXlate(); }
      void onIngressNativeVlanXlate() override { sm.handleIngressNativeVlanXlate(); }
      void onTrunkPrivateVlanMapping() override { sm.handleTrunkPrivateVlanMapping(); }
      void onVlanTpid() override { sm.handleVlanTpid(); }
      void onBlockUnknownUnicast() override { sm.handleBlockUnknownUnicast(); }
      void onBlockUnknownMulticast() override { sm.handleBlockUnknownMulticast(); }
      void onTapGroup(Kem::String8 const& name) override { sm.handleTapGroup(name); }
      void onTapRawIntf(Sulvi::IntfId intfId) override { sm.handleTapRawIntf(intfId); }
      void onToolGroup(Kem::String8 const& name) override { sm.handleToolGroup(name); }
      void onTrunkGroup(Kem::String8 const& name) override { sm.handleTrunkGroup(name); }
      void onPrivateVlanMapping(Bridging::VlanId vlanId) override { sm.handlePrivateVlanMapping(vlanId); }
      void onEgressVlanXlate(Bridging::VlanXlateKey const& key) override { sm.handleEgressVlanXlate(key); }
      void onIngressVlanXlate(Bridging::VlanXlateKey const& key) override { sm.handleIngressVlanXlate(key); }
      SwitchIntfConfigEntrySm& sm;
   };
   // Those that wait for a slice.
   void handleEnabled() { handlePending(SwitchportBitMap::switchportEnabled); }
   void handleSwitchportMode() { handlePending(SwitchportBitMap::switchportMode); }
   void handleAccessVlan() { handlePending(SwitchportBitMap::switchportAccessVlan); }
   void handleTrunkNativeVlan() { handlePending(SwitchportBitMap::switchportTrunkNativeVlan); }
   void handleTrunkAllowedVlans() { handlePending(SwitchportBitMap::switchportTrunkAllowedVlans); }
   void handleAsymVlans() { handlePending(SwitchportBitMap::switchportAsymVlans); }
   void handleTapAllowedVlans() { handlePending(SwitchportBitMap::switchportTapAllowedVlans); }
   void handleToolAllowedVlans() { handlePending(SwitchportBitMap::switchportToolAllowedVlans); }
   void handleTapNativeVlan() { handlePending(SwitchportBitMap::switchportTapNativeVlan); }
   // Those that are copied as they change.
   void handleToolIdentityTagging();
   void handleTapIdentificationVlan();
   void handleTapMplsPop();
   void handleTapTruncationSize();
   void handleToolTruncationSize();
   void handleToolDot1qRemoveVlans();
   void handleDefaultPrivateVlanMapping();
   void handleMacLearningEnabled();
   void handleFloodingEnabled();
   void handleEgressNativeVlanXlate();
   void handleIngressNativeVlanXlate();
   void handleTrunkPrivateVlanMapping();
   void handleVlanTpid();
   void handleBlockUnknownUnicast();
   void handleBlockUnknownMulticast();
   void handleTapGroup(Kem::String8 const& name);
   void handleTapRawIntf(Sulvi::IntfId intfId);
   void handleToolGroup(Kem::String8 const& name);
   void handleTrunkGroup(Kem::String8 const& name);
   void handlePrivateVlanMapping(Bridging::VlanId vlanId);
   void handleEgressVlanXlate(Bridging::VlanXlateKey const& key);
   void handleIngressVlanXlate(Bridging::VlanXlateKey const& key);

   // --- Helpers.
   void handlePending(SwitchportBitMap::Bit bit);
   void handleSwitchIntfConfig(); // compares what waits
   void copyWhole();
   void clearAllPendingOps() { pendingOps_ = SwitchportBitMap(); }

   SwitchIntfConfigCodef& parent_;
   Sulvi::IntfId const intfId_;
   Kem::Ptr<Config> const configOut_;
   SwitchportBitMap pendingOps_; // attributes that differ and wait
   bool initialized_ = false;
   KemConfigIn kemConfigIn_{*this};
};

} // namespace Vorn
