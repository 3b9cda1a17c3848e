#include "Sulvi/SocketAt.h"

#include "Kem/Assert.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Sulvi {

namespace {

// The namespace of the calling thread; the process's own entry would be that of its first thread.
constexpr char currentNetns[] = "/proc/thread-self/ns/net";

// Closes without disturbing the errno that the caller is to see.
void closeQuietly(int fd) {
   int const error = errno;
   close(fd);
   errno = error;
}

// One component of a path, so that a name can't lead out of the folder.
bool isFileName(std::string_view name) {
   return name != "." && name != ".." && name.find('/') == std::string_view::npos &&
          name.find('\0') == std::string_view::npos;
}

int openCurrent() {
   return open(currentNetns, O_RDONLY | O_CLOEXEC);
}

} // namespace

int getnsByName(NamespaceName const& name, int nsType) {
   if (!isFileName(name.stringValue())) {
      errno = EINVAL;
      return -1;
   }
   int const fd = name.isDefault() ? openCurrent()
                                   : open((std::string(namespaceFolder) + "/" + name.charPtr()).c_str(),
                                          O_RDONLY | O_CLOEXEC);
   if (fd < 0)
      return -1;
   // A name whose namespace is gone is left behind as an empty file.
   if (nsType != 0 && ioctl(fd, NS_GET_NSTYPE) != nsType) {
      close(fd);
      errno = EINVAL;
      return -1;
   }
   return fd;
}

int socketAt(int family, int type, int protocol, NamespaceName const& nsName) {
   if (nsName.isDefault())
      return socket(family, type | SOCK_CLOEXEC, protocol);
   int const target = getnsByName(nsName, CLONE_NEWNET);
   if (target < 0)
      return -1;
   int const back = openCurrent();
   if (back < 0 || setns(target, CLONE_NEWNET) != 0) {
      closeQuietly(target);
      if (back >= 0)
         closeQuietly(back);
      return -1;
   }
   closeQuietly(target);
   int const fd = socket(family, type | SOCK_CLOEXEC, protocol);
   int const error = errno;
   bool const isBack = setns(back, CLONE_NEWNET) == 0;
   KEM_ASSERT(isBack);
   close(back);
   errno = error;
   return fd;
}

} // namespace Sulvi
