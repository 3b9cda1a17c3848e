#include "Zivlog/RowFormat.h"

#include <gtest/gtest.h>
#include <vector>

namespace Zivlog {
namespace {

std::string fill(std::string_view format, std::vector<std::string_view> const& fields) {
   return fillFormat(format, fields);
}

TEST(RowFormat, fieldsAreCounted) {
   EXPECT_EQ(fieldsOfFormat(""), 0u);
   EXPECT_EQ(fieldsOfFormat("%s"), 1u);
   EXPECT_EQ(fieldsOfFormat("%s%s and %s"), 3u);
   EXPECT_EQ(fieldsOfFormat("100%% of %s"), 1u);
   EXPECT_EQ(fieldsOfFormat("%%s"), 0u);
   EXPECT_EQ(fieldsOfFormat("%%%s"), 1u);
   EXPECT_EQ(fieldsOfFormat("ends in %"), 0u);
   EXPECT_EQ(fieldsOfFormat("%d %x"), 0u);
}

TEST(RowFormat, fieldsAreFilledIn) {
   EXPECT_EQ(fill("%s fid=%s", {"7", "10"}), "7 fid=10");
   EXPECT_EQ(fill("100%% of %s", {"it"}), "100% of it");
   EXPECT_EQ(fill("%%s", {}), "%s");
   EXPECT_EQ(fill("50% %d", {}), "50% %d");
   EXPECT_EQ(fill("%", {}), "%");
}

TEST(RowFormat, aFieldIsNotAFormat) {
   EXPECT_EQ(fill("<%s> <%s>", {"%s", "%%"}), "<%s> <%%>");
}

TEST(RowFormat, tooFewAndTooManyFields) {
   EXPECT_EQ(fill("%s-%s-%s", {"a"}), "a--");
   EXPECT_EQ(fill("%s", {"a", "b", "c"}), "a b c");
}

} // namespace
} // namespace Zivlog
