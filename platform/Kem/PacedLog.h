// A message for the operator that many things may have to say at once: what its rate leaves out is counted,
// and the next line that comes through says how many.
//
//    static Kem::LogHandle const intfDown("INTF_DOWN", 4, {"%s is down"}, NoActionRequired, 10.0, 100.0);
//    Kem::PacedLog intfDownLog_{intfDown};
//    intfDownLog_({intfId.stringValue().str()});
//
// The rate is the handle's, which may be shared; the count is this object's.
#pragma once

#include "Kem/Log.h"

#include <initializer_list>
#include <string>

namespace Kem {

class PacedLog {
  public:
   // The handle is static and outlives this.
   explicit PacedLog(LogHandle const& handle) : handle_(handle) {}

   // Writes the line, its %s replaced by the texts, or counts it as left out.
   void operator()(std::initializer_list<std::string> texts);

  private:
   LogHandle const& handle_;
   unsigned leftOut_ = 0; // since the last line
};

} // namespace Kem
