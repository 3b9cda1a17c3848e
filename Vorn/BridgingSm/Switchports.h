// The ports that an input has a record for: the path of each from the record that was chosen for it through the
// deferred stage and its copy to SwitchIntfSm, which is also given the records of the interface.
//
//    chosen record ──SwitchIntfConfigCodef──► switchIntfConfigAfterCodef ──► SwitchIntfSm ──► resolved port
//                                             interface's records ─────────────────┘
//
// Placing or deleting a copy is followed at once by handleSwitchIntfConfig(intfId). Nothing here reads a port from
// an input: the children follow the copies. Owned by BridgingConfigSm.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/BridgingConfigInputs.h"
#include "Vorn/BridgingSm/ResolvedVlans.h"
#include "Vorn/BridgingSm/SwitchIntfSm.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigCodef.h"
#include "Vorn/SwitchIntfConfigCodef/SwitchIntfConfigOutput.h"

namespace Vorn {

class BridgingConfigSm;

class Switchports final : public Kem::StateMachine, public SwitchIntfConfigOutput {
  public:
   // `in` is that of the parent.
   Switchports(BridgingConfigSm& parent, BridgingConfigInputs const& in);
   // Makes the deferred stage, which takes in all ports.
   void handleInitialized() override;

   Kem::Ptr<SwitchIntfConfigCodef> const& switchIntfConfigCodef() const { return switchIntfConfigCodef_; }
   // Ports come one at a time: asserts "!initialized()".
   void handleSwitchIntfConfig();
   void handleSwitchIntfConfig(Sulvi::IntfId intfId); // the copy came or went
   // No input holds the port: deletes what the previous run resolved for it. A port that has a child is left
   // alone: the deferred stage deletes its copy, and the rest follows.
   void doForgetPort(Sulvi::IntfId intfId);

   SwitchIntfSms const& switchIntfSm() const { return switchIntfSm_; }
   Kem::Ptr<SwitchIntfSm> switchIntfSm(Sulvi::IntfId intfId) const; // null when there is none
   // Makes the child, or passes new records on to the existing one. Another `bridgingConfig` for an existing
   // one raises a range exception.
   Kem::Ptr<SwitchIntfSm>
   switchIntfSmIs(Sulvi::IntfId intfId,
                  Kem::Ptr<Bridging::Input::SwitchIntfConfig const> const& switchIntfConfig,
                  Kem::Ptr<Interface::EthIntfConfig const> const& ethIntfConfig,
                  Kem::Ptr<Bridging::Config> const& bridgingConfig,
                  Kem::Ptr<Interface::EthIntfStatus const> const& ethIntfStatus);

   // --- What the deferred stage asks for and writes.
   Kem::Ptr<Bridging::Input::SwitchIntfConfig> switchIntfConfigAfterCodef(Sulvi::IntfId intfId) const;
   Kem::Ptr<Bridging::Input::SwitchIntfConfig>
   switchIntfConfigAfterCodefIs(Sulvi::IntfId intfId, Bridging::Input::SwitchportMode mode) override;
   void switchIntfConfigAfterCodefDel(Sulvi::IntfId intfId) override;
   void switchIntfSmInitialize(Sulvi::IntfId intfId) override;
   AttrLogCheck* attrLogCheck() const override { return in_.attrLogCheck; }

  private:
   // --- Reactions.
   struct KemEthIntfConfigDir final : Interface::EthIntfConfigDir::NotifieeConst {
      explicit KemEthIntfConfigDir(Switchports& s) : NotifieeConst(this), sm(s) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleEthIntfConfig(intfId); }
      Switchports& sm;
   };
   struct KemEthIntfStatusDir final : Interface::EthIntfStatusDir::NotifieeConst {
      explicit KemEthIntfStatusDir(Switchports& s) : NotifieeConst(this), sm(s) {}
      void onIntfStatus(Sulvi::IntfId intfId) override { sm.handleEthIntfStatus(intfId); }
      Switchports& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemEthIntfConfigDir_, kemEthIntfStatusDir_, switchIntfConfigCodef_, switchIntfSm_);
   }
   void handleEthIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfStatus(Sulvi::IntfId intfId);
   void releaseVanishedRoutedPort(SwitchIntfSm& sm);

   BridgingConfigSm& parent_;
   BridgingConfigInputs const& in_;
   Kem::HashMap<Bridging::Input::SwitchIntfConfig, Sulvi::IntfId> switchIntfConfigAfterCodef_;
   SwitchIntfSms switchIntfSm_;
   Kem::Ptr<SwitchIntfConfigCodef> switchIntfConfigCodef_; // null before handleInitialized()
   KemEthIntfConfigDir kemEthIntfConfigDir_{*this};
   KemEthIntfStatusDir kemEthIntfStatusDir_{*this};
};

} // namespace Vorn
