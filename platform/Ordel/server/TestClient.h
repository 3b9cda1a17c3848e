// A client of the server for tests: no socket, a mirror of what it has mounted, and what it was told.
//
// It takes nothing in until `take`, so that a test can let it lag.
#pragma once

#include "Ordel/server/Server.h"
#include "Ordel/store/TestRecords.h"
#include "Ordel/wire/Messages.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace TestRecords {

class TestClient {
  public:
   struct Reply {
      Ordel::Status status;
      std::string text;
   };

   struct Silent {};
   explicit TestClient(Ordel::Server& ofServer, std::string const& name = "test",
                       Ordel::Role role = Ordel::Role::tool)
       : TestClient(ofServer, Silent()) {
      hello(name, role);
      take();
   }
   // Without a hello.
   TestClient(Ordel::Server& ofServer, Silent)
       : server(ofServer),
         link(&ofServer.connect({static_cast<pid_t>(1000), 0, [this] { return hasHungUp; }})) {}
   ~TestClient() {
      if (link)
         server.disconnect(*link);
   }
   TestClient(TestClient const&) = delete;
   TestClient& operator=(TestClient const&) = delete;

   void hello(std::string_view name, Ordel::Role role = Ordel::Role::tool,
              uint32_t magic = Ordel::protocolMagic, uint16_t version = Ordel::protocolVersion,
              uint64_t fingerprint = schema().fingerprint) {
      send(Ordel::Message::Hello{magic, version, fingerprint, name, role});
   }
   void mount(uint32_t number, std::string_view selector, uint8_t flags = 0, std::string_view type = "") {
      send(Ordel::Message::Mount{number, selector, type, flags});
   }
   void unmount(uint32_t number) { send(Ordel::Message::Unmount{number}); }
   void write(std::string_view operations, uint32_t request = 0, uint8_t flags = 0) {
      if (appliesOwn)
         mirror.apply(operations);
      send(Ordel::Message::Write{request, seen, flags, {operations}});
   }
   // A frame of any type that holds a number.
   void request(Ordel::Frame frame, uint32_t number) {
      output_.begin(frame).u32(number);
      output_.end();
      sendOutput();
   }
   void settle(uint32_t number, uint32_t milliseconds = 0, std::string_view agent = "") {
      send(Ordel::Message::Settle{number, milliseconds, agent});
   }
   void sendRaw(std::string_view bytes) { link->receive(bytes); }

   // Takes in what waits, at most about so many bytes.
   void take(size_t maxBytes = SIZE_MAX) {
      while (maxBytes > 0) {
         link->fill();
         size_t const count = std::min(link->output().size(), maxBytes);
         if (count == 0)
            return;
         std::string const bytes(link->output().substr(0, count));
         link->consumed(count);
         takenBytes += count;
         maxBytes -= count;
         EXPECT_TRUE(reader.read(bytes, [&](Ordel::Frame frame, std::string_view payload) {
            takeFrame(frame, payload);
            return true;
         }));
      }
   }

   uint32_t node(std::string_view path) const { return server.tree().find(path)->node(); }

   Ordel::Server& server;
   Ordel::ServerClient* link;
   Ordel::FrameReader reader;
   Ordel::Tree mirror{schema()};
   uint64_t seen = 0;
   bool hasHungUp = false;  // its end of the connection is closed
   bool appliesOwn = false; // its writes to the mirror, at once
   size_t takenBytes = 0;

   // What it was told.
   bool isWelcome = false;
   std::string refused;
   std::map<uint32_t, uint32_t> mounted; // node by mount
   std::map<uint32_t, unsigned> done;    // how often mountDone came
   std::map<uint32_t, Reply> failed;
   std::vector<uint32_t> unmounted;
   std::vector<std::string> changes; // operations of each frame
   std::map<uint32_t, Reply> replies;
   std::vector<uint32_t> probes;

   // Number of operations taken in, `at` included where it is said again.
   size_t changesBytes() const {
      size_t bytes = 0;
      for (auto const& frame : changes)
         bytes += frame.size();
      return bytes;
   }

  private:
   template <class M>
   void send(M const& message) {
      Ordel::encode(output_, message);
      sendOutput();
   }
   void sendOutput() {
      server.answersAreSent(); // another turn
      link->receive(output_.view());
      output_.clear();
   }

   void takeFrame(Ordel::Frame frame, std::string_view payload) {
      using Ordel::Frame;
      namespace Message = Ordel::Message;
      switch (frame) {
      case Frame::welcome:
         decoded<Message::Welcome>(payload);
         isWelcome = true;
         break;
      case Frame::refused:
         refused = decoded<Message::Refused>(payload).reason;
         break;
      case Frame::mounted: {
         auto const message = decoded<Message::Mounted>(payload);
         if (message.node != 0)
            mirror.mount(message.node, schema().entities[message.type], message.path);
         mounted[message.mount] = message.node;
         break;
      }
      case Frame::mountDone:
         ++done[decoded<Message::MountDone>(payload).number];
         break;
      case Frame::mountFailed: {
         auto const message = decoded<Message::MountFailed>(payload);
         failed[message.mount] = {message.status, std::string(message.reason)};
         break;
      }
      case Frame::unmounted: {
         uint32_t const number = decoded<Message::Unmounted>(payload).number;
         unmounted.push_back(number);
         if (mirror.node(mounted[number]))
            mirror.unmount(mounted[number]);
         mounted[number] = 0;
         break;
      }
      case Frame::changes: {
         auto const message = decoded<Message::Changes>(payload);
         EXPECT_GE(message.sequence, seen);
         seen = message.sequence;
         changes.emplace_back(message.operations.bytes);
         Ordel::Applied const& applied = mirror.apply(changes.back());
         EXPECT_TRUE(applied.isDone()) << applied.error << "\n" << hex(changes.back());
         break;
      }
      case Frame::reply: {
         auto const message = decoded<Message::Reply>(payload);
         replies[message.request] = {message.status, std::string(message.text)};
         break;
      }
      case Frame::probe:
         probes.push_back(decoded<Message::Probe>(payload).number);
         break;
      default:
         ADD_FAILURE() << "frame of type " << static_cast<unsigned>(frame);
      }
   }
   template <class M>
   static M decoded(std::string_view payload) {
      M message;
      EXPECT_TRUE(Ordel::decode(payload, message));
      return message;
   }

   Ordel::FrameBuffer output_;
};

// The subtree of the mirror, and of the database, as text.
inline std::string mirrored(TestClient const& client, std::string_view path) {
   Ordel::Entity const* const entity = client.mirror.find(path);
   return entity ? dump(client.mirror, *entity) : "nothing";
}
inline std::string standing(Ordel::Server const& server, std::string_view path) {
   Ordel::Entity const* const entity = server.tree().find(path);
   return entity ? dump(server.tree(), *entity) : "nothing";
}

} // namespace TestRecords
