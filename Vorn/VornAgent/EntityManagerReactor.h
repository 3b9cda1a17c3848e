// Follows the redundancy role of the supervisor for the agent: standby when the protocol is hot standby (3)
// and the mode is not active (5); active in every other case, whatever the mode.
//
// Evaluates in its constructor, when it is bound, and on each change of the mode.
#pragma once

#include "Kem/StateMachine.h"
#include "records/Redundancy/RedundancyStatus.h"

namespace Vorn {

class Agent;

class EntityManagerReactor final : public Kem::StateMachine {
  public:
   // `redundancyStatus` may be null: then the role stays as it is.
   EntityManagerReactor(Kem::Ptr<Redundancy::RedundancyStatus const> redundancyStatus, Agent* vornAgent);

  private:
   struct KemRedundancyStatus final : Redundancy::RedundancyStatus::NotifieeConst {
      explicit KemRedundancyStatus(EntityManagerReactor& r) : NotifieeConst(this), reactor(r) {}
      void handleInitialized() override { reactor.handleRedundancyStatus(); }
      void onMode() override { reactor.handleRedundancyStatus(); }
      EntityManagerReactor& reactor;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemRedundancyStatus_); }
   void handleRedundancyStatus();

   Kem::Ptr<Redundancy::RedundancyStatus const> redundancyStatus_;
   Agent* vornAgent_;
   KemRedundancyStatus kemRedundancyStatus_{*this};
};

} // namespace Vorn
