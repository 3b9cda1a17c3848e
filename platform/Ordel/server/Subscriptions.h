// Who gets what: for each mounted node the clients that have it, and the way of
// every effective operation to them.
//
// A client covers a node whole, or through filters, which are mounts of something inside it. Mounts that
// overlap are counted, so that an operation goes to a client once. A directory that is mounted deep hands its
// coverage down to the nodes below it, and to those that come.
//
// Conflicts. A client takes its own writes as done, so it must not end with another value than the
// database where somebody else wrote at the same time. The database tells it its own operations on
// a node when something of that node was on its way to it as it wrote: written by another, or
// still waiting in its pending tree. `seen` of the write tells what it had taken in. That makes
// its order of events the database's.
//
// Belongs to the server; knows no sockets and no frames but `changes`.
#pragma once

#include "Ordel/store/Tree.h"
#include "Ordel/wire/Selector.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ordel {

class GroupPlace;
class ServerClient;
struct Operation;

// One mount of one client.
struct ServerMount {
   // A way from the node to something inside it, one attribute a step; the last may be without a key.
   struct Step {
      uint8_t attribute = 0;
      std::optional<std::string> key; // wire form
   };

   ServerClient* client = nullptr;
   uint32_t number = 0; // given by the client
   uint8_t flags = 0;
   std::string text; // the selector, as the client wrote it
   Selector selector;
   std::string type;        // "" for any
   uint32_t node = 0;       // 0 while nothing is there
   std::vector<Step> steps; // empty: the whole node

   bool isDeep() const { return steps.empty() && !(flags & mountShallow); }
};

class Subscriptions {
  public:
   explicit Subscriptions(Tree const& tree) : tree_(tree) {}

   // Of the last block that was published, or of a later event that clients have to have seen.
   uint64_t sequence() const { return sequence_; }
   // Blocks that changed something, since the start.
   uint64_t blockCount() const { return blockCount_; }

   // The mount's node is there, and the steps fit its type. What the client doesn't cover yet is marked
   // in its pending tree.
   void add(ServerMount& mount);
   // Nothing that only this mount covered is sent any more.
   void remove(ServerMount& mount);

   // Passes a block on that has just been applied. `writer` null: the server itself. Returns the mounts of
   // nodes that have gone; they cover nothing any more.
   std::vector<ServerMount*> publish(Applied const& applied, ServerClient* writer, uint64_t seen);

   // All that was marked of these nodes has been put into the client's open frame. Returns the sequence that
   // the frame must bear.
   uint64_t drained(ServerClient& client, std::vector<uint32_t> const& nodes);

  private:
   // One client's coverage of one node.
   struct Subscription {
      ServerClient* client;
      uint32_t wholeCount = 0; // mounts that cover the node itself
      uint32_t deepCount = 0;  // of these, those that hand it down
      // The client has the state that the node had at some sequence only once it has seen this one.
      uint64_t unsettledUntil = 0;
      // Of a directory: the client knows the numbers of the entities that it
      // made there once it has seen this.
      uint64_t announcedUntil = 0;
      std::vector<ServerMount*> filters;
   };
   struct Node {
      uint32_t lastWriter = 0;    // serial of the client that wrote last
      uint64_t lastSequence = 0;  // of its last block
      uint64_t otherSequence = 0; // of the last block of anybody else
      std::vector<Subscription> subscriptions;
      std::vector<ServerMount*> mounts; // of this node by name
   };
   // What a filter lets through.
   enum class Cover : uint8_t { none, bare, whole };

   static constexpr uint64_t unsettled = UINT64_MAX;

   Subscription& subscription(Node& node, ServerClient& client);
   void addWhole(Entity const& entity, ServerMount& mount);
   void removeWhole(Entity const& entity, ServerMount& mount);
   void dropIfUnused(uint32_t number, ServerClient& client);
   void settleLater(Subscription& subscription, uint32_t number);

   void nodeErasedByItsMaker(Entity const& entity, ServerClient& writer, uint64_t seen);
   void nodeCreated(Entity const& entity, ServerClient* writer, uint64_t seen);
   void nodeErased(Entity const& entity, std::vector<ServerMount*>& mounts);
   void publishGroup(Applied const& applied, size_t group, ServerClient* writer, uint64_t seen);
   // All but the common case: filters, the writer itself, clients that are behind.
   void publishTo(Subscription& subscription, Applied const& applied, Group const& group, bool isOwn,
                  bool isConflict);
   static Cover cover(Subscription const& subscription, GroupPlace const& place, Operation const& operation);
   static bool isConflict(Node const& node, Subscription const& subscription, ServerClient const& writer,
                          uint64_t seen);
   void wrote(Node& node, ServerClient const* writer) const;
   bool isBehind(ServerClient& client);

   Tree const& tree_;
   std::unordered_map<uint32_t, Node> nodes_; // those that are mounted
   uint64_t sequence_ = 1;                    // 0 is what a client has seen that has been sent nothing
   uint64_t blockCount_ = 0;
   size_t blockBytes_ = 0; // of the block that is published
};

} // namespace Ordel
