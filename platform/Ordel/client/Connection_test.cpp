// One link: what it says of itself, and what comes in which order when it ends.
#include "Ordel/client/Connection.h"

#include "Ordel/client/SteppedDatabase.h"

#include <functional>

namespace {

using Ordel::Connection;
using Ordel::SteppedDatabase;
using Words = std::vector<std::string>;

struct Link final : Connection {
   Link() : Connection(Records::schema(), "link", Ordel::Role::tool) {}
   void onWelcome(std::string_view name) override { words.push_back("welcome to " + std::string(name)); }
   void onReply(uint32_t request, Ordel::Status, std::string_view) override {
      words.push_back("reply " + std::to_string(request));
   }
   void onChanges(uint64_t, std::string_view) override {
      words.emplace_back("changes");
      if (whenChanged)
         whenChanged();
   }
   void onClosed(std::string_view) override { words.emplace_back("closed"); }
   Words words;
   std::function<void()> whenChanged;
};

// The database's end is a socket that the test reads and writes.
struct ConnectionTest : testing::Test {
   ConnectionTest() {
      unlink(path.c_str());
      listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, sizeof address.sun_path - 1);
      EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
      EXPECT_EQ(listen(listener, 4), 0);
   }
   ~ConnectionTest() override {
      hangUp();
      close(listener);
      unlink(path.c_str());
   }
   void connect() {
      std::string error;
      ASSERT_TRUE(link.connect(path, error)) << error;
      peer = accept(listener, nullptr, nullptr);
      ASSERT_GE(peer, 0);
   }
   void hangUp() {
      if (peer >= 0)
         close(std::exchange(peer, -1));
   }
   void send(Ordel::Frame frame, auto const& fill) const {
      Ordel::FrameBuffer frames;
      fill(frames.begin(frame));
      frames.end();
      ASSERT_EQ(::send(peer, frames.view().data(), frames.view().size(), MSG_NOSIGNAL),
                static_cast<ssize_t>(frames.view().size()));
   }
   void welcome(uint64_t fingerprint = Records::schema().fingerprint) const {
      send(Ordel::Frame::welcome, [&](Wire::Writer& out) {
         out.u16(Ordel::protocolVersion);
         out.u64(fingerprint);
         out.string("switch1");
      });
   }
   void changes(uint64_t sequence) const {
      send(Ordel::Frame::changes, [&](Wire::Writer& out) { out.u64(sequence); });
   }
   void reply(uint32_t request) const {
      send(Ordel::Frame::reply, [&](Wire::Writer& out) {
         out.u32(request);
         out.u8(0);
         out.string("");
      });
   }
   std::string const path = testing::TempDir() + "/ordel-connection-" + std::to_string(getpid()) + ".sock";
   int listener = -1;
   int peer = -1;
   Link link;
};

TEST_F(ConnectionTest, connectedIsNotYetWelcome) {
   connect();
   EXPECT_TRUE(link.isConnected());
   EXPECT_FALSE(link.isWelcome());
   welcome();
   EXPECT_TRUE(link.wait(1));
   EXPECT_TRUE(link.isWelcome());
   EXPECT_EQ(link.words, Words{"welcome to switch1"});
}

TEST_F(ConnectionTest, nobodyThereIsAnErrorWithThePath) {
   std::string error;
   EXPECT_FALSE(link.connect(path + ".no", error));
   EXPECT_EQ(error.find(path + ".no: "), 0u) << error;
   EXPECT_FALSE(link.isConnected());
   EXPECT_FALSE(link.isRefused()) << "trying again may help";
}

TEST_F(ConnectionTest, databaseOfOtherRecordsIsARefusal) {
   connect();
   welcome(1);
   link.wait(1);
   EXPECT_FALSE(link.isConnected());
   EXPECT_TRUE(link.isRefused()) << "trying again is of no use";
}

TEST_F(ConnectionTest, sequenceIsThatOfTheLastChangesTakenIn) {
   connect();
   EXPECT_EQ(link.sequence(), 0u);
   changes(5);
   link.wait(1);
   EXPECT_EQ(link.sequence(), 5u);
}

TEST_F(ConnectionTest, whatIsWrittenWaitsForFlush) {
   connect();
   EXPECT_GT(link.unsentBytes(), 0u) << "the hello";
   EXPECT_TRUE(link.flush());
   EXPECT_EQ(link.unsentBytes(), 0u);
   link.settled(1);
   EXPECT_GT(link.unsentBytes(), 0u);
}

TEST_F(ConnectionTest, endOfTheDatabaseIsFoundByReading) {
   connect();
   hangUp();
   EXPECT_TRUE(link.words.empty());
   link.receive();
   EXPECT_EQ(link.words, Words{"closed"});
   EXPECT_FALSE(link.isConnected());
   EXPECT_EQ(link.descriptor(), -1);
}

TEST_F(ConnectionTest, failingToSendCallsNoHandlerAndKeepsTheDescriptor) {
   // A handler that writes must not have frames taken in, or its descriptor closed, under its hands.
   connect();
   link.flush();
   reply(1);
   hangUp();
   link.settled(1);
   EXPECT_FALSE(link.flush()) << "nothing can be sent any more";
   EXPECT_TRUE(link.words.empty());
   EXPECT_TRUE(link.isConnected());
   EXPECT_GE(link.descriptor(), 0);
   EXPECT_EQ(link.unsentBytes(), 0u) << "nobody will take it";
   EXPECT_FALSE(link.flush());
   // The loop reads what came before the end, and then the end.
   while (link.receive()) {
   }
   EXPECT_EQ(link.words, (Words{"reply 1", "closed"}));
}

TEST_F(ConnectionTest, waitTakesWhatCameBeforeTheEnd) {
   connect();
   link.flush();
   reply(1);
   hangUp();
   link.settled(1);
   EXPECT_TRUE(link.wait(1));
   EXPECT_EQ(link.words.front(), "reply 1");
   while (link.isConnected())
      link.wait(1);
   EXPECT_EQ(link.words, (Words{"reply 1", "closed"}));
}

TEST_F(ConnectionTest, closedByItselfItSaysNothing) {
   connect();
   link.close();
   EXPECT_TRUE(link.words.empty());
   link.close();
   EXPECT_FALSE(link.flush());
   EXPECT_FALSE(link.receive());
}

TEST_F(ConnectionTest, canBeConnectedAgain) {
   connect();
   changes(5);
   link.wait(1);
   hangUp();
   link.receive();
   connect();
   EXPECT_TRUE(link.isConnected());
   EXPECT_EQ(link.sequence(), 0u);
   welcome();
   link.wait(1);
   EXPECT_TRUE(link.isWelcome());
}

TEST_F(ConnectionTest, linkThatAHandlerMakesKnowsNothingOfTheOneBefore) {
   connect();
   changes(5);
   link.whenChanged = [&] {
      link.close();
      hangUp();
      connect();
   };
   link.wait(1);
   EXPECT_EQ(link.words, Words{"changes"});
   EXPECT_TRUE(link.isConnected());
   EXPECT_EQ(link.sequence(), 0u);
}

} // namespace
