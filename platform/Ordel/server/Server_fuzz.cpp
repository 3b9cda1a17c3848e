// Any bytes of a client that has said hello, in pieces of any size, with another client that mounts
// everything. The server must keep its promises: it never breaks, the other client stays, and its mirror ends
// as the tree.
#include "Kem/Assert.h"
#include "Kem/Time.h"
#include "Kem/Trace.h"
#include "Ordel/server/Server.h"
#include "Ordel/store/TestRecords.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace {

using namespace TestRecords;
using Ordel::Frame;

void sendHello(Ordel::ServerClient& client, std::string_view name) {
   Ordel::FrameBuffer frames;
   Wire::Writer& out = frames.begin(Frame::hello);
   out.u32(Ordel::protocolMagic);
   out.u16(Ordel::protocolVersion);
   out.u64(schema().fingerprint);
   out.string(name);
   out.u8(1);
   frames.end();
   client.receive(frames.view());
}

void sendMount(Ordel::ServerClient& client, std::string_view selector) {
   Ordel::FrameBuffer frames;
   Wire::Writer& out = frames.begin(Frame::mount);
   out.u32(1);
   out.string(selector);
   out.string("");
   out.u8(0);
   frames.end();
   client.receive(frames.view());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
   Kem::traceSettingIs("*/-");
   Kem::VirtualTime const time; // so that no frame waits because others have taken long
   Ordel::Server server(std::make_unique<Ordel::Tree>(schema(), 1), "switch1");
   Ordel::ServerClient& other = server.connect({});
   sendHello(other, "other");
   sendMount(other, "/");
   Ordel::ServerClient& client = server.connect({});
   sendHello(client, "client");
   if (size == 0)
      return 0;
   // The first byte tells the size of the pieces, and whether the client reads.
   size_t const pieceBytes = 1 + size_t{data[0]} / 2;
   bool const isReading = data[0] & 1;
   std::string_view bytes(reinterpret_cast<char const*>(data + 1), size - 1);
   while (!bytes.empty()) {
      client.receive(bytes.substr(0, pieceBytes));
      bytes.remove_prefix(std::min(pieceBytes, bytes.size()));
      client.fill();
      if (isReading)
         client.consumed(client.output().size());
   }

   KEM_ASSERT(!other.isRefused());
   Ordel::Tree mirror(schema());
   Ordel::FrameReader reader;
   while (other.hasOutput()) {
      other.fill();
      std::string const output(other.output());
      other.consumed(output.size());
      bool const isGood = reader.read(output, [&](Frame frame, std::string_view payload) {
         Wire::Reader in(payload);
         if (frame == Frame::mounted) {
            in.u32();
            uint32_t const node = in.u32();
            mirror.mount(node, schema().entities[in.u16()], "");
         } else if (frame == Frame::changes) {
            in.u64();
            KEM_ASSERT(mirror.apply(in.raw(in.remaining())).isDone());
         }
         return true;
      });
      KEM_ASSERT(isGood);
   }
   KEM_ASSERT(dump(mirror) == dump(server.tree()));
   return 0;
}
