// The static hosts and groups of the inputs: an InputFdbConfigSm for each VLAN of each input, and the merged
// record that those of a VLAN share.

#include "Vorn/Selection/InputSelectorConfig.h"

namespace Vorn {

void InputSelectorSm::KemConfig::hasNotificationActiveIs(bool isActive) {
   NotifieeConst::hasNotificationActiveIs(isActive);
   for (auto const& [vlanId, inputFdbConfigSm] : inputFdbConfigSm_)
      inputFdbConfigSm->hasNotificationActiveIs(isActive);
}

void InputSelectorSm::KemConfig::kemDoZombieReactors(bool areZombies) {
   NotifieeConst::kemDoZombieReactors(areZombies);
   for (auto const& [vlanId, inputFdbConfigSm] : inputFdbConfigSm_)
      inputFdbConfigSm->kemDoZombieReactors(areZombies);
}

void InputSelectorSm::KemConfig::handleFdbConfig(Bridging::VlanId vlanId) {
   // An input that has been withdrawn may have changed before; it holds nothing any more.
   auto const fdbConfigIn = sm.isInTree(*notifier()) ? notifier()->fdbConfig(vlanId) : nullptr;
   if (fdbConfigIn)
      inputFdbConfigSmIs(fdbConfigIn);
   else
      inputFdbConfigSmDel(vlanId);
}

void InputSelectorSm::KemConfig::handleFdbConfig() {
   for (auto const& [vlanId, fdbConfigIn] : notifier()->fdbConfig())
      handleFdbConfig(vlanId);
   for (auto const& [vlanId, inputFdbConfigSm] : inputFdbConfigSm_)
      handleFdbConfig(vlanId);
}

Kem::Ptr<InputFdbConfigSm> InputSelectorSm::KemConfig::inputFdbConfigSm(Bridging::VlanId vlanId) const {
   auto const* const found = inputFdbConfigSm_.find(vlanId);
   return found ? *found : nullptr;
}

void InputSelectorSm::KemConfig::inputFdbConfigSmIs(
    Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn) {
   auto const vlanId = fdbConfigIn->vlanId();
   auto const fdbConfig = sm.in_.fdbConfigDir->fdbConfigIs(vlanId);
   if (auto const standing = inputFdbConfigSm(vlanId)) {
      standing->fdbConfigInIs(fdbConfigIn, notifier(), fdbConfig); // the record may be another one
      return;
   }
   auto const made = inputFdbConfigSmFactory(fdbConfigIn, vlanId, sm.in_.inputDir, notifier(), fdbConfig,
                                             sm.fdbContradictions_);
   inputFdbConfigSm_.findOrInsert(vlanId, [&] { return made; });
}

void InputSelectorSm::KemConfig::inputFdbConfigSmDel(Bridging::VlanId vlanId) {
   if (!Kem::childDel(inputFdbConfigSm_, vlanId) || sm.isFdbConfigHeld(vlanId))
      return;
   sm.in_.fdbConfigDir->fdbConfigDel(vlanId);
   sm.fdbContradictions_.vlanDel(vlanId);
}

void InputSelectorSm::KemConfig::doPrepareToDie() {
   for (auto const& [key, inputFdbConfigSm] : inputFdbConfigSm_) {
      auto const vlanId = key; // the entry goes
      inputFdbConfigSmDel(vlanId);
   }
}

bool InputSelectorSm::isInTree(Bridging::Input::Config const& input) const {
   return in_.inputDir->entityPtr(input.name()).ptr() == &input;
}

bool InputSelectorSm::isFdbConfigHeld(Bridging::VlanId vlanId) const {
   return !FdbInputs(*in_.inputDir, vlanId).holders().empty();
}

void InputSelectorSm::doForgetUnheldFdbConfigs() {
   for (auto const& [key, fdbConfig] : in_.fdbConfigDir->fdbConfig()) {
      auto const vlanId = key; // the entry may go
      if (!isFdbConfigHeld(vlanId))
         in_.fdbConfigDir->fdbConfigDel(vlanId);
   }
}

} // namespace Vorn
