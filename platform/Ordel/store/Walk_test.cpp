#include "Ordel/store/TestRecords.h"
#include "Ordel/store/Walk.h"

#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::Entity;
using Ordel::Tree;
using Ordel::Walk;

struct WalkTest : testing::Test {
   Tree tree{schema(), 1};
   Entity const& config = *tree.find("config");
   Entity const& dir = *tree.find("input/dir");

   void apply(std::string_view block) { ASSERT_TRUE(tree.apply(block).isDone()) << tree.apply(block).error; }
   static std::vector<Step> vlan(uint16_t id) { return {{Config::vlanConfig, u16Bytes(id)}}; }
   // The pieces of a walk, as hexadecimal digits.
   std::vector<std::string> pieces(Walk& walk, size_t maxBytes) {
      std::vector<std::string> all;
      for (bool isMore = true; isMore;) {
         Wire::Writer out;
         isMore = walk.next(out, maxBytes);
         if (!out.empty())
            all.push_back(hex(out.view()));
      }
      return all;
   }
};

TEST_F(WalkTest, tellsOnlyWhatDiffersFromTheDefaults) {
   Walk nothing(tree, config, Walk::Extent::deep);
   EXPECT_TRUE(pieces(nothing, 1000).empty());
   Block block;
   block.at(config.node())
       .set(Config::count, u32Bytes(7))
       .put(Config::named, stringBytes("x"), "\0"sv)
       .create(Config::vlanConfig, u16Bytes(10), wideVlanType)
       .at(config.node(), vlan(10))
       .set(Vlan::internal, "\1"sv);
   apply(block);
   Walk walk(tree, config, Walk::Extent::deep);
   EXPECT_EQ(pieces(walk, 1000), std::vector<std::string>{hex(block.view())});
}

TEST_F(WalkTest, piecesAreBoundedAndNeverPartACreationFromItsScalars) {
   Block block;
   block.at(config.node());
   for (uint16_t id = 1; id <= 100; ++id)
      block.create(Config::vlanConfig, u16Bytes(id), vlanType)
          .at(config.node(), vlan(id))
          .set(Vlan::internal, "\1"sv)
          .put(Vlan::intf, intfBytes("Ethernet1"), portBytes(1, 0, id))
          .put(Vlan::intf, intfBytes("Ethernet2"), portBytes(1, 0, id))
          .at(config.node());
   apply(block);
   Walk walk(tree, config, Walk::Extent::deep);
   Tree mirror(schema());
   mirror.mount(config.node(), config.type(), "config");
   Wire::Writer out;
   int count = 0;
   for (bool isMore = true; isMore; ++count) {
      out.clear();
      isMore = walk.next(out, 40);
      EXPECT_LT(out.size(), 100u);
      ASSERT_TRUE(mirror.apply(out.view()).isDone());
      for (Ordel::Members member(mirror, *mirror.find("config"), Config::vlanConfig); member.next();)
         EXPECT_EQ(mirror.value(*member.entity(), Vlan::internal), "\1"sv);
   }
   EXPECT_GT(count, 50);
   EXPECT_EQ(dump(mirror, *mirror.find("config")), dump(tree, config));
}

TEST_F(WalkTest, shallowTellsTheNamesOfADirectory) {
   apply(Block().at(dir.node()).createNode("a", configType).createNode("b", dirType));
   Entity const& a = *tree.find("input/dir/a");
   apply(Block().at(a.node()).set(Config::count, u32Bytes(1)));
   apply(Block().at(tree.find("input/dir/b")->node()).createNode("c", groupType));
   Walk walk(tree, dir, Walk::Extent::shallow);
   EXPECT_EQ(pieces(walk, 1000),
             std::vector<std::string>{hex(Block()
                                              .at(dir.node())
                                              .createNode("a", configType, a.node())
                                              .createNode("b", dirType, tree.find("input/dir/b")->node()))});
   EXPECT_TRUE(walk.knows(dir));
   EXPECT_FALSE(walk.knows(a));
   Walk entity(tree, a, Walk::Extent::shallow);
   EXPECT_EQ(pieces(entity, 1000),
             std::vector<std::string>{hex(Block().at(a.node()).set(Config::count, u32Bytes(1)))});
}

TEST_F(WalkTest, knowsWhatItHasTold) {
   apply(Block()
             .at(config.node())
             .create(Config::vlanConfig, u16Bytes(1), vlanType)
             .create(Config::vlanConfig, u16Bytes(2), vlanType));
   Entity const& one = *tree.child(config, Config::vlanConfig, u16Bytes(1));
   Entity const& two = *tree.child(config, Config::vlanConfig, u16Bytes(2));
   Walk walk(tree, config, Walk::Extent::deep);
   EXPECT_TRUE(walk.knows(config));
   EXPECT_FALSE(walk.knows(one));
   Wire::Writer out;
   EXPECT_TRUE(walk.next(out, 1));
   EXPECT_TRUE(walk.knows(one));
   EXPECT_FALSE(walk.knows(two));
   apply(Block().at(config.node()).create(Config::vlanConfig, u16Bytes(3), vlanType));
   EXPECT_TRUE(walk.knows(*tree.child(config, Config::vlanConfig, u16Bytes(3)))); // the change tells it
   apply(Block().at(config.node()).erase(Config::vlanConfig, u16Bytes(1)));
   EXPECT_FALSE(walk.knows(one));
}

TEST_F(WalkTest, leavesWhatIsErasedUnderneathIt) {
   apply(Block().at(dir.node()).createNode("a", configType).createNode("b", groupType));
   uint32_t const a = tree.find("input/dir/a")->node();
   Block block;
   block.at(a);
   for (uint16_t id = 1; id <= 20; ++id)
      block.create(Config::vlanConfig, u16Bytes(id), vlanType);
   apply(block);
   Walk walk(tree, dir, Walk::Extent::deep);
   Walk inside(tree, *tree.find("input/dir/a"), Walk::Extent::deep);
   Wire::Writer out;
   EXPECT_TRUE(walk.next(out, 60));
   EXPECT_TRUE(inside.next(out, 20));
   apply(Block().at(tree.find("input")->node()).at(dir.node()).erase(0, stringBytes("a")));
   EXPECT_FALSE(walk.knows(*tree.find("input/dir/b")));
   EXPECT_EQ(pieces(walk, 1000),
             std::vector<std::string>{
                 hex(Block().at(dir.node()).createNode("b", groupType, tree.find("input/dir/b")->node()))});
   EXPECT_TRUE(pieces(inside, 1000).empty());
}

TEST_F(WalkTest, aRefusedBlockDisturbsNoWalk) {
   apply(Block()
             .at(config.node())
             .create(Config::vlanConfig, u16Bytes(1), vlanType)
             .create(Config::vlanConfig, u16Bytes(2), vlanType));
   Walk walk(tree, config, Walk::Extent::deep);
   Wire::Writer out;
   EXPECT_TRUE(walk.next(out, 1));
   ASSERT_FALSE(tree.apply(Block()
                               .at(config.node())
                               .erase(Config::vlanConfig, u16Bytes(1))
                               .erase(Config::vlanConfig, u16Bytes(2))
                               .set(Config::vlan, u16Bytes(0)))
                    .isDone());
   EXPECT_TRUE(walk.knows(*tree.child(config, Config::vlanConfig, u16Bytes(1))));
   while (walk.next(out, 1000)) {
   }
   EXPECT_TRUE(walk.knows(*tree.child(config, Config::vlanConfig, u16Bytes(2))));
}

} // namespace
