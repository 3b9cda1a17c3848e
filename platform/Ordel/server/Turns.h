// Whose frames are worked on when, so that no client keeps the database from the others.
//
// A client is served for a moment, then its other frames wait; and when all have had so much between two times
// that answers are sent, those who come next wait too. Who waits is served in turn. A frame once begun is
// worked off whole.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"
#include "Kem/Time.h"

#include <deque>

namespace Ordel {

class ServerClient;

class Turns {
  public:
   static constexpr Kem::Seconds ofClient = 0.005;
   static constexpr Kem::Seconds ofAll = 0.020;

   Turns();

   // Until when a client may be served that begins now; in the past when it has to wait.
   Kem::Seconds begin();
   // Answers are being sent: there is time again.
   void answersAreSent() { end_ = 0; }
   // The client has frames that wait; it is served when it is its turn. Nothing for one that waits already.
   void wait(ServerClient& client);
   void forget(ServerClient& client);

  private:
   struct Timer final : Kem::Clock::NotifieeConst {
      explicit Timer(Turns& owner) : turns(owner) {}
      void onTime() override { turns.serve(); }
      Turns& turns;
   };
   void serve();

   std::deque<ServerClient*> waiting_;
   Kem::Seconds end_ = 0; // of the time for all; 0 before anyone has begun
   Timer timer_{*this};
};

} // namespace Ordel
