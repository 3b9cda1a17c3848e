#include "Zivlog/Reader.h"

#include "Zivlog/TestFolder.h"

#include <gmock/gmock.h>
#include <random>
#include <set>
#include <unistd.h>

namespace Zivlog {
namespace {

using namespace FileLayout;
using namespace Testing;
using ::testing::ElementsAre;

// Areas of a file of `smallSizes`.
constexpr uint64_t ringBytes = 1024;
constexpr uint64_t ringStart(unsigned level) {
   return 2 * pageBytes + formatAreaBytes + level * ringBytes;
}

// All that a record says, to compare.
std::string whole(Reader const& reader, Record const& record) {
   std::string text = std::to_string(record.sequence) + " " + std::to_string(record.level) + " ";
   text.append(record.facility).append(" ").append(record.file).append(" ").append(record.function);
   return text + " " + std::to_string(record.line) + " " + std::to_string(record.wallNs) + " " +
          reader.textOf(record);
}

std::multiset<std::string> allOf(std::string const& bytes) {
   Reader const reader = Reader::ofBytes(bytes);
   std::multiset<std::string> all;
   for (size_t i = 0; i < reader.size(); ++i)
      all.insert(whole(reader, reader.at(i)));
   return all;
}

std::string reasonOf(std::string const& bytes) {
   try {
      Reader::ofBytes(bytes);
   } catch (ReadError const& error) {
      EXPECT_EQ(error.cause(), ReadError::Cause::notTraceFile);
      return error.what();
   }
   return "no error";
}

// A file with three text lines at level 0 and a row at level 5.
std::string sampleFile() {
   Folder folder;
   TraceFile file;
   EXPECT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   for (char const* text : {"one", "two", "three"})
      file.text(0, "Facility", "Source.cpp", 12, "handle", text);
   std::string_view const fields[] = {"a", "b"};
   file.row(5, registerFormat("pair", "%s and %s", 2), fields);
   return bytesOf(folder.file("a.zv"));
}

void sealHeader(std::string& bytes, void (*change)(FileHeader&)) {
   FileHeader header;
   std::memcpy(&header, bytes.data(), sizeof(header));
   change(header);
   header.check = headerCheck(header);
   std::memcpy(bytes.data(), &header, sizeof(header));
}

TEST(Reader, aFileThatIsNotThereNamesTheReason) {
   try {
      Reader::ofFile("/no/such/file.zv");
      FAIL() << "read a file that isn't there";
   } catch (ReadError const& error) {
      EXPECT_EQ(error.cause(), ReadError::Cause::unreadable);
      EXPECT_STREQ(error.what(), "No such file or directory");
   }
}

TEST(Reader, aFolderIsNotReadable) {
   try {
      Reader::ofFile("/");
      FAIL() << "read a folder";
   } catch (ReadError const& error) {
      EXPECT_EQ(error.cause(), ReadError::Cause::unreadable);
      EXPECT_STREQ(error.what(), "Is a directory");
   }
}

TEST(Reader, otherFilesAreRefused) {
   EXPECT_EQ(reasonOf(""), "not a trace file");
   EXPECT_EQ(reasonOf("ZIV"), "not a trace file");
   EXPECT_EQ(reasonOf(std::string(10000, 'x')), "not a trace file");
   EXPECT_EQ(reasonOf(sampleFile().substr(0, 100)), "the file ends within its header");
}

TEST(Reader, anotherVersionIsRefused) {
   std::string bytes = sampleFile();
   sealHeader(bytes, [](FileHeader& header) { header.version = 7; });
   EXPECT_EQ(reasonOf(bytes), "trace file of version 7; this program reads version 1");
}

TEST(Reader, everyChangeOfTheHeaderIsNoticed) {
   std::string const good = sampleFile();
   for (size_t at = 0; at < sizeof(FileHeader); ++at) {
      std::string bytes = good;
      bytes[at] = static_cast<char>(bytes[at] ^ 1);
      EXPECT_NE(reasonOf(bytes), "no error") << "byte " << at;
   }
}

TEST(Reader, aForgedHeaderCannotLeadOutsideTheFile) {
   std::string const good = sampleFile();
   auto const forged = [&](void (*change)(FileHeader&)) {
      std::string bytes = good;
      sealHeader(bytes, change);
      return reasonOf(bytes);
   };
   EXPECT_EQ(forged([](FileHeader& h) { h.area[3].offset = ~uint64_t{0} - 8; }),
             "the header gives impossible places");
   EXPECT_EQ(forged([](FileHeader& h) { h.area[9].bytes = ~uint64_t{0} - 7; }),
             "the header gives impossible places");
   EXPECT_EQ(forged([](FileHeader& h) { h.area[9].bytes = 1023; }), "the header gives impossible places");
   EXPECT_EQ(forged([](FileHeader& h) { h.area[formatArea].offset = 0; }),
             "the header gives impossible places");
   EXPECT_EQ(forged([](FileHeader& h) { h.fileBytes = ~uint64_t{0}; }),
             "the header gives an impossible size");
   std::string named = good;
   sealHeader(named, [](FileHeader& h) { std::memset(h.program, 'p', sizeof(h.program)); });
   EXPECT_EQ(Reader::ofBytes(named).header().program, std::string(63, 'p'));
}

TEST(Reader, aFileCutShortGivesWhatIsLeft) {
   std::string const good = sampleFile();
   Reader const cut = Reader::ofBytes(good.substr(0, ringStart(5)));
   EXPECT_EQ(cut.missingBytes(), 5 * ringBytes);
   EXPECT_THAT(textsOf(cut), ElementsAre("one", "two", "three"));
   for (size_t length = sizeof(FileHeader); length <= good.size(); length += 13)
      EXPECT_EQ(Reader::ofBytes(good.substr(0, length)).missingBytes(), good.size() - length);
}

TEST(Reader, damagedCountersCostNoRecord) {
   std::string bytes = sampleFile();
   std::memset(bytes.data() + pageBytes, 0xff, sizeof(Counters));
   EXPECT_THAT(textsOf(Reader::ofBytes(bytes)), ElementsAre("one", "two", "three", "a and b"));
   std::memset(bytes.data() + pageBytes, 0, sizeof(Counters));
   Reader const reader = Reader::ofBytes(bytes);
   EXPECT_THAT(textsOf(reader), ElementsAre("one", "two", "three", "a and b"));
   EXPECT_EQ(reader.ring(0).written, 3u);
}

TEST(Reader, aDamagedRecordIsSkippedAndThoseBehindItAreFound) {
   std::string bytes = sampleFile();
   uint64_t const second = padded(sizeof(RecordHeader) + sizeof(TextHead) + 8 + 10 + 6 + 3);
   for (uint64_t at = second; at < 2 * second; ++at) {
      std::string damaged = bytes;
      damaged[ringStart(0) + at] = static_cast<char>(damaged[ringStart(0) + at] ^ 0x10);
      EXPECT_THAT(textsOf(Reader::ofBytes(damaged)), ElementsAre("one", "three", "a and b")) << "byte " << at;
   }
}

TEST(Reader, aRowWithoutItsFormatShowsItsFields) {
   std::string bytes = sampleFile();
   std::memset(bytes.data() + 2 * pageBytes, 0, formatAreaBytes);
   Reader const reader = Reader::ofBytes(bytes);
   ASSERT_EQ(reader.size(), 4u);
   EXPECT_THAT(reader.textOf(reader.at(3)), ::testing::MatchesRegex("row of the unknown format [0-9]+: a b"));
   EXPECT_EQ(reader.at(3).facility, "");
}

TEST(Reader, aRecordThatStandsElsewhereIsNone) {
   std::string bytes = sampleFile();
   // The whole ring of level 0 in the place of level 7, and 8 bytes further on in its own.
   std::string const ring = bytes.substr(ringStart(0), ringBytes);
   bytes.replace(ringStart(7), ringBytes, ring);
   bytes.replace(ringStart(0), ringBytes, std::string(8, '\0') + ring.substr(0, ringBytes - 8));
   EXPECT_THAT(textsOf(Reader::ofBytes(bytes)), ElementsAre("a and b"));
}

TEST(Reader, aRecordOfAnotherFileIsNone) {
   std::string bytes = sampleFile();
   bytes.replace(ringStart(0), ringBytes, sampleFile().substr(ringStart(0), ringBytes));
   EXPECT_THAT(textsOf(Reader::ofBytes(bytes)), ElementsAre("a and b"));
}

// Text that was traced may hold anything, also the bytes of a record. Once the record that holds it is
// overwritten in part, the hunt for the next record goes through them.
TEST(Reader, bytesOfARecordInsideATextAreNoRecord) {
   std::string const other = sampleFile();
   std::string const embedded = other.substr(ringStart(0), 80);
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   for (size_t shift = 0; shift < 8; ++shift)
      file.text(0, "", "", 0, "", std::string(shift, ' ') + embedded);
   std::string bytes = bytesOf(folder.file("a.zv"));
   std::string const ring = bytes.substr(ringStart(0), ringBytes);
   for (uint64_t at = 0; at < ringBytes; at += 136) // breaks the records around the embedded ones
      bytes[ringStart(0) + at] = static_cast<char>(bytes[ringStart(0) + at] ^ 1);
   EXPECT_THAT(textsOf(Reader::ofBytes(bytes)), ::testing::Not(::testing::Contains("one")));
}

// A writer is killed within the copy of a record: of the bytes that a record changes, only some have changed.
// Whichever they are, the reader gives whole records of before, and the new one only when it is whole.
TEST(Reader, aTornRecordIsSkipped) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   for (unsigned i = 0; i < 40; ++i) {
      std::string const before = bytesOf(folder.file("a.zv"));
      file.text(0, "Facility", "Source.cpp", i, "handle", std::to_string(i) + std::string(i * 11 % 120, '.'));
      std::string const after = bytesOf(folder.file("a.zv"));
      auto const old = allOf(before), fresh = allOf(after);
      std::string const added =
          *std::find_if(fresh.begin(), fresh.end(), [&](auto& r) { return !old.contains(r); });
      for (uint64_t cut = ringStart(0); cut < ringStart(1); ++cut) {
         for (bool const isFrontNew : {true, false}) {
            std::string const torn = isFrontNew ? after.substr(0, cut) + before.substr(cut)
                                                : before.substr(0, cut) + after.substr(cut);
            auto const read = allOf(torn);
            for (std::string const& record : read)
               ASSERT_TRUE(old.contains(record) || record == added) << record;
            for (std::string const& record : fresh)
               ASSERT_TRUE(read.contains(record) || record == added) << "lost " << record;
         }
      }
   }
}

TEST(Reader, randomDamageNeverYieldsARecordThatNobodyWrote) {
   Folder folder;
   TraceFile file;
   ASSERT_EQ(file.open(folder.file("a.zv"), smallSizes), "");
   FormatId const format = registerFormat("pair", "%s and %s", 2);
   for (unsigned i = 0; i < 300; ++i) {
      std::string const number = std::to_string(i);
      std::string_view const fields[] = {number, "x"};
      if (i % 3 == 0)
         file.row(i % 10, format, fields);
      else
         file.text(i % 10, "Facility", "Source.cpp", i, "handle", number + std::string(i % 50, 'x'));
   }
   std::string const good = bytesOf(folder.file("a.zv"));
   auto const written = allOf(good);
   ASSERT_GT(written.size(), 80u);
   std::mt19937_64 random(20); // the same every time
   for (unsigned round = 0; round < 2000; ++round) {
      std::string bytes = good;
      uint64_t const first = ringStart(0), count = 1 + random() % 200;
      for (uint64_t i = 0; i < count; ++i) {
         uint64_t const at = first + random() % (bytes.size() - first);
         switch (random() % 3) {
         case 0:
            bytes[at] = static_cast<char>(random());
            break;
         case 1: // one bit
            bytes[at] = static_cast<char>(bytes[at] ^ (1 << random() % 8));
            break;
         default: { // a piece of the file at another place
            uint64_t const from = first + random() % (bytes.size() - first);
            uint64_t const length = std::min<uint64_t>(random() % 64, bytes.size() - std::max(at, from));
            std::memmove(bytes.data() + at, bytes.data() + from, length);
         }
         }
      }
      for (std::string const& record : allOf(bytes))
         ASSERT_TRUE(written.contains(record)) << "round " << round << ": " << record;
   }
}

TEST(Reader, randomDamageOfTheWholeFileIsSurvived) {
   std::string const good = sampleFile();
   std::mt19937_64 random(21);
   unsigned refused = 0;
   for (unsigned round = 0; round < 2000; ++round) {
      std::string bytes = good;
      for (uint64_t i = 0; i < 20; ++i)
         bytes[random() % bytes.size()] = static_cast<char>(random());
      bytes.resize(random() % 4 == 0 ? random() % bytes.size() : bytes.size());
      try {
         EXPECT_LE(allOf(bytes).size(), 4u);
      } catch (ReadError const&) {
         ++refused;
      }
   }
   EXPECT_GT(refused, 0u);
   EXPECT_LT(refused, 2000u);
}

TEST(Reader, aRecordWithARightCheckAndLyingLengthsIsNone) {
   std::string const good = sampleFile();
   FileHeader header;
   std::memcpy(&header, good.data(), sizeof(header));
   for (uint16_t const lie : {0, 2, 4, 60000}) {
      std::string bytes = good;
      char* const record = bytes.data() + ringStart(0);
      RecordHeader first;
      std::memcpy(&first, record, sizeof(first));
      TextHead head;
      std::memcpy(&head, record + sizeof(first), sizeof(head));
      ASSERT_EQ(head.textBytes, 3u);
      head.textBytes = lie;
      std::memcpy(record + sizeof(first), &head, sizeof(head));
      uint64_t const check = recordCheck(header.seed, 0, 0, record, first.bytes);
      std::memcpy(record, &check, sizeof(check));
      EXPECT_THAT(textsOf(Reader::ofBytes(bytes)), ElementsAre("two", "three", "a and b")) << lie;
   }
}

TEST(Reader, firstAfterFindsWhatIsNew) {
   Reader const reader = Reader::ofBytes(sampleFile());
   ASSERT_EQ(reader.size(), 4u);
   EXPECT_EQ(reader.firstAfter(0), 0u);
   EXPECT_EQ(reader.at(reader.firstAfter(2)).text, "three");
   EXPECT_EQ(reader.firstAfter(reader.at(3).sequence), 4u);
}

} // namespace
} // namespace Zivlog
