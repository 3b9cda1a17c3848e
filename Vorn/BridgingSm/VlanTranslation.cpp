// The translations of a port, and what follows from its mapping of private VLANs.
//
// The table of leaving frames has two writers: what the port's input holds is copied, and a trunk port that
// maps private VLANs gets an entry for each primary VLAN besides. A configured entry wins. The price of one
// table: a key that the input loses goes, and an entry for a primary VLAN that belongs there comes back only
// when the primary or the port is evaluated again.

#include "Vorn/BridgingSm/SwitchIntfSm.h"

#include "Kem/Trace.h"
#include "Vorn/BridgingSm/BridgingConfigSm.h"
#include "Vorn/Rules/PrivateVlans.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

namespace Vorn {

using Bridging::VlanId;
using Bridging::VlanXlateKey;

namespace {
Kem::TraceFacility translationTrace("VornTranslation");

// The state of the primary VLAN that frames of that outer tag are in; null when there is none.
Kem::Ptr<PrivateVlanLib::PrimaryVlanState> primaryOfKey(PrivateVlanLib::LibState const& libState,
                                                        VlanXlateKey const& key) {
   return VlanId::isLegal(key.outerVlanId) ? libState.primaryVlan(VlanId(key.outerVlanId)) : nullptr;
}
} // namespace

// --- Copies.

void SwitchIntfSm::syncVlanXlates() {
   handleIngressNativeVlanXlate();
   handleEgressNativeVlanXlate();
   handleIngressVlanXlate();
   handleEgressVlanXlate();

   // What the previous run left, or another input that was best before: keys that neither the input nor a
   // private VLAN explains. Those of private VLANs are put right by handleTrunkPrivateVlanMapping().
   for (auto const& [key, mapping] : out_->ingressVlanXlate())
      if (!config_->ingressVlanXlate(key))
         handleIngressVlanXlate(key);
   for (auto const& [key, mapping] : out_->egressVlanXlate()) {
      if (config_->egressVlanXlate(key))
         continue;
      auto const primary = primaryOfKey(parent_.privateVlanLibState(), key);
      if (!mapsPrimaryVlans(*config_) || !primary || primary->secondaryVlan().empty() || key.innerVlanId != 0)
         handleEgressVlanXlate(key);
   }
}

void SwitchIntfSm::handleIngressNativeVlanXlate() {
   if (isReady() && out_)
      out_->ingressNativeVlanXlateIs(config_->ingressNativeVlanXlate());
}

void SwitchIntfSm::handleEgressNativeVlanXlate() {
   if (isReady() && out_)
      out_->egressNativeVlanXlateIs(config_->egressNativeVlanXlate());
}

void SwitchIntfSm::handleIngressVlanXlate(VlanXlateKey const& key) {
   if (!isReady() || !out_)
      return;
   if (auto const* const mapping = config_->ingressVlanXlate(key)) {
      KEM_TRACE(translationTrace, 3, " add key " << key << " to " << intfId_ << " mapping " << *mapping);
      out_->ingressVlanXlateIs(key, *mapping);
   } else {
      KEM_TRACE(translationTrace, 3, " remove mapping for key " << key);
      out_->ingressVlanXlateDel(key);
   }
}

void SwitchIntfSm::handleEgressVlanXlate(VlanXlateKey const& key) {
   if (!isReady() || !out_)
      return;
   if (auto const* const mapping = config_->egressVlanXlate(key)) {
      KEM_TRACE(translationTrace, 3, " add key: " << key << " to " << intfId_ << " mapping " << *mapping);
      out_->egressVlanXlateIs(key, *mapping);
   } else {
      // Meant: also where it is the entry of a private VLAN.
      KEM_TRACE(translationTrace, 3, " remove mapping for key " << key);
      out_->egressVlanXlateDel(key);
   }
}

void SwitchIntfSm::handleIngressVlanXlate() {
   for (auto const& [key, mapping] : config_->ingressVlanXlate())
      handleIngressVlanXlate(key);
}

void SwitchIntfSm::handleEgressVlanXlate() {
   for (auto const& [key, mapping] : config_->egressVlanXlate())
      handleEgressVlanXlate(key);
}

// --- Primary VLANs on a trunk port.

void SwitchIntfSm::doAddPrivateVlanMapping(VlanId vlanId, Bridging::VlanIdOrAny min) {
   auto const key = primaryVlanKey(vlanId);
   if (config_->egressVlanXlate(key) || min == Bridging::VlanIdOrAny::max)
      return;
   KEM_TRACE(translationTrace, 3,
             " SwitchIntfSm::"
                 << "doAddPrivateVlanMapping"
                 << "(" << intfId_ << ")  added egress  mapping from " << vlanId << " to " << min);
   out_->egressVlanXlateIs(key, secondaryVlanMapping(VlanId(min)));
}

void SwitchIntfSm::handleTrunkPrivateVlanMapping() {
   if (!isReady() || !out_)
      return;
   auto const& libState = parent_.privateVlanLibState();
   if (mapsPrimaryVlans(*config_)) {
      for (auto const& [vlanId, primary] : libState.primaryVlan())
         doAddPrivateVlanMapping(vlanId, parent_.getMinSecondaryVlanId(vlanId));
   } else {
      for (auto const& [key, mapping] : out_->egressVlanXlate()) {
         if (config_->egressVlanXlate(key) || !primaryOfKey(libState, key))
            continue;
         KEM_TRACE(translationTrace, 3, " Removing egress mapping for primary vlan:  " << key.outerVlanId);
         out_->egressVlanXlateDel(key);
      }
   }
   for (auto const& [vlanId, role] : libState.vlanTypeAndPrimaryVlan())
      if (role.vlanType == Bridging::VlanType::secondary_)
         maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId));
}

// --- Secondary VLANs of an access port.

// Looked at are those that the library knows of the port's native VLAN, and those that name it without making a
// pair with it: the rules of membership ask for no more than the name.
Bridging::VlanIdOrNone SwitchIntfSm::primaryOfMapping() const {
   auto const resolved = out_->switchportModeAndNativeVlan();
   return resolved.switchportMode == Bridging::SwitchportMode::access_ ? resolved.nativeVlan
                                                                       : Bridging::VlanIdOrNone(0);
}

void SwitchIntfSm::handlePrivateVlanMapping(VlanId vlanId) {
   if (!isReady() || !out_ || !config_->enabled() || config_->defaultPrivateVlanMapping())
      return;
   auto const native = primaryOfMapping();
   if (native == 0)
      return;
   auto const state = parent_.privateVlanLibState().primaryVlan(VlanId(native));
   if ((state && state->secondaryVlan(vlanId)) ||
       parent_.resolvedVlans().relations().names(vlanId, VlanId(native)))
      maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId));
}

void SwitchIntfSm::handleDefaultPrivateVlanMapping() {
   if (!isReady() || !out_ || !config_->enabled())
      return;
   auto const native = primaryOfMapping();
   if (native == 0)
      return;
   if (auto const state = parent_.privateVlanLibState().primaryVlan(VlanId(native)))
      for (auto const& [vlanId, isSecondary] : state->secondaryVlan())
         maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId));
   parent_.resolvedVlans().relations().forEachNaming(
       VlanId(native), [&](VlanId vlanId) { maybeSyncOneVlan(Bridging::VlanIdOrNone(vlanId)); });
}

} // namespace Vorn
