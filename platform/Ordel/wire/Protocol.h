// The protocol between the state database and its clients, over a stream socket: numbers, limits and
// the layout of every message. Values stand in the form of Kem/Wire.h; what an attribute's bytes
// mean is told by records/Schema.h.
//
//   frame      u32 size of what follows (type and payload), u8 type, payload
//
//   client to database
//     hello      u32 magic, u16 version, u64 fingerprint, string name, u8 role (Role)
//     mount      u32 mount, string selector, string type ("" any), u8 flags (MountFlag)
//     unmount    u32 mount
//     write      u32 request (0: no reply wanted), u64 seen, u8 flags (WriteFlag), operations
//     settle     u32 request, u32 milliseconds (0: no limit), string agent ("": all that are connected)
//     settled    u32 probe
//     clients    u32 request
//     snapshot   u32 request
//
//   database to client
//     welcome    u16 version, u64 fingerprint, string system name
//     refused    string reason; the database closes the connection behind it
//     mounted    u32 mount, u32 node (0: nothing exists there now), u16 entity type, string path
//     mountDone  u32 mount: all that existed there has been sent
//     mountFailed u32 mount, u8 status, string reason
//     unmounted  u32 mount: what was mounted has been deleted
//     changes    u64 sequence, operations
//     reply      u32 request, u8 status, string text (the reason, or the answer)
//     probe      u32 probe: answer with `settled` once all that was sent before has been worked off
//
//   operations (Op), one after the other; all but `at` are said of the entity that the last `at` named
//     at         u32 node, u8 count, count times (u8 attribute, key): the node, or a member below it
//     set        u8 attribute, value         a scalar, or a reference (selector as string, "" for null)
//     put        u8 attribute, key, value    a member of a map, or of references (selector as string)
//     erase      u8 attribute, key           a member of any collection, entities included
//     create     u8 attribute, key, u16 type, and in a directory u32 node
//                                            an entity in `children` or in a directory
//
// A node is an entity that has a path of its own: a directory, or an entity in a directory. Its number is
// given by the database, is the same for all clients, and is never used again. A client that creates an
// entity in a directory sends 0 for the node, reaches the entity by `at` with a step from the directory, and
// learns the number from the `create` that comes back. Everything below a node is reached by steps.
//
// One write is applied whole or not at all. An operation that changes nothing is dropped and reaches
// nobody. `seen` is the last sequence that the writer had taken in: where another client changed the
// same node meanwhile, the database sends the writer's own operations on that node back, so that
// both end with the same values.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Ordel {

inline constexpr uint32_t protocolMagic = 0x4c44524f; // "ORDL"
inline constexpr uint16_t protocolVersion = 2;

inline constexpr size_t frameHeaderBytes = 5;      // size and type
inline constexpr size_t maxFrameBytes = 32u << 20; // a larger one ends the connection
inline constexpr size_t maxHelloBytes = 512;       // before the handshake
inline constexpr size_t maxNameBytes = 255;        // of an entity in a directory, of a client
inline constexpr size_t maxStringBytes = 1u << 20; // of one value
inline constexpr size_t maxPathDepth = 16;         // of directories below one another
inline constexpr size_t maxStepCount = 8;          // of one `at`
inline constexpr size_t maxSelectorBytes = 4096;
inline constexpr size_t maxMountsPerClient = 4096;
inline constexpr size_t maxMountTextPerClient = 1u << 20; // bytes of the selectors and types of its mounts
inline constexpr size_t maxCreationsPerWrite = 1u << 18;  // entities
inline constexpr size_t maxClients = 1024;
inline constexpr size_t maxQuestionsPerClient = 16; // `settle` that wait for their replies

enum class Frame : uint8_t {
   hello = 1,
   mount = 2,
   unmount = 3,
   write = 4,
   settle = 5,
   settled = 6,
   clients = 7,
   snapshot = 8,

   welcome = 64,
   refused = 65,
   mounted = 66,
   mountDone = 67,
   mountFailed = 68,
   unmounted = 69,
   changes = 70,
   reply = 71,
   probe = 72,
};

enum class Role : uint8_t {
   tool = 0,
   agent = 1, // is asked by `settle`
};

// Bits of the flags of a mount.
enum MountFlag : uint8_t {
   // The client will write below it.
   mountWrite = 1,
   // Create the entity, of the type given, where it is absent.
   mountCreate = 2,
   // Nothing there is no failure: `mounted` comes when it is created, and again after deletion.
   mountAwait = 4,
   // Of a directory only the entities' names and types, not what they hold, nor directories below.
   mountShallow = 8,
};

// Bits of the flags of a write.
enum WriteFlag : uint8_t {
   // An operation on what isn't there refuses the write with Status::absent, instead of being dropped.
   writeStrict = 1,
   // The next write of this client goes on with the same block, which is applied with the last part, whole or
   // not at all. The flags, `seen` and the reply are those of the last part.
   writeContinues = 2,
};

enum class Op : uint8_t {
   at = 1,
   set = 2,
   put = 3,
   erase = 4,
   create = 5,
};

// How a request ended.
enum class Status : uint8_t {
   done = 0,
   absent = 1,  // the answer is no: not there, or timed out, or not settled
   refused = 3, // against the schema, the limits, or the type that is there
};

} // namespace Ordel
