// Writes the snapshot when clients ask for it, and not too often: nobody is served while it is written.
//
// The first request is served at once. Those that come within the pause after a snapshot wait for the next one,
// which answers them all. So however many ask, the database spends a tenth of its time on snapshots at most.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"

#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace Ordel {

class ServerClient;

class SnapshotRequests {
  public:
   // Writes the snapshot; returns what went wrong, or "".
   using Write = std::function<std::string()>;
   // From the end of one snapshot to the next: so many times as long as it took, and a second at least.
   static constexpr double pauseFactor = 9;
   static constexpr Kem::Seconds shortestPause = 1;

   // `write` empty: there is no snapshot file, and all are refused.
   explicit SnapshotRequests(Write write);

   // The client gets its reply now or later: done, or refused with the reason. Refused, too, when it has
   // maxQuestionsPerClient that wait.
   void begin(ServerClient& client, uint32_t request);
   void clientGone(ServerClient const& client);

  private:
   struct Timer final : Kem::Clock::NotifieeConst {
      explicit Timer(SnapshotRequests& ofOwner) : owner(ofOwner) {}
      void onTime() override { owner.writeAndReply(); }
      SnapshotRequests& owner;
   };
   struct Request {
      ServerClient& client;
      uint32_t number;
   };
   void writeAndReply();

   Write write_;
   std::list<Request> requests_; // that wait for the next one
   Kem::Seconds earliest_ = 0;   // of the next one
   Timer timer_{*this};
};

} // namespace Ordel
