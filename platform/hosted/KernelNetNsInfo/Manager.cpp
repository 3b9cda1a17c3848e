#include "KernelNetNsInfo/Manager.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KernelNetNsInfo {

namespace {

Kem::TraceFacility theTrace("KernelNetNsInfo");

// What can change which names there are, or which folder the path leads to.
constexpr uint32_t changes =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

std::string parentOf(std::string const& path) {
   size_t const slash = path.rfind('/');
   return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

} // namespace

bool isFolder(int folder, char const* name, unsigned char type) {
   if (type != DT_UNKNOWN)
      return type == DT_DIR;
   struct stat status;
   return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

Manager::Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root, std::string folder)
    : root_(std::move(root)), folder_(std::move(folder)), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
      clock_(*this, kemFwkActivity->clock()) {
   if (inotify_ >= 0)
      bell_.descriptorIs(inotify_);
   handleInitialized();
}

Manager::~Manager() {
   bell_.descriptorIs(-1);
   if (inotify_ >= 0)
      close(inotify_);
}

void Manager::handleBell() {
   // What happened doesn't matter, only that something did; an overflow of the queue is one more such event.
   alignas(inotify_event) char events[16384];
   while (read(inotify_, events, sizeof events) > 0) {
   }
   if (!isZombie())
      handleInitialized();
}

void Manager::handleInitialized() {
   // The watch first: what changes after the look rings again.
   if (!watch()) {
      KEM_TRACE(theTrace, 1, folder_ << " can't be watched: " << strerror(errno));
      clock_.timeMinIs(Kem::now() + pollInterval);
   }
   auto const wanted = names();
   for (auto const& [name, netNs] : root_->netNsByName())
      if (!wanted.contains(name.stringValue().str())) {
         KEM_TRACE(theTrace, 3, "namespace " << name << " is gone");
         root_->netNsByNameDel(name);
      }
   for (auto const& name : wanted)
      root_->netNsByNameIs(name);
}

// Watches the folder, or the nearest one above it that exists. False, with errno, where that isn't possible.
bool Manager::watch() {
   for (;;) {
      std::string path = folder_;
      while (!watchOne(path)) {
         bool const isAbsent = errno == ENOENT || errno == ENOTDIR;
         if (!isAbsent || path == "/")
            return false;
         path = parentOf(path);
      }
      struct stat status;
      if (path == folder_ || stat(folder_.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
         return true;
      // The folder came into being between the two: once more, from its own end.
   }
}

bool Manager::watchOne(std::string const& path) {
   int const watched = inotify_add_watch(inotify_, path.c_str(), changes);
   if (watched < 0)
      return false;
   // The same folder again gives the same number. Another one takes the place of the old, which may be gone,
   // and its watch with it.
   if (watched_ >= 0 && watched != watched_)
      inotify_rm_watch(inotify_, watched_);
   watched_ = watched;
   return true;
}

std::set<std::string> Manager::names() {
   std::set<std::string> found, tooLong;
   if (DIR* const folder = opendir(folder_.c_str())) {
      while (auto const* const entry = readdir(folder)) {
         if (isFolder(dirfd(folder), entry->d_name, entry->d_type))
            continue;
         std::string const name = entry->d_name;
         (name.size() > Sulvi::NamespaceName::maxBytes ? tooLong : found).insert(name);
      }
      closedir(folder);
   }
   for (auto const& name : tooLong)
      if (!leftOut_.contains(name))
         KEM_TRACE(theTrace, 0,
                   "namespace " << name << " is left out: a name has at most "
                                << Sulvi::NamespaceName::maxBytes << " bytes");
   leftOut_ = std::move(tooLong);
   return found;
}

} // namespace KernelNetNsInfo
