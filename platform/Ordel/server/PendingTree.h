// What one subscriber still has to be sent, as marks on the tree: the one mechanism for what has newly been
// mounted and for what a slow subscriber could not take. The operations are made from the marks and the tree
// as it is when there is room for them.
//
// Nodes are sent in the order in which the first of their marks came. While one is being sent, new marks on
// it are put behind all others, so that a node that changes all the time holds up nothing. Who takes all that
// `drain` gives ends up with the present tree, on what was marked. Memory is bounded by the tree and what the
// subscriber has, however much is written.
//
// Belongs to one client of the server. Has to be told of every effective operation on what is marked, and of
// every node that goes.
#pragma once

#include "Ordel/server/EntityMarks.h"
#include "Ordel/server/GroupPlace.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/Walk.h"

#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace Ordel {

class PendingTree {
  public:
   // How the creation of an entity is marked.
   enum class Created : uint8_t {
      whole,    // with all that it holds; of a node what it holds is marked on the node
      bare,     // without; what it holds is marked one by one
      announce, // the subscriber made it itself and only needs to learn its number
   };

   // `madeCount`, if not null, counts the marks that are made, also those that go again.
   explicit PendingTree(Tree const& tree, size_t* madeCount = nullptr) : tree_(tree), madeCount_(madeCount) {}

   bool empty() const { return !current_ && jobs_.empty(); }
   // Something of the node waits.
   bool holds(uint32_t node) const { return (current_ && current_->node == node) || open_.count(node); }
   size_t markCount() const;
   // Marks that a subscriber caused by writing while it didn't read; they are not bounded by the tree, so its
   // writes have to wait when they are many. 0 again when nothing waits.
   size_t strayCount() const { return strayCount_; }
   // All that waits now has been sent once isSent(ticket()).
   uint64_t ticket() const { return lastTicket_; }
   bool isSent(uint64_t ticket) const;

   // What will be marked of the node comes before what is marked of others from now on.
   void reserve(uint32_t node) { open(node); }
   // Marks all that is at a node; of a directory its entities, but not what these hold. `isFresh`: the
   // subscriber has nothing of it.
   void nodeIs(Entity const& node, bool isFresh);
   // Marks one attribute, or one member (`key` not null) of an entity below a node or of the node itself, and
   // the entities on the way. Nothing happens for what isn't there.
   void placeIs(Entity const& node, std::span<PlaceStep const> way, unsigned attribute,
                std::string_view const* key, bool isFresh);
   // Marks an operation that has been applied. `marks` come from marksAt. `isNew`: of a `put`, there was no
   // such member before. `isOwn`: the subscriber itself wrote it, and so has it already.
   EntityMarks* marksAt(GroupPlace const& place, bool isOwn); // null: all of the entity is sent anyway
   void operationIs(EntityMarks& marks, GroupPlace const& place, Operation const& operation, bool isNew,
                    Created created, bool isOwn);
   // The subscriber has written something, wherever that is, and whether it took effect or not.
   void subscriberWrote() { lastWrote_ = ++epoch_; }
   // The node has been erased, or is no longer mounted: nothing of it is sent.
   void drop(uint32_t node);

   // Appends operations until `maxBytes` are passed or nothing is left. Begins with an `at`. Nodes of which
   // all has been sent are added to `drained`.
   void drain(Wire::Writer& out, size_t maxBytes, std::vector<uint32_t>& drained);

  private:
   using Mark = EntityMarks::Mark;
   struct Job {
      uint32_t node;
      uint64_t ticket;
      bool isFull = false;  // all that is there, after what is marked
      bool isFresh = false; // and the subscriber has nothing of it, so that nothing is marked
      uint32_t epoch = 0;   // when isFresh was set
      EntityMarks marks;
   };
   // An entity whose marks are being sent, and how far.
   struct Level {
      EntityMarks* marks;
      size_t position = 0;
      bool areScalarsDone = false;
      Entity const* entity = nullptr; // found again by each `drain`
   };

   Job& open(uint32_t node);
   // What it writes it has, also what had no effect because another had written the same.
   bool isFresh(Job const& job) const { return job.isFull && job.isFresh && job.epoch >= lastWrote_; }
   Mark& findOrAdd(EntityMarks& marks, unsigned attribute, std::string_view key, bool& isNew);
   void placeEntity(Mark& mark, bool isNew, bool isPartial, bool isFresh);
   void erased(EntityMarks& marks, GroupPlace const& place, Operation const& operation);
   bool voidInCurrent(GroupPlace const& place, Operation const& operation);
   void begin(std::unique_ptr<Job> job);
   void findLevels();
   void drainLevel(Wire::Writer& out, size_t end);
   void drainMark(Level const& level, Mark& mark, Wire::Writer& out, size_t end);
   void create(Entity const& entity, unsigned attribute, std::string_view key, Entity const& made,
               Wire::Writer& out);
   void drainWalk(Wire::Writer& out, size_t end);
   void name(Entity const& entity, Wire::Writer& out);

   Tree const& tree_;
   size_t* const madeCount_;
   std::map<uint64_t, std::unique_ptr<Job>> jobs_; // by ticket
   std::unordered_map<uint32_t, Job*> open_;       // those of jobs_, by node
   uint64_t lastTicket_ = 0;
   // Counts the occasions at which the subscriber may have come to know members whose marks say that it
   // doesn't: a piece was sent, or it wrote itself. Marks bear the epoch in which they were made.
   uint32_t epoch_ = 0;
   uint32_t lastWrote_ = 0; // the epoch that began when the subscriber wrote last
   size_t strayCount_ = 0;

   // What is being sent.
   std::unique_ptr<Job> current_;
   std::vector<Level> levels_;
   std::optional<Walk> walk_;
   Entity const* named_ = nullptr; // by the last `at` of this piece
};

} // namespace Ordel
