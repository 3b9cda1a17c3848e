#include "Vorn/BridgingSm/VlanInterfaces.h"

#include <string>

namespace Vorn {

Sulvi::IntfId vlanIntfIdOf(uint32_t vlanId) {
   return Sulvi::IntfId("Vlan" + std::to_string(vlanId));
}

Kem::Ptr<Interface::VlanIntfConfig const> VlanInterfaces::find(Sulvi::IntfId intfId) const {
   if (configured_)
      if (auto const configured = configured_->intfConfig(intfId))
         return configured;
   return dynamic_->intfConfig(intfId);
}

} // namespace Vorn
