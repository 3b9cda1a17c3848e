#include "Ordel/server/MemoryReturn.h"

#include "Kem/Activity.h"

#include <algorithm>
#include <malloc.h>

namespace Ordel {

MemoryReturn::MemoryReturn(Tree& tree) : tree_(tree) {
   timer_.notifierIs(Kem::ActivityFacility::clock());
}

void MemoryReturn::freed(size_t bytes) {
   freedBytes_ += bytes;
   if (freedBytes_ < muchBytes)
      return;
   Kem::Seconds const now = Kem::now();
   if (timer_.timeMin() == Kem::never)
      latest_ = now + longestDelay;
   timer_.timeMinIs(std::min(now + delay, latest_));
}

void MemoryReturn::giveBack() {
   freedBytes_ = 0;
   ++count_;
   tree_.apply({}); // what the last write displaced goes with the next one
   malloc_trim(0);
}

} // namespace Ordel
