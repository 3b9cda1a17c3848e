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
   initializedIs(true);
   copyWhole();
   parent_.configOut().switchIntfSmInitialize(intfId_);
}

void SwitchIntfConfigEntrySm::copyWhole() {
   auto const source = configIn();
   Config const& in = *source;
   Config& out = *configOut_;
#define COPY(Name, attribute, ...) out.attribute##Is(in.attribute());
#define ADD(Name, attribute, Key)                                                                            \
   for (auto const& [key, value] : in.attribute())                                                           \
      out.attribute##Is(key, value);
#define REPLACE(Name, attribute, Key)                                                                        \
   out.attribute##DelAll();                                                                                  \
   ADD(Name, attribute, Key)
   SWITCHPORT_ATTRIBUTES(COPY, COPY, ADD, REPLACE)
#undef COPY
#undef ADD
#undef REPLACE
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
      // The list of a tool port and the mode may be applied in one step.
      if (op.bit != SwitchportBitMap::switchportToolAllowedVlans)
         break;
   }
   return !pendingOps_;
}

// --- Attributes that are copied as they change.

#define NOTHING(...)
#define COPY(Name, attribute)                                                                                \
   void SwitchIntfConfigEntrySm::handle##Name() {                                                            \
      configOut_->attribute##Is(configIn()->attribute());                                                    \
   }
// The member as it is in the input; deleted where the input has none.
#define COPY_MEMBER(Name, attribute, Key)                                                                    \
   void SwitchIntfConfigEntrySm::handle##Name(Key key) {                                                     \
      auto const in = configIn();                                                                            \
      if (auto const* const value = in->attribute().find(key))                                               \
         configOut_->attribute##Is(key, *value);                                                             \
      else                                                                                                   \
         configOut_->attribute##Del(key);                                                                    \
   }
SWITCHPORT_ATTRIBUTES(NOTHING, COPY, COPY_MEMBER, COPY_MEMBER)
#undef NOTHING
#undef COPY
#undef COPY_MEMBER

// Each attribute of the schema must have its line; only the key has none.
#define ONE(...) +1
static_assert(SWITCHPORT_ATTRIBUTES(ONE, ONE, ONE, ONE) + 1 == Config::kAttributeCount);
#undef ONE

} // namespace Vorn
