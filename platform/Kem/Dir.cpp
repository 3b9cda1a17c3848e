#include "Kem/Dir.h"

namespace Kem {

TypeInfo const Dir::typeInfo_ = {"Kem::Dir", 0, nullptr, [] { return Ptr<Entity>(make()); }};

Ptr<Dir> Dir::make(Name name) {
   return Ptr<Dir>::adopt(new Dir(std::move(name)));
}

Ptr<Entity> Dir::entityPtr(Name const& name) const {
   auto const* child = entities_.find(name);
   return child ? *child : nullptr;
}

void Dir::entityPtrIs(Ptr<Entity> const& child) {
   if (!child)
      throwNullParameter("entityPtr", "Kem::Dir");
   if (entityPtr(child->name()) != child)
      childPlace(entities_, kEntityPtr, child->name(), child);
}

void Dir::entityPtrDel(Name const& name) {
   childDel(entities_, kEntityPtr, name);
}

void Dir::encodeMemberKey(AttrId, void const* key, Wire::Writer& out) const {
   out.string(static_cast<Name const*>(key)->view());
}

void Dir::encodeContents(AttributeSink& out) const {
   encodeChildren(entities_, kEntityPtr, out);
}

void Dir::encodeDifference(Entity const& before, AttributeSink& out) const {
   encodeChildDifference(static_cast<Dir const&>(before).entities_, entities_, kEntityPtr, out);
}

bool Dir::visitMemberKey(AttrId id, Wire::Reader& key, FunctionRef<void(void const*)> visit) const {
   Name const name(key.string());
   if (id != kEntityPtr || !key.good())
      return false;
   visit(&name);
   return true;
}

bool Dir::applyErase(AttrId id, Wire::Reader& in) {
   Name const name(in.string());
   if (id != kEntityPtr || !in.good())
      return false;
   entityPtrDel(name);
   return true;
}

Entity* Dir::childByKey(AttrId id, Wire::Reader& key) {
   Name const name(key.string());
   return id == kEntityPtr && key.good() ? entityPtr(name).ptr() : nullptr;
}

bool Dir::placeChild(AttrId id, Ptr<Entity> const& child) {
   if (id != kEntityPtr)
      return false;
   entityPtrIs(child);
   return true;
}

void Dir::forEachChild(FunctionRef<void(Entity&)> visit) {
   entities_.forEach([&](Name const&, Ptr<Entity> const& child) { visit(*child); });
}

void Dir::NotifieeConst::notifierIs(Ptr<Dir const> const& dir) {
   if (notifierBind(dir) && dir && !isZombie())
      handleInitialized();
}

} // namespace Kem
