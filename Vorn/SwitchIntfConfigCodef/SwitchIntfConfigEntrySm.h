// Mirrors the chosen input of one port to the copy that SwitchIntfSm follows.
//
// The first copy is made whole and at once. Afterwards nine attributes that move VLAN membership wait in
// pendingOps and are applied one to a step of the backlog, the mode last: SwitchIntfSm must never see a new
// mode with old lists. All other attributes are copied as they change. A port leaves the backlog early when
// all its waiting attributes have the copy's values again. Each input has an entry of its own: when another
// input is chosen, the entry is replaced. Owned by SwitchIntfConfigCodef.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchportAttributes.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchportBitMap.h"
#include "records/Bridging/Input/SwitchIntfConfig.h"

namespace Vorn {

class SwitchIntfConfigCodef;

class SwitchIntfConfigEntrySm final : public Kem::StateMachine {
  public:
   using Config = Bridging::Input::SwitchIntfConfig;
   using SwitchportBitMap = Vorn::SwitchportBitMap; // its text form begins with this class

   SwitchIntfConfigEntrySm(SwitchIntfConfigCodef& parent, Sulvi::IntfId intfId,
                           Kem::Ptr<Config const> const& configIn, Kem::Ptr<Config> configOut);
   // Makes the copy, and has SwitchIntfSm evaluate it. The owner calls it once, when it holds the entry.
   void handleInitialized() override;

   Sulvi::IntfId intfId() const { return intfId_; }
   Kem::Ptr<Config const> configIn() const { return kemConfigIn_.notifier(); }
   Kem::Ptr<Config> const& configOut() const { return configOut_; }
   SwitchportBitMap pendingOps() const { return pendingOps_; }

   // Applies one waiting attribute, or the list of a tool port and the mode together. Returns whether none is
   // left.
   bool performPendingOperations();

  private:
   // --- Reactions.
   struct KemConfigIn final : Config::NotifieeConst {
      explicit KemConfigIn(SwitchIntfConfigEntrySm& s) : NotifieeConst(this), sm(s) {}
#define ON_SCALAR(Name, ...)                                                                                 \
   void on##Name() override {                                                                                \
      sm.handle##Name();                                                                                     \
   }
#define ON_MEMBER(Name, attribute, Key)                                                                      \
   void on##Name(Key key) override {                                                                         \
      sm.handle##Name(key);                                                                                  \
   }
      SWITCHPORT_ATTRIBUTES(ON_SCALAR, ON_SCALAR, ON_MEMBER, ON_MEMBER)
#undef ON_SCALAR
#undef ON_MEMBER
      SwitchIntfConfigEntrySm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemConfigIn_);
   }
   // One for each attribute, with its name behind `handle`.
#define HANDLE_WAITING(Name, attribute, bit)                                                                 \
   void handle##Name() {                                                                                     \
      handlePending(SwitchportBitMap::bit);                                                                  \
   }
#define HANDLE_COPIED(Name, attribute) void handle##Name();
#define HANDLE_MEMBER(Name, attribute, Key) void handle##Name(Key key);
   SWITCHPORT_ATTRIBUTES(HANDLE_WAITING, HANDLE_COPIED, HANDLE_MEMBER, HANDLE_MEMBER)
#undef HANDLE_WAITING
#undef HANDLE_COPIED
#undef HANDLE_MEMBER

   // --- Helpers.
   void handlePending(SwitchportBitMap::Bit bit);
   void handleSwitchIntfConfig(); // compares what waits
   void copyWhole();
   void clearAllPendingOps() {
      pendingOps_ = SwitchportBitMap();
   }

   SwitchIntfConfigCodef& parent_;
   Sulvi::IntfId const intfId_;
   Kem::Ptr<Config> const configOut_;
   SwitchportBitMap pendingOps_; // attributes that differ and wait
   KemConfigIn kemConfigIn_{*this};
};

} // namespace Vorn
