// The route messages of FakeKernel.
#include "NetlinkTesting/FakeKernelDetail.h"

#include "Netlink/Message.h"
#include "Netlink/TestChannel.h"

#include <cerrno>
#include <net/if_arp.h>

namespace Netlink {

using namespace FakeDetail;

namespace {

bool isDeviceName(std::string const& name) {
   return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
          name.find_first_of("/: \t\n") == std::string::npos;
}

} // namespace

std::string FakeKernel::linkMessage(uint16_t type, Device const& device, uint32_t sequence,
                                    uint16_t flags) const {
   ifinfomsg header{};
   header.ifi_type = device.kind.empty() ? ARPHRD_LOOPBACK : ARPHRD_ETHER;
   header.ifi_index = device.index;
   header.ifi_flags = flagsOf(device);
   MessageBuilder message(type, flags, header);
   message.textAttribute(IFLA_IFNAME, device.name);
   uint8_t const state = device.isUp ? device.operState : operDown;
   message.attribute(IFLA_OPERSTATE, &state, sizeof state);
   uint32_t const mtu = device.mtu;
   message.attribute(IFLA_MTU, &mtu, sizeof mtu);
   message.attribute(IFLA_ADDRESS, device.address.data(), device.address.size());
   if (device.base) {
      message.attribute(IFLA_LINK, &device.base->index, sizeof device.base->index);
      int32_t const elsewhere = 0; // the number by which this namespace knows the other one
      if (device.base->netNs != device.netNs)
         message.attribute(IFLA_LINK_NETNSID, &elsewhere, sizeof elsewhere);
   }
   if (!device.kind.empty()) {
      auto const info = message.nestBegin(IFLA_LINKINFO);
      message.textAttribute(IFLA_INFO_KIND, device.kind);
      if (device.kind == "vlan") {
         auto const data = message.nestBegin(IFLA_INFO_DATA);
         message.attribute(IFLA_VLAN_ID, &device.vlanId, sizeof device.vlanId);
         message.nestEnd(data);
      }
      message.nestEnd(info);
   }
   message.sequenceIs(sequence);
   return message.bytes();
}

std::vector<std::string> FakeKernel::answers(uint64_t netNs, std::string_view request) {
   std::vector<std::string> all;
   forEachMessage(request, [&](Message const& message) {
      std::string const name = message.type == RTM_NEWLINK   ? "RTM_NEWLINK"
                               : message.type == RTM_SETLINK ? "RTM_SETLINK"
                               : message.type == RTM_GETLINK ? "RTM_GETLINK"
                                                             : "other request";
      bool const isDump = message.type == RTM_GETLINK && (message.flags & NLM_F_DUMP) == NLM_F_DUMP;
      int error = 0;
      bool isEntered = enter("answer");
      isEntered &= enter(name);
      if (!isEntered)
         error = errno;
      else if (isDump)
         for (auto const& [deviceName, device] : namespaces_[netNs].devices)
            all.push_back(linkMessage(RTM_NEWLINK, *device, message.sequence, NLM_F_MULTI));
      else if (message.type == RTM_NEWLINK || message.type == RTM_SETLINK)
         error = !hasRight_                    ? EPERM
                 : message.type == RTM_NEWLINK ? newLink(netNs, message.payload)
                                               : setLink(netNs, message.payload);
      else
         error = EOPNOTSUPP;
      if (isDump && !error)
         all.push_back(doneMessage(message.sequence));
      else if (error || (message.flags & NLM_F_ACK))
         all.push_back(errorMessage(message.sequence, error));
   });
   return all;
}

int FakeKernel::newLink(uint64_t netNs, std::string_view payload) {
   std::string name, kind;
   std::optional<uint32_t> baseIndex, namespaceFd;
   std::optional<uint16_t> vlanId;
   if (payload.size() < sizeof(ifinfomsg))
      return EINVAL;
   bool isNameTooLong = false;
   forEachAttribute(payload.substr(sizeof(ifinfomsg)), [&](uint16_t type, std::string_view value) {
      if (type == IFLA_IFNAME) {
         name = nameIn(value.data(), value.size());
         isNameTooLong = name.size() >= IFNAMSIZ;
      } else if (type == IFLA_LINK)
         baseIndex = fixedFrom<uint32_t>(value);
      else if (type == IFLA_NET_NS_FD)
         namespaceFd = fixedFrom<uint32_t>(value);
      else if (type == IFLA_LINKINFO)
         forEachAttribute(value, [&](uint16_t infoType, std::string_view info) {
            if (infoType == IFLA_INFO_KIND)
               kind = nameIn(info.data(), info.size());
            else if (infoType == IFLA_INFO_DATA)
               forEachAttribute(info, [&](uint16_t dataType, std::string_view data) {
                  if (dataType == IFLA_VLAN_ID)
                     vlanId = fixedFrom<uint16_t>(data);
               });
         });
   });
   if (isNameTooLong)
      return ERANGE;
   if (!isDeviceName(name))
      return EINVAL;
   if (kind == "vlan" && has8021q_ && vlanId && *vlanId >= 4095)
      return ERANGE;
   // Linux looks for the name where the request came from, and again where the device is to be.
   if (find(netNs, name))
      return EEXIST;
   if (kind != "vlan" || !has8021q_)
      return EOPNOTSUPP;
   uint64_t target = netNs;
   if (namespaceFd) {
      auto const at = descriptors_.find(static_cast<int>(*namespaceFd));
      if (at == descriptors_.end() || !at->second.isNamespace)
         return EINVAL;
      target = at->second.netNs;
   }
   if (!vlanId || !baseIndex)
      return EINVAL;
   Device* base = nullptr;
   for (auto const& [deviceName, device] : namespaces_[netNs].devices)
      if (device->index == static_cast<int>(*baseIndex))
         base = device.get();
   if (!base)
      return ENODEV;
   if (!base->carriesVlans)
      return EOPNOTSUPP;
   if (base->vlans.contains(*vlanId) || find(target, name))
      return EEXIST;
   vlanMade(target, name, *base, *vlanId);
   return 0;
}

int FakeKernel::setLink(uint64_t netNs, std::string_view payload) {
   std::string name;
   std::optional<uint8_t> state;
   if (payload.size() < sizeof(ifinfomsg))
      return EINVAL;
   auto const header = fixedFrom<ifinfomsg>(payload);
   forEachAttribute(payload.substr(sizeof(ifinfomsg)), [&](uint16_t type, std::string_view value) {
      if (type == IFLA_IFNAME)
         name = nameIn(value.data(), value.size());
      else if (type == IFLA_OPERSTATE)
         state = fixedFrom<uint8_t>(value);
   });
   if (header->ifi_index != 0 || name.empty() || !state)
      return EINVAL;
   auto* const device = find(netNs, name);
   if (!device)
      return ENODEV;
   device->operStateAsked = *state;
   // What a process may change, and from where.
   bool const isUp = device->operState == operUp || device->operState == operUnknown;
   bool const mayBeUp = isUp || device->operState == operDormant || device->operState == operTesting;
   if (*state == operUp ? mayBeUp : isUp && (*state == operDormant || *state == operTesting)) {
      device->operState = *state;
      notify(RTM_NEWLINK, *device);
   }
   return 0;
}

} // namespace Netlink
