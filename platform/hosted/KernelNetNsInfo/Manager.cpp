#include "KernelNetNsInfo/Manager.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"
#include "Netlink/Kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace KernelNetNsInfo {

namespace {

Kem::TraceFacility theTrace("KernelNetNsInfo");

// What can change which names there are, beside what FolderWatch looks for itself.
constexpr uint32_t changes = IN_DELETE | IN_MOVED_FROM;

} // namespace

bool isFolder(int folder, char const* name, unsigned char type) {
   if (type != DT_UNKNOWN)
      return type == DT_DIR;
   struct stat status;
   return fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

Manager::Manager(Kem::Ptr<Kem::ActivityConfig> const& kemFwkActivity, Kem::Ptr<Root> root, std::string folder)
    : root_(std::move(root)), folder_(std::move(folder)), watch_(folder_, changes),
      clock_(*this, kemFwkActivity->clock()) {
   if (watch_.descriptor() >= 0)
      bell_.descriptorIs(watch_.descriptor());
   handleInitialized();
}

Manager::~Manager() {
   bell_.descriptorIs(-1);
}

void Manager::handleBell() {
   if (watch_.hear() && !isZombie())
      handleInitialized();
}

void Manager::handleInitialized() {
   // The watch first: what changes after the look rings again.
   if (watch_.follow() == Kem::FolderWatch::Followed::notPossible) {
      KEM_TRACE(theTrace, 1, folder_ << " can't be watched: " << strerror(errno));
      clock_.timeMinIs(Kem::now() + pollInterval);
   }
   auto const wanted = names();
   for (auto const& [name, netNs] : root_->netNsByName())
      if (!wanted.contains(name.stringValue().str())) {
         KEM_TRACE(theTrace, 3, "namespace " << name << " is gone");
         root_->netNsByNameDel(name);
      }
   bool isAnyUnready = false;
   for (auto const& name : wanted) {
      auto const inode = Netlink::kernel().netNsInode(name);
      bool const isNew = !root_->netNsByName(name);
      auto const netNs = root_->netNsByNameIs(name);
      if (inode == 0 && (isNew || netNs->inode() != 0))
         readyInterval_ = minReadyInterval; // it is just being made
      netNs->inodeIs(inode);
      isAnyUnready |= inode == 0;
   }
   lookAgainIf(isAnyUnready);
}

void Manager::lookAgainIf(bool isAnyUnready) {
   if (!isAnyUnready) {
      readyInterval_ = minReadyInterval;
      return;
   }
   clock_.timeMinIs(std::min(clock_.timeMin(), Kem::now() + readyInterval_));
   readyInterval_ = std::min(2 * readyInterval_, maxReadyInterval);
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
