#include "Sulvi/EthAddr.h"

#include "Kem/Assert.h"
#include "Kem/Exception.h"
#include "Kem/Hex.h"

#include <cstring>
#include <ostream>
#include <string>

namespace Sulvi {

namespace {

constexpr size_t textSize = 17; // "00:1c:73:00:00:01"

bool parse(std::string_view text, std::array<uint8_t, EthAddr::size>& bytes) {
   if (text.size() != textSize)
      return false;
   for (size_t i = 0; i < bytes.size(); ++i) {
      int const high = Kem::hexDigit(text[3 * i]), low = Kem::hexDigit(text[3 * i + 1]);
      if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':'))
         return false;
      bytes[i] = static_cast<uint8_t>(high << 4 | low);
   }
   return true;
}

} // namespace

EthAddr::EthAddr(std::string_view text) {
   if (!parse(text, bytes_))
      Kem::throwRange("EthAddr \"" + std::string(text) + "\" is not six bytes like 00:1c:73:00:00:01");
}

uint8_t EthAddr::byte(size_t i) const {
   KEM_ASSERT(i < size);
   return bytes_[i];
}

Kem::String8 EthAddr::stringValue() const {
   static constexpr char digits[] = "0123456789abcdef";
   char text[textSize];
   for (size_t i = 0; i < size; ++i) {
      if (i > 0)
         text[3 * i - 1] = ':';
      text[3 * i] = digits[bytes_[i] >> 4];
      text[3 * i + 1] = digits[bytes_[i] & 15];
   }
   return std::string_view(text, textSize);
}

uint32_t EthAddr::hash() const noexcept {
   uint64_t h = 0;
   std::memcpy(&h, bytes_.data(), size);
   h *= 0x9e3779b97f4a7c15u;
   h ^= h >> 32;
   h *= 0x9e3779b97f4a7c15u;
   return static_cast<uint32_t>(h >> 32);
}

EthAddr EthAddr::decode(Wire::Reader& reader) {
   EthAddr addr;
   std::string_view const bytes = reader.raw(size);
   if (bytes.size() == size)
      std::memcpy(addr.bytes_.data(), bytes.data(), size);
   return addr;
}

std::ostream& operator<<(std::ostream& out, EthAddr const& addr) {
   return out << addr.stringValue().view();
}

} // namespace Sulvi
