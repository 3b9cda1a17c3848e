// The payload of every frame as a struct, for both ends: what Protocol.h lays out is written and read here only.
//
//    encode(buffer, Message::Settle{request, milliseconds});
//    Message::Settle settle;
//    if (!decode(payload, settle)) …                           // cut short, or with bytes behind its end
//
// Texts that were decoded are views of the payload. Numbers that stand for something (Role, Status) are taken as
// they come; who decodes them looks whether there is such a one.
#pragma once

#include "Ordel/wire/Frames.h"
#include "Ordel/wire/Protocol.h"

#include <cstdint>
#include <string_view>

namespace Ordel {

namespace Message {

// The last field of some messages: all that is left.
struct Rest {
   std::string_view bytes;
};

// --- Client to database

// What all versions of a hello begin with.
struct HelloHead {
   static constexpr Frame frame = Frame::hello;
   uint32_t magic = protocolMagic;
   uint16_t version = protocolVersion;
   Rest rest;
   static void fields(auto& m, auto each) { each(m.magic), each(m.version), each(m.rest); }
};
struct Hello {
   static constexpr Frame frame = Frame::hello;
   uint32_t magic = protocolMagic;
   uint16_t version = protocolVersion;
   uint64_t fingerprint = 0;
   std::string_view name;
   Role role = Role::tool;
   static void fields(auto& m, auto each) {
      each(m.magic), each(m.version), each(m.fingerprint), each(m.name), each(m.role);
   }
};
struct Mount {
   static constexpr Frame frame = Frame::mount;
   uint32_t mount = 0;
   std::string_view selector;
   std::string_view type; // "" for any
   uint8_t flags = 0;     // MountFlag
   static void fields(auto& m, auto each) { each(m.mount), each(m.selector), each(m.type), each(m.flags); }
};
struct Write {
   static constexpr Frame frame = Frame::write;
   uint32_t request = 0; // 0: no reply wanted
   uint64_t seen = 0;
   uint8_t flags = 0; // WriteFlag
   Rest operations;
   static void fields(auto& m, auto each) {
      each(m.request), each(m.seen), each(m.flags), each(m.operations);
   }
};
struct Settle {
   static constexpr Frame frame = Frame::settle;
   uint32_t request = 0;
   uint32_t milliseconds = 0;   // 0: no limit
   std::string_view agent = {}; // "": all that are connected
   static void fields(auto& m, auto each) { each(m.request), each(m.milliseconds), each(m.agent); }
};

// --- Database to client

struct Welcome {
   static constexpr Frame frame = Frame::welcome;
   uint16_t version = protocolVersion;
   uint64_t fingerprint = 0;
   std::string_view systemName;
   static void fields(auto& m, auto each) { each(m.version), each(m.fingerprint), each(m.systemName); }
};
struct Refused {
   static constexpr Frame frame = Frame::refused;
   std::string_view reason;
   static void fields(auto& m, auto each) { each(m.reason); }
};
struct Mounted {
   static constexpr Frame frame = Frame::mounted;
   uint32_t mount = 0;
   uint32_t node = 0; // 0: nothing is there now
   uint16_t type = 0;
   std::string_view path;
   static void fields(auto& m, auto each) { each(m.mount), each(m.node), each(m.type), each(m.path); }
};
struct MountFailed {
   static constexpr Frame frame = Frame::mountFailed;
   uint32_t mount = 0;
   Status status = Status::done;
   std::string_view reason;
   static void fields(auto& m, auto each) { each(m.mount), each(m.status), each(m.reason); }
};
struct Changes {
   static constexpr Frame frame = Frame::changes;
   uint64_t sequence = 0;
   Rest operations;
   static void fields(auto& m, auto each) { each(m.sequence), each(m.operations); }
};
struct Reply {
   static constexpr Frame frame = Frame::reply;
   uint32_t request = 0;
   Status status = Status::done;
   std::string_view text; // the reason, or the answer
   static void fields(auto& m, auto each) { each(m.request), each(m.status), each(m.text); }
};

// --- Either way: the frames that hold one number, of a mount, a request or a probe

template <Frame ofFrame>
struct Numbered {
   static constexpr Frame frame = ofFrame;
   uint32_t number = 0;
   static void fields(auto& m, auto each) { each(m.number); }
};
using Unmount = Numbered<Frame::unmount>;
using Settled = Numbered<Frame::settled>;
using Clients = Numbered<Frame::clients>;
using Snapshot = Numbered<Frame::snapshot>;
using MountDone = Numbered<Frame::mountDone>;
using Unmounted = Numbered<Frame::unmounted>;
using Probe = Numbered<Frame::probe>;

// How a field of each type stands in bytes.
struct FieldWriter {
   Wire::Writer& out;
   void operator()(uint8_t v) const { out.u8(v); }
   void operator()(uint16_t v) const { out.u16(v); }
   void operator()(uint32_t v) const { out.u32(v); }
   void operator()(uint64_t v) const { out.u64(v); }
   void operator()(Role v) const { out.u8(static_cast<uint8_t>(v)); }
   void operator()(Status v) const { out.u8(static_cast<uint8_t>(v)); }
   void operator()(std::string_view v) const { out.string(v); }
   void operator()(Rest v) const { out.raw(v.bytes.data(), v.bytes.size()); }
};
struct FieldReader {
   Wire::Reader& in;
   void operator()(uint8_t& v) const { v = in.u8(); }
   void operator()(uint16_t& v) const { v = in.u16(); }
   void operator()(uint32_t& v) const { v = in.u32(); }
   void operator()(uint64_t& v) const { v = in.u64(); }
   void operator()(Role& v) const { v = static_cast<Role>(in.u8()); }
   void operator()(Status& v) const { v = static_cast<Status>(in.u8()); }
   void operator()(std::string_view& v) const { v = in.string(); }
   void operator()(Rest& v) const { v.bytes = in.raw(in.remaining()); }
};

} // namespace Message

// Begins the frame and leaves it open: what comes behind the message's fields goes into the writer.
template <class M>
Wire::Writer& encodeOpen(FrameBuffer& buffer, M const& message) {
   Wire::Writer& out = buffer.begin(M::frame);
   M::fields(message, Message::FieldWriter{out});
   return out;
}
// The whole frame.
template <class M>
void encode(FrameBuffer& buffer, M const& message) {
   encodeOpen(buffer, message);
   buffer.end();
}
// False when the payload is not exactly one message.
template <class M>
bool decode(std::string_view payload, M& message) {
   Wire::Reader in(payload);
   M::fields(message, Message::FieldReader{in});
   return in.good() && in.done();
}

} // namespace Ordel
