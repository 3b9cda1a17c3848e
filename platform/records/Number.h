// The base of the declared number types, such as Bridging::VlanId: a number with a class of its own, and
// often a range.
//
// A number outside the range never becomes one: construction raises Kem::RangeException with the declared
// text, also for a number that is negative or too wide for the type. Made from any integer and read as a
// number without a word, so that `vlan == 10` and `config->vlanConfig(10)` read well; another declared type
// has to be converted by name, VlanIdOrNone(vlan), which checks again.
//
// `Self` is the declared type. It has the constants min, max, initial (what a default constructed one holds)
// and rangeText (what the exception says).
#pragma once

#include "Kem/Exception.h"
#include "Kem/Wire.h"

#include <compare>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string_view>
#include <utility>

namespace Records {

// bool would turn a forgotten comparison into a number.
template <class T>
concept PlainInteger = std::integral<T> && !std::same_as<T, bool>;

template <class Self, class Base>
class Number {
  public:
   using Value = Base;

   constexpr Number() noexcept : value_(Self::initial) {}
   template <PlainInteger I>
   constexpr Number(I number) : value_(checked(number)) {}
   template <class Other, class OtherBase>
   explicit constexpr Number(Number<Other, OtherBase> const& other) : value_(checked(other.value())) {}

   constexpr Base value() const noexcept { return value_; }
   constexpr operator Base() const noexcept { return value_; }
   constexpr uint32_t hash() const noexcept {
      return static_cast<uint32_t>(value_ ^ (uint64_t(value_) >> 32));
   }

   template <PlainInteger I>
   static constexpr bool isLegal(I number) noexcept {
      return std::cmp_greater_equal(number, Self::min) && std::cmp_less_equal(number, Self::max);
   }

   void encode(Wire::Writer& out) const { out.raw(&value_, sizeof value_); }
   // Fails the reader for a number outside the range, and then gives the initial one.
   static Self decode(Wire::Reader& in) {
      Base number = Self::initial;
      std::string_view const bytes = in.raw(sizeof number);
      if (bytes.size() == sizeof number)
         std::memcpy(&number, bytes.data(), sizeof number);
      if (isLegal(number))
         return Self(number);
      in.fail();
      return Self();
   }

  private:
   template <class I>
   static constexpr Base checked(I number) {
      if (!isLegal(number)) [[unlikely]]
         Kem::throwRange(Self::rangeText);
      return static_cast<Base>(number);
   }

   Base value_;
};

template <class A, class AB, class B, class BB>
constexpr bool operator==(Number<A, AB> const& a, Number<B, BB> const& b) {
   return a.value() == b.value();
}
template <class A, class AB, class B, class BB>
constexpr std::strong_ordering operator<=>(Number<A, AB> const& a, Number<B, BB> const& b) {
   return a.value() <=> b.value();
}
template <class A, class AB, PlainInteger I>
constexpr bool operator==(Number<A, AB> const& a, I b) {
   return std::cmp_equal(a.value(), b);
}
template <class A, class AB, PlainInteger I>
constexpr std::strong_ordering operator<=>(Number<A, AB> const& a, I b) {
   return std::cmp_less(a.value(), b)    ? std::strong_ordering::less
          : std::cmp_equal(a.value(), b) ? std::strong_ordering::equal
                                         : std::strong_ordering::greater;
}

template <class Self, class Base>
std::ostream& operator<<(std::ostream& out, Number<Self, Base> const& number) {
   return out << +number.value(); // a byte is a number here, no character
}

template <class T>
concept NumberType = requires(T const& number) {
   []<class Base>(Number<T, Base> const&) {}(number);
};

} // namespace Records

template <Records::NumberType T>
struct std::hash<T> {
   size_t operator()(T number) const noexcept { return number.hash(); }
};
