#include "Ordel/store/TestRecords.h"
#include "treejson/Error.h"
#include "treejson/Values.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace TestRecords;
using TreeJson::JsonReader;
using namespace std::string_literals;

std::string written(ValueType const& type, std::string_view wire) {
   std::string text;
   TreeJson::writeValue(type, wire, text);
   return text;
}

// Wire form of the JSON, or "place: reason".
std::string read(ValueType const& type, std::string_view json) {
   JsonReader in(json);
   Wire::Writer out;
   try {
      TreeJson::readValue(type, in, out);
   } catch (TreeJson::ValueError const& error) {
      return error.field + ": " + error.what();
   }
   in.end();
   return std::string(out.view());
}

template <class Number>
std::string wireOf(Number number) {
   return std::string(reinterpret_cast<char const*>(&number), sizeof number);
}

void verifyBothWays(ValueType const& type, std::string const& wire, std::string const& json) {
   EXPECT_EQ(written(type, wire), json);
   EXPECT_EQ(hex(read(type, json)), hex(wire)) << json;
}

Tables const& t = tables();
ValueType const s16 = plain("s16", Kind::s16, 2, "\0\0"sv);
ValueType const s64 = plain("s64", Kind::s64, 8, "\0\0\0\0\0\0\0\0"sv);
Records::EnumValue const wideNames[] = {{"auto", 0}, {"big", 0x80000000}};
ValueType const wideEnum{
    "Test::Wide", Kind::enumeration, 4, 0, UINT64_MAX, nullptr, wideNames, {}, 0, "\0\0\0\0"sv, {}};

TEST(ValuesTest, booleans) {
   verifyBothWays(t.boolean, "\1", "true");
   verifyBothWays(t.boolean, "\0"s, "false");
   EXPECT_EQ(read(t.boolean, "1"), ": 1 is no bool; expected true or false");
   EXPECT_EQ(read(t.boolean, "\"true\""), ": \"true\" is no bool; expected true or false");
}

TEST(ValuesTest, numbers) {
   verifyBothWays(t.u8, wireOf<uint8_t>(255), "255");
   verifyBothWays(t.u16, wireOf<uint16_t>(65535), "65535");
   verifyBothWays(t.u32, wireOf<uint32_t>(4294967295), "4294967295");
   verifyBothWays(s16, wireOf<int16_t>(-32768), "-32768");
   verifyBothWays(t.s32, wireOf<int32_t>(-2147483648), "-2147483648");
   EXPECT_EQ(read(t.u8, "256"), ": 256 is no u8; expected a whole number from 0 to 255");
   EXPECT_EQ(read(t.u8, "-1"), ": -1 is no u8; expected a whole number from 0 to 255");
   EXPECT_EQ(read(t.u8, "1.0"), ": 1.0 is no u8; expected a whole number from 0 to 255");
   EXPECT_EQ(read(t.u8, "1e2"), ": 1e2 is no u8; expected a whole number from 0 to 255");
   EXPECT_EQ(read(t.u8, "\"1\""), ": \"1\" is no u8; expected a whole number from 0 to 255");
   EXPECT_EQ(read(s16, "32768"), ": 32768 is no s16; expected a whole number from -32768 to 32767");
   EXPECT_EQ(read(t.s32, "null"), ": null is no s32; expected a whole number from -2147483648 to 2147483647");
}

TEST(ValuesTest, numbersOf64BitsAreExact) {
   verifyBothWays(t.u64, wireOf(UINT64_MAX), "18446744073709551615");
   verifyBothWays(t.u64, wireOf<uint64_t>(9007199254740993), "9007199254740993"); // no double has this value
   verifyBothWays(s64, wireOf(INT64_MIN), "-9223372036854775808");
   verifyBothWays(s64, wireOf(INT64_MAX), "9223372036854775807");
   EXPECT_EQ(read(t.u64, "18446744073709551616"),
             ": 18446744073709551616 is no u64; expected a whole number from 0 to 18446744073709551615");
}

TEST(ValuesTest, numbersWithARangeAreRefusedWithItsText) {
   verifyBothWays(t.vlanId, wireOf<uint16_t>(4094), "4094");
   for (char const* json : {"0", "4095", "70000", "-1", "99999999999999999999"})
      EXPECT_EQ(read(t.vlanId, json), ": VlanId::value < 1 or > 4094 not allowed") << json;
   EXPECT_EQ(read(t.vlanId, "\"10\""), ": \"10\" is no VlanId; expected a whole number from 1 to 4094");
}

TEST(ValuesTest, doubles) {
   verifyBothWays(t.float64, wireOf(300.0), "300");
   verifyBothWays(t.float64, wireOf(0.1), "0.1");
   verifyBothWays(t.float64, wireOf(-0.0), "-0");
   verifyBothWays(t.float64, wireOf(5e-324), "5e-324");
   verifyBothWays(t.float64, wireOf(1.7976931348623157e308), "1.7976931348623157e+308");
   verifyBothWays(t.float64, wireOf(std::numeric_limits<double>::infinity()), "\"inf\"");
   verifyBothWays(t.float64, wireOf(-std::numeric_limits<double>::infinity()), "\"-inf\"");
   EXPECT_EQ(hex(read(t.float64, "1e-400")), hex(wireOf(0.0)));
   EXPECT_EQ(read(t.float64, "1e400"), ": 1e400 is no double; expected a number, \"inf\" or \"-inf\"");
   EXPECT_EQ(read(t.float64, "\"nan\""), ": \"nan\" is no double; expected a number, \"inf\" or \"-inf\"");
}

TEST(ValuesTest, strings) {
   verifyBothWays(t.string, stringBytes("core"), "\"core\"");
   verifyBothWays(t.string, stringBytes(""), "\"\"");
   verifyBothWays(t.name, stringBytes("lag"), "\"lag\"");
   verifyBothWays(t.string, stringBytes(std::string(300, 'x')), "\"" + std::string(300, 'x') + "\"");
   verifyBothWays(t.string, stringBytes("\xff"), R"("\uefff")");
   verifyBothWays(t.nsName, stringBytes("vrf-red"), "\"vrf-red\"");
   EXPECT_EQ(read(t.string, "10"), ": 10 is no string; expected a string");
   EXPECT_EQ(read(t.string, "{\"a\": 1}"), ": an object is no string; expected a string");
   EXPECT_EQ(read(t.string, "\"" + std::string(Ordel::maxStringBytes + 1, 'x') + "\""),
             ": longer than 1048576 bytes");
}

TEST(ValuesTest, interfaceIds) {
   verifyBothWays(t.intfId, intfBytes("Ethernet3/1"), "\"Ethernet3/1\"");
   verifyBothWays(t.intfId, intfBytes("Foo7"), "\"Foo7\"");
   verifyBothWays(t.intfId, intfBytes(""), "\"\"");
   EXPECT_EQ(read(t.intfId, "\"" + std::string(97, 'x') + "\""), ": IntfId::bytes > 96 not allowed");
}

TEST(ValuesTest, addressesComeOutInLowerCase) {
   verifyBothWays(t.ethAddr, "\x00\x1c\x73\x00\x00\xab"s, "\"00:1c:73:00:00:ab\"");
   EXPECT_EQ(hex(read(t.ethAddr, "\"00:1C:73:00:00:AB\"")), "001c730000ab");
   EXPECT_EQ(read(t.ethAddr, "7"), ": 7 is no EthAddr; expected a string");
   EXPECT_NE(read(t.ethAddr, "\"00:1c\"").find(": "), std::string::npos);
}

TEST(ValuesTest, enumerationsByNameAndByNumber) {
   verifyBothWays(t.mode, "\1", "\"trunk_\"");
   EXPECT_EQ(hex(read(t.mode, "1")), "01");
   // An open enumeration allows every number; one without a name is a number both ways.
   verifyBothWays(t.openMode, "\7", "7");
   EXPECT_EQ(read(t.openMode, "256"), ": 256 is no OpenMode; expected access_, trunk_ or a number");
   EXPECT_EQ(read(t.mode, "2"), ": 2 is no Mode; expected access_ or trunk_");
   verifyBothWays(wideEnum, wireOf(0x80000000u), "\"big\"");
   verifyBothWays(wideEnum, wireOf(4294967295u), "4294967295");
   EXPECT_EQ(read(t.mode, "\"up\""), ": \"up\" is no Mode; expected access_ or trunk_");
   EXPECT_EQ(read(t.mode, "256"), ": 256 is no Mode; expected access_ or trunk_");
   EXPECT_EQ(read(t.mode, "true"), ": true is no Mode; expected access_ or trunk_");
}

TEST(ValuesTest, recordsAreObjectsInNaturalOrderOfTheirFields) {
   verifyBothWays(t.port, portBytes(1, 0, 7), R"({"direction": 7, "shut": false, "tagged": true})");
   EXPECT_EQ(hex(read(t.port, R"({"tagged": true, "direction": 7, "shut": false})")),
             hex(portBytes(1, 0, 7)));
}

TEST(ValuesTest, fieldsThatAreNotGivenHaveTheirDefaults) {
   EXPECT_EQ(hex(read(t.port, R"({"shut": true})")), hex(portBytes(0, 1, 0)));
   EXPECT_EQ(hex(read(t.learned, "{}")), hex(t.learned.zero));
   verifyBothWays(t.learned, intfBytes("Foo7") + u16Bytes(10) + stringBytes("x"),
                  R"({"intf": "Foo7", "tag": "x", "vlan": 10})");
}

TEST(ValuesTest, errorsInRecordsNameTheField) {
   EXPECT_EQ(read(t.learned, R"({"vlan": 0})"), ".vlan: VlanId::value < 1 or > 4094 not allowed");
   EXPECT_EQ(read(t.port, R"({"speed": 1})"), ".speed: Port has no field of this name");
   EXPECT_EQ(read(t.port, R"({"shut": true, "shut": true})"), ".shut: given twice");
   EXPECT_EQ(read(t.port, "true"), ": true is no Port; expected an object of tagged, shut, direction");
}

TEST(ValuesTest, references) {
   auto const readReference = [](std::string_view json) {
      JsonReader in(json);
      Wire::Writer out;
      try {
         TreeJson::readReference(in, out);
      } catch (TreeJson::ValueError const& error) {
         return std::string(error.what());
      }
      return std::string(out.view());
   };
   std::string text;
   TreeJson::writeReference(stringBytes("input/config/cli.vlanConfig[10]"), text);
   EXPECT_EQ(text, R"({"$ref": "input/config/cli.vlanConfig[10]"})");
   EXPECT_EQ(readReference(text), stringBytes("input/config/cli.vlanConfig[10]"));
   text.clear();
   TreeJson::writeReference(stringBytes(""), text);
   EXPECT_EQ(text, "null");
   EXPECT_EQ(readReference("null"), stringBytes(""));
   std::string const expected = " is no reference; expected {\"$ref\": \"selector\"} or null";
   EXPECT_EQ(readReference("\"config\""), "\"config\"" + expected);
   EXPECT_EQ(readReference("{}"), "an empty object" + expected);
   EXPECT_EQ(readReference(R"({"$ref": 1})"), "an object of other content" + expected);
   EXPECT_EQ(readReference(R"({"$ref": "config", "x": 1})"), "an object of other content" + expected);
   EXPECT_EQ(readReference(R"({"$ref": "config.vlanConfig["})"),
             "\"config.vlanConfig[\": a ] behind the key is expected at byte 19");
}

TEST(ValuesTest, bareWordsAreStrings) {
   using TreeJson::jsonOfWord;
   EXPECT_EQ(jsonOfWord("core", &t.string), "\"core\"");
   EXPECT_EQ(jsonOfWord("1-10,20", &t.string), "\"1-10,20\"");
   EXPECT_EQ(jsonOfWord("trunk_", &t.mode), "\"trunk_\"");
   EXPECT_EQ(jsonOfWord("", &t.string), "\"\"");
   // What is JSON stays JSON, except where only a string can be meant.
   EXPECT_EQ(jsonOfWord("10", &t.u16), "10");
   EXPECT_EQ(jsonOfWord("10", nullptr), "10");
   EXPECT_EQ(jsonOfWord("10", &t.string), "\"10\"");
   EXPECT_EQ(jsonOfWord("true", &t.string), "\"true\"");
   EXPECT_EQ(jsonOfWord("\"10\"", &t.string), "\"10\"");
   EXPECT_EQ(jsonOfWord("{\"low\": 1}", &t.limits), "{\"low\": 1}");
   EXPECT_THROW(jsonOfWord("{\"low\": 1", &t.limits), TreeJson::SyntaxError);
   EXPECT_THROW(jsonOfWord("\"abc", &t.string), TreeJson::SyntaxError);
}

} // namespace
