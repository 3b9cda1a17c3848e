#include "KernelOperState/KernelOperStateManager.h"

#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Netlink/Message.h"

#include <cerrno>
#include <cstring>
#include <linux/if.h>

namespace KernelOperState {

namespace {

Kem::TraceFacility theTrace("KernelOperState");

std::unique_ptr<Netlink::Channel> openChannel(Sulvi::NamespaceName const& netNs) {
   return Netlink::kernel().channel(netNs, 0);
}

Netlink::MessageBuilder setOperState(Kem::String8 const& deviceName, Interface::IntfOperStatus status) {
   // By name: it saves the look-up of an index, which would have to be made in the other namespace.
   Netlink::MessageBuilder request(RTM_SETLINK, 0, ifinfomsg{});
   request.textAttribute(IFLA_IFNAME, deviceName);
   uint8_t const state = kernelOperState(status);
   request.attribute(IFLA_OPERSTATE, &state, sizeof state);
   return request;
}

std::string keyOf(Sulvi::NamespaceName const& netNs) {
   return netNs.isDefault() ? std::string() : netNs.stringValue().str();
}

} // namespace

uint8_t kernelOperState(Interface::IntfOperStatus status) {
   switch (status) {
   case Interface::IntfOperStatus::intfOperUp:
      return IF_OPER_UP;
   case Interface::IntfOperStatus::intfOperTesting:
      return IF_OPER_TESTING;
   default:
      return IF_OPER_DORMANT;
   }
}

KernelOperStateManager::KernelOperStateManager() : KernelOperStateManager(openChannel) {}

int KernelOperStateManager::doSetOperState(Kem::String8 const& deviceName, Interface::IntfOperStatus status,
                                           Sulvi::NamespaceName const& netNs) {
   // A longer name would be refused as one that is out of range; an empty one would mean no device at all.
   int error = ENODEV;
   if (!deviceName.empty() && deviceName.size() < IFNAMSIZ) {
      auto& channel = channels_[keyOf(netNs)];
      if (!channel)
         channel = openChannel_(netNs);
      error = channel ? Netlink::transact(*channel, setOperState(deviceName, status)) : errno;
   }
   if (error != 0)
      KEM_TRACE(theTrace, 1,
                "state of device " << deviceName << " in namespace \"" << netNs << "\" can't be set to "
                                   << static_cast<unsigned>(kernelOperState(status)) << ": "
                                   << strerror(error));
   else
      KEM_TRACE(theTrace, 5,
                "state of device " << deviceName << " in namespace \"" << netNs << "\" set to "
                                   << static_cast<unsigned>(kernelOperState(status)));
   return error;
}

void KernelOperStateManager::netNsDel(Sulvi::NamespaceName const& netNs) {
   if (!netNs.isDefault())
      channels_.erase(keyOf(netNs));
}

} // namespace KernelOperState
