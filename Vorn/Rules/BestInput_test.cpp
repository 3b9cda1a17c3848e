#include "Vorn/Rules/BestInput.h"

#include "records/Bridging/EthGroup.h"
#include "records/Bridging/Input/FdbConfig.h"
#include "records/Bridging/Input/VlanConfig.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Bridging::Input::Config;

Sulvi::EthAddr const unicast("00:1c:73:00:00:01");
Sulvi::EthAddr const multicast("01:00:5e:00:00:01");

// A directory of inputs. Their order is that of their names: "a", "b", "c".
struct BestInputTest : testing::Test {
   Kem::Ptr<Config> input(char const* name) {
      auto const made = Config::make();
      made->nameIs(name);
      dir->entityPtrIs(made);
      return made;
   }
   // The name of the input that wins, "none" where there is none.
   template <class Input>
   static std::string nameOf(Kem::Ptr<Input> const& input) {
      return input ? input->name().str() : "none";
   }
   std::string vlans() { return nameOf(Vorn::bestVlanInput(*dir)); }
   std::string port(char const* intfId) { return nameOf(Vorn::bestPortRecord(*dir, intfId).input); }
   std::string fdb(Sulvi::EthAddr addr, uint16_t vlanId = 10) {
      Kem::Ptr<Config const> best = input("not an input of these"); // to be overwritten in any case
      dir->entityPtrDel("not an input of these");
      Vorn::findBestFdbConfig(*dir, vlanId, addr, best);
      return nameOf(best);
   }
   static void hostIs(Kem::Ptr<Config> const& in, Sulvi::EthAddr addr) {
      in->fdbConfigIs(10)->configuredHostIs(addr, {.addr = addr});
   }

   Kem::Ptr<Kem::Dir> const dir = Kem::Dir::make("config");
};

// --- The input that gives all VLANs.

TEST_F(BestInputTest, greatestPriorityGivesTheVlansWhateverItHolds) {
   EXPECT_EQ(vlans(), "none");
   auto const a = input("a"), b = input("b"), c = input("c");
   a->vlanConfigIs(10);
   a->vlanConfigPriorityIs(1);
   b->vlanConfigPriorityIs(3);
   c->vlanConfigPriorityIs(2);
   EXPECT_EQ(vlans(), "b");
   c->vlanConfigPriorityIs(4000000000u);
   EXPECT_EQ(vlans(), "c");
}

TEST_F(BestInputTest, vlansOfPriorityZeroTakeNoPart) {
   input("a")->vlanConfigIs(10);
   EXPECT_EQ(vlans(), "none");
}

TEST_F(BestInputTest, firstOfEqualsGivesTheVlans) {
   auto const b = input("b"), a = input("a");
   a->vlanConfigPriorityIs(7);
   b->vlanConfigPriorityIs(7);
   EXPECT_EQ(vlans(), "a");
   b->vlanConfigPriorityIs(8);
   EXPECT_EQ(vlans(), "b");
}

TEST_F(BestInputTest, othersInTheDirectoryAreNoInputs) {
   dir->entityPtrIs(Kem::Dir::make("a"));
   input("b")->vlanConfigPriorityIs(1);
   EXPECT_EQ(vlans(), "b");
   std::vector<std::string> seen;
   Vorn::forEachInput(*dir, [&](Kem::Ptr<Config> const& each) { seen.push_back(each->name().str()); });
   EXPECT_EQ(seen, std::vector<std::string>{"b"});
}

// --- The record of a port.

TEST_F(BestInputTest, inputWithoutARecordDoesNotCountForThePort) {
   auto const a = input("a"), b = input("b");
   a->switchIntfConfigPriorityIs(10);
   b->switchIntfConfigPriorityIs(20);
   auto const record = a->switchIntfConfigIs("Ethernet1");
   EXPECT_EQ(port("Ethernet1"), "a");
   EXPECT_EQ(Vorn::bestPortRecord(*dir, "Ethernet1").record, record);
   auto const better = b->switchIntfConfigIs("Ethernet1");
   EXPECT_EQ(port("Ethernet1"), "b");
   EXPECT_EQ(Vorn::bestPortRecord(*dir, "Ethernet1").record, better);
   EXPECT_EQ(port("Ethernet2"), "none");
   EXPECT_EQ(Vorn::bestPortRecord(*dir, "Ethernet2").record, nullptr);
}

TEST_F(BestInputTest, recordOfPriorityZeroTakesNoPart) {
   auto const a = input("a");
   a->switchIntfConfigIs("Ethernet1");
   EXPECT_EQ(port("Ethernet1"), "none");
   a->switchIntfConfigPriorityIs(1);
   EXPECT_EQ(port("Ethernet1"), "a");
}

TEST_F(BestInputTest, firstOfEqualsThatHoldsARecordDecidesThePort) {
   for (char const* const name : {"a", "b", "c"})
      input(name)->switchIntfConfigPriorityIs(10);
   dir->entity<Config>("c")->switchIntfConfigIs("Ethernet1");
   dir->entity<Config>("b")->switchIntfConfigIs("Ethernet1");
   EXPECT_EQ(port("Ethernet1"), "b");
}

TEST_F(BestInputTest, inputsThatCannotWinAreNotSearched) {
   std::vector<std::string> searched;
   for (auto const& [name, priority] : {std::pair("a", 10), {"b", 10}, {"c", 20}, {"d", 0}}) {
      auto const made = input(name);
      made->switchIntfConfigPriorityIs(uint32_t(priority));
      made->switchIntfConfigIs("Ethernet1");
   }
   Vorn::bestPortRecord(*dir, "Ethernet1",
                        [&](Config const& each) { searched.push_back(each.name().str()); });
   EXPECT_EQ(searched, (std::vector<std::string>{"a", "c"}));
}

// --- The input of a static host or group.

TEST_F(BestInputTest, hostOfPriorityZeroTakesPart) {
   EXPECT_EQ(fdb(unicast), "none");
   hostIs(input("a"), unicast);
   EXPECT_EQ(fdb(unicast), "a");
   EXPECT_EQ(fdb(unicast, 11), "none") << "another VLAN";
   EXPECT_EQ(fdb(multicast), "none") << "another address";
}

TEST_F(BestInputTest, lastOfEqualsDecidesTheHost) {
   for (char const* const name : {"a", "b", "c"})
      hostIs(input(name), unicast);
   EXPECT_EQ(fdb(unicast), "c");
   dir->entity<Config>("a")->fdbConfigPriorityIs(1);
   EXPECT_EQ(fdb(unicast), "a") << "the greater priority comes first all the same";
   dir->entity<Config>("b")->fdbConfigPriorityIs(1);
   EXPECT_EQ(fdb(unicast), "b");
}

TEST_F(BestInputTest, inputWithoutTheHostDoesNotCountForIt) {
   hostIs(input("a"), unicast);
   input("b")->fdbConfigPriorityIs(9);
   dir->entity<Config>("b")->fdbConfigIs(10);
   EXPECT_EQ(fdb(unicast), "a");
}

TEST_F(BestInputTest, groupCountsForAMulticastAddressAndAHostForAny) {
   input("a")->fdbConfigIs(10)->ethGroupIs(multicast);
   EXPECT_EQ(fdb(multicast), "a");
   hostIs(input("b"), multicast);
   EXPECT_EQ(fdb(multicast), "b") << "hosts and groups compete for one address";
   // A group with a unicast address doesn't count.
   input("c")->fdbConfigIs(10)->ethGroupIs(unicast);
   EXPECT_EQ(fdb(unicast), "none");
}

} // namespace
