// The network devices as the kernel reports them, kept as KernelNetworkInfo::Root, which is by name.
//
// The kernel's own key is the index: a device keeps it for life, while its name may change and may go over to
// another device. News of a name that another index holds takes the name away from that one, whose own news
// is still to come or was lost. A round is the time of one dump: what it doesn't report is gone at its end.
#pragma once

#include "records/KernelNetworkInfo/Interface.h"
#include "records/KernelNetworkInfo/Root.h"

#include <unordered_map>

namespace KernelNetworkInfo {

class DeviceTable {
  public:
   explicit DeviceTable(Kem::Ptr<Root> root) : root_(std::move(root)) {}

   void deviceIs(int index, Kem::String8 const& name, uint32_t flags, uint32_t mtu = 0);
   void deviceDel(int index); // nothing for an unknown one

   void roundBegin() { ++round_; }
   // Removes each device that deviceIs hasn't seen since roundBegin, and each entry of the record that isn't
   // of a device at all.
   void roundEnd();

  private:
   struct Device {
      Kem::String8 name;  // empty while another device holds the name that it had
      uint64_t round = 0; // in which it was last reported
   };
   Kem::Ptr<Root> const root_;
   std::unordered_map<int, Device> devices_;           // by index
   std::unordered_map<Kem::String8, int> indexByName_; // of those that have a name
   uint64_t round_ = 0;
};

} // namespace KernelNetworkInfo
