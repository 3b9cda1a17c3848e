#include "Vorn/KernelDevices/VlanDevice.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Netlink/Kernel.h"
#include "Vorn/KernelDevices/KernelNames.h"
#include "Vorn/KernelDevices/RtnetlinkRequest.h"

#include <cerrno>
#include <cstring>
#include <linux/if_link.h>
#include <linux/if_vlan.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vorn {

namespace {

Kem::TraceFacility vlanDeviceTrace("VornVlanDevice");

static_assert(sizeof(vlan_ioctl_args) == 56 && sizeof(vlan_ioctl_args{}.device1) == 24);

// A request for a VLAN device.
struct LinkRequest {
   alignas(NLMSG_ALIGNTO) char bytes[4128] = {};

   nlmsghdr* header() { return reinterpret_cast<nlmsghdr*>(bytes); }
   int add(int type, void const* data, size_t length) {
      return addAttr(header(), sizeof bytes, type, data, static_cast<int>(length));
   }
   // Where the attribute begins that is added next.
   size_t end() { return NLMSG_ALIGN(header()->nlmsg_len); }
   // The attribute that began there holds all that was added since; nothing if there was no room for it.
   void nestEnd(size_t begin) {
      if (begin + sizeof(rtattr) > end())
         return;
      auto const length = static_cast<unsigned short>(end() - begin);
      std::memcpy(bytes + begin + offsetof(rtattr, rta_len), &length, sizeof length);
   }
};

void fill(LinkRequest& request, uint32_t baseIndex, Kem::String8 const& deviceName, uint16_t vlanId) {
   auto* const header = request.header();
   header->nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
   header->nlmsg_type = RTM_NEWLINK;
   header->nlmsg_flags = NLM_F_REQUEST | NLM_F_EXCL | NLM_F_CREATE;
   static auto const pid = static_cast<uint32_t>(getpid()); // which doesn't change, and is a call each time
   header->nlmsg_pid = pid;
   ifinfomsg link{};
   link.ifi_family = AF_PACKET;
   std::memcpy(NLMSG_DATA(header), &link, sizeof link);

   request.add(IFLA_LINK, &baseIndex, sizeof baseIndex);
   request.add(IFLA_IFNAME, deviceName.charPtr(), std::strlen(deviceName.charPtr()) + 1);
   auto const linkInfo = request.end();
   request.add(IFLA_LINKINFO, nullptr, 0);
   request.add(IFLA_INFO_KIND, "vlan", 4);
   auto const infoData = request.end();
   request.add(IFLA_INFO_DATA, nullptr, 0);
   request.add(IFLA_VLAN_ID, &vlanId, sizeof vlanId);
   request.nestEnd(infoData);
   request.nestEnd(linkInfo);
}

} // namespace

VlanCreateStatus createVlanDevice(Kem::String8 const& baseDeviceName, Kem::String8 const& deviceName,
                                  uint16_t vlanId, int fd, Sulvi::NamespaceName dstNs) {
   auto& kernel = Netlink::kernel();
   uint32_t const baseIndex = kernel.ifNametoindex(baseDeviceName.charPtr(), fd);
   if (baseIndex == 0) {
      KEM_TRACE(vlanDeviceTrace, 0,
                "if_nametoindex() error adding Vlan " << vlanId << " to interface " << baseDeviceName << " "
                                                      << strerror(errno));
      return VlanNoBase;
   }
   LinkRequest request;
   fill(request, baseIndex, deviceName, vlanId);

   int netNsFd = -1;
   if (!dstNs.isDefault()) {
      netNsFd = kernel.getnsByName(dstNs, CLONE_NEWNET);
      if (netNsFd < 0) {
         KEM_TRACE(vlanDeviceTrace, 0,
                   "Cannot getns " << dstNs << " to interface " << vlanId << ": " << baseDeviceName);
         return VlanNoNamespace;
      }
      int const rc = request.add(IFLA_NET_NS_FD, &netNsFd, sizeof netNsFd);
      KEM_INVARIANT(rc == 0, "rc == 0");
   }
   int const result = netlinkReq(fd, request.header());
   int const error = errno;
   if (netNsFd >= 0)
      KEM_INVARIANT(kernel.close(netNsFd) == 0, "close( netns ) == 0");
   if (result >= 0)
      return VlanCreated;
   if (error == EEXIST)
      return VlanExists;
   KEM_TRACE(vlanDeviceTrace, 0,
             "Error adding Vlan " << vlanId << " to interface " << baseDeviceName << ": " << strerror(error)
                                  << " (" << error << ")");
   errno = error;
   return VlanRefused;
}

int destroyVlanDevice(Kem::String8 const& name, int fd) {
   vlan_ioctl_args args{};
   args.cmd = DEL_VLAN_CMD;
   nameIs(args.device1, name);
   int const result = Netlink::kernel().ioctl(fd, SIOCSIFVLAN, &args);
   if (result < 0) {
      int const error = errno;
      KEM_TRACE(vlanDeviceTrace, 0,
                "Error removing Vlan device " << name << " " << strerror(error) << " " << error);
      errno = error;
   }
   return result;
}

int setVlanDeviceEgressMap(Kem::String8 const& name, unsigned skbPriority, unsigned vlanQos, int fd) {
   vlan_ioctl_args args{};
   args.cmd = SET_VLAN_EGRESS_PRIORITY_CMD;
   nameIs(args.device1, name);
   args.u.skb_priority = skbPriority;
   args.vlan_qos = static_cast<short>(vlanQos);
   int const result = Netlink::kernel().ioctl(fd, SIOCSIFVLAN, &args);
   if (result < 0) {
      int const error = errno;
      KEM_TRACE(vlanDeviceTrace, 0,
                "Error setting vlan device egress map for " << name << " " << strerror(error) << " "
                                                            << error);
      errno = error;
   }
   return result;
}

int setVlanDeviceNameType(unsigned fd) {
   vlan_ioctl_args args{};
   args.cmd = SET_VLAN_NAME_TYPE_CMD;
   args.u.name_type = VLAN_NAME_TYPE_PLUS_VID_NO_PAD;
   return Netlink::kernel().ioctl(static_cast<int>(fd), SIOCSIFVLAN, &args);
}

} // namespace Vorn
