#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Vorn/BridgingSm/BridgingConfigReactors.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

#include <algorithm>

namespace Vorn {

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs) {
   return Kem::makeInitialized<BridgingConfigSm>(std::move(inputs));
}

BridgingConfigSm::BridgingConfigSm(BridgingConfigInputs inputs)
    : in_(std::move(inputs)), dynVlans_(Kem::makePtr<DynVlans>(*this, in_.dynVlanDir, in_.dynVlanSrcTable)),
      dynAllowedVlans_(Kem::makePtr<DynAllowedVlans>(*this, in_.dynAllowedVlanDir)),
      staticHosts_(Kem::makePtr<StaticHosts>(in_.fdbConfigDir, in_.config)),
      settings_(Kem::makePtr<BridgeSettingsSm>(in_.config, in_.cliConfig, in_.privateVlanLibState)),
      privateVlans_(Kem::makePtr<PrivateVlans>(*this, in_.privateVlanLibState, in_.cliConfig)),
      reactors_(std::make_unique<Reactors>(*this)) {
   reactors_->notifiersAre(in_);
}

BridgingConfigSm::~BridgingConfigSm() = default;

void BridgingConfigSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(*reactors_, settings_, staticHosts_, privateVlans_, vlanConfigCodef_, switchIntfConfigCodef_,
         vlanConfigSm_, switchIntfSm_, dynVlans_, dynAllowedVlans_);
}

// --- Start.

void BridgingConfigSm::handleInitialized() {
   KEM_INVARIANT(dynVlanIntfList(), "dynVlanIntfList()");
   initializedIs(true);
   resolvedVlans_.handleInitialized();
   auto const clock = Kem::ActivityFacility::clock();
   vlanConfigCodef_ = Kem::makePtr<VlanConfigCodef>(clock, in_.configIn, *this);
   // Allocation has to work before the selector has run.
   config().internalVlanAllocationPolicyIs(cliConfig().internalVlanAllocationPolicy());
   config().internalVlanRangeIs(cliConfig().internalVlanRange());
   internalVlans_.handleStartup(in_.configIn.ptr(), in_.ethIntfConfigDir.ptr());
   handleVlanConfig();
   dynVlans_->handleInitialized();
   dynAllowedVlans_->handleInitialized();
   switchIntfConfigCodef_ = Kem::makePtr<SwitchIntfConfigCodef>(clock, in_.allSwitchIntfConfigs, *this);
   switchIntfConfigCodef_->handleInitialized();
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
