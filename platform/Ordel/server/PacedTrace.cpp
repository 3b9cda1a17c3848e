#include "Ordel/server/PacedTrace.h"

#include <algorithm>
#include <utility>

namespace Ordel {

void PacedTrace::line(std::string const& text) {
   Kem::Seconds const now = Kem::now();
   Kem::Seconds const elapsed = std::max(now - std::exchange(refilled_, now), 0.0);
   room_ = std::min(room_ + elapsed * eachSecond, atOnce);
   if (room_ < 1) {
      ++leftOut_;
      return;
   }
   room_ -= 1;
   tellLeftOut();
   KEM_TRACE(facility_, 0, text);
}

void PacedTrace::tellLeftOut() {
   if (leftOut_ > 0)
      KEM_TRACE(facility_, 0, "lines left out because there were too many: " << leftOut_);
   leftOut_ = 0;
}

} // namespace Ordel
