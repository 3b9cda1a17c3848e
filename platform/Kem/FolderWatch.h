// Watches a folder of the file system by inotify; while it is absent, the nearest one above it that exists, until
// the next one on the way comes. So whoever waits for a folder that may never come doesn't poll for it.
//
//    follow() at each look, before the look: what changes after it is heard
//    descriptor() is readable ──► hear() ──► true: look again
//
// On the way only the next name counts: a busy folder above, such as that of all shared memory, wakes nobody.
// Not heard are a folder far above that is moved away, and the end of a link on the way that leads nowhere.
#pragma once

#include <cstdint>
#include <string>

namespace Kem {

class FolderWatch {
  public:
   enum class Followed : uint8_t {
      asBefore,
      elsewhere,  // the watch is a new one: on the folder, or on another one above it
      notPossible // with errno: the system has no watch left, or something on the way can't be read
   };

   // `folder` is an absolute path. `events` are the inotify events in it that count, those of a folder that is
   // made, moved or gone not among them. `name` is the one name in it that counts; empty: all of them.
   FolderWatch(std::string folder, uint32_t events, std::string name = {});
   ~FolderWatch();
   FolderWatch(FolderWatch const&) = delete;
   FolderWatch& operator=(FolderWatch const&) = delete;

   // To be waited for until it is readable; -1, with errno after the constructor, when the system has none.
   int descriptor() const { return inotify_; }
   bool isWatching() const { return watch_ >= 0; } // the folder, or one above it
   // Puts the watch where it belongs now.
   Followed follow();
   // Takes in all events that have come. Whether there is reason to look.
   bool hear();

  private:
   bool watch(std::string const& path, std::string const& awaited);

   std::string const folder_;
   uint32_t const events_;
   std::string const name_;
   int inotify_;
   int watch_ = -1;
   std::string awaited_; // the name that counts where the watch is; empty: all of them
};

} // namespace Kem
