// Any bytes as the answer to a request: whatever they are, the wait ends with a result or asks for more, and
// nothing behind them is read.
#include "Vorn/KernelDevices/RtnetlinkRequest.h"

#include "Kem/Trace.h"
#include "Vorn/KernelDevices/TestScript.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   Kem::traceToStandardErrorIs(false);
   Vorn::ScriptedKernel kernel;
   // The first byte is the flags of the datagram, then come pieces of up to 64 bytes. The number 7 as a sequence
   // number stands for that of the request.
   for (size_t at = 1; at < size; at += 64) {
      std::string const bytes(reinterpret_cast<char const*>(data) + at, std::min<size_t>(64, size - at));
      int const flags = data[0] & 1 ? MSG_TRUNC : 0;
      kernel.answers.push_back([bytes, flags](uint32_t sequence) {
         auto datagram = bytes;
         for (size_t i = 0; i + 12 <= datagram.size(); i += 4) {
            uint32_t number;
            std::memcpy(&number, datagram.data() + i + 8, sizeof number);
            if (number == 7)
               std::memcpy(datagram.data() + i + 8, &sequence, sizeof sequence);
         }
         return Vorn::ScriptedKernel::Datagram{datagram, {.flags = flags}};
      });
   }
   nlmsghdr request{};
   request.nlmsg_len = sizeof request;
   try {
      errno = 0;
      int const result = Vorn::netlinkReq(3, &request);
      if (result != 0 && (result != -1 || errno == 0))
         std::abort();
   } catch (Vorn::ScriptedKernel::NothingLeft const&) {
   }
   return 0;
}
