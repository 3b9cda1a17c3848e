// Which VLANs have static hosts and groups resolved, and the children that resolve them.
//
// A VLAN has a FdbConfigSm and a resolved record, under its own number, when it is resolved, isn't internal,
// isn't mapped onto another filtering database, and some input holds hosts or groups for it. Otherwise it has
// neither.
//
// Owned by BridgingConfigSm, which initializes it behind the VLANs and calls handleFdbConfig for each VLAN
// that comes or goes.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/FdbConfigSm.h"
#include "records/Bridging/FdbConfigDir.h"

namespace Vorn {

class StaticHosts final : public Kem::StateMachine {
  public:
   // `fdbConfigDir` has the merged records; null for none.
   StaticHosts(Kem::Ptr<Bridging::FdbConfigDir const> fdbConfigDir, Kem::Ptr<Bridging::Config> config);
   // Looks at each VLAN that has a merged record or a resolved one.
   void handleInitialized() override;
   // Nothing before handleInitialized, which looks at all.
   void handleFdbConfig(Bridging::VlanId vlanId);
   // Somebody else changed something in the resolved configuration: resolved records and groups may be others
   // under their keys, and are written from now on.
   void handleForeignChange(Kem::Entity const& changed);
   Kem::Ptr<FdbConfigSm> fdbConfigSm(Bridging::VlanId vlanId) const; // null when there is none

  private:
   // --- Reactions.
   struct KemFdbConfigDir final : Bridging::FdbConfigDir::NotifieeConst {
      explicit KemFdbConfigDir(StaticHosts& s) : NotifieeConst(this), sm(s) {}
      void onFdbConfig(Bridging::VlanId vlanId) override { sm.handleFdbConfig(vlanId); }
      StaticHosts& sm;
   };
   struct KemConfig final : Bridging::Config::NotifieeConst {
      explicit KemConfig(StaticHosts& s) : NotifieeConst(this), sm(s) {}
      void onVidToFidMap(Bridging::VlanId vlanId) override { sm.handleFdbConfig(vlanId); }
      StaticHosts& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemFdbConfigDir_, kemConfig_, fdbConfigSm_);
   }
   void fdbConfigSmIs(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn);

   Kem::Ptr<Bridging::FdbConfigDir const> const fdbConfigDir_;
   Kem::Ptr<Bridging::Config> const config_;
   Kem::HashMap<FdbConfigSm, Bridging::VlanId> fdbConfigSm_;
   KemFdbConfigDir kemFdbConfigDir_{*this};
   KemConfig kemConfig_{*this};
};

} // namespace Vorn
