#include "Vorn/BridgingSm/BridgingConfigSm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Sulvi/IntfKind.h"
#include "Vorn/BridgingSm/InternalVlans.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

#include <algorithm>
#include <unistd.h>

namespace Vorn {

namespace {

Kem::TraceFacility bridgingTrace("VornBridging");

template <class T, class Key>
Kem::Ptr<T> memberOf(Kem::HashMap<T, Key> const& map, Key const& key) {
   auto const* const found = map.find(key);
   return found ? *found : nullptr;
}

} // namespace

Kem::Ptr<BridgingConfigSm> bridgingConfigSmFactory(BridgingConfigInputs inputs) {
   auto sm = Kem::makePtr<BridgingConfigSm>(std::move(inputs));
   sm->handleInitialized();
   return sm;
}

BridgingConfigSm::BridgingConfigSm(BridgingConfigInputs inputs) : in_(std::move(inputs)) {
   kemConfig_.notifierIs(in_.config);
   kemVlanIntfConfig_.notifierIs(in_.vlanIntfConfig);
   kemDynVlanIntfList_.notifierIs(in_.dynVlanIntfList);
   kemEthIntfConfigDir_.notifierIs(in_.ethIntfConfigDir);
   kemEthIntfStatusDir_.notifierIs(in_.ethIntfStatusDir);
   kemCliConfig_.notifierIs(in_.cliConfig);
   kemRecoveryTimer_.notifierIs(in_.recoveryTimer);
}

BridgingConfigSm::~BridgingConfigSm() = default;

// --- Start.

void BridgingConfigSm::handleInitialized() {
   KEM_INVARIANT(dynVlanIntfList(), "dynVlanIntfList()");
   initialized_ = true;
   config().vlanConfig().forEach([&](Bridging::VlanId, auto const& vlan) { resolvedVlanChanged(*vlan); });
   auto const clock = Kem::ActivityFacility::clock();
   vlanConfigCodef_ = Kem::makePtr<VlanConfigCodef>(clock, in_.configIn, *this);
   // Allocation has to work before the selector has run.
   config().internalVlanAllocationPolicyIs(cliConfig().internalVlanAllocationPolicy());
   config().internalVlanRangeIs(cliConfig().internalVlanRange());
   takeOverInternalVlans();
   handleVlanConfig();
   switchIntfConfigCodef_ = Kem::makePtr<SwitchIntfConfigCodef>(clock, in_.allSwitchIntfConfigs, *this);
   switchIntfConfigCodef_->handleInitialized();
   if (in_.vlanIntfConfig)
      for (auto const& [intfId, vlanIntf] : in_.vlanIntfConfig->intfConfig())
         handleVlanIntfConfig(intfId);
   for (auto const& [intfId, vlanIntf] : in_.dynVlanIntfList->intfConfig())
      handleVlanIntfConfig(intfId);
   kemRecoveryTimer_.timeMinIs(0);
   handleIeeeReservedForwarding();
   handleAllVidToFidMap();
}

// --- VLANs.

void BridgingConfigSm::handleVlanConfig() {
   auto const& input = in_.configIn;
   config().vlanConfigSourceDetailIs(input ? input->sourceDetail() : Kem::String8());
   for (auto const& [vlanId, vlan] : config().vlanConfig()) {
      bool const isWanted = input && input->vlanConfig().find(vlanId);
      if (isWanted && vlan->internal()) {
         // The user now wants the number of a routed port's VLAN.
         KEM_TRACE(bridgingTrace, 0, "Deleting Vlan " << vlanId);
         resolvedVlanDel(vlanId);
         handleInternalVlanIdInUse(vlanId);
      } else if (!routedPort(vlanId).empty() || !startupRoutedPort(vlanId).empty()) {
         KEM_TRACE(bridgingTrace, 3, "Not deleting Vlan " << vlanId << "since it is a routed port");
      } else if (!isWanted) {
         KEM_TRACE(bridgingTrace, 3, "Deleting Vlan " << vlanId);
         handleVlanConfig(vlanId);
      }
   }
   vlanConfigCodef_->handleVlanConfig();
}

void BridgingConfigSm::handleVlanConfig(Bridging::VlanId vlanId) {
   if (!initialized_)
      return;
   auto const copy = vlanConfigAfterCodef(vlanId);
   if (copy) {
      vlanConfigSmIs(vlanId, copy);
      return;
   }
   if (auto const sm = vlanConfigSm(vlanId)) {
      KEM_TRACE(bridgingTrace, 3, "Deleting vlanConfigSm for vlan " << vlanId);
      sm->doPrepareToDie();
      vlanConfigSm_.erase(vlanId);
   }
   KEM_INVARIANT(routedPort(vlanId).empty(), "!routedPortIteratorConst().isMemberOf( vlanId )");
   KEM_TRACE(bridgingTrace, 3, "Deleting vlanConfig for vlan " << vlanId);
   resolvedVlanDel(vlanId);
}

void BridgingConfigSm::resolvedVlanChanged(Bridging::VlanConfig const& vlan) {
   bool const isOrdinary = vlan.adminState() == Bridging::VlanAdminState::active && !vlan.internal() &&
                           vlan.trunkGroup().empty() &&
                           vlan.vlanTypeAndPrimaryVlan() == Bridging::VlanTypeAndPrimaryVlan();
   (isOrdinary ? ordinaryVlans_ : specialVlans_).vlanIs(vlan.vlanId());
   (isOrdinary ? specialVlans_ : ordinaryVlans_).doRemove(vlan.vlanId());
}

void BridgingConfigSm::resolvedVlanDel(Bridging::VlanId vlanId) {
   config().vlanConfigDel(vlanId);
   ordinaryVlans_.doRemove(vlanId);
   specialVlans_.doRemove(vlanId);
   switchIntfSm_.forEach([&](Sulvi::IntfId, auto const& sm) { sm->vlanDeleted(vlanId); });
}

void BridgingConfigSm::vlanConfigSmIs(Bridging::VlanId vlanId,
                                      Kem::Ptr<Bridging::Input::VlanConfig> const& copy) {
   auto const sm = vlanConfigSm(vlanId);
   KEM_TRACE(bridgingTrace, 3, (sm ? "Changing" : "Creating") << " vlanConfigSm for vlan " << vlanId);
   if (sm)
      sm->vlanConfigInIs(copy);
   else
      vlanConfigSm_.findOrInsert(vlanId, [&] { return Kem::makePtr<VlanConfigSm>(*this, vlanId, copy); });
}

// --- Ports.

void BridgingConfigSm::handleSwitchIntfConfig() {
   KEM_INVARIANT(!initialized(), "!initialized()");
}

void BridgingConfigSm::handleSwitchIntfConfig(Sulvi::IntfId intfId) {
   auto const copy = switchIntfConfigAfterCodef(intfId);
   if (copy) {
      KEM_TRACE(bridgingTrace, 3, "Creating SwitchIntfConfig and reactor for intf " << intfId);
      auto const ethIntfConfig = in_.ethIntfConfigDir ? in_.ethIntfConfigDir->intfConfig(intfId) : nullptr;
      auto const ethIntfStatus = in_.ethIntfStatusDir ? in_.ethIntfStatusDir->intfStatus(intfId) : nullptr;
      switchIntfSmIs(intfId, copy, ethIntfConfig, in_.config, ethIntfStatus);
      return;
   }
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return;
   KEM_TRACE(bridgingTrace, 3, "Deleting SwitchIntfConfig and reactor for intf " << intfId);
   sm->doPrepareToDie();
   switchIntfSm_.erase(intfId);
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

void BridgingConfigSm::handleEthIntfConfig(Sulvi::IntfId intfId) {
   auto const sm = switchIntfSm(intfId);
   if (!sm)
      return;
   auto const record = in_.ethIntfConfigDir->intfConfig(intfId);
   sm->ethIntfConfigIs(record);
   if (record)
      sm->handleEnabledStateLocal();
   else
      releaseVanishedRoutedPort(*sm);
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
   auto const resolved = sm.switchIntfConfigOut()->switchportModeAndNativeVlan();
   if (resolved.switchportMode != Bridging::SwitchportMode::routed_ || resolved.nativeVlan == 0)
      return;
   KEM_TRACE(bridgingTrace, 3, " deleting routed port vlan config for " << sm.intfId());
   deleteRoutedPortVlanConfig(*this, sm.intfId(), resolved.nativeVlan);
   sm.doSyncSwitchportModeAndNativeVlan();
}

// --- Settings for the whole bridge.

void BridgingConfigSm::handleDefaultSwitchportMode() {
   KEM_TRACE(bridgingTrace, 0,
             "defaultSwitchportMode is now " << static_cast<unsigned>(config().defaultSwitchportMode())
                                             << ": the agent starts anew");
   _exit(0);
}

void BridgingConfigSm::handleVlanIntfConfig(Sulvi::IntfId intfId) {
   KEM_INVARIANT(initialized(), "initialized()");
   bool const stands = (in_.vlanIntfConfig && in_.vlanIntfConfig->intfConfig().find(intfId)) ||
                       in_.dynVlanIntfList->intfConfig().find(intfId);
   uint16_t const number = Sulvi::VlanIntfId::vlanId(intfId);
   // A number that no VLAN can have is no routed port's either.
   if (stands && Bridging::VlanId::isLegal(number))
      handleInternalVlanIdInUse(Bridging::VlanId(number));
}

void BridgingConfigSm::handleVidToFidMap(Bridging::VlanId secondaryVlan) {
   auto const* const fid = cliConfig().vidToFidMap().find(secondaryVlan);
   if (fid && *fid != 0) {
      config().vidToFidMapIs(secondaryVlan, *fid);
      KEM_TRACE(bridgingTrace, 3, "added mapping from " << secondaryVlan << " to " << *fid);
   } else {
      config().vidToFidMapDel(secondaryVlan);
      KEM_TRACE(bridgingTrace, 3, "removed mapping for " << secondaryVlan);
   }
}

void BridgingConfigSm::handleAllVidToFidMap() {
   for (auto const& [vlanId, fid] : cliConfig().vidToFidMap())
      handleVidToFidMap(vlanId);
}

void BridgingConfigSm::handleIeeeReservedForwarding(Sulvi::EthAddr addr) {
   KEM_INVARIANT(initialized(), "initialized()");
   if (cliConfig().ieeeReservedForwarding(addr))
      config().ieeeReservedForwardingIs(addr, true);
   else
      config().ieeeReservedForwardingDel(addr);
}

void BridgingConfigSm::handleIeeeReservedForwarding() {
   for (auto const& [addr, isForwarded] : cliConfig().ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr);
   for (auto const& [addr, isForwarded] : config().ieeeReservedForwarding())
      handleIeeeReservedForwarding(addr); // stale ones go
}

// --- Look-ups.

Kem::Ptr<Bridging::Input::VlanConfig> BridgingConfigSm::vlanConfigAfterCodef(Bridging::VlanId vlanId) const {
   return memberOf(vlanConfigAfterCodef_, vlanId);
}

Kem::Ptr<Bridging::Input::VlanConfig> BridgingConfigSm::vlanConfigAfterCodefIs(Bridging::VlanId vlanId) {
   auto const [copy, isNew] =
       vlanConfigAfterCodef_.findOrInsert(vlanId, [&] { return Bridging::Input::VlanConfig::make(vlanId); });
   auto const result = *copy;
   if (isNew)
      handleVlanConfig(vlanId);
   return result;
}

void BridgingConfigSm::vlanConfigAfterCodefDel(Bridging::VlanId vlanId) {
   if (vlanConfigAfterCodef_.erase(vlanId))
      handleVlanConfig(vlanId);
}

void BridgingConfigSm::vlanConfigSmInitialize(Bridging::VlanId vlanId) {
   vlanConfigSm(vlanId)->handleInitialized();
}

Kem::Ptr<Bridging::Input::SwitchIntfConfig>
BridgingConfigSm::switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const {
   return memberOf(switchIntfConfigAfterCodef_, intfId);
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
}

void BridgingConfigSm::switchIntfSmInitialize(Sulvi::IntfId intfId) {
   switchIntfSm(intfId)->handleInitialized();
}

Kem::Ptr<SwitchIntfSm> BridgingConfigSm::switchIntfSm(Sulvi::IntfId intfId) const {
   return memberOf(switchIntfSm_, intfId);
}

Kem::Ptr<VlanConfigSm> BridgingConfigSm::vlanConfigSm(Bridging::VlanId vlanId) const {
   return memberOf(vlanConfigSm_, vlanId);
}

Kem::Ptr<Interface::VlanIntfConfig const> BridgingConfigSm::vlanIntfConfigOf(Bridging::VlanId vlanId) const {
   auto const intfId = vlanIntfIdOf(vlanId);
   if (in_.vlanIntfConfig)
      if (auto const configured = in_.vlanIntfConfig->intfConfig(intfId))
         return configured;
   return in_.dynVlanIntfList->intfConfig(intfId);
}

Bridging::VlanIdOrAny BridgingConfigSm::getMinSecondaryVlanId(Bridging::VlanId vlanId) const {
   Bridging::VlanIdOrAny smallest = Bridging::VlanIdOrAny::max;
   if (auto const primary = privateVlanLibState().primaryVlan(vlanId))
      primary->secondaryVlan().forEach([&](Bridging::VlanId secondary, bool) {
         smallest = std::min(smallest, Bridging::VlanIdOrAny(secondary));
      });
   return smallest;
}

} // namespace Vorn
