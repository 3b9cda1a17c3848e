#include "Ordel/store/Tree.h"
#include "Kem/Assert.h"
#include "Ordel/store/Applier.h"
#include "Ordel/store/Store.h"
#include "Ordel/store/Walk.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/OperationWriter.h"
#include "Ordel/wire/Selector.h"

namespace Ordel {

using Records::EntityType;

namespace {

// Finds or makes the plain directories of the path's parts but the last, which is left in `name`.
Entity& makeWay(Store& store, std::string_view path, std::string_view& name) {
   Entity* at = store.root;
   name = path;
   for (size_t slash; (slash = name.find('/')) != std::string_view::npos; name.remove_prefix(slash + 1)) {
      std::string_view const part = name.substr(0, slash);
      Entity* next = store.reachStep(*at, part);
      if (!next) {
         Wire::Writer key;
         key.string(part);
         next = &store.create(store.schema.entities[0], *at, Store::dirEntities, {0, key.view()},
                              store.isMirror ? 0 : store.nextNode);
      }
      KEM_ASSERT(next->isDirectory());
      at = next;
   }
   return *at;
}

// `node` 0: the next number.
Entity& makeNode(Store& store, EntityType const& type, std::string_view path, uint32_t node) {
   std::string_view name;
   Entity& directory = makeWay(store, path, name);
   if (node == 0)
      node = store.nextNode; // now, after those on the way
   Wire::Writer key;
   key.string(name);
   return store.create(type, directory, Store::dirEntities, {0, key.view()}, node);
}

// Reads a key given in wire form. False when it isn't exactly one.
bool readKey(Slot const& slot, std::string_view bytes, Packed& key) {
   Wire::Reader in(bytes);
   return slot.key->read(in, key) && in.done();
}

} // namespace

Tree::Tree(Records::Schema const& schema, unsigned cell)
    : store_(std::make_unique<Store>(schema, false)), applier_(std::make_unique<Applier>(*store_)) {
   for (Records::Place const& place : schema.places) {
      std::string const path =
          (place.isCell ? "cell/" + std::to_string(cell) + "/" : std::string()) + std::string(place.path);
      if (Entity const* standing = find(path))
         KEM_ASSERT(&standing->type() == place.type);
      else
         makeNode(*store_, *place.type, path, 0);
   }
}

Tree::Tree(Records::Schema const& schema)
    : store_(std::make_unique<Store>(schema, true)), applier_(std::make_unique<Applier>(*store_)) {}

Tree::~Tree() = default;

Records::Schema const& Tree::schema() const {
   return store_->schema;
}

bool Tree::isMirror() const {
   return store_->isMirror;
}

Entity const& Tree::root() const {
   return *store_->root;
}

Entity const* Tree::find(std::string_view path) const {
   std::string_view rest;
   Entity const* const entity = store_->reach(path, rest);
   return rest.empty() ? entity : nullptr;
}

Entity const* Tree::node(uint32_t number) const {
   return store_->node(number);
}

std::string Tree::path(Entity const& entity) const {
   return Store::path(entity);
}

size_t Tree::bytes() const {
   return store_->bytes;
}

size_t Tree::countBytes() const {
   return store_->countBytes();
}

void Tree::byteLimitIs(size_t bytes) {
   store_->byteLimit = bytes;
}

size_t Tree::entityCount() const {
   return store_->entityCount;
}

uint32_t Tree::nextNode() const {
   return store_->nextNode;
}

Applied const& Tree::apply(std::string_view operations, uint8_t flags) {
   return applier_->apply(operations, flags);
}

// --- Mirrors

Entity const& Tree::mount(uint32_t node, EntityType const& type, std::string_view path) {
   KEM_ASSERT(isMirror());
   if (path.empty()) {
      KEM_ASSERT(type.isDirectory());
      store_->numberIs(*store_->root, node);
      return *store_->root;
   }
   std::string_view rest;
   Entity* const standing = store_->reach(path, rest);
   if (rest.empty() && &standing->type() == &type && (standing->node() == 0 || standing->node() == node)) {
      store_->numberIs(*standing, node);
      return *standing;
   }
   store_->bury();
   if (Entity* const elsewhere = store_->node(node); elsewhere && Store::parent(*elsewhere))
      unmount(node);
   if (rest.empty()) {
      store_->takeOut(*standing);
      store_->entityErased(*standing);
      store_->destroy(*standing);
   }
   return makeNode(*store_, type, path, node);
}

void Tree::unmount(uint32_t node) {
   KEM_ASSERT(isMirror());
   Entity* const entity = store_->node(node);
   if (!entity || !Store::parent(*entity))
      return;
   Store::eachBelow(*entity, [&](Entity& below) { store_->remember(below); });
   store_->bury();
   store_->takeOut(*entity);
   store_->entityErased(*entity);
   store_->destroy(*entity);
}

// --- Reading

std::string_view Tree::value(Entity const& entity, unsigned attribute) const {
   Slot const& slot = Store::slot(entity, attribute);
   KEM_ASSERT(slot.isSingle());
   return slot.value->view(Store::place(entity, slot), slot.zero, scratch_);
}

size_t Tree::count(Entity const& entity, unsigned attribute) const {
   Slot const& slot = Store::slot(entity, attribute);
   KEM_ASSERT(slot.isCollection());
   Table const* const members = Store::table(entity, slot);
   return members ? members->count() : 0;
}

std::optional<std::string_view> Tree::member(Entity const& entity, unsigned attribute,
                                             std::string_view key) const {
   Slot const& slot = Store::slot(entity, attribute);
   KEM_ASSERT(slot.isCollection());
   Packed packed;
   Table const* const members = Store::table(entity, slot);
   if (!members || !readKey(slot, key, packed))
      return std::nullopt;
   uint32_t const position = members->find(Store::probe(slot, packed));
   if (position == Table::none)
      return std::nullopt;
   if (slot.holdsEntities())
      return std::string_view();
   return slot.value->view(members->value(position), slot.zero, scratch_);
}

Entity const* Tree::child(Entity const& entity, unsigned attribute, std::string_view key) const {
   Slot const& slot = Store::slot(entity, attribute);
   KEM_ASSERT(slot.holdsEntities());
   Packed packed;
   return readKey(slot, key, packed) ? Store::child(entity, slot, Store::probe(slot, packed)) : nullptr;
}

Located Tree::locate(Selector const& selector) const {
   Located found;
   auto const answer = [&](Status status, std::string const& place, std::string const& reason) {
      found.status = status;
      found.error = place + ": " + reason;
      return found;
   };
   std::string_view rest;
   found.entity = store_->reach(selector.path, rest);
   if (!rest.empty())
      return answer(Status::absent, selector.path, "not there");
   for (size_t i = 0; i < selector.steps.size(); ++i) {
      Selector::Step const& step = selector.steps[i];
      std::string const place = selectorText(*this, *found.entity);
      EntityType const& type = found.entity->type();
      found.attribute = type.find(step.attribute);
      if (found.attribute < 0)
         return answer(Status::refused, place,
                       std::string(type.name) + " has no attribute " + step.attribute);
      Slot const& slot = Store::slot(*found.entity, static_cast<unsigned>(found.attribute));
      bool const isLast = i + 1 == selector.steps.size();
      if (!step.hasKey)
         return isLast ? found
                       : answer(Status::refused, place + "." + step.attribute, "a key in [ ] is expected");
      std::string const member = place + "." + step.attribute + bracketed(step.key);
      if (!slot.isCollection())
         return answer(Status::refused, member, "the attribute has no members");
      if (!isLast && !slot.holdsEntities())
         return answer(Status::refused, member, "is a value and has no attributes");
      KeyBytes const key = keyFromText(slot.key->type(), step.key);
      if (!key.isGood())
         return answer(Status::refused, member, key.error);
      found.key = key.bytes;
      Packed packed;
      if (!readKey(slot, *found.key, packed))
         return answer(Status::refused, member, "not a key of this collection");
      KeyProbe const probe = Store::probe(slot, packed);
      if (!slot.holdsEntities()) {
         Table const* const members = Store::table(*found.entity, slot);
         if (!members || members->find(probe) == Table::none)
            return answer(Status::absent, member, "not there");
         return found;
      }
      Entity const* const below = Store::child(*found.entity, slot, probe);
      if (!below)
         return answer(Status::absent, member, "not there");
      found.entity = below;
      found.attribute = -1;
      found.key.reset();
   }
   return found;
}

// --- Encoding

void Tree::encodeAt(Entity const& entity, Wire::Writer& out) const {
   Store::encodeAt(entity, out);
}

void Tree::encodeScalars(Entity const& entity, Wire::Writer& out) const {
   Store::encodeScalars(entity, out);
}

void Tree::encodeAttribute(Entity const& entity, unsigned attribute, Wire::Writer& out) const {
   KEM_ASSERT(Store::slot(entity, attribute).isSingle());
   Store::encodeSet(entity, attribute, out);
}

void Tree::encodeMember(Entity const& entity, unsigned attribute, std::string_view key,
                        Wire::Writer& out) const {
   Slot const& slot = Store::slot(entity, attribute);
   std::optional<std::string_view> const value = member(entity, attribute, key);
   if (!value) {
      OperationWriter(out).erase(attribute, key);
      return;
   }
   if (!slot.holdsEntities()) {
      OperationWriter(out).put(attribute, key, *value);
      return;
   }
   Entity const& below = *child(entity, attribute, key);
   Store::encodeCreate(below, out);
   Walk walk(*this, below, Walk::Extent::deep);
   while (walk.next(out, maxFrameBytes)) {
   }
}

// --- Members

Members::Members(Tree const& tree, Entity const& entity, unsigned attribute)
    : table_(Store::table(entity, Store::slot(entity, attribute))), slot_(Store::slot(entity, attribute)) {
   KEM_ASSERT(slot_.isCollection());
}

bool Members::next() {
   while (table_ && at_ < table_->end())
      if (table_->isMember(at_++))
         return true;
   return false;
}

std::string_view Members::key() const {
   return Store::keyAt(*table_, at_ - 1, slot_, keyScratch_);
}

std::string_view Members::value() const {
   return slot_.value ? slot_.value->view(table_->value(at_ - 1), slot_.zero, valueScratch_)
                      : std::string_view();
}

Entity const* Members::entity() const {
   return slot_.holdsEntities() ? Store::entityAt(*table_, at_ - 1) : nullptr;
}

std::string selectorText(Tree const& tree, Entity const& entity) {
   return Store::selectorText(entity);
}

std::string selectorText(Tree const& tree, Entity const& entity, unsigned attribute) {
   return Store::selectorText(entity, attribute, {});
}

std::string selectorText(Tree const& tree, Entity const& entity, unsigned attribute, std::string_view key) {
   return Store::selectorText(entity, attribute, key);
}

} // namespace Ordel
