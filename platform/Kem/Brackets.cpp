#include "Kem/Brackets.h"

#include <cstdint>

namespace Kem {

namespace {

bool isControl(char c) {
   return static_cast<uint8_t>(c) < 0x20 || c == 0x7f;
}

} // namespace

bool needsQuotes(std::string_view key) {
   if (key.empty() || key.front() == '"')
      return true;
   for (char const c : key)
      if (c == ']' || isControl(c))
         return true;
   return false;
}

std::string bracketed(std::string_view key) {
   std::string text = "[";
   if (!needsQuotes(key))
      return text.append(key).append("]");
   text += '"';
   constexpr char digits[] = "0123456789abcdef";
   for (char const c : key) {
      if (isControl(c)) {
         text += "\\x";
         text += digits[static_cast<uint8_t>(c) >> 4];
         text += digits[static_cast<uint8_t>(c) & 15];
         continue;
      }
      if (c == '"' || c == '\\')
         text += '\\';
      text += c;
   }
   return text + "\"]";
}

} // namespace Kem
