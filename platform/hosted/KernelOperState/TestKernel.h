// A KernelOperStateManager whose requests go to the test instead of the kernel: each is kept as
// "NAMESPACE:DEVICE=STATE", with the kernel's number of the state, and answered with `error`.
#pragma once

#include "KernelOperState/KernelOperStateManager.h"
#include "Netlink/TestChannel.h"

#include <cerrno>
#include <utility>

namespace KernelOperState {

struct TestKernel {
   Kem::Ptr<KernelOperStateManager> manager() {
      return Kem::makePtr<KernelOperStateManager>(
          [this](Sulvi::NamespaceName const& netNs) -> std::unique_ptr<Netlink::Channel> {
             opened += netNs.stringValue().str() + ";";
             if (!hasNamespaces && !netNs.isDefault()) {
                errno = ENOENT;
                return nullptr;
             }
             auto channel = std::make_unique<Netlink::TestChannel>();
             auto* const raw = channel.get();
             raw->onSend = [this, raw, netNs](uint32_t sequence) {
                log += netNs.stringValue().str() + ":" + textOf(raw->sent.back()) + ";";
                raw->deliver(Netlink::errorMessage(sequence, error));
             };
             return channel;
          });
   }
   std::string take() { return std::exchange(log, ""); }

   std::string log;
   std::string opened; // namespaces, each time one was entered
   int error = 0;
   bool hasNamespaces = true;

  private:
   static std::string textOf(std::string const& datagram) {
      std::string device = "?", state = "?";
      Netlink::forEachMessage(datagram, [&](Netlink::Message const& message) {
         if (message.type != RTM_SETLINK)
            return;
         Netlink::forEachAttribute(message.payload.substr(sizeof(ifinfomsg)),
                                   [&](uint16_t type, std::string_view value) {
                                      if (type == IFLA_IFNAME)
                                         device = value.data(); // ends with its zero
                                      else if (type == IFLA_OPERSTATE && value.size() == 1)
                                         state = std::to_string(value[0]);
                                   });
      });
      return device + "=" + state;
   }
};

} // namespace KernelOperState
