// Random blocks of operations, good and bad, on a tree and on a plain model of it; and a mirror and a walk
// that have to end up with the same.
#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Tree.h"
#include "Ordel/store/Walk.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

namespace {

using namespace TestRecords;
using Ordel::Applied;
using Ordel::Entity;
using Ordel::Tree;
using Ordel::Walk;

// An entity as a person would write it down.
struct Model {
   uint16_t type = dirType;
   std::string key;   // wire form
   uint32_t node = 0; // 0 for what is no node
   unsigned bornIn = 0;
   size_t depth = 0, steps = 0;
   std::map<uint8_t, std::string> scalars;                        // what was ever set
   std::map<uint8_t, std::map<std::string, std::string>> members; // values
   std::map<uint8_t, std::map<std::string, Model>> entities;

   EntityType const& entityType() const { return schema().entities[type]; }

   std::string dump(std::string const& indent = {}) const {
      std::string text = indent + std::string(entityType().name);
      if (node)
         text += " #" + std::to_string(node);
      text += "\n";
      auto const& attributes = entityType().attributes;
      for (uint8_t i = 0; i < attributes.size(); ++i) {
         std::string const head = indent + " " + std::string(attributes[i].name);
         if (!attributes[i].key) {
            text += head + " = " + hex(scalar(i)) + "\n";
            continue;
         }
         if (auto const found = members.find(i); found != members.end())
            for (auto const& [memberKey, value] : found->second)
               text += head + " " + hex(memberKey) + ": " + hex(value) + "\n";
         if (auto const found = entities.find(i); found != entities.end())
            for (auto const& [memberKey, below] : found->second)
               text += head + " " + hex(memberKey) + ": \n" + below.dump(indent + "  ");
      }
      return text;
   }
   // A name in a directory tells no number.
   bool isKeyTold(uint8_t attribute) const {
      return static_cast<int>(attribute) == entityType().keyAttribute &&
             (!node || entityType().attributes[attribute].value->kind == Kind::string);
   }
   std::string scalar(uint8_t attribute) const {
      if (isKeyTold(attribute))
         return key;
      auto const found = scalars.find(attribute);
      if (found != scalars.end())
         return found->second;
      Attribute const& a = entityType().attributes[attribute];
      return std::string(a.form == Form::reference ? "\0"sv : a.initial);
   }
};

struct RandomTest : testing::TestWithParam<unsigned> {
   std::mt19937 random{GetParam()};
   Tree tree{schema(), 1};
   Model model;
   unsigned serial = 0;
   uint32_t nextNode = 1;
   std::vector<std::pair<Entity const*, std::string>> passedOn; // by the last block, by entity, with the `at`

   RandomTest() {
      model.node = nextNode++;
      for (auto const& place : tables().places) {
         Model* at = &model;
         std::string path = (place.isCell ? "cell/1/" : "") + std::string(place.path);
         while (!path.empty()) {
            size_t const slash = path.find('/');
            std::string const key = stringBytes(path.substr(0, slash));
            bool const isLast = slash == std::string::npos;
            auto& below = at->entities[0];
            if (!below.count(key)) {
               below[key] = newEntity(isLast ? place.type->id : uint16_t{dirType}, key, true);
               below[key].depth = at->depth + 1;
            }
            at = &below[key];
            path = isLast ? "" : path.substr(slash + 1);
         }
      }
   }

   Model newEntity(uint16_t type, std::string const& key, bool isNode) {
      Model made;
      made.type = type;
      made.key = key;
      made.node = isNode ? nextNode++ : 0;
      made.bornIn = serial;
      return made;
   }

   unsigned below(unsigned bound) { return static_cast<unsigned>(random() % bound); }
   template <class Range>
   auto const& pick(Range const& range) {
      return range[below(static_cast<unsigned>(std::size(range)))];
   }

   std::string randomKey(ValueType const& type) {
      Tables const& kinds = tables();
      if (&type == &kinds.name || &type == &kinds.string)
         return stringBytes(
             pick(std::vector<std::string>{"a", "b", "c", "long name of many bytes", "e", "f"}));
      if (&type == &kinds.intfId)
         return intfBytes(pick(std::vector<std::string>{"", "Odd one", "odder/7"}) == ""
                              ? "Ethernet" + std::to_string(1 + below(20))
                              : "Odd " + std::to_string(below(4)));
      if (&type == &kinds.vlanId)
         return u16Bytes(static_cast<uint16_t>(1 + below(5)));
      return randomValue(type);
   }
   std::string randomValue(ValueType const& type) {
      Tables const& kinds = tables();
      if (&type == &kinds.boolean)
         return below(2) ? "\1" : std::string(1, '\0');
      if (&type == &kinds.vlanId)
         return u16Bytes(static_cast<uint16_t>(1 + below(3)));
      if (&type == &kinds.string || &type == &kinds.nsName)
         return stringBytes(
             pick(std::vector<std::string>{"", "none", "text", std::string(300, 'x').substr(0, 120)}));
      if (&type == &kinds.intfId)
         return randomKey(type);
      if (type.kind == Kind::float64)
         return std::string("\0\0\0\0\0\0\0", 7) + static_cast<char>(below(3));
      if (type.kind == Kind::record) {
         std::string bytes;
         for (auto const& field : type.fields)
            bytes += randomValue(*field.type);
         return bytes;
      }
      std::string bytes(type.size, '\0');
      bytes[0] = static_cast<char>(below(type.rangeText ? static_cast<unsigned>(type.max + 1) : 12));
      return bytes;
   }

   // One block on both; the model is given a copy that is kept only when nothing is refused.
   void turn() {
      ++serial;
      passedOn.clear();
      Model copy = model;
      uint32_t const nextBefore = nextNode;
      Block block;
      bool isRefused = false;
      unsigned const operations = 1 + below(30);
      for (unsigned i = 0; i < operations && !isRefused; ++i) {
         Model& target = randomEntity(copy, block);
         isRefused = randomOperation(target, block);
      }
      std::string const before = dump(tree);
      Applied const& applied = tree.apply(block);
      ASSERT_EQ(applied.isDone(), !isRefused) << applied.error << " " << hex(block);
      if (isRefused) {
         nextNode = nextBefore;
         ASSERT_EQ(dump(tree), before);
         ASSERT_EQ(tree.bytes(), tree.countBytes());
         return;
      }
      model = std::move(copy);
      std::string const now = dump(tree);
      ASSERT_EQ(now, model.dump());
      ASSERT_EQ(tree.nextNode(), nextNode);
      ASSERT_EQ(tree.bytes(), tree.countBytes());
      ASSERT_TRUE(now == before || !applied.bytes.empty());
      for (auto const& group : applied.groups) {
         ASSERT_LT(group.body, group.end);
         passedOn.push_back(
             {group.entity, std::string(applied.at(group)) + std::string(applied.operations(group))});
      }
   }

   // Goes down at random and names where it ends, by the last node or from a directory above.
   Model& randomEntity(Model& root, Block& block) {
      Model* at = &root;
      uint32_t node = root.node;
      std::vector<Step> steps;
      while (below(6) != 0 && steps.size() < 8) {
         std::vector<std::pair<uint8_t, std::map<std::string, Model>*>> ways;
         for (auto& [attribute, entities] : at->entities)
            if (!entities.empty())
               ways.push_back({attribute, &entities});
         if (ways.empty())
            break;
         auto const& [attribute, entities] = pick(ways);
         auto next = entities->begin();
         std::advance(next, below(static_cast<unsigned>(entities->size())));
         steps.push_back({attribute, next->first});
         at = &next->second;
         // Nodes of this block have no number that a client could know.
         if (at->node && at->bornIn < serial && below(4) != 0) {
            node = at->node;
            steps.clear();
         }
      }
      block.at(node, steps);
      return *at;
   }

   // True when the operation has to be refused.
   bool randomOperation(Model& target, Block& block) {
      auto const& attributes = target.entityType().attributes;
      if (below(200) == 0) {
         block.set(static_cast<uint8_t>(attributes.size()), "\0"sv);
         return true;
      }
      auto const number = static_cast<uint8_t>(below(static_cast<unsigned>(attributes.size())));
      Attribute const& attribute = attributes[number];
      if (below(200) == 0) { // the wrong form
         if (attribute.key)
            block.set(number, randomValue(tables().u64));
         else
            block.put(number, "\0\0\0\0"sv, "\0\0\0\0"sv);
         return true;
      }
      switch (attribute.form) {
      case Form::scalar:
         return randomSet(target, number, block);
      case Form::reference:
      case Form::references: {
         std::string const value =
             stringBytes(pick(std::vector<std::string>{"", "config", "a..b", "config.vlanConfig[1]"}));
         if (attribute.form == Form::reference) {
            block.set(number, value);
            target.scalars[number] = value;
         } else {
            std::string const key = randomKey(*attribute.key);
            block.put(number, key, value);
            target.members[number][key] = value;
         }
         return value == stringBytes("a..b");
      }
      case Form::map: {
         std::string const key = randomKey(*attribute.key);
         if (below(3) == 0) {
            block.erase(number, key);
            target.members[number].erase(key);
            return false;
         }
         std::string value = randomValue(*attribute.value);
         bool isBad = attribute.value == &tables().port && below(100) == 0;
         if (isBad)
            value[1] = 2;
         if (attribute.value->hasKey && below(30) != 0)
            value.replace(0, key.size(), key);
         else if (attribute.value->hasKey)
            isBad = !value.starts_with(key);
         block.put(number, key, value);
         target.members[number][key] = value;
         return isBad;
      }
      case Form::children:
         return randomChild(target, number, block);
      }
      return false;
   }

   bool randomSet(Model& target, uint8_t number, Block& block) {
      Attribute const& attribute = target.entityType().attributes[number];
      std::string value = randomValue(*attribute.value);
      bool const isKey = target.isKeyTold(number);
      if (isKey && below(10) != 0)
         value = target.key;
      bool const isBad = attribute.value == &tables().vlanId && below(20) == 0;
      if (isBad)
         value = u16Bytes(below(2) ? 0 : 4095);
      bool const isSame = target.scalar(number) == value;
      bool const isLate = isKey || (attribute.isInput && target.bornIn != serial);
      block.set(number, value);
      target.scalars[number] = value;
      return isBad || (isLate && !isSame);
   }

   bool randomChild(Model& target, uint8_t number, Block& block) {
      Attribute const& attribute = target.entityType().attributes[number];
      std::string const key = randomKey(*attribute.key);
      auto& entities = target.entities[number];
      if (below(5) == 0) {
         block.erase(number, key);
         entities.erase(key);
         return false;
      }
      bool const isDirectory = target.type == dirType;
      uint16_t type;
      bool isFit = true;
      if (isDirectory) {
         type = static_cast<uint16_t>(below(6));
      } else {
         type = attribute.target->id;
         if (type == vlanType && below(3) == 0)
            type = wideVlanType;
         if (below(60) == 0) {
            type = configType;
            isFit = false;
         }
      }
      auto const standing = entities.find(key);
      if (standing != entities.end() && below(10) != 0)
         type = standing->second.type;
      block.create(number, key, type);
      if (isDirectory)
         block.raw("\0\0\0\0"sv);
      if (standing != entities.end())
         return standing->second.type != type;
      if (!isFit)
         return true;
      bool const isTooDeep = isDirectory ? target.depth + (type == dirType) > Ordel::maxPathDepth
                                         : target.steps >= Ordel::maxStepCount;
      if (isTooDeep)
         return true;
      Model made = newEntity(type, key, isDirectory);
      made.depth = isDirectory ? target.depth + 1 : target.depth;
      made.steps = isDirectory ? 0 : target.steps + 1;
      entities[key] = std::move(made);
      return false;
   }
};

TEST_P(RandomTest, treeIsAsTheModelSays) {
   for (int i = 0; i < 150; ++i) {
      turn();
      if (HasFatalFailure())
         return;
   }
}

TEST_P(RandomTest, aMirrorThatTakesWhatIsPassedOnIsTheSame) {
   Tree mirror(schema());
   Walk walk(tree, tree.root(), Walk::Extent::deep);
   Wire::Writer all;
   ASSERT_FALSE(walk.next(all, 1 << 20));
   mirror.mount(Ordel::rootNode, schema().entities[dirType], "");
   ASSERT_TRUE(mirror.apply(all.view()).isDone());
   for (int i = 0; i < 80; ++i) {
      turn();
      if (HasFatalFailure())
         return;
      for (auto const& [entity, bytes] : passedOn)
         ASSERT_TRUE(mirror.apply(bytes).isDone());
      ASSERT_EQ(dump(mirror), dump(tree));
   }
}

// A reader that takes the pieces of a walk between the blocks, and the changes of what it knows, has the same
// tree when it is through.
TEST_P(RandomTest, aWalkAmongChangesEndsWithThePresentState) {
   for (int i = 0; i < 30; ++i)
      turn();
   int pieces = 0;
   for (int round = 0; round < 10; ++round) {
      Tree mirror(schema());
      mirror.mount(Ordel::rootNode, schema().entities[dirType], "");
      Walk walk(tree, tree.root(), Walk::Extent::deep);
      Wire::Writer piece;
      for (bool isMore = true; isMore; ++pieces) {
         piece.clear();
         isMore = walk.next(piece, 1 + below(200));
         ASSERT_TRUE(!isMore || !piece.empty());
         Applied const& taken = mirror.apply(piece.view());
         ASSERT_TRUE(taken.isDone()) << taken.error;
         if (!isMore)
            break;
         turn();
         if (HasFatalFailure())
            return;
         for (auto const& [entity, bytes] : passedOn)
            if (walk.knows(*entity)) {
               Applied const& followed = mirror.apply(bytes);
               ASSERT_TRUE(followed.isDone()) << followed.error;
            }
      }
      ASSERT_EQ(dump(mirror), dump(tree));
   }
   EXPECT_GT(pieces, 50);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTest, testing::Range(1u, 21u));

} // namespace
