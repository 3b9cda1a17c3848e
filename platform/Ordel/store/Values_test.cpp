// Copies and compares of every size that a kept value can have; conditions on the fields of a record.
#include "Ordel/store/Values.h"

#include "Ordel/store/TestRecords.h"

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

// --- Conditions on fields

struct Refused {
   bool isTaken;
   std::string field, reason;
   bool isMalformed;
};

// As the store reads a value from the wire.
Refused readValue(Records::ValueType const& type, std::string const& wire) {
   Ordel::Codec const codec(type, Ordel::Codec::Use::value);
   Wire::Reader in(wire);
   Ordel::Packed out;
   if (codec.read(in, out))
      return {true, "", "", false};
   auto const problem = codec.explain(wire);
   return {false, problem.field, problem.reason, problem.isMalformed};
}

struct ConditionTest : testing::Test {
   using Type = Records::ValueType;
   TestRecords::Tables const tables;
   // { name of varying size where it has one; role; peer, not 0 while role is 7 }
   Type recordOf(std::span<Records::Field const> fields, uint8_t size) const {
      return {"Role", Records::Kind::record, size, 0, 0, nullptr, {}, fields, 0, {}, {}};
   }
   static std::string bytesOf(uint32_t role, uint16_t peer) {
      return TestRecords::u32Bytes(role) + TestRecords::u16Bytes(peer);
   }
   static constexpr char text[] = "Role::peer 0 while role is 7 not allowed";
};

TEST_F(ConditionTest, zeroIsRefusedWhileAnotherFieldHasTheValue) {
   Records::Field const fields[] = {{"role", &tables.u32, {}}, {"peer", &tables.u16, {}, 0, 7, text}};
   Type const type = recordOf(fields, 6);
   EXPECT_TRUE(readValue(type, bytesOf(0, 0)).isTaken);
   EXPECT_TRUE(readValue(type, bytesOf(8, 0)).isTaken);
   EXPECT_TRUE(readValue(type, bytesOf(7, 1)).isTaken);
   EXPECT_TRUE(readValue(type, bytesOf(7, 0x100)).isTaken);
   EXPECT_TRUE(readValue(type, bytesOf(7 << 8, 0)).isTaken);
   auto const refused = readValue(type, bytesOf(7, 0));
   EXPECT_FALSE(refused.isTaken);
   EXPECT_EQ(refused.field, ".peer");
   EXPECT_EQ(refused.reason, text);
   EXPECT_FALSE(refused.isMalformed);
   // Inside another record, behind other fields, too.
   Records::Field const outer[] = {{"tag", &tables.u8, {}}, {"role", &type, {}}};
   Type const nested = recordOf(outer, 7);
   EXPECT_TRUE(readValue(nested, '\7' + bytesOf(7, 1)).isTaken);
   EXPECT_EQ(readValue(nested, '\7' + bytesOf(7, 0)).field, ".role.peer");
}

TEST_F(ConditionTest, recordOfVaryingSizeIsHeldToItToo) {
   Records::Field const fields[] = {
       {"peer", &tables.u16, {}, 2, 7, text}, {"name", &tables.string, {}}, {"role", &tables.u8, {}}};
   Type const type = recordOf(fields, 0);
   auto const valueOf = [](uint16_t peer, std::string const& name, char role) {
      return TestRecords::u16Bytes(peer) + TestRecords::stringBytes(name) + role;
   };
   EXPECT_TRUE(readValue(type, valueOf(0, "long\7", '\6')).isTaken);
   EXPECT_TRUE(readValue(type, valueOf(3, "", '\7')).isTaken);
   auto const refused = readValue(type, valueOf(0, "long", '\7'));
   EXPECT_FALSE(refused.isTaken);
   EXPECT_EQ(refused.field, ".peer");
   EXPECT_EQ(refused.reason, text);
   EXPECT_FALSE(refused.isMalformed);
}

} // namespace
