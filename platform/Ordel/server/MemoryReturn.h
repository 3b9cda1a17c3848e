// Gives memory back to the system some time after much of it has become free: the allocator keeps what lies
// between what is still in use, and the tree keeps what the last write displaced.
//
// Belongs to the server.
#pragma once

#include "Kem/Clock.h"
#include "Ordel/store/Tree.h"

#include <cstddef>

namespace Ordel {

class MemoryReturn {
  public:
   static constexpr size_t muchBytes = 4u << 20;
   // Giving back takes some tens of milliseconds at tens of megabytes, in which nobody is served: it waits until
   // so long nothing more has become free, which a bulk change puts off, but not for longer than the other.
   static constexpr Kem::Seconds delay = 1;
   static constexpr Kem::Seconds longestDelay = 30;

   explicit MemoryReturn(Tree& tree);

   // So many bytes, about, have become free, or will with the next write.
   void freed(size_t bytes);
   unsigned count() const { return count_; } // how often it was given back

  private:
   struct Timer final : Kem::Clock::NotifieeConst {
      explicit Timer(MemoryReturn& ofOwner) : owner(ofOwner) {}
      void onTime() override { owner.giveBack(); }
      MemoryReturn& owner;
   };
   void giveBack();

   Tree& tree_;
   size_t freedBytes_ = 0; // since it was given back
   Kem::Seconds latest_ = 0;
   unsigned count_ = 0;
   Timer timer_{*this};
};

} // namespace Ordel
