#include "Sulvi/NamespaceName.h"

#include "Kem/Exception.h"

#include <gtest/gtest.h>

namespace Sulvi {
namespace {

std::string wireOfName(size_t bytes) {
   Wire::Writer writer;
   writer.string(std::string(bytes, 'n'));
   return std::string(writer.view());
}

TEST(NamespaceName, emptyByDefault) {
   EXPECT_TRUE(NamespaceName().empty());
   EXPECT_EQ(NamespaceName(), NamespaceName(""));
   EXPECT_STREQ(NamespaceName().charPtr(), "");
   EXPECT_FALSE(NamespaceName("ns-blue").empty());
}

TEST(NamespaceName, holdsItsText) {
   NamespaceName const name("ns-blue");
   EXPECT_EQ(name.stringValue().str(), "ns-blue");
   EXPECT_STREQ(name.charPtr(), "ns-blue");
   EXPECT_EQ(name, NamespaceName(Kem::String8("ns-blue")));
   EXPECT_EQ(name, NamespaceName(std::string("ns-blue")));
   EXPECT_EQ(name.hash(), NamespaceName(std::string_view("ns-blue")).hash());
   EXPECT_NE(name, NamespaceName("ns-red"));
   EXPECT_LT(name, NamespaceName("ns-red"));
}

TEST(NamespaceName, has150BytesAtMost) {
   EXPECT_EQ(NamespaceName(std::string(150, 'n')).stringValue().size(), 150u);
   auto const textFrom = [](auto const& argument) -> std::string {
      try {
         NamespaceName name(argument);
         return "taken";
      } catch (Kem::RangeException const& error) {
         return error.what();
      }
   };
   std::string const tooLong(151, 'n');
   EXPECT_EQ(textFrom(tooLong), "NamespaceName::bytes > 150 not allowed");
   EXPECT_EQ(textFrom(tooLong.c_str()), "NamespaceName::bytes > 150 not allowed");
   EXPECT_EQ(textFrom(std::string_view(tooLong)), "NamespaceName::bytes > 150 not allowed");
   EXPECT_EQ(textFrom(Kem::String8(tooLong)), "NamespaceName::bytes > 150 not allowed");
}

TEST(NamespaceName, emptyNameAndDefaultNsAreTheDefaultNamespace) {
   EXPECT_TRUE(DEFAULT_NS.isDefault());
   EXPECT_TRUE(NamespaceName().isDefault());
   EXPECT_TRUE(NamespaceName("default").isDefault());
   EXPECT_FALSE(NamespaceName("ns-blue").isDefault());
   EXPECT_FALSE(DEFAULT_NS.empty());
   EXPECT_NE(NamespaceName(), DEFAULT_NS);
}

TEST(NamespaceName, wireGivesBackTheName) {
   for (size_t bytes : {0u, 1u, 149u, 150u}) {
      NamespaceName const name(std::string(bytes, 'n'));
      Wire::Writer writer;
      name.encode(writer);
      EXPECT_EQ(writer.view(), wireOfName(bytes));
      Wire::Reader reader(writer.view());
      EXPECT_EQ(NamespaceName::decode(reader), name);
      EXPECT_TRUE(reader.good() && reader.done());
   }
}

TEST(NamespaceName, tooLongNameOnTheWireIsRefused) {
   for (size_t bytes : {151u, 254u, 255u, 70000u}) {
      std::string const wire = wireOfName(bytes);
      Wire::Reader reader(wire);
      EXPECT_TRUE(NamespaceName::decode(reader).empty());
      EXPECT_FALSE(reader.good()) << bytes;
   }
   Wire::Reader cutShort(std::string_view("\5abc"));
   EXPECT_TRUE(NamespaceName::decode(cutShort).empty());
   EXPECT_FALSE(cutShort.good());
}

} // namespace
} // namespace Sulvi
