#include "treejson/Change.h"
#include "Ordel/wire/KeyText.h"
#include "Ordel/wire/OperationWriter.h"
#include "treejson/Error.h"
#include "treejson/Values.h"

#include <unordered_set>

namespace TreeJson {

using Ordel::Entity;
using Ordel::Op;
using Ordel::OperationWriter;
using Records::Attribute;
using Records::EntityType;
using Records::Form;

namespace {

constexpr unsigned dirEntities = 0; // the one attribute of a directory

std::string nameKey(std::string_view name) {
   Wire::Writer key;
   key.string(name);
   return std::string(key.view());
}

bool isCollection(Attribute const& attribute) {
   return attribute.key != nullptr;
}

std::string_view parentPath(std::string_view path) {
   size_t const slash = path.rfind('/');
   return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

} // namespace

std::string givenType(JsonReader in) {
   std::string name;
   for (in.beginObject(); in.nextKey(name);) {
      if (name == "$type" && in.kind() == JsonKind::string)
         return in.string();
      in.skip();
   }
   return {};
}

Records::ValueType const* valueTypeAt(Ordel::Tree const& tree, Ordel::Selector const& selector) {
   Entity const* entity = tree.find(selector.path);
   EntityType const* type = entity ? &entity->type() : nullptr;
   for (size_t i = 0; type && i < selector.steps.size(); ++i) {
      Ordel::Selector::Step const& step = selector.steps[i];
      int const attribute = type->find(step.attribute);
      if (attribute < 0)
         return nullptr;
      Attribute const& descriptor = type->attributes[static_cast<size_t>(attribute)];
      if (i + 1 == selector.steps.size())
         return isCollection(descriptor) == step.hasKey ? descriptor.value : nullptr;
      if (descriptor.form != Form::children || !step.hasKey)
         return nullptr;
      auto const key = Ordel::keyFromText(*descriptor.key, step.key);
      entity =
          entity && key.isGood() ? tree.child(*entity, static_cast<unsigned>(attribute), key.bytes) : nullptr;
      type = entity ? &entity->type() : descriptor.target;
   }
   return nullptr;
}

// While it lives, the entity that is worked on is a member of a collection of the previous one.
class Change::Inside {
  public:
   Inside(Change& change, unsigned attribute, std::string key, std::string_view placeTail)
       : change_(change), placeSize_(change.place_.size()) {
      change.steps_.push_back({attribute, std::move(key)});
      change.place_ += placeTail;
      change.isNamed_ = false;
   }
   ~Inside() {
      change_.steps_.pop_back();
      change_.place_.resize(placeSize_);
      change_.isNamed_ = false;
   }
   Inside(Inside const&) = delete;
   Inside& operator=(Inside const&) = delete;

  private:
   Change& change_;
   size_t placeSize_;
};

void Change::refuseAt(std::string const& tail, std::string const& reason) const {
   throw Refusal(place_ + tail + ": " + reason);
}

// --- Operations

void Change::writeAt() {
   if (isNamed_)
      return;
   if (steps_.size() > Ordel::maxStepCount)
      refuse("more than " + std::to_string(Ordel::maxStepCount) +
             " levels below what exists; create the directories above it first");
   OperationWriter write(out_);
   write.at(node_, static_cast<uint8_t>(steps_.size()));
   for (Step const& step : steps_)
      write.step(step.attribute, step.key);
   isNamed_ = true;
}

void Change::writeCreate(unsigned attribute, std::string_view key, EntityType const& type,
                         bool isInDirectory) {
   writeAt();
   if (isInDirectory)
      OperationWriter(out_).createNode(key, type.id, 0);
   else
      OperationWriter(out_).create(attribute, key, type.id);
}

// --- Finding the place

EntityType const& Change::typeNamed(std::string_view name) {
   if (EntityType const* type = tree_.schema().entity(name))
      return *type;
   refuse("there is no type " + std::string(name));
}

// Goes to the directory, creating what is missing of the way.
Change::Spot Change::reachDirectory(std::string_view path) {
   EntityType const& directoryType = tree_.schema().entities[0];
   if (Entity const* const existing = tree_.find(path); existing && (existing->node() != 0 || path.empty())) {
      place_ = path.empty() ? "/" : path;
      if (!existing->isDirectory())
         refuse("is a " + std::string(existing->type().name) + " and no directory");
      node_ = existing->node();
      steps_.clear();
      isNamed_ = false;
      return {existing, &directoryType};
   }
   reachDirectory(parentPath(path));
   std::string_view const name = path.substr(path.rfind('/') + 1);
   std::string const key = nameKey(name);
   auto const [made, isNew] = created_.try_emplace(std::string(path), &directoryType);
   if (isNew)
      writeCreate(dirEntities, key, directoryType, true);
   steps_.push_back({dirEntities, key});
   isNamed_ = false;
   place_ = path;
   if (!made->second->isDirectory())
      refuse("is a " + std::string(made->second->name) + " and no directory");
   return {nullptr, &directoryType};
}

// Goes to the entity at the path, which is created where it is missing; its type is then needed.
Change::Spot Change::reach(std::string_view path, std::string const& wantedType) {
   Entity const* const existing = tree_.find(path);
   if (existing && existing->node() != 0) {
      node_ = existing->node();
      steps_.clear();
      isNamed_ = false;
      place_ = path;
      if (!wantedType.empty() && wantedType != existing->type().name)
         refuse("is a " + std::string(existing->type().name) + " and can't become a " + wantedType);
      return {existing, &existing->type()};
   }
   reachDirectory(parentPath(path));
   std::string_view const name = path.substr(path.rfind('/') + 1);
   place_ = path;
   if (char const* reason = Ordel::badName(name))
      refuse(reason);
   if (wantedType.empty())
      refuse("isn't there, so \"$type\" is needed to create it");
   EntityType const& type = typeNamed(wantedType);
   std::string const key = nameKey(name);
   auto const [made, isNew] = created_.try_emplace(std::string(path), &type);
   if (made->second != &type)
      refuse("is a " + std::string(made->second->name) + " and can't become a " + wantedType);
   if (isNew)
      writeCreate(dirEntities, key, type, true);
   steps_.push_back({dirEntities, key});
   isNamed_ = false;
   return {nullptr, &type};
}

unsigned Change::attributeOf(EntityType const& type, std::string_view name) const {
   int const attribute = type.find(name);
   if (attribute < 0)
      refuse(std::string(type.name) + " has no attribute " + std::string(name));
   return static_cast<unsigned>(attribute);
}

std::string Change::keyOf(Attribute const& attribute, std::string_view text) const {
   auto key = Ordel::keyFromText(*attribute.key, text);
   if (!key.isGood())
      refuseAt("." + std::string(attribute.name) + Ordel::bracketed(text), key.error);
   return std::move(key.bytes);
}

Change::Spot Change::below(Spot const& spot, unsigned attribute, std::string_view key) const {
   Entity const* const existing = spot.existing ? tree_.child(*spot.existing, attribute, key) : nullptr;
   return {existing, existing ? &existing->type() : spot.type->attributes[attribute].target};
}

// Goes through the first steps of the selector, all of which must lead to entities: existing ones, or members
// that are made with their defaults when they are missing.
Change::Spot Change::reachParent(Ordel::Selector const& selector, size_t stepCount, Missing missing) {
   place_ = selector.path.empty() ? "/" : selector.path;
   steps_.clear();
   isNamed_ = false;
   Entity const* const existing = tree_.find(selector.path);
   if (!existing || (existing->node() == 0 && existing->parent()))
      throw Absent(place_ + ": not there");
   node_ = existing->node();
   Spot spot{existing, &existing->type()};
   for (size_t i = 0; i < stepCount; ++i) {
      Ordel::Selector::Step const& step = selector.steps[i];
      unsigned const attribute = attributeOf(*spot.type, step.attribute);
      Attribute const& descriptor = spot.type->attributes[attribute];
      std::string const tail = "." + step.attribute + (step.hasKey ? Ordel::bracketed(step.key) : "");
      if (descriptor.form != Form::children || !step.hasKey)
         refuseAt(tail, isCollection(descriptor) && !step.hasKey ? "a key in [ ] is expected"
                                                                 : "is a value and has no attributes");
      std::string key = keyOf(descriptor, step.key);
      bool const isInDirectory = spot.type->isDirectory();
      spot = below(spot, attribute, key);
      place_ += tail;
      if (isInDirectory && !spot.existing)
         throw Absent(place_ + ": not there");
      if (missing == Missing::isMade && !isInDirectory && !spot.existing)
         writeCreate(attribute, key, *descriptor.target, false); // changes nothing where there is one
      steps_.push_back({attribute, std::move(key)});
      isNamed_ = false;
   }
   return spot;
}

// --- What JSON gives

void Change::merge(std::string_view path, JsonReader& in) {
   Spot const spot = reach(path, givenType(in));
   readEntity(spot, in);
}

void Change::readEntity(Spot const& spot, JsonReader& in) {
   if (in.kind() != JsonKind::object)
      refuse(described(in) + " is no " + std::string(spot.type->name) +
             "; expected an object of its attributes");
   uint64_t given = 0; // a bit for each attribute, of which there are at most 62
   std::string name;
   for (in.beginObject(); in.nextKey(name);) {
      if (name == "$type") {
         if (in.kind() != JsonKind::string)
            refuseAt(".$type", described(in) + " is no name of a type");
         if (std::string const type = in.string(); type != spot.type->name)
            refuse("is a " + std::string(spot.type->name) + " and can't become a " + type);
         continue;
      }
      unsigned const attribute = attributeOf(*spot.type, name);
      if (given >> attribute & 1)
         refuseAt("." + name, "given twice");
      given |= uint64_t{1} << attribute;
      readAttribute(spot, attribute, in);
   }
}

void Change::readAttribute(Spot const& spot, unsigned attribute, JsonReader& in) {
   Attribute const& descriptor = spot.type->attributes[attribute];
   if (isCollection(descriptor))
      return readMembers(spot, attribute, in, false);
   writeAt();
   OperationWriter(out_).begin(Op::set, attribute);
   try {
      if (descriptor.form == Form::reference)
         readReference(in, out_);
      else
         readValue(*descriptor.value, in, out_);
   } catch (ValueError const& error) {
      refuseAt("." + std::string(descriptor.name) + error.field, error.what());
   }
}

void Change::readMembers(Spot const& spot, unsigned attribute, JsonReader& in, bool isWhole) {
   Attribute const& descriptor = spot.type->attributes[attribute];
   std::string const name(descriptor.name);
   if (in.kind() != JsonKind::object)
      refuseAt("." + name, described(in) + " is no collection; expected an object of members");
   std::unordered_set<std::string> given;
   std::string text;
   for (in.beginObject(); in.nextKey(text);) {
      std::string const key = keyOf(descriptor, text);
      if (!given.insert(key).second)
         refuseAt("." + name + Ordel::bracketed(text), "given twice");
      readMember(spot, attribute, key, text, in);
   }
   if (!isWhole || !spot.existing)
      return;
   for (Ordel::Members member(tree_, *spot.existing, attribute); member.next();) {
      if (given.contains(std::string(member.key())))
         continue;
      writeAt();
      OperationWriter(out_).erase(attribute, member.key());
   }
}

EntityType const& Change::typeToCreate(Spot const& spot, unsigned attribute, std::string_view key,
                                       JsonReader const& in) {
   std::string const name = JsonReader(in).kind() == JsonKind::object ? givenType(in) : std::string();
   Spot const existing = below(spot, attribute, key);
   if (existing.existing) {
      if (!name.empty() && name != existing.type->name)
         refuse("is a " + std::string(existing.type->name) + " and can't become a " + name);
      return *existing.type;
   }
   if (!name.empty())
      return typeNamed(name);
   if (spot.type->isDirectory())
      refuse("isn't there, so \"$type\" is needed to create it");
   return *spot.type->attributes[attribute].target;
}

void Change::readMember(Spot const& spot, unsigned attribute, std::string_view key, std::string_view keyText,
                        JsonReader& in) {
   Attribute const& descriptor = spot.type->attributes[attribute];
   if (descriptor.form == Form::children) {
      bool const isInDirectory = spot.type->isDirectory();
      std::string tail = isInDirectory ? std::string(place_ == "/" ? "" : "/").append(keyText)
                                       : "." + std::string(descriptor.name) + Ordel::bracketed(keyText);
      Spot made = below(spot, attribute, key);
      {
         // Errors name the place of the entity; the operation itself belongs to the entity above.
         size_t const placeSize = place_.size();
         place_ += tail;
         made.type = &typeToCreate(spot, attribute, key, in);
         if (char const* reason = isInDirectory ? Ordel::badName(keyText) : nullptr)
            refuse(reason);
         place_.resize(placeSize);
      }
      if (!made.existing)
         writeCreate(attribute, key, *made.type, isInDirectory);
      Inside const inside(*this, attribute, std::string(key), tail);
      return readEntity(made, in);
   }
   writeAt();
   OperationWriter(out_).begin(Op::put, attribute).raw(key.data(), key.size());
   try {
      if (descriptor.form == Form::references)
         readReference(in, out_);
      else
         TreeJson::readMember(*descriptor.value, key, in, out_);
   } catch (ValueError const& error) {
      refuseAt("." + std::string(descriptor.name) + Ordel::bracketed(keyText) + error.field, error.what());
   }
}

// --- Single changes

void Change::set(Ordel::Selector const& selector, JsonReader& in) {
   if (selector.steps.empty())
      throw Refusal(selector.text() + ": is an entity; what can be set is an attribute or a member");
   Spot const spot = reachParent(selector, selector.steps.size() - 1, Missing::isMade);
   Ordel::Selector::Step const& last = selector.steps.back();
   unsigned const attribute = attributeOf(*spot.type, last.attribute);
   Attribute const& descriptor = spot.type->attributes[attribute];
   if (!last.hasKey) {
      if (!isCollection(descriptor))
         return readAttribute(spot, attribute, in);
      return readMembers(spot, attribute, in, true);
   }
   if (!isCollection(descriptor))
      refuseAt("." + last.attribute + Ordel::bracketed(last.key), "the attribute has no members");
   readMember(spot, attribute, keyOf(descriptor, last.key), last.key, in);
}

void Change::create(std::string_view path, std::string_view type) {
   if (path.empty())
      throw Refusal("/: is the root and can't be created");
   reach(path, std::string(type));
}

void Change::erase(Ordel::Selector const& selector) {
   if (selector.steps.empty()) {
      if (selector.path.empty())
         throw Refusal("/: is the root and can't be deleted");
      std::string_view const parent = parentPath(selector.path);
      Ordel::Selector directory;
      directory.path = parent;
      reachParent(directory, 0, Missing::isRefused);
      if (!tree_.find(selector.path))
         throw Absent(selector.path + ": not there");
      writeAt();
      OperationWriter(out_)
          .begin(Op::erase, dirEntities)
          .string(std::string_view(selector.path).substr(parent.empty() ? 0 : parent.size() + 1));
      return;
   }
   Spot const spot = reachParent(selector, selector.steps.size() - 1, Missing::isRefused);
   Ordel::Selector::Step const& last = selector.steps.back();
   unsigned const attribute = attributeOf(*spot.type, last.attribute);
   Attribute const& descriptor = spot.type->attributes[attribute];
   if (!isCollection(descriptor) || !last.hasKey)
      refuseAt("." + last.attribute + (last.hasKey ? Ordel::bracketed(last.key) : ""),
               "is no entity and no member of a collection, so it can't be deleted");
   std::string const key = keyOf(descriptor, last.key);
   writeAt();
   OperationWriter(out_).erase(attribute, key);
}

} // namespace TreeJson
