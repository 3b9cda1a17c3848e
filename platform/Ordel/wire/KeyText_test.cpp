#include "Ordel/store/TestRecords.h"
#include "Ordel/wire/KeyText.h"
#include "Sulvi/IntfId.h"

#include <gtest/gtest.h>

namespace {

using namespace TestRecords;
using Ordel::keyFromText;
using Ordel::keyText;

void verifyBothWays(ValueType const& type, std::string const& text, std::string_view wire) {
   Ordel::KeyBytes const key = keyFromText(type, text);
   EXPECT_EQ(key.error, "") << text;
   EXPECT_EQ(hex(key.bytes), hex(wire)) << text;
   EXPECT_EQ(keyText(type, wire), text);
}

void verifyError(ValueType const& type, std::string_view text, std::string const& error) {
   Ordel::KeyBytes const key = keyFromText(type, text);
   EXPECT_FALSE(key.isGood());
   EXPECT_EQ(key.error, error);
   EXPECT_EQ(key.bytes, "");
}

Tables const& t = tables();

TEST(KeyTextTest, everyKindHasItsTextForm) {
   verifyBothWays(t.boolean, "true", "\1"sv);
   verifyBothWays(t.boolean, "false", "\0"sv);
   verifyBothWays(t.u8, "255", "\xff"sv);
   verifyBothWays(t.u64, "18446744073709551615", "\xff\xff\xff\xff\xff\xff\xff\xff"sv);
   verifyBothWays(t.s32, "-2", "\xfe\xff\xff\xff"sv);
   verifyBothWays(t.float64, "0.5", "\0\0\0\0\0\0\xe0\x3f"sv);
   verifyBothWays(t.vlanId, "4094", "\xfe\x0f"sv);
   verifyBothWays(t.string, "any / text.", "\013any / text."sv);
   verifyBothWays(t.string, "", "\0"sv);
   verifyBothWays(t.nsName, "blue", "\4blue"sv);
   verifyBothWays(t.intfId, "Ethernet3/1.100", intfBytes("Ethernet3/1.100"));
   verifyBothWays(t.intfId, "Odd one", "\xff\xff\xff\xff\7Odd one"sv);
   verifyBothWays(t.ethAddr, "00:1c:73:00:00:0a", "\0\x1c\x73\0\0\x0a"sv);
   verifyBothWays(t.mode, "trunk_", "\1"sv);
   verifyBothWays(t.openMode, "9", "\x09"sv);
   verifyBothWays(t.xlate, "100/7", "\x64\0\7\0"sv);
}

TEST(KeyTextTest, takesMoreThanItMakes) {
   EXPECT_EQ(keyFromText(t.mode, "1").bytes, "\1"sv);
   EXPECT_EQ(keyText(t.ethAddr, keyFromText(t.ethAddr, "00:1C:73:00:00:0A").bytes), "00:1c:73:00:00:0a");
}

TEST(KeyTextTest, saysWhatIsExpected) {
   verifyError(t.boolean, "yes", "\"yes\" is no bool: true or false is expected");
   verifyError(t.u8, "256", "\"256\" is no u8: a number up to 255 is expected");
   verifyError(t.u8, "-1", "\"-1\" is no u8: a number is expected");
   verifyError(t.u16, "12x", "\"12x\" is no u16: a number is expected");
   verifyError(t.u64, "18446744073709551616",
               "\"18446744073709551616\" is no u64: a number up to "
               "18446744073709551615 is expected");
   verifyError(t.vlanId, "0", "VlanId::value < 1 or > 4094 not allowed");
   verifyError(t.vlanId, "99999999999999999999", "VlanId::value < 1 or > 4094 not allowed");
   verifyError(t.mode, "tap_", "\"tap_\" is no Test::Mode: one of its names, or a number is expected");
   verifyError(t.xlate, "100", "\"100\" is no Test::Xlate: 2 fields joined by \"/\" is expected");
   verifyError(t.xlate, "100/x", "\"x\" is no u16: a number is expected");
   verifyError(t.port, "1/2/3", "Test::Port has no text form");
   verifyError(t.nsName, std::string(151, 'n'), "NamespaceName::bytes > 150 not allowed");
   EXPECT_FALSE(keyFromText(t.ethAddr, "00:1c:73").isGood());
   EXPECT_FALSE(keyFromText(t.intfId, std::string(200, 'x')).isGood());
   EXPECT_FALSE(keyFromText(t.float64, "nan").isGood());
   EXPECT_FALSE(keyFromText(t.s32, "2147483648").isGood());
}

TEST(KeyTextTest, bytesThatAreNoValueComeOutAsDigits) {
   EXPECT_EQ(keyText(t.u16, "\1"sv), "0x01");
   EXPECT_EQ(keyText(t.u16, "\1\2\3"sv), "0x010203");
   EXPECT_EQ(keyText(t.string, "\5ab"sv), "0x056162");
   EXPECT_EQ(keyText(t.port, "\1\0\0\0\0\0"sv), "0x010000000000");
}

TEST(KeyTextTest, interfaceIsAlsoGivenByItsNumber) {
   uint32_t const number = Sulvi::intfToU32("Ethernet3/1");
   EXPECT_EQ(keyFromText(t.intfId, std::to_string(number)).bytes, intfBytes("Ethernet3/1"));
   for (char const* text : {"0", "5", "4711", "4294967295", "99999999999"})
      verifyError(t.intfId, text,
                  "no interface has this number; expected a name, such as Ethernet3/1, or the number that "
                  "stands for it");
   EXPECT_EQ(keyFromText(t.intfId, "").error, "");
}

TEST(KeyTextTest, closedEnumerationHasNoOtherNumbers) {
   verifyError(tables().mode, "2", "Mode::value > 1 not allowed");
}

} // namespace
