#include "treejson/JsonText.h"
#include "Kem/Printable.h"

#include <cstdio>

namespace TreeJson {

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
      size_t const length = Kem::utf8Length(bytes);
      std::string_view const character = bytes.substr(0, length == 0 ? 1 : length);
      auto const byte = [&](size_t i) { return static_cast<uint8_t>(character[i]); };
      bool const isPrivate = length == 3 && byte(0) == 0xee && byte(1) >= 0xbe;
      if (length == 0 || isPrivate)
         appendByteEscapes(out, character);
      else if (length > 1 && Kem::printableLength(character) == 0)
         out += Kem::printableJson(std::string(character));
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
