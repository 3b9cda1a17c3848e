// Makes, deletes and maps VLAN devices of Linux: one call to the kernel each, through Netlink/Kernel.h. What
// has to exist and whether to try again is for the caller to know. Failures are traced and returned.
#pragma once

#include "Kem/String.h"
#include "Sulvi/NamespaceName.h"

#include <cstdint>

namespace Vorn {

enum VlanCreateStatus : uint8_t {
   VlanCreated = 0,
   // A device of that name is in the namespace of the process or in that of the new device, or the base has a
   // device for that VLAN id, anywhere.
   VlanExists = 1,
   VlanNoBase = 2,      // the base device has no index
   VlanNoNamespace = 3, // the namespace for the device can't be opened
   VlanRefused = 4,     // any other error
   VlanNotNeeded = 5,   // VLAN id 0 was asked for; not by createVlanDevice
};

// Makes a device for the VLAN on the base, which is in the namespace of the process and of `fd`, a blocking
// route socket. The device is made in `dstNs`. It waits as netlinkReq does (RtnetlinkRequest.h).
VlanCreateStatus createVlanDevice(Kem::String8 const& baseDeviceName, Kem::String8 const& deviceName,
                                  uint16_t vlanId, int fd, Sulvi::NamespaceName dstNs);

// --- On a datagram socket in the namespace of the device. 0, or negative with errno.

// Devices of another kind are not deleted (EINVAL).
int destroyVlanDevice(Kem::String8 const& name, int fd);
// Packets of that priority leave with that priority in their VLAN tag, 0..7.
int setVlanDeviceEgressMap(Kem::String8 const& name, unsigned skbPriority, unsigned vlanQos, int fd);
// Devices that are made without a name are called vlan5 rather than vlan0005. For the whole namespace; not
// traced.
int setVlanDeviceNameType(unsigned fd);

} // namespace Vorn
