// The VLAN interfaces of the switch, which another agent configured or a dynamic source asked for. For the
// resolved configuration both are the same: the number is no longer free for an internal VLAN, and the CPU
// port becomes a member of the VLAN.
#pragma once

#include "records/Bridging/types.h"
#include "records/Interface/VlanIntfConfig.h"
#include "records/Interface/VlanIntfConfigDir.h"
#include "records/Vorn/DynVlanIntfList.h"

namespace Vorn {

// The name of the VLAN interface of that number: "Vlan" and the number.
Sulvi::IntfId vlanIntfIdOf(uint32_t vlanId);

class VlanInterfaces {
  public:
   // `configured` may be null; `dynamic` may be null only as long as nothing is looked up.
   VlanInterfaces(Kem::Ptr<Interface::VlanIntfConfigDir const> configured,
                  Kem::Ptr<DynVlanIntfList const> dynamic)
       : configured_(std::move(configured)), dynamic_(std::move(dynamic)) {}

   // The configured one, or else the dynamic one; null when there is neither.
   Kem::Ptr<Interface::VlanIntfConfig const> find(Sulvi::IntfId intfId) const;
   Kem::Ptr<Interface::VlanIntfConfig const> find(Bridging::VlanId vlanId) const {
      return find(vlanIntfIdOf(vlanId));
   }

  private:
   Kem::Ptr<Interface::VlanIntfConfigDir const> const configured_;
   Kem::Ptr<DynVlanIntfList const> const dynamic_;
};

} // namespace Vorn
