// What the log of displaced values keeps, and what it gives back. Each case makes a change by hand, as an
// operation does: say what is displaced, then overwrite it.
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/UndoLog.h"

#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::Entity;
using Ordel::KeyProbe;
using Ordel::Slot;
using Ordel::Store;
using Ordel::Table;
using Ordel::UndoLog;
using Undone = UndoLog::Undone;

struct UndoLogTest : testing::Test {
   Store store{schema(), false};
   UndoLog undo{store};
   Entity& config = make(*store.root, 0, "config", configType);
   std::deque<std::string> operations; // of the blocks

   Slot const& slot(unsigned attribute) { return Store::slot(config, attribute); }
   char* place(unsigned attribute) { return Store::place(config, slot(attribute)); }

   Entity& make(Entity& parent, unsigned attribute, std::string const& name, uint16_t type) {
      std::string const key = stringBytes(name);
      uint32_t const node = parent.isDirectory() ? store.nextNode : 0;
      return store.create(schema().entities[type], parent, attribute, {0, key}, node);
   }

   // --- The changes that a block makes

   void setCount(uint32_t count) {
      undo.record(Undone::set, config, Config::count, 0,
                  undo.displace(slot(Config::count), place(Config::count)));
      std::memcpy(place(Config::count), &count, sizeof count);
   }
   void setLimits(std::string const& sixteenBytes) {
      undo.record(Undone::set, config, Config::limits, 0,
                  undo.displace(slot(Config::limits), place(Config::limits)));
      std::memcpy(place(Config::limits), sixteenBytes.data(), 16);
   }
   void setText(std::string const& text) {
      undo.record(Undone::set, config, Config::text, 0,
                  undo.displace(slot(Config::text), place(Config::text)));
      Ordel::Text const made = Ordel::makeText(stringBytes(text));
      std::memcpy(place(Config::text), &made, sizeof made);
   }
   void putNamed(std::string const& name, char value) {
      std::string const key = stringBytes(name);
      Table& members = Store::tableMade(config, slot(Config::named));
      bool isNew = false;
      char* const at = members.value(members.findOrInsert({0, key}, isNew));
      std::string_view const operation =
          operations.emplace_back(Block().put(Config::named, key, std::string(1, value)).view());
      if (isNew)
         undo.recordPut(config, Config::named, operation.data(), operation.data() + operation.size());
      else
         undo.record(Undone::replaced, config, Config::named, undo.keepKey(slot(Config::named), {0, key}),
                     undo.displace(slot(Config::named), at));
      *at = value;
   }
   void eraseNamed(std::string const& name) {
      std::string const key = stringBytes(name);
      Table& members = *Store::table(config, slot(Config::named));
      uint32_t const at = members.find({0, key});
      undo.record(Undone::erased, config, Config::named, undo.keepKey(slot(Config::named), {0, key}),
                  undo.displace(slot(Config::named), members.value(at)));
      members.erase(at);
      Store::dropTableIfEmpty(config, slot(Config::named));
   }
   Entity& createGroup(std::string const& name) {
      Entity& made = make(config, Config::group, name, groupType);
      undo.record(Undone::created, made, Config::group, 0, 0);
      return made;
   }
   void takeOut(Entity& entity) {
      store.takeOut(entity);
      undo.record(Undone::takenOut, entity, 0, 0, 0);
   }

   // --- What exists

   uint32_t count() { return Ordel::loadNumber<uint32_t>(place(Config::count)); }
   std::string limits() { return {place(Config::limits), 16}; }
   std::string text() {
      std::string scratch;
      return std::string(
          slot(Config::text).value->view(place(Config::text), slot(Config::text).zero, scratch));
   }
   // "a=1 b=0", by name.
   std::string named() {
      std::map<std::string, char> sorted;
      if (Table const* members = Store::table(config, slot(Config::named)))
         for (uint32_t i = 0; i < members->end(); ++i)
            if (std::string scratch; members->isMember(i))
               sorted[std::string(Store::keyAt(*members, i, slot(Config::named), scratch).substr(1))] =
                   *members->value(i);
      std::string all;
      for (auto const& [name, value] : sorted)
         all += (all.empty() ? "" : " ") + name + "=" + std::to_string(value);
      return all;
   }
   Entity* group(std::string const& name) {
      std::string const key = stringBytes(name);
      return Store::child(config, slot(Config::group), {0, key});
   }
};

TEST_F(UndoLogTest, changesAreTakenBackTheLastOneFirst) {
   undo.begin();
   setCount(1);
   setCount(2);
   undo.commit();
   undo.begin();
   setCount(3);
   setCount(4);
   undo.rollBack();
   EXPECT_EQ(count(), 2u) << "what stood when the block began, not what its second change displaced";
}

TEST_F(UndoLogTest, nothingIsLeftOfABlockThatWentThrough) {
   undo.begin();
   setCount(1);
   putNamed("a", 1);
   undo.commit();
   undo.begin();
   undo.rollBack();
   EXPECT_EQ(count(), 1u);
   EXPECT_EQ(named(), "a=1");
}

TEST_F(UndoLogTest, valueLongerThanAnEntryIsKeptBeside) {
   std::string const first = "0123456789abcdef", second = "ABCDEFGHIJKLMNOP";
   undo.begin();
   setLimits(first);
   undo.commit();
   undo.begin();
   setLimits(second);
   setLimits("................");
   undo.rollBack();
   EXPECT_EQ(limits(), first);
}

// The sanitizers find a text that is freed twice, or never.
TEST_F(UndoLogTest, textMovesIntoTheLogAndBack) {
   EXPECT_EQ(text(), stringBytes("none")) << "the default, which takes no memory";
   undo.begin();
   setText("one");
   setText("two");
   undo.rollBack();
   EXPECT_EQ(text(), stringBytes("none"));
   undo.begin();
   setText("three");
   undo.commit();
   undo.begin();
   setText("four");
   undo.rollBack();
   EXPECT_EQ(text(), stringBytes("three"));
}

TEST_F(UndoLogTest, membersComeAndGoAsTheyWere) {
   undo.begin();
   putNamed("kept", 1);
   putNamed("a key that is longer than any entry of the log", 1);
   undo.commit();
   undo.begin();
   putNamed("new", 1);
   putNamed("new", 0);                                            // replaced within the block
   putNamed("kept", 0);                                           // replaced
   eraseNamed("a key that is longer than any entry of the log");  // erased
   putNamed("a key that is longer than any entry of the log", 0); // and put again
   eraseNamed("new");
   undo.rollBack();
   EXPECT_EQ(named(), "a key that is longer than any entry of the log=1 kept=1");
}

TEST_F(UndoLogTest, collectionThatBecameEmptyOrWasEmptyIsSoAgain) {
   undo.begin();
   putNamed("a", 1);
   undo.rollBack();
   EXPECT_EQ(Store::table(config, slot(Config::named)), nullptr) << "an empty collection has no table";
   undo.begin();
   putNamed("a", 1);
   undo.commit();
   undo.begin();
   eraseNamed("a");
   undo.rollBack();
   EXPECT_EQ(named(), "a=1");
}

TEST_F(UndoLogTest, createdEntityIsGone) {
   size_t const before = store.entityCount;
   undo.begin();
   createGroup("g");
   undo.rollBack();
   EXPECT_EQ(group("g"), nullptr);
   EXPECT_EQ(store.entityCount, before);
}

TEST_F(UndoLogTest, entityThatWasTakenOutIsTheSameAgain) {
   undo.begin();
   Entity& old = createGroup("g");
   undo.commit();
   size_t const before = store.entityCount;
   undo.begin();
   takeOut(old);
   createGroup("g"); // another one in its place
   EXPECT_NE(group("g"), &old);
   undo.rollBack();
   EXPECT_EQ(group("g"), &old);
   EXPECT_FALSE(old.isErased());
   EXPECT_EQ(store.entityCount, before);
}

TEST_F(UndoLogTest, entityThatWasTakenOutCanBeReadUntilTheNextBlock) {
   undo.begin();
   Entity& old = createGroup("g");
   undo.commit();
   undo.begin();
   takeOut(old);
   undo.commit();
   EXPECT_EQ(group("g"), nullptr);
   EXPECT_TRUE(old.isErased());
   std::string scratch;
   EXPECT_EQ(Store::keyOf(old, scratch), stringBytes("g"));
   store.bury(); // as the next block begins
}

TEST_F(UndoLogTest, numbersOfNodesAreGivenAgain) {
   uint32_t const next = store.nextNode;
   undo.begin();
   Entity& made = make(*store.root, 0, "x", dirType);
   undo.record(Undone::created, made, 0, 0, 0);
   EXPECT_EQ(made.node(), next);
   EXPECT_EQ(store.nextNode, next + 1);
   undo.rollBack();
   EXPECT_EQ(store.nextNode, next);
   EXPECT_EQ(store.node(next), nullptr);
}

} // namespace
