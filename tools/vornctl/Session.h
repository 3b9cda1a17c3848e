// The connection of one run of vornctl: mounts the parts of the state that a command needs, and waits until
// they are all there.
//
// The records live as long as the session, and follow the database no further than the session's calls do.
// Errors are raised: Unreachable without a database that answers, Refused when a record that every database
// has is missing.
#pragma once

#include "SwitchState.h"

#include "Ordel/client/EntityManager.h"

#include <string>

namespace Vornctl {

class Session {
  public:
   // Connects, for at most five seconds.
   explicit Session(std::string const& socketPath);
   ~Session();

   SwitchState fetch(Part parts);

  private:
   class Mounter;
   // Takes in what arrives until the mounter's group is complete.
   void wait(Mounter const& mounter);

   std::string const socketPath_;
   std::string failure_; // why the connection has ended; empty while it exists
   Kem::Ptr<Ordel::EntityManager> manager_;
};

} // namespace Vornctl
