#include "Ordel/client/TypedTree.h"

#include "Kem/Activity.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"

namespace Ordel {

using Kem::Dir;
using Kem::Name;
using Kem::Ptr;

TypedTree::TypedTree(Records::Schema const& schema, Kem::TypeFinder types)
    : schema_(schema), types_(types), root_(Dir::make()),
      references_(
          [](void* self, std::string const& s) { return static_cast<TypedTree*>(self)->findSelected(s); },
          this) {}

TypedTree::~TypedTree() {
   // State machines may outlive the tree with references of their own: these entities stay, without a log.
   root_->sinkIs(nullptr, false);
   for (auto const& [number, node] : nodes_)
      if (node.entity)
         node.entity->sinkIs(nullptr, false);
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

void TypedTree::nodeIs(uint32_t number, Ptr<Kem::Entity> const& entity, Records::EntityType const& type,
                       bool isWritable) {
   nodes_[number] = {entity, &type, isWritable};
   entity->nodeNumberIs(number);
   hasStructureChanged_ = true;
}

Ptr<Kem::Entity> TypedTree::mount(uint32_t node, uint16_t type, std::string_view path, bool isWritable) {
   auto const* info = types_(type);
   if (!info || type >= schema_.entities.size())
      return nullptr;
   log_->isMutedIs(true);
   Ptr<Kem::Entity> entity = find(path);
   if (entity && &entity->typeInfo() != info) {
      directoryFor(path).entityPtrDel(entity->name());
      entity = nullptr;
   }
   if (!entity) {
      size_t const slash = path.rfind('/');
      entity = info->make();
      entity->nameIs(Name(slash == std::string_view::npos ? path : path.substr(slash + 1)));
      directoryFor(path).entityPtrIs(entity);
   }
   nodeIs(node, entity, schema_.entities[type], isWritable);
   if (isWritable)
      writable_[node] = entity;
   if (isWritable || !entity->isWritable())
      entity->sinkIs(log_.ptr(), isWritable);
   // A directory passes its own mode down to everything in it; those mounted for writing keep theirs.
   for (auto const& [number, e] : writable_)
      e->sinkIs(log_.ptr(), true);
   log_->isMutedIs(false);
   return entity;
}

void TypedTree::unmount(uint32_t node) {
   auto const at = nodes_.find(node);
   if (at == nodes_.end() || !at->second.entity)
      return;
   log_->isMutedIs(true);
   auto const entity = std::move(at->second.entity);
   writable_.erase(node);
   if (auto* dir = dynamic_cast<Dir*>(entity->parent()))
      dir->entityPtrDel(entity->name());
   log_->isMutedIs(false);
   hasStructureChanged_ = true;
}

// --- Taking in changes.

void TypedTree::runQueue() {
   log_->isMutedIs(false);
   references_.resolve();
   Kem::activityManager()->deliverQueued();
   log_->isMutedIs(true);
}

std::string TypedTree::apply(std::string_view operations) {
   Wire::Reader in(operations);
   Cursor at;
   log_->isMutedIs(true);
   bool isGood = true;
   while (isGood && in.good() && !in.done()) {
      switch (static_cast<Op>(in.u8())) {
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
   }
   if (hasStructureChanged_) {
      forgetRemoved();
      references_.resolve();
      hasStructureChanged_ = false;
   }
   log_->isMutedIs(false);
   if (isGood && in.good())
      return {};
   return (at.entity ? at.entity->fullName() : std::string("(no entity)")) + ": operation before byte " +
          std::to_string(in.position() - operations.data()) + " does not fit the schema";
}

void TypedTree::forgetRemoved() {
   // What was removed has no sink any more. Its number stays: changes may still be on their way.
   for (auto& [number, node] : nodes_)
      if (node.entity && !node.entity->sink())
         node.entity = nullptr;
   std::erase_if(writable_, [](auto const& item) { return !item.second->sink(); });
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
   for (unsigned i = 0; i < steps; ++i) {
      uint8_t const id = in.u8();
      auto const* member = attribute(at, id);
      if (!member || member->form != Records::Form::children)
         return false;
      char const* const key = in.position();
      skipValue(*member->key, in);
      if (!in.good())
         return false;
      Wire::Reader keyIn(std::string_view(key, static_cast<size_t>(in.position() - key)));
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
      if (at.entity && in.good())
         references_.referenceIs(at.entity, id, {}, std::string(selector));
      return in.good();
   }
   if (member->form != Records::Form::scalar)
      return false;
   if (at.entity)
      return at.entity->applySet(id, in);
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
      if (at.entity && in.good())
         references_.referenceIs(at.entity, id, std::move(key), std::string(selector));
      return in.good();
   }
   if (member->form != Records::Form::map)
      return false;
   if (at.entity)
      return at.entity->applyPut(id, in);
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
   if (member->form == Records::Form::references)
      references_.referenceDel(*at.entity, id, key);
   if (member->form == Records::Form::children)
      hasStructureChanged_ = true;
   Wire::Reader keyIn(key);
   return at.entity->applyErase(id, keyIn);
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
      if (isInDirectory)
         nodes_[node] = {nullptr, &schema_.entities[type], false};
      return true;
   }
   Wire::Reader keyIn(key);
   Ptr<Kem::Entity> child(at.entity->childByKey(id, keyIn));
   bool const isOwn = child && &child->typeInfo() == info; // made here: the database tells its number
   if (!isOwn) {
      child = info->make();
      Wire::Reader childKey(key);
      if (!child->decodeKey(childKey) || !at.entity->placeChild(id, child))
         return false;
   }
   hasStructureChanged_ = true;
   if (isInDirectory) {
      nodeIs(node, child, schema_.entities[type], at.entity->isWritable());
      if (!isOwn && runsQueueOnCreation_)
         runQueue();
   }
   return true;
}

} // namespace Ordel
