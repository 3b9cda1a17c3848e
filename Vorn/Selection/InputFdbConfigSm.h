// The static hosts and groups of one VLAN in one input, merged with those of the other inputs.
//
// There is one for each input and VLAN of which the input holds a Bridging::Input::FdbConfig. All those of a
// VLAN write into one merged record, address by address: each writes what its own input wins, and resolves an
// address over all inputs when its own loses it. Who wins is findBestFdbConfig's rule; nobody watches
// fdbConfigPriority, so a change of it counts from the next evaluation of an address on.
//
// A group comes from one input at a time. When another one takes it over because the winner gave it up, that
// one's members are added and the former ones stay, until the winner's group is looked at as a whole.
//
// An address that is a host in one input and a group in another is what the best input says, and the merged
// record has no other kind of it. FdbContradictions names the publishers.
//
// Owned by the reactor on its input (InputSelectorSm::KemConfig). A record that is no longer in the tree is
// not evaluated: its removal, which is on its way, resolves everything again.
#pragma once

#include "Kem/StateMachine.h"
#include "Vorn/Rules/BestInput.h"
#include "records/Bridging/EthGroup.h"

namespace Vorn {

class FdbContradictions;

class InputFdbConfigSm final : public Kem::StateMachine {
  public:
   using FdbConfig = Bridging::Input::FdbConfig;
   using Input = Bridging::Input::Config;

   InputFdbConfigSm(Kem::Ptr<FdbConfig const> const& fdbConfigIn, Bridging::VlanId vlanId,
                    Kem::Ptr<Kem::Dir const> inputDir, Kem::Ptr<Input const> inputConfig,
                    Kem::Ptr<FdbConfig> fdbConfig, FdbContradictions& contradictions);
   // Other records than those at hand: all is evaluated again. `fdbConfig` is the merged one.
   void fdbConfigInIs(Kem::Ptr<FdbConfig const> const& fdbConfigIn, Kem::Ptr<Input const> const& inputConfig,
                      Kem::Ptr<FdbConfig> const& fdbConfig);
   // The input holds the VLAN no more: what others hold of it is resolved again.
   void doPrepareToDie() override;

   // The members of one group of the input.
   struct KemEthGroup final : Bridging::EthGroup::NotifieeConst {
      explicit KemEthGroup(InputFdbConfigSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { handleIntf(); }
      void onIntf(Sulvi::IntfId intfId) override { handleIntf(intfId); }
      void onIntfkemImmediate() override { handleIntf(); }

      void handleIntf(Sulvi::IntfId intfId);
      void handleIntf(); // also takes away what the input's group lacks
      void doConfigureIntf(Input const& bic, Sulvi::IntfId intfId); // asserts "bestConfig"
      void doRemoveIntf(Input const& bic, Sulvi::IntfId intfId);
      bool isCurrent() const;
      InputFdbConfigSm& sm;
   };
   Kem::Ptr<KemEthGroup> ethGroup(Sulvi::EthAddr addr) const; // null when there is none
   // Follows the group; one that is followed already is kept. Null raises a range exception.
   void ethGroupIs(Kem::Ptr<Bridging::EthGroup const> const& ethGroup);

   // --- Hosts. Each asserts what the input or the best one has to hold.
   void doConfigureHost(Input const& bic, Bridging::ConfiguredHost const& host);
   void doRemoveHost(Sulvi::EthAddr addr);
   void doConfigureAllHosts();
   void doRemoveAllStaleHosts();
   // --- Groups.
   void doConfigureGroup(Input const& bic, Bridging::EthGroup const& group);
   void doResyncGroup(Sulvi::EthAddr addr);
   void doConfigureAllGroups();
   void doRemoveAllStaleGroups();

  private:
   // --- Reactions.
   struct KemFdbConfigIn final : FdbConfig::NotifieeConst {
      explicit KemFdbConfigIn(InputFdbConfigSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleFdbConfigIn(); }
      void onConfiguredHost(Sulvi::EthAddr addr) override { sm.handleConfiguredHost(addr); }
      void onConfiguredHostkemImmediate() override { sm.handleConfiguredHost(); }
      void onEthGroup(Sulvi::EthAddr addr) override { sm.handleEthGroup(addr); }
      void onEthGroupkemImmediate() override { sm.handleEthGroup(); }
      InputFdbConfigSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override { visit(kemFdbConfigIn_, ethGroup_); }
   void handleFdbConfigIn();
   void handleConfiguredHost(Sulvi::EthAddr addr);
   void handleConfiguredHost();
   void handleConfiguredGroup(Sulvi::EthAddr addr);
   void handleConfiguredGroup();
   void handleEthGroup(Sulvi::EthAddr addr);
   void handleEthGroup();

   // --- Helpers.
   // Whether the record is in the tree, under an input that is.
   bool isCurrent() const;
   FdbInputs fdbInputs() const { return {*inputDir_, vlanId_}; }
   void doConfigureHost(FdbInputs const& inputs, Input const& bic, Bridging::ConfiguredHost const& host);
   void doRemoveHost(FdbInputs const& inputs, Sulvi::EthAddr addr);
   void doConfigureGroup(FdbInputs const& inputs, Input const& bic, Bridging::EthGroup const& group);
   void doResyncGroup(FdbInputs const& inputs, Sulvi::EthAddr addr);
   // Sees to it that the merged record has a multicast address as one kind only, that of the best input.
   void doSettleKind(FdbInputs const& inputs, Sulvi::EthAddr addr);
   // Follows the members of the input's group, or follows them no more.
   void syncEthGroup(Sulvi::EthAddr addr);

   Kem::Ptr<FdbConfig const> fdbConfigIn_;
   Bridging::VlanId const vlanId_;
   Kem::Ptr<Kem::Dir const> const inputDir_;
   Kem::Ptr<Input const> inputConfig_; // holds fdbConfigIn_
   Kem::Ptr<FdbConfig> fdbConfig_;     // the merged record
   FdbContradictions& contradictions_;
   Kem::HashMap<KemEthGroup, Sulvi::EthAddr> ethGroup_;
   KemFdbConfigIn kemFdbConfigIn_{*this};
};

Kem::Ptr<InputFdbConfigSm> inputFdbConfigSmFactory(
    Kem::Ptr<Bridging::Input::FdbConfig const> const& fdbConfigIn, Bridging::VlanId vlanId,
    Kem::Ptr<Kem::Dir const> const& inputDir, Kem::Ptr<Bridging::Input::Config const> const& inputConfig,
    Kem::Ptr<Bridging::Input::FdbConfig> const& fdbConfig, FdbContradictions& contradictions);

} // namespace Vorn
