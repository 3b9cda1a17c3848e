#include "Kem/Time.h"

#include "Kem/Assert.h"

#include <time.h>

namespace Kem {

namespace {
bool theTimeIsVirtual = false;
Seconds theVirtualNow = 0;
} // namespace

Seconds now() {
   if (theTimeIsVirtual) [[unlikely]]
      return theVirtualNow;
   timespec t{};
   clock_gettime(CLOCK_MONOTONIC, &t);
   return static_cast<Seconds>(t.tv_sec) + static_cast<Seconds>(t.tv_nsec) * 1e-9;
}

VirtualTime::VirtualTime(Seconds start) {
   KEM_ASSERT(!theTimeIsVirtual);
   theTimeIsVirtual = true;
   theVirtualNow = start;
}

VirtualTime::~VirtualTime() {
   theTimeIsVirtual = false;
}

void VirtualTime::advanceTo(Seconds time) {
   KEM_ASSERT(theTimeIsVirtual && time >= theVirtualNow);
   theVirtualNow = time;
}

bool isTimeVirtual() {
   return theTimeIsVirtual;
}

} // namespace Kem
