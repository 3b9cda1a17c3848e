// Keys that the schema doesn't let in: of a collection of multicast addresses any other, and one that is in a
// collection which is kept apart.
#include "Ordel/store/Applier.h"
#include "Ordel/store/TestRecords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::Applied;
using Ordel::Applier;
using Ordel::Store;

// The schema of the other tests with conditions on keys: named and group are apart (keys are texts, one of them
// holds entities), learned and host are (addresses), and host takes multicast addresses only.
struct ConditionTables : Tables {
   ConditionTables() {
      for (auto* const attributes : {&configAttributes, &cliAttributes}) {
         apart(*attributes, Config::named, Config::group);
         apart(*attributes, Config::learned, Config::host);
         (*attributes)[Config::host].isMulticast = true;
      }
   }
   static void apart(std::vector<Attribute>& attributes, uint8_t a, uint8_t b) {
      attributes[a].apart = b;
      attributes[b].apart = a;
   }
};

struct SharedKeysTest : testing::Test {
   ConditionTables const conditions;
   Store store{conditions.schema, false};
   Applier applier{store};

   SharedKeysTest() { EXPECT_EQ(apply(Block().at(store.root->node()).createNode("a", configType)), ""); }
   uint32_t a(Store const& in) {
      std::string_view rest;
      return in.reach("a", rest)->node();
   }
   uint32_t a() { return a(store); }
   // Empty when it was taken.
   std::string apply(Block const& block) { return applier.apply(block, 0).error; }
   Block at() { return Block().at(a()); }
   static std::string host(std::string_view addr) {
      return std::string(addr) + intfBytes("Ethernet1") + std::string(1, '\0');
   }

   std::string const x = stringBytes("x");
};

TEST_F(SharedKeysTest, keyThatAnotherCollectionHasIsRefusedInBothDirections) {
   EXPECT_EQ(apply(at().put(Config::named, x, "\1")), "");
   EXPECT_EQ(apply(at().create(Config::group, x, groupType)), "a.group[x]: is in named too");
   EXPECT_EQ(apply(at().create(Config::group, stringBytes("y"), groupType)), "");
   EXPECT_EQ(apply(at().set(Config::count, u32Bytes(7)).put(Config::named, stringBytes("y"), "\1")),
             "a.named[y]: is in group too");
   // Nothing of a refused block is there.
   EXPECT_EQ(apply(at().erase(Config::group, stringBytes("y"))), "");
   EXPECT_EQ(apply(at().put(Config::named, stringBytes("y"), "\1")), "");
}

TEST_F(SharedKeysTest, blockThatHasBothIsRefusedAndOneThatMovesAKeyIsTaken) {
   EXPECT_EQ(apply(at().put(Config::named, x, "\1").create(Config::group, x, groupType)),
             "a.group[x]: is in named too");
   EXPECT_EQ(apply(at().put(Config::named, x, "\1")), "");
   EXPECT_EQ(apply(at().create(Config::group, x, groupType).erase(Config::named, x)), "");
   EXPECT_EQ(apply(at().put(Config::named, x, "\1").erase(Config::group, x)), "");
   EXPECT_EQ(apply(at().create(Config::group, x, groupType)), "a.group[x]: is in named too");
}

TEST_F(SharedKeysTest, entityThatGoesInTheSameBlockIsNotLookedAt) {
   EXPECT_EQ(apply(at().put(Config::named, x, "\1")
                       .create(Config::group, x, groupType)
                       .at(store.root->node())
                       .erase(0, stringBytes("a"))),
             "");
}

TEST_F(SharedKeysTest, addressesAreKeptApartTooAndWhereOnlyMulticastIsTakenNoOther) {
   std::string_view const multicast = "\1bcdef", unicast = "\2bcdef";
   EXPECT_EQ(apply(at().put(Config::host, unicast, host(unicast))),
             "a.host[02:62:63:64:65:66]: is no multicast address");
   EXPECT_EQ(apply(at().put(Config::host, multicast, host(multicast))), "");
   EXPECT_EQ(apply(at().erase(Config::host, unicast)), "") << "what can't be there may be erased";
}

TEST_F(SharedKeysTest, mirrorTakesWhatItIsToldInAnyOrder) {
   Ordel::Tree mirror(conditions.schema);
   mirror.mount(77, conditions.entities[configType], "a");
   for (Block const& block :
        {Block().at(77).put(Config::named, x, "\1"), Block().at(77).create(Config::group, x, groupType),
         Block().at(77).erase(Config::named, x)})
      EXPECT_EQ(mirror.apply(block).error, "");
}

TEST_F(SharedKeysTest, snapshotWithAKeyInBothIsRefused) {
   Store loaded{conditions.schema, false};
   loaded.nextNode = 100;
   Applier loader{loaded};
   EXPECT_EQ(loader
                 .load(Block()
                           .at(loaded.root->node())
                           .createNode("a", configType, 77)
                           .at(77)
                           .put(Config::named, x, "\1")
                           .create(Config::group, x, groupType))
                 .error,
             "a.group[x]: is in named too");
}

} // namespace
