#include "Zivlog/TracePath.h"

#include "Zivlog/TestFolder.h"

#include <gmock/gmock.h>

namespace Zivlog {
namespace {

using namespace Testing;
using ::testing::UnorderedElementsAre;

std::vector<std::string> namesIn(std::string const& folder) {
   std::vector<std::string> names;
   for (auto const& entry : std::filesystem::directory_iterator(folder))
      names.push_back(entry.path().filename().string());
   return names;
}

// A trace file of a process that has ended, older by one second for each `age`.
void leave(Folder const& folder, std::string const& name, int age) {
   TraceFile file;
   ASSERT_EQ(file.open(folder.file(name), smallSizes), "");
   file.close();
   auto const now = std::filesystem::file_time_type::clock::now();
   std::filesystem::last_write_time(folder.file(name), now - std::chrono::seconds(age));
}

TEST(TracePath, theProcessIdStandsForItsMark) {
   EXPECT_EQ(tracePath("Vorn-%d.zv", 1234, "/traces", "/none"), "/traces/Vorn-1234.zv");
   EXPECT_EQ(tracePath("%d-%d", 12, "/traces", "/none"), "/traces/12-12");
   EXPECT_EQ(tracePath("Vorn.zv", 1234, "/traces", "/none"), "/traces/Vorn.zv");
}

TEST(TracePath, theDirectoryOfTheEnvironmentComesFirst) {
   Folder folder;
   EXPECT_EQ(tracePath("a.zv", 1, "/traces", folder.path()), "/traces/a.zv");
   EXPECT_EQ(tracePath("a.zv", 1, nullptr, folder.path()), folder.file("a.zv"));
   EXPECT_EQ(tracePath("a.zv", 1, "", folder.path()), folder.file("a.zv"));
}

TEST(TracePath, withoutALogDirectoryItIsTheWorkingDirectory) {
   EXPECT_EQ(tracePath("a.zv", 1, nullptr, "/no/such/directory"), "a.zv");
}

TEST(TracePath, aNameWithASlashIsTakenAsItIs) {
   EXPECT_EQ(tracePath("/elsewhere/a-%d.zv", 5, "/traces", "/none"), "/elsewhere/a-5.zv");
   EXPECT_EQ(tracePath("./a.zv", 5, "/traces", "/none"), "./a.zv");
}

TEST(TracePath, onlyTheNewestOldTracesAreKept) {
   Folder folder;
   for (int age = 1; age <= 5; ++age)
      leave(folder, "Vorn-" + std::to_string(100 + age) + ".zv", age);
   removeOldTraces(folder.file("Vorn-%d.zv"), 2);
   EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("Vorn-101.zv", "Vorn-102.zv"));
}

TEST(TracePath, filesOfOtherNamesAreLeftAlone) {
   Folder folder;
   for (char const* name : {"Vorn-1a.zv", "Vorn-.zv", "Vorn.zv", "Other-12.zv", "Vorn-12.zv.bak"})
      leave(folder, name, 10);
   removeOldTraces(folder.file("Vorn-%d.zv"), 0);
   EXPECT_THAT(namesIn(folder.path()),
               UnorderedElementsAre("Vorn-1a.zv", "Vorn-.zv", "Vorn.zv", "Other-12.zv", "Vorn-12.zv.bak"));
}

TEST(TracePath, aNameWithoutTheMarkRemovesNothing) {
   Folder folder;
   leave(folder, "Vorn.zv", 10);
   removeOldTraces(folder.file("Vorn.zv"), 0);
   EXPECT_THAT(namesIn(folder.path()), UnorderedElementsAre("Vorn.zv"));
}

TEST(TracePath, whatIsNoTraceFileOrStillWrittenIsLeftAlone) {
   Folder folder;
   std::ofstream(folder.file("Vorn-1.zv")) << "somebody's notes";
   std::filesystem::create_directory(folder.file("Vorn-2.zv"));
   leave(folder, "target", 10);
   std::filesystem::create_symlink("target", folder.file("Vorn-3.zv"));
   TraceFile living;
   ASSERT_EQ(living.open(folder.file("Vorn-4.zv"), smallSizes), "");
   leave(folder, "Vorn-5.zv", 10);
   removeOldTraces(folder.file("Vorn-%d.zv"), 0);
   EXPECT_THAT(namesIn(folder.path()),
               UnorderedElementsAre("Vorn-1.zv", "Vorn-2.zv", "Vorn-3.zv", "target", "Vorn-4.zv"));
}

} // namespace
} // namespace Zivlog
