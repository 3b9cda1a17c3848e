// A client of the server for tests: no socket, a mirror of what it has mounted, and what it was told.
//
// It takes nothing in until `take`, so that a test can let it lag.
#pragma once

#include "Ordel/server/Server.h"
#include "Ordel/store/TestRecords.h"

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
       : server(ofServer), link(&ofServer.connect({static_cast<pid_t>(1000), 0})) {}
   ~TestClient() {
      if (link)
         server.disconnect(*link);
   }
   TestClient(TestClient const&) = delete;
   TestClient& operator=(TestClient const&) = delete;

   void hello(std::string_view name, Ordel::Role role = Ordel::Role::tool,
              uint32_t magic = Ordel::protocolMagic, uint16_t version = Ordel::protocolVersion,
              uint64_t fingerprint = schema().fingerprint) {
      Wire::Writer& out = begin(Ordel::Frame::hello);
      out.u32(magic);
      out.u16(version);
      out.u64(fingerprint);
      out.string(name);
      out.u8(static_cast<uint8_t>(role));
      send();
   }
   void mount(uint32_t number, std::string_view selector, uint8_t flags = 0, std::string_view type = "") {
      Wire::Writer& out = begin(Ordel::Frame::mount);
      out.u32(number);
      out.string(selector);
      out.string(type);
      out.u8(flags);
      send();
   }
   void unmount(uint32_t number) {
      begin(Ordel::Frame::unmount).u32(number);
      send();
   }
   void write(std::string_view operations, uint32_t request = 0, uint8_t flags = 0) {
      if (appliesOwn)
         mirror.apply(operations);
      Wire::Writer& out = begin(Ordel::Frame::write);
      out.u32(request);
      out.u64(seen);
      out.u8(flags);
      out.raw(operations.data(), operations.size());
      send();
   }
   void request(Ordel::Frame frame, uint32_t number) {
      begin(frame).u32(number);
      send();
   }
   void settle(uint32_t number, uint32_t milliseconds = 0) {
      Wire::Writer& out = begin(Ordel::Frame::settle);
      out.u32(number);
      out.u32(milliseconds);
      send();
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

   // Number of operations taken in, `at` included where it is said anew.
   size_t changesBytes() const {
      size_t bytes = 0;
      for (auto const& frame : changes)
         bytes += frame.size();
      return bytes;
   }

  private:
   Wire::Writer& begin(Ordel::Frame frame) { return output_.begin(frame); }
   void send() {
      output_.end();
      server.answersAreSent(); // another turn
      link->receive(output_.view());
      output_.clear();
   }

   void takeFrame(Ordel::Frame frame, std::string_view payload) {
      using Ordel::Frame;
      Wire::Reader in(payload);
      switch (frame) {
      case Frame::welcome:
         isWelcome = true;
         in.u16();
         in.u64();
         in.string();
         break;
      case Frame::refused:
         refused = in.string();
         break;
      case Frame::mounted: {
         uint32_t const number = in.u32();
         uint32_t const node = in.u32();
         uint16_t const type = in.u16();
         std::string_view const path = in.string();
         if (node != 0)
            mirror.mount(node, schema().entities[type], path);
         mounted[number] = node;
         break;
      }
      case Frame::mountDone:
         ++done[in.u32()];
         break;
      case Frame::mountFailed: {
         uint32_t const number = in.u32();
         auto const status = static_cast<Ordel::Status>(in.u8());
         failed[number] = {status, std::string(in.string())};
         break;
      }
      case Frame::unmounted: {
         uint32_t const number = in.u32();
         unmounted.push_back(number);
         if (mirror.node(mounted[number]))
            mirror.unmount(mounted[number]);
         mounted[number] = 0;
         break;
      }
      case Frame::changes: {
         uint64_t const sequence = in.u64();
         EXPECT_GE(sequence, seen);
         seen = sequence;
         changes.emplace_back(in.raw(in.remaining()));
         Ordel::Applied const& applied = mirror.apply(changes.back());
         EXPECT_TRUE(applied.isDone()) << applied.error << "\n" << hex(changes.back());
         break;
      }
      case Frame::reply: {
         uint32_t const number = in.u32();
         auto const status = static_cast<Ordel::Status>(in.u8());
         replies[number] = {status, std::string(in.string())};
         break;
      }
      case Frame::probe:
         probes.push_back(in.u32());
         break;
      default:
         ADD_FAILURE() << "frame of type " << static_cast<unsigned>(frame);
      }
      EXPECT_TRUE(in.done() && in.good());
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
