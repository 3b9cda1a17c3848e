#include "Ordel/store/Store.h"
#include "Kem/Assert.h"
#include "Ordel/store/Walk.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/OperationWriter.h"
#include "Ordel/wire/Selector.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace Ordel {

using Records::EntityType;

namespace {

std::string nameBytes(std::string_view name) {
   Wire::Writer out;
   out.string(name);
   return std::string(out.view());
}

} // namespace

std::string_view Entity::name() const {
   if (!parent_ || !isNode())
      return {};
   Wire::Reader in(textView(key_));
   return in.string();
}

Store::Store(Records::Schema const& ofSchema, bool isOfMirror) : schema(ofSchema), isMirror(isOfMirror) {
   layouts_.reserve(schema.entities.size());
   for (EntityType const& type : schema.entities)
      layouts_.emplace_back(type, codecs_);
   root = allocate(layouts_[0]);
   entityCount = 1;
   if (!isMirror)
      numberIs(*root, nextNode);
   for (Records::Place const& place : schema.places)
      (place.isCell ? cellPlaces_ : places_).insert(place.path);
}

Store::~Store() {
   KEM_ASSERT(walks.empty());
   bury();
   destroy(*root);
}

Entity* Store::allocate(Layout const& layout) {
   void* const memory = std::malloc(sizeof(Entity) + layout.initialBlock.size());
   if (!memory)
      throw std::bad_alloc();
   auto* const entity = new (memory) Entity;
   entity->type_ = &layout.type;
   entity->layout_ = &layout;
   std::memcpy(entity + 1, layout.initialBlock.data(), layout.initialBlock.size());
   return entity;
}

Table& Store::newTable(Entity& entity, Slot const& slot) {
   auto* const members = new Table(slot.shape);
   std::memcpy(place(entity, slot), &members, sizeof members);
   return *members;
}

void Store::dropTableIfEmpty(Entity& entity, Slot const& slot) {
   Table* const members = table(entity, slot);
   if (!members || members->count() > 0)
      return;
   delete members;
   std::memset(place(entity, slot), 0, sizeof members);
}

KeyProbe Store::probeOf(Entity const& entity) {
   KeyProbe probe;
   if (slot(*entity.parent_, entity.attribute_).shape.isKeyText)
      probe.text = textView(entity.key_);
   else
      probe.bits = entity.key_;
   return probe;
}

Entity* Store::child(Entity const& entity, Slot const& slot, KeyProbe const& key) {
   Table const* const members = table(entity, slot);
   if (!members)
      return nullptr;
   uint32_t const position = members->find(key);
   return position == Table::none ? nullptr : entityAt(*members, position);
}

std::string_view Store::keyOf(Entity const& entity, std::string& scratch) {
   return slot(*entity.parent_, entity.attribute_)
       .key->view(reinterpret_cast<char const*>(&entity.key_), {}, scratch);
}

std::string_view Store::keyAt(Table const& table, uint32_t position, Slot const& slot, std::string& scratch) {
   return slot.key->view(table.key(position), {}, scratch);
}

Entity& Store::create(EntityType const& type, Entity& parent, unsigned attribute, KeyProbe const& key,
                      uint32_t node) {
   Entity* const entity = allocate(layout(type));
   Slot const& slot = Store::slot(parent, attribute);
   entity->parent_ = &parent;
   entity->attribute_ = static_cast<uint8_t>(attribute);
   entity->depth_ = static_cast<uint8_t>(parent.isDirectory() ? parent.depth_ + 1 : parent.depth_);
   entity->steps_ = static_cast<uint8_t>(parent.isDirectory() ? 0 : parent.steps_ + 1);
   entity->bornIn_ = serial;
   Table& members = tableMade(parent, slot);
   bool isNew = false;
   uint32_t const position = members.findOrInsert(key, isNew);
   KEM_ASSERT(isNew);
   entity->key_ = members.keyBits(position); // a text belongs to the table
   std::memcpy(members.value(position), &entity, sizeof entity);
   ++entityCount;
   if (node)
      numberIs(*entity, node);
   fillKeyAttribute(*entity);
   bytes += bareBytes(*entity);
   if (int const keyAttribute = type.keyAttribute; keyAttribute >= 0) {
      Slot const& filled = Store::slot(*entity, static_cast<unsigned>(keyAttribute));
      bytes += valueTextBytes(filled, place(*entity, filled));
   }
   return *entity;
}

size_t Store::bareBytes(Entity const& entity) {
   Slot const& slot = Store::slot(*entity.parent_, entity.attribute_);
   return sizeof(Entity) + entity.layout_->initialBlock.size() + entityOverhead + memberBytes(slot) +
          (slot.shape.isKeyText ? textBytes(entity.key_) : 0);
}

size_t Store::bytesOf(Entity const& entity) {
   size_t sum = bareBytes(entity);
   for (Slot const& slot : entity.layout_->slots) {
      if (slot.isSingle()) {
         sum += valueTextBytes(slot, place(entity, slot));
         continue;
      }
      Table const* const members = table(entity, slot);
      if (slot.holdsEntities() || !members)
         continue;
      sum += members->count() * memberBytes(slot);
      if (!slot.shape.isKeyText && !slot.shape.isValueText)
         continue;
      for (uint32_t i = 0; i < members->end(); ++i) {
         if (!members->isMember(i))
            continue;
         sum += slot.shape.isKeyText ? textBytes(Text{members->keyBits(i)}) : 0;
         sum += valueTextBytes(slot, members->value(i));
      }
   }
   return sum;
}

size_t Store::countBytes() const {
   size_t sum = 0;
   eachBelow(*root, [&](Entity& entity) { sum += &entity == root ? 0 : bytesOf(entity); });
   return sum;
}

bool Store::isKeyFilled(Entity const& entity) {
   int const attribute = entity.type_->keyAttribute;
   if (attribute < 0 || !entity.parent_)
      return false;
   Records::ValueType const& from = slot(*entity.parent_, entity.attribute_).key->type();
   Records::ValueType const& to = slot(entity, static_cast<unsigned>(attribute)).value->type();
   return from.kind == to.kind && from.size == to.size;
}

void Store::fillKeyAttribute(Entity& entity) {
   if (!isKeyFilled(entity))
      return;
   Slot const& slot = Store::slot(entity, static_cast<unsigned>(entity.type_->keyAttribute));
   Codec const& from = *Store::slot(*entity.parent_, entity.attribute_).key;
   std::string scratch;
   std::string_view const key = keyOf(entity, scratch);
   if (slot.value->isText()) {
      Text const text = makeText(key);
      std::memcpy(place(entity, slot), &text, sizeof text);
   } else if (from.isText()) {
      std::memcpy(place(entity, slot), key.data(), slot.value->size());
   } else {
      std::memcpy(place(entity, slot), &entity.key_, slot.value->size());
   }
}

void Store::numberIs(Entity& entity, uint32_t node) {
   entity.node_ = node;
   nodes_[node] = &entity;
   if (node >= nextNode)
      nextNode = node < noMoreNodes ? node + 1 : noMoreNodes;
}

void Store::takeOut(Entity& entity) {
   Slot const& slot = Store::slot(*entity.parent_, entity.attribute_);
   Table& members = *table(*entity.parent_, slot);
   Text const key = members.eraseAndGiveKey(members.find(probeOf(entity)));
   entity.key_ = key; // a text belongs to the entity now
   dropTableIfEmpty(*entity.parent_, slot);
   eachBelow(entity, [&](Entity& below) {
      below.isErased_ = true;
      --entityCount;
      bytes -= bytesOf(below);
      if (below.node_)
         nodes_.erase(below.node_);
   });
}

void Store::putBack(Entity& entity) {
   Slot const& slot = Store::slot(*entity.parent_, entity.attribute_);
   Table& members = tableMade(*entity.parent_, slot);
   bool isNew = false;
   uint32_t const position = members.findOrInsert(probeOf(entity), isNew);
   KEM_ASSERT(isNew);
   if (slot.shape.isKeyText)
      freeText(entity.key_);
   entity.key_ = members.keyBits(position);
   Entity* const pointer = &entity;
   std::memcpy(members.value(position), &pointer, sizeof pointer);
   eachBelow(entity, [&](Entity& below) {
      below.isErased_ = false;
      ++entityCount;
      bytes += bytesOf(below);
      if (below.node_)
         nodes_[below.node_] = &below;
   });
}

// Frees what the entity holds and the entity. Texts of keys belong to the
// tables, that of a top one to itself.
void Store::destroy(Entity& entity) {
   if (entity.parent_ && entity.isErased_ && slot(*entity.parent_, entity.attribute_).shape.isKeyText)
      freeText(entity.key_);
   for (Slot const& slot : entity.layout_->slots) {
      if (slot.holdsEntities())
         eachChild(entity, slot, [&](Entity& below) {
            below.isErased_ = false; // its key goes with the table
            destroy(below);
         });
      if (slot.isCollection()) {
         delete table(entity, slot);
      } else if (slot.value->isText()) {
         Text text;
         std::memcpy(&text, place(entity, slot), sizeof text);
         freeText(text);
      }
   }
   entity.~Entity();
   std::free(&entity);
}

// In the order of erasing: the parent of one is needed to end it, and may have been erased after it.
void Store::bury() {
   for (Entity* entity : graveyard_)
      destroy(*entity);
   graveyard_.clear();
}

void Store::entityCreated(Entity const& entity) {
   for (Walk* walk : walks)
      walk->entityCreated(entity);
}

void Store::entityErased(Entity& entity) {
   if (!walks.empty())
      eachBelow(entity, [&](Entity& below) {
         for (Walk* walk : walks)
            walk->entityErased(below);
      });
}

Entity* Store::node(uint32_t number) const {
   auto const found = nodes_.find(number);
   return found == nodes_.end() ? nullptr : found->second;
}

Entity* Store::reachStep(Entity const& directory, std::string_view name) const {
   if (!directory.isDirectory())
      return nullptr;
   std::string const key = nameBytes(name);
   return child(directory, slot(directory, dirEntities), {0, key});
}

Entity* Store::reach(std::string_view path, std::string_view& rest) const {
   Entity* at = root;
   rest = path;
   while (!rest.empty()) {
      size_t const slash = rest.find('/');
      std::string_view const name = rest.substr(0, slash);
      if (slash == rest.size() - 1)
         return at; // a path has no slash at its end
      Entity* const next = reachStep(*at, name);
      if (!next)
         return at;
      at = next;
      rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
   }
   return at;
}

void Store::remember(Entity const& entity) {
   if (entity.isNode() && entity.parent_)
      former_.add(entity.node_, entity.parent_->node_, entity.name(), entity.type_->id);
}

EntityType const* Store::formerType(uint32_t node) const {
   auto const type = former_.type(node);
   return type ? &schema.entities[*type] : nullptr;
}

EntityType const* Store::formerType(uint32_t directory, std::string_view name) const {
   auto const type = former_.type(directory, name);
   return type ? &schema.entities[*type] : nullptr;
}

std::string Store::path(Entity const& entity) {
   Entity const& top = entity.nodeEntity();
   if (!top.parent_)
      return {};
   std::string path = Store::path(*top.parent_);
   if (!path.empty())
      path += '/';
   return path.append(top.name());
}

bool Store::isDeclared(Entity const& entity) const {
   if (!entity.isNode())
      return false;
   std::string const place = path(entity);
   if (places_.contains(place))
      return true;
   // "cell", "cell/1", and what is below it.
   std::string_view rest = place;
   if (rest != "cell" && !rest.starts_with("cell/"))
      return false;
   rest.remove_prefix(std::min(rest.size(), std::string_view("cell/").size()));
   size_t const number = std::min(rest.find_first_not_of("0123456789"), rest.size());
   if (number > 0 && number < rest.size() && rest[number] == '/')
      return cellPlaces_.contains(rest.substr(number + 1));
   bool holdsOne = false;
   if (number == rest.size())
      eachChild(entity, layout(entity).slots[dirEntities],
                [&](Entity const& below) { holdsOne = holdsOne || isDeclared(below); });
   return holdsOne;
}

void Store::encodeAt(Entity const& entity, Wire::Writer& out) {
   OperationWriter write(out);
   write.at(entity.nodeEntity().node_, entity.steps_);
   Entity const* way[maxStepCount];
   size_t count = 0;
   for (Entity const* at = &entity; !at->isNode(); at = at->parent_)
      way[count++] = at;
   std::string scratch;
   while (count-- > 0)
      write.step(way[count]->attribute_, keyOf(*way[count], scratch));
}

void Store::encodeCreate(Entity const& entity, Wire::Writer& out) {
   std::string scratch;
   std::string_view const key = keyOf(entity, scratch);
   if (entity.isNode())
      OperationWriter(out).createNode(key, entity.type_->id, entity.node_);
   else
      OperationWriter(out).create(entity.attribute_, key, entity.type_->id);
}

void Store::encodeSet(Entity const& entity, unsigned attribute, Wire::Writer& out) {
   Slot const& slot = Store::slot(entity, attribute);
   std::string scratch;
   std::string_view const value = slot.value->view(place(entity, slot), slot.zero, scratch);
   OperationWriter(out).set(attribute, value);
}

bool Store::isTold(Entity const& entity, Slot const& slot) {
   if (!slot.isSingle() || (slot.isKey && isKeyFilled(entity)))
      return false;
   char const* const initial = entity.layout_->initialBlock.data() + slot.offset;
   return std::memcmp(place(entity, slot), initial, slot.value->size()) != 0;
}

bool Store::hasScalars(Entity const& entity) {
   for (Slot const& slot : entity.layout_->slots)
      if (isTold(entity, slot))
         return true;
   return false;
}

void Store::encodeScalars(Entity const& entity, Wire::Writer& out) {
   auto const& slots = entity.layout_->slots;
   for (unsigned i = 0; i < slots.size(); ++i)
      if (isTold(entity, slots[i]))
         encodeSet(entity, i, out);
}

std::string Store::selectorText(Entity const& entity) {
   if (entity.isNode()) {
      std::string const path = Store::path(entity);
      return path.empty() ? "/" : path;
   }
   std::string scratch;
   return selectorText(*entity.parent_, entity.attribute_, keyOf(entity, scratch));
}

std::string Store::selectorText(Entity const& entity, unsigned attribute, std::string_view key) {
   Slot const& slot = Store::slot(entity, attribute);
   std::string text = selectorText(entity);
   text += '.';
   text += slot.attribute->name;
   if (slot.isCollection() && !key.empty())
      text += bracketed(keyText(slot.key->type(), key));
   return text;
}

} // namespace Ordel
