#include "Plaze/KeyShadow.h"

#include "Plaze/TestTable.h"

#include <map>
#include <random>

namespace Plaze {
namespace {

using Change = KeyShadow::Change;
using Changes = std::map<std::string, Change>;

class KeyShadowTest : public testing::Test {
  protected:
   Changes pass() {
      Changes changes;
      outcome_ = shadow_.pass(reader_, [&](std::string_view key, Change change) {
         EXPECT_TRUE(changes.emplace(key, change).second) << key << " is told twice";
      });
      EXPECT_EQ(outcome_.changes, changes.size());
      return changes;
   }
   std::string keys() const {
      std::map<std::string, uint32_t> const sorted(shadow_.slots().begin(), shadow_.slots().end());
      std::string all;
      for (auto const& [key, slot] : sorted)
         all += key + " ";
      return all;
   }

   TestDirectory directory_;
   std::string path_ = directory_.path("table");
   Reader reader_{path_, testShape};
   KeyShadow shadow_;
   KeyShadow::Outcome outcome_;
};

TEST_F(KeyShadowTest, TellsExactlyWhatChangedSinceTheLastPass) {
   Writer writer(path_, testShape);
   writer.put("one", "1");
   writer.put("two", "2");
   EXPECT_EQ(pass(), (Changes{{"one", Change::added}, {"two", Change::added}}));
   EXPECT_EQ(pass(), (Changes{}));
   writer.put("two", "22");
   EXPECT_EQ(pass(), (Changes{{"two", Change::changed}}));
   writer.del("one");
   writer.put("three", "3");
   EXPECT_EQ(pass(), (Changes{{"one", Change::removed}, {"three", Change::added}}));
   writer.put("two", "22");
   EXPECT_EQ(pass(), (Changes{})) << "written with the value that stands there";
   EXPECT_EQ(keys(), "three two ");
}

TEST_F(KeyShadowTest, ManyWritingsOfOneKeyAreOneChange) {
   Writer writer(path_, testShape);
   writer.put("one", "1");
   writer.put("one", "2");
   EXPECT_EQ(pass(), (Changes{{"one", Change::added}}));
   writer.put("one", "3");
   writer.put("one", "2");
   EXPECT_EQ(pass(), (Changes{{"one", Change::changed}})) << "it can't know that the value is the old one";
   writer.put("short-lived", "1");
   writer.del("short-lived");
   EXPECT_EQ(pass(), (Changes{}));
}

TEST_F(KeyShadowTest, KeyThatMovesToAnotherSlotIsChanged) {
   Writer writer(path_, testShape, 2);
   writer.put("a", "1");
   writer.put("b", "1");
   pass();
   // Both swap their slots: the last one freed is the first one taken.
   writer.del("a");
   writer.del("b");
   writer.put("a", "2");
   writer.put("b", "2");
   EXPECT_EQ(pass(), (Changes{{"a", Change::changed}, {"b", Change::changed}}));
   EXPECT_EQ(keys(), "a b ");
   // One moves into the slot of the other, which goes. Both orders of the slots.
   writer.del("a");
   writer.del("b");
   writer.put("a", "3");
   EXPECT_EQ(pass(), (Changes{{"a", Change::changed}, {"b", Change::removed}}));
   EXPECT_EQ(keys(), "a ");
   writer.put("c", "3");
   writer.del("a");
   writer.del("c");
   writer.put("c", "4");
   writer.put("a", "4");
   EXPECT_EQ(pass(), (Changes{{"a", Change::changed}, {"c", Change::added}}));
   EXPECT_EQ(keys(), "a c ");
}

// A key that moved to and fro between two passes was once reported as removed although it was there:
// 1. A pass reads "a" in slot 0; while it reads slot 1, "a" moves to slot 2, where the pass finds it again.
// 2. "a" moves back into slot 0, which still has it in the shadow, and slot 2 becomes free.
// 3. The next pass takes slot 0 for unmoved, and slot 2 for the one that "a" has left.
TEST_F(KeyShadowTest, KeyThatMovesToAndFroDuringPassesStays) {
   Writer writer(path_, testShape, 3);
   writer.put("a", "1");
   writer.put("x", "1");
   unsigned reads = 0;
   reader_.onMidReadIs([&] {
      if (++reads != 2)
         return;
      writer.del("a");
      writer.put("z", "");
      writer.put("a", "2");
   });
   EXPECT_EQ(pass(), (Changes{{"a", Change::added}, {"x", Change::added}}));
   ASSERT_EQ(shadow_.slots().at("a"), 2u);
   reader_.onMidReadIs(nullptr);
   writer.del("z");
   writer.del("a");
   writer.put("filler", "");
   writer.put("a", "3");
   writer.del("filler");
   EXPECT_EQ(pass(), (Changes{{"a", Change::changed}}));
   EXPECT_EQ(shadow_.slots().at("a"), 0u);
   EXPECT_EQ(keys(), "a x ");
}

TEST_F(KeyShadowTest, GrowthIsNoChange) {
   Writer writer(path_, testShape, 2);
   writer.put("one", "1");
   writer.put("two", "2");
   pass();
   writer.put("three", "3");
   EXPECT_EQ(writer.generation(), 2u);
   EXPECT_EQ(pass(), (Changes{{"three", Change::added}}));
   writer.put("two", "22");
   for (int i = 0; i < 100; ++i)
      writer.put("more" + std::to_string(i), "");
   writer.del("one");
   Changes const changes = pass();
   EXPECT_EQ(changes.size(), 102u);
   EXPECT_EQ(changes.at("two"), Change::changed);
   EXPECT_EQ(changes.at("one"), Change::removed);
   EXPECT_EQ(changes.count("three"), 0u);
}

TEST_F(KeyShadowTest, RestartedWriterIsNoChange) {
   std::make_unique<Writer>(path_, testShape)->put("one", "1");
   pass();
   Writer writer(path_, testShape);
   EXPECT_EQ(pass(), (Changes{}));
   writer.put("one", "1");
   EXPECT_EQ(pass(), (Changes{}));
}

TEST_F(KeyShadowTest, FileThatGoesTakesItsKeysAlong) {
   std::make_unique<Writer>(path_, testShape)->put("one", "1");
   EXPECT_EQ(pass(), (Changes{{"one", Change::added}}));
   std::filesystem::remove(path_);
   EXPECT_EQ(pass(), (Changes{{"one", Change::removed}}));
   EXPECT_EQ(pass(), (Changes{}));
   std::make_unique<Writer>(path_, testShape)->put("two", "2");
   EXPECT_EQ(pass(), (Changes{{"two", Change::added}}));
}

TEST_F(KeyShadowTest, AnotherTableAtThePathCountsAsChangedThroughout) {
   std::make_unique<Writer>(path_, testShape)->put("one", "1");
   std::make_unique<Writer>(path_, testShape)->put("two", "2");
   pass();
   std::filesystem::remove(path_);
   Writer writer(path_, testShape);
   writer.put("one", "1");
   writer.put("three", "3");
   EXPECT_EQ(pass(), (Changes{{"one", Change::changed}, {"two", Change::removed}, {"three", Change::added}}));
}

TEST_F(KeyShadowTest, TornEntryStaysAsItWasUntilItCanBeRead) {
   Writer writer(path_, testShape);
   writer.put("one", "1");
   writer.put("two", "2");
   pass();
   unsigned midEntry = 0;
   writer.onMidEntryIs([&] {
      EXPECT_EQ(pass(), (Changes{}));
      EXPECT_EQ(pass(), (Changes{}));
      EXPECT_EQ(keys(), "one two ");
      ++midEntry;
   });
   writer.put("two", "22");
   EXPECT_EQ(midEntry, 1u);
   writer.onMidEntryIs(nullptr);
   EXPECT_EQ(pass(), (Changes{{"two", Change::changed}}));

   writer.put("one", "11");
   writer.onMidEntryIs([&] {
      EXPECT_EQ(pass(), (Changes{{"one", Change::changed}}));
      EXPECT_EQ(outcome_.unreadable, 1u);
   });
   writer.del("two");
   writer.onMidEntryIs(nullptr);
   EXPECT_EQ(pass(), (Changes{{"two", Change::removed}}));
   EXPECT_EQ(outcome_.unreadable, 0u);
}

TEST_F(KeyShadowTest, FollowsRandomWritingsExactly) {
   std::mt19937 random(7);
   auto writer = std::make_unique<Writer>(path_, testShape, 4);
   std::map<std::string, std::string> now, before;
   for (int round = 0; round < 300; ++round) {
      for (unsigned n = random() % 40; n > 0; --n) {
         std::string const key = "key" + std::to_string(random() % (5 + round));
         if (random() % 3 == 0) {
            writer->del(key);
            now.erase(key);
         } else {
            std::string const value = "value" + std::to_string(random());
            writer->put(key, value);
            now[key] = value;
         }
      }
      if (random() % 10 == 0) {
         writer = nullptr;
         writer = std::make_unique<Writer>(path_, testShape);
      }
      Changes expected;
      for (auto const& [key, value] : now)
         if (auto const old = before.find(key); old == before.end())
            expected[key] = Change::added;
         else if (old->second != value)
            expected[key] = Change::changed;
      for (auto const& [key, value] : before)
         if (!now.count(key))
            expected[key] = Change::removed;
      ASSERT_EQ(pass(), expected) << "round " << round;
      before = now;
      // What the shadow points at is what is there.
      for (auto const& [key, slot] : shadow_.slots()) {
         Entry entry;
         uint64_t sequence;
         ASSERT_EQ(reader_.read(slot, entry, sequence), Reader::Result::entry);
         ASSERT_EQ(entry.key, key);
         ASSERT_EQ(entry.value, now.at(key));
      }
      ASSERT_EQ(shadow_.slots().size(), now.size());
   }
   EXPECT_GT(writer->generation(), 4u);
}

TEST_F(KeyShadowTest, RandomDamageUnderTheReaderEndsInAnOrderlyState) {
   Writer writer(path_, testShape, 16);
   for (int i = 0; i < 12; ++i)
      writer.put("key" + std::to_string(i), "value");
   pass();
   std::mt19937 random(99);
   std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
   size_t const bytes = std::filesystem::file_size(path_);
   for (int round = 0; round < 2000; ++round) {
      size_t const at = random() % 2 ? 4096 + random() % 128 : 2048 + random() % (bytes - 2048);
      file.seekp(static_cast<std::streamoff>(at));
      file.put(static_cast<char>(random()));
      file.flush();
      pass();
      for (auto const& [key, slot] : shadow_.slots()) {
         ASSERT_LT(slot, reader_.capacity());
         ASSERT_LE(key.size(), 16u);
      }
   }
}

} // namespace
} // namespace Plaze
