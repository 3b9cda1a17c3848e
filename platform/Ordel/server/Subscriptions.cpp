#include "Ordel/server/Subscriptions.h"

#include "Kem/Assert.h"
#include "Ordel/server/GroupPlace.h"
#include "Ordel/server/ServerClient.h"
#include "Ordel/wire/Operations.h"

#include <algorithm>

namespace Ordel {

namespace {

template <class Use>
void eachNodeIn(Tree const& tree, Entity const& directory, Use const& use) {
   for (Members member(tree, directory, 0); member.next();)
      use(*member.entity());
}

} // namespace

// --- Coverage

Subscriptions::Subscription& Subscriptions::subscription(Node& node, ServerClient& client) {
   for (Subscription& standing : node.subscriptions)
      if (standing.client == &client)
         return standing;
   return node.subscriptions.emplace_back(Subscription{&client, 0, 0, 0, 0, {}});
}

void Subscriptions::add(ServerMount& mount) {
   Entity const& entity = *tree_.node(mount.node);
   nodes_[mount.node].mounts.push_back(&mount);
   if (mount.steps.empty()) {
      addWhole(entity, mount);
      return;
   }
   Subscription& subscribed = subscription(nodes_[mount.node], *mount.client);
   bool const isFresh = subscribed.wholeCount == 0 && subscribed.filters.empty();
   subscribed.filters.push_back(&mount);
   if (subscribed.wholeCount > 0)
      return;
   std::vector<PlaceStep> way;
   for (size_t i = 0; i + 1 < mount.steps.size(); ++i)
      way.push_back({mount.steps[i].attribute, *mount.steps[i].key});
   ServerMount::Step const& last = mount.steps.back();
   std::string_view const key = last.key ? std::string_view(*last.key) : std::string_view();
   mount.client->pending().placeIs(entity, way, last.attribute, last.key ? &key : nullptr, isFresh);
   settleLater(subscribed, mount.node);
}

void Subscriptions::addWhole(Entity const& entity, ServerMount& mount) {
   Subscription& subscribed = subscription(nodes_[entity.node()], *mount.client);
   bool const isDeep = mount.isDeep();
   if (subscribed.wholeCount++ == 0) {
      mount.client->pending().nodeIs(entity, subscribed.filters.empty());
      settleLater(subscribed, entity.node());
   }
   subscribed.deepCount += isDeep;
   if (isDeep && entity.isDirectory())
      eachNodeIn(tree_, entity, [&](Entity const& below) { addWhole(below, mount); });
}

void Subscriptions::settleLater(Subscription& subscribed, uint32_t number) {
   subscribed.unsettledUntil = subscribed.client->pending().holds(number) ? unsettled : ++sequence_;
}

void Subscriptions::remove(ServerMount& mount) {
   Node& node = nodes_[mount.node];
   std::erase(node.mounts, &mount);
   if (mount.steps.empty()) {
      removeWhole(*tree_.node(mount.node), mount);
      return;
   }
   std::erase(subscription(node, *mount.client).filters, &mount);
   dropIfUnused(mount.node, *mount.client);
}

void Subscriptions::removeWhole(Entity const& entity, ServerMount& mount) {
   Subscription& subscribed = subscription(nodes_[entity.node()], *mount.client);
   bool const isDeep = mount.isDeep();
   KEM_ASSERT(subscribed.wholeCount > 0);
   --subscribed.wholeCount;
   subscribed.deepCount -= isDeep;
   dropIfUnused(entity.node(), *mount.client);
   if (isDeep && entity.isDirectory())
      eachNodeIn(tree_, entity, [&](Entity const& below) { removeWhole(below, mount); });
}

void Subscriptions::dropIfUnused(uint32_t number, ServerClient& client) {
   auto const at = nodes_.find(number);
   Node& node = at->second;
   Subscription const& subscribed = subscription(node, client);
   if (subscribed.wholeCount > 0 || !subscribed.filters.empty())
      return;
   client.pending().drop(number);
   std::erase_if(node.subscriptions, [&](Subscription const& other) { return other.client == &client; });
   if (node.subscriptions.empty() && node.mounts.empty())
      nodes_.erase(at);
}

uint64_t Subscriptions::drained(ServerClient& client, std::vector<uint32_t> const& drainedNodes) {
   bool isAny = false;
   for (uint32_t const number : drainedNodes) {
      auto const at = nodes_.find(number);
      if (at == nodes_.end() || client.pending().holds(number))
         continue;
      if (!isAny)
         ++sequence_;
      isAny = true;
      Subscription& subscribed = subscription(at->second, client);
      subscribed.unsettledUntil = sequence_;
      subscribed.announcedUntil = std::min(subscribed.announcedUntil, sequence_);
   }
   return sequence_;
}

// --- Publishing

std::vector<ServerMount*> Subscriptions::publish(Applied const& applied, ServerClient* writer,
                                                 uint64_t seen) {
   std::vector<ServerMount*> gone;
   if (writer)
      writer->pending().subscriberWrote();
   if (applied.groups.empty())
      return gone;
   ++sequence_;
   ++blockCount_;
   blockBytes_ = applied.bytes.size();
   for (NodeChange const& change : applied.nodes)
      if (!change.isCreated && writer)
         nodeErasedByItsMaker(*change.entity, *writer, seen);
   // Nodes that come are covered before what is said of them goes out, those that go after it.
   for (NodeChange const& change : applied.nodes)
      if (change.isCreated)
         nodeCreated(*change.entity, writer, seen);
   for (size_t i = 0; i < applied.groups.size(); ++i)
      publishGroup(applied, i, writer, seen);
   for (NodeChange const& change : applied.nodes)
      if (!change.isCreated)
         nodeErased(*change.entity, gone);
   return gone;
}

bool Subscriptions::isConflict(Node const& node, Subscription const& subscribed, ServerClient const& writer,
                               uint64_t seen) {
   uint64_t const foreign = node.lastWriter == writer.serial() ? node.otherSequence : node.lastSequence;
   return foreign > seen || subscribed.unsettledUntil > seen;
}

void Subscriptions::wrote(Node& node, ServerClient const* writer) const {
   uint32_t const serial = writer ? writer->serial() : 0;
   if (node.lastWriter != serial) {
      node.otherSequence = node.lastSequence;
      node.lastWriter = serial;
   }
   node.lastSequence = sequence_;
}

// Whether the client gets this block by marks. The same for all of a block, so that what belongs together,
// such as a creation and its inputs, is in one frame.
bool Subscriptions::isBehind(ServerClient& client) {
   return client.isBehind(sequence_, blockBytes_);
}

// The writer may be about to take the number that it is told of the entity for a new creation by another. So
// it is told of the erasure too, and of all that it does next in the directory.
void Subscriptions::nodeErasedByItsMaker(Entity const& entity, ServerClient& writer, uint64_t seen) {
   auto const at = nodes_.find(entity.parent()->node());
   if (at == nodes_.end())
      return;
   for (Subscription& subscribed : at->second.subscriptions)
      if (subscribed.client == &writer && subscribed.announcedUntil > seen)
         subscribed.unsettledUntil = std::max(subscribed.unsettledUntil, sequence_);
}

void Subscriptions::nodeCreated(Entity const& entity, ServerClient* writer, uint64_t seen) {
   auto const at = nodes_.find(entity.parent()->node());
   if (at == nodes_.end())
      return;
   Node const& directory = at->second; // stays where it is when nodes are added
   for (Subscription const& above : directory.subscriptions) {
      if (above.deepCount == 0)
         continue;
      ServerClient& client = *above.client;
      bool const isOwn = &client == writer;
      bool const isEchoed = isOwn && isConflict(directory, above, client, seen);
      Node& node = nodes_[entity.node()];
      node.lastWriter = writer ? writer->serial() : 0;
      node.lastSequence = sequence_;
      Subscription& subscribed = subscription(node, client);
      subscribed.wholeCount = subscribed.deepCount = above.deepCount;
      if (isBehind(client) && (!isOwn || isEchoed)) {
         client.pending().reserve(entity.parent()->node()); // the directory's creations come before
         client.pending().nodeIs(entity, !isOwn);
         subscribed.unsettledUntil = unsettled;
      } else if (isEchoed) {
         subscribed.unsettledUntil = sequence_;
      }
   }
}

void Subscriptions::nodeErased(Entity const& entity, std::vector<ServerMount*>& mounts) {
   auto const at = nodes_.find(entity.node());
   if (at == nodes_.end())
      return;
   for (Subscription const& subscribed : at->second.subscriptions)
      subscribed.client->pending().drop(entity.node());
   for (ServerMount* const mount : at->second.mounts) {
      mount->node = 0;
      mounts.push_back(mount);
   }
   nodes_.erase(at);
}

void Subscriptions::publishGroup(Applied const& applied, size_t index, ServerClient* writer, uint64_t seen) {
   Group const& group = applied.groups[index];
   auto const at = nodes_.find(group.entity->nodeEntity().node());
   if (at == nodes_.end())
      return;
   Node& node = at->second;
   for (Subscription& subscribed : node.subscriptions) {
      ServerClient& client = *subscribed.client;
      bool const isOwn = &client == writer;
      if (!isOwn && subscribed.wholeCount > 0 && !isBehind(client)) [[likely]] {
         client.appendChanges(applied.at(group), applied.operations(group));
         continue;
      }
      bool const isEchoed = isOwn && isConflict(node, subscribed, client, seen);
      if (!isOwn || isEchoed || group.entity->isDirectory())
         publishTo(subscribed, applied, group, isOwn, isEchoed);
   }
   wrote(node, writer);
}

void Subscriptions::publishTo(Subscription& subscribed, Applied const& applied, Group const& group,
                              bool isOwn, bool isEchoed) {
   ServerClient& client = *subscribed.client;
   PendingTree& pending = client.pending();
   GroupPlace const place(applied, group);
   bool const hasMarks = isBehind(client);
   bool const isAnnouncing = isOwn && !isEchoed;
   std::optional<EntityMarks*> marks;
   OperationReader operations(group.entity->type(), applied.operations(group));
   Operation operation;
   for (size_t i = group.first; operations.next(operation); ++i) {
      if (isAnnouncing && (operation.op != Op::create || !tree_.node(operation.node)))
         continue; // also what the same block erased again
      Cover const covered = subscribed.wholeCount > 0 ? Cover::whole : cover(subscribed, place, operation);
      if (covered == Cover::none)
         continue;
      if (isAnnouncing)
         subscribed.announcedUntil = hasMarks ? unsettled : sequence_;
      else if (isOwn) // what comes back undoes what the client writes before it has seen it
         subscribed.unsettledUntil = std::max(subscribed.unsettledUntil, sequence_);
      if (!hasMarks) {
         client.appendChanges(applied.at(group), operation.bytes);
         continue;
      }
      if (!marks)
         marks = pending.marksAt(place, isOwn && !isAnnouncing);
      if (!isAnnouncing)
         subscribed.unsettledUntil = unsettled;
      if (*marks)
         pending.operationIs(**marks, place, operation, applied.isNew[i],
                             isAnnouncing              ? PendingTree::Created::announce
                             : covered == Cover::whole ? PendingTree::Created::whole
                                                       : PendingTree::Created::bare,
                             isOwn);
   }
}

Subscriptions::Cover Subscriptions::cover(Subscription const& subscribed, GroupPlace const& place,
                                          Operation const& operation) {
   auto const isOf = [](ServerMount::Step const& step, uint8_t attribute, std::string_view key) {
      return step.attribute == attribute && (!step.key || *step.key == key);
   };
   Cover covered = Cover::none;
   for (ServerMount const* const filter : subscribed.filters) {
      size_t const depth = place.steps().size();
      size_t const length = filter->steps.size();
      bool isOnWay = true;
      for (size_t i = 0; i < std::min(depth, length) && isOnWay; ++i)
         isOnWay = isOf(filter->steps[i], place.steps()[i].attribute, place.steps()[i].key);
      if (!isOnWay)
         continue;
      if (depth >= length)
         return Cover::whole;
      if (!isOf(filter->steps[depth], operation.attribute, operation.key))
         continue;
      if (depth + 1 == length)
         return Cover::whole;
      covered = Cover::bare;
   }
   return covered;
}

} // namespace Ordel
