#include "Kem/FolderWatch.h"

#include <cerrno>
#include <climits>
#include <filesystem>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace Kem {

namespace {

constexpr uint32_t onTheWay = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

} // namespace

FolderWatch::FolderWatch(std::string folder, uint32_t events, std::string name)
    : folder_(std::move(folder)), events_(events | onTheWay), name_(std::move(name)),
      inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FolderWatch::~FolderWatch() {
   if (inotify_ >= 0)
      close(inotify_);
}

FolderWatch::Followed FolderWatch::follow() {
   int const before = watch_;
   for (;;) {
      std::filesystem::path path = folder_;
      std::string awaited = name_;
      while (!watch(path, awaited)) {
         bool const isAbsent = errno == ENOENT || errno == ENOTDIR;
         if (!isAbsent || !path.has_relative_path())
            return Followed::notPossible;
         awaited = path.filename();
         path = path.parent_path();
      }
      // Where the next one came into being between the two: once more, from the folder itself.
      std::error_code error;
      if (path == folder_ || !std::filesystem::is_directory(path / awaited, error))
         return watch_ == before ? Followed::asBefore : Followed::elsewhere;
   }
}

// False, with errno, where there is no such folder or no watch left.
bool FolderWatch::watch(std::string const& path, std::string const& awaited) {
   int const watch = inotify_add_watch(inotify_, path.c_str(), path == folder_ ? events_ : onTheWay);
   if (watch < 0)
      return false;
   // The same folder again gives the same number. Another one takes the place of the old, which may be gone.
   if (watch_ >= 0 && watch != watch_)
      inotify_rm_watch(inotify_, watch_);
   watch_ = watch;
   awaited_ = awaited;
   return true;
}

bool FolderWatch::hear() {
   bool isReason = false;
   alignas(inotify_event) char events[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
   for (ssize_t got; (got = read(inotify_, events, sizeof events)) > 0;) {
      for (char const* at = events; at < events + got;) {
         auto const& event = *reinterpret_cast<inotify_event const*>(at);
         at += sizeof event + event.len;
         // A queue that ran over may have dropped ours.
         isReason |=
             (event.mask & IN_Q_OVERFLOW) || (event.len > 0 && (awaited_.empty() || awaited_ == event.name));
         if (event.wd == watch_ && (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED))) {
            // A folder that moved away is another one from now on.
            if (event.mask & IN_MOVE_SELF)
               inotify_rm_watch(inotify_, watch_);
            watch_ = -1;
            isReason = true;
         }
      }
   }
   return isReason;
}

} // namespace Kem
