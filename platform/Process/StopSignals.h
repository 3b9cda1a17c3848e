// SIGTERM and SIGINT: how a program that runs on the event loop is asked to end.
//
//    main ──stopEndsProcess()──► start: a stop ends the process at once, with status 0
//         ──StopSignals made──► running: a stop is an event of the loop, like any other
//
// So a stop is looked at whatever the program does: in the start, where it may read a file or wait for a lock,
// nothing has been begun that would have to be put in order.
#pragma once

#include "Kem/FileDescriptor.h"

#include <functional>

namespace Process {

// From now on a stop signal ends the process with status 0, until there is a StopSignals.
void stopEndsProcess();

class StopSignals final : private Kem::FileDescriptorWatch {
  public:
   // Calls `onStop` with the number of each stop signal that comes from now on, also one that comes before the
   // loop runs. For good: the signals stay blocked when this object goes. One at a time.
   explicit StopSignals(std::function<void(int signal)> onStop);
   ~StopSignals() override;

  private:
   void onReadable() override;

   std::function<void(int)> const onStop_;
};

} // namespace Process
