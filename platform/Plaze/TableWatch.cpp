#include "Plaze/TableWatch.h"

#include "Kem/Trace.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>

namespace Plaze {

namespace {
Kem::TraceFacility watchTrace("Plaze::TableWatch");
}

TableWatch::KemClock::KemClock(TableWatch& owner)
    : NotifieeConst(Kem::activityManager()->config()->clock()), owner_(owner) {}

TableWatch::TableWatch(std::string const& path, std::function<bool()> onMaybeChanged)
    : path_(path), onMaybeChanged_(std::move(onMaybeChanged)),
      watch_(std::filesystem::path(path).parent_path(), IN_ATTRIB | IN_DELETE | IN_MOVED_FROM | IN_MODIFY,
             std::filesystem::path(path).filename()) {
   if (watch_.descriptor() < 0)
      KEM_TRACE(watchTrace, 0, path << " is polled: no inotify: " << std::strerror(errno));
   else
      bell_.descriptorIs(watch_.descriptor());
   // The first look sets up the watch.
   clock_.timeMinIs(Kem::now());
}

TableWatch::~TableWatch() {
   clock_.notifierIs(nullptr);
   bell_.descriptorIs(-1);
}

void TableWatch::handleBell() {
   if (watch_.hear())
      look(true);
}

// Whether the watch is a new one.
bool TableWatch::follow() {
   using Followed = Kem::FolderWatch::Followed;
   if (watch_.descriptor() < 0)
      return false;
   bool const wasWatching = watch_.isWatching();
   Followed const followed = watch_.follow();
   if (followed == Followed::notPossible) {
      if (wasWatching || !isPollTraced_)
         KEM_TRACE(watchTrace, 1, path_ << " is polled: no watch: " << std::strerror(errno));
      isPollTraced_ = true;
   }
   return followed == Followed::elsewhere;
}

void TableWatch::look(bool isRung) {
   // Before the look: later changes are notified.
   bool const isNew = follow();
   bool const wantsSoon = onMaybeChanged_();
   clock_.timeMinIs(Kem::now() + (isRung || isNew || wantsSoon ? followUpDelay
                                  : isWatching()               ? safetyInterval
                                                               : pollInterval));
}

} // namespace Plaze
