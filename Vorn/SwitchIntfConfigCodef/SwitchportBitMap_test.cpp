#include "Vorn/SwitchIntfConfigCodef/SwitchportBitMap.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Vorn::SwitchportBitMap;

std::string raised(std::string_view text) {
   try {
      SwitchportBitMap::valueFromStrep(text);
      return "nothing";
   } catch (Kem::RangeException const& e) {
      return e.what();
   }
}

constexpr char emptyText[] =
    "Value('Vorn::SwitchIntfConfigEntrySm::SwitchportBitMap', ** {"
    "'switchportEnabled': False, 'switchportMode': False, 'switchportAccessVlan': False, "
    "'switchportTrunkNativeVlan': False, 'switchportTrunkAllowedVlans': False, "
    "'switchportAsymVlans': False, 'switchportTapAllowedVlans': False, "
    "'switchportToolAllowedVlans': False, 'switchportTapNativeVlan': False, 'value': 0})";

std::string onlyValue(std::string const& number) {
   return "Value('Vorn::SwitchIntfConfigEntrySm::SwitchportBitMap', ** {'value': " + number + "})";
}

TEST(SwitchportBitMap, bitsHaveTheirValues) {
   std::vector<std::pair<SwitchportBitMap::Bit, uint32_t>> const bits = {
       {SwitchportBitMap::switchportEnabled, 0x001},
       {SwitchportBitMap::switchportMode, 0x002},
       {SwitchportBitMap::switchportAccessVlan, 0x004},
       {SwitchportBitMap::switchportTrunkNativeVlan, 0x008},
       {SwitchportBitMap::switchportTrunkAllowedVlans, 0x010},
       {SwitchportBitMap::switchportAsymVlans, 0x020},
       {SwitchportBitMap::switchportTapAllowedVlans, 0x040},
       {SwitchportBitMap::switchportToolAllowedVlans, 0x080},
       {SwitchportBitMap::switchportTapNativeVlan, 0x100}};
   SwitchportBitMap all;
   for (auto const& [bit, value] : bits) {
      EXPECT_EQ(static_cast<uint32_t>(bit), value);
      EXPECT_FALSE(all.has(bit));
      all.set(bit);
      EXPECT_TRUE(all.has(bit));
   }
   EXPECT_EQ(all.value(), SwitchportBitMap::kemUniversal);
   EXPECT_EQ(SwitchportBitMap::kemUniversal, 0x1ffu);
   all.clear(SwitchportBitMap::switchportMode);
   EXPECT_EQ(all.value(), 0x1fdu);
   all.clear(SwitchportBitMap::switchportMode);
   EXPECT_EQ(all.value(), 0x1fdu);
}

TEST(SwitchportBitMap, isEmptyAtFirstAndHashesToItsValue) {
   SwitchportBitMap const empty;
   EXPECT_TRUE(!empty);
   EXPECT_EQ(empty.value(), SwitchportBitMap::kemEmpty);
   EXPECT_EQ(empty.hash(), 0u);
   EXPECT_FALSE(!SwitchportBitMap(0x20));
   EXPECT_EQ(SwitchportBitMap(0x123).hash(), 0x123u);
}

TEST(SwitchportBitMap, comparesByItsValue) {
   EXPECT_EQ(SwitchportBitMap(3), SwitchportBitMap(3));
   EXPECT_NE(SwitchportBitMap(3), SwitchportBitMap(4));
   EXPECT_LT(SwitchportBitMap(3), SwitchportBitMap(4));
   EXPECT_GE(SwitchportBitMap(4), SwitchportBitMap(4));
}

TEST(SwitchportBitMap, numberBeyondItsBitsRaises) {
   EXPECT_EQ(SwitchportBitMap(0x1ff).value(), 0x1ffu);
   for (uint32_t const number : {0x200u, 0xffffffffu})
      try {
         SwitchportBitMap const map(number);
         ADD_FAILURE() << number;
      } catch (Kem::RangeException const& e) {
         EXPECT_STREQ(e.what(), "SwitchportBitMap::value > 0x1ff not allowed");
      }
}

// --- Text form.

TEST(SwitchportBitMap, textListsTheBitsAndTheValue) {
   EXPECT_EQ(SwitchportBitMap().valueToStrep(), emptyText);
   std::string const text = SwitchportBitMap(0x102).valueToStrep();
   EXPECT_NE(text.find("'switchportMode': True, "), text.npos);
   EXPECT_NE(text.find("'switchportTapNativeVlan': True, "), text.npos);
   EXPECT_NE(text.find("'switchportEnabled': False, "), text.npos);
   EXPECT_TRUE(text.ends_with("'value': 258})"));
}

TEST(SwitchportBitMap, textOfEachValueGivesItBack) {
   for (uint32_t value = 0; value <= SwitchportBitMap::kemUniversal; ++value)
      EXPECT_EQ(SwitchportBitMap::valueFromStrep(SwitchportBitMap(value).valueToStrep()).value(), value);
}

TEST(SwitchportBitMap, everyTextThatEndsTooSoonRaises) {
   std::string_view const text = emptyText;
   for (size_t size = 0; size < text.size(); ++size)
      EXPECT_EQ(raised(text.substr(0, size)), "premature end of value type SwitchportBitMap")
          << text.substr(0, size);
   EXPECT_EQ(raised(text), "nothing");
}

TEST(SwitchportBitMap, unknownNameInATextRaises) {
   EXPECT_EQ(
       raised("Value('Vorn::SwitchIntfConfigEntrySm::SwitchportBitMap', ** {'switchportColour': True})"),
       "SwitchportBitMap has no such attribute: switchportColour");
}

TEST(SwitchportBitMap, valueBeyondItsBitsInATextRaises) {
   std::string text = emptyText;
   text.replace(text.find("'value': 0"), 10, "'value': 512");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value > 0x1ff not allowed");
   text.replace(text.find("'value': 512"), 12, "'value': 0x200");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value > 0x1ff not allowed");
   for (char const* wide : {"4294967296", "0x1ffffffff", "99999999999999999999999"})
      EXPECT_EQ(raised(onlyValue(wide)), "SwitchportBitMap::value > 0x1ff not allowed") << wide;
   EXPECT_EQ(raised(onlyValue("511")), "nothing");
}

TEST(SwitchportBitMap, numberInATextMayBeHexadecimal) {
   EXPECT_EQ(SwitchportBitMap::valueFromStrep(onlyValue("0x102")).value(), 0x102u);
   EXPECT_EQ(SwitchportBitMap::valueFromStrep(onlyValue("0x1FF")).value(), 0x1ffu);
   for (char const* bad : {"0x", "x1", "1x", "0x1g", " 1", ""})
      EXPECT_EQ(raised(onlyValue(bad)), std::string("SwitchportBitMap::value is no number: ") + bad) << bad;
}

TEST(SwitchportBitMap, textBehindTheEndRaises) {
   EXPECT_EQ(raised(std::string(emptyText) + ")"), "SwitchportBitMap has something behind its end: )");
   EXPECT_EQ(raised(std::string(emptyText) + emptyText),
             std::string("SwitchportBitMap has something behind its end: ") + emptyText);
}

TEST(SwitchportBitMap, bitsThatContradictTheNumberRaise) {
   std::string text = emptyText;
   text.replace(text.find("'value': 0"), 10, "'value': 511");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value is 511, which its attributes contradict");
   text = emptyText;
   text.replace(text.find("False"), 5, "True");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value is 0, which its attributes contradict");
   // What is left out contradicts nothing.
   std::string const head = "Value('Vorn::SwitchIntfConfigEntrySm::SwitchportBitMap', ** {";
   EXPECT_EQ(SwitchportBitMap::valueFromStrep(head + "'switchportMode': True, 'value': 3})").value(), 3u);
   EXPECT_EQ(SwitchportBitMap::valueFromStrep(head + "'switchportMode': True})").value(), 2u);
}

TEST(SwitchportBitMap, wordsThatAreNeitherBitsNorNumbersRaise) {
   std::string text = emptyText;
   text.replace(text.find("False"), 5, "maybe");
   EXPECT_EQ(raised(text), "SwitchportBitMap::switchportEnabled is neither True nor False: maybe");
   text = emptyText;
   text.replace(text.find("'value': 0"), 10, "'value': 5x");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value is no number: 5x");
   text.replace(text.find("'value': 5x"), 11, "'value': -1");
   EXPECT_EQ(raised(text), "SwitchportBitMap::value is no number: -1");
}

} // namespace
