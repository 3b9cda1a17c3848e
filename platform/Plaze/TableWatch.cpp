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

// Whether the watch is a new one.
bool TableWatch::watchDirectory() {
   if (inotify_ < 0 || watch_ >= 0)
      return false;
   watch_ = inotify_add_watch(inotify_, directory_.c_str(),
                              IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_MODIFY |
                                  IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
   if (watch_ < 0 && errno != ENOENT && errno != ENOTDIR)
      KEM_TRACE(watchTrace, 1, directory_ << " is polled: no watch: " << std::strerror(errno));
   return watch_ >= 0;
}

void TableWatch::handleBell() {
   bool isOurs = false;
   alignas(inotify_event) char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
   for (ssize_t got; (got = read(inotify_, events, sizeof(events))) > 0;) {
      for (char const* at = events; at < events + got;) {
         auto const& event = *reinterpret_cast<inotify_event const*>(at);
         at += sizeof(event) + event.len;
         // A queue that ran over may have dropped ours. A directory that moved
         // away is another one from now on.
         isOurs |= (event.mask & IN_Q_OVERFLOW) || (event.len > 0 && name_ == event.name);
         if (event.wd == watch_ && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED))) {
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
   bool const isNew = watchDirectory();
   bool const wantsSoon = onMaybeChanged_();
   clock_.timeMinIs(Kem::now() + (isRung || isNew || wantsSoon ? followUpDelay
                                  : isWatching()               ? safetyInterval
                                                               : pollInterval));
}

} // namespace Plaze
