// Says when a table may have changed: what wakes a reader.
//
// Memory can't be waited for together with descriptors, and a reader that only polled would be late
// or busy. So the writer touches the times of its file, at most once in Writer::ringInterval (2 ms),
// and the reader watches the directory with inotify, where the touch shows as well as a table that
// comes into being, grows or goes:
//
//    writer: entry, entry, entry ...      reader: onMaybeChanged, and again followUpDelay later,
//              '-- touch -> inotify -------'      until a look finds nothing new
//
// The entries that a writer puts after a touch without another one come at most 2 ms after it, so the look
// that follows 5 ms after each wake sees them: nothing waits for the slow poll, and the writer has no duty to
// flush. The first look of a new watch is followed up as well, for the touch that came just before it.
//
//    latency   of a single change: one wake of the process and one pass; in a burst: at most 5 ms
//    cost      writer: one utimensat for each 2 ms in which it writes. Reader: one more look for each
//              wake, and one each 10 s (safetyInterval), against what can't be watched: a directory far
//              above that is moved away
//
// While the directory is absent, the nearest one above it that exists is watched until the next one on
// the way comes: waiting for a table costs nothing. Only where the system has no watch left it is a
// poll each 100 ms (pollInterval).
#pragma once

#include "Kem/Clock.h"
#include "Kem/FileDescriptor.h"
#include "Kem/FolderWatch.h"

#include <functional>
#include <string>

namespace Plaze {

class TableWatch {
  public:
   static constexpr Kem::Seconds followUpDelay = 0.005;
   static constexpr Kem::Seconds safetyInterval = 10.0;
   static constexpr Kem::Seconds pollInterval = 0.1;

   // `onMaybeChanged` looks at the table, and answers whether it wants to look again soon: because it found
   // something, or couldn't read it. It must not destroy the watch. The path is absolute.
   TableWatch(std::string const& path, std::function<bool()> onMaybeChanged);
   ~TableWatch();
   TableWatch(TableWatch const&) = delete;
   TableWatch& operator=(TableWatch const&) = delete;

   bool isWatching() const { return watch_.isWatching(); } // the directory, or one above it

  private:
   struct Bell final : Kem::FileDescriptorWatch {
      explicit Bell(TableWatch& owner) : owner_(owner) {}
      void onReadable() override { owner_.handleBell(); }
      TableWatch& owner_;
   };
   struct KemClock final : Kem::Clock::NotifieeConst {
      explicit KemClock(TableWatch& owner);
      void onTime() override { owner_.look(false); }
      TableWatch& owner_;
   };

   void handleBell();
   void look(bool isRung);
   bool follow();

   std::string const path_;
   std::function<bool()> const onMaybeChanged_;
   Kem::FolderWatch watch_;
   bool isPollTraced_ = false;
   Bell bell_{*this};
   KemClock clock_{*this};
};

} // namespace Plaze
