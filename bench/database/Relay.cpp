#include "Relay.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

namespace {

[[noreturn]] void fail(char const* what) {
   std::perror(what);
   std::exit(1);
}

sockaddr_un addressOf(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
   return address;
}

int tryConnect(std::string const& path) {
   int const fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_un const address = addressOf(path);
   if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0)
      return fd;
   close(fd);
   return -1;
}

[[noreturn]] void relay(int listener) {
   int const writer = accept(listener, nullptr, nullptr), reader = accept(listener, nullptr, nullptr);
   static char buffer[256 << 10];
   for (;;) {
      ssize_t const got = recv(writer, buffer, sizeof buffer, 0);
      if (got <= 0)
         _exit(0);
      for (ssize_t sent = 0; sent < got;) {
         ssize_t const n = send(reader, buffer + sent, static_cast<size_t>(got - sent), MSG_NOSIGNAL);
         if (n <= 0)
            _exit(0);
         sent += n;
      }
   }
}

void waitUntilListening(std::string const& path, pid_t pid) {
   for (int i = 0; i < 1000; ++i) {
      if (int const fd = tryConnect(path); fd >= 0) {
         close(fd);
         return;
      }
      if (waitpid(pid, nullptr, WNOHANG) == pid)
         break;
      usleep(5000);
   }
   std::fprintf(stderr, "nothing listens at %s\n", path.c_str());
   std::exit(1);
}

} // namespace

pid_t startRelay(std::string const& socketPath) {
   int const listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   sockaddr_un const address = addressOf(socketPath);
   if (bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0 ||
       listen(listener, 2) != 0)
      fail(socketPath.c_str());
   pid_t const pid = fork();
   if (pid == 0)
      relay(listener);
   close(listener);
   return pid;
}

pid_t startDatabase(std::string const& program, std::string const& socketPath) {
   pid_t const pid = fork();
   if (pid == 0) {
      if (!std::freopen("/dev/null", "w", stderr))
         _exit(126);
      execl(program.c_str(), program.c_str(), "--socket", socketPath.c_str(), nullptr);
      _exit(127);
   }
   waitUntilListening(socketPath, pid);
   return pid;
}

void stop(pid_t pid) {
   kill(pid, SIGTERM);
   waitpid(pid, nullptr, 0);
}

int connectTo(std::string const& socketPath) {
   int const fd = tryConnect(socketPath);
   if (fd < 0)
      fail(socketPath.c_str());
   return fd;
}

} // namespace Bench
