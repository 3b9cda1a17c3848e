#include "Vorn/SwitchIntfConfigCodef/SwitchportBitMap.h"

#include <algorithm>
#include <charconv>
#include <iterator>

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

// Takes what the text starts with; raises where the text ends before.
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
   uint32_t value = 0;
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
         uint32_t number = 0;
         auto const [stop, error] = std::from_chars(word.data(), word.data() + word.size(), number);
         if (error != std::errc() || stop != word.data() + word.size())
            Kem::throwRange("SwitchportBitMap::value is no number: " + std::string(word));
         value |= SwitchportBitMap(number).value();
      } else {
         auto const* const known = std::find_if(std::begin(namedBits), std::end(namedBits),
                                                [&](auto const& n) { return n.name == name; });
         if (known == std::end(namedBits))
            Kem::throwRange("SwitchportBitMap has no such attribute: " + std::string(name));
         if (word == "True")
            value |= known->bit;
         else if (word != "False")
            Kem::throwRange("SwitchportBitMap::" + std::string(name) +
                            " is neither True nor False: " + std::string(word));
      }
      if (text.starts_with('}'))
         break;
      take(text, ", ");
   }
   take(text, closing);
   return SwitchportBitMap(value);
}

} // namespace Vorn
