#include "treejson/JsonReader.h"
#include "treejson/JsonText.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>

namespace {

using namespace std::string_literals;

std::string jsonOf(std::string_view bytes) {
   std::string text;
   TreeJson::appendQuoted(text, bytes);
   return text;
}

std::string readBack(std::string const& text) {
   TreeJson::JsonReader in(text);
   return in.string();
}

TEST(JsonTextTest, textComesOutAsItIs) {
   EXPECT_EQ(jsonOf(""), R"("")");
   EXPECT_EQ(jsonOf("Ethernet3/1"), R"("Ethernet3/1")");
   EXPECT_EQ(jsonOf("Bürgerplatz €𝄞"), "\"Bürgerplatz €𝄞\"");
}

TEST(JsonTextTest, whatJsonOrATerminalWouldTakeApartIsEscaped) {
   EXPECT_EQ(jsonOf("a\"b\\c"), R"("a\"b\\c")");
   EXPECT_EQ(jsonOf("a\nb\tc"), R"("a\nb\tc")");
   EXPECT_EQ(jsonOf("\0\x1b\x7f"s), R"("\u0000\u001b\u007f")");
   EXPECT_EQ(jsonOf("\xc2\x9b"), R"("\u009b")"); // a control character beyond ASCII
   EXPECT_EQ(jsonOf("\xc2\xa0"), "\"\xc2\xa0\"");
}

TEST(JsonTextTest, bytesThatAreNoUtf8BecomePrivateCharacters) {
   EXPECT_EQ(jsonOf("a\xff"), R"("a\uefff")");
   EXPECT_EQ(jsonOf("\x80"), R"("\uef80")");
   EXPECT_EQ(jsonOf("\xc3"), R"("\uefc3")");                               // cut short
   EXPECT_EQ(jsonOf("\xc0\x80"), R"("\uefc0\uef80")");                     // not the shortest form
   EXPECT_EQ(jsonOf("\xed\xa0\x80"), R"("\uefed\uefa0\uef80")");           // a surrogate
   EXPECT_EQ(jsonOf("\xf4\x90\x80\x80"), R"("\ueff4\uef90\uef80\uef80")"); // beyond the last plane
}

TEST(JsonTextTest, thePrivateCharactersThemselvesAreNotMistaken) {
   std::string const character = "\xee\xbe\x80"; // U+EF80
   EXPECT_EQ(jsonOf(character), R"("\uefee\uefbe\uef80")");
   EXPECT_EQ(readBack(jsonOf(character)), character);
   // Written by hand, raw or escaped, it stands for the byte.
   EXPECT_EQ(readBack("\"" + character + "\""), "\x80");
   EXPECT_EQ(readBack(R"("\uef80")"), "\x80");
}

TEST(JsonTextTest, everyStringOfBytesComesBack) {
   std::mt19937 random(20240611);
   std::string const alphabet =
       "a\"\\\n\0\x7f\x80\xbf\xc2\x9b\xc3\xa4\xe2\x82\xac\xee\xbe\xbf\xed\xf0\x9d\x84\xff"s;
   for (int round = 0; round < 20000; ++round) {
      std::string bytes;
      for (size_t i = random() % 12; i > 0; --i)
         bytes += random() % 2 ? alphabet[random() % alphabet.size()] : static_cast<char>(random());
      std::string const text = jsonOf(bytes);
      ASSERT_EQ(readBack(text), bytes) << text;
      ASSERT_TRUE(nlohmann::json::accept(text)) << text;
   }
}

TEST(JsonTextTest, noTwoStringsOfBytesLookAlike) {
   EXPECT_NE(jsonOf("\xef\xbf\xbf"), jsonOf("\xff"));
   EXPECT_NE(jsonOf("\\uefff"), jsonOf("\xff"));
}

} // namespace
