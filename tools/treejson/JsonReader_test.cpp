#include "treejson/Error.h"
#include "treejson/JsonReader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <random>

namespace {

using TreeJson::JsonKind;
using TreeJson::JsonReader;
using namespace std::string_literals;

// The error of a reader that passes over the whole text; empty for good JSON.
std::string errorOf(std::string_view text) {
   try {
      JsonReader in(text);
      in.skip();
      in.end();
      return {};
   } catch (TreeJson::SyntaxError const& error) {
      return error.what();
   }
}

// Reads everything by the calls for each kind, and writes it again.
std::string rewritten(JsonReader& in) {
   std::string text, key;
   switch (in.kind()) {
   case JsonKind::object:
      for (in.beginObject(); in.nextKey(key);)
         text += (text.empty() ? "" : ",") + nlohmann::json(key).dump() + ":" + rewritten(in);
      return "{" + text + "}";
   case JsonKind::array:
      for (in.beginArray(); in.nextElement();)
         text += (text.empty() ? "" : ",") + rewritten(in);
      return "[" + text + "]";
   case JsonKind::string:
      return nlohmann::json(in.string()).dump();
   case JsonKind::number:
      return std::string(in.number());
   case JsonKind::boolean:
      return in.boolean() ? "true" : "false";
   case JsonKind::null:
      in.null();
      return "null";
   }
   return {};
}

TEST(JsonReaderTest, readsEveryKindOfValue) {
   std::string const text = R"({"a":[1,-2.5e3,true,false,null,"x\ty"],"b":{},"c":[],"ä":{"d":0}})";
   JsonReader in(text);
   EXPECT_EQ(nlohmann::json::parse(rewritten(in)), nlohmann::json::parse(text));
   EXPECT_TRUE(in.isAtEnd());
}

TEST(JsonReaderTest, spaceAndByteOrderMarkArePassed) {
   EXPECT_EQ(errorOf("\xef\xbb\xbf { \"a\" :\t[ 1 ,\r\n 2 ] } \n"), "");
}

TEST(JsonReaderTest, errorsNameLineAndColumn) {
   EXPECT_EQ(errorOf(""), "line 1, column 1: the text ends where a value is expected");
   EXPECT_EQ(errorOf("{\n  \"a\": 1\n  \"b\": 2\n}"), "line 3, column 3: expected ',' or '}'");
   EXPECT_EQ(errorOf("{\"a\" 1}"), "line 1, column 6: expected ':'");
   EXPECT_EQ(errorOf("{a: 1}"), "line 1, column 2: expected a name in double quotes");
   EXPECT_EQ(errorOf("{\"a\": 1,}"), "line 1, column 9: expected a name in double quotes");
   EXPECT_EQ(errorOf("[1, 2"), "line 1, column 6: expected ',' or ']'");
   EXPECT_EQ(errorOf("[1,\n\n  ]"), "line 3, column 3: expected a value");
   EXPECT_EQ(errorOf("[tru]"), "line 1, column 2: expected a value");
   EXPECT_EQ(errorOf("[\n\"abc]"), "line 2, column 1: a string without an end");
   EXPECT_EQ(errorOf("{} {}"), "line 1, column 4: something follows behind the end");
   EXPECT_EQ(errorOf("[\"\\q\"]"), "line 1, column 3: no such escape in a string");
   EXPECT_EQ(errorOf("[\"a\nb\"]"), "line 1, column 4: a control character in a string; write it as \\u00XX");
}

TEST(JsonReaderTest, columnsCountCharacters) {
   EXPECT_EQ(errorOf("[\"äöü€\" 1]"), "line 1, column 9: expected ',' or ']'");
}

TEST(JsonReaderTest, numbersAreStrict) {
   for (char const* good : {"0", "-0", "10", "1.5", "1e9", "1E+9", "-1.25e-10", "18446744073709551615"})
      EXPECT_EQ(errorOf(good), "") << good;
   for (char const* bad : {"01", "-", "1.", ".5", "+1", "1e", "0x10", "1_000", "NaN", "Infinity", "-a"})
      EXPECT_NE(errorOf(bad), "") << bad;
}

TEST(JsonReaderTest, halvesOfSurrogatePairsAreRefused) {
   JsonReader pair(R"("\ud834\udd1e")");
   EXPECT_EQ(pair.string(), "𝄞");
   EXPECT_EQ(errorOf(R"(["\ud834"])"), "line 1, column 3: half of a surrogate pair");
   EXPECT_EQ(errorOf(R"(["\udd1e\ud834"])"), "line 1, column 3: half of a surrogate pair");
   EXPECT_EQ(errorOf(R"(["\ud834A"])"), "line 1, column 3: half of a surrogate pair");
}

TEST(JsonReaderTest, bytesThatAreNoUtf8AreRefused) {
   EXPECT_EQ(errorOf("[\"a\xff\"]"), "line 1, column 4: bytes that are no UTF-8");
}

TEST(JsonReaderTest, nestingIsLimited) {
   std::string const deepest =
       std::string(JsonReader::maxDepth, '[') + std::string(JsonReader::maxDepth, ']');
   EXPECT_EQ(errorOf(deepest), "");
   EXPECT_EQ(errorOf("[" + deepest + "]"), "line 1, column 65: nested deeper than 64 levels");
   EXPECT_EQ(errorOf(std::string(1000000, '[')), "line 1, column 65: nested deeper than 64 levels");
}

TEST(JsonReaderTest, skipGivesTheTextOfTheValue) {
   JsonReader in(R"({"a": {"x": [1, {}, "]"]} , "b": 2})");
   std::string key;
   in.beginObject();
   ASSERT_TRUE(in.nextKey(key));
   EXPECT_EQ(in.skip(), R"({"x": [1, {}, "]"]})");
   ASSERT_TRUE(in.nextKey(key));
   EXPECT_EQ(key, "b");
   EXPECT_EQ(in.skip(), "2");
   EXPECT_FALSE(in.nextKey(key));
}

TEST(JsonReaderTest, aCopyLooksAhead) {
   JsonReader in("[1, 2]");
   in.beginArray();
   ASSERT_TRUE(in.nextElement());
   JsonReader ahead = in;
   EXPECT_EQ(ahead.number(), "1");
   EXPECT_EQ(in.number(), "1");
   ASSERT_TRUE(in.nextElement());
   EXPECT_EQ(in.number(), "2");
}

TEST(JsonReaderTest, describesWhatIsThere) {
   EXPECT_EQ(TreeJson::described(JsonReader("{\"a\": 1}")), "an object");
   EXPECT_EQ(TreeJson::described(JsonReader("[]")), "a list");
   EXPECT_EQ(TreeJson::described(JsonReader("\"up\"")), "\"up\"");
   std::string const longOne = "\"" + std::string(100, 'x') + "\"";
   EXPECT_EQ(TreeJson::described(JsonReader(longOne)), "\"" + std::string(59, 'x') + "...");
}

// Another reader agrees on what is JSON and what isn't.
TEST(JsonReaderTest, agreesWithAnotherReaderOnDamagedTexts) {
   std::string const good = R"({"a": [1, -2.5, true, null, "x\u00e4\\"], "b": {"c": {}, "d": [[]]}})";
   std::string const pieces = "{}[]\",:0123456789.eE+-truefalsnul\\ \n\t\x01\xc3\xa4"s;
   std::mt19937 random(7);
   int accepted = 0;
   for (int round = 0; round < 50000; ++round) {
      std::string text = good;
      for (size_t i = 1 + random() % 3; i > 0; --i) {
         size_t const at = random() % text.size();
         switch (random() % 3) {
         case 0:
            text[at] = pieces[random() % pieces.size()];
            break;
         case 1:
            text.erase(at, 1);
            break;
         default:
            text.insert(at, 1, pieces[random() % pieces.size()]);
         }
      }
      bool const isGood = nlohmann::json::accept(text);
      accepted += isGood;
      ASSERT_EQ(errorOf(text).empty(), isGood) << text;
   }
   EXPECT_GT(accepted, 100);
}

} // namespace
