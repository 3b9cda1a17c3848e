// The state database: the tree, its clients, and what the protocol (Protocol.h) promises them.
//
// Free of sockets and files: connections hand bytes to ServerClient and take bytes from it (Listener.h does
// so for unix sockets, tests for themselves). One thread; nothing here waits. Everything a client sends is
// served at once and in order. A write that is refused leaves its client connected; bytes that can't be read
// end that one connection.
//
// Mounts. A selector names a directory, an entity of one, or something inside an entity. Where nothing
// stands, a mount fails with Status::absent, unless it creates or awaits. One that awaits gets `mounted` with
// node 0 and `mountDone` at once, and both again when the entity comes; with `unmounted` it goes back to
// waiting. Other mounts end with `unmounted`. The type of a mount is that of the entity that the selector
// names, or a base of it.
#pragma once

#include "Ordel/server/LargeBlock.h"
#include "Ordel/server/LargeFrames.h"
#include "Ordel/server/MemoryReturn.h"
#include "Ordel/server/PacedTrace.h"
#include "Ordel/server/ServerClient.h"
#include "Ordel/server/Settling.h"
#include "Ordel/server/SnapshotRequests.h"
#include "Ordel/server/Subscriptions.h"
#include "Ordel/server/Turns.h"
#include "Ordel/store/Tree.h"

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Ordel {

class Server {
  public:
   using WriteSnapshot = SnapshotRequests::Write;

   // `writeSnapshot` empty: there is no snapshot file.
   Server(std::unique_ptr<Tree> tree, std::string systemName, WriteSnapshot writeSnapshot = {});
   ~Server();
   Server(Server const&) = delete;
   Server& operator=(Server const&) = delete;

   // What tools may make of the tree, in bytes (Tree::bytes). Agents may go an eighth beyond it: a publisher that
   // fills the tree doesn't keep them from writing what follows.
   static constexpr size_t defaultTreeLimit = 512u << 20;
   void treeLimitIs(size_t bytes) { treeLimit_ = bytes; }
   // Changes that are marked for all clients together (PendingTree), some 64 to 96 bytes each. Beyond it the
   // client with the most of them ends, a tool before an agent.
   static constexpr size_t defaultMarksLimit = 8u << 20;
   void marksLimitIs(size_t count) { marksLimit_ = count; }

   // A connection has been made. Too many: the client is refused from the start. Good until `disconnect`.
   ServerClient& connect(ServerClient::Peer peer);
   void disconnect(ServerClient& client);
   // All that could be sent has been; whoever has the sockets says so after each delivery of a turn.
   void answersAreSent() { turns_.answersAreSent(); }

   Tree const& tree() const { return *tree_; }
   std::string const& systemName() const { return systemName_; }
   uint64_t sequence() const { return subscriptions_.sequence(); }
   uint64_t blockCount() const { return subscriptions_.blockCount(); } // that changed something
   std::list<std::unique_ptr<ServerClient>> const& clients() const { return clients_; }

   // --- Called by ServerClient.

   Turns& turns() { return turns_; }
   LargeFrames& largeFrames() { return largeFrames_; }
   size_t outputBytes() const { return outputBytes_; } // that wait for all clients
   void outputBytesChanged(size_t before, size_t now) { outputBytes_ += now - before; }
   size_t& madeMarks() { return madeMarks_; } // since they were summed up
   // An agent that is still there has it.
   bool isNameOfAgent(std::string_view name) const;

   // --- Called by ServerClient, for the frames that it takes.

   void mount(ServerClient& client, uint32_t number, std::string_view selector, std::string_view type,
              uint8_t flags);
   void unmount(ServerClient& client, uint32_t number);
   void write(ServerClient& client, uint32_t request, uint64_t seen, uint8_t flags,
              std::string_view operations);
   void settle(ServerClient& client, uint32_t request, uint32_t milliseconds, std::string_view agent);
   void settled(ServerClient& client, uint32_t probe);
   void clientsReport(ServerClient& client, uint32_t request);
   void snapshot(ServerClient& client, uint32_t request);
   uint64_t drained(ServerClient& client, std::vector<uint32_t> const& nodes) {
      return subscriptions_.drained(client, nodes);
   }
   void welcomed(ServerClient& client);
   void refused(ServerClient& client, std::string_view reason);

  private:
   // Why a mount can't be made.
   struct Refusal {
      Status status = Status::done;
      std::string reason;
      bool isNone() const { return status == Status::done; }
   };

   Applied const& apply(std::string_view operations, uint8_t flags, ServerClient const& writer);
   void writeRefused(ServerClient& client, uint32_t request, Status status, std::string const& error);
   void followMarks();
   void followMemory(size_t writtenBytes, size_t entitiesBefore);
   void publish(Applied const& applied, ServerClient* writer, uint64_t seen);
   bool isPlaceOfCell(std::string_view path, Records::EntityType const& type) const;
   // The mount as it can be made now; `node` 0 stays where it has to wait.
   Refusal place(ServerMount& mount);
   Refusal placeIn(ServerMount& mount, Entity const& node);
   Refusal createPath(std::string_view path, Records::EntityType const& type, ServerClient const& client);
   void begin(ServerMount& mount); // tells the client, and covers the node
   void await(ServerMount& mount);
   void end(ServerMount& mount); // covers nothing and waits for nothing any more
   void release(ServerClient& client);
   void arrived(Entity const& node);
   void traceSettingFollow(Applied const& applied);

   std::unique_ptr<Tree> tree_;
   std::string const systemName_;
   Subscriptions subscriptions_;
   Turns turns_;
   LargeFrames largeFrames_;
   LargeBlock largeBlock_;
   MemoryReturn memoryReturn_;
   PacedTrace refusals_; // lines about what clients did wrong
   size_t outputBytes_ = 0;
   size_t treeLimit_ = defaultTreeLimit;
   size_t marksLimit_ = defaultMarksLimit;
   size_t madeMarks_ = 0;
   std::list<std::unique_ptr<ServerClient>> clients_;
   uint32_t lastSerial_ = 0;
   std::unordered_map<std::string, std::vector<ServerMount*>> awaited_; // by path
   Settling settling_;
   SnapshotRequests snapshots_;
   Entity const* config_ = nullptr; // "ordel/config", while it is there
};

} // namespace Ordel
