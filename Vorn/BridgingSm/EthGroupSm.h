// The members of one static multicast group: a mirror of the merged group in the resolved one.
//
// Owned by FdbConfigSm, one for each group.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Bridging/EthGroup.h"

namespace Vorn {

class EthGroupSm final : public Kem::StateMachine {
  public:
   EthGroupSm(Kem::Ptr<Bridging::EthGroup const> const& ethGroupIn, Kem::Ptr<Bridging::EthGroup> ethGroupOut);

   Sulvi::EthAddr addr() const { return ethGroupIn_->addr(); }
   // Another group under the address, on either side: its members are copied.
   void ethGroupsAre(Kem::Ptr<Bridging::EthGroup const> const& ethGroupIn,
                     Kem::Ptr<Bridging::EthGroup> const& ethGroupOut);
   // The resolved group is another object, with the members that it has.
   void ethGroupOutIs(Kem::Ptr<Bridging::EthGroup> const& ethGroupOut) { ethGroupOut_ = ethGroupOut; }
   // Copies all members; those that only the resolved group has leave it.
   void handleInitialized() override;

  private:
   // --- Reactions.
   struct KemEthGroupIn final : Bridging::EthGroup::NotifieeConst {
      explicit KemEthGroupIn(EthGroupSm& s) : NotifieeConst(this), sm(s) {}
      void onIntf(Sulvi::IntfId intfId) override { sm.handleIntf(intfId); }
      EthGroupSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemEthGroupIn_); }
   void handleIntf(Sulvi::IntfId intfId);

   Kem::Ptr<Bridging::EthGroup const> ethGroupIn_;
   Kem::Ptr<Bridging::EthGroup> ethGroupOut_;
   KemEthGroupIn kemEthGroupIn_{*this};
};

} // namespace Vorn
