// A network of its own for what tests, benchmarks and examples start. An agent takes away devices that an
// earlier agent has left behind, in the namespace that it runs in and in every named one: those of the
// machine are not for a test to lose.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace Tests {

// Moves the calling thread, and what it starts from then on, into a network namespace with nothing but a
// loopback device that is down, and into a mount namespace in which the system has no named namespaces.
// False without the right to do that (CAP_SYS_ADMIN); then an agent that is started has no right to take
// devices away either.
inline bool enterOwnNetwork() {
   if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
      return false;
   // Where there is no such folder nothing is hidden, and what others make in it later leads to nothing here.
   struct stat folder {};
   if (::stat("/run/netns", &folder) == 0 && ::mount("none", "/run/netns", "tmpfs", 0, "mode=755") != 0)
      return false;
   return ::unshare(CLONE_NEWNET) == 0;
}

// The same for the whole program: the first call moves, later ones give what that gave.
inline bool isInOwnNetwork() {
   static bool const isIn = enterOwnNetwork();
   return isIn;
}

} // namespace Tests
