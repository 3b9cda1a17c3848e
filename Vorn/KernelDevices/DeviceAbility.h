// What can be known before a request for a VLAN device, and has to be: the request waits for ever when the
// kernel refuses it (RtnetlinkRequest.h). A problem is a text for operators; an empty one means that there is
// none. Nothing is traced here.
#pragma once

#include "Kem/String.h"
#include "Kem/Time.h"

#include <cstdint>
#include <set>
#include <string>

namespace Vorn {

class DeviceAbility {
  public:
   // Time from a failure to the next question.
   static constexpr Kem::Seconds retryInterval = 1.0;

   // Whether this kernel and this process can make VLAN devices at all: "the kernel has no 802.1Q", "no right
   // to change network devices (CAP_NET_ADMIN)". Asked on `fd`, a socket in the default namespace, until it is
   // so once, and no more often than each retryInterval.
   std::string const& kernelProblem(int fd);

   // Whether the base device can carry VLAN devices. `index` is its number if that is known, else 0, and the
   // kernel is asked. Remembered by that number when it can. A device that doesn't exist is no problem here.
   std::string baseProblem(Kem::String8 const& baseDeviceName, int fd, uint32_t index = 0);

   // Whether the kernel takes a device of this name: 1 to 15 bytes, without "/", ":", "%" and blanks.
   static std::string nameProblem(Kem::String8 const& deviceName);

  private:
   bool isAble_ = false;
   Kem::Seconds nextQuestion_ = 0;
   std::string kernelProblem_;
   std::set<uint32_t> ableBases_; // indexes
};

// A device as the kernel has it.
struct ExistingDevice {
   enum Kind : uint8_t {
      none, // there is no device of that name
      vlan, // a VLAN device
      other,
      unknown, // the kernel gives no answer, for the reason in `error`
   };
   Kind kind = none;
   uint16_t vlanId = 0;    // of a VLAN device
   Kem::String8 base = {}; // of a VLAN device, by its name in the namespace that it is in
   int error = 0;          // errno

   friend bool operator==(ExistingDevice const&, ExistingDevice const&) = default;
};

// `fd` is a socket in the namespace of the device.
ExistingDevice existingDevice(Kem::String8 const& name, int fd);

} // namespace Vorn
