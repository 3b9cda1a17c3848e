#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Kem/Assert.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/BridgingSm/InternalVlans.h"
#include "Vorn/BridgingSm/SwitchIntfReactors.h"
#include "Vorn/Rules/InternalVlan.h"
#include "Vorn/Rules/PortMode.h"
#include "records/Interface/VlanIntfConfig.h"

namespace Vorn {

using InputMode = Bridging::Input::SwitchportMode;
using Bridging::SwitchportMode;

namespace {
Kem::TraceFacility switchIntfTrace("VornSwitchIntf");
}

SwitchIntfSm::SwitchIntfSm(BridgingConfigSm& parent, Sulvi::IntfId intfId,
                           Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                           Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                           Kem::Ptr<Bridging::Config> const& bridgingConfig,
                           Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus)
    : parent_(parent), intfId_(intfId), bridgingConfig_(bridgingConfig), written_(intfId == cpuIntfId()),
      reactors_(std::make_unique<Reactors>(*this)) {
   switchIntfConfigIs(switchIntfConfig);
   ethIntfConfigIs(ethIntfConfig);
   ethIntfStatusIs(ethIntfStatus);
}

SwitchIntfSm::~SwitchIntfSm() = default;

void SwitchIntfSm::forEachPart(Kem::PartVisitor const& visit) {
   visit(*reactors_);
}

void SwitchIntfSm::switchIntfConfigIs(Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& config) {
   config_ = config;
   reactors_->kemSwitchIntfConfig.notifierIs(config);
}
Kem::Ptr<Interface::EthIntfConfig const> SwitchIntfSm::ethIntfConfig() const {
   return reactors_->kemEthIntfConfig.notifier();
}
void SwitchIntfSm::ethIntfConfigIs(Kem::Ptr<Interface::EthIntfConfig const> const& config) {
   reactors_->kemEthIntfConfig.notifierIs(config);
}
Kem::Ptr<Interface::EthIntfStatus const> SwitchIntfSm::ethIntfStatus() const {
   return reactors_->kemEthIntfStatus.notifier();
}
void SwitchIntfSm::ethIntfStatusIs(Kem::Ptr<Interface::EthIntfStatus const> const& status) {
   reactors_->kemEthIntfStatus.notifierIs(status);
}

// --- Life.

void SwitchIntfSm::handleInitialized() {
   initializedIs(true);
   bool const hadNumber = parent_.startupInternalVlanId(intfId_) != 0;
   auto const modeAndVlan = switchportModeAndNativeVlan();
   out_ = bridgingConfig_->switchIntfConfigIs(intfId_);
   out_->switchportModeAndNativeVlanIs(modeAndVlan);
   trunkAllowedVlanSet_.doClear();
   asymVlanSet_.doClear();

   doComputeAsymVlans();
   doComputeTrunkAllowedVlans();
   doComputeDynamicTrunkGroups();
   syncEachVlan();

   handleMacLearningEnabled();
   handleFloodingEnabled();
   syncVlanXlates();
   handleVlanTpid();
   handleTrunkPrivateVlanMapping();
   // A port that has just lost its number of the previous run doesn't get another one in the same pass:
   // it waits.
   bool const hasLostItsNumber =
       hadNumber && modeAndVlan.nativeVlan == 0 && parent_.startupInternalVlanId(intfId_) == 0;
   if (!hasLostItsNumber)
      handleEthIntfForwardingModel();
   if (modeAndVlan.switchportMode == SwitchportMode::routed_)
      dropNotifications();
}

// Drops what the copy reported while it was filled: the pass that has just ended has dealt with it. Handled
// in the next turn, it would at once give another number to a routed port that has just lost its own.
void SwitchIntfSm::dropNotifications() {
   initializedIs(false); // so that the new binding evaluates nothing
   reactors_->kemSwitchIntfConfig.notifierIs(nullptr);
   reactors_->kemSwitchIntfConfig.notifierIs(config_);
   initializedIs(true);
}

void SwitchIntfSm::doPrepareToDie() {
   KEM_INVARIANT(initialized(), "initialized()");
   bridgingConfig_->vlanConfig().forEach([&](Bridging::VlanId, auto const& vlan) { vlan->intfDel(intfId_); });
   if (auto const vlanId = parent_.internalVlanId(intfId_); vlanId != 0)
      giveUpInternalVlan(vlanId);
   parent_.internalVlans().startupDel(intfId_);
   parent_.internalVlans().waitEnd(intfId_);
}

void SwitchIntfSm::handleOutMadeAgain() {
   if (auto const record = bridgingConfig_->switchIntfConfig(intfId_); out_ && record)
      out_ = record;
}

// --- Mode and native VLAN.

Bridging::SwitchportModeAndNativeVlan SwitchIntfSm::switchportModeAndNativeVlan() {
   KEM_INVARIANT(initialized(), "initialized()");
   SwitchportMode const mode = effectiveMode(*config_);
   if (mode == SwitchportMode::routed_)
      return {.switchportMode = SwitchportMode::routed_, .nativeVlan = routedPortVlan()};

   Bridging::VlanIdOrNone const vlanId = switchportVlan(mode);
   if (auto const internal = parent_.internalVlanId(intfId_); internal != 0)
      giveUpInternalVlan(internal); // it has just stopped being routed
   parent_.internalVlans().startupDel(intfId_);
   parent_.internalVlans().waitEnd(intfId_);
   return {.switchportMode = mode, .nativeVlan = vlanId};
}

Bridging::VlanIdOrNone SwitchIntfSm::switchportVlan(SwitchportMode mode) const {
   KEM_INVARIANT(mode <= SwitchportMode::tool_, "false && \"unknown mode\"");
   auto const native = configuredNativeVlan(*config_, mode);
   if (native.mustExist && native.vlanId != 0 &&
       !bridgingConfig_->vlanConfig().find(Bridging::VlanId(native.vlanId))) {
      KEM_TRACE(switchIntfTrace, 1, intfId_ << " Returning vlan 0 as " << native.vlanId << " does not exist");
      return 0;
   }
   return native.vlanId;
}

Bridging::VlanIdOrNone SwitchIntfSm::routedPortVlan() {
   if (auto const held = parent_.internalVlanId(intfId_); held != 0)
      return held;
   auto const obstacle = internalVlanObstacle(ethIntfConfig().ptr(), ethIntfStatus().ptr());
   if (obstacle == InternalVlanObstacle::shutDown)
      parent_.internalVlans().startupDel(intfId_);
   if (obstacle != InternalVlanObstacle::none)
      return 0;
   return parent_.internalVlans().take(intfId_);
}

void SwitchIntfSm::giveUpInternalVlan(Bridging::VlanIdOrNone vlanId) {
   KEM_TRACE(switchIntfTrace, 3, intfId_ << " deleting routed port vlan config for " << vlanId);
   deleteRoutedPortVlanConfig(parent_, intfId_, vlanId);
}

void SwitchIntfSm::doSyncSwitchportModeAndNativeVlan() {
   auto const old = out_->switchportModeAndNativeVlan().nativeVlan;
   out_->switchportModeAndNativeVlanIs(switchportModeAndNativeVlan());
   doComputeAsymVlans();
   // A change of the native VLAN affects these two only; handlers that need more sync all VLANs themselves.
   maybeSyncOneVlan(old);
   maybeSyncOneVlan(out_->switchportModeAndNativeVlan().nativeVlan);
}

void SwitchIntfSm::doTakeUpNativeVlan() {
   auto const before = out_->switchportModeAndNativeVlan();
   out_->switchportModeAndNativeVlanIs(switchportModeAndNativeVlan());
   auto const after = out_->switchportModeAndNativeVlan();
   if (after == before)
      return;
   doComputeAsymVlans();
   maybeSyncOneVlan(before.nativeVlan);
   maybeSyncOneVlan(after.nativeVlan); // not that VLAN, where a routed port took one of its own
}

void SwitchIntfSm::doMaybeTakeUpNativeVlan(Bridging::VlanId vlanId) {
   if (config_->enabled() && configuredNativeVlan(*config_, effectiveMode(*config_)).vlanId == vlanId &&
       out_->switchportModeAndNativeVlan().nativeVlan != vlanId)
      doTakeUpNativeVlan();
}

void SwitchIntfSm::doLoseNativeVlan(Bridging::VlanId vlanId) {
   if (!config_->enabled() || config_->switchportMode() > InputMode::dot1qTunnel_)
      return; // taps and tools keep their number
   auto modeAndVlan = out_->switchportModeAndNativeVlan();
   if (modeAndVlan.nativeVlan != vlanId)
      return;
   modeAndVlan.nativeVlan = 0;
   out_->switchportModeAndNativeVlanIs(modeAndVlan);
   KEM_TRACE(switchIntfTrace, 2, "Updated native vlan of interface " << intfId_ << " to vlan: 0");
}

// --- Changes of the port's copy.

void SwitchIntfSm::handleSwitchIntfConfig() {
   if (!isReady())
      return;
   doComputeTrunkAllowedVlans();
   handleEnabled();
   syncVlanXlates();
   handleVlanTpid();
   handleTrunkPrivateVlanMapping();
}

void SwitchIntfSm::handleEnabled() {
   if (!isReady())
      return;
   doComputeAsymVlans();
   doSyncSwitchportModeAndNativeVlan();
   doSyncAllVlans();
   handleMacLearningEnabled();
   handleFloodingEnabled();
}

void SwitchIntfSm::handleAsymVlans() {
   handleEnabled();
}

void SwitchIntfSm::handleSwitchportMode() {
   if (!isReady())
      return;
   if (!config_->enabled())
      return handleTrunkPrivateVlanMapping(); // which doesn't ask for it when the port comes up
   doComputeAsymVlans();
   if (hasAllowedVlans(config_->switchportMode()))
      doComputeTrunkAllowedVlans();
   doSyncSwitchportModeAndNativeVlan();
   doSyncAllVlans();
   handleMacLearningEnabled();
   handleFloodingEnabled();
   handleTrunkPrivateVlanMapping();
}

void SwitchIntfSm::handleAccessVlan() {
   if (!isReady() || !config_->enabled())
      return;
   doComputeAsymVlans();
   InputMode const mode = config_->switchportMode();
   if (mode != InputMode::access_ && mode != InputMode::dot1qTunnel_)
      return;
   doSyncSwitchportModeAndNativeVlan();
   doSyncAllVlans();
}

void SwitchIntfSm::handleTrunkNativeVlan() {
   if (isReady() && config_->enabled() && hasAllowedVlans(config_->switchportMode()))
      doSyncSwitchportModeAndNativeVlan();
}

void SwitchIntfSm::handleTrunkAllowedVlans() {
   if (!isReady())
      return;
   doComputeTrunkAllowedVlans();
   if (config_->enabled() && hasAllowedVlans(config_->switchportMode()))
      doSyncAllVlans();
}

void SwitchIntfSm::doUpdateTrunkAllowedVlans() {
   if (!isReady())
      return;
   doComputeTrunkAllowedVlans();
   if (!isAllowedSynced_ && config_->enabled() && hasAllowedVlans(config_->switchportMode()))
      doSyncAllVlans();
}

void SwitchIntfSm::handleTrunkGroup(Kem::String8 const& name) {
   if (!isReady() || !config_->enabled() || config_->switchportMode() != InputMode::trunk_)
      return;
   KEM_TRACE(switchIntfTrace, 8, intfId_ << " trunk group " << name);
   doSyncAllVlans();
}

void SwitchIntfSm::handleVlanTpid() {
   if (isReady() && out_)
      out_->vlanTpidIs(config_->vlanTpid());
}

bool SwitchIntfSm::mayLearnAndFlood() const {
   InputMode const mode = config_->switchportMode();
   return config_->enabled() && mode != InputMode::tap_ && mode != InputMode::tool_;
}

void SwitchIntfSm::handleMacLearningEnabled() {
   if (isReady())
      out_->macLearningEnabledIs(config_->macLearningEnabled() && mayLearnAndFlood());
}

void SwitchIntfSm::handleFloodingEnabled() {
   if (isReady())
      out_->floodingEnabledIs(config_->floodingEnabled() && mayLearnAndFlood());
}

// --- Changes of the interface.

void SwitchIntfSm::handleEthIntfConfig() {
   if (isReady())
      handleEnabledStateLocal();
}

void SwitchIntfSm::handleEnabledStateLocal() {
   KEM_INVARIANT(initialized(), "initialized()");
   if (!out_ || out_->switchportModeAndNativeVlan().switchportMode != SwitchportMode::routed_)
      return;
   auto const vlanId = out_->switchportModeAndNativeVlan().nativeVlan;
   if (auto const config = ethIntfConfig(); config && isShutDown(*config) && vlanId != 0)
      giveUpInternalVlan(vlanId);
   handleEnabled();
}

void SwitchIntfSm::handleEthIntfForwardingModel() {
   if (!isReady() || !out_ || !ethIntfStatus())
      return;
   auto const resolved = out_->switchportModeAndNativeVlan();
   if (hasRoutedForwardingModel(*ethIntfStatus())) {
      if (resolved.switchportMode == SwitchportMode::routed_)
         doSyncSwitchportModeAndNativeVlan(); // a port without a VLAN may get one
      return;
   }
   auto const vlanIdOrNone = resolved.nativeVlan;
   if (vlanIdOrNone == 0 || parent_.internalVlanId(intfId_) == 0 ||
       parent_.routedPort(Bridging::VlanId(vlanIdOrNone)).empty())
      return;
   KEM_INVARIANT(vlanIdOrNone == parent_.internalVlanId(intfId_),
                 "vlanIdOrNone == parent()->internalVlanId( intfId() )");
   giveUpInternalVlan(vlanIdOrNone);
}

} // namespace Vorn
