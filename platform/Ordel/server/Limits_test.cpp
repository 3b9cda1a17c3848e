// What one client, or all of them, may cost the database: memory, time, lines of its log.
#include "Kem/TestTrace.h"
#include "Ordel/server/LargeFrames.h"
#include "Ordel/server/MemoryReturn.h"
#include "Ordel/server/PacedTrace.h"
#include "Ordel/server/TestServer.h"
#include "Ordel/server/Turns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace TestRecords;
using Ordel::Frame;
using Ordel::LargeFrames;
using Ordel::Role;
using Ordel::ServerClient;
using Ordel::Status;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct LimitsTest : ServerTest {
   // Goes on with what waits for its turn.
   void runTurns() {
      server.answersAreSent();
      Kem::activityManager()->runUntilIdle();
   }
   // So many bytes of a frame of a megabyte.
   static void sendPart(TestClient& client, size_t count) {
      static constexpr uint32_t size = 1u << 20;
      if (client.link->partialBytes() == 0)
         client.sendRaw(u32Bytes(size) + static_cast<char>(Frame::write));
      client.sendRaw(std::string(count, '\0'));
   }
   static std::string longName(int number) {
      return "input/dir/" + std::string(240, 'n') + std::to_string(number);
   }
};

// --- Frames that wait

// Two thousand requests that came with one `receive` once made 1.4 gigabytes of answers.
TEST_F(LimitsTest, requestsWaitWhenTheirAnswersAreNotRead) {
   TestClient asking(server, "asking");
   for (int i = 0; i < 3000; ++i)
      asking.mount(static_cast<uint32_t>(i), longName(i), Ordel::mountAwait);
   asking.take();
   Ordel::FrameBuffer requests;
   constexpr uint32_t count = 45;
   for (uint32_t i = 1; i <= count; ++i) {
      requests.begin(Frame::clients).u32(i);
      requests.end();
   }
   server.answersAreSent();
   asking.link->receive(requests.view());
   EXPECT_FALSE(asking.link->wantsReading());
   EXPECT_LE(asking.link->pendingBytes(),
             ServerClient::changesLimit + ServerClient::readerBonus + ServerClient::answersRoom + (4u << 20));
   EXPECT_GT(asking.link->pendingBytes(), 20u << 20);
   size_t takes = 0;
   for (; asking.replies.size() < count && takes < count; ++takes) {
      asking.take();
      runTurns();
   }
   EXPECT_GT(takes, 1u);
   EXPECT_EQ(asking.replies.size(), count);
   EXPECT_TRUE(asking.link->wantsReading());
}

TEST_F(LimitsTest, framesThatWaitAreTakenInTheirOrder) {
   TestClient client(server, "client");
   Ordel::FrameBuffer frames;
   Ordel::Turns& turns = server.turns();
   server.answersAreSent();
   turns.begin();
   Kem::activityManager()->advance(1); // the time for all is used up
   for (int i = 0; i < 100; ++i) {
      Wire::Writer& out = frames.begin(Frame::write);
      out.u32(0);
      out.u64(0);
      out.u8(0);
      std::string const block(Block().at(config).set(Config::vlan, u16Bytes(static_cast<uint16_t>(i + 2))));
      out.raw(block.data(), block.size());
      frames.end();
   }
   std::string_view const bytes = frames.view();
   client.link->receive(bytes.substr(0, bytes.size() - 3));
   EXPECT_EQ(server.blockCount(), 0u);
   EXPECT_FALSE(client.link->wantsReading());
   runTurns();
   EXPECT_EQ(server.blockCount(), 99u);
   EXPECT_TRUE(client.link->wantsReading());
   server.answersAreSent();
   client.link->receive(bytes.substr(bytes.size() - 3));
   EXPECT_EQ(server.blockCount(), 100u);
   EXPECT_EQ(server.tree().value(*server.tree().find("config"), Config::vlan), u16Bytes(101));
}

TEST_F(LimitsTest, clientThatGoesWhileItsFramesWaitIsForgotten) {
   auto client = std::make_unique<TestClient>(server, "client");
   server.answersAreSent();
   server.turns().begin();
   Kem::activityManager()->advance(1);
   Ordel::FrameBuffer frames;
   frames.begin(Frame::clients).u32(1);
   frames.end();
   client->link->receive(frames.view());
   EXPECT_FALSE(client->link->wantsReading());
   client.reset();
   runTurns();
   EXPECT_THAT(server.clients(), IsEmpty());
}

// --- Large frames

TEST_F(LimitsTest, fewLargeFramesComeAtOnce) {
   std::list<TestClient> clients;
   for (size_t i = 0; i <= LargeFrames::maxAtOnce; ++i)
      sendPart(clients.emplace_back(server), 200'000);
   EXPECT_TRUE(clients.front().link->wantsReading());
   EXPECT_FALSE(clients.back().link->wantsReading());
   TestClient small(server);
   sendPart(small, 1000);
   EXPECT_TRUE(small.link->wantsReading());
   clients.pop_front();
   EXPECT_TRUE(clients.back().link->wantsReading());
}

TEST_F(LimitsTest, clientThatGoesWhileItsLargeFrameWaitsIsForgotten) {
   std::list<TestClient> clients;
   for (size_t i = 0; i <= LargeFrames::maxAtOnce + 1; ++i)
      sendPart(clients.emplace_back(server), 200'000);
   clients.erase(std::prev(clients.end(), 2));
   EXPECT_FALSE(clients.back().link->wantsReading());
   clients.pop_front();
   EXPECT_TRUE(clients.back().link->wantsReading()) << "the room is for one that still is there";
}

TEST_F(LimitsTest, largeFrameThatIsWholeMakesRoomForTheNext) {
   std::list<TestClient> clients;
   for (size_t i = 0; i <= LargeFrames::maxAtOnce; ++i)
      sendPart(clients.emplace_back(server), 200'000);
   sendPart(clients.front(), (1u << 20) - 200'000 - 1); // it isn't taken well, but it is whole
   EXPECT_TRUE(clients.back().link->wantsReading());
   Kem::activityManager()->advance(LargeFrames::timeLimit - 1);
   EXPECT_FALSE(clients.back().link->isRefused());
}

TEST_F(LimitsTest, largeFrameHasATimeLimit) {
   std::list<TestClient> clients;
   for (size_t i = 0; i <= LargeFrames::maxAtOnce; ++i)
      sendPart(clients.emplace_back(server), 200'000);
   Kem::activityManager()->advance(LargeFrames::timeLimit - 0.1);
   EXPECT_FALSE(clients.front().link->isRefused());
   Kem::activityManager()->advance(0.2);
   clients.front().take();
   EXPECT_EQ(clients.front().refused, "the rest of a large frame did not come in time");
   // The time of the one that had to wait begins only now.
   EXPECT_TRUE(clients.back().link->wantsReading());
   Kem::activityManager()->advance(LargeFrames::timeLimit - 0.2);
   EXPECT_FALSE(clients.back().link->isRefused());
   Kem::activityManager()->advance(0.2);
   EXPECT_TRUE(clients.back().link->isRefused());
}

TEST_F(LimitsTest, smallFrameMayTakeItsTime) {
   TestClient client(server);
   sendPart(client, LargeFrames::largeBytes - 10);
   Kem::activityManager()->advance(1000);
   EXPECT_FALSE(client.link->isRefused());
}

// --- Mounts, and what is told of them

TEST_F(LimitsTest, selectorsOfAllMountsTogetherAreLimited) {
   TestClient client(server);
   uint32_t number = 0;
   for (; client.failed.empty() && number < Ordel::maxMountsPerClient; ++number) {
      std::string const deep = "input/dir/" + std::string(250, 'n') + "/" + std::string(250, 'n');
      client.mount(number, deep, Ordel::mountAwait);
      client.take();
   }
   ASSERT_EQ(client.failed.size(), 1u);
   EXPECT_EQ(client.failed.begin()->second.text, "the selectors of all mounts have more than 1048576 bytes");
   client.unmount(0);
   client.mount(number, "config");
   client.take();
   EXPECT_EQ(client.done.count(number), 1u);
}

// Six clients with many mounts once made the report a frame that nobody takes.
TEST_F(LimitsTest, reportOfManyMountsIsShortened) {
   std::list<TestClient> clients;
   for (int k = 0; k < 8; ++k) {
      TestClient& client = clients.emplace_back(server);
      for (int i = 0; i < 4000; ++i)
         client.mount(static_cast<uint32_t>(i), longName(i), Ordel::mountAwait);
      client.take();
   }
   TestClient asking(server, "asking");
   asking.request(Frame::clients, 1);
   asking.take();
   std::string const& report = asking.replies[1].text;
   EXPECT_LE(report.size(), 4u << 20);
   EXPECT_THAT(report, HasSubstr("], \"mountsLeftOut\": "));
   EXPECT_THAT(report, HasSubstr("\"name\": \"asking\""));
}

// What is told of mounts can't be folded like changes, so a client that takes nothing ends at last.
TEST_F(LimitsTest, clientThatNeverReadsEndsBeforeItCostsTooMuch) {
   TestClient client(server, "client");
   TestClient writer(server, "writer");
   std::string const name(250, 'n');
   for (uint32_t i = 0; i < 3800; ++i)
      client.mount(i, "input/dir/" + name, Ordel::mountAwait);
   size_t most = 0;
   for (int i = 0; i < 200 && !client.link->isRefused(); ++i) {
      writer.write(Block().at(dir).createNode(name, configType));
      writer.write(Block().at(dir).erase(0, stringBytes(name)));
      client.link->fill(); // the end of a turn
      most = std::max(most, client.link->pendingBytes());
   }
   EXPECT_TRUE(client.link->isRefused());
   EXPECT_TRUE(client.link->isOver());
   EXPECT_EQ(client.link->pendingBytes(), 0u);
   EXPECT_LE(most, ServerClient::outputLimit + (4u << 20));
}

TEST_F(LimitsTest, whatWaitsForAllClientsIsSummed) {
   TestClient writer(server, "writer");
   std::list<TestClient> clients;
   for (int i = 0; i < 3; ++i) {
      clients.emplace_back(server).mount(1, "config");
      clients.back().take();
   }
   EXPECT_EQ(server.outputBytes(), 0u);
   writer.write(Block().at(config).set(Config::text, stringBytes(std::string(100'000, 'x'))));
   for (TestClient& client : clients)
      client.link->fill();
   EXPECT_GT(server.outputBytes(), 300'000u);
   EXPECT_LT(server.outputBytes(), 301'000u);
   clients.pop_back();
   clients.back().take();
   EXPECT_LT(server.outputBytes(), 101'000u);
   EXPECT_GT(server.outputBytes(), 100'000u);
   clients.clear();
   writer.take();
   EXPECT_EQ(server.outputBytes(), 0u);
}

TEST_F(LimitsTest, reasonsAreCut) {
   TestClient client(server);
   client.mount(1, "config." + std::string(4000, 'x'));
   client.take();
   EXPECT_LE(client.failed[1].text.size(), ServerClient::maxReasonBytes);
   client.link->reply(7, Status::refused, std::string(1'000'000, 'x'));
   client.link->reply(8, Status::done, std::string(1'000'000, 'x'));
   client.take();
   EXPECT_EQ(client.replies[7].text.size(), ServerClient::maxReasonBytes);
   EXPECT_EQ(client.replies[8].text.size(), 1'000'000u);
}

// --- Names

TEST_F(LimitsTest, nameOfAConnectedAgentIsTaken) {
   TestClient agent(server, "Vorn", Role::agent);
   for (Role const role : {Role::agent, Role::tool}) {
      TestClient second(server, TestClient::Silent());
      second.hello("Vorn", role);
      second.take();
      EXPECT_EQ(second.refused, "an agent of the name Vorn is connected");
   }
   TestClient other(server, "Vor", Role::agent);
   EXPECT_TRUE(other.isWelcome);
   server.disconnect(*std::exchange(agent.link, nullptr));
   TestClient next(server, "Vorn", Role::agent);
   EXPECT_TRUE(next.isWelcome);
}

TEST_F(LimitsTest, nameOfAToolIsNot) {
   TestClient tool(server, "Vorn");
   TestClient agent(server, "Vorn", Role::agent);
   EXPECT_TRUE(agent.isWelcome);
}

// An agent that has died and come back may say hello before all has been read that the old one sent.
TEST_F(LimitsTest, nameOfAnAgentThatHasHungUpIsFree) {
   bool hasHungUp = false;
   ServerClient& old = server.connect({1, 0, [&] { return hasHungUp; }});
   Ordel::FrameBuffer hello;
   Wire::Writer& out = hello.begin(Frame::hello);
   out.u32(Ordel::protocolMagic);
   out.u16(Ordel::protocolVersion);
   out.u64(schema().fingerprint);
   out.string("Vorn");
   out.u8(static_cast<uint8_t>(Role::agent));
   hello.end();
   old.receive(hello.view());
   ASSERT_TRUE(old.isWelcome());
   TestClient early(server, "Vorn", Role::agent);
   EXPECT_FALSE(early.isWelcome);
   hasHungUp = true;
   TestClient next(server, "Vorn", Role::agent);
   EXPECT_TRUE(next.isWelcome);
}

// --- Lines of the log

struct PacedTraceTest : testing::Test {
   Kem::VirtualTime time;
   Kem::TraceFacility facility{"PacedTraceTest"};

   PacedTraceTest() { Kem::traceSettingIs("*/0"); }
   // The lines that come while `act` runs.
   template <class Act>
   static std::vector<std::string> linesOf(Act const& act) {
      static std::vector<std::string> lines;
      lines.clear();
      Kem::traceSinkIs([](Kem::TraceLine const& line) { lines.emplace_back(line.text); });
      testing::internal::CaptureStderr(); // where they go too
      act();
      testing::internal::GetCapturedStderr();
      Kem::traceSinkIs(nullptr);
      return lines;
   }
};

TEST_F(PacedTraceTest, manyAtOnceThenAFewASecond) {
   Ordel::PacedTrace trace(facility);
   auto const many = [&] {
      for (int i = 0; i < 1000; ++i)
         trace.line("line");
   };
   EXPECT_EQ(linesOf(many).size(), 100u);
   Kem::VirtualTime::advanceTo(Kem::now() + 2);
   auto const later = linesOf(many);
   ASSERT_EQ(later.size(), 11u);
   EXPECT_EQ(later[0], "lines left out because there were too many: 900");
   EXPECT_EQ(later[1], "line");
}

TEST_F(LimitsTest, linesOfRefusedClientsAndWritesAreBounded) {
   Kem::TestTrace trace;
   TestClient writer(server);
   for (int i = 0; i < 80; ++i) {
      TestClient client(server, TestClient::Silent());
      client.hello("");
      writer.write(Block().at(writer.node("config")).set(Config::vlan, u16Bytes(0)));
   }
   EXPECT_GT(trace.count(" is refused: "), 0u);
   EXPECT_GT(trace.count(": write refused: "), 0u);
   EXPECT_EQ(trace.count(" is refused: ") + trace.count(": write refused: "),
             static_cast<size_t>(Ordel::PacedTrace::atOnce));
}

TEST_F(PacedTraceTest, whatWasLeftOutIsToldAtTheEnd) {
   auto const lines = linesOf([&] { // the end is part of it
      Ordel::PacedTrace trace(facility);
      for (int i = 0; i < 103; ++i)
         trace.line("line");
   });
   ASSERT_EQ(lines.size(), 101u);
   EXPECT_EQ(lines.back(), "lines left out because there were too many: 3");
}

// --- The tree as a whole

TEST_F(LimitsTest, publisherThatFillsTheTreeLosesThatWriteOnly) {
   TestClient writer(server, "writer"), agent(server, "agent", Ordel::Role::agent);
   server.treeLimitIs(4u << 20);
   std::string const text(100'000, 'x');
   uint32_t request = 1;
   auto const add = [&](TestClient& client) {
      client.write(Block()
                       .at(dir)
                       .createNode("made" + std::to_string(request), configType)

                       .at(dir, {{0, stringBytes("made" + std::to_string(request))}})
                       .set(Config::text, stringBytes(text)),
                   request);
      client.take();
      return client.replies[request++];
   };
   while (request < 1000 && add(writer).status == Status::done) {
   }
   EXPECT_EQ(writer.replies[request - 1].status, Status::refused);
   EXPECT_EQ(writer.replies[request - 1].text, "input/dir/made" + std::to_string(request - 1) +
                                                   ".text: the database is full: the tree may hold 4 MiB");
   EXPECT_EQ(writer.refused, "");
   EXPECT_LE(server.tree().bytes(), 4u << 20);
   EXPECT_GT(server.tree().bytes(), (4u << 20) - 200'000);
   // Agents have some room left, but not without end either.
   EXPECT_EQ(add(agent).status, Status::done);
   while (request < 1000 && add(agent).status == Status::done) {
   }
   EXPECT_LE(server.tree().bytes(), (4u << 20) / 8 * 9);
   EXPECT_EQ(agent.replies[request - 1].status, Status::refused);
   // What makes room is taken at any time.
   for (uint32_t made = 1; made <= 10; ++made)
      writer.write(Block().at(dir).erase(0, stringBytes("made" + std::to_string(made))), 2000 + made);
   EXPECT_EQ(add(writer).status, Status::done);
}

TEST_F(LimitsTest, mountThatCreatesIsRefusedInAFullTree) {
   TestClient writer(server, "writer");
   server.treeLimitIs(1);
   writer.mount(1, "input/dir/made", Ordel::mountCreate, "Test::Config");
   writer.take();
   EXPECT_EQ(writer.failed[1].status, Status::refused);
   EXPECT_EQ(writer.failed[1].text, "input/dir/made: the database is full: the tree may hold 0 MiB");
}

// --- Marks of all clients

struct MarksLimitTest : LimitsTest {
   static constexpr size_t limit = 40'000, keys = 9'000;
   MarksLimitTest() { server.marksLimitIs(limit); }
   // Mounts, and is behind from now on.
   void beginStopped(TestClient& client) {
      client.mount(1, "config");
      client.take();
   }
   // So that what comes next is marked.
   void fillOutputs(TestClient& writer) {
      std::string const large(1'000'000, 'x');
      for (int i = 0; i < 30; ++i)
         writer.write(Block().at(config).set(Config::text, stringBytes(large + std::to_string(i))));
   }
   // Without a text that fills the screen.
   bool isMirrored(TestClient const& client) {
      return mirrored(client, "config") == standing(server, "config");
   }
   void writeKeys(TestClient& writer, std::string const& prefix) {
      Block block;
      block.at(config);
      for (size_t i = 0; i < keys; ++i)
         block.put(Config::named, stringBytes(prefix + std::to_string(i)), "\1"sv);
      writer.write(block);
   }
};

TEST_F(MarksLimitTest, clientWithTheMostMarksEnds) {
   TestClient writer(server, "writer"), late(server, "late"), stopped(server, "stopped");
   beginStopped(stopped);
   fillOutputs(writer);
   for (int i = 0; i < 3; ++i)
      writeKeys(writer, std::string(1, static_cast<char>('a' + i)));
   EXPECT_EQ(stopped.link->pending().markCount(), 3 * keys + 1);
   beginStopped(late);
   fillOutputs(writer);
   EXPECT_FALSE(stopped.link->isRefused());
   writeKeys(writer, "d");
   writeKeys(writer, "e");
   EXPECT_TRUE(stopped.link->isOver());
   EXPECT_EQ(stopped.link->pending().markCount(), 0u);
   EXPECT_FALSE(late.link->isRefused());
   EXPECT_FALSE(writer.link->isRefused());
   late.take();
   EXPECT_TRUE(isMirrored(late));
}

TEST_F(MarksLimitTest, toolEndsBeforeAnAgent) {
   TestClient writer(server, "writer"), agent(server, "agent", Role::agent), tool(server, "tool");
   beginStopped(agent);
   fillOutputs(writer);
   for (int i = 0; i < 3; ++i)
      writeKeys(writer, std::string(1, static_cast<char>('a' + i)));
   beginStopped(tool);
   fillOutputs(writer);
   writeKeys(writer, "d");
   EXPECT_TRUE(tool.link->isOver());
   EXPECT_FALSE(agent.link->isRefused());
   agent.take();
   EXPECT_TRUE(isMirrored(agent));
}

// However much is written: marks are made once for each key.
TEST_F(MarksLimitTest, marksThatAreMadeAgainAndAgainEndNobody) {
   TestClient writer(server, "writer"), slow(server, "slow");
   beginStopped(slow);
   for (int i = 0; i < 6; ++i) {
      fillOutputs(writer);
      writeKeys(writer, "a");
      slow.take();
      Block block;
      block.at(config);
      for (size_t key = 0; key < keys; ++key)
         block.erase(Config::named, stringBytes("a" + std::to_string(key)));
      writer.write(block);
   }
   slow.take();
   EXPECT_FALSE(slow.link->isRefused());
   EXPECT_TRUE(isMirrored(slow));
}

// --- Memory

struct MemoryReturnTest : testing::Test {
   Kem::VirtualTime time;
   Ordel::Tree tree{schema(), 1};
   Ordel::MemoryReturn memory{tree};
};

TEST_F(MemoryReturnTest, muchIsGivenBackOnceAfterAWhile) {
   memory.freed(1000);
   Kem::activityManager()->advance(10);
   EXPECT_EQ(memory.count(), 0u);
   for (int i = 0; i < 10; ++i)
      memory.freed(Ordel::MemoryReturn::muchBytes);
   EXPECT_EQ(memory.count(), 0u);
   Kem::activityManager()->advance(10);
   EXPECT_EQ(memory.count(), 1u);
}

TEST_F(MemoryReturnTest, isPutOffWhileMoreBecomesFree) {
   memory.freed(Ordel::MemoryReturn::muchBytes);
   Kem::activityManager()->advance(0.9);
   memory.freed(1); // little, but a sign that it goes on
   Kem::activityManager()->advance(0.9);
   EXPECT_EQ(memory.count(), 0u);
   Kem::activityManager()->advance(0.2);
   EXPECT_EQ(memory.count(), 1u);
}

TEST_F(MemoryReturnTest, isPutOffForThirtySecondsAtMost) {
   constexpr int steps = 59; // of half a second
   memory.freed(Ordel::MemoryReturn::muchBytes);
   for (int step = 0; step < steps; ++step) {
      Kem::activityManager()->advance(0.5);
      memory.freed(Ordel::MemoryReturn::muchBytes);
      ASSERT_EQ(memory.count(), 0u) << "after " << (step + 1) * 0.5 << " s";
   }
   Kem::activityManager()->advance(0.5);
   EXPECT_EQ(memory.count(), 1u);
   // The bulk change goes on: the next thirty seconds begin.
   memory.freed(Ordel::MemoryReturn::muchBytes);
   for (int step = 0; step < steps; ++step) {
      Kem::activityManager()->advance(0.5);
      memory.freed(Ordel::MemoryReturn::muchBytes);
      ASSERT_EQ(memory.count(), 1u) << "after " << (step + 1) * 0.5 << " s";
   }
   Kem::activityManager()->advance(0.5);
   EXPECT_EQ(memory.count(), 2u);
}

TEST_F(LimitsTest, creationsOfOneWriteAreLimited) {
   TestClient writer(server, "writer");
   std::string const before = standing(server, "config");
   Block block;
   block.at(config);
   for (size_t i = 0; i <= Ordel::maxCreationsPerWrite; ++i)
      block.create(Config::group, stringBytes(std::to_string(i)), groupType);
   writer.write(block, 1);
   writer.take();
   EXPECT_EQ(writer.replies[1].status, Status::refused);
   EXPECT_EQ(writer.replies[1].text,
             "config.group[262144]: more than 262144 entities are created in one write");
   EXPECT_EQ(standing(server, "config"), before);
}

} // namespace
