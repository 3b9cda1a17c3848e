#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigEntrySm.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigOutput.h"

#include <algorithm>

namespace Vorn {

using Config = Bridging::Input::SwitchIntfConfig;

namespace {

Kem::TraceFacility entryTrace("VornSwitchEntry");

using Bit = SwitchportBitMap::Bit;

// An attribute that waits: how it is compared and copied.
struct Operation {
   Bit bit;
   bool (*differs)(Config const& in, Config const& out);
   void (*copy)(Config const& in, Config& out);
   char const* trace;
};

#define OPERATION(bit, attribute, trace)                                                                     \
   {                                                                                                         \
      SwitchportBitMap::bit,                                                                                 \
          [](Config const& in, Config const& out) { return in.attribute() != out.attribute(); },             \
          [](Config const& in, Config& out) { out.attribute##Is(in.attribute()); }, trace                    \
   }

// In the order in which they are applied: the mode last.
constexpr Operation operations[] = {
    OPERATION(switchportEnabled, enabled, " Operation switchport"),
    OPERATION(switchportTrunkAllowedVlans, trunkAllowedVlans, " Operation switchportTrunkAllowedVlan"),
    OPERATION(switchportAsymVlans, asymVlans, " Operation switchportAsymVlans"),
    OPERATION(switchportAccessVlan, accessVlan, " Operation switchportAccessVlan"),
    OPERATION(switchportTrunkNativeVlan, trunkNativeVlan, " Operation switchportTrunkVlan"),
    OPERATION(switchportTapNativeVlan, tapNativeVlan, " Operation switchportTapNativeVlan"),
    OPERATION(switchportTapAllowedVlans, tapAllowedVlans, " Operation switchportTapAllowedVlan"),
    OPERATION(switchportToolAllowedVlans, toolAllowedVlans, " Operation switchportToolAllowedVlan"),
    OPERATION(switchportMode, switchportMode, " Operation switchportMode"),
};

#undef OPERATION

} // namespace

SwitchIntfConfigEntrySm::SwitchIntfConfigEntrySm(SwitchIntfConfigCodef& parent, Sulvi::IntfId intfId,
                                                 Kem::Ptr<Config const> const& configIn,
                                                 Kem::Ptr<Config> configOut)
    : parent_(parent), intfId_(intfId), configOut_(std::move(configOut)) {
   kemConfigIn_.notifierIs(configIn);
}

// --- The first copy.

void SwitchIntfConfigEntrySm::handleInitialized() {
   initialized_ = true;
   copyWhole();
   parent_.configOut().switchIntfSmInitialize(intfId_);
}

void SwitchIntfConfigEntrySm::copyWhole() {
   auto const source = configIn();
   Config const& in = *source;
   Config& out = *configOut_;
   out.switchportModeIs(in.switchportMode());
   out.enabledIs(in.enabled());
   out.accessVlanIs(in.accessVlan());
   out.trunkNativeVlanIs(in.trunkNativeVlan());
   out.trunkAllowedVlansIs(in.trunkAllowedVlans());
   out.asymVlansIs(in.asymVlans());
   out.trunkPrivateVlanMappingIs(in.trunkPrivateVlanMapping());
   out.tapNativeVlanIs(in.tapNativeVlan());
   out.tapAllowedVlansIs(in.tapAllowedVlans());
   out.toolAllowedVlansIs(in.toolAllowedVlans());
   out.toolIdentityTaggingIs(in.toolIdentityTagging());
   out.tapIdentificationVlanIs(in.tapIdentificationVlan());
   out.tapMplsPopIs(in.tapMplsPop());
   out.tapTruncationSizeIs(in.tapTruncationSize());
   out.toolTruncationSizeIs(in.toolTruncationSize());
   out.toolDot1qRemoveVlansIs(in.toolDot1qRemoveVlans());
   // These two are not cleared first: members that an older input left stay.
   for (auto const& [name, value] : in.tapGroup())
      out.tapGroupIs(name, value);
   for (auto const& [intfId, value] : in.tapRawIntf())
      out.tapRawIntfIs(intfId, value);
   out.toolGroupDelAll();
   for (auto const& [name, value] : in.toolGroup())
      out.toolGroupIs(name, value);
   out.trunkGroupDelAll();
   for (auto const& [name, value] : in.trunkGroup())
      out.trunkGroupIs(name, value);
   out.defaultPrivateVlanMappingIs(in.defaultPrivateVlanMapping());
   out.blockUnknownUnicastIs(in.blockUnknownUnicast());
   out.blockUnknownMulticastIs(in.blockUnknownMulticast());
   out.macLearningEnabledIs(in.macLearningEnabled());
   out.floodingEnabledIs(in.floodingEnabled());
   out.privateVlanMappingDelAll();
   for (auto const& [vlanId, value] : in.privateVlanMapping())
      out.privateVlanMappingIs(vlanId, value);
   out.egressNativeVlanXlateIs(in.egressNativeVlanXlate());
   out.ingressNativeVlanXlateIs(in.ingressNativeVlanXlate());
   out.egressVlanXlateDelAll();
   for (auto const& [key, mapping] : in.egressVlanXlate())
      out.egressVlanXlateIs(key, mapping);
   out.ingressVlanXlateDelAll();
   for (auto const& [key, mapping] : in.ingressVlanXlate())
      out.ingressVlanXlateIs(key, mapping);
   handleVlanTpid();
}

// --- Attributes that wait.

void SwitchIntfConfigEntrySm::handlePending(SwitchportBitMap::Bit bit) {
   pendingOps_.set(bit);
   handleSwitchIntfConfig();
}

void SwitchIntfConfigEntrySm::handleSwitchIntfConfig() {
   auto const in = configIn();
   bool const differs = std::any_of(std::begin(operations), std::end(operations), [&](Operation const& op) {
      return pendingOps_.has(op.bit) && op.differs(*in, *configOut_);
   });
   parent_.updateBacklog(intfId_, !differs);
   if (!differs)
      clearAllPendingOps();
}

bool SwitchIntfConfigEntrySm::performPendingOperations() {
   auto const in = configIn();
   for (auto const& op : operations) {
      if (!pendingOps_.has(op.bit))
         continue;
      KEM_TRACE(entryTrace, 8, "backlog processing " << intfId_ << op.trace);
      op.copy(*in, *configOut_);
      pendingOps_.clear(op.bit);
      if (op.bit == SwitchportBitMap::switchportMode)
         KEM_INVARIANT(!pendingOps_.hash(), "! pendingOps_.hash()"); // the mode is always the last
      // The tool list and the mode may land together.
      if (op.bit != SwitchportBitMap::switchportToolAllowedVlans)
         break;
   }
   return !pendingOps_;
}

// --- Attributes that are copied as they change.

#define COPIED(Name, attribute)                                                                              \
   void SwitchIntfConfigEntrySm::handle##Name() {                                                            \
      configOut_->attribute##Is(configIn()->attribute());                                                    \
   }
COPIED(ToolIdentityTagging, toolIdentityTagging)
COPIED(TapIdentificationVlan, tapIdentificationVlan)
COPIED(TapMplsPop, tapMplsPop)
COPIED(TapTruncationSize, tapTruncationSize)
COPIED(ToolTruncationSize, toolTruncationSize)
COPIED(ToolDot1qRemoveVlans, toolDot1qRemoveVlans)
COPIED(DefaultPrivateVlanMapping, defaultPrivateVlanMapping)
COPIED(MacLearningEnabled, macLearningEnabled)
COPIED(FloodingEnabled, floodingEnabled)
COPIED(EgressNativeVlanXlate, egressNativeVlanXlate)
COPIED(IngressNativeVlanXlate, ingressNativeVlanXlate)
COPIED(TrunkPrivateVlanMapping, trunkPrivateVlanMapping)
COPIED(VlanTpid, vlanTpid)
COPIED(BlockUnknownUnicast, blockUnknownUnicast)
COPIED(BlockUnknownMulticast, blockUnknownMulticast)
#undef COPIED

// The member as it stands in the input, or none.
#define COPIED_MEMBER(Name, attribute, Key)                                                                  \
   void SwitchIntfConfigEntrySm::handle##Name(Key key) {                                                     \
      auto const in = configIn();                                                                            \
      if (auto const* const value = in->attribute().find(key))                                               \
         configOut_->attribute##Is(key, *value);                                                             \
      else                                                                                                   \
         configOut_->attribute##Del(key);                                                                    \
   }
COPIED_MEMBER(TapGroup, tapGroup, Kem::String8 const&)
COPIED_MEMBER(TapRawIntf, tapRawIntf, Sulvi::IntfId)
COPIED_MEMBER(ToolGroup, toolGroup, Kem::String8 const&)
COPIED_MEMBER(TrunkGroup, trunkGroup, Kem::String8 const&)
COPIED_MEMBER(PrivateVlanMapping, privateVlanMapping, Bridging::VlanId)
COPIED_MEMBER(EgressVlanXlate, egressVlanXlate, Bridging::VlanXlateKey const&)
COPIED_MEMBER(IngressVlanXlate, ingressVlanXlate, Bridging::VlanXlateKey const&)
#undef COPIED_MEMBER

} // namespace Vorn
