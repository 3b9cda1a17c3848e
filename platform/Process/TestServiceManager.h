// A service manager for tests: a datagram socket that keeps what it is told.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Process {

class TestServiceManager {
  public:
   // On a path, or on an abstract address that begins with "@".
   explicit TestServiceManager(std::string const& path) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, path.size());
      if (path[0] == '@')
         address.sun_path[0] = '\0';
      socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
      EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr const*>(&address), size), 0);
      int const on = 1;
      EXPECT_EQ(setsockopt(socket_, SOL_SOCKET, SO_PASSCRED, &on, sizeof on), 0);
   }
   ~TestServiceManager() { close(socket_); }
   TestServiceManager(TestServiceManager const&) = delete;
   TestServiceManager& operator=(TestServiceManager const&) = delete;

   // The next message that it received; empty when there is none within so many milliseconds.
   std::string told(int timeout = 0) {
      pollfd wait{socket_, POLLIN, 0};
      if (poll(&wait, 1, timeout) <= 0)
         return "";
      char bytes[64];
      char control[CMSG_SPACE(sizeof(ucred))];
      iovec vector{bytes, sizeof bytes};
      msghdr message{};
      message.msg_iov = &vector;
      message.msg_iovlen = 1;
      message.msg_control = control;
      message.msg_controllen = sizeof control;
      ssize_t const count = recvmsg(socket_, &message, 0);
      if (cmsghdr const* const found = CMSG_FIRSTHDR(&message); found && found->cmsg_type == SCM_CREDENTIALS)
         sender_ = reinterpret_cast<ucred const*>(CMSG_DATA(found))->pid;
      return count > 0 ? std::string(bytes, static_cast<size_t>(count)) : "";
   }
   // Whose message told() gave last.
   pid_t sender() const { return sender_; }

  private:
   int socket_;
   pid_t sender_ = 0;
};

// A variable of the environment for as long as the object lives.
class TestVariable {
  public:
   TestVariable(char const* name, std::string const& value) : name_(name) { setenv(name, value.c_str(), 1); }
   ~TestVariable() { unsetenv(name_); }
   TestVariable(TestVariable const&) = delete;
   TestVariable& operator=(TestVariable const&) = delete;

  private:
   char const* const name_;
};

} // namespace Process
