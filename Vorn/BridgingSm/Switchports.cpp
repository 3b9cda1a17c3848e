#include "Vorn/BridgingSm/Switchports.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"

namespace Vorn {

namespace {
Kem::TraceFacility switchportTrace("VornBridgingPort");
}

Switchports::Switchports(BridgingConfigSm& parent, BridgingConfigInputs const& in)
    : parent_(parent), in_(in) {
   kemEthIntfConfigDir_.notifierIs(in_.ethIntfConfigDir);
   kemEthIntfStatusDir_.notifierIs(in_.ethIntfStatusDir);
}

void Switchports::handleInitialized() {
   initializedIs(true);
   switchIntfConfigCodef_ =
       Kem::makePtr<SwitchIntfConfigCodef>(Kem::ActivityFacility::clock(), in_.allSwitchIntfConfigs, *this);
   switchIntfConfigCodef_->handleInitialized();
}

// --- Copies.

void Switchports::handleSwitchIntfConfig() {
   KEM_INVARIANT(!initialized(), "!initialized()");
}

Kem::Ptr<Bridging::Input::SwitchIntfConfig>
Switchports::switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const {
   auto const* const found = switchIntfConfigAfterCodef_.find(intfId);
   return found ? *found : nullptr;
}

Kem::Ptr<Bridging::Input::SwitchIntfConfig>
Switchports::switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) {
   auto const [copy, isNew] = switchIntfConfigAfterCodef_.findOrInsert(
       intfId, [&] { return Bridging::Input::SwitchIntfConfig::make(intfId, mode); });
   auto const result = *copy;
   if (isNew)
      handleSwitchIntfConfig(intfId);
   return result;
}

void Switchports::switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) {
   if (switchIntfConfigAfterCodef_.erase(intfId))
      handleSwitchIntfConfig(intfId);
   // A port of the previous run may be deleted before it has a copy here.
   parent_.internalVlans().startupDel(intfId);
}

// --- Children.

void Switchports::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   auto const copy = switchIntfConfigAfterCodef(intfId);
   if (copy) {
      KEM_TRACE(switchportTrace, 3, "Creating SwitchIntfConfig and reactor for intf " << intfId);
      auto const ethIntfConfig = in_.ethIntfConfigDir ? in_.ethIntfConfigDir->intfConfig(intfId) : nullptr;
      auto const ethIntfStatus = in_.ethIntfStatusDir ? in_.ethIntfStatusDir->intfStatus(intfId) : nullptr;
      switchIntfSmIs(intfId, copy, ethIntfConfig, in_.config, ethIntfStatus);
      return;
   }
   if (!switchIntfSm(intfId))
      return;
   KEM_TRACE(switchportTrace, 3, "Deleting SwitchIntfConfig and reactor for intf " << intfId);
   childDel(switchIntfSm_, intfId);
   in_.config->switchIntfConfigDel(intfId);
}

void Switchports::doForgetPort(Sulvi::IntfId intfId) {
   if (switchIntfSm(intfId))
      return;
   KEM_TRACE(switchportTrace, 3, "Deleting SwitchIntfConfig of the previous run for intf " << intfId);
   parent_.internalVlans().startupDel(intfId);
   parent_.internalVlans().waitEnd(intfId);
   in_.config->switchIntfConfigDel(intfId);
}

Kem::Ptr<SwitchIntfSm>
Switchports::switchIntfSmIs(Sulvi::IntfId intfId,
                            Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                            Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                            Kem::Ptr<Bridging::Config> const& bridgingConfig,
                            Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return *switchIntfSm_
                  .findOrInsert(intfId,
                                [&] {
                                   return Kem::makePtr<SwitchIntfSm>(parent_, intfId, switchIntfConfig,
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

void Switchports::switchIntfSmInitialize(Sulvi::IntfId intfId) {
   switchIntfSm(intfId)->handleInitialized();
}

Kem::Ptr<SwitchIntfSm> Switchports::switchIntfSm(Sulvi::IntfId intfId) const {
   auto const* const found = switchIntfSm_.find(intfId);
   return found ? *found : nullptr;
}

// --- Records of the interface.

void Switchports::handleEthIntfConfig(Sulvi::IntfId intfId) {
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

void Switchports::handleEthIntfStatus(Sulvi::IntfId intfId) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return;
   auto const record = in_.ethIntfStatusDir->intfStatus(intfId);
   sm->ethIntfStatusIs(record);
   if (!record)
      releaseVanishedRoutedPort(*sm);
}

void Switchports::releaseVanishedRoutedPort(SwitchIntfSm& sm) {
   parent_.internalVlans().startupDel(sm.intfId());
   auto const resolved = sm.switchIntfConfigOut()->switchportModeAndNativeVlan();
   if (resolved.switchportMode != Bridging::SwitchportMode::routed_ || resolved.nativeVlan == 0)
      return;
   KEM_TRACE(switchportTrace, 3, " deleting routed port vlan config for " << sm.intfId());
   deleteRoutedPortVlanConfig(parent_, sm.intfId(), resolved.nativeVlan);
   sm.doSyncSwitchportModeAndNativeVlan();
}

} // namespace Vorn
