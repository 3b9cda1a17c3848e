// The attributes of a port that wait for their turn in the deferred stage, one bit each.
#pragma once

#include "Kem/Exception.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace Vorn {

class SwitchportBitMap {
  public:
   enum Bit : uint32_t {
      switchportEnabled = 0x001,
      switchportMode = 0x002,
      switchportAccessVlan = 0x004,
      switchportTrunkNativeVlan = 0x008,
      switchportTrunkAllowedVlans = 0x010,
      switchportAsymVlans = 0x020,
      switchportTapAllowedVlans = 0x040,
      switchportToolAllowedVlans = 0x080,
      switchportTapNativeVlan = 0x100,
   };
   static constexpr uint32_t kemEmpty = 0;
   static constexpr uint32_t kemUniversal = 0x1ff;

   SwitchportBitMap() = default;
   // Raises a range exception above kemUniversal: "SwitchportBitMap::value > 0x1ff not allowed".
   explicit SwitchportBitMap(uint32_t value);

   uint32_t value() const { return value_; }
   uint32_t hash() const { return value_; }
   bool operator!() const { return value_ == kemEmpty; }
   auto operator<=>(SwitchportBitMap const&) const = default;

   bool has(Bit bit) const { return value_ & bit; }
   void set(Bit bit) { value_ |= bit; }
   void clear(Bit bit) { value_ &= ~uint32_t(bit); }

   // The value with each bit by name, as reflection spells it; and the reverse, which raises a
   // range exception that names what is wrong with the text. Attributes may be left out; given
   // ones and the value must agree.
   std::string valueToStrep() const;
   static SwitchportBitMap valueFromStrep(std::string_view text);

  private:
   uint32_t value_ = kemEmpty;
};

} // namespace Vorn
