#include "Plaze/TableLock.h"

#include "Plaze/TableFile.h"
#include "Plaze/Trust.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Plaze {

TableLock::TableLock(std::string const& path) {
   std::string const name = path + ".lock~";
   auto const fail = [&](Error::Kind kind, std::string const& reason) {
      int const error = errno;
      if (fd_ >= 0)
         close(fd_);
      throw Error(kind, path, kind == Error::Kind::system ? reason + ": " + std::strerror(error) : reason);
   };
   fd_ = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
   if (fd_ < 0)
      fail(Error::Kind::system, "its lock " + name + " can't be opened");
   struct stat status;
   if (fstat(fd_, &status) != 0)
      fail(Error::Kind::system, "its lock " + name + " can't be read");
   if (!S_ISREG(status.st_mode) || status.st_nlink > 1)
      fail(Error::Kind::refused, "its lock " + name + " is no file of its own");
   if (std::string const why = whyNotTrusted(status); !why.empty())
      fail(Error::Kind::refused, "its lock " + name + ' ' + why);
   if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK)
         fail(Error::Kind::system, "its lock " + name + " can't be taken");
      char holder[24] = "";
      if (pread(fd_, holder, sizeof holder - 1, 0) <= 0)
         std::strcpy(holder, "of an unknown number");
      fail(Error::Kind::refused, "process " + std::string(holder, strcspn(holder, "\n")) + " writes it");
   }
   // For whoever comes next and finds it taken.
   std::string const number = std::to_string(getpid()) + '\n';
   if (ftruncate(fd_, 0) != 0 || pwrite(fd_, number.data(), number.size(), 0) < 0)
      fail(Error::Kind::system, "its lock " + name + " can't be written");
}

TableLock::~TableLock() {
   close(fd_);
}

} // namespace Plaze
