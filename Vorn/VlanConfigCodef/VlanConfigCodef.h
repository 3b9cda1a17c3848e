// The deferred stage of VLANs: between the chosen input (BridgingConfigSm::configIn) and the VLANs'
// state machines.
//
// A VLAN that appears, vanishes or is replaced goes through the backlog; a slice then makes the copy
// (vlanConfigAfterCodef) that VlanConfigSm follows. Once the copy exists, VlanConfigEntrySm mirrors later
// changes of the input to it at once. A VLAN whose copy equals a newly chosen input only has its entry moved
// to that input: VlanConfigSm sees nothing. Owned by StaticVlans, which holds the copies too.
#pragma once

#include "Ulm/Backlog.h"
#include "Ulm/CodefBase.h"
#include "Vorn/VlanConfigCodef/VlanConfigEntrySm.h"
#include "records/Bridging/Input/Config.h"

namespace Vorn {

class VlanConfigOutput;

class VlanConfigCodef final : public Ulm::CodefBase {
  public:
   // `configIn` may be null: no VLANs.
   VlanConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                   Kem::Ptr<Bridging::Input::Config const> const& configIn, VlanConfigOutput& configOut);
   // Asserts "!initialized()". Does not walk the input: the first handleVlanConfig() does.
   void handleInitialized() override;

   uint64_t backlogSize() const override { return backlog_.size(); }
   uint64_t processBacklog(Kem::Seconds const& startTime) override;

   // Another input has been chosen, or the chosen one has to be looked at as a whole.
   void handleVlanConfig();
   void handleVlanConfig(Bridging::VlanId vlanId);

   Kem::Ptr<Bridging::Input::Config const> configIn() const { return kemConfigIn_.notifier(); }
   Ulm::Backlog<Bridging::VlanId> const& backlog() const { return backlog_; }
   void backlogDelAll() { backlog_.delAll(); }
   Kem::Ptr<VlanConfigEntrySm> vlanConfigEntrySm(Bridging::VlanId vlanId) const; // null when there is none
   // Finds or makes the VLAN's entry. Other records than those of an existing entry raise a range exception:
   // it has to be deleted first.
   Kem::Ptr<VlanConfigEntrySm> vlanConfigEntrySmIs(Bridging::VlanId vlanId,
                                                   Kem::Ptr<Bridging::Input::VlanConfig const> const& in,
                                                   Kem::Ptr<Bridging::Input::VlanConfig> const& out);
   void vlanConfigEntrySmDel(Bridging::VlanId vlanId) { childDel(vlanConfigEntrySm_, vlanId); }

  private:
   // --- Reactions.
   struct KemConfigIn final : Bridging::Input::Config::NotifieeConst {
      explicit KemConfigIn(VlanConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onVlanConfig(Bridging::VlanId vlanId) override { codef.handleVlanConfig(vlanId); }
      VlanConfigCodef& codef;
   };

   void forEachPart(Kem::PartVisitor const& visit) override {
      CodefBase::forEachPart(visit);
      visit(kemConfigIn_, vlanConfigEntrySm_);
   }

   // --- Helpers.
   void recreateEntry(Bridging::VlanId vlanId, Kem::Ptr<Bridging::Input::VlanConfig const> const& in,
                      Kem::Ptr<Bridging::Input::VlanConfig> const& out);
   void backlogAdd(Bridging::VlanId vlanId);
   void backlogDel(Bridging::VlanId vlanId);
   uint64_t doEntry(Bridging::VlanId vlanId); // returns 1, or 2 for a replacement

   VlanConfigOutput& configOut_;
   Kem::HashMap<VlanConfigEntrySm, Bridging::VlanId> vlanConfigEntrySm_;
   Ulm::Backlog<Bridging::VlanId> backlog_{1};
   KemConfigIn kemConfigIn_{*this};
};

// Whether both ask for the same: name, state, role and trunk groups.
bool compareVlans(Bridging::Input::VlanConfig const& a, Bridging::Input::VlanConfig const& b);
// Whether both have the same trunk groups with the same values; a group that the second lacks counts as
// false there.
bool compareVlanTrunkGroups(Bridging::Input::VlanConfig const& a, Bridging::Input::VlanConfig const& b);
// Puts the source's trunk groups into the destination, and removes none there.
void copyVlanTrunkGroups(Bridging::Input::VlanConfig const& source, Bridging::Input::VlanConfig& destination);

} // namespace Vorn
