// An Ethernet MAC address: six bytes, in the order in which they are sent. All zeros means "not set".
#pragma once

#include "Kem/String.h"
#include "Kem/Wire.h"

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string_view>
#include <type_traits>

namespace Sulvi {

class EthAddr {
  public:
   static constexpr size_t size = 6;

   // All zeros.
   constexpr EthAddr() noexcept = default;
   constexpr EthAddr(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5) noexcept
       : bytes_{b0, b1, b2, b3, b4, b5} {}
   constexpr explicit EthAddr(std::array<uint8_t, size> const& bytes) noexcept : bytes_(bytes) {}
   // From "00:1c:73:00:00:01": six pairs of hexadecimal digits of either case, joined by ":". Any other text
   // raises Kem::RangeException, which names it.
   explicit EthAddr(std::string_view text);

   static constexpr EthAddr ethAddrZero() noexcept { return {}; }

   // i is 0 to 5; byte 0 is sent first.
   uint8_t byte(size_t i) const;
   constexpr std::array<uint8_t, size> const& bytes() const noexcept { return bytes_; }
   // The group bit (IEEE 802): set for multicast and for broadcast.
   constexpr bool isMulticast() const noexcept { return bytes_[0] & 1; }
   // Lower case, "00:1c:73:00:00:01".
   Kem::String8 stringValue() const;
   // The same in every process.
   uint32_t hash() const noexcept;

   friend constexpr bool operator==(EthAddr const&, EthAddr const&) noexcept = default;
   friend constexpr std::strong_ordering operator<=>(EthAddr const&, EthAddr const&) noexcept = default;

   // Six bytes as they are; any six bytes are good.
   void encode(Wire::Writer& writer) const { writer.raw(bytes_.data(), size); }
   static EthAddr decode(Wire::Reader& reader);

  private:
   std::array<uint8_t, size> bytes_{};
};

static_assert(sizeof(EthAddr) == 6 && std::is_trivially_copyable_v<EthAddr>);

std::ostream& operator<<(std::ostream& out, EthAddr const& addr);

} // namespace Sulvi

template <>
struct std::hash<Sulvi::EthAddr> {
   size_t operator()(Sulvi::EthAddr const& addr) const noexcept { return addr.hash(); }
};
