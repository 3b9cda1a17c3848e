#include "Vorn/Rules/VlanIntfStatus.h"

#include "records/Bridging/VlanStatus.h"
#include "records/Interface/VlanIntfConfig.h"

namespace Vorn {

using Interface::IntfOperStatus;

VlanIntfRow vlanIntfRow(VlanIntfFacts const& facts) {
   if (!facts.hasConfig)
      return VlanIntfRow::noConfig;
   if (!facts.enabled)
      return VlanIntfRow::notEnabled;
   if (facts.isSecondary)
      return VlanIntfRow::secondaryVlan;
   if (!facts.hasVlanStatusDir)
      return VlanIntfRow::noVlanStatusDir;
   if (facts.isForwardable)
      return VlanIntfRow::forwardable;
   if (!facts.autoState)
      return VlanIntfRow::ownAutoStateOff;
   return facts.allAutoState ? VlanIntfRow::noForwardingPort : VlanIntfRow::allAutoStateOff;
}

IntfOperStatus operStatusOf(VlanIntfRow row) {
   switch (row) {
   case VlanIntfRow::noConfig:
      return IntfOperStatus::intfOperUnknown;
   case VlanIntfRow::notEnabled:
   case VlanIntfRow::secondaryVlan:
      return IntfOperStatus::intfOperDown;
   case VlanIntfRow::forwardable:
   case VlanIntfRow::ownAutoStateOff:
   case VlanIntfRow::allAutoStateOff:
      return IntfOperStatus::intfOperUp;
   case VlanIntfRow::noVlanStatusDir:
   case VlanIntfRow::noForwardingPort:
      break;
   }
   return IntfOperStatus::intfOperLowerLayerDown;
}

char const* reasonOf(VlanIntfRow row) {
   switch (row) {
   case VlanIntfRow::noConfig:
      return "has no configuration yet";
   case VlanIntfRow::notEnabled:
      return "is shut down";
   case VlanIntfRow::secondaryVlan:
      return "belongs to a secondary VLAN; the interface of its primary VLAN serves it";
   case VlanIntfRow::noVlanStatusDir:
      return "waits for spanning tree: nothing is known of forwarding ports yet";
   case VlanIntfRow::forwardable:
      return "has a forwarding port in its VLAN";
   case VlanIntfRow::ownAutoStateOff:
      return "is up without a forwarding port in its VLAN: autostate of the interface is off";
   case VlanIntfRow::allAutoStateOff:
      return "is up without a forwarding port in its VLAN: autostate of all VLAN interfaces is off";
   case VlanIntfRow::noForwardingPort:
      break;
   }
   return "has no forwarding port in its VLAN, other than the CPU's, and autostate is on";
}

bool isVlanForwardable(Bridging::VlanStatusDir const& vlanStatusDir, Bridging::VlanId vlanId) {
   auto const* const found = vlanStatusDir.vlanStatus().find(vlanId);
   if (!found)
      return false;
   auto const& ports = (*found)->vlanPortStatus();
   return ports.size() > (ports.find(Sulvi::IntfId("Cpu")) ? 1 : 0);
}

VlanIntfFacts vlanIntfFacts(Interface::IntfConfig const* config, Bridging::VlanId vlanId,
                            Bridging::VlanStatusDir const* vlanStatusDir,
                            PrivateVlanLib::LibState const* libState,
                            Interface::AllVlanIntfAutoState const* allVlanIntfAutoState) {
   // The reference may lead to any kind of configuration: one that isn't a VLAN interface's has no autostate, and
   // the default holds.
   auto const* const vlanIntfConfig = dynamic_cast<Interface::VlanIntfConfig const*>(config);
   return {
       .hasConfig = config != nullptr,
       .enabled = config && config->enabled(),
       .autoState = !vlanIntfConfig || vlanIntfConfig->autoState(),
       .isSecondary = libState && libState->secondaryVlan().find(vlanId),
       .hasVlanStatusDir = vlanStatusDir != nullptr,
       .isForwardable = vlanStatusDir && isVlanForwardable(*vlanStatusDir, vlanId),
       .allAutoState = !allVlanIntfAutoState || allVlanIntfAutoState->autoState(),
   };
}

} // namespace Vorn
