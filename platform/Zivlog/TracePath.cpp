#include "Zivlog/TracePath.h"

#include "Zivlog/FileLayout.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Zivlog {

namespace {

constexpr std::string_view pidMark = "%d";

// Whether `path` is a trace file that no living process writes: a writer holds an
// exclusive lock as long as it lives.
bool isAbandonedTrace(std::string const& path) {
   int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
   if (fd < 0)
      return false;
   char start[sizeof(FileLayout::magic)];
   bool const abandoned = ::read(fd, start, sizeof(start)) == static_cast<ssize_t>(sizeof(start)) &&
                          std::equal(start, start + sizeof(start), FileLayout::magic) &&
                          ::flock(fd, LOCK_SH | LOCK_NB) == 0;
   ::close(fd);
   return abandoned;
}

} // namespace

std::string tracePath(std::string_view fileName, pid_t pid, char const* zivlogDir,
                      std::string const& logDir) {
   std::string name(fileName);
   std::string const number = std::to_string(pid);
   for (size_t at = 0; (at = name.find(pidMark, at)) != std::string::npos; at += number.size())
      name.replace(at, pidMark.size(), number);
   if (name.find('/') != std::string::npos)
      return name;
   if (zivlogDir && *zivlogDir)
      return std::string(zivlogDir) + "/" + name;
   if (::access(logDir.c_str(), W_OK | X_OK) == 0)
      return logDir + "/" + name;
   return name;
}

void removeOldTraces(std::string const& pattern, size_t kept) {
   size_t const slash = pattern.rfind('/');
   std::string const folder = slash == std::string::npos ? "." : pattern.substr(0, slash + 1);
   std::string const name = slash == std::string::npos ? pattern : pattern.substr(slash + 1);
   size_t const mark = name.find(pidMark);
   if (mark == std::string::npos || pattern.find(pidMark) != pattern.rfind(pidMark))
      return;
   std::string const head = name.substr(0, mark);
   std::string const tail = name.substr(mark + pidMark.size());

   struct Found {
      timespec changed;
      std::string path;
   };
   std::vector<Found> found;
   DIR* const directory = ::opendir(folder.c_str());
   if (!directory)
      return;
   while (dirent const* entry = ::readdir(directory)) {
      std::string_view const candidate = entry->d_name;
      if (candidate.size() <= head.size() + tail.size() || !candidate.starts_with(head) ||
          !candidate.ends_with(tail))
         continue;
      std::string_view const digits =
          candidate.substr(head.size(), candidate.size() - head.size() - tail.size());
      if (digits.find_first_not_of("0123456789") != std::string_view::npos)
         continue;
      std::string path = folder + "/" + std::string(candidate);
      struct stat status;
      if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode))
         found.push_back({status.st_mtim, std::move(path)});
   }
   ::closedir(directory);

   std::sort(found.begin(), found.end(), [](Found const& a, Found const& b) {
      return a.changed.tv_sec != b.changed.tv_sec ? a.changed.tv_sec > b.changed.tv_sec
                                                  : a.changed.tv_nsec > b.changed.tv_nsec;
   });
   for (size_t i = kept; i < found.size(); ++i) {
      if (isAbandonedTrace(found[i].path))
         ::unlink(found[i].path.c_str());
   }
}

} // namespace Zivlog
