// Whether a routed port may have an internal VLAN, and which number is free for one.
//
// Functions of the records alone; they reserve nothing. Who holds which number is kept by the agent.
#pragma once

#include "records/Bridging/Config.h"
#include "records/Interface/EthIntfConfig.h"
#include "records/Interface/EthIntfStatus.h"

namespace Vorn {

// What keeps a routed port from an internal VLAN; the first that applies.
enum class InternalVlanObstacle : uint8_t {
   none,
   notConfigured, // the interface has no configuration
   shutDown,      // by configuration
   noStatus,      // the interface manager doesn't know it
   notRouted,     // its forwarding model is another one
};

// Both may be null.
InternalVlanObstacle internalVlanObstacle(Interface::EthIntfConfig const* config,
                                          Interface::EthIntfStatus const* status);

// Whether the interface is shut down by its configuration.
bool isShutDown(Interface::EthIntfConfig const& config);

// Whether the interface is in the routed forwarding model.
bool hasRoutedForwardingModel(Interface::EthIntfStatus const& status);

// The first free number of the range, in the order that the policy sets; 0 when there is none, or when the
// range is upside down. A number is free when no VLAN of it is resolved and hasVlanIntf(vlanId) is false. A
// range that includes 0 or 4095 raises a range exception when the walk gets there.
template <class HasVlanIntf>
Bridging::VlanIdOrNone freeInternalVlan(Bridging::Config const& config, HasVlanIntf&& hasVlanIntf) {
   auto const range = config.internalVlanRange();
   bool const isAscending =
       config.internalVlanAllocationPolicy() == Bridging::InternalVlanAllocationPolicy::ascending;
   if (range.min > range.max)
      return 0;
   uint32_t const count = uint32_t(range.max) - range.min + 1;
   for (uint32_t i = 0; i < count; ++i) {
      Bridging::VlanId const vid(static_cast<uint16_t>(isAscending ? range.min + i : range.max - i));
      if (!config.vlanConfig().find(vid) && !hasVlanIntf(vid))
         return Bridging::VlanIdOrNone(vid);
   }
   return 0;
}

} // namespace Vorn
