#include "Kem/Brackets.h"
#include "Kem/Printable.h"

#include <cstdint>

namespace Kem {

bool needsQuotes(std::string_view key) {
   if (key.empty() || key.front() == '"')
      return true;
   for (std::string_view rest = key; !rest.empty(); rest.remove_prefix(printableLength(rest)))
      if (rest.front() == ']' || printableLength(rest) == 0)
         return true;
   return false;
}

std::string bracketed(std::string_view key) {
   std::string text = "[";
   if (!needsQuotes(key))
      return text.append(key).append("]");
   text += '"';
   constexpr char digits[] = "0123456789abcdef";
   while (!key.empty()) {
      size_t const printable = printableLength(key);
      if (printable == 0) {
         text += "\\x";
         text += digits[static_cast<uint8_t>(key.front()) >> 4];
         text += digits[static_cast<uint8_t>(key.front()) & 15];
         key.remove_prefix(1);
         continue;
      }
      if (key.front() == '"' || key.front() == '\\')
         text += '\\';
      text += key.substr(0, printable);
      key.remove_prefix(printable);
   }
   return text + "\"]";
}

} // namespace Kem
