#include "KernelNetworkInfo/DeviceTable.h"

#include "Kem/Trace.h"

namespace KernelNetworkInfo {

namespace {
Kem::TraceFacility deviceTrace("KernelDevices");
}

void DeviceTable::deviceIs(int index, Kem::String8 const& name, uint32_t flags, uint32_t mtu) {
   auto& device = devices_[index];
   device.round = round_;
   if (device.name != name) {
      if (!device.name.empty()) {
         KEM_TRACE(deviceTrace, 3, device.name << " is " << name << " now");
         indexByName_.erase(device.name);
         root_->interfaceByNameDel(device.name);
      }
      auto const [holder, isFree] = indexByName_.try_emplace(name, index);
      if (!isFree) {
         devices_[holder->second].name = {};
         holder->second = index;
         root_->interfaceByNameDel(name); // another device: not the same entry
      }
      device.name = name;
   }
   // Who reacts on the flags finds which device they are of.
   auto const entry = root_->interfaceByNameIs(name);
   entry->ifIndexIs(static_cast<uint32_t>(index));
   entry->mtuIs(mtu);
   entry->flagsIs(flags);
}

void DeviceTable::deviceDel(int index) {
   auto const at = devices_.find(index);
   if (at == devices_.end())
      return;
   if (!at->second.name.empty()) {
      indexByName_.erase(at->second.name);
      root_->interfaceByNameDel(at->second.name);
   }
   devices_.erase(at);
}

void DeviceTable::roundEnd() {
   for (auto const& [name, entry] : root_->interfaceByName()) {
      auto const at = indexByName_.find(name);
      if (at == indexByName_.end() || devices_[at->second].round != round_)
         root_->interfaceByNameDel(name);
   }
   std::erase_if(indexByName_, [&](auto const& at) { return devices_[at.second].round != round_; });
   std::erase_if(devices_, [&](auto const& at) { return at.second.round != round_; });
}

} // namespace KernelNetworkInfo
