// Where the entity of a group of operations stands: its node, and the steps from there. Views into the block
// of the group; good as long as that is.
#pragma once

#include "Ordel/store/Tree.h"
#include "Ordel/wire/Operations.h"

#include <array>
#include <span>
#include <string_view>

namespace Ordel {

struct PlaceStep {
   uint8_t attribute = 0;
   std::string_view key; // wire form
};

class GroupPlace {
  public:
   GroupPlace(Applied const& applied, Group const& group) : entity_(*group.entity) {
      // The types of the keys are told by the entities on the way.
      std::array<Entity const*, maxStepCount + 1> way{};
      for (Entity const* entity = &entity_; !entity->isNode(); entity = entity->parent())
         ++count_;
      Entity const* entity = &entity_;
      for (size_t i = count_ + 1; i-- > 0; entity = entity->parent())
         way[i] = entity;
      Wire::Reader in(applied.at(group));
      in.raw(sizeof(uint8_t) + sizeof(uint32_t) + sizeof(uint8_t)); // operation, node, count
      for (size_t i = 0; i < count_; ++i) {
         steps_[i].attribute = in.u8();
         char const* const begin = in.position();
         skipValue(*way[i]->type().attributes[steps_[i].attribute].key, in);
         steps_[i].key = std::string_view(begin, static_cast<size_t>(in.position() - begin));
      }
   }

   Entity const& entity() const { return entity_; }
   Entity const& node() const { return entity_.nodeEntity(); }
   std::span<PlaceStep const> steps() const { return {steps_.data(), count_}; }

  private:
   Entity const& entity_;
   size_t count_ = 0;
   std::array<PlaceStep, maxStepCount> steps_;
};

} // namespace Ordel
