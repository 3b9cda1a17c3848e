// Strings of bytes as JSON strings and back, without loss.
//
// Strings of the tree are bytes, JSON's are Unicode. Bytes that are no UTF-8 come out as the private
// characters U+EF80 to U+EFFF, one for each byte 0x80 to 0xff, and these characters are read as those bytes.
// So every JSON reader takes the text, and no two strings of the tree look alike.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace TreeJson {

// Bytes of the UTF-8 character that the text begins with; 0 where none does, also at the end of the text.
size_t utf8Length(std::string_view text);

void appendUtf8(std::string& out, uint32_t character);

// Appends the bytes as a JSON string, quotes included. Control characters are
// escaped, those beyond ASCII too.
void appendQuoted(std::string& out, std::string_view bytes);

// The byte that the private character stands for, or -1.
constexpr int escapedByte(uint32_t character) {
   return character >= 0xef80 && character <= 0xefff ? static_cast<int>(character - 0xef00) : -1;
}

} // namespace TreeJson
