#include "Sulvi/IntfId.h"

#include "Kem/Exception.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>

namespace Sulvi {
namespace {

using namespace std::string_literals;

std::string text(IntfId id) {
   return id.stringValue().str();
}

std::string wireOf(IntfId id) {
   Wire::Writer writer;
   id.encode(writer);
   return std::string(writer.view());
}

std::string wireOfName(std::string_view name) {
   Wire::Writer writer;
   writer.u32(0xffffffffu);
   writer.string(name);
   return std::string(writer.view());
}

// Whether the bytes are refused: the reader is bad and the id is empty.
bool isRefused(std::string_view bytes) {
   Wire::Reader reader(bytes);
   IntfId const id = IntfId::decode(reader);
   return !reader.good() && id.empty();
}

std::string textOfRangeError(auto const& action) {
   try {
      action();
   } catch (Kem::RangeException const& error) {
      return error.what();
   }
   return "nothing raised";
}

// Names of every regular form, with the smallest and the largest number of each field.
std::vector<std::string> regularNames() {
   std::vector<std::string> names = {
       "Cpu",
       "Ethernet0",
       "Ethernet134217727",
       "Ethernet0/0",
       "Ethernet8191/16383",
       "Ethernet0/0/0",
       "Ethernet511/511/511",
       "Ethernet0.0",
       "Ethernet8191.16383",
       "Ethernet0/0.0",
       "Ethernet255/127.4095",
       "Ethernet0/0/0.0",
       "Ethernet31/63/15.4095",
       "Port-Channel0",
       "Port-Channel134217727",
       "Port-Channel8191.16383",
       "Vlan0",
       "Vlan4094",
       "Vlan134217727",
       "Management0",
       "Management8191/16383",
       "Loopback0",
       "Loopback134217727",
       "Internal1",
       "Vxlan1",
   };
   for (int i = 1; i <= 1024; ++i) {
      std::string const n = std::to_string(i);
      for (char const* word :
           {"Ethernet", "Port-Channel", "Vlan", "Management", "Loopback", "Internal", "Vxlan"})
         names.push_back(word + n);
      names.push_back("Ethernet" + n + "/1");
      names.push_back("Ethernet3/" + n);
      names.push_back("Ethernet" + std::to_string(i % 18) + "/" + std::to_string(i % 36 + 1) + "/" +
                      std::to_string(i % 4 + 1));
      names.push_back("Ethernet7." + n);
      names.push_back("Ethernet3/1." + n);
      names.push_back("Ethernet3/1/2." + n);
      names.push_back("Port-Channel5." + n);
   }
   return names;
}

std::vector<std::string> irregularNames() {
   return {
       "Foo7",
       "cpu",
       "Cpu0",
       "ethernet1",
       "Ethernet",
       "Ethernet/1",
       "Ethernet1/",
       "Ethernet1//2",
       "Ethernet01",
       "Ethernet00",
       "Ethernet1/02",
       "Ethernet1.",
       "Ethernet1.01",
       "Ethernet1.2.3",
       "Ethernet1/2/3/4",
       "Ethernet-1",
       "Ethernet+1",
       "Ethernet 1",
       "Ethernet1 ",
       "Ethernet1a",
       "Ethernet134217728",
       "Ethernet4294967296",
       "Ethernet18446744073709551617",
       "Ethernet8192/1",
       "Ethernet1/16384",
       "Ethernet512/1/1",
       "Ethernet1/1/512",
       "Ethernet8192.1",
       "Ethernet1.16384",
       "Ethernet256/1.1",
       "Ethernet1/128.1",
       "Ethernet1/1.4096",
       "Ethernet32/1/1.1",
       "Ethernet1/64/1.1",
       "Ethernet1/1/16.1",
       "Ethernet1/1/1.4096",
       "Port-Channel1/1",
       "Port-Channel8192.1",
       "Port-Channel007",
       "PortChannel1",
       "Vlan1/2",
       "Vlan1.5",
       "Vlan134217728",
       "Management1/2/3",
       "Loopback1/1",
       "Internal1/2",
       "Vxlan1/1",
       ".5",
       ".",
       "/",
       "\xff\xfe",
       "Ethern\xc3\xa9t1",
       std::string(IntfId::maxBytes, 'x'),
   };
}

TEST(IntfId, emptyIdIsTheDefault) {
   EXPECT_EQ(IntfId().rep(), 0u);
   EXPECT_TRUE(IntfId().empty());
   EXPECT_TRUE(IntfId("").empty());
   EXPECT_EQ(IntfId(""), IntfId());
   EXPECT_EQ(text(IntfId()), "");
   EXPECT_EQ(IntfId().kind(), IntfKind::none);
   EXPECT_FALSE(IntfId("Cpu").empty());
   EXPECT_FALSE(IntfId("Foo").empty());
   EXPECT_FALSE(IntfId("Ethernet0").empty());
}

TEST(IntfId, regularNamesComeBackAsTheyWere) {
   for (std::string const& name : regularNames()) {
      IntfId const id(name);
      EXPECT_TRUE(id.isRegular()) << name;
      EXPECT_TRUE(IntfId::isRegularRep(id.rep())) << name;
      EXPECT_EQ(text(id), name);
      EXPECT_EQ(IntfId::fromRep(id.rep()), id);
   }
}

TEST(IntfId, irregularNamesComeBackAsTheyWere) {
   for (std::string const& name : irregularNames()) {
      IntfId const id(name);
      EXPECT_FALSE(id.isRegular()) << name;
      EXPECT_FALSE(IntfId::isRegularRep(id.rep())) << name;
      EXPECT_EQ(text(id), name);
      EXPECT_EQ(IntfId(name), id) << name;
      EXPECT_EQ(IntfId::fromRep(id.rep()), id);
   }
}

TEST(IntfId, differentNamesAreDifferentIds) {
   std::set<std::string> names;
   std::set<uint32_t> reps, hashes;
   for (auto const& list : {regularNames(), irregularNames()}) {
      for (std::string const& name : list) {
         names.insert(name);
         reps.insert(IntfId(name).rep());
         hashes.insert(IntfId(name).hash());
      }
   }
   EXPECT_GT(names.size(), 10000u);
   EXPECT_EQ(reps.size(), names.size());
   EXPECT_EQ(hashes.size(), names.size());
}

// The numbers go into published records, snapshots and onto the wire.
TEST(IntfId, representationsOfRegularNamesAreFixed) {
   EXPECT_EQ(IntfId("Ethernet3").rep(), 0x08000003u);
   EXPECT_EQ(IntfId("Ethernet3/1").rep(), 0x1000c001u);
   EXPECT_EQ(IntfId("Ethernet3/1/2").rep(), 0x180c0202u);
   EXPECT_EQ(IntfId("Ethernet3.100").rep(), 0x2000c064u);
   EXPECT_EQ(IntfId("Ethernet3/1.100").rep(), 0x28181064u);
   EXPECT_EQ(IntfId("Ethernet3/1/2.100").rep(), 0x30c12064u);
   EXPECT_EQ(IntfId("Port-Channel5").rep(), 0x38000005u);
   EXPECT_EQ(IntfId("Port-Channel5.7").rep(), 0x40014007u);
   EXPECT_EQ(IntfId("Vlan100").rep(), 0x48000064u);
   EXPECT_EQ(IntfId("Management1").rep(), 0x50000001u);
   EXPECT_EQ(IntfId("Management1/2").rep(), 0x58004002u);
   EXPECT_EQ(IntfId("Loopback0").rep(), 0x60000000u);
   EXPECT_EQ(IntfId("Internal1").rep(), 0x68000001u);
   EXPECT_EQ(IntfId("Vxlan1").rep(), 0x70000001u);
   EXPECT_EQ(IntfId("Cpu").rep(), 0x78000000u);
}

TEST(IntfId, everyNumberIsRefusedOrGivesBackItself) {
   std::mt19937 random(20);
   int good = 0;
   for (int i = 0; i < 200000; ++i) {
      uint32_t const rep = i % 2 ? random() : random() & 0x7fffffffu;
      if (!IntfId::isRegularRep(rep))
         continue;
      ++good;
      IntfId const id = IntfId::fromRep(rep);
      ASSERT_EQ(IntfId(text(id)).rep(), rep) << text(id);
   }
   EXPECT_GT(good, 50000);
   for (uint32_t rep : {1u, 0x07ffffffu, 0x78000001u, 0x7fffffffu, 0x80000000u, 0xffffffffu})
      EXPECT_FALSE(IntfId::isRegularRep(rep)) << rep;
   EXPECT_TRUE(IntfId::isRegularRep(0));
   EXPECT_TRUE(IntfId::isRegularRep(0x78000000u));
}

TEST(IntfId, tooLongNameIsRefused) {
   EXPECT_EQ(text(std::string(96, 'x')), std::string(96, 'x'));
   EXPECT_EQ(textOfRangeError([] { IntfId(std::string(97, 'x')); }), "IntfId::bytes > 96 not allowed");
}

TEST(IntfId, nameWithNulIsRefused) {
   EXPECT_EQ(textOfRangeError([] { IntfId("Ethernet1\0"s); }), "IntfId with a NUL byte not allowed");
   EXPECT_EQ(textOfRangeError([] { IntfId("\0"s); }), "IntfId with a NUL byte not allowed");
}

TEST(IntfId, handleInitializedParses) {
   IntfId id("Vlan7");
   id.handleInitialized("Ethernet3/1");
   EXPECT_EQ(id, IntfId("Ethernet3/1"));
   EXPECT_THROW(id.handleInitialized(std::string(97, 'x')), Kem::RangeException);
   EXPECT_EQ(id, IntfId("Ethernet3/1"));
   id.handleInitialized("");
   EXPECT_TRUE(id.empty());
}

TEST(IntfId, stringValueIsKept) {
   for (char const* name : {"Ethernet48/4", "Foo48"}) {
      Kem::String8 const& first = IntfId(name).stringValue();
      for (int i = 1; i <= 5000; ++i) {
         IntfId("Ethernet48/" + std::to_string(100 + i)).stringValue();
         IntfId("Bar" + std::to_string(i)).stringValue();
      }
      EXPECT_EQ(&IntfId(name).stringValue(), &first);
      EXPECT_EQ(first.str(), name);
   }
}

TEST(IntfId, shortNameCutsTwoWords) {
   std::pair<char const*, char const*> const cases[] = {
       {"Ethernet3/1", "Et3/1"},
       {"Ethernet3/1.100", "Et3/1.100"},
       {"Port-Channel5", "Po5"},
       {"Port-Channel5.7", "Po5.7"},
       {"Ethernet1/2/3/4", "Et1/2/3/4"},
       {"Ethernet1a", "Et1a"},
       {"Ethernet", "Ethernet"},
       {"EthernetX", "EthernetX"},
       {"Port-ChannelA1", "Port-ChannelA1"},
       {"MyEthernet1", "MyEthernet1"},
       {"Vlan100", "Vlan100"},
       {"Management1", "Management1"},
       {"Loopback0", "Loopback0"},
       {"Cpu", "Cpu"},
       {"Foo7", "Foo7"},
       {"", ""},
   };
   for (auto const& [name, shortName] : cases)
      EXPECT_EQ(IntfId(name).shortName().str(), shortName);
}

TEST(IntfId, numbersOfAName) {
   struct {
      char const* name;
      uint32_t first, last;
   } const cases[] = {
       {"Ethernet7", 7, 7},
       {"Ethernet3/1", 3, 1},
       {"Ethernet3/1/2", 3, 2},
       {"Ethernet3/1.100", 3, 100},
       {"Ethernet3/1/2.100", 3, 100},
       {"Ethernet1/2/3/4", 1, 4},
       {"Ethernet1/2/3/4/5/6.7", 1, 7},
       {"Ethernet4294967295", 4294967295, 4294967295},
       {"Ethernet99999999999999999999999", 4294967295, 4294967295},
       {"Port-Channel5.7", 5, 7},
       {"Vlan100", 100, 100},
       {"Foo7.9", 9, 9},
       {"Foo7", 0, 0},
       {"Ethernet01", 0, 0},
       {"Cpu", 0, 0},
       {"", 0, 0},
   };
   for (auto const& [name, first, last] : cases) {
      EXPECT_EQ(IntfId(name).firstNumber(), first) << name;
      EXPECT_EQ(IntfId(name).lastNumber(), last) << name;
   }
}

TEST(IntfId, ordersAsPeopleRead) {
   // Numbers that are equal but for leading zeros are told apart last, by the bytes.
   std::vector<std::string> const inOrder = {
       "",
       "Cpu",
       "Ethernet0",
       "Ethernet02",
       "Ethernet2",
       "Ethernet2.5",
       "Ethernet2.40",
       "Ethernet2/1",
       "Ethernet2/1.3",
       "Ethernet2/1/9",
       "Ethernet2/10",
       "Ethernet10",
       "Ethernet10/1",
       "Ethernet134217727",
       "Ethernet134217728",
       "Foo2",
       "Foo10",
       "Loopback0",
       "Management1",
       "Port-Channel5",
       "Port-Channel5.7",
       "Port-Channel40",
       "Vlan2",
       "Vlan100",
       "Vxlan1",
       "foo",
   };
   std::vector<IntfId> ids;
   // Named in reverse, so that the index of an irregular name is no help.
   for (auto name = inOrder.rbegin(); name != inOrder.rend(); ++name)
      ids.push_back(*name);
   std::shuffle(ids.begin(), ids.end(), std::mt19937(4));
   std::sort(ids.begin(), ids.end());
   std::vector<std::string> sorted;
   for (IntfId id : ids)
      sorted.push_back(text(id));
   EXPECT_EQ(sorted, inOrder);
   EXPECT_LT(IntfId("Ethernet2"), IntfId("Ethernet10"));
   EXPECT_LT(IntfId("Ethernet2/9"), IntfId("Ethernet2/10"));
   EXPECT_LT(IntfId("Ethernet2/9"), IntfId("Ethernet10"));
   EXPECT_LT(IntfId("Ethernet9.1"), IntfId("Ethernet10"));
   EXPECT_LT(IntfId("Port-Channel5"), IntfId("Vlan1"));
   EXPECT_LT(IntfId("Foo2"), IntfId("Foo10"));
   EXPECT_LT(IntfId("Ethernet134217727"), IntfId("Ethernet134217728"));
   EXPECT_LT(IntfId(), IntfId("Cpu"));
}

TEST(IntfId, orderIsThatOfTheNames) {
   std::vector<std::string> names = regularNames();
   for (std::string const& name : irregularNames())
      names.push_back(name);
   names.push_back("");
   std::mt19937 random(7);
   for (int i = 0; i < 100000; ++i) {
      std::string const& a = names[random() % names.size()];
      std::string const& b = names[random() % names.size()];
      ASSERT_EQ(IntfId(a) <=> IntfId(b), Kem::compareNatural(a, b)) << a << " and " << b;
      ASSERT_EQ(IntfId(a) == IntfId(b), a == b) << a << " and " << b;
   }
}

// The table of a collection takes its buckets from the low bits.
TEST(IntfId, lowBitsOfTheHashAreSpread) {
   auto const fullestOf1024 = [](auto const& nameOf) {
      std::vector<int> load(1024);
      for (int i = 0; i < 1024; ++i)
         ++load[IntfId(nameOf(std::to_string(i))).hash() % 1024];
      return *std::max_element(load.begin(), load.end());
   };
   // Balls thrown at random into as many bins: a fullest bin of 9 or more is a matter of one in a thousand.
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Ethernet" + n; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Ethernet" + n + "/1"; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Ethernet3/" + n; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Port-Channel" + n; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Port-Channel" + n + ".1"; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Ethernet3/1." + n; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Ethernet" + n + ".1"; }), 8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Vlan" + n; }), 8);
   // A chassis: slots, ports, lanes.
   auto const inDigits = [](std::string const& n, int base) {
      int const i = std::stoi(n);
      return std::pair(std::to_string(i / base), std::to_string(i % base));
   };
   EXPECT_LE(fullestOf1024([&](std::string const& n) {
                auto const [slot, port] = inDigits(n, 64);
                return "Ethernet" + slot + "/" + port;
             }),
             8);
   EXPECT_LE(fullestOf1024([&](std::string const& n) {
                auto const [front, lane] = inDigits(n, 4);
                auto const [slot, port] = inDigits(front, 32);
                return "Ethernet" + slot + "/" + port + "/" + lane;
             }),
             8);
   EXPECT_LE(fullestOf1024([](std::string const& n) { return "Foo" + n; }), 8);
}

TEST(IntfId, numbersGoThereAndBack) {
   for (std::string const& name : regularNames()) {
      IntfId const id(name);
      EXPECT_EQ(u32ToIntfId(intfToU32(id)), id) << name;
   }
   EXPECT_EQ(intfToU32(IntfId()), 0u);
   EXPECT_EQ(u32ToIntfId(0), IntfId());
   EXPECT_EQ(text(u32ToIntfId(0x1000c001u)), "Ethernet3/1");
}

TEST(IntfId, idWithoutNumberIsRefused) {
   EXPECT_EQ(textOfRangeError([] { intfToU32(IntfId("Foo7")); }), "IntfId Foo7 has no number");
   EXPECT_EQ(textOfRangeError([] { u32ToIntfId(134217727); }), "number 134217727 is no IntfId");
   EXPECT_EQ(textOfRangeError([] { u32ToIntfId(0x80000000u); }), "number 2147483648 is no IntfId");
   IntfId("Foo7"); // so that an index 0 exists
   EXPECT_THROW(u32ToIntfId(0x80000000u), Kem::RangeException);
}

TEST(IntfIdWire, everyIdComesBack) {
   for (auto const& list : {regularNames(), irregularNames(), {""}}) {
      for (std::string const& name : list) {
         std::string const bytes = wireOf(IntfId(name)) + "behind";
         Wire::Reader reader(bytes);
         EXPECT_EQ(IntfId::decode(reader), IntfId(name)) << name;
         EXPECT_TRUE(reader.good()) << name;
         EXPECT_EQ(reader.remaining(), 6u) << name;
      }
   }
}

TEST(IntfIdWire, formIsFixed) {
   EXPECT_EQ(wireOf(IntfId()), "\0\0\0\0"s);
   EXPECT_EQ(wireOf(IntfId("Ethernet3/1")), "\x01\xc0\x00\x10"s);
   EXPECT_EQ(wireOf(IntfId("Cpu")), "\0\0\0\x78"s);
   EXPECT_EQ(wireOf(IntfId("Foo7")), "\xff\xff\xff\xff\x04"
                                     "Foo7"s);
}

TEST(IntfIdWire, numberThatNoIdHasIsRefused) {
   for (uint32_t rep : {1u, 0x07ffffffu, 0x78000001u, 0x80000000u, 0xfffffffeu}) {
      Wire::Writer writer;
      writer.u32(rep);
      EXPECT_TRUE(isRefused(writer.view())) << rep;
   }
}

TEST(IntfIdWire, nameThatShouldBeANumberIsRefused) {
   for (char const* name : {"Ethernet3/1", "Vlan100", "Cpu", "Port-Channel5.7"})
      EXPECT_TRUE(isRefused(wireOfName(name))) << name;
   EXPECT_FALSE(isRefused(wireOfName("Ethernet03/1")));
}

TEST(IntfIdWire, nameThatNoIdHasIsRefused) {
   EXPECT_TRUE(isRefused(wireOfName("")));
   EXPECT_TRUE(isRefused(wireOfName("Foo\0"s)));
   EXPECT_FALSE(isRefused(wireOfName(std::string(96, 'y'))));
   EXPECT_TRUE(isRefused(wireOfName(std::string(97, 'y'))));
   EXPECT_TRUE(isRefused(wireOfName(std::string(70000, 'y'))));
}

TEST(IntfIdWire, missingBytesAreRefused) {
   std::string const whole = wireOf(IntfId("Foo7"));
   for (size_t size = 0; size < whole.size(); ++size)
      EXPECT_TRUE(isRefused(whole.substr(0, size))) << size;
   EXPECT_TRUE(isRefused("\x01\xc0\x00"s));
}

// What is taken is written back as the same bytes: there is one wire form for an id.
TEST(IntfIdWire, randomBytesAreRefusedOrCanonical) {
   std::mt19937 random(3);
   int taken = 0, names = 0;
   for (int i = 0; i < 200000; ++i) {
      std::string bytes;
      if (i % 4 == 0)
         bytes.assign(4, '\xff');
      size_t const size = random() % 12;
      for (size_t j = 0; j < size; ++j)
         bytes.push_back(static_cast<char>(i % 4 == 0 && j == 0 ? random() % 8 : random()));
      Wire::Reader reader(bytes);
      IntfId const id = IntfId::decode(reader);
      if (!reader.good()) {
         ASSERT_TRUE(id.empty());
         continue;
      }
      ++taken;
      names += !id.isRegular();
      ASSERT_EQ(wireOf(id), bytes.substr(0, bytes.size() - reader.remaining()));
   }
   EXPECT_GT(taken, 10000);
   EXPECT_GT(names, 1000);
}

TEST(IntfIdDeath, representationThatNobodyGaveIsAnAssertion) {
   EXPECT_DEATH(IntfId::fromRep(0xfffffff0u).stringValue(), "index < t.irregular.size()");
}

} // namespace
} // namespace Sulvi
