// The static hosts and groups of one VLAN: a mirror of the merged record in the resolved record of the VLAN's
// filtering database, whose number is that of the VLAN.
//
// Owned by StaticHosts, which decides which VLANs have one, and deletes the resolved record itself.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/EthGroupSm.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/FdbConfig.h"
#include "records/Bridging/Input/FdbConfig.h"

namespace Vorn {

class FdbConfigSm final : public Kem::StateMachine {
  public:
   FdbConfigSm(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn,
               Kem::Ptr<Bridging::Config> config);

   Bridging::VlanId vlanId() const { return fdbConfigIn_->vlanId(); }
   Kem::Ptr<Bridging::FdbConfig> const& fdbConfigOut() const { return fdbConfigOut_; }
   Kem::Ptr<EthGroupSm> ethGroupSm(Sulvi::EthAddr addr) const; // null when there is none
   // Another merged record of the VLAN: all is copied from it.
   void fdbConfigInIs(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn);
   // Copies all hosts and groups; what only the resolved record has leaves it.
   void handleInitialized() override;

   // The resolved record, or groups of it, may have been deleted and made again by somebody else, or by the
   // database, where it brings the order of two writers together: those are written from now on.
   void handleOutMadeAgain();
   void handleGroupsMadeAgain();

   void handleConfiguredHost(Sulvi::EthAddr addr); // asserts "initialized()"
   void handleConfiguredGroup(Sulvi::EthAddr addr);

  private:
   // --- Reactions.
   struct KemFdbConfigIn final : Bridging::Input::FdbConfig::NotifieeConst {
      explicit KemFdbConfigIn(FdbConfigSm& s) : NotifieeConst(this), sm(s) {}
      void onConfiguredHost(Sulvi::EthAddr addr) override { sm.handleConfiguredHost(addr); }
      void onEthGroup(Sulvi::EthAddr addr) override { sm.handleConfiguredGroup(addr); }
      FdbConfigSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemFdbConfigIn_, ethGroupSm_); }

   Kem::Ptr<Bridging::Input::FdbConfig const> fdbConfigIn_;
   Kem::Ptr<Bridging::Config> const config_;
   Kem::Ptr<Bridging::FdbConfig> fdbConfigOut_; // null before handleInitialized
   Kem::HashMap<EthGroupSm, Sulvi::EthAddr> ethGroupSm_;
   KemFdbConfigIn kemFdbConfigIn_{*this};
};

// Makes one and has it copy everything.
Kem::Ptr<FdbConfigSm> fdbConfigSmFactory(Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn,
                                         Kem::Ptr<Bridging::Config> const& config);

} // namespace Vorn
