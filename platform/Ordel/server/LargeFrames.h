// Who may send a large frame now. What has come of a frame is in memory until the rest is there, so only a
// few clients send one at a time, each within a time limit; others wait, and are not read from meanwhile.
//
// Belongs to the server.
#pragma once

#include "Kem/Time.h"

#include <cstddef>
#include <deque>
#include <vector>

namespace Ordel {

class ServerClient;

class LargeFrames {
  public:
   static constexpr size_t largeBytes = 128u << 10; // a frame of which more has come is a large one
   static constexpr size_t maxAtOnce = 4;
   static constexpr Kem::Seconds timeLimit = 5; // from when the client may go on sending

   // More than largeBytes of a frame have come. The client is told by `largeFrameBegins` when it may go on;
   // that may be at once.
   void begin(ServerClient& client);
   // The frame is whole, or its client has gone. Nothing for a client that has none.
   void end(ServerClient& client);

  private:
   std::vector<ServerClient*> sending_;
   std::deque<ServerClient*> waiting_;
};

} // namespace Ordel
