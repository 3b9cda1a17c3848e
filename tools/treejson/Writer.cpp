#include "treejson/Writer.h"
#include "Kem/String.h"
#include "Ordel/wire/KeyText.h"
#include "treejson/JsonText.h"
#include "treejson/Values.h"

#include <algorithm>

namespace TreeJson {

using Ordel::Entity;
using Records::Form;

namespace {

constexpr size_t pieceBytes = 64u << 10;

// Whether the place of the entity leaves its type open.
bool needsType(Entity const& entity) {
   Entity const* const parent = entity.parent();
   return !parent || parent->isDirectory() ||
          parent->type().attributes[entity.attributeInParent()].target != &entity.type();
}

// The entity and all nodes below it that a document names.
void gatherNodes(Ordel::Tree const& tree, Entity const& entity, std::vector<Entity const*>& nodes) {
   if (!entity.isDirectory()) {
      nodes.push_back(&entity);
      return;
   }
   if (tree.count(entity, 0) == 0 && entity.parent())
      nodes.push_back(&entity);
   for (Ordel::Members member(tree, entity, 0); member.next();)
      gatherNodes(tree, *member.entity(), nodes);
}

} // namespace

Writer::Writer(Ordel::Tree const& tree, Layout layout, Sink sink)
    : tree_(tree), layout_(layout), sink_(std::move(sink)) {}

void Writer::flush() {
   if (buffer_.empty())
      return;
   sink_(buffer_);
   buffer_.clear();
}

void Writer::text(std::string_view text) {
   buffer_ += text;
}

void Writer::openObject() {
   buffer_ += '{';
   ++depth_;
   isEmpty_ = true;
}

void Writer::key(std::string_view name) {
   if (buffer_.size() >= pieceBytes)
      flush();
   if (!isEmpty_)
      buffer_ += ',';
   if (layout_ == Layout::indented)
      buffer_.append("\n").append(size_t{2} * depth_, ' ');
   else if (!isEmpty_)
      buffer_ += ' ';
   isEmpty_ = false;
   appendQuoted(buffer_, name);
   buffer_ += ": ";
}

void Writer::closeObject() {
   --depth_;
   if (!isEmpty_ && layout_ == Layout::indented)
      buffer_.append("\n").append(size_t{2} * depth_, ' ');
   buffer_ += '}';
   isEmpty_ = false;
}

void Writer::typeOf(Entity const& entity) {
   if (!needsType(entity))
      return;
   key("$type");
   appendQuoted(buffer_, entity.type().name);
}

void Writer::content(Entity const& entity) {
   auto const attributes = entity.type().attributes;
   for (uint16_t const i : naturalOrder(attributes)) {
      if (isDirectoryFlat_ && entity.isDirectory())
         continue;
      key(attributes[i].name);
      attribute(entity, i);
   }
}

void Writer::entity(Entity const& entity) {
   openObject();
   typeOf(entity);
   content(entity);
   closeObject();
}

void Writer::attribute(Entity const& entity, unsigned attribute) {
   Records::Attribute const& descriptor = entity.type().attributes[attribute];
   if (descriptor.form == Form::scalar)
      return writeValue(*descriptor.value, tree_.value(entity, attribute), buffer_);
   if (descriptor.form == Form::reference)
      return writeReference(tree_.value(entity, attribute), buffer_);
   openObject();
   for (SortedKey const& sorted : sortedKeys(tree_, entity, attribute)) {
      key(sorted.text);
      member(entity, attribute, sorted.wire);
   }
   closeObject();
}

void Writer::member(Entity const& owner, unsigned attribute, std::string_view key) {
   Records::Attribute const& descriptor = owner.type().attributes[attribute];
   if (descriptor.form == Form::children)
      return entity(*tree_.child(owner, attribute, key));
   std::string_view const wire = *tree_.member(owner, attribute, key);
   if (descriptor.form == Form::references)
      writeReference(wire, buffer_);
   else
      writeValue(*descriptor.value, wire, buffer_);
}

void Writer::located(Ordel::Located const& located) {
   if (located.attribute < 0)
      entity(*located.entity);
   else if (located.key)
      member(*located.entity, static_cast<unsigned>(located.attribute), *located.key);
   else
      attribute(*located.entity, static_cast<unsigned>(located.attribute));
}

// Opens the objects that lead from the document to the inside of the entity.
void Writer::pathTo(Entity const& entity) {
   if (entity.isNode()) {
      key(tree_.path(entity));
   } else {
      pathTo(*entity.parent());
      unsigned const attribute = entity.attributeInParent();
      Records::Attribute const& descriptor = entity.parent()->type().attributes[attribute];
      key(descriptor.name);
      openObject();
      for (Ordel::Members member(tree_, *entity.parent(), attribute); member.next();)
         if (member.entity() == &entity)
            key(Ordel::keyText(*descriptor.key, member.key()));
   }
   openObject();
   typeOf(entity);
}

void Writer::document(Ordel::Located const& located) {
   isDirectoryFlat_ = true;
   openObject();
   // All that a directory holds is in its one attribute.
   bool const isNode = located.entity->isDirectory() || (located.attribute < 0 && located.entity->isNode());
   if (isNode) {
      std::vector<Entity const*> nodes;
      gatherNodes(tree_, *located.entity, nodes);
      std::vector<std::pair<std::string, Entity const*>> byPath;
      for (Entity const* node : nodes)
         byPath.emplace_back(tree_.path(*node), node);
      std::sort(byPath.begin(), byPath.end(),
                [](auto const& a, auto const& b) { return Kem::compareNatural(a.first, b.first) < 0; });
      for (auto const& [path, node] : byPath) {
         key(path);
         entity(*node);
      }
      closeObject();
   } else {
      pathTo(*located.entity);
      if (located.attribute < 0) {
         content(*located.entity);
      } else {
         auto const attribute = static_cast<unsigned>(located.attribute);
         Records::Attribute const& descriptor = located.entity->type().attributes[attribute];
         key(descriptor.name);
         if (located.key) {
            openObject();
            key(Ordel::keyText(*descriptor.key, *located.key));
         }
         this->located(located);
      }
      while (depth_ > 0)
         closeObject();
   }
   isDirectoryFlat_ = false;
}

std::vector<SortedKey> sortedKeys(Ordel::Tree const& tree, Entity const& entity, unsigned attribute) {
   Records::ValueType const& type = *entity.type().attributes[attribute].key;
   std::vector<SortedKey> keys;
   keys.reserve(tree.count(entity, attribute));
   for (Ordel::Members member(tree, entity, attribute); member.next();)
      keys.push_back({Ordel::keyText(type, member.key()), std::string(member.key())});
   std::sort(keys.begin(), keys.end(), [](SortedKey const& a, SortedKey const& b) {
      auto const order = Kem::compareNatural(a.text, b.text);
      return order != 0 ? order < 0 : a.text < b.text;
   });
   return keys;
}

namespace {

std::string whole(Ordel::Tree const& tree, Ordel::Located const& located, Layout layout) {
   std::string text;
   Writer writer(tree, layout, [&](std::string_view piece) { text += piece; });
   writer.located(located);
   writer.flush();
   return text;
}

} // namespace

std::string oneLine(Ordel::Tree const& tree, Ordel::Located const& located) {
   return whole(tree, located, Layout::oneLine);
}

std::string indented(Ordel::Tree const& tree, Ordel::Located const& located) {
   return whole(tree, located, Layout::indented);
}

} // namespace TreeJson
