#include "Kem/Printable.h"

#include <cstdio>

namespace Kem {

namespace {

uint32_t characterOf(std::string_view utf8) {
   auto const byte = [&](size_t i) { return static_cast<uint8_t>(utf8[i]); };
   if (utf8.size() == 1)
      return byte(0);
   uint32_t character = byte(0) & (0x7fu >> utf8.size());
   for (size_t i = 1; i < utf8.size(); ++i)
      character = character << 6 | (byte(i) & 0x3fu);
   return character;
}

bool isPrintable(uint32_t character) {
   bool const isControl = character < 0x20 || (character >= 0x7f && character < 0xa0);
   bool const endsLine = character == 0x2028 || character == 0x2029;
   // Embeddings, overrides and isolates: what follows is shown in another order than it has.
   bool const turns =
       (character >= 0x202a && character <= 0x202e) || (character >= 0x2066 && character <= 0x2069);
   return !isControl && !endsLine && !turns;
}

} // namespace

size_t utf8Length(std::string_view text) {
   if (text.empty())
      return 0;
   auto const byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
   uint8_t const first = byte(0);
   if (first < 0x80)
      return 1;
   size_t const length = first >= 0xc2 && first < 0xe0   ? 2
                         : first >= 0xe0 && first < 0xf0 ? 3
                         : first >= 0xf0 && first < 0xf5 ? 4
                                                         : 0;
   if (length == 0 || length > text.size())
      return 0;
   for (size_t i = 1; i < length; ++i)
      if (byte(i) >> 6 != 2)
         return 0;
   // The shortest form only, no surrogates, nothing beyond U+10FFFF.
   uint8_t const second = byte(1);
   bool const isBad = (first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f) ||
                      (first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f);
   return isBad ? 0 : length;
}

size_t printableLength(std::string_view text) {
   size_t const length = utf8Length(text);
   return length > 0 && isPrintable(characterOf(text.substr(0, length))) ? length : 0;
}

std::string printable(std::string_view text, Backslashes backslashes) {
   std::string out;
   out.reserve(text.size());
   while (!text.empty()) {
      size_t size = printableLength(text);
      if (size == 0) {
         // A character that isn't to be printed as a whole, a byte that is none by itself.
         size = utf8Length(text) > 0 ? utf8Length(text) : 1;
         for (char const c : text.substr(0, size)) {
            char code[5];
            std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(static_cast<uint8_t>(c)));
            out += c == '\n' ? "\\n" : c == '\t' ? "\\t" : code;
         }
      } else if (text[0] == '\\' && backslashes == Backslashes::doubled) {
         out += "\\\\";
      } else {
         out += text.substr(0, size);
      }
      text.remove_prefix(size);
   }
   return out;
}

std::string printableJson(std::string json) {
   std::string out;
   size_t done = 0;
   for (size_t at = 0; at < json.size();) {
      // Those of ASCII but DEL are escaped already when they are in a string.
      auto const byte = static_cast<uint8_t>(json[at]);
      if (byte < 0x7f) {
         ++at;
         continue;
      }
      std::string_view const rest = std::string_view(json).substr(at);
      size_t const size = utf8Length(rest) > 0 ? utf8Length(rest) : 1;
      if (printableLength(rest) == 0) {
         char code[8];
         std::snprintf(code, sizeof code, "\\u%04x",
                       static_cast<unsigned>(characterOf(rest.substr(0, size)) & 0xffff));
         out.append(json, done, at - done);
         out += code;
         done = at + size;
      }
      at += size;
   }
   if (done == 0)
      return json;
   return out.append(json, done);
}

} // namespace Kem
