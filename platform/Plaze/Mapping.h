// A file in memory that others may cut short while it is looked at.
//
// Whoever touches a mapped page that the file no longer has gets SIGBUS, which ends a process that
// doesn't expect it. Here the handler of that signal puts empty memory in the place of what is gone, so
// that the look goes on and reads zeros, and marks the mapping as lost: whoever looked finds that out
// afterwards and throws away what it read. The file itself isn't touched. A SIGBUS anywhere else goes to
// the handler that was there before.
//
// The handler is installed with the first mapping and stays. At most `maxMappings` are there at a time.
#pragma once

#include <atomic>
#include <cstddef>

namespace Plaze {

class Mapping {
  public:
   static constexpr size_t maxMappings = 4096;

   Mapping() = default; // of nothing
   ~Mapping();
   Mapping(Mapping const&) = delete;
   Mapping& operator=(Mapping const&) = delete;

   // Maps the first `bytes` of the file. Once for each object. False with errno set where the system refuses,
   // ENOMEM also where there are too many.
   bool map(int fd, size_t bytes, bool isWritable);

   char* base() const { return base_; } // null before map
   // A part of the file was gone when it was touched: what was read since then may be zeros, and what was
   // written may be nowhere.
   bool isLost() const;

  private:
   char* base_ = nullptr;
   size_t bytes_ = 0;
   size_t place_ = 0; // in the handler's list
};

} // namespace Plaze
