#include "Vorn/SwitchIntfConfigCodef/SwitchportBitMap.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>

namespace Vorn {

namespace {

struct NamedBit {
   std::string_view name;
   SwitchportBitMap::Bit bit;
};
constexpr NamedBit namedBits[] = {
    {"switchportEnabled", SwitchportBitMap::switchportEnabled},
    {"switchportMode", SwitchportBitMap::switchportMode},
    {"switchportAccessVlan", SwitchportBitMap::switchportAccessVlan},
    {"switchportTrunkNativeVlan", SwitchportBitMap::switchportTrunkNativeVlan},
    {"switchportTrunkAllowedVlans", SwitchportBitMap::switchportTrunkAllowedVlans},
    {"switchportAsymVlans", SwitchportBitMap::switchportAsymVlans},
    {"switchportTapAllowedVlans", SwitchportBitMap::switchportTapAllowedVlans},
    {"switchportToolAllowedVlans", SwitchportBitMap::switchportToolAllowedVlans},
    {"switchportTapNativeVlan", SwitchportBitMap::switchportTapNativeVlan},
};
constexpr std::string_view opening = "Value('Vorn::SwitchIntfConfigEntrySm::SwitchportBitMap', ** {";
constexpr std::string_view closing = "})";

// Takes the expected beginning off the text; raises where the text differs or ends before.
void take(std::string_view& text, std::string_view expected) {
   if (!text.starts_with(expected))
      Kem::throwRange("premature end of value type SwitchportBitMap");
   text.remove_prefix(expected.size());
}

std::string_view takeUntil(std::string_view& text, char end) {
   auto const at = text.find(end);
   if (at == text.npos)
      Kem::throwRange("premature end of value type SwitchportBitMap");
   auto const taken = text.substr(0, at);
   text.remove_prefix(at);
   return taken;
}

// Decimal, or hexadecimal behind "0x". A number that is too wide for the type counts as one that is
// too great.
uint32_t numberFrom(std::string_view word) {
   bool const isHex = word.starts_with("0x");
   std::string_view const digits = word.substr(isHex ? 2 : 0);
   uint32_t number = 0;
   auto const [stop, error] =
       std::from_chars(digits.data(), digits.data() + digits.size(), number, isHex ? 16 : 10);
   if (error == std::errc::invalid_argument || stop != digits.data() + digits.size())
      Kem::throwRange("SwitchportBitMap::value is no number: " + std::string(word));
   return error == std::errc() ? number : UINT32_MAX;
}

} // namespace

SwitchportBitMap::SwitchportBitMap(uint32_t value) : value_(value) {
   if (value > kemUniversal)
      Kem::throwRange("SwitchportBitMap::value > 0x1ff not allowed");
}

std::string SwitchportBitMap::valueToStrep() const {
   std::string text(opening);
   for (auto const& [name, bit] : namedBits)
      text += "'" + std::string(name) + "': " + (has(bit) ? "True" : "False") + ", ";
   return text + "'value': " + std::to_string(value_) + std::string(closing);
}

SwitchportBitMap SwitchportBitMap::valueFromStrep(std::string_view text) {
   take(text, opening);
   uint32_t bits = 0, named = 0; // the bits that are True, and those that the text names
   std::optional<SwitchportBitMap> number;
   while (true) {
      take(text, "'");
      auto const name = takeUntil(text, '\'');
      take(text, "': ");
      auto const end = text.find_first_of(",}");
      if (end == text.npos)
         Kem::throwRange("premature end of value type SwitchportBitMap");
      auto const word = text.substr(0, end);
      text.remove_prefix(end);
      if (name == "value") {
         number = SwitchportBitMap(numberFrom(word));
      } else {
         auto const* const known = std::find_if(std::begin(namedBits), std::end(namedBits),
                                                [&](auto const& n) { return n.name == name; });
         if (known == std::end(namedBits))
            Kem::throwRange("SwitchportBitMap has no such attribute: " + std::string(name));
         named |= known->bit;
         if (word == "True")
            bits |= known->bit;
         else if (word != "False")
            Kem::throwRange("SwitchportBitMap::" + std::string(name) +
                            " is neither True nor False: " + std::string(word));
      }
      if (text.starts_with('}'))
         break;
      take(text, ", ");
   }
   take(text, closing);
   if (!text.empty())
      Kem::throwRange("SwitchportBitMap has something behind its end: " + std::string(text));
   if (number && (number->value() & named) != bits)
      Kem::throwRange("SwitchportBitMap::value is " + std::to_string(number->value()) +
                      ", which its attributes contradict");
   return number ? *number : SwitchportBitMap(bits);
}

} // namespace Vorn
