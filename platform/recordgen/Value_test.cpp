// Generated value types: numbers with a range, enumerations, value records.
#include "Sulvi/EthAddr.h"
#include "Sulvi/IntfId.h"
#include "Sulvi/NamespaceName.h"
#include "records/Codec.h"
#include "records/Sample/types.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <unordered_set>

namespace {

using namespace Sample;
using testing::ThrowsMessage;

template <class T>
std::string shown(T const& value) {
   std::ostringstream out;
   out << value;
   return out.str();
}

TEST(ValueTest, numberOutsideItsRangeIsNeverMade) {
   EXPECT_EQ(Level(1).value(), 1);
   EXPECT_EQ(Level(100).value(), 100);
   char const* const text = "Level::value < 1 or > 100 not allowed";
   EXPECT_THAT([] { Level(0); }, ThrowsMessage<Kem::RangeException>(text));
   EXPECT_THAT([] { Level(101); }, ThrowsMessage<Kem::RangeException>(text));
   EXPECT_THAT([] { Level(-1); }, ThrowsMessage<Kem::RangeException>(text));
   EXPECT_THAT([] { Level(65536 + 1); }, ThrowsMessage<Kem::RangeException>(text))
       << "nor one that is too wide";
   EXPECT_THAT([] { Percent(101); }, ThrowsMessage<Kem::RangeException>("Percent::value > 0x64 not allowed"));
   EXPECT_THAT([] { Serial(int64_t(1) << 32); },
               ThrowsMessage<Kem::RangeException>("Serial::value > 4294967295 not allowed"));
   EXPECT_EQ(Percent(Level(100)), 100);
   EXPECT_THAT([] { Level(Percent(0)); }, ThrowsMessage<Kem::RangeException>(text))
       << "one type made of another is checked again";
}

TEST(ValueTest, numberHoldsItsLowestOrDeclaredDefault) {
   EXPECT_EQ(Level().value(), 1);
   EXPECT_EQ(Percent().value(), 50);
   EXPECT_EQ(Serial().value(), 0u);
}

TEST(ValueTest, numbersCompareWithEachOtherAndWithPlainOnes) {
   Level const ten = 10;
   EXPECT_TRUE(ten == 10 && 10 == ten && ten != 11u && ten < 11 && 9 < ten && ten > Level(9) &&
               ten <= Level(10));
   EXPECT_TRUE(ten != -10 && ten > -1) << "a negative number is less, not a large one";
   EXPECT_TRUE(ten != 65546);
   EXPECT_TRUE(ten == Percent(10) && ten < Percent(11));
   uint16_t const plain = ten;
   EXPECT_EQ(plain, 10);
   EXPECT_EQ(ten + 1, 11);
   EXPECT_EQ(std::unordered_set<Level>({1, 2, 2}).size(), 2u);
}

TEST(ValueTest, numbersAreShownAsNumbers) {
   EXPECT_EQ(shown(Percent(65)), "65") << "not as the character A";
   EXPECT_EQ(Records::text(Level(7)), "7");
}

TEST(ValueTest, enumeratorsHaveNamesAndOtherNumbersNone) {
   EXPECT_STREQ(toString(Material::wood), "wood");
   EXPECT_EQ(toString(Material{}), nullptr) << "0 is no material";
   EXPECT_EQ(shown(Material::steel), "steel");
   EXPECT_EQ(shown(Material(9)), "9");
}

TEST(ValueTest, valueRecordsCompareByFieldInOrder) {
   EXPECT_EQ((Spot{1, Material::steel}), Spot());
   EXPECT_LT((Spot{1, Material::wood}), (Spot{1, Material::steel}));
   EXPECT_LT((Spot{1, Material::steel}), (Spot{2, Material::wood}));
   EXPECT_NE(Label(), (Label{.weight = 2}));
}

TEST(ValueTest, keysOfNeighboursHaveHashesOfTheirOwn) {
   std::set<uint32_t> hashes, lowBits;
   for (uint16_t row = 0; row < 1000; ++row)
      for (auto side : {Material::wood, Material::steel}) {
         hashes.insert(Spot{row, side}.hash());
         lowBits.insert(Spot{row, side}.hash() & 0xfff);
      }
   EXPECT_EQ(hashes.size(), 2000u);
   EXPECT_GT(lowBits.size(), 1500u)
       << "the table takes the low bits; thrown at random there would be about 1580";
}

TEST(ValueTest, textsAreThoseOfSelectors) {
   EXPECT_EQ((Spot{3, Material(9)}.text()), "3/9");
   EXPECT_EQ(shown(Label()), "{text1=none, serial=0, fill=50, weight=1.5}");
   EXPECT_EQ(Records::text(true), "true");
   EXPECT_EQ(Records::text(300.0), "300");
   EXPECT_EQ(Records::text(0.1), "0.1");
   EXPECT_EQ(Records::text(int32_t(-4)), "-4");
   EXPECT_EQ(Records::text(Sulvi::IntfId("Ethernet3/1")), "Ethernet3/1");
   EXPECT_EQ(Records::text(Kem::Name("n")), "n");
}

template <class T>
void expectRoundTrip(T const& value, size_t size) {
   Wire::Writer out;
   Records::encode(out, value);
   EXPECT_EQ(out.size(), size) << Records::text(value);
   Wire::Reader in(out.view());
   EXPECT_EQ(Records::decode<T>(in), value);
   EXPECT_TRUE(in.good() && in.done());
   for (size_t cut = 0; cut < out.size(); ++cut) {
      Wire::Reader shorter(out.view().substr(0, cut));
      Records::decode<T>(shorter);
      EXPECT_FALSE(shorter.good());
   }
}

TEST(ValueTest, everyTypeGoesThroughBytes) {
   expectRoundTrip(true, 1);
   expectRoundTrip(uint8_t(200), 1);
   expectRoundTrip(int16_t(-2), 2);
   expectRoundTrip(uint64_t(1) << 60, 8);
   expectRoundTrip(-0.5, 8);
   expectRoundTrip(Kem::String8("text"), 5);
   expectRoundTrip(Kem::Name("name"), 5);
   expectRoundTrip(Level(100), 2);
   expectRoundTrip(Material::steel, 1);
   expectRoundTrip(Purpose(200), 4); // an open enumeration
   expectRoundTrip(Sulvi::IntfId("Ethernet1"), 4);
   expectRoundTrip(Sulvi::EthAddr(1, 2, 3, 4, 5, 6), 6);
   expectRoundTrip(Sulvi::NamespaceName("blue"), 5);
   expectRoundTrip(Spot{9, Material::wood}, 3);
   expectRoundTrip(Label{"tea", 1, 2, 3}, 4 + 4 + 1 + 8);
}

TEST(ValueTest, numberThatAClosedEnumerationHasNotFailsTheReader) {
   for (char const number : {'\0', '\3', '\xff'}) {
      Wire::Reader in(std::string_view(&number, 1));
      Records::decode<Material>(in);
      EXPECT_FALSE(in.good()) << int{number};
   }
   EXPECT_TRUE(isEnumerator(Material::wood));
   EXPECT_FALSE(isEnumerator(Material(3)));
}

TEST(ValueTest, memberIsFilledInWithItsKey) {
   EXPECT_EQ((Count{.things = 3}.under(7)), (Count{7, 3}));
   EXPECT_EQ((Count{7, 3}.under(7)), (Count{7, 3}));
   EXPECT_THAT(
       [] {
          (Count{8, 3}.under(7));
       },
       ThrowsMessage<Kem::RangeException>("Count::number differs from the key"));
}

TEST(ValueTest, fieldOutsideItsRangeFailsTheReader) {
   Wire::Writer out;
   Records::encode(out, Label());
   std::string bytes(out.view());
   bytes[5 + 4] = 101; // fill, behind text1 and serial
   Wire::Reader in(bytes);
   Records::decode<Label>(in);
   EXPECT_FALSE(in.good());
}

} // namespace
