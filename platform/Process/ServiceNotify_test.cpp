#include "Process/ServiceNotify.h"

#include "Process/TestServiceManager.h"

#include <filesystem>

namespace {

using Process::TestServiceManager;
using Process::TestVariable;

std::string errorsOf(char const* path) {
   TestVariable const notifySocket("NOTIFY_SOCKET", path);
   testing::internal::CaptureStderr();
   Process::serviceNotify("READY=1");
   return testing::internal::GetCapturedStderr();
}

TEST(ServiceNotify, managerIsToldOnAPathAndOnAnAbstractAddress) {
   std::string folder = testing::TempDir() + "/notify-XXXXXX";
   ASSERT_TRUE(mkdtemp(folder.data()));
   {
      TestServiceManager manager(folder + "/socket");
      TestVariable const notifySocket("NOTIFY_SOCKET", folder + "/socket");
      Process::serviceNotify("READY=1");
      Process::serviceNotify("STOPPING=1");
      EXPECT_EQ(manager.told(), "READY=1");
      EXPECT_EQ(manager.told(), "STOPPING=1");
      EXPECT_EQ(manager.told(), "");
   }
   std::filesystem::remove_all(folder);
   std::string const address = "@process-test-" + std::to_string(getpid());
   TestServiceManager manager(address);
   TestVariable const notifySocket("NOTIFY_SOCKET", address);
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
