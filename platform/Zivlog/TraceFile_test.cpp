#include "Zivlog/TraceFile.h"

#include "Zivlog/TestFolder.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Zivlog {
namespace {

using namespace Testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

void say(TraceFile& file, unsigned level, std::string const& text) {
   file.text(level, "F", "f.cpp", 1, "f", text);
}

TEST(TraceFile, aTextLineComesBackWithAllItsParts) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   file.text(3, "BridgingSm", "some/folder/BridgingSm.cpp", 77, "handleVlan", "vlan 10 is gone");

   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   ASSERT_EQ(reader.size(), 1u);
   Record const record = reader.at(0);
   EXPECT_EQ(record.sequence, 1u);
   EXPECT_EQ(record.level, 3u);
   EXPECT_EQ(record.facility, "BridgingSm");
   EXPECT_EQ(record.file, "BridgingSm.cpp");
   EXPECT_EQ(record.line, 77u);
   EXPECT_EQ(record.function, "handleVlan");
   EXPECT_EQ(record.text, "vlan 10 is gone");
   EXPECT_FALSE(record.isRow);
   EXPECT_FALSE(record.isTruncated);
}

TEST(TraceFile, theHeaderTellsWhoWroteTheFileAndWhetherItWasClosed) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   Reader const open = Reader::ofFile(folder.file("a.zv"));
   EXPECT_EQ(open.header().pid, static_cast<uint32_t>(::getpid()));
   EXPECT_THAT(open.header().program, HasSubstr("Zivlog_test"));
   EXPECT_EQ(open.header().closedWallNs, 0);
   EXPECT_TRUE(Reader::isBeingWritten(folder.file("a.zv")));

   file.close();
   Reader const closed = Reader::ofFile(folder.file("a.zv"));
   EXPECT_GE(closed.header().closedWallNs, closed.header().startWallNs);
   EXPECT_FALSE(Reader::isBeingWritten(folder.file("a.zv")));
}

TEST(TraceFile, recordsOfAllLevelsComeInTheOrderOfWriting) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   say(file, 9, "one");
   say(file, 0, "two");
   say(file, 5, "three");
   say(file, 0, "four");
   EXPECT_THAT(textsOf(folder.file("a.zv")), ElementsAre("one", "two", "three", "four"));
}

TEST(TraceFile, aFullRingKeepsTheNewestWithoutAGap) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   // Lengths that don't divide the ring, so that it begins again at ever other places.
   for (unsigned i = 1; i <= 500; ++i) {
      say(file, 2, std::to_string(i) + std::string(i * 7 % 90, '.'));
      Reader const reader = Reader::ofFile(folder.file("a.zv"));
      ASSERT_GE(reader.size(), std::min(i, 3u));
      for (size_t k = 0; k < reader.size(); ++k) {
         unsigned const number = i - static_cast<unsigned>(reader.size() - 1 - k);
         ASSERT_EQ(reader.at(k).sequence, number);
         ASSERT_EQ(reader.at(k).text, std::to_string(number) + std::string(number * 7 % 90, '.'));
      }
      ASSERT_EQ(reader.ring(2).written, i);
      ASSERT_EQ(reader.ring(2).held, reader.size());
   }
}

TEST(TraceFile, aBusyLevelDoesNotPushOutARareOne) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   say(file, 0, "the failure");
   for (unsigned i = 0; i < 1000; ++i)
      say(file, 9, "entry to a handler");
   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   EXPECT_EQ(reader.at(0).text, "the failure");
   EXPECT_EQ(reader.ring(0).held, 1u);
   EXPECT_EQ(reader.ring(0).written, 1u);
   EXPECT_EQ(reader.ring(9).written, 1000u);
   EXPECT_LT(reader.ring(9).held, 20u);
   EXPECT_EQ(reader.ring(9).oldest, 1u);
}

TEST(TraceFile, aLevelOfSizeZeroIsNotRecordedAndOneBeyondNineCountsAsNine) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), {1, 0, 1, 1, 1, 1, 1, 1, 1, 1}), "");
   say(file, 1, "dropped");
   say(file, 12, "kept");
   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   ASSERT_THAT(textsOf(reader), ElementsAre("kept"));
   EXPECT_EQ(reader.at(0).level, 9u);
}

TEST(TraceFile, whatIsTooLongIsCutAndMarked) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), {400, 1, 1, 1, 1, 1, 1, 1, 1, 1}), "");
   std::string const longText(100'000, 'x'), longName(300, 'n');
   file.text(0, longName, longName, 1, longName, longText);
   file.text(1, longName, longName, 1, longName, longText);
   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   ASSERT_EQ(reader.size(), 2u);
   EXPECT_TRUE(reader.at(0).isTruncated);
   EXPECT_EQ(reader.at(0).facility, std::string(63, 'n'));
   EXPECT_EQ(reader.at(0).text, std::string(4096 - 40 - 12 - 3 * 63, 'x'));
   EXPECT_TRUE(reader.at(1).isTruncated);
   EXPECT_EQ(reader.at(1).text, std::string(256 - 40 - 12 - 3 * 63, 'x'));
}

TEST(TraceFile, aTextThatJustFitsIsNotMarked) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   std::string const fits(256 - 40 - 12 - 1 - 5 - 1, 'x'); // "F", "f.cpp" and "f" stand there too
   say(file, 0, fits);
   say(file, 0, fits + "x");
   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   EXPECT_FALSE(reader.at(0).isTruncated);
   EXPECT_EQ(reader.at(0).text, fits);
   EXPECT_TRUE(reader.at(1).isTruncated);
   EXPECT_EQ(reader.at(1).text, fits);
}

TEST(TraceFile, rowsAreDecodedFromTheFileAlone) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   FormatId const mac = registerFormat("mac", "%s fid %s mac %s %s on %s (%s), 100%%", 6);
   std::string_view const added[] = {"1", "10", "00:1c:73:00:00:01", "added", "Ethernet3/1", "learned"};
   std::string_view const removed[] = {"2", "10", "00:1c:73:00:00:01", "removed", "", ""};
   file.row(5, mac, added);
   file.row(5, mac, removed);

   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   EXPECT_THAT(textsOf(reader),
               ElementsAre("1 fid 10 mac 00:1c:73:00:00:01 added on Ethernet3/1 (learned), 100%",
                           "2 fid 10 mac 00:1c:73:00:00:01 removed on  (), 100%"));
   Record const record = reader.at(0);
   EXPECT_TRUE(record.isRow);
   EXPECT_EQ(record.facility, "mac");
   EXPECT_THAT(record.fields, ElementsAre("1", "10", "00:1c:73:00:00:01", "added", "Ethernet3/1", "learned"));
}

TEST(TraceFile, aFormatRegisteredOnceServesEveryFile) {
   Folder folder;
   FormatId const id = registerFormat("every", "value %s", 1);
   EXPECT_EQ(registerFormat("every", "value %s", 1), id);
   EXPECT_NE(registerFormat("every", "other %s", 1), id);
   std::string_view const fields[] = {"7"};
   for (char const* name : {"a.zv", "b.zv"}) {
      TraceFile file;
      ASSERT_EQ(file.open(folder.file(name), smallSizes), "");
      file.row(0, id, fields);
      EXPECT_THAT(textsOf(folder.file(name)), ElementsAre("value 7"));
   }
}

TEST(TraceFile, aRowThatIsTooLongKeepsItsFirstFields) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   std::string const longField(5000, 'y');
   std::string_view const fields[] = {"first", longField, "last"};
   file.row(0, registerFormat("long", "%s-%s-%s", 3), fields);
   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   ASSERT_EQ(reader.size(), 1u);
   EXPECT_TRUE(reader.at(0).isTruncated);
   EXPECT_THAT(reader.at(0).fields, ElementsAre("first", std::string(256 - 40 - 8 - 3 * 2 - 5, 'y'), ""));
}

TEST(TraceFileDeathTest, aFormatOrARowWithTheWrongNumberOfFieldsIsAnAssertion) {
   EXPECT_DEATH(registerFormat("wrong", "%s %s", 3), "fieldsOfFormat");
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   std::string_view const fields[] = {"only one"};
   EXPECT_DEATH(file.row(0, registerFormat("two", "%s %s", 2), fields), "fieldCount");
   EXPECT_DEATH(file.row(0, 0, fields), "format >= 1");
}

TEST(TraceFile, moreFormatsThanTheFileHoldsLeaveTheRowsReadable) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   FormatId last = 0;
   for (int i = 0; i < 40; ++i)
      last = registerFormat("big" + std::to_string(i), std::string(1000, 'b') + "%s", 1);
   std::string_view const fields[] = {"the value"};
   file.row(0, last, fields);
   EXPECT_THAT(textsOf(folder.file("a.zv")),
               ElementsAre("row of the unknown format " + std::to_string(last) + ": the value"));
}

uint64_t fakeMonotonicNs;
int64_t fakeWallNs;

TEST(TraceFile, aWallClockThatIsSetShowsInTheRecordsThatFollow) {
   Folder folder;
   fakeMonotonicNs = 5'000'000'000;
   fakeWallNs = 1'000'000'000'000;
   TraceFile file({[] { return fakeMonotonicNs; }, [] { return fakeWallNs; }});
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   say(file, 0, "at start");
   fakeMonotonicNs += 400'000'000;
   fakeWallNs += 400'000'000;
   say(file, 0, "0.4 s later");
   fakeMonotonicNs += 600'000'000;
   fakeWallNs = 2'000'000'000'000;
   say(file, 0, "clock set");
   fakeMonotonicNs += 1'000'000'000;
   fakeWallNs = 1'500'000'000'000;
   say(file, 0, "clock set back");

   Reader const reader = Reader::ofFile(folder.file("a.zv"));
   ASSERT_EQ(reader.size(), 4u);
   EXPECT_EQ(reader.at(0).wallNs, 1'000'000'000'000);
   EXPECT_EQ(reader.at(1).wallNs, 1'000'400'000'000);
   EXPECT_EQ(reader.at(2).wallNs, 2'000'000'000'000);
   EXPECT_EQ(reader.at(3).wallNs, 1'500'000'000'000);
   EXPECT_EQ(reader.at(3).monotonicNs, 7'000'000'000u);
}

TEST(TraceFile, theFormerFileOfTheNameIsKeptAsOld) {
   Folder folder;
   for (char const* text : {"first run", "second run", "third run"}) {
      TraceFile file;
      ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
      say(file, 0, text);
   }
   EXPECT_THAT(textsOf(folder.file("a.zv")), ElementsAre("third run"));
   EXPECT_THAT(textsOf(folder.file("a.zv.old")), ElementsAre("second run"));
}

TEST(TraceFile, openingAgainClosesAndStartsAfresh) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   say(file, 0, "in a");
   ASSERT_EQ(file.open(folder.file("b.zv"), smallSizes), "");
   say(file, 0, "in b");
   EXPECT_THAT(textsOf(folder.file("a.zv")), ElementsAre("in a"));
   EXPECT_NE(Reader::ofFile(folder.file("a.zv")).header().closedWallNs, 0);
   Reader const second = Reader::ofFile(folder.file("b.zv"));
   EXPECT_THAT(textsOf(second), ElementsAre("in b"));
   EXPECT_EQ(second.at(0).sequence, 1u);
}

TEST(TraceFile, aFileThatIsNotOpenTakesRecordsAndDropsThem) {
   TraceFile file;
   say(file, 0, "nowhere");
   std::string_view const fields[] = {"7"};
   file.row(0, registerFormat("every", "value %s", 1), fields);
   file.flush();
   file.close();
   EXPECT_FALSE(file.isOpen());
}

TEST(TraceFile, aFolderThatIsNotThereIsAnError) {
   Folder folder;
   TraceFile file;
   EXPECT_EQ(file.open(folder.file("no/such/a.zv"), smallSizes), "No such file or directory");
   EXPECT_FALSE(file.isOpen());
}

TEST(TraceFile, aSizeBeyondTheLimitIsAnError) {
   Folder folder;
   TraceFile file;
   EXPECT_EQ(file.open(folder.file("a.zv"), {1, 1, 65537, 1, 1, 1, 1, 1, 1, 1}),
             "the size of level 2 is 65537 KiB, more than 65536");
   EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(TraceFile, aFileThatCannotGetItsSpaceLeavesNothingBehindAndTheFormerFileInPlace) {
   Folder folder;
   {
      TraceFile file;
      ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
      say(file, 0, "former run");
   }
   rlimit saved;
   ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
   rlimit const tight = {8192, saved.rlim_max};
   ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
   TraceFile file;
   std::string const error = file.open(folder.file("a.zv"), smallSizes);
   ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &saved), 0);
   EXPECT_EQ(error, "larger than the limit of this process for files");
   EXPECT_FALSE(file.isOpen());
   EXPECT_THAT(textsOf(folder.file("a.zv")), ElementsAre("former run"));
   EXPECT_FALSE(std::filesystem::exists(folder.file("a.zv.new")));
   EXPECT_FALSE(std::filesystem::exists(folder.file("a.zv.old")));
}

TEST(TraceFile, allItsSpaceIsAllocatedAtOnce) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), {400, 400, 400, 400, 10, 400, 400, 400, 400, 400}), "");
   struct stat status;
   ASSERT_EQ(::stat(folder.file("a.zv").c_str(), &status), 0);
   EXPECT_EQ(status.st_size, 2 * 4096 + 32 * 1024 + 3610 * 1024);
   EXPECT_GE(status.st_blocks * 512, status.st_size);
   EXPECT_EQ(
       status.st_mode & 07777, 0640u & ~[] {
          mode_t const mask = ::umask(0);
          ::umask(mask);
          return mask;
       }());
}

// A process that traces without pause is killed at a moment that nobody chose. What is in the file then
// must be the newest records of each level, whole and without a gap.
TEST(TraceFile, aFileOfAKilledProcessIsReadable) {
   Folder folder;
   std::string const path = folder.file("a.zv");
   for (unsigned round = 0; round < 30; ++round) {
      pid_t const child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
         TraceFile file;
         if (!file.open(path, {4, 4, 4, 4, 4, 4, 4, 4, 4, 4}).empty())
            ::_exit(1);
         for (uint64_t i = 1;; ++i)
            say(file, i % 10, std::to_string(i) + std::string(i * 13 % 300, '.'));
      }
      // The child is seen to have gone round its rings before it is killed.
      uint64_t const enough = 2000 + round * 997;
      for (bool isRunning = true; isRunning;) {
         try {
            Reader::Stamp const stamp = Reader::newestStamp(path);
            isRunning =
                Reader::ofFile(path).header().pid != static_cast<uint32_t>(child) || stamp.sequence < enough;
         } catch (ReadError const&) {
            ASSERT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "the child could not open its file";
         }
      }
      ASSERT_EQ(::kill(child, SIGKILL), 0);
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFSIGNALED(status));

      Reader const reader = Reader::ofFile(path);
      EXPECT_EQ(reader.header().closedWallNs, 0);
      EXPECT_FALSE(Reader::isBeingWritten(path));
      uint64_t const counted = Reader::newestStamp(path).sequence;
      ASSERT_GT(reader.size(), 50u);
      // At most the record being written at the end is ahead of its counter.
      uint64_t const newest = reader.at(reader.size() - 1).sequence;
      EXPECT_TRUE(newest == counted || newest == counted + 1) << newest << " " << counted;
      uint64_t last[10] = {};
      for (size_t i = 0; i < reader.size(); ++i) {
         Record const record = reader.at(i);
         ASSERT_EQ(record.level, record.sequence % 10);
         ASSERT_EQ(record.text,
                   std::to_string(record.sequence) + std::string(record.sequence * 13 % 300, '.'));
         if (last[record.level] != 0) {
            ASSERT_EQ(record.sequence, last[record.level] + 10) << "a gap in level " << record.level;
         }
         last[record.level] = record.sequence;
      }
      for (unsigned level = 0; level < 10; ++level)
         EXPECT_GT(last[level] + 10, newest - 1) << "the newest of level " << level << " is missing";
   }
}

} // namespace
} // namespace Zivlog
