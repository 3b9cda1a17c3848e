#include "Ordel/server/Listener.h"

#include "Kem/Activity.h"
#include "Kem/Trace.h"
#include "Ordel/client/Connection.h"
#include "Ordel/store/Snapshot.h"
#include "Ordel/store/TestRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using namespace TestRecords;
using Ordel::Connection;
using Ordel::Listener;
using Ordel::Role;
using Ordel::Server;
using Ordel::Status;
using Ordel::Tree;
using ::testing::HasSubstr;

// Keeps a mirror of what it mounts.
struct Mirror : Connection {
   explicit Mirror(std::string const& name = "mirror", Records::Schema const& ofSchema = schema(),
                   Role role = Role::tool)
       : Connection(ofSchema, name, role) {}

   void onWelcome(std::string_view systemName) override { system = systemName; }
   void onMounted(uint32_t, uint32_t node, uint16_t type, std::string_view path) override {
      tree.mount(node, schema().entities[type], path);
   }
   void onMountDone(uint32_t) override { ++doneCount; }
   void onChanges(uint64_t, std::string_view operations) override {
      Ordel::Applied const& applied = tree.apply(operations);
      EXPECT_TRUE(applied.isDone()) << applied.error;
   }
   void onReply(uint32_t request, Status status, std::string_view text) override {
      lastReply = request;
      lastStatus = status;
      lastText = text;
   }
   void onClosed(std::string_view reason) override { closed = reason; }

   Tree tree{schema()};
   std::string system;
   std::string closed;
   std::string lastText;
   uint32_t lastReply = 0;
   Status lastStatus = Status::done;
   int doneCount = 0;
};

struct ListenerTest : testing::Test {
   void SetUp() override {
      Kem::traceSettingIs("*/-");
      std::string name = "/tmp/ordel-test-XXXXXX";
      ASSERT_NE(mkdtemp(name.data()), nullptr);
      folder = name;
      path = folder + "/socket";
      ASSERT_TRUE(listener->listen(path, error)) << error;
   }
   void TearDown() override {
      listener.reset();
      std::string const command = "rm -r " + folder;
      EXPECT_EQ(std::system(command.c_str()), 0);
   }
   // Runs both sides until the condition holds.
   template <class Condition>
   bool runUntil(Connection& client, Condition const& condition) {
      for (int i = 0; i < 100'000 && !condition(); ++i) {
         client.wait(0);
         Kem::activityManager()->runTurn(0);
      }
      return condition();
   }
   void join(Mirror& client) {
      ASSERT_TRUE(client.connect(path, error)) << error;
      ASSERT_TRUE(runUntil(client, [&] { return client.isWelcome(); }));
   }

   std::string folder;
   std::string path;
   std::string error;
   Server server{std::make_unique<Tree>(schema(), 1), "switch1"};
   std::unique_ptr<Listener> listener = std::make_unique<Listener>(server);
   uint32_t const config = server.tree().find("config")->node();
};

TEST_F(ListenerTest, socketIsForOwnerAndGroup) {
   struct stat standing;
   ASSERT_EQ(lstat(path.c_str(), &standing), 0);
   EXPECT_TRUE(S_ISSOCK(standing.st_mode));
   EXPECT_EQ(standing.st_mode & 07777, 0660u);
}

TEST_F(ListenerTest, socketGoesAtTheEnd) {
   listener.reset();
   EXPECT_NE(access(path.c_str(), F_OK), 0);
   EXPECT_NE(access((path + "~").c_str(), F_OK), 0);
}

TEST_F(ListenerTest, socketOfAnotherDatabaseStays) {
   ASSERT_EQ(unlink(path.c_str()), 0);
   ASSERT_EQ(close(::open(path.c_str(), O_CREAT | O_WRONLY, 0600)), 0);
   listener.reset();
   EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST_F(ListenerTest, secondDatabaseIsRefused) {
   Listener second(server);
   EXPECT_FALSE(second.listen(path, error));
   EXPECT_EQ(error, path + ": a database listens there already");
   Mirror client;
   join(client);
}

TEST_F(ListenerTest, socketThatWasLeftBehindIsReplaced) {
   std::string const left = folder + "/left";
   int const socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   left.copy(address.sun_path, left.size());
   ASSERT_EQ(bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
   close(socket);
   Listener second(server);
   EXPECT_TRUE(second.listen(left, error)) << error;
}

// Anybody who can read the folder can lock it, and keep it locked.
TEST_F(ListenerTest, folderThatStaysLockedIsTold) {
   int const lock = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   ASSERT_EQ(flock(lock, LOCK_EX), 0);
   Listener second(server);
   EXPECT_FALSE(second.listen(folder + "/second", error));
   EXPECT_EQ(error, folder + "/second: another process keeps " + folder + " locked");
   close(lock);
   EXPECT_TRUE(second.listen(folder + "/second", error)) << error;
}

TEST_F(ListenerTest, fileThatIsNoSocketIsLeftAlone) {
   std::string const file = folder + "/file";
   ASSERT_EQ(close(::open(file.c_str(), O_CREAT | O_WRONLY, 0600)), 0);
   Listener second(server);
   EXPECT_FALSE(second.listen(file, error));
   EXPECT_EQ(error, file + ": is no socket");
   EXPECT_EQ(access(file.c_str(), F_OK), 0);
}

TEST_F(ListenerTest, pathsThatCannotBeAreTold) {
   Listener second(server);
   EXPECT_FALSE(second.listen(folder + "/none/socket", error));
   EXPECT_EQ(error, folder + "/none/socket: No such file or directory");
   EXPECT_FALSE(second.listen(std::string(200, 'x'), error));
   EXPECT_THAT(error, HasSubstr("has 1 to 106 bytes"));
}

TEST_F(ListenerTest, helloMountWriteChanges) {
   Mirror writer("writer");
   Mirror reader("reader");
   join(writer);
   join(reader);
   EXPECT_EQ(writer.system, "switch1");
   EXPECT_EQ(server.clients().front()->peer().pid, getpid());
   EXPECT_EQ(server.clients().front()->peer().uid, getuid());
   reader.mount(1, "config", "Test::Config", 0);
   ASSERT_TRUE(runUntil(reader, [&] { return reader.doneCount == 1; }));
   Block block;
   block.at(config);
   for (int i = 0; i < 100'000; ++i)
      block.put(Config::named, stringBytes("member " + std::to_string(i)), "\1"sv);
   writer.write(3, writer.sequence(), 0, block);
   ASSERT_TRUE(runUntil(writer, [&] { return writer.lastReply == 3; }));
   EXPECT_EQ(writer.lastStatus, Status::done);
   EXPECT_EQ(writer.unsentBytes(), 0u);
   ASSERT_TRUE(runUntil(
       reader, [&] { return reader.tree.count(*reader.tree.find("config"), Config::named) == 100'000; }));
   EXPECT_EQ(dump(reader.tree, *reader.tree.find("config")),
             dump(server.tree(), *server.tree().find("config")));
   EXPECT_EQ(reader.sequence(), server.sequence());
}

TEST_F(ListenerTest, bytesOfManySendsMakeOneFrame) {
   Mirror client;
   join(client);
   std::string const large(500'000, 'x');
   Wire::Writer& out = client.writeBegin(1, 0, 0);
   for (int i = 0; i < 20; ++i) {
      Block block;
      block.at(config).put(Config::named, stringBytes(large + std::to_string(i)), "\1"sv);
      out.raw(block.view().data(), block.view().size());
   }
   client.writeEnd();
   EXPECT_GT(client.unsentBytes(), 10'000'000u);
   ASSERT_TRUE(runUntil(client, [&] { return client.lastReply == 1; }));
   EXPECT_EQ(client.lastText, "");
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::named), 20u);
}

TEST_F(ListenerTest, clientThatGoesIsForgottenAfterItsWrites) {
   {
      Mirror client;
      join(client);
      for (int i = 0; i < 1000; ++i)
         client.write(5, 0, 0, Block().at(config).put(Config::named, stringBytes(std::to_string(i)), "\1"sv));
      client.flush();
   }
   for (int i = 0; i < 10000 && !server.clients().empty(); ++i)
      Kem::activityManager()->runTurn(0);
   EXPECT_TRUE(server.clients().empty());
   EXPECT_EQ(server.tree().count(*server.tree().find("config"), Config::named), 1000u);
}

// An agent that dies while it is asked: nothing else may happen for long, so the answer leaves in that turn.
TEST_F(ListenerTest, answerThatAClientLeavesBehindIsSentInTheTurnInWhichItGoes) {
   Mirror asking("asking");
   join(asking);
   auto agent = std::make_unique<Mirror>("agent", schema(), Role::agent);
   join(*agent);
   asking.settle(7, 0, "");
   asking.flush();
   Kem::activityManager()->runTurn(0);
   agent.reset();
   for (int i = 0; i < 1000 && server.clients().size() > 1; ++i)
      Kem::activityManager()->runTurn(0);
   ASSERT_EQ(server.clients().size(), 1u);
   asking.receive();
   EXPECT_EQ(asking.lastReply, 7u);
   EXPECT_EQ(asking.lastStatus, Status::done);
}

TEST_F(ListenerTest, refusedClientIsToldWhyAndClosed) {
   Records::Schema other = schema();
   other.fingerprint ^= 1;
   Mirror client("other", other);
   ASSERT_TRUE(client.connect(path, error));
   ASSERT_TRUE(runUntil(client, [&] { return !client.isConnected(); }));
   EXPECT_EQ(client.closed, "the client was built with other records than the database");
   EXPECT_TRUE(client.isRefused());
   EXPECT_TRUE(runUntil(client, [&] { return server.clients().empty(); }));
}

TEST_F(ListenerTest, connectionCanBeDrivenByTheLoop) {
   Mirror client;
   client.isWatchedIs(true);
   ASSERT_TRUE(client.connect(path, error));
   client.mount(1, "config", "", 0);
   for (int i = 0; i < 1000 && client.doneCount == 0; ++i)
      Kem::activityManager()->runTurn(0.01);
   EXPECT_EQ(client.doneCount, 1);
   listener.reset();
   for (int i = 0; i < 1000 && client.isConnected(); ++i)
      Kem::activityManager()->runTurn(0.01);
   EXPECT_EQ(client.closed, "the database closed the connection");
   EXPECT_FALSE(client.isRefused());
}

TEST_F(ListenerTest, nobodyListeningIsTold) {
   Mirror client;
   EXPECT_FALSE(client.connectAndWait(folder + "/none", 1, error));
   EXPECT_EQ(error, folder + "/none: No such file or directory");
   EXPECT_FALSE(client.connectAndWait(std::string(300, 'x'), 1, error));
   EXPECT_THAT(error, HasSubstr("has 1 to 107 bytes"));
   EXPECT_FALSE(client.isConnected());
}

TEST_F(ListenerTest, databaseThatDoesNotAnswerIsTold) {
   Mirror client;
   EXPECT_FALSE(client.connectAndWait(path, 0.05, error)); // the loop isn't run
   EXPECT_EQ(error, path + ": no answer");
   EXPECT_EQ(client.closed, "");
}

TEST_F(ListenerTest, callsWithoutAConnectionDoNothing) {
   Mirror client;
   client.mount(1, "config", "", 0);
   client.write(1, 0, 0, "");
   client.settle(1, 0, "");
   EXPECT_EQ(client.unsentBytes(), 0u);
   EXPECT_FALSE(client.wait(0));
   EXPECT_FALSE(client.receive());
   client.close();
}

} // namespace
