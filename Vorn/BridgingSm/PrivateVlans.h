// Private VLANs and the mapping of VLAN interfaces: makes a child for each primary VLAN that the library
// knows (PrimaryVlanSm) and for each mapping of the command line's input (SviMappingSm), and has the members
// worked out again of VLANs whose relation to others has changed (VlanRelations.h).
//
// The library (PrivateVlanLib::LibState) knows the pairs that count. Membership asks for more: for the roles
// of two VLANs, whether or not they make a pair. So both are followed. Owned by BridgingConfigSm.
#pragma once

#include "Kem/Clock.h"
#include "Kem/Collections.h"
#include "Kem/StateMachine.h"
#include "Vorn/BridgingSm/PrimaryVlanSm.h"
#include "Vorn/BridgingSm/SviMappingSm.h"
#include "records/Bridging/Config.h"
#include "records/Bridging/Input/CliConfig.h"
#include "records/PrivateVlanLib/LibState.h"

namespace Vorn {

class BridgingConfigSm;

// The primary of a VLAN that is one of its secondaries, both resolved; null for any other VLAN.
Kem::Ptr<Bridging::VlanConfig> primaryOf(PrivateVlanLib::LibState const& libState,
                                         Bridging::Config const& config, Bridging::VlanId vlanId);

class PrivateVlans final : public Kem::StateMachine {
  public:
   // `privateVlanLibState` and `cliConfig` are those of the parent.
   PrivateVlans(BridgingConfigSm& parent, Kem::Ptr<PrivateVlanLib::LibState const> const& privateVlanLibState,
                Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);
   // Makes a child for each primary VLAN. A later step of the start calls handleSviMapping().
   void handleInitialized() override;
   // Another input of the command line: its mappings replace those of the old one.
   void cliConfigIs(Kem::Ptr<Bridging::Input::CliConfig const> const& cliConfig);
   // Resolved mappings may have been made again by somebody else, and are written from now on.
   void handleOutMadeAgain();
   // All mappings; those that the input lacks go.
   void handleSviMapping();

   // Null when there is none.
   Kem::Ptr<PrimaryVlanSm> primaryVlanSm(Bridging::VlanId vlanId) const;
   Kem::Ptr<SviMappingSm> sviMappingSm(Bridging::VlanId vlanId) const;

  private:
   // --- Reactions.
   struct KemPrivateVlanLibState final : PrivateVlanLib::LibState::NotifieeConst {
      explicit KemPrivateVlanLibState(PrivateVlans& s) : NotifieeConst(this), sm(s) {}
      void onPrimaryVlan(Bridging::VlanId vlanId) override { sm.handlePrivateVlanLibState(vlanId); }
      PrivateVlans& sm;
   };
   struct KemCliConfig final : Bridging::Input::CliConfig::NotifieeConst {
      explicit KemCliConfig(PrivateVlans& s) : NotifieeConst(this), sm(s) {}
      void onSviMapping(Bridging::VlanId vlanId) override { sm.handleSviMapping(vlanId); }
      PrivateVlans& sm;
   };
   struct KemMarks final : Kem::Clock::NotifieeConst {
      explicit KemMarks(PrivateVlans& s) : sm(s) {}
      void onTime() override { sm.handleMarks(); }
      PrivateVlans& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemPrivateVlanLibState_, kemCliConfig_, kemMarks_, primaryVlanSm_, sviMappingSm_);
   }
   void handlePrivateVlanLibState(Bridging::VlanId vlanId);
   void handleSviMapping(Bridging::VlanId vlanId); // asserts "initialized()"
   void handleMarks();

   // --- Helpers.
   void primaryVlanSmIs(Bridging::VlanId vlanId,
                        Kem::Ptr<PrivateVlanLib::PrimaryVlanState const> const& state);
   void primaryVlanSmDel(Bridging::VlanId vlanId);

   BridgingConfigSm& parent_;
   Kem::HashMap<PrimaryVlanSm, Bridging::VlanId> primaryVlanSm_;
   Kem::HashMap<SviMappingSm, Bridging::VlanId> sviMappingSm_;
   bool areCpuPortsOpen_ = false; // all are to be brought in step
   KemPrivateVlanLibState kemPrivateVlanLibState_{*this};
   KemCliConfig kemCliConfig_{*this};
   KemMarks kemMarks_{*this};
};

} // namespace Vorn
