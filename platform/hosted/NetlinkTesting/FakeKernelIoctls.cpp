// The ioctls of FakeKernel.
#include "NetlinkTesting/FakeKernelDetail.h"

#include <cerrno>
#include <cstdio>
#include <linux/ethtool.h>
#include <linux/if_vlan.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if_arp.h>

namespace Netlink {

using namespace FakeDetail;

namespace {

std::string vlanCommandName(int command) {
   static constexpr char const* names[] = {"ADD_VLAN_CMD",
                                           "DEL_VLAN_CMD",
                                           "SET_VLAN_INGRESS_PRIORITY_CMD",
                                           "SET_VLAN_EGRESS_PRIORITY_CMD",
                                           "GET_VLAN_INGRESS_PRIORITY_CMD",
                                           "GET_VLAN_EGRESS_PRIORITY_CMD",
                                           "SET_VLAN_NAME_TYPE_CMD",
                                           "SET_VLAN_FLAG_CMD",
                                           "GET_VLAN_REALDEV_NAME_CMD",
                                           "GET_VLAN_VID_CMD"};
   return command >= 0 && command < static_cast<int>(std::size(names)) ? names[command] : "VLAN_CMD";
}

std::string ioctlName(unsigned long request) {
   static std::map<unsigned long, char const*> const names = {
       {SIOCSIFVLAN, "SIOCSIFVLAN"},     {SIOCGIFFLAGS, "SIOCGIFFLAGS"},   {SIOCSIFFLAGS, "SIOCSIFFLAGS"},
       {SIOCGIFHWADDR, "SIOCGIFHWADDR"}, {SIOCSIFHWADDR, "SIOCSIFHWADDR"}, {SIOCGIFMTU, "SIOCGIFMTU"},
       {SIOCSIFMTU, "SIOCSIFMTU"},       {SIOCGIFINDEX, "SIOCGIFINDEX"},   {SIOCETHTOOL, "SIOCETHTOOL"}};
   auto const at = names.find(request);
   return at == names.end() ? "ioctl " + std::to_string(request) : at->second;
}

} // namespace

int FakeKernel::ioctl(int fd, unsigned long request, void* argument) {
   auto const name = ioctlName(request);
   bool isEntered = enter("ioctl");
   isEntered &= enter(name);
   if (request == SIOCSIFVLAN)
      isEntered &= enter(vlanCommandName(static_cast<vlan_ioctl_args*>(argument)->cmd));
   if (!isEntered)
      return -1;
   auto* const descriptor = findDescriptor(fd);
   if (!descriptor)
      return -1;
   if (descriptor->isNamespace)
      return failed(ENOTTY);
   int const error = request == SIOCSIFVLAN ? vlanIoctl(descriptor->netNs, argument)
                                            : deviceIoctl(descriptor->netNs, request, argument);
   return error ? failed(error) : 0;
}

int FakeKernel::vlanIoctl(uint64_t netNs, void* argument) {
   auto& args = *static_cast<vlan_ioctl_args*>(argument);
   if (!has8021q_)
      return ENOPKG;
   Device* device = nullptr;
   if (args.cmd != SET_VLAN_NAME_TYPE_CMD) {
      device = find(netNs, nameIn(args.device1, sizeof args.device1 - 1));
      if (!device)
         return ENODEV;
      if (args.cmd != ADD_VLAN_CMD && device->kind != "vlan")
         return EINVAL;
   }
   bool const isQuestion = args.cmd == GET_VLAN_REALDEV_NAME_CMD || args.cmd == GET_VLAN_VID_CMD;
   if (!isQuestion && !hasRight_)
      return EPERM;
   switch (args.cmd) {
   case DEL_VLAN_CMD:
      deleted(*device);
      return 0;
   case SET_VLAN_EGRESS_PRIORITY_CMD:
      device->egress.erase(args.u.skb_priority);
      if (args.vlan_qos != 0)
         device->egress[args.u.skb_priority] = static_cast<uint32_t>(args.vlan_qos);
      return 0;
   case SET_VLAN_NAME_TYPE_CMD:
      return args.u.name_type < VLAN_NAME_TYPE_HIGHEST ? 0 : EINVAL;
   case GET_VLAN_REALDEV_NAME_CMD:
      snprintf(args.u.device2, sizeof args.u.device2, "%s", device->base->name.c_str());
      return 0;
   case GET_VLAN_VID_CMD:
      args.u.VID = device->vlanId;
      return 0;
   default:
      return EOPNOTSUPP;
   }
}

int FakeKernel::deviceIoctl(uint64_t netNs, unsigned long request, void* argument) {
   auto& args = *static_cast<ifreq*>(argument);
   bool const isChange = request == SIOCSIFFLAGS || request == SIOCSIFHWADDR || request == SIOCSIFMTU;
   if (isChange && !hasRight_)
      return EPERM;
   auto* const device = find(netNs, nameIn(args.ifr_name, IFNAMSIZ - 1));
   if (!device)
      return ENODEV;
   switch (request) {
   case SIOCGIFFLAGS:
      args.ifr_flags = static_cast<short>(flagsOf(*device));
      return 0;
   case SIOCSIFFLAGS: {
      bool const isUp = args.ifr_flags & IFF_UP;
      if (isUp && !device->isUp && device->base && !device->base->isUp)
         return ENETDOWN;
      upOrDown(*device, isUp);
      return 0;
   }
   case SIOCGIFHWADDR:
      args.ifr_hwaddr.sa_family = device->kind.empty() ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
      std::memcpy(args.ifr_hwaddr.sa_data, device->address.data(), device->address.size());
      return 0;
   case SIOCSIFHWADDR: {
      std::array<uint8_t, 6> address;
      std::memcpy(address.data(), args.ifr_hwaddr.sa_data, address.size());
      if (device->kind.empty())
         return EOPNOTSUPP;
      if (args.ifr_hwaddr.sa_family != ARPHRD_ETHER)
         return EINVAL;
      if ((address[0] & 1) || address == decltype(address){})
         return EADDRNOTAVAIL;
      device->address = address;
      notify(RTM_NEWLINK, *device);
      return 0;
   }
   case SIOCGIFMTU:
      args.ifr_mtu = static_cast<int>(device->mtu);
      return 0;
   case SIOCSIFMTU: {
      auto const mtu = static_cast<unsigned>(args.ifr_mtu);
      if (mtu == device->mtu)
         return 0;
      if (args.ifr_mtu < (device->kind == "vlan" ? 0 : 68) || mtu > maxMtu)
         return EINVAL;
      if (device->base && mtu > device->base->mtu)
         return ERANGE;
      mtuIs(*device, mtu);
      return 0;
   }
   case SIOCGIFINDEX:
      args.ifr_ifindex = device->index;
      return 0;
   case SIOCETHTOOL:
      return ethtool(*device, args.ifr_data);
   default:
      return ENOTTY;
   }
}

// Two features, of which the second is "vlan-challenged".
int FakeKernel::ethtool(Device const& device, void* data) {
   static constexpr char const* features[] = {"tx-scatter-gather", "vlan-challenged"};
   constexpr uint32_t featureCount = std::size(features);
   uint32_t command;
   std::memcpy(&command, data, sizeof command);
   switch (command) {
   case ETHTOOL_GSSET_INFO: {
      auto* const info = static_cast<ethtool_sset_info*>(data);
      bool const isWanted = info->sset_mask & (1u << ETH_SS_FEATURES);
      info->sset_mask = isWanted ? 1u << ETH_SS_FEATURES : 0;
      if (isWanted)
         std::memcpy(static_cast<char*>(data) + sizeof *info, &featureCount, sizeof featureCount);
      return 0;
   }
   case ETHTOOL_GSTRINGS: {
      auto* const strings = static_cast<ethtool_gstrings*>(data);
      if (strings->string_set != ETH_SS_FEATURES)
         return EOPNOTSUPP;
      strings->len = featureCount;
      auto* at = static_cast<char*>(data) + sizeof *strings;
      for (auto const* const feature : features) {
         strncpy(at, feature, ETH_GSTRING_LEN);
         at += ETH_GSTRING_LEN;
      }
      return 0;
   }
   case ETHTOOL_GFEATURES: {
      auto* const blocks = static_cast<ethtool_gfeatures*>(data);
      if (blocks->size >= 1) {
         ethtool_get_features_block block{};
         block.active = device.carriesVlans ? 1u : 3u;
         std::memcpy(static_cast<char*>(data) + sizeof *blocks, &block, sizeof block);
      }
      blocks->size = 1;
      return 0;
   }
   default:
      return EOPNOTSUPP;
   }
}

} // namespace Netlink
