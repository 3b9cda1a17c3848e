#include "Process/ServiceNotify.h"

#include "Process/Failure.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Process {

namespace {

// Empty, or why it could not be notified.
std::string notify(std::string const& path, char const* state, int flags) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if ((path[0] != '/' && path[0] != '@') || path.size() >= sizeof address.sun_path)
      return "is no address of a service manager";
   path.copy(address.sun_path, path.size());
   if (path[0] == '@') // an abstract address
      address.sun_path[0] = '\0';
   int const fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
   bool const isSent = fd >= 0 && sendto(fd, state, std::strlen(state), MSG_NOSIGNAL | flags,
                                         reinterpret_cast<sockaddr const*>(&address), size) >= 0;
   bool const isDropped = !isSent && errno == EAGAIN; // only without waiting
   std::string const error = isSent || isDropped ? "" : std::strerror(errno);
   if (fd >= 0)
      close(fd);
   return error;
}

void notifyManager(char const* state, int flags) {
   char const* const path = std::getenv("NOTIFY_SOCKET");
   if (!path || !*path)
      return;
   if (std::string const error = notify(path, state, flags); !error.empty())
      say("NOTIFY_SOCKET", std::string(path) + ": " + error);
}

} // namespace

void serviceNotify(char const* state) {
   notifyManager(state, 0);
}

void serviceNotifyIfRoom(char const* state) {
   notifyManager(state, MSG_DONTWAIT);
}

} // namespace Process
