#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Sulvi/IntfKind.h"
#include "Vorn/BridgingSm/BridgingConfigReactors.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

#include <algorithm>

namespace Vorn {

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs) {
   return Kem::makeInitialized<BridgingConfigSm>(std::move(inputs));
}

BridgingConfigSm::BridgingConfigSm(BridgingConfigInputs inputs)
    : in_(std::move(inputs)), switchports_(Kem::makePtr<Switchports>(*this, in_)),
      staticVlans_(Kem::makePtr<StaticVlans>(*this)),
      dynVlans_(Kem::makePtr<DynVlans>(*this, in_.dynVlanDir, in_.dynVlanSrcTable)),
      dynAllowedVlans_(Kem::makePtr<DynAllowedVlans>(*this, in_.dynAllowedVlanDir)),
      staticHosts_(Kem::makePtr<StaticHosts>(in_.fdbConfigDir, in_.config)),
      settings_(Kem::makePtr<BridgeSettingsSm>(in_.config, in_.cliConfig, in_.privateVlanLibState)),
      privateVlans_(Kem::makePtr<PrivateVlans>(*this, in_.privateVlanLibState, in_.cliConfig)),
      reactors_(std::make_unique<Reactors>(*this)) {
   reactors_->notifiersAre(in_);
}

BridgingConfigSm::~BridgingConfigSm() = default;

void BridgingConfigSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(*reactors_, settings_, staticHosts_, privateVlans_, staticVlans_, switchports_, dynVlans_,
         dynAllowedVlans_);
}

// --- Start.

void BridgingConfigSm::handleInitialized() {
   KEM_INVARIANT(dynVlanIntfList(), "dynVlanIntfList()");
   initializedIs(true);
   resolvedVlans_.handleInitialized();
   staticVlans_->handleInitialized();
   // Allocation has to work before the selector has run.
   config().internalVlanAllocationPolicyIs(cliConfig().internalVlanAllocationPolicy());
   config().internalVlanRangeIs(cliConfig().internalVlanRange());
   internalVlans_.handleStartup(in_.configIn.ptr(), in_.ethIntfConfigDir.ptr());
   handleVlanConfig();
   dynVlans_->handleInitialized();
   dynAllowedVlans_->handleInitialized();
   switchports_->handleInitialized();
   if (in_.vlanIntfConfig)
      for (auto const& [intfId, vlanIntf] : in_.vlanIntfConfig->intfConfig())
         handleVlanIntfConfig(intfId);
   for (auto const& [intfId, vlanIntf] : in_.dynVlanIntfList->intfConfig())
      handleVlanIntfConfig(intfId);
   reactors_->kemRecoveryTimer.timeMinIs(0);
   privateVlans_->handleInitialized();
   staticHosts_->handleInitialized();
   privateVlans_->handleSviMapping();
   settings_->handleInitialized();
}

void BridgingConfigSm::cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig) {
   if (cliConfig == in_.cliConfig)
      return;
   in_.cliConfig = cliConfig;
   settings_->cliConfigIs(cliConfig);
   privateVlans_->cliConfigIs(cliConfig);
}

void BridgingConfigSm::handleForeignChange(Kem::Entity const& changed) {
   resolvedVlans_.handleForeignChange(changed);
   staticHosts_->handleForeignChange(changed);
   if (&changed != &config())
      return;
   switchIntfSm().forEach([&](Sulvi::IntfId, auto const& sm) { sm->handleOutMadeAgain(); });
   privateVlans_->handleOutMadeAgain();
}

// --- Internal VLANs.

Bridging::VlanIdOrNone BridgingConfigSm::allocateInternalVlanId() const {
   KEM_ASSERT(initialized());
   return internalVlans_.allocate();
}

Sulvi::IntfId BridgingConfigSm::routedPort(Bridging::VlanId vlanId) const {
   return internalVlans_.held().port(vlanId);
}
Bridging::VlanIdOrNone BridgingConfigSm::internalVlanId(Sulvi::IntfId intfId) const {
   return internalVlans_.held().vlan(intfId);
}
Sulvi::IntfId BridgingConfigSm::startupRoutedPort(Bridging::VlanId vlanId) const {
   return internalVlans_.startup().port(vlanId);
}
Bridging::VlanIdOrNone BridgingConfigSm::startupInternalVlanId(Sulvi::IntfId intfId) const {
   return internalVlans_.startup().vlan(intfId);
}

void BridgingConfigSm::handleRecoveryTimer() {
   KEM_ASSERT(initialized());
   internalVlans_.recover();
   reactors_->kemRecoveryTimer.timeMinIs(Kem::now() + recoveryPeriod);
}

// --- VLAN interfaces.

void BridgingConfigSm::handleVlanIntfConfig(Sulvi::IntfId intfId) {
   KEM_INVARIANT(initialized(), "initialized()");
   uint16_t const number = Sulvi::VlanIntfId::vlanId(intfId);
   // Only a number that a VLAN can have can be an internal VLAN's.
   if (vlanInterfaces_.find(intfId) && Bridging::VlanId::isLegal(number))
      handleInternalVlanIdInUse(Bridging::VlanId(number));
}

// --- Private VLANs.

Bridging::VlanIdOrAny BridgingConfigSm::getMinSecondaryVlanId(Bridging::VlanId vlanId) const {
   Bridging::VlanIdOrAny smallest = Bridging::VlanIdOrAny::max;
   if (auto const primary = privateVlanLibState().primaryVlan(vlanId))
      primary->secondaryVlan().forEach([&](Bridging::VlanId secondary, bool) {
         smallest = std::min(smallest, Bridging::VlanIdOrAny(secondary));
      });
   return smallest;
}

} // namespace Vorn
