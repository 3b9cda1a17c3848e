#include "treejson/JsonText.h"

#include <cstdio>

namespace TreeJson {

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

void appendUtf8(std::string& out, uint32_t character) {
   auto const tail = [&](unsigned shift) { out += static_cast<char>(0x80 | (character >> shift & 0x3f)); };
   if (character < 0x80) {
      out += static_cast<char>(character);
   } else if (character < 0x800) {
      out += static_cast<char>(0xc0 | character >> 6);
      tail(0);
   } else if (character < 0x10000) {
      out += static_cast<char>(0xe0 | character >> 12);
      tail(6);
      tail(0);
   } else {
      out += static_cast<char>(0xf0 | character >> 18);
      tail(12);
      tail(6);
      tail(0);
   }
}

namespace {

void appendEscape(std::string& out, unsigned character) {
   char text[8];
   std::snprintf(text, sizeof text, "\\u%04x", character);
   out += text;
}

void appendByteEscapes(std::string& out, std::string_view bytes) {
   for (char const byte : bytes)
      appendEscape(out, 0xef00u + static_cast<uint8_t>(byte));
}

bool isPlain(char c) {
   return static_cast<uint8_t>(c) >= 0x20 && static_cast<uint8_t>(c) < 0x7f && c != '"' && c != '\\';
}

} // namespace

void appendQuoted(std::string& out, std::string_view bytes) {
   out += '"';
   while (!bytes.empty()) {
      size_t plain = 0;
      while (plain < bytes.size() && isPlain(bytes[plain]))
         ++plain;
      out += bytes.substr(0, plain);
      bytes.remove_prefix(plain);
      if (bytes.empty())
         break;
      size_t const length = utf8Length(bytes);
      std::string_view const character = bytes.substr(0, length == 0 ? 1 : length);
      auto const byte = [&](size_t i) { return static_cast<uint8_t>(character[i]); };
      bool const isPrivate = length == 3 && byte(0) == 0xee && byte(1) >= 0xbe;
      if (length == 0 || isPrivate)
         appendByteEscapes(out, character);
      else if (length == 2 && byte(0) == 0xc2 && byte(1) < 0xa0)
         appendEscape(out, byte(1));
      else if (length > 1)
         out += character;
      else if (character == "\"" || character == "\\")
         (out += '\\') += character;
      else if (character == "\n")
         out += "\\n";
      else if (character == "\t")
         out += "\\t";
      else
         appendEscape(out, byte(0));
      bytes.remove_prefix(character.size());
   }
   out += '"';
}

} // namespace TreeJson
