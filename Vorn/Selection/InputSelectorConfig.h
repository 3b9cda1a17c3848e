// One input of the selector: the reactor on it, and the state machines of its static hosts and groups, one for
// each VLAN. InputSelectorSm owns it.
#pragma once

#include "Vorn/Selection/InputFdbConfigSm.h"
#include "Vorn/Selection/InputSelectorSm.h"

namespace Vorn {

struct InputSelectorSm::KemConfig final : Bridging::Input::Config::NotifieeConst {
   explicit KemConfig(InputSelectorSm& s) : NotifieeConst(this), sm(s) {}
   void handleInitialized() override;
   void onVlanConfigPriority() override { handleVlanConfigPriority(); }
   void onSwitchIntfConfigPriority() override { handleSwitchIntfPriority(); }
   void onSwitchIntfConfig(Sulvi::IntfId intfId) override { handleSwitchIntfConfig(intfId); }
   void onSwitchIntfConfigkemImmediate() override { handleSwitchIntfConfig(); }
   void onFdbConfig(Bridging::VlanId vlanId) override { handleFdbConfig(vlanId); }
   void onFdbConfigkemImmediate() override { handleFdbConfig(); }
   void hasNotificationActiveIs(bool isActive) override;
   void kemDoZombieReactors(bool areZombies) override;

   void handleVlanConfigPriority();
   void handleSwitchIntfPriority();
   void handleSwitchIntfConfig(Sulvi::IntfId intfId);
   void handleSwitchIntfConfig(); // only traces
   void handleFdbConfig(Bridging::VlanId vlanId);
   void handleFdbConfig(); // also takes away what the input lacks

   Kem::Ptr<InputFdbConfigSm> inputFdbConfigSm(Bridging::VlanId vlanId) const; // null when there is none
   void inputFdbConfigSmIs(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn);
   void inputFdbConfigSmDel(Bridging::VlanId vlanId);
   // Before the input is followed no more: its hosts and groups go, and those of other inputs take over.
   void doPrepareToDie();
   InputSelectorSm& sm;

  private:
   Kem::HashMap<InputFdbConfigSm, Bridging::VlanId> inputFdbConfigSm_;
};

} // namespace Vorn
