#include "Ordel/wire/Protocol.h"
#include "Ordel/wire/Selector.h"

#include <gtest/gtest.h>

namespace {

using Ordel::Selector;

Selector parsed(std::string_view text) {
   Selector selector;
   std::string error;
   EXPECT_TRUE(Selector::parse(text, selector, error)) << error;
   return selector;
}

std::string errorOf(std::string_view text) {
   Selector selector;
   selector.path = "untouched";
   std::string error;
   EXPECT_FALSE(Selector::parse(text, selector, error)) << text;
   EXPECT_EQ(selector.path, "untouched");
   return error;
}

TEST(SelectorTest, takesPathsAttributesAndKeys) {
   EXPECT_EQ(parsed("bridging/input/config"), (Selector{"bridging/input/config", {}}));
   EXPECT_EQ(parsed("bridging/config.vlanConfig[10].intf[Ethernet3/1.100]"),
             (Selector{"bridging/config", {{"vlanConfig", "10", true}, {"intf", "Ethernet3/1.100", true}}}));
   EXPECT_EQ(parsed("a.b"), (Selector{"a", {{"b", "", false}}}));
   EXPECT_EQ(parsed("no-internal-vlan/x y.b[00:1c:73:00:00:01]"),
             (Selector{"no-internal-vlan/x y", {{"b", "00:1c:73:00:00:01", true}}}));
   EXPECT_EQ(parsed("/"), (Selector{"", {}}));
   EXPECT_EQ(parsed("/.entityPtr[x]"), (Selector{"", {{"entityPtr", "x", true}}}));
}

TEST(SelectorTest, quotedKeysHoldAnything) {
   EXPECT_EQ(parsed(R"(a.b["x]\"\\\x07.y"])"), (Selector{"a", {{"b", "x]\"\\\x07.y", true}}}));
   EXPECT_EQ(parsed(R"(a.b[""].c)"), (Selector{"a", {{"b", "", true}, {"c", "", false}}}));
}

TEST(SelectorTest, textIsTheShortestForm) {
   EXPECT_EQ(parsed(R"(a.b["plain"].c)").text(), "a.b[plain].c");
   EXPECT_EQ(parsed("/").text(), "/");
   for (std::string const key :
        {"", "\"", "a\"b", "]", "[", "a]b", "\\", "\x01\x7f", ".", "/", " ", "\xc3\xa4"}) {
      Selector const selector{"a/b", {{"c", key, true}, {"d", key, true}}};
      EXPECT_EQ(parsed(selector.text()), selector) << selector.text();
   }
   EXPECT_EQ(Ordel::bracketed("a\"b"), "[a\"b]");
   EXPECT_EQ(Ordel::bracketed("\"\x01"), "[\"\\\"\\x01\"]");
}

TEST(SelectorTest, saysWhereWhatIsExpected) {
   EXPECT_EQ(errorOf(""), "\"\": a path is expected, or / for the root");
   EXPECT_EQ(errorOf("a//b"), "\"a//b\": the path: a name is not empty");
   EXPECT_EQ(errorOf("/a"), "\"/a\": the path: a name is not empty");
   EXPECT_EQ(errorOf("a/"), "\"a/\": the path: a name is not empty");
   EXPECT_EQ(errorOf("a[1]"), "\"a[1]\": the path: a name has no / . [ ] and no NUL in it");
   EXPECT_EQ(errorOf(".b"), "\".b\": the path: a name is not empty");
   EXPECT_EQ(errorOf("a."), "\"a.\": the name of an attribute is expected at byte 3");
   EXPECT_EQ(errorOf("a.b.c"), "\"a.b.c\": a key in [ ] is expected at byte 4");
   EXPECT_EQ(errorOf("a.b-c"), "\"a.b-c\": a key in [ ] is expected at byte 4");
   EXPECT_EQ(errorOf("a.b[1"), "\"a.b[1\": a ] behind the key is expected at byte 5");
   EXPECT_EQ(errorOf("a.b[]"), "\"a.b[]\": a key is expected at byte 5");
   EXPECT_EQ(errorOf("a.b[1]c"), "\"a.b[1]c\": a . and an attribute is expected at byte 7");
   EXPECT_EQ(errorOf("a.b[\"x]"), "\"a.b[\"x]\": a quote at the end of the key is expected at byte 8");
   EXPECT_EQ(errorOf("a.b[\"x\"y]"), "\"a.b[\"x\"y]\": a ] behind the key is expected at byte 8");
   EXPECT_EQ(errorOf("a.b[\"\\q\"]"), "\"a.b[\"\\q\"]\": a quote, a \\ or x behind \\ is expected at byte 7");
   EXPECT_EQ(errorOf("a.b[\"\\x1\"]"),
             "\"a.b[\"\\x1\"]\": two hexadecimal digits behind \\x is expected at byte 7");
   EXPECT_EQ(errorOf("a.b[\n]"),
             "\"a.b[?]\": a key in quotes, since it holds a control character is expected at "
             "byte 5");
}

TEST(SelectorTest, lengthIsLimited) {
   std::string const most = "a.b[" + std::string(Ordel::maxSelectorBytes - 5, 'k') + "]";
   EXPECT_EQ(parsed(most).steps[0].key.size(), Ordel::maxSelectorBytes - 5);
   EXPECT_EQ(errorOf(most + ".c"), "\"" + most.substr(0, 200) + "...\": longer than 4096 bytes");
   EXPECT_NE(errorOf(std::string(256, 'x')), "");
}

} // namespace
