#include "Listing.h"

#include "Ordel/wire/KeyText.h"

#include <algorithm>
#include <utility>

namespace Model {

namespace {

using Lines = std::vector<std::string>;

std::string placed(std::string const& place, unsigned attribute, std::string_view bytes) {
   return place + char(attribute + 1) + std::string(bytes);
}

void list(Ordel::Tree const& tree, Ordel::Entity const& entity, std::string const& place, Lines& lines) {
   auto const& attributes = entity.type().attributes;
   for (unsigned i = 0; i < attributes.size(); ++i) {
      if (attributes[i].form == Records::Form::scalar) {
         if (static_cast<int>(i) != entity.type().keyAttribute &&
             tree.value(entity, i) != attributes[i].initial)
            lines.push_back(placed(place, i, tree.value(entity, i)));
         continue;
      }
      for (Ordel::Members member(tree, entity, i); member.next();) {
         std::string const key(member.key());
         std::string const below = placed(place, i, key + std::string(member.value()));
         lines.push_back(below);
         if (member.entity())
            list(tree, *member.entity(), below, lines);
      }
   }
}

// Lists the contents of a record.
class Lister final : public Kem::AttributeSink {
  public:
   Lines lines;

   void scalarChanged(Kem::Entity const& entity, Kem::AttrId id) override {
      Wire::Writer out;
      entity.encodeScalar(id, out);
      if (id != keyAttribute(entity) && !entity.isDefault(id))
         lines.push_back(placed(place_, id, out.view()));
   }
   void memberChanged(Kem::Entity const& entity, Kem::AttrId id, void const* key) override {
      Wire::Writer out;
      entity.encodeMember(id, key, out);
      lines.push_back(placed(place_, id, out.view()));
   }
   void childAdded(Kem::Entity const&, Kem::AttrId id, Kem::Entity const& child) override {
      Wire::Writer out;
      child.encodeKey(out);
      lines.push_back(placed(place_, id, out.view()));
      std::string const above = std::exchange(place_, lines.back());
      child.encodeContents(*this);
      place_ = above;
   }
   void childRemoved(Kem::Entity const&, Kem::AttrId, void const*, Kem::Ptr<Kem::Entity> const&) override {}

  private:
   static int keyAttribute(Kem::Entity const& entity) {
      return Records::schema().entities[entity.typeInfo().id].keyAttribute;
   }

   std::string place_;
};

} // namespace

std::vector<std::string> listing(Ordel::Tree const& tree, Ordel::Entity const& entity) {
   Lines lines;
   list(tree, entity, "", lines);
   std::sort(lines.begin(), lines.end());
   return lines;
}

std::vector<std::string> listing(Kem::Entity const& entity) {
   Lister lister;
   entity.encodeContents(lister);
   std::sort(lister.lines.begin(), lister.lines.end());
   return std::move(lister.lines);
}

std::map<std::string, std::string> chosenInputs(Ordel::Tree const& tree, char const* path) {
   constexpr std::string_view above = "bridging/input/config/";
   auto const& dir = *tree.find(path);
   auto const& keyType = *dir.type().attributes[0].key;
   std::map<std::string, std::string> inputs;
   for (Ordel::Members member(tree, dir, 0); member.next();) {
      std::string const selector(member.value());
      size_t const begin = selector.find(above);
      std::string name = "?";
      if (begin != selector.npos)
         name = selector.substr(begin + above.size());
      inputs[Ordel::keyText(keyType, member.key())] = name.substr(0, name.find('.'));
   }
   return inputs;
}

} // namespace Model
