// Names of kernel devices and of the interfaces that they stand for.
//
//    Ethernet3/1.100  et3_1.100      Vlan100  vlan100
//    Port-Channel5.7  po5.7          Foo/1    foo_1
//
// The way back knows Ethernet ports and port channels only, by the first three characters: any other device
// is taken as an interface of the same name. So it isn't a true inverse: "foo_1" gives "foo/1". VLAN devices
// have functions of their own. Nothing here asks the kernel, and nothing raises.
#pragma once

#include "Kem/String.h"
#include "Sulvi/IntfId.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace Sulvi {

// Longest device name that is read or made here; what is longer is cut. A NUL ends a name. The kernel's own
// limit is lower (IFNAMSIZ) and is left to the kernel.
constexpr size_t maxKernelDeviceNameBytes = 79;

// The short name of the interface, in lower case, each "/" as "_".
Kem::String8 kernelDeviceName(IntfId intfId);

// Each "_" becomes "/"; then "et" or "po" before a digit from 1 to 9 becomes "Ethernet" or "Port-Channel". An
// empty name gives the empty id.
IntfId getIntfIdFromKernelDeviceName(std::string_view name);

// Whether a device of this name is that of a subinterface: it has a "." in it.
bool isSubIntf(std::string_view name);

// "vlan100" for 100.
Kem::String8 vlanDeviceName(uint32_t vlanId);

// The number of a VLAN device, by the same form; nothing for a name that vlanDeviceName doesn't make, such as
// "vlan", "vlan007" or "vlan10a", which are devices of somebody else. The number need not be that of a VLAN.
std::optional<uint32_t> vlanIdFromDeviceName(std::string_view name);

} // namespace Sulvi
