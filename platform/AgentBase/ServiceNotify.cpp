#include "AgentBase/ServiceNotify.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace AgentBase {

void serviceNotify(char const* state) {
   char const* const path = std::getenv("NOTIFY_SOCKET");
   sockaddr_un address{};
   if (!path || !*path || std::strlen(path) >= sizeof address.sun_path)
      return;
   int const fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   if (fd < 0)
      return;
   address.sun_family = AF_UNIX;
   std::strcpy(address.sun_path, path);
   if (address.sun_path[0] == '@') // an abstract address
      address.sun_path[0] = '\0';
   auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
   sendto(fd, state, std::strlen(state), MSG_NOSIGNAL, reinterpret_cast<sockaddr const*>(&address), size);
   close(fd);
}

} // namespace AgentBase
