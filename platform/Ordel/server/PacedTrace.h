// Trace lines of level 0 that others can cause as often as they like: a number of them comes at once, then a
// few a second. What is left out is counted, and the next line that comes, or the end, tells how many.
#pragma once

#include "Kem/Time.h"
#include "Kem/Trace.h"

#include <string>

namespace Ordel {

class PacedTrace {
  public:
   static constexpr double atOnce = 100;
   static constexpr double eachSecond = 5;

   explicit PacedTrace(Kem::TraceFacility& facility) : facility_(facility) {}
   ~PacedTrace() { tellLeftOut(); }
   PacedTrace(PacedTrace const&) = delete;
   PacedTrace& operator=(PacedTrace const&) = delete;

   void line(std::string const& text);

  private:
   void tellLeftOut();

   Kem::TraceFacility& facility_;
   double room_ = atOnce;               // lines that may come now
   Kem::Seconds refilled_ = Kem::now(); // when room was last added to
   unsigned long leftOut_ = 0;          // since the last line
};

} // namespace Ordel
