// The path of a port: the deferred stage, the copy, SwitchIntfSm, which is also given the records of the
// interface.

#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"

namespace Vorn {

namespace {
Kem::TraceFacility bridgingPortTrace("VornBridgingPort");
}

// --- Copies.

void BridgingConfigSm::handleSwitchIntfConfig() {
   KEM_INVARIANT(!initialized(), "!initialized()");
}

Kem::Ptr<Bridging::Input::SwitchIntfConfig>
BridgingConfigSm::switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const {
   auto const* const found = switchIntfConfigAfterCodef_.find(intfId);
   return found ? *found : nullptr;
}

Kem::Ptr<Bridging::Input::SwitchIntfConfig>
BridgingConfigSm::switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) {
   auto const [copy, isNew] = switchIntfConfigAfterCodef_.findOrInsert(
       intfId, [&] { return Bridging::Input::SwitchIntfConfig::make(intfId, mode); });
   auto const result = *copy;
   if (isNew)
      handleSwitchIntfConfig(intfId);
   return result;
}

void BridgingConfigSm::switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) {
   if (switchIntfConfigAfterCodef_.erase(intfId))
      handleSwitchIntfConfig(intfId);
   // A port of the previous run may be deleted before it has a copy here.
   internalVlans_.startupDel(intfId);
}

void BridgingConfigSm::handleForeignChange(Kem::Entity const& changed) {
   resolvedVlans_.handleForeignChange(changed);
   staticHosts_->handleForeignChange(changed);
   if (&changed != &config())
      return;
   switchIntfSm_.forEach([&](Sulvi::IntfId, auto const& sm) { sm->handleOutMadeAgain(); });
   privateVlans_->handleOutMadeAgain();
}

// --- Children.

void BridgingConfigSm::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   auto const copy = switchIntfConfigAfterCodef(intfId);
   if (copy) {
      KEM_TRACE(bridgingPortTrace, 3, "Creating SwitchIntfConfig and reactor for intf " << intfId);
      auto const ethIntfConfig = in_.ethIntfConfigDir ? in_.ethIntfConfigDir->intfConfig(intfId) : nullptr;
      auto const ethIntfStatus = in_.ethIntfStatusDir ? in_.ethIntfStatusDir->intfStatus(intfId) : nullptr;
      switchIntfSmIs(intfId, copy, ethIntfConfig, in_.config, ethIntfStatus);
      return;
   }
   if (!switchIntfSm(intfId))
      return;
   KEM_TRACE(bridgingPortTrace, 3, "Deleting SwitchIntfConfig and reactor for intf " << intfId);
   childDel(switchIntfSm_, intfId);
   config().switchIntfConfigDel(intfId);
}

void BridgingConfigSm::doForgetPort(Sulvi::IntfId intfId) {
   if (switchIntfSm(intfId))
      return;
   KEM_TRACE(bridgingPortTrace, 3, "Deleting SwitchIntfConfig of the previous run for intf " << intfId);
   internalVlans_.startupDel(intfId);
   internalVlans_.waitEnd(intfId);
   config().switchIntfConfigDel(intfId);
}

Kem::Ptr<SwitchIntfSm>
BridgingConfigSm::switchIntfSmIs(Sulvi::IntfId intfId,
                                 Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                                 Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                                 Kem::Ptr<Bridging::Config> const& bridgingConfig,
                                 Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return *switchIntfSm_
                  .findOrInsert(intfId,
                                [&] {
                                   return Kem::makePtr<SwitchIntfSm>(*this, intfId, switchIntfConfig,
                                                                     ethIntfConfig, bridgingConfig,
                                                                     ethIntfStatus);
                                })
                  .first;
   if (sm->bridgingConfig() != bridgingConfig)
      Kem::throwReinstantiating("bridgingConfig", sm->bridgingConfig()->fullName(),
                                bridgingConfig->fullName());
   sm->switchIntfConfigIs(switchIntfConfig);
   sm->ethIntfConfigIs(ethIntfConfig);
   sm->ethIntfStatusIs(ethIntfStatus);
   return sm;
}

void BridgingConfigSm::switchIntfSmInitialize(Sulvi::IntfId intfId) {
   switchIntfSm(intfId)->handleInitialized();
}

Kem::Ptr<SwitchIntfSm> BridgingConfigSm::switchIntfSm(Sulvi::IntfId intfId) const {
   auto const* const found = switchIntfSm_.find(intfId);
   return found ? *found : nullptr;
}

// --- Records of the interface.

void BridgingConfigSm::handleEthIntfConfig(Sulvi::IntfId intfId) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return;
   auto const record = in_.ethIntfConfigDir->intfConfig(intfId);
   bool const isKnown = record == sm->ethIntfConfig();
   sm->ethIntfConfigIs(record); // evaluates the record when it is a new one
   if (!record)
      releaseVanishedRoutedPort(*sm);
   else if (isKnown)
      sm->handleEnabledStateLocal();
}

void BridgingConfigSm::handleEthIntfStatus(Sulvi::IntfId intfId) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return;
   auto const record = in_.ethIntfStatusDir->intfStatus(intfId);
   sm->ethIntfStatusIs(record);
   if (!record)
      releaseVanishedRoutedPort(*sm);
}

void BridgingConfigSm::releaseVanishedRoutedPort(SwitchIntfSm& sm) {
   internalVlans_.startupDel(sm.intfId());
   auto const resolved = sm.switchIntfConfigOut()->switchportModeAndNativeVlan();
   if (resolved.switchportMode != Bridging::SwitchportMode::routed_ || resolved.nativeVlan == 0)
      return;
   KEM_TRACE(bridgingPortTrace, 3, " deleting routed port vlan config for " << sm.intfId());
   deleteRoutedPortVlanConfig(*this, sm.intfId(), resolved.nativeVlan);
   sm.doSyncSwitchportModeAndNativeVlan();
}

} // namespace Vorn
