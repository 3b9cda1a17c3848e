// A network namespace for one test of the real kernel: the thread is in it while the object exists, with
// nothing but its own loopback device, and back afterwards. To enter one needs CAP_SYS_ADMIN:
//
//    TestNamespace ns;
//    if (!ns.isEntered())
//       GTEST_SKIP() << "no right to make a network namespace";
#pragma once

#include "Netlink/Message.h"
#include "Netlink/Socket.h"

#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/veth.h>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <string>
#include <unistd.h>

namespace Netlink {

class TestNamespace {
  public:
   TestNamespace() : back_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
      isEntered_ = back_ >= 0 && unshare(CLONE_NEWNET) == 0;
      if (isEntered_)
         socket_.emplace("", 0);
   }
   ~TestNamespace() {
      if (isEntered_ && setns(back_, CLONE_NEWNET) != 0)
         abort(); // later tests would run in the wrong place
      close(back_);
   }
   TestNamespace(TestNamespace const&) = delete;
   TestNamespace& operator=(TestNamespace const&) = delete;

   bool isEntered() const { return isEntered_; }

   // All give 0 or an errno. A pair of devices that are each other's other end.
   int pairIs(char const* a, char const* b) {
      MessageBuilder request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
      request.textAttribute(IFLA_IFNAME, a);
      size_t const info = request.nestBegin(IFLA_LINKINFO);
      request.attribute(IFLA_INFO_KIND, "veth");
      size_t const data = request.nestBegin(IFLA_INFO_DATA);
      ifinfomsg const none{};
      size_t const peer = request.nestBegin(VETH_INFO_PEER);
      request.raw(none);
      request.textAttribute(IFLA_IFNAME, b);
      request.nestEnd(peer);
      request.nestEnd(data);
      request.nestEnd(info);
      return transact(*socket_, request);
   }
   int upIs(char const* name, bool isUp) {
      ifinfomsg header{};
      header.ifi_index = static_cast<int>(if_nametoindex(name));
      header.ifi_change = IFF_UP;
      header.ifi_flags = isUp ? IFF_UP : 0;
      return transact(*socket_, MessageBuilder(RTM_NEWLINK, 0, header));
   }
   int rename(char const* name, char const* newName) {
      ifinfomsg header{};
      header.ifi_index = static_cast<int>(if_nametoindex(name));
      MessageBuilder request(RTM_NEWLINK, 0, header);
      request.textAttribute(IFLA_IFNAME, newName);
      return transact(*socket_, request);
   }
   int remove(char const* name) {
      ifinfomsg header{};
      header.ifi_index = static_cast<int>(if_nametoindex(name));
      return transact(*socket_, MessageBuilder(RTM_DELLINK, 0, header));
   }

  private:
   int const back_;
   bool isEntered_ = false;
   std::optional<Socket> socket_;
};

} // namespace Netlink
