#include "Ordel/server/Server.h"

#include "Kem/Assert.h"
#include "Kem/Trace.h"
#include "Ordel/server/ClientReport.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/OperationWriter.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace Ordel {

using Records::Form;

namespace {

Kem::TraceFacility serverTrace("OrdelServer");

// Where the operator sets what this process traces.
constexpr std::string_view configPath = "ordel/config";
constexpr std::string_view traceSettingAttribute = "traceSetting";

} // namespace

Server::Server(std::unique_ptr<Tree> tree, std::string systemName, WriteSnapshot writeSnapshot)
    : tree_(std::move(tree)), systemName_(std::move(systemName)), subscriptions_(*tree_),
      memoryReturn_(*tree_), refusals_(serverTrace), settling_(*this), snapshots_(std::move(writeSnapshot)) {
   config_ = tree_->find(configPath);
   if (config_ && config_->type().find(traceSettingAttribute) < 0)
      config_ = nullptr;
   if (config_) {
      Wire::Reader in(
          tree_->value(*config_, static_cast<unsigned>(config_->type().find(traceSettingAttribute))));
      if (std::string_view const setting = in.string(); !setting.empty())
         Kem::traceSettingIs(setting);
   }
}

Server::~Server() {
   while (!clients_.empty())
      disconnect(*clients_.front());
}

// --- Connections

ServerClient& Server::connect(ServerClient::Peer peer) {
   bool const isFull = clients_.size() >= maxClients;
   ServerClient& client = *clients_.emplace_back(std::make_unique<ServerClient>(*this, ++lastSerial_, peer));
   if (isFull)
      client.refuse("there are " + std::to_string(maxClients) + " clients already");
   return client;
}

void Server::disconnect(ServerClient& client) {
   if (client.isInFrame())
      refusals_.line(client.label() + " is gone in the middle of a frame");
   else
      KEM_TRACE(serverTrace, 3, client.label() << " is gone");
   // Out of the list first: what its leaving causes must not ask it any more.
   std::list<std::unique_ptr<ServerClient>> gone;
   gone.splice(gone.end(), clients_, std::find_if(clients_.begin(), clients_.end(), [&](auto const& other) {
                  return other.get() == &client;
               }));
   release(client);
   constexpr size_t markBytes = 64; // about
   memoryReturn_.freed(client.pendingBytes() + client.pending().markCount() * markBytes +
                       client.partialBytes());
}

void Server::welcomed(ServerClient& client) {
   if (client.role() == Role::agent)
      settling_.agentCame(client);
}

void Server::refused(ServerClient& client, std::string_view reason) {
   refusals_.line(client.label() + " is refused: " + std::string(reason));
   release(client);
}

bool Server::isNameOfAgent(std::string_view name) const {
   return std::any_of(clients_.begin(), clients_.end(), [&](auto const& client) {
      return client->isWelcome() && !client->isRefused() && client->role() == Role::agent &&
             client->name() == name && !(client->peer().hasHungUp && client->peer().hasHungUp());
   });
}

void Server::release(ServerClient& client) {
   for (auto const& [number, mount] : client.mounts())
      end(*mount);
   client.mounts().clear();
   settling_.clientGone(client);
   snapshots_.clientGone(client);
   largeBlock_.clientGone(client);
}

// --- Mounts

void Server::mount(ServerClient& client, uint32_t number, std::string_view text, std::string_view type,
                   uint8_t flags) {
   if (client.mounts().count(number)) {
      client.refuse("mount " + std::to_string(number) + " is in use");
      return;
   }
   if (client.mounts().size() >= maxMountsPerClient) {
      client.mountFailed(number, Status::refused,
                         "more than " + std::to_string(maxMountsPerClient) + " mounts");
      return;
   }
   size_t const textBytes = client.mountTextBytes() + text.size() + type.size();
   if (textBytes > maxMountTextPerClient) {
      client.mountFailed(number, Status::refused,
                         "the selectors of all mounts have more than " +
                             std::to_string(maxMountTextPerClient) + " bytes");
      return;
   }
   auto made = std::make_unique<ServerMount>();
   ServerMount& mount = *made;
   mount.client = &client;
   mount.number = number;
   mount.flags = flags;
   mount.text = text;
   mount.type = type;
   Refusal const refusal = place(mount);
   if (!refusal.isNone()) {
      KEM_TRACE(serverTrace, 3, client.label() << " can't mount: " << refusal.reason);
      client.mountFailed(number, refusal.status, refusal.reason);
      return;
   }
   client.mounts().emplace(number, std::move(made));
   KEM_TRACE(serverTrace, 5, client.label() << " mounts " << mount.text);
   if (mount.node == 0)
      await(mount);
   else
      begin(mount);
   followMarks();
}

Server::Refusal Server::place(ServerMount& mount) {
   std::string error;
   if (mount.text.size() > maxSelectorBytes)
      return {Status::refused, "a selector has at most " + std::to_string(maxSelectorBytes) + " bytes"};
   if (!Selector::parse(mount.text, mount.selector, error))
      return {Status::refused, error};
   Records::EntityType const* const type = mount.type.empty() ? nullptr : tree_->schema().entity(mount.type);
   if (!mount.type.empty() && !type)
      return {Status::refused, mount.text + ": there is no type " + mount.type};

   Entity const* node = tree_->find(mount.selector.path);
   bool const isCreating = (mount.flags & mountCreate) || (type && isPlaceOfCell(mount.selector.path, *type));
   if (!node && isCreating && mount.selector.steps.empty()) {
      if (!type)
         return {Status::refused, mount.text + ": what is to be created needs a type"};
      if (Refusal const refusal = createPath(mount.selector.path, *type, *mount.client); !refusal.isNone())
         return refusal;
      node = tree_->find(mount.selector.path);
      KEM_ASSERT(node);
   }
   Located const located = tree_->locate(mount.selector);
   if (located.status == Status::refused)
      return {Status::refused, located.error};
   if (located.status == Status::absent && !(mount.flags & mountAwait))
      return {Status::absent, located.error};
   if (node)
      return placeIn(mount, *node);
   // Only a directory can ever hold what is waited for.
   std::string_view way = mount.selector.path;
   while (!way.empty()) {
      way = way.substr(0, way.rfind('/') == std::string_view::npos ? 0 : way.rfind('/'));
      if (Entity const* const standing = tree_->find(way); standing && !standing->isDirectory())
         return {Status::refused, std::string(way) + ": is no directory"};
   }
   return {};
}

// Whether the schema has that place for each supervisor, and there is such a supervisor: somebody has said which part
// it plays. Its places are made as they are asked for; which supervisors there are isn't known beforehand.
bool Server::isPlaceOfCell(std::string_view path, Records::EntityType const& type) const {
   constexpr std::string_view start = "cell/";
   constexpr std::string_view role = "redundancy/status";
   size_t const end = path.find('/', start.size());
   if (!path.starts_with(start) || end == std::string_view::npos)
      return false;
   auto const place = path.substr(end + 1);
   auto const& places = tree_->schema().places;
   return place != role && tree_->find(std::string(path.substr(0, end + 1)) + std::string(role)) &&
          std::any_of(places.begin(), places.end(), [&](Records::Place const& p) {
             return p.isCell && p.path == place && p.type == &type;
          });
}

// Checks the mount against what is at its node, and finds the way inside.
Server::Refusal Server::placeIn(ServerMount& mount, Entity const& node) {
   mount.steps.clear();
   Records::EntityType const* type = &node.type();
   Entity const* entity = &node; // null where the rest is not there
   std::string place = mount.selector.path;
   for (Selector::Step const& step : mount.selector.steps) {
      if (!type)
         return {Status::refused, place + ": holds no entity"};
      if (type->isDirectory())
         return {Status::refused, place + ": what stands in a directory is named by its path"};
      int const attribute = type->find(step.attribute);
      if (attribute < 0)
         return {Status::refused,
                 place + ": " + std::string(type->name) + " has no attribute " + step.attribute};
      Records::Attribute const& declared = type->attributes[static_cast<size_t>(attribute)];
      place += "." + step.attribute;
      ServerMount::Step made;
      made.attribute = static_cast<uint8_t>(attribute);
      type = nullptr;
      if (step.hasKey) {
         if (!declared.key)
            return {Status::refused, place + ": is no collection"};
         KeyBytes key = keyFromText(*declared.key, step.key);
         place += bracketed(step.key);
         if (!key.isGood())
            return {Status::refused, place + ": " + key.error};
         bool const isEntity = declared.form == Form::children;
         entity = entity && isEntity ? tree_->child(*entity, made.attribute, key.bytes) : nullptr;
         type = entity ? &entity->type() : isEntity ? declared.target : nullptr;
         made.key = std::move(key.bytes);
      }
      mount.steps.push_back(std::move(made));
   }
   if (!mount.type.empty()) {
      if (!type)
         return {Status::refused, place + ": is no entity, and has no type " + mount.type};
      if (!type->isA(*tree_->schema().entity(mount.type)))
         return {Status::refused, place + ": is a " + std::string(type->name) + ", not a " + mount.type};
   }
   mount.node = node.node();
   return {};
}

// Makes the entity and the directories that are missing on the way; all or nothing.
Server::Refusal Server::createPath(std::string_view path, Records::EntityType const& type,
                                   ServerClient const& client) {
   Entity const* directory = &tree_->root();
   std::string_view rest = path;
   uint32_t topDirectory = 0; // of the first entity that was made
   std::string topName;
   while (!rest.empty()) {
      std::string_view const name = rest.substr(0, rest.find('/'));
      rest.remove_prefix(std::min(name.size() + 1, rest.size()));
      Wire::Writer key;
      key.string(name);
      if (Entity const* const standing =
              directory->isDirectory() ? tree_->child(*directory, 0, key.view()) : nullptr) {
         directory = standing;
         continue;
      }
      Wire::Writer block;
      tree_->encodeAt(*directory, block);
      OperationWriter(block).createNode(key.view(), rest.empty() ? type.id : uint16_t{0}, 0);
      Applied const& applied = apply(block.view(), 0, client);
      if (!applied.isDone()) {
         Refusal const refusal{applied.status, applied.error};
         if (topDirectory != 0) {
            Wire::Writer undo;
            tree_->encodeAt(*tree_->node(topDirectory), undo);
            OperationWriter(undo).begin(Op::erase, 0).string(topName);
            publish(tree_->apply(undo.view()), nullptr, 0);
         }
         return refusal;
      }
      if (topDirectory == 0) {
         topDirectory = directory->node();
         topName = name;
      }
      uint32_t const number = directory->node();
      publish(applied, nullptr, 0);
      directory = tree_->child(*tree_->node(number), 0, key.view());
   }
   return {};
}

void Server::begin(ServerMount& mount) {
   mount.client->mounted(mount, tree_->node(mount.node));
   subscriptions_.add(mount);
   mount.client->mountDone(mount.number);
}

void Server::await(ServerMount& mount) {
   awaited_[mount.selector.path].push_back(&mount);
   mount.client->mounted(mount, nullptr);
   mount.client->mountDone(mount.number);
}

void Server::unmount(ServerClient& client, uint32_t number) {
   auto const at = client.mounts().find(number);
   if (at == client.mounts().end())
      return; // it may have ended while the frame was on its way
   end(*at->second);
   client.forgetDone(number);
   client.mounts().erase(at);
}

void Server::end(ServerMount& mount) {
   if (mount.node != 0) {
      subscriptions_.remove(mount);
   } else if (auto const at = awaited_.find(mount.selector.path); at != awaited_.end()) {
      std::erase(at->second, &mount);
      if (at->second.empty())
         awaited_.erase(at);
   }
}

void Server::arrived(Entity const& node) {
   auto const at = awaited_.find(tree_->path(node));
   if (at == awaited_.end())
      return;
   for (ServerMount* const mount : std::exchange(at->second, {})) {
      if (Refusal const refusal = placeIn(*mount, node); refusal.isNone()) {
         begin(*mount);
      } else {
         mount->client->mountFailed(mount->number, refusal.status, refusal.reason);
         mount->client->mounts().erase(mount->number);
      }
   }
   awaited_.erase(tree_->path(node));
}

// --- Writes

void Server::write(ServerClient& client, uint32_t request, uint64_t seen, uint8_t flags,
                   std::string_view operations) {
   std::string block;
   if ((flags & writeContinues) || largeBlock_.isOpen(client)) {
      largeBlock_.add(client, operations);
      if (flags & writeContinues)
         return;
      if (std::string const error = largeBlock_.end(client, block); !error.empty()) {
         writeRefused(client, request, Status::refused, error);
         return;
      }
      operations = block;
   }
   size_t const entitiesBefore = tree_->entityCount();
   Applied const& applied = apply(operations, flags, client);
   followMemory(operations.size(), entitiesBefore);
   if (applied.isMalformed) {
      client.refuse("a write can't be read: " + applied.error);
      return;
   }
   if (!applied.isDone()) {
      writeRefused(client, request, applied.status, applied.error);
      return;
   }
   client.receivedOperationsInc(applied.isNew.size());
   publish(applied, &client, seen);
   if (request != 0)
      client.reply(request, Status::done, "");
   followMarks();
}

void Server::writeRefused(ServerClient& client, uint32_t request, Status status, std::string const& error) {
   if (request == 0 || client.role() == Role::agent) // nobody else says it
      refusals_.line(client.label() + ": write refused: " + error);
   else
      KEM_TRACE(serverTrace, 3, client.label() << ": write refused: " << error);
   client.refusedWritesInc();
   client.pending().subscriberWrote();
   client.reply(request, status, error);
}

Applied const& Server::apply(std::string_view operations, uint8_t flags, ServerClient const& writer) {
   tree_->byteLimitIs(writer.role() == Role::agent ? treeLimit_ + treeLimit_ / 8 : treeLimit_);
   return tree_->apply(operations, flags);
}

// Counting goes through all of them, so it is done only after many have been made.
void Server::followMarks() {
   if (madeMarks_ < marksLimit_ / 8)
      return;
   madeMarks_ = 0;
   for (;;) {
      size_t sum = 0, most = 0;
      ServerClient* worst = nullptr;
      for (auto const& client : clients_) {
         size_t const count = client->pending().markCount();
         sum += count;
         bool const isWorse =
             !worst || client->role() == worst->role() ? count > most : client->role() == Role::tool;
         if (count > 0 && isWorse) {
            worst = client.get();
            most = count;
         }
      }
      if (sum <= marksLimit_)
         return;
      worst->giveUp("it takes too little in, and " + std::to_string(most) + " changes wait for it, of " +
                    std::to_string(sum) + " that wait for all");
   }
}

// A large write leaves its frame and what it displaced; a refused one all that it had made.
void Server::followMemory(size_t writtenBytes, size_t entitiesBefore) {
   constexpr size_t entityBytes = 512; // about, with what it holds
   size_t const entities = tree_->entityCount();
   if (writtenBytes >= MemoryReturn::muchBytes)
      memoryReturn_.freed(writtenBytes);
   if (entities < entitiesBefore)
      memoryReturn_.freed((entitiesBefore - entities) * entityBytes);
}

void Server::publish(Applied const& applied, ServerClient* writer, uint64_t seen) {
   for (ServerMount* const mount : subscriptions_.publish(applied, writer, seen)) {
      mount->client->unmounted(mount->number);
      if (mount->flags & mountAwait)
         awaited_[mount->selector.path].push_back(mount);
      else
         mount->client->mounts().erase(mount->number);
   }
   if (!awaited_.empty())
      for (NodeChange const& change : applied.nodes)
         if (change.isCreated && !change.entity->isErased())
            arrived(*change.entity);
   traceSettingFollow(applied);
}

void Server::traceSettingFollow(Applied const& applied) {
   for (NodeChange const& change : applied.nodes)
      if (change.entity == config_)
         config_ = nullptr;
   if (!config_)
      return;
   bool const isWritten = std::any_of(applied.groups.begin(), applied.groups.end(),
                                      [&](Group const& group) { return group.entity == config_; });
   if (!isWritten)
      return;
   Wire::Reader in(
       tree_->value(*config_, static_cast<unsigned>(config_->type().find(traceSettingAttribute))));
   std::string_view const setting = in.string();
   char const* const initial = std::getenv("KEM_TRACE");
   Kem::traceSettingIs(!setting.empty() ? setting : initial ? std::string_view(initial) : std::string_view());
}

// --- Requests

void Server::settle(ServerClient& client, uint32_t request, uint32_t milliseconds, std::string_view agent) {
   settling_.begin(client, request, milliseconds, agent);
}

void Server::settled(ServerClient& client, uint32_t probe) {
   settling_.settled(client, probe);
}

void Server::clientsReport(ServerClient& client, uint32_t request) {
   client.reply(request, Status::done, clientReport(*this));
}

void Server::snapshot(ServerClient& client, uint32_t request) {
   snapshots_.begin(client, request);
}

} // namespace Ordel
