#include "Vorn/BridgingSm/InternalVlans.h"

#include "Kem/Assert.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "records/Interface/VlanIntfConfig.h"

#include <string>

namespace Vorn {

namespace {

Kem::TraceFacility internalVlanTrace("VornInternalVlan");

template <class Map, class Key>
auto valueOf(Map const& map, Key const& key) {
   auto const* const value = map.find(key);
   return value ? *value : std::remove_cvref_t<decltype(*value)>{};
}

} // namespace

Sulvi::IntfId vlanIntfIdOf(uint32_t vlanId) {
   return Sulvi::IntfId("Vlan" + std::to_string(vlanId));
}

Kem::Ptr<Bridging::VlanConfig> createRoutedPortVlanConfig(Bridging::Config& config, Bridging::VlanId vlanId,
                                                          Sulvi::IntfId intfId) {
   auto const vlan = config.vlanConfigIs(vlanId, true);
   vlan->configSourceIs("internal");
   vlan->adminStateIs(Bridging::VlanAdminState::active);
   vlan->configuredNameIs(intfId.stringValue());
   addCpuPort(*vlan);
   return vlan;
}

void deleteRoutedPortVlanConfig(BridgingConfigSm& sm, Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId) {
   KEM_INVARIANT(vlanId != 0, "vlanId");
   Bridging::VlanId const vlan(vlanId);
   sm.internalVlanIdDel(intfId);
   sm.routedPortDel(vlan);
   sm.resolvedVlanDel(vlan);
   if (auto const out = sm.config().switchIntfConfig(intfId))
      out->switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 0});
}

// --- The tables.

Sulvi::IntfId BridgingConfigSm::routedPort(Bridging::VlanId vlanId) const {
   return valueOf(routedPort_, vlanId);
}
void BridgingConfigSm::routedPortIs(Bridging::VlanId vlanId, Sulvi::IntfId intfId) {
   *routedPort_.findOrInsert(vlanId, [&] { return intfId; }).first = intfId;
}
Bridging::VlanIdOrNone BridgingConfigSm::internalVlanId(Sulvi::IntfId intfId) const {
   return valueOf(internalVlanId_, intfId);
}
void BridgingConfigSm::internalVlanIdIs(Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId) {
   *internalVlanId_.findOrInsert(intfId, [&] { return vlanId; }).first = vlanId;
}
Sulvi::IntfId BridgingConfigSm::startupRoutedPort(Bridging::VlanId vlanId) const {
   return valueOf(startupRoutedPort_, vlanId);
}
Bridging::VlanIdOrNone BridgingConfigSm::startupInternalVlanId(Sulvi::IntfId intfId) const {
   return valueOf(startupInternalVlanId_, intfId);
}

// --- Start: what the run before left is held back from deletion until its port has been evaluated.

void BridgingConfigSm::takeOverInternalVlans() {
   for (auto const& [key, port] : config().switchIntfConfig()) {
      Sulvi::IntfId const intfId = key;
      auto const input = configIn() ? configIn()->switchIntfConfig(intfId) : nullptr;
      if (!input || input->enabled())
         continue;
      auto const ethIntfConfig = in_.ethIntfConfigDir ? in_.ethIntfConfigDir->intfConfig(intfId) : nullptr;
      if (ethIntfConfig &&
          ethIntfConfig->enabledStateLocal() == Interface::EnabledState::enabledStateShutdown)
         continue;
      auto const resolved = port->switchportModeAndNativeVlan();
      if (resolved.switchportMode != Bridging::SwitchportMode::routed_ || resolved.nativeVlan == 0)
         continue;
      Bridging::VlanId const vlan(resolved.nativeVlan);
      if (!startupRoutedPort(vlan).empty())
         continue; // a second port that claims the number allocates anew
      KEM_INVARIANT(startupInternalVlanId(intfId) == 0, "!startupInternalVlanId( iter->intfId() )");
      startupInternalVlanId_.findOrInsert(intfId, [&] { return resolved.nativeVlan; });
      startupRoutedPort_.findOrInsert(vlan, [&] { return intfId; });
   }
}

// --- Allocation.

Bridging::VlanIdOrNone BridgingConfigSm::allocateInternalVlanId() const {
   KEM_ASSERT(initialized());
   auto const range = config().internalVlanRange();
   bool const isAscending =
       config().internalVlanAllocationPolicy() == Bridging::InternalVlanAllocationPolicy::ascending;
   if (range.min > range.max)
      return 0;
   uint32_t const count = uint32_t(range.max) - range.min + 1;
   for (uint32_t i = 0; i < count; ++i) {
      // A range that reaches 0 or 4095 raises when the walk gets there.
      Bridging::VlanId const vid(static_cast<uint16_t>(isAscending ? range.min + i : range.max - i));
      if (config().vlanConfig().find(vid) || vlanIntfConfigOf(vid))
         continue;
      KEM_TRACE(internalVlanTrace, 5, " free vid: " << vid);
      return Bridging::VlanIdOrNone(vid);
   }
   return 0;
}

void BridgingConfigSm::handleInternalVlanIdInUse(Bridging::VlanId vlanId) {
   Sulvi::IntfId const intfId = routedPort(vlanId);
   if (intfId.empty())
      return;
   KEM_TRACE(internalVlanTrace, 0,
             "handleInternalVlanIdInUse"
                 << " deleting routed port vlan config for intfId: " << intfId << " vlanId: " << vlanId);
   deleteRoutedPortVlanConfig(*this, intfId, Bridging::VlanIdOrNone(vlanId));
   if (auto const out = config().switchIntfConfig(intfId))
      out->switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 0});
   noInternalVlanIdCauseStatus().intfStatusIs(intfId, Kem::now());
}

// --- Recovery. The cause is only taken away: the port allocates when it comes up again.

void BridgingConfigSm::handleRecoveryTimer() {
   KEM_ASSERT(initialized());
   auto& cause = noInternalVlanIdCauseStatus();
   Kem::Seconds const now = Kem::now();
   for (auto const& [intfId, time] : cause.intfStatus()) {
      if (now - time < recoveryInterval)
         continue;
      KEM_INVARIANT(internalVlanId(intfId) == 0, "!internalVlanIdIteratorConst().isMemberOf( i.key() )");
      if (allocateInternalVlanId() == 0)
         break; // nothing can recover now
      KEM_TRACE(internalVlanTrace, 3, "handleRecoveryTimer releases " << intfId);
      cause.intfStatusDel(intfId);
   }
   kemRecoveryTimer_.timeMinIs(now + recoveryInterval);
}

} // namespace Vorn
