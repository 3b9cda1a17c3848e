#include "Zivlog/Zivlog.h"

#include "Kem/Assert.h"
#include "Zivlog/TestFolder.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace Zivlog {
namespace {

using namespace Testing;
using ::testing::ElementsAre;

// Each test has a directory of its own for the trace file of the process.
class ZivlogOfProcess : public ::testing::Test {
  protected:
   ZivlogOfProcess() { ::setenv("ZIVLOGDIR", folder_.path().c_str(), 1); }
   ~ZivlogOfProcess() override {
      close();
      ::unsetenv("ZIVLOGDIR");
   }
   Folder folder_;
};

TEST_F(ZivlogOfProcess, theFileStandsInTheDirectoryOfTheEnvironment) {
   ASSERT_TRUE(initialize("Vorn.zv", smallSizes));
   EXPECT_TRUE(isOpen());
   EXPECT_EQ(path(), folder_.path() + "/Vorn.zv");
   text(0, "Agent", "Agent.cpp", 5, "start", "agent started");
   EXPECT_THAT(textsOf(folder_.file("Vorn.zv")), ElementsAre("agent started"));
}

TEST_F(ZivlogOfProcess, theMarkBecomesTheProcessId) {
   ASSERT_TRUE(initialize("Vorn-%d.zv", smallSizes));
   EXPECT_TRUE(std::filesystem::exists(folder_.file("Vorn-" + std::to_string(::getpid()) + ".zv")));
}

TEST_F(ZivlogOfProcess, onlyEightFilesOfTheNameAreKept) {
   for (int pid = 1; pid <= 12; ++pid) {
      TraceFile ended;
      ASSERT_EQ(ended.open(folder_.file("Vorn-" + std::to_string(10'000'000 + pid) + ".zv"), smallSizes), "");
      ended.close();
      std::filesystem::last_write_time(folder_.file("Vorn-" + std::to_string(10'000'000 + pid) + ".zv"),
                                       std::filesystem::file_time_type::clock::now() -
                                           std::chrono::seconds(100 - pid));
   }
   ASSERT_TRUE(initialize("Vorn-%d.zv", smallSizes));
   std::vector<std::string> names;
   for (auto const& entry : std::filesystem::directory_iterator(folder_.path()))
      names.push_back(entry.path().filename().string());
   std::sort(names.begin(), names.end());
   std::vector<std::string> expected = {"Vorn-" + std::to_string(::getpid()) + ".zv"};
   for (int pid = 6; pid <= 12; ++pid)
      expected.push_back("Vorn-" + std::to_string(10'000'000 + pid) + ".zv");
   std::sort(expected.begin(), expected.end());
   EXPECT_EQ(names, expected);
}

TEST_F(ZivlogOfProcess, rowsOfAnyStringTypesAreWritten) {
   static FormatId const format = registerFormat("event", "%s %s %s", 3);
   write(5, format, "before", "it is", "open");
   ASSERT_TRUE(initialize("Vorn.zv", smallSizes));
   write(5, format, "literal", std::string("string"), std::string_view("view"));
   write(*traceFile(), 5, format, "through", "the", "handle");
   EXPECT_THAT(textsOf(folder_.file("Vorn.zv")), ElementsAre("literal string view", "through the handle"));
}

TEST_F(ZivlogOfProcess, withoutAFileTheProcessGoesOnAndSaysSo) {
   ::setenv("ZIVLOGDIR", "/no/such/directory", 1);
   ::testing::internal::CaptureStderr();
   EXPECT_FALSE(initialize("Vorn.zv", smallSizes));
   EXPECT_EQ(::testing::internal::GetCapturedStderr(),
             "/no/such/directory/Vorn.zv: cannot create the trace file: No such "
             "file or directory; going on without it\n");
   EXPECT_FALSE(isOpen());
   EXPECT_EQ(traceFile(), nullptr);
   EXPECT_EQ(path(), "");
   text(0, "Agent", "Agent.cpp", 5, "start", "dropped");
   flush();
   close();
}

TEST_F(ZivlogOfProcess, closeEndsTracingInOrder) {
   ASSERT_TRUE(initialize("Vorn.zv", smallSizes));
   close();
   EXPECT_FALSE(isOpen());
   text(0, "Agent", "Agent.cpp", 5, "stop", "too late");
   Reader const reader = Reader::ofFile(folder_.file("Vorn.zv"));
   EXPECT_EQ(reader.size(), 0u);
   EXPECT_NE(reader.header().closedWallNs, 0);
}

// The directory of the test is shared with the process that dies in it.
TEST_F(ZivlogOfProcess, whatWasTracedBeforeAFailedAssertionIsInTheFile) {
   EXPECT_DEATH(
       {
          initialize("Vorn.zv", smallSizes);
          text(0, "Agent", "Agent.cpp", 5, "handle", "about to fail");
          KEM_ASSERT(path().empty());
       },
       "path\\(\\)\\.empty\\(\\)");
   EXPECT_THAT(textsOf(folder_.file("Vorn.zv")), ElementsAre("about to fail"));
}

} // namespace
} // namespace Zivlog
