// Says how the private VLANs belong together: fills PrivateVlanLib::LibState from the resolved VLANs.
//
//    VLAN of a type other than primary_                        in secondaryVlan, with its role in
//                                                              vlanTypeAndPrimaryVlan
//    ... whose primaryVlan is a fit one                        also in that primary's secondaryVlan
//    fit one that at least one secondary names                 in primaryVlan, role {primary_, 0}
//    any other                                                 nowhere
//
// A VLAN is fit to be a primary while it is resolved, not internal, of type primary_, and names no primary
// itself. What a secondary names doesn't change what it is: one whose primary is missing, unfit or 0 is still
// a secondary, and belongs to nobody. Internal VLANs have no role.
//
// A resolved VLAN that was removed and made again between two turns is told as gone and come back: its
// followers evaluate each of its pairs once more.
//
// It decides nothing for ports and interfaces; those who follow LibState do. It is moved by VLANs that come
// and go and by their vlanTypeAndPrimaryVlan. A change costs what it touches: one VLAN and its primary, or a
// primary and those that name it.
//
// A primary leaves in two steps. Its record is emptied first, and removed only after whoever follows that
// record has been notified; else a follower of LibState would drop the follower of the record together
// with the news of the secondaries that it is to clean up. The records between the two steps are the
// pending entries.
//
// The agent owns it. It is the only writer of LibState and drops what was there before it.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/VlanConfig.h"
#include "records/PrivateVlanLib/LibState.h"
#include "records/PrivateVlanLib/PrimaryVlanState.h"

#include <set>

namespace PrivateVlanLib {

class LibSm final : public Kem::StateMachine {
  public:
   // `bridgingConfig` may be null: then there are no VLANs.
   LibSm(Kem::Ptr<Bridging::Config const> bridgingConfig, Kem::Ptr<LibState> libState);

   // Primaries that have no secondary any more and are still to be taken away.
   size_t pendingEntries() const;

  private:
   // --- Reactions.
   struct KemBridgingConfig final : Bridging::Config::NotifieeConst {
      explicit KemBridgingConfig(LibSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleInitialized(); }
      void onVlanConfig(Bridging::VlanId vlanId) override { sm.handleVlanConfig(vlanId); }
      LibSm& sm;
   };
   struct KemVlanConfig final : Bridging::VlanConfig::NotifieeConst {
      explicit KemVlanConfig(LibSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleVlanTypeAndPrimaryVlan(notifier()->vlanId()); }
      void onVlanTypeAndPrimaryVlan() override { handleInitialized(); }
      LibSm& sm;
   };
   struct KemPrimaryVlanState final : PrimaryVlanState::NotifieeConst {
      explicit KemPrimaryVlanState(LibSm& s) : NotifieeConst(this), sm(s) {}
      void onSecondaryVlan() override { sm.handleSecondariesTold(notifier()->vlanId()); }
      LibSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemBridgingConfig_, kemVlanConfig_, kemPrimaryVlanState_);
   }
   void handleInitialized() override;
   void handleVlanConfig(Bridging::VlanId vlanId);
   void handleVlanTypeAndPrimaryVlan(Bridging::VlanId vlanId);
   void handleSecondariesTold(Bridging::VlanId primary);

   // --- Helpers.
   Bridging::VlanTypeAndPrimaryVlan const* secondaryRole(Bridging::VlanId vlanId) const; // null: it is none
   bool isFitPrimary(Bridging::VlanId vlanId) const;
   void namedPrimaryIs(Bridging::VlanId vlanId, Bridging::VlanIdOrNone primary);
   void takeOutOfPairs(Bridging::VlanId vlanId);
   void syncMembership(Bridging::VlanId primary, Bridging::VlanId secondary);
   void syncRole(Bridging::VlanId vlanId);

   using VlanSet = std::set<Bridging::VlanId>;
   Kem::Ptr<Bridging::Config const> bridgingConfig_;
   Kem::Ptr<LibState> libState_;
   Kem::ValueMap<Bridging::VlanId, Bridging::VlanId> namedPrimary_; // of each secondary that names one
   Kem::ValueMap<Bridging::VlanId, VlanSet> naming_;                // the same, by primary, fit or not
   Kem::HashMap<KemVlanConfig, Bridging::VlanId> kemVlanConfig_;
   Kem::HashMap<KemPrimaryVlanState, Bridging::VlanId> kemPrimaryVlanState_; // one for each primaryVlan
   KemBridgingConfig kemBridgingConfig_{*this};
};

} // namespace PrivateVlanLib
