#include "Ordel/Applier.h"
#include "Ordel/KeyText.h"
#include "Ordel/Operations.h"
#include "Ordel/Selector.h"

#include <algorithm>
#include <cstring>

namespace Ordel {

using Records::EntityType;
using Records::Form;

namespace {

constexpr size_t keptBytes = 8u << 20; // buffers above it are given back after a block

template <class Buffer>
void clearBuffer(Buffer& buffer) {
   buffer.clear();
   if (buffer.capacity() * sizeof(typename Buffer::value_type) > keptBytes)
      Buffer().swap(buffer);
}

} // namespace

Applied const& Applier::apply(std::string_view operations, uint8_t flags) {
   store_.bury();
   isStrict_ = flags & writeStrict;
   nextNodeBefore_ = store_.nextNode;
   run(operations);
   if (applied_.isDone())
      commit();
   else
      rollBack();
   applied_.bytes = out_.view();
   applied_.groups = groups_;
   applied_.nodes = nodes_;
   applied_.isNew = isNew_;
   clearBuffer(undo_);
   clearBuffer(keyBytes_);
   clearBuffer(oldBytes_);
   return applied_;
}

Applied const& Applier::load(std::string_view operations) {
   isStrict_ = true;
   isLoading_ = true;
   run(operations);
   isLoading_ = false;
   return applied_;
}

void Applier::run(std::string_view operations) {
   applied_ = {};
   if (out_.capacity() > keptBytes) {
      out_.clear();
      out_.shrink();
   }
   out_.clear();
   clearBuffer(groups_);
   clearBuffer(nodes_);
   clearBuffer(isNew_);
   target_ = {};
   isGroupOpen_ = false;
   runBegin_ = nullptr;
   blockBegin_ = operations.data();
   ++store_.serial;

   Wire::Reader in(operations);
   while (!in.done() && applied_.isDone()) {
      char const* const begin = in.position();
      auto const op = static_cast<Op>(in.u8());
      if (op == Op::at) {
         closeGroup(begin);
         readAt(in);
      } else if (!target_.layout && !target_.isUnknown) {
         refuseMalformed("an operation before any entity was named");
      } else if (target_.isUnknown) {
         refuse(target_.place, "not there", Status::absent);
      } else {
         switch (op) {
         case Op::set:
            readSet(in, begin);
            break;
         case Op::put:
            readPut(in, begin);
            break;
         case Op::erase:
            readErase(in, begin);
            break;
         case Op::create:
            readCreate(in, begin);
            break;
         default:
            refuseMalformed("no operation has the number " + std::to_string(static_cast<unsigned>(op)));
         }
      }
      if (!in.good() && applied_.isDone())
         refuseMalformed("the operations end in the middle of one");
   }
   if (applied_.isDone())
      closeGroup(in.position());
}

// --- Whom the operations are said of
// ----------------------------------------------------------------------------

void Applier::readAt(Wire::Reader& in) {
   uint32_t const number = in.u32();
   unsigned const steps = in.u8();
   if (!in.good())
      return;
   target_.isUnknown = false;
   target_.place.clear();
   target_.entity = store_.node(number);
   if (target_.entity) {
      target_.layout = &Store::layout(*target_.entity);
   } else {
      EntityType const* const former = store_.formerType(number);
      std::string const text = "node " + std::to_string(number);
      if (!former) {
         refuse(text, "there never was one of this number");
         return;
      }
      target_.place = text;
      target_.layout = &store_.layout(*former);
   }
   if (steps > maxStepCount) {
      refuse(place(), "more than " + std::to_string(maxStepCount) + " steps below a node");
      return;
   }
   for (unsigned i = 0; i < steps; ++i)
      if (!stepInto(in))
         return;
   if (!target_.entity)
      notThere(target_.place);
}

// One step down. False after a refusal, and where the rest of the operation can't be read.
bool Applier::stepInto(Wire::Reader& in) {
   if (target_.isUnknown) {
      refuse(target_.place, "not there", Status::absent);
      return false;
   }
   Slot const* const slot = readSlot(in);
   if (!slot)
      return false;
   if (!slot->holdsEntities()) {
      refuse(place(slot), "holds no entities");
      return false;
   }
   Packed key;
   if (!readKey(in, *slot, key))
      return false;
   if (target_.entity) {
      if (Entity* const below = Store::child(*target_.entity, *slot, Store::probe(*slot, key))) {
         target_.entity = below;
         target_.layout = &Store::layout(*below);
         return true;
      }
   }
   // Not there. What is said of it has to be read over all the same, by the type that it had.
   std::string const text = place(slot, &key);
   if (target_.layout->type.isDirectory()) {
      Wire::Reader name(key.view());
      uint32_t const directory = target_.entity ? target_.entity->node() : 0;
      EntityType const* const former = store_.formerType(directory, name.string());
      target_.isUnknown = !former;
      target_.layout = former ? &store_.layout(*former) : nullptr;
   } else {
      target_.layout = &store_.layout(*slot->attribute->target);
   }
   target_.entity = nullptr;
   target_.place = text;
   return true;
}

// An attribute beyond those of the declared type: that of the derived types, when all that have one agree.
Slot const* Applier::slotOfDerived(Layout const& layout, unsigned attribute) const {
   Slot const* found = nullptr;
   for (EntityType const& type : store_.schema.entities) {
      if (!type.isA(layout.type) || attribute >= type.attributes.size())
         continue;
      Slot const& slot = store_.layout(type).slots[attribute];
      if (found && (found->form != slot.form || found->key != slot.key || found->value != slot.value))
         return nullptr;
      found = &slot;
   }
   return found;
}

Slot const* Applier::readSlot(Wire::Reader& in) {
   unsigned const attribute = in.u8();
   if (!in.good())
      return nullptr;
   if (attribute < target_.layout->slots.size())
      return &target_.layout->slots[attribute];
   if (!target_.entity) {
      Slot const* const slot = slotOfDerived(*target_.layout, attribute);
      if (!slot)
         refuse(target_.place, "not there", Status::absent);
      return slot;
   }
   refuse(place(), std::string(target_.layout->type.name) + " has no attribute of number " +
                       std::to_string(attribute));
   return nullptr;
}

bool Applier::readKey(Wire::Reader& in, Slot const& slot, Packed& key) {
   Wire::Reader const before = in;
   if (slot.key->read(in, key))
      return true;
   Wire::Reader again = before;
   Problem const problem = slot.key->explain(again.raw(again.remaining()));
   if (problem.isMalformed) {
      refuseMalformed(place(&slot) + ": the key: " + problem.reason);
      return false;
   }
   // The text of the key that is refused stands in the place, so it is read over once more without its
   // checks.
   skipValue(slot.key->type(), again = before);
   std::string_view const bytes(before.position(), static_cast<size_t>(again.position() - before.position()));
   std::string const text = bytes.size() <= maxNameBytes ? keyText(slot.key->type(), bytes) : "...";
   refuse(place(&slot) + bracketed(text) + problem.field, problem.reason);
   return false;
}

bool Applier::readValue(Wire::Reader& in, Slot const& slot, Packed const* key, Packed& value) {
   Wire::Reader before = in;
   if (slot.value->read(in, value))
      return true;
   Problem const problem = slot.value->explain(before.raw(before.remaining()));
   if (problem.isMalformed)
      refuseMalformed(place(&slot, key) + problem.field + ": " + problem.reason);
   else
      refuse(place(&slot, key) + problem.field, problem.reason);
   return false;
}

// --- The operations
// ---------------------------------------------------------------------------------------------

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
   if (isLoading_) {
      freeText(slot->value->isText() ? displace(*slot, at) : 0);
   } else {
      auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
      record(Undone::set, entity, attribute, 0, displace(*slot, at));
   }
   store(entity, *slot, at, value);
   effective(in, begin);
}

void Applier::readPut(Wire::Reader& in, char const* begin) {
   Slot const* const slot = readSlot(in);
   if (!slot)
      return;
   if (slot->form != Form::map && slot->form != Form::references) {
      refuse(place(slot), slot->holdsEntities() ? "holds entities, which are created" : "is no collection");
      return;
   }
   Packed key, value;
   if (!readKey(in, *slot, key) || !readValue(in, *slot, &key, value))
      return;
   if (!target_.entity) {
      dropped(begin);
      return;
   }
   Entity& entity = *target_.entity;
   Table& members = Store::tableMade(entity, *slot);
   bool isNew = false;
   KeyProbe const probe = Store::probe(*slot, key);
   uint32_t const position = members.findOrInsert(probe, isNew);
   char* const at = members.value(position);
   if (!isNew && isStored(*slot, at, value)) {
      dropped(begin);
      return;
   }
   if (!isLoading_) {
      auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
      record(isNew ? Undone::put : Undone::replaced, entity, attribute, keepKey(*slot, probe),
             isNew ? 0 : displace(*slot, at));
   } else if (!isNew && slot->value->isText()) {
      freeText(displace(*slot, at));
   }
   store(entity, *slot, at, value);
   effective(in, begin, isNew);
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
   effective(in, begin); // before the change: it names the entity by what still stands
   if (slot->holdsEntities()) {
      erase(*Store::entityAt(*members, position));
      return;
   }
   auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
   record(Undone::erased, entity, attribute, keepKey(*slot, probe),
          displace(*slot, members->value(position)));
   if (slot->value->isText())
      std::memset(members->value(position), 0, sizeof(Text)); // its text stands in the log
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
   if (standing)
      erase(*standing);

   auto const attribute = static_cast<unsigned>(slot - Store::layout(entity).slots.data());
   bool const getsNumber = isInDirectory && node == 0 && !store_.isMirror;
   Entity& made = store_.create(type, entity, attribute, probe, getsNumber ? store_.nextNode : node);
   if (isLoading_)
      return;
   record(Undone::created, made, attribute, 0, 0);
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
   record(Undone::takenOut, entity, 0, 0, 0);
}

// --- Values
// -----------------------------------------------------------------------------------------------------

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

// What stands there, for the log: a text is moved, so the place must be overwritten.
uint64_t Applier::displace(Slot const& slot, char const* place) {
   size_t const size = slot.value->size();
   if (size <= sizeof(uint64_t))
      return loadBytes(place, size);
   uint64_t const old = oldBytes_.size();
   oldBytes_.append(place, size);
   return old;
}

void Applier::restore(Slot const& slot, char* place, uint64_t old) {
   size_t const size = slot.value->size();
   std::memcpy(place, size <= sizeof old ? reinterpret_cast<char const*>(&old) : oldBytes_.data() + old,
               size);
}

// --- What takes effect
// ------------------------------------------------------------------------------------------

void Applier::openGroup() {
   if (isGroupOpen_)
      return;
   isGroupOpen_ = true;
   Group group{target_.entity, out_.size(), 0, 0, isNew_.size() - 1};
   Store::encodeAt(*target_.entity, out_);
   group.body = out_.size();
   groups_.push_back(group);
}

void Applier::effective(Wire::Reader const& in, char const* begin, bool isNew) {
   if (!isLoading_)
      isNew_.push_back(isNew);
   if (runBegin_ || isLoading_)
      return;
   openGroup();
   runBegin_ = begin;
}

void Applier::dropped(char const* begin) {
   flushRun(begin);
}

void Applier::flushRun(char const* end) {
   if (!runBegin_)
      return;
   out_.raw(runBegin_, static_cast<size_t>(end - runBegin_));
   runBegin_ = nullptr;
}

void Applier::closeGroup(char const* end) {
   flushRun(end);
   if (isGroupOpen_)
      groups_.back().end = out_.size();
   isGroupOpen_ = false;
}

// --- Refusals
// ---------------------------------------------------------------------------------------------------

// True when the operation may be dropped.
bool Applier::notThere(std::string const& where) {
   if (isStrict_)
      refuse(where, "not there", Status::absent);
   return !isStrict_;
}

void Applier::refuse(std::string const& where, std::string_view reason, Status status) {
   applied_.status = status;
   applied_.error = where + ": ";
   applied_.error += reason;
}

void Applier::refuseMalformed(std::string_view reason) {
   applied_.status = Status::refused;
   applied_.isMalformed = true;
   applied_.error = reason;
}

std::string Applier::place(Slot const* slot, Packed const* key) const {
   std::string text = target_.entity ? Store::selectorText(*target_.entity) : target_.place;
   if (!slot)
      return text;
   std::string const keyPart =
       key ? keyText(slot->key->type(),
                     [&] {
                        std::string scratch;
                        return std::string(slot->key->isText() ? key->view()
                                                               : slot->key->view(key->bytes, {}, scratch));
                     }())
           : std::string();
   // An entity in a directory is named by its path.
   if (key && target_.layout->type.isDirectory() && !badName(keyPart)) {
      if (text == "/")
         return keyPart;
      return text + "/" + keyPart;
   }
   text += ".";
   text += slot->attribute->name;
   if (key)
      text += bracketed(keyPart);
   return text;
}

// --- Taking back
// ------------------------------------------------------------------------------------------------

// Of a text its place in keyBytes_: where it begins and how long it is.
uint64_t Applier::keepKey(Slot const& slot, KeyProbe const& key) {
   if (!slot.shape.isKeyText)
      return key.bits;
   uint64_t const kept = uint64_t{keyBytes_.size()} << 32 | key.text.size();
   keyBytes_.append(key.text);
   return kept;
}

KeyProbe Applier::keptKey(Slot const& slot, uint64_t kept) const {
   if (!slot.shape.isKeyText)
      return {kept, {}};
   return {0, std::string_view(keyBytes_).substr(kept >> 32, kept & UINT32_MAX)};
}

void Applier::record(Undone what, Entity& entity, unsigned attribute, uint64_t key, uint64_t old) {
   undo_.push_back({what, static_cast<uint8_t>(attribute), &entity, key, old});
}

void Applier::rollBack() {
   for (size_t i = undo_.size(); i-- > 0;) {
      Undo const& undo = undo_[i];
      Entity& entity = *undo.entity;
      if (undo.what == Undone::created) {
         store_.takeOut(entity);
         store_.destroy(entity);
         continue;
      }
      if (undo.what == Undone::takenOut) {
         store_.putBack(entity);
         continue;
      }
      Slot const& slot = Store::slot(entity, undo.attribute);
      auto const freeNew = [&](char* at) {
         if (slot.value->isText())
            freeText(displace(slot, at));
      };
      if (undo.what == Undone::set) {
         char* const at = Store::place(entity, slot);
         freeNew(at);
         restore(slot, at, undo.old);
         continue;
      }
      KeyProbe const key = keptKey(slot, undo.key);
      if (undo.what == Undone::put) {
         Table& members = *Store::table(entity, slot);
         members.erase(members.find(key));
         Store::dropTableIfEmpty(entity, slot);
         continue;
      }
      Table& members = Store::tableMade(entity, slot);
      bool isNew = false;
      char* const at = members.value(members.findOrInsert(key, isNew));
      if (!isNew)
         freeNew(at);
      restore(slot, at, undo.old);
   }
   store_.nextNode = nextNodeBefore_;
   out_.clear();
   groups_.clear();
   nodes_.clear();
   isNew_.clear();
}

void Applier::commit() {
   for (Undo const& undo : undo_) {
      if (undo.what == Undone::takenOut) {
         store_.buryLater(*undo.entity);
         store_.entityErased(*undo.entity);
         continue;
      }
      if (undo.what == Undone::created)
         store_.entityCreated(*undo.entity);
      if (undo.what == Undone::created || undo.what == Undone::put)
         continue;
      if (Store::slot(*undo.entity, undo.attribute).value->isText())
         freeText(undo.old);
   }
}

} // namespace Ordel
