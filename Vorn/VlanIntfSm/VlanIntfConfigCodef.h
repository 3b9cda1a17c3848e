// The deferred stage of VLAN interfaces: it picks one configuration for each interface and hands it to
// VlanIntfSm, in slices.
//
//    interface/config/eth/vlan ──┐
//                                ├──► backlog ──slice──► vlanIntfConfigAfterCodef ──► KemVlanIntfConfig
//    DynVlanIntfList ────────────┘
//
// The static configuration wins over the dynamic one; a dynamic request that loses is marked in the list. What
// is handed on is the record itself, not a copy: its attributes are followed directly. Names that are no VLAN
// interface's are left out and named once: "Vlan0", "Vlan4095", "Vlan10x". Owned by VlanIntfSm.
#pragma once

#include "Ulm/Backlog.h"
#include "Ulm/CodefBase.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Vorn/DynVlanIntfList.h"

namespace Vorn {

class VlanIntfSm;

class VlanIntfConfigCodef final : public Ulm::CodefBase {
  public:
   // `configIn` and `dynVlanIntfList` may be null.
   VlanIntfConfigCodef(Kem::Ptr<Kem::Clock const> const& clock,
                       Kem::Ptr<Interface::VlanIntfConfigDir const> const& configIn,
                       Kem::Ptr<DynVlanIntfList> const& dynVlanIntfList, VlanIntfSm& parent);
   // Takes in everything.
   void handleInitialized() override;

   uint64_t backlogSize() const override { return backlog_.size(); }
   uint64_t processBacklog(Kem::Seconds const& startTime) override;
   Sulvi::IntfId bookmark() const { return backlog_.bookmark(); }

  private:
   // --- Reactions.
   struct KemConfigIn final : Interface::VlanIntfConfigDir::NotifieeConst {
      explicit KemConfigIn(VlanIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { codef.handleVlanIntfConfig(intfId); }
      VlanIntfConfigCodef& codef;
   };
   struct KemDynVlanIntfList final : DynVlanIntfList::NotifieeConst {
      explicit KemDynVlanIntfList(VlanIntfConfigCodef& c) : NotifieeConst(this), codef(c) {}
      void onIntfConfig(Sulvi::IntfId intfId) override { codef.handleVlanIntfConfig(intfId); }
      VlanIntfConfigCodef& codef;
   };
   void forEachPart(Kem::PartVisitor const& visit) override {
      CodefBase::forEachPart(visit);
      visit(kemConfigIn_, kemDynVlanIntfList_);
   }
   void handleVlanIntfConfig(Sulvi::IntfId intfId);
   void handleVlanIntfConfig();

   // --- Helpers.
   Kem::Ptr<Interface::VlanIntfConfig const> configured(Sulvi::IntfId intfId) const;
   Kem::Ptr<Interface::VlanIntfConfig const> dynamic(Sulvi::IntfId intfId) const;
   void doEntry(Sulvi::IntfId intfId);

   Kem::Ptr<DynVlanIntfList> const dynVlanIntfList_;
   VlanIntfSm& parent_;
   Ulm::Backlog<Sulvi::IntfId> backlog_;
   KemConfigIn kemConfigIn_{*this};
   KemDynVlanIntfList kemDynVlanIntfList_{*this};
};

Kem::Ptr<VlanIntfConfigCodef>
vlanIntfConfigCodefFactory(Kem::Ptr<Kem::Clock const> const& clock,
                           Kem::Ptr<Interface::VlanIntfConfigDir const> const& configIn,
                           Kem::Ptr<DynVlanIntfList> const& dynVlanIntfList, VlanIntfSm& parent);

// Whether an interface of that name can be a VLAN interface: "Vlan1" to "Vlan4094".
bool isUsableVlanIntfId(Sulvi::IntfId intfId);

} // namespace Vorn
