#include "Plaze/Writer.h"

#include "Plaze/Reader.h"
#include "Plaze/TestTable.h"

#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace Plaze {
namespace {

using testing::HasSubstr;

class WriterTest : public testing::Test {
  protected:
   // Runs `body` in a process of its own and gives its wait status.
   template <class Body>
   int inProcess(Body&& body) {
      pid_t const child = fork();
      if (child == 0) {
         body();
         _exit(0);
      }
      int status = -1;
      waitpid(child, &status, 0);
      return status;
   }
   std::string errorOf(std::function<void()> const& body) {
      try {
         body();
      } catch (Error const& error) {
         return error.what();
      }
      return "no error";
   }

   TestDirectory directory_;
   std::string path_ = directory_.path("table");
};

TEST_F(WriterTest, TableOutlivesItsWriter) {
   Writer(path_, testShape).put("one", "1");
   Writer again(path_, testShape);
   EXPECT_EQ(again.size(), 1u);
   EXPECT_EQ(again.value("one"), "1");
   EXPECT_EQ(again.value("two"), std::nullopt);
   EXPECT_EQ(again.repairedCount(), 0u);
}

TEST_F(WriterTest, SecondWriterIsRefusedByTheNameOfTheFirst) {
   Writer writer(path_, testShape);
   EXPECT_EQ(errorOf([&] { Writer(path_, testShape); }),
             path_ + ": process " + std::to_string(getpid()) + " writes it");
   // Also after the first one has moved to a new file.
   for (int i = 0; i < 2000; ++i)
      writer.put("key" + std::to_string(i), "value");
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("writes it"));
}

TEST_F(WriterTest, LockOfAReaderKeepsNoWriterOut) {
   Writer(path_, testShape).put("key", "value");
   int const fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
   ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
   EXPECT_TRUE(Writer(path_, testShape).put("key", "other"));
   close(fd);
   struct stat status;
   ASSERT_EQ(stat((path_ + ".lock~").c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 0777, 0600u) << "nobody else can open what the writers lock";
}

TEST_F(WriterTest, LockThatIsNotOursIsRefused) {
   std::filesystem::create_symlink("elsewhere", path_ + ".lock~");
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("its lock " + path_ + ".lock~"));
   EXPECT_FALSE(std::filesystem::exists(path_));
   std::filesystem::remove(path_ + ".lock~");
   ASSERT_EQ(mkfifo((path_ + ".lock~").c_str(), 0600), 0);
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr(".lock~ is no file of its own"));
   std::filesystem::remove(path_ + ".lock~");
   fileBytesIs(directory_.path("other"), "");
   std::filesystem::create_hard_link(directory_.path("other"), path_ + ".lock~");
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr(".lock~ is no file of its own"));
   EXPECT_EQ(fileBytes(directory_.path("other")), "");
   std::filesystem::remove(path_ + ".lock~");
   fileBytesIs(path_ + ".lock~", "");
   std::filesystem::permissions(path_ + ".lock~", std::filesystem::perms(0666));
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("can be written by all users"));
}

TEST_F(WriterTest, TableOfAnotherUserOrBehindALinkIsNotTakenOver) {
   Writer(directory_.path("real"), testShape).put("key", "value");
   std::filesystem::create_symlink(directory_.path("real"), path_);
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("is a symbolic link"));
   std::filesystem::remove(path_);
   Writer(path_, testShape).put("key", "value");
   std::filesystem::permissions(path_, std::filesystem::perms(0666));
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("can be written by all users"));
   std::filesystem::create_directory(directory_.path("open"));
   std::filesystem::permissions(directory_.path("open"), std::filesystem::perms(0777));
   EXPECT_THAT(errorOf([&] { Writer(directory_.path("open/way/table"), testShape); }),
               HasSubstr(directory_.path("open") + " can be written by all users"));
   EXPECT_TRUE(std::filesystem::is_empty(directory_.path("open"))) << "nothing is made there either";
}

TEST_F(WriterTest, WhatItMakesIsTrustedByTheNextWhateverTheMask) {
   std::string const below = directory_.path("way/below/table");
   mode_t const mask = umask(0);
   Writer(below, testShape).put("key", "value");
   umask(mask);
   Reader reader(below);
   EXPECT_EQ(reader.refresh(), Reader::State::good) << reader.reason();
}

TEST_F(WriterTest, FileCutShortUnderTheWriterIsAnErrorOfThatTable) {
   Writer writer(path_, testShape, 1000);
   writer.put("key", "value");
   std::filesystem::resize_file(path_, 4096);
   EXPECT_EQ(errorOf([&] {
                for (int i = 0; i < 1000; ++i)
                   writer.put("key" + std::to_string(i), "value");
             }),
             path_ + ": was cut short while it was written");
   EXPECT_THAT(errorOf([&] { Writer again(path_); }), HasSubstr("is cut short"));
}

TEST_F(WriterTest, EachWritingIntoAFileCutShortIsAnError) {
   for (bool const isRemoval : {false, true}) {
      std::filesystem::remove(path_);
      Writer writer(path_, testShape, 1000);
      writer.put("key", "value");
      std::filesystem::resize_file(path_, 4096);
      EXPECT_EQ(errorOf([&] { isRemoval ? writer.del("key") : writer.put("key", "other"); }),
                path_ + ": was cut short while it was written");
   }
}

// The zeros that are read from such a file must not become the table.
TEST_F(WriterTest, FileCutShortDoesNotGrow) {
   Writer writer(path_, testShape, 64);
   for (int i = 0; i < 64; ++i)
      writer.put("key" + std::to_string(i), std::string(200, 'v'));
   std::filesystem::resize_file(path_, 4096);
   EXPECT_EQ(errorOf([&] { writer.put("one more", "value"); }),
             path_ + ": was cut short while it was written");
   EXPECT_EQ(std::filesystem::file_size(path_), 4096u);
}

TEST_F(WriterTest, TableOfAnotherTypeIsLeftAlone) {
   Writer(path_, testShape).put("one", "1");
   Shape other = testShape;
   other.typeName = "Test::Other";
   EXPECT_EQ(errorOf([&] { Writer(path_, other); }), path_ + ": holds Test::Row, not Test::Other");
   EXPECT_EQ(Writer(path_, testShape).value("one"), "1");
}

TEST_F(WriterTest, TableOfAnotherReleaseIsReplacedByAnEmptyOne) {
   Writer(path_, testShape).put("one", "1");
   Shape newer = testShape;
   newer.fingerprint++;
   newer.valueBytes += 8;
   Writer writer(path_, newer);
   EXPECT_EQ(writer.size(), 0u);
   EXPECT_EQ(writer.shape(), newer);
}

TEST_F(WriterTest, FileThatIsNoTableIsLeftAlone) {
   fileBytesIs(path_, "somebody's notes");
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape); }), HasSubstr("is no table"));
   EXPECT_EQ(fileBytes(path_), "somebody's notes");
}

TEST_F(WriterTest, OpeningByPathAloneNeedsATable) {
   EXPECT_THAT(errorOf([&] { Writer writer(path_); }), HasSubstr("there is no table of that name"));
   EXPECT_FALSE(std::filesystem::exists(path_));
   Writer(path_, testShape).put("one", "1");
   EXPECT_EQ(Writer(path_).shape(), testShape);
}

TEST_F(WriterTest, ImpossibleShapesAreRefused) {
   Shape shape = testShape;
   shape.keyBytes = Layout::maxKeyBytes + 1;
   EXPECT_THAT(errorOf([&] { Writer(path_, shape); }), HasSubstr("is out of range"));
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape, 0); }), HasSubstr("is out of range"));
   EXPECT_THAT(errorOf([&] { Writer(path_, testShape, Layout::maxCapacity + 1); }),
               HasSubstr("is out of range"));
   EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(WriterTest, KeysAndValuesBeyondTheShapeAreMistakes) {
   Writer writer(path_, testShape);
   EXPECT_DEATH(writer.put("", "value"), "key.empty");
   EXPECT_DEATH(writer.put(std::string(17, 'k'), "value"), "keyBytes");
   EXPECT_DEATH(writer.put("key", std::string(201, 'v')), "valueBytes");
}

TEST_F(WriterTest, FullTableGrowsAndKeepsAll) {
   Writer writer(path_, testShape, 4);
   chmod(path_.c_str(), 0640);
   for (int i = 0; i < 100; ++i)
      EXPECT_TRUE(writer.put("key" + std::to_string(i), selfCheckingValue("key" + std::to_string(i), i)));
   EXPECT_EQ(writer.capacity(), 128u);
   EXPECT_EQ(writer.generation(), 6u);
   EXPECT_EQ(writer.size(), 100u);
   for (int i = 0; i < 100; ++i)
      EXPECT_EQ(writer.value("key" + std::to_string(i)), selfCheckingValue("key" + std::to_string(i), i));
   struct stat status;
   ASSERT_EQ(stat(path_.c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 0777, 0640u);
   EXPECT_FALSE(std::filesystem::exists(path_ + "~"));
}

TEST_F(WriterTest, FreedSlotsAreUsedAgainBeforeTheTableGrows) {
   Writer writer(path_, testShape, 4);
   for (int i = 0; i < 1000; ++i) {
      writer.put("key" + std::to_string(i), "value");
      if (i >= 3)
         writer.del("key" + std::to_string(i - 3));
   }
   EXPECT_EQ(writer.capacity(), 4u);
   EXPECT_EQ(writer.size(), 3u);
}

TEST_F(WriterTest, GrowthThatIsLeftUndoneByAKillIsForgotten) {
   Writer(path_, testShape, 1).put("one", "1");
   fileBytesIs(path_ + "~", "half of a file");
   Writer writer(path_, testShape);
   writer.put("two", "2");
   EXPECT_EQ(writer.value("one"), "1");
   EXPECT_EQ(Writer::defaultCapacity, 1024u);
   EXPECT_EQ(writer.capacity(), 2u);
   EXPECT_FALSE(std::filesystem::exists(path_ + "~"));
}

// --- Killed in the middle of an entry.

TEST_F(WriterTest, KilledWriterLeavesOneTornEntryWhichTheNextOneRemoves) {
   int const status = inProcess([&] {
      Writer writer(path_, testShape, 8);
      writer.put("one", selfCheckingValue("one", 1));
      writer.put("two", selfCheckingValue("two", 2));
      writer.put("three", selfCheckingValue("three", 3));
      writer.onMidEntryIs([] { raise(SIGKILL); });
      writer.put("two", selfCheckingValue("two", 22));
   });
   ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

   Reader reader(path_, testShape);
   ASSERT_EQ(reader.refresh(), Reader::State::good);
   Entry entry;
   uint64_t sequence;
   unsigned torn = 0, entries = 0;
   uint32_t tornSlot = 0;
   for (uint32_t slot = 0; slot < reader.capacity(); ++slot) {
      auto const result = reader.read(slot, entry, sequence);
      if (result == Reader::Result::torn)
         ++torn, tornSlot = slot;
      if (result == Reader::Result::entry) {
         ++entries;
         EXPECT_TRUE(checksItself(entry.key, entry.value)) << entry.key;
      }
   }
   EXPECT_EQ(torn, 1u);
   EXPECT_EQ(entries, 2u);

   uint64_t const tornSequence = reader.sequence(tornSlot);
   Writer next(path_, testShape);
   EXPECT_EQ(next.repairedCount(), 1u);
   EXPECT_EQ(next.size(), 2u);
   EXPECT_EQ(next.value("two"), std::nullopt);
   EXPECT_EQ(reader.read(tornSlot, entry, sequence), Reader::Result::free);
   EXPECT_EQ(sequence, tornSequence + 1) << "never back to an earlier one, and even only now";
   EXPECT_TRUE(next.put("two", "again"));
   EXPECT_EQ(reader.read(tornSlot, entry, sequence), Reader::Result::entry);
   EXPECT_EQ(entry.value, "again");
}

TEST_F(WriterTest, SequenceNeverComesBackOverRepeatedKills) {
   auto putAndDie = [&](uint64_t number) {
      inProcess([&] {
         Writer writer(path_, testShape, 1);
         writer.onMidEntryIs([] { raise(SIGKILL); });
         writer.put("key", selfCheckingValue("key", number));
      });
   };
   putAndDie(1);
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), Reader::State::good);
   EXPECT_EQ(reader.sequence(0), 1u);
   putAndDie(2); // repairs first: 2; then begins its own: 3
   EXPECT_EQ(reader.sequence(0), 3u);
   putAndDie(3);
   EXPECT_EQ(reader.sequence(0), 5u);
   Writer last(path_);
   EXPECT_EQ(reader.sequence(0), 6u);
   EXPECT_EQ(last.repairedCount(), 1u);
   EXPECT_EQ(last.size(), 0u);
}

TEST_F(WriterTest, DamagedSlotsAndDoubleKeysAreRepaired) {
   Writer(path_, testShape, 4).put("key", "value");
   std::string file = fileBytes(path_);
   size_t const slots = 8192, slotBytes = testShape.keyBytes + 200 + 8;
   size_t used = 0;
   while (file[slots + used * slotBytes] == 0)
      ++used;
   size_t const other = used == 0 ? 1 : 0;
   file.replace(slots + other * slotBytes, slotBytes, file, slots + used * slotBytes, slotBytes);
   file[slots + 3 * slotBytes + 7] = 0x7f;
   fileBytesIs(path_, file);
   Writer writer(path_, testShape);
   EXPECT_EQ(writer.repairedCount(), 2u);
   EXPECT_EQ(writer.size(), 1u);
   EXPECT_EQ(writer.value("key"), "value");
}

} // namespace
} // namespace Plaze
