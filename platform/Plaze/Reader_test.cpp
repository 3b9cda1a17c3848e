#include "Plaze/Reader.h"

#include "Plaze/TestTable.h"
#include "Plaze/Writer.h"

#include <gmock/gmock.h>
#include <map>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

namespace Plaze {
namespace {

using State = Reader::State;
using Result = Reader::Result;
using testing::HasSubstr;

class ReaderTest : public testing::Test {
  protected:
   std::map<std::string, std::string> contents(Reader& reader) {
      std::map<std::string, std::string> found;
      Entry entry;
      uint64_t sequence;
      for (uint32_t slot = 0; slot < reader.capacity(); ++slot)
         if (reader.read(slot, entry, sequence) == Result::entry)
            found[entry.key] = entry.value;
      return found;
   }
   // Opens the table's file with some of its bytes replaced, as another file.
   State stateWith(size_t offset, std::string const& bytes, bool rightCheck = false) {
      std::string file = fileBytes(path_);
      file.replace(offset, bytes.size(), bytes);
      if (rightCheck) {
         Layout::Header header;
         std::memcpy(&header, file.data(), sizeof(header));
         header.check = Layout::headerCheck(header);
         std::memcpy(file.data(), &header, sizeof(header));
      }
      fileBytesIs(directory_.path("damaged"), file);
      damaged_ = std::make_unique<Reader>(directory_.path("damaged"));
      return damaged_->refresh();
   }
   static std::string u32(uint32_t v) { return {reinterpret_cast<char*>(&v), 4}; }

   TestDirectory directory_;
   std::string path_ = directory_.path("bridging/status");
   std::unique_ptr<Reader> damaged_;
};

TEST_F(ReaderTest, SeesWhatTheWriterPutAndRemoved) {
   Writer writer(path_, testShape, 8);
   EXPECT_TRUE(writer.put("one", "1"));
   EXPECT_TRUE(writer.put("two", ""));
   EXPECT_TRUE(writer.put("a key of 16 byte", std::string(200, 'x')));
   Reader reader(path_, testShape);
   ASSERT_EQ(reader.refresh(), State::good);
   EXPECT_EQ(contents(reader), (std::map<std::string, std::string>{
                                   {"one", "1"}, {"two", ""}, {"a key of 16 byte", std::string(200, 'x')}}));
   EXPECT_TRUE(writer.put("one", "11"));
   EXPECT_TRUE(writer.del("two"));
   EXPECT_EQ(contents(reader), (std::map<std::string, std::string>{
                                   {"one", "11"}, {"a key of 16 byte", std::string(200, 'x')}}));
   writer.delAll();
   EXPECT_EQ(contents(reader), (std::map<std::string, std::string>{}));
}

TEST_F(ReaderTest, WritingWhatStandsThereChangesNothing) {
   Writer writer(path_, testShape);
   writer.put("one", "1");
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   uint64_t const change = reader.change();
   EXPECT_FALSE(writer.put("one", "1"));
   EXPECT_FALSE(writer.del("two"));
   EXPECT_EQ(reader.change(), change);
   EXPECT_TRUE(writer.put("one", "2"));
   EXPECT_EQ(reader.change(), change + 1);
}

TEST_F(ReaderTest, HeaderSaysWhatTheTableIs) {
   Writer writer(path_, testShape, 8);
   std::string const file = fileBytes(path_);
   Layout::Header header;
   std::memcpy(&header, file.data(), sizeof(header));
   EXPECT_EQ(std::string(header.magic), "PLAZE\r\n");
   EXPECT_EQ(header.version, 1u);
   EXPECT_EQ(header.keyBytes, 16u);
   EXPECT_EQ(header.valueBytes, 200u);
   EXPECT_EQ(header.capacity, 8u);
   EXPECT_EQ(header.generation, 1u);
   EXPECT_EQ(header.fingerprint, 0x1234u);
   EXPECT_STREQ(header.typeName, "Test::Row");
   Layout::Counters counters;
   std::memcpy(&counters, file.data() + 2048, sizeof(counters));
   EXPECT_EQ(counters.writerPid, static_cast<uint64_t>(getpid()));
   // 4096 of header, 8 sequences on a page of their own, 8 slots of a head, 2 words of key and 25 of value.
   EXPECT_EQ(file.size(), 4096u + 4096 + 8 * (1 + 2 + 25) * 8);
}

TEST_F(ReaderTest, AbsentTableIsPickedUpWhenItComes) {
   Reader reader(path_, testShape);
   EXPECT_EQ(reader.refresh(), State::absent);
   EXPECT_EQ(reader.refresh(), State::absent);
   Writer writer(path_, testShape);
   writer.put("one", "1");
   EXPECT_EQ(reader.refresh(), State::good);
   EXPECT_EQ(contents(reader).at("one"), "1");
   std::filesystem::remove(path_);
   EXPECT_EQ(reader.refresh(), State::absent);
}

// --- Torn reads.

TEST_F(ReaderTest, TornCopyIsRepeatedAndNeverHandedOn) {
   Writer writer(path_, testShape);
   writer.put("key", selfCheckingValue("key", 1));
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   // Each of the first three copies has its entry replaced under it, between the
   // copy and the look at the sequence.
   unsigned copies = 0;
   reader.onMidReadIs([&] {
      if (++copies <= 3)
         writer.put("key", selfCheckingValue("key", 1 + copies));
   });
   std::map<std::string, std::string> const found = contents(reader);
   EXPECT_EQ(numberOf(found.at("key")), 4u);
   EXPECT_TRUE(checksItself("key", found.at("key")));
   EXPECT_GE(copies, 4u);
}

TEST_F(ReaderTest, EntryInTheMiddleOfItsWritingIsTold) {
   Writer writer(path_, testShape, 1);
   writer.put("key", selfCheckingValue("key", 1));
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   unsigned midEntry = 0;
   writer.onMidEntryIs([&] {
      Entry entry;
      uint64_t sequence;
      EXPECT_EQ(reader.read(0, entry, sequence), Result::torn);
      EXPECT_EQ(sequence % 2, 1u);
      ++midEntry;
   });
   writer.put("key", selfCheckingValue("key", 3));
   EXPECT_EQ(midEntry, 1u);
   EXPECT_EQ(contents(reader).at("key"), selfCheckingValue("key", 3));
}

TEST_F(ReaderTest, ReaderGivesUpOnAnEntryThatNeverStandsStill) {
   Writer writer(path_, testShape, 1);
   writer.put("key", selfCheckingValue("key", 0));
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   unsigned copies = 0;
   reader.onMidReadIs([&] { writer.put("key", selfCheckingValue("key", ++copies)); });
   Entry entry;
   uint64_t sequence;
   EXPECT_EQ(reader.read(0, entry, sequence), Result::torn);
   EXPECT_EQ(copies, Reader::maxTries);
}

// --- Damaged files.

TEST_F(ReaderTest, RefusesFilesThatAreNoTables) {
   Writer writer(path_, testShape, 8);
   EXPECT_EQ(stateWith(0, ""), State::good);
   EXPECT_EQ(stateWith(0, "X"), State::refused);
   EXPECT_THAT(damaged_->reason(), HasSubstr("damaged: is no table"));
   EXPECT_EQ(stateWith(8, u32(2), true), State::refused);
   EXPECT_THAT(damaged_->reason(), HasSubstr("is of version 2, not 1"));
   EXPECT_EQ(stateWith(12, u32(8)), State::refused);
   EXPECT_THAT(damaged_->reason(), HasSubstr("its check is wrong"));
   for (uint32_t const wrong : {0u, Layout::maxKeyBytes + 1, 0xffffffffu}) {
      EXPECT_EQ(stateWith(12, u32(wrong), true), State::refused);
      EXPECT_THAT(damaged_->reason(), HasSubstr("out of range"));
   }
   EXPECT_EQ(stateWith(16, u32(0xffffffff), true), State::refused);
   EXPECT_EQ(stateWith(20, u32(0), true), State::refused);
   EXPECT_EQ(stateWith(20, u32(0xffffffff), true), State::refused);
   EXPECT_EQ(stateWith(20, u32(9), true), State::refused);
   EXPECT_THAT(damaged_->reason(), HasSubstr("is cut short"));
   EXPECT_EQ(stateWith(offsetof(Layout::Header, typeName), std::string(64, 'x'), true), State::refused);
   EXPECT_THAT(damaged_->reason(), HasSubstr("the type has no name"));
}

TEST_F(ReaderTest, RefusesWhatIsNoFileAndEmptyFiles) {
   std::filesystem::create_directories(path_);
   Reader reader(path_);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("is no file"));
   fileBytesIs(directory_.path("empty"), "");
   Reader empty(directory_.path("empty"));
   EXPECT_EQ(empty.refresh(), State::refused);
   EXPECT_THAT(empty.reason(), HasSubstr("is no table"));
}

TEST_F(ReaderTest, RefusesAPipeWithoutWaitingForItsWriter) {
   ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
   Reader reader(directory_.path("pipe"));
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("is no file"));
}

TEST_F(ReaderTest, RefusesATableOfAnotherTypeAndTakesTheRightOneLater) {
   Shape other = testShape;
   other.typeName = "Test::Other";
   std::make_unique<Writer>(path_, other);
   Reader reader(path_, testShape);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("holds Test::Other, not Test::Row"));
   std::filesystem::remove(path_);
   Writer writer(path_, testShape);
   EXPECT_EQ(reader.refresh(), State::good);
   EXPECT_EQ(reader.reason(), "");
}

TEST_F(ReaderTest, FileCutShortAfterItWasOpenedIsNotTouched) {
   Writer(path_, testShape, 1000).put("key", "value");
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   std::filesystem::resize_file(path_, 4096);
   Entry entry;
   uint64_t sequence;
   EXPECT_EQ(reader.read(999, entry, sequence), Result::damaged);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("was cut short while it was read"));
   EXPECT_EQ(Reader(path_).refresh(), State::refused) << "who opens it now finds the size wrong";
   // It is a table again when another file is there.
   std::filesystem::remove(path_);
   Writer(path_, testShape).put("key", "value");
   EXPECT_EQ(reader.refresh(), State::good);
   EXPECT_EQ(contents(reader).size(), 1u);
}

TEST_F(ReaderTest, FileCutShortWhileASlotIsCopiedIsAnErrorOfThatTable) {
   Writer writer(path_, testShape, 1000);
   for (int i = 0; i < 1000; ++i)
      writer.put("key" + std::to_string(i), std::string(200, 'v'));
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   Entry entry;
   uint64_t sequence;
   ASSERT_EQ(reader.read(0, entry, sequence), Result::entry);
   reader.onMidReadIs([&] { std::filesystem::resize_file(path_, 4096); });
   for (uint32_t slot = 0; slot < 1000; ++slot)
      EXPECT_EQ(reader.read(slot, entry, sequence), Result::damaged) << slot;
   EXPECT_EQ(reader.refresh(), State::refused);
   // The rest of the process doesn't notice.
   std::string const other = directory_.path("other");
   Writer(other, testShape).put("key", "value");
   Reader second(other);
   EXPECT_EQ(second.refresh(), State::good);
   EXPECT_EQ(contents(second).size(), 1u);
}

TEST_F(ReaderTest, FileThatIsCutAndMendedAgainIsNotBelieved) {
   Writer(path_, testShape, 1000).put("key", "value");
   auto const size = std::filesystem::file_size(path_);
   Reader reader(path_);
   ASSERT_EQ(reader.refresh(), State::good);
   std::filesystem::resize_file(path_, 4096);
   Entry entry;
   uint64_t sequence;
   EXPECT_EQ(reader.read(999, entry, sequence), Result::damaged);
   std::filesystem::resize_file(path_, size);
   EXPECT_EQ(reader.refresh(), State::refused);
}

// --- Whose files are taken

TEST_F(ReaderTest, SymbolicLinkIsRefused) {
   std::string const link = directory_.path("link");
   Writer(directory_.path("real"), testShape).put("key", "value");
   std::filesystem::create_symlink(directory_.path("real"), link);
   Reader reader(link);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr(link + ": is a symbolic link"));
}

TEST_F(ReaderTest, FileWithASecondNameIsRefused) {
   Writer(path_, testShape).put("key", "value");
   std::filesystem::create_hard_link(path_, directory_.path("second"));
   Reader reader(path_);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("has 2 names"));
}

TEST_F(ReaderTest, FileThatOthersMayWriteIsRefused) {
   Writer(path_, testShape).put("key", "value");
   std::filesystem::permissions(path_, std::filesystem::perms(0666));
   Reader reader(path_);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("can be written by all users"));
}

TEST_F(ReaderTest, DirectoryThatOthersMayWriteIsRefused) {
   std::string const below = directory_.path("open/way/table");
   Writer(below, testShape).put("key", "value");
   std::filesystem::permissions(directory_.path("open"), std::filesystem::perms(0777));
   Reader reader(below);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr(directory_.path("open") + " can be written by all users"));
}

TEST_F(ReaderTest, DirectoryThatOthersMayWriteIsRefusedBehindALinkToo) {
   Writer(directory_.path("open/way/table"), testShape).put("key", "value");
   std::filesystem::create_symlink(directory_.path("open/way"), directory_.path("link"));
   EXPECT_EQ(Reader(directory_.path("link/table")).refresh(), State::good);
   std::filesystem::permissions(directory_.path("open"), std::filesystem::perms(0777));
   Reader reader(directory_.path("link/table"));
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr(directory_.path("open") + " can be written by all users"));
}

TEST_F(ReaderTest, FileThatAnotherGroupMayWriteIsRefused) {
   if (geteuid() != 0)
      GTEST_SKIP() << "only root can give files away";
   Writer(path_, testShape).put("key", "value");
   ASSERT_EQ(chmod(path_.c_str(), 0664), 0);
   EXPECT_EQ(Reader(path_).refresh(), State::good) << "the group is our own";
   ASSERT_EQ(chown(path_.c_str(), 0, 1234), 0);
   Reader reader(path_);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("can be written by group 1234"));
}

TEST_F(ReaderTest, FileAndDirectoryOfAnotherUserAreRefused) {
   if (geteuid() != 0)
      GTEST_SKIP() << "only root can give files away";
   std::string const below = directory_.path("theirs/table");
   Writer(below, testShape).put("key", "value");
   ASSERT_EQ(chown(below.c_str(), 1234, 0), 0);
   Reader reader(below);
   EXPECT_EQ(reader.refresh(), State::refused);
   EXPECT_THAT(reader.reason(), HasSubstr("belongs to user 1234, who is neither root nor this process's"));
   ASSERT_EQ(chown(below.c_str(), 0, 0), 0);
   ASSERT_EQ(chown(directory_.path("theirs").c_str(), 1234, 0), 0);
   Reader other(below);
   EXPECT_EQ(other.refresh(), State::refused);
   EXPECT_THAT(other.reason(), HasSubstr(directory_.path("theirs") + " belongs to user 1234"));
   // A link of theirs on the way, to what is in order otherwise.
   ASSERT_EQ(chown(directory_.path("theirs").c_str(), 0, 0), 0);
   std::filesystem::create_symlink(directory_.path("theirs"), directory_.path("link"));
   EXPECT_EQ(Reader(directory_.path("link/table")).refresh(), State::good) << "our own link";
   ASSERT_EQ(lchown(directory_.path("link").c_str(), 1234, 0), 0);
   EXPECT_EQ(Reader(directory_.path("link/table")).refresh(), State::refused);
}

TEST_F(ReaderTest, SlotThatNoWriterMakesIsToldAsDamaged) {
   Writer writer(path_, testShape, 1);
   writer.put("key", "value");
   size_t const slot = 4096 + 4096;
   auto readWith = [&](uint64_t head) {
      EXPECT_EQ(stateWith(slot, {reinterpret_cast<char*>(&head), 8}), State::good);
      Entry entry;
      uint64_t sequence;
      return damaged_->read(0, entry, sequence);
   };
   uint64_t const used = uint64_t(1) << 63;
   EXPECT_EQ(readWith(used | 5 << 16 | 3), Result::entry);
   EXPECT_EQ(readWith(0), Result::free);
   EXPECT_EQ(readWith(5 << 16 | 3), Result::damaged) << "lengths in a free slot";
   EXPECT_EQ(readWith(used | 5 << 16), Result::damaged) << "no key";
   EXPECT_EQ(readWith(used | 5 << 16 | 17), Result::damaged) << "key too long";
   EXPECT_EQ(readWith(used | 201 << 16 | 3), Result::damaged) << "value too long";
   EXPECT_EQ(readWith(used | uint64_t(1) << 50 | 5 << 16 | 3), Result::damaged) << "bits that mean nothing";
}

TEST_F(ReaderTest, RandomDamageNeverTakesTheReaderOutsideOfItsFile) {
   Writer writer(path_, testShape, 16);
   for (int i = 0; i < 12; ++i)
      writer.put("key" + std::to_string(i), selfCheckingValue("key", i));
   std::string const whole = fileBytes(path_);
   std::mt19937 random(20240607);
   unsigned good = 0;
   for (int round = 0; round < 2000; ++round) {
      std::string file = whole;
      for (unsigned n = 1 + random() % 64; n > 0; --n) {
         // Half of the hits are where the numbers are: the header, the sequences, the heads of slots.
         size_t const area[] = {random() % 128, 4096 + random() % 128,
                                8192 + random() % 16 * 224 + random() % 8, random() % file.size(),
                                2048 + random() % 24};
         file[area[random() % (round % 2 ? 5 : 3)]] = static_cast<char>(random());
      }
      if (round % 4 != 0)
         file.replace(0, 128, whole, 0, 128);
      if (round % 16 == 0)
         file.resize(random() % file.size());
      fileBytesIs(directory_.path("damaged"), file);
      Reader reader(directory_.path("damaged"));
      if (reader.refresh() != State::good)
         continue;
      ++good;
      for (auto const& [key, value] : contents(reader)) {
         EXPECT_LE(key.size(), 16u);
         EXPECT_LE(value.size(), 200u);
      }
   }
   EXPECT_GT(good, 1000u);
}

} // namespace
} // namespace Plaze
