// The roles of VLANs, who names whom as its primary, and whose members have to be worked out again because of
// that.
//
// Whether a port is a member of a VLAN, and how, can depend on the role, the state and the existence of a
// second one: its primary, or a VLAN that names it. So when one of these changes, the VLAN itself, its
// primary and those that name it are marked, and the hook is called. Names count whatever the types of the
// VLANs are and whether they exist: a primary may come after its secondaries, or be none at all.
//
// Nothing is synced here: PrivateVlans takes the marks in a later turn. Owned by ResolvedVlans, which calls
// it for each change that it writes or hears of; PrimaryVlanSm marks the pairs that the library tells of. Once the
// marks are taken there are none until the next change.
#pragma once

#include "VornUtils/VlanIdSet.h"
#include "records/Bridging/types.h"

#include <functional>
#include <map>
#include <utility>

namespace Vorn {

class VlanRelations {
  public:
   // Called at the first mark after the marks were taken.
   void markHookIs(std::function<void()> hook) { markHook_ = std::move(hook); }

   using Role = Bridging::VlanTypeAndPrimaryVlan;
   // The role of the VLAN; that of a plain one when it goes. Where it is another than before, the VLAN is
   // marked, and its relatives by both roles.
   void roleIs(Bridging::VlanId vlanId, Role const& role);
   // Whether the VLAN names that primary.
   bool names(Bridging::VlanId vlanId, Bridging::VlanId primary) const;
   // Calls visit(VlanId) for each VLAN that names the primary, the smallest first.
   template <class Visit>
   void forEachNaming(Bridging::VlanId primary, Visit&& visit) const {
      if (auto const found = naming_.find(primary); found != naming_.end())
         found->second.forEach([&](uint16_t vlanId) { visit(Bridging::VlanId(vlanId)); });
   }

   // Has the members of the VLAN worked out again.
   void mark(Bridging::VlanId vlanId);
   // Marks the VLAN, its primary and those that name it; nothing when it has neither.
   void markRelatives(Bridging::VlanId vlanId);
   // The marks since the last call.
   VornUtils::VlanIdSet takeMarked() { return std::exchange(marked_, {}); }

  private:
   Bridging::VlanIdOrNone primary(Bridging::VlanId vlanId) const; // that it names; 0 for none

   std::map<Bridging::VlanId, Role> role_;                   // of each VLAN that isn't a plain one
   std::map<Bridging::VlanId, VornUtils::VlanIdSet> naming_; // by the primary that they name
   VornUtils::VlanIdSet marked_;
   std::function<void()> markHook_;
};

} // namespace Vorn
