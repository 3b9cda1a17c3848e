// VLANs and trunk groups that dynamic sources give to ports, beside what the ports' own inputs say. Here are the
// sources' state machines; each port merges what they publish (SwitchIntfSm).
//
// Owned by BridgingConfigSm.
#pragma once

#include "Kem/Collections.h"
#include "Kem/Dir.h"
#include "Vorn/BridgingSm/DynAllowedVlanSm.h"

#include <vector>

namespace Vorn {

class DynAllowedVlans final : public Kem::StateMachine {
  public:
   using DynAllowedVlanSms = Kem::RbTreeMap<DynAllowedVlanSm, Kem::String8>; // by the name of the source

   // `dynAllowedVlanDir` may be null: no sources.
   DynAllowedVlans(BridgingConfigSm& parent, Kem::Ptr<Kem::Dir const> const& dynAllowedVlanDir);
   void handleInitialized() override;

   DynAllowedVlanSms const& dynAllowedVlanSm() const { return dynAllowedVlanSm_; }
   Kem::Ptr<DynAllowedVlanSm> dynAllowedVlanSm(Kem::String8 const& name) const; // null when there is none
   // Makes the child, or has the existing one follow another record.
   void dynAllowedVlanSmIs(Kem::String8 const& name,
                           Kem::Ptr<Bridging::Input::AllowedVlans const> const& allowedVlans);
   void dynAllowedVlanSmDel(Kem::String8 const& name); // nothing when there is none

   // Which sources list the port, in no order; null when none does. So that a port needn't ask them all.
   using Sources = std::vector<DynAllowedVlanSm const*>;
   Sources const* sourcesOf(Sulvi::IntfId intfId) const { return sourcesOf_.find(intfId); }
   void listingIs(Sulvi::IntfId intfId, DynAllowedVlanSm const& source);
   void listingDel(Sulvi::IntfId intfId, DynAllowedVlanSm const& source);
   void listingDel(DynAllowedVlanSm const& source); // of all ports

   // Which sources have a trunk group of that name, in no order; null when none has. A port that loses a group asks
   // them alone: with all sources, a thousand of them that go would ask a million times on each port.
   Sources const* sourcesOfGroup(Kem::String8 const& name) const { return sourcesOfGroup_.find(name); }
   void groupIs(Kem::String8 const& name, DynAllowedVlanSm const& source);
   void groupDel(Kem::String8 const& name, DynAllowedVlanSm const& source);

   // Every port computes its allowed VLANs again.
   void handleTrunkAllowedVlans();

  private:
   // --- Reactions.
   struct KemDynAllowedVlanDir final : Kem::Dir::NotifieeConst {
      explicit KemDynAllowedVlanDir(DynAllowedVlans& s) : NotifieeConst(this), sm(s) {}
      void onEntityPtr(Kem::Name const& name) override { sm.handleDynAllowedVlan(name); }
      void onEntityPtrkemImmediate() override { sm.handleDynAllowedVlan(); }
      DynAllowedVlans& sm;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      visit(kemDynAllowedVlanDir_, dynAllowedVlanSm_);
   }
   void handleDynAllowedVlan(Kem::Name const& name);
   void handleDynAllowedVlan();

   BridgingConfigSm& parent_;
   Kem::Ptr<Kem::Dir const> const dynAllowedVlanDir_;
   DynAllowedVlanSms dynAllowedVlanSm_;
   Kem::ValueMap<Sulvi::IntfId, Sources> sourcesOf_;
   Kem::ValueMap<Kem::String8, Sources> sourcesOfGroup_;
   KemDynAllowedVlanDir kemDynAllowedVlanDir_{*this};
};

} // namespace Vorn
