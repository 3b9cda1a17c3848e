#include "Vorn/BridgingSm/PrivateVlans.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/BridgingSm/CpuPort.h"
#include "Vorn/Rules/PrivateVlans.h"

#include <utility>

namespace Vorn {

using Bridging::VlanId;

namespace {
Kem::TraceFacility privateVlanTrace("VornPrivateVlan");
}

Kem::Ptr<Bridging::VlanConfig> primaryOf(PrivateVlanLib::LibState const& libState,
                                         Bridging::Config const& config, VlanId vlanId) {
   auto const* const role = libState.vlanTypeAndPrimaryVlan(vlanId);
   if (!role || role->primaryVlan == 0 || !config.vlanConfig().find(vlanId))
      return nullptr;
   VlanId const primary(role->primaryVlan);
   auto const state = libState.primaryVlan(primary);
   return state && state->secondaryVlan(vlanId) ? config.vlanConfig(primary) : nullptr;
}

PrivateVlans::PrivateVlans(BridgingConfigSm& parent,
                           Kem::Ptr<PrivateVlanLib::LibState const> const& privateVlanLibState,
                           Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig)
    : parent_(parent) {
   kemPrivateVlanLibState_.notifierIs(privateVlanLibState);
   kemCliConfig_.notifierIs(cliConfig);
   kemMarks_.notifierIs(Kem::ActivityFacility::clock());
   parent_.resolvedVlans().relations().markHookIs([this] { kemMarks_.timeMinIs(0); });
}

void PrivateVlans::handleInitialized() {
   initializedIs(true);
   for (auto const& [vlanId, state] : parent_.privateVlanLibState().primaryVlan())
      handlePrivateVlanLibState(vlanId);
}

void PrivateVlans::cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig) {
   kemCliConfig_.notifierIs(cliConfig);
   handleSviMapping();
}

// --- Primary VLANs.

Kem::Ptr<PrimaryVlanSm> PrivateVlans::primaryVlanSm(VlanId vlanId) const {
   auto const* const found = primaryVlanSm_.find(vlanId);
   return found ? *found : nullptr;
}

void PrivateVlans::handlePrivateVlanLibState(VlanId vlanId) {
   if (!isReady())
      return;
   if (auto const state = parent_.privateVlanLibState().primaryVlan(vlanId))
      primaryVlanSmIs(vlanId, state);
   else if (primaryVlanSm(vlanId))
      primaryVlanSmDel(vlanId);
   // A pair may have come and gone before this, and nobody is told of that; but VLANs may have been looked at
   // meanwhile.
   areCpuPortsOpen_ = true;
   kemMarks_.timeMinIs(0);
}

void PrivateVlans::primaryVlanSmIs(VlanId vlanId,
                                   Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& state) {
   if (auto const sm = primaryVlanSm(vlanId)) {
      sm->primaryVlanStateIs(state);
      return;
   }
   KEM_TRACE(privateVlanTrace, 3, "VLAN " << vlanId << " is a primary");
   auto const sm = Kem::makePtr<PrimaryVlanSm>(parent_, state);
   primaryVlanSm_.findOrInsert(vlanId, [&] { return sm; });
   sm->handleInitialized();
}

void PrivateVlans::primaryVlanSmDel(VlanId vlanId) {
   KEM_TRACE(privateVlanTrace, 3, "VLAN " << vlanId << " is no primary any more");
   primaryVlanSm(vlanId)->release();
   Kem::childDel(primaryVlanSm_, vlanId);
   auto const key = primaryVlanKey(vlanId);
   parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) {
      // A configured translation stays.
      if (port->initialized() && !port->switchIntfConfig().egressVlanXlate(key))
         port->switchIntfConfigOut()->egressVlanXlateDel(key);
   });
}

// --- Mappings.

Kem::Ptr<SviMappingSm> PrivateVlans::sviMappingSm(VlanId vlanId) const {
   auto const* const found = sviMappingSm_.find(vlanId);
   return found ? *found : nullptr;
}

void PrivateVlans::handleOutMadeAgain() {
   sviMappingSm_.forEach([&](VlanId vlanId, auto const& sm) {
      if (auto const record = parent_.config().sviMapping(vlanId))
         sm->sviMappingStateOutIs(record);
   });
}

void PrivateVlans::handleSviMapping() {
   auto const& cliConfig = parent_.cliConfig();
   for (auto const& [vlanId, mapping] : parent_.config().sviMapping())
      if (!cliConfig.sviMapping(vlanId))
         handleSviMapping(vlanId); // stale ones go
   for (auto const& [vlanId, mapping] : cliConfig.sviMapping())
      handleSviMapping(vlanId);
}

void PrivateVlans::handleSviMapping(VlanId vlanId) {
   KEM_INVARIANT(initialized(), "initialized()");
   auto const input = parent_.cliConfig().sviMapping(vlanId);
   if (!input) {
      Kem::childDel(sviMappingSm_, vlanId);
      parent_.config().sviMappingDel(vlanId);
      maybeSyncCpuPort(parent_, vlanId); // every secondary is served again
      return;
   }
   auto const output = parent_.config().sviMappingIs(vlanId);
   if (auto const sm = sviMappingSm(vlanId)) {
      sm->sviMappingStateIs(input);
      return;
   }
   auto const sm = Kem::makePtr<SviMappingSm>(parent_, input, output);
   sviMappingSm_.findOrInsert(vlanId, [&] { return sm; });
   sm->handleInitialized();
}

// --- What the library doesn't tell of.

// Members of VLANs whose relations have changed, by the resolved roles or by what the library told of pairs: each
// VLAN once on each port, however much has happened to it in this turn.
void PrivateVlans::handleMarks() {
   parent_.resolvedVlans().relations().takeMarked().forEach([&](uint16_t vlanId) {
      auto const vlan = parent_.resolvedVlans().vlan(VlanId(vlanId));
      if (!vlan)
         return;
      auto const role = vlan->vlanTypeAndPrimaryVlan();
      if (role.vlanType == Bridging::VlanType::secondary_ && role.primaryVlan == 0) {
         // To ask for the membership of its access ports would raise.
         KEM_TRACE(privateVlanTrace, 0, "VLAN " << vlanId << " is a secondary VLAN, but names no primary");
         return;
      }
      parent_.switchIntfSm().forEach([&](Sulvi::IntfId, auto const& port) {
         if (port->initialized() && port->switchIntfConfig().enabled())
            port->doSyncSingleVlan(*vlan);
      });
   });
   if (std::exchange(areCpuPortsOpen_, false))
      for (auto const& [vlanId, vlan] : parent_.config().vlanConfig())
         syncCpuPort(parent_.cpuPortInputs(), *vlan);
}

} // namespace Vorn
