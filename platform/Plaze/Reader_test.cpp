#include "Plaze/Reader.h"

#include "Plaze/TestTable.h"
#include "Plaze/Writer.h"

#include <gmock/gmock.h>
#include <map>
#include <random>

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
   EXPECT_THAT(reader.reason(), HasSubstr("is cut short"));
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
