#include "Process/ServiceNotify.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A service manager on an address, which it puts into the environment.
class Manager {
  public:
   explicit Manager(std::string const& path) {
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, path.size());
      if (path[0] == '@')
         address.sun_path[0] = '\0';
      socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      auto const size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
      EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr const*>(&address), size), 0);
      setenv("NOTIFY_SOCKET", path.c_str(), 1);
   }
   ~Manager() {
      close(socket_);
      unsetenv("NOTIFY_SOCKET");
   }
   // The next message that it received; empty when there is none.
   std::string told() {
      char bytes[64];
      ssize_t const count = recv(socket_, bytes, sizeof bytes, 0);
      return count > 0 ? std::string(bytes, static_cast<size_t>(count)) : "";
   }

  private:
   int socket_;
};

std::string errorsOf(char const* path) {
   setenv("NOTIFY_SOCKET", path, 1);
   testing::internal::CaptureStderr();
   Process::serviceNotify("READY=1");
   unsetenv("NOTIFY_SOCKET");
   return testing::internal::GetCapturedStderr();
}

TEST(ServiceNotify, managerIsToldOnAPathAndOnAnAbstractAddress) {
   std::string folder = testing::TempDir() + "/notify-XXXXXX";
   ASSERT_TRUE(mkdtemp(folder.data()));
   {
      Manager manager(folder + "/socket");
      Process::serviceNotify("READY=1");
      Process::serviceNotify("STOPPING=1");
      EXPECT_EQ(manager.told(), "READY=1");
      EXPECT_EQ(manager.told(), "STOPPING=1");
      EXPECT_EQ(manager.told(), "");
   }
   std::filesystem::remove_all(folder);
   Manager manager("@process-test-" + std::to_string(getpid()));
   Process::serviceNotify("READY=1");
   EXPECT_EQ(manager.told(), "READY=1");
}

TEST(ServiceNotify, whereNobodyAsksNothingIsSaid) {
   EXPECT_EQ(errorsOf(""), "");
}

TEST(ServiceNotify, managerThatCanNotBeReachedIsNamedInALine) {
   EXPECT_EQ(errorsOf("/nonexistent/notify"),
             "NOTIFY_SOCKET: /nonexistent/notify: No such file or directory\n");
   EXPECT_EQ(errorsOf("relative"), "NOTIFY_SOCKET: relative: is no address of a service manager\n");
   EXPECT_NE(errorsOf(("/" + std::string(200, 'x')).c_str()).find("is no address of a service manager\n"),
             std::string::npos);
}

} // namespace
