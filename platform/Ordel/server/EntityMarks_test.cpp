#include "Ordel/server/EntityMarks.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

using Ordel::EntityMarks;

TEST(EntityMarks, ownMemberIsFoundByAttributeAndKey) {
   EntityMarks marks;
   bool isNew = false;
   marks.findOrAdd(1, "ab", isNew).isKnown = true;
   EXPECT_TRUE(isNew);
   EXPECT_TRUE(marks.findOrAdd(1, "ab", isNew).isKnown);
   EXPECT_FALSE(isNew);
   EXPECT_EQ(marks.find(2, "ab"), nullptr);
   EXPECT_EQ(marks.find(1, "abc"), nullptr);
   EXPECT_EQ(marks.find(1, std::string("ab\0", 3)), nullptr);
   EXPECT_EQ(marks.key(*marks.find(1, "ab")), "ab");
   EXPECT_EQ(marks.count(), 1u);
}

TEST(EntityMarks, nothingIsMarkedAtFirst) {
   EntityMarks marks;
   EXPECT_TRUE(marks.empty());
   EXPECT_EQ(marks.find(0, ""), nullptr);
   marks.scalarIs(61);
   EXPECT_FALSE(marks.empty());
   EXPECT_EQ(marks.scalars(), uint64_t{1} << 61);
   EXPECT_EQ(marks.totalCount(), 1u);
}

TEST(EntityMarks, behavesAsAMapUnderRandomUse) {
   std::mt19937 random(7);
   EntityMarks marks;
   std::map<std::pair<unsigned, std::string>, uint32_t> model;
   for (uint32_t i = 0; i < 200'000; ++i) {
      unsigned const attribute = random() % 3;
      unsigned const range = i < 100'000 ? 3000 : 20; // grows large, then becomes small
      std::string key = std::to_string(random() % range);
      if (random() % 2)
         key.insert(0, "a key of more than eight bytes ");
      bool isNew = false;
      if (random() % 2) {
         EntityMarks::Mark& mark = marks.findOrAdd(attribute, key, isNew);
         EXPECT_EQ(isNew, model.count({attribute, key}) == 0);
         mark.epoch = i;
         model[{attribute, key}] = i;
      } else if (EntityMarks::Mark* const mark = marks.find(attribute, key)) {
         EXPECT_EQ(mark->epoch, (model.at({attribute, key})));
         marks.remove(*mark);
         model.erase({attribute, key});
      } else {
         EXPECT_EQ(model.count({attribute, key}), 0u);
      }
      if (i % 1000 == 0)
         for (auto at = model.begin(); i >= 100'000 && model.size() > 100 && at != model.end();) {
            marks.remove(*marks.find(at->first.first, at->first.second));
            at = model.erase(at);
         }
   }
   EXPECT_EQ(marks.count(), model.size());
   for (size_t i = 0; i < marks.count(); ++i) {
      EntityMarks::Mark const& mark = marks.mark(i);
      EXPECT_EQ(mark.epoch, (model.at({mark.attribute, std::string(marks.key(mark))})));
   }
}

} // namespace
