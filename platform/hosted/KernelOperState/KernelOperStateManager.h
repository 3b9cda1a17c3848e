// Sets the operational state of a kernel device. It keeps no state and tries nothing again; what state a
// device should have is for its caller to know (IntfStatusOperStatusSm).
//
// The kernel lets a process say three states of a device: up, dormant and testing. It knows the others by
// itself, from the carrier and from whether the device is switched on, and drops a request for them without a
// word. So every state in which an interface is out of service is said as dormant, which keeps the kernel
// from counting the device as up just the same:
//
//    intfOperUp       ──► up
//    intfOperTesting  ──► testing
//    any other        ──► dormant
//
// A device that is switched off stays as it is, and one that is switched on again starts from what the kernel
// makes of it. Some kinds of device refuse it. A failure is traced and answered, and nothing more.
#pragma once

#include "Kem/Ptr.h"
#include "Kem/PtrInterface.h"
#include "Kem/String.h"
#include "Netlink/Channel.h"
#include "Sulvi/NamespaceName.h"
#include "records/Interface/types.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace KernelOperState {

class KernelOperStateManager final : public Kem::PtrInterface {
  public:
   // Opens a channel to the kernel in a namespace. Null, with errno, where that isn't possible.
   using ChannelFactory = std::function<std::unique_ptr<Netlink::Channel>(Sulvi::NamespaceName const& netNs)>;

   KernelOperStateManager();
   explicit KernelOperStateManager(ChannelFactory openChannel) : openChannel_(std::move(openChannel)) {}

   // Tells the kernel, in the namespace that the device is in; the empty name is the default one. Answers
   // 0, or an errno: ENODEV where there is no such device. It doesn't wait for anything.
   int doSetOperState(Kem::String8 const& deviceName, Interface::IntfOperStatus status,
                      Sulvi::NamespaceName const& netNs = {});
   // The namespace went, or its name means another one now: it is entered afresh for the next request. Until then the
   // channel in it keeps the namespace alive.
   void netNsDel(Sulvi::NamespaceName const& netNs);

  private:
   // By namespace, empty for the default one, which stays.
   std::map<std::string, std::unique_ptr<Netlink::Channel>> channels_;
   ChannelFactory openChannel_;
};

// The number of a state in the kernel, IF_OPER_UP and the like of linux/if.h.
uint8_t kernelOperState(Interface::IntfOperStatus status);

} // namespace KernelOperState
