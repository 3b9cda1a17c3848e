#include "Kem/Wire.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>

namespace {

using std::literals::operator""sv;
using Wire::Reader;
using Wire::Writer;

// The bytes in memory of their own size, so that the address sanitizer sees a read behind them.
class Exactly {
  public:
   explicit Exactly(std::string_view bytes) : bytes_(new char[bytes.size()]), size_(bytes.size()) {
      bytes.copy(bytes_.get(), size_);
   }
   std::string_view view() const { return {bytes_.get(), size_}; }

  private:
   std::unique_ptr<char[]> bytes_;
   size_t size_;
};

TEST(Wire, numbersAreLittleEndianInTheirOwnWidth) {
   Writer out;
   out.u8(0x01);
   out.u16(0x0203);
   out.u32(0x04050607);
   out.u64(0x08090a0b0c0d0e0f);
   out.boolean(true);
   EXPECT_EQ(out.view(), "\x01\x03\x02\x07\x06\x05\x04\x0f\x0e\x0d\x0c\x0b\x0a\x09\x08\x01"sv);
}

TEST(Wire, readsBackWhatWasWritten) {
   Writer out;
   out.u8(255);
   out.u16(65535);
   out.u32(0xfffffffe);
   out.u64(~0ull);
   out.f64(-0.125);
   out.boolean(false);
   out.string("Ethernet3/1");
   out.string("");
   out.raw("xyz", 3);
   Exactly const bytes(out.view());
   Reader in(bytes.view());
   EXPECT_EQ(in.u8(), 255);
   EXPECT_EQ(in.u16(), 65535);
   EXPECT_EQ(in.u32(), 0xfffffffe);
   EXPECT_EQ(in.u64(), ~0ull);
   EXPECT_EQ(in.f64(), -0.125);
   EXPECT_FALSE(in.boolean());
   EXPECT_EQ(in.string(), "Ethernet3/1");
   EXPECT_EQ(in.string(), "");
   EXPECT_FALSE(in.done());
   EXPECT_EQ(in.raw(3), "xyz");
   EXPECT_TRUE(in.good());
   EXPECT_TRUE(in.done());
}

TEST(Wire, lengthOfAStringIsOneByteUpTo254) {
   for (size_t const size : {0, 1, 253, 254, 255, 256, 65536, 100000}) {
      std::string const text(size, 'x');
      Writer out;
      out.string(text);
      EXPECT_EQ(out.size(), size + (size < 255 ? 1 : 5));
      Reader in(out.view());
      EXPECT_EQ(in.string(), text);
      EXPECT_TRUE(in.good() && in.done());
   }
}

TEST(Wire, emptyViewWithoutBytesCanBeWritten) {
   Writer out;
   out.string(std::string_view());
   out.raw(nullptr, 0);
   EXPECT_EQ(out.view(), "\0"sv);
}

TEST(WireReader, readBehindTheEndMarksItBadAndGivesZeros) {
   Exactly const bytes("\x01\x02\x03"sv);
   Reader in(bytes.view());
   EXPECT_EQ(in.u32(), 0u);
   EXPECT_FALSE(in.good());
   EXPECT_EQ(in.u8(), 0); // although three bytes were there
   EXPECT_EQ(in.u16(), 0);
   EXPECT_EQ(in.u64(), 0u);
   EXPECT_EQ(in.f64(), 0.0);
   EXPECT_FALSE(in.boolean());
   EXPECT_EQ(in.string(), "");
   EXPECT_EQ(in.raw(1), "");
   EXPECT_FALSE(in.good());
   EXPECT_EQ(in.remaining(), 0u);
}

TEST(WireReader, stringLongerThanTheBytesIsBad) {
   for (auto const bytes : {"\x05"
                            "abcd"sv,
                            "\xff\xff\xff\xff\xff"sv, "\xff\x01\x00"sv, ""sv}) {
      Exactly const exactly(bytes);
      Reader in(exactly.view());
      EXPECT_EQ(in.string(), "");
      EXPECT_FALSE(in.good());
   }
}

TEST(WireReader, boolIsZeroOrOne) {
   Reader in("\x02"sv);
   EXPECT_FALSE(in.boolean());
   EXPECT_FALSE(in.good());
}

TEST(WireReader, everyTruncationOfARecordIsBadOrShort) {
   Writer out;
   out.u16(7);
   out.string("name");
   out.u64(9);
   out.boolean(true);
   for (size_t size = 0; size < out.size(); ++size) {
      Exactly const cut(out.view().substr(0, size));
      Reader in(cut.view());
      in.u16();
      in.string();
      in.u64();
      in.boolean();
      EXPECT_FALSE(in.good()) << size << " bytes";
   }
}

TEST(WireReader, neverReadsOutsideItsBytes) {
   std::mt19937 random(1);
   for (int round = 0; round < 20000; ++round) {
      std::string text(random() % 24, '\0');
      for (char& c : text)
         c = static_cast<char>(random() % 3 == 0 ? 0xff : random());
      Exactly const bytes(text);
      Reader in(bytes.view());
      auto const isInside = [&](std::string_view part) {
         return part.empty() || (part.data() >= bytes.view().data() &&
                                 part.data() + part.size() <= bytes.view().data() + text.size());
      };
      for (int i = 0; i < 12; ++i) {
         size_t const before = in.remaining();
         switch (random() % 7) {
         case 0:
            in.u8();
            break;
         case 1:
            in.u16();
            break;
         case 2:
            in.u32();
            break;
         case 3:
            in.u64();
            break;
         case 4:
            in.boolean();
            break;
         case 5:
            EXPECT_TRUE(isInside(in.string()));
            break;
         case 6:
            EXPECT_TRUE(isInside(in.raw(random() % 2 ? random() % 8 : ~size_t(0) - random() % 8)));
            break;
         }
         EXPECT_LE(in.remaining(), before);
      }
   }
}

TEST(WireWriter, patchOverwritesAndTruncateDrops) {
   Writer out;
   out.u32(0);
   out.string("frame");
   out.patchU32(0, static_cast<uint32_t>(out.size()));
   size_t const end = out.size();
   out.u64(1);
   out.truncate(end);
   Reader in(out.view());
   EXPECT_EQ(in.u32(), 10u);
   EXPECT_EQ(in.string(), "frame");
   EXPECT_TRUE(in.done());
}

TEST(WireWriter, clearKeepsTheMemoryAndShrinkGivesItBack) {
   Writer out;
   out.raw(std::string(100000, 'x').data(), 100000);
   out.clear();
   EXPECT_TRUE(out.empty());
   EXPECT_GE(out.capacity(), 100000u);
   out.u8(1);
   out.shrink();
   EXPECT_EQ(out.capacity(), 1u);
   out.u32(2);
   EXPECT_EQ(out.view(), "\x01\x02\x00\x00\x00"sv);
}

} // namespace
