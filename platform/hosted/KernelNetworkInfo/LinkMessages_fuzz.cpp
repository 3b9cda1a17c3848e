// Any bytes as a datagram of the kernel: every event that comes out is one that the rest may rely on, and the
// device table can take it.
#include "KernelNetworkInfo/DeviceTable.h"
#include "KernelNetworkInfo/LinkMessages.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   using namespace KernelNetworkInfo;
   std::vector<LinkEvent> events;
   readLinkEvents({reinterpret_cast<char const*>(data), size}, events);
   auto const root = Root::make();
   DeviceTable table(root);
   table.roundBegin();
   for (auto const& event : events) {
      bool const isDevice = event.kind != LinkEvent::dumpEnd;
      if (isDevice && (event.index <= 0 || event.name.empty() || event.name.size() > 15))
         std::abort();
      if (!isDevice && (event.error < 0 || event.error > 4095))
         std::abort();
      if (event.kind == LinkEvent::present) {
         table.deviceIs(event.index, event.name, event.flags);
         auto const device = root->interfaceByName(event.name);
         if (!device || device->flags() != event.flags)
            std::abort();
      } else if (isDevice) {
         table.deviceDel(event.index);
      }
   }
   size_t const standing = root->interfaceByName().size();
   table.roundEnd();
   if (root->interfaceByName().size() != standing)
      std::abort(); // all were seen in this round
   return 0;
}
