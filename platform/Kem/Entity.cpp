#include "Kem/Entity.h"

#include "Kem/Assert.h"
#include "Kem/Brackets.h"
#include "Kem/Notifiee.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace Kem {

// The reactors of one entity, in the order in which they were bound, and what any of them wants.
struct Entity::Followers {
   uint64_t interests = 0;
   std::vector<Notifiee*> reactors;

   void sum() {
      interests = 0;
      for (auto const* r : reactors)
         interests |= r->interests_.all();
   }
};

Entity::~Entity() {
   // A reactor holds a reference of what it follows, so none is left here.
   KEM_ASSERT(!notifiees_);
}

void Entity::onZeroReferences() {
   // A child that somebody still holds outlives its parent, and must not point back to it.
   forEachChild([this](Entity& child) {
      if (child.parent_ == this)
         child.leaveParent();
   });
   PtrInterface::onZeroReferences();
}

void Entity::leaveParent() {
   sinkIs(nullptr, false);
   parent_ = nullptr;
}

std::string Entity::parentAttr() const {
   char const* text = parent_ ? parent_->attributeString(parentAttrId_) : nullptr;
   return text ? text : "";
}

std::string Entity::keyText() const {
   return name_.str();
}

std::string Entity::fullName() const {
   if (!parent_)
      return keyText();
   std::string const above = parent_->fullName();
   if (nodeNumber_ != 0 || parent_->typeInfo().id == 0) // in a directory
      return above.empty() ? keyText() : above + '/' + keyText();
   std::string const name = above + '.' + parentAttr();
   return hasKey() ? name + bracketed(keyText()) : name;
}

std::string Entity::uriPath() const {
   if (!parent_)
      return name_.empty() ? "" : '/' + keyText();
   std::string path = parent_->uriPath();
   if (parent_->typeInfo().id != 0)
      path += '/' + parentAttr();
   return hasKey() ? path + '/' + keyText() : path;
}

void Entity::parentIs(Entity* parent, AttrId attribute) {
   parent_ = parent;
   parentAttrId_ = attribute;
   if (parent)
      sinkIs(parent->sink_, parent->isWritable_);
}

void Entity::sinkIs(AttributeSink* sink, bool isWritable) {
   if (sink == sink_ && isWritable == isWritable_)
      return;
   sink_ = sink;
   isWritable_ = isWritable;
   forEachChild([&](Entity& child) { child.sinkIs(sink, isWritable); });
}

bool Entity::encodeAddress(Wire::Writer& out) const {
   // From the entity up to the first one with a number; the steps are written on the way back.
   Entity const* steps[16];
   size_t count = 0;
   Entity const* at = this;
   while (at->nodeNumber_ == 0) {
      if (!at->parent_ || count == std::size(steps))
         return false;
      steps[count++] = at;
      at = at->parent_;
   }
   out.u32(at->nodeNumber_);
   out.u8(static_cast<uint8_t>(count));
   while (count > 0) {
      Entity const* step = steps[--count];
      out.u8(step->parentAttrId_);
      step->encodeKey(out);
   }
   return true;
}

void Entity::encodeKey(Wire::Writer& out) const {
   out.string(name_.view());
}

bool Entity::decodeKey(Wire::Reader& in) {
   name_ = Name(in.string());
   return in.good();
}

void Entity::scalarChanging(AttrId id) const {
   if (sink_ && sink_->wantsBefore() && !sink_->isMuted())
      sink_->scalarChanging(*this, id);
}

void Entity::memberChanging(AttrId id, void const* key) const {
   if (sink_ && sink_->wantsBefore() && !sink_->isMuted())
      sink_->memberChanging(*this, id, key);
}

void Entity::scalarChanged(AttrId id) const {
   if (notifiees_ && (notifiees_->interests >> id & 1))
      for (auto* reactor : notifiees_->reactors)
         reactor->pend(id, nullptr);
   if (sink_ && !sink_->isMuted())
      sink_->scalarChanged(*this, id);
}

void Entity::memberChanged(AttrId id, void const* key) const {
   if (notifiees_ && (notifiees_->interests >> id & 1))
      for (auto* reactor : notifiees_->reactors)
         reactor->pend(id, key);
   if (sink_ && !sink_->isMuted())
      sink_->memberChanged(*this, id, key);
}

void Entity::childAdded(AttrId id, void const* key, Entity& child) const {
   if (notifiees_ && (notifiees_->interests >> id & 1))
      for (auto* reactor : notifiees_->reactors)
         reactor->pend(id, key);
   if (sink_ && !sink_->isMuted())
      sink_->childAdded(*this, id, child);
}

void Entity::childRemoved(AttrId id, void const* key, Ptr<Entity> const& child) const {
   if (notifiees_ && (notifiees_->interests >> id & 1))
      for (auto* reactor : notifiees_->reactors)
         reactor->pend(id, key);
   if (sink_ && !sink_->isMuted())
      sink_->childRemoved(*this, id, key, child);
   // It is in no tree now: later changes of it concern only those who still hold it.
   child->leaveParent();
}

void Entity::refuseReadOnly() const {
   if (!sink_->isMuted())
      throwConst();
}

void Entity::throwConst() {
   throw Exception("attempting to modify a const instance");
}

void Entity::notifieeAdd(Notifiee* notifiee) const {
   if (!notifiees_)
      notifiees_ = new Followers;
   notifiees_->reactors.push_back(notifiee);
   notifiees_->interests |= notifiee->interests_.all();
}

void Entity::notifieeDel(Notifiee* notifiee) const {
   auto& reactors = notifiees_->reactors;
   reactors.erase(std::find(reactors.begin(), reactors.end(), notifiee));
   if (reactors.empty()) {
      delete notifiees_;
      notifiees_ = nullptr;
   } else {
      notifiees_->sum();
   }
}

namespace {

std::map<std::string, Ptr<Entity>, std::less<>>& singletons() {
   static std::map<std::string, Ptr<Entity>, std::less<>> all;
   return all;
}

} // namespace

Ptr<Entity> singleton(char const* typeName) {
   auto const at = singletons().find(std::string_view(typeName));
   return at == singletons().end() ? nullptr : at->second;
}

Ptr<Entity> singletonIs(TypeInfo const& type) {
   auto& instance = singletons()[type.name];
   if (!instance) {
      KEM_ASSERT(type.make);
      instance = type.make();
      instance->nameIs(Name(type.name));
   }
   return instance;
}

void singletonDelAll() {
   // Out of the table before they are destroyed: their destructors may look here.
   auto const gone = std::exchange(singletons(), {});
}

} // namespace Kem
