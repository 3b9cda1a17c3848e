// Reduces what the publishers ask for to one intended configuration.
//
// Every publisher owns one Bridging::Input::Config in the input directory. The whole input with the greatest
// vlanConfigPriority gives all VLANs (BridgingConfigSm::configIn). Each port is decided by itself: the input
// with the greatest switchIntfConfigPriority among those that hold a record for it wins. An input with the
// priority 0 takes no part; on a tie the input that comes first in the directory, by name, wins. Static hosts
// and groups are merged address by address, by another rule (InputFdbConfigSm). Settings for the whole bridge
// come from the command line's input only.
//
// It also writes one input of its own, bridgingInputEth: a default record for each port that can be a
// switchport, so that each has one although nobody configured it.
//
// Selection is synchronous: when a priority changes, all that follows has been written before the next
// notification. The agent makes it after BridgingConfigSm, and owns it. `cliConfig` and `fdbConfigDir` must
// be there; `bridgingHwCapabilities` may be null.
#pragma once

#include "Kem/Dir.h"
#include "Kem/StateMachine.h"
#include "Vorn/Selection/FdbContradictions.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/FdbConfigDir.h"
#include "records/Bridging/HwCapabilities.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/Bridging/Input/Config.h"
#include "records/Bridging/SwitchIntfConfigDir.h"
#include "records/Interface/EthIntfConfigDir.h"

namespace Vorn {

class BridgingConfigSm;

struct InputSelectorInputs {
   Kem::Ptr<Kem::Dir const> inputDir; // the publishers' inputs
   Kem::Ptr<BridgingConfigSm> bridgingConfigSm;
   Kem::Ptr<Interface::EthIntfConfigDir const> ethIntfConfigDir; // null: no interfaces
   Kem::Ptr<Bridging::Input::Config> bridgingInputEth;           // default records, written here
   Kem::Ptr<Bridging::SwitchIntfConfigDir>
       allSwitchIntfConfigDir;                    // the best record of each port, written here
   Kem::Ptr<Bridging::FdbConfigDir> fdbConfigDir; // the merged hosts and groups of each VLAN, written here
   Kem::Ptr<Bridging::Config> bridgingConfig;     // the settings for the whole bridge are written here
   Kem::Ptr<Bridging::Input::CliConfig const> cliConfig;
   Kem::Ptr<Bridging::HwCapabilities const> bridgingHwCapabilities;
};

class InputSelectorSm final : public Kem::StateMachine {
  public:
   explicit InputSelectorSm(InputSelectorInputs inputs);
   ~InputSelectorSm() override;

   struct KemConfig; // the reactor on one input, see InputSelectorConfig.h

   // The reactor on the input of that name; null when there is none.
   Kem::Ptr<KemConfig> config(Kem::Name const& name) const;
   // Follows the input under its name; one that is followed already keeps its reactor. When another entity
   // has taken the name, the reactor follows that one, and the ports of the old one are decided again. Null
   // raises a range exception.
   void configIs(Kem::Ptr<Bridging::Input::Config const> const& config);
   void configDel(Kem::Name const& name);
   Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig() const { return in_.cliConfig; }
   // Takes the settings of the whole bridge from this input from now on, here and in BridgingConfigSm.
   void cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);

  private:
   // --- Reactions.
   struct KemInputDir final : Kem::Dir::NotifieeConst {
      explicit KemInputDir(InputSelectorSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleInput(); }
      void onEntityPtr(Kem::Name const& name) override { sm.handleInput(name); }
      void onEntityPtrkemImmediate() override { sm.handleInput(); }
      InputSelectorSm& sm;
   };
   struct KemEthIntfConfigDir final : Interface::EthIntfConfigDir::NotifieeConst {
      explicit KemEthIntfConfigDir(InputSelectorSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleEthIntfConfig(); }
      void onIntfConfig(Sulvi::IntfId intfId) override { sm.handleEthIntfConfig(intfId); }
      void onIntfConfigkemImmediate() override { sm.handleEthIntfConfig(); }
      InputSelectorSm& sm;
   };
   struct KemCliConfig final : Bridging::Input::CliConfig::NotifieeConst {
      explicit KemCliConfig(InputSelectorSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override;
      void onHostAgingTime() override { sm.handleHostAgingTime(); }
      void onPausePassThrough() override { sm.handlePausePassThrough(); }
      void onForwardingMode() override { sm.handleForwardingMode(); }
      void onInternalVlanAllocationPolicy() override { sm.handleInternalVlanAllocationPolicy(); }
      void onInternalVlanRange() override { sm.handleInternalVlanRange(); }
      InputSelectorSm& sm;
   };
   struct KemBridgingHwCapabilities final : Bridging::HwCapabilities::NotifieeConst {
      explicit KemBridgingHwCapabilities(InputSelectorSm& s) : NotifieeConst(this), sm(s) {}
      void handleInitialized() override { sm.handleForwardingMode(); }
      void onSupportedForwardingMode(uint32_t) override { sm.handleForwardingMode(); }
      void onSupportedForwardingModekemImmediate() override { sm.handleForwardingMode(); }
      InputSelectorSm& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override;
   void handleInput();
   void handleInput(Kem::Name const& name);
   void handleSwitchIntfPriority(Bridging::Input::Config const& input);
   void handleSwitchIntfConfig(Sulvi::IntfId intfId);
   void handleEthIntfConfig();
   void handleEthIntfConfig(Sulvi::IntfId intfId);
   void handleHostAgingTime();
   void handlePausePassThrough();
   void handleForwardingMode();
   void handleInternalVlanAllocationPolicy();
   void handleInternalVlanRange();

   // --- Helpers.
   void doFindBestVlanConfig();
   void doFindBestSwitchIntfConfigs();
   // At the start, after the selection: deletes ports that lost their last record while no agent was running,
   // as a running agent would have. While it runs, the port of an input that vanished stays until it is
   // decided again.
   void doForgetUnheldPorts();
   // At the start, after the selection: deletes merged records that no input holds.
   void doForgetUnheldFdbConfigs();
   bool isInTree(Bridging::Input::Config const& input) const;
   bool isFdbConfigHeld(Bridging::VlanId vlanId) const; // by any input
   // Delivers the notifications that are still pending for the reactor. Changes that an input made before it
   // was removed count, even if the removal is noticed first.
   static void doDeliverRest(KemConfig& reactor);
   bool isEligible(Sulvi::IntfId intfId) const;
   void defaultSwitchIntfConfigIs(Sulvi::IntfId intfId);

   InputSelectorInputs in_;
   FdbContradictions fdbContradictions_;
   Kem::RbTreeMap<KemConfig, Kem::Name> config_;
   KemInputDir kemInputDir_{*this};
   KemEthIntfConfigDir kemEthIntfConfigDir_{*this};
   KemCliConfig kemCliConfig_{*this};
   KemBridgingHwCapabilities kemBridgingHwCapabilities_{*this};
};

Kem::Ptr<InputSelectorSm> inputSelectorSmFactory(InputSelectorInputs inputs);

} // namespace Vorn
