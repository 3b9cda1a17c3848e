#include "Vorn/BridgingSm/InternalVlans.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/BridgingSm/ResolvedVlans.h"
#include "Vorn/BridgingSm/VlanInterfaces.h"
#include "Vorn/Rules/InternalVlan.h"

namespace Vorn {

namespace {
Kem::TraceFacility internalVlanTrace("VornInternalVlan");
}

// --- The tables.

Sulvi::IntfId PortsByVlan::port(Bridging::VlanId vlanId) const {
   auto const* const found = ports_.find(vlanId);
   return found ? *found : Sulvi::IntfId();
}

Bridging::VlanIdOrNone PortsByVlan::vlan(Sulvi::IntfId intfId) const {
   auto const* const found = vlans_.find(intfId);
   return found ? *found : Bridging::VlanIdOrNone(0);
}

void PortsByVlan::pairIs(Bridging::VlanId vlanId, Sulvi::IntfId intfId) {
   pairDel(port(vlanId));
   pairDel(intfId);
   ports_.findOrInsert(vlanId, [&] { return intfId; });
   vlans_.findOrInsert(intfId, [&] { return Bridging::VlanIdOrNone(vlanId); });
}

void PortsByVlan::pairDel(Sulvi::IntfId intfId) {
   auto const vlanId = vlan(intfId);
   if (vlanId == 0)
      return;
   vlans_.erase(intfId);
   ports_.erase(Bridging::VlanId(vlanId));
}

// --- Start: what the previous run left is held back from deletion until its port has been evaluated.

void InternalVlans::handleStartup(Bridging::Input::Config const* input,
                                  Interface::EthIntfConfigDir const* ethIntfConfigDir) {
   for (auto const& [key, port] : config_->switchIntfConfig()) {
      Sulvi::IntfId const intfId = key;
      auto const switchport = input ? input->switchIntfConfig(intfId) : nullptr;
      if (!switchport || switchport->enabled())
         continue;
      auto const ethIntfConfig = ethIntfConfigDir ? ethIntfConfigDir->intfConfig(intfId) : nullptr;
      if (ethIntfConfig && isShutDown(*ethIntfConfig))
         continue;
      auto const resolved = port->switchportModeAndNativeVlan();
      if (resolved.switchportMode != Bridging::SwitchportMode::routed_ || resolved.nativeVlan == 0)
         continue;
      Bridging::VlanId const vlanId(resolved.nativeVlan);
      if (!startup_.port(vlanId).empty())
         continue; // a second port that claims the number allocates again
      KEM_INVARIANT(startup_.vlan(intfId) == 0, "!startupInternalVlanId( iter->intfId() )");
      startup_.pairIs(vlanId, intfId);
   }
}

// --- Numbers.

Bridging::VlanIdOrNone InternalVlans::allocate() const {
   auto const vlanId =
       freeInternalVlan(*config_, [&](Bridging::VlanId vid) { return bool(vlanInterfaces_.find(vid)); });
   if (vlanId != 0)
      KEM_TRACE(internalVlanTrace, 5, " free vid: " << vlanId);
   return vlanId;
}

Bridging::VlanIdOrNone InternalVlans::take(Sulvi::IntfId intfId) {
   auto const vlanId = nextNumber(intfId);
   if (vlanId == 0) {
      waitBegin(intfId);
      return 0;
   }
   // It may have waited until now: a number came free, or this is a start on the cause that the previous run
   // left. A port that holds a VLAN must not be among those that recovery looks at.
   waitEnd(intfId);
   Bridging::VlanId const vlan(vlanId);
   held_.pairIs(vlan, intfId);
   createRoutedPortVlanConfig(resolvedVlans_, vlan, intfId);
   return vlanId;
}

Bridging::VlanIdOrNone InternalVlans::nextNumber(Sulvi::IntfId intfId) {
   auto const startup = startup_.vlan(intfId);
   if (startup == 0)
      return allocate();
   Bridging::VlanId const vlan(startup);
   auto const* const existing = config_->vlanConfig().find(vlan);
   bool const isTaken =
       (existing && !(*existing)->internal()) || vlanInterfaces_.find(vlan) || !held_.port(vlan).empty();
   if (isTaken) {
      startupDel(intfId);
      return 0;
   }
   startup_.pairDel(intfId);
   return startup;
}

void InternalVlans::startupDel(Sulvi::IntfId intfId) {
   auto const startup = startup_.vlan(intfId);
   if (startup == 0)
      return;
   startup_.pairDel(intfId);
   Bridging::VlanId const vlan(startup);
   auto const existing = resolvedVlans_.vlan(vlan);
   if (existing && existing->internal() && held_.port(vlan).empty()) {
      KEM_TRACE(internalVlanTrace, 3, intfId << " does not take up vlan " << vlan << " of the previous run");
      resolvedVlans_.vlanDel(vlan);
   }
}

void InternalVlans::giveUp(Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId) {
   KEM_INVARIANT(vlanId != 0, "vlanId");
   held_.pairDel(intfId);
   resolvedVlans_.vlanDel(Bridging::VlanId(vlanId));
   if (auto const port = config_->switchIntfConfig(intfId))
      port->switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 0});
}

void InternalVlans::handleInUse(Bridging::VlanId vlanId) {
   Sulvi::IntfId const intfId = held_.port(vlanId);
   if (intfId.empty())
      return;
   KEM_TRACE(internalVlanTrace, 0,
             "handleInternalVlanIdInUse"
                 << " deleting routed port vlan config for intfId: " << intfId << " vlanId: " << vlanId);
   giveUp(intfId, Bridging::VlanIdOrNone(vlanId));
   // Meant, though giving up has written the same: neither step relies on the other.
   if (auto const port = config_->switchIntfConfig(intfId))
      port->switchportModeAndNativeVlanIs(
          {.switchportMode = Bridging::SwitchportMode::routed_, .nativeVlan = 0});
   waitBegin(intfId);
}

// --- Waiting.

void InternalVlans::waitBegin(Sulvi::IntfId intfId) {
   Kem::Seconds const now = Kem::now();
   auto const* const since = cause_->intfStatus().find(intfId);
   if (!since || !(*since <= now)) // a time of another boot doesn't count
      cause_->intfStatusIs(intfId, now);
}

void InternalVlans::recover() {
   Kem::Seconds const now = Kem::now();
   for (auto const& [intfId, time] : cause_->intfStatus()) {
      if (!(time <= now)) {
         // A time in the future is from another boot or a broken clock: it would delay recovery by as much.
         waitBegin(intfId);
         continue;
      }
      if (now - time < holdOff)
         continue;
      KEM_INVARIANT(held_.vlan(intfId) == 0, "!internalVlanIdIteratorConst().isMemberOf( i.key() )");
      if (allocate() == 0)
         break; // nothing can recover now
      KEM_TRACE(internalVlanTrace, 3, "handleRecoveryTimer releases " << intfId);
      waitEnd(intfId);
   }
}

// --- The VLAN of a routed port.

Kem::Ptr<Bridging::VlanConfig> createRoutedPortVlanConfig(ResolvedVlans& resolvedVlans,
                                                          Bridging::VlanId vlanId, Sulvi::IntfId intfId) {
   auto const vlan = resolvedVlans.internalVlanIs(vlanId);
   resolvedVlans.configSourceIs(*vlan, "internal");
   resolvedVlans.adminStateIs(*vlan, Bridging::VlanAdminState::active);
   resolvedVlans.configuredNameIs(*vlan, intfId.stringValue());
   addCpuPort(*vlan);
   return vlan;
}

void deleteRoutedPortVlanConfig(BridgingConfigSm& sm, Sulvi::IntfId intfId, Bridging::VlanIdOrNone vlanId) {
   sm.internalVlans().giveUp(intfId, vlanId);
}

} // namespace Vorn
