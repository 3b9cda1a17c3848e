#include "Sulvi/EthAddr.h"

#include "Kem/Exception.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>

namespace Sulvi {
namespace {

TEST(EthAddr, defaultIsZero) {
   EXPECT_EQ(EthAddr(), EthAddr::ethAddrZero());
   EXPECT_EQ(EthAddr::ethAddrZero(), EthAddr(0, 0, 0, 0, 0, 0));
   EXPECT_EQ(EthAddr::ethAddrZero().stringValue().str(), "00:00:00:00:00:00");
   EXPECT_NE(EthAddr(0, 0, 0, 0, 0, 1), EthAddr::ethAddrZero());
   EXPECT_NE(EthAddr(1, 0, 0, 0, 0, 0), EthAddr::ethAddrZero());
}

TEST(EthAddr, textOfEitherCaseIsTaken) {
   EthAddr const addr(0x00, 0x1c, 0x73, 0xab, 0xcd, 0xef);
   EXPECT_EQ(EthAddr("00:1c:73:ab:cd:ef"), addr);
   EXPECT_EQ(EthAddr("00:1C:73:AB:CD:EF"), addr);
   EXPECT_EQ(EthAddr("00:1c:73:Ab:cD:eF"), addr);
   EXPECT_EQ(addr.stringValue().str(), "00:1c:73:ab:cd:ef");
}

TEST(EthAddr, bytesAreInTheOrderOfTheText) {
   EthAddr const addr("01:23:45:67:89:ab");
   for (size_t i = 0; i < 6; ++i)
      EXPECT_EQ(addr.byte(i), addr.bytes()[i]);
   EXPECT_EQ(addr.byte(0), 0x01);
   EXPECT_EQ(addr.byte(5), 0xab);
   EXPECT_EQ(EthAddr(addr.bytes()), addr);
   EXPECT_DEATH(addr.byte(6), "i < size");
}

TEST(EthAddr, badTextIsRefusedByName) {
   for (char const* text :
        {"", "00", "00:1c:73:00:00", "00:1c:73:00:00:0", "00:1c:73:00:00:001", "00:1c:73:00:00:01:02",
         "00-1c-73-00-00-01", "001c.7300.0001", "001c73000001", "00:1c:73:00:00:0g", "00:1c:73:00:00:0G",
         "g0:1c:73:00:00:00", " 0:1c:73:00:00:01", "00:1c:73:00:00:01 ", "00:1c:73:00:00;01",
         "00::1c:73:00:0:01", "-1:1c:73:00:00:01"}) {
      try {
         EthAddr addr{std::string_view(text)};
         ADD_FAILURE() << "taken: " << text;
      } catch (Kem::RangeException const& error) {
         EXPECT_EQ(error.what(),
                   "EthAddr \"" + std::string(text) + "\" is not six bytes like 00:1c:73:00:00:01");
      }
   }
}

TEST(EthAddr, multicastIsTheGroupBit) {
   EXPECT_TRUE(EthAddr("01:00:5e:00:00:01").isMulticast());
   EXPECT_TRUE(EthAddr("ff:ff:ff:ff:ff:ff").isMulticast());
   EXPECT_TRUE(EthAddr("33:33:00:00:00:01").isMulticast());
   EXPECT_FALSE(EthAddr("00:1c:73:00:00:01").isMulticast());
   EXPECT_FALSE(EthAddr("02:00:00:00:00:01").isMulticast());
   EXPECT_FALSE(EthAddr::ethAddrZero().isMulticast());
}

TEST(EthAddr, ordersByItsBytes) {
   EXPECT_LT(EthAddr("00:00:00:00:00:02"), EthAddr("00:00:00:00:00:10"));
   EXPECT_LT(EthAddr("00:ff:ff:ff:ff:ff"), EthAddr("01:00:00:00:00:00"));
   EXPECT_LT(EthAddr("7f:00:00:00:00:00"), EthAddr("80:00:00:00:00:00"));
}

TEST(EthAddr, textAndWireGiveBackTheAddress) {
   std::mt19937 random(5);
   for (int i = 0; i < 10000; ++i) {
      std::array<uint8_t, 6> bytes;
      for (uint8_t& byte : bytes)
         byte = static_cast<uint8_t>(random());
      EthAddr const addr(bytes);
      ASSERT_EQ(EthAddr(addr.stringValue()), addr);
      Wire::Writer writer;
      addr.encode(writer);
      ASSERT_EQ(writer.view(), std::string_view(reinterpret_cast<char const*>(bytes.data()), 6));
      Wire::Reader reader(writer.view());
      ASSERT_EQ(EthAddr::decode(reader), addr);
      ASSERT_TRUE(reader.good() && reader.done());
   }
}

TEST(EthAddr, missingBytesAreRefused) {
   for (size_t size = 0; size < 6; ++size) {
      Wire::Reader reader(std::string_view("\1\2\3\4\5\6", size));
      EXPECT_EQ(EthAddr::decode(reader), EthAddr::ethAddrZero());
      EXPECT_FALSE(reader.good());
   }
}

// The addresses of one vendor, and those that differ in the vendor's part only.
TEST(EthAddr, lowBitsOfTheHashAreSpread) {
   for (size_t at = 0; at + 1 < 6; ++at) {
      std::vector<int> load(1024);
      for (unsigned i = 0; i < 1024; ++i) {
         std::array<uint8_t, 6> bytes{0x00, 0x1c, 0x73, 0, 0, 0};
         bytes[at] = static_cast<uint8_t>(i >> 8);
         bytes[at + 1] = static_cast<uint8_t>(i);
         ++load[EthAddr(bytes).hash() % 1024];
      }
      EXPECT_LE(*std::max_element(load.begin(), load.end()), 8) << at;
   }
}

} // namespace
} // namespace Sulvi
