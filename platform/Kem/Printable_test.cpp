#include "Kem/Brackets.h"
#include "Kem/Printable.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;
using Kem::printable;
using Kem::printableJson;

TEST(PrintableTest, ordinaryTextStaysAsItIs) {
   for (char const* text : {"", "Ethernet3/1", "a \\ b", "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"})
      EXPECT_EQ(printable(text), text);
}

TEST(PrintableTest, controlsComeOutAsTheirBytes) {
   EXPECT_EQ(printable("a\x1b[31mred"), "a\\x1b[31mred");
   EXPECT_EQ(printable("two\nlines\tand\r\x7f"), "two\\nlines\\tand\\x0d\\x7f");
   EXPECT_EQ(printable("\0"sv), "\\x00");
   EXPECT_EQ(printable("\xc2\x9b"
                       "31m"),
             "\\xc2\\x9b31m")
       << "C1 steers some terminals as ESC [ does";
   EXPECT_EQ(printable("\xc2\xa0"), "\xc2\xa0") << "the first character behind C1";
}

TEST(PrintableTest, linesAreNeitherBrokenNorTurnedAround) {
   EXPECT_EQ(printable("a\xe2\x80\xa8"
                       "b"),
             "a\\xe2\\x80\\xa8b"); // U+2028
   EXPECT_EQ(printable("\xe2\x80\xae"
                       "txt.exe"),
             "\\xe2\\x80\\xaetxt.exe");                     // U+202E
   EXPECT_EQ(printable("\xe2\x81\xa6"), "\\xe2\\x81\\xa6"); // U+2066
   EXPECT_EQ(printable("\xe2\x80\x90"), "\xe2\x80\x90");    // a hyphen, nearby
}

TEST(PrintableTest, whatIsNoUtf8ComesOutByteByByte) {
   EXPECT_EQ(printable("\x9b[31m"), "\\x9b[31m") << "a raw C1 byte";
   EXPECT_EQ(printable("\xff\xc3"), "\\xff\\xc3");
   EXPECT_EQ(printable("\xc0\x80 \xed\xa0\x80"), "\\xc0\\x80 \\xed\\xa0\\x80") << "overlong, and a surrogate";
}

TEST(PrintableTest, doubledBackslashesKeepTextsApart) {
   EXPECT_EQ(printable("\\n", Kem::Backslashes::doubled), "\\\\n");
   EXPECT_EQ(printable("\n", Kem::Backslashes::doubled), "\\n");
}

TEST(PrintableTest, jsonIsEscapedInItsOwnWay) {
   EXPECT_EQ(printableJson("{\n  \"a\": \"\xc2\x9b\x7f\xc3\xa4\"\n}\n"),
             "{\n  \"a\": \"\\u009b\\u007f\xc3\xa4\"\n}\n");
   EXPECT_EQ(printableJson("\"\xe2\x80\xae\""), "\"\\u202e\"");
   EXPECT_EQ(printableJson("\"\xf0\x9f\x98\x80\""), "\"\xf0\x9f\x98\x80\"");
}

TEST(PrintableTest, keysOfSelectorsFollowTheSameRule) {
   EXPECT_EQ(Kem::bracketed("a b"), "[a b]");
   EXPECT_EQ(Kem::bracketed("\xc3\xa4"), "[\xc3\xa4]");
   EXPECT_EQ(Kem::bracketed("\xc2\x9b"
                            "31m"),
             "[\"\\xc2\\x9b31m\"]");
   EXPECT_EQ(Kem::bracketed("a\xff"), "[\"a\\xff\"]");
}

} // namespace
