#include "Ordel/store/Applier.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/Operations.h"
#include "Ordel/wire/Selector.h"

#include <algorithm>
#include <cstring>

namespace Ordel {

using Records::EntityType;

Applied const& Applier::apply(std::string_view operations, uint8_t flags) {
   store_.bury();
   isStrict_ = flags & writeStrict;
   undo_.begin();
   run(operations);
   if (applied_.isDone()) {
      undo_.commit();
   } else {
      undo_.rollBack();
      out_.clear();
      groups_.clear();
      nodes_.clear();
      isNew_.clear();
   }
   applied_.bytes = out_.view();
   applied_.groups = groups_;
   applied_.nodes = nodes_;
   applied_.isNew = isNew_;
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
   if (out_.capacity() > UndoLog::keptBytes) {
      out_.clear();
      out_.shrink();
   }
   out_.clear();
   UndoLog::clearBuffer(groups_);
   UndoLog::clearBuffer(nodes_);
   UndoLog::clearBuffer(isNew_);
   sharedKeys_.clear();
   target_ = {};
   creationCount_ = 0;
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
      refuseSharedKeys();
   if (applied_.isDone())
      closeGroup(in.position());
}

// --- Whom the operations are said of

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
      target_.place = "node " + std::to_string(number);
      if (!former && (number == 0 || number >= store_.nextNode || store_.isMirror || isLoading_)) {
         refuse(target_.place, "there never was one of this number");
         return;
      }
      target_.isUnknown = !former; // erased so long ago that its type is forgotten
      target_.layout = former ? &store_.layout(*former) : nullptr;
   }
   if (steps > maxStepCount) {
      refuse(place(), "more than " + std::to_string(maxStepCount) + " steps below a node");
      return;
   }
   for (unsigned i = 0; i < steps; ++i)
      if (!stepInto(in))
         return;
   if (!target_.entity && !target_.isUnknown)
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

// Says why a key was not taken, which begins with the bytes. False, as what it answers for.
bool Applier::refuseKey(std::string_view bytes, Slot const& slot) {
   Problem const problem = slot.key->explain(bytes);
   if (problem.isMalformed) {
      refuseMalformed(place(&slot) + ": the key: " + problem.reason);
      return false;
   }
   // The text of the key that is refused is in the place, so it is read
   // over once more without its checks.
   Wire::Reader again(bytes);
   skipValue(slot.key->type(), again);
   std::string_view const key = bytes.substr(0, static_cast<size_t>(again.position() - bytes.data()));
   std::string const text = key.size() <= maxNameBytes ? keyText(slot.key->type(), key) : "...";
   refuse(place(&slot) + bracketed(text) + problem.field, problem.reason);
   return false;
}

bool Applier::refuseValue(std::string_view bytes, Slot const& slot, Packed const* key) {
   Problem const problem = slot.value->explain(bytes);
   if (problem.isMalformed)
      refuseMalformed(place(&slot, key) + problem.field + ": " + problem.reason);
   else
      refuse(place(&slot, key) + problem.field, problem.reason);
   return false;
}

// --- What takes effect

void Applier::openGroup() {
   if (isGroupOpen_)
      return;
   isGroupOpen_ = true;
   Group group{target_.entity, out_.size(), 0, 0, isNew_.size() - 1};
   Store::encodeAt(*target_.entity, out_);
   group.body = out_.size();
   groups_.push_back(group);
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

} // namespace Ordel
