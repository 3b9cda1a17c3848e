// The four operations: each is read and checked, changes the store, and leaves in the log what it displaced.
#include "Ordel/store/Applier.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Selector.h"

#include <cstring>

namespace Ordel {

using Records::EntityType;
using Records::Form;

void Applier::readSet(Wire::Reader& in, char const* begin) {
   Slot const* const slot = readSlot(in);
   if (!slot)
      return;
   if (!slot->isSingle()) {
      refuse(place(slot), "a collection can't be set");
      return;
   }
   Packed value;
   if (!readValue(in, *slot, nullptr, value))
      return;
   if (!target_.entity) {
      dropped(begin);
      return;
   }
   Entity& entity = *target_.entity;
   char* const at = Store::place(entity, *slot);
   if (isStored(*slot, at, value)) {
      dropped(begin);
      return;
   }
   bool const isFixed = slot->isKey && Store::isKeyFilled(entity);
   if (isFixed || (slot->isInput && Store::bornIn(entity) != store_.serial && !store_.isMirror)) {
      refuse(place(slot), "is given at creation");
      return;
   }
   size_t const bytesBefore = Store::valueTextBytes(*slot, at);
   if (isLoading_) {
      freeText(slot->value->isText() ? undo_.displace(*slot, at) : 0);
   } else {
      auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
      undo_.record(Undone::set, entity, attribute, 0, undo_.displace(*slot, at));
   }
   store(entity, *slot, at, value);
   if (grow(bytesBefore, Store::valueTextBytes(*slot, at), slot, nullptr))
      effective(begin);
}

// Takes all that follow each other of one collection: what is the same for all of them is looked up once.
void Applier::readPut(Wire::Reader& in, char const* begin) {
   Slot const* const slot = readSlot(in);
   if (!slot)
      return;
   if (slot->form != Form::map && slot->form != Form::references) {
      refuse(place(slot), slot->holdsEntities() ? "holds entities, which are created" : "is no collection");
      return;
   }
   auto const attribute = static_cast<unsigned>(static_cast<uint8_t>(begin[1]));
   Table* members = nullptr;
   uint32_t expected = 0; // of the row
   while (readOnePut(in, begin, *slot, attribute, members, expected)) {
      char const* const next = in.position();
      if (in.remaining() < 2 || std::memcmp(next, begin, 2) != 0) {
         if (members)
            members->trim();
         return;
      }
      if (expected-- <= 1)
         expected = countAlike(next, in.remaining(), static_cast<size_t>(next - begin));
      begin = next;
      in.u16();
   }
}

// The row goes on for so many operations, as far as can be told from the size of the last one. At least 1.
uint32_t Applier::countAlike(char const* at, size_t remaining, size_t stride) {
   uint32_t count = 1;
   for (size_t next = stride; next + 2 <= remaining && count < Table::maxExpected; next += stride, ++count)
      if (std::memcmp(at + next, at, 2) != 0)
         break;
   return count;
}

// False when it was refused.
bool Applier::readOnePut(Wire::Reader& in, char const* begin, Slot const& slot, unsigned attribute,
                         Table*& members, uint32_t expected) {
   Packed key, value;
   if (!readKey(in, slot, key))
      return false;
   char const* const valueBegin = in.position();
   if (!readValue(in, slot, &key, value))
      return false;
   if (!isUnderItsKey(slot, key, valueBegin)) {
      Records::Field const& field = slot.value->type().fields.front();
      refuse(place(&slot, &key) + "." + std::string(field.name),
             keyText(*field.type, {valueBegin, field.type->size}) + " differs from the key");
      return false;
   }
   if (!target_.entity) {
      dropped(begin);
      return true;
   }
   Entity& entity = *target_.entity;
   if ((slot.isMulticast || slot.apart >= 0) && !takesKey(entity, slot, key))
      return false;
   if (!members)
      members = &Store::tableMade(entity, slot);
   bool isNew = false;
   KeyProbe const probe = Store::probe(slot, key);
   uint32_t const position = members->findOrInsert(probe, isNew, expected);
   char* const at = members->value(position);
   if (!isNew && isStored(slot, at, value)) {
      dropped(begin);
      return true;
   }
   size_t const bytesBefore = isNew ? 0 : Store::valueTextBytes(slot, at);
   if (isNew && !isLoading_)
      undo_.recordPut(entity, attribute, begin, in.position());
   else if (!isLoading_)
      undo_.record(Undone::replaced, entity, attribute, undo_.keepKey(slot, probe), undo_.displace(slot, at));
   else if (!isNew && slot.value->isText())
      freeText(undo_.displace(slot, at));
   store(entity, slot, at, value);
   if (!grow(bytesBefore, Store::valueTextBytes(slot, at) + (isNew ? Store::memberBytes(slot, probe) : 0),
             &slot, &key))
      return false;
   effective(begin, isNew);
   return true;
}

void Applier::readErase(Wire::Reader& in, char const* begin) {
   Slot const* const slot = readSlot(in);
   if (!slot)
      return;
   if (!slot->isCollection() || isLoading_) {
      refuse(place(slot), isLoading_ ? "a snapshot erases nothing" : "is no collection");
      return;
   }
   Packed key;
   if (!readKey(in, *slot, key))
      return;
   if (!target_.entity) {
      dropped(begin);
      return;
   }
   Entity& entity = *target_.entity;
   KeyProbe const probe = Store::probe(*slot, key);
   Table* const members = Store::table(entity, *slot);
   uint32_t const position = members ? members->find(probe) : Table::none;
   if (position == Table::none) {
      if (notThere(isStrict_ ? place(slot, &key) : std::string()))
         dropped(begin);
      return;
   }
   if (slot->holdsEntities() && !store_.isMirror)
      if (Entity const& below = *Store::entityAt(*members, position); store_.isDeclared(below)) {
         refuse(place(slot, &key), "is a place of the schema and can't be deleted");
         return;
      }
   effective(begin); // before the change: it names the entity by what still stands
   if (slot->holdsEntities()) {
      erase(*Store::entityAt(*members, position));
      return;
   }
   store_.bytes -= Store::memberBytes(*slot, probe) + Store::valueTextBytes(*slot, members->value(position));
   auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
   undo_.record(Undone::erased, entity, attribute, undo_.keepKey(*slot, probe),
                undo_.displace(*slot, members->value(position)));
   if (slot->value->isText())
      std::memset(members->value(position), 0, sizeof(Text)); // its text is in the log
   members->erase(position);
   Store::dropTableIfEmpty(entity, *slot);
}

void Applier::readCreate(Wire::Reader& in, char const* begin) {
   Slot const* const slot = readSlot(in);
   if (!slot)
      return;
   if (!slot->holdsEntities()) {
      refuse(place(slot), "holds no entities");
      return;
   }
   Packed key;
   if (!readKey(in, *slot, key))
      return;
   bool const isInDirectory = target_.layout->type.isDirectory();
   uint16_t const typeId = in.u16();
   uint32_t const node = isInDirectory ? in.u32() : 0;
   if (!in.good())
      return;
   if (typeId >= store_.schema.entities.size()) {
      refuse(place(slot, &key), "there is no type of number " + std::to_string(typeId));
      return;
   }
   EntityType const& type = store_.schema.entities[typeId];
   if (isInDirectory) {
      Wire::Reader name(key.view());
      if (char const* reason = badName(name.string())) {
         refuse(place(slot, &key), reason);
         return;
      }
      if (isLoading_ ? node == 0 || node >= store_.nextNode : !store_.isMirror && node != 0) {
         refuse(place(slot, &key), "the number of a node is given by the database");
         return;
      }
   } else if (!type.isA(*slot->attribute->target)) {
      refuse(place(slot, &key), std::string(type.name) + " can't stand where " +
                                    std::string(slot->attribute->target->name) + " is declared");
      return;
   }
   if (!target_.entity) {
      dropped(begin);
      return;
   }

   Entity& entity = *target_.entity;
   KeyProbe const probe = Store::probe(*slot, key);
   Entity* const standing = Store::child(entity, *slot, probe);
   bool const isOfOtherNumber = standing && node != 0 && standing->node() != 0 && standing->node() != node;
   if (standing && !isOfOtherNumber && &standing->type() == &type) {
      if (node != 0 && standing->node() == 0)
         store_.numberIs(*standing, node); // a mirror learns the number of what it passed on the way
      dropped(begin);
      return;
   }
   if (standing && !(store_.isMirror && isOfOtherNumber)) {
      refuse(place(slot, &key),
             "is a " + std::string(standing->type().name) + " and can't become a " + std::string(type.name));
      return;
   }
   if (node != 0 && store_.node(node)) {
      refuse(place(slot, &key),
             "number " + std::to_string(node) + " belongs to " + Store::selectorText(*store_.node(node)));
      return;
   }
   if (isInDirectory ? Store::depth(entity) + type.isDirectory() > maxPathDepth
                     : Store::steps(entity) >= maxStepCount) {
      refuse(place(slot, &key), "too deep");
      return;
   }
   bool const getsNumber = isInDirectory && node == 0 && !store_.isMirror;
   if (getsNumber && store_.nextNode == Store::noMoreNodes) {
      refuse(place(slot, &key), "the database has given all numbers of nodes");
      return;
   }
   if (!isLoading_ && !store_.isMirror && ++creationCount_ > maxCreationsPerWrite) {
      refuse(place(slot, &key),
             "more than " + std::to_string(maxCreationsPerWrite) + " entities are created in one write");
      return;
   }
   if (!takesKey(entity, *slot, key))
      return;
   if (standing)
      erase(*standing);

   auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
   Entity& made = store_.create(type, entity, attribute, probe, getsNumber ? store_.nextNode : node);
   if (isLoading_)
      return;
   undo_.record(Undone::created, made, attribute, 0, 0);
   if (!isWithinLimit(slot, &key))
      return;
   if (made.isNode())
      nodes_.push_back({&made, true});
   dropped(begin); // passed on with the number that the node has now
   isNew_.push_back(true);
   openGroup();
   Store::encodeCreate(made, out_);
}

void Applier::erase(Entity& entity) {
   Store::eachBelow(entity, [&](Entity& below) {
      if (!below.isNode())
         return;
      store_.remember(below);
      nodes_.push_back({&below, false});
   });
   store_.takeOut(entity);
   undo_.record(Undone::takenOut, entity, 0, 0, 0);
}

bool Applier::grow(size_t before, size_t now, Slot const* slot, Packed const* key) {
   store_.bytes += now - before;
   return now <= before || isWithinLimit(slot, key);
}

bool Applier::isWithinLimit(Slot const* slot, Packed const* key) {
   if (store_.bytes <= store_.byteLimit || isLoading_) [[likely]]
      return true;
   refuse(place(slot, key),
          "the database is full: the tree may hold " + std::to_string(store_.byteLimit >> 20) + " MiB");
   return false;
}

// --- Keys

bool Applier::takesKey(Entity& entity, Slot const& slot, Packed const& key) {
   if (slot.isMulticast && !(key.bytes[0] & 1)) {
      refuse(place(&slot, &key), "is no multicast address");
      return false;
   }
   // What a mirror is told is in order as a whole, but not in every order of its parts.
   if (slot.apart < 0 || store_.isMirror)
      return true;
   Slot const& other = Store::layout(entity).slots[static_cast<size_t>(slot.apart)];
   Table const* const members = Store::table(entity, other);
   KeyProbe const probe = Store::probe(other, key); // the same in both, which have keys of one type
   if (members && members->find(probe) != Table::none)
      sharedKeys_.push_back({&entity, &slot, probe, place(&slot, &key)});
   return true;
}

void Applier::refuseSharedKeys() {
   for (SharedKey const& shared : sharedKeys_) {
      Slot const& other = Store::layout(*shared.entity).slots[static_cast<size_t>(shared.slot->apart)];
      auto const has = [&](Slot const& slot) {
         Table const* const members = Store::table(*shared.entity, slot);
         return members && members->find(shared.key) != Table::none;
      };
      if (shared.entity->isErased() || !has(*shared.slot) || !has(other))
         continue;
      refuse(shared.place, "is in " + std::string(other.attribute->name) + " too");
      return;
   }
}

// --- Values

// A value that has a field for its key has the right one in it. `value` is its wire form.
bool Applier::isUnderItsKey(Slot const& slot, Packed const& key, char const* value) {
   if (slot.form != Form::map || !slot.value->type().hasKey)
      return true;
   // Both are of the same type, of fixed size, which is kept as it is on the wire.
   return areEqualBytes(key.bytes, value, key.size);
}

bool Applier::isStored(Slot const& slot, char const* place, Packed const& value) const {
   if (!slot.value->isText())
      return areEqualBytes(place, value.bytes, value.size);
   Text text;
   std::memcpy(&text, place, sizeof text);
   return (text ? textView(text) : slot.zero) == value.view();
}

void Applier::store(Entity& entity, Slot const& slot, char* place, Packed const& value) {
   if (!slot.value->isText()) {
      copyBytes(place, value.bytes, value.size);
      return;
   }
   Text const text = value.view() == slot.zero ? 0 : makeText(value.view());
   std::memcpy(place, &text, sizeof text);
}

} // namespace Ordel
