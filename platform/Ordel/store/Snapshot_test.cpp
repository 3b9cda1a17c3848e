#include "Ordel/store/Snapshot.h"
#include "Ordel/store/TestRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using namespace TestRecords;
using Ordel::Snapshot;
using Ordel::Tree;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct SnapshotTest : testing::Test {
   Tree tree{schema(), 1};
   std::filesystem::path const folder =
       std::filesystem::path(testing::TempDir()) / ("snapshot." + std::to_string(getpid()));
   std::string const file = (folder / "tree").string();
   std::string error;
   bool isAbsent = false;

   SnapshotTest() {
      std::filesystem::create_directories(folder);
      uint32_t const config = tree.find("config")->node(), dir = tree.find("input/dir")->node();
      tree.apply(Block()
                     .at(dir)
                     .createNode("gone", dirType)
                     .createNode("a", configType)
                     .at(dir)
                     .erase(0, stringBytes("gone")));
      EXPECT_TRUE(
          tree.apply(Block()
                         .at(config)
                         .set(Config::text, stringBytes("some text"))
                         .set(Config::intf, intfBytes("Odd"))
                         .set(Config::peer, stringBytes("input/dir/a"))
                         .put(Config::port, intfBytes("Ethernet1"), portBytes(1, 1, 1))
                         .put(Config::source, intfBytes("Odd"), stringBytes("config.vlanConfig[10]"))
                         .put(Config::learned, "abcdef"sv, intfBytes("Odd") + u16Bytes(3) + stringBytes("t"))
                         .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
                         .at(config, {{Config::vlanConfig, u16Bytes(10)}})
                         .set(Vlan::internal, "\1"sv)
                         .put(Vlan::intf, intfBytes("Ethernet2"), portBytes(0, 1, 2)))
              .isDone());
   }
   ~SnapshotTest() override { std::filesystem::remove_all(folder); }

   std::string image() {
      Wire::Writer out;
      Snapshot::encode(tree, out);
      return std::string(out.view());
   }
   std::string errorOf(std::string_view bytes) {
      std::string reason;
      EXPECT_EQ(Snapshot::decode(schema(), bytes, reason), nullptr);
      EXPECT_NE(reason, "");
      return reason;
   }
   // With the checksum made to fit again.
   static std::string patched(std::string bytes, size_t at, std::string_view with) {
      bytes.replace(at, with.size(), with);
      bytes.resize(bytes.size() - 4);
      return bytes + u32Bytes(Ordel::crc32c(bytes));
   }
   std::string contentOf(std::string const& name) {
      std::ifstream in(name, std::ios::binary);
      return std::string(std::istreambuf_iterator<char>(in), {});
   }
};

TEST_F(SnapshotTest, imageWithoutAPlaceIsRefused) {
   auto declared = tables().places;
   declared.push_back({"input/added", &tables().entities[configType], false, {}});
   Records::Schema const larger = {tables().entities, declared, schema().fingerprint};
   EXPECT_EQ(Snapshot::decode(larger, image(), error), nullptr);
   EXPECT_EQ(error, "damaged: input/added is missing");
   declared.back() = {"input/dir/a", &tables().entities[groupType], false, {}};
   Records::Schema const other = {tables().entities, declared, schema().fingerprint};
   EXPECT_EQ(Snapshot::decode(other, image(), error), nullptr);
   EXPECT_EQ(error, "damaged: input/dir/a is a Test::Config and should be a Test::Group");
}

TEST_F(SnapshotTest, imageWithANumberThatAnEnumerationHasNotIsRefused) {
   tree.apply(Block().at(tree.find("input/config/cli")->node()).set(Config::mode, "\1"sv));
   std::string const good = image();
   std::string const operation = "\2" + std::string(1, static_cast<char>(Config::mode)) + "\1";
   size_t const at = good.find(operation);
   ASSERT_NE(at, std::string::npos);
   EXPECT_EQ(errorOf(patched(good, at, operation.substr(0, 2) + "\2")),
             "damaged: input/config/cli.mode: Mode::value > 1 not allowed");
}

TEST_F(SnapshotTest, checksumIsThatOfTheStandard) {
   EXPECT_EQ(Ordel::crc32c("123456789"), 0xe3069283u);           // the check value of CRC-32C
   EXPECT_EQ(Ordel::crc32c(std::string(32, '\0')), 0x8a9136aau); // RFC 3720, B.4
   EXPECT_EQ(Ordel::crc32c("56789", Ordel::crc32c("1234")), 0xe3069283u);
}

TEST_F(SnapshotTest, givesBackTheSameTree) {
   auto const again = Snapshot::decode(schema(), image(), error);
   ASSERT_NE(again, nullptr) << error;
   EXPECT_EQ(dump(*again), dump(tree));
   EXPECT_EQ(again->nextNode(), tree.nextNode());
   EXPECT_EQ(again->entityCount(), tree.entityCount());
   EXPECT_FALSE(again->isMirror());
   EXPECT_EQ(again->find("input/dir/gone"), nullptr);
   // It is a database's tree: numbers go on, inputs stay.
   ASSERT_TRUE(again->apply(Block().at(again->find("input")->node()).createNode("new", dirType)).isDone());
   EXPECT_EQ(again->find("input/new")->node(), tree.nextNode());
   EXPECT_FALSE(again
                    ->apply(Block()
                                .at(again->find("config")->node(), {{Config::vlanConfig, u16Bytes(10)}})
                                .set(Vlan::internal, "\0"sv))
                    .isDone());
}

TEST_F(SnapshotTest, everyCutIsRefused) {
   std::string const whole = image();
   for (size_t size = 0; size < whole.size(); ++size)
      EXPECT_NE(errorOf(whole.substr(0, size)), "");
   EXPECT_EQ(errorOf(""), "not a snapshot of the state database");
   EXPECT_EQ(errorOf(whole.substr(0, 20)), "cut off: 20 bytes are less than a header");
   EXPECT_THAT(errorOf(whole.substr(0, whole.size() - 1)), StartsWith("cut off or damaged: a body of"));
   EXPECT_THAT(errorOf(whole + "x"), StartsWith("cut off or damaged: a body of"));
}

TEST_F(SnapshotTest, everyFlippedBitIsRefused) {
   std::string const whole = image();
   for (size_t at = 0; at < whole.size(); ++at) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << at % 8));
      EXPECT_NE(errorOf(damaged), "") << at;
   }
}

TEST_F(SnapshotTest, saysWhatDoesNotFit) {
   EXPECT_EQ(errorOf("some other file"), "not a snapshot of the state database");
   EXPECT_EQ(errorOf(patched(image(), 8, "\2\0\0\0"sv)), "version 2; this build reads version 1");
   EXPECT_EQ(errorOf(patched(image(), 12, "\1\0\0\0\0\0\0\0"sv)),
             "written by a build with other records (fingerprint 1, here 1311768467294899695)");
   std::string flipped = image();
   flipped[60] = static_cast<char>(flipped[60] ^ 1);
   EXPECT_EQ(errorOf(flipped), "damaged: the checksum does not fit");
   EXPECT_EQ(errorOf(patched(image(), 20, "\1\0\0\0"sv)), "damaged: the next node can't have number 1");
   // A good checksum over operations that can't be: a number beyond the next node.
   EXPECT_THAT(errorOf(patched(image(), 20, "\3\0\0\0"sv)),
               HasSubstr("the number of a node is given by the database"));
}

// The number of the next node is behind magic, version and fingerprint.
TEST_F(SnapshotTest, numbersOfNodesThatAreUsedUpAreNotGivenAgain) {
   std::string bytes = image();
   bytes.replace(20, 4, u32Bytes(UINT32_MAX - 1));
   bytes.resize(bytes.size() - 4);
   bytes += u32Bytes(Ordel::crc32c(bytes));
   auto const last = Snapshot::decode(schema(), bytes, error);
   ASSERT_TRUE(last) << error;
   uint32_t const dir = last->find("input/dir")->node();
   ASSERT_TRUE(last->apply(Block().at(dir).createNode("one", configType)).isDone());
   EXPECT_EQ(last->find("input/dir/one")->node(), UINT32_MAX - 1);
   std::string const before = dump(*last);
   Ordel::Applied const& applied = last->apply(Block().at(dir).createNode("two", configType));
   EXPECT_EQ(applied.status, Ordel::Status::refused);
   EXPECT_EQ(applied.error, "input/dir/two: the database has given all numbers of nodes");
   EXPECT_EQ(dump(*last), before);
   // What has no number is made as before.
   EXPECT_TRUE(last->apply(Block()
                               .at(last->find("input/dir/one")->node())
                               .create(Config::vlanConfig, u16Bytes(10), wideVlanType))
                   .isDone());
}

TEST_F(SnapshotTest, whatIsNoRegularFileIsRefused) {
   ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
   EXPECT_FALSE(Snapshot::read(schema(), file, error, isAbsent));
   EXPECT_EQ(error, file + ": is no regular file");
   EXPECT_FALSE(isAbsent);
   EXPECT_FALSE(Snapshot::read(schema(), "/dev/zero", error, isAbsent));
   EXPECT_EQ(error, "/dev/zero: is no regular file");
}

TEST_F(SnapshotTest, fileThatIsTooLargeIsRefusedUnread) {
   std::ofstream(file) << "ORDLSNAP";
   std::filesystem::resize_file(file, Snapshot::maxFileBytes + 1); // a hole
   EXPECT_FALSE(Snapshot::read(schema(), file, error, isAbsent));
   EXPECT_EQ(error, file + ": has 1073741825 bytes, more than the 1073741824 that are read");
}

TEST_F(SnapshotTest, pipeThatStandsInTheWayOfWritingIsReplaced) {
   ASSERT_EQ(mkfifo((file + ".new").c_str(), 0600), 0);
   EXPECT_TRUE(Snapshot::write(tree, file, error)) << error;
   EXPECT_TRUE(Snapshot::read(schema(), file, error, isAbsent)) << error;
}

TEST_F(SnapshotTest, writesAndReadsAFile) {
   ASSERT_TRUE(Snapshot::write(tree, file, error)) << error;
   auto const again = Snapshot::read(schema(), file, error, isAbsent);
   ASSERT_NE(again, nullptr) << error;
   EXPECT_EQ(dump(*again), dump(tree));
   ASSERT_TRUE(Snapshot::write(*again, file, error)) << error; // over the old one
   EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

TEST_F(SnapshotTest, namesTheFileThatIsNotThere) {
   EXPECT_EQ(Snapshot::read(schema(), file, error, isAbsent), nullptr);
   EXPECT_TRUE(isAbsent);
   EXPECT_EQ(error, file + ": can't be opened: No such file or directory");
   EXPECT_EQ(Snapshot::read(schema(), folder.string(), error, isAbsent), nullptr);
   EXPECT_FALSE(isAbsent);
   EXPECT_EQ(error, folder.string() + ": is no regular file");
   EXPECT_FALSE(Snapshot::write(tree, file + "/no/such", error));
   EXPECT_THAT(error, HasSubstr("can't be created: No such file or directory"));
}

TEST_F(SnapshotTest, aDamagedFileIsLeftAlone) {
   std::ofstream(file) << "damaged";
   EXPECT_EQ(Snapshot::read(schema(), file, error, isAbsent), nullptr);
   EXPECT_EQ(error, file + ": not a snapshot of the state database");
   EXPECT_EQ(contentOf(file), "damaged");
}

TEST_F(SnapshotTest, aFullDiskLeavesTheOldFile) {
   ASSERT_TRUE(Snapshot::write(tree, file, error)) << error;
   std::string const before = contentOf(file);
   tree.apply(Block().at(tree.find("config")->node()).set(Config::count, u32Bytes(5)));
   rlimit old{};
   getrlimit(RLIMIT_FSIZE, &old);
   rlimit const small{100, old.rlim_max}; // as a full disk: writing fails behind 100 bytes
   auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
   setrlimit(RLIMIT_FSIZE, &small);
   bool const isWritten = Snapshot::write(tree, file, error);
   setrlimit(RLIMIT_FSIZE, &old);
   std::signal(SIGXFSZ, handler);
   EXPECT_FALSE(isWritten);
   EXPECT_EQ(error, file + ".new: can't be written: File too large");
   EXPECT_EQ(contentOf(file), before);
   EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1); // nothing lies about
}

} // namespace
