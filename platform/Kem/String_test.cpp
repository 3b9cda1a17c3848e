#include "Kem/String.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <unordered_set>
#include <vector>

namespace {

using Kem::compareNatural;
using Kem::Name;
using Kem::String8;
using std::literals::operator""sv;

static_assert(sizeof(String8) == sizeof(void*));
static_assert(sizeof(Name) == sizeof(void*));

TEST(String8, emptyHasBytesToPointTo) {
   String8 const empty;
   EXPECT_TRUE(empty.empty());
   EXPECT_EQ(empty.size(), 0u);
   EXPECT_STREQ(empty.charPtr(), "");
   EXPECT_EQ(empty, String8(""));
   EXPECT_EQ(empty.hash(), String8("").hash());
}

TEST(String8, copiesShareTheirBytes) {
   String8 const a = "Ethernet1";
   String8 const b = a;
   EXPECT_EQ(a.charPtr(), b.charPtr());
   EXPECT_EQ(a, b);
}

TEST(String8, keepsNulsAndBytesAbove127) {
   String8 const text = "a\0b\xff"sv;
   EXPECT_EQ(text.size(), 4u);
   EXPECT_EQ(text.view(), "a\0b\xff"sv);
   EXPECT_EQ(text.charPtr()[4], '\0');
   EXPECT_NE(text, String8("a"));
}

TEST(String8, equalTextsOfDifferentOriginAreEqual) {
   String8 const a = "vlan", b = String8("vl") + "an";
   EXPECT_NE(a.charPtr(), b.charPtr());
   EXPECT_EQ(a, b);
   EXPECT_EQ(a.hash(), b.hash());
   EXPECT_NE(a, String8("vlam"));
}

TEST(String8, appendingLeavesCopiesAlone) {
   String8 a = "Ethernet";
   String8 const before = a;
   a += "3/1";
   EXPECT_EQ(a.view(), "Ethernet3/1");
   EXPECT_EQ(before.view(), "Ethernet");
   a += "";
   EXPECT_EQ(a.view(), "Ethernet3/1");
   EXPECT_EQ((String8() + "x").view(), "x");
   a += a;
   EXPECT_EQ(a.view(), "Ethernet3/1Ethernet3/1");
}

TEST(String8, ordersByBytes) {
   EXPECT_LT(String8("a"), String8("ab"));
   EXPECT_LT(String8("Z"), String8("a"));
   EXPECT_LT(String8("~"), String8("\x80"));
   EXPECT_LT(String8(), String8("a"));
}

TEST(String8, movedFromIsEmptyAndCanBeAssigned) {
   String8 a = "x";
   String8 const b = std::move(a);
   EXPECT_TRUE(a.empty());
   a = b;
   EXPECT_EQ(a, b);
}

TEST(String8, hashIsTheSameInEveryProcess) {
   // Published values of FNV-1a, 32 bits.
   EXPECT_EQ(String8("").hash(), 0x811c9dc5u);
   EXPECT_EQ(String8("a").hash(), 0xe40c292cu);
   EXPECT_EQ(String8("foobar").hash(), 0xbf9cf968u);
}

TEST(Name, standsInHashedContainersByItsText) {
   std::unordered_set<Name> const names{"cli", "mlag", "cli"};
   EXPECT_EQ(names.size(), 2u);
   EXPECT_TRUE(names.contains(Name("mlag")));
   EXPECT_EQ(Name("cli").stringValue(), String8("cli"));
}

// -1, 0 or 1.
int order(std::string_view a, std::string_view b) {
   auto const o = compareNatural(a, b);
   return o < 0 ? -1 : o > 0 ? 1 : 0;
}

TEST(CompareNatural, readsRunsOfDigitsAsNumbers) {
   EXPECT_LT(order("Ethernet2", "Ethernet10"), 0);
   EXPECT_LT(order("Ethernet3/2", "Ethernet3/10"), 0);
   EXPECT_LT(order("Ethernet3/10", "Ethernet10/2"), 0);
   EXPECT_GT(order("2", "1"), 0);
   EXPECT_LT(order("99999999999999999999998", "99999999999999999999999"), 0);
   EXPECT_LT(order("9", "99999999999999999999999"), 0);
}

TEST(CompareNatural, comparesOtherBytesByValue) {
   EXPECT_LT(order("Ethernet1", "Vlan1"), 0);
   EXPECT_LT(order("a", "a1"), 0);
   EXPECT_LT(order("", "0"), 0);
   EXPECT_LT(order("a", "\xff"), 0);
   EXPECT_EQ(order("po1.5", "po1.5"), 0);
}

TEST(CompareNatural, leadingZerosDecideLast) {
   EXPECT_LT(order("a01b", "a1c"), 0);
   EXPECT_NE(order("a01", "a1"), 0);
   EXPECT_EQ(order("a01", "a1"), -order("a1", "a01"));
   EXPECT_LT(order("0", "00"), 0);
}

TEST(CompareNatural, isATotalOrder) {
   std::vector<std::string> const texts = {
       "",    "0",   "00", "1", "01", "10",  "a", "a0",  "a00",  "a01",  "a1", "a1b", "a01b", "a10", "a2",
       "a2/", "a/2", "b",  "/", "1a", "01a", ":", "1:2", "1:10", "01:2", "~",  "1~",  "001",  "1.0", "1.00"};
   for (auto const& a : texts) {
      for (auto const& b : texts) {
         EXPECT_EQ(order(a, b) == 0, a == b) << a << " and " << b;
         EXPECT_EQ(order(a, b), -order(b, a)) << a << " and " << b;
         for (auto const& c : texts)
            if (order(a, b) < 0 && order(b, c) < 0) {
               EXPECT_LT(order(a, c), 0) << a << ", " << b << ", " << c;
            }
      }
   }
}

} // namespace
