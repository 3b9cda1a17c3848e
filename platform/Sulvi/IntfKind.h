// What kind of interface a name means, and the numbers in it. Each struct holds the questions about one
// kind; none of them looks at records, so an answer says nothing about whether the interface exists.
//
// The kinds exclude each other: "Ethernet3/1.100" is a subinterface and not an Ethernet port,
// "Vlan10.5" is a subinterface and not a VLAN interface. IntfId.h says which names are of which
// kind. No function here raises.
#pragma once

#include "Sulvi/IntfId.h"

#include <cstdint>
#include <optional>

namespace Sulvi {

struct EthIntfId {
   // First number of ports without a connector on the front panel, such as those that join two forwarding
   // chips or feed packets back into the pipeline. Ports with a connector are numbered by slot, port and
   // lane, far below.
   static constexpr uint32_t firstUnconnected = 65536;

   // "Ethernet" with a number and optional further levels: "Ethernet7", "Ethernet3/1".
   static bool isEthIntfId(IntfId id) { return id.kind() == IntfKind::ethernet; }
   // An Ethernet port whose first number is firstUnconnected or above: "Ethernet65536".
   static bool isUnconnected(IntfId id) { return isEthIntfId(id) && id.firstNumber() >= firstUnconnected; }
   // The number behind the "." of a subinterface of an Ethernet port, 0xffffffff when it is larger; nothing
   // for any other id.
   static std::optional<uint32_t> subIntf(IntfId id);
   // The Ethernet port of such a subinterface; the empty id for any other id.
   static IntfId parentIntfIdFromSubIntf(IntfId id);
};

struct PortChannelIntfId {
   // First number of recirculation channels, which lead back into this switch. A channel towards another
   // system has an aggregation key of 16 bits (IEEE 802.1AX), so an operator's channel ends below.
   static constexpr uint32_t firstRecirc = 65536;

   // "Port-Channel" with a number.
   static bool isPortChannelIntfId(IntfId id) { return id.kind() == IntfKind::portChannel; }
   // A port channel numbered firstRecirc or above: "Port-Channel65536".
   static bool isRecirc(IntfId id) { return isPortChannelIntfId(id) && id.firstNumber() >= firstRecirc; }
   // As in EthIntfId, for subinterfaces of port channels.
   static std::optional<uint32_t> subIntf(IntfId id);
   static IntfId parentIntfIdFromSubIntf(IntfId id);
};

struct VlanIntfId {
   // "Vlan" with a number, whether or not it is that of a VLAN: "Vlan5000" is a
   // VLAN interface that can't come up.
   static bool isVlanIntfId(IntfId id) { return id.kind() == IntfKind::vlan; }
   // The number of a VLAN interface as it is in the name, 65535 when it is larger; the caller checks the
   // range. 0, which is no VLAN, for any other id.
   static uint16_t vlanId(IntfId id);
};

struct SubIntfId {
   // A name, ".", and a number, whatever the parent: "Ethernet3/1.100", "Port-Channel5.7", "Foo.1".
   static bool isSubIntfId(IntfId id);
};

struct MgmtIntfId {
   static bool isMgmtIntfId(IntfId id) { return id.kind() == IntfKind::management; }
};

struct LoopbackIntfId {
   static bool isLoopbackIntfId(IntfId id) { return id.kind() == IntfKind::loopback; }
};

struct InternalIntfId {
   static bool isInternalIntfId(IntfId id) { return id.kind() == IntfKind::internal; }
};

struct VxlanTunnelIntfId {
   static bool isVxlanTunnelIntfId(IntfId id) { return id.kind() == IntfKind::vxlan; }
};

} // namespace Sulvi
