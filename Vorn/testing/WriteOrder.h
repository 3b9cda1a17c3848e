// In what order records were written: a sink that keeps a text for each write.
//
//    WriteOrder order;
//    order.follow("config", *bridge.config);
//    bridge.start();
//    EXPECT_THAT(order.take(), ElementsAre("config.hostAgingTime", "config.vlanConfig[10]", …));
//
// An attribute is named once for a run of writes, so a collection that is filled is one text; an entity that
// is made or deleted is named with its key, and so is what is written below it. A write that changes nothing
// doesn't count. When it is destroyed it stops following.
#pragma once

#include "Kem/Entity.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Vorn {

class WriteOrder final : public Kem::AttributeSink {
  public:
   WriteOrder() = default;
   ~WriteOrder() {
      for (auto const& [entity, name] : names_)
         const_cast<Kem::Entity*>(entity)->sinkIs(nullptr, false);
   }
   WriteOrder(WriteOrder const&) = delete;
   WriteOrder& operator=(WriteOrder const&) = delete;

   void follow(std::string name, Kem::Entity& entity) {
      entity.sinkIs(this, true);
      names_[&entity] = std::move(name);
   }
   // What was written since the last take().
   std::vector<std::string> take() { return std::exchange(steps_, {}); }

  private:
   void scalarChanged(Kem::Entity const& entity, Kem::AttrId id) override { add(textOf(entity, id)); }
   void memberChanged(Kem::Entity const& entity, Kem::AttrId id, void const*) override {
      add(textOf(entity, id));
   }
   void childAdded(Kem::Entity const& parent, Kem::AttrId id, Kem::Entity const& child) override {
      add(textOf(parent, id) + '[' + child.keyText() + ']');
   }
   void childRemoved(Kem::Entity const& parent, Kem::AttrId id, void const*,
                     Kem::Ptr<Kem::Entity> const& child) override {
      add("-" + textOf(parent, id) + '[' + child->keyText() + ']');
   }
   std::string textOf(Kem::Entity const& entity, Kem::AttrId id) const {
      return nameOf(entity) + '.' + entity.attributeString(id);
   }
   std::string nameOf(Kem::Entity const& entity) const {
      if (auto const at = names_.find(&entity); at != names_.end())
         return at->second;
      return textOf(*entity.parent(), entity.parentAttrId()) + '[' + entity.keyText() + ']';
   }
   void add(std::string step) {
      if (steps_.empty() || steps_.back() != step)
         steps_.push_back(std::move(step));
   }

   std::map<Kem::Entity const*, std::string> names_; // of those that are followed
   std::vector<std::string> steps_;
};

} // namespace Vorn
