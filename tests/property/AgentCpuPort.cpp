// The processor's port as a member of VLANs. Whatever was before, and whoever came last: it follows from the
// resolved VLANs, the VLAN interfaces and the mappings of the moment.

#include "AgentModel.h"

namespace Model {

// The primary with which a VLAN makes a pair: it names it, and that one is a plain VLAN.
unsigned Agent::pairedPrimary(unsigned number) const {
   auto const& vlan = vlans_.at(number);
   bool const isSecondary = !vlan.internal && vlan.role.type != 0;
   return isSecondary && isPlain(vlan.role.primary) ? vlan.role.primary : 0;
}

bool Agent::hasCpuPort(unsigned number) const {
   auto const& vlan = vlans_.at(number);
   if (vlan.internal)
      return true; // of a routed port
   if (vlan.isSuspended)
      return false;
   unsigned const primary = pairedPrimary(number);
   if (primary == 0) {
      auto const* const config = vlanIntf("Vlan" + std::to_string(number));
      return config && config->isInUse();
   }
   auto const mapping = settings_.sviMappings.find(primary);
   bool const isServed = mapping == settings_.sviMappings.end() || mapping->second.servesAll ||
                         mapping->second.served.contains(number);
   return isServed && hasCpuPort(primary);
}

// The VLAN that a former life left to a port stays as it is until the port takes it up.
bool Agent::isCpuPortOpen(unsigned number) const {
   return edited_.contains(number) || startupRoutedPort_.contains(number) ||
          (vlans_.contains(number) && edited_.contains(pairedPrimary(number)));
}

} // namespace Model
