// Gives a kernel device the MTU that its interface is configured with. It keeps nothing: who calls it does so
// again when one of these changes.
//
//    mtu of the configuration   0 is 1500, and so is a number that can be no MTU: below 68 (RFC 791) or above
//                               65535. What the device has doesn't depend on what it had before.
//    maxMtu of the status       The device gets no more than that, unless it is below 68 (0 while it isn't
//                               known) or not a bound.
//    the device below           A device that stands on another one carries no more than that one. It gets
//                               the largest MTU that the kernel takes for it, and never one below that it
//                               has. That is traced; when the MTU of the other device grows, the caller calls
//                               again.
//
// The device is that of the status, or by the name that the interface's device always has.
#pragma once

#include "records/Interface/IntfConfig.h"
#include "records/Interface/IntfStatus.h"
#include "records/Interface/IntfStatusLocal.h"

#include <string>

namespace Interface {

// `fd` is a datagram socket in the namespace of the device; 0 when there is none, and then nothing is done.
// The records may be null: without configuration or status nothing is done; the local status only names the
// namespace in traces.
//
// False when the kernel failed in a way that is worth another try, also when the device is missing. True when
// the device has its MTU, or a smaller one for a reason of the table, or the value can't be had at all.
bool syncMtu(Kem::Ptr<IntfStatus const> const& status, Kem::Ptr<IntfStatusLocal const> const& statusLocal,
             Kem::Ptr<IntfConfig const> const& config, bool isWithoutMaxMtu, bool isOnAnotherDevice, int fd);

// Why the configured MTU can't be that of a device, in words; empty when it can.
std::string mtuProblem(IntfConfig const& config);

} // namespace Interface
