// Address and administrative state of a device. `fd` is a datagram socket in the namespace of the device. A
// name of more than 15 bytes is cut, as the kernel's structures do. Failures are traced and returned.
#pragma once

#include "Kem/String.h"
#include "Sulvi/EthAddr.h"

#include <optional>

namespace Vorn {

// 0 when the device has the address, which is not zero (an assertion); negative with errno when it couldn't
// be set. A device that has it already isn't written; one whose address can't be read is.
int setKernelDeviceMacAddress(Kem::String8 const& name, Sulvi::EthAddr const& addr, int fd);

// Whether the kernel has the device switched on; nothing, with errno, when it doesn't say. Not traced.
std::optional<bool> isInterfaceUp(Kem::String8 const& name, int fd);

// Switches the device on or off. 0 when it is so, and is not written if it was; negative, with errno in
// `*err`, when it couldn't be done. `*wasSwitched` says whether it was the other way before; null for who doesn't
// care.
int setInterfaceUpOrDownInternal(Kem::String8 name, bool up, int fd, int* err, bool* wasSwitched = nullptr);

} // namespace Vorn
