// Copies and compares of every size that a kept value can have.
#include "Ordel/store/Values.h"

#include <gtest/gtest.h>

namespace {

constexpr std::string_view bytes = "\x81\x82\x83\x84\x85\x86\x87\x88\x89";

TEST(ValuesTest, bytesOfAnySizeAreLoadedWithZerosAbove) {
   for (size_t size = 1; size <= 8; ++size) {
      uint64_t expected = 0;
      for (size_t i = 0; i < size; ++i)
         expected |= uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
      EXPECT_EQ(Ordel::loadBytes(bytes.data(), size), expected) << size;
   }
}

TEST(ValuesTest, noByteBehindTheSizeIsCopied) {
   for (size_t size = 1; size <= bytes.size(); ++size) {
      std::string to(bytes.size() + 1, '.');
      Ordel::copyBytes(to.data(), bytes.data(), size);
      EXPECT_EQ(to, std::string(bytes.substr(0, size)) + std::string(to.size() - size, '.'));
   }
}

TEST(ValuesTest, everyByteIsCompared) {
   for (size_t size = 1; size <= bytes.size(); ++size)
      for (size_t i = 0; i < size; ++i) {
         std::string other(bytes);
         EXPECT_TRUE(Ordel::areEqualBytes(bytes.data(), other.data(), size));
         other[i] = '.';
         EXPECT_FALSE(Ordel::areEqualBytes(bytes.data(), other.data(), size));
         EXPECT_TRUE(Ordel::areEqualBytes(bytes.data(), other.data(), i)) << "what is behind doesn't count";
      }
}

} // namespace
