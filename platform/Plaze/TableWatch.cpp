#include "Plaze/TableWatch.h"

#include "Kem/Trace.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>
#include <unistd.h>

namespace Plaze {

namespace {
Kem::TraceFacility watchTrace("Plaze::TableWatch");
}

TableWatch::KemClock::KemClock(TableWatch& owner)
    : NotifieeConst(Kem::activityManager()->config()->clock()), owner_(owner) {}

TableWatch::TableWatch(std::string const& path, std::function<bool()> onMaybeChanged)
    : directory_(std::filesystem::path(path).parent_path()), name_(std::filesystem::path(path).filename()),
      onMaybeChanged_(std::move(onMaybeChanged)), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
   if (inotify_ < 0)
      KEM_TRACE(watchTrace, 0, path << " is polled: no inotify: " << std::strerror(errno));
   else
      bell_.descriptorIs(inotify_);
   // The first look sets up the watch.
   clock_.timeMinIs(Kem::now());
}

TableWatch::~TableWatch() {
   clock_.notifierIs(nullptr);
   bell_.descriptorIs(-1);
   if (inotify_ >= 0)
      close(inotify_);
}

// Watches the directory, or the nearest one above it that exists. Whether the watch is a new one.
bool TableWatch::watchNearest() {
   int const before = watch_;
   for (;;) {
      std::filesystem::path path = directory_;
      std::string awaited = name_;
      while (!watch(path, awaited)) {
         bool const isAbsent = errno == ENOENT || errno == ENOTDIR;
         if (!isAbsent || !path.has_relative_path()) {
            if (before >= 0 || !isPollTraced_)
               KEM_TRACE(watchTrace, 1, directory_ << " is polled: no watch: " << std::strerror(errno));
            isPollTraced_ = true;
            return false;
         }
         awaited = path.filename();
         path = path.parent_path();
      }
      // Where the next one came into being between the two: once more, from the directory itself.
      std::error_code error;
      if (path == directory_ || !std::filesystem::is_directory(path / awaited, error))
         return watch_ != before;
   }
}

// False, with errno, where there is no such directory or no watch left.
bool TableWatch::watch(std::string const& path, std::string const& awaited) {
   // On the way only what leads on: a busy folder above, such as that of all shared memory, wakes nobody.
   uint32_t const onTheWay = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
   uint32_t const ofTheTable = onTheWay | IN_ATTRIB | IN_DELETE | IN_MOVED_FROM | IN_MODIFY;
   int const watch = inotify_add_watch(inotify_, path.c_str(), path == directory_ ? ofTheTable : onTheWay);
   if (watch < 0)
      return false;
   // The same directory again gives the same number. Another one takes the place of the old, which may be gone.
   if (watch_ >= 0 && watch != watch_)
      inotify_rm_watch(inotify_, watch_);
   watch_ = watch;
   awaited_ = awaited;
   return true;
}

void TableWatch::handleBell() {
   bool isOurs = false;
   alignas(inotify_event) char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
   for (ssize_t got; (got = read(inotify_, events, sizeof(events))) > 0;) {
      for (char const* at = events; at < events + got;) {
         auto const& event = *reinterpret_cast<inotify_event const*>(at);
         at += sizeof(event) + event.len;
         // A queue that ran over may have dropped ours.
         isOurs |= (event.mask & IN_Q_OVERFLOW) || (event.len > 0 && awaited_ == event.name);
         if (event.wd == watch_ && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED))) {
            // A directory that moved away is another one from now on.
            if (event.mask & IN_MOVE_SELF)
               inotify_rm_watch(inotify_, watch_);
            watch_ = -1;
            isOurs = true;
         }
      }
   }
   if (isOurs)
      look(true);
}

void TableWatch::look(bool isRung) {
   // Before the look: what changes after it is heard.
   bool const isNew = inotify_ >= 0 && watchNearest();
   bool const wantsSoon = onMaybeChanged_();
   clock_.timeMinIs(Kem::now() + (isRung || isNew || wantsSoon ? followUpDelay
                                  : isWatching()               ? safetyInterval
                                                               : pollInterval));
}

} // namespace Plaze
