#include "Plaze/Mapping.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace Plaze {

namespace {

// What the handler knows of a mapping: nothing here is allocated, since a signal comes at any moment.
struct Watched {
   std::atomic<uintptr_t> begin = 0; // 0 while the place is free
   std::atomic<uintptr_t> end = 0;
   std::atomic<bool> isLost = false;
};

Watched watched[Mapping::maxMappings];
std::atomic<size_t> watchedCount = 0; // those behind were never used
struct sigaction actionBefore;

// Puts empty memory from the page of the fault to the end of its mapping. False where the address is in none.
bool fillIn(uintptr_t address) {
   static uintptr_t const pageBytes = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
   for (size_t i = 0; i < watchedCount.load(std::memory_order_acquire); ++i) {
      uintptr_t const begin = watched[i].begin.load(std::memory_order_acquire);
      uintptr_t const end = watched[i].end.load(std::memory_order_relaxed);
      if (begin == 0 || address < begin || address >= end)
         continue;
      uintptr_t const page = address / pageBytes * pageBytes;
      void* const memory = mmap(reinterpret_cast<void*>(page), end - page, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
      watched[i].isLost.store(true, std::memory_order_relaxed);
      return memory != MAP_FAILED;
   }
   return false;
}

void handleBusError(int signal, siginfo_t* info, void* context) {
   int const error = errno;
   bool const isOurs = info->si_code == BUS_ADRERR && fillIn(reinterpret_cast<uintptr_t>(info->si_addr));
   errno = error;
   if (isOurs)
      return;
   if ((actionBefore.sa_flags & SA_SIGINFO) && actionBefore.sa_sigaction)
      return actionBefore.sa_sigaction(signal, info, context);
   if (actionBefore.sa_handler != SIG_DFL && actionBefore.sa_handler != SIG_IGN)
      return actionBefore.sa_handler(signal);
   std::signal(signal, SIG_DFL); // the instruction is repeated, and ends the process
}

bool installHandler() {
   fillIn(0); // asks for the size of a page now, not in the handler
   struct sigaction action = {};
   action.sa_sigaction = handleBusError;
   action.sa_flags = SA_SIGINFO | SA_RESTART;
   sigemptyset(&action.sa_mask);
   return sigaction(SIGBUS, &action, &actionBefore) == 0;
}

} // namespace

bool Mapping::map(int fd, size_t bytes, bool isWritable) {
   static bool const isInstalled = installHandler();
   if (!isInstalled)
      return false;
   size_t place = 0;
   while (place < maxMappings && watched[place].begin.load(std::memory_order_relaxed) != 0)
      ++place;
   if (place == maxMappings) {
      errno = ENOMEM;
      return false;
   }
   int const protection = isWritable ? PROT_READ | PROT_WRITE : PROT_READ;
   void* const memory = mmap(nullptr, bytes, protection, MAP_SHARED, fd, 0);
   if (memory == MAP_FAILED)
      return false;
   base_ = static_cast<char*>(memory);
   bytes_ = bytes;
   place_ = place;
   auto const begin = reinterpret_cast<uintptr_t>(memory);
   watched[place].isLost.store(false, std::memory_order_relaxed);
   watched[place].end.store(begin + bytes, std::memory_order_relaxed);
   watched[place].begin.store(begin, std::memory_order_release);
   if (place >= watchedCount.load(std::memory_order_relaxed))
      watchedCount.store(place + 1, std::memory_order_release);
   return true;
}

Mapping::~Mapping() {
   if (!base_)
      return;
   watched[place_].begin.store(0, std::memory_order_release);
   munmap(base_, bytes_);
}

bool Mapping::isLost() const {
   return base_ && watched[place_].isLost.load(std::memory_order_relaxed);
}

} // namespace Plaze
