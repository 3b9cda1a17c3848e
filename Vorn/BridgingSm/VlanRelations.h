// Who names whom as its primary VLAN, and whose members have to be worked out again because of that.
//
// Whether a port is a member of a VLAN, and how, can depend on the role, the state and the existence of a
// second one: its primary, or a VLAN that names it. So when one of these changes, the VLAN itself, its
// primary and those that name it are marked, and the hook is called. Names count whatever the types of the
// VLANs are and whether they exist: a primary may come after its secondaries, or be none at all.
//
// Nothing is synced here: PrivateVlans takes the marks in a later turn. Owned by ResolvedVlans, which calls
// it for each change that it writes; once the marks are taken there are none until the next change.
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

   // The primary that the VLAN names; 0 for none. Marks nothing.
   void primaryIs(Bridging::VlanId vlanId, Bridging::VlanIdOrNone primary);
   // Whether the VLAN names that primary.
   bool names(Bridging::VlanId vlanId, Bridging::VlanId primary) const;
   // Calls visit(VlanId) for each VLAN that names the primary, the smallest first.
   template <class Visit>
   void forEachNaming(Bridging::VlanId primary, Visit&& visit) const {
      if (auto const found = naming_.find(primary); found != naming_.end())
         found->second.forEach([&](uint16_t vlanId) { visit(Bridging::VlanId(vlanId)); });
   }

   void mark(Bridging::VlanId vlanId);
   // Marks the VLAN, its primary and those that name it; nothing when it has neither.
   void markRelatives(Bridging::VlanId vlanId);
   // The marks since the last call.
   VornUtils::VlanIdSet takeMarked() { return std::exchange(marked_, {}); }

  private:
   std::map<Bridging::VlanId, Bridging::VlanId> primary_;    // of each VLAN that names one
   std::map<Bridging::VlanId, VornUtils::VlanIdSet> naming_; // the same, by primary
   VornUtils::VlanIdSet marked_;
   std::function<void()> markHook_;
};

} // namespace Vorn
