// Bad bytes, bad files and bad peers against a real database: each ends its own connection with a reason, or
// is refused; the tree stays as it was, and others are served.
#include "ProcessFacts.h"
#include "RawClient.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <map>
#include <random>
#include <sstream>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace Scenario;
using Ordel::Frame;
using Ordel::Op;
using Ordel::Status;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace std::string_view_literals;

constexpr char lag[] = "bridging/input/config/lag";
constexpr char document[] = R"({
  "bridging/input/config/lag": {
    "$type": "Bridging::Input::Config",
    "vlanConfigPriority": 7,
    "vlanConfig": {"9": {}, "10": {"configuredName": "servers"}},
    "switchIntfConfig": {"Ethernet2": {"accessVlan": 10}}
  }
})";

size_t countOf(std::string_view text, std::string_view wanted) {
   size_t count = 0;
   for (size_t at = 0; (at = text.find(wanted, at)) != std::string_view::npos; at += wanted.size())
      ++count;
   return count;
}

// Lines that the database left out of its log because there were too many.
size_t leftOutCount(std::string_view log) {
   constexpr std::string_view words = "lines left out because there were too many: ";
   size_t count = 0;
   for (size_t at = 0; (at = log.find(words, at)) != std::string_view::npos;) {
      at += words.size();
      count += std::strtoul(log.data() + at, nullptr, 10);
   }
   return count;
}

std::string bytesOf(std::string const& file) {
   std::ostringstream bytes;
   bytes << std::ifstream(file, std::ios::binary).rdbuf();
   return bytes.str();
}

// A database with something in it, and a client that is connected all the time.
struct HostileTest : testing::Test {
   Database database;
   RawClient bystander{database.socket()};
   uint32_t lastMount = 0;
   uint32_t lagNode = 0;
   std::string before;
   std::map<std::string, size_t> endedCount; // by reason

   void SetUp() override {
      ASSERT_EQ(database.ctl({"load", "-"}, document).status, 0);
      before = dump();
      ASSERT_THAT(before, HasSubstr("servers"));
      bystander.welcomed("bystander");
      lagNode = mountOfBystander(lag);
      ASSERT_NE(lagNode, 0u);
   }
   // Each connection that was ended has its line, or is counted among those that were too many.
   void TearDown() override {
      verifyUndisturbed();
      EXPECT_EQ(database.stop(), 0);
      std::string const log = database.process().errors().text();
      size_t missing = 0;
      for (auto const& [reason, count] : endedCount) {
         size_t const logged = countOf(log, " is refused: " + reason + "\n");
         EXPECT_LE(logged, count) << reason;
         missing += count - logged;
      }
      EXPECT_LE(missing, leftOutCount(log));
   }

   std::string dump() const { return database.ctl({"dump"}).output; }
   // The node that is mounted, once all of it has arrived.
   uint32_t mountOfBystander(std::string const& selector) {
      bystander.mount(++lastMount, selector);
      auto const mounted = bystander.read(Frame::mounted);
      auto const done = bystander.read(Frame::mountDone);
      if (!mounted || !done)
         return 0;
      Wire::Reader in(mounted->payload);
      in.u32();
      return in.u32();
   }
   void verifyBystanderIsServed() { EXPECT_NE(mountOfBystander("bridging/config.hostAgingTime"), 0u); }
   void verifyUndisturbed() {
      EXPECT_EQ(dump(), before);
      verifyBystanderIsServed();
   }
   void verifyLine(std::string const& line) {
      EXPECT_TRUE(database.process().errors().waitFor(line, limit)) << line << "\nis missing in\n"
                                                                    << database.process().errors().text();
   }
   // The client gets that reason, its connection is ended, and in the end the log has a line for each.
   void verifyEnded(RawClient& client, std::string const& reason) {
      EXPECT_EQ(client.refusal(), reason);
      ++endedCount[reason];
   }
   RawClient connected() { return RawClient(database.socket()); }
   RawClient welcomed(std::string_view name = "hostile") {
      RawClient client(database.socket());
      client.welcomed(name);
      return client;
   }
};

// --- Bytes that are no frames

struct RandomBytes {
   std::mt19937 random{20240117};

   std::string operator()(size_t size) {
      std::string bytes(size, '\0');
      for (char& byte : bytes)
         byte = static_cast<char>(random());
      return bytes;
   }
};

// Counts at the end, when all that the database said has been read.
void verifyLineOfEach(Database& database, size_t clientCount) {
   EXPECT_EQ(database.stop(), 0);
   std::string const log = database.process().errors().text();
   EXPECT_EQ(countOf(log, " is refused: ") + countOf(log, " is gone in the middle of a frame\n") +
                 leftOutCount(log),
             clientCount);
   database.start();
}

// Clients that send up to so many random bytes, before the handshake or behind it.
void verifyRandomBytesEndTheirConnectionOnly(size_t most, bool isWelcome) {
   Database database;
   std::string const before = database.ctl({"dump"}).output;
   RawClient bystander(database.socket());
   bystander.welcomed("bystander");
   RandomBytes bytes;
   constexpr size_t count = 300;
   for (size_t i = 0; i < count && !testing::Test::HasFailure(); ++i) {
      RawClient client(database.socket());
      if (isWelcome)
         client.welcomed("hostile");
      client.send(bytes(1 + bytes.random() % most));
      client.endSending();
      client.refusal();
   }
   bystander.mount(1, "bridging/config");
   EXPECT_TRUE(bystander.read(Frame::mountDone));
   EXPECT_EQ(database.ctl({"dump"}).output, before);
   verifyLineOfEach(database, count);
}

TEST(HostileBytesTest, randomBytesBeforeTheHandshakeEndTheirConnectionOnly) {
   verifyRandomBytesEndTheirConnectionOnly(3000, false);
}

TEST(HostileBytesTest, randomBytesBehindTheHandshakeEndTheirConnectionOnly) {
   verifyRandomBytesEndTheirConnectionOnly(100'000, true);
}

// Each frame has a right size and a type that exists; its contents make no sense, or are refused.
TEST_F(HostileTest, randomPayloadsEndTheirConnectionOnly) {
   RandomBytes bytes;
   size_t refusedCount = 0;
   for (int i = 0; i < 1000 && !HasFailure(); ++i) {
      RawClient client = welcomed();
      std::string const payload = bytes(bytes.random() % 60);
      auto const type = static_cast<Frame>(static_cast<unsigned>(Frame::mount) + bytes.random() % 7);
      client.begin(type).raw(payload.data(), payload.size());
      client.send();
      client.endSending();
      if (std::string const reason = client.refusal(); !reason.empty()) {
         ++endedCount[reason];
         ++refusedCount;
      }
   }
   EXPECT_GT(refusedCount, 500u);
}

// Every frame that a client may send, cut at every place: the database goes on waiting for the rest until the
// client disconnects.
TEST_F(HostileTest, framesCutShortAreDropped) {
   Ordel::FrameBuffer frames;
   frames.begin(Frame::mount).u32(1);
   frames.writer().string(lag);
   frames.writer().string("");
   frames.writer().u8(0);
   frames.end();
   Wire::Writer& write = frames.begin(Frame::write);
   write.u32(1);
   write.u64(0);
   write.u8(0);
   write.u8(static_cast<uint8_t>(Op::at));
   write.u32(lagNode);
   write.u8(0);
   write.u8(static_cast<uint8_t>(Op::set));
   write.u8(
       static_cast<uint8_t>(Records::schema().entity("Bridging::Input::Config")->find("vlanConfigPriority")));
   write.u32(8);
   frames.end();
   std::string const whole(frames.view());
   size_t const writeAt = 4u + static_cast<uint8_t>(whole[0]); // where the second frame begins
   for (size_t size = 1; size < whole.size() && !HasFailure(); ++size) {
      if (size == writeAt)
         continue; // one frame, and whole
      std::string const name = "cut at " + std::to_string(size);
      RawClient client = welcomed(name);
      client.send(whole.substr(0, size));
      client.endSending();
      EXPECT_EQ(client.refusal(), "");
      verifyLine(name + " (pid " + std::to_string(::getpid()) + ", uid " + std::to_string(::getuid()) +
                 ") is gone in the middle of a frame\n");
   }
   verifyUndisturbed();
   // As a whole it is carried out.
   RawClient client = welcomed("whole");
   client.send(whole);
   EXPECT_TRUE(client.read(Frame::reply));
   EXPECT_EQ(database.get(std::string(lag) + ".vlanConfigPriority"), "8");
   ASSERT_EQ(database.ctl({"set", std::string(lag) + ".vlanConfigPriority", "7"}).status, 0);
}

TEST_F(HostileTest, aFrameOfFourGigabytesTakesNoMemory) {
   size_t const memoryBefore = memoryOf(database.process().pid(), "VmRSS");
   for (uint32_t size : {0xffffffffu, 0x80000000u, static_cast<uint32_t>(Ordel::maxFrameBytes) + 1, 0u}) {
      RawClient client = welcomed();
      client.send(std::string_view(reinterpret_cast<char const*>(&size), sizeof size));
      verifyEnded(client, "a frame is empty or larger than the limit of 33554432 bytes");
   }
   // The largest legal one costs only as much as has arrived, not the size that it announces.
   std::list<RawClient> clients;
   uint32_t const size = Ordel::maxFrameBytes;
   for (int i = 0; i < 100; ++i) {
      RawClient& client = clients.emplace_back(welcomed());
      client.send(std::string_view(reinterpret_cast<char const*>(&size), sizeof size));
      client.send("\4abc");
   }
   verifyUndisturbed();
   if (isMemoryMeaningful) {
      EXPECT_LT(memoryOf(database.process().pid(), "VmHWM"), memoryBefore + (16u << 10));
   }
}

TEST_F(HostileTest, anUnknownTypeOfFrameEndsTheConnection) {
   for (unsigned type : {0u, 9u, 63u, 64u, 72u, 255u}) {
      RawClient client = welcomed();
      client.begin(static_cast<Frame>(type));
      client.send();
      verifyEnded(client, "there is no frame of type " + std::to_string(type));
   }
   RawClient client = welcomed();
   client.hello("again");
   verifyEnded(client, "a second hello");
}

// --- The handshake

TEST_F(HostileTest, aWrongHelloIsAnsweredWithWhatIsWrong) {
   uint64_t const fingerprint = Records::schema().fingerprint;
   RawClient magic = connected();
   magic.hello("hostile", 0x12345678);
   verifyEnded(magic, "this is no client of the state database");
   RawClient version = connected();
   version.hello("hostile", Ordel::protocolMagic, Ordel::protocolVersion + 1);
   verifyEnded(version, "the client speaks version 3 of the protocol, the database 2");
   RawClient records = connected();
   records.hello("hostile", Ordel::protocolMagic, Ordel::protocolVersion, fingerprint + 1);
   verifyEnded(records, "the client was built with other records than the database");
   RawClient nameless = connected();
   nameless.hello("");
   verifyEnded(nameless, "a client's name has 1 to 255 bytes");
   RawClient hasty = connected();
   hasty.mount(1, lag);
   verifyEnded(hasty, "the first frame has to be a hello");
   RawClient large = connected();
   large.hello(std::string(600, 'n'));
   verifyEnded(large, "a frame is empty or larger than the limit of 512 bytes");
}

TEST_F(HostileTest, aNameCanNotForgeALineOfTheLog) {
   RawClient client = welcomed("a\nordeld: ready\x1b[2J");
   client.begin(static_cast<Frame>(99));
   client.send();
   EXPECT_EQ(client.refusal(), "there is no frame of type 99");
   verifyLine("a\\nordeld: ready\\x1b[2J (pid ");
}

TEST_F(HostileTest, aClientThatSaysNothingIsEnded) {
   RawClient client = connected();
   RawClient half = connected();
   half.send("\x20\0\0"sv); // the beginning of a hello
   verifyUndisturbed();
   verifyEnded(client, "no hello came in time");
   verifyEnded(half, "no hello came in time");
}

// --- Many connections

TEST_F(HostileTest, connectionsThatComeAndGoLeaveNothing) {
   auto const connectAndGo = [&](int i) {
      RawClient client = i % 2 ? welcomed() : connected();
      if (i % 4 > 1)
         client.mount(1, lag);
      client.endSending();
      while (client.read()) { // the end comes when the database has closed its side
      }
   };
   for (int i = 0; i < 100; ++i)
      connectAndGo(i);
   size_t const descriptors = descriptorCount(database.process().pid());
   size_t const memory = memoryOf(database.process().pid(), "VmRSS");
   for (int i = 0; i < 10'000 && !HasFailure(); ++i)
      connectAndGo(i);
   EXPECT_EQ(descriptorCount(database.process().pid()), descriptors);
   if (isMemoryMeaningful) {
      EXPECT_LT(memoryOf(database.process().pid(), "VmRSS"), memory + (8u << 10));
   }
}

TEST_F(HostileTest, moreClientsThanTheLimitAreTurnedAway) {
   rlimit descriptors;
   ::getrlimit(RLIMIT_NOFILE, &descriptors);
   descriptors.rlim_cur = std::max<rlim_t>(descriptors.rlim_cur, Ordel::maxClients + 128);
   if (::setrlimit(RLIMIT_NOFILE, &descriptors) != 0)
      GTEST_SKIP() << "this process may not have so many descriptors";
   std::list<RawClient> clients;
   while (clients.size() + 1 < Ordel::maxClients && !HasFailure()) // one is the bystander
      clients.emplace_back(welcomed());
   for (int i = 0; i < 10 && !HasFailure(); ++i) {
      RawClient client = connected();
      verifyEnded(client, "there are 1024 clients already");
   }
   verifyBystanderIsServed();
   clients.back().endSending();
   EXPECT_FALSE(clients.back().read());
   welcomed();
}

// --- Clients that ask for too much

TEST_F(HostileTest, aHundredThousandQuestionsHoldUpNobody) {
   RawClient agent = connected();
   agent.hello("silent agent", Ordel::protocolMagic, Ordel::protocolVersion, Records::schema().fingerprint,
               Ordel::Role::agent);
   ASSERT_TRUE(agent.read(Frame::welcome));
   {
      RawClient asking = welcomed();
      constexpr size_t count = 100'000;
      Ordel::FrameBuffer questions;
      for (uint32_t i = 1; i <= count; ++i) {
         Ordel::encode(questions, Ordel::Message::Settle{.request = i});
      }
      std::thread sending([&] { asking.send(questions.view()); });
      size_t refusedCount = 0;
      for (; refusedCount < count - Ordel::maxQuestionsPerClient; ++refusedCount) {
         auto const reply = asking.read(Frame::reply);
         if (!reply)
            break;
         EXPECT_EQ(reply->payload[4], static_cast<char>(Status::refused));
      }
      sending.join();
      EXPECT_EQ(refusedCount, count - Ordel::maxQuestionsPerClient);
      agent.endSending();
      for (size_t i = 0; i < Ordel::maxQuestionsPerClient; ++i) {
         auto const reply = asking.read(Frame::reply);
         ASSERT_TRUE(reply);
         EXPECT_EQ(reply->payload[4], static_cast<char>(Status::done));
      }
   }
   verifyBystanderIsServed();
}

// Sixteen half frames of 60 MB once cost a gigabyte.
TEST_F(HostileTest, halfFramesCostLittleAndEnd) {
   size_t const memoryBefore = memoryOf(database.process().pid(), "VmRSS");
   constexpr uint32_t size = Ordel::maxFrameBytes;
   std::string const half = std::string(reinterpret_cast<char const*>(&size), sizeof size) +
                            static_cast<char>(Frame::write) + std::string(size - 1000, '\0');
   std::list<RawClient> clients;
   size_t sentCount = 0;
   for (int i = 0; i < 16; ++i) {
      RawClient& client = clients.emplace_back(welcomed());
      client.sendTimeoutIs(200);
      sentCount += client.send(half);
   }
   EXPECT_EQ(sentCount, 4u);
   verifyUndisturbed();
   if (isMemoryMeaningful) {
      EXPECT_LT(memoryOf(database.process().pid(), "VmHWM"), memoryBefore + (180u << 10));
   }
   for (size_t i = 0; i < sentCount; ++i) {
      EXPECT_EQ(clients.front().refusal(), "the rest of a large frame did not come in time");
      ++endedCount["the rest of a large frame did not come in time"];
      clients.pop_front();
   }
   clients.clear(); // also those that still wait
   verifyBystanderIsServed();
}

// --- What a write says

struct HostileWriteTest : HostileTest {
   Wire::Writer block;

   uint8_t attribute(char const* name) const {
      return static_cast<uint8_t>(Records::schema().entity("Bridging::Input::Config")->find(name));
   }
   void at(uint32_t node) {
      block.u8(static_cast<uint8_t>(Op::at));
      block.u32(node);
      block.u8(0);
   }
   void create(std::string_view name) {
      block.u8(static_cast<uint8_t>(Op::create));
      block.u8(0);
      block.string(name);
      block.u16(Records::schema().entity("Bridging::Input::Config")->id);
      block.u32(0);
   }
   void setPriority(uint32_t priority) {
      block.u8(static_cast<uint8_t>(Op::set));
      block.u8(attribute("vlanConfigPriority"));
      block.u32(priority);
   }
   // The write is refused with that reason; its client is still served.
   void verifyRefused(RawClient& client, std::string const& reason) {
      client.write(7, block.view());
      block.clear();
      auto const reply = client.read();
      ASSERT_TRUE(reply && reply->frame == Frame::reply) << reason;
      Wire::Reader in(reply->payload);
      EXPECT_EQ(in.u32(), 7u);
      EXPECT_EQ(in.u8(), static_cast<uint8_t>(Status::refused));
      EXPECT_THAT(std::string(in.string()), HasSubstr(reason));
   }
};

TEST_F(HostileWriteTest, namesThatNoSelectorCanTellAreRefused) {
   RawClient client = welcomed();
   uint32_t const directory = mountOfBystander("bridging/input/config");
   for (std::string_view name : {"a/b"sv, "/"sv, "a.b"sv, ".."sv, "a[b"sv, "a]b"sv, "a\0b"sv, "\0"sv}) {
      at(directory);
      create("good"); // goes with the bad one
      create(name);
      verifyRefused(client, "a name has no / . [ ] and no NUL in it");
   }
   at(directory);
   create("");
   verifyRefused(client, "a name is not empty");
   at(directory);
   create(std::string(256, 'n'));
   verifyRefused(client, "a name has at most 255 bytes");
   verifyUndisturbed();
   at(directory);
   create("good"); // the same client, after all that
   client.write(8, block.view());
   EXPECT_TRUE(client.read(Frame::reply));
   EXPECT_EQ(database.ctl({"delete", "bridging/input/config/good"}).status, 0);
}

TEST_F(HostileWriteTest, ofAWriteThatIsBadAtItsEndNothingIsDone) {
   RawClient client = welcomed();
   at(lagNode);
   setPriority(99);
   block.u8(static_cast<uint8_t>(Op::create));
   block.u8(attribute("vlanConfig"));
   block.u16(4095); // out of range
   block.u16(Records::schema().entity("Bridging::Input::VlanConfig")->id);
   verifyRefused(client, "VlanId::value < 1 or > 4094 not allowed");
   at(lagNode);
   setPriority(99);
   at(0x7fffffff); // never was
   setPriority(1);
   verifyRefused(client, "2147483647");
   at(lagNode);
   setPriority(99);
   block.u8(77); // no operation
   client.write(9, block.view());
   EXPECT_THAT(client.refusal(), StartsWith("a write can't be read: "));
   verifyLine(" is refused: a write can't be read: ");
}

// Four million creations in one write once stopped everyone for eleven seconds and left 2.7 GB.
TEST_F(HostileWriteTest, moreCreationsThanOneWriteMayHoldAreRefusedAndTheirMemoryIsGivenBack) {
   RawClient client = welcomed();
   pid_t const pid = database.process().pid();
   size_t const memoryBefore = memoryOf(pid, "VmRSS");
   at(mountOfBystander("bridging/input/config"));
   while (block.size() < Ordel::maxFrameBytes - 100)
      create(std::to_string(block.size()));
   verifyRefused(client, "more than 262144 entities are created in one write");
   verifyUndisturbed();
   if (isMemoryMeaningful) {
      auto const end = std::chrono::steady_clock::now() + limit;
      while (memoryOf(pid, "VmRSS") > memoryBefore + (40u << 10) && std::chrono::steady_clock::now() < end) {
      }
      EXPECT_LE(memoryOf(pid, "VmRSS"), memoryBefore + (40u << 10));
   }
}

TEST_F(HostileTest, ofADocumentThatIsHalfBadNothingIsDone) {
   auto const verifyRefused = [&](std::string const& text, std::string const& reason) {
      Result const result = database.ctl({"load", "-"}, text);
      EXPECT_EQ(result.status, 3) << result.errors;
      EXPECT_THAT(result.errors, HasSubstr(reason));
      EXPECT_EQ(dump(), before);
   };
   std::string const good =
       R"("bridging/input/config/lag": {"vlanConfigPriority": 99, "vlanConfig": {"11": {}}}, )"
       R"("bridging/input/config/new": {"$type": "Bridging::Input::Config"}, )";
   verifyRefused("{" + good + R"("bridging/nowhere": {"a": 1}})", "bridging/nowhere");
   verifyRefused("{" + good + R"("bridging/input/config/cli": {"vlanConfig": {"4095": {}}}})", "4094");
   verifyRefused("{" + good + R"("bridging/input/config/cli": {"colour": 1}})", "colour");
   verifyRefused("{" + good + R"("bridging/input/config/cli": {"hostAgingTime": "x"}})", "hostAgingTime");
   verifyRefused("{" + good + R"("bridging/input/config/a.b": {"$type": "Bridging::Input::Config"}})", "a.b");
   EXPECT_EQ(database.ctl({"load", "-"}, "{" + good + R"("bridging/input/config/cli": {)").status, 2);
   EXPECT_EQ(dump(), before);
}

// --- The snapshot

// A database that can't write files of more than 512 bytes; ulimit counts in these.
struct SmallFilesTest : testing::Test {
   TempFolder folder;
   std::string const snapshot = folder.file("tree");
   std::string const socket = folder.file("ordel.sock");

   std::unique_ptr<Process> startLimited() {
      auto process = std::make_unique<Process>(std::vector<std::string>{
          "/bin/sh", "-c", R"(trap '' XFSZ; ulimit -f 1; exec "$0" --socket "$1" --snapshot "$2")",
          program("ordeld"), socket, snapshot});
      EXPECT_TRUE(process->errors().waitFor("ready", limit)) << process->errors().text();
      return process;
   }
};

TEST_F(SmallFilesTest, aSnapshotThatCanNotBeWrittenLeavesTheOldOne) {
   {
      Database database({"--snapshot", snapshot});
      ASSERT_EQ(database.ctl({"load", "-"}, document).status, 0);
      ASSERT_EQ(database.stop(), 0);
   }
   std::string const old = bytesOf(snapshot);
   ASSERT_GT(old.size(), 512u);
   auto const limited = startLimited();
   Environment const environment{{"ORDEL_SOCKET", socket}};
   ASSERT_EQ(run({program("ordelctl"), "set", std::string(lag) + ".vlanConfigPriority", "8"}, {}, environment)
                 .status,
             0);
   std::string const reason = snapshot + ".new: can't be written: File too large\n";
   Result const asked = run({program("ordelctl"), "snapshot"}, {}, environment);
   EXPECT_EQ(asked.status, 3);
   EXPECT_EQ(asked.errors, "ordelctl: " + reason);
   EXPECT_EQ(bytesOf(snapshot), old);
   // It still answers.
   EXPECT_EQ(
       run({program("ordelctl"), "get", std::string(lag) + ".vlanConfigPriority"}, {}, environment).output,
       "8\n");
   limited->signal(SIGTERM);
   EXPECT_EQ(limited->wait(), 5);
   EXPECT_THAT(limited->errors().text(), HasSubstr("ordeld: " + reason));
   EXPECT_EQ(bytesOf(snapshot), old);
   EXPECT_FALSE(std::filesystem::exists(snapshot + ".new"));
}

TEST(FullDiskTest, aSnapshotThatFindsNoRoomLeavesTheOldOne) {
   TempFolder const folder;
   std::string const disk = folder.file("disk");
   std::filesystem::create_directory(disk);
   if (::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k") != 0)
      GTEST_SKIP() << "a small file system can't be mounted here: " << std::strerror(errno);
   {
      Database database({"--snapshot", disk + "/tree"});
      EXPECT_EQ(database.ctl({"load", "-"}, document).status, 0);
      EXPECT_EQ(database.ctl({"snapshot"}).status, 0);
      std::string const old = bytesOf(disk + "/tree");
      EXPECT_FALSE(old.empty());
      std::ofstream(disk + "/rest") << std::string(64 << 10, 'x') << std::flush; // as much as goes in
      std::string const reason = disk + "/tree.new: can't be written: No space left on device\n";
      Result const asked = database.ctl({"snapshot"});
      EXPECT_EQ(asked.status, 3);
      EXPECT_EQ(asked.errors, "ordelctl: " + reason);
      EXPECT_EQ(database.stop(), 5);
      EXPECT_THAT(database.process().errors().text(), HasSubstr("ordeld: " + reason));
      EXPECT_EQ(bytesOf(disk + "/tree"), old);
      std::filesystem::remove(disk + "/rest");
      database.start(); // with room again
      EXPECT_EQ(database.get(std::string(lag) + ".vlanConfigPriority"), "7");
      EXPECT_EQ(database.stop(), 0);
   }
   EXPECT_EQ(::umount(disk.c_str()), 0);
}

struct DamagedSnapshotTest : testing::Test {
   TempFolder folder;
   std::string const snapshot = folder.file("tree");
   std::string image;

   void SetUp() override {
      Database database({"--snapshot", snapshot});
      ASSERT_EQ(database.ctl({"load", "-"}, document).status, 0);
      ASSERT_EQ(database.stop(), 0);
      image = bytesOf(snapshot);
      ASSERT_GT(image.size(), 100u);
   }
   // The database doesn't start on these bytes, says why, and leaves them as they are.
   void verifyRefused(std::string const& bytes, std::string const& what) {
      if (HasFailure()) // a database that starts would be waited for each time
         return;
      std::ofstream(snapshot, std::ios::binary) << bytes;
      Result const result =
          run({program("ordeld"), "--socket", folder.file("ordel.sock"), "--snapshot", snapshot});
      EXPECT_EQ(result.status, 3) << what;
      EXPECT_THAT(result.errors, StartsWith("ordeld: " + snapshot + ": ")) << what;
      EXPECT_THAT(result.errors, ::testing::ContainsRegex("not a snapshot|cut off|damaged|version")) << what;
      EXPECT_EQ(countOf(result.errors, "\n"), 1u) << what;
      EXPECT_TRUE(bytesOf(snapshot) == bytes) << what;
   }
};

// A pipe that nobody writes to, a device that never ends: neither is waited for.
TEST_F(DamagedSnapshotTest, whatIsNoRegularFileIsRefused) {
   std::string const pipe = folder.file("pipe");
   ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
   for (std::string const& file : {pipe, std::string("/dev/zero")}) {
      Result const result =
          run({program("ordeld"), "--socket", folder.file("ordel.sock"), "--snapshot", file});
      EXPECT_EQ(result.status, 3);
      EXPECT_EQ(result.errors, "ordeld: " + file + ": is no regular file\n");
   }
}

TEST_F(DamagedSnapshotTest, oneThatIsCutShortIsRefused) {
   for (size_t size = 0; size < image.size(); size += size < 40 ? 1 : 1 + image.size() / 30)
      verifyRefused(image.substr(0, size), "cut to " + std::to_string(size));
   for (size_t missing = 1; missing <= 5; ++missing)
      verifyRefused(image.substr(0, image.size() - missing), "without the last " + std::to_string(missing));
   verifyRefused(image + "x", "longer");
}

TEST_F(DamagedSnapshotTest, oneWithFlippedBytesIsRefused) {
   for (size_t at = 0; at < image.size(); at += at < 36 ? 1 : 1 + image.size() / 30)
      for (int mask : {0x01, 0xff}) {
         std::string bytes = image;
         bytes[at] = static_cast<char>(bytes[at] ^ mask);
         verifyRefused(bytes, "byte " + std::to_string(at) + " flipped");
      }
   // The good one is taken as before.
   std::ofstream(snapshot, std::ios::binary) << image;
   Database database({"--snapshot", snapshot});
   EXPECT_EQ(database.get(std::string(lag) + ".vlanConfigPriority"), "7");
}

// --- The folder

TEST(LockedFolderTest, aFolderThatStaysLockedEndsTheStart) {
   TempFolder const folder;
   int const lock = ::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   ASSERT_EQ(::flock(lock, LOCK_EX), 0);
   Result const result = run({program("ordeld"), "--socket", folder.file("ordel.sock")});
   EXPECT_EQ(result.status, 4);
   EXPECT_EQ(result.errors, "ordeld: " + folder.file("ordel.sock") + ": another process keeps " +
                                folder.path() + " locked\n");
   ::close(lock);
}

} // namespace
