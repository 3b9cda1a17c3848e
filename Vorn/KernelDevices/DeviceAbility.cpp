#include "Vorn/KernelDevices/DeviceAbility.h"

#include "Netlink/Kernel.h"
#include "Vorn/KernelDevices/KernelNames.h"
#include "Vorn/KernelDevices/VlanDevice.h"

#include <cerrno>
#include <cstring>
#include <linux/ethtool.h>
#include <linux/if_vlan.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <vector>

namespace Vorn {

namespace {

int deviceRequest(Kem::String8 const& name, int fd, unsigned long request, ifreq& args) {
   nameIs(args.ifr_name, name);
   return Netlink::kernel().ioctl(fd, request, &args) < 0 ? errno : 0;
}

// `data` begins with the command of linux/ethtool.h.
int ethtoolRequest(Kem::String8 const& name, int fd, std::vector<uint32_t>& data) {
   ifreq args{};
   args.ifr_data = reinterpret_cast<char*>(data.data());
   return deviceRequest(name, fd, SIOCETHTOOL, args);
}

// Whether a feature of the device is on, by its name; one that the kernel doesn't know is off. 0 or an errno.
int featureOf(Kem::String8 const& name, int fd, std::string_view feature, bool& isOn) {
   isOn = false;
   std::vector<uint32_t> info((sizeof(ethtool_sset_info) + sizeof(uint32_t)) / sizeof(uint32_t));
   auto* const setInfo = reinterpret_cast<ethtool_sset_info*>(info.data());
   setInfo->cmd = ETHTOOL_GSSET_INFO;
   setInfo->sset_mask = uint64_t{1} << ETH_SS_FEATURES;
   if (int const error = ethtoolRequest(name, fd, info))
      return error;
   uint32_t const count = setInfo->sset_mask ? info.back() : 0;
   if (count == 0 || count > 4096)
      return 0;

   std::vector<uint32_t> strings((sizeof(ethtool_gstrings) + size_t{count} * ETH_GSTRING_LEN) /
                                 sizeof(uint32_t));
   auto* const names = reinterpret_cast<ethtool_gstrings*>(strings.data());
   names->cmd = ETHTOOL_GSTRINGS;
   names->string_set = ETH_SS_FEATURES;
   names->len = count;
   if (int const error = ethtoolRequest(name, fd, strings))
      return error;
   uint32_t bit = 0;
   while (bit < count) {
      auto const* const text = reinterpret_cast<char const*>(names->data) + size_t{bit} * ETH_GSTRING_LEN;
      if (std::string_view(text, strnlen(text, ETH_GSTRING_LEN)) == feature)
         break;
      ++bit;
   }
   if (bit == count)
      return 0;

   uint32_t const blockCount = (count + 31) / 32;
   std::vector<uint32_t> blocks(
       (sizeof(ethtool_gfeatures) + blockCount * sizeof(ethtool_get_features_block)) / sizeof(uint32_t));
   auto* const features = reinterpret_cast<ethtool_gfeatures*>(blocks.data());
   features->cmd = ETHTOOL_GFEATURES;
   features->size = blockCount;
   if (int const error = ethtoolRequest(name, fd, blocks))
      return error;
   isOn = features->features[bit / 32].active & (1u << (bit % 32));
   return 0;
}

} // namespace

std::string const& DeviceAbility::kernelProblem(int fd) {
   if (isAble_ || Kem::now() < nextQuestion_)
      return kernelProblem_;
   nextQuestion_ = Kem::now() + retryInterval;
   if (setVlanDeviceNameType(static_cast<unsigned>(fd)) >= 0) {
      isAble_ = true;
      kernelProblem_.clear();
   } else if (errno == ENOPKG) {
      kernelProblem_ = "the kernel has no 802.1Q";
   } else if (errno == EPERM) {
      kernelProblem_ = "no right to change network devices (CAP_NET_ADMIN)";
   } else {
      kernelProblem_ = std::string("the kernel makes no VLAN devices: ") + strerror(errno);
   }
   return kernelProblem_;
}

std::string DeviceAbility::baseProblem(Kem::String8 const& baseDeviceName, int fd, uint32_t index) {
   auto const unknown = [&](int error) {
      return "what device " + baseDeviceName.str() + " can carry is not known: " + strerror(error);
   };
   if (index == 0) {
      ifreq args{};
      int const error = deviceRequest(baseDeviceName, fd, SIOCGIFINDEX, args);
      if (error == ENODEV)
         return {};
      if (error)
         return unknown(error);
      index = static_cast<uint32_t>(args.ifr_ifindex);
   }
   if (ableBases_.contains(index))
      return {};
   bool isChallenged = false;
   int const error = featureOf(baseDeviceName, fd, "vlan-challenged", isChallenged);
   if (error == ENODEV)
      return {};
   // A kernel without the question has no answer: only the request shows it.
   if (error != 0 && error != EOPNOTSUPP)
      return unknown(error);
   if (isChallenged)
      return "device " + baseDeviceName.str() + " can't carry VLANs";
   ableBases_.insert(index);
   return {};
}

std::string DeviceAbility::nameProblem(Kem::String8 const& deviceName) {
   auto const name = deviceName.str();
   if (name.size() >= IFNAMSIZ)
      return "device name " + name + " is longer than " + std::to_string(IFNAMSIZ - 1) + " characters";
   constexpr std::string_view refused("/:% \t\n\v\f\r\0", 10);
   if (name.empty() || name == "." || name == ".." || name.find_first_of(refused) != std::string::npos)
      return "device name \"" + name + "\" is not one that the kernel takes";
   return {};
}

ExistingDevice existingDevice(Kem::String8 const& name, int fd) {
   auto const ask = [&](int command, vlan_ioctl_args& args) {
      args.cmd = command;
      nameIs(args.device1, name);
      return Netlink::kernel().ioctl(fd, SIOCSIFVLAN, &args) < 0 ? errno : 0;
   };
   vlan_ioctl_args id{}, base{};
   int error = ask(GET_VLAN_VID_CMD, id);
   if (error == 0)
      error = ask(GET_VLAN_REALDEV_NAME_CMD, base);
   switch (error) {
   case 0:
      return {ExistingDevice::vlan, static_cast<uint16_t>(id.u.VID),
              std::string_view(base.u.device2, strnlen(base.u.device2, sizeof base.u.device2)), 0};
   case ENODEV:
      return {};
   case EINVAL:
      return {.kind = ExistingDevice::other};
   default:
      return {.kind = ExistingDevice::unknown, .error = error};
   }
}

} // namespace Vorn
