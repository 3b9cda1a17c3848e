#include "Ordel/client/TypedTree.h"

#include "Kem/Activity.h"
#include "Ordel/client/HeldChanges.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"

namespace Ordel {

using Kem::Dir;
using Kem::Name;
using Kem::Ptr;

namespace {

// Calls with the entity and the nodes below it.
template <class Use>
void eachNodeBelow(Kem::Entity& entity, Use const& use) {
   use(entity);
   if (entity.typeInfo().id == Dir::typeInfo_.id)
      entity.forEachChild([&](Kem::Entity& child) { eachNodeBelow(child, use); });
}

// Brings an entity back to the defaults of its class: notes what makes it into a fresh one, and then does it. The
// collections can't change while they are compared.
class Resetting final : public Kem::AttributeSink {
  public:
   static void run(Kem::Entity& entity) {
      Resetting resetting;
      auto const fresh = entity.typeInfo().make();
      fresh->encodeDifference(entity, resetting);
      for (auto const& [id, bytes, isScalar] : resetting.changes_) {
         Wire::Reader in(bytes);
         if (!isScalar)
            entity.applyErase(id, in);
         else if (!entity.applySet(id, in))
            entity.applyReference(id, nullptr, nullptr);
      }
   }

  private:
   struct Change {
      Kem::AttrId id;
      std::string bytes; // the value of a scalar, else the key
      bool isScalar;
   };
   void scalarChanged(Kem::Entity const& fresh, Kem::AttrId id) override {
      Wire::Writer value;
      fresh.encodeScalar(id, value);
      changes_.push_back({id, std::string(value.view()), true});
   }
   void memberChanged(Kem::Entity const& fresh, Kem::AttrId id, void const* key) override {
      Wire::Writer bytes;
      fresh.encodeMemberKey(id, key, bytes);
      changes_.push_back({id, std::string(bytes.view()), false});
   }
   void childAdded(Kem::Entity const&, Kem::AttrId, Kem::Entity const&) override {}
   void childRemoved(Kem::Entity const& fresh, Kem::AttrId id, void const* key,
                     Ptr<Kem::Entity> const&) override {
      memberChanged(fresh, id, key);
   }
   std::vector<Change> changes_;
};

} // namespace

TypedTree::TypedTree(Records::Schema const& schema, Kem::TypeFinder types)
    : schema_(schema), types_(types), root_(Dir::make()),
      references_(schema, [this](std::string const& selector) { return findSelected(selector); }) {}

TypedTree::~TypedTree() {
   if (log_)
      log_->watcherIs(nullptr);
   // State machines may outlive the tree with references of their own: these entities stay, without a log.
   root_->sinkIs(nullptr, false);
   for (auto const& [number, node] : nodes_)
      if (node.entity)
         node.entity->sinkIs(nullptr, false);
}

void TypedTree::logIs(Ptr<Kem::NboAttrLog::SocketOutSm> log) {
   log_ = std::move(log);
   log_->watcherIs(this);
}

// --- Finding.

Ptr<Kem::Entity> TypedTree::find(std::string_view path) const {
   Ptr<Kem::Entity> at = root_;
   while (!path.empty()) {
      auto const* dir = dynamic_cast<Dir const*>(at.ptr());
      if (!dir)
         return nullptr;
      size_t const slash = path.find('/');
      at = dir->entityPtr(Name(path.substr(0, slash)));
      if (!at || slash == std::string_view::npos)
         return at;
      path.remove_prefix(slash + 1);
   }
   return at;
}

Ptr<Kem::Entity> TypedTree::findSelected(std::string const& text) const {
   Selector selector;
   std::string error;
   if (!Selector::parse(text, selector, error))
      return nullptr;
   Ptr<Kem::Entity> at = find(selector.path);
   for (auto const& step : selector.steps) {
      if (!at || at->typeInfo().id >= schema_.entities.size())
         return nullptr;
      auto const& type = schema_.entities[at->typeInfo().id];
      int const id = type.find(step.attribute);
      if (id < 0 || !step.hasKey || !type.attributes[static_cast<size_t>(id)].key)
         return nullptr;
      KeyBytes const key = keyFromText(*type.attributes[static_cast<size_t>(id)].key, step.key);
      if (!key.isGood())
         return nullptr;
      Wire::Reader in(key.bytes);
      at = Ptr<Kem::Entity>(at->childByKey(static_cast<Kem::AttrId>(id), in));
   }
   return at;
}

// --- Mounting.

Dir& TypedTree::directoryFor(std::string_view path) {
   Dir* at = root_.ptr();
   for (size_t slash; (slash = path.find('/')) != std::string_view::npos; path.remove_prefix(slash + 1)) {
      Name const name(path.substr(0, slash));
      auto next = at->entity<Dir>(name);
      if (!next) {
         next = Dir::make(name);
         at->entityPtrIs(next);
      }
      at = next.ptr();
   }
   return *at;
}

void TypedTree::place(std::string_view path, Ptr<Kem::Entity> const& entity) {
   size_t const slash = path.rfind('/');
   entity->nameIs(Name(slash == std::string_view::npos ? path : path.substr(slash + 1)));
   directoryFor(path).entityPtrIs(entity);
}

void TypedTree::nodeIs(uint32_t number, Ptr<Kem::Entity> const& entity, Records::EntityType const& type) {
   nodes_[number] = {entity, &type};
   entity->nodeNumberIs(number);
}

Ptr<Kem::Entity> TypedTree::mount(uint32_t node, uint16_t type, std::string_view path, bool isWritable) {
   auto const* info = types_(type);
   if (!info || type >= schema_.entities.size())
      return nullptr;
   log_->isMutedIs(true);
   Ptr<Kem::Entity> entity = find(path);
   if (entity && &entity->typeInfo() != info) {
      directoryFor(path).entityPtrDel(entity->name());
      erased(entity);
      entity = nullptr;
   }
   auto const lost = mounted_.find(path);
   if (!entity) {
      entity = lost != mounted_.end() && &lost->second.entity->typeInfo() == info ? lost->second.entity
                                                                                  : info->make();
      place(path, entity);
   }
   nodeIs(node, entity, schema_.entities[type]);
   bool const isWritten = isWritable || (lost != mounted_.end() && lost->second.isWritable);
   mounted_[std::string(path)] = {entity, isWritten};
   if (isWritten || !entity->isWritable())
      entity->sinkIs(log_.ptr(), isWritten);
   keepWritable();
   references_.came(entity);
   log_->isMutedIs(false);
   return entity;
}

// A directory passes its own mode down to everything in it; those mounted for writing keep theirs.
void TypedTree::keepWritable() {
   for (auto const& [path, mounted] : mounted_)
      if (mounted.isWritable && mounted.entity->parent())
         mounted.entity->sinkIs(log_.ptr(), true);
}

Ptr<Kem::Entity> TypedTree::lost(std::string_view path) {
   auto const at = mounted_.find(path);
   if (at == mounted_.end())
      return nullptr;
   auto const entity = at->second.entity;
   log_->isMutedIs(true);
   forgetNumbers(*entity);
   if (at->second.isWritable) {
      if (find(path) != entity)
         place(path, entity);
      entity->sinkIs(log_.ptr(), true);
      log_->foreignChangeOfAll();
   } else {
      if (auto* const dir = dynamic_cast<Dir*>(entity->parent()); dir && dir->sink())
         dir->entityPtrDel(entity->name());
      entity->forEachChild([&](Kem::Entity& child) { references_.went(Ptr<Kem::Entity>(&child)); });
      Resetting::run(*entity);
   }
   references_.resolve();
   log_->isMutedIs(false);
   return entity;
}

// The object of a mount that waits for its entity to come into that directory again.
Ptr<Kem::Entity> TypedTree::lostOne(Kem::Entity const& directory, std::string_view key,
                                    Kem::TypeInfo const& type) {
   Wire::Reader in(key);
   std::string const above = directory.fullName();
   auto const at =
       mounted_.find(above.empty() ? std::string(in.string()) : above + '/' + std::string(in.string()));
   if (at == mounted_.end() || at->second.entity->parent() || &at->second.entity->typeInfo() != &type)
      return nullptr;
   return at->second.entity;
}

// --- Numbers.

void TypedTree::forgetNumbers(Kem::Entity& entity) {
   eachNodeBelow(entity, [&](Kem::Entity& node) {
      if (node.nodeNumber() != 0)
         nodes_.erase(node.nodeNumber());
      node.nodeNumberIs(0);
   });
}

void TypedTree::erased(Ptr<Kem::Entity> const& entity) {
   references_.went(entity);
   forgetNumbers(*entity);
}

void TypedTree::removalsSent(uint32_t request) {
   for (auto at = removed_.rbegin(); at != removed_.rend() && at->request == 0; ++at)
      at->request = request;
}

void TypedTree::removalsDone(uint32_t request, bool wereTaken) {
   while (!removed_.empty() && removed_.front().request != 0 && removed_.front().request <= request) {
      if (wereTaken)
         nodes_.erase(removed_.front().node);
      removed_.pop_front();
   }
}

// --- What the process does.

std::optional<std::string> TypedTree::ownPlaceChanging(Kem::Entity const& entity, Kem::AttrId id,
                                                       void const* key) {
   std::string value = key ? HeldChanges::keyBytes(entity, id, key) : std::string();
   auto const selector = references_.taken(entity, id, value);
   if (!selector)
      return {};
   wantsPlacesUpdate();
   Wire::Writer text;
   text.string(*selector);
   return value.append(text.view());
}

void TypedTree::ownChildAdded(Kem::Entity const& child) {
   references_.came(Ptr<Kem::Entity>(const_cast<Kem::Entity*>(&child)));
}

void TypedTree::ownChildRemoved(Kem::Entity const& parent, Ptr<Kem::Entity> const& child, bool isHeld) {
   references_.went(child);
   if (isHeld || parent.typeInfo().id != Dir::typeInfo_.id)
      return;
   eachNodeBelow(*child, [&](Kem::Entity& node) {
      if (auto const at = nodes_.find(node.nodeNumber()); at != nodes_.end()) {
         at->second.entity = nullptr;
         removed_.push_back({0, node.nodeNumber()});
      }
      node.nodeNumberIs(0);
   });
}

void TypedTree::ownChildReplaced(Kem::Entity& before, Kem::Entity& now) {
   if (auto const at = nodes_.find(before.nodeNumber()); at != nodes_.end()) {
      at->second.entity = Ptr<Kem::Entity>(&now);
      now.nodeNumberIs(before.nodeNumber());
   }
   before.nodeNumberIs(0);
   auto* const directory = dynamic_cast<Dir*>(&before);
   auto* const newDirectory = dynamic_cast<Dir*>(&now);
   if (!directory || !newDirectory)
      return;
   directory->entities().forEach([&](Name const& name, Ptr<Kem::Entity> const& old) {
      auto const child = newDirectory->entityPtr(name);
      if (child && &child->typeInfo() == &old->typeInfo() &&
          static_cast<Kem::Record const&>(*child).hasSameInputs(*old))
         ownChildReplaced(*old, *child);
   });
}

void TypedTree::resolveReferences() {
   if (!references_.hasNews())
      return;
   log_->isMutedIs(true);
   references_.resolve();
   log_->isMutedIs(false);
   wantsPlacesUpdate();
}

void TypedTree::danglingReferencesDel() {
   for (auto const& [place, selector] : references_.takeDangling()) {
      Wire::Writer text;
      text.string(selector);
      log_->takeAway(*place.holder, place.attribute, place.key, place.key + std::string(text.view()));
   }
   wantsPlacesUpdate();
}

// --- Taking in changes.

void TypedTree::runQueue() {
   references_.resolve();
   wantsPlacesUpdate();
   log_->isMutedIs(false);
   Kem::activityManager()->deliverQueued();
   log_->isMutedIs(true);
}

std::string TypedTree::apply(std::string_view operations) {
   Wire::Reader in(operations);
   Cursor at;
   log_->isMutedIs(true);
   bool isGood = true;
   while (isGood && in.good() && !in.done()) {
      Op const op = static_cast<Op>(in.u8());
      bool const isForeign = foreignChangeHook_ && op != Op::at && at.entity && at.entity->isWritable();
      Kem::Ptr<Kem::Entity> const changed = isForeign ? at.entity : nullptr;
      switch (op) {
      case Op::at:
         isGood = applyAt(in, at);
         break;
      case Op::set:
         isGood = at.type && applySet(in, at);
         break;
      case Op::put:
         isGood = at.type && applyPut(in, at);
         break;
      case Op::erase:
         isGood = at.type && applyErase(in, at);
         break;
      case Op::create:
         isGood = at.type && applyCreate(in, at);
         break;
      default:
         isGood = false;
      }
      if (changed)
         foreignChangeHook_(*changed);
   }
   references_.resolve();
   wantsPlacesUpdate();
   log_->isMutedIs(false);
   if (isGood && in.good())
      return {};
   return (at.entity ? at.entity->fullName() : std::string("(no entity)")) + ": operation before byte " +
          std::to_string(in.position() - operations.data()) + " does not fit the schema";
}

Records::Attribute const* TypedTree::attribute(Cursor const& at, uint8_t id) const {
   return id < at.type->attributes.size() ? &at.type->attributes[id] : nullptr;
}

bool TypedTree::applyAt(Wire::Reader& in, Cursor& at) {
   uint32_t const number = in.u32();
   unsigned const steps = in.u8();
   auto const node = nodes_.find(number);
   if (node == nodes_.end())
      return false;
   at = {node->second.entity, node->second.type};
   if (at.entity && !at.entity->sink()) {
      // The process has removed it, and the held log doesn't tell yet.
      log_->foreignChangeIn(*at.entity);
      at.entity = nullptr;
   }
   for (unsigned i = 0; i < steps; ++i) {
      uint8_t const id = in.u8();
      auto const* member = attribute(at, id);
      if (!member || member->form != Records::Form::children)
         return false;
      char const* const key = in.position();
      skipValue(*member->key, in);
      if (!in.good())
         return false;
      std::string_view const bytes(key, static_cast<size_t>(in.position() - key));
      if (at.entity)
         log_->foreignChange(*at.entity, id, bytes);
      Wire::Reader keyIn(bytes);
      Kem::Entity* const child = at.entity ? at.entity->childByKey(id, keyIn) : nullptr;
      at = {Ptr<Kem::Entity>(child), child && child->typeInfo().id < schema_.entities.size()
                                         ? &schema_.entities[child->typeInfo().id]
                                         : member->target};
   }
   return in.good();
}

bool TypedTree::applySet(Wire::Reader& in, Cursor& at) {
   uint8_t const id = in.u8();
   auto const* member = attribute(at, id);
   if (!member)
      return false;
   if (member->form == Records::Form::reference) {
      auto const selector = in.string();
      if (at.entity && in.good()) {
         log_->foreignChange(*at.entity, id, {});
         references_.referenceIs({at.entity, id, {}}, std::string(selector));
      }
      return in.good();
   }
   if (member->form != Records::Form::scalar)
      return false;
   if (at.entity) {
      log_->foreignChange(*at.entity, id, {});
      return at.entity->applySet(id, in);
   }
   skipValue(*member->value, in);
   return in.good();
}

bool TypedTree::applyPut(Wire::Reader& in, Cursor& at) {
   uint8_t const id = in.u8();
   auto const* member = attribute(at, id);
   if (!member)
      return false;
   if (member->form == Records::Form::references) {
      char const* const start = in.position();
      skipValue(*member->key, in);
      std::string key(start, static_cast<size_t>(in.position() - start));
      auto const selector = in.string();
      if (at.entity && in.good()) {
         log_->foreignChange(*at.entity, id, key);
         references_.referenceIs({at.entity, id, std::move(key)}, std::string(selector));
      }
      return in.good();
   }
   if (member->form != Records::Form::map)
      return false;
   if (at.entity) {
      if (log_->isHeld()) {
         char const* const begin = in.position();
         Wire::Reader key({begin, in.remaining()});
         skipValue(*member->key, key);
         log_->foreignChange(*at.entity, id, {begin, static_cast<size_t>(key.position() - begin)});
      }
      return at.entity->applyPut(id, in);
   }
   skipValue(*member->key, in);
   skipValue(*member->value, in);
   return in.good();
}

bool TypedTree::applyErase(Wire::Reader& in, Cursor& at) {
   uint8_t const id = in.u8();
   auto const* member = attribute(at, id);
   if (!member || !member->key)
      return false;
   char const* const start = in.position();
   skipValue(*member->key, in);
   if (!in.good())
      return false;
   std::string const key(start, static_cast<size_t>(in.position() - start));
   if (!at.entity)
      return true;
   log_->foreignChange(*at.entity, id, key);
   if (member->form == Records::Form::references)
      references_.referenceDel({at.entity, id, key});
   Ptr<Kem::Entity> child;
   if (member->form == Records::Form::children) {
      Wire::Reader childKey(key);
      child = Ptr<Kem::Entity>(at.entity->childByKey(id, childKey));
      if (auto const removed = log_->removedWhileHeld(*at.entity, id, key))
         forgetNumbers(*removed);
      // One that was made here, and which the database doesn't know yet: an earlier one is meant.
      if (child && at.type->isDirectory() && child->nodeNumber() == 0)
         return true;
   }
   Wire::Reader keyIn(key);
   bool const isGood = at.entity->applyErase(id, keyIn);
   if (child)
      erased(child);
   return isGood;
}

bool TypedTree::applyCreate(Wire::Reader& in, Cursor& at) {
   uint8_t const id = in.u8();
   auto const* member = attribute(at, id);
   if (!member || member->form != Records::Form::children)
      return false;
   char const* const start = in.position();
   skipValue(*member->key, in);
   std::string_view const key(start, in.good() ? static_cast<size_t>(in.position() - start) : 0);
   uint16_t const type = in.u16();
   bool const isInDirectory = at.type->isDirectory();
   uint32_t const node = isInDirectory ? in.u32() : 0;
   auto const* info = types_(type);
   if (!in.good() || !info || type >= schema_.entities.size())
      return false;
   if (!at.entity) {
      // Goes with the directory that the process has removed.
      if (isInDirectory && nodes_.try_emplace(node, Node{nullptr, &schema_.entities[type]}).second)
         removed_.push_back({0, node});
      return true;
   }
   // What the process made, and has removed while the log is held, gets its number all the same.
   if (auto const removed = isInDirectory ? log_->removedWhileHeld(*at.entity, id, key) : nullptr;
       removed && removed->nodeNumber() == 0 && &removed->typeInfo() == info) {
      nodeIs(node, removed, schema_.entities[type]);
      return true;
   }
   log_->foreignChange(*at.entity, id, key);
   Wire::Reader keyIn(key);
   Ptr<Kem::Entity> child(at.entity->childByKey(id, keyIn));
   bool const isOwn = child && &child->typeInfo() == info; // made here: the database tells its number
   if (!isOwn) {
      auto const before = child;
      child = isInDirectory ? lostOne(*at.entity, key, *info) : nullptr;
      if (!child)
         child = info->make();
      Wire::Reader childKey(key);
      if (!child->decodeKey(childKey) || !at.entity->placeChild(id, child))
         return false;
      if (before)
         erased(before);
      references_.came(child);
   }
   if (isInDirectory) {
      nodeIs(node, child, schema_.entities[type]);
      if (!isOwn && runsQueueOnCreation_)
         runQueue();
   }
   return true;
}

} // namespace Ordel
